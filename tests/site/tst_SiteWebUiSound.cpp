#include "Hearing.h"

#include <QRegularExpression>

using namespace sim;

/// What the Web UI does to the sound, and what it shows of it.
class TestSiteWebUiSound : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theEmergencyStopEndsTheTransmission();
    void theLevelsFollowATone_data();
    void theLevelsFollowATone();
    void aMutedSpeakerIsNeverKeyedAndComesBackKeyed();
    void aMutedMicrophoneSendsNothing();
    void aGainTakesEffectAtOnceAndIsSavedWithTheNextSetting();
};

void TestSiteWebUiSound::theEmergencyStopEndsTheTransmission() {
    TestSite site;
    QVERIFY(site.bringUp());
    int frames = 0;
    QObject::connect(&site.server(), &VoiceServer::datagramReceived, &site.server(),
                     [&](const QByteArray &datagram) { frames += datagram.startsWith("KEEPALIVE") ? 0 : 1; });
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return frames >= 25; }, 5000));
    QVERIFY(site.waitForStatus("transmitting", true));
    const int heard = site.board().linesHeard().size();
    site.dropFile("kivo-cmd-stop.json"_s, R"({"action":"tx_stop_emergency"})");
    QVERIFY(site.waitForLog("siap shutdown"_s, 2000));
    // The state is there before the line that lets the machine go down.
    QCOMPARE(site.status("transmitting"), QJsonValue(false));
    QVERIFY(site.logsOnce("warning"_s, "[Appliance] EMERGENCY TX_STOP before shutdown"_s));
    QVERIFY(site.logsOnce("info"_s, "[TX] Emergency TX_STOP — siap shutdown"_s));
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 2000));
    QCOMPARE(site.sent("TX_"_s), (QStringList{"TX_START \"Lobby\""_s, "TX_STOP \"Lobby\""_s}));
    QVERIFY(Site::waitFor([&] { return site.board().linesHeard().mid(heard).contains("PTT:0"); }, 2000));
    const int framesThen = frames;
    const std::int64_t captured = site.card().framesCaptured();
    QVERIFY(Site::waitFor([&] { return site.card().framesCaptured() > captured + 24000; }, 5000));
    QCOMPARE(frames, framesThen);
}

void TestSiteWebUiSound::theLevelsFollowATone_data() {
    QTest::addColumn<double>("peakDbfs");
    QTest::addColumn<int>("level"); // (peak - 3.01 + 50) * 2, truncated, 0..100
    QTest::newRow("loud") << -10.24 << 73;
    QTest::newRow("middling") << -20.24 << 53;
    QTest::newRow("faint") << -40.24 << 13;
    QTest::newRow("too faint") << -50.0 << 0;
}

void TestSiteWebUiSound::theLevelsFollowATone() {
    QFETCH(double, peakDbfs);
    QFETCH(int, level);
    TestSite site;
    QVERIFY(site.bringUp());
    QVector<int> inputs, outputs;
    const auto look = [&] {
        QFile file(sitePaths().appliance + "/tmp/kivo-vu.json"_s);
        if (!file.open(QIODevice::ReadOnly))
            return;
        static const QRegularExpression form("^\\{\"input\":(\\d+),\"output\":(\\d+)\\}\n$"_s);
        const auto match = form.match(QString::fromUtf8(file.readAll()));
        if (!match.hasMatch())
            return; // in the midst of being written
        inputs.append(match.captured(1).toInt());
        outputs.append(match.captured(2).toInt());
    };
    const auto most = [](const QVector<int> &levels) { return *std::max_element(levels.begin(), levels.end()); };
    Site::waitFor([&] { return look(), !inputs.isEmpty(); }, 5000);
    QCOMPARE(most(inputs), 0);
    // A meter falls by 5 at every tick of 20 ms, which is before or after a look at it.
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    site.card().feed(tone(1000, peakDbfs, 5));
    member->speak(tone(700, peakDbfs, 3));
    const std::int64_t fromNs = monotonicNs();
    Site::waitFor([&] { return look(), secondsBetween(fromNs, monotonicNs()) > 2.5; }, 5000);
    const int fallen = std::max(level - 5, 0);
    QVERIFY2(most(inputs) == level || most(inputs) == fallen, QByteArray::number(most(inputs)));
    VERIFY_BETWEEN(most(outputs), fallen - 1, level + 1); // the codec is no more exact than that
    // And back down.
    site.card().clearFeed();
    QVERIFY(Site::waitFor([&] { return look(), inputs.last() == 0 && outputs.last() == 0; }, 10000));
}

void TestSiteWebUiSound::aMutedSpeakerIsNeverKeyedAndComesBackKeyed() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    member->speak(tone(700, -10, 20));
    QVERIFY(Site::waitFor([&] { return site.board().isKeyed(); }, 5000));
    site.dropFile("kivo-cmd-1.json"_s, R"({"action":"mute_spk"})");
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 2000));
    QVERIFY(site.waitForLine("info"_s, "[TX] PTT dimatikan — speaker muted"_s, 1000));
    QVERIFY(site.waitForStatus("muted_spk", true));
    member->stopTalking();
    member->speak(tone(700, -10, 20));
    QVERIFY(Site::waitFor([&] { return site.server().isTalking("EF2GH"_s); }, 2000));
    // Half a second to play out, half a second of nothing.
    const std::int64_t talkingNs = monotonicNs();
    QVERIFY(Site::waitFor([&] { return secondsBetween(talkingNs, monotonicNs()) > 1.0; }, 2000));
    QVERIFY(!site.board().isKeyed());
    QCOMPARE(rmsDbfs(site.card().played(talkingNs + 500'000'000, monotonicNs()).samples), silenceDbfs);

    site.dropFile("kivo-cmd-2.json"_s, R"({"action":"unmute_spk"})");
    QVERIFY(Site::waitFor([&] { return site.board().isKeyed(); }, 2000));
    QVERIFY(site.waitForLine("info"_s, "[TX] PTT diaktifkan kembali — speaker unmuted"_s, 1000));
    QVERIFY(site.waitForStatus("muted_spk", false));
    member->stopTalking();
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 2000));

    // Nobody talks: nothing to key for.
    site.dropFile("kivo-cmd-3.json"_s, R"({"action":"mute_spk"})");
    QVERIFY(site.waitForStatus("muted_spk", true));
    site.dropFile("kivo-cmd-4.json"_s, R"({"action":"unmute_spk"})");
    QVERIFY(site.waitForStatus("muted_spk", false));
    QVERIFY(!site.board().isKeyed());
    QCOMPARE(site.daemon().logged("PTT diaktifkan kembali"_s).size(), 1);
}

void TestSiteWebUiSound::aMutedMicrophoneSendsNothing() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    site.card().feed(tone(1013, -10, 30));
    site.dropFile("kivo-cmd-1.json"_s, R"({"action":"mute_mic"})");
    QVERIFY(site.waitForStatus("muted_mic", true));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
    QVERIFY(site.waitForStatus("transmitting", true));
    site.dropFile("kivo-cmd-2.json"_s, R"({"action":"unmute_mic"})");
    QCOMPARE(int(member->heard().size()), 0);
    QVERIFY(Site::waitFor([&] { return member->heard().size() >= 25; }, 5000));
    QVERIFY(site.waitForStatus("muted_mic", false));
}

void TestSiteWebUiSound::aGainTakesEffectAtOnceAndIsSavedWithTheNextSetting() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved to config.json"_s, 5000)); // the last of the login's own
    site.card().feed(tone(1013, -20, 30));
    site.dropFile("kivo-cmd-1.json"_s, R"({"action":"set_mic_gain","value":350})");
    QVERIFY(site.waitForLine("debug"_s, "[Appliance] Mic gain set to 350"_s, 2000));
    const Pcm heard = undisturbed(site, [&] { return heardInRoom(site, *member, 40); });
    VERIFY_TONE(middle(heard), 1013, -13.98); // no more than double
    QCOMPARE(site.readConfig().value("mic_gain"_s), QJsonValue(100));
    site.dropFile("kivo-cmd-2.json"_s, R"({"action":"set_tot","value":75})");
    QVERIFY(site.waitForLine("info"_s, "[TOT] Duration set to 0 seconds (unlimited)"_s, 2000));
    QVERIFY(Site::waitFor([&] { return site.readConfig().value("mic_gain"_s) == QJsonValue(200); }, 2000));
    QCOMPARE(site.readConfig().value("tot_duration"_s), QJsonValue(0));
}

SITE_TEST_MAIN(TestSiteWebUiSound)
#include "tst_SiteWebUiSound.moc"
