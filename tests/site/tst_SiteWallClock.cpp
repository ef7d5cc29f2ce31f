#include "Measured.h"
#include "sim/site/WallClock.h"

using namespace sim;

namespace {

constexpr std::int64_t tenYears = 10LL * 365 * 86400;

/// The year that the last line of the log was written in, as the daemon sees it.
int yearOfLastLine(TestSite &site) {
    return site.daemon().log().isEmpty() ? 0 : site.daemon().log().last().text.section(QLatin1Char('@'), -1).toInt();
}

} // namespace

/// The time of day is set by years while the gateway is at work.
class TestSiteWallClock : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void noTimeOutFollowsTheWallClock();
};

void TestSiteWallClock::noTimeOutFollowsTheWallClock() {
    TestSite site;
    WallClock clock(sitePaths().cards);
    QVERIFY(clock.isThere());
    clock.installIn(site.daemon());
    site.daemon().setEnvironment("QT_MESSAGE_PATTERN"_s, "%{type} @%{time boot}@ %{message} @%{time yyyy}"_s);
    site.writeConfig({{"tot_duration"_s, 12}});
    QVERIFY(site.bringUp());
    const int year = yearOfLastLine(site);
    QVERIFY(year >= 2023);
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved"_s, 5000));

    // Set to and fro all the time from here on, also between two packets of a talker.
    int turn = 0;
    QTimer setter;
    QObject::connect(&setter, &QTimer::timeout, &setter,
                     [&] { clock.setOffset(++turn % 2 != 0 ? tenYears : -tenYears); });
    setter.start(700);
    const Expense expense(site);
    const std::int64_t fromNs = monotonicNs();
    member->speak(tone(700, -10, 14));
    const QString started = "[TOT] Timer started: 12 s"_s;
    QVERIFY(site.waitForLog("[TOT] Batas waktu tercapai"_s, 20000));
    const std::int64_t startedNs = site.timeLogged(started);
    VERIFY_BETWEEN(secondsBetween(startedNs, site.timeLogged("[TOT] Warning — 10 detik lagi"_s)), 1.9, 2.5);
    VERIFY_BETWEEN(secondsBetween(startedNs, site.timeLogged("[TOT] Batas waktu tercapai"_s)), 11.9, 12.5);
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 1000));
    const double keyedSeconds = secondsBetween(startedNs, site.board().keyings().back().timeNs);
    tellMeasured("PTT released by a time-out of 12 s after", keyedSeconds, "s");
    VERIFY_BETWEEN(keyedSeconds, 11.9, 12.5);
    QVERIFY(Site::waitFor([&] { return !member->isSpeaking(); }, 5000));
    QCOMPARE(site.daemon().logged(started).size(), 2); // and once more with the packet behind the time-out

    // Past the next check of the media link's health, and several of the control link.
    QVERIFY(Site::waitFor(
        [&] {
            const int ping = site.status("ping_ms").toInt();
            return ping < 0 || ping > 1000 || secondsBetween(fromNs, monotonicNs()) > 35;
        },
        40000));
    VERIFY_BETWEEN(site.status("ping_ms").toInt(), 0, 1000);
    QCOMPARE(site.daemon().logged("[UDP] Siap"_s).size(), 1);
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());
    verifyBothWaysFollow(site, *member);
    if (QTest::currentTestFailed())
        return;
    QVERIFY(std::abs(yearOfLastLine(site) - year) >= 9); // it has really seen them
    expense.tell("wall clock set all the time");
    VERIFY_CHEAP(expense);

    const std::int64_t stoppedNs = monotonicNs();
    site.server().stop();
    QVERIFY(site.server().start());
    QVERIFY(site.waitUntilBack("Lobby"_s, stoppedNs, 15000));
    tellMeasured("back after the link was lost", secondsBetween(stoppedNs, monotonicNs()), "s");
    VERIFY_BETWEEN(secondsBetween(stoppedNs, monotonicNs()), 4.0, 10.0);
}

SITE_TEST_MAIN(TestSiteWallClock)
#include "tst_SiteWallClock.moc"
