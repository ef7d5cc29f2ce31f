#include "../audio/Talker.h"
#include "TestSession.h"

class TestSessionFlow : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theProgramWaitsTheseTimes() {
        constexpr SessionDelays delays;
        QVERIFY(delays.firstConnection == 500ms);
        QVERIFY(delays.reconnection == 5s);
        QVERIFY(delays.join == 1s);
        QVERIFY(delays.roomsAfterJoin == 1500ms);
        QVERIFY(delays.roomsInRoom == 500ms);
        QVERIFY(delays.profile == 2s);
        QVERIFY(delays.onlineUsers == 500ms);
    }

    void itConnectsAndLogsIn() {
        TestSession test(account());
        LogCapture log;
        test.start();
        QVERIFY(test.server.hears("LOGIN AB1CD secret h1"));
        QCOMPARE(own(log.take()), (QStringList{"debug [Server] Menghubungi server..."_s,
                                               "info [Server] Terhubung ke server Kivo Darvi"_s,
                                               "debug [Server] Auto-login: \"AB1CD\""_s}));
        QVERIFY(test.isStatus("connected", true));
    }

    void theFirstConnectionIsNotMadeOnALinkThatIsUp() {
        TestSession test(account());
        test.start();
        QSignalSpy connections(&test.server, &QTcpServer::newConnection);
        LogCapture log;
        test.flow.scheduleFirstConnection();
        QVERIFY(!connections.wait(20));
        QVERIFY(!log.take().contains("debug [Server] Menghubungi server..."_s));
    }

    void withoutAPasswordItWaitsForTheWebUi_data() {
        QTest::addColumn<QString>("callsign");
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("shown");
        QTest::newRow("nothing") << ""
                                 << ""
                                 << "\"EMPTY\" password: EMPTY";
        QTest::newRow("no password") << "ab1cd"
                                     << ""
                                     << "\"ab1cd\" password: EMPTY";
        QTest::newRow("no callsign") << ""
                                     << "secret"
                                     << "\"EMPTY\" password: ***";
    }
    void withoutAPasswordItWaitsForTheWebUi() {
        QFETCH(QString, callsign);
        QFETCH(QString, password);
        QFETCH(QString, shown);
        TestSession test({{"callsign"_s, callsign}, {"password"_s, password}, {"hwid"_s, "h1"_s}});
        LogCapture log;
        test.start();
        QCOMPARE(own(log.take()).last(), "warning [Appliance] Cannot login — callsign or password empty (callsign: "_s +
                                             shown + " ) — waiting for login trigger from Web UI"_s);
        QCOMPARE(test.wire(), QList<QByteArray>());
    }

    void aBoxWithoutAnIdentityGetsOneForGood() {
        TestSession test({{"callsign"_s, "ab1cd"_s}, {"password"_s, "secret"_s}});
        test.start();
        const QString hwid = test.root.configOnDisk().value("hwid"_s).toString();
        QCOMPARE(hwid.size(), 32);
        QVERIFY(test.server.hears("LOGIN AB1CD secret " + hwid.toLatin1()));
    }

    void aLoginJoinsTheRightRoom_data() {
        QTest::addColumn<QJsonObject>("config");
        QTest::addColumn<QString>("rejoinRoom");
        QTest::addColumn<QByteArray>("join");
        QTest::addColumn<QString>("line");

        const QString start = "debug [Appliance] Bergabung pada room (last/default): "_s;
        QTest::newRow("a new box") << account() << "" << QByteArray("JOIN Lobby") << QString(start + "\"Lobby\""_s);
        QTest::newRow("default room") << account({{"default_room"_s, "Base"_s}}) << "" << QByteArray("JOIN Base")
                                      << QString(start + "\"Base\""_s);
        QTest::newRow("last room") << account({{"default_room"_s, "Base"_s}, {"last_room"_s, "Hill"_s}}) << ""
                                   << QByteArray("JOIN Hill") << QString(start + "\"Hill\""_s);
        QTest::newRow("rejoin") << account({{"last_room"_s, "Hill"_s}}) << "Dale" << QByteArray("JOIN Dale")
                                << "debug [Appliance] Rejoining previous room: \"Dale\"";
    }
    void aLoginJoinsTheRightRoom() {
        QFETCH(QJsonObject, config);
        QFETCH(QString, rejoinRoom);
        QFETCH(QByteArray, join);
        QFETCH(QString, line);
        TestSession test(config);
        test.start();
        test.gateway.session.rejoinRoom = rejoinRoom;
        test.server.heardBefore("LOGIN AB1CD secret h1");
        LogCapture log;
        test.server.say("LOGIN_OK|token|AB1CD|false|42");
        QCOMPARE(test.server.heardBefore("USER_GET_INFO ab1cd"), (QList<QByteArray>{join + "\r\n", "ROOMS\r\n"}));
        QCOMPARE(own(log.take()), (QStringList{"info [Server] Login berhasil — admin: false user_id: 42"_s, line}));
        QVERIFY(test.gateway.session.rejoinRoom.isEmpty());
        QCOMPARE(test.root.configOnDisk().value("is_admin"_s), QJsonValue(false));
        QCOMPARE(test.root.configOnDisk().value("user_id"_s), QJsonValue(42));
        QVERIFY(test.isStatus("user_id", 42));
    }

    void anEmptyDefaultRoomJoinsNone() {
        TestSession test(account({{"default_room"_s, ""_s}}));
        test.start();
        test.server.heardBefore("LOGIN AB1CD secret h1");
        test.server.say("LOGIN_OK|token|AB1CD|false|42");
        QCOMPARE(test.server.heardBefore("USER_GET_INFO ab1cd"), QList<QByteArray>());
    }

    void aSecondLoginStaysInTheRoom() {
        TestSession test(account());
        test.start();
        test.gateway.session.currentRoom = "Hill"_s;
        test.server.heardBefore("LOGIN AB1CD secret h1");
        LogCapture log;
        test.server.say("LOGIN_OK|token|AB1CD|true|42");
        QCOMPARE(test.server.heardBefore("ADMIN_GET_ALL_USERS"), QList<QByteArray>{"ROOMS\r\n"});
        QCOMPARE(own(log.take()), (QStringList{"info [Server] Login berhasil — admin: true user_id: 42"_s,
                                               "debug [Appliance] Already in room: \"Hill\" — skip auto-join"_s}));
    }

    void aLoginOpensTheMediaLinkWithTheSessionsToken() {
        TestSession test(account());
        test.start();
        LogCapture log;
        test.server.say("LOGIN_OK|four|AB1CD|false|42");
        QTRY_VERIFY(test.gateway.session.currentRoom.isEmpty() && test.link.userId() == 42);
        const QStringList lines = log.take();
        QVERIFY(lines.contains("debug [UDP]   host: \"127.0.0.1\""_s));
        QVERIFY(lines.contains("debug [UDP]   port: 8082"_s));
        QVERIFY(lines.contains("debug [UDP]   token length: 4"_s));
    }

    void anotherLoginFailureKeepsTheLink() {
        TestSession test(account());
        test.start();
        test.server.heardBefore("LOGIN AB1CD secret h1");
        QSignalSpy results(&test.link, &TcpClient::loginResult);
        LogCapture log;
        test.server.say("LOGIN_FAILED|perangkat salah");
        QVERIFY(results.wait());
        QCOMPARE(own(log.take()), QStringList("warning [Appliance] Login failed: \"perangkat salah\""_s));
        QVERIFY(!test.gateway.session.loginBlocked);
        QVERIFY(test.link.isConnected());
        QCOMPARE(test.wire(), QList<QByteArray>());
    }

    void aJoinedRoomIsRememberedAndShown() {
        TestSession test(account());
        test.connectLink();
        LogCapture log;
        test.server.say("JOIN_OK|Hill");
        QTRY_COMPARE(test.gateway.session.currentRoom, "Hill"_s);
        QCOMPARE(own(log.take()), QStringList("info [Room] Bergabung ke room: \"Hill\""_s));
        QCOMPARE(test.root.configOnDisk().value("last_room"_s), QJsonValue("Hill"_s));
        QVERIFY(test.isStatus("room", "Hill"_s));
    }

    void aRoomWhoseNameIsNoNameIsNotRemembered() {
        TestSession test(account({{"last_room"_s, "Hill"_s}}));
        test.connectLink();
        test.server.say("JOIN_OK|" + QByteArray(1001, 'x'));
        QTRY_COMPARE(test.gateway.session.currentRoom.size(), 1001);
        QCOMPARE(test.root.configOnDisk().value("last_room"_s), QJsonValue("Hill"_s));
        test.server.say("JOIN_OK|" + QByteArray(1000, 'y'));
        QTRY_COMPARE(test.root.configOnDisk().value("last_room"_s), QJsonValue(QString(1000, QLatin1Char('y'))));
    }

    void onlyAnAdministratorAsksWhoIsOnline_data() {
        QTest::addColumn<bool>("admin");
        QTest::addColumn<bool>("asks");
        QTest::newRow("administrator") << true << true;
        QTest::newRow("user") << false << false;
    }
    void onlyAnAdministratorAsksWhoIsOnline() {
        QFETCH(bool, admin);
        QFETCH(bool, asks);
        TestSession test;
        test.connectLink();
        QObject::disconnect(&test.link, &TcpClient::loginResult, nullptr, nullptr);
        test.logIn(42, admin);
        test.flow.onJoinRoomResult(true, "Hill"_s);
        QCOMPARE(test.server.hears("ONLINE_USERS", asks ? 5s : 50ms), asks);
        QCOMPARE(test.wire().size(), asks ? 1 : 0);
    }

    void aFailedJoinChangesNothing() {
        TestSession test;
        test.gateway.session.currentRoom = "Hill"_s;
        test.gateway.session.cosPending = true;
        LogCapture log;
        test.flow.onJoinRoomResult(false, "Gagal join room"_s);
        QCOMPARE(log.take(), QStringList());
        QCOMPARE(test.gateway.session.currentRoom, "Hill"_s);
        QVERIFY(test.gateway.session.cosPending);
    }

    void aPendingSquelchTransmitsOnceTheRoomIsJoined() {
        TestSession test;
        test.connectLink();
        test.traffic.onCosChanged(true);
        test.server.say("JOIN_OK|Hill");
        QTRY_COMPARE(test.gateway.session.currentRoom, "Hill"_s);
        QCOMPARE(test.wire(), QList<QByteArray>{"TX_START \"Hill\"\r\n"});
        QVERIFY(test.gateway.session.transmitting);
    }

    void leavingARoomEndsEverythingInIt() {
        TestSession test;
        test.openBoard();
        test.connectLink();
        test.flow.onJoinRoomResult(true, "Hill"_s);
        test.traffic.onCosChanged(true);
        test.traffic.followTalker("AA1"_s);
        test.gateway.session.usersInRoom = 3;
        test.wire();
        LogCapture log;
        test.server.say("LEAVE_OK|Hill");
        QTRY_VERIFY(test.gateway.session.currentRoom.isEmpty());
        QCOMPARE(own(log.take()), (QStringList{"info [Room] Keluar dari room: \"Hill\""_s, "info [TX] \"AA1\" RX"_s}));
        QCOMPARE(test.wire(), QList<QByteArray>{"TX_STOP \"Hill\"\r\n"});
        QVERIFY(test.board.isTold("PTT:1\nPTT:0\n"));
        QVERIFY(!test.gateway.session.transmitting);
        QVERIFY(!test.gateway.session.remoteTalker);
        QCOMPARE(test.gateway.session.usersInRoom, 0);
        QVERIFY(test.isStatus("room", ""_s));
        QVERIFY(test.isStatus("transmitting", false));
    }

    void leavingARoomSilentlyStopsNothing() {
        TestSession test;
        test.connectLink();
        test.gateway.session.currentRoom = "Hill"_s;
        test.gateway.session.cosPending = true;
        test.server.say("LEAVE_OK|Hill");
        QTRY_VERIFY(test.gateway.session.currentRoom.isEmpty());
        QCOMPARE(test.wire(), QList<QByteArray>());
        QVERIFY(!test.gateway.session.cosPending);
    }

    void aMoveReleasesTheRadio() {
        TestSession test;
        test.openBoard();
        test.connectLink();
        test.flow.onJoinRoomResult(true, "Hill"_s);
        test.traffic.followTalker("AA1"_s);
        LogCapture log;
        test.server.say("MOVED|Dale|by|");
        QTRY_COMPARE(test.gateway.session.currentRoom, "Dale"_s);
        QVERIFY(own(log.take()).contains("info [TX] \"AA1\" RX"_s));
        QVERIFY(test.board.isTold("PTT:1\nPTT:0\n"));
    }

    void joiningTheSameRoomAgainKeepsTheTalker() {
        TestSession test;
        test.openBoard();
        test.flow.onJoinRoomResult(true, "Hill"_s);
        test.traffic.followTalker("AA1"_s);
        test.flow.onJoinRoomResult(true, "Hill"_s);
        QVERIFY(test.gateway.session.radioKeyed);
    }

    void aRoomKeySealsAndAnotherTextUnseals() {
        TestSession test;
        test.engine.initialize(48000, 1, 32000, 5, 20);
        test.engine.setDevices("null"_s, "null"_s);
        QVERIFY(test.engine.openPlayback());
        const QByteArray packet = speechPacket();
        const auto isHeard = [&test](const QByteArray &frame) {
            test.engine.onAudioReceivedFrom(frame, 7);
            return test.engine.outputLevel() > 0;
        };
        test.flow.onRoomKey(QString::fromLatin1(QByteArray(32, 'k').toBase64()));
        const QByteArray sealed = test.engine.sealFrame(packet);
        QCOMPARE(sealed.size(), packet.size() + 40);
        QCOMPARE(test.engine.openFrame(sealed), packet);
        QVERIFY(!isHeard(packet));

        test.flow.onRoomKey(QString::fromLatin1(QByteArray(31, 'k').toBase64()));
        QVERIFY(isHeard(packet));
    }

    void aRoomKeyTakesThePlaceOfTheLast() {
        TestSession test;
        test.flow.onRoomKey(QString::fromLatin1(QByteArray(32, 'k').toBase64()));
        const QByteArray sealed = test.engine.sealFrame(QByteArray(60, 'x'));
        test.flow.onRoomKey(QString::fromLatin1(QByteArray(32, 'q').toBase64()));
        QCOMPARE(test.engine.openFrame(sealed), QByteArray());
    }

    void aRefreshAsksForWhatTheAccountMaySee_data() {
        QTest::addColumn<bool>("admin");
        QTest::addColumn<QList<QByteArray>>("wire");
        QTest::newRow("user") << false << QList<QByteArray>{"ROOMS\r\n"};
        QTest::newRow("administrator") << true
                                       << QList<QByteArray>{"ROOMS\r\n", "ONLINE_USERS\r\n", "ADMIN_GET_ALL_USERS\r\n"};
    }
    void aRefreshAsksForWhatTheAccountMaySee() {
        QFETCH(bool, admin);
        TestSession test;
        test.connectLink();
        QObject::disconnect(&test.link, &TcpClient::loginResult, nullptr, nullptr);
        test.logIn(42, admin);
        test.wire();
        test.flow.refresh();
        QTEST(test.wire(), "wire");
    }

    void nothingIsAskedWhileNotConnected() {
        TestSession test;
        test.connectLink();
        test.wire();
        test.gateway.session.connected = false;
        test.flow.refresh();
        test.flow.ping();
        QCOMPARE(test.wire(), QList<QByteArray>());
    }

    void aPingGoesOutWhileConnected() {
        TestSession test;
        test.connectLink();
        test.wire();
        test.flow.ping();
        QCOMPARE(test.wire(), QList<QByteArray>{"PING\r\n"});
    }
};

QTEST_GUILESS_MAIN(TestSessionFlow)
#include "tst_SessionFlow.moc"
