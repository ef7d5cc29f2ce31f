#include "ActiveTimers.h"
#include "MediaServer.h"
#include "SignalJournal.h"

#include <QHostInfo>

using std::chrono::milliseconds;

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
    void resendsTheTokenWithoutTheUserId();

    void sendsFramesBehindTheUserId();
    void dropsEmptyFrames();
    void handsOnFramesWithTheirSpeaker();
    void raisesNoAudioBeforeItIsReady();
    void takesABurstOfDatagramsInOrder();
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
    UdpAudio link(nullptr, steadyEpochMs, patient);
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

QTEST_GUILESS_MAIN(TestUdpAudio)
#include "tst_UdpAudio.moc"
