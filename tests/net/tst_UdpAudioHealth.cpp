#include "ActiveTimers.h"
#include "MediaServer.h"
#include "SignalJournal.h"

#include <memory>

using std::chrono::milliseconds;

class TestUdpAudioHealth : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startsAnewWhenEnabledAgain();
    void stopsTheOldHandshakeWhenEnabledAgain();

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

void TestUdpAudioHealth::startsAnewWhenEnabledAgain() {
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

void TestUdpAudioHealth::stopsTheOldHandshakeWhenEnabledAgain() {
    MediaServer server;
    UdpAudio link(nullptr, steadyEpochMs, {.handshakeStep = milliseconds(100)});
    link.enableUdp(host, server.port(), token);
    QCOMPARE(server.hear(), QByteArray("PING"));
    QSignalSpy failures(&link, &UdpAudio::udpFailed);
    link.enableUdp(QString(), 0, token);
    QCOMPARE(activeTimers(link), 1); // the health check
    QCOMPARE(failures.count(), 0);
}

void TestUdpAudioHealth::dropsDatagramsFromAnotherAddress() {
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

void TestUdpAudioHealth::hearsAServerThatComesBack() {
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

void TestUdpAudioHealth::survivesBeingEnabledFromItsOwnSignals() {
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

void TestUdpAudioHealth::keepsTheHealthRules_data() {
    QTest::addColumn<qint64>("silentMs");
    QTest::addColumn<QByteArray>("heard");
    QTest::newRow("20 s") << qint64{20000} << QByteArray();
    QTest::newRow("over 20 s") << qint64{20001} << QByteArray("KEEPALIVE");
    QTest::newRow("90 s") << qint64{90000} << QByteArray("KEEPALIVE");
}

void TestUdpAudioHealth::keepsTheHealthRules() {
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
    if (heard.isEmpty())
        QCOMPARE(first, frameFrom(0, "end"));
    else
        QCOMPARE(first, heard);
    QVERIFY(link.isReady());
}

void TestUdpAudioHealth::reinitializesASilentSocket() {
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

void TestUdpAudioHealth::waitsAMomentBeforeItReinitializes() {
    qint64 nowMs = 1'700'000'000'000;
    MediaServer server;
    UdpAudio link(nullptr, [&nowMs] { return nowMs; }, {.healthCheck = milliseconds(20)});
    QVERIFY(makeReady(link, server));
    SignalJournal journal(&link);
    nowMs += 90001;
    QTRY_VERIFY(!journal.seen().isEmpty());
    QCOMPARE(activeIntervalsMs(link), (QList<int>{20, 200}));
}

void TestUdpAudioHealth::reinitializesAClosedSocketThatHeardNothing() {
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

void TestUdpAudioHealth::isNotReinitializedOnceEnabledAgain() {
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

void TestUdpAudioHealth::checksNothingBeforeItIsReady() {
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

QTEST_GUILESS_MAIN(TestUdpAudioHealth)
#include "tst_UdpAudioHealth.moc"
