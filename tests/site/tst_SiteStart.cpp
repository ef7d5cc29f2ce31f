#include "TestSite.h"
#include "sim/card/SoundCard.h"

#include <QFileInfo>

using namespace sim;

namespace {

QStringList firstLines(const Daemon &daemon, int count) {
    QStringList lines;
    for (const LogLine &line : daemon.log().mid(0, count))
        lines.append(line.level + QLatin1Char(' ') + line.text);
    return lines;
}

QDateTime changed(const char *stateFile) {
    return QFileInfo(sitePaths().appliance + "/tmp/"_s + QLatin1String(stateFile)).lastModified();
}

void writeRawConfig(const QByteArray &bytes) {
    QFile file(sitePaths().appliance + "/config/config.json"_s);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        qFatal("cannot write the configuration");
}

void addHost(const QByteArray &line) {
    QFile hosts(sitePaths().hostsFile);
    if (!hosts.open(QIODevice::Append) || hosts.write(line) != line.size())
        qFatal("cannot add a host");
}

} // namespace

class TestSiteStart : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startUpIsLoggedInOrder();
    void aUselessConfigurationIsToldAndTheLoopRuns_data();
    void aUselessConfigurationIsToldAndTheLoopRuns();
    void aNewBoxIsSetUpThroughTheWebUi();
    void theSoundDeviceIsChosen_data();
    void theSoundDeviceIsChosen();
    void withoutAServerNoConnectionIsTriedAndTheTimersRun();
    void withoutABoardTheGatewayStillListens();
};

void TestSiteStart::startUpIsLoggedInOrder() {
    TestSite site;
    site.writeConfig({{"tx_bass"_s, 20}, {"rx_treble"_s, -3.5}, {"baudrate"_s, 115200}});
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLog("[Room] Bergabung ke room:"_s, 15000));
    const QStringList expected = {
        "info ============================================"_s,
        "info   Kivo Darvi Linux Appliance v \"4.1.7\""_s,
        "info   Mode: Headless (Arduino COS/PTT)"_s,
        "info ============================================"_s,
        "debug [Audio] Engine created (Linux headless)"_s,
        "info [Audio] Initialized: 48000 Hz, 32000 bps fd: 20 ms"_s,
        "debug [Appliance] Audio device from config: \"hw:0,0\""_s,
        "info [Audio] TX Tone Bass: 12 Mid: 0 Treble: 0"_s,
        "info [Audio] RX Tone Bass: 0 Mid: 0 Treble: -3.5"_s,
        "debug [Appliance] Audio device: \"hw:0,0\""_s,
        "info [Arduino] Connected to \""_s + site.board().portName() + "\" @ 115200"_s,
        "info [Appliance] Kivo Darvi Appliance berjalan"_s,
    };
    QCOMPARE(firstLines(site.daemon(), expected.size()), expected);

    // What follows comes from several sources; each keeps its own order.
    const QStringList link = {
        "debug [Server] Menghubungi server..."_s,
        "debug [TCP] Connecting to \"127.0.0.1\" : 8080"_s,
        "debug [TCP] Connected!"_s,
        "info [Server] Terhubung ke server Kivo Darvi"_s,
        "debug [Server] Auto-login: \"AB1CD\""_s,
        "debug [TCP] Login successful, user_id: 42 is_admin: false"_s,
        "info [Server] Login berhasil — admin: false user_id: 42"_s,
        "debug [Appliance] Bergabung pada room (last/default): \"Lobby\""_s,
        "debug [TCP] JOIN room: \"Lobby\""_s,
        "info [Room] Bergabung ke room: \"Lobby\""_s,
    };
    QStringList heard;
    for (const QString &line : firstLines(site.daemon(), -1)) {
        if (link.contains(line))
            heard.append(line);
    }
    QCOMPARE(heard, link);
    QVERIFY(site.logsOnce("debug"_s, "[UDP]   token length: 64"_s));
    QVERIFY(site.timeLogged("[Server] Menghubungi"_s) - site.timeLogged("berjalan"_s) >= 400'000'000);

    // The board says when it is there, once; and the settings follow the opening of the port.
    site.board().announceReady();
    QVERIFY(site.waitForLine("info"_s, "[Arduino] Ready"_s, 5000));
    QVERIFY(site.waitForLine("info"_s, "[Arduino] Config sent - COS_HIGH: true PTT_INVERT: false"_s, 5000));
}

void TestSiteStart::aUselessConfigurationIsToldAndTheLoopRuns_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("level");
    QTest::addColumn<QString>("text");
    QTest::newRow("none") << QByteArray() << "debug"_s
                          << "[Config] No config file, using defaults"_s;
    QTest::newRow("white space") << QByteArray(" \n\t ") << "warning"_s
                                 << "[Config] Config file is empty"_s;
    QTest::newRow("an array") << QByteArray("[1]") << "warning"_s
                              << "[Config] Invalid JSON in config file"_s;
    QTest::newRow("cut short") << QByteArray("{\"callsign\":\"AB1") << "warning"_s
                               << "[Config] Invalid JSON in config file"_s;
    QTest::newRow("zeros after a power cut") << QByteArray(4096, '\0') << "warning"_s
                                             << "[Config] Invalid JSON in config file"_s;
}

void TestSiteStart::aUselessConfigurationIsToldAndTheLoopRuns() {
    QFETCH(QByteArray, content);
    QFETCH(QString, level);
    QFETCH(QString, text);
    TestSite site;
    if (!content.isEmpty())
        writeRawConfig(content);
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLine("info"_s, "[Appliance] Kivo Darvi Appliance berjalan"_s, 10000));
    QCOMPARE(site.daemon().log().value(1).text, "  Kivo Darvi Linux Appliance v \"4.1.7\""_s);
    QCOMPARE(firstLines(site.daemon(), 5).value(4), level + u' ' + text); // right behind the banner
    QCOMPARE(site.daemon().logged("[Config]"_s).size(), 1);
    // The default sound device is not there, nor is the default board.
    QVERIFY(site.logsOnce("warning"_s, "[Appliance] Config device \"hw:1,0\" not available, auto-detecting..."_s));
    QCOMPARE(site.daemon().logged("[Arduino] Failed to open port: \"/dev/ttyUSB0\" — "_s).size(), 1);
    QVERIFY(site.waitForLog("[TCP] Connecting to \"voice.kivo.example\" : 8080"_s, 5000));
    QVERIFY(site.waitForStatus("connected", false));
    QCOMPARE(site.readConfig(), QJsonObject()); // loading never writes
}

void TestSiteStart::aNewBoxIsSetUpThroughTheWebUi() {
    TestSite site;
    addHost("127.0.0.1 voice.kivo.example\n");
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLine("warning"_s,
                             "[Appliance] Cannot login — callsign or password empty (callsign: \"EMPTY\" password: "
                             "EMPTY ) — waiting for login trigger from Web UI"_s,
                             10000));
    site.dropFile("login-cred.json"_s, R"({"action":"login","callsign":"ab1cd","password":"gateway"})");
    QVERIFY(Site::waitFor([&] { return site.server().roomOf("AB1CD"_s) == "Lobby"_s; }, 10000));
    QVERIFY(site.waitForLog("[UDP] Siap"_s, 5000));
    QVERIFY(Site::waitFor([&] { return site.readConfig().value("last_room"_s) == "Lobby"_s; }, 5000));
    const QJsonObject config = site.readConfig();
    QCOMPARE(config.value("callsign"_s).toString(), "AB1CD"_s);
    QCOMPARE(config.value("setup_completed"_s).toBool(), true);
    QCOMPARE(config.value("user_id"_s).toInt(), 42);
    QVERIFY(!config.value("hwid"_s).toString().isEmpty());
    QVERIFY(!config.contains("baudrate"_s)); // nothing was loaded, so no defaults were filled in
}

void TestSiteStart::theSoundDeviceIsChosen_data() {
    QTest::addColumn<QString>("configured"); // none: not configured
    QTest::addColumn<QList<int>>("cards");
    QTest::addColumn<QString>("chosen");
    QTest::addColumn<bool>("detected");
    QTest::newRow("configured, though not the default") << "hw:3,0"_s << QList<int>{0, 1, 3} << "hw:3,0"_s << false;
    QTest::newRow("beyond those looked for") << "hw:7,0"_s << QList<int>{0, 7} << "hw:7,0"_s << false;
    QTest::newRow("not configured") << QString() << QList<int>{0, 1} << "hw:1,0"_s << false;
    QTest::newRow("only card 2") << "hw:1,0"_s << QList<int>{2} << "hw:2,0"_s << true;
    QTest::newRow("the first of several") << "hw:5,0"_s << QList<int>{1, 3} << "hw:1,0"_s << true;
    QTest::newRow("none but one that is not looked for") << "hw:0,0"_s << QList<int>{4} << "hw:1,0"_s << true;
    QTest::newRow("none at all") << "hw:2,0"_s << QList<int>{} << "hw:1,0"_s << true;
    QTest::newRow("a name that is none") << "no such\ndevice"_s << QList<int>{0} << "hw:0,0"_s << true;
}

void TestSiteStart::theSoundDeviceIsChosen() {
    QFETCH(QString, configured);
    QFETCH(QList<int>, cards);
    QFETCH(QString, chosen);
    QFETCH(bool, detected);
    TestSite site;
    site.card().setPresent(cards.contains(0));
    std::vector<std::unique_ptr<SoundCard>> others;
    for (const int number : cards) {
        if (number != 0)
            others.push_back(std::make_unique<SoundCard>(sitePaths().cards, number));
    }
    site.writeConfig({{"audio_input"_s, configured}},
                     configured.isEmpty() ? QStringList{"audio_input"_s} : QStringList{});
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLine("info"_s, "[Appliance] Kivo Darvi Appliance berjalan"_s, 10000));

    const QString quoted = QLatin1Char('"') + chosen + QLatin1Char('"');
    QCOMPARE(site.countLines("debug"_s, "[Appliance] Audio device from config: "_s + quoted), detected ? 0 : 1);
    QCOMPARE(site.countLines("debug"_s, "[Appliance] Auto-detected audio device: "_s + quoted), detected ? 1 : 0);
    QCOMPARE(site.daemon().logged("not available, auto-detecting..."_s).size(), detected ? 1 : 0);
    QVERIFY(site.logsOnce("debug"_s, "[Appliance] Audio device: "_s + quoted));
    const bool opens = cards.contains(chosen.mid(3, 1).toInt());
    QCOMPARE(site.daemon().logged("[Audio] Playback open: "_s).size(), opens ? 0 : 1);
    QCOMPARE(site.daemon().logged("[Audio] Capture open: "_s).size(), opens ? 0 : 1);
    QVERIFY(site.waitForStatus("connected", false)); // and the loop runs
}

void TestSiteStart::withoutAServerNoConnectionIsTriedAndTheTimersRun() {
    TestSite site;
    site.writeConfig({{"server_address"_s, QString()}});
    QSignalSpy connections(&site.server(), &VoiceServer::clientConnected);
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForStatus("connected", false));
    const QDateTime status = changed("kivo-status.json");
    const QDateTime levels = changed("kivo-vu.json");
    QVERIFY(levels.isValid());
    // Three turns of the status are 6 s: a first connection and a second attempt would have shown by then.
    for (int turn = 0; turn < 3; ++turn) {
        const QDateTime before = changed("kivo-status.json");
        QVERIFY(Site::waitFor([&] { return changed("kivo-status.json") > before; }, 5000));
    }
    QVERIFY(changed("kivo-status.json") > status);
    QVERIFY(changed("kivo-vu.json") > levels);
    QCOMPARE(connections.count(), 0);
    QCOMPARE(site.daemon().logged("[TCP] Connecting"_s), QStringList());
    QVERIFY(site.daemon().isRunning());
}

void TestSiteStart::withoutABoardTheGatewayStillListens() {
    TestSite site;
    site.writeConfig({{"serial_port"_s, QString()}, {"baudrate"_s, "nonsense"_s}});
    QVERIFY(site.bringUp());
    QVERIFY(!site.board().isPortOpen());
    QCOMPARE(site.daemon().logged("[Arduino]"_s), QStringList());
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    const std::int64_t beforeNs = monotonicNs();
    member->speak(tone(1000, -10, 0.6));
    QVERIFY(site.waitForLog("[Audio] SW buffer primed"_s, 5000));
    QVERIFY(site.timeLogged("[Audio] SW buffer primed"_s) > beforeNs);
    QCOMPARE(site.daemon().logged("[TX]"_s), QStringList());
}

SITE_TEST_MAIN(TestSiteStart)
#include "tst_SiteStart.moc"
