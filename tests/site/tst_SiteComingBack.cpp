#include "TestSite.h"
#include "sim/sound/AudioAnalysis.h"

using namespace sim;

/// The server restarts, whatever the gateway is just doing.
class TestSiteComingBack : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void afterAServerRestartTheGatewayIsBackInItsRoom();
    void aTransmissionEndsWithTheLink();
    void theRadioIsReleasedWithTheLink();
    void severalRestartsInARow();
};

void TestSiteComingBack::afterAServerRestartTheGatewayIsBackInItsRoom() {
    TestSite site;
    QVERIFY(site.bringUp());
    site.server().move(site.gateway(), "Hilltop"_s);
    QVERIFY(site.waitForStatus("room", "Hilltop"_s));
    QVERIFY(
        site.waitForLine("info"_s, "[Room] Bergabung ke room: \"Hilltop\""_s, 2000)); // not to be taken for the next
    site.forgetSent();
    const std::int64_t stoppedNs = monotonicNs();
    site.server().stop();
    QVERIFY(site.waitForLine("info"_s, "[Server] Terputus dari server"_s, 2000));
    QVERIFY(site.waitForStatus("connected", false, 1000));
    QCOMPARE(site.status("room"), QJsonValue(""_s));
    QVERIFY(site.server().start());
    QVERIFY(site.waitUntilBack("Hilltop"_s, stoppedNs, 15000));
    const std::int64_t lostNs = site.timeLogged("[Server] Terputus"_s, stoppedNs);
    VERIFY_BETWEEN(secondsBetween(lostNs, site.timeLogged("[TCP] Connecting"_s, lostNs)), 4.5, 8.0);
    QCOMPARE(site.sent("LOGIN"_s).size(), 1);
    QCOMPARE(site.sent("JOIN"_s), QStringList{"JOIN Hilltop"_s});
    QCOMPARE(site.daemon().logged("[Appliance] Bergabung pada room (last/default): \"Hilltop\""_s).size(), 1);
    QVERIFY(site.waitForStatus("connected", true));

    // Both directions work as before, with new keys and a new media link.
    const auto member = site.memberIn("Hilltop"_s);
    QVERIFY(member);
    site.card().feed(tone(1000, -10, 10));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return member->heard().size() >= 25; }, 5000));
    site.board().setSquelch(false);
    VERIFY_BETWEEN(toneHz(slice(member->heardFrom(42), 0.1, 0.5)), 995, 1005);
    const std::int64_t fromNs = monotonicNs();
    member->speak(tone(700, -10, 1.0));
    QVERIFY(Site::waitFor([&] { return site.board().isKeyed(); }, 5000));
    QVERIFY(Site::waitFor([&] { return toneLevelDbfs(site.card().played(fromNs, monotonicNs()), 700) > -30; }, 5000));
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 5000));
}

void TestSiteComingBack::aTransmissionEndsWithTheLink() {
    TestSite site;
    QVERIFY(site.bringUp());
    site.board().setSquelch(true);
    QVERIFY(site.waitForStatus("transmitting", true));
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
    const std::int64_t stoppedNs = monotonicNs();
    site.server().stop();
    QVERIFY(site.waitForStatus("connected", false, 2000));
    QCOMPARE(site.status("transmitting"), QJsonValue(false));
    QCOMPARE(site.daemon().logged("[TX] \"AB1CD\" RX"_s), QStringList());
    QVERIFY(site.server().start());
    QVERIFY(site.waitUntilBack("Lobby"_s, stoppedNs, 15000));

    // The squelch that stayed open meanwhile is no new call; its closing and the next opening are.
    site.board().setSquelch(false);
    QVERIFY(site.waitForSent("TX_STOP"_s, 5000));
    QCOMPARE(site.sent("TX_"_s), (QStringList{"TX_START \"Lobby\""_s, "TX_STOP \"Lobby\""_s}));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
    QCOMPARE(site.sent("TX_START"_s).size(), 2);
}

void TestSiteComingBack::theRadioIsReleasedWithTheLink() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    // Only the gateway's link is lost: the list that ends the talk never comes.
    QVERIFY(site.keysFor(*member));
    site.server().setReplyPath([](const QByteArray &) { return QList<QByteArray>(); });
    site.server().stop();
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 2000));
    QVERIFY(site.waitForLine("info"_s, "[TX] \"EF2GH\" RX"_s, 2000));
    QCOMPARE(site.daemon().logged("[TX]"_s), (QStringList{"[TX] \"EF2GH\" TX"_s, "[TX] \"EF2GH\" RX"_s}));

    // And it is keyed again for the next talker.
    site.server().setReplyPath({});
    QVERIFY(site.server().start());
    QVERIFY(Site::waitFor([&] { return site.server().roomOf(site.gateway()) == "Lobby"_s; }, 15000));
    const auto next = site.memberIn("Lobby"_s);
    QVERIFY(next);
    QVERIFY(site.keysFor(*next));
    next->stopTalking();
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 5000));
    QCOMPARE(int(site.board().keyings().size()), 4);
}

void TestSiteComingBack::severalRestartsInARow() {
    TestSite site;
    QVERIFY(site.bringUp());
    // Taken down again in the middle of the gateway's return: before its login is answered, before it is in its room.
    for (const QString &cut : {"LOGIN"_s, "JOIN"_s}) {
        const std::int64_t stoppedNs = monotonicNs();
        site.server().stop();
        QVERIFY(Site::waitFor([&] { return site.timeLogged("[Server] Terputus"_s, stoppedNs) > 0; }, 2000));
        site.server().setIgnored([cut](const QString &line) { return line.startsWith(cut); });
        QVERIFY(site.server().start());
        site.forgetSent();
        QVERIFY(site.waitForSent(cut, 10000));
    }
    site.server().setIgnored({});
    const std::int64_t stoppedNs = monotonicNs();
    site.server().stop();
    QVERIFY(site.server().start());
    QVERIFY(site.waitUntilBack("Lobby"_s, stoppedNs, 15000));
    QCOMPARE(site.daemon().logged("[TCP] Connected!"_s).size(), 4);
}

SITE_TEST_MAIN(TestSiteComingBack)
#include "tst_SiteComingBack.moc"
