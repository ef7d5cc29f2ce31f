#include "TestSite.h"

using namespace sim;

namespace {

/// The server's refusal in other words.
void refuseWith(VoiceServer &server, const QByteArray &words) {
    server.setReplyPath([words](const QByteArray &line) {
        return QList<QByteArray>{line.startsWith("LOGIN_FAILED") ? "LOGIN_FAILED|" + words + "\r\n" : line};
    });
}

QByteArray trigger(const QByteArray &password) {
    return "{\"action\":\"login\",\"callsign\":\"ab1cd\",\"password\":\"" + password + "\"}";
}

} // namespace

/// Logins that the server refuses, and those that cannot even be tried.
class TestSiteRefusal : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aRefusedDeviceStaysAwayUntilThereAreNewCredentials_data();
    void aRefusedDeviceStaysAwayUntilThereAreNewCredentials();
    void anotherFailureLeavesTheLinkUp_data();
    void anotherFailureLeavesTheLinkUp();
    void withoutCredentialsThereIsOneWarningPerConnection_data();
    void withoutCredentialsThereIsOneWarningPerConnection();
};

void TestSiteRefusal::aRefusedDeviceStaysAwayUntilThereAreNewCredentials_data() {
    QTest::addColumn<QByteArray>("words");
    QTest::newRow("the device") << QByteArray("Perangkat lain dipakai");
    QTest::newRow("not registered") << QByteArray("Akun tidak terdaftar");
}

void TestSiteRefusal::aRefusedDeviceStaysAwayUntilThereAreNewCredentials() {
    QFETCH(QByteArray, words);
    TestSite site;
    site.writeConfig({{"password"_s, "old"_s}});
    refuseWith(site.server(), words);
    QSignalSpy connections(&site.server(), &VoiceServer::clientConnected);
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLine("warning"_s, "[Appliance] Login failed: \""_s + QString::fromUtf8(words) + u'"', 10000));
    QVERIFY(site.waitForSent("QUIT"_s, 2000));
    QVERIFY(site.waitForLine("info"_s, "[Server] Terputus dari server"_s, 2000));
    // A reconnection would come 5 s after the end: none within 7 s.
    QVERIFY(!Site::waitFor([&] { return connections.count() > 1; }, 7000));
    QCOMPARE(site.daemon().logged("[TCP] Connecting"_s).size(), 1);
    QCOMPARE(site.status("connected"), QJsonValue(false));

    site.dropFile("login-cred.json"_s, trigger("gateway"));
    QVERIFY(Site::waitFor([&] { return site.server().roomOf(site.gateway()) == "Lobby"_s; }, 10000));
    QCOMPARE(connections.count(), 2);
}

void TestSiteRefusal::anotherFailureLeavesTheLinkUp_data() {
    QTest::addColumn<QByteArray>("words");
    QTest::newRow("wrong password") << QByteArray("Callsign atau password salah");
    QTest::newRow("in other letters") << QByteArray("perangkat Tidak Terdaftar");
}

void TestSiteRefusal::anotherFailureLeavesTheLinkUp() {
    QFETCH(QByteArray, words);
    TestSite site;
    site.writeConfig({{"password"_s, "old"_s}});
    refuseWith(site.server(), words);
    QSignalSpy connections(&site.server(), &VoiceServer::clientConnected);
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLine("warning"_s, "[Appliance] Login failed: \""_s + QString::fromUtf8(words) + u'"', 10000));
    // Heartbeat and main timer go on: two PINGs are at least 2 s of a link that stays up.
    QVERIFY(site.waitForSent("PING"_s, 15000, 2));
    QCOMPARE(site.status("connected"), QJsonValue(true));
    QCOMPARE(site.status("room"), QJsonValue(""_s));
    QCOMPARE(site.sent("JOIN"_s) + site.sent("QUIT"_s), QStringList());
    QVERIFY(site.sent("LOGIN"_s).size() == 1); // never tried again by itself
    site.board().setSquelch(true);
    QVERIFY(site.waitForLog("[COS] ACTIVE — room belum join, TX pending"_s, 5000));

    site.dropFile("login-cred.json"_s, trigger("gateway"));
    QVERIFY(Site::waitFor([&] { return site.server().roomOf(site.gateway()) == "Lobby"_s; }, 10000));
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000)); // the squelch is still open
    QCOMPARE(connections.count(), 1);
}

void TestSiteRefusal::withoutCredentialsThereIsOneWarningPerConnection_data() {
    QTest::addColumn<QJsonObject>("config");
    QTest::addColumn<QString>("warning");
    const auto warning = [](const QString &callsign, const QString &password) {
        return "[Appliance] Cannot login — callsign or password empty (callsign: \"%1\" password: %2 ) — waiting for login trigger from Web UI"_s
            .arg(callsign, password);
    };
    QTest::newRow("neither") << QJsonObject{{"callsign"_s, ""_s}, {"password"_s, ""_s}}
                             << warning("EMPTY"_s, "EMPTY"_s);
    QTest::newRow("no callsign") << QJsonObject{{"callsign"_s, ""_s}} << warning("EMPTY"_s, "***"_s);
    QTest::newRow("no password") << QJsonObject{{"password"_s, ""_s}} << warning("AB1CD"_s, "EMPTY"_s);
}

void TestSiteRefusal::withoutCredentialsThereIsOneWarningPerConnection() {
    QFETCH(QJsonObject, config);
    QFETCH(QString, warning);
    TestSite site;
    site.writeConfig(config);
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLine("warning"_s, warning, 10000));
    QVERIFY(site.waitForStatus("connected", true));
    QVERIFY(site.logsOnce("warning"_s, warning));
    QCOMPARE(site.sent("LOGIN"_s), QStringList());
    QVERIFY(!site.readConfig().value("hwid"_s).toString().isEmpty());
}

SITE_TEST_MAIN(TestSiteRefusal)
#include "tst_SiteRefusal.moc"
