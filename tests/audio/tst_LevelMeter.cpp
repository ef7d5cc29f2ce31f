#include "audio/LevelMeter.h"

#include <QtTest>

#include <cmath>
#include <numbers>
#include <vector>

class TestLevelMeter : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsASteadyLevel_data();
    void readsASteadyLevel();
    void readsZeroWithoutSamples();
    void readsZeroBelowOneUnit();
    void readsASineByItsRms();
    void readsTheRmsOfUnevenSamples();
};

// Levels by hand: 100 + 2 * dBFS, the fraction cut off.
void TestLevelMeter::readsASteadyLevel_data() {
    QTest::addColumn<int>("sample");
    QTest::addColumn<int>("level");

    QTest::newRow("silence") << 0 << 0;
    QTest::newRow("-90.3 dBFS") << 1 << 0;
    QTest::newRow("-50.05 dBFS, just below the scale") << 103 << 0;
    QTest::newRow("-49.97 dBFS, 0.07") << 104 << 0;
    QTest::newRow("-49.56 dBFS, 0.88") << 109 << 0;
    QTest::newRow("-49.48 dBFS, 1.04") << 110 << 1;
    QTest::newRow("-25.003 dBFS, 49.99") << 1842 << 49;
    QTest::newRow("-24.998 dBFS, 50.003") << 1843 << 50;
    QTest::newRow("-12.04 dBFS, 75.92") << 8192 << 75;
    QTest::newRow("-6.02 dBFS, 87.96") << 16384 << 87;
    QTest::newRow("-0.5003 dBFS, 98.9994") << 30933 << 98;
    QTest::newRow("-0.4997 dBFS, 99.0005") << 30935 << 99;
    QTest::newRow("one below full scale, 99.9995") << 32766 << 99;
    QTest::newRow("full scale") << 32767 << 100;
    QTest::newRow("full negative scale") << -32768 << 100;
}

void TestLevelMeter::readsASteadyLevel() {
    QFETCH(int, sample);
    QFETCH(int, level);

    for (const std::size_t length : {1U, 2U, 19U, 960U, 5760U})
        QCOMPARE(levelOf(std::vector<qint16>(length, static_cast<qint16>(sample))), level);
}

void TestLevelMeter::readsZeroWithoutSamples() {
    QCOMPARE(levelOf({}), 0);
}

void TestLevelMeter::readsZeroBelowOneUnit() {
    QCOMPARE(levelOf(std::vector<qint16>{1, 0}), 0);
    QCOMPARE(levelOf(std::vector<qint16>{1, -1, 1, 0}), 0);
}

void TestLevelMeter::readsASineByItsRms() {
    std::vector<qint16> frame(960);
    for (std::size_t i = 0; i < frame.size(); ++i)
        frame[i] = static_cast<qint16>(std::lround(32767.0 * std::sin(2.0 * std::numbers::pi * 0.01 * double(i))));
    QCOMPARE(levelOf(frame), 93); // -3.01 dBFS
}

void TestLevelMeter::readsTheRmsOfUnevenSamples() {
    // sqrt((3000^2 + 4000^2) / 2) = 3535.5, -19.34 dBFS, 61.32
    QCOMPARE(levelOf(std::vector<qint16>{3000, -4000}), 61);
}

QTEST_APPLESS_MAIN(TestLevelMeter)
#include "tst_LevelMeter.moc"
