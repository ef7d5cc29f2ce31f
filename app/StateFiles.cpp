#include "app/StateFiles.h"

#include "app/Gateway.h"
#include "app/WebUiFile.h"
#include "audio/AudioEngine.h"
#include "config/Settings.h"
#include "net/TcpClient.h"

#include <QDebug>
#include <QJsonArray>
#include <QJsonObject>

namespace {

struct StatusRow {
    const char *key;
    QJsonValue (*value)(Gateway &);
};

constexpr StatusRow statusRows[] = {
    {"connected", [](Gateway &gateway) { return QJsonValue(gateway.session.connected); }},
    {"room", [](Gateway &gateway) { return QJsonValue(gateway.session.currentRoom); }},
    {"transmitting", [](Gateway &gateway) { return QJsonValue(gateway.session.transmitting); }},
    {"muted_mic", [](Gateway &gateway) { return QJsonValue(gateway.engine && gateway.engine->isMicMuted()); }},
    {"muted_spk", [](Gateway &gateway) { return QJsonValue(gateway.engine && gateway.engine->isSpkMuted()); }},
    {"admin_muted", [](Gateway &gateway) { return QJsonValue(gateway.session.adminMuted); }},
    {"is_admin", [](Gateway &gateway) { return QJsonValue(gateway.online() && gateway.isAdmin()); }},
    {"user_id", [](Gateway &gateway) { return QJsonValue(gateway.online() ? gateway.userId() : 0); }},
    {"callsign", [](Gateway &gateway) { return QJsonValue(Settings::callsign(gateway.config.object())); }},
    {"ping_ms", [](Gateway &gateway) { return QJsonValue(gateway.session.pingMs); }},
    {"users", [](Gateway &gateway) { return QJsonValue(gateway.session.usersOnline); }},
    {"users_in_room", [](Gateway &gateway) { return QJsonValue(gateway.session.usersInRoom); }},
};

int integer(const QVariantMap &map, const char *key) {
    return map.value(QLatin1String(key)).toInt();
}

} // namespace

StateFiles::StateFiles(Gateway &gateway)
    : m_gateway(gateway),
      m_statusFile(gateway.paths.statusFile()),
      m_levelFile(gateway.paths.vuFile()) {}

void StateFiles::writeStatus() {
    QJsonObject status;
    for (const StatusRow &row : statusRows)
        status.insert(QLatin1String(row.key), row.value(m_gateway));
    writeWebUiJson(m_statusFile, status);
}

// Five times a second: a short text put together by hand, without the JSON writer.
void StateFiles::writeLevels() {
    const AudioEngine *engine = m_gateway.engine;
    const QByteArray input = QByteArray::number(engine ? engine->inputLevel() : 0);
    const QByteArray output = QByteArray::number(engine ? engine->outputLevel() : 0);
    writeWebUiFile(m_levelFile, "{\"input\":" + input + ",\"output\":" + output + "}\n");
}

void StateFiles::onPingUpdated(float latencyMs) {
    m_gateway.session.pingMs = static_cast<int>(latencyMs);
}

void StateFiles::onRoomList(const QStringList &rooms) {
    writeWebUiJson(m_gateway.exchangeFile("kivo-rooms.json"), QJsonArray::fromStringList(rooms));
}

void StateFiles::onAudioQuality(const QVariantMap &announcement) {
    const Quality announced = {integer(announcement, "sample_rate"), integer(announcement, "bitrate"),
                               integer(announcement, "frame_duration")};
    const QString preset = announcement.value(QStringLiteral("preset")).toString();
    if (announced != m_applied)
        applyQuality(announced, integer(announcement, "complexity"), preset);
    writeWebUiJson(m_gateway.exchangeFile("kivo-server-info.json"),
                   QJsonObject{{QStringLiteral("codec"), QStringLiteral("Opus")},
                               {QStringLiteral("preset"), preset},
                               {QStringLiteral("sample_rate"), announced.sampleRate},
                               {QStringLiteral("bitrate"), announced.bitrate},
                               {QStringLiteral("frame_duration"), announced.frameDurationMs}});
}

void StateFiles::applyQuality(const Quality &quality, int complexity, const QString &preset) {
    m_applied = quality;
    qInfo() << "[Audio] Kualitas audio diubah:"
            << "preset:" << preset << "| SR:" << quality.sampleRate << "| BR:" << quality.bitrate
            << "| fd:" << quality.frameDurationMs << "ms";
    if (m_gateway.engine)
        m_gateway.engine->changeQuality(quality.sampleRate, quality.bitrate, complexity, quality.frameDurationMs);
}
