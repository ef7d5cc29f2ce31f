#include "Hearing.h"
#include "Processor.h"

#include <limits>

using namespace sim;

namespace {

constexpr double radioHertz = 1013, roomHertz = 713; // broken numbers of waves per frame
constexpr int maxInt = std::numeric_limits<int>::max();

struct Numbers {
    int rateHz, bitrate, frameMs, complexity;
};
const Numbers usual = {48000, 32000, 20, 5};

} // namespace

/// The server dictates how sound is coded, in the midst of it.
class TestSiteQuality : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void soundGoesOnAfterAChangeInTheMidstOfIt_data();
    void soundGoesOnAfterAChangeInTheMidstOfIt();
    void theSameNumbersAgainAreNoChange();
    void senselessNumbersAreSurvivedAndTheNextOnesHeal();

private:
    bool announce(const QString &preset, const Numbers &numbers);
    QString complaintAboutTheRoad();

    std::unique_ptr<TestSite> m_site;
    std::unique_ptr<RoomMember> m_member;
};

void TestSiteQuality::init() {
    m_site = std::make_unique<TestSite>();
    m_member = m_site->bringUpWithMember();
    QVERIFY(m_member);
}

void TestSiteQuality::cleanup() {
    m_member.reset();
    m_site.reset();
}

/// Until the gateway has taken it.
bool TestSiteQuality::announce(const QString &preset, const Numbers &numbers) {
    m_site->server().announceQuality(preset, numbers.bitrate, numbers.rateHz, numbers.frameMs, numbers.complexity);
    const QString told = QStringLiteral("[Audio] Kualitas audio diubah: preset: \"%1\" | SR: %2 | BR: %3 | fd: %4 ms")
                             .arg(preset)
                             .arg(numbers.rateHz)
                             .arg(numbers.bitrate)
                             .arg(numbers.frameMs);
    const QString done = QStringLiteral("[Audio] Quality change → SR: %1 BR: %2 fd: %3 ms")
                             .arg(numbers.rateHz)
                             .arg(numbers.bitrate)
                             .arg(numbers.frameMs);
    return m_site->waitForLine("info"_s, told, 5000) && m_site->waitForLine("info"_s, done, 1000);
}

/// What is wrong with a tone each way; empty when nothing is.
QString TestSiteQuality::complaintAboutTheRoad() {
    Site::waitFor([&] { return m_site->card().isCaptureOpen() && m_site->card().isPlaybackOpen(); }, 5000);
    m_site->card().feed(tone(radioHertz, -10, 20));
    const Pcm heard = undisturbed(*m_site, [&] { return heardInRoom(*m_site, *m_member, 40); });
    m_site->card().clearFeed();
    const Pcm onAir = undisturbed(*m_site, [&] { return heardOnAir(*m_site, *m_member, tone(roomHertz, -10, 1.5)); });
    return complaintAbout(middle(heard), radioHertz, -10) + complaintAbout(middle(onAir), roomHertz, -10);
}

void TestSiteQuality::soundGoesOnAfterAChangeInTheMidstOfIt_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("bitrate");
    QTest::addColumn<int>("frameMs");
    QTest::addColumn<QString>("ratio"); // of the card's 48000
    QTest::newRow("16000 Hz") << 16000 << 24000 << 20 << "3.00"_s;
    QTest::newRow("longer frames") << 24000 << 24000 << 40 << "2.00"_s;
}

void TestSiteQuality::soundGoesOnAfterAChangeInTheMidstOfIt() {
    QFETCH(int, rateHz);
    QFETCH(int, bitrate);
    QFETCH(int, frameMs);
    QFETCH(QString, ratio);
    // Both ways at once.
    m_site->card().feed(tone(radioHertz, -10, 60));
    m_site->board().setSquelch(true);
    m_member->speak(tone(roomHertz, -10, 30));
    QVERIFY(Site::waitFor([&] { return m_member->heard().size() >= 25; }, 5000));
    QVERIFY(m_site->waitForLog("serverSR: 48000 | outputRate: 48000 | ratio: 1.00"_s, 5000));

    const std::int64_t changedNs = monotonicNs();
    QVERIFY(announce("lain"_s, {rateHz, bitrate, frameMs, 5}));
    QVERIFY(m_site->waitForLog(QStringLiteral("serverSR: %1 | outputRate: 48000 | ratio: %2").arg(rateHz).arg(ratio),
                               5000));
    QVERIFY(Site::waitFor([&] { return m_member->heard().back().timeNs > changedNs + 1'000'000'000; }, 10000));
    QCOMPARE(int(m_member->heard().back().samples.size()), 48 * frameMs);
    QVERIFY(m_site->server().isTalking(m_site->gateway()));
    QVERIFY(m_site->board().isKeyed());
    QCOMPARE(m_site->daemon().logged("[Audio] Decoder created userId: 200 SR:"_s).last(),
             QStringLiteral("[Audio] Decoder created userId: 200 SR: %1 | total: 1").arg(rateHz));
    m_member->stopTalking();
    m_site->board().setSquelch(false);
    m_site->card().clearFeed();
    QVERIFY(Site::waitFor([&] { return !m_site->board().isKeyed(); }, 5000));
    QCOMPARE(complaintAboutTheRoad(), QString());

    QVERIFY(announce("standard"_s, usual));
    QCOMPARE(complaintAboutTheRoad(), QString());
    QCOMPARE(m_site->readState("kivo-server-info.json"_s).object(), (QJsonObject{{"codec"_s, "Opus"_s},
                                                                                 {"preset"_s, "standard"_s},
                                                                                 {"sample_rate"_s, 48000},
                                                                                 {"bitrate"_s, 32000},
                                                                                 {"frame_duration"_s, 20}}));
}

void TestSiteQuality::theSameNumbersAgainAreNoChange() {
    QVERIFY(announce("standard"_s, usual));
    m_site->server().announceQuality("lain"_s, usual.bitrate, usual.rateHz, usual.frameMs, 9);
    const auto preset = [&] { return m_site->readState("kivo-server-info.json"_s).object().value("preset"_s); };
    QVERIFY(Site::waitFor([&] { return preset() == "lain"_s; }, 5000));
    QCOMPARE(m_site->daemon().logged("[Audio] Kualitas audio diubah:"_s).size(), 1);
    QCOMPARE(m_site->daemon().logged("[Audio] Quality change"_s).size(), 1);
}

void TestSiteQuality::senselessNumbersAreSurvivedAndTheNextOnesHeal() {
    const Numbers senseless[] = {
        {0, 0, 0, 0},
        {-48000, -32000, -20, -5},
        {48000, 32000, maxInt, 5},
        {maxInt, maxInt, maxInt, maxInt},
        {44100, 32000, 20, 5},
        {1, 1, 1, 1},
        {std::numeric_limits<int>::min(), std::numeric_limits<int>::min(), std::numeric_limits<int>::min(), 0},
    };
    QVERIFY(announce("standard"_s, usual)); // noughts are what no announcement counts as
    const int megabytes = mostMegabytesOf(m_site->daemon());
    const QString vuFile = sitePaths().appliance + "/tmp/kivo-vu.json"_s;
    const auto written = [&] { return QFileInfo(vuFile).lastModified(); };
    m_site->card().feed(tone(radioHertz, -10, 60));
    m_site->board().setSquelch(true);
    m_member->speak(tone(roomHertz, -10, 30));
    QVERIFY(Site::waitFor([&] { return m_site->board().isKeyed(); }, 5000));
    for (const Numbers &numbers : senseless) {
        m_site->daemon().forgetLog();
        QVERIFY(announce("aneh"_s, numbers));
        // The loop runs: five times a second the levels are written.
        for (int turn = 0; turn < 3; ++turn) {
            const QDateTime before = written();
            QVERIFY(Site::waitFor([&] { return written() > before; }, 1000));
        }
    }
    QVERIFY(m_site->daemon().isRunning());
    VERIFY_BETWEEN(mostMegabytesOf(m_site->daemon()), 1, megabytes + 8);
    m_member->stopTalking();
    m_site->board().setSquelch(false);
    m_site->card().clearFeed();
    QVERIFY(Site::waitFor([&] { return !m_site->board().isKeyed(); }, 5000));
    QVERIFY(announce("standard"_s, usual));
    QCOMPARE(complaintAboutTheRoad(), QString());
}

SITE_TEST_MAIN(TestSiteQuality)
#include "tst_SiteQuality.moc"
