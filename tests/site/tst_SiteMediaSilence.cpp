#include "TestSite.h"

#include <QRegularExpression>

using namespace sim;

namespace {

struct Datagram {
    std::int64_t timeNs = 0;
    QByteArray bytes;
};

/// A handshake of the member, who has the same media port at the server.
bool isMembers(const QByteArray &datagram) {
    return datagram.startsWith("TOKEN:") && datagram.endsWith(":200");
}

/// What the server's media port got.
class Post {
public:
    explicit Post(VoiceServer &server) {
        QObject::connect(&server, &VoiceServer::datagramReceived, &server, [this](const QByteArray &bytes) {
            if (!isMembers(bytes))
                m_datagrams.append({monotonicNs(), bytes});
        });
    }

    QList<Datagram> received(const QByteArray &beginning) const {
        QList<Datagram> found = m_datagrams;
        const auto isOther = [&](const Datagram &datagram) { return !datagram.bytes.startsWith(beginning); };
        found.erase(std::remove_if(found.begin(), found.end(), isOther), found.end());
        return found;
    }

private:
    QList<Datagram> m_datagrams;
};

} // namespace

/// The media path dies while the control link lives on. The gateway looks after it every 30 s, from its start. One
/// story of two minutes, told in the order of its steps; each builds on the one before.
class TestSiteMediaSilence : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup() { m_site->showLogOfFailure(); }
    void aPathThatWasHeardWithin20SecondsIsLeftAlone();
    void aQuietPathIsKeptOpen();
    void aPathSilentFor90SecondsIsGivenUp();
    void itIsMadeAnewWithTheSameToken();
    void bothDirectionsCarryAgain();
    void cleanupTestCase();

private:
    bool heardFromMember();

    std::unique_ptr<TestSite> m_site;
    std::unique_ptr<Post> m_post;
    std::unique_ptr<RoomMember> m_member;
    std::int64_t m_readyNs = 0;
    std::int64_t m_lastHeardNs = 0;
    std::int64_t m_failedNs = 0;
};

void TestSiteMediaSilence::initTestCase() {
    m_site = std::make_unique<TestSite>();
    m_post = std::make_unique<Post>(m_site->server());
    QVERIFY(m_site->bringUp());
    m_readyNs = m_site->timeLogged("[UDP] UDP is now READY"_s);
    QVERIFY(m_readyNs > 0);
    QCOMPARE(m_post->received("TOKEN:").size(), 1);
}

void TestSiteMediaSilence::cleanupTestCase() {
    m_member.reset();
    m_site.reset();
}

/// Says a word to the gateway, and goes.
bool TestSiteMediaSilence::heardFromMember() {
    const auto member = m_site->memberIn("Lobby"_s);
    if (!member)
        return false;
    member->speak(tone(700, -10, 0.1));
    return m_site->waitForLog("[Audio] Decoder created userId: 200"_s, 2000) &&
           Site::waitFor([&] { return !member->isSpeaking(); }, 2000);
}

void TestSiteMediaSilence::aPathThatWasHeardWithin20SecondsIsLeftAlone() {
    // The first look is 30 s after the start; something comes in the middle of that time.
    QVERIFY(!Site::waitFor([&] { return !m_post->received("KEEPALIVE").isEmpty(); }, 14000));
    QVERIFY(heardFromMember());
    m_lastHeardNs = monotonicNs();
    // From now on nothing comes any more.
    m_site->server().setMediaLoss([](const QByteArray &) { return true; });
    const std::int64_t firstLookNs = m_readyNs + 35'000'000'000; // and a little more
    QVERIFY(!Site::waitFor([&] { return !m_post->received("KEEPALIVE").isEmpty(); },
                           int((firstLookNs - monotonicNs()) / 1'000'000)));
}

void TestSiteMediaSilence::aQuietPathIsKeptOpen() {
    QVERIFY(Site::waitFor([&] { return m_post->received("KEEPALIVE").size() == 1; }, 60000));
    VERIFY_BETWEEN(secondsBetween(m_readyNs, m_post->received("KEEPALIVE").value(0).timeNs), 56.0, 63.0);
    QVERIFY(Site::waitFor([&] { return m_post->received("KEEPALIVE").size() == 2; }, 35000));
    VERIFY_BETWEEN(secondsBetween(m_lastHeardNs, m_post->received("KEEPALIVE").value(1).timeNs), 60.0, 80.0);
}

void TestSiteMediaSilence::aPathSilentFor90SecondsIsGivenUp() {
    m_site->board().setSquelch(true); // talks on, though nobody can tell it whether it is heard
    const QString words = "[UDP] Socket health check FAILED"_s;
    QVERIFY(m_site->waitForLog(words, 35000));
    m_failedNs = m_site->timeLogged(words);
    VERIFY_BETWEEN(secondsBetween(m_lastHeardNs, m_failedNs), 90.0, 110.0);
    QCOMPARE(m_post->received("KEEPALIVE").size(), 2);
    const QRegularExpression failure(
        "^\\[UDP\\] Socket health check FAILED — state: \\S+ silent: (9\\d|10\\d)\\d{3} ms "
        "— reinitializing\\.\\.\\.$"_s);
    const QString line = m_site->daemon().logged(words).value(0);
    QVERIFY2(failure.match(line).hasMatch(), qPrintable(line));
}

void TestSiteMediaSilence::itIsMadeAnewWithTheSameToken() {
    m_site->server().setMediaLoss({});
    QVERIFY(m_site->waitForLine("debug"_s, "[UDP] Reinitializing UDP socket..."_s, 3000));
    VERIFY_BETWEEN(secondsBetween(m_failedNs, m_site->timeLogged("Reinitializing"_s)), 0.15, 2.0);
    QVERIFY(Site::waitFor([&] { return m_site->timeLogged("[UDP] Siap"_s, m_failedNs) > 0; }, 5000));
    const QList<Datagram> tokens = m_post->received("TOKEN:");
    QCOMPARE(tokens.size(), 2);
    QCOMPARE(tokens.at(1).bytes, tokens.at(0).bytes);
    QCOMPARE(m_site->daemon().logged("[UDP] Bound to local port:"_s).size(), 2);
    QCOMPARE(m_site->daemon().logged("[Server] Terputus"_s), QStringList());
}

void TestSiteMediaSilence::bothDirectionsCarryAgain() {
    m_member = m_site->memberIn("Lobby"_s);
    QVERIFY(m_member);
    QVERIFY(Site::waitFor([&] { return m_member->heard().size() >= 10; }, 5000));
    m_site->board().setSquelch(false);
    m_member->speak(tone(700, -10, 0.5));
    QVERIFY(m_site->waitForLog("[Audio] SW buffer primed"_s, 5000));
}

SITE_TEST_MAIN(TestSiteMediaSilence)
#include "tst_SiteMediaSilence.moc"
