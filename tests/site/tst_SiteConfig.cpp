#include "TestSite.h"

#include <grp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace sim;

namespace {

QString configFolder() {
    return sitePaths().appliance + "/config/"_s;
}

QByteArray contents(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

struct stat statusOf(const QString &path) {
    struct stat status {};
    if (stat(QFile::encodeName(path).constData(), &status) != 0)
        status.st_mode = 0;
    return status;
}

/// The Web UI's side of the lock.
class Lock {
public:
    Lock() : m_file(configFolder() + "config.lock"_s) {
        isHeld = m_file.open(QIODevice::ReadWrite) && flock(m_file.handle(), LOCK_EX | LOCK_NB) == 0;
    }
    bool isHeld;

private:
    QFile m_file;
};

/// Adds to the file what the Web UI would.
void editConfig(const QJsonObject &changes) {
    QFile file(configFolder() + "config.json"_s);
    if (!file.open(QIODevice::ReadWrite))
        qFatal("cannot open the configuration");
    QJsonObject config = QJsonDocument::fromJson(file.readAll()).object();
    for (auto key = changes.begin(); key != changes.end(); ++key)
        config.insert(key.key(), key.value());
    file.resize(0);
    file.write(QJsonDocument(config).toJson());
}

} // namespace

/// The configuration file, which the Web UI writes too.
class TestSiteConfig : public QObject {
    Q_OBJECT

public:
    explicit TestSiteConfig(bool isRoot) : m_isRoot(isRoot) {}

private Q_SLOTS:
    void aSaveThatFindsTheLockTakenGivesUpAndTheGatewayGoesOn();
    void whatAnotherProcessWroteSurvivesTheNextSave();
    void sharedFilesBelongToTheWebUisGroup();

private:
    bool m_isRoot; ///< of the machine, not only of the site's namespaces
};

void TestSiteConfig::aSaveThatFindsTheLockTakenGivesUpAndTheGatewayGoesOn() {
    TestSite site;
    QVERIFY(site.bringUp());
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved to config.json"_s, 8000)); // the last save of a login
    {
        const Lock lock;
        QVERIFY(lock.isHeld);
        const QByteArray before = contents(configFolder() + "config.json"_s);
        const std::int64_t movedNs = monotonicNs();
        site.server().move(site.gateway(), "Hilltop"_s); // to be saved as the last room
        QVERIFY(site.waitForLine("warning"_s, "[Config] Could not acquire lock after 5s"_s, 10000));
        VERIFY_BETWEEN(secondsBetween(movedNs, site.timeLogged("Could not acquire lock"_s)), 4.5, 8.0);
        QCOMPARE(contents(configFolder() + "config.json"_s), before);
        QVERIFY(!QFile::exists(configFolder() + "config.json.tmp"_s));

        QVERIFY(site.waitForLine("info"_s, "[Room] Bergabung ke room: \"Hilltop\""_s, 2000));
        site.board().setSquelch(true);
        QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
        site.board().setSquelch(false);
        QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
        QCOMPARE(site.sent("TX_"_s), (QStringList{"TX_START \"Hilltop\""_s, "TX_STOP \"Hilltop\""_s}));
        QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());
    }
    // The value was kept, and the next save takes it along.
    site.dropFile("kivo-cmd-1.json"_s, R"({"action":"set_tot","value":60})");
    QVERIFY(Site::waitFor([&] { return site.readConfig().value("tot_duration"_s) == 60; }, 5000));
    QCOMPARE(site.readConfig().value("last_room"_s).toString(), "Hilltop"_s);
}

void TestSiteConfig::whatAnotherProcessWroteSurvivesTheNextSave() {
    TestSite site;
    site.writeConfig({{"frequency"_s, "145.500"_s}});
    QVERIFY(site.bringUp());
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved to config.json"_s, 8000));
    QCOMPARE(site.readConfig().value("baudrate"_s), QJsonValue(9600)); // filled in by loading, written by saving
    editConfig({{"theme"_s, "dark"_s}, {"frequency"_s, "433.000"_s}, {"list"_s, QJsonArray{1, 2}}});
    site.server().move(site.gateway(), "Hilltop"_s);
    QVERIFY(Site::waitFor([&] { return site.readConfig().value("last_room"_s) == "Hilltop"_s; }, 5000));
    const QJsonObject config = site.readConfig();
    QCOMPARE(config.value("theme"_s), QJsonValue("dark"_s));
    QCOMPARE(config.value("list"_s), QJsonValue(QJsonArray{1, 2}));
    QCOMPARE(config.value("frequency"_s), QJsonValue("145.500"_s)); // both changed it: the gateway's value stands
    QVERIFY(!QFile::exists(configFolder() + "config.json.tmp"_s));
}

void TestSiteConfig::sharedFilesBelongToTheWebUisGroup() {
    const mode_t oldMask = umask(077);
    TestSite site;
    const bool isUp = site.bringUp();
    umask(oldMask);
    QVERIFY(isUp);
    QVERIFY(Site::waitFor([&] { return site.readConfig().value("last_room"_s) == "Lobby"_s; }, 5000));
    QVERIFY(site.waitForStatus("room", "Lobby"_s));
    const group *webUi = getgrnam("www-data");
    for (const char *name : {"config/config.json", "config/config.lock", "tmp/kivo-status.json", "tmp/kivo-vu.json",
                             "tmp/kivo-rooms.json", "tmp/kivo-userlist.json"}) {
        const QString path = sitePaths().appliance + u'/' + QLatin1String(name);
        QVERIFY2(Site::waitFor([&] { return statusOf(path).st_mode == mode_t(S_IFREG | 0664); }, 5000), name);
        QCOMPARE(statusOf(path).st_uid, uid_t(0));
        if (m_isRoot && webUi != nullptr)
            QVERIFY2(statusOf(path).st_gid == webUi->gr_gid, name);
    }
    const QString noGroup = "[Config] Group www-data not found, skipping chown"_s;
    QCOMPARE(site.daemon().logged(noGroup).isEmpty(), webUi != nullptr);
    if (m_isRoot)
        QCOMPARE(site.daemon().logged("[Config] ch"_s), QStringList());
}

int main(int argc, char **argv) {
    const bool isRoot = geteuid() == 0;
    if (!enterPrivateSite())
        return 1;
    const QCoreApplication application(argc, argv);
    TestSiteConfig test(isRoot);
    return QTest::qExec(&test, argc, argv);
}

#include "tst_SiteConfig.moc"
