#include "Hearing.h"
#include "Measured.h"

#include <csignal>

using namespace sim;

namespace {

constexpr double radioHertz = 1013, roomHertz = 713; // broken numbers of waves per frame
constexpr double releaseSeconds = 0.5;

using Act = std::function<void(TestSite &)>;

/// The gateway opens what it finds.
void announceAnotherQuality(TestSite &site) {
    site.server().announceQuality("standard"_s, 32000, 48000, 20, 5);
}

/// The service starts it again.
void restart(TestSite &site) {
    site.daemon().kill();
    site.daemon().start();
}

/// Once in each of the seconds.
void overAndUnderrunEverySecond(TestSite &site) {
    for (int second = 0; second < 5; ++second) {
        site.card().overrun();
        site.card().underrun();
        letPass(1.0);
    }
}

} // namespace

Q_DECLARE_METATYPE(Act)

/// A sound card that fails in the midst of sound both ways.
class TestSiteCardFaults : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aFailingCardDelaysNoReleaseAndItsSoundComesBack_data();
    void aFailingCardDelaysNoReleaseAndItsSoundComesBack();
    void aProcessorTakenAwayForMomentsCostsNoSound();
    void aCardThatComesBackAsAnotherIsTakenAsItIs_data();
    void aCardThatComesBackAsAnotherIsTakenAsItIs();

private:
    void talkBothWays(TestSite &site, RoomMember &member);
    void measureReleases(TestSite &site, RoomMember &member);
    void measureReturnOfSound(TestSite &site, RoomMember &member);
};

void TestSiteCardFaults::talkBothWays(TestSite &site, RoomMember &member) {
    member.speak(tone(roomHertz, -10, 60));
    site.card().clearFeed();
    site.card().feed(tone(radioHertz, -10, 60));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.board().isKeyed() && site.server().isTalking(site.gateway()); }, 5000));
}

/// From the end of either transmission to the release of what it held.
void TestSiteCardFaults::measureReleases(TestSite &site, RoomMember &member) {
    std::int64_t fromNs = monotonicNs();
    site.board().setSquelch(false);
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
    const double roomSeconds = secondsBetween(fromNs, monotonicNs());
    fromNs = monotonicNs();
    member.stopTalking();
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 5000));
    const double radioSeconds = secondsBetween(fromNs, site.board().keyings().back().timeNs);
    tellMeasured("TX_STOP after the squelch has closed", roomSeconds * 1000, "ms");
    tellMeasured("PTT released after the talk has ended", radioSeconds * 1000, "ms");
    VERIFY_BETWEEN(roomSeconds, 0.0, releaseSeconds);
    VERIFY_BETWEEN(radioSeconds, 0.0, releaseSeconds);
}

/// Until a fifth of a second is that tone and nothing else, either way.
void TestSiteCardFaults::measureReturnOfSound(TestSite &site, RoomMember &member) {
    const std::int64_t fromNs = monotonicNs();
    member.forgetHeard();
    const auto isTone = [](const Pcm &pcm, double hz) {
        return pcm.seconds() >= 0.19 && std::abs(toneLevelDbfs(pcm, hz) + 10) < 0.7 && toneShare(pcm, hz) > 0.97;
    };
    double roomSeconds = 0, airSeconds = 0;
    QVERIFY(Site::waitFor(
        [&] {
            const std::int64_t nowNs = monotonicNs();
            const Pcm inRoom = member.heardFrom(42);
            if (roomSeconds == 0 && isTone(slice(inRoom, inRoom.seconds() - 0.2, inRoom.seconds()), radioHertz))
                roomSeconds = secondsBetween(fromNs, nowNs);
            if (airSeconds == 0 && nowNs - fromNs > 200'000'000 &&
                isTone(site.card().played(nowNs - 200'000'000, nowNs), roomHertz))
                airSeconds = secondsBetween(fromNs, nowNs);
            return roomSeconds > 0 && airSeconds > 0;
        },
        10000));
    tellMeasured("sound in the room again after", roomSeconds, "s");
    tellMeasured("sound on the air again after", airSeconds, "s");
}

void TestSiteCardFaults::aFailingCardDelaysNoReleaseAndItsSoundComesBack_data() {
    QTest::addColumn<Act>("fail");
    QTest::addColumn<Act>("heal");
    QTest::addColumn<bool>("isHeardMeanwhile");
    QTest::newRow("pulled out, back with the next quality") << Act([](TestSite &site) {
        site.card().unplug();
        letPass(4.0);
    }) << Act([](TestSite &site) {
        site.card().plugIn();
        announceAnotherQuality(site);
    }) << false;
    QTest::newRow("pulled out, back with a restart") << Act([](TestSite &site) {
        site.card().unplug();
        letPass(4.0);
    }) << Act([](TestSite &site) {
        site.card().plugIn();
        restart(site);
    }) << false;
    QTest::newRow("standing still") << Act([](TestSite &site) {
        site.card().stall(true);
        letPass(4.0);
    }) << Act([](TestSite &site) { site.card().stall(false); })
                                    << false;
    QTest::newRow("refusing every write") << Act([](TestSite &site) {
        site.card().failPlaybackWrites(true);
        letPass(4.0);
    }) << Act([](TestSite &site) { site.card().failPlaybackWrites(false); })
                                          << true;
    QTest::newRow("running over and empty every second")
        << Act(overAndUnderrunEverySecond) << Act([](TestSite &) {}) << true;
}

void TestSiteCardFaults::aFailingCardDelaysNoReleaseAndItsSoundComesBack() {
    QFETCH(Act, fail);
    QFETCH(Act, heal);
    QFETCH(bool, isHeardMeanwhile);
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved to config.json"_s, 5000)); // the login's last line
    talkBothWays(site, *member);
    measureReturnOfSound(site, *member);
    if (QTest::currentTestFailed())
        return;

    const Expense expense(site);
    member->forgetHeard();
    fail(site);
    QCOMPARE(member->heard().size() > 100, isHeardMeanwhile);
    expense.tell(QTest::currentDataTag());
    QCOMPARE(expense.lines(), 0);
    VERIFY_CHEAP(expense);
    measureReleases(site, *member);
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());

    const std::int64_t healedNs = monotonicNs();
    heal(site);
    QVERIFY(Site::waitFor([&] { return site.server().roomOf(site.gateway()) == "Lobby"_s; }, 10000));
    if (site.daemon().logged("berjalan"_s).size() > 1)
        QVERIFY(site.waitUntilBack("Lobby"_s, healedNs));
    QVERIFY(Site::waitFor([&] { return site.card().isCaptureOpen() && site.card().isPlaybackOpen(); }, 5000));
    talkBothWays(site, *member);
    measureReturnOfSound(site, *member);
    tellMeasured("from the end of the fault to sound both ways", secondsBetween(healedNs, monotonicNs()), "s");
}

/// For less than the card holds, again and again.
void TestSiteCardFaults::aProcessorTakenAwayForMomentsCostsNoSound() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    const auto process = pid_t(site.daemon().processId());
    const auto stopForAMoment = [&] {
        const std::int64_t fromNs = monotonicNs();
        ::kill(process, SIGSTOP);
        letPass(0.045);
        ::kill(process, SIGCONT);
        return secondsBetween(fromNs, monotonicNs());
    };
    int underruns = 0;
    QString complaint;
    for (int attempt = 1; attempt <= 8; ++attempt) {
        talkBothWays(site, *member);
        measureReturnOfSound(site, *member);
        if (QTest::currentTestFailed())
            return;
        const int underrunsBefore = site.card().playbackXruns();
        const std::int64_t fromNs = monotonicNs();
        double longest = 0;
        Pace pace(site.daemon());
        for (int moment = 0; moment < 15; ++moment) {
            longest = std::max(longest, stopForAMoment());
            letPass(0.2);
        }
        const bool wasKept = pace.wasKept() && longest < 0.06;
        underruns = site.card().playbackXruns() - underrunsBefore;
        complaint = complaintAbout(site.card().played(fromNs, monotonicNs()), roomHertz, -10);
        measureReleases(site, *member);
        if (wasKept || QTest::currentTestFailed())
            break;
        waitForCalm(site.daemon());
    }
    tellMeasured("underruns by 15 stops of 45 ms", underruns, "");
    QCOMPARE(underruns, 0);
    QVERIFY2(complaint.isEmpty(), qPrintable(complaint));
}

void TestSiteCardFaults::aCardThatComesBackAsAnotherIsTakenAsItIs_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("channels");
    QTest::addColumn<bool>("captures"); // the codec knows the rate
    QTest::newRow("48000 Hz, stereo only") << 48000 << 2 << true;
    QTest::newRow("16000 Hz, mono") << 16000 << 1 << true;
    QTest::newRow("44100 Hz, stereo only") << 44100 << 2 << false;
}

void TestSiteCardFaults::aCardThatComesBackAsAnotherIsTakenAsItIs() {
    QFETCH(int, rateHz);
    QFETCH(int, channels);
    QFETCH(bool, captures);
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    talkBothWays(site, *member);
    site.card().unplug();
    measureReleases(site, *member);
    if (QTest::currentTestFailed())
        return;

    site.card().setRate(rateHz);
    site.card().setChannels(channels, channels);
    site.card().plugIn();
    announceAnotherQuality(site);
    QVERIFY(Site::waitFor([&] { return site.card().isPlaybackOpen(); }, 5000));
    QVERIFY(Site::waitFor([&] { return site.card().isCaptureOpen() == captures; }, 2000));
    const Pcm onAir = undisturbed(site, [&] { return heardOnAir(site, *member, tone(roomHertz, -10, 1.5)); });
    QCOMPARE(onAir.rateHz, rateHz);
    VERIFY_TONE(middle(onAir), roomHertz, -10);
    site.card().feed(tone(radioHertz, -10, 30));
    if (captures) {
        const Pcm heard = undisturbed(site, [&] { return heardInRoom(site, *member, 40); });
        VERIFY_TONE(middle(heard), radioHertz, -10);
    }
}

SITE_TEST_MAIN(TestSiteCardFaults)
#include "tst_SiteCardFaults.moc"
