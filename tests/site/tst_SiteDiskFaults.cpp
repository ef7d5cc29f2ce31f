#include "Measured.h"
#include "Obstacle.h"

using namespace sim;

namespace {

QString configFolder() {
    return sitePaths().appliance + "/config"_s;
}

QString exchangeFolder() {
    return sitePaths().appliance + "/tmp"_s;
}

QString configFile() {
    return configFolder() + "/config.json"_s;
}

QByteArray contentOf(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Something mounted over a folder or file of the namespace's, for as long as this lives.
class Mounted {
public:
    /// The same folder once more, which cannot be written through this mount.
    static Mounted readOnly(const QString &folder) {
        const QByteArray path = QFile::encodeName(folder);
        constexpr unsigned long flags = MS_BIND | MS_REMOUNT | MS_RDONLY | MS_NOSUID | MS_NODEV;
        const bool isBound = ::mount(path.constData(), path.constData(), nullptr, MS_BIND, nullptr) == 0;
        return Mounted(path, isBound && ::mount(nullptr, path.constData(), nullptr, flags, nullptr) == 0);
    }
    /// An empty disk of its own, of 16 pages.
    static Mounted smallDisk(const QString &folder) {
        const QByteArray path = QFile::encodeName(folder);
        return Mounted(path,
                       ::mount("tmpfs", path.constData(), "tmpfs", MS_NOSUID | MS_NODEV, "size=64k,mode=2775") == 0);
    }
    static Mounted file(const QString &source, const QString &target) {
        const QByteArray path = QFile::encodeName(target);
        return Mounted(
            path, ::mount(QFile::encodeName(source).constData(), path.constData(), nullptr, MS_BIND, nullptr) == 0);
    }
    ~Mounted() { end(); }
    Mounted(const Mounted &) = delete;
    Mounted &operator=(const Mounted &) = delete;

    bool isThere() const { return m_isThere; }
    void end() {
        if (m_isThere && ::umount2(m_path.constData(), MNT_DETACH) != 0)
            qWarning() << "cannot unmount" << m_path << std::strerror(errno);
        m_isThere = false;
    }

private:
    Mounted(const QByteArray &path, bool isThere) : m_path(path), m_isThere(isThere) {}

    const QByteArray m_path;
    bool m_isThere;
};

/// Takes all that is left of a disk.
class Filler {
public:
    explicit Filler(const QString &folder) : m_file(folder + "/filler"_s) {
        const QByteArray page(4096, 'x');
        if (!m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
            qFatal("nothing to fill");
        while (m_file.write(page) > 0) {
        }
    }
    ~Filler() { m_file.remove(); }

private:
    QFile m_file;
};

} // namespace

/// A disk that takes nothing, files that are ruined.
class TestSiteDiskFaults : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aFolderThatCannotBeWrittenCostsOnlyTheSave();
    void aFullDiskLeavesTheOldConfiguration();
    void aFullExchangeFolderHoldsUpNoCommandAndFillsAgainOnceThereIsRoom();
    void aConfigurationRuinedMeanwhileIsMadeWholeByTheNextSave_data();
    void aConfigurationRuinedMeanwhileIsMadeWholeByTheNextSave();
    void aConfigurationOfAbsurdSizeIsNotReadAtStart();
    void nothingIsSavedThroughAnObstacle_data();
    void nothingIsSavedThroughAnObstacle();
    void withoutTheWebUisGroupFilesAreSharedByTheirModeAlone();

private:
    void setTot(TestSite &site, int seconds);
};

/// A setting that is saved at once; the last of three such commands within a scan is the last one saved.
void TestSiteDiskFaults::setTot(TestSite &site, int seconds) {
    const QString line = QStringLiteral("[TOT] Duration set to %1 seconds").arg(seconds);
    const std::int64_t fromNs = monotonicNs();
    site.dropFile("kivo-cmd-tot.json"_s, QStringLiteral(R"({"action":"set_tot","value":%1})").arg(seconds).toUtf8());
    QVERIFY(Site::waitFor([&] { return site.timeLogged(line, fromNs) > 0; }, 10000));
}

void TestSiteDiskFaults::aFolderThatCannotBeWrittenCostsOnlyTheSave() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved"_s, 5000));
    const QByteArray before = contentOf(configFile());
    {
        const Mounted readOnly = Mounted::readOnly(configFolder());
        QVERIFY(readOnly.isThere());
        const int lines = site.daemon().log().size();
        setTot(site, 60);
        QVERIFY(site.waitForLine("warning"_s, "[Config] Cannot open lock file: Read-only file system"_s, 2000));
        QCOMPARE(site.daemon().log().size(), lines + 2);
        verifyBothWaysFollow(site, *member);
        QCOMPARE(contentOf(configFile()), before);
    }
    // Nothing is lost: the value is kept, and saved with the next one.
    site.dropFile("kivo-cmd-1.json"_s, R"({"action":"set_agc","enabled":true})");
    QVERIFY(Site::waitFor([&] { return site.readConfig().value("agc_enabled"_s) == true; }, 5000));
    QCOMPARE(site.readConfig().value("tot_duration"_s), QJsonValue(60));
}

void TestSiteDiskFaults::aFullDiskLeavesTheOldConfiguration() {
    TestSite site;
    Mounted disk = Mounted::smallDisk(configFolder());
    QVERIFY(disk.isThere());
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved"_s, 5000));
    const QByteArray before = contentOf(configFile());
    QVERIFY(QJsonDocument::fromJson(before).isObject());
    {
        const Filler filler(configFolder());
        setTot(site, 60);
        QVERIFY(site.waitForLine("warning"_s, "[Config] Short write to tmp: No space left on device"_s, 2000));
        verifyBothWaysFollow(site, *member);
        QCOMPARE(contentOf(configFile()), before);
        QVERIFY(!QFile::exists(configFile() + ".tmp"_s));
    }
    site.dropFile("kivo-cmd-1.json"_s, R"({"action":"set_agc","enabled":true})");
    QVERIFY(Site::waitFor([&] { return site.readConfig().value("agc_enabled"_s) == true; }, 5000));
    QCOMPARE(site.readConfig().value("tot_duration"_s), QJsonValue(60));
    site.daemon().kill(); // before its folder goes
}

void TestSiteDiskFaults::aFullExchangeFolderHoldsUpNoCommandAndFillsAgainOnceThereIsRoom() {
    TestSite site;
    const Mounted disk = Mounted::smallDisk(exchangeFolder());
    QVERIFY(disk.isThere());
    site.dropFile("prepared"_s, R"({"action":"set_tot","value":60})");
    {
        const Filler filler(exchangeFolder());
        const auto member = site.bringUpWithMember();
        QVERIFY(member);
        QVERIFY(site.waitForLog("[Appliance] Gateway info saved"_s, 5000));
        const Expense expense(site);
        QVERIFY(QFile::rename(exchangeFolder() + "/prepared"_s, exchangeFolder() + "/kivo-cmd-1.json"_s));
        QVERIFY(site.waitForLog("[TOT] Duration set to 60 seconds"_s, 2000));
        QVERIFY(!QFile::exists(exchangeFolder() + "/kivo-cmd-1.json"_s));
        letPass(3.0); // all of what is written by the clock is due meanwhile
        QCOMPARE(expense.lines(), 1);
        expense.tell("exchange folder full");
        VERIFY_CHEAP(expense);
        verifyBothWaysFollow(site, *member);
        QVERIFY(!site.readState("kivo-status.json"_s).isObject());
    }
    const std::int64_t fromNs = monotonicNs();
    QVERIFY(site.waitForStatus("room", "Lobby"_s));
    tellMeasured("status whole again after", secondsBetween(fromNs, monotonicNs()), "s");
    QVERIFY(Site::waitFor([&] { return site.readState("kivo-vu.json"_s).isObject(); }, 2000));
    site.daemon().kill(); // before its folder goes
}

void TestSiteDiskFaults::aConfigurationRuinedMeanwhileIsMadeWholeByTheNextSave_data() {
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<qint64>("size"); // with a hole behind the content
    QTest::newRow("truncated to nothing") << QByteArray() << qint64(0);
    QTest::newRow("garbage") << QByteArray("{\"callsign\": \xff\x00\x01", 16) << qint64(16);
    QTest::newRow("zeros") << QByteArray() << qint64(4096);
    QTest::newRow("32 MiB") << QByteArray("{}") << (qint64(32) << 20);
    QTest::newRow("8 GiB") << QByteArray("{}") << (qint64(8) << 30);
}

void TestSiteDiskFaults::aConfigurationRuinedMeanwhileIsMadeWholeByTheNextSave() {
    QFETCH(QByteArray, content);
    QFETCH(qint64, size);
    TestSite site;
    QVERIFY(site.bringUp());
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved"_s, 5000));
    QJsonObject expected = site.readConfig();
    const Expense expense(site);
    QFile file(configFile());
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size());
    QVERIFY(file.resize(size));
    file.close();
    setTot(site, 60);
    expected.insert("tot_duration"_s, 60);
    QVERIFY(Site::waitFor([&] { return site.readConfig() == expected; }, 2000));
    VERIFY_CHEAP(expense);
    VERIFY_NO_PEAK(expense);
    QCOMPARE(expense.lines(), 1);
}

void TestSiteDiskFaults::aConfigurationOfAbsurdSizeIsNotReadAtStart() {
    TestSite site;
    QFile file(configFile());
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("{}") == 2 && file.resize(qint64(8) << 30));
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLog("[Appliance] Kivo Darvi Appliance berjalan"_s, 5000));
    QVERIFY(site.logsOnce("warning"_s, "[Config] Invalid JSON in config file"_s));
    QVERIFY(site.waitForStatus("connected", false));
#ifndef __SANITIZE_ADDRESS__
    VERIFY_BETWEEN(mostMegabytesOf(site.daemon()), 1, 64);
#endif
}

void TestSiteDiskFaults::nothingIsSavedThroughAnObstacle_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<Obstacle::Kind>("kind");
    QTest::addColumn<QString>("complaint"); // none: the save takes the obstacle's place
    const std::pair<const char *, Obstacle::Kind> kinds[] = {
        {"link", Obstacle::Link},          {"link to nowhere", Obstacle::LinkToNowhere},
        {"hard link", Obstacle::HardLink}, {"FIFO", Obstacle::Fifo},
        {"folder", Obstacle::Folder},
    };
    const QMap<Obstacle::Kind, QString> reasons = {
        {Obstacle::Link, "Too many levels of symbolic links"_s},
        {Obstacle::LinkToNowhere, "Too many levels of symbolic links"_s},
        {Obstacle::HardLink, "Too many links"_s},
        {Obstacle::Fifo, "Invalid argument"_s},
        {Obstacle::Folder, "Is a directory"_s},
    };
    for (const auto &[name, kind] : kinds) {
        QTest::newRow((QByteArray(name) + " as config.lock").constData())
            << "config.lock"_s << kind
            << (kind == Obstacle::HardLink ? QString() : "[Config] Cannot open lock file: "_s + reasons.value(kind));
        QTest::newRow((QByteArray(name) + " as config.json.tmp").constData())
            << "config.json.tmp"_s << kind << "[Config] Cannot open tmp file: "_s + reasons.value(kind);
        QTest::newRow((QByteArray(name) + " as config.json").constData())
            << "config.json"_s << kind
            << (kind == Obstacle::Folder ? "[Config] rename failed: Is a directory"_s : QString());
    }
}

void TestSiteDiskFaults::nothingIsSavedThroughAnObstacle() {
    QFETCH(QString, name);
    QFETCH(Obstacle::Kind, kind);
    QFETCH(QString, complaint);
    TestSite site;
    site.writeConfig({{"server_address"_s, QString()}});
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLog("[Appliance] Kivo Darvi Appliance berjalan"_s, 5000));
    const DeviceFolder devices;
    const Victim victim(R"({"callsign":"ZZ9ZZ","planted":true})");
    {
        const Obstacle obstacle(kind, configFolder() + u'/' + name, victim, devices);
        QVERIFY(obstacle.isThere());
        const Victim::Marks before = victim.marks();
        setTot(site, 60);
        if (complaint.isEmpty()) {
            QVERIFY(Site::waitFor([&] { return site.readConfig().value("tot_duration"_s) == 60; }, 2000));
            QVERIFY(!QFileInfo(configFile()).isSymLink());
            QVERIFY(name != "config.lock"_s || victim.marks() == before);
        } else {
            QVERIFY(site.waitForLine("warning"_s, complaint, 2000));
            QVERIFY(victim.marks() == before);
            QVERIFY(obstacle.isUntouched());
        }
        QCOMPARE(victim.content(), QByteArray(R"({"callsign":"ZZ9ZZ","planted":true})"));
        QVERIFY(!QFile::exists(Obstacle::nowhere()));
    }
    setTot(site, 90);
    QVERIFY(Site::waitFor([&] { return site.readConfig().value("tot_duration"_s) == 90; }, 2000));
    QVERIFY(site.daemon().isRunning());
}

void TestSiteDiskFaults::withoutTheWebUisGroupFilesAreSharedByTheirModeAlone() {
    TestSite site;
    QByteArray groups;
    for (const QByteArray &line : contentOf("/etc/group"_s).split('\n')) {
        if (!line.startsWith("www-data:"))
            groups += line + '\n';
    }
    const QString own = sitePaths().appliance + "/sounds/group"_s;
    QFile file(own);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(groups) == groups.size() && file.flush());
    file.close();
    const Mounted groupFile = Mounted::file(own, "/etc/group"_s);
    QVERIFY(groupFile.isThere());
    QVERIFY(site.bringUp());
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved"_s, 5000));
    const int saves = site.daemon().logged("[Config] Group www-data not found, skipping chown"_s).size();
    QCOMPARE(saves, 4); // of a first login: identity, account, room, profile
    QCOMPARE(site.daemon().logged("[Config]"_s).size(), saves);
    QCOMPARE(modeOf(configFile()), mode_t(0664));
    QVERIFY(site.waitForStatus("room", "Lobby"_s));
    for (const QString &name : {"kivo-status.json"_s, "kivo-vu.json"_s, "kivo-userlist.json"_s})
        QCOMPARE(modeOf(exchangeFolder() + u'/' + name), mode_t(0664));
    QCOMPARE(QFileInfo(configFile()).ownerId(), uint(0));
}

SITE_TEST_MAIN(TestSiteDiskFaults)
#include "tst_SiteDiskFaults.moc"
