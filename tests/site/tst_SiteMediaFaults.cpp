#include "MediaFaults.h"

using namespace sim;

/// The way of the sound is a bad one.
class TestSiteMediaFaults : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup() { m_site->showLogOfFailure(); }
    void whatArrivesIsHeardAndTheRadioReleased_data() { addMediaFaults({20, 50}); }
    void whatArrivesIsHeardAndTheRadioReleased();
    void theRadiosTalkGoesOnWhateverIsLost();
    void afterAllThatSoundIsWholeAgain();
    void cleanupTestCase();

private:
    std::unique_ptr<TestSite> m_site;
    std::unique_ptr<RoomMember> m_member;
};

void TestSiteMediaFaults::initTestCase() {
    m_site = std::make_unique<TestSite>();
    m_member = m_site->bringUpWithMember();
    QVERIFY(m_member);
}

void TestSiteMediaFaults::cleanupTestCase() {
    m_member.reset();
    m_site.reset();
}

void TestSiteMediaFaults::whatArrivesIsHeardAndTheRadioReleased() {
    QFETCH(MediaFault, fault);
    QFETCH(int, percent);
    verifyTheTalkComesThrough(*m_site, *m_member, fault, percent, 2.5);
}

void TestSiteMediaFaults::theRadiosTalkGoesOnWhateverIsLost() {
    int sent = 0;
    const auto count =
        QObject::connect(&m_site->server(), &VoiceServer::audioRelayed, &m_site->server(), [&] { ++sent; });
    const RoughPath path(m_site->server(), MediaFault::Lost, 50);
    const double perSecond = undisturbed(*m_site, [&] {
        sent = 0;
        const std::int64_t beginNs = monotonicNs();
        heardInRoom(*m_site, *m_member, 50);
        return sent / secondsBetween(beginNs, monotonicNs());
    });
    QObject::disconnect(count);
    VERIFY_BETWEEN(perSecond, 42.0, 52.0);
    VERIFY_BETWEEN(double(m_member->heard().size()) / sent, 0.3, 0.7);
    QVERIFY(!m_site->server().isTalking(m_site->gateway()));
}

void TestSiteMediaFaults::afterAllThatSoundIsWholeAgain() {
    const Pcm onAir = undisturbed(*m_site, [&] { return heardOnAir(*m_site, *m_member, tone(talkHertz, -10, 1.5)); });
    VERIFY_TONE(middle(onAir), talkHertz, -10);
}

SITE_TEST_MAIN(TestSiteMediaFaults)
#include "tst_SiteMediaFaults.moc"
