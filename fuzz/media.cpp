#include "Datagrams.h"
#include "Fuzz.h"
#include "Promise.h"
#include "Script.h"
#include "SignalCounter.h"
#include "Surroundings.h"
#include "net/UdpAudio.h"

#include <QtEndian>

#include <array>

using namespace std::chrono_literals;

namespace {

/// A media link between its server and a stranger who sends datagrams to it from another address:
///
///   s  the server sends a datagram, f  the stranger does        a  a frame is sent
///   e  the link is started anew, u  with another user id        k  the token is presented again
///   t  time passes, how long tells the first byte
class Link {
public:
    Link() {
        QObject::connect(&m_link, &UdpAudio::audioReceivedFrom,
                         [this](int userId, const QByteArray &frame) { receive(userId, frame); });
    }

    /// Brings the link to a step of the handshake: 0 idle, 1 and 2 under way, 3 done.
    void handshake(int step) {
        if (step >= 1)
            enable();
        if (step >= 2)
            fromServer("PONG");
        if (step >= 3)
            fromServer("OK");
        promise(m_link.isReady() == (step >= 3), "a handshake makes the link ready");
    }

    void play(const Step &step) {
        constexpr std::array spans{200ms, 1000ms, 3000ms, 10000ms, 30000ms, 91000ms, 120000ms, 1ms};
        switch (step.what) {
        case 's':
            fromServer(step.bytes);
            break;
        case 'f':
            fromStranger(step.bytes);
            break;
        case 'a':
            sendFrame(step.bytes);
            break;
        case 'e':
            enable();
            break;
        case 'u':
            setUserId(step.bytes);
            break;
        case 'k':
            m_link.resendToken();
            break;
        case 't':
            if (!step.bytes.isEmpty())
                m_time.pass(spans[static_cast<std::size_t>(step.bytes[0]) % spans.size()]);
            break;
        default:
            break;
        }
        m_time.settle();
        checkSent();
    }

private:
    void enable() {
        m_link.enableUdp(Datagrams::address(0), m_server.port(), QStringLiteral("token"));
        m_time.settle();
        promise(!m_link.isReady(), "a link that starts anew is not ready");
        checkSent();
    }

    void setUserId(const QByteArray &bytes) {
        m_userId = bytes.size() < 4 ? bytes.size() : qFromBigEndian<qint32>(bytes.constData());
        m_link.setUserId(m_userId);
    }

    void sendFrame(const QByteArray &frame) {
        QByteArray datagram(4, '\0');
        qToBigEndian<qint32>(m_userId, datagram.data());
        m_framesSent.append(datagram + frame);
        m_link.sendAudio(frame);
    }

    void fromServer(const QByteArray &datagram) {
        m_wasReady = m_link.isReady();
        m_heard = &datagram;
        m_server.send(datagram, m_server.peerPort());
        m_time.awaitInput();
        m_time.settle();
        m_heard = nullptr;
        promise(m_link.isReady() || !m_wasReady, "no datagram takes the link down");
        checkSent();
    }

    void fromStranger(const QByteArray &datagram) {
        const bool wasReady = m_link.isReady();
        const qint64 received = m_link.framesReceived();
        const qint64 sent = m_link.datagramsSent();
        m_stranger.send(datagram, m_server.peerPort());
        m_time.awaitInput();
        m_time.settle();
        promise(m_link.isReady() == wasReady && m_link.framesReceived() == received && m_link.datagramsSent() == sent,
                "a stranger's datagram does nothing");
    }

    void receive(int userId, const QByteArray &frame) {
        promise(m_heard != nullptr && m_wasReady, "frames come from the server over a link that is ready");
        promise(m_heard->size() > 4 && frame == m_heard->mid(4) &&
                    userId == qFromBigEndian<qint32>(m_heard->constData()),
                "a frame is what the datagram held");
    }

    void checkSent() {
        for (const QByteArray &datagram : m_server.heard())
            promise(isText(datagram) || m_framesSent.contains(datagram),
                    "the link sends its texts and its frames only");
        promise(m_stranger.heard().isEmpty(), "a stranger is told nothing");
    }

    static bool isText(const QByteArray &datagram) {
        return datagram == "PING" || datagram == "KEEPALIVE" || datagram == "TOKEN:token" ||
               datagram.startsWith("TOKEN:token:");
    }

    VirtualTime &m_time = Surroundings::instance().time();
    Datagrams m_server{0, 0};
    Datagrams m_stranger{1, 0};
    UdpAudio m_link{nullptr, [this] { return m_time.nowMs(); }};
    SignalCounter m_signals{m_link};
    int m_userId = 0;
    bool m_wasReady = false;
    const QByteArray *m_heard = nullptr; ///< the server's datagram on its way
    QList<QByteArray> m_framesSent;      ///< as datagrams
};

} // namespace

/// Datagrams to the media link. The first byte tells at which step of the handshake they begin to come.
void fuzz(const QByteArray &input) {
    Link link;
    link.handshake(firstByte(input) & 3U);
    for (const Step &step : scriptOf(input.mid(1), 's'))
        link.play(step);
}
