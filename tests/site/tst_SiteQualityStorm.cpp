#include "Hearing.h"
#include "Measured.h"

#include <limits>

using namespace sim;

namespace {

constexpr double radioHertz = 1013, roomHertz = 713; // broken numbers of waves per frame
constexpr int maxInt = std::numeric_limits<int>::max(), minInt = std::numeric_limits<int>::min();

} // namespace

/// Announcements of qualities that no codec can run, and of more than anybody can follow, while both sides talk.
class TestSiteQualityStorm : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup() { m_site->showLogOfFailure(); }
    void theSquelchIsAnsweredPromptly_data();
    void theSquelchIsAnsweredPromptly();
    void theRadioIsReleasedPromptly();
    void aThousandChangesAreSurvived();
    void theNextSaneAnnouncementHeals();
    void cleanupTestCase();

private:
    std::unique_ptr<TestSite> m_site;
    std::unique_ptr<RoomMember> m_member;
    std::unique_ptr<Expense> m_expense;
};

void TestSiteQualityStorm::initTestCase() {
    m_site = std::make_unique<TestSite>();
    m_member = m_site->bringUpWithMember();
    QVERIFY(m_member);
    m_expense = std::make_unique<Expense>(*m_site);
    m_member->speak(tone(roomHertz, -10, 60));
    QVERIFY(Site::waitFor([&] { return m_site->board().isKeyed(); }, 5000));
}

void TestSiteQualityStorm::cleanupTestCase() {
    m_expense.reset();
    m_member.reset();
    m_site.reset();
}

void TestSiteQualityStorm::theSquelchIsAnsweredPromptly_data() {
    QTest::addColumn<int>("rateHz");
    QTest::addColumn<int>("bitrate");
    QTest::addColumn<int>("frameMs");
    QTest::addColumn<int>("complexity");
    QTest::newRow("nothing at all") << 0 << 0 << 0 << 0;
    QTest::newRow("less than nothing") << -48000 << -32000 << -20 << -5;
    QTest::newRow("a frame of 24 days") << 48000 << 32000 << maxInt << 5;
    QTest::newRow("the most of everything") << maxInt << maxInt << maxInt << maxInt;
    QTest::newRow("the least of everything") << minInt << minInt << minInt << minInt;
    QTest::newRow("a rate of 2 GHz") << maxInt << 32000 << 20 << 5;
    QTest::newRow("a rate of 1 Hz") << 1 << 32000 << 20 << 5;
    QTest::newRow("no rate of Opus") << 44100 << 32000 << 20 << 5;
    QTest::newRow("frames of 1 ms") << 48000 << 32000 << 1 << 5;
    QTest::newRow("frames of 119 ms") << 48000 << 32000 << 119 << 5;
    QTest::newRow("no bits") << 48000 << 0 << 20 << 5;
}

void TestSiteQualityStorm::theSquelchIsAnsweredPromptly() {
    QFETCH(int, rateHz);
    QFETCH(int, bitrate);
    QFETCH(int, frameMs);
    QFETCH(int, complexity);
    m_site->daemon().forgetLog();
    m_site->server().announceQuality("aneh"_s, bitrate, rateHz, frameMs, complexity);
    const std::int64_t beginNs = monotonicNs();
    double slowest = 0;
    // Before, while and after the devices are opened anew, 100 ms later.
    for (int turn = 0; turn < 8; ++turn) {
        const bool open = turn % 2 == 0;
        const std::int64_t saidNs = monotonicNs();
        m_site->board().setSquelch(open);
        QVERIFY(Site::waitFor([&] { return m_site->server().isTalking(m_site->gateway()) == open; }, 2000));
        slowest = std::max(slowest, secondsBetween(saidNs, monotonicNs()));
        letPass(0.05);
    }
    tellMeasured("the slowest answer to the squelch", slowest * 1e3, "ms");
    VERIFY_BETWEEN(slowest, 0.0, 1.0);
    VERIFY_BETWEEN(secondsBetween(beginNs, monotonicNs()), 0.4, 4.0);
    VERIFY_MEMORY(*m_expense, 4096);
    VERIFY_BETWEEN(m_expense->load(), 0.001, 0.5);
}

void TestSiteQualityStorm::theRadioIsReleasedPromptly() {
    m_site->server().announceQuality("aneh"_s, 32000, 48000, maxInt, 5);
    const std::int64_t endNs = monotonicNs();
    m_member->stopTalking();
    QVERIFY(Site::waitFor([&] { return !m_site->board().isKeyed(); }, 2000));
    const double release = secondsBetween(endNs, m_site->board().keyings().back().timeNs);
    tellMeasured("transmitter released", release * 1e3, "ms after the talk");
    VERIFY_BETWEEN(release, 0.0, 1.0);
}

void TestSiteQualityStorm::aThousandChangesAreSurvived() {
    const std::int64_t beginNs = monotonicNs();
    for (int i = 0; i < 1000; ++i)
        m_site->server().announceQuality("lain"_s, 32000, i % 2 == 0 ? 16000 : 24000, 20, 5);
    m_site->board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return m_site->server().isTalking(m_site->gateway()); }, 3000));
    m_site->board().setSquelch(false);
    QVERIFY(Site::waitFor([&] { return m_site->daemon().logged("[Audio] Quality change"_s).size() >= 1000; }, 20000));
    tellMeasured("a thousand changes", secondsBetween(beginNs, monotonicNs()), "s");
    VERIFY_MEMORY(*m_expense, 4096);
}

void TestSiteQualityStorm::theNextSaneAnnouncementHeals() {
    const std::int64_t announcedNs = monotonicNs();
    m_site->server().announceQuality("standard"_s, 32000, 48000, 20, 5);
    QVERIFY(
        Site::waitFor([&] { return m_site->timeLogged("SR: 48000 BR: 32000 fd: 20 ms"_s, announcedNs) > 0; }, 5000));
    QVERIFY(Site::waitFor([&] { return m_site->card().isCaptureOpen() && m_site->card().isPlaybackOpen(); }, 5000));
    tellMeasured("both devices open again", secondsBetween(announcedNs, monotonicNs()) * 1e3, "ms");
    m_site->card().feed(tone(radioHertz, -10, 30));
    const Pcm inRoom = undisturbed(*m_site, [&] { return heardInRoom(*m_site, *m_member, 40); });
    VERIFY_TONE(middle(inRoom), radioHertz, -10);
    const Pcm onAir = undisturbed(*m_site, [&] { return heardOnAir(*m_site, *m_member, tone(roomHertz, -10, 1.5)); });
    VERIFY_TONE(middle(onAir), roomHertz, -10);
    m_expense->tell("qualities that cannot be");
}

SITE_TEST_MAIN(TestSiteQualityStorm)
#include "tst_SiteQualityStorm.moc"
