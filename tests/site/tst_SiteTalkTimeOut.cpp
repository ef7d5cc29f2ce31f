#include "Hearing.h"

using namespace sim;

namespace {

const QString toneFile = "/opt/kivo-appliance/sounds/tot_warning.wav"_s;
const QString started = "[TOT] Timer started:"_s;

/// The log's "[TOT]" lines, their level in front.
QStringList totLines(TestSite &site) {
    QStringList lines;
    for (const LogLine &line : site.daemon().log()) {
        if (line.text.startsWith("[TOT]"_s))
            lines.append(line.level + QLatin1Char(' ') + line.text);
    }
    return lines;
}

/// Where the sound of that frequency is on the air, in pieces of 10 ms, to be followed over time.
std::vector<bool> heardAt(const Pcm &onAir, double hz, double aboveDbfs) {
    std::vector<bool> heard;
    for (double at = 0; at + 0.01 <= onAir.seconds(); at += 0.01)
        heard.push_back(toneLevelDbfs(slice(onAir, at, at + 0.01), hz) > aboveDbfs);
    return heard;
}

/// Lengths of the stretches in which it is heard, in pieces.
std::vector<int> stretches(const std::vector<bool> &heard) {
    std::vector<int> lengths;
    bool wasHeard = false;
    for (const bool isHeard : heard) {
        if (isHeard && !wasHeard)
            lengths.push_back(0);
        if (isHeard)
            ++lengths.back();
        wasHeard = isHeard;
    }
    return lengths;
}

} // namespace

/// A talker who talks too long.
class TestSiteTalkTimeOut : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theTalkerIsWarnedThenCutOffAndHisNextPacketStartsOver();
    void aToneFileIsPlayedInPlaceOfTheBeeps();
    void aShortLimitComesWithoutAWarning();
};

void TestSiteTalkTimeOut::theTalkerIsWarnedThenCutOffAndHisNextPacketStartsOver() {
    constexpr double speechHertz = 413;
    constexpr double beepHertz = 880;
    TestSite site;
    site.writeConfig({{"tot_duration"_s, 12}});
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    member->speak(tone(speechHertz, -30, 20));
    QVERIFY(Site::waitFor([&] { return site.board().isKeyed(); }, 5000));
    QVERIFY(site.waitForLine("info"_s, "[TOT] Warning tone sintetis 880Hz, 3 beep, 90% vol"_s, 10000));
    const std::int64_t warnedNs = site.timeLogged("[TOT] Warning — "_s);
    VERIFY_BETWEEN(secondsBetween(site.timeLogged(started), warnedNs), 1.95, 2.6);
    QVERIFY(site.board().isKeyed());

    // Up to half a second of speech is in the device before it: three beeps of 150 ms, 0.9 of full scale.
    QVERIFY(Site::waitFor([&] { return secondsBetween(warnedNs, monotonicNs()) > 2.0; }, 3000));
    const Pcm onAir = site.card().played(warnedNs, monotonicNs());
    const std::vector<int> beeps = stretches(heardAt(onAir, beepHertz, -20));
    QCOMPARE(int(beeps.size()), 3);
    for (const int pieces : beeps)
        VERIFY_BETWEEN(pieces, 14, 16);
    const std::vector<bool> loud = heardAt(onAir, beepHertz, -1.5); // 20 log10(0.9) is -0.92
    QCOMPARE(int(stretches(loud).size()), 3);
    const auto first = double(std::find(loud.begin(), loud.end(), true) - loud.begin()) / 100.0;
    VERIFY_BETWEEN(toneHz(slice(onAir, first, first + 0.12)), 877, 883);

    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 15000));
    const std::int64_t unkeyedNs = site.board().keyings().back().timeNs;
    QVERIFY(member->isSpeaking());
    VERIFY_BETWEEN(secondsBetween(site.timeLogged(started), unkeyedNs), 11.9, 12.7);

    // What he says next is timed anew and played again, but the transmitter waits for the next list.
    QVERIFY(Site::waitFor([&] { return site.daemon().logged(started).size() == 2; }, 3000));
    QCOMPARE(totLines(site), (QStringList{
                                 "info [TOT] Timer started: 12 s untuk userId 200"_s,
                                 "info [TOT] Warning — 10 detik lagi downlink di-mute (userId 200 )"_s,
                                 "info [TOT] File WAV tidak ditemukan, pakai tone sintetis: \""_s + toneFile + u'"',
                                 "info [TOT] Warning tone sintetis 880Hz, 3 beep, 90% vol"_s,
                                 "info [TOT] Batas waktu tercapai ( 12 s) — downlink di-mute untuk userId 200"_s,
                                 "info [TOT] PTT dimatikan — downlink di-mute oleh TOT"_s,
                                 "info [TOT] Timer started: 12 s untuk userId 200"_s,
                             }));
    const std::int64_t againNs = site.timeLogged(started, warnedNs + 5'000'000'000);
    QVERIFY(Site::waitFor([&] { return secondsBetween(againNs, monotonicNs()) > 1.5; }, 3000));
    const Pcm after = site.card().played(againNs + 900'000'000, againNs + 1'400'000'000);
    VERIFY_BETWEEN(toneLevelDbfs(after, speechHertz), -31, -29);
    QVERIFY(!site.board().isKeyed());
    QVERIFY(member->isSpeaking());
    member->stopTalking();
    QVERIFY(site.keysFor(*member));
}

void TestSiteTalkTimeOut::aToneFileIsPlayedInPlaceOfTheBeeps() {
    constexpr double fileHertz = 1500;
    TestSite site;
    site.writeConfig({{"tot_duration"_s, 11}});
    QVERIFY(writeWav(toneFile, tone(fileHertz, -20, 0.4, 44100)));
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    member->speak(tone(413, -40, 4));
    QVERIFY(site.waitForLog("[TOT] Warning tone dari WAV: \""_s + toneFile + u'"', 10000));
    const std::int64_t warnedNs = site.timeLogged("[TOT] Warning — "_s);
    VERIFY_BETWEEN(secondsBetween(site.timeLogged(started), warnedNs), 0.95, 1.6);
    // 0.4 s at the device's rate are 19200 samples.
    QCOMPARE(totLines(site).mid(2, 2), (QStringList{"info [TOT] WAV resampled 44100 -> 48000"_s,
                                                    "info [TOT] Warning tone dari WAV: \""_s + toneFile +
                                                        "\" | SR: 44100 | ch: 1 | size: 38400 bytes | boost: 4 x"_s}));
    QCOMPARE(site.daemon().logged("sintetis"_s), QStringList());
    QVERIFY(Site::waitFor([&] { return secondsBetween(warnedNs, monotonicNs()) > 1.6; }, 3000));
    const Pcm onAir = site.card().played(warnedNs, monotonicNs());
    const std::vector<bool> heard = heardAt(onAir, fileHertz, -20);
    QCOMPARE(int(stretches(heard).size()), 1);
    VERIFY_BETWEEN(stretches(heard).front(), 39, 41);
    const auto first = double(std::find(heard.begin(), heard.end(), true) - heard.begin()) / 100.0;
    // Four times as loud as in the file.
    VERIFY_BETWEEN(toneLevelDbfs(slice(onAir, first + 0.05, first + 0.35), fileHertz), -8.2, -7.7);
}

void TestSiteTalkTimeOut::aShortLimitComesWithoutAWarning() {
    TestSite site;
    site.writeConfig({{"tot_duration"_s, 2}});
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    member->speak(tone(413, -20, 5));
    QVERIFY(site.waitForLog("[TOT] PTT dimatikan"_s, 6000));
    VERIFY_BETWEEN(secondsBetween(site.timeLogged(started), site.timeLogged("[TOT] PTT dimatikan"_s)), 1.95, 2.6);
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 1000));
    QCOMPARE(totLines(site).mid(0, 3),
             (QStringList{"info [TOT] Timer started: 2 s untuk userId 200"_s,
                          "info [TOT] Batas waktu tercapai ( 2 s) — downlink di-mute untuk userId 200"_s,
                          "info [TOT] PTT dimatikan — downlink di-mute oleh TOT"_s}));
    // He goes on: his time runs again, but there is nothing left to release.
    const QString reached = "[TOT] Batas waktu"_s;
    QVERIFY(Site::waitFor([&] { return site.daemon().logged(reached).size() == 2; }, 6000));
    QVERIFY(site.waitForStatus("connected", true));
    QCOMPARE(site.daemon().logged("[TOT] PTT dimatikan"_s).size(), 1);
    QCOMPARE(site.board().linesHeard().count("PTT:0"), 1);
}

SITE_TEST_MAIN(TestSiteTalkTimeOut)
#include "tst_SiteTalkTimeOut.moc"
