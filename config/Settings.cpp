#include "config/Settings.h"

#include <limits>

namespace {

QString text(const QJsonObject &config, const char *key, const QString &fallback = QString()) {
    return config.value(QLatin1String(key)).toString(fallback);
}

bool flag(const QJsonObject &config, const char *key, bool fallback) {
    return config.value(QLatin1String(key)).toBool(fallback);
}

int integer(const QJsonObject &config, const char *key, int fallback) {
    return config.value(QLatin1String(key)).toInt(fallback);
}

int integerWithin(int least, int most, const QJsonObject &config, const char *key, int fallback) {
    const int value = integer(config, key, fallback);
    return value >= least && value <= most ? value : fallback;
}

double number(const QJsonObject &config, const char *key) {
    return config.value(QLatin1String(key)).toDouble(0.0);
}

void setText(QJsonObject &config, const char *key, const QString &value) {
    config.insert(QLatin1String(key), value);
}

} // namespace

QString Settings::serverAddress(const QJsonObject &config) {
    return text(config, "server_address", QStringLiteral("voice.kivo.example"));
}

int Settings::serverPort(const QJsonObject &config) {
    return integerWithin(1, 65535, config, "server_port", 8080);
}

QString Settings::audioInput(const QJsonObject &config) {
    return text(config, "audio_input", QStringLiteral("hw:1,0"));
}

QString Settings::serialPort(const QJsonObject &config) {
    return text(config, "serial_port", QStringLiteral("/dev/ttyUSB0"));
}

int Settings::baudRate(const QJsonObject &config) {
    return integerWithin(1, std::numeric_limits<int>::max(), config, "baudrate", 9600);
}

bool Settings::cosLogicHigh(const QJsonObject &config) {
    return flag(config, "cos_logic_high", true);
}

bool Settings::pttInvert(const QJsonObject &config) {
    return flag(config, "ptt_invert", false);
}

int Settings::micGainPercent(const QJsonObject &config) {
    return integer(config, "mic_gain", 80);
}

int Settings::speakerGainPercent(const QJsonObject &config) {
    return integer(config, "speaker_gain", 80);
}

bool Settings::agcEnabled(const QJsonObject &config) {
    return flag(config, "agc_enabled", false);
}

int Settings::totDurationSeconds(const QJsonObject &config) {
    return integer(config, "tot_duration", 0);
}

Settings::Tone Settings::txTone(const QJsonObject &config) {
    return {number(config, "tx_bass"), number(config, "tx_mid"), number(config, "tx_treble")};
}

Settings::Tone Settings::rxTone(const QJsonObject &config) {
    return {number(config, "rx_bass"), number(config, "rx_mid"), number(config, "rx_treble")};
}

QString Settings::hwid(const QJsonObject &config) {
    return text(config, "hwid");
}

QString Settings::callsign(const QJsonObject &config) {
    return text(config, "callsign");
}

QString Settings::password(const QJsonObject &config) {
    return text(config, "password");
}

QString Settings::lastRoom(const QJsonObject &config) {
    return text(config, "last_room");
}

QString Settings::defaultRoom(const QJsonObject &config) {
    return text(config, "default_room", QStringLiteral("Lobby"));
}

QString Settings::gatewayName(const QJsonObject &config) {
    return text(config, "gateway_name");
}

QString Settings::frequency(const QJsonObject &config) {
    return text(config, "frequency");
}

QString Settings::location(const QJsonObject &config) {
    return text(config, "location");
}

QString Settings::whatsapp(const QJsonObject &config) {
    return text(config, "whatsapp");
}

QString Settings::responsibleName(const QJsonObject &config) {
    return text(config, "responsible_name");
}

QString Settings::responsibleCallsign(const QJsonObject &config) {
    return text(config, "responsible_callsign");
}

QString Settings::email(const QJsonObject &config) {
    return text(config, "email");
}

void Settings::setHwid(QJsonObject &config, const QString &value) {
    setText(config, "hwid", value);
}

void Settings::setGatewayName(QJsonObject &config, const QString &value) {
    setText(config, "gateway_name", value);
}

void Settings::setFrequency(QJsonObject &config, const QString &value) {
    setText(config, "frequency", value);
}

void Settings::setLocation(QJsonObject &config, const QString &value) {
    setText(config, "location", value);
}

void Settings::setWhatsapp(QJsonObject &config, const QString &value) {
    setText(config, "whatsapp", value);
}

void Settings::setResponsibleName(QJsonObject &config, const QString &value) {
    setText(config, "responsible_name", value);
}

void Settings::setResponsibleCallsign(QJsonObject &config, const QString &value) {
    setText(config, "responsible_callsign", value);
}

void Settings::setEmail(QJsonObject &config, const QString &value) {
    setText(config, "email", value);
}
