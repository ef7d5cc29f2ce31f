#include "Hearing.h"
#include "Measured.h"
#include "sim/wire/AudioDatagram.h"
#include "sim/wire/SealedFrame.h"

#include <QUdpSocket>

using namespace sim;

namespace {

constexpr double talkHertz = 713, otherHertz = 1500; // the first a broken number of waves per frame
const QByteArray key(32, 'K');

/// Sound that goes on, in frames that each open with the key.
class Voice {
public:
    explicit Voice(QByteArray roomKey) : m_roomKey(std::move(roomKey)) {}
    QByteArray frame() { return sealed(m_encoder.encode(m_sound.samples), m_roomKey); }

private:
    const QByteArray m_roomKey;
    const Pcm m_sound = tone(otherHertz, -10, 0.02); // whole waves
    VoiceEncoder m_encoder;
};

/// Does it some hundred times a second.
class Flood {
public:
    explicit Flood(std::function<void()> once) {
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this, once = std::move(once)] {
            for (int i = 0; i < 5; ++i, ++m_count)
                once();
        });
        m_timer.start(10);
    }
    int count() const { return m_count; }

private:
    QTimer m_timer;
    int m_count = 0;
};

quint16 mediaPort(TestSite &site) {
    return quint16(site.daemon().logged("Bound to local port:"_s).value(0).section(u' ', -1).toUInt());
}

} // namespace

/// Sound from where none should come, and from too many.
class TestSiteStrangers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void aTalkIsUntouchedByForgedDatagrams();
    void aForeignKeyIsSilenceThatCostsNothing();
    void aTalkerInEveryDatagramCostsABoundedAmountEach();

private:
    void hearManyTalkers();

    std::unique_ptr<TestSite> m_site;
    std::unique_ptr<RoomMember> m_member;
};

void TestSiteStrangers::init() {
    m_site = std::make_unique<TestSite>();
    m_site->server().setRoomKey("Lobby"_s, key);
    m_site->server().setRoomKey("Hilltop"_s, key);
    m_member = m_site->bringUpWithMember();
    QVERIFY(m_member);
}

void TestSiteStrangers::cleanup() {
    m_member.reset();
    m_site.reset();
}

/// They come from another address than the server's, open with the room's key, and carry the talker's own id.
void TestSiteStrangers::aTalkIsUntouchedByForgedDatagrams() {
    QUdpSocket stranger;
    QVERIFY(stranger.bind(QHostAddress("127.0.0.2"_s)));
    const quint16 port = mediaPort(*m_site);
    Voice voice(key);
    const QByteArray forged[] = {AudioDatagram{200, voice.frame()}.bytes(), AudioDatagram{7, voice.frame()}.bytes(),
                                 "PONG", "REGISTERED:42", "KEEPALIVE_OK"};
    const Expense expense(*m_site);
    std::size_t next = 0;
    const Flood flood([&] {
        stranger.writeDatagram(forged[next++ % std::size(forged)], QHostAddress(QHostAddress::LocalHost), port);
    });
    const Pcm onAir = undisturbed(*m_site, [&] { return heardOnAir(*m_site, *m_member, tone(talkHertz, -10, 2.0)); });
    VERIFY_TONE(middle(onAir), talkHertz, -10);
    QVERIFY(flood.count() >= 500);
    expense.tell("forged datagrams");
    QCOMPARE(m_site->daemon().logged("[Audio] Decoder created"_s).size(), 1);
    QCOMPARE(m_site->daemon().logged("[UDP] Siap"_s).size(), 1);
    VERIFY_BETWEEN(expense.lines(), 0, 40); // those of the talks themselves
    VERIFY_CHEAP(expense);
}

void TestSiteStrangers::aForeignKeyIsSilenceThatCostsNothing() {
    Voice voice(QByteArray(32, 'X'));
    QVERIFY(m_site->keysFor(*m_member));
    QVERIFY(m_site->waitForLog("[TX] \"EF2GH\" TX"_s, 2000));
    const std::int64_t fromNs = monotonicNs();
    const Expense expense(*m_site);
    const Flood flood([&] { m_site->server().sendAudioTo(TestSite::gateway(), 200, voice.frame()); });
    letPass(5.0);
    QVERIFY(flood.count() >= 1000);
    expense.tell("frames sealed with another key");
    QCOMPARE(rmsDbfs(m_site->card().played(fromNs, monotonicNs()).samples), silenceDbfs);
    QCOMPARE(m_site->daemon().logged("[Audio] Decoder created"_s), QStringList());
    VERIFY_BETWEEN(expense.lines(), 0, 3);
    VERIFY_CHEAP(expense);
    m_member->stopTalking();
    QVERIFY(Site::waitFor([&] { return !m_site->board().isKeyed(); }, 1000));
}

void TestSiteStrangers::aTalkerInEveryDatagramCostsABoundedAmountEach() {
    const Expense expense(*m_site);
    hearManyTalkers();
    const int known = m_site->daemon().logged("Decoder created"_s).size();
    expense.tell("a talker in every datagram");
    tellMeasured("memory for each talker", double(expense.kilobytes()) / known, "kB");
    VERIFY_MEMORY(expense, 32 * known);
    VERIFY_BETWEEN(expense.load(), 0.001, 0.5);
    const Pcm onAir = undisturbed(*m_site, [&] { return heardOnAir(*m_site, *m_member, tone(talkHertz, -10, 1.5)); });
    VERIFY_TONE(middle(onAir), talkHertz, -10);

    // The next room has the use of what they took.
    m_site->server().move(TestSite::gateway(), "Hilltop"_s);
    QVERIFY(m_site->waitForLog("[Room] Bergabung ke room: \"Hilltop\""_s, 5000));
    const Expense again(*m_site);
    m_site->daemon().forgetLog();
    hearManyTalkers();
    tellMeasured("memory for as many more in the next room", again.kilobytes(), "kB");
    VERIFY_MEMORY(again, 0.1 * expense.kilobytes());
}

/// Each of thousands of datagrams from somebody else; the squelch is obeyed in the midst of them.
void TestSiteStrangers::hearManyTalkers() {
    constexpr int talkers = 3000;
    Voice voice(key);
    quint32 id = 1000;
    const Flood flood([&] { m_site->server().sendAudioTo(TestSite::gateway(), ++id, voice.frame()); });
    QVERIFY(Site::waitFor([&] { return flood.count() >= talkers; }, 30000));
    m_site->board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return m_site->server().isTalking(TestSite::gateway()); }, 1000));
    m_site->board().setSquelch(false);
    QVERIFY(Site::waitFor([&] { return !m_site->server().isTalking(TestSite::gateway()); }, 1000));
    QVERIFY(Site::waitFor([&] { return m_site->daemon().logged("Decoder created"_s).size() >= talkers; }, 5000));
}

SITE_TEST_MAIN(TestSiteStrangers)
#include "tst_SiteStrangers.moc"
