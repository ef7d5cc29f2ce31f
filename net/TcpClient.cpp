#include "net/TcpClient.h"

#include "net/ControlCommands.h"
#include "net/DeadPeerDetection.h"
#include "net/TcpReplies.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QTcpSocket>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

/// What is taken from the network in one turn of the event loop, and how long its replies may take (some are written to
/// the disk), so that a flood of them cannot hold up the radio. The kernel keeps the rest, and the server waits.
constexpr qint64 bytesPerTurn = 4096;
constexpr qint64 turnMs = 4;

/// The bytes of one command. A line end or NUL inside would start a second command or cut this one short.
QByteArray commandBytes(QString line) {
    const auto breaksLine = [](QChar c) {
        return c == QLatin1Char('\r') || c == QLatin1Char('\n') || c == QLatin1Char('\0');
    };
    std::replace_if(line.begin(), line.end(), breaksLine, QChar(QLatin1Char(' ')));
    return line.toUtf8() + "\r\n";
}

} // namespace

TcpClient::TcpClient(QObject *parent, EpochClock clock, TcpTimings timings)
    : QObject(parent),
      m_clock(std::move(clock)),
      m_timings(timings),
      m_socket(new QTcpSocket(this)),
      m_heartbeat(this),
      m_attemptTimer(this),
      m_nextTurn(this) {
    m_attemptTimer.setSingleShot(true);
    m_nextTurn.setSingleShot(true);
    m_socket->setReadBufferSize(bytesPerTurn);
    connect(m_socket, &QTcpSocket::connected, this, &TcpClient::onConnected);
    connect(m_socket, &QTcpSocket::disconnected, this, &TcpClient::onDisconnected);
    connect(m_socket, &QTcpSocket::readyRead, this, &TcpClient::onReadyRead);
    connect(m_socket, &QTcpSocket::errorOccurred, this, &TcpClient::onError);
    connect(&m_heartbeat, &QTimer::timeout, this, &TcpClient::onHeartbeat);
    connect(&m_attemptTimer, &QTimer::timeout, this, &TcpClient::onAttemptTimeout);
    connect(&m_nextTurn, &QTimer::timeout, this, &TcpClient::takeTurn);
}

TcpClient::~TcpClient() {
    m_socket->disconnect(this);
    quit();
    // The socket's destructor throws away what is still queued. A failure here has nobody left to tell.
    m_socket->flush();
}

void TcpClient::connectToServer(const QString &host, quint16 port) {
    if (socketState() != QAbstractSocket::UnconnectedState)
        return;
    qDebug() << "[TCP] Connecting to" << host << ":" << port;
    m_attemptTimer.start(m_timings.attempt);
    m_socket->connectToHost(host, port);
}

bool TcpClient::isConnected() const {
    return socketState() == QAbstractSocket::ConnectedState;
}

QAbstractSocket::SocketState TcpClient::socketState() const {
    return m_socket->state();
}

void TcpClient::sendCommand(const QString &line) {
    if (!m_connected)
        return;
    // The write only queues; when the link cannot take it any more, the socket raises an error by itself.
    m_socket->write(commandBytes(line));
}

void TcpClient::sendPing() {
    m_pingSentMs = m_clock();
    sendCommand(commandLine(ControlCommand::ping));
}

void TcpClient::quit() {
    sendCommand(commandLine(ControlCommand::quit));
    m_heartbeat.stop();
}

void TcpClient::sendAudio(const QByteArray &) {
    qDebug() << "[TCP] sendAudio called but TCP audio not supported - drop frame";
}

void TcpClient::login(const QString &callsign, const QString &password, const QString &hwid) {
    sendCommand(hwid.isEmpty() ? commandLine(ControlCommand::login, {callsign, password})
                               : commandLine(ControlCommand::loginWithHwid, {callsign, password, hwid}));
}

void TcpClient::loginHwid(const QString &a, const QString &b) {
    sendCommand(commandLine(ControlCommand::loginHwid, {a, b}));
}

void TcpClient::joinRoom(const QString &room) {
    sendCommand(commandLine(ControlCommand::join, {room}));
}

void TcpClient::leaveRoom() {
    sendCommand(commandLine(ControlCommand::leave));
}

void TcpClient::requestRooms() {
    sendCommand(commandLine(ControlCommand::rooms));
}

void TcpClient::startTransmit(const QString &name) {
    sendCommand(commandLine(ControlCommand::txStart, {name}));
}

void TcpClient::stopTransmit(const QString &name) {
    sendCommand(commandLine(ControlCommand::txStop, {name}));
}

void TcpClient::requestAllUsers() {
    sendCommand(commandLine(ControlCommand::allUsers));
}

void TcpClient::requestOnlineUsers() {
    sendCommand(commandLine(ControlCommand::onlineUsers));
}

void TcpClient::requestUserInfo(const QString &name) {
    sendCommand(commandLine(ControlCommand::userInfo, {name}));
}

void TcpClient::approveUser(int id) {
    sendCommand(commandLine(ControlCommand::approveUser, {QString::number(id)}));
}

void TcpClient::unapproveUser(int id) {
    sendCommand(commandLine(ControlCommand::unapproveUser, {QString::number(id)}));
}

void TcpClient::resetHwid(int id) {
    resetHwid(QString::number(id));
}

void TcpClient::resetHwid(const QString &callsign) {
    sendCommand(commandLine(ControlCommand::resetHwid, {callsign}));
}

void TcpClient::kickUser(int id) {
    sendCommand(commandLine(ControlCommand::kickUser, {QString::number(id)}));
}

void TcpClient::moveUser(int id, const QString &room) {
    sendCommand(commandLine(ControlCommand::moveUser, {QString::number(id), room}));
}

void TcpClient::muteUser(int id, bool muted) {
    sendCommand(commandLine(ControlCommand::muteUser, {QString::number(id), QString::number(muted ? 1 : 0)}));
}

int TcpClient::userId() const {
    return m_userId;
}

bool TcpClient::isAdmin() const {
    return m_isAdmin;
}

QString TcpClient::loginText() const {
    return m_loginText;
}

float TcpClient::lastLatencyMs() const {
    return m_lastLatencyMs;
}

QString TcpClient::lastReply() const {
    return m_lastReply;
}

void TcpClient::dispatchLine(const QString &line) {
    if (line == QLatin1String("PONG")) {
        onPong();
    } else if (line.startsWith(QLatin1String("ROIP SERVER READY"))) {
        qDebug() << "[TCP] Server siap";
    } else {
        m_lastReply = line;
        Replies::handle(*this, line);
    }
}

void TcpClient::onConnected() {
    m_attemptTimer.stop();
    m_pingSentMs = 0;
    m_connected = true;
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    if (!detectDeadPeer(static_cast<int>(m_socket->socketDescriptor()), m_timings.peerSilence)) {
        const int reason = errno;
        qWarning() << "[TCP] Dead peer detection not available:" << std::strerror(reason);
    }
    m_heartbeat.start(m_timings.heartbeat);
    qDebug() << "[TCP] Connected!";
    Q_EMIT connected();
}

void TcpClient::onDisconnected() {
    m_connected = false;
    m_heartbeat.stop();
    // What this connection still had to say must neither delay the news nor be taken for a part of the next one.
    m_nextTurn.stop();
    m_framer.clear();
    m_joiner.clear();
    qDebug() << "[TCP] Disconnected!";
    Q_EMIT disconnected();
}

void TcpClient::onReadyRead() {
    if (!m_nextTurn.isActive())
        takeTurn();
}

void TcpClient::takeTurn() {
    QElapsedTimer turn;
    turn.start();
    // Each unit is consumed before it is handled, so its handlers may do anything to the link, even start it anew.
    for (auto unit = firstUnit(); unit; unit = m_framer.next()) {
        handleUnit(*unit);
        if (turn.elapsed() >= turnMs) {
            m_nextTurn.start();
            return;
        }
    }
    if (m_socket->bytesAvailable() > 0) // it has waited for what earlier turns had left
        m_nextTurn.start();
}

/// What earlier turns have left comes first, and only behind it is the network read.
std::optional<ReplyUnit> TcpClient::firstUnit() {
    if (auto unit = m_framer.next())
        return unit;
    m_framer.append(m_socket->readAll());
    return m_framer.next();
}

void TcpClient::onError(QAbstractSocket::SocketError) {
    m_attemptTimer.stop();
    reportError(m_socket->errorString());
}

void TcpClient::onHeartbeat() {
    sendPing();
}

/// The socket would try every address twice, half a minute each, before it gave up by itself.
void TcpClient::onAttemptTimeout() {
    m_socket->abort();
    reportError(QStringLiteral("Connection timed out"));
}

void TcpClient::reportError(const QString &text) {
    qWarning() << "[TCP] Error:" << text;
    Q_EMIT errorOccurred(text);
}

void TcpClient::handleUnit(const ReplyUnit &unit) {
    if (const auto *block = std::get_if<AudioBlock>(&unit))
        Q_EMIT audioReceived(block->payload, block->userId);
    else if (const auto reply = m_joiner.add(std::get<QString>(unit)))
        dispatchLine(*reply);
}

void TcpClient::onPong() {
    if (m_pingSentMs < 1)
        return;
    m_lastLatencyMs = static_cast<float>(m_clock() - std::exchange(m_pingSentMs, 0));
    Q_EMIT pingUpdated(m_lastLatencyMs);
}
