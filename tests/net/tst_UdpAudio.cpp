#include "ActiveTimers.h"
#include "SignalJournal.h"
#include "net/UdpAudio.h"

#include <QHostAddress>
#include <QHostInfo>
#include <QUdpSocket>
#include <QtTest>

using std::chrono::milliseconds;

namespace {

/// The media server: a socket on loopback that hears one link.
class MediaServer {
public:
    explicit MediaServer(const QHostAddress &address = QHostAddress(QHostAddress::LocalHost)) {
        m_isBound = m_socket.bind(address);
    }

    bool isBound() const { return m_isBound; }
    quint16 port() const { return m_socket.localPort(); }

    /// The next datagram of the link, or nothing within the deadline.
    QByteArray hear() {
        if (!QTest::qWaitFor([this] { return m_socket.hasPendingDatagrams(); }))
            return {};
        QByteArray datagram(static_cast<int>(m_socket.pendingDatagramSize()), '\0');
        m_socket.readDatagram(datagram.data(), datagram.size(), nullptr, &m_linkPort);
        return datagram;
    }

    bool hearsNothing() const { return !m_socket.hasPendingDatagrams(); }

    void say(const QByteArray &datagram, quint16 linkPort = 0) {
        m_socket.writeDatagram(datagram, QHostAddress(QHostAddress::LocalHost), linkPort != 0 ? linkPort : m_linkPort);
    }

    quint16 linkPort() const { return m_linkPort; }

private:
    QUdpSocket m_socket;
    bool m_isBound = false;
    quint16 m_linkPort = 0;
};

const QString host = QStringLiteral("127.0.0.1");
const QString token = QStringLiteral("secret-token");

/// Intervals that never pass within a test.
constexpr UdpTimings patient = {milliseconds(3'600'000), milliseconds(3'600'000), milliseconds(3'600'000)};

QByteArray frameFrom(int speaker, const QByteArray &frame) {
    return QByteArray::fromHex(QByteArray::number(speaker, 16).rightJustified(8, '0')) + frame;
}

/// Takes the link through its handshake; true when it is ready.
bool makeReady(UdpAudio &link, MediaServer &server) {
    link.enableUdp(host, server.port(), token);
    if (server.hear() != "PING")
        return false;
    server.say("PONG");
    if (!server.hear().startsWith("TOKEN:"))
        return false;
    server.say("OK");
    return QTest::qWaitFor([&link] { return link.isReady(); });
}

} // namespace

class TestUdpAudio : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void logsOnlyTheFirstFramesDroppedWhileNotReady(); // first: the count is the process's

    void logsHowItStarts();
    void refusesAnEmptyHost();
    void reportsAHostThatCannotBeResolved();
    void reportsAHostWithoutAnIpv4Address();
    void resolvesNamesWithoutBlocking();
    void abandonsAnEarlierLookUp();

    void becomesReadyByEachConfirmation_data();
    void becomesReadyByEachConfirmation();
    void leavesTheUserIdOutWhenItIsUnknown_data();
    void leavesTheUserIdOutWhenItIsUnknown();
    void sendsTheTokenOnceForTwoPongs();
    void waitsThreeSecondsForEachAnswer();
    void failsWithoutAPong();
    void isReadyWithoutAConfirmation();
    void completesTheHandshakeAfterALatePong();
    void startsAnewWhenEnabledAgain();
    void stopsTheOldHandshakeWhenEnabledAgain();
    void resendsTheTokenWithoutTheUserId();

    void sendsFramesBehindTheUserId();
    void dropsEmptyFrames();
    void handsOnFramesWithTheirSpeaker();
    void raisesNoAudioBeforeItIsReady();
    void takesABurstOfDatagramsInOrder();
    void dropsDatagramsFromAnotherAddress();
    void hearsAServerThatComesBack();
    void survivesBeingEnabledFromItsOwnSignals();

    void keepsTheHealthRules_data();
    void keepsTheHealthRules();
    void reinitializesASilentSocket();
    void waitsAMomentBeforeItReinitializes();
    void reinitializesAClosedSocketThatHeardNothing();
    void isNotReinitializedOnceEnabledAgain();
    void checksNothingBeforeItIsReady();
};

void TestUdpAudio::logsOnlyTheFirstFramesDroppedWhileNotReady() {
    UdpAudio link(nullptr, steadyEpochMs, patient);
    UdpAudio other(nullptr, steadyEpochMs, patient);
    SignalJournal journal(&link);
    const qint64 callsBefore = UdpAudio::sendAudioCalls();
    for (int i = 0; i < 4; ++i)
        link.sendAudio("frame");
    link.sendAudio(QByteArray());
    for (int i = 0; i < 3; ++i)
        other.sendAudio("frame");
    const QString line = QStringLiteral("debug [UDP] sendAudio: UDP not ready, skipping");
    QCOMPARE(journal.take(), (QStringList{line, line, line, line, line}));
    QCOMPARE(UdpAudio::sendAudioCalls() - callsBefore, 8);
}

void TestUdpAudio::logsHowItStarts() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    SignalJournal journal(&link);
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    const QString frame = QStringLiteral("debug [UDP] ========================================");
    QCOMPARE(journal.take(),
             (QStringList{frame, QStringLiteral("debug [UDP] enableUdp called with:"),
                          QStringLiteral("debug [UDP]   host: \"127.0.0.1\""),
                          QStringLiteral("debug [UDP]   port: %1").arg(server.port()),
                          QStringLiteral("debug [UDP]   token length: 12"), frame,
                          QStringLiteral("debug [UDP] Resolved to: \"127.0.0.1\""),
                          QStringLiteral("debug [UDP] Bound to local port: %1").arg(server.linkPort())}));
}

void TestUdpAudio::refusesAnEmptyHost() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    QVERIFY(makeReady(link, server));
    SignalJournal journal(&link);
    link.enableUdp(QString(), 8082, token);
    const QStringList lines = journal.take();
    QCOMPARE(lines.size(), 7);
    QCOMPARE(lines[2], QStringLiteral("debug [UDP]   host: \"\""));
    QCOMPARE(lines[6], QStringLiteral("warning [UDP] ERROR: host is empty!"));
    QVERIFY(!link.isReady());
    link.resendToken();
    QCOMPARE(journal.take(), QStringList()); // idle: nowhere to send it
}

void TestUdpAudio::reportsAHostThatCannotBeResolved() {
    UdpAudio link(nullptr, steadyEpochMs, patient);
    SignalJournal journal(&link);
    link.enableUdp(QStringLiteral("no such host.invalid"), 8082, token);
    QTRY_COMPARE_WITH_TIMEOUT(journal.seen().size(), 7, 20000);
    QCOMPARE(journal.take().last(), QStringLiteral("warning [UDP] Failed to resolve host: \"no such host.invalid\""));
}

void TestUdpAudio::reportsAHostWithoutAnIpv4Address() {
    UdpAudio link(nullptr, steadyEpochMs, patient);
    SignalJournal journal(&link);
    link.enableUdp(QStringLiteral("2001:db8::1"), 8082, token);
    QCOMPARE(journal.take().last(), QStringLiteral("warning [UDP] No IP addresses found for: \"2001:db8::1\""));
}

void TestUdpAudio::resolvesNamesWithoutBlocking() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    SignalJournal journal(&link);
    link.enableUdp(QStringLiteral("localhost"), server.port(), token);
    QCOMPARE(journal.take().size(), 6); // the look-up is under way
    QCOMPARE(server.hear(), QByteArray("PING"));
    QCOMPARE(journal.take().first(), QStringLiteral("debug [UDP] Resolved to: \"127.0.0.1\""));
}

void TestUdpAudio::abandonsAnEarlierLookUp() {
    MediaServer abandoned;
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    SignalJournal journal(&link);
    link.enableUdp(QStringLiteral("localhost"), abandoned.port(), token);
    link.enableUdp(QStringLiteral("localhost"), abandoned.port(), token);
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    // Whatever the resolver had to say has arrived by the time it has answered a later question.
    bool isAnswered = false;
    QHostInfo::lookupHost(QStringLiteral("localhost"), &link, [&isAnswered](const QHostInfo &) { isAnswered = true; });
    QTRY_VERIFY(isAnswered);
    QCOMPARE(journal.seen().filter(QStringLiteral("Resolved to")).size(), 1);
    QVERIFY(abandoned.hearsNothing());
}

void TestUdpAudio::becomesReadyByEachConfirmation_data() {
    QTest::addColumn<QByteArray>("confirmation");
    QTest::addColumn<QStringList>("events");
    QTest::newRow("REGISTERED") << QByteArray("REGISTERED:42")
                                << entries({"debug [UDP] UDP is now READY - audio will use UDP!", "udpReady()"});
    QTest::newRow("OK") << QByteArray(" OK\r\n") << entries({"udpReady()"});
    QTest::newRow("TOKEN_OK") << QByteArray("TOKEN_OK") << entries({"udpReady()"});
}

void TestUdpAudio::becomesReadyByEachConfirmation() {
    QFETCH(QByteArray, confirmation);
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, {.handshakeStep = milliseconds(500)});
    link.setUserId(42);
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    SignalJournal journal(&link);
    server.say("PONG\r\n");
    QCOMPARE(server.hear(), QByteArray("TOKEN:secret-token:42"));
    QVERIFY(!link.isReady());
    server.say(confirmation);
    QTRY_VERIFY(link.isReady());
    QTEST(journal.take(), "events");
    QCOMPARE(activeTimers(link), 1); // the health check
}

void TestUdpAudio::leavesTheUserIdOutWhenItIsUnknown_data() {
    QTest::addColumn<int>("userId");
    QTest::newRow("zero") << 0;
    QTest::newRow("negative") << -1;
}

void TestUdpAudio::leavesTheUserIdOutWhenItIsUnknown() {
    QFETCH(int, userId);
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    link.setUserId(userId);
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    server.say("PONG");
    QCOMPARE(server.hear(), QByteArray("TOKEN:secret-token"));
}

void TestUdpAudio::sendsTheTokenOnceForTwoPongs() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    server.say("PONG");
    server.say("PONG");
    server.say("KEEPALIVE_OK");
    server.say("OK");
    QTRY_VERIFY(link.isReady());
    server.say("PONG");
    server.say(frameFrom(1, "x"));
    QTRY_COMPARE(link.framesReceived(), 1);
    QCOMPARE(server.hear(), QByteArray("TOKEN:secret-token"));
    link.sendAudio("last");
    QCOMPARE(server.hear(), frameFrom(0, "last"));
}

void TestUdpAudio::waitsThreeSecondsForEachAnswer() {
    MediaServer server;
    UdpAudio link;
    QCOMPARE(activeIntervalsMs(link), QList<int>{30000}); // the health check, from the start on
    link.enableUdp(host, server.port(), token);
    QCOMPARE(activeIntervalsMs(link), (QList<int>{3000, 30000}));
    QCOMPARE(server.hear(), QByteArray("PING"));
    server.say("PONG");
    QCOMPARE(server.hear(), QByteArray("TOKEN:secret-token"));
    QCOMPARE(activeIntervalsMs(link), (QList<int>{3000, 30000}));
}

void TestUdpAudio::failsWithoutAPong() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, {.handshakeStep = milliseconds(50)});
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    SignalJournal journal(&link);
    QTRY_COMPARE(journal.count("udpFailed()"), 1);
    QCOMPARE(journal.take(),
             entries({"warning [UDP] Handshake timeout at step 0", "warning [UDP] No PONG received from server!",
                      "warning [UDP] UDP handshake failed! Using TCP fallback", "udpFailed()"}));
    QVERIFY(!link.isReady());
    QVERIFY(server.hearsNothing());  // no second PING
    QCOMPARE(activeTimers(link), 1); // the health check
}

void TestUdpAudio::isReadyWithoutAConfirmation() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, {.handshakeStep = milliseconds(100)});
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    server.say("PONG");
    QCOMPARE(server.hear(), QByteArray("TOKEN:secret-token"));
    SignalJournal journal(&link);
    QTRY_VERIFY(link.isReady());
    QCOMPARE(journal.take(), entries({"warning [UDP] Handshake timeout at step 1",
                                      "warning [UDP] No token confirmation, but continuing anyway", "udpReady()"}));
    link.sendAudio("frame");
    QCOMPARE(server.hear(), frameFrom(0, "frame"));
}

void TestUdpAudio::completesTheHandshakeAfterALatePong() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, {.handshakeStep = milliseconds(50)});
    QSignalSpy failures(&link, &UdpAudio::udpFailed);
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    QTRY_COMPARE(failures.count(), 1);
    server.say("PONG");
    QCOMPARE(server.hear(), QByteArray("TOKEN:secret-token"));
    server.say("OK");
    QTRY_VERIFY(link.isReady());
}

void TestUdpAudio::startsAnewWhenEnabledAgain() {
    MediaServer first;
    MediaServer second;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    QVERIFY(makeReady(link, first));
    QSignalSpy frames(&link, &UdpAudio::audioReceived);
    link.enableUdp(host, second.port(), QStringLiteral("other"));
    QVERIFY(!link.isReady());
    QCOMPARE(second.hear(), QByteArray("PING"));
    QVERIFY(second.linkPort() != first.linkPort());
    first.say(frameFrom(1, "old")); // the old socket is closed
    second.say("PONG");
    QCOMPARE(second.hear(), QByteArray("TOKEN:other"));
    second.say("OK");
    QTRY_VERIFY(link.isReady());
    second.say(frameFrom(1, "new"));
    QTRY_COMPARE(frames.count(), 1);
    QCOMPARE(frames[0][0].toByteArray(), QByteArray("new"));
    QCOMPARE(link.findChildren<QUdpSocket *>().size(), 1);
}

void TestUdpAudio::stopsTheOldHandshakeWhenEnabledAgain() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, {.handshakeStep = milliseconds(100)});
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    QSignalSpy failures(&link, &UdpAudio::udpFailed);
    link.enableUdp(QString(), 0, token);
    QCOMPARE(activeTimers(link), 1); // the health check
    QCOMPARE(failures.count(), 0);
}

void TestUdpAudio::resendsTheTokenWithoutTheUserId() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    link.setUserId(42);
    QVERIFY(makeReady(link, server));
    SignalJournal journal(&link);
    link.resendToken();
    QCOMPARE(journal.take(), entries({"debug [UDP] TOKEN resent, length: 12"}));
    QCOMPARE(server.hear(), QByteArray("TOKEN:secret-token"));
}

void TestUdpAudio::sendsFramesBehindTheUserId() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    link.setUserId(0x01020304);
    QVERIFY(makeReady(link, server));
    link.sendAudio("x");
    QCOMPARE(server.hear(), QByteArray("\1\2\3\4x"));
    link.sendAudio(QByteArray(1300, 'y'));
    QCOMPARE(server.hear(), QByteArray("\1\2\3\4") + QByteArray(1300, 'y'));
    QCOMPARE(link.datagramsSent(), 4); // PING and TOKEN before
}

void TestUdpAudio::dropsEmptyFrames() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    QVERIFY(makeReady(link, server));
    SignalJournal journal(&link);
    link.sendAudio(QByteArray());
    link.sendAudio("x");
    QCOMPARE(server.hear(), frameFrom(0, "x"));
    QCOMPARE(journal.take(), QStringList());
}

void TestUdpAudio::handsOnFramesWithTheirSpeaker() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    QVERIFY(makeReady(link, server));
    SignalJournal journal(&link);
    server.say(frameFrom(7, "a"));
    server.say(frameFrom(7, QByteArray())); // no frame in it
    server.say("abc");                      // no header
    server.say(QByteArray());
    server.say("KEEPALIVE_OK");
    server.say(QByteArray("\xff\xff\xff\xfe", 4) + "b");
    QTRY_COMPARE(journal.seen().size(), 4);
    QCOMPARE(journal.take(),
             entries({"audioReceived(a)", "audioReceivedFrom(7, a)", "audioReceived(b)", "audioReceivedFrom(-2, b)"}));
    QCOMPARE(link.framesReceived(), 2);
}

void TestUdpAudio::raisesNoAudioBeforeItIsReady() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    SignalJournal journal(&link);
    server.say(frameFrom(7, "early"));
    server.say("PONG");
    server.say(frameFrom(7, "still early"));
    server.say("OK");
    server.say(frameFrom(7, "in time"));
    QTRY_COMPARE(journal.seen().size(), 3);
    QCOMPARE(journal.take(), entries({"udpReady()", "audioReceived(in time)", "audioReceivedFrom(7, in time)"}));
}

void TestUdpAudio::takesABurstOfDatagramsInOrder() {
    constexpr int burst = 200;
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    QVERIFY(makeReady(link, server));
    QSignalSpy frames(&link, &UdpAudio::audioReceivedFrom);
    for (int i = 0; i < burst; ++i)
        server.say(frameFrom(i, QByteArray::number(i)));
    QTRY_COMPARE(frames.count(), burst);
    for (int i = 0; i < burst; ++i) {
        QCOMPARE(frames[i][0].toInt(), i);
        QCOMPARE(frames[i][1].toByteArray(), QByteArray::number(i));
    }
}

void TestUdpAudio::dropsDatagramsFromAnotherAddress() {
    qint64 nowMs = 1'700'000'000'000;
    MediaServer server;
    MediaServer stranger(QHostAddress(QStringLiteral("127.0.0.2")));
    QVERIFY(stranger.isBound());
    UdpAudio link(nullptr, [&nowMs] { return nowMs; },
                  {.healthCheck = milliseconds(20), .reinitDelay = milliseconds(3'600'000)});
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    stranger.say("PONG", server.linkPort());
    stranger.say("OK", server.linkPort());
    server.say("PONG");
    QCOMPARE(server.hear(), QByteArray("TOKEN:secret-token"));
    QVERIFY(!link.isReady());
    server.say("OK");
    QTRY_VERIFY(link.isReady());
    SignalJournal journal(&link);
    nowMs += 90001;
    stranger.say(frameFrom(7, "forged"), server.linkPort());
    // Not a sign of life either: the health check finds the server silent.
    QTRY_VERIFY(!journal.seen().isEmpty());
    QVERIFY(journal.seen().first().startsWith(QStringLiteral("warning [UDP] Socket health check FAILED")));
    QCOMPARE(journal.count("audioReceived(forged)"), 0);
    QCOMPARE(link.framesReceived(), 0);
}

void TestUdpAudio::hearsAServerThatComesBack() {
    auto server = std::make_unique<QUdpSocket>();
    QVERIFY(server->bind(QHostAddress(QHostAddress::LocalHost)));
    const quint16 port = server->localPort();
    UdpAudio link(nullptr, steadyEpochMs, patient);
    link.enableUdp(host, port, token);
    QTRY_VERIFY(server->hasPendingDatagrams());
    quint16 linkPort = 0;
    char buffer[100];
    QCOMPARE(server->readDatagram(buffer, sizeof buffer, nullptr, &linkPort), 4);
    const auto say = [&](const QByteArray &datagram) {
        return server->writeDatagram(datagram, QHostAddress(QHostAddress::LocalHost), linkPort) == datagram.size();
    };
    QVERIFY(say("OK"));
    QTRY_VERIFY(link.isReady());

    server.reset(); // now the network answers each datagram with "port unreachable"
    for (int i = 0; i < 3; ++i) {
        link.sendAudio("into the void");
        QCoreApplication::processEvents();
    }
    server = std::make_unique<QUdpSocket>();
    QVERIFY(server->bind(QHostAddress(QHostAddress::LocalHost), port));
    for (int i = 1; i <= 3; ++i) {
        QVERIFY(say(frameFrom(7, "back")));
        QTRY_COMPARE(link.framesReceived(), i);
    }
    link.sendAudio("heard");
    QTRY_VERIFY(server->hasPendingDatagrams());
    QCOMPARE(server->readDatagram(buffer, sizeof buffer), 9);
}

void TestUdpAudio::survivesBeingEnabledFromItsOwnSignals() {
    MediaServer first;
    MediaServer second;
    UdpAudio link(nullptr, steadyEpochMs, patient);
    QVERIFY(makeReady(link, first));
    connect(&link, &UdpAudio::audioReceivedFrom, &link, [&] { link.enableUdp(host, second.port(), token); });
    QSignalSpy frames(&link, &UdpAudio::audioReceivedFrom);
    for (int i = 0; i < 3; ++i)
        first.say(frameFrom(7, "x"));
    QCOMPARE(second.hear(), QByteArray("PING"));
    QVERIFY(!link.isReady());
    QCOMPARE(frames.count(), 1);
}

void TestUdpAudio::keepsTheHealthRules_data() {
    QTest::addColumn<qint64>("silentMs");
    QTest::addColumn<QByteArray>("heard");
    QTest::newRow("20 s") << qint64{20000} << QByteArray();
    QTest::newRow("over 20 s") << qint64{20001} << QByteArray("KEEPALIVE");
    QTest::newRow("90 s") << qint64{90000} << QByteArray("KEEPALIVE");
}

void TestUdpAudio::keepsTheHealthRules() {
    QFETCH(qint64, silentMs);
    QFETCH(QByteArray, heard);
    qint64 nowMs = 1'700'000'000'000;
    MediaServer server;
    UdpAudio link(nullptr, [&nowMs] { return nowMs; }, {.healthCheck = milliseconds(20)});
    QVERIFY(makeReady(link, server));
    nowMs += silentMs;
    // Three checks of this silence, counted on a timer that was started after the link's.
    QTimer checks;
    QSignalSpy ticks(&checks, &QTimer::timeout);
    checks.start(20);
    QTRY_VERIFY(ticks.count() >= 4);
    link.sendAudio("end");
    QByteArray first = server.hear();
    if (heard.isEmpty()) {
        QCOMPARE(first, frameFrom(0, "end"));
    } else {
        QCOMPARE(first, heard);
    }
    QVERIFY(link.isReady());
}

void TestUdpAudio::reinitializesASilentSocket() {
    qint64 nowMs = 1'700'000'000'000;
    MediaServer server;
    UdpAudio link(nullptr, [&nowMs] { return nowMs; },
                  {.healthCheck = milliseconds(50), .reinitDelay = milliseconds(10)});
    link.enableUdp(QStringLiteral("localhost"), server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    server.say("PONG");
    QCOMPARE(server.hear(), QByteArray("TOKEN:secret-token"));
    server.say("OK");
    QTRY_VERIFY(link.isReady());
    const quint16 oldPort = server.linkPort();
    SignalJournal journal(&link);
    nowMs += 90001;
    QCOMPARE(server.hear(), QByteArray("PING"));
    QVERIFY(!link.isReady());
    QVERIFY(server.linkPort() != oldPort);
    const QStringList lines = journal.take();
    QCOMPARE(
        lines.mid(0, 5),
        (QStringList{QStringLiteral("warning [UDP] Socket health check FAILED — state: QAbstractSocket::BoundState "
                                    "silent: 90001 ms — reinitializing..."),
                     QStringLiteral("debug [UDP] Reinitializing UDP socket..."),
                     QStringLiteral("debug [UDP] ========================================"),
                     QStringLiteral("debug [UDP] enableUdp called with:"),
                     QStringLiteral("debug [UDP]   host: \"127.0.0.1\"")}));
    server.say("PONG");
    QCOMPARE(server.hear(), QByteArray("TOKEN:secret-token"));
    server.say("OK");
    QTRY_VERIFY(link.isReady());
    // The new socket is judged by its own traffic.
    server.say(frameFrom(7, "x"));
    QTRY_COMPARE(link.framesReceived(), 1);
    QVERIFY(journal.seen().filter(QStringLiteral("FAILED")).isEmpty());
}

void TestUdpAudio::waitsAMomentBeforeItReinitializes() {
    qint64 nowMs = 1'700'000'000'000;
    MediaServer server;
    UdpAudio link(nullptr, [&nowMs] { return nowMs; }, {.healthCheck = milliseconds(20)});
    QVERIFY(makeReady(link, server));
    SignalJournal journal(&link);
    nowMs += 90001;
    QTRY_VERIFY(!journal.seen().isEmpty());
    QCOMPARE(activeIntervalsMs(link), (QList<int>{20, 200}));
}

void TestUdpAudio::reinitializesAClosedSocketThatHeardNothing() {
    MediaServer server;
    // At the clock's zero a datagram leaves the time of the last one at "none yet".
    UdpAudio link(nullptr, [] { return qint64{0}; },
                  {.healthCheck = milliseconds(50), .reinitDelay = milliseconds(10)});
    QVERIFY(makeReady(link, server));
    SignalJournal journal(&link);
    link.findChild<QUdpSocket *>()->close();
    QCOMPARE(server.hear(), QByteArray("PING"));
    QCOMPARE(journal.take().first(),
             QStringLiteral("warning [UDP] Socket health check FAILED — state: QAbstractSocket::UnconnectedState "
                            "silent: 0 ms — reinitializing..."));
}

void TestUdpAudio::isNotReinitializedOnceEnabledAgain() {
    qint64 nowMs = 1'700'000'000'000;
    MediaServer server;
    UdpAudio link(
        nullptr, [&nowMs] { return nowMs; },
        {.handshakeStep = milliseconds(3'600'000), .healthCheck = milliseconds(20), .reinitDelay = milliseconds(200)});
    QVERIFY(makeReady(link, server));
    SignalJournal journal(&link);
    nowMs += 90001;
    QTRY_VERIFY(!journal.seen().isEmpty());
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    QCOMPARE(activeTimers(link), 2); // handshake and health check, no reinitialisation
}

void TestUdpAudio::checksNothingBeforeItIsReady() {
    qint64 nowMs = 1'700'000'000'000;
    MediaServer server;
    UdpAudio link(nullptr, [&nowMs] { return nowMs; },
                  {.handshakeStep = milliseconds(3'600'000), .healthCheck = milliseconds(10)});
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    server.say("PONG");
    QCOMPARE(server.hear(), QByteArray("TOKEN:secret-token"));
    SignalJournal journal(&link);
    nowMs += 1'000'000;
    QTimer checks;
    QSignalSpy ticks(&checks, &QTimer::timeout);
    checks.start(10);
    QTRY_VERIFY(ticks.count() >= 4);
    QCOMPARE(journal.take(), QStringList());
    QVERIFY(server.hearsNothing());
}

QTEST_GUILESS_MAIN(TestUdpAudio)
#include "tst_UdpAudio.moc"
