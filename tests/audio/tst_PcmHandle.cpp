#include "audio/PcmHandle.h"

#include <QTest>

#include <cstdio>
#include <unistd.h>

namespace {

/// What the process writes to standard error meanwhile.
template <class Action>
QByteArray writtenToStandardError(Action action) {
    std::FILE *const file = std::tmpfile();
    const int before = ::dup(STDERR_FILENO);
    ::dup2(::fileno(file), STDERR_FILENO);
    action();
    std::fflush(stderr);
    ::dup2(before, STDERR_FILENO);
    ::close(before);
    std::rewind(file);
    char text[4096];
    const std::size_t size = std::fread(text, 1, sizeof text, file);
    std::fclose(file);
    return {text, static_cast<int>(size)};
}

} // namespace

class TestPcmHandle : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aDeviceThatIsNotThereGivesAnErrorAndNoHandle();
    void alsaPutsNoLinesOfItsOwnBetweenThoseOfTheLog();
};

void TestPcmHandle::aDeviceThatIsNotThereGivesAnErrorAndNoHandle() {
    int error = 0;
    QVERIFY(!openPcm(QStringLiteral("no-such-device"), SND_PCM_STREAM_CAPTURE, error));
    QCOMPARE(error, -ENOENT);
}

void TestPcmHandle::alsaPutsNoLinesOfItsOwnBetweenThoseOfTheLog() {
    const QByteArray written = writtenToStandardError([] {
        int error = 0;
        openPcm(QStringLiteral("no-such-device"), SND_PCM_STREAM_PLAYBACK, error);
    });
    QCOMPARE(written, QByteArray());
}

QTEST_GUILESS_MAIN(TestPcmHandle)
#include "tst_PcmHandle.moc"
