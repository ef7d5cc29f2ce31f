#include "../support/LogCapture.h"
#include "TestGateway.h"

#include <QNetworkDatagram>
#include <QUdpSocket>

class TestRadioTraffic : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void anOpeningSquelchInARoomStartsATransmission() {
        TestGateway test({{"callsign"_s, "ab1cd"_s}});
        test.connectLink();
        test.gateway.session.currentRoom = "Room A"_s;
        LogCapture log;
        test.traffic.onCosChanged(true);
        QCOMPARE(log.take(), QStringList("info [TX] \"ab1cd\" TX — \"Room A\""_s));
        QCOMPARE(test.wire(), QList<QByteArray>{"TX_START \"Room A\"\r\n"});
        QVERIFY(test.gateway.session.transmitting);
        QCOMPARE(statusValue(test, "transmitting"), QJsonValue(true));
    }

    void aClosingSquelchEndsTheTransmission() {
        TestGateway test({{"callsign"_s, "ab1cd"_s}});
        test.connectLink();
        test.gateway.session.currentRoom = "Room A"_s;
        test.traffic.onCosChanged(true);
        LogCapture log;
        test.traffic.onCosChanged(false);
        QCOMPARE(log.take(), QStringList("info [TX] \"ab1cd\" RX"_s));
        QCOMPARE(test.wire(), (QList<QByteArray>{"TX_START \"Room A\"\r\n", "TX_STOP \"Room A\"\r\n"}));
        QVERIFY(!test.gateway.session.transmitting);
        QCOMPARE(statusValue(test, "transmitting"), QJsonValue(false));
    }

    void everyReportOfAnOpenSquelchAsksAgain() {
        TestGateway test;
        test.connectLink();
        test.gateway.session.currentRoom = "A"_s;
        test.traffic.onCosChanged(true);
        test.traffic.onCosChanged(true);
        QCOMPARE(test.wire(), (QList<QByteArray>{"TX_START \"A\"\r\n", "TX_START \"A\"\r\n"}));
    }

    void aSquelchThatOpensBeforeARoomIsJoinedWaits() {
        TestGateway test;
        test.connectLink();
        LogCapture log;
        test.traffic.onCosChanged(true);
        QCOMPARE(log.take(), QStringList("warning [COS] ACTIVE — room belum join, TX pending"_s));
        QCOMPARE(test.wire(), QList<QByteArray>());
        QVERIFY(test.gateway.session.cosPending);
        QVERIFY(!test.gateway.session.transmitting);

        test.gateway.session.currentRoom = "Lobby"_s;
        test.traffic.startPendingTransmission();
        test.traffic.startPendingTransmission();
        QCOMPARE(log.take(),
                 QStringList("debug [Appliance] COS was pending — sending TX_START now for room: \"Lobby\""_s));
        QCOMPARE(test.wire(), QList<QByteArray>{"TX_START \"Lobby\"\r\n"});
        QVERIFY(test.gateway.session.transmitting);
        QCOMPARE(statusValue(test, "transmitting"), QJsonValue(true));
    }

    void aSquelchThatClosesWhilePendingIsForgotten() {
        TestGateway test;
        test.connectLink();
        test.traffic.onCosChanged(true);
        LogCapture log;
        test.traffic.onCosChanged(false);
        test.gateway.session.currentRoom = "Lobby"_s;
        test.traffic.startPendingTransmission();
        QCOMPARE(log.take(), QStringList());
        QCOMPARE(test.wire(), QList<QByteArray>());
        QVERIFY(!test.gateway.session.cosPending);
    }

    void framesAreDroppedSilentlyWhileNotTransmitting() {
        TestGateway test;
        LogCapture log;
        test.traffic.onFrameEncoded("frame");
        QCOMPARE(log.take(), QStringList());
        QCOMPARE(test.gateway.session.framesDropped, 0);
    }

    void onlyTheFirstThreeFramesWithoutAMediaLinkAreLogged() {
        TestGateway test;
        test.gateway.setTransmitting(true);
        LogCapture log;
        for (int frame = 0; frame < 5; ++frame)
            test.traffic.onFrameEncoded("frame");
        const QString line = "warning [Appliance] TX tapi UDP belum ready — frame dropped"_s;
        QCOMPARE(log.take(), (QStringList{line, line, line}));
        QCOMPARE(test.gateway.session.framesDropped, 5);
    }

    void framesTravelWhenTheMediaLinkIsReady() {
        TestGateway test;
        QUdpSocket server;
        QVERIFY(server.bind(QHostAddress::LocalHost));
        test.media.setUserId(0x01020304);
        test.media.enableUdp("127.0.0.1"_s, server.localPort(), "token"_s);
        answer(server, "PING", "PONG");
        answer(server, "TOKEN:token:16909060", "OK");
        QTRY_VERIFY(test.media.isReady());

        test.gateway.setTransmitting(true);
        test.traffic.onFrameEncoded("frame");
        QTRY_VERIFY(server.hasPendingDatagrams());
        QCOMPARE(server.receiveDatagram().data(), QByteArray("\x01\x02\x03\x04"
                                                             "frame"));
        QCOMPARE(test.gateway.session.framesDropped, 0);
    }

    void framesAreEncodedOnlyWhileTransmitting() {
        TestGateway test;
        QSignalSpy frames(&test.engine, &AudioEngine::audioEncoded);
        test.engine.setFramesWanted(false);
        test.engine.initialize(48000, 1, 32000, 5, 20);
        test.engine.setDevices("null"_s, "null"_s);
        QVERIFY(test.engine.openCapture());
        test.engine.onInputReadyRead();
        QCOMPARE(frames.count(), 0);
        test.gateway.setTransmitting(true);
        test.engine.onInputReadyRead();
        QCOMPARE(frames.count(), 1);
        test.gateway.setTransmitting(false);
        test.engine.onInputReadyRead();
        QCOMPARE(frames.count(), 1);
    }

    void theRadioIsKeyedOncePerTalkAndReleasedAfterIt() {
        TestGateway test;
        test.openBoard();
        LogCapture log;
        test.traffic.followTalker("AA1"_s);
        test.traffic.followTalker("BB2"_s);
        test.traffic.followTalker(std::nullopt);
        test.traffic.followTalker(std::nullopt);
        QCOMPARE(log.take(), (QStringList{"info [TX] \"AA1\" TX"_s, "info [TX] \"AA1\" RX"_s}));
        QVERIFY(test.board.isTold("PTT:1\nPTT:0\n"));
        QVERIFY(!test.gateway.session.radioKeyed);
    }

    void aMutedSpeakerKeepsTheRadioReleased() {
        TestGateway test;
        test.openBoard();
        test.gateway.session.speakerMuted = true;
        LogCapture log;
        test.traffic.followTalker("AA1"_s);
        QCOMPARE(log.take(), QStringList());
        QVERIFY(!test.gateway.session.radioKeyed);
        QVERIFY(test.gateway.session.remoteTalker.has_value());
    }

    void aTalkerWithoutABoardIsOnlyNoted() {
        TestGateway test;
        LogCapture log;
        test.traffic.followTalker("AA1"_s);
        QCOMPARE(log.take(), QStringList());
        QVERIFY(!test.gateway.session.radioKeyed);
        QCOMPARE(test.gateway.session.remoteTalker.value(), "AA1"_s);
    }

    void aTimeOutReleasesTheRadioUntilTheNextList() {
        TestGateway test;
        test.openBoard();
        test.traffic.followTalker("AA1"_s);
        LogCapture log;
        test.traffic.onTotExpired();
        QCOMPARE(log.take(), QStringList("info [TOT] PTT dimatikan — downlink di-mute oleh TOT"_s));
        QVERIFY(test.board.isTold("PTT:1\nPTT:0\n"));
        test.traffic.followTalker("AA1"_s);
        QCOMPARE(log.take(), QStringList("info [TX] \"AA1\" TX"_s));
        QVERIFY(test.board.isTold("PTT:1\n"));
    }

    void aTimeOutOfAReleasedRadioDoesNothing() {
        TestGateway test;
        test.openBoard();
        LogCapture log;
        test.traffic.onTotExpired();
        QCOMPARE(log.take(), QStringList());
        test.radio.setPtt(true);
        QVERIFY(test.board.isTold("PTT:1\n"));
    }

    void aForgottenTalkerReleasesTheRadio() {
        TestGateway test;
        test.openBoard();
        test.traffic.followTalker("AA1"_s);
        LogCapture log;
        test.traffic.forgetTalker();
        test.traffic.forgetTalker();
        QCOMPARE(log.take(), QStringList("info [TX] \"AA1\" RX"_s));
        QVERIFY(test.board.isTold("PTT:1\nPTT:0\n"));
        QVERIFY(!test.gateway.session.remoteTalker.has_value());
    }

private:
    static QJsonValue statusValue(const TestGateway &test, const char *key) {
        return test.root.exchanged("kivo-status.json").object().value(QLatin1String(key));
    }

    static void answer(QUdpSocket &server, const QByteArray &question, const QByteArray &reply) {
        QTRY_VERIFY(server.hasPendingDatagrams());
        const QNetworkDatagram datagram = server.receiveDatagram();
        QCOMPARE(datagram.data(), question);
        server.writeDatagram(datagram.makeReply(reply));
    }
};

QTEST_GUILESS_MAIN(TestRadioTraffic)
#include "tst_RadioTraffic.moc"
