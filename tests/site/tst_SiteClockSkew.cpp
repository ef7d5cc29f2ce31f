#include "ClockSkew.h"

/// A card whose two sides keep different times, a hundred and more times worse than real ones, so that what takes those
/// half an hour is over in seconds.
class TestSiteClockSkew : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void soundGoesOn_data();
    void soundGoesOn();
};

void TestSiteClockSkew::soundGoesOn_data() {
    QTest::addColumn<Skew>("skew");
    QTest::newRow("capture fast, playback slow") << Skew{50'000, -50'000, 22, 0, 3, 0.3, 0.6};
    QTest::newRow("capture slow, playback fast") << Skew{-50'000, 50'000, 22, 5, 25, 0.0, 0.2};
}

void TestSiteClockSkew::soundGoesOn() {
    QFETCH(Skew, skew);
    verifyTheTalkGoesOn(skew, 1.0);
}

SITE_TEST_MAIN(TestSiteClockSkew)
#include "tst_SiteClockSkew.moc"
