#include "Obstacle.h"

#include <QJsonArray>

using namespace sim;

namespace {

const QStringList stateFiles = {"kivo-status.json"_s,      "kivo-vu.json"_s,           "kivo-rooms.json"_s,
                                "kivo-server-info.json"_s, "kivo-online-users.json"_s, "kivo-userlist.json"_s,
                                "kivo-admin-users.json"_s};

QString folder() {
    return sitePaths().appliance + "/tmp"_s;
}

QString inFolder(const QString &name) {
    return folder() + QLatin1Char('/') + name;
}

} // namespace

/// What stands in the way in a folder that another user can write. One gateway, an administrator's, meets it all.
class TestSiteWebUiFolder : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void nothingIsWrittenThroughAnObstacle_data() { addObstacles(); }
    void nothingIsWrittenThroughAnObstacle();
    void noCommandOrLoginIsReadThroughAnObstacle_data() { addObstacles(); }
    void noCommandOrLoginIsReadThroughAnObstacle();

private:
    static void addObstacles();
    void provokeEveryStateFile();
    bool finishScan();

    std::unique_ptr<TestSite> m_site;
    std::unique_ptr<DeviceFolder> m_devices;
    QMap<QByteArray, QByteArray> m_replies; ///< the last of each kind that the server has sent
    int m_round = 0;
};

void TestSiteWebUiFolder::initTestCase() {
    m_devices = std::make_unique<DeviceFolder>();
    m_site = std::make_unique<TestSite>();
    VoiceServer &server = m_site->server();
    server.setReplyPath([this](const QByteArray &line) {
        m_replies.insert(line.left(line.indexOf('|')), line);
        return QList<QByteArray>{line};
    });
    server.announceQuality("standard"_s, 32000, 48000, 20, 5);
    m_site->writeConfig({{"callsign"_s, Site::adminAccount().callsign}, {"password"_s, Site::adminAccount().password}});
    QVERIFY(server.start());
    QVERIFY(m_site->daemon().start());
    QVERIFY(Site::waitFor(
        [] {
            return std::all_of(stateFiles.begin(), stateFiles.end(),
                               [](const QString &name) { return QFile::exists(inFolder(name)); });
        },
        20000));
}

void TestSiteWebUiFolder::cleanupTestCase() {
    m_site.reset();
}

void TestSiteWebUiFolder::addObstacles() {
    QTest::addColumn<Obstacle::Kind>("kind");
    QTest::newRow("link") << Obstacle::Link;
    QTest::newRow("link to nowhere") << Obstacle::LinkToNowhere;
    QTest::newRow("hard link") << Obstacle::HardLink;
    QTest::newRow("FIFO") << Obstacle::Fifo;
    QTest::newRow("folder") << Obstacle::Folder;
    QTest::newRow("device") << Obstacle::Device;
}

/// Every occasion on which the gateway writes a state file, or reads one to change it; done when the gateway has said
/// so of the last of them and two scans of the folder have passed, which are longer than the levels' turn.
void TestSiteWebUiFolder::provokeEveryStateFile() {
    const QString admin = QStringLiteral("BOSS%1").arg(++m_round);
    for (const char *kind : {"ROOMS", "ONLINE_USERS", "USER_LIST", "ADMIN_ALL_USERS", "AUDIO_QUALITY"}) {
        QVERIFY2(m_replies.contains(kind), kind);
        m_site->server().sendRaw(Site::adminAccount().callsign, m_replies.value(kind));
    }
    m_site->server().sendRaw(Site::adminAccount().callsign, "MUTED|1|" + admin.toUtf8() + "\r\n");
    QVERIFY(m_site->waitForLine("info"_s, "[Admin] Gateway ini di-mute oleh admin: \""_s + admin + u'"', 5000));
    m_site->forgetSent();
    m_site->board().sendRaw("COS:1\r\nCOS:0\r\n");
    QVERIFY(m_site->waitForSent("TX_STOP"_s, 5000));
    QVERIFY(finishScan() && finishScan());
}

/// A command by a name that comes last has been carried out.
bool TestSiteWebUiFolder::finishScan() {
    m_site->forgetSent();
    m_site->dropFile("kivo-cmd-zzz.json"_s, R"({"action":"admin_pending"})");
    return m_site->waitForSent("ADMIN_PENDING"_s, 5000);
}

void TestSiteWebUiFolder::nothingIsWrittenThroughAnObstacle() {
    QFETCH(Obstacle::Kind, kind);
    const Victim victim("not for the Web UI");
    {
        std::vector<std::unique_ptr<Obstacle>> obstacles;
        for (const QString &name : stateFiles) {
            obstacles.push_back(std::make_unique<Obstacle>(kind, inFolder(name), victim, *m_devices));
            if (!obstacles.back()->isThere())
                QSKIP("only root can plant that");
        }
        const Victim::Marks before = victim.marks();
        provokeEveryStateFile();
        if (QTest::currentTestFailed())
            return;
        QVERIFY(victim.marks() == before);
        QCOMPARE(victim.content(), QByteArray("not for the Web UI"));
        QVERIFY(!QFile::exists(Obstacle::nowhere()));
        // Each has made way for its file, but for what is mounted there.
        for (const auto &obstacle : obstacles) {
            const QFileInfo file(obstacle->path());
            QVERIFY2(kind == Obstacle::Device ? obstacle->isUntouched() : file.isFile() && !file.isSymLink(),
                     qPrintable(obstacle->path()));
        }
    }
    provokeEveryStateFile();
    for (const QString &name : stateFiles) {
        QVERIFY2(QFileInfo(inFolder(name)).isFile(), qPrintable(name));
        QVERIFY2(Site::waitFor([&] { return !m_site->readState(name).isNull(); }, 3000), qPrintable(name));
        QCOMPARE(modeOf(inFolder(name)), mode_t(0664));
    }
    QCOMPARE(m_site->readState("kivo-rooms.json"_s).array(), QJsonArray({"Lobby"_s, "Hilltop"_s}));
    QVERIFY(m_site->waitForStatus("connected", true));
}

void TestSiteWebUiFolder::noCommandOrLoginIsReadThroughAnObstacle() {
    QFETCH(Obstacle::Kind, kind);
    const QByteArray command = R"({"action":"join","room":"Hilltop"})";
    const QByteArray login = R"({"action":"login","callsign":"XY9ZA","password":"admin"})";
    const QString commandFile = "kivo-cmd-1.json"_s, loginFile = "login-cred.json"_s;
    m_site->daemon().forgetLog();
    for (const auto &[file, content] : {std::pair(commandFile, command), std::pair(loginFile, login)}) {
        const Victim victim(content);
        const Obstacle obstacle(kind, inFolder(file), victim, *m_devices);
        if (!obstacle.isThere())
            QSKIP("only root can plant that");
        const Victim::Marks before = victim.marks();
        // Commands are looked for every half second, a login every two: it is the log that tells of one.
        for (int turn = 0; turn < 2; ++turn) {
            QVERIFY(finishScan());
            QCOMPARE(m_site->sent("JOIN"_s) + m_site->sent("LOGIN"_s), QStringList());
        }
        if (file == loginFile)
            QVERIFY(m_site->waitForLog("[Appliance] Cannot read login trigger: "_s, 5000));
        QVERIFY(victim.marks() == before);
        QVERIFY(obstacle.isUntouched());
    }
    QCOMPARE(m_site->daemon().logged("[Appliance] Login trigger"_s), QStringList());

    m_site->forgetSent();
    m_site->dropFile(commandFile, command);
    QVERIFY(m_site->waitForSent("JOIN Hilltop"_s, 5000));
    m_site->forgetSent();
    m_site->dropFile(loginFile, login);
    QVERIFY(m_site->waitForSent("LOGIN XY9ZA admin "_s, 5000));
    QVERIFY(!QFile::exists(inFolder(commandFile)));
    QVERIFY(!QFile::exists(inFolder(loginFile)));
    QVERIFY(m_site->waitForSent("JOIN Hilltop"_s, 5000)); // where it was
}

SITE_TEST_MAIN(TestSiteWebUiFolder)
#include "tst_SiteWebUiFolder.moc"
