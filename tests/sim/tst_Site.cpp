#include "sim/site/Site.h"

#include <QDir>
#include <QHostInfo>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace sim;

namespace {

QString linkTarget(const char *path) {
    return QFile::symLinkTarget(QLatin1String(path));
}

QByteArray contents(QFile &file) {
    return file.seek(0) ? file.readAll() : QByteArray();
}

struct stat statusOf(const QString &path) {
    struct stat status {};
    if (stat(QFile::encodeName(path).constData(), &status) != 0)
        status.st_mode = 0;
    return status;
}

/// The machine as it is outside, held open from before the private site was entered.
struct Machine {
    QString mountNamespace = linkTarget("/proc/self/ns/mnt");
    QString networkNamespace = linkTarget("/proc/self/ns/net");
    int opt = open("/opt", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    QFile mounts{QStringLiteral("/proc/self/mountinfo")};
    QStringList optEntries = entries();
    bool isRoot = geteuid() == 0;

    Machine() { mounts.open(QIODevice::ReadOnly); }
    ~Machine() { close(opt); }
    Machine(const Machine &) = delete;
    Machine &operator=(const Machine &) = delete;

    QStringList entries() const {
        return QDir(QStringLiteral("/proc/self/fd/%1").arg(opt)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    }
};

} // namespace

class TestSite : public QObject {
    Q_OBJECT

public:
    explicit TestSite(Machine &machine) : m_machine(machine) {}

private Q_SLOTS:
    void itIsInNamespacesOfItsOwn();
    void theMachineIsUntouched();
    void theRestOfOptStaysInSight();
    void theApplianceFoldersAreLikeOnABox();
    void theLoopbackIsUp();
    void namesAreGivenByTheSitesOwnHosts();
    void serialLocksAreTheSitesOwn();

    void aConfigurationIsWrittenAsAsked();
    void stateIsReadWhenItIsWhole();
    void aFileIsDroppedWhole();
    void aNewSiteIsANewBox();
    void waitingEndsWithTheConditionOrTheDeadline();
    void theDaemonComesUpOnTheSite();

private:
    Machine &m_machine;
};

void TestSite::itIsInNamespacesOfItsOwn() {
    QVERIFY(!m_machine.mountNamespace.isEmpty());
    QVERIFY(linkTarget("/proc/self/ns/mnt") != m_machine.mountNamespace);
    QVERIFY(linkTarget("/proc/self/ns/net") != m_machine.networkNamespace);
}

void TestSite::theMachineIsUntouched() {
    const Site site;
    QCOMPARE(m_machine.entries(), m_machine.optEntries);
    const QByteArray mounts = contents(m_machine.mounts);
    QVERIFY(!mounts.isEmpty());
    QVERIFY(!mounts.contains("kivo-site"));
    QFile ownMounts(QStringLiteral("/proc/self/mountinfo"));
    QVERIFY(ownMounts.open(QIODevice::ReadOnly));
    QVERIFY(ownMounts.readAll().contains("kivo-site"));
}

void TestSite::theRestOfOptStaysInSight() {
    for (const QString &name : m_machine.optEntries) {
        if (name.startsWith(QStringLiteral("kivo-")))
            continue;
        const struct stat outside = statusOf(QStringLiteral("/proc/self/fd/%1/%2").arg(m_machine.opt).arg(name));
        const struct stat inside = statusOf(QStringLiteral("/opt/") + name);
        QVERIFY2(outside.st_ino == inside.st_ino && outside.st_dev == inside.st_dev, qPrintable(name));
    }
}

void TestSite::theApplianceFoldersAreLikeOnABox() {
    const Site site;
    const group *webUi = getgrnam("www-data");
    for (const char *name : {"/config", "/tmp"}) {
        const struct stat folder = statusOf(sitePaths().appliance + QLatin1String(name));
        QCOMPARE(folder.st_mode, mode_t(S_IFDIR | 02775));
        QCOMPARE(folder.st_uid, uid_t(0));
        if (m_machine.isRoot && webUi != nullptr)
            QCOMPARE(folder.st_gid, webUi->gr_gid);
    }
    QCOMPARE(statusOf(sitePaths().appliance + QStringLiteral("/sounds")).st_mode, mode_t(S_IFDIR | 0755));
}

void TestSite::theLoopbackIsUp() {
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost, 8080));
    QTcpSocket client;
    client.connectToHost(QStringLiteral("127.0.0.1"), 8080);
    QVERIFY(client.waitForConnected(5000));
}

void TestSite::namesAreGivenByTheSitesOwnHosts() {
    QCOMPARE(QHostInfo::fromName(QStringLiteral("localhost")).addresses().value(0),
             QHostAddress(QHostAddress::LocalHost));
    QFile hosts(sitePaths().hostsFile);
    QVERIFY(hosts.open(QIODevice::Append));
    hosts.write("127.0.0.7 voice.kivo.example\n");
    hosts.close();
    QCOMPARE(QHostInfo::fromName(QStringLiteral("voice.kivo.example")).addresses().value(0),
             QHostAddress(QStringLiteral("127.0.0.7")));
}

void TestSite::serialLocksAreTheSitesOwn() {
    const QString folder = QFileInfo(QStringLiteral("/var/lock")).canonicalFilePath();
    QVERIFY(!folder.isEmpty());
    QCOMPARE(QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    QVERIFY(QFileInfo(folder).isWritable());
}

void TestSite::aConfigurationIsWrittenAsAsked() {
    Site site;
    QVERIFY(site.readConfig().isEmpty());
    site.writeConfig();
    const QJsonObject usual = site.readConfig();
    QCOMPARE(usual.value(QStringLiteral("callsign")).toString(), QStringLiteral("AB1CD"));
    QCOMPARE(usual.value(QStringLiteral("server_address")).toString(), QStringLiteral("127.0.0.1"));
    QCOMPARE(usual.value(QStringLiteral("audio_input")).toString(), QStringLiteral("hw:0,0"));
    QCOMPARE(usual.value(QStringLiteral("serial_port")).toString(), site.board().portName());

    site.writeConfig({{QStringLiteral("callsign"), QStringLiteral("zz9zz")}, {QStringLiteral("baudrate"), 115200}},
                     {QStringLiteral("password")});
    const QJsonObject changed = site.readConfig();
    QCOMPARE(changed.value(QStringLiteral("callsign")).toString(), QStringLiteral("zz9zz"));
    QCOMPARE(changed.value(QStringLiteral("baudrate")).toInt(), 115200);
    QVERIFY(usual.contains(QStringLiteral("password")));
    QVERIFY(!changed.contains(QStringLiteral("password")));
}

void TestSite::stateIsReadWhenItIsWhole() {
    Site site;
    const QString name = QStringLiteral("kivo-status.json");
    QVERIFY(site.readState(name).isNull());
    site.dropFile(name, "{\"connected\":tr");
    QVERIFY(site.readState(name).isNull());
    site.dropFile(name, "{\"connected\":true}");
    QVERIFY(site.readState(name).object().value(QStringLiteral("connected")).toBool());
}

void TestSite::aFileIsDroppedWhole() {
    Site site;
    const QString exchange = sitePaths().appliance + QStringLiteral("/tmp/");
    site.dropFile(QStringLiteral("kivo-cmd-1.json"), "{\"action\":\"x\"}");
    QFile dropped(exchange + QStringLiteral("kivo-cmd-1.json"));
    QVERIFY(dropped.open(QIODevice::ReadOnly));
    QCOMPARE(dropped.readAll(), QByteArray("{\"action\":\"x\"}"));
    QCOMPARE(QDir(exchange).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{QStringLiteral("kivo-cmd-1.json")});
}

void TestSite::aNewSiteIsANewBox() {
    const QString exchange = sitePaths().appliance + QStringLiteral("/tmp");
    {
        Site site;
        site.writeConfig();
        site.dropFile(QStringLiteral("left"), "over");
        QVERIFY(QDir(exchange).mkdir(QStringLiteral("folder")));
        QVERIFY(QFile::link(QStringLiteral("/nowhere"), exchange + QStringLiteral("/link")));
    }
    const Site site;
    QVERIFY(site.readConfig().isEmpty());
    QCOMPARE(QDir(exchange).entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList());
}

void TestSite::waitingEndsWithTheConditionOrTheDeadline() {
    QVERIFY(Site::waitFor([] { return true; }, 0));
    QVERIFY(!Site::waitFor([] { return false; }, 20));
    bool rang = false;
    QTimer::singleShot(20, [&rang] { rang = true; });
    QVERIFY(Site::waitFor([&rang] { return rang; }, 5000));
    // Also for what no event of this process tells of.
    int looks = 0;
    QVERIFY(Site::waitFor([&looks] { return ++looks == 5; }, 5000));
}

void TestSite::theDaemonComesUpOnTheSite() {
    Site site;
    QVERIFY2(site.bringUp(), qPrintable(site.daemon().logged(QString()).join(QLatin1Char('\n'))));
    QCOMPARE(site.server().roomOf(QStringLiteral("AB1CD")), QStringLiteral("Lobby"));
    QVERIFY(site.card().isCaptureOpen());
    QVERIFY(site.card().isPlaybackOpen());
    QVERIFY(site.board().isPortOpen());
    const std::int64_t framesBefore = site.card().framesCaptured();
    QVERIFY(Site::waitFor([&] { return site.card().framesCaptured() > framesBefore; }, 5000));

    // What a killed daemon held is free again, and the next one gets it.
    site.daemon().kill();
    QVERIFY(!site.card().isCaptureOpen());
    QVERIFY(!site.card().isPlaybackOpen());
    QVERIFY(Site::waitFor([&] { return !site.board().isPortOpen(); }, 5000));
    QVERIFY(Site::waitFor([&] { return !site.server().isLoggedIn(QStringLiteral("AB1CD")); }, 5000));
    site.daemon().forgetLog();
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLog(QStringLiteral("[Arduino] Connected to"), 10000));
    QVERIFY(site.waitForLog(QStringLiteral("[Room] Bergabung ke room: \"Lobby\""), 10000));
    QVERIFY(site.card().isPlaybackOpen());
}

int main(int argc, char **argv) {
    Machine machine;
    if (!enterPrivateSite())
        return 1;
    const QCoreApplication app(argc, argv);
    TestSite test(machine);
    return QTest::qExec(&test, argc, argv);
}

#include "tst_Site.moc"
