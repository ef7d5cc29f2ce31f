#include "BusyGateway.h"

/// What a table of single commands does not show: values refused, states of the radio, texts that mean harm.
class TestWebUiActionRules : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theTalkTimeTakesOnlyTheOfferedValues_data() {
        QTest::addColumn<int>("asked");
        QTest::addColumn<int>("kept");
        for (const int offered : {0, 60, 90, 120, 180})
            QTest::addRow("%d", offered) << offered << offered;
        for (const int refused : {-60, 1, 59, 61, 75, 150, 240})
            QTest::addRow("%d", refused) << refused << 0;
    }

    void theTalkTimeTakesOnlyTheOfferedValues() {
        QFETCH(int, asked);
        QFETCH(int, kept);
        BusyGateway test;
        LogCapture log;
        runWebUiCommand(test.gateway, test.files, {{"action"_s, "set_tot"_s}, {"value"_s, asked}});
        QCOMPARE(log.take(), QStringList("info [TOT] Duration set to %1 seconds"_s.arg(kept) +
                                         (kept == 0 ? " (unlimited)"_s : QString())));
        QCOMPARE(test.root.configOnDisk().value("tot_duration"_s), QJsonValue(kept));
    }

    void mutedSoundIsSwitchedAtTheEngine() {
        BusyGateway test;
        test.run(R"({"action": "mute_mic"})");
        QVERIFY(test.engine.isMicMuted());
        test.run(R"({"action": "unmute_mic"})");
        QVERIFY(!test.engine.isMicMuted());
        test.run(R"({"action": "mute_spk"})");
        QVERIFY(test.engine.isSpkMuted());
        QVERIFY(test.gateway.session.speakerMuted);
        test.run(R"({"action": "unmute_spk"})");
        QVERIFY(!test.engine.isSpkMuted());
        QVERIFY(!test.gateway.session.speakerMuted);
    }

    void aMutedSpeakerReleasesTheRadioAndUnmutingKeysItAgain() {
        BusyGateway test;
        test.traffic.followTalker("AA1"_s);
        QVERIFY(test.board.isTold("PTT:1\n"));
        test.run(R"({"action": "mute_spk"})");
        QVERIFY(!test.gateway.session.radioKeyed);
        QVERIFY(test.board.isTold("PTT:0\n"));
        test.traffic.followTalker("BB2"_s);

        LogCapture log;
        test.run(R"({"action": "unmute_spk"})");
        QCOMPARE(log.take(), QStringList("info [TX] PTT diaktifkan kembali — speaker unmuted"_s));
        QVERIFY(test.gateway.session.radioKeyed);
        QVERIFY(test.board.isTold("PTT:1\n"));
        test.traffic.followTalker(std::nullopt);
        QCOMPARE(log.take(), QStringList("info [TX] \"BB2\" RX"_s));
        QVERIFY(test.board.isTold("PTT:0\n"));
    }

    void unmutingWhileNobodyTalksKeysNothing() {
        BusyGateway test;
        test.run(R"({"action": "mute_spk"})");
        test.traffic.followTalker("AA1"_s);
        test.traffic.forgetTalker();
        LogCapture log;
        test.run(R"({"action": "unmute_spk"})");
        QCOMPARE(log.take(), QStringList());
        QVERIFY(!test.gateway.session.radioKeyed);
        QVERIFY(test.boardIsToldOnly("PTT:0\n"));
    }

    void withoutAnOpenBoardOnlyTheSpeakerIsMuted() {
        BusyGateway test;
        test.radio.closePort();
        test.gateway.session.remoteTalker = "AA1"_s;
        LogCapture log;
        test.run(R"({"action": "mute_spk"})");
        QVERIFY(test.engine.isSpkMuted());
        test.run(R"({"action": "unmute_spk"})");
        QVERIFY(!test.engine.isSpkMuted());
        QVERIFY(!test.gateway.session.radioKeyed);
        QCOMPARE(log.take(), QStringList());
    }

    void theBoardIsConfiguredOnlyWhenItIsOpen() {
        BusyGateway test;
        test.radio.closePort();
        LogCapture log;
        test.run(R"({"action": "set_ptt_config", "ptt_invert": true})");
        QCOMPARE(log.take(), QStringList());
        QCOMPARE(test.root.configOnDisk().value("ptt_invert"_s), QJsonValue(true));
        QCOMPARE(test.root.configOnDisk().value("cos_logic_high"_s), QJsonValue(true));
    }

    void theEmergencyStopEndsATransmission() {
        BusyGateway test;
        test.traffic.onCosChanged(true);
        test.wire();
        LogCapture log;
        test.run(R"({"action": "tx_stop_emergency"})");
        QCOMPARE(log.take(), (QStringList{"warning [Appliance] EMERGENCY TX_STOP before shutdown"_s,
                                          "info [TX] Emergency TX_STOP — siap shutdown"_s}));
        QCOMPARE(test.wire(), Lines{"TX_STOP \"Hill\"\r\n"});
        QVERIFY(test.board.isTold("PTT:0\n"));
        QVERIFY(!test.gateway.session.transmitting);
        QCOMPARE(test.root.exchanged("kivo-status.json").object().value("transmitting"_s), QJsonValue(false));
    }

    void theEmergencyStopOfASilentGatewayReleasesTheRadioAllTheSame() {
        BusyGateway test;
        test.traffic.followTalker("AA1"_s);
        QVERIFY(test.board.isTold("PTT:1\n"));
        QFile::remove(test.root.exchangeFile("kivo-status.json"));
        test.run(R"({"action": "tx_stop_emergency"})");
        QCOMPARE(test.wire(), Lines());
        QCOMPARE(test.root.exchanged("kivo-status.json").object().value("transmitting"_s), QJsonValue(false));
        test.traffic.followTalker("AA1"_s); // who talks on does not key it again
        QVERIFY(test.boardIsToldOnly("PTT:0\n"));
    }

    void theEmergencyStopWorksWithoutAnyComponent() {
        const TestRoot root;
        Gateway gateway(root.paths());
        StateFiles files(gateway);
        gateway.session.transmitting = true;
        gateway.session.currentRoom = "Hill"_s;
        LogCapture log;
        runWebUiCommand(gateway, files, {{"action"_s, "tx_stop_emergency"_s}});
        QVERIFY(log.take().contains("info [TX] Emergency TX_STOP — siap shutdown"_s));
        QVERIFY(!gateway.session.transmitting);
        QVERIFY(QFile::exists(root.exchangeFile("kivo-status.json")));
    }

    void aTextThatLooksLikeAPositionGoesOutAsItIs() {
        BusyGateway test;
        test.run(R"({"action": "admin_update_user", "user_id": 7, "name": "%5 %12", "gateway_name": "G"})");
        QCOMPARE(test.wire(),
                 Lines{"ADMIN_UPDATE_USER 7 \"%5 %12\" \"\" \"active\" \"G\" \"\" \"\" \"\" \"\" 0 0 \"\"\r\n"});
    }

    void aLineEndInsideATextCannotStartACommand() {
        BusyGateway test;
        test.run("{\"action\": \"admin_delete_room\", \"name\": \"A\\r\\nADMIN_KICK 1\\u0000\"}");
        QCOMPARE(test.wire(), Lines{"ADMIN_DELETE_ROOM \"A  ADMIN_KICK 1 \"\r\n"});
    }

    void noPasswordIsEverLogged() {
        BusyGateway test;
        LogCapture log;
        test.run(R"({"action": "admin_reset_password", "user_id": 7, "password": "hush-hush"})");
        QCOMPARE(test.wire().size(), 1);
        QVERIFY(!log.take().join(QLatin1Char('\n')).contains("hush"_s));
    }
};

QTEST_GUILESS_MAIN(TestWebUiActionRules)
#include "tst_WebUiActionRules.moc"
