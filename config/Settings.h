#pragma once

#include <QJsonObject>
#include <QString>

/// Typed readers of the settings, each with the value that stands in for a missing or wrongly typed key, and setters
/// that change the object in memory only.
namespace Settings {

/// Characters of the longest text of the server's that is kept among the settings. A longer one is no name, and the
/// file must stay one that is read again.
constexpr int longestServerText = 1000;

QString serverAddress(const QJsonObject &config);
int serverPort(const QJsonObject &config); ///< 1..65535; anything else counts as missing
QString audioInput(const QJsonObject &config);
QString serialPort(const QJsonObject &config); ///< empty: no radio interface; a missing key is not that
int baudRate(const QJsonObject &config);       ///< at least 1; anything else counts as missing
bool cosLogicHigh(const QJsonObject &config);
bool pttInvert(const QJsonObject &config);

int micGainPercent(const QJsonObject &config);     ///< as stored, not clamped
int speakerGainPercent(const QJsonObject &config); ///< as stored, not clamped
bool agcEnabled(const QJsonObject &config);
int totDurationSeconds(const QJsonObject &config); ///< 0: unlimited

/// Gains in dB of the three bands, as stored.
struct Tone {
    double bass = 0.0;
    double mid = 0.0;
    double treble = 0.0;
};
Tone txTone(const QJsonObject &config);
Tone rxTone(const QJsonObject &config);

QString hwid(const QJsonObject &config);
QString callsign(const QJsonObject &config);
QString password(const QJsonObject &config);
QString lastRoom(const QJsonObject &config);
QString defaultRoom(const QJsonObject &config);
QString gatewayName(const QJsonObject &config);
QString frequency(const QJsonObject &config);
QString location(const QJsonObject &config);
QString whatsapp(const QJsonObject &config);
QString responsibleName(const QJsonObject &config);
QString responsibleCallsign(const QJsonObject &config);
QString email(const QJsonObject &config);

void setHwid(QJsonObject &config, const QString &value);
void setGatewayName(QJsonObject &config, const QString &value);
void setFrequency(QJsonObject &config, const QString &value);
void setLocation(QJsonObject &config, const QString &value);
void setWhatsapp(QJsonObject &config, const QString &value);
void setResponsibleName(QJsonObject &config, const QString &value);
void setResponsibleCallsign(QJsonObject &config, const QString &value);
void setEmail(QJsonObject &config, const QString &value);

} // namespace Settings
