#pragma once

#include <QJsonObject>
#include <QString>

/// Typed readers of the settings used in more than one place, each with the value that stands in for a missing or
/// wrongly typed key, and setters that change the object in memory only.
namespace Settings {

QString serverAddress(const QJsonObject &config);
int serverPort(const QJsonObject &config);
QString audioInput(const QJsonObject &config);
QString serialPort(const QJsonObject &config);
QString hwid(const QJsonObject &config);
QString callsign(const QJsonObject &config);
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
