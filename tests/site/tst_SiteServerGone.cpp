#include "Measured.h"

using namespace sim;

namespace {

/// "Within about 30 s": half a minute, and the kernel's timers.
constexpr double longestSilenceSeconds = 34;
constexpr int patienceMs = 40000;

} // namespace

/// The cable is pulled somewhere on the way to the server: no answer any more, no reset.
class TestSiteServerGone : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aPeerGoneWhileTheLinkIdlesIsNoticedAndTheRadioReleased();
    void aPeerGoneWhileDataAreInFlightIsNoticed();
};

void TestSiteServerGone::aPeerGoneWhileTheLinkIdlesIsNoticedAndTheRadioReleased() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.keysFor(*member));
    const Expense expense(site);
    const std::int64_t goneNs = monotonicNs();
    site.server().setSilent(true);
    QVERIFY(site.waitForLine("info"_s, "[Server] Terputus dari server"_s, patienceMs));
    VERIFY_BETWEEN(secondsBetween(goneNs, site.timeLogged("Terputus"_s)), 5, longestSilenceSeconds);
    QCOMPARE(site.daemon().logged("[TCP] Error:"_s).size(), 1);
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 2000));
    tellMeasured("transmitter released", secondsBetween(goneNs, site.board().keyings().back().timeNs),
                 "s after the last that was heard of the server");
    expense.tell("peer silently gone");
    VERIFY_CHEAP(expense);
    QVERIFY(site.waitForLine("info"_s, "[TX] \"EF2GH\" RX"_s, 2000));
    QVERIFY(site.waitForStatus("connected", false, 1000));

    const std::int64_t lostNs = site.timeLogged("Terputus"_s);
    site.server().setSilent(false);
    QVERIFY(site.waitUntilBack("Lobby"_s, lostNs, 15000));
    tellMeasured("back in its room", secondsBetween(lostNs, monotonicNs()), "s after the link was given up");
    VERIFY_BETWEEN(secondsBetween(lostNs, site.timeLogged("[TCP] Connected!"_s, lostNs)), 4.5, 8.0);
    QVERIFY(site.waitForStatus("connected", true));
}

void TestSiteServerGone::aPeerGoneWhileDataAreInFlightIsNoticed() {
    TestSite site;
    QVERIFY(site.bringUp());
    const std::int64_t goneNs = monotonicNs();
    site.server().setSilent(true);
    site.board().setSquelch(true); // TX_START, never acknowledged; and a talk that goes on
    QVERIFY(site.waitForLine("info"_s, "[TX] \"AB1CD\" TX — \"Lobby\""_s, 2000));
    QVERIFY(site.waitForStatus("transmitting", true, 1000));
    QVERIFY(site.waitForLine("info"_s, "[Server] Terputus dari server"_s, patienceMs));
    VERIFY_BETWEEN(secondsBetween(goneNs, site.timeLogged("Terputus"_s)), 5, longestSilenceSeconds);
    QVERIFY(site.waitForStatus("connected", false, 1000));
    QCOMPARE(site.status("transmitting"), QJsonValue(false));

    // Healed only while the next attempt is already under way, unanswered.
    const std::int64_t lostNs = site.timeLogged("Terputus"_s);
    QVERIFY(Site::waitFor([&] { return site.timeLogged("[TCP] Connecting"_s, lostNs) > 0; }, 8000));
    QVERIFY(!Site::waitFor([&] { return site.timeLogged("[TCP] Connected!"_s, lostNs) > 0; }, 1500));
    site.board().setSquelch(false);
    const std::int64_t healedNs = monotonicNs();
    site.server().setSilent(false);
    // The kernel asks again 1, 3 and 7 s after the first time.
    QVERIFY(Site::waitFor([&] { return site.timeLogged("[TCP] Connected!"_s, lostNs) > 0; }, 8000));
    QVERIFY(site.waitUntilBack("Lobby"_s, healedNs));
    QVERIFY(!site.server().isTalking(site.gateway()));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
}

SITE_TEST_MAIN(TestSiteServerGone)
#include "tst_SiteServerGone.moc"
