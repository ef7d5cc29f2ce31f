#include "ClockSkew.h"

namespace {

/// QtTest gives a function five minutes unless it is told otherwise before main().
const bool isPatient = qputenv("QTEST_FUNCTION_TIMEOUT", "900000");

} // namespace

/// Ten minutes of talk both ways through a card as bad as they come: 200 ppm are 120 ms in that time.
class TestSiteClockSkewLong : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void soundGoesOn_data();
    void soundGoesOn();
};

void TestSiteClockSkewLong::soundGoesOn_data() {
    QTest::addColumn<Skew>("skew");
    QTest::newRow("capture fast, playback slow") << Skew{200, -200, 600, 0, 3, 0.07, 0.2};
    QTest::newRow("capture slow, playback fast") << Skew{-200, 200, 600, 1, 4, 0.05, 0.2};
}

void TestSiteClockSkewLong::soundGoesOn() {
    QVERIFY(isPatient);
    QFETCH(Skew, skew);
    verifyTheTalkGoesOn(skew, 5.0);
}

SITE_TEST_MAIN(TestSiteClockSkewLong)
#include "tst_SiteClockSkewLong.moc"
