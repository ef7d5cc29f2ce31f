#include "net/UdpAudio.h"

#include "net/MediaDatagram.h"
#include "net/MediaHealth.h"

#include <QDebug>
#include <QHostInfo>
#include <QUdpSocket>

#include <algorithm>
#include <netinet/in.h>
#include <sys/socket.h>
#include <utility>

namespace {

/// After so many datagrams the event loop gets its turn, so that a flood cannot hold up the timers.
constexpr int maxDatagramsPerTurn = 64;

/// As large as a datagram gets; kept so that no datagram makes the buffer grow.
constexpr int receiveCapacity = 65536;

qint64 sendAudioCallCount = 0;
qint64 notReadyDropCount = 0;

struct PendingDatagram {
    int size;
    quint32 sourceAddress; ///< IPv4, host byte order
};

/// Looks at the datagram that a read would take. Does the work of hasPendingDatagrams() at the same price, and knows
/// the sender without the heap allocations that readDatagram() spends on it.
std::optional<PendingDatagram> peekDatagram(qintptr socketDescriptor) {
    sockaddr_in source = {};
    socklen_t sourceLength = sizeof source;
    const ssize_t size = recvfrom(static_cast<int>(socketDescriptor), nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT,
                                  reinterpret_cast<sockaddr *>(&source), &sourceLength);
    if (size < 0)
        return std::nullopt;
    return PendingDatagram{static_cast<int>(size), ntohl(source.sin_addr.s_addr)};
}

std::string_view bytesOf(const QByteArray &bytes) {
    return {bytes.constData(), static_cast<std::size_t>(bytes.size())};
}

void logEnabling(const QString &host, quint16 port, const QString &token) {
    qDebug() << "[UDP] ========================================";
    qDebug() << "[UDP] enableUdp called with:";
    qDebug() << "[UDP]   host:" << host;
    qDebug() << "[UDP]   port:" << port;
    qDebug() << "[UDP]   token length:" << token.length();
    qDebug() << "[UDP] ========================================";
}

} // namespace

UdpAudio::UdpAudio(QObject *parent, EpochClock clock, UdpTimings timings)
    : QObject(parent),
      m_clock(std::move(clock)),
      m_timings(timings),
      m_handshakeTimer(this),
      m_healthTimer(this),
      m_reinitTimer(this) {
    m_received.reserve(receiveCapacity);
    m_handshakeTimer.setSingleShot(true);
    m_reinitTimer.setSingleShot(true);
    connect(&m_handshakeTimer, &QTimer::timeout, this, &UdpAudio::onHandshakeTimeout);
    connect(&m_healthTimer, &QTimer::timeout, this, &UdpAudio::onHealthCheck);
    connect(&m_reinitTimer, &QTimer::timeout, this, &UdpAudio::onReinitialize);
    m_healthTimer.start(m_timings.healthCheck);
}

UdpAudio::~UdpAudio() {
    goIdle();
}

void UdpAudio::setUserId(int userId) {
    m_userId = userId;
}

void UdpAudio::enableUdp(const QString &host, quint16 port, const QString &token) {
    logEnabling(host, port, token);
    goIdle();
    if (host.isEmpty()) {
        qWarning() << "[UDP] ERROR: host is empty!";
        return;
    }
    m_serverPort = port;
    m_token = token;
    startLookup(host);
}

bool UdpAudio::isReady() const {
    return m_ready;
}

void UdpAudio::sendAudio(const QByteArray &frame) {
    constexpr qint64 loggedDrops = 5;
    ++sendAudioCallCount;
    if (!m_ready) {
        if (++notReadyDropCount <= loggedDrops)
            qDebug() << "[UDP] sendAudio: UDP not ready, skipping";
        return;
    }
    if (frame.isEmpty())
        return;
    buildAudioDatagram(m_outgoing, m_userId, frame);
    sendDatagram(m_outgoing);
}

void UdpAudio::resendToken() {
    if (m_socket == nullptr)
        return;
    qDebug() << "[UDP] TOKEN resent, length:" << m_token.length();
    sendDatagram("TOKEN:" + m_token.toUtf8());
}

qint64 UdpAudio::framesReceived() const {
    return m_framesReceived;
}

qint64 UdpAudio::datagramsSent() const {
    return m_datagramsSent;
}

qint64 UdpAudio::sendAudioCalls() {
    return sendAudioCallCount;
}

void UdpAudio::onReadyRead() {
    int taken = 0;
    while (taken < maxDatagramsPerTurn && takeDatagram())
        ++taken;
    // The socket listens on only after a read. A wake-up that brought nothing, as after a bad checksum, must not leave
    // it deaf.
    if (taken == 0 && m_socket != nullptr)
        m_socket->readDatagram(nullptr, 0);
}

void UdpAudio::onHandshakeTimeout() {
    qWarning() << "[UDP] Handshake timeout at step" << static_cast<int>(m_step);
    if (m_step == Step::AwaitConfirmation) {
        // A lost confirmation must not cost the audio path.
        qWarning() << "[UDP] No token confirmation, but continuing anyway";
        becomeReady();
        return;
    }
    if (m_step == Step::AwaitPong)
        qWarning() << "[UDP] No PONG received from server!";
    qWarning() << "[UDP] UDP handshake failed! Using TCP fallback";
    Q_EMIT udpFailed();
}

void UdpAudio::onHealthCheck() {
    if (!m_ready || m_socket == nullptr || m_serverPort == 0)
        return;
    const QAbstractSocket::SocketState state = m_socket->state();
    const bool socketBad = state == QAbstractSocket::UnconnectedState || state == QAbstractSocket::ClosingState;
    const qint64 nowMs = m_clock();
    const MediaHealth health = judgeMediaHealth(nowMs, m_lastReceivedMs, socketBad);
    if (health == MediaHealth::Failed) {
        qWarning() << "[UDP] Socket health check FAILED —"
                   << "state:" << state << "silent:" << nowMs - m_lastReceivedMs << "ms"
                   << "— reinitializing...";
        m_reinitTimer.start(m_timings.reinitDelay);
    } else if (health == MediaHealth::Quiet) {
        sendDatagram("KEEPALIVE");
    }
}

void UdpAudio::onReinitialize() {
    qDebug() << "[UDP] Reinitializing UDP socket...";
    enableUdp(m_serverAddress.toString(), m_serverPort, m_token);
}

void UdpAudio::goIdle() {
    m_ready = false;
    m_step = Step::AwaitPong;
    m_lastReceivedMs = 0;
    m_handshakeTimer.stop();
    m_reinitTimer.stop();
    if (m_lookupId)
        QHostInfo::abortHostLookup(*std::exchange(m_lookupId, std::nullopt));
    discardSocket();
    m_serverAddress.clear();
    m_serverPort = 0;
}

void UdpAudio::startLookup(const QString &host) {
    // Asking the resolver for the name of an address would be a needless question to a server that may be away.
    const QHostAddress literal(host);
    if (!literal.isNull()) {
        start(host, {literal});
        return;
    }
    m_lookupId = QHostInfo::lookupHost(host, this, &UdpAudio::onLookedUp);
}

void UdpAudio::onLookedUp(const QHostInfo &info) {
    // An answer already on its way when its look-up was abandoned still arrives.
    if (m_lookupId != info.lookupId())
        return;
    m_lookupId.reset();
    if (info.error() == QHostInfo::NoError)
        start(info.hostName(), info.addresses());
    else
        qWarning() << "[UDP] Failed to resolve host:" << info.hostName();
}

void UdpAudio::start(const QString &host, const QList<QHostAddress> &addresses) {
    const auto address = std::find_if(addresses.begin(), addresses.end(), [](const QHostAddress &candidate) {
        return candidate.protocol() == QAbstractSocket::IPv4Protocol;
    });
    if (address == addresses.end()) {
        qWarning() << "[UDP] No IP addresses found for:" << host;
        return;
    }
    qDebug() << "[UDP] Resolved to:" << address->toString();
    if (!bindSocket())
        return;
    m_serverAddress = *address;
    enterStep(Step::AwaitPong, "PING");
}

bool UdpAudio::bindSocket() {
    m_socket = new QUdpSocket(this);
    connect(m_socket, &QUdpSocket::readyRead, this, &UdpAudio::onReadyRead);
    if (!m_socket->bind(QHostAddress(QHostAddress::AnyIPv4))) {
        qWarning() << "[UDP] Failed to bind UDP socket:" << m_socket->errorString();
        discardSocket();
        return false;
    }
    qDebug() << "[UDP] Bound to local port:" << m_socket->localPort();
    return true;
}

/// The socket may be the one whose signal is being handled, so it goes only when the event loop has its turn.
void UdpAudio::discardSocket() {
    if (m_socket == nullptr)
        return;
    m_socket->disconnect(this);
    m_socket->close();
    std::exchange(m_socket, nullptr)->deleteLater();
}

void UdpAudio::enterStep(Step step, const QByteArray &text) {
    m_step = step;
    sendDatagram(text);
    m_handshakeTimer.start(m_timings.handshakeStep);
}

void UdpAudio::sendDatagram(const QByteArray &datagram) {
    // A datagram that the network does not take is lost like one that it loses on the way.
    if (m_socket->writeDatagram(datagram.constData(), datagram.size(), m_serverAddress, m_serverPort) >= 0)
        ++m_datagramsSent;
}

/// False when no datagram was pending.
bool UdpAudio::takeDatagram() {
    if (m_socket == nullptr)
        return false;
    const auto pending = peekDatagram(m_socket->socketDescriptor());
    if (!pending)
        return false;
    m_received.resize(pending->size);
    const bool isRead = m_socket->readDatagram(m_received.data(), m_received.size()) == m_received.size();
    if (isRead && pending->sourceAddress == m_serverAddress.toIPv4Address())
        handleDatagram();
    return true;
}

void UdpAudio::handleDatagram() {
    m_lastReceivedMs = m_clock();
    switch (controlReply(bytesOf(m_received))) {
    case ControlReply::Pong:
        onPong();
        break;
    case ControlReply::Registered:
        qDebug() << "[UDP] UDP is now READY - audio will use UDP!";
        becomeReady();
        break;
    case ControlReply::Confirmed:
        becomeReady();
        break;
    case ControlReply::KeepAliveOk:
        break;
    case ControlReply::None:
        handleAudio();
        break;
    }
}

void UdpAudio::handleAudio() {
    if (!m_ready || m_received.size() <= frameHeaderSize)
        return;
    const int userId = speakerId(bytesOf(m_received));
    const QByteArray frame(m_received.constData() + frameHeaderSize, m_received.size() - frameHeaderSize);
    ++m_framesReceived;
    Q_EMIT audioReceived(frame);
    Q_EMIT audioReceivedFrom(userId, frame);
}

void UdpAudio::onPong() {
    if (m_step != Step::AwaitPong)
        return;
    QByteArray token = "TOKEN:" + m_token.toUtf8();
    if (m_userId > 0)
        token += ':' + QByteArray::number(m_userId);
    enterStep(Step::AwaitConfirmation, token);
}

void UdpAudio::becomeReady() {
    m_handshakeTimer.stop();
    m_step = Step::Done;
    m_ready = true;
    Q_EMIT udpReady();
}
