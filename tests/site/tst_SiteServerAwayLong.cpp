#include "Measured.h"

using namespace sim;

namespace {

std::vector<std::int64_t> timesOf(TestSite &site, const QString &words) {
    std::vector<std::int64_t> times;
    for (const LogLine &line : site.daemon().log()) {
        if (line.text.contains(words))
            times.push_back(line.saidNs);
    }
    return times;
}

} // namespace

/// The box is on a hilltop, the server is away for long.
class TestSiteServerAwayLong : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qputenv("QTEST_FUNCTION_TIMEOUT", "600000"); } // else a function has five minutes in all
    void fiveMinutesOfRefusalCostNothingAndAreOverAtOnce();
};

void TestSiteServerAwayLong::fiveMinutesOfRefusalCostNothingAndAreOverAtOnce() {
    constexpr double awaySeconds = 300;
    TestSite site;
    QVERIFY(site.bringUp());
    site.server().stop();
    QVERIFY(site.waitForLine("info"_s, "[Server] Terputus dari server"_s, 2000));
    const std::int64_t lostNs = site.timeLogged("Terputus"_s);
    QVERIFY(Site::waitFor([&] { return site.timeLogged("Connection refused"_s, lostNs) > 0; }, 10000));
    site.daemon().forgetLog();
    const Expense expense(site);
    letPass(awaySeconds);

    const std::vector<std::int64_t> attempts = timesOf(site, "[TCP] Connecting to"_s);
    VERIFY_BETWEEN(double(attempts.size()), 56, 62);
    for (std::size_t i = 1; i < attempts.size(); ++i)
        VERIFY_BETWEEN(secondsBetween(attempts[i - 1], attempts[i]), 4.7, 5.6);
    expense.tell("connection refused");
    // Beside two lines for each attempt, the media link tells once that it has been given up.
    const int ofTheAttempts = site.daemon().logged("[TCP]"_s).size();
    const int ofTheMedia = site.daemon().logged("[UDP]"_s).size();
    VERIFY_BETWEEN(ofTheAttempts - 2.0 * double(attempts.size()), -1, 1);
    VERIFY_BETWEEN(ofTheMedia, 1, 16);
    QCOMPARE(ofTheAttempts + ofTheMedia, expense.lines());
    VERIFY_CHEAP(expense);

    const std::int64_t backNs = monotonicNs();
    QVERIFY(site.server().start());
    QVERIFY(site.waitUntilBack("Lobby"_s, backNs, 15000));
    tellMeasured("back in its room after the server was", secondsBetween(backNs, monotonicNs()), "s");
    VERIFY_BETWEEN(secondsBetween(backNs, monotonicNs()), 0.9, 7.5);
    QVERIFY(!site.board().isKeyed());
}

SITE_TEST_MAIN(TestSiteServerAwayLong)
#include "tst_SiteServerAwayLong.moc"
