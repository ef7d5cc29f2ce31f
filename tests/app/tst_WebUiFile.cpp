#include "TestRoot.h"
#include "app/WebUiFile.h"

#include <QtTest>

#include <csignal>
#include <cstdio>
#include <grp.h>
#include <optional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct stat statusOf(const QString &path) {
    struct stat status = {};
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
        qFatal("no such file");
    return status;
}

int permissionsOf(const QString &path) {
    return static_cast<int>(statusOf(path).st_mode & 07777);
}

} // namespace

class TestWebUiFile : public QObject {
    Q_OBJECT

    QByteArray native(const QString &path) const { return QFile::encodeName(path); }

private Q_SLOTS:
    void init() {
        m_root.emplace();
        m_file = m_root->exchangeFile("kivo-status.json");
        m_victim = m_root->path("victim");
        TestRoot::write(m_victim, "precious");
        QCOMPARE(::chmod(native(m_victim).constData(), 0600), 0);
    }

    void aFileIsWrittenWholeAndReplacesALongerOne() {
        writeWebUiFile(m_file, "a long first content");
        writeWebUiFile(m_file, "short");
        QCOMPARE(TestRoot::read(m_file), QByteArray("short"));
    }

    void anObjectIsWrittenIndentedWithSortedKeys() {
        writeWebUiJson(m_file, QJsonObject{{"b"_s, 1}, {"a"_s, true}});
        QCOMPARE(TestRoot::read(m_file), QByteArray("{\n    \"a\": true,\n    \"b\": 1\n}\n"));
    }

    void aFileThatThereIsNoRoomForIsLeftEmpty() {
        writeWebUiFile(m_file, "old");
        struct rlimit before = {};
        QCOMPARE(::getrlimit(RLIMIT_FSIZE, &before), 0);
        const auto handler = ::signal(SIGXFSZ, SIG_IGN);
        const struct rlimit small = {100, before.rlim_max};
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &small), 0);
        writeWebUiFile(m_file, QByteArray(1000, 'x'));
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &before), 0);
        ::signal(SIGXFSZ, handler);
        QCOMPARE(TestRoot::read(m_file), QByteArray());
        writeWebUiFile(m_file, "new");
        QCOMPARE(TestRoot::read(m_file), QByteArray("new"));
    }

    void itIsRewrittenInPlace() {
        writeWebUiFile(m_file, "one");
        const auto before = statusOf(m_file).st_ino;
        writeWebUiFile(m_file, "two");
        QCOMPARE(statusOf(m_file).st_ino, before);
    }

    void groupAndOthersGetTheirRightsWhateverTheUmask() {
        const mode_t umaskBefore = ::umask(0077);
        writeWebUiFile(m_file, "x");
        ::umask(umaskBefore);
        QCOMPARE(permissionsOf(m_file), 0664);
    }

    void aFileOfOtherRightsGetsThemBack() {
        TestRoot::write(m_file, "x");
        QCOMPARE(::chmod(native(m_file).constData(), 0400), 0);
        writeWebUiFile(m_file, "y");
        QCOMPARE(permissionsOf(m_file), 0664);
        writeWebUiFile(m_file, "z");
        QCOMPARE(TestRoot::read(m_file), QByteArray("z"));
    }

    void anOrdinaryUsersWriteProtectedFileIsWritableTheNextTime() {
        TestRoot::write(m_file, "x");
        QCOMPARE(::chmod(native(m_file).constData(), 0400), 0);
        const uid_t before = ::geteuid();
        if (before == 0) {
            constexpr uid_t nobody = 65534;
            for (const QString &path : {m_root->paths().root, m_root->paths().exchangeDir(), m_file})
                QCOMPARE(::chown(native(path).constData(), nobody, gid_t(-1)), 0);
            QCOMPARE(::seteuid(nobody), 0);
        }
        writeWebUiFile(m_file, "y");
        const int permissions = permissionsOf(m_file);
        writeWebUiFile(m_file, "z");
        QCOMPARE(::seteuid(before), 0);
        QCOMPARE(permissions, 0664);
        QCOMPARE(TestRoot::read(m_file), QByteArray("z"));
    }

    void theFileBelongsToRootAndTheWebUisGroup() {
        const struct group *webUi = ::getgrnam("www-data");
        if (!webUi || ::geteuid() != 0)
            QSKIP("needs root and the group www-data");
        writeWebUiFile(m_file, "x");
        QCOMPARE(statusOf(m_file).st_uid, uid_t(0));
        QCOMPARE(statusOf(m_file).st_gid, webUi->gr_gid);
    }

    void anObstacleIsNeverFollowedAndNeverLasts_data() {
        QTest::addColumn<int>("obstacle");
        QTest::newRow("link to a file elsewhere") << int(Link);
        QTest::newRow("link to nothing") << int(DanglingLink);
        QTest::newRow("hard link to a file elsewhere") << int(HardLink);
        QTest::newRow("FIFO") << int(Fifo);
        QTest::newRow("folder") << int(Folder);
    }
    void anObstacleIsNeverFollowedAndNeverLasts() {
        QFETCH(int, obstacle);
        plant(obstacle);
        writeWebUiFile(m_file, "state");

        QCOMPARE(TestRoot::read(m_victim), QByteArray("precious"));
        QCOMPARE(permissionsOf(m_victim), 0600);
        QVERIFY(!QFile::exists(m_root->path("nothing")));
        QCOMPARE(TestRoot::read(m_file), QByteArray("state"));
        QVERIFY(!QFileInfo(m_file).isSymLink());
    }

    void aMissingFolderIsNoError() {
        writeWebUiFile(m_root->path("missing/kivo-status.json"), "x");
        QVERIFY(!QFile::exists(m_root->path("missing")));
    }

private:
    enum Obstacle { Link, DanglingLink, HardLink, Fifo, Folder };

    void plant(int obstacle) const {
        switch (obstacle) {
        case Link:
            QCOMPARE(::symlink(native(m_victim).constData(), native(m_file).constData()), 0);
            break;
        case DanglingLink:
            QCOMPARE(::symlink(native(m_root->path("nothing")).constData(), native(m_file).constData()), 0);
            break;
        case HardLink:
            QCOMPARE(::link(native(m_victim).constData(), native(m_file).constData()), 0);
            break;
        case Fifo:
            QCOMPARE(::mkfifo(native(m_file).constData(), 0666), 0);
            break;
        default:
            QVERIFY(QDir().mkdir(m_file));
        }
    }

    std::optional<TestRoot> m_root;
    QString m_file;
    QString m_victim;
};

QTEST_APPLESS_MAIN(TestWebUiFile)
#include "tst_WebUiFile.moc"
