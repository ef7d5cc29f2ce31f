#include "Hearing.h"
#include "Processor.h"
#include "sim/card/CardFile.h"

using namespace sim;

namespace {

constexpr double radioHertz = 1013, roomHertz = 713; // broken numbers of waves per frame

CardOptions cardOf(int rateHz, int channels) {
    CardOptions options;
    options.rateHz = rateHz;
    options.minChannels = channels;
    options.maxChannels = channels;
    return options;
}

/// That the talking goes to and fro without any sound: squelch, list, transmitter.
bool isAtWork(TestSite &site, RoomMember &member) {
    const auto follows = [&](bool on) {
        site.board().setSquelch(on);
        return Site::waitFor([&] { return site.server().isTalking(site.gateway()) == on; }, 5000);
    };
    if (!follows(true) || !follows(false))
        return false;
    const bool keyed = site.keysFor(member);
    member.stopTalking();
    return keyed && Site::waitFor([&] { return !site.board().isKeyed(); }, 5000);
}

} // namespace

/// Sound cards as they come, and as they fail.
class TestSiteCard : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aCardOf44100HzPlaysButDoesNotCapture();
    void aStereoCardWorksBothWays();
    void anOverrunCostsAMomentOfCapture();
    void anUnderrunCostsAMomentOfPlayback();
    void anUnpluggedCardLeavesTheRestAtWorkAndComesBackWithTheNextQuality();
    void withoutACardTheRestWorks();
    void aBusyPlaybackLeavesTheCapture();
};

void TestSiteCard::aCardOf44100HzPlaysButDoesNotCapture() {
    TestSite site(cardOf(44100, 1));
    QVERIFY(site.bringUp());
    QVERIFY(site.card().isPlaybackOpen());
    QVERIFY(!site.card().isCaptureOpen());
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    const Pcm onAir = undisturbed(site, [&] { return heardOnAir(site, *member, tone(roomHertz, -10, 2.0)); });
    VERIFY_TONE(middle(onAir), roomHertz, -10);
    // 20 ms are 882 samples there; it begins with five frames, or a few more when they come in a rush.
    const int bytes = bytesAtBeginning(site, "serverSR: 48000 | outputRate: 44100 | ratio: 0.92"_s);
    VERIFY_BETWEEN(bytes, 5 * 1764, 10 * 1764);
    QCOMPARE(bytes % 1764, 0);
    // The room is told of a call, and hears nothing of it.
    QVERIFY(isAtWork(site, *member));
    QCOMPARE(int(member->heard().size()), 0);
}

void TestSiteCard::aStereoCardWorksBothWays() {
    TestSite site(cardOf(48000, 2));
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    site.card().feed(tone(radioHertz, -10, 30));
    const Pcm heard = undisturbed(site, [&] { return heardInRoom(site, *member, 60); });
    VERIFY_TONE(middle(heard), radioHertz, -10);
    const Pcm onAir = undisturbed(site, [&] { return heardOnAir(site, *member, tone(roomHertz, -10, 2.0)); });
    VERIFY_TONE(middle(onAir), roomHertz, -10);
}

void TestSiteCard::anOverrunCostsAMomentOfCapture() {
    constexpr int overruns = 3;
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    site.card().feed(tone(radioHertz, -10, 60));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return member->heard().size() >= 25; }, 5000));
    const int atRest = site.card().captureXruns();
    for (int turn = 1; turn <= overruns; ++turn) {
        site.card().overrun();
        QVERIFY(Site::waitFor([&] { return site.card().captureXruns() >= atRest + turn; }, 5000));
        const std::size_t heard = member->heard().size();
        const std::int64_t fromNs = monotonicNs();
        QVERIFY(Site::waitFor([&] { return member->heard().size() >= heard + 10; }, 5000));
        VERIFY_BETWEEN(secondsBetween(fromNs, monotonicNs()), 0.15, 0.6); // ten frames last 0.2 s
    }
    site.board().setSquelch(false);
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
    const Pcm heard = undisturbed(site, [&] { return heardInRoom(site, *member, 40); });
    VERIFY_TONE(middle(heard), radioHertz, -10);
    QCOMPARE(site.daemon().logged("[Audio]"_s).filter("rror"_s), QStringList());
}

void TestSiteCard::anUnderrunCostsAMomentOfPlayback() {
    constexpr int underruns = 3;
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    member->speak(tone(roomHertz, -10, 30));
    const auto isHeard = [&](double seconds) {
        const std::int64_t now = monotonicNs();
        return complaintAbout(site.card().played(now - std::int64_t(seconds * 1e9), now), roomHertz, -10).isEmpty();
    };
    QVERIFY(Site::waitFor([&] { return isHeard(0.4); }, 10000));
    const int atRest = site.card().playbackXruns();
    for (int turn = 1; turn <= underruns; ++turn) {
        site.card().underrun();
        QVERIFY(Site::waitFor([&] { return site.card().playbackXruns() >= atRest + turn; }, 5000));
        QVERIFY(Site::waitFor([&] { return !isHeard(0.4); }, 5000));
        QVERIFY(Site::waitFor([&] { return isHeard(0.4); }, 5000));
    }
    QVERIFY(site.board().isKeyed());
    QCOMPARE(site.daemon().logged("[Audio]"_s).filter("rror"_s), QStringList());
}

void TestSiteCard::anUnpluggedCardLeavesTheRestAtWorkAndComesBackWithTheNextQuality() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    const double idle = processorLoad(site);
    site.card().feed(tone(radioHertz, -10, 60));
    site.board().setSquelch(true);
    member->speak(tone(roomHertz, -10, 30));
    QVERIFY(Site::waitFor([&] { return site.board().isKeyed() && member->heard().size() >= 25; }, 10000));

    site.card().unplug(); // in the midst of a frame each way
    site.board().setSquelch(false);
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
    member->stopTalking();
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 5000));
    VERIFY_NOT_BUSIER(site, idle);
    member->forgetHeard();
    QVERIFY(isAtWork(site, *member));
    QCOMPARE(int(member->heard().size()), 0);
    QVERIFY(site.waitForStatus("connected", true));

    site.card().plugIn();
    site.server().announceQuality("standard"_s, 32000, 48000, 20, 5);
    QVERIFY(Site::waitFor([&] { return site.card().isCaptureOpen() && site.card().isPlaybackOpen(); }, 5000));
    site.card().clearFeed();
    site.card().feed(tone(radioHertz, -10, 30));
    const Pcm heard = undisturbed(site, [&] { return heardInRoom(site, *member, 40); });
    VERIFY_TONE(middle(heard), radioHertz, -10);
    const Pcm onAir = undisturbed(site, [&] { return heardOnAir(site, *member, tone(roomHertz, -10, 1.5)); });
    VERIFY_TONE(middle(onAir), roomHertz, -10);
}

void TestSiteCard::withoutACardTheRestWorks() {
    TestSite site;
    site.card().setPresent(false);
    site.writeConfig({{"audio_input"_s, "hw:1,0"_s}});
    QVERIFY(site.bringUp());
    // The plugin opens a file of the card's.
    QVERIFY(site.logsOnce("warning"_s, "[Audio] Playback open: No such file or directory"_s));
    QVERIFY(site.logsOnce("warning"_s, "[Audio] Capture open: No such file or directory"_s));
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    QVERIFY(isAtWork(site, *member));
    member->speak(tone(roomHertz, -10, 0.5));
    QVERIFY(Site::waitFor([&] { return !member->isSpeaking(); }, 5000));
    VERIFY_BETWEEN(processorLoad(site), 0.0, 0.05);
    QVERIFY(site.waitForStatus("connected", true));
    QFile levels(sitePaths().appliance + "/tmp/kivo-vu.json"_s);
    QVERIFY(levels.open(QIODevice::ReadOnly));
    QCOMPARE(levels.readAll(), QByteArray("{\"input\":0,\"output\":0}\n"));
}

void TestSiteCard::aBusyPlaybackLeavesTheCapture() {
    TestSite site;
    const auto holder = CardFile::open(cardFilePath(sitePaths().cards.toStdString(), 0));
    QVERIFY(holder && holder->claim(Direction::Playback));
    QVERIFY(site.bringUp());
    QVERIFY(site.logsOnce("warning"_s, "[Audio] Playback open: Device or resource busy"_s));
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    site.card().feed(tone(radioHertz, -10, 30));
    const Pcm heard = undisturbed(site, [&] { return heardInRoom(site, *member, 40); });
    VERIFY_TONE(middle(heard), radioHertz, -10);
    QVERIFY(isAtWork(site, *member));
}

SITE_TEST_MAIN(TestSiteCard)
#include "tst_SiteCard.moc"
