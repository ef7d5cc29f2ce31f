#include "Hearing.h"
#include "sim/wire/SealedFrame.h"

#include <QRandomGenerator>

using namespace sim;

namespace {

constexpr double toneHertz = 713; // a broken number of waves per frame
const QByteArray lobbyKey(32, 'k');

/// The Opus packets of a sound.
QList<QByteArray> packetsOf(const Pcm &sound) {
    QList<QByteArray> packets;
    VoiceEncoder encoder;
    for (std::size_t at = 0; at + voiceFrameSamples <= sound.samples.size(); at += voiceFrameSamples)
        packets.append(encoder.encode({sound.samples.data() + at, voiceFrameSamples}));
    return packets;
}

/// Sends a frame every 20 ms, by turns from each of the talkers.
/// @param voices  sealed frames by talker id
void sendByTurns(TestSite &site, const QMap<quint32, QList<QByteArray>> &voices) {
    const std::int64_t beginNs = monotonicNs();
    const int count = voices.first().size() * voices.size();
    for (int i = 0; i < count; ++i) {
        Site::waitFor([&] { return monotonicNs() >= beginNs + i * std::int64_t(20'000'000); }, 1000);
        const auto voice = std::next(voices.begin(), i % voices.size());
        site.server().sendAudioTo(site.gateway(), voice.key(), voice->at(i / voices.size()));
    }
}

QList<QByteArray> sealedAll(QList<QByteArray> packets, const QByteArray &key) {
    for (QByteArray &packet : packets)
        packet = sealed(packet, key);
    return packets;
}

QByteArray noise(int bytes) {
    QByteArray random(bytes, Qt::Uninitialized);
    std::generate(random.begin(), random.end(), [] { return char(QRandomGenerator::global()->bounded(256)); });
    return random;
}

/// What the log has to say about sound, or against anything, after that many lines.
QStringList complaintsSince(TestSite &site, int lines) {
    QStringList texts;
    for (const LogLine &line : site.daemon().log().mid(lines)) {
        if (line.text.startsWith("[Audio]"_s) || line.level == "warning"_s)
            texts.append(line.text);
    }
    return texts;
}

} // namespace

/// From the room onto the air.
class TestSiteReceive : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theRadioSendsWhatTheRoomSays_data();
    void theRadioSendsWhatTheRoomSays();
    void aGainBelowNothingIsSilence();
    void automaticGainIsAsConfigured_data();
    void automaticGainIsAsConfigured();
    void theTransmitterFollowsTheList();
    void twoTalkersInterleavedAreEachHeardCleanly();
    void aForeignKeyIsSilenceWithoutAWord();
    void framesThatAreNoneAreSilenceWithoutAWord();
    void inClearOnlyWhatIsLongEnoughIsTakenForAudio();
};

void TestSiteReceive::theRadioSendsWhatTheRoomSays_data() {
    QTest::addColumn<int>("speakerGain");
    QTest::addColumn<double>("saidDbfs");
    QTest::addColumn<double>("onAirDbfs"); // said + 20 log10(gain / 100)
    QTest::newRow("as it is") << 100 << -10.0 << -10.0;
    QTest::newRow("quieter") << 50 << -10.0 << -16.02;
    QTest::newRow("louder") << 150 << -10.0 << -6.48;
    QTest::newRow("more than is offered") << 250 << -18.0 << -11.98; // as with 200
}

void TestSiteReceive::theRadioSendsWhatTheRoomSays() {
    QFETCH(int, speakerGain);
    QFETCH(double, saidDbfs);
    QFETCH(double, onAirDbfs);
    TestSite site;
    site.writeConfig({{"speaker_gain"_s, speakerGain}});
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    const Pcm onAir = undisturbed(site, [&] { return heardOnAir(site, *member, tone(toneHertz, saidDbfs, 2.0)); });
    VERIFY_BETWEEN(onAir.seconds(), 1.2, 2.1); // what is still under way when the talker ends is not sent
    VERIFY_TONE(middle(onAir), toneHertz, onAirDbfs);
    // It begins with five frames, or a few more when they come in a rush.
    const int bytes = bytesAtBeginning(site, "serverSR: 48000 | outputRate: 48000 | ratio: 1.00"_s);
    VERIFY_BETWEEN(bytes, 5 * 1920, 10 * 1920);
    QCOMPARE(bytes % 1920, 0);
    QVERIFY(site.logsOnce("info"_s, "[Audio] Decoder created userId: 200 SR: 48000 | total: 1"_s));
}

void TestSiteReceive::aGainBelowNothingIsSilence() {
    TestSite site;
    site.writeConfig({{"speaker_gain"_s, -5}});
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    const std::int64_t playedBefore = site.card().framesPlayed();
    const Pcm onAir = heardOnAir(site, *member, tone(toneHertz, -10, 1.0)); // what of it is not silence
    QVERIFY(site.logsOnce("info"_s, "[Audio] Decoder created userId: 200 SR: 48000 | total: 1"_s));
    QVERIFY(site.card().framesPlayed() > playedBefore);
    QCOMPARE(onAir.samples.size(), std::size_t(0));
}

void TestSiteReceive::automaticGainIsAsConfigured_data() {
    QTest::addColumn<QJsonValue>("enabled");
    QTest::addColumn<double>("onAirDbfs");
    QTest::newRow("on") << QJsonValue(true) << -9.03; // an RMS of 8192, 20 log10(8192 sqrt(2) / 32768)
    QTest::newRow("off") << QJsonValue(false) << -3.0;
    QTest::newRow("of another type") << QJsonValue("true"_s) << -3.0;
}

void TestSiteReceive::automaticGainIsAsConfigured() {
    QFETCH(QJsonValue, enabled);
    QFETCH(double, onAirDbfs);
    TestSite site;
    site.writeConfig({{"agc_enabled"_s, enabled}});
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    const Pcm onAir = undisturbed(site, [&] { return heardOnAir(site, *member, tone(toneHertz, -3, 2.0)); });
    VERIFY_TONE(middle(onAir), toneHertz, onAirDbfs);
}

void TestSiteReceive::theTransmitterFollowsTheList() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    for (int turn = 1; turn <= 3; ++turn) {
        QVERIFY(site.keysFor(*member));
        QVERIFY(Site::waitFor([&] { return site.countLines("info"_s, "[TX] \"EF2GH\" TX"_s) == turn; }, 1000));
        member->stopTalking();
        QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 5000));
        QVERIFY(Site::waitFor([&] { return site.countLines("info"_s, "[TX] \"EF2GH\" RX"_s) == turn; }, 5000));
    }
    QCOMPARE(site.board().linesHeard().count("PTT:1"), 3);
    QCOMPARE(site.board().linesHeard().count("PTT:0"), 3);

    // A talker who goes without a word is no longer in the list.
    QVERIFY(site.keysFor(*member));
    member->disconnectFromServer();
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 5000));
}

void TestSiteReceive::twoTalkersInterleavedAreEachHeardCleanly() {
    constexpr double lowHertz = 700, highHertz = 1500; // whole waves per frame: each stays in phase over the other's
    TestSite site;
    site.server().setRoomKey("Lobby"_s, lobbyKey);
    QVERIFY(site.bringUp());
    const QMap<quint32, QList<QByteArray>> voices = {
        {200, sealedAll(packetsOf(tone(lowHertz, -10, 1.0)), lobbyKey)},
        {201, sealedAll(packetsOf(tone(highHertz, -10, 1.0)), lobbyKey)},
    };
    const Pcm onAir = undisturbed(site, [&] {
        const std::int64_t fromNs = monotonicNs();
        sendByTurns(site, voices);
        return site.card().played(fromNs, monotonicNs());
    });
    QVERIFY(site.logsOnce("info"_s, "[Audio] Decoder created userId: 200 SR: 48000 | total: 1"_s));
    QVERIFY(site.logsOnce("info"_s, "[Audio] Decoder created userId: 201 SR: 48000 | total: 2"_s));
    // Each is on the air for half of the time: 6.02 dB less of its tone, a quarter of its power as its own line, and
    // between the two of them a quarter each of all there is.
    const Pcm heard = slice(onAir, onAir.seconds() - 1.2, onAir.seconds() - 0.2);
    VERIFY_BETWEEN(toneLevelDbfs(heard, lowHertz), -16.52, -15.52);
    VERIFY_BETWEEN(toneLevelDbfs(heard, highHertz), -16.52, -15.52);
    VERIFY_BETWEEN(toneShare(heard, lowHertz), 0.23, 0.26);
    VERIFY_BETWEEN(toneShare(heard, highHertz), 0.23, 0.26);
    VERIFY_BETWEEN(longestGapMs(heard, -20), 0.0, 2.0);
}

void TestSiteReceive::aForeignKeyIsSilenceWithoutAWord() {
    TestSite site;
    QVERIFY(site.bringUp());
    site.server().setRoomKey("Lobby"_s, lobbyKey); // for those who join from now on
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    const int lines = site.daemon().log().size();
    const std::int64_t fromNs = monotonicNs();
    member->speak(tone(toneHertz, -10, 1.5));
    QVERIFY(Site::waitFor([&] { return site.board().isKeyed(); }, 5000));
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 10000));
    QVERIFY(site.waitForStatus("connected", true));
    QCOMPARE(rmsDbfs(site.card().played(fromNs, monotonicNs()).samples), silenceDbfs);
    QCOMPARE(complaintsSince(site, lines), QStringList());
}

void TestSiteReceive::framesThatAreNoneAreSilenceWithoutAWord() {
    TestSite site;
    site.server().setRoomKey("Lobby"_s, lobbyKey);
    QVERIFY(site.bringUp());
    const int lines = site.daemon().log().size();
    const std::int64_t fromNs = monotonicNs();
    for (const int bytes : {1, 8, 9, 10, 39, 40, 41, 100, 1400, 8000}) {
        site.server().sendAudioTo(site.gateway(), 200, noise(bytes));
        site.server().sendAudioTo(site.gateway(), 0, noise(bytes));
    }
    QByteArray bent = sealed(packetsOf(tone(toneHertz, -10, 0.02)).first(), lobbyKey);
    bent[bent.size() / 2] = char(bent.at(bent.size() / 2) ^ 1);
    site.server().sendAudioTo(site.gateway(), 200, bent);
    site.server().sendAudioTo(site.gateway(), 200, sealed({}, lobbyKey)); // 40 bytes, nothing in them

    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    QCOMPARE(complaintsSince(site, lines), QStringList());
    QCOMPARE(rmsDbfs(site.card().played(fromNs, monotonicNs()).samples), silenceDbfs);
    const Pcm onAir = undisturbed(site, [&] { return heardOnAir(site, *member, tone(toneHertz, -10, 1.5)); });
    VERIFY_TONE(middle(onAir), toneHertz, -10);
}

void TestSiteReceive::inClearOnlyWhatIsLongEnoughIsTakenForAudio() {
    TestSite site;
    site.server().setRoomKey("Lobby"_s, {});
    QVERIFY(site.bringUp());
    const QByteArray wrong(10, '\xff'); // announces 63 frames and holds none
    site.server().sendAudioTo(site.gateway(), 77, wrong.left(9));
    site.server().sendAudioTo(site.gateway(), 78, wrong);
    QVERIFY(site.waitForLine("warning"_s, "[Audio] Decode err userId 78 : corrupted stream"_s, 5000));
    QVERIFY(site.logsOnce("info"_s, "[Audio] Decoder created userId: 78 SR: 48000 | total: 1"_s));
    QCOMPARE(site.daemon().logged("userId: 77"_s), QStringList());
    for (int i = 0; i < 60; ++i)
        site.server().sendAudioTo(site.gateway(), quint32(1000 + i), noise(10 + i * 20));
    QVERIFY(Site::waitFor([&] { return site.daemon().logged("Decoder created"_s).size() == 61; }, 5000));
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    heardOnAir(site, *member, tone(toneHertz, -10, 0.5)); // behind whatever of all that happened to be sound
    const Pcm onAir = undisturbed(site, [&] { return heardOnAir(site, *member, tone(toneHertz, -10, 1.5)); });
    VERIFY_TONE(middle(onAir), toneHertz, -10);
}

SITE_TEST_MAIN(TestSiteReceive)
#include "tst_SiteReceive.moc"
