#include "TestFiles.h"
#include "config/SharedFile.h"

#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace TestFiles;

namespace {

bool isOpenDescriptor(int fd) {
    return ::fcntl(fd, F_GETFD) != -1;
}

} // namespace

class TestSharedFile : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void anOwnerClosesItsDescriptor();
    void anOwnerHandsItsDescriptorOn();
    void readsARegularFile();
    void refusesAnythingButARegularFile_data();
    void refusesAnythingButARegularFile();
    void sharesNoFileWithAnotherName();
    void createsNothingBehindALinkToNowhere();
    void readsAFileWithTwoNamesWhereThatIsAllowed();
    void opensNoDevice();
    void createsAFileToWriteAndEmptiesAnOldOne();
    void leavesAFileToLockAsItIs();
    void isNotInheritedByOtherPrograms();
    void readsUpToTheLimit_data();
    void readsUpToTheLimit();
    void refusesAHugeFileWithoutReadingIt();
    void readsNothingFromWhatIsNotOpen();
    void writesAllOrFails();
    void sharesAFileWithTheWebUi();

private:
    QString at(const char *name) const { return m_folder->filePath(QString::fromLatin1(name)); }

    std::unique_ptr<QTemporaryDir> m_folder;
};

void TestSharedFile::init() {
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
}

void TestSharedFile::anOwnerClosesItsDescriptor() {
    int fd = -1;
    {
        const UniqueFd file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        fd = file.get();
        QVERIFY(file.isValid());
        QVERIFY(isOpenDescriptor(fd));
    }
    QVERIFY(!isOpenDescriptor(fd));
    QVERIFY(!UniqueFd().isValid());
}

void TestSharedFile::anOwnerHandsItsDescriptorOn() {
    UniqueFd first(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int fd = first.get();
    UniqueFd second(std::move(first));
    QCOMPARE(second.get(), fd);
    UniqueFd third(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int replaced = third.get();
    third = std::move(second);
    QCOMPARE(third.get(), fd);
    second = UniqueFd(); // the replaced one went the other way, and now goes for good
    QVERIFY(isOpenDescriptor(fd));
    QVERIFY(!isOpenDescriptor(replaced));
}

void TestSharedFile::readsARegularFile() {
    write(at("file"), "abc");
    const UniqueFd file = SharedFile::openToRead(at("file"));
    QVERIFY(file.isValid());
    const auto bytes = SharedFile::readAll(file, 100);
    QVERIFY(bytes.has_value());
    QCOMPARE(*bytes, QByteArray("abc"));
}

void TestSharedFile::refusesAnythingButARegularFile_data() {
    QTest::addColumn<QString>("obstacle");
    QTest::addColumn<int>("readError");
    QTest::addColumn<int>("writeError");

    const auto row = [](const char *obstacle, int readError, int writeError) {
        QTest::newRow(obstacle) << QString::fromLatin1(obstacle) << readError << writeError;
    };
    row("link", ELOOP, ELOOP);
    row("hard link", EMLINK, EMLINK);
    row("fifo", EINVAL, ENXIO); // nobody reads from it, so that the system itself refuses a writer
    row("folder", EISDIR, EISDIR);
}

void TestSharedFile::refusesAnythingButARegularFile() {
    QFETCH(QString, obstacle);
    QFETCH(int, readError);
    QFETCH(int, writeError);
    write(at("victim"), "precious");
    QCOMPARE(::chmod(QFile::encodeName(at("victim")).constData(), 0640), 0);
    plant(obstacle, at("planted"), at("victim"));

    errno = 0;
    QVERIFY(!SharedFile::openToRead(at("planted")).isValid());
    QCOMPARE(errno, readError);
    errno = 0;
    QVERIFY(!SharedFile::openToWrite(at("planted")).isValid());
    QCOMPARE(errno, writeError);
    QCOMPARE(SharedFile::openToLock(at("planted")).isValid(), obstacle == QStringLiteral("hard link"));

    QCOMPARE(contentOf(at("victim")), QByteArray("precious"));
    QCOMPARE(modeOf(at("victim")), mode_t(0640));
}

void TestSharedFile::sharesNoFileWithAnotherName() {
    write(at("victim"), "precious");
    QCOMPARE(::chmod(QFile::encodeName(at("victim")).constData(), 0600), 0);
    plant(QStringLiteral("hard link"), at("planted"), at("victim"));
    SharedFile::shareWithWebUi(SharedFile::openToLock(at("planted")));
    QCOMPARE(modeOf(at("victim")), mode_t(0600));
}

void TestSharedFile::createsNothingBehindALinkToNowhere() {
    plant(QStringLiteral("link"), at("planted"), at("nowhere"));
    QVERIFY(!SharedFile::openToWrite(at("planted")).isValid());
    QCOMPARE(errno, ELOOP);
    QVERIFY(!SharedFile::openToLock(at("planted")).isValid());
    QVERIFY(!QFile::exists(at("nowhere")));
}

void TestSharedFile::readsAFileWithTwoNamesWhereThatIsAllowed() {
    write(at("file"), "abc");
    plant(QStringLiteral("hard link"), at("second"), at("file"));
    QVERIFY(!SharedFile::openToRead(at("file")).isValid());
    QVERIFY(SharedFile::openToRead(at("file"), SharedFile::OtherNames::Allowed).isValid());
}

void TestSharedFile::opensNoDevice() {
    QVERIFY(!SharedFile::openToRead(QStringLiteral("/dev/null")).isValid());
    QCOMPARE(errno, EINVAL);
    QVERIFY(!SharedFile::openToWrite(QStringLiteral("/dev/null")).isValid());
    QCOMPARE(errno, EINVAL);
}

void TestSharedFile::createsAFileToWriteAndEmptiesAnOldOne() {
    const mode_t umaskBefore = ::umask(0);
    {
        const UniqueFd file = SharedFile::openToWrite(at("file"), 0640);
        QVERIFY(SharedFile::writeAll(file, "a long text"));
    }
    ::umask(umaskBefore);
    QCOMPARE(modeOf(at("file")), mode_t(0640));
    QCOMPARE(contentOf(at("file")), QByteArray("a long text"));
    const UniqueFd file = SharedFile::openToWrite(at("file"), 0666);
    QVERIFY(SharedFile::writeAll(file, "short"));
    QCOMPARE(contentOf(at("file")), QByteArray("short"));
    QCOMPARE(modeOf(at("file")), mode_t(0640));
}

void TestSharedFile::leavesAFileToLockAsItIs() {
    write(at("file"), "abc");
    QVERIFY(SharedFile::openToLock(at("file")).isValid());
    QCOMPARE(contentOf(at("file")), QByteArray("abc"));
    QVERIFY(SharedFile::openToLock(at("new")).isValid());
    QCOMPARE(contentOf(at("new")), QByteArray());
}

void TestSharedFile::isNotInheritedByOtherPrograms() {
    const UniqueFd files[] = {SharedFile::openToWrite(at("file")), SharedFile::openToRead(at("file")),
                              SharedFile::openToLock(at("file"))};
    for (const UniqueFd &file : files)
        QCOMPARE(::fcntl(file.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

void TestSharedFile::readsUpToTheLimit_data() {
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("isRead");

    QTest::newRow("nothing") << 0 << true;
    QTest::newRow("one byte below") << 99'999 << true;
    QTest::newRow("the limit") << 100'000 << true;
    QTest::newRow("one byte above") << 100'001 << false;
}

void TestSharedFile::readsUpToTheLimit() {
    QFETCH(int, size);
    QFETCH(bool, isRead);
    const QByteArray content(size, 'x');
    write(at("file"), content);
    errno = 0;
    const auto bytes = SharedFile::readAll(SharedFile::openToRead(at("file")), 100'000);
    QCOMPARE(bytes.has_value(), isRead);
    if (isRead)
        QCOMPARE(*bytes, content);
    else
        QCOMPARE(errno, EFBIG);
}

void TestSharedFile::refusesAHugeFileWithoutReadingIt() {
    write(at("file"), "");
    QCOMPARE(::truncate(QFile::encodeName(at("file")).constData(), off_t(1) << 40), 0);
    const UniqueFd file = SharedFile::openToRead(at("file"));
    QVERIFY(!SharedFile::readAll(file, 1024 * 1024).has_value());
    QCOMPARE(errno, EFBIG);
    QCOMPARE(::lseek(file.get(), 0, SEEK_CUR), off_t(0));
}

void TestSharedFile::readsNothingFromWhatIsNotOpen() {
    QVERIFY(!SharedFile::readAll(UniqueFd(), 100).has_value());
    QCOMPARE(errno, EBADF);
}

void TestSharedFile::writesAllOrFails() {
    const UniqueFd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    QVERIFY(full.isValid());
    QVERIFY(!SharedFile::writeAll(full, "abc"));
    QCOMPARE(errno, ENOSPC);
    QVERIFY(SharedFile::writeAll(full, ""));
}

void TestSharedFile::sharesAFileWithTheWebUi() {
    const mode_t umaskBefore = ::umask(077);
    const UniqueFd file = SharedFile::openToWrite(at("file"));
    ::umask(umaskBefore);
    QCOMPARE(modeOf(at("file")), mode_t(0600));
    SharedFile::shareWithWebUi(file);
    QCOMPARE(modeOf(at("file")), mode_t(0664));

    const group *webUi = ::getgrnam("www-data");
    QCOMPARE(SharedFile::webUiGroup().has_value(), webUi != nullptr);
    if (!webUi)
        return;
    QCOMPARE(*SharedFile::webUiGroup(), webUi->gr_gid);
    // Only root may give a file away; for anybody else it stays as it was.
    const UniqueFd other = SharedFile::openToWrite(at("other"));
    const bool mayGiveAway = ::fchown(other.get(), 0, webUi->gr_gid) == 0;
    QCOMPARE(statusOf(at("file")).st_gid == webUi->gr_gid, mayGiveAway);
}

QTEST_APPLESS_MAIN(TestSharedFile)
#include "tst_SharedFile.moc"
