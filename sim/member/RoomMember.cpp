#include "sim/member/RoomMember.h"

#include "sim/MonotonicClock.h"
#include "sim/sound/AudioAnalysis.h"
#include "sim/wire/AudioDatagram.h"
#include "sim/wire/SealedFrame.h"

#include <QDebug>
#include <QNetworkDatagram>

#include <algorithm>
#include <chrono>

namespace sim {

using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds handshakePatience = 500ms;

/// 0 at -50 dBFS and below, 100 at full scale.
int meterLevel(const std::vector<qint16> &samples) {
    return std::clamp(int((rmsDbfs(samples) + 50.0) * 2.0), 0, 100);
}

QStringList items(const QString &column) {
    return column.split(QLatin1Char(','), Qt::SkipEmptyParts);
}

} // namespace

RoomMember::RoomMember(QObject *parent) : QObject(parent) {
    m_handshakeTimer.setInterval(handshakePatience);
    m_speechTimer.setTimerType(Qt::PreciseTimer);
    m_speechTimer.setSingleShot(true);
    connect(&m_control, &QTcpSocket::connected, this, &RoomMember::logIn);
    connect(&m_control, &QTcpSocket::disconnected, this, &RoomMember::forgetSession);
    connect(&m_control, &QTcpSocket::readyRead, this, &RoomMember::readLines);
    connect(&m_media, &QUdpSocket::readyRead, this, &RoomMember::readDatagrams);
    connect(&m_handshakeTimer, &QTimer::timeout, this, &RoomMember::sendHandshake);
    connect(&m_speechTimer, &QTimer::timeout, this, &RoomMember::speakDueFrames);
}

RoomMember::~RoomMember() {
    // The socket's own end would otherwise still signal into this half-destroyed object.
    m_control.disconnect(this);
}

void RoomMember::connectToServer(const QString &host, quint16 tcpPort, quint16 udpPort, const QString &callsign,
                                 const QString &password, const QString &room) {
    m_serverAddress = QHostAddress(host);
    m_serverMediaPort = udpPort;
    m_callsign = callsign;
    m_password = password;
    m_wantedRoom = room;
    m_control.connectToHost(m_serverAddress, tcpPort);
}

void RoomMember::logIn() {
    m_control.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    sendLine(QStringLiteral("LOGIN %1 %2").arg(m_callsign, m_password));
}

void RoomMember::forgetSession() {
    m_handshakeTimer.stop();
    m_mediaStep = Media::Off;
    m_userId = 0;
    m_room.clear();
    m_members.clear();
    m_talkers.clear();
    m_readyAnnounced = false;
    finishSpeaking();
}

void RoomMember::disconnectFromServer() {
    m_control.disconnectFromHost();
}

bool RoomMember::isReady() const {
    return !m_room.isEmpty() && m_mediaStep == Media::Ready;
}

QString RoomMember::room() const {
    return m_room;
}

int RoomMember::userId() const {
    return m_userId;
}

QStringList RoomMember::members() const {
    return m_members;
}

QStringList RoomMember::talkers() const {
    return m_talkers;
}

void RoomMember::sendLine(const QString &line) {
    if (m_control.isOpen()) { // else it is lost, like all that was said before
        m_control.write(line.toUtf8() + "\r\n");
    }
}

const RoomMember::Reply RoomMember::replies[] = {
    {"LOGIN_OK", &RoomMember::takeLogin},     {"JOIN_OK", &RoomMember::takeJoin},
    {"MOVED", &RoomMember::takeMove},         {"USER_LIST", &RoomMember::takeUserList},
    {"TX_START_OK", &RoomMember::takeTalkOk}, {"TX_START_FAILED", &RoomMember::takeTalkRefusal},
};

void RoomMember::readLines() {
    while (m_control.canReadLine())
        takeLine(QString::fromUtf8(m_control.readLine()).trimmed());
}

void RoomMember::takeLine(const QString &line) {
    const QStringList fields = line.split(QLatin1Char('|'));
    for (const Reply &reply : replies) {
        if (fields.first() == QLatin1String(reply.keyword))
            (this->*reply.take)(fields);
    }
    Q_EMIT lineReceived(line);
}

void RoomMember::takeLogin(const QStringList &fields) {
    m_token = fields.value(1);
    m_userId = fields.value(4).toInt();
    sendLine(QStringLiteral("JOIN %1").arg(m_wantedRoom));
    startMedia();
}

void RoomMember::takeJoin(const QStringList &fields) {
    enterRoom(fields.value(1), fields.value(2));
}

void RoomMember::takeMove(const QStringList &fields) {
    enterRoom(fields.value(1), fields.value(3));
}

void RoomMember::enterRoom(const QString &room, const QString &keyText) {
    m_room = room;
    m_roomKey = QByteArray::fromBase64(keyText.toLatin1());
    m_decoders.clear();
    announceReady();
}

void RoomMember::takeUserList(const QStringList &fields) {
    m_members = items(fields.value(3));
    m_talkers.clear();
    const QStringList states = items(fields.value(5));
    for (int i = 0; i < m_members.size(); ++i) {
        if (states.value(i) == QLatin1String("TX"))
            m_talkers.append(m_members.at(i));
    }
}

void RoomMember::startMedia() {
    m_media.close();
    if (!m_media.bind(QHostAddress(QHostAddress::AnyIPv4))) {
        qWarning() << "room member has no media socket:" << m_media.errorString();
        return;
    }
    m_mediaStep = Media::AwaitingPong;
    m_handshakeTimer.start();
    sendHandshake();
}

void RoomMember::sendHandshake() {
    if (m_mediaStep == Media::AwaitingPong)
        sendDatagram("PING");
    else
        sendDatagram("TOKEN:" + m_token.toLatin1() + ':' + QByteArray::number(m_userId));
}

void RoomMember::readDatagrams() {
    while (m_media.hasPendingDatagrams())
        takeDatagram(m_media.receiveDatagram().data());
}

void RoomMember::takeDatagram(const QByteArray &datagram) {
    if (datagram == "PONG" && m_mediaStep == Media::AwaitingPong) {
        m_mediaStep = Media::AwaitingConfirmation;
        sendHandshake();
    } else if (datagram.startsWith("REGISTERED:") && m_mediaStep == Media::AwaitingConfirmation) {
        m_mediaStep = Media::Ready;
        m_handshakeTimer.stop();
        announceReady();
    } else if (const auto audio = AudioDatagram::fromBytes(datagram); audio && m_mediaStep == Media::Ready) {
        hear(audio->talkerId, audio->frame);
    }
}

void RoomMember::sendDatagram(const QByteArray &datagram) {
    // What the kernel does not take is lost like any datagram on its way.
    m_media.writeDatagram(datagram, m_serverAddress, m_serverMediaPort);
}

void RoomMember::announceReady() {
    if (isReady() && !m_readyAnnounced) {
        m_readyAnnounced = true;
        Q_EMIT ready();
    }
}

void RoomMember::hear(quint32 talkerId, const QByteArray &frame) {
    Heard heard{monotonicNs(), int(talkerId), frame.size(), false, {}};
    if (const std::optional<QByteArray> packet = opened(frame, m_roomKey)) {
        heard.opened = true;
        heard.samples = m_decoders[talkerId].decode(*packet);
    }
    m_heard.push_back(heard);
    Q_EMIT frameHeard(heard.talkerId, meterLevel(heard.samples));
}

const std::vector<RoomMember::Heard> &RoomMember::heard() const {
    return m_heard;
}

Pcm RoomMember::heardFrom(int talkerId) const {
    Pcm pcm{voiceRateHz, {}};
    for (const Heard &heard : m_heard) {
        if (heard.talkerId == talkerId)
            pcm.samples.insert(pcm.samples.end(), heard.samples.begin(), heard.samples.end());
    }
    return pcm;
}

void RoomMember::forgetHeard() {
    m_heard.clear();
}

void RoomMember::startTalking() {
    sendLine(QStringLiteral("TX_START \"%1\"").arg(m_room));
}

void RoomMember::stopTalking() {
    sendLine(QStringLiteral("TX_STOP \"%1\"").arg(m_room));
    finishSpeaking();
}

void RoomMember::sendFrame(const QByteArray &opusPacket) {
    sendDatagram(AudioDatagram{quint32(m_userId), sealed(opusPacket, m_roomKey)}.bytes());
}

void RoomMember::speak(const Pcm &pcm) {
    m_speechTimer.stop();
    m_speech.emplace(pcm);
    startTalking();
}

bool RoomMember::isSpeaking() const {
    return m_speech.has_value();
}

/// The server lets audio through only once it has taken TX_START, so the speech begins with its answer.
void RoomMember::takeTalkOk(const QStringList &) {
    if (m_speech && !m_speech->hasBegun()) {
        m_speech->begin(monotonicNs());
        speakDueFrames();
    }
}

void RoomMember::takeTalkRefusal(const QStringList &) {
    finishSpeaking();
}

void RoomMember::speakDueFrames() {
    while (const std::optional<QByteArray> packet = m_speech->takeDue(monotonicNs()))
        sendFrame(*packet);
    const qint64 nowNs = monotonicNs();
    if (m_speech->isOver(nowNs)) {
        stopTalking();
        return;
    }
    const std::chrono::nanoseconds wait(std::max<qint64>(0, m_speech->nextNs() - nowNs));
    m_speechTimer.start(std::chrono::ceil<std::chrono::milliseconds>(wait));
}

void RoomMember::finishSpeaking() {
    m_speechTimer.stop();
    if (m_speech) {
        m_speech.reset();
        Q_EMIT finishedSpeaking();
    }
}

} // namespace sim
