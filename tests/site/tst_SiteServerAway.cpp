#include "Measured.h"

using namespace sim;

/// The box is switched on before the server, or before the network, is there.
class TestSiteServerAway : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aServerAwayAtStartUpIsTriedUntilItIsThere();
};

void TestSiteServerAway::aServerAwayAtStartUpIsTriedUntilItIsThere() {
    constexpr int awayMs = 30000;
    TestSite site;
    site.writeConfig();
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLine("info"_s, "[Appliance] Kivo Darvi Appliance berjalan"_s, 10000));
    QVERIFY(site.waitForLine("warning"_s, "[TCP] Error: \"Connection refused\""_s, 5000));
    // What the radio says meanwhile has nowhere to go, and the daemon must not mind.
    site.board().setSquelch(true);
    QVERIFY(site.waitForLog("[COS] ACTIVE — room belum join, TX pending"_s, 5000));
    site.board().setSquelch(false);
    const Expense expense(site);
    QVERIFY(!Site::waitFor([&] { return !site.daemon().isRunning(); }, awayMs));
    expense.tell("server away");
    VERIFY_CHEAP(expense);
    QCOMPARE(site.status("connected"), QJsonValue(false));
    QCOMPARE(site.status("callsign"), QJsonValue("AB1CD"_s));
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList()); // it never was there

    std::vector<std::int64_t> attempts;
    for (const LogLine &line : site.daemon().log()) {
        if (line.text == "[TCP] Connecting to \"127.0.0.1\" : 8080"_s)
            attempts.push_back(line.saidNs);
    }
    VERIFY_BETWEEN(double(attempts.size()), 5, 8);
    for (std::size_t i = 1; i < attempts.size(); ++i)
        VERIFY_BETWEEN(secondsBetween(attempts[i - 1], attempts[i]), 4.5, 7.0);
    QCOMPARE(site.countLines("warning"_s, "[TCP] Error: \"Connection refused\""_s), int(attempts.size()));

    const std::int64_t returnedNs = monotonicNs();
    QVERIFY(site.server().start());
    QVERIFY(site.waitForLine("info"_s, "[Server] Terhubung ke server Kivo Darvi"_s, 7000));
    VERIFY_BETWEEN(secondsBetween(returnedNs, site.timeLogged("Terhubung"_s)), 0, 6.5);
    QVERIFY(site.waitUntilBack("Lobby"_s, returnedNs));
    QVERIFY(site.waitForStatus("connected", true));
    QCOMPARE(site.sent("TX_"_s), QStringList()); // the call of back then is over
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
}

SITE_TEST_MAIN(TestSiteServerAway)
#include "tst_SiteServerAway.moc"
