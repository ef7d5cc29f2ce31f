#include "../audio/Hearing.h"
#include "../audio/Talker.h"
#include "BusyGateway.h"

#include <functional>
#include <utility>

namespace {

/// What one command is to bring about. Left out is: nothing.
struct Effect {
    Lines wire = {};
    QStringList log = {};
    QByteArray board = {};
    /// Settings that change in memory.
    QJsonObject settings = {};
    /// Whether they reach the disk at once.
    bool saved = false;
};

void insertAll(QJsonObject &into, const QJsonObject &from) {
    for (auto it = from.begin(); it != from.end(); ++it)
        into.insert(it.key(), it.value());
}

} // namespace

Q_DECLARE_METATYPE(Effect)

namespace {

void row(const char *name, const char *command, const Effect &effect) {
    QTest::newRow(name) << QByteArray(command) << effect;
}

void addRoomAndMuteRows() {
    row("join", R"({"action": "join", "room": "Dale"})", {.wire = {"JOIN Dale\r\n"}});
    row("join, no room", R"({"action": "join"})", {.wire = {"JOIN Lobby\r\n"}});
    row("join, room of another type", R"({"action": "join", "room": 5})", {.wire = {"JOIN Lobby\r\n"}});
    row("leave", R"({"action": "leave"})", {.wire = {"LEAVE\r\n"}});
    row("mute_mic", R"({"action": "mute_mic"})", {});
    row("unmute_mic", R"({"action": "unmute_mic"})", {});
    row("mute_spk", R"({"action": "mute_spk"})",
        {.log = {"info [TX] PTT dimatikan — speaker muted"_s}, .board = "PTT:0\n"});
    row("unmute_spk", R"({"action": "unmute_spk"})", {});
}

void addSettingRows() {
    row("set_mic_gain", R"({"action": "set_mic_gain", "value": 120})",
        {.log = {"debug [Appliance] Mic gain set to 120"_s}, .settings = {{"mic_gain"_s, 120}}});
    row("set_mic_gain, too much", R"({"action": "set_mic_gain", "value": 350})",
        {.log = {"debug [Appliance] Mic gain set to 350"_s}, .settings = {{"mic_gain"_s, 200}}});
    row("set_mic_gain, negative", R"({"action": "set_mic_gain", "value": -5})",
        {.log = {"debug [Appliance] Mic gain set to -5"_s}, .settings = {{"mic_gain"_s, 0}}});
    row("set_mic_gain, text", R"({"action": "set_mic_gain", "value": "90"})",
        {.log = {"debug [Appliance] Mic gain set to 0"_s}, .settings = {{"mic_gain"_s, 0}}});
    row("set_spk_gain", R"({"action": "set_spk_gain", "value": 201})",
        {.log = {"debug [Appliance] Speaker gain set to 201"_s}, .settings = {{"speaker_gain"_s, 200}}});
    row("set_agc on", R"({"action": "set_agc", "enabled": true})",
        {.log = {"info [AGC] Enabled — normalisasi level downlink aktif"_s},
         .settings = {{"agc_enabled"_s, true}},
         .saved = true});
    row("set_agc, nothing said", R"({"action": "set_agc"})",
        {.log = {"info [AGC] Disabled"_s}, .settings = {{"agc_enabled"_s, false}}, .saved = true});
    row("set_tot", R"({"action": "set_tot", "value": 180})",
        {.log = {"info [TOT] Duration set to 180 seconds"_s}, .settings = {{"tot_duration"_s, 180}}, .saved = true});
    row("set_ptt_config", R"({"action": "set_ptt_config", "cos_logic_high": false, "ptt_invert": true})",
        {.log = {"info [Arduino] Config sent - COS_HIGH: false PTT_INVERT: true"_s,
                 "info [Arduino] Config updated via Web UI - COS_HIGH: false PTT_INVERT: true"_s,
                 "info [Arduino] Config updated — COS_HIGH: false PTT_INVERT: true"_s},
         .board = "CONFIG:COS_HIGH:0\nCONFIG:PTT_INVERT:1\n",
         .settings = {{"cos_logic_high"_s, false}, {"ptt_invert"_s, true}},
         .saved = true});
    row("set_ptt_config, nothing said", R"({"action": "set_ptt_config"})",
        {.log = {"info [Arduino] Config sent - COS_HIGH: true PTT_INVERT: false"_s,
                 "info [Arduino] Config updated via Web UI - COS_HIGH: true PTT_INVERT: false"_s,
                 "info [Arduino] Config updated — COS_HIGH: true PTT_INVERT: false"_s},
         .board = "CONFIG:COS_HIGH:1\nCONFIG:PTT_INVERT:0\n",
         .settings = {{"cos_logic_high"_s, true}, {"ptt_invert"_s, false}},
         .saved = true});
    row("set_tx_tone, applied within bounds", R"({"action": "set_tx_tone", "bass": 3.5, "mid": -20, "treble": "x"})",
        {.log = {"info [Audio] TX Tone Bass: 3.5 Mid: -12 Treble: 0"_s},
         .settings = {{"tx_bass"_s, 3.5}, {"tx_mid"_s, -20.0}, {"tx_treble"_s, 0.0}},
         .saved = true});
    row("set_rx_tone", R"({"action": "set_rx_tone", "bass": 1, "mid": 2, "treble": 3})",
        {.log = {"info [Audio] RX Tone Bass: 1 Mid: 2 Treble: 3"_s},
         .settings = {{"rx_bass"_s, 1.0}, {"rx_mid"_s, 2.0}, {"rx_treble"_s, 3.0}},
         .saved = true});
}

void addUserRows() {
    row("admin_approve", R"({"action": "admin_approve", "user_id": 7})", {.wire = {"ADMIN_APPROVE_USER 7\r\n"}});
    row("admin_revoke", R"({"action": "admin_revoke", "user_id": 7})", {.wire = {"ADMIN_UNAPPROVE_USER 7\r\n"}});
    row("admin_mute", R"({"action": "admin_mute", "user_id": 7})", {.wire = {"ADMIN_MUTE 7 1\r\n"}});
    row("admin_unmute", R"({"action": "admin_unmute", "user_id": 7})", {.wire = {"ADMIN_MUTE 7 0\r\n"}});
    row("admin_kick", R"({"action": "admin_kick", "user_id": 7})", {.wire = {"ADMIN_KICK 7\r\n"}});
    row("admin_move", R"({"action": "admin_move", "user_id": 7, "room": "  Dale "})",
        {.wire = {"ADMIN_MOVE 7 Dale\r\n"}, .log = {"info [Admin] Pindah \"user 7\" ke room: \"Dale\""_s}});
    row("admin_move, blank room", R"({"action": "admin_move", "user_id": 7, "room": "   "})",
        {.log = {"warning [Appliance] Admin MOVE: room kosong, diabaikan"_s}});
    row("admin_ban", R"({"action": "admin_ban", "user_id": 7})",
        {.wire = {"ADMIN_KICK 7\r\n"}, .log = {"info [Admin] BAN: \"user 7\""_s}});
    row("admin_delete_user", R"({"action": "admin_delete_user", "user_id": 7})",
        {.wire = {"ADMIN_DELETE_USER 7\r\n"}, .log = {"info [Admin] Hapus user: \"user 7\""_s}});
    row("admin_reset_hwid", R"({"action": "admin_reset_hwid", "user_id": 7, "callsign": "XY2"})",
        {.wire = {"ADMIN_RESET_HWID XY2\r\n"}, .log = {"info [Admin] Reset HWID: \"XY2\""_s}});
    row("admin_reset_hwid, nobody", R"({"action": "admin_reset_hwid", "user_id": 7})", {});
}

void addNetworkRows() {
    row("admin_create_room", R"({"action": "admin_create_room", "name": "New Room", "max": 5})",
        {.wire = {"ADMIN_CREATE_ROOM \"New Room\" 5\r\n"}, .log = {"info [Admin] Buat room: \"New Room\""_s}});
    row("admin_create_room, nothing said", R"({"action": "admin_create_room"})",
        {.wire = {"ADMIN_CREATE_ROOM \"\" 50\r\n"}, .log = {"info [Admin] Buat room: \"\""_s}});
    row("admin_delete_room", R"({"action": "admin_delete_room", "name": "Old"})",
        {.wire = {"ADMIN_DELETE_ROOM \"Old\"\r\n"}, .log = {"info [Admin] Hapus room: \"Old\""_s}});
    row("admin_edit_room", R"({"action": "admin_edit_room", "old": "A", "new": "B", "max": 9})",
        {.wire = {"ADMIN_EDIT_ROOM \"A\" \"B\" 9 \"\"\r\n"}, .log = {"info [Admin] Rename room: \"A\" → \"B\""_s}});
    row("admin_edit_room, no limit", R"({"action": "admin_edit_room", "old": "A", "new": "B"})",
        {.wire = {"ADMIN_EDIT_ROOM \"A\" \"B\" 50 \"\"\r\n"}, .log = {"info [Admin] Rename room: \"A\" → \"B\""_s}});
    row("admin_set_room_order", R"({"action": "admin_set_room_order", "order": "3,1,2"})",
        {.wire = {"ADMIN_SET_ROOM_ORDER 3,1,2\r\n"}, .log = {"debug [Admin] Room order updated"_s}});
    row("admin_set_audio_quality", R"({"action": "admin_set_audio_quality", "preset": "high"})",
        {.wire = {"ADMIN_SET_AUDIO_QUALITY high\r\n"}, .log = {"info [Admin] Audio quality: \"high\""_s}});
    row("admin_set_audio_quality, no preset", R"({"action": "admin_set_audio_quality"})",
        {.wire = {"ADMIN_SET_AUDIO_QUALITY standard\r\n"}, .log = {"info [Admin] Audio quality: \"standard\""_s}});
}

void addRecordRows() {
    row("admin_update_user",
        R"({"action": "admin_update_user", "user_id": 7, "name": "Ann", "responsible_callsign": "XY2",
            "status": "expired", "gateway_name": "Hill Top", "frequency": "145.5", "location": "North", "email": "a@b",
            "whatsapp": "628", "approved": 1, "is_admin": 1, "date": "2030-01-02"})",
        {.wire =
             {"ADMIN_UPDATE_USER 7 \"Ann\" \"XY2\" \"expired\" \"Hill Top\" \"145.5\" \"North\" \"a@b\" \"628\" 1 1 "
              "\"2030-01-02\"\r\n"},
         .log = {"info [Admin] Update user: \"user 7\""_s}});
    row("admin_update_user, nothing said", R"({"action": "admin_update_user", "user_id": 7})",
        {.wire = {"ADMIN_UPDATE_USER 7 \"\" \"\" \"active\" \"\" \"\" \"\" \"\" \"\" 0 0 \"\"\r\n"},
         .log = {"info [Admin] Update user: \"user 7\""_s}});
    row("admin_reset_password", R"({"action": "admin_reset_password", "user_id": 7, "password": "new one"})",
        {.wire = {"ADMIN_RESET_PASSWORD 7 \"new one\"\r\n"}, .log = {"info [Admin] Reset password for uid: 7"_s}});
    row("admin_reset_password, none", R"({"action": "admin_reset_password", "user_id": 7})", {});
    row("user_update_profile",
        R"({"action": "user_update_profile", "responsible_name": "Ann", "responsible_callsign": "XY2",
            "frequency": "145.5", "location": "North", "email": "a@b", "whatsapp": "628", "gateway_name": "ignored"})",
        {.wire = {"ADMIN_UPDATE_USER 42 \"Ann\" \"XY2\" \"active\" \"Gate\" \"145.5\" \"North\" \"a@b\" \"628\" 1 1 "
                  "\"\"\r\n"},
         .log = {"info [User] Profile updated — sent ADMIN_UPDATE_USER for self uid: 42"_s},
         .settings = {{"responsible_name"_s, "Ann"_s},
                      {"responsible_callsign"_s, "XY2"_s},
                      {"frequency"_s, "145.5"_s},
                      {"location"_s, "North"_s},
                      {"email"_s, "a@b"_s},
                      {"whatsapp"_s, "628"_s}},
         .saved = true});
    row("admin_refresh", R"({"action": "admin_refresh"})", {.wire = {"ADMIN_GET_ALL_USERS\r\n"}});
    row("admin_pending", R"({"action": "admin_pending"})",
        {.wire = {"ADMIN_PENDING\r\n"}, .log = {"debug [Admin] Get pending users"_s}});
    row("tx_stop_emergency while silent", R"({"action": "tx_stop_emergency"})",
        {.log = {"info [TX] Emergency TX_STOP — siap shutdown"_s}, .board = "PTT:0\n"});
    row("clear_log", R"({"action": "clear_log"})", {.log = {"info [Admin] Log dibersihkan via Web UI"_s}});

    row("unknown action", R"({"action": "reboot"})", {});
    row("action in capitals", R"({"action": "JOIN", "room": "Dale"})", {});
    row("action of another type", R"({"action": 1})", {});
    row("no action", R"({"room": "Dale"})", {});
}

/// With a talker in the room, whose sound is played to a device that swallows it.
struct HearingGateway : BusyGateway {
    HearingGateway() {
        engine.initialize(48000, 1, 32000, 5, 20);
        engine.setDevices("null"_s, "null"_s);
        if (!engine.openPlayback())
            qFatal("no device to play to");
    }

    /// The output level at the end of 20 frames of his at -30 dBFS.
    int levelOfTalk() {
        for (const QByteArray &packet : talker.say(sim::tone(1000, -30, 0.4)))
            engine.onAudioReceivedFrom(packet, 7);
        return engine.outputLevel();
    }

    Talker talker;
};

void takeAway(const QString &what, BusyGateway &test, QJsonObject &command) {
    const QHash<QString, std::function<void()>> ways = {
        {"connection"_s, [&] { test.gateway.session.connected = false; }},
        {"link"_s, [&] { test.gateway.link = nullptr; }},
        {"user id"_s, [&] { command.remove("user_id"_s); }},
        {"positive user id"_s, [&] { command.insert("user_id"_s, -7); }},
        {"login"_s, [&] { test.logIn(0, true); }},
        {"engine"_s, [&] { test.gateway.engine = nullptr; }},
        {"board"_s, [&] { test.gateway.radio = nullptr; }},
    };
    QVERIFY(ways.contains(what));
    ways.value(what)();
}

} // namespace

class TestWebUiActions : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void anActionDoesExactlyThis_data();
    void anActionDoesExactlyThis();

    void withoutItsPreconditionNothingHappens_data();
    void withoutItsPreconditionNothingHappens();

    void theTimeOutIsThatOfTheNextTransmission();
    void theSpeakerGainIsThatOfTheNextFrame();
    void theAutomaticGainIsThatOfTheNextFrame();
};

void TestWebUiActions::anActionDoesExactlyThis_data() {
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<Effect>("effect");
    addRoomAndMuteRows();
    addSettingRows();
    addUserRows();
    addNetworkRows();
    addRecordRows();
}

void TestWebUiActions::anActionDoesExactlyThis() {
    QFETCH(QByteArray, command);
    QFETCH(Effect, effect);
    BusyGateway test;
    QJsonObject inMemory = test.gateway.config.object();
    QJsonObject onDisk = test.root.configOnDisk();

    LogCapture log;
    test.run(command);

    QCOMPARE(log.take(), effect.log);
    QCOMPARE(test.wire(), effect.wire);
    QVERIFY(test.boardIsToldOnly(effect.board));
    insertAll(inMemory, effect.settings);
    QCOMPARE(test.gateway.config.object(), inMemory);
    if (effect.saved)
        insertAll(onDisk, effect.settings);
    QCOMPARE(test.root.configOnDisk(), onDisk);
}

void TestWebUiActions::withoutItsPreconditionNothingHappens_data() {
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("missing");

    const std::pair<const char *, QStringList> table[] = {
        {"connection",
         {"join"_s, "leave"_s, "admin_mute"_s, "admin_unmute"_s, "admin_move"_s, "admin_create_room"_s,
          "admin_delete_room"_s, "admin_edit_room"_s, "admin_set_room_order"_s, "admin_set_audio_quality"_s,
          "admin_update_user"_s, "admin_reset_password"_s, "user_update_profile"_s, "admin_pending"_s}},
        {"link",
         {"join"_s, "leave"_s, "admin_approve"_s, "admin_revoke"_s, "admin_mute"_s, "admin_kick"_s, "admin_move"_s,
          "admin_ban"_s, "admin_delete_user"_s, "admin_reset_hwid"_s, "admin_create_room"_s, "admin_update_user"_s,
          "admin_reset_password"_s, "user_update_profile"_s, "admin_refresh"_s, "admin_pending"_s}},
        {"user id",
         {"admin_approve"_s, "admin_revoke"_s, "admin_mute"_s, "admin_unmute"_s, "admin_kick"_s, "admin_move"_s,
          "admin_ban"_s, "admin_delete_user"_s, "admin_update_user"_s, "admin_reset_password"_s}},
        {"positive user id",
         {"admin_approve"_s, "admin_revoke"_s, "admin_mute"_s, "admin_unmute"_s, "admin_kick"_s, "admin_move"_s,
          "admin_ban"_s, "admin_delete_user"_s, "admin_update_user"_s, "admin_reset_password"_s}},
        {"login", {"user_update_profile"_s}},
        {"engine",
         {"mute_mic"_s, "unmute_mic"_s, "mute_spk"_s, "unmute_spk"_s, "set_mic_gain"_s, "set_spk_gain"_s, "set_agc"_s,
          "set_tot"_s, "set_tx_tone"_s, "set_rx_tone"_s}},
        {"board", {"set_ptt_config"_s}},
    };
    for (const auto &[missing, actions] : table) {
        for (const QString &action : actions)
            QTest::addRow("%s without %s", qPrintable(action), missing) << action << QString::fromLatin1(missing);
    }
}

void TestWebUiActions::withoutItsPreconditionNothingHappens() {
    QFETCH(QString, action);
    QFETCH(QString, missing);
    BusyGateway test;
    QJsonObject command = parse(R"({"user_id": 7, "room": "Dale", "value": 60, "callsign": "XY2", "password": "p",
        "name": "N", "old": "A", "new": "B", "order": "1", "enabled": true})");
    command.insert("action"_s, action);
    takeAway(missing, test, command);
    const QJsonObject inMemory = test.gateway.config.object();
    const QJsonObject onDisk = test.root.configOnDisk();

    LogCapture log;
    runWebUiCommand(test.gateway, test.files, command);

    QCOMPARE(log.take(), QStringList());
    QCOMPARE(test.wire(), Lines());
    QVERIFY(test.boardIsToldOnly(""));
    QCOMPARE(test.gateway.config.object(), inMemory);
    QCOMPARE(test.root.configOnDisk(), onDisk);
}

void TestWebUiActions::theTimeOutIsThatOfTheNextTransmission() {
    HearingGateway test;
    const auto timersStartedBy = [&test](quint32 talker) {
        LogCapture log;
        test.engine.onAudioReceivedFrom(speechPacket(), talker);
        return log.take().filter("[TOT]"_s);
    };
    test.run(R"({"action": "set_tot", "value": 60})");
    QCOMPARE(timersStartedBy(7), QStringList{"info [TOT] Timer started: 60 s untuk userId 7"_s});
    test.run(R"({"action": "set_tot", "value": 75})"); // not on offer
    QCOMPARE(timersStartedBy(8), QStringList());
}

void TestWebUiActions::theSpeakerGainIsThatOfTheNextFrame() {
    HearingGateway test;
    QVERIFY(isNear(test.levelOfTalk(), 34, 1)); // (-30 - 3.01 + 50) / 50 of a hundred
    test.run(R"({"action": "set_spk_gain", "value": 350})");
    QVERIFY(isNear(test.levelOfTalk(), 46, 1)); // 6.02 dB more: twice, not more
    test.run(R"({"action": "set_spk_gain", "value": -500})");
    QCOMPARE(test.levelOfTalk(), 0);
}

void TestWebUiActions::theAutomaticGainIsThatOfTheNextFrame() {
    HearingGateway test;
    test.run(R"({"action": "set_agc", "enabled": true})");
    // 20 frames from a factor of 1 toward 10 by 2 % each: 10 - 9 * 0.98^20 = 3.99, or 12.0 dB more than -30 - 3.01.
    QVERIFY(isNear(test.levelOfTalk(), 58, 2));
    test.run(R"({"action": "set_agc", "enabled": false})");
    QVERIFY(isNear(test.levelOfTalk(), 34, 1));
}

QTEST_GUILESS_MAIN(TestWebUiActions)
#include "tst_WebUiActions.moc"
