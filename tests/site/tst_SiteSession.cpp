#include "TestSite.h"
#include "sim/sound/AudioAnalysis.h"
#include "sim/wire/SealedFrame.h"

#include <QDirIterator>

using namespace sim;

namespace {

const QByteArray lobbyKey(32, 'L');
const QByteArray hilltopKey(32, 'H');

QByteArray contents(const QString &path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Every file the gateway shows to the Web UI, its name in front.
QByteArray stateFiles() {
    QByteArray all;
    QDirIterator entry(sitePaths().appliance + "/tmp"_s, QDir::Files | QDir::Hidden);
    while (entry.hasNext()) {
        const QString path = entry.next();
        all += path.toUtf8() + '\n' + contents(path);
    }
    return all;
}

bool allOpen(const QList<QByteArray> &frames, const QByteArray &key) {
    return std::all_of(frames.begin(), frames.end(), [&](const QByteArray &frame) { return opened(frame, key); });
}

bool noneOpens(const QList<QByteArray> &frames, const QByteArray &key) {
    return std::none_of(frames.begin(), frames.end(), [&](const QByteArray &frame) { return opened(frame, key); });
}

} // namespace

class TestSiteSession : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theFirstLoginLeadsToTheLobby();
    void theRoomIsTheLastOneElseTheDefaultOne_data();
    void theRoomIsTheLastOneElseTheDefaultOne();
    void aSquelchOpenedBeforeTheRoomIsJoinedTalksOnceThere();
    void aSquelchClosedBeforeTheRoomIsJoinedIsForgotten();
    void statusIsExactWhetherConnectedOrNot();
    void aMoveBringsTheKeyOfTheNewRoom();
    void aMoveReleasesTheRadioOfTheOldRoomsTalker();
    void theRadioIsReleasedWhenTheRoomIsLeft();
    void aKickEndsTheSessionAndTheGatewayComesBack();
    void noSecretLeavesTheGateway();
};

void TestSiteSession::theFirstLoginLeadsToTheLobby() {
    TestSite site;
    QVERIFY(site.bringUp());
    const QStringList sent = site.sent();
    QVERIFY(sent.size() >= 2);
    const QString hwid = site.readConfig().value("hwid"_s).toString();
    QVERIFY(!hwid.isEmpty());
    QCOMPARE(sent.at(0), "LOGIN AB1CD gateway "_s + hwid);
    QCOMPARE(sent.at(1), "JOIN Lobby"_s);
    QVERIFY(site.waitForSent("USER_GET_INFO"_s, 5000));
    const auto at = [&](const QString &beginning) {
        for (const SentLine &line : site.sentLines()) {
            if (line.text.startsWith(beginning))
                return line.timeNs;
        }
        return std::int64_t(0);
    };
    // 1 s, 1.5 s and 2 s after the login; the last one is a coarse timer.
    const std::int64_t login = at("LOGIN"_s);
    VERIFY_BETWEEN(secondsBetween(login, at("JOIN"_s)), 0.95, 2.0);
    VERIFY_BETWEEN(secondsBetween(login, at("ROOMS"_s)), 1.45, 2.5);
    VERIFY_BETWEEN(secondsBetween(login, at("USER_GET_INFO"_s)), 1.85, 3.0);
    QCOMPARE(site.sent("USER_GET_INFO"_s), QStringList{"USER_GET_INFO AB1CD"_s});

    QVERIFY(Site::waitFor([&] { return site.readConfig().value("last_room"_s) == "Lobby"_s; }, 5000));
    QCOMPARE(site.readConfig().value("is_admin"_s), QJsonValue(false));
    QCOMPARE(site.readConfig().value("user_id"_s), QJsonValue(42));
    QVERIFY(Site::waitFor(
        [&] {
            return site.readState("kivo-rooms.json"_s).array() == QJsonArray({"Lobby"_s, "Hilltop"_s});
        },
        5000));
}

void TestSiteSession::theRoomIsTheLastOneElseTheDefaultOne_data() {
    QTest::addColumn<QJsonObject>("config");
    QTest::addColumn<QString>("room");
    QTest::newRow("the last room") << QJsonObject{{"last_room"_s, "Hilltop"_s}, {"default_room"_s, "Lobby"_s}}
                                   << "Hilltop"_s;
    QTest::newRow("the default room") << QJsonObject{{"last_room"_s, ""_s}, {"default_room"_s, "Hilltop"_s}}
                                      << "Hilltop"_s;
    QTest::newRow("neither") << QJsonObject{{"last_room"_s, ""_s}} << "Lobby"_s;
}

void TestSiteSession::theRoomIsTheLastOneElseTheDefaultOne() {
    QFETCH(QJsonObject, config);
    QFETCH(QString, room);
    TestSite site;
    site.writeConfig(config);
    QVERIFY(site.bringUp());
    QCOMPARE(site.server().roomOf(site.gateway()), room);
    QVERIFY(site.waitForLine("info"_s, "[Room] Bergabung ke room: \""_s + room + u'"', 5000));
    QVERIFY(site.logsOnce("debug"_s, "[Appliance] Bergabung pada room (last/default): \""_s + room + u'"'));
}

void TestSiteSession::aSquelchOpenedBeforeTheRoomIsJoinedTalksOnceThere() {
    TestSite site;
    site.writeConfig();
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLog("[Arduino] Connected to"_s, 10000)); // a good second before the room
    site.board().setSquelch(true);
    QVERIFY(site.waitForLine("warning"_s, "[COS] ACTIVE — room belum join, TX pending"_s, 5000));
    QVERIFY(site.server().roomOf(site.gateway()).isEmpty());
    QVERIFY(site.waitForStatus("transmitting", false));
    QVERIFY(
        site.waitForLine("debug"_s, "[Appliance] COS was pending — sending TX_START now for room: \"Lobby\""_s, 5000));
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(site.gateway()); }, 5000));
    QVERIFY(site.waitForStatus("transmitting", true));
    // Lines keep their order: whatever was sent before the squelch closed is here with it.
    site.board().setSquelch(false);
    QVERIFY(site.waitForSent("TX_STOP"_s, 5000));
    QCOMPARE(site.sent("TX_"_s), (QStringList{"TX_START \"Lobby\""_s, "TX_STOP \"Lobby\""_s}));
}

void TestSiteSession::aSquelchClosedBeforeTheRoomIsJoinedIsForgotten() {
    TestSite site;
    site.writeConfig();
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    QVERIFY(site.waitForLog("[Arduino] Connected to"_s, 10000));
    site.board().sendRaw("COS:1\r\nCOS:0\r\n");
    QVERIFY(site.waitForLog("TX pending"_s, 5000));
    QVERIFY(site.waitForSent("JOIN Lobby"_s, 5000));
    QVERIFY(site.waitForSent("ROOMS"_s, 5000)); // half a second later
    QCOMPARE(site.sent("TX_"_s), QStringList());
    QCOMPARE(site.daemon().logged("COS was pending"_s), QStringList());
    // The next call passes as usual.
    site.board().sendRaw("COS:1\r\nCOS:0\r\n");
    QVERIFY(site.waitForSent("TX_STOP"_s, 5000));
    QCOMPARE(site.sent("TX_"_s), (QStringList{"TX_START \"Lobby\""_s, "TX_STOP \"Lobby\""_s}));
}

void TestSiteSession::statusIsExactWhetherConnectedOrNot() {
    TestSite site;
    site.writeConfig({{"callsign"_s, "ab1cd"_s}});
    QJsonObject expected = {{"connected"_s, false}, {"room"_s, ""_s},       {"transmitting"_s, false},
                            {"muted_mic"_s, false}, {"muted_spk"_s, false}, {"admin_muted"_s, false},
                            {"is_admin"_s, false},  {"user_id"_s, 0},       {"callsign"_s, "ab1cd"_s},
                            {"ping_ms"_s, 0},       {"users"_s, 0},         {"users_in_room"_s, 0}};
    const auto isExpected = [&] { return site.readState("kivo-status.json"_s).object() == expected; };
    site.server().setIgnored([](const QString &line) { return line == "PING"_s; }); // so that no latency is measured
    QVERIFY(site.daemon().start());
    QVERIFY(Site::waitFor(isExpected, 10000));
    QVERIFY(site.server().start());
    QVERIFY(Site::waitFor([&] { return !site.server().roomOf("AB1CD"_s).isEmpty(); }, 15000));
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    expected["connected"_s] = true;
    expected["room"_s] = "Lobby"_s;
    expected["user_id"_s] = 42;
    expected["users_in_room"_s] = 2;
    QVERIFY2(Site::waitFor(isExpected, 10000), site.readState("kivo-status.json"_s).toJson().constData());
    site.board().setSquelch(true);
    expected["transmitting"_s] = true;
    QVERIFY(Site::waitFor(isExpected, 2000));
    member->disconnectFromServer();
    expected["users_in_room"_s] = 1;
    QVERIFY(Site::waitFor(isExpected, 5000));
    site.server().stop();
    expected["connected"_s] = false;
    expected["room"_s] = ""_s;
    expected["user_id"_s] = 0;
    expected["transmitting"_s] = false;
    QVERIFY2(Site::waitFor(isExpected, 1000), site.readState("kivo-status.json"_s).toJson().constData());
}

void TestSiteSession::aMoveBringsTheKeyOfTheNewRoom() {
    TestSite site;
    site.server().setRoomKey("Lobby"_s, lobbyKey);
    site.server().setRoomKey("Hilltop"_s, hilltopKey);
    QVERIFY(site.bringUp());
    const auto member = site.memberIn("Hilltop"_s);
    QVERIFY(member);
    QList<QByteArray> frames;
    QObject::connect(&site.server(), &VoiceServer::audioRelayed, &site.server(),
                     [&](const QString &callsign, const QByteArray &frame) {
                         if (callsign == site.gateway())
                             frames.append(frame);
                     });
    site.card().feed(tone(1000, -10, 30));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return frames.size() >= 10; }, 5000));
    site.board().setSquelch(false);
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
    QVERIFY(allOpen(frames, lobbyKey));
    QVERIFY(noneOpens(frames, hilltopKey));
    QVERIFY(member->heard().empty());

    site.server().move(site.gateway(), "Hilltop"_s);
    QVERIFY(site.waitForLine("info"_s, "[Room] Bergabung ke room: \"Hilltop\""_s, 5000));
    QVERIFY(Site::waitFor([&] { return site.readConfig().value("last_room"_s) == "Hilltop"_s; }, 5000));
    frames.clear();
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return member->heard().size() >= 25; }, 5000));
    site.board().setSquelch(false);
    QCOMPARE(site.sent("TX_START"_s).last(), "TX_START \"Hilltop\""_s);
    QVERIFY(Site::waitFor([&] { return !site.server().isTalking(site.gateway()); }, 5000));
    QVERIFY(allOpen(frames, hilltopKey));
    QVERIFY(noneOpens(frames, lobbyKey));
    QVERIFY(std::all_of(member->heard().begin(), member->heard().end(),
                        [](const RoomMember::Heard &heard) { return heard.opened; }));
    const Pcm heard = slice(member->heardFrom(42), 0.1, 0.5);
    VERIFY_BETWEEN(toneHz(heard), 995, 1005);

    // And the new key opens what comes.
    const std::int64_t fromNs = monotonicNs();
    member->speak(tone(700, -10, 1.0));
    QVERIFY(Site::waitFor([&] { return site.board().isKeyed(); }, 5000));
    QVERIFY(Site::waitFor([&] { return toneLevelDbfs(site.card().played(fromNs, monotonicNs()), 700) > -30; }, 5000));
}

void TestSiteSession::aMoveReleasesTheRadioOfTheOldRoomsTalker() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.keysFor(*member));
    QVERIFY(site.logsOnce("info"_s, "[TX] \"EF2GH\" TX"_s));
    site.server().move(site.gateway(), "Hilltop"_s);
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 2000));
    QVERIFY(site.logsOnce("info"_s, "[TX] \"EF2GH\" RX"_s));
    QVERIFY(member->talkers().isEmpty() || site.server().isTalking("EF2GH"_s)); // the talker goes on, elsewhere
}

void TestSiteSession::theRadioIsReleasedWhenTheRoomIsLeft() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.keysFor(*member));
    site.dropFile("kivo-cmd-1.json"_s, R"({"action":"leave"})");
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 5000));
    QVERIFY(site.waitForLine("info"_s, "[Room] Keluar dari room: \"Lobby\""_s, 2000));
    QVERIFY(site.logsOnce("info"_s, "[TX] \"EF2GH\" RX"_s));
    QVERIFY(site.waitForStatus("room", ""_s));
    QCOMPARE(site.status("users_in_room"), QJsonValue(0));
    QCOMPARE(site.status("connected"), QJsonValue(true));
}

void TestSiteSession::aKickEndsTheSessionAndTheGatewayComesBack() {
    TestSite site;
    const auto member = site.bringUpWithMember();
    QVERIFY(member);
    QVERIFY(site.keysFor(*member));
    const std::int64_t kickedNs = monotonicNs();
    // The words alone: it is the gateway that takes its leave.
    site.server().sendRaw(site.gateway(), "KICKED|Terlalu|berisik\r\n");
    QVERIFY(site.waitForSent("QUIT"_s, 5000));
    QVERIFY(site.waitForLine("info"_s, "[Server] Terputus dari server"_s, 5000));
    QVERIFY(Site::waitFor([&] { return !site.board().isKeyed(); }, 2000));
    QVERIFY(site.waitUntilBack("Lobby"_s, kickedNs, 15000));
    VERIFY_BETWEEN(secondsBetween(site.timeLogged("Terputus"_s), site.timeLogged("[TCP] Connecting"_s, kickedNs)), 4.5,
                   8.0);

    // As the server does it: the words, and the connection closed.
    const std::int64_t againNs = monotonicNs();
    site.server().kick(site.gateway(), "Lagi"_s);
    QVERIFY(Site::waitFor([&] { return site.timeLogged("[Server] Terputus"_s, againNs) > 0; }, 5000));
    QVERIFY(site.waitUntilBack("Lobby"_s, againNs, 15000));
}

void TestSiteSession::noSecretLeavesTheGateway() {
    TestSite site;
    site.writeConfig({{"callsign"_s, Site::adminAccount().callsign}, {"password"_s, "hunter2-secret"_s}});
    Account account = Site::adminAccount();
    account.password = "hunter2-secret"_s;
    site.server().addAccount(account);
    site.server().setRoomKey("Lobby"_s, lobbyKey);
    site.server().setRoomKey("Hilltop"_s, hilltopKey);
    QList<QByteArray> secrets = {"hunter2-secret",      lobbyKey,         hilltopKey,        lobbyKey.toBase64(),
                                 hilltopKey.toBase64(), lobbyKey.toHex(), hilltopKey.toHex()};
    site.server().setReplyPath([&](const QByteArray &line) {
        const QList<QByteArray> fields = line.trimmed().split('|');
        if (fields.first() == "LOGIN_OK")
            secrets << fields.at(1) << fields.at(15);
        return QList<QByteArray>{line};
    });
    site.server().announceQuality("standard"_s, 24000, 48000, 20, 5);
    QVERIFY(site.server().start());
    QVERIFY(site.daemon().start());
    QVERIFY(Site::waitFor([&] { return site.server().roomOf(account.callsign) == "Lobby"_s; }, 15000));
    site.server().move(account.callsign, "Hilltop"_s);
    QVERIFY(site.waitForLog("[Room] Bergabung ke room: \"Hilltop\""_s, 5000));
    site.card().feed(tone(1000, -10, 10));
    site.board().setSquelch(true);
    QVERIFY(Site::waitFor([&] { return site.server().isTalking(account.callsign); }, 5000));
    site.board().setSquelch(false);
    // Login anew, administrators' lists, and a login that is refused.
    site.dropFile("login-cred.json"_s, R"({"action":"login","callsign":"XY9ZA","password":"hunter2-secret"})");
    QVERIFY(site.waitForSent("LOGIN"_s, 5000, 2));
    QVERIFY(Site::waitFor([&] { return !site.readState("kivo-admin-users.json"_s).isNull(); }, 15000));
    QVERIFY(Site::waitFor([&] { return !site.readState("kivo-online-users.json"_s).isNull(); }, 15000));
    secrets << "wrong-secret";
    site.dropFile("login-cred.json"_s, R"({"action":"login","callsign":"XY9ZA","password":"wrong-secret"})");
    QVERIFY(site.waitForLog("[Appliance] Login failed:"_s, 5000));
    QVERIFY(site.waitForStatus("callsign", "XY9ZA"_s));

    QVERIFY(secrets.size() >= 12); // both logins were heard
    QVERIFY(stateFiles().contains("kivo-status.json"));
    const QByteArray said = site.daemon().logged({}).join(u'\n').toUtf8() + stateFiles();
    for (const QByteArray &secret : secrets)
        QVERIFY2(!secret.isEmpty() && !said.contains(secret), secret.constData());
}

SITE_TEST_MAIN(TestSiteSession)
#include "tst_SiteSession.moc"
