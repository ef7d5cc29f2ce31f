#include "../support/LogCapture.h"
#include "TestFiles.h"
#include "config/ConfigStore.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace TestFiles;

namespace {

constexpr LockPatience impatient = {3, std::chrono::milliseconds(1)};

QString text(const char *utf8) {
    return QString::fromUtf8(utf8);
}

QJsonObject objectIn(const QString &path) {
    return QJsonDocument::fromJson(contentOf(path)).object();
}

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

class tst_ConfigStore : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void loadsWhatTheFileHolds_data();
    void loadsWhatTheFileHolds();
    void loadsOnceAndWritesNothing();
    void loadsNothingThroughALink();
    void loadsAFileWithASecondName();
    void createsTheFolderWithItsParents();

    void savesIndentedText();
    void savesInsertedDefaults();
    void keepsWhatOnlyTheFileHolds();
    void replacesAFileThatIsNoObject_data();
    void replacesAFileThatIsNoObject();
    void savesAnObjectOfTheCallers();
    void leavesTheOldFileWholeForItsReaders();
    void sharesTheFilesWithTheWebUi();
    void writersThatTakeTheLockLoseNothing();

    void waitsForTheLock();
    void givesUpAfterFiveSecondsOnTheLock();
    void keepsTheObjectWhenTheLockIsNotToBeHad();
    void freesTheLockAfterEachSave();

    void neverTouchesWhatIsPlantedAsLockFile_data();
    void neverTouchesWhatIsPlantedAsLockFile();
    void neverTouchesWhatIsPlantedAsTemporaryFile_data();
    void neverTouchesWhatIsPlantedAsTemporaryFile();
    void keepsTheOldFileWhenTheDiskIsFull();
    void givesUpWhenTheFileCannotBeReplaced();

private:
    QString at(const char *name) const { return m_folder->filePath(QString::fromLatin1(name)); }
    QString config() const { return at("config.json"); }
    ConfigStore store(LockPatience patience = impatient) const { return ConfigStore(m_folder->path(), patience); }
    void addObstacles();
    void plantUnder(const char *name, const QString &obstacle) const { plant(obstacle, at(name), at("victim")); }
    QStringList giveAwayWarnings() const;

    std::unique_ptr<QTemporaryDir> m_folder;
    std::unique_ptr<LogCapture> m_log;
};

void tst_ConfigStore::init() {
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
    m_log = std::make_unique<LogCapture>();
}

void tst_ConfigStore::cleanup() {
    m_log.reset();
}

/// What a successful save has to say about the owner here: nothing for root on a system with the Web UI's group.
QStringList tst_ConfigStore::giveAwayWarnings() const {
    const group *webUi = ::getgrnam("www-data");
    if (!webUi)
        return {text("warning [Config] Group www-data not found, skipping chown")};
    write(at("scratch"), "");
    if (::chown(QFile::encodeName(at("scratch")).constData(), 0, webUi->gr_gid) == 0)
        return {};
    return {text("warning [Config] chown failed: ") + text(strerror(errno))};
}

void tst_ConfigStore::loadsWhatTheFileHolds_data() {
    QTest::addColumn<QByteArray>("file"); // null: no file
    QTest::addColumn<QString>("log");
    QTest::addColumn<QJsonObject>("object");

    const QJsonObject nothing;
    const QJsonObject defaults = {
        {text("serial_port"), text("/dev/ttyUSB0")},
        {text("baudrate"), 9600},
        {text("ptt_method"), text("arduino")},
        {text("cos_logic_high"), true},
        {text("ptt_invert"), false},
        {text("cos_pin"), text("COS")},
        {text("ptt_pin"), text("RTS")},
        {text("auto_login"), true},
        {text("agc_enabled"), false},
        {text("tot_duration"), 0},
    };
    const auto with = [defaults](const char *key, const QJsonValue &value) {
        QJsonObject object = defaults;
        object.insert(text(key), value);
        return object;
    };
    const QString noFile = text("debug [Config] No config file, using defaults");
    const QString empty = text("warning [Config] Config file is empty");
    const QString invalid = text("warning [Config] Invalid JSON in config file");

    QTest::newRow("no file") << QByteArray() << noFile << nothing;
    QTest::newRow("empty file") << QByteArray("") << empty << nothing;
    QTest::newRow("white space") << QByteArray(" \t\r\n \n") << empty << nothing;
    QTest::newRow("array") << QByteArray("[1, 2]") << invalid << nothing;
    QTest::newRow("number") << QByteArray("17") << invalid << nothing;
    QTest::newRow("garbage") << QByteArray("\x00\xff{\"a\"", 6) << invalid << nothing;
    QTest::newRow("cut off") << QByteArray("{\"baudrate\": 96") << invalid << nothing;
    QTest::newRow("too big") << QByteArray("{}") + QByteArray(1024 * 1024, ' ') << invalid << nothing;
    QTest::newRow("as big as allowed") << QByteArray("{}") + QByteArray(1024 * 1024 - 2, ' ') << QString() << defaults;
    QTest::newRow("no key at all") << QByteArray("{}") << QString() << defaults;
    QTest::newRow("among white space") << QByteArray("\n  {}\n\n") << QString() << defaults;
    QTest::newRow("null baudrate") << QByteArray("{\"baudrate\": null}") << QString() << defaults;
    QTest::newRow("baudrate of another type")
        << QByteArray("{\"baudrate\": \"abc\"}") << QString() << with("baudrate", text("abc"));
    QTest::newRow("flag of another type") << QByteArray("{\"ptt_invert\": 1}") << QString() << with("ptt_invert", 1);
    QTest::newRow("no radio interface") << QByteArray("{\"serial_port\": \"\"}") << QString()
                                        << with("serial_port", text(""));
    QTest::newRow("key of the Web UI's") << QByteArray("{\"theme\": {\"dark\": true}}") << QString()
                                         << with("theme", QJsonObject{{text("dark"), true}});
    QTest::newRow("null where no default is inserted")
        << QByteArray("{\"callsign\": null}") << QString() << with("callsign", QJsonValue());
}

void tst_ConfigStore::loadsWhatTheFileHolds() {
    QFETCH(QByteArray, file);
    QFETCH(QString, log);
    QFETCH(QJsonObject, object);
    if (!file.isNull())
        write(config(), file);
    ConfigStore loading = store();
    QCOMPARE(loading.object(), object);
    QCOMPARE(m_log->take(), log.isEmpty() ? QStringList() : QStringList(log));
}

void tst_ConfigStore::loadsOnceAndWritesNothing() {
    write(config(), "{\"a\": 1}");
    ConfigStore loading = store();
    QJsonObject &first = loading.object();
    write(config(), "{\"a\": 2}");
    QCOMPARE(&loading.object(), &first);
    QCOMPARE(loading.object().value(text("a")), QJsonValue(1));
    QCOMPARE(contentOf(config()), QByteArray("{\"a\": 2}"));
}

void tst_ConfigStore::loadsNothingThroughALink() {
    write(at("victim"), "{\"secret\": 1}");
    plantUnder("config.json", text("link"));
    ConfigStore loading = store();
    QCOMPARE(loading.object(), QJsonObject());
    QCOMPARE(m_log->take(), QStringList(text("debug [Config] No config file, using defaults")));
    QVERIFY(loading.save());
    QCOMPARE(contentOf(at("victim")), QByteArray("{\"secret\": 1}"));
    QVERIFY(S_ISREG(statusOf(config()).st_mode));
}

void tst_ConfigStore::loadsAFileWithASecondName() {
    write(at("victim"), "{\"callsign\": \"AB1CD\"}");
    plantUnder("config.json", text("hard link"));
    ConfigStore loading = store();
    QCOMPARE(loading.object().value(text("callsign")), QJsonValue(text("AB1CD")));
    QVERIFY(loading.save());
    QCOMPARE(contentOf(at("victim")), QByteArray("{\"callsign\": \"AB1CD\"}"));
    QCOMPARE(statusOf(config()).st_nlink, nlink_t(1));
}

void tst_ConfigStore::createsTheFolderWithItsParents() {
    const ConfigStore deep(at("one/two/three"));
    QVERIFY(!QFile::exists(at("one")));
    QCOMPARE(deep.configPath(), at("one/two/three/config.json"));
    QVERIFY(S_ISDIR(statusOf(at("one/two/three")).st_mode));
}

void tst_ConfigStore::savesIndentedText() {
    QJsonObject object = {{text("b"), text("é")}, {text("a"), QJsonArray{1, true}}};
    QVERIFY(store().save(object));
    QCOMPARE(contentOf(config()), QByteArray("{\n"
                                             "    \"a\": [\n"
                                             "        1,\n"
                                             "        true\n"
                                             "    ],\n"
                                             "    \"b\": \"\xC3\xA9\"\n"
                                             "}\n"));
    QCOMPARE(m_log->take(), giveAwayWarnings());
    QVERIFY(!QFile::exists(at("config.json.tmp")));
}

void tst_ConfigStore::savesInsertedDefaults() {
    write(config(), "{\"baudrate\": null}");
    ConfigStore loading = store();
    loading.object();
    QCOMPARE(contentOf(config()), QByteArray("{\"baudrate\": null}"));
    QVERIFY(loading.save());
    QCOMPARE(objectIn(config()).value(text("baudrate")), QJsonValue(9600));
    QCOMPARE(objectIn(config()).value(text("ptt_pin")), QJsonValue(text("RTS")));
}

void tst_ConfigStore::keepsWhatOnlyTheFileHolds() {
    write(config(), "{\"callsign\": \"OLD\", \"volume\": 3}");
    ConfigStore loading = store();
    loading.object().insert(text("callsign"), text("MINE"));
    write(config(), "{\"callsign\": \"THEIRS\", \"theme\": \"dark\", \"volume\": 4}");
    QVERIFY(loading.save());

    const QJsonObject saved = objectIn(config());
    QCOMPARE(saved.value(text("callsign")), QJsonValue(text("MINE")));
    QCOMPARE(saved.value(text("theme")), QJsonValue(text("dark")));
    QCOMPARE(saved.value(text("volume")), QJsonValue(3)); // held in memory since loading, so it counts as changed
    QCOMPARE(loading.object(), saved);
}

void tst_ConfigStore::replacesAFileThatIsNoObject_data() {
    QTest::addColumn<QByteArray>("file"); // null: no file
    QTest::newRow("no file") << QByteArray();
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("white space") << QByteArray(" \n");
    QTest::newRow("array") << QByteArray("[1]");
    QTest::newRow("garbage") << QByteArray("{\"a\":");
}

void tst_ConfigStore::replacesAFileThatIsNoObject() {
    QFETCH(QByteArray, file);
    if (!file.isNull())
        write(config(), file);
    QJsonObject object = {{text("a"), 1}};
    QVERIFY(store().save(object));
    QCOMPARE(objectIn(config()), (QJsonObject{{text("a"), 1}}));
    QCOMPARE(object, (QJsonObject{{text("a"), 1}}));
    QCOMPARE(m_log->take(), giveAwayWarnings());
}

void tst_ConfigStore::savesAnObjectOfTheCallers() {
    write(config(), "{\"a\": 1, \"b\": 2}");
    QJsonObject object = {{text("b"), 3}};
    QVERIFY(store().save(object));
    QCOMPARE(object, (QJsonObject{{text("a"), 1}, {text("b"), 3}}));
    QCOMPARE(objectIn(config()), object);
}

void tst_ConfigStore::leavesTheOldFileWholeForItsReaders() {
    write(config(), "{\"a\": 1}");
    write(at("config.json.tmp"), QByteArray(5000, 'x')); // left behind by a power cut
    QFile reader(config());
    QVERIFY(reader.open(QIODevice::ReadOnly));
    QJsonObject object = {{text("a"), 2}};
    QVERIFY(store().save(object));
    QCOMPARE(reader.readAll(), QByteArray("{\"a\": 1}"));
    QCOMPARE(contentOf(config()), QByteArray("{\n    \"a\": 2\n}\n"));
}

void tst_ConfigStore::sharesTheFilesWithTheWebUi() {
    const mode_t umaskBefore = ::umask(077);
    QJsonObject object;
    const bool isSaved = store().save(object);
    ::umask(umaskBefore);
    QVERIFY(isSaved);
    const QStringList warnings = giveAwayWarnings();
    QCOMPARE(m_log->take(), warnings);
    const group *webUi = ::getgrnam("www-data");
    for (const QString &path : {config(), at("config.lock")}) {
        QCOMPARE(modeOf(path), mode_t(0664));
        if (!warnings.isEmpty())
            continue; // said so
        QCOMPARE(statusOf(path).st_uid, uid_t(0));
        QCOMPARE(statusOf(path).st_gid, webUi->gr_gid);
    }
}

void tst_ConfigStore::writersThatTakeTheLockLoseNothing() {
    constexpr int savesEach = 25;
    const auto writeKeys = [this](const char *prefix) {
        for (int i = 0; i < savesEach; ++i) {
            QJsonObject object = {{text(prefix) + QString::number(i), i}};
            ConfigStore(m_folder->path()).save(object);
        }
    };
    std::thread other(writeKeys, "other");
    writeKeys("own");
    other.join();
    QCOMPARE(objectIn(config()).size(), 2 * savesEach);
}

void tst_ConfigStore::waitsForTheLock() {
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

void tst_ConfigStore::givesUpAfterFiveSecondsOnTheLock() {
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

void tst_ConfigStore::keepsTheObjectWhenTheLockIsNotToBeHad() {
    write(config(), "{\"theirs\": 1}");
    const ForeignLock lock(at("config.lock"));
    QJsonObject object = {{text("mine"), 2}};
    QVERIFY(!store().save(object));
    QCOMPARE(object, (QJsonObject{{text("mine"), 2}}));
}

void tst_ConfigStore::freesTheLockAfterEachSave() {
    QJsonObject object;
    QVERIFY(store().save(object));
    QVERIFY(ForeignLock(at("config.lock")).isHeld());
    plantUnder("config.json.tmp", text("folder"));
    QVERIFY(!store().save(object));
    QVERIFY(ForeignLock(at("config.lock")).isHeld());
}

void tst_ConfigStore::addObstacles() {
    QTest::addColumn<QString>("obstacle");
    QTest::addColumn<int>("reason");

    QTest::newRow("link") << text("link") << ELOOP;
    QTest::newRow("hard link") << text("hard link") << EMLINK;
    QTest::newRow("folder") << text("folder") << EISDIR;
}

void tst_ConfigStore::neverTouchesWhatIsPlantedAsLockFile_data() {
    addObstacles();
    QTest::newRow("fifo") << text("fifo") << EINVAL;
}

void tst_ConfigStore::neverTouchesWhatIsPlantedAsLockFile() {
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

void tst_ConfigStore::neverTouchesWhatIsPlantedAsTemporaryFile_data() {
    addObstacles();
    QTest::newRow("fifo") << text("fifo") << ENXIO;
}

void tst_ConfigStore::neverTouchesWhatIsPlantedAsTemporaryFile() {
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

void tst_ConfigStore::keepsTheOldFileWhenTheDiskIsFull() {
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
}

void tst_ConfigStore::givesUpWhenTheFileCannotBeReplaced() {
    plantUnder("config.json", text("folder"));
    QJsonObject object = {{text("a"), 1}};
    QVERIFY(!store().save(object));
    QCOMPARE(m_log->take(), QStringList(text("warning [Config] rename failed: ") + text(strerror(EISDIR))));
    QVERIFY(!QFile::exists(at("config.json.tmp")));
    QVERIFY(S_ISDIR(statusOf(config()).st_mode));
}

QTEST_APPLESS_MAIN(tst_ConfigStore)
#include "tst_ConfigStore.moc"
