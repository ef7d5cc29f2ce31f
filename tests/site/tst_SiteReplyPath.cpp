#include "Hearing.h"
#include "Measured.h"

using namespace sim;

namespace {

constexpr double radioHertz = 1013, roomHertz = 713; // broken numbers of waves per frame

QList<QByteArray> inSingleBytes(const QByteArray &line) {
    QList<QByteArray> bytes;
    for (const char byte : line)
        bytes.append(QByteArray(1, byte));
    return bytes;
}

QList<QByteArray> twice(const QByteArray &line) {
    return {line, line};
}

/// Of two replies that come within a moment, the second one goes first.
class Crossing {
public:
    static constexpr int momentMs = 30;

    explicit Crossing(VoiceServer &server) : m_server(server) {
        m_moment.setSingleShot(true);
        QObject::connect(&m_moment, &QTimer::timeout, &m_moment,
                         [this] { m_server.sendRaw(TestSite::gateway(), std::exchange(m_held, {})); });
        server.setReplyPath([this](const QByteArray &line) { return cross(line); }, TestSite::gateway());
    }
    ~Crossing() { m_server.setReplyPath({}); }
    Crossing(const Crossing &) = delete;
    Crossing &operator=(const Crossing &) = delete;

    int crossings() const { return m_crossings; }

private:
    QList<QByteArray> cross(const QByteArray &line) {
        if (m_held.isEmpty()) {
            m_held = line;
            m_moment.start(momentMs);
            return {};
        }
        m_moment.stop();
        ++m_crossings;
        return {line, std::exchange(m_held, {})};
    }

    VoiceServer &m_server;
    QTimer m_moment;
    QByteArray m_held;
    int m_crossings = 0;
};

} // namespace

/// Whatever happens to the server's replies on their way, the whole story from login to the next room comes out right.
class TestSiteReplyPath : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void lateRepliesLeadToTheSameEnd();
    void repliesInSingleBytesLeadToTheSameEnd();
    void repliesThatComeTwiceLeadToTheSameEnd();
    void repliesInAnotherOrderLeadToTheSameEnd();

private:
    void verifyTheStory(TestSite &site);
    void verifyTalk(TestSite &site, RoomMember &member, const QString &room);
};

void TestSiteReplyPath::lateRepliesLeadToTheSameEnd() {
    TestSite site;
    site.server().setReplyDelay(1000);
    verifyTheStory(site);
}

void TestSiteReplyPath::repliesInSingleBytesLeadToTheSameEnd() {
    TestSite site;
    site.server().setReplyPath(inSingleBytes, site.gateway());
    verifyTheStory(site);
}

void TestSiteReplyPath::repliesThatComeTwiceLeadToTheSameEnd() {
    TestSite site;
    site.server().setReplyPath(twice, site.gateway());
    verifyTheStory(site);
}

void TestSiteReplyPath::repliesInAnotherOrderLeadToTheSameEnd() {
    TestSite site;
    const Crossing crossing(site.server());
    verifyTheStory(site);
    QVERIFY(crossing.crossings() >= 3);
}

void TestSiteReplyPath::verifyTheStory(TestSite &site) {
    QVERIFY(site.bringUp(20000));
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    site.card().feed(tone(radioHertz, -10, 60));
    verifyTalk(site, *member, "Lobby"_s);

    site.server().move(site.gateway(), "Hilltop"_s);
    site.server().move(TestSite::memberAccount().callsign, "Hilltop"_s);
    QVERIFY(site.waitForLine("info"_s, "[Room] Bergabung ke room: \"Hilltop\""_s, 5000));
    QVERIFY(Site::waitFor([&] { return member->room() == "Hilltop"_s; }, 5000));
    verifyTalk(site, *member, "Hilltop"_s);

    QVERIFY(site.waitForStatus("room", "Hilltop"_s));
    QVERIFY(site.waitForStatus("transmitting", false));
    QVERIFY(site.waitForStatus("users_in_room", 2));
    QCOMPARE(site.status("connected"), QJsonValue(true));
    QCOMPARE(site.readConfig().value("last_room"_s), QJsonValue("Hilltop"_s));
    QVERIFY(!site.board().isKeyed());
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s) + site.daemon().logged("Unknown command"_s), QStringList());
    QCOMPARE(site.sent("LOGIN"_s).size(), 1);
    QStringList talks = site.sent("TX_START"_s);
    talks.removeDuplicates();
    QCOMPARE(talks, (QStringList{"TX_START \"Lobby\""_s, "TX_START \"Hilltop\""_s}));
}

void TestSiteReplyPath::verifyTalk(TestSite &site, RoomMember &member, const QString &room) {
    // Who talks within a moment of another one may have the list that names him overtaken by the one before: that talk
    // stays off the air.
    const auto pause = [] { letPass(Crossing::momentMs * 0.003); };
    const Pcm inRoom = undisturbed(
        site, [&] { return heardInRoom(site, member, 40); }, pause);
    VERIFY_TONE(middle(inRoom), radioHertz, -10);
    QVERIFY(!site.server().isTalking(site.gateway()));
    QCOMPARE(site.server().roomOf(site.gateway()), room);
    const Pcm onAir = undisturbed(
        site, [&] { return heardOnAir(site, member, tone(roomHertz, -10, 2.5)); }, pause);
    VERIFY_TONE(slice(onAir, 0.25, 0.85), roomHertz, -10); // the transmitter may follow late, both ways
    QVERIFY(!site.board().isKeyed());
}

SITE_TEST_MAIN(TestSiteReplyPath)
#include "tst_SiteReplyPath.moc"
