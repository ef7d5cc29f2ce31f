#include "audio/Gain.h"

#include <QtTest>

#include <numeric>
#include <vector>

namespace {

constexpr int toNetwork = -32767;
constexpr int toRadio = -32768;

} // namespace

class TestGain : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void scalesASample_data();
    void scalesASample();
    void leavesEverySampleAsItIsAtUnity();
    void silencesAtZero();
    void takesAnEmptyFrame();
};

void TestGain::scalesASample_data() {
    QTest::addColumn<int>("sample");
    QTest::addColumn<int>("percent");
    QTest::addColumn<int>("lowest");
    QTest::addColumn<int>("expected");

    QTest::newRow("loud negative to the network") << -20000 << 200 << toNetwork << -32767;
    QTest::newRow("loud negative to the radio") << -20000 << 200 << toRadio << -32768;
    QTest::newRow("loud positive to the network") << 20000 << 200 << toNetwork << 32767;
    QTest::newRow("loud positive to the radio") << 20000 << 200 << toRadio << 32767;
    QTest::newRow("just below the top") << 16383 << 200 << toNetwork << 32766;
    QTest::newRow("just at the top") << 16384 << 200 << toNetwork << 32767;
    QTest::newRow("a fraction below the top") << 32443 << 101 << toNetwork << 32767;
    QTest::newRow("lowest exact product to the network") << -16384 << 200 << toNetwork << -32767;
    QTest::newRow("lowest exact product to the radio") << -16384 << 200 << toRadio << -32768;
    QTest::newRow("one above the lowest") << -16383 << 200 << toNetwork << -32766;
    QTest::newRow("default gain, fraction cut off") << 1001 << 80 << toNetwork << 800;
    QTest::newRow("default gain, negative fraction cut toward zero") << -1001 << 80 << toNetwork << -800;
    QTest::newRow("half of an odd sample") << 5 << 50 << toRadio << 2;
    QTest::newRow("half of a negative odd sample") << -5 << 50 << toRadio << -2;
    QTest::newRow("almost one") << 3 << 33 << toRadio << 0;
    QTest::newRow("almost minus one") << -3 << 33 << toRadio << 0;
    QTest::newRow("full negative turned down") << -32768 << 99 << toNetwork << -32440;
    QTest::newRow("full positive turned down") << 32767 << 99 << toNetwork << 32439;
}

void TestGain::scalesASample() {
    QFETCH(int, sample);
    QFETCH(int, percent);
    QFETCH(int, lowest);
    QFETCH(int, expected);

    std::vector<qint16> frame(19, static_cast<qint16>(sample));
    applyGain(frame, percent, lowest);
    QCOMPARE(frame, std::vector<qint16>(19, static_cast<qint16>(expected)));
}

void TestGain::leavesEverySampleAsItIsAtUnity() {
    std::vector<qint16> every(65536);
    std::iota(every.begin(), every.end(), qint16{-32768});
    std::vector<qint16> frame = every;
    applyGain(frame, 100, toNetwork);
    QCOMPARE(frame, every);
    applyGain(frame, 100, toRadio);
    QCOMPARE(frame, every);
}

void TestGain::silencesAtZero() {
    std::vector<qint16> frame{-32768, -1, 0, 1, 32767};
    applyGain(frame, 0, toNetwork);
    QCOMPARE(frame, std::vector<qint16>(5, 0));
}

void TestGain::takesAnEmptyFrame() {
    std::vector<qint16> frame;
    applyGain(frame, 80, toNetwork);
    QVERIFY(frame.empty());
}

QTEST_APPLESS_MAIN(TestGain)
#include "tst_Gain.moc"
