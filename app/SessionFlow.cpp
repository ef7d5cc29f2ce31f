#include "app/SessionFlow.h"

#include "app/Gateway.h"
#include "app/RadioTraffic.h"
#include "app/StateFiles.h"
#include "audio/AudioEngine.h"
#include "config/Settings.h"
#include "net/TcpClient.h"
#include "net/UdpAudio.h"

#include <QDebug>

#include <utility>

namespace {

constexpr quint16 mediaPort = 8082;

} // namespace

SessionFlow::SessionFlow(Gateway &gateway, StateFiles &files, RadioTraffic &traffic, const SessionDelays &delays)
    : m_gateway(gateway),
      m_files(files),
      m_traffic(traffic),
      m_delays(delays) {
    m_reconnection.setSingleShot(true);
    connect(&m_reconnection, &QTimer::timeout, this, &SessionFlow::reconnect);
}

void SessionFlow::scheduleFirstConnection() {
    after(m_delays.firstConnection, [this] { connectIfIdle(); });
}

void SessionFlow::refresh() {
    if (!m_gateway.online())
        return;
    m_gateway.link->requestRooms();
    if (!m_gateway.isAdmin())
        return;
    m_gateway.link->requestOnlineUsers();
    m_gateway.link->requestAllUsers();
}

void SessionFlow::ping() {
    if (m_gateway.online())
        m_gateway.link->sendPing();
}

void SessionFlow::onConnected() {
    qInfo() << "[Server] Terhubung ke server Kivo Darvi";
    m_gateway.session.connected = true;
    m_gateway.setTransmitting(false);
    m_files.writeStatus();
    login();
}

void SessionFlow::onDisconnected() {
    qInfo() << "[Server] Terputus dari server";
    SessionState &session = m_gateway.session;
    session.connected = false;
    session.currentRoom.clear();
    m_gateway.setTransmitting(false);
    session.cosPending = false;
    m_traffic.forgetTalker();
    m_files.writeStatus();
    if (!session.loginBlocked)
        m_reconnection.start(m_delays.reconnection);
}

// An error of a link that was up is followed by its disconnection, and the server's own complaints come over a link
// that stays up; only an attempt that has failed leaves an unconnected socket and says nothing more.
void SessionFlow::onLinkError() {
    const bool attemptFailed =
        !m_gateway.session.connected && m_gateway.link->socketState() == QAbstractSocket::UnconnectedState;
    if (attemptFailed && !m_gateway.session.loginBlocked)
        m_reconnection.start(m_delays.reconnection);
}

void SessionFlow::onLoginResult(bool success, const QString &message) {
    if (success)
        loginSucceeded();
    else
        loginFailed(message);
}

void SessionFlow::onJoinRoomResult(bool success, const QString &room) {
    if (!success)
        return;
    SessionState &session = m_gateway.session;
    if (!session.currentRoom.isEmpty() && session.currentRoom != room)
        m_traffic.forgetTalker();
    session.currentRoom = room;
    if (room.size() <= Settings::longestServerText)
        m_gateway.config.object().insert(QStringLiteral("last_room"), room);
    m_gateway.config.save();
    m_files.writeStatus();
    qInfo() << "[Room] Bergabung ke room:" << room;
    after(m_delays.onlineUsers, [this] {
        if (m_gateway.online() && m_gateway.isAdmin())
            m_gateway.link->requestOnlineUsers();
    });
    m_traffic.startPendingTransmission();
}

void SessionFlow::onLeaveRoomResult(bool success, const QString &room) {
    if (!success)
        return;
    qInfo() << "[Room] Keluar dari room:" << room;
    SessionState &session = m_gateway.session;
    if (session.transmitting && m_gateway.online()) {
        m_gateway.link->stopTransmit(room);
        m_gateway.setTransmitting(false);
    }
    session.currentRoom.clear();
    session.usersInRoom = 0;
    session.cosPending = false;
    m_traffic.forgetTalker();
    forgetReceivedAudio();
    m_files.writeStatus();
}

void SessionFlow::onRoomKey(const QString &key) {
    forgetReceivedAudio();
    m_gateway.engine->setEncryptionKey(key.toUtf8());
}

void SessionFlow::connectIfIdle() {
    if (m_gateway.link->socketState() != QAbstractSocket::UnconnectedState)
        return;
    qDebug() << "[Server] Menghubungi server...";
    m_gateway.connectToServer();
}

void SessionFlow::reconnect() {
    if (!m_gateway.session.loginBlocked && !Settings::serverAddress(m_gateway.config.object()).isEmpty())
        m_gateway.connectToServer();
}

void SessionFlow::login() {
    const QJsonObject &settings = m_gateway.config.object();
    const QString callsign = Settings::callsign(settings);
    const QString password = Settings::password(settings);
    if (m_gateway.ensureHardwareId())
        m_gateway.config.save();
    if (callsign.isEmpty() || password.isEmpty()) {
        qWarning() << "[Appliance] Cannot login — callsign or password empty"
                   << "(callsign:" << (callsign.isEmpty() ? QStringLiteral("EMPTY") : callsign)
                   << "password:" << (password.isEmpty() ? "EMPTY" : "***") << ")"
                   << "— waiting for login trigger from Web UI";
        return;
    }
    qDebug() << "[Server] Auto-login:" << callsign.toUpper();
    m_gateway.link->login(callsign.toUpper(), password, Settings::hwid(settings));
}

void SessionFlow::loginSucceeded() {
    const bool admin = m_gateway.isAdmin();
    const int userId = m_gateway.userId();
    qInfo() << "[Server] Login berhasil — admin:" << admin << "user_id:" << userId;
    QJsonObject &settings = m_gateway.config.object();
    settings.insert(QStringLiteral("is_admin"), admin);
    settings.insert(QStringLiteral("user_id"), userId);
    m_gateway.config.save();
    m_files.writeStatus();
    enableMedia();
    chooseRoom();
    after(m_delays.profile, [this, admin] {
        if (admin)
            m_gateway.link->requestAllUsers();
        else
            m_gateway.link->requestUserInfo(Settings::callsign(m_gateway.config.object()));
    });
}

void SessionFlow::loginFailed(const QString &message) {
    qWarning() << "[Appliance] Login failed:" << message;
    if (!message.contains(QLatin1String("Perangkat")) && !message.contains(QLatin1String("tidak terdaftar")))
        return;
    m_gateway.session.loginBlocked = true;
    m_gateway.link->quit();
}

void SessionFlow::enableMedia() {
    if (!m_gateway.media)
        return;
    m_gateway.media->setUserId(m_gateway.userId());
    m_gateway.media->enableUdp(m_gateway.session.serverAddress, mediaPort, m_gateway.link->loginText());
}

void SessionFlow::chooseRoom() {
    SessionState &session = m_gateway.session;
    if (!session.rejoinRoom.isEmpty()) {
        const QString room = std::exchange(session.rejoinRoom, QString());
        qDebug() << "[Appliance] Rejoining previous room:" << room;
        joinLater(room);
    } else if (session.currentRoom.isEmpty()) {
        const QJsonObject &settings = m_gateway.config.object();
        const QString lastRoom = Settings::lastRoom(settings);
        const QString room = lastRoom.isEmpty() ? Settings::defaultRoom(settings) : lastRoom;
        if (room.isEmpty())
            return;
        qDebug() << "[Appliance] Bergabung pada room (last/default):" << room;
        joinLater(room);
    } else {
        qDebug() << "[Appliance] Already in room:" << session.currentRoom << "— skip auto-join";
        after(m_delays.roomsInRoom, [this] { m_gateway.link->requestRooms(); });
    }
}

void SessionFlow::joinLater(const QString &room) {
    after(m_delays.join, [this, room] { m_gateway.link->joinRoom(room); });
    after(m_delays.roomsAfterJoin, [this] { m_gateway.link->requestRooms(); });
}

void SessionFlow::forgetReceivedAudio() {
    m_gateway.engine->clearBuffers();
    m_gateway.engine->resetDecoders();
}

// Qt times a single shot precisely below two seconds and coarsely from there on, which is as fine as each of these
// needs.
void SessionFlow::after(std::chrono::milliseconds delay, std::function<void()> action) {
    QTimer::singleShot(delay, this, std::move(action));
}
