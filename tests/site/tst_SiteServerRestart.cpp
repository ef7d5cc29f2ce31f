#include "Hearing.h"
#include "Measured.h"

using namespace sim;

namespace {

constexpr double radioHertz = 1013, roomHertz = 713; // broken numbers of waves per frame

} // namespace

/// The server restarts while somebody talks, with sound.
class TestSiteServerRestart : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aTalkIsCutShortAndTheNextOnesAreWhole_data();
    void aTalkIsCutShortAndTheNextOnesAreWhole();

private:
    void verifyTheCut(TestSite &site, std::int64_t cutNs, bool isKeyed);
    void verifyBothWays(TestSite &site);
};

void TestSiteServerRestart::aTalkIsCutShortAndTheNextOnesAreWhole_data() {
    QTest::addColumn<bool>("radioTalks");
    QTest::addColumn<bool>("memberTalks");
    QTest::newRow("the radio talks into the room") << true << false;
    QTest::newRow("a member keys the radio") << false << true;
    QTest::newRow("both at once") << true << true;
}

void TestSiteServerRestart::aTalkIsCutShortAndTheNextOnesAreWhole() {
    QFETCH(bool, radioTalks);
    QFETCH(bool, memberTalks);
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    const Expense expense(site);
    site.card().feed(tone(radioHertz, -10, 60));
    if (radioTalks) {
        site.board().setSquelch(true);
        QVERIFY(Site::waitFor([&] { return member->heard().size() >= 25; }, 5000));
    }
    if (memberTalks) {
        member->speak(tone(roomHertz, -10, 30));
        QVERIFY(Site::waitFor([&] { return site.board().isKeyed(); }, 5000));
        QVERIFY(site.waitForLog("[Audio] SW buffer primed"_s, 5000));
    }

    const std::int64_t cutNs = monotonicNs();
    site.server().stop();
    verifyTheCut(site, cutNs, memberTalks);
    const std::int64_t backNs = monotonicNs();
    QVERIFY(site.server().start());
    QVERIFY(site.waitUntilBack("Lobby"_s, backNs, 15000));
    const double recovery = secondsBetween(
        backNs, std::max(site.timeLogged("[UDP] Siap"_s, backNs), site.timeLogged("Bergabung ke room"_s, backNs)));
    tellMeasured("back in its room after the server was", recovery, "s");
    VERIFY_BETWEEN(recovery, 0.9, 7.5); // the rest of 5 s, and the second before it joins
    QVERIFY(!site.board().isKeyed());
    QCOMPARE(site.status("transmitting"), QJsonValue(false));
    site.board().setSquelch(false);
    verifyBothWays(site);
    expense.tell("server restart");
    VERIFY_CHEAP(expense);
}

void TestSiteServerRestart::verifyTheCut(TestSite &site, std::int64_t cutNs, bool isKeyed) {
    QVERIFY(site.waitForLine("info"_s, "[Server] Terputus dari server"_s, 2000));
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 2000));
    QCOMPARE(int(site.board().keyings().size()), isKeyed ? 2 : 0);
    if (isKeyed) {
        const double release = secondsBetween(cutNs, site.board().keyings().back().timeNs);
        tellMeasured("transmitter released after the link was cut", release * 1e3, "ms");
        VERIFY_BETWEEN(release, 0.0, 0.5);
    }
    QVERIFY(site.waitForStatus("connected", false, 1000));
    QCOMPARE(site.status("transmitting"), QJsonValue(false));
}

void TestSiteServerRestart::verifyBothWays(TestSite &site) {
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    const Pcm inRoom = undisturbed(site, [&] { return heardInRoom(site, *member, 40); });
    VERIFY_TONE(middle(inRoom), radioHertz, -10);
    const Pcm onAir = undisturbed(site, [&] { return heardOnAir(site, *member, tone(roomHertz, -10, 1.5)); });
    VERIFY_TONE(middle(onAir), roomHertz, -10);
}

SITE_TEST_MAIN(TestSiteServerRestart)
#include "tst_SiteServerRestart.moc"
