#include "StoreBench.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <grp.h>
#include <sys/stat.h>
#include <thread>

using namespace TestFiles;

namespace {

QJsonObject objectIn(const QString &path) {
    return QJsonDocument::fromJson(contentOf(path)).object();
}

} // namespace

class TestConfigStore : public StoreBench {
    Q_OBJECT

private Q_SLOTS:
    void loadsWhatTheFileHolds_data();
    void loadsWhatTheFileHolds();
    void loadsOnceAndWritesNothing();
    void createsTheFolderWithItsParents();

    void savesIndentedText();
    void savesInsertedDefaults();
    void keepsWhatOnlyTheFileHolds();
    void replacesAFileThatIsNoObject_data();
    void replacesAFileThatIsNoObject();
    void savesNothingThatItWouldNotReadAgain();
    void savesAnObjectOfTheCallers();
    void leavesTheOldFileWholeForItsReaders();
    void sharesTheFilesWithTheWebUi();
    void writersThatTakeTheLockLoseNothing();
};

void TestConfigStore::loadsWhatTheFileHolds_data() {
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

void TestConfigStore::loadsWhatTheFileHolds() {
    QFETCH(QByteArray, file);
    QFETCH(QString, log);
    QFETCH(QJsonObject, object);
    if (!file.isNull())
        write(config(), file);
    ConfigStore loading = store();
    QCOMPARE(loading.object(), object);
    QCOMPARE(m_log->take(), log.isEmpty() ? QStringList() : QStringList(log));
}

void TestConfigStore::loadsOnceAndWritesNothing() {
    write(config(), "{\"a\": 1}");
    ConfigStore loading = store();
    QJsonObject &first = loading.object();
    write(config(), "{\"a\": 2}");
    QCOMPARE(&loading.object(), &first);
    QCOMPARE(loading.object().value(text("a")), QJsonValue(1));
    QCOMPARE(contentOf(config()), QByteArray("{\"a\": 2}"));
}

void TestConfigStore::createsTheFolderWithItsParents() {
    const ConfigStore deep(at("one/two/three"));
    QVERIFY(!QFile::exists(at("one")));
    QCOMPARE(deep.configPath(), at("one/two/three/config.json"));
    QVERIFY(S_ISDIR(statusOf(at("one/two/three")).st_mode));
}

void TestConfigStore::savesIndentedText() {
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

void TestConfigStore::savesInsertedDefaults() {
    write(config(), "{\"baudrate\": null}");
    ConfigStore loading = store();
    loading.object();
    QCOMPARE(contentOf(config()), QByteArray("{\"baudrate\": null}"));
    QVERIFY(loading.save());
    QCOMPARE(objectIn(config()).value(text("baudrate")), QJsonValue(9600));
    QCOMPARE(objectIn(config()).value(text("ptt_pin")), QJsonValue(text("RTS")));
}

void TestConfigStore::keepsWhatOnlyTheFileHolds() {
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

void TestConfigStore::replacesAFileThatIsNoObject_data() {
    QTest::addColumn<QByteArray>("file"); // null: no file
    QTest::newRow("no file") << QByteArray();
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("white space") << QByteArray(" \n");
    QTest::newRow("array") << QByteArray("[1]");
    QTest::newRow("garbage") << QByteArray("{\"a\":");
}

void TestConfigStore::replacesAFileThatIsNoObject() {
    QFETCH(QByteArray, file);
    if (!file.isNull())
        write(config(), file);
    QJsonObject object = {{text("a"), 1}};
    QVERIFY(store().save(object));
    QCOMPARE(objectIn(config()), (QJsonObject{{text("a"), 1}}));
    QCOMPARE(object, (QJsonObject{{text("a"), 1}}));
    QCOMPARE(m_log->take(), giveAwayWarnings());
}

void TestConfigStore::savesNothingThatItWouldNotReadAgain() {
    write(config(), "{\"ptt_invert\": true}");
    ConfigStore loading = store();
    loading.object().insert(text("last_room"), QString(1 << 20, QLatin1Char('x')));
    QVERIFY(!loading.save());
    QCOMPARE(m_log->take(), QStringList{text("warning [Config] Configuration too large, not saved")});
    QCOMPARE(contentOf(config()), QByteArray("{\"ptt_invert\": true}"));
    QVERIFY(!QFile::exists(at("config.json.tmp")));

    loading.object().insert(text("last_room"), QString((1 << 20) - 1000, QLatin1Char('x')));
    QVERIFY(loading.save());
    QVERIFY(store().object().value(text("ptt_invert")).toBool());
}

void TestConfigStore::savesAnObjectOfTheCallers() {
    write(config(), "{\"a\": 1, \"b\": 2}");
    QJsonObject object = {{text("b"), 3}};
    QVERIFY(store().save(object));
    QCOMPARE(object, (QJsonObject{{text("a"), 1}, {text("b"), 3}}));
    QCOMPARE(objectIn(config()), object);
}

void TestConfigStore::leavesTheOldFileWholeForItsReaders() {
    write(config(), "{\"a\": 1}");
    write(at("config.json.tmp"), QByteArray(5000, 'x')); // left behind by a power cut
    QFile reader(config());
    QVERIFY(reader.open(QIODevice::ReadOnly));
    QJsonObject object = {{text("a"), 2}};
    QVERIFY(store().save(object));
    QCOMPARE(reader.readAll(), QByteArray("{\"a\": 1}"));
    QCOMPARE(contentOf(config()), QByteArray("{\n    \"a\": 2\n}\n"));
}

void TestConfigStore::sharesTheFilesWithTheWebUi() {
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

void TestConfigStore::writersThatTakeTheLockLoseNothing() {
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

QTEST_APPLESS_MAIN(TestConfigStore)
#include "tst_ConfigStore.moc"
