#include "TestSite.h"
#include "sim/sound/AudioAnalysis.h"
#include "sim/wire/AudioDatagram.h"
#include "sim/wire/OpusVoice.h"
#include "sim/wire/SealedFrame.h"

#include <QUdpSocket>

using namespace sim;

namespace {

auto lossOf(const QByteArray &beginning) {
    return [beginning](const QByteArray &datagram) { return datagram.startsWith(beginning); };
}

} // namespace

/// Answers that get lost, on either link, while the links stay up.
class TestSiteMediaLink : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theHandshakeTiesTheMediaToTheSession();
    void aLostConfirmationCostsNoAudio();
    void aLostPongLeavesNoMediaUntilTheNextLogin();
    void aStrangersDatagramsAreNotHeard();
    void lostAnswersToPingBreakNothing();
};

void TestSiteMediaLink::theHandshakeTiesTheMediaToTheSession() {
    TestSite site;
    QList<QByteArray> datagrams;
    QObject::connect(&site.server(), &VoiceServer::datagramReceived, &site.server(),
                     [&](const QByteArray &datagram) { datagrams.append(datagram); });
    QByteArray token;
    // Each media answer twice: the second PONG must not bring a second token.
    site.server().setMediaPath([](const QByteArray &datagram) { return QList<QByteArray>{datagram, datagram}; });
    site.server().setReplyPath([&](const QByteArray &line) {
        if (line.startsWith("LOGIN_OK"))
            token = line.split('|').at(1);
        return QList<QByteArray>{line};
    });
    QVERIFY(site.bringUp());
    QVERIFY(!token.isEmpty());
    QCOMPARE(datagrams, (QList<QByteArray>{"PING", "TOKEN:" + token + ":42"}));
    const QStringList said = site.daemon().logged("[UDP]"_s);
    const QString rule = "[UDP] ========================================"_s;
    QCOMPARE(said.mid(0, 7), (QStringList{rule, "[UDP] enableUdp called with:"_s, "[UDP]   host: \"127.0.0.1\""_s,
                                          "[UDP]   port: 8082"_s, "[UDP]   token length: 64"_s, rule,
                                          "[UDP] Resolved to: \"127.0.0.1\""_s}));
    QVERIFY(said.at(7).startsWith("[UDP] Bound to local port: "_s));
    QCOMPARE(said.mid(8, 2), (QStringList{"[UDP] UDP is now READY - audio will use UDP!"_s, "[UDP] Siap"_s}));
}

void TestSiteMediaLink::aLostConfirmationCostsNoAudio() {
    TestSite site;
    site.server().setMediaLoss(lossOf("REGISTERED"));
    site.writeConfig();
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLine("warning"_s, "[UDP] Handshake timeout at step 1"_s, 10000));
    QVERIFY(site.waitForLine("warning"_s, "[UDP] No token confirmation, but continuing anyway"_s, 1000));
    QVERIFY(site.waitForLine("debug"_s, "[UDP] Siap"_s, 1000));
    VERIFY_BETWEEN(secondsBetween(site.timeLogged("[UDP] Bound"_s), site.timeLogged("Handshake timeout"_s)), 2.8, 5.0);
    site.server().setMediaLoss({});

    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    site.card().feed(tone(1000, -10, 5));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return member->heard().size() >= 25; }, 5000));
    site.board().setSquelch(false);
    VERIFY_BETWEEN(toneHz(slice(member->heardFrom(42), 0.1, 0.5)), 995, 1005);
    const std::int64_t fromNs = monotonicNs();
    member->speak(tone(700, -10, 1.0));
    QVERIFY(Site::waitFor([&] { return toneLevelDbfs(site.card().played(fromNs, monotonicNs()), 700) > -30; }, 5000));
}

void TestSiteMediaLink::aLostPongLeavesNoMediaUntilTheNextLogin() {
    TestSite site;
    int pings = 0;
    QObject::connect(&site.server(), &VoiceServer::datagramReceived, &site.server(),
                     [&](const QByteArray &datagram) { pings += datagram == "PING" ? 1 : 0; });
    site.server().setMediaLoss(lossOf("PONG"));
    site.writeConfig();
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLine("warning"_s, "[UDP] UDP handshake failed! Using TCP fallback"_s, 10000));
    QCOMPARE(site.daemon().logged("[UDP]"_s).mid(8),
             (QStringList{"[UDP] Handshake timeout at step 0"_s, "[UDP] No PONG received from server!"_s,
                          "[UDP] UDP handshake failed! Using TCP fallback"_s}));
    site.server().setMediaLoss({});
    QVERIFY(Site::waitFor([&] { return site.server().roomOf(site.gateway()) == "Lobby"_s; }, 5000));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
    const QString dropped = "[Appliance] TX tapi UDP belum ready — frame dropped"_s;
    QVERIFY(Site::waitFor([&] { return site.countLines("warning"_s, dropped) == 3; }, 5000));
    const std::int64_t captured = site.card().framesCaptured();
    QVERIFY(Site::waitFor([&] { return site.card().framesCaptured() > captured + 48000; }, 10000)); // 50 frames more
    QCOMPARE(site.countLines("warning"_s, dropped), 3);
    QCOMPARE(pings, 1);
    site.board().setSquelch(false);

    // The next login makes a new media link.
    const std::int64_t againNs = monotonicNs();
    site.dropFile("login-cred.json"_s, R"({"action":"login","callsign":"AB1CD","password":"gateway"})");
    QVERIFY(Site::waitFor([&] { return site.timeLogged("[UDP] Siap"_s, againNs) > 0; }, 10000));
    QVERIFY(site.waitForLine("debug"_s, "[Appliance] Rejoining previous room: \"Lobby\""_s, 1000));
}

void TestSiteMediaLink::aStrangersDatagramsAreNotHeard() {
    const QByteArray key(32, 'K');
    const QByteArray frame = sealed(VoiceEncoder().encode(tone(700, -10, 0.02).samples), key);
    TestSite site;
    site.server().setRoomKey("Lobby"_s, key);
    QVERIFY(site.bringUp());
    QUdpSocket stranger;
    QVERIFY(stranger.bind(QHostAddress("127.0.0.2"_s)));
    const quint16 port = quint16(site.daemon().logged("Bound to local port:"_s).value(0).section(u' ', -1).toUInt());
    const QByteArray audio = AudioDatagram{7, frame}.bytes();
    QCOMPARE(stranger.writeDatagram(audio, QHostAddress(QHostAddress::LocalHost), port), qint64(audio.size()));
    // On loopback nothing overtakes: when the server's frame is heard, the stranger's has been there.
    site.server().sendAudioTo(site.gateway(), 8, frame);
    QVERIFY(site.waitForLog("[Audio] Decoder created userId: 8"_s, 5000));
    QCOMPARE(site.daemon().logged("[Audio] Decoder created"_s).size(), 1);
}

void TestSiteMediaLink::lostAnswersToPingBreakNothing() {
    constexpr int delayMs = 100;
    TestSite site;
    QVERIFY(site.bringUp());
    site.server().setReplyDelay(delayMs);
    const auto latency = [&] { return site.status("ping_ms").toInt(); };
    QVERIFY(Site::waitFor([&] { return latency() >= delayMs; }, 12000));
    site.server().setIgnored([](const QString &line) { return line == "PING"_s; });
    site.server().setReplyDelay(0);
    QVERIFY(site.waitForSent("PING"_s, 8000, site.sent("PING"_s).size() + 1)); // what was still delayed has come
    const int measured = latency();
    QVERIFY(site.waitForSent("PING"_s, 15000, site.sent("PING"_s).size() + 3));
    QVERIFY(site.waitForStatus("connected", true));
    QCOMPARE(latency(), measured);
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());

    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return member->heard().size() >= 10; }, 5000));
    // Answers again: the latency is that of a ping which was answered.
    site.server().setIgnored({});
    QVERIFY(Site::waitFor([&] { return latency() < delayMs; }, 12000));
}

SITE_TEST_MAIN(TestSiteMediaLink)
#include "tst_SiteMediaLink.moc"
