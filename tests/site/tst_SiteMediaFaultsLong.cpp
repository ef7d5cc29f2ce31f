#include "MediaFaults.h"

using namespace sim;

/// The whole table of what a bad way does to the sound, from longer talks.
class TestSiteMediaFaultsLong : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void whatArrivesIsHeardAndTheRadioReleased_data() { addMediaFaults({5, 20, 50}); }
    void whatArrivesIsHeardAndTheRadioReleased();
};

void TestSiteMediaFaultsLong::whatArrivesIsHeardAndTheRadioReleased() {
    QFETCH(MediaFault, fault);
    QFETCH(int, percent);
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    verifyTheTalkComesThrough(site, *member, fault, percent, 8.0);
}

SITE_TEST_MAIN(TestSiteMediaFaultsLong)
#include "tst_SiteMediaFaultsLong.moc"
