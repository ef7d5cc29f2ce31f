#include "../support/LogCapture.h"
#include "FakeBoard.h"
#include "FakeServer.h"
#include "QuickDelays.h"
#include "TestRoot.h"
#include "app/Appliance.h"

namespace {

bool nullDevice(const QString &device) {
    return device == "null"_s;
}

/// The whole gateway between a fake server and a fake board, with sound devices that swallow and give silence.
struct TestSite {
    explicit TestSite(const QJsonObject &more = {}, const TimerPeriods &periods = {})
        : root(config(more)),
          appliance(root.paths(), nullDevice, quick, periods) {}

    QJsonObject config(const QJsonObject &more) const {
        QJsonObject all = {{"server_address"_s, "127.0.0.1"_s},
                           {"server_port"_s, server.serverPort()},
                           {"callsign"_s, "ab1cd"_s},
                           {"password"_s, "secret"_s},
                           {"hwid"_s, "h1"_s},
                           {"audio_input"_s, "null"_s},
                           {"serial_port"_s, board.portName()}};
        for (auto it = more.begin(); it != more.end(); ++it)
            all.insert(it.key(), it.value());
        return all;
    }

    void logIn() {
        appliance.start();
        QVERIFY(server.hears("LOGIN AB1CD secret h1"));
        server.say("LOGIN_OK|token|AB1CD|true|42");
        QVERIFY(server.hears("JOIN Lobby"));
        server.say("JOIN_OK|Lobby");
        QTRY_COMPARE(status("room"), QJsonValue("Lobby"_s));
    }

    QJsonValue status(const char *key) const {
        return root.exchanged("kivo-status.json").object().value(QLatin1String(key));
    }

    FakeServer server;
    FakeBoard board;
    TestRoot root;
    Appliance appliance;
};

QStringList tagged(const QStringList &lines, const QString &tag) {
    return lines.filter(tag);
}

} // namespace

class TestAppliance : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void componentsComeUpInOrderWithTheirSettings() {
        TestSite site({{"tx_bass"_s, 3}, {"tx_mid"_s, -1.5}, {"tx_treble"_s, 20}, {"rx_treble"_s, 6}});
        LogCapture log;
        site.appliance.start();
        QCOMPARE(log.take(), (QStringList{"debug [Audio] Engine created (Linux headless)"_s,
                                          "info [Audio] Initialized: 48000 Hz, 32000 bps fd: 20 ms"_s,
                                          "debug [Appliance] Audio device from config: \"null\""_s,
                                          "info [Audio] TX Tone Bass: 3 Mid: -1.5 Treble: 12"_s,
                                          "info [Audio] RX Tone Bass: 0 Mid: 0 Treble: 6"_s,
                                          "debug [Appliance] Audio device: \"null\""_s,
                                          "info [Arduino] Connected to \"%1\" @ 9600"_s.arg(site.board.portName())}));
    }

    void theProgramRepeatsAtThesePeriods() {
        constexpr TimerPeriods periods;
        QVERIFY(periods.levels == 200ms);
        QVERIFY(periods.status == 2s);
        QVERIFY(periods.ping == 5s);
        QVERIFY(periods.refresh == 10s);
        QVERIFY(periods.loginTrigger == 2s);
        QVERIFY(periods.commands == 500ms);
    }

    void theServerIsPingedAndAskedForItsListsAgainAndAgain() {
        TimerPeriods periods;
        periods.ping = 20ms;
        periods.refresh = 30ms;
        TestSite site({}, periods);
        site.logIn();
        for (int round = 0; round < 3; ++round) { // a login and a join ask for some of the lists once
            site.server.forget();
            for (const char *command : {"PING", "ROOMS", "ONLINE_USERS", "ADMIN_GET_ALL_USERS"})
                QVERIFY2(site.server.hears(command), command);
        }
    }

    void stateFilesAreWrittenAgainAndAgain_data() {
        QTest::addColumn<QString>("file");
        QTest::newRow("status") << "kivo-status.json";
        QTest::newRow("levels") << "kivo-vu.json";
    }
    void stateFilesAreWrittenAgainAndAgain() {
        QFETCH(QString, file);
        TimerPeriods periods;
        periods.status = 20ms;
        periods.levels = 10ms;
        TestSite site({{"server_address"_s, ""_s}}, periods);
        site.appliance.start();
        for (int round = 0; round < 2; ++round) {
            const QString path = site.root.paths().exchangeDir() + QLatin1Char('/') + file;
            QTRY_VERIFY(QFile::exists(path));
            QVERIFY(QFile::remove(path));
        }
    }

    void withoutASerialPortTheRadioStaysClosed() {
        TestSite site({{"serial_port"_s, ""_s}, {"baudrate"_s, -1}});
        LogCapture log;
        site.appliance.start();
        QCOMPARE(tagged(log.take(), "[Arduino]"_s), QStringList());
    }

    void withoutAServerNothingIsCalledButTheTimersRun() {
        TestSite site({{"server_address"_s, ""_s}});
        LogCapture log;
        site.appliance.start();
        QTRY_VERIFY(QFile::exists(site.root.paths().vuFile()));
        QTRY_COMPARE(site.status("connected"), QJsonValue(false));
        TestRoot::write(site.root.exchangeFile("kivo-cmd-1.json"), R"({"action": "clear_log"})");
        QTRY_VERIFY(!QFile::exists(site.root.exchangeFile("kivo-cmd-1.json")));
        const QStringList lines = log.take();
        QVERIFY(lines.contains("info [Admin] Log dibersihkan via Web UI"_s));
        QCOMPARE(tagged(lines, "[TCP]"_s), QStringList());
    }

    void aLoginTriggerLogsABoxIn() {
        TestSite site({{"callsign"_s, ""_s}});
        site.appliance.start();
        QTRY_VERIFY(site.server.hasClient());
        TestRoot::write(site.root.paths().loginTriggerFile(),
                        R"({"action": "login", "callsign": "xy2", "password": "other"})");
        QVERIFY(site.server.hears("LOGIN XY2 other h1"));
    }

    void theRadiosSquelchBecomesATransmission() {
        TestSite site;
        site.logIn();
        site.board.say("COS:1\n");
        QVERIFY(site.server.hears("TX_START \"Lobby\""));
        QCOMPARE(site.status("transmitting"), QJsonValue(true));
        site.board.say("COS:0\n");
        QVERIFY(site.server.hears("TX_STOP \"Lobby\""));
        QCOMPARE(site.status("transmitting"), QJsonValue(false));
    }

    void framesOfATransmissionAskForTheMediaLink() {
        TestSite site;
        site.logIn();
        LogCapture log;
        site.board.say("COS:1\n");
        QTRY_VERIFY(site.status("transmitting") == QJsonValue(true));
        QStringList lines;
        const QString dropped = "warning [Appliance] TX tapi UDP belum ready — frame dropped"_s;
        QTRY_COMPARE((lines += log.take()).count(dropped), 3);
    }

    void aTalkerInTheRoomKeysTheRadio() {
        TestSite site;
        site.logIn();
        QVERIFY(site.board.isToldOfPtt(""));
        site.server.say("USER_LIST|Lobby|42,7|AB1CD,XY2|Me,You|RX,TX|1,1|0,0");
        QVERIFY(site.board.isToldOfPtt("PTT:1\n"));
        site.server.say("USER_LIST|Lobby|42,7|AB1CD,XY2|Me,You|RX,RX|1,1|0,0");
        QVERIFY(site.board.isToldOfPtt("PTT:0\n"));
        QTRY_COMPARE(site.root.exchanged("kivo-userlist.json").array().size(), 2);
    }

    void aLostLinkReleasesTheRadio() {
        TestSite site;
        site.logIn();
        site.server.say("USER_LIST|Lobby|42,7|AB1CD,XY2|Me,You|RX,TX|1,1|0,0");
        QVERIFY(site.board.isToldOfPtt("PTT:1\n"));
        site.server.forget();
        site.server.hangUp();
        QVERIFY(site.board.isToldOfPtt("PTT:0\n"));
        QVERIFY(site.server.hears("LOGIN AB1CD secret h1"));
    }

    void whatTheServerTellsReachesTheWebUi() {
        TestSite site;
        site.logIn();
        site.server.say("ROOMS|Lobby,Hill");
        site.server.say("ONLINE_USERS|7,XY2,You,Lobby,False");
        site.server.say("AUDIO_QUALITY|high|24000|16000|20|5");
        site.server.say("USER_LIST|Lobby|42,7|AB1CD,XY2|Me,You|RX,RX|1,1|0,0");
        site.server.say(R"(ADMIN_ALL_USERS|[{"id": 7, "callSign": "XY2"}])");
        site.server.say("ADMIN_MUTE_OK|7|1");
        site.server.say("MUTED|1|Boss");
        site.server.say(R"(USER_INFO|{"gateway_name": "Gate"})");
        QTRY_COMPARE(site.root.configOnDisk().value("gateway_name"_s), QJsonValue("Gate"_s));
        QCOMPARE(site.root.exchanged("kivo-rooms.json").array(), (QJsonArray{"Lobby"_s, "Hill"_s}));
        QCOMPARE(site.root.exchanged("kivo-online-users.json").array().size(), 1);
        QCOMPARE(site.root.exchanged("kivo-server-info.json").object().value("sample_rate"_s), QJsonValue(16000));
        const QJsonArray room = site.root.exchanged("kivo-userlist.json").array();
        QCOMPARE(room.at(0).toObject().value("is_muted"_s), QJsonValue(true));
        QCOMPARE(room.at(1).toObject().value("is_muted"_s), QJsonValue(true));
        const QJsonObject account = site.root.exchanged("kivo-admin-users.json").array().at(0).toObject();
        QCOMPARE(account.value("callsign"_s), QJsonValue("XY2"_s));
        QCOMPARE(account.value("is_muted"_s), QJsonValue(true));
        QTRY_COMPARE(site.status("admin_muted"), QJsonValue(true));
        QCOMPARE(site.status("users"), QJsonValue(1));
        QCOMPARE(site.status("users_in_room"), QJsonValue(2));
    }

    void leavingTheRoomIsShown() {
        TestSite site;
        site.logIn();
        site.server.say("LEAVE_OK|Lobby");
        QTRY_COMPARE(site.status("room"), QJsonValue(""_s));
    }
};

QTEST_GUILESS_MAIN(TestAppliance)
#include "tst_Appliance.moc"
