#include "../support/LogCapture.h"
#include "TestGateway.h"
#include "app/CommandIntake.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

/// A command that leaves a trace in the log, and nothing else behind.
QByteArray command(int value) {
    return "{\"action\": \"set_mic_gain\", \"value\": " + QByteArray::number(value) + "}";
}

QString trace(int value) {
    return "debug [Appliance] Mic gain set to %1"_s.arg(value);
}

constexpr int patienceMs = 150'000; // a sanitized program on a slow machine

struct TestIntake : TestGateway {
    void drop(const char *name, const QByteArray &content) const { TestRoot::write(root.exchangeFile(name), content); }
    bool isThere(const char *name) const { return QFile::exists(root.exchangeFile(name)); }
    QByteArray native(const char *name) const { return QFile::encodeName(root.exchangeFile(name)); }

    CommandIntake intake{gateway, files, 1h}; ///< works off within one turn whatever it finds
};

} // namespace

class TestCommandIntake : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void commandsRunInNameOrderWithinOneTick() {
        TestIntake test;
        test.drop("kivo-cmd-a.json", command(4));
        test.drop("kivo-cmd-9.json", command(2));
        test.drop("kivo-cmd-10.json", command(1));
        test.drop("kivo-cmd-B.json", command(3));
        LogCapture log;
        test.intake.scan();
        QCOMPARE(log.take(), (QStringList{trace(1), trace(2), trace(3), trace(4)}));
        QCOMPARE(QDir(test.root.paths().exchangeDir()).entryList(QDir::Files), QStringList());
        test.intake.scan();
        QCOMPARE(log.take(), QStringList());
    }

    void onlyCommandFilesAreTaken_data() {
        QTest::addColumn<QString>("name");
        QTest::newRow("not finished") << "kivo-cmd-1.json.tmp";
        QTest::newRow("no dash") << "kivo-cmd1.json";
        QTest::newRow("capitals") << "KIVO-CMD-1.JSON";
        QTest::newRow("longer") << "x-kivo-cmd-1.json";
        QTest::newRow("login") << "login-cred.json";
    }
    void onlyCommandFilesAreTaken() {
        QFETCH(QString, name);
        TestIntake test;
        test.drop(name.toLatin1().constData(), command(1));
        LogCapture log;
        test.intake.scan();
        QCOMPARE(log.take(), QStringList());
        QVERIFY(test.isThere(name.toLatin1().constData()));
    }

    void whatIsNoCommandIsDeletedSilently_data() {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("white space") << QByteArray(" \n");
        QTest::newRow("text") << QByteArray("join Lobby");
        QTest::newRow("cut short") << QByteArray(R"({"action": "set_mic_gain", "value": 1)");
        QTest::newRow("array") << QByteArray(R"([{"action": "set_mic_gain", "value": 1}])");
        QTest::newRow("number") << QByteArray("1");
        QTest::newRow("null bytes") << QByteArray(100, '\0');
        QTest::newRow("over 1 MiB") << command(1) + QByteArray(1024 * 1024, ' ');
        QTest::newRow("deeply nested") << QByteArray(100'000, '[');
    }
    void whatIsNoCommandIsDeletedSilently() {
        QFETCH(QByteArray, content);
        TestIntake test;
        test.drop("kivo-cmd-1.json", content);
        test.drop("kivo-cmd-2.json", command(2));
        LogCapture log;
        test.intake.scan();
        QCOMPARE(log.take(), QStringList(trace(2)));
        QVERIFY(!test.isThere("kivo-cmd-1.json"));
    }

    void aCommandOfOneMebibyteIsStillRead() {
        TestIntake test;
        const QByteArray content = command(1);
        test.drop("kivo-cmd-1.json", content + QByteArray(1024 * 1024 - content.size(), ' '));
        LogCapture log;
        test.intake.scan();
        QCOMPARE(log.take(), QStringList(trace(1)));
    }

    void whatIsNoFileOfItsOwnIsLeftAlone_data() {
        QTest::addColumn<int>("obstacle");
        QTest::newRow("link") << int(Link);
        QTest::newRow("hard link") << int(HardLink);
        QTest::newRow("FIFO") << int(Fifo);
        QTest::newRow("folder") << int(Folder);
    }
    void whatIsNoFileOfItsOwnIsLeftAlone() {
        QFETCH(int, obstacle);
        TestIntake test;
        const QString victim = test.root.path("victim");
        TestRoot::write(victim, command(1));
        plant(obstacle, QFile::encodeName(victim), test.native("kivo-cmd-1.json"));
        test.drop("kivo-cmd-2.json", command(2));
        LogCapture log;
        test.intake.scan();
        QCOMPARE(log.take(), QStringList(trace(2)));
        QCOMPARE(TestRoot::read(victim), command(1));
        test.intake.scan();
        QCOMPARE(log.take(), QStringList());
    }

    void aFileThatBecomesReadableIsTakenThen() {
        TestIntake test;
        test.drop("kivo-cmd-1.json", command(1));
        const QByteArray secondName = QFile::encodeName(test.root.path("second"));
        QCOMPARE(::link(test.native("kivo-cmd-1.json").constData(), secondName.constData()), 0);
        LogCapture log;
        test.intake.scan();
        QCOMPARE(log.take(), QStringList());
        QVERIFY(test.isThere("kivo-cmd-1.json"));
        QCOMPARE(::unlink(secondName.constData()), 0);
        test.intake.scan();
        QCOMPARE(log.take(), QStringList(trace(1)));
    }

    void aMissingFolderIsNoError() {
        TestIntake test;
        QVERIFY(QDir(test.root.paths().exchangeDir()).removeRecursively());
        LogCapture log;
        test.intake.scan();
        QCOMPARE(log.take(), QStringList());
    }

    void aCrowdOfCommandsLeavesTheLoopFree() {
        constexpr int crowd = 10'000;
        TestIntake test;
        CommandIntake intake(test.gateway, test.files);
        for (int i = 0; i < crowd; ++i)
            test.drop(nameOf(i).constData(), command(i));
        QTimer others; // whatever else the loop has to do
        int turnsOfOthers = 0;
        QObject::connect(&others, &QTimer::timeout, [&] { ++turnsOfOthers; });
        others.start(0);
        LogCapture log;
        intake.scan();
        QVERIFY(test.isThere(nameOf(crowd / 2).constData()));
        QTRY_VERIFY_WITH_TIMEOUT(!test.isThere(nameOf(crowd - 1).constData()), patienceMs);
        const QStringList lines = log.take();
        QCOMPARE(lines.size(), crowd);
        for (int i = 0; i < crowd; ++i)
            QCOMPARE(lines.at(i), trace(i));
        QVERIFY2(turnsOfOthers >= 20, qPrintable(QString::number(turnsOfOthers)));
    }

    void filesMayComeAndGoWhileACrowdIsWorkedOff() {
        constexpr int crowd = 3000;
        TestIntake test;
        CommandIntake intake(test.gateway, test.files);
        for (int i = 0; i < crowd; ++i)
            test.drop(nameOf(i).constData(), command(i));
        LogCapture log;
        intake.scan();
        QVERIFY(test.isThere(nameOf(crowd - 1).constData()));
        QCOMPARE(::unlink(test.native(nameOf(crowd - 2).constData()).constData()), 0);
        test.drop("kivo-cmd-00000-late.json", command(-1));
        intake.scan(); // the next tick comes while the crowd is still waiting
        QTRY_VERIFY_WITH_TIMEOUT(!test.isThere(nameOf(crowd - 1).constData()), patienceMs);
        QStringList lines = log.take();
        QCOMPARE(lines.size(), crowd - 1);
        QCOMPARE(lines.last(), trace(crowd - 1));
        intake.scan();
        QCOMPARE(log.take(), QStringList(trace(-1)));
    }

private:
    enum Obstacle { Link, HardLink, Fifo, Folder };

    static void plant(int obstacle, const QByteArray &victim, const QByteArray &name) {
        switch (obstacle) {
        case Link:
            QCOMPARE(::symlink(victim.constData(), name.constData()), 0);
            break;
        case HardLink:
            QCOMPARE(::link(victim.constData(), name.constData()), 0);
            break;
        case Fifo:
            QCOMPARE(::mkfifo(name.constData(), 0666), 0);
            break;
        default:
            QCOMPARE(::mkdir(name.constData(), 0777), 0);
        }
    }

    static QByteArray nameOf(int index) {
        return "kivo-cmd-" + QByteArray::number(index).rightJustified(5, '0') + ".json";
    }
};

QTEST_GUILESS_MAIN(TestCommandIntake)
#include "tst_CommandIntake.moc"
