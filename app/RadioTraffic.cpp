#include "app/RadioTraffic.h"

#include "app/Gateway.h"
#include "app/StateFiles.h"
#include "audio/AudioEngine.h"
#include "config/Settings.h"
#include "net/TcpClient.h"
#include "net/UdpAudio.h"

#include <QDebug>

namespace {

constexpr int loggedDrops = 3;

} // namespace

RadioTraffic::RadioTraffic(Gateway &gateway, StateFiles &files) : m_gateway(gateway), m_files(files) {}

void RadioTraffic::onCosChanged(bool active) {
    SessionState &session = m_gateway.session;
    const bool pending = active && session.currentRoom.isEmpty();
    if (pending)
        qWarning() << "[COS] ACTIVE — room belum join, TX pending";
    m_gateway.setTransmitting(active && !pending);
    session.cosPending = pending;
    m_files.writeStatus();
    if (!m_gateway.online() || session.currentRoom.isEmpty())
        return;
    if (active) {
        qInfo() << "[TX]" << callsign() << "TX —" << session.currentRoom;
        m_gateway.link->startTransmit(session.currentRoom);
    } else {
        qInfo() << "[TX]" << callsign() << "RX";
        m_gateway.link->stopTransmit(session.currentRoom);
    }
}

void RadioTraffic::onFrameEncoded(const QByteArray &frame) {
    SessionState &session = m_gateway.session;
    if (!session.transmitting)
        return;
    if (m_gateway.media->isReady()) {
        m_gateway.media->sendAudio(frame);
        return;
    }
    ++session.framesDropped;
    if (session.framesDropped <= loggedDrops)
        qWarning() << "[Appliance] TX tapi UDP belum ready — frame dropped";
}

void RadioTraffic::onFrameReceived(int userId, const QByteArray &frame) {
    m_gateway.engine->onAudioReceivedFrom(frame, static_cast<quint32>(userId));
}

void RadioTraffic::onTotExpired() {
    if (!m_gateway.radioOpen() || !m_gateway.session.radioKeyed)
        return;
    m_gateway.keyRadio(false);
    qInfo() << "[TOT] PTT dimatikan — downlink di-mute oleh TOT";
}

void RadioTraffic::startPendingTransmission() {
    SessionState &session = m_gateway.session;
    if (!session.cosPending)
        return;
    session.cosPending = false;
    qDebug() << "[Appliance] COS was pending — sending TX_START now for room:" << session.currentRoom;
    m_gateway.setTransmitting(true);
    m_files.writeStatus();
    if (m_gateway.online())
        m_gateway.link->startTransmit(session.currentRoom);
}

void RadioTraffic::followTalker(const std::optional<QString> &talker) {
    SessionState &session = m_gateway.session;
    session.remoteTalker = talker;
    if (!m_gateway.radioOpen())
        return;
    if (!talker && session.radioKeyed)
        releaseRadio();
    else if (talker && !session.radioKeyed && !session.speakerMuted)
        keyRadioFor(*talker);
}

void RadioTraffic::forgetTalker() {
    m_gateway.session.remoteTalker.reset();
    if (m_gateway.session.radioKeyed)
        releaseRadio();
}

void RadioTraffic::keyRadioFor(const QString &talker) {
    m_gateway.keyRadio(true);
    m_gateway.session.lastTalker = talker;
    qInfo() << "[TX]" << talker << "TX";
}

void RadioTraffic::releaseRadio() {
    m_gateway.keyRadio(false);
    qInfo() << "[TX]" << m_gateway.session.lastTalker << "RX";
}

QString RadioTraffic::callsign() {
    return Settings::callsign(m_gateway.config.object());
}
