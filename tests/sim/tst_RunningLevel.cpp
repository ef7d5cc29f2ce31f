#include "sim/sound/RunningLevel.h"

#include <QTest>

using namespace sim;

class TestRunningLevel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void levelFollowsTheSound_data();
    void levelFollowsTheSound();
    void nothingStartedIsSilence() { QCOMPARE(RunningLevel().dbfsAt(0), -120.0); }
};

void TestRunningLevel::levelFollowsTheSound_data() {
    QTest::addColumn<qint64>("atMs");
    QTest::addColumn<double>("dbfs");
    QTest::newRow("just before") << qint64(999) << -120.0;
    QTest::newRow("first stretch") << qint64(1000) << 0.0;
    QTest::newRow("end of the first stretch") << qint64(1019) << 0.0;
    QTest::newRow("second stretch") << qint64(1020) << -6.0206;
    QTest::newRow("past the end") << qint64(1040) << -120.0;
}

void TestRunningLevel::levelFollowsTheSound() {
    QFETCH(qint64, atMs);
    QFETCH(double, dbfs);
    Pcm pcm{1000, std::vector<std::int16_t>(20, -32768)};
    pcm.samples.insert(pcm.samples.end(), 20, 16384);
    RunningLevel level;
    level.start(pcm, 1'000'000'000);
    QVERIFY(qAbs(level.dbfsAt(atMs * 1'000'000) - dbfs) < 0.001);
}

QTEST_APPLESS_MAIN(TestRunningLevel)
#include "tst_RunningLevel.moc"
