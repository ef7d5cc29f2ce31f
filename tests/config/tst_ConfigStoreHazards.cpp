#include "StoreBench.h"

#include <QElapsedTimer>
#include <QFile>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace TestFiles;

namespace {

/// Another program's hold on the lock file.
class ForeignLock {
public:
    explicit ForeignLock(const QString &path)
        : m_fd(::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0664)),
          m_isHeld(::flock(m_fd, LOCK_EX | LOCK_NB) == 0) {}
    ~ForeignLock() { ::close(m_fd); }
    ForeignLock(const ForeignLock &) = delete;
    ForeignLock &operator=(const ForeignLock &) = delete;
    bool isHeld() const { return m_isHeld; }

private:
    int m_fd;
    bool m_isHeld;
};

/// Lets no file grow beyond the size while it lives, as a full disk would.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : m_signalBefore(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit = {bytes, m_before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_signalBefore);
    }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    void (*m_signalBefore)(int);
    rlimit m_before = {};
};

} // namespace

class TestConfigStoreHazards : public StoreBench {
    Q_OBJECT

private Q_SLOTS:
    void loadsNothingThroughALink();
    void loadsAFileWithASecondName();

    void waitsForTheLock();
    void givesUpAfterFiveSecondsOnTheLock();
    void keepsTheObjectWhenTheLockIsNotToBeHad();
    void freesTheLockAfterEachSave();

    void neverTouchesWhatIsPlantedAsLockFile_data();
    void neverTouchesWhatIsPlantedAsLockFile();
    void savesUnderALockWithASecondNameAndLeavesItAsItIs();
    void neverTouchesWhatIsPlantedAsTemporaryFile_data();
    void neverTouchesWhatIsPlantedAsTemporaryFile();
    void keepsTheOldFileWhenTheDiskIsFull();
    void givesUpWhenTheFileCannotBeReplaced();
    void savesAFileWhoseRightsAreNotItsToChange();

private:
    void addObstacles();
    void plantUnder(const char *name, const QString &obstacle) const { plant(obstacle, at(name), at("victim")); }
};

void TestConfigStoreHazards::loadsNothingThroughALink() {
    write(at("victim"), "{\"secret\": 1}");
    plantUnder("config.json", text("link"));
    ConfigStore loading = store();
    QCOMPARE(loading.object(), QJsonObject());
    QCOMPARE(m_log->take(), QStringList(text("debug [Config] No config file, using defaults")));
    QVERIFY(loading.save());
    QCOMPARE(contentOf(at("victim")), QByteArray("{\"secret\": 1}"));
    QVERIFY(S_ISREG(statusOf(config()).st_mode));
}

void TestConfigStoreHazards::loadsAFileWithASecondName() {
    write(at("victim"), "{\"callsign\": \"AB1CD\"}");
    plantUnder("config.json", text("hard link"));
    ConfigStore loading = store();
    QCOMPARE(loading.object().value(text("callsign")), QJsonValue(text("AB1CD")));
    QVERIFY(loading.save());
    QCOMPARE(contentOf(at("victim")), QByteArray("{\"callsign\": \"AB1CD\"}"));
    QCOMPARE(statusOf(config()).st_nlink, nlink_t(1));
}

void TestConfigStoreHazards::waitsForTheLock() {
    auto lock = std::make_unique<ForeignLock>(at("config.lock"));
    QVERIFY(lock->isHeld());
    QElapsedTimer timer;
    timer.start();
    std::thread holder([&lock] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        lock.reset();
    });
    QJsonObject object;
    const bool isSaved = store(LockPatience()).save(object);
    holder.join();
    QVERIFY(isSaved);
    QVERIFY(timer.elapsed() >= 100);
    QCOMPARE(m_log->take(), giveAwayWarnings());
}

void TestConfigStoreHazards::givesUpAfterFiveSecondsOnTheLock() {
    write(config(), "{\"a\": 1}");
    const ForeignLock lock(at("config.lock"));
    QVERIFY(lock.isHeld());
    QJsonObject object = {{text("a"), 2}};
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!ConfigStore(m_folder->path()).save(object));
    QVERIFY2(timer.elapsed() >= 5000 && timer.elapsed() < 7000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(m_log->take(), QStringList(text("warning [Config] Could not acquire lock after 5s")));
    QCOMPARE(contentOf(config()), QByteArray("{\"a\": 1}"));
    QVERIFY(!QFile::exists(at("config.json.tmp")));
}

void TestConfigStoreHazards::keepsTheObjectWhenTheLockIsNotToBeHad() {
    write(config(), "{\"theirs\": 1}");
    const ForeignLock lock(at("config.lock"));
    QJsonObject object = {{text("mine"), 2}};
    QVERIFY(!store().save(object));
    QCOMPARE(object, (QJsonObject{{text("mine"), 2}}));
}

void TestConfigStoreHazards::freesTheLockAfterEachSave() {
    QJsonObject object;
    QVERIFY(store().save(object));
    QVERIFY(ForeignLock(at("config.lock")).isHeld());
    plantUnder("config.json.tmp", text("folder"));
    QVERIFY(!store().save(object));
    QVERIFY(ForeignLock(at("config.lock")).isHeld());
}

void TestConfigStoreHazards::addObstacles() {
    QTest::addColumn<QString>("obstacle");
    QTest::addColumn<int>("reason");

    QTest::newRow("link") << text("link") << ELOOP;
    QTest::newRow("folder") << text("folder") << EISDIR;
}

void TestConfigStoreHazards::neverTouchesWhatIsPlantedAsLockFile_data() {
    addObstacles();
    QTest::newRow("fifo") << text("fifo") << EINVAL;
}

void TestConfigStoreHazards::neverTouchesWhatIsPlantedAsLockFile() {
    QFETCH(QString, obstacle);
    QFETCH(int, reason);
    write(at("victim"), "precious");
    QCOMPARE(::chmod(QFile::encodeName(at("victim")).constData(), 0600), 0);
    plantUnder("config.lock", obstacle);
    QJsonObject object;
    QVERIFY(!store().save(object));
    QCOMPARE(m_log->take(), QStringList(text("warning [Config] Cannot open lock file: ") + text(strerror(reason))));
    QCOMPARE(contentOf(at("victim")), QByteArray("precious"));
    QCOMPARE(modeOf(at("victim")), mode_t(0600));
    QVERIFY(!QFile::exists(config()));
}

/// As a backup may make one.
void TestConfigStoreHazards::savesUnderALockWithASecondNameAndLeavesItAsItIs() {
    write(at("victim"), "precious");
    QCOMPARE(::chmod(QFile::encodeName(at("victim")).constData(), 0600), 0);
    plantUnder("config.lock", text("hard link"));
    QJsonObject object = {{text("a"), 1}};
    QVERIFY(store().save(object));
    QCOMPARE(contentOf(config()), QByteArray("{\n    \"a\": 1\n}\n"));
    QCOMPARE(contentOf(at("victim")), QByteArray("precious"));
    QCOMPARE(modeOf(at("victim")), mode_t(0600));
}

void TestConfigStoreHazards::neverTouchesWhatIsPlantedAsTemporaryFile_data() {
    addObstacles();
    QTest::newRow("hard link") << text("hard link") << EMLINK;
    QTest::newRow("fifo") << text("fifo") << ENXIO;
}

void TestConfigStoreHazards::neverTouchesWhatIsPlantedAsTemporaryFile() {
    QFETCH(QString, obstacle);
    QFETCH(int, reason);
    write(at("victim"), "precious");
    QCOMPARE(::chmod(QFile::encodeName(at("victim")).constData(), 0600), 0);
    plantUnder("config.json.tmp", obstacle);
    QJsonObject object;
    QVERIFY(!store().save(object));
    QCOMPARE(m_log->take(), QStringList(text("warning [Config] Cannot open tmp file: ") + text(strerror(reason))));
    QCOMPARE(contentOf(at("victim")), QByteArray("precious"));
    QCOMPARE(modeOf(at("victim")), mode_t(0600));
    QVERIFY(!QFile::exists(config()));

    QCOMPARE(::remove(QFile::encodeName(at("config.json.tmp")).constData()), 0);
    QVERIFY(store().save(object));
}

void TestConfigStoreHazards::keepsTheOldFileWhenTheDiskIsFull() {
    write(config(), "{\"a\": 1}");
    QJsonObject object = {{text("b"), QString(1000, QLatin1Char('x'))}};
    {
        const FileSizeLimit limit(100);
        QVERIFY(!store().save(object));
    }
    QCOMPARE(m_log->take(), QStringList(text("warning [Config] Short write to tmp: ") + text(strerror(EFBIG))));
    QCOMPARE(contentOf(config()), QByteArray("{\"a\": 1}"));
    QVERIFY(!QFile::exists(at("config.json.tmp")));
    QVERIFY(ForeignLock(at("config.lock")).isHeld());
    QCOMPARE(object.keys(), QStringList({text("a"), text("b")})); // what the file held is known all the same
}

void TestConfigStoreHazards::givesUpWhenTheFileCannotBeReplaced() {
    plantUnder("config.json", text("folder"));
    QJsonObject object = {{text("a"), 1}};
    QVERIFY(!store().save(object));
    QCOMPARE(m_log->take(), QStringList(text("warning [Config] rename failed: ") + text(strerror(EISDIR))));
    QVERIFY(!QFile::exists(at("config.json.tmp")));
    QVERIFY(S_ISDIR(statusOf(config()).st_mode));
}

void TestConfigStoreHazards::savesAFileWhoseRightsAreNotItsToChange() {
    if (::geteuid() != 0)
        QSKIP("needs root, to own what somebody else saves");
    constexpr uid_t nobody = 65534;
    write(at("config.json.tmp"), ""); // root's, and the one to be saved
    QCOMPARE(::chmod(QFile::encodeName(at("config.json.tmp")).constData(), 0666), 0);
    QCOMPARE(::chown(QFile::encodeName(m_folder->path()).constData(), nobody, gid_t(-1)), 0);
    QJsonObject object = {{text("a"), 1}};
    QCOMPARE(::seteuid(nobody), 0);
    const bool isSaved = store().save(object);
    const QStringList lines = m_log->take();
    const QStringList expected = giveAwayWarnings() << text("warning [Config] chmod failed: ") + text(strerror(EPERM));
    QCOMPARE(::seteuid(0), 0);
    QVERIFY(isSaved);
    QCOMPARE(lines, expected);
    QCOMPARE(contentOf(config()), QByteArray("{\n    \"a\": 1\n}\n"));
}

QTEST_APPLESS_MAIN(TestConfigStoreHazards)
#include "tst_ConfigStoreHazards.moc"
