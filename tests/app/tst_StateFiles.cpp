#include "../support/LogCapture.h"
#include "TestGateway.h"

class TestStateFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theStatusOfADisconnectedGatewayStillNamesIt() {
        TestGateway test({{"callsign"_s, "AB1CD"_s}});
        test.logIn(42, true);
        test.files.writeStatus();
        QCOMPARE(test.root.exchanged("kivo-status.json").object(), (QJsonObject{{"connected"_s, false},
                                                                                {"room"_s, ""_s},
                                                                                {"transmitting"_s, false},
                                                                                {"muted_mic"_s, false},
                                                                                {"muted_spk"_s, false},
                                                                                {"admin_muted"_s, false},
                                                                                {"is_admin"_s, false},
                                                                                {"user_id"_s, 0},
                                                                                {"callsign"_s, "AB1CD"_s},
                                                                                {"ping_ms"_s, 0},
                                                                                {"users"_s, 0},
                                                                                {"users_in_room"_s, 0}}));
    }

    void theStatusOfATransmittingGatewayTellsAll() {
        TestGateway test({{"callsign"_s, "AB1CD"_s}});
        test.logIn(42, true);
        SessionState &session = test.gateway.session;
        session.connected = true;
        session.currentRoom = "Lobby"_s;
        test.gateway.setTransmitting(true);
        test.engine.setMicMuted(true);
        test.engine.setSpkMuted(true);
        session.adminMuted = true;
        session.usersOnline = 9;
        session.usersInRoom = 4;
        test.files.onPingUpdated(12.9F);
        test.files.writeStatus();
        QCOMPARE(test.root.exchanged("kivo-status.json").object(), (QJsonObject{{"connected"_s, true},
                                                                                {"room"_s, "Lobby"_s},
                                                                                {"transmitting"_s, true},
                                                                                {"muted_mic"_s, true},
                                                                                {"muted_spk"_s, true},
                                                                                {"admin_muted"_s, true},
                                                                                {"is_admin"_s, true},
                                                                                {"user_id"_s, 42},
                                                                                {"callsign"_s, "AB1CD"_s},
                                                                                {"ping_ms"_s, 12},
                                                                                {"users"_s, 9},
                                                                                {"users_in_room"_s, 4}}));
    }

    void theStatusIsWrittenWithoutAnyComponent() {
        const TestRoot root;
        Gateway gateway(root.paths());
        gateway.session.connected = true;
        StateFiles files(gateway);
        files.writeStatus();
        const QJsonObject status = root.exchanged("kivo-status.json").object();
        QCOMPARE(status.value("connected"_s), QJsonValue(true));
        QCOMPARE(status.value("muted_mic"_s), QJsonValue(false));
        QCOMPARE(status.value("is_admin"_s), QJsonValue(false));
        QCOMPARE(status.value("user_id"_s), QJsonValue(0));
        QCOMPARE(status.size(), 12);
    }

    void levelsAreOneShortLine() {
        TestGateway test;
        test.files.writeLevels();
        QCOMPARE(TestRoot::read(test.root.paths().vuFile()), QByteArray("{\"input\":0,\"output\":0}\n"));
    }

    void levelsAreZeroWithoutAnEngine() {
        const TestRoot root;
        Gateway gateway(root.paths());
        StateFiles(gateway).writeLevels();
        QCOMPARE(TestRoot::read(root.paths().vuFile()), QByteArray("{\"input\":0,\"output\":0}\n"));
    }

    void roomsKeepTheServersOrder() {
        TestGateway test;
        test.files.onRoomList({"Zulu"_s, "Alpha"_s, "Room \"1\""_s});
        QCOMPARE(TestRoot::read(test.root.exchangeFile("kivo-rooms.json")),
                 QByteArray("[\n    \"Zulu\",\n    \"Alpha\",\n    \"Room \\\"1\\\"\"\n]\n"));
    }

    void anEmptyRoomListIsAnEmptyArray() {
        TestGateway test;
        test.files.onRoomList({});
        QVERIFY(test.root.exchanged("kivo-rooms.json").isArray());
        QVERIFY(test.root.exchanged("kivo-rooms.json").array().isEmpty());
    }

    void anAnnouncedQualityIsLoggedAppliedAndShown() {
        TestGateway test;
        LogCapture log;
        test.files.onAudioQuality(quality("high", 16000, 24000, 5, 20));
        QCOMPARE(
            log.take(),
            (QStringList{"info [Audio] Kualitas audio diubah: preset: \"high\" | SR: 16000 | BR: 24000 | fd: 20 ms"_s,
                         "info [Audio] Quality change → SR: 16000 BR: 24000 fd: 20 ms"_s}));
        QCOMPARE(test.root.exchanged("kivo-server-info.json").object(), (QJsonObject{{"codec"_s, "Opus"_s},
                                                                                     {"preset"_s, "high"_s},
                                                                                     {"sample_rate"_s, 16000},
                                                                                     {"bitrate"_s, 24000},
                                                                                     {"frame_duration"_s, 20}}));
    }

    void theFirstQualityAppliesEvenWhenItIsTheEnginesOwn() {
        TestGateway test;
        LogCapture log;
        test.files.onAudioQuality(quality("standard", 48000, 32000, 5, 20));
        QCOMPARE(log.take().size(), 2);
    }

    void aQualityThatOnlyChangesComplexityOrPresetIsShownButNotApplied() {
        TestGateway test;
        test.files.onAudioQuality(quality("a", 48000, 32000, 5, 20));
        LogCapture log;
        test.files.onAudioQuality(quality("b", 48000, 32000, 9, 20));
        QCOMPARE(log.take(), QStringList());
        QCOMPARE(test.root.exchanged("kivo-server-info.json").object().value("preset"_s), QJsonValue("b"_s));
    }

    void aChangeOfOneNumberApplies_data() {
        QTest::addColumn<QVariantMap>("announcement");
        QTest::newRow("sample rate") << quality("a", 24000, 32000, 5, 20);
        QTest::newRow("bit rate") << quality("a", 48000, 16000, 5, 20);
        QTest::newRow("frame duration") << quality("a", 48000, 32000, 5, 40);
    }
    void aChangeOfOneNumberApplies() {
        QFETCH(QVariantMap, announcement);
        TestGateway test;
        test.files.onAudioQuality(quality("a", 48000, 32000, 5, 20));
        LogCapture log;
        test.files.onAudioQuality(announcement);
        QCOMPARE(log.take().size(), 2);
    }

    void anAnnouncementWithoutNumbersIsShownAsZeros() {
        TestGateway test;
        LogCapture log;
        test.files.onAudioQuality({});
        QCOMPARE(log.take(), QStringList());
        QCOMPARE(test.root.exchanged("kivo-server-info.json").object().value("bitrate"_s), QJsonValue(0));
    }

private:
    static QVariantMap quality(const char *preset, int sampleRate, int bitrate, int complexity, int frameMs) {
        return {{"preset"_s, QString::fromLatin1(preset)},
                {"sample_rate"_s, sampleRate},
                {"bitrate"_s, bitrate},
                {"complexity"_s, complexity},
                {"frame_duration"_s, frameMs}};
    }
};

QTEST_GUILESS_MAIN(TestStateFiles)
#include "tst_StateFiles.moc"
