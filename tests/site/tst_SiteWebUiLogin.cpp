#include "TestSite.h"

using namespace sim;

namespace {

QByteArray trigger(const QString &callsign, const QString &password) {
    return QJsonDocument(QJsonObject{{"action"_s, "login"_s}, {"callsign"_s, callsign}, {"password"_s, password}})
        .toJson();
}

} // namespace

/// New credentials through the login trigger, in every state of the link.
class TestSiteWebUiLogin : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aSecondLoginWhileConnectedTakesOverAtOnce();
    void aSecondLoginWhileConnectingIsTheOneThatCounts();
    void aSecondLoginWhileDisconnectedConnectsAtOnce();
};

void TestSiteWebUiLogin::aSecondLoginWhileConnectedTakesOverAtOnce() {
    TestSite site;
    QVERIFY(site.bringUp());
    site.server().move(site.gateway(), "Hilltop"_s);
    QVERIFY(site.waitForStatus("room", "Hilltop"_s));
    site.dropFile("login-cred.json"_s, trigger("xy9za"_s, "admin"_s));
    QVERIFY(site.waitForSent("LOGIN XY9ZA admin "_s, 5000));
    QCOMPARE(site.sent("LOGIN"_s).last(), "LOGIN XY9ZA admin "_s + site.readConfig().value("hwid"_s).toString());
    QVERIFY(Site::waitFor([&] { return site.server().roomOf("XY9ZA"_s) == "Hilltop"_s; }, 5000));
    QStringList told;
    for (const QString &line : site.daemon().logged("[Appliance]"_s)) {
        if (line.contains("ogin"_s) || line.contains("Cred"_s))
            told.append(line);
    }
    QCOMPARE(told, (QStringList{"[Appliance] Login trigger: \"XY9ZA\""_s, "[Appliance] Credentials saved to config"_s,
                                "[Appliance] Saving current room for rejoin after re-login: \"Hilltop\""_s}));
    QVERIFY(site.logsOnce("debug"_s, "[Appliance] Rejoining previous room: \"Hilltop\""_s));
    QVERIFY(site.waitForStatus("user_id", 1));
    QVERIFY(site.waitForStatus("is_admin", true));
    QVERIFY(site.waitForStatus("callsign", "XY9ZA"_s));
    QVERIFY(!site.server().isLoggedIn(site.gateway()));
    QVERIFY(!QFile::exists(sitePaths().appliance + "/tmp/login-cred.json"_s));
}

void TestSiteWebUiLogin::aSecondLoginWhileConnectingIsTheOneThatCounts() {
    TestSite site;
    site.writeConfig();
    QVERIFY(site.server().start());
    site.server().setSilent(true); // no answer, no refusal
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLog("[TCP] Connecting"_s, 10000));
    site.dropFile("login-cred.json"_s, trigger("XY9ZA"_s, "admin"_s));
    QVERIFY(site.waitForLine("debug"_s, "[Appliance] Already connecting — login will proceed after connected"_s, 5000));
    QCOMPARE(site.readConfig().value("callsign"_s), QJsonValue("XY9ZA"_s));
    site.server().setSilent(false);
    QVERIFY(Site::waitFor([&] { return site.server().roomOf("XY9ZA"_s) == "Lobby"_s; }, 20000));
    QCOMPARE(site.sent("LOGIN"_s).size(), 1);
    QVERIFY(site.logsOnce("debug"_s, "[Server] Auto-login: \"XY9ZA\""_s));
}

void TestSiteWebUiLogin::aSecondLoginWhileDisconnectedConnectsAtOnce() {
    TestSite site;
    Account elsewhere = Site::gatewayAccount();
    elsewhere.hwid = "another device"_s;
    site.server().addAccount(elsewhere);
    site.writeConfig();
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    // A refused device stays away for good.
    QVERIFY(site.waitForLine("warning"_s, "[Appliance] Login failed: \"Perangkat tidak terdaftar\""_s, 10000));
    QVERIFY(site.waitForLine("info"_s, "[Server] Terputus dari server"_s, 5000));
    const std::int64_t droppedNs = monotonicNs();
    site.dropFile("login-cred.json"_s, trigger("XY9ZA"_s, "admin"_s));
    QVERIFY(site.waitForSent("LOGIN XY9ZA"_s, 5000));
    VERIFY_BETWEEN(secondsBetween(droppedNs, monotonicNs()), 0.0, 3.0); // looked for every 2 s
    QVERIFY(Site::waitFor([&] { return site.server().roomOf("XY9ZA"_s) == "Lobby"_s; }, 5000));
}

SITE_TEST_MAIN(TestSiteWebUiLogin)
#include "tst_SiteWebUiLogin.moc"
