#include "sim/server/VoiceServer.h"

#include "sim/server/ControlLink.h"
#include "sim/server/MediaRelay.h"
#include "sim/server/PacketFilter.h"
#include "sim/server/ServerCommands.h"
#include "sim/server/Switchboard.h"
#include "sim/wire/AudioDatagram.h"

#include <QNetworkDatagram>
#include <QTcpSocket>
#include <QTimer>

#include <utility>

namespace sim {

namespace {

QList<QByteArray> alongPath(const VoiceServer::Path &path, const QByteArray &bytes) {
    return path ? path(bytes) : QList<QByteArray>{bytes};
}

} // namespace

VoiceServer::VoiceServer(QObject *parent)
    : QObject(parent),
      m_board(makeSwitchboard()),
      m_relay(std::make_unique<MediaRelay>(*m_board, [this](const QString &callsign, const QByteArray &frame) {
          Q_EMIT audioRelayed(callsign, frame);
      })) {
    connect(&m_listener, &QTcpServer::newConnection, this, &VoiceServer::acceptClients);
    connect(&m_media, &QUdpSocket::readyRead, this, &VoiceServer::readDatagrams);
}

VoiceServer::~VoiceServer() {
    blockSignals(true);
    stop();
}

std::unique_ptr<Switchboard> VoiceServer::makeSwitchboard() {
    SwitchboardOutputs out;
    out.line = [this](int id, const QString &line) { sendLine(id, line); };
    out.hangUp = [this](int id, const QString &callsign) { hangUp(id, callsign); };
    out.loggedIn = [this](const QString &callsign) { Q_EMIT loggedIn(callsign); };
    out.joined = [this](const QString &callsign, const QString &room) { Q_EMIT joined(callsign, room); };
    out.left = [this](const QString &callsign, const QString &room) { Q_EMIT left(callsign, room); };
    out.talkingChanged = [this](const QString &callsign, bool talking) { Q_EMIT talkingChanged(callsign, talking); };
    return std::make_unique<Switchboard>(std::move(out));
}

void VoiceServer::addAccount(const Account &account) {
    m_board->accounts().add(account);
}

void VoiceServer::addRoom(const QString &name, const QByteArray &key) {
    m_board->rooms().add({name, key});
}

void VoiceServer::setRoomKey(const QString &name, const QByteArray &key) {
    if (Room *room = m_board->rooms().find(name))
        room->key = key;
}

bool VoiceServer::start(quint16 tcpPort, quint16 udpPort) {
    if (!m_listener.listen(QHostAddress::LocalHost, tcpPort) || !m_media.bind(QHostAddress::LocalHost, udpPort)) {
        stop();
        return false;
    }
    if (m_silent)
        setSilent(true);
    return true;
}

void VoiceServer::stop() {
    m_listener.close();
    m_media.close();
    const QList<int> ids = m_links.keys();
    for (const int id : ids)
        hangUp(id, m_board->close(id));
}

quint16 VoiceServer::tcpPort() const {
    return m_listener.serverPort();
}

quint16 VoiceServer::udpPort() const {
    return m_media.localPort();
}

void VoiceServer::kick(const QString &callsign, const QString &reason) {
    if (Session *client = session(callsign))
        m_board->kick(*client, reason);
}

void VoiceServer::mute(const QString &callsign, bool muted, const QString &byWhom) {
    if (Session *client = session(callsign))
        m_board->mute(*client->account, muted, byWhom);
}

void VoiceServer::move(const QString &callsign, const QString &room) {
    Session *client = session(callsign);
    const Room *target = m_board->rooms().find(room);
    if (client && target)
        m_board->move(*client, *target, QStringLiteral("server"));
}

void VoiceServer::announceQuality(const QString &preset, int bitrate, int sampleRate, int frameDurationMs,
                                  int complexity) {
    m_board->announce({preset, bitrate, sampleRate, frameDurationMs, complexity});
}

void VoiceServer::sendRaw(const QString &callsign, const QByteArray &bytes) {
    for (auto link = m_links.cbegin(); link != m_links.cend(); ++link) {
        const Session *client = m_board->byId(link.key());
        if (callsign.isEmpty() || (client->account && client->account->callsign == callsign))
            link.value()->send(bytes);
    }
}

void VoiceServer::setTalking(const QString &callsign, bool talking) {
    if (Session *client = session(callsign))
        m_board->setTalking(*client, talking);
}

void VoiceServer::sendAudioTo(const QString &callsign, quint32 talkerId, const QByteArray &frame) {
    const Session *client = session(callsign);
    if (client && client->media.port != 0)
        sendDatagram({client->media, AudioDatagram{talkerId, frame}.bytes()});
}

bool VoiceServer::isLoggedIn(const QString &callsign) const {
    return session(callsign) != nullptr;
}

bool VoiceServer::isTalking(const QString &callsign) const {
    const Session *client = session(callsign);
    return client && client->talking;
}

QString VoiceServer::roomOf(const QString &callsign) const {
    const Session *client = session(callsign);
    return client ? client->room : QString();
}

void VoiceServer::setSilent(bool silent) {
    m_silent = silent;
    if (m_listener.isListening()) {
        dropIncoming(m_listener.socketDescriptor(), silent);
        dropIncoming(m_media.socketDescriptor(), silent);
    }
    for (ControlLink *link : std::as_const(m_links))
        link->setSilent(silent);
}

void VoiceServer::setIgnored(std::function<bool(const QString &)> ignored) {
    m_ignored = std::move(ignored);
}

void VoiceServer::setMediaLoss(std::function<bool(const QByteArray &)> lost) {
    m_lost = std::move(lost);
}

void VoiceServer::setReplyDelay(int delayMs) {
    m_replyDelayMs = delayMs;
}

void VoiceServer::setReplyPath(Path path, const QString &callsign) {
    m_replyPath = std::move(path);
    m_replyPathCallsign = callsign;
}

void VoiceServer::setMediaPath(Path path) {
    m_mediaPath = std::move(path);
}

void VoiceServer::acceptClients() {
    while (QTcpSocket *socket = m_listener.nextPendingConnection()) {
        const int id = ++m_lastId;
        auto *link = new ControlLink(socket, this);
        m_links.insert(id, link);
        m_board->open(id);
        // Queued: a connection may close while one of its commands is being carried out.
        connect(
            link, &ControlLink::closed, this, [this, id] { onClosed(id); }, Qt::QueuedConnection);
        connect(link, &ControlLink::lineReceived, this, [this, id](const QString &line) { takeLine(id, line); });
        if (m_silent)
            link->setSilent(true);
        sendLine(id, QStringLiteral("ROIP SERVER READY"));
        Q_EMIT clientConnected();
    }
}

void VoiceServer::takeLine(int id, const QString &line) {
    const Session *client = m_board->byId(id);
    Q_EMIT lineReceived(client->account ? client->account->callsign : QString(), line);
    if (!m_ignored || !m_ignored(line))
        runCommand(*m_board, id, line);
}

void VoiceServer::sendLine(int id, const QString &line) {
    const QByteArray bytes = line.toUtf8() + "\r\n";
    if (m_replyDelayMs == 0) {
        sendPieces(id, bytes);
        return;
    }
    auto *timer = new QTimer(this);
    timer->setTimerType(Qt::PreciseTimer);
    timer->setSingleShot(true);
    connect(timer, &QTimer::timeout, this, [this, id, bytes] { sendPieces(id, bytes); });
    connect(timer, &QTimer::timeout, timer, &QObject::deleteLater);
    timer->start(m_replyDelayMs);
}

void VoiceServer::sendPieces(int id, const QByteArray &line) {
    ControlLink *link = m_links.value(id);
    if (!link)
        return;
    const QList<QByteArray> pieces = hasReplyPath(id) ? alongPath(m_replyPath, line) : QList<QByteArray>{line};
    for (const QByteArray &piece : pieces)
        link->send(piece);
}

bool VoiceServer::hasReplyPath(int id) const {
    const Session *client = m_board->byId(id);
    const QString callsign = client && client->account ? client->account->callsign : QString();
    return m_replyPathCallsign.isEmpty() || m_replyPathCallsign == callsign;
}

void VoiceServer::hangUp(int id, const QString &callsign) {
    if (ControlLink *link = m_links.take(id)) {
        link->hangUp();
        Q_EMIT clientDisconnected(callsign);
    }
}

void VoiceServer::onClosed(int id) {
    hangUp(id, m_board->close(id));
}

void VoiceServer::readDatagrams() {
    while (m_media.hasPendingDatagrams()) {
        const QNetworkDatagram datagram = m_media.receiveDatagram();
        Q_EMIT datagramReceived(datagram.data());
        if (m_lost && m_lost(datagram.data()))
            continue;
        const Endpoint from{datagram.senderAddress(), quint16(datagram.senderPort())};
        for (const Outgoing &answer : m_relay->receive(datagram.data(), from))
            sendDatagram(answer);
    }
}

void VoiceServer::sendDatagram(const Outgoing &datagram) {
    if (m_silent || (m_lost && m_lost(datagram.bytes)))
        return;
    const QList<QByteArray> pieces = alongPath(m_mediaPath, datagram.bytes);
    for (const QByteArray &piece : pieces) {
        // Media may get lost anywhere; what the kernel does not take is no different.
        m_media.writeDatagram(piece, datagram.to.address, datagram.to.port);
    }
}

Session *VoiceServer::session(const QString &callsign) const {
    return m_board->byCallsign(callsign);
}

} // namespace sim
