#include "Hearing.h"
#include "sim/wire/SealedFrame.h"

#include <QSet>

using namespace sim;

namespace {

constexpr double toneHertz = 1013; // a broken number of waves per frame
constexpr int nonceBytes = 24;
constexpr int frameSamples = 960;

/// The frames that the gateway sends into its room, in order, each with its time of arrival.
class FramesSent {
public:
    explicit FramesSent(TestSite &site) {
        QObject::connect(&site.server(), &VoiceServer::audioRelayed, &site.server(),
                         [this](const QString &callsign, const QByteArray &frame) {
                             if (callsign == TestSite::gateway()) {
                                 frames.append(frame);
                                 lastNs = monotonicNs();
                             }
                         });
        QObject::connect(&site.server(), &VoiceServer::datagramReceived, &site.server(),
                         [this](const QByteArray &datagram) {
                             const bool isControl = datagram.startsWith("PING") || datagram.startsWith("TOKEN:") ||
                                                    datagram.startsWith("KEEPALIVE");
                             datagrams += isControl ? 0 : 1;
                         });
    }

    QList<QByteArray> frames;
    int datagrams = 0; ///< of any kind but the link's own
    std::int64_t lastNs = 0;
};

/// Until the card has delivered that many frames more.
bool waitForCaptured(TestSite &site, int frames) {
    const std::int64_t goal = site.card().framesCaptured() + std::int64_t(frames) * frameSamples;
    return Site::waitFor([&] { return site.card().framesCaptured() >= goal; }, frames * 20 + 10000);
}

bool isTurnByTurn(const QStringList &lines) {
    for (int i = 0; i < lines.size(); ++i) {
        if (lines.at(i) != (i % 2 == 0 ? "TX_START \"Lobby\""_s : "TX_STOP \"Lobby\""_s))
            return false;
    }
    return lines.size() % 2 == 0;
}

} // namespace

/// From the radio into the room.
class TestSiteTransmit : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theRoomHearsWhatTheRadioHears_data();
    void theRoomHearsWhatTheRadioHears();
    void aGainBelowNothingIsSilence();
    void everyFrameIsSealedWithTheKeyOfTheRoom();
    void aRoomWithoutAKeyHearsInClear();
    void oneDatagramGoesOutPerFrameWhileTheSquelchIsOpenAndNoneWhileItIsClosed();
    void theFirstFrameLeavesWithoutDelay();
    void aFlappingSquelchStartsAndStopsInTurnAndEndsReleased();
};

void TestSiteTransmit::theRoomHearsWhatTheRadioHears_data() {
    QTest::addColumn<int>("micGain");
    QTest::addColumn<double>("fedDbfs");
    QTest::addColumn<double>("heardDbfs"); // fed + 20 log10(gain / 100)
    QTest::newRow("as it is") << 100 << -10.0 << -10.0;
    QTest::newRow("quieter") << 80 << -10.0 << -11.94;
    QTest::newRow("louder") << 200 << -18.0 << -11.98;
    QTest::newRow("more than is offered") << 250 << -18.0 << -11.98; // as with 200
}

void TestSiteTransmit::theRoomHearsWhatTheRadioHears() {
    QFETCH(int, micGain);
    QFETCH(double, fedDbfs);
    QFETCH(double, heardDbfs);
    TestSite site;
    site.writeConfig({{"mic_gain"_s, micGain}});
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    site.card().feed(tone(toneHertz, fedDbfs, 60));
    const Pcm heard = undisturbed(site, [&] { return heardInRoom(site, *member, 75); });
    VERIFY_TONE(middle(heard), toneHertz, heardDbfs);
    QVERIFY(std::all_of(member->heard().begin(), member->heard().end(),
                        [](const RoomMember::Heard &frame) { return frame.opened && frame.samples.size() == 960; }));
    QVERIFY(site.waitForLine("info"_s, "[TX] \"AB1CD\" TX — \"Lobby\""_s, 1000));
    QVERIFY(site.waitForLine("info"_s, "[TX] \"AB1CD\" RX"_s, 1000));
}

void TestSiteTransmit::aGainBelowNothingIsSilence() {
    TestSite site;
    site.writeConfig({{"mic_gain"_s, -5}});
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    site.card().feed(tone(toneHertz, -10, 60)); // with the sign alone dropped, -36 dBFS would be left of it
    QVERIFY(waitForCaptured(site, 20));
    const Pcm heard = heardInRoom(site, *member, 25);
    QVERIFY(heard.seconds() >= 0.5);
    VERIFY_BETWEEN(rmsDbfs(heard.samples), silenceDbfs, -80.0);
}

void TestSiteTransmit::everyFrameIsSealedWithTheKeyOfTheRoom() {
    const QByteArray key(32, 'k');
    TestSite site;
    site.server().setRoomKey("Lobby"_s, key);
    QVERIFY(site.bringUp());
    const FramesSent sent(site);
    site.card().feed(tone(toneHertz, -10, 10));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return sent.frames.size() >= 50; }, 5000));
    QSet<QByteArray> nonces;
    for (const QByteArray &frame : sent.frames) {
        QVERIFY(opened(frame, key));
        QVERIFY(!opened(frame, QByteArray(32, 'x')));
        nonces.insert(frame.left(nonceBytes));
    }
    QCOMPARE(nonces.size(), sent.frames.size());
}

void TestSiteTransmit::aRoomWithoutAKeyHearsInClear() {
    TestSite site;
    site.server().setRoomKey("Lobby"_s, {});
    QVERIFY(site.bringUp());
    const FramesSent sent(site);
    site.card().feed(tone(toneHertz, -10, 30));
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    const Pcm heard = undisturbed(site, [&] { return heardInRoom(site, *member, 40); });
    VERIFY_TONE(middle(heard), toneHertz, -10);
    VoiceDecoder decoder;
    QCOMPARE(int(decoder.decode(sent.frames.first()).size()), frameSamples);
}

void TestSiteTransmit::oneDatagramGoesOutPerFrameWhileTheSquelchIsOpenAndNoneWhileItIsClosed() {
    TestSite site;
    QVERIFY(site.bringUp());
    const FramesSent sent(site);
    QVERIFY(waitForCaptured(site, 50));
    QCOMPARE(sent.datagrams, 0);

    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return sent.datagrams > 0; }, 5000));
    const int datagramsBefore = sent.datagrams;
    const std::int64_t capturedBefore = site.card().framesCaptured();
    QVERIFY(waitForCaptured(site, 100));
    const int captured = int((site.card().framesCaptured() - capturedBefore) / frameSamples);
    // The last ones may still be on their way.
    VERIFY_BETWEEN(sent.datagrams - datagramsBefore, captured - 3, captured + 3);
    site.board().setSquelch(false);
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
    // The first one may be there before TX_START, which goes another way.
    VERIFY_BETWEEN(sent.datagrams - sent.frames.size(), 0, 1);

    const int datagramsAfter = sent.datagrams;
    QVERIFY(waitForCaptured(site, 50));
    QCOMPARE(sent.datagrams, datagramsAfter);
}

void TestSiteTransmit::theFirstFrameLeavesWithoutDelay() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    site.card().feed(tone(toneHertz, -10, 60));
    QVERIFY(waitForCaptured(site, 20)); // whatever silence the card still held has been read
    std::vector<double> delays;
    // The best of several: how soon it can be, on a machine that has other things to do.
    for (int turn = 0; turn < 8; ++turn) {
        QVERIFY(waitForCaptured(site, 10)); // the tone is there, and the last turn's frames have all come
        member->forgetHeard();
        site.board().setSquelch(true);
        const std::int64_t openedNs = monotonicNs();
        QVERIFY(Site::waitFor([&] { return member->heard().size() >= 2; }, 5000));
        const RoomMember::Heard first = member->heard().front();
        delays.push_back(secondsBetween(openedNs, first.timeNs));
        // It carries sound: Opus looks 6.5 ms ahead and comes to its level, 3 dB below the sine's peak, within the
        // frame. It may overshoot, since the encoder starts anew and the member's decoder does not.
        VERIFY_BETWEEN(rmsDbfs({first.samples.data() + frameSamples / 2, frameSamples / 2}), -18.0, -6.0);
        site.board().setSquelch(false);
        QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
    }
    // A frame lasts 20 ms, and the card is asked every 10.
    VERIFY_BETWEEN(*std::min_element(delays.begin(), delays.end()), 0.0, 0.04);
}

void TestSiteTransmit::aFlappingSquelchStartsAndStopsInTurnAndEndsReleased() {
    constexpr int atOnce = 50;
    constexpr int oneByOne = 20;
    TestSite site;
    QVERIFY(site.bringUp());
    const FramesSent sent(site);
    site.card().feed(tone(toneHertz, -10, 60));
    site.board().sendRaw(QByteArray("COS:1\r\nCOS:0\r\n").repeated(atOnce));
    QVERIFY(site.waitForSent("TX_STOP"_s, 10000, atOnce));
    for (int turn = 1; turn <= oneByOne; ++turn) {
        site.board().setSquelch(true);
        QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
        site.board().setSquelch(false);
        QVERIFY(site.waitForSent("TX_STOP"_s, 5000, atOnce + turn));
    }
    QCOMPARE(site.sent("TX_"_s).size(), 2 * (atOnce + oneByOne));
    QVERIFY(isTurnByTurn(site.sent("TX_"_s)));
    QVERIFY(!site.server().isTalking(site.gateway()));
    QVERIFY(site.waitForStatus("transmitting", false));
    const int datagrams = sent.datagrams;
    QVERIFY(waitForCaptured(site, 25));
    QCOMPARE(sent.datagrams, datagrams);

    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    const Pcm heard = undisturbed(site, [&] { return heardInRoom(site, *member, 40); });
    VERIFY_TONE(middle(heard), toneHertz, -10);
}

SITE_TEST_MAIN(TestSiteTransmit)
#include "tst_SiteTransmit.moc"
