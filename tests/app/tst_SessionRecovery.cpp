#include "TestSession.h"
#include "app/LoginTrigger.h"

namespace {

/// No connection is made in more than the time of two reconnections.
bool isLeftAlone(TestSession &test) {
    return !QSignalSpy(&test.server, &QTcpServer::newConnection).wait(100);
}

} // namespace

/// What the session does when the link is lost, refused or cannot be had.
class TestSessionRecovery : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aRefusedDeviceIsNotTriedAgain_data() {
        QTest::addColumn<QByteArray>("reason");
        QTest::newRow("device") << QByteArray("Perangkat ini ditolak");
        QTest::newRow("not registered") << QByteArray("HWID tidak terdaftar");
    }
    void aRefusedDeviceIsNotTriedAgain() {
        QFETCH(QByteArray, reason);
        TestSession test(account());
        test.start();
        test.server.heardBefore("LOGIN AB1CD secret h1");
        LogCapture log;
        test.server.say("LOGIN_FAILED|" + reason);
        QVERIFY(test.server.hears("QUIT"));
        QCOMPARE(own(log.take()),
                 QStringList("warning [Appliance] Login failed: \""_s + QString::fromLatin1(reason) + "\""_s));
        test.server.hangUp();
        QTRY_VERIFY(!test.gateway.session.connected);
        QVERIFY(isLeftAlone(test));
        QVERIFY(test.gateway.session.loginBlocked);
    }

    void newCredentialsForALinkThatIsEndingAreUsedOnTheNextOne_data() {
        QTest::addColumn<bool>("whileClosing");
        QTest::newRow("the server has been asked to end it") << false;
        QTest::newRow("the socket is closing") << true;
    }
    void newCredentialsForALinkThatIsEndingAreUsedOnTheNextOne() {
        QFETCH(bool, whileClosing);
        TestSession test(account());
        LoginTrigger trigger(test.gateway);
        const auto submit = [&] {
            TestRoot::write(test.root.paths().loginTriggerFile(),
                            R"({"action": "login", "callsign": "ef2gh", "password": "fresh"})");
            trigger.check();
        };
        test.start();
        test.server.say("LOGIN_FAILED|Perangkat ini ditolak");
        QVERIFY(test.server.hears("QUIT"));
        bool hasClosed = false;
        QObject::connect(test.link.findChild<QTcpSocket *>(), &QAbstractSocket::stateChanged, &test.flow,
                         [&](QAbstractSocket::SocketState state) {
                             if (state != QAbstractSocket::ClosingState || hasClosed)
                                 return;
                             hasClosed = true;
                             if (whileClosing)
                                 submit();
                         });
        if (!whileClosing)
            submit();
        QCOMPARE(test.gateway.session.loginBlocked, whileClosing);
        test.server.hangUp();
        QTRY_VERIFY(!test.gateway.session.connected);
        QVERIFY(hasClosed);
        QVERIFY(!test.gateway.session.loginBlocked);
        test.server.forget();
        QVERIFY(test.server.hears("LOGIN EF2GH fresh h1"));
        QVERIFY(!test.server.hasHeard("LOGIN AB1CD secret h1"));
    }

    void aLostLinkReleasesEverythingAndComesBack() {
        TestSession test(account());
        test.openBoard();
        test.start();
        test.flow.onJoinRoomResult(true, "Hill"_s);
        test.traffic.onCosChanged(true);
        test.traffic.followTalker("AA1"_s);
        QVERIFY(test.server.hears("TX_START \"Hill\""));
        test.server.forget();
        LogCapture log;
        test.server.hangUp();
        QTRY_VERIFY(!test.gateway.session.connected);
        QCOMPARE(own(log.take()), (QStringList{"info [Server] Terputus dari server"_s, "info [TX] \"AA1\" RX"_s}));
        QVERIFY(test.board.isTold("PTT:1\nPTT:0\n"));
        QVERIFY(!test.gateway.session.transmitting && !test.gateway.session.radioKeyed);
        QVERIFY(test.gateway.session.currentRoom.isEmpty());
        QVERIFY(test.isStatus("connected", false));
        QVERIFY(test.isStatus("transmitting", false));

        QVERIFY(test.server.hears("LOGIN AB1CD secret h1"));
        QVERIFY(!test.server.hasHeard("TX_STOP \"Hill\""));
        QCOMPARE(own(log.take()), (QStringList{"info [Server] Terhubung ke server Kivo Darvi"_s,
                                               "debug [Server] Auto-login: \"AB1CD\""_s}));
    }

    void aPendingSquelchIsForgottenWithTheLink() {
        TestSession test(account());
        test.start();
        test.traffic.onCosChanged(true);
        test.server.hangUp();
        QTRY_VERIFY(!test.gateway.session.connected);
        QVERIFY(!test.gateway.session.cosPending);
    }

    void aServerThatIsAwayIsTriedAgainUntilItIsBack() {
        TestSession test(account());
        const quint16 port = test.server.serverPort();
        test.server.goAway();
        QSignalSpy failures(&test.link, &TcpClient::errorOccurred);
        test.flow.scheduleFirstConnection();
        QTRY_VERIFY(failures.count() >= 3);
        QVERIFY(test.server.listen(QHostAddress::LocalHost, port));
        QTRY_VERIFY(test.gateway.session.connected);
    }

    void anAttemptThatFailsLeavesOneRetry() {
        TestSession test(account(), {5ms, 2s});
        test.server.goAway();
        QSignalSpy failures(&test.link, &TcpClient::errorOccurred);
        test.flow.scheduleFirstConnection();
        QTRY_COMPARE(failures.count(), 1);
        test.flow.onLinkError();
        test.flow.onLinkError();
        QTRY_COMPARE(failures.count(), 2);
        QVERIFY(!failures.wait(50));
    }

    void withoutAnAddressAnAttemptIsNotRepeated() {
        TestSession test(account());
        test.gateway.config.object().insert("server_address"_s, QString());
        LogCapture log;
        test.gateway.connectToServer();
        QTRY_COMPARE(log.lines().filter("[TCP] Error"_s).size(), 1);
        QVERIFY(isLeftAlone(test));
        QCOMPARE(log.lines().filter("[TCP] Connecting"_s).size(), 1);
    }

    void aBlockedLoginIsNotTriedAfterAFailedAttempt() {
        TestSession test(account());
        test.server.goAway();
        test.gateway.session.loginBlocked = true;
        QSignalSpy failures(&test.link, &TcpClient::errorOccurred);
        test.flow.scheduleFirstConnection();
        QTRY_COMPARE(failures.count(), 1);
        QVERIFY(!failures.wait(100));
    }

    void aLoginBlockedWhileARetryWaitsStopsIt() {
        TestSession test(account());
        test.start();
        test.server.hangUp();
        QTRY_VERIFY(!test.gateway.session.connected);
        test.gateway.session.loginBlocked = true;
        QVERIFY(isLeftAlone(test));
    }

    void aComplaintOfTheServerIsNoFailedAttempt() {
        TestSession test(account());
        test.start();
        QSignalSpy errors(&test.link, &TcpClient::errorOccurred);
        LogCapture log;
        test.server.say("ERROR|busy");
        QTRY_COMPARE(errors.count(), 1);
        QVERIFY(isLeftAlone(test));
        QVERIFY(!log.take().join(QLatin1Char('\n')).contains("Connecting"_s));
    }
};

QTEST_GUILESS_MAIN(TestSessionRecovery)
#include "tst_SessionRecovery.moc"
