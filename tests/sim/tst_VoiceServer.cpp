#include "WireClient.h"
#include "sim/VoiceServer.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace sim;

namespace {

const QByteArray lobbyKey(32, 'L');
const QByteArray hallKey(32, 'H');

Account account(int id, const char *callsign) {
    Account account;
    account.id = id;
    account.callsign = QLatin1String(callsign);
    account.password = QStringLiteral("pw");
    account.name = QStringLiteral("Name ") + QString::number(id);
    return account;
}

/// id 7 as the header of an audio datagram
const QByteArray header7("\0\0\0\7", 4);

} // namespace

class TestVoiceServer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void greetsWhoConnects();
    void answersLogin_data();
    void answersLogin();
    void loginReplyHasItsFields();
    void tellsWhyARoomCannotBeJoined();
    void handsOutTheRoomKeyOnJoin();
    void listsTheRoomOnEveryChange();
    void doesNotMarkTheTalkerInItsOwnList();
    void refusesToLetTalk_data();
    void refusesToLetTalk();
    void answersQueries_data();
    void answersQueries();
    void refusesAdministrationByOthers();
    void answersAdministration_data();
    void answersAdministration();
    void letsMembersUpdateThemselvesOnly();
    void tellsTheUserDirectory();
    void tellsAUsersInformation();
    void approvesWaitingUsers();
    void kicks();
    void mutes();
    void movesWithTheNewKey();
    void renamesARoomAroundItsMembers();
    void deletesAUserWhoIsOnline();
    void announcesQualityNowAndLater();
    void aSecondLoginReplacesTheFirst();
    void aFreshLoginOnTheSameLinkKeepsTheRoom();
    void leavesTheRoomWhenTheConnectionEnds();
    void quitClosesTheConnection();
    void dropsAClientThatSendsNoLineEnd();

    void registersMediaEndpoints_data();
    void registersMediaEndpoints();
    void relaysATalkerToTheOthersOfItsRoomOnly();
    void relaysNothingThatIsNotATalkersOwn_data();
    void relaysNothingThatIsNotATalkersOwn();
    void sendsAudioAsIfFromAnyTalker();

    void saysNothingWhileSilentAndHeals();
    void acceptsNobodyWhileSilent();
    void ignoresChosenCommands();
    void losesChosenDatagrams();
    void delaysReplies();
    void altersRepliesOnTheirWay();
    void altersDatagramsOnTheirWay();
    void startsAgainAfterStop();
    void saysWhenAPortIsTaken();

private:
    std::unique_ptr<WireClient> client();
    std::unique_ptr<WireClient> inLobby(const char *callsign);

    std::unique_ptr<VoiceServer> m_server;
};

void TestVoiceServer::init() {
    m_server = std::make_unique<VoiceServer>();
    Account admin = account(1, "ADMIN");
    admin.isAdmin = true;
    Account bound = account(9, "BOUND");
    bound.hwid = QStringLiteral("h1");
    Account waiting = account(10, "WAITS");
    waiting.approved = false;
    for (const Account &known : {admin, account(7, "AB1CD"), account(8, "EF2GH"), bound, waiting}) {
        m_server->addAccount(known);
    }
    m_server->addRoom(QStringLiteral("Lobby"), lobbyKey);
    m_server->addRoom(QStringLiteral("Big Hall"), hallKey);
    QVERIFY(m_server->start(0, 0));
}

void TestVoiceServer::cleanup() {
    m_server.reset();
}

std::unique_ptr<WireClient> TestVoiceServer::client() {
    return std::make_unique<WireClient>(m_server->tcpPort(), m_server->udpPort());
}

std::unique_ptr<WireClient> TestVoiceServer::inLobby(const char *callsign) {
    auto member = client();
    if (member->enter(callsign, "Lobby").isEmpty()) {
        QTest::qFail("a client does not get into the lobby", __FILE__, __LINE__);
    }
    return member;
}

void TestVoiceServer::greetsWhoConnects() {
    const auto wire = client();
    QVERIFY(QTest::qWaitFor([&] { return wire->control.canReadLine(); }));
    QCOMPARE(wire->control.readLine(), QByteArray("ROIP SERVER READY\r\n"));
}

void TestVoiceServer::answersLogin_data() {
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("answer");
    const QByteArray wrong = "LOGIN_FAILED|Callsign atau password salah";
    const QByteArray strange = "LOGIN_FAILED|Perangkat tidak terdaftar";
    QTest::newRow("two arguments") << QByteArray("LOGIN AB1CD pw") << QByteArray("LOGIN_OK|");
    QTest::newRow("three arguments") << QByteArray("LOGIN AB1CD pw any") << QByteArray("LOGIN_OK|");
    QTest::newRow("wrong password") << QByteArray("LOGIN AB1CD px") << wrong;
    QTest::newRow("unknown callsign") << QByteArray("LOGIN XX0XX pw") << wrong;
    QTest::newRow("right device") << QByteArray("LOGIN BOUND pw h1") << QByteArray("LOGIN_OK|");
    QTest::newRow("other device") << QByteArray("LOGIN BOUND pw h2") << strange;
    QTest::newRow("no device") << QByteArray("LOGIN BOUND pw") << strange;
    QTest::newRow("no password") << QByteArray("LOGIN AB1CD") << QByteArray("ERROR|Parameter kurang");
    QTest::newRow("waiting for approval") << QByteArray("LOGIN WAITS pw") << QByteArray("LOGIN_OK|");
}

void TestVoiceServer::answersLogin() {
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, answer);
    const auto wire = client();
    wire->next("ROIP");
    const QByteArray reply = wire->ask(line.constData(), "");
    QVERIFY2(reply.startsWith(answer), reply.constData());
}

void TestVoiceServer::loginReplyHasItsFields() {
    const QList<QByteArray> admin = client()->ask("LOGIN ADMIN pw", "LOGIN_OK").split('|');
    QVERIFY(admin.size() >= 16);
    QVERIFY(admin.at(1).size() >= 16);
    QCOMPARE(admin.at(3), QByteArray("true"));
    QCOMPARE(admin.at(4), QByteArray("1"));
    QCOMPARE(QByteArray::fromBase64(admin.at(15)).size(), 32);
    const QList<QByteArray> other = client()->ask("LOGIN AB1CD pw", "LOGIN_OK").split('|');
    QCOMPARE(other.at(3), QByteArray("false"));
    QCOMPARE(other.at(4), QByteArray("7"));
    QVERIFY(other.at(1) != admin.at(1));
}

void TestVoiceServer::tellsWhyARoomCannotBeJoined() {
    const auto wire = client();
    QCOMPARE(wire->ask("JOIN Lobby", "ERROR"), QByteArray("ERROR|Belum login"));
    wire->ask("LOGIN AB1CD pw", "LOGIN_OK");
    QCOMPARE(wire->ask("JOIN Nowhere", "JOIN_FAILED"), QByteArray("JOIN_FAILED|Room tidak ditemukan"));
    const auto admin = inLobby("ADMIN");
    admin->ask("ADMIN_CREATE_ROOM \"Tiny\" 1", "ADMIN_CREATE_ROOM_OK");
    QVERIFY(!admin->ask("JOIN Tiny", "JOIN_OK").isEmpty());
    QCOMPARE(wire->ask("JOIN Tiny", "JOIN_FAILED"), QByteArray("JOIN_FAILED|Room penuh"));
}

void TestVoiceServer::handsOutTheRoomKeyOnJoin() {
    const auto wire = client();
    QSignalSpy joined(m_server.get(), &VoiceServer::joined);
    QCOMPARE(wire->enter("AB1CD", "Big Hall"), "JOIN_OK|Big Hall|" + hallKey.toBase64());
    QCOMPARE(joined.count(), 1);
    QCOMPARE(m_server->roomOf(QStringLiteral("AB1CD")), QStringLiteral("Big Hall"));
    m_server->setRoomKey(QStringLiteral("Big Hall"), {});
    QCOMPARE(client()->enter("EF2GH", "Big Hall"), QByteArray("JOIN_OK|Big Hall|"));
}

void TestVoiceServer::listsTheRoomOnEveryChange() {
    const auto first = inLobby("AB1CD");
    QCOMPARE(first->next("USER_LIST"), QByteArray("USER_LIST|Lobby|7|AB1CD|Name 7|RX|1|0"));
    auto second = inLobby("EF2GH");
    const QByteArray both = "USER_LIST|Lobby|7,8|AB1CD,EF2GH|Name 7,Name 8|RX,RX|1,1|0,0";
    QCOMPARE(first->next("USER_LIST"), both);
    QCOMPARE(second->next("USER_LIST"), both);
    QCOMPARE(second->ask("TX_START \"Lobby\"", "TX_START"), QByteArray("TX_START_OK"));
    QCOMPARE(first->next("USER_LIST"), QByteArray("USER_LIST|Lobby|7,8|AB1CD,EF2GH|Name 7,Name 8|RX,TX|1,1|0,0"));
    QCOMPARE(second->ask("TX_STOP \"Lobby\"", "TX_STOP"), QByteArray("TX_STOP_OK"));
    QCOMPARE(first->next("USER_LIST"), both);
    QCOMPARE(second->ask("LEAVE", "LEAVE"), QByteArray("LEAVE_OK|Lobby"));
    QCOMPARE(first->next("USER_LIST"), QByteArray("USER_LIST|Lobby|7|AB1CD|Name 7|RX|1|0"));
    second->ask("JOIN Lobby", "JOIN_OK");
    QCOMPARE(first->next("USER_LIST"), both);
    second.reset();
    QCOMPARE(first->next("USER_LIST"), QByteArray("USER_LIST|Lobby|7|AB1CD|Name 7|RX|1|0"));
}

void TestVoiceServer::doesNotMarkTheTalkerInItsOwnList() {
    const auto talker = inLobby("AB1CD");
    const auto listener = inLobby("EF2GH");
    talker->linesSoFar();
    talker->ask("TX_START \"Lobby\"", "TX_START_OK");
    QCOMPARE(talker->next("USER_LIST"), QByteArray("USER_LIST|Lobby|7,8|AB1CD,EF2GH|Name 7,Name 8|RX,RX|1,1|0,0"));
    listener->ask("TX_START \"Lobby\"", "TX_START_OK");
    QCOMPARE(talker->next("USER_LIST"), QByteArray("USER_LIST|Lobby|7,8|AB1CD,EF2GH|Name 7,Name 8|RX,TX|1,1|0,0"));
    QVERIFY(m_server->isTalking(QStringLiteral("AB1CD")));
    m_server->setTalking(QStringLiteral("AB1CD"), false);
    QCOMPARE(listener->linesSoFar().last(), QByteArray("USER_LIST|Lobby|7,8|AB1CD,EF2GH|Name 7,Name 8|RX,RX|1,1|0,0"));
}

void TestVoiceServer::refusesToLetTalk_data() {
    QTest::addColumn<QByteArray>("callsign");
    QTest::addColumn<bool>("muted");
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("answer");
    QTest::newRow("other room") << QByteArray("AB1CD") << false << QByteArray("TX_START \"Big Hall\"")
                                << QByteArray("TX_START_FAILED|Belum bergabung ke room");
    QTest::newRow("muted") << QByteArray("AB1CD") << true << QByteArray("TX_START \"Lobby\"")
                           << QByteArray("TX_START_FAILED|Anda di-mute oleh admin");
    QTest::newRow("not approved") << QByteArray("WAITS") << false << QByteArray("TX_START \"Lobby\"")
                                  << QByteArray("TX_START_FAILED|Akun belum disetujui");
}

void TestVoiceServer::refusesToLetTalk() {
    QFETCH(QByteArray, callsign);
    QFETCH(bool, muted);
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, answer);
    const auto wire = inLobby(callsign.constData());
    m_server->mute(QString::fromLatin1(callsign), muted, QStringLiteral("ADMIN"));
    QCOMPARE(wire->ask(line.constData(), "TX_START"), answer);
    QVERIFY(!m_server->isTalking(QString::fromLatin1(callsign)));
}

void TestVoiceServer::answersQueries_data() {
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("answer");
    QTest::newRow("ping") << QByteArray("PING") << QByteArray("PONG");
    QTest::newRow("rooms") << QByteArray("ROOMS") << QByteArray("ROOMS|Lobby,Big Hall");
    QTest::newRow("online") << QByteArray("ONLINE_USERS")
                            << QByteArray("ONLINE_USERS|1,ADMIN,Name 1,Lobby,True;7,AB1CD,Name 7,,False");
    QTest::newRow("unknown") << QByteArray("DANCE 1") << QByteArray("ERROR|Perintah tidak dikenal");
    QTest::newRow("no such user") << QByteArray("USER_GET_INFO XX0XX") << QByteArray("ERROR|User tidak ditemukan");
    QTest::newRow("leave without a room") << QByteArray("LEAVE") << QByteArray("ERROR|Belum bergabung ke room");
}

void TestVoiceServer::answersQueries() {
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, answer);
    const auto admin = inLobby("ADMIN");
    const auto wire = client();
    wire->ask("LOGIN AB1CD pw", "LOGIN_OK");
    QCOMPARE(wire->ask(line.constData(), ""), answer);
}

void TestVoiceServer::refusesAdministrationByOthers() {
    const auto wire = inLobby("AB1CD");
    for (const char *line : {"ADMIN_GET_ALL_USERS", "ADMIN_KICK 1", "ADMIN_MUTE 1 1", "ADMIN_DELETE_USER 1",
                             "ADMIN_CREATE_ROOM \"X\" 5", "ADMIN_SET_AUDIO_QUALITY high"}) {
        QCOMPARE(wire->ask(line, "ERROR"), QByteArray("ERROR|Khusus admin"));
    }
}

void TestVoiceServer::answersAdministration_data() {
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QByteArray>("answer");
    const auto row = [](const char *line, const char *answer) {
        QTest::newRow(line) << QByteArray(line) << QByteArray(answer);
    };
    row("ADMIN_APPROVE_USER 10", "ADMIN_APPROVE_USER_OK|10");
    row("ADMIN_UNAPPROVE_USER 7", "ADMIN_UNAPPROVE_USER_OK|7");
    row("ADMIN_APPROVE_USER 99", "ERROR|User tidak ditemukan");
    row("ADMIN_KICK 8", "ERROR|User tidak online");
    row("ADMIN_MUTE 8 1", "ADMIN_MUTE_OK|8|1");
    row("ADMIN_MUTE 8 0", "ADMIN_MUTE_OK|8|0");
    row("ADMIN_MUTE 99 1", "ERROR|User tidak ditemukan");
    row("ADMIN_MOVE 8 Lobby", "ERROR|User tidak online");
    row("ADMIN_MOVE 1 Nowhere", "ERROR|Room tidak ditemukan");
    row("ADMIN_RESET_HWID 9", "ADMIN_RESET_HWID_OK|BOUND");
    row("ADMIN_RESET_HWID BOUND", "ADMIN_RESET_HWID_OK|BOUND");
    row("ADMIN_CREATE_ROOM \"New Room\" 20", "ADMIN_CREATE_ROOM_OK|New Room");
    row("ADMIN_CREATE_ROOM \"Lobby\" 20", "ERROR|Nama room tidak bisa dipakai");
    row("ADMIN_CREATE_ROOM \"\" 20", "ERROR|Nama room tidak bisa dipakai");
    row("ADMIN_DELETE_ROOM \"Big Hall\"", "ADMIN_DELETE_ROOM_OK|Big Hall");
    row("ADMIN_DELETE_ROOM \"Lobby\"", "ERROR|Room masih terisi");
    row("ADMIN_EDIT_ROOM \"Big Hall\" \"Small Hall\" 10 \"\"", "ADMIN_EDIT_ROOM_OK|Small Hall");
    row("ADMIN_EDIT_ROOM \"Big Hall\" \"Lobby\" 10 \"\"", "ERROR|Nama room tidak bisa dipakai");
    row("ADMIN_EDIT_ROOM \"Nowhere\" \"Here\" 10 \"\"", "ERROR|Room tidak ditemukan");
    row("ADMIN_SET_ROOM_ORDER Big Hall,Lobby", "ADMIN_SET_ROOM_ORDER_OK");
    row("ADMIN_SET_AUDIO_QUALITY high", "ADMIN_SET_AUDIO_QUALITY_OK|high");
    row("ADMIN_SET_AUDIO_QUALITY golden", "ERROR|Preset tidak dikenal");
    row("ADMIN_RESET_PASSWORD 7 \"new\"", "ADMIN_RESET_PASSWORD_OK|AB1CD");
    row("ADMIN_DELETE_USER 8", "ADMIN_DELETE_USER_OK|8");
    row("ADMIN_DELETE_USER 99", "ERROR|User tidak ditemukan");
    row("ADMIN_UPDATE_USER 7 \"a\" \"b\"", "ERROR|Parameter kurang");
}

void TestVoiceServer::answersAdministration() {
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, answer);
    const auto admin = inLobby("ADMIN");
    admin->linesSoFar();
    QCOMPARE(admin->ask(line.constData(), ""), answer);
}

void TestVoiceServer::letsMembersUpdateThemselvesOnly() {
    const auto wire = inLobby("AB1CD");
    const auto update = [&](const char *id) {
        const QByteArray line =
            QByteArray("ADMIN_UPDATE_USER ") + id +
            " \"Jo\"Q Doe\" \"AB1CD\" \"active\" \"Hill\" \"145.5\" \"Here\" \"a@b\" \"08\" 1 1 \"\"";
        return wire->ask(line.constData(), "");
    };
    wire->linesSoFar();
    QCOMPARE(update("8"), QByteArray("ERROR|Khusus admin"));
    QCOMPARE(update("7"), QByteArray("ADMIN_UPDATE_USER_OK|7"));
    const QByteArray info = wire->ask("USER_GET_INFO AB1CD", "USER_INFO_RESULT|").mid(17);
    const QJsonObject record = QJsonDocument::fromJson(info).object();
    QCOMPARE(record[QStringLiteral("responsible_name")].toString(), QStringLiteral("Jo\"Q Doe"));
    QCOMPARE(record[QStringLiteral("gateway_name")].toString(), QStringLiteral("Hill"));
    QCOMPARE(record[QStringLiteral("frequency")].toString(), QStringLiteral("145.5"));
    QCOMPARE(record[QStringLiteral("whatsapp")].toString(), QStringLiteral("08"));
    QCOMPARE(record[QStringLiteral("is_admin")].toBool(), false);
}

void TestVoiceServer::tellsTheUserDirectory() {
    const auto admin = inLobby("ADMIN");
    const QByteArray reply = admin->ask("ADMIN_GET_ALL_USERS", "ADMIN_ALL_USERS|");
    const QJsonArray users = QJsonDocument::fromJson(reply.mid(16)).array();
    QCOMPARE(users.size(), 5);
    const QJsonObject bound = users.at(3).toObject();
    QCOMPARE(bound[QStringLiteral("id")].toInt(), 9);
    QCOMPARE(bound[QStringLiteral("callsign")].toString(), QStringLiteral("BOUND"));
    QCOMPARE(bound[QStringLiteral("registered_hwid")].toString(), QStringLiteral("h1"));
    QVERIFY(!reply.contains("pw"));
    const QByteArray pending = admin->ask("ADMIN_PENDING", "ADMIN_PENDING|").mid(14);
    const QJsonArray waiting = QJsonDocument::fromJson(pending).array();
    QCOMPARE(waiting.size(), 1);
    QCOMPARE(waiting.at(0).toObject()[QStringLiteral("callsign")].toString(), QStringLiteral("WAITS"));
}

void TestVoiceServer::tellsAUsersInformation() {
    const auto wire = inLobby("AB1CD");
    const QByteArray info = wire->ask("USER_GET_INFO EF2GH", "USER_INFO_RESULT|").mid(17);
    const QJsonObject record = QJsonDocument::fromJson(info).object();
    QCOMPARE(record[QStringLiteral("id")].toInt(), 8);
    QCOMPARE(record[QStringLiteral("name")].toString(), QStringLiteral("Name 8"));
}

void TestVoiceServer::approvesWaitingUsers() {
    const auto admin = inLobby("ADMIN");
    const auto wire = inLobby("WAITS");
    QVERIFY(wire->next("USER_LIST").endsWith("|1,0|0,0"));
    admin->ask("ADMIN_APPROVE_USER 10", "ADMIN_APPROVE_USER_OK");
    QVERIFY(wire->next("USER_LIST").endsWith("|1,1|0,0"));
    QCOMPARE(wire->ask("TX_START \"Lobby\"", "TX_START"), QByteArray("TX_START_OK"));
}

void TestVoiceServer::kicks() {
    const auto admin = inLobby("ADMIN");
    const auto wire = inLobby("AB1CD");
    QSignalSpy gone(m_server.get(), &VoiceServer::clientDisconnected);
    QCOMPARE(admin->ask("ADMIN_KICK 7", "ADMIN_KICK_OK"), QByteArray("ADMIN_KICK_OK|7"));
    QCOMPARE(wire->next("KICKED"), QByteArray("KICKED|Dikeluarkan oleh ADMIN"));
    QTRY_COMPARE(wire->control.state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(gone.count(), 1);
    QCOMPARE(gone.at(0).at(0).toString(), QStringLiteral("AB1CD"));
    QVERIFY(!m_server->isLoggedIn(QStringLiteral("AB1CD")));
    QVERIFY(admin->linesSoFar().contains("USER_LIST|Lobby|1|ADMIN|Name 1|RX|1|0"));
}

void TestVoiceServer::mutes() {
    const auto admin = inLobby("ADMIN");
    const auto wire = inLobby("AB1CD");
    wire->ask("TX_START \"Lobby\"", "TX_START_OK");
    QSignalSpy talking(m_server.get(), &VoiceServer::talkingChanged);
    admin->linesSoFar();
    admin->send("ADMIN_MUTE 7 1");
    QCOMPARE(wire->next("MUTED"), QByteArray("MUTED|1|ADMIN"));
    QCOMPARE(admin->next("ADMIN_MUTE_OK"), QByteArray("ADMIN_MUTE_OK|7|1"));
    QCOMPARE(wire->linesSoFar().last(), QByteArray("USER_LIST|Lobby|1,7|ADMIN,AB1CD|Name 1,Name 7|RX,RX|1,1|0,1"));
    QCOMPARE(talking.count(), 1);
    QVERIFY(!m_server->isTalking(QStringLiteral("AB1CD")));
    admin->send("ADMIN_MUTE 7 0");
    QCOMPARE(wire->next("MUTED"), QByteArray("MUTED|0|ADMIN"));
    QCOMPARE(wire->ask("TX_START \"Lobby\"", "TX_START"), QByteArray("TX_START_OK"));
}

void TestVoiceServer::movesWithTheNewKey() {
    const auto admin = inLobby("ADMIN");
    const auto wire = inLobby("AB1CD");
    admin->ask("ADMIN_MOVE 7 Big Hall", "ADMIN_MOVE_OK");
    QCOMPARE(wire->next("MOVED"), "MOVED|Big Hall|ADMIN|" + hallKey.toBase64());
    QCOMPARE(wire->next("USER_LIST"), QByteArray("USER_LIST|Big Hall|7|AB1CD|Name 7|RX|1|0"));
    QVERIFY(admin->linesSoFar().contains("USER_LIST|Lobby|1|ADMIN|Name 1|RX|1|0"));
    m_server->move(QStringLiteral("AB1CD"), QStringLiteral("Lobby"));
    QCOMPARE(wire->next("MOVED"), "MOVED|Lobby|server|" + lobbyKey.toBase64());
}

void TestVoiceServer::renamesARoomAroundItsMembers() {
    const auto admin = inLobby("ADMIN");
    const auto wire = inLobby("AB1CD");
    admin->ask("ADMIN_EDIT_ROOM \"Lobby\" \"Foyer\" 10 \"\"", "ADMIN_EDIT_ROOM_OK");
    QCOMPARE(wire->next("MOVED"), "MOVED|Foyer|ADMIN|" + lobbyKey.toBase64());
    QCOMPARE(wire->ask("ROOMS", "ROOMS"), QByteArray("ROOMS|Foyer,Big Hall"));
    QCOMPARE(m_server->roomOf(QStringLiteral("ADMIN")), QStringLiteral("Foyer"));
}

void TestVoiceServer::deletesAUserWhoIsOnline() {
    const auto admin = inLobby("ADMIN");
    const auto wire = inLobby("AB1CD");
    admin->ask("ADMIN_DELETE_USER 7", "ADMIN_DELETE_USER_OK");
    QCOMPARE(wire->next("KICKED"), QByteArray("KICKED|Akun dihapus"));
    QVERIFY(client()->ask("LOGIN AB1CD pw", "LOGIN_").startsWith("LOGIN_FAILED"));
}

void TestVoiceServer::announcesQualityNowAndLater() {
    const auto admin = inLobby("ADMIN");
    const auto wire = inLobby("AB1CD");
    QVERIFY(!wire->linesSoFar().join('\n').contains("AUDIO_QUALITY"));
    admin->send("ADMIN_SET_AUDIO_QUALITY low");
    QCOMPARE(wire->next("AUDIO_QUALITY"), QByteArray("AUDIO_QUALITY|low|16000|16000|40|5"));
    m_server->announceQuality(QStringLiteral("odd"), -1, 0, 20, 11);
    QCOMPARE(wire->next("AUDIO_QUALITY"), QByteArray("AUDIO_QUALITY|odd|-1|0|20|11"));
    const auto later = client();
    later->send("LOGIN EF2GH pw");
    QCOMPARE(later->next("AUDIO_QUALITY"), QByteArray("AUDIO_QUALITY|odd|-1|0|20|11"));
}

void TestVoiceServer::aSecondLoginReplacesTheFirst() {
    const auto first = inLobby("AB1CD");
    const auto second = client();
    QVERIFY(!second->enter("AB1CD", "Lobby").isEmpty());
    QTRY_COMPARE(first->control.state(), QAbstractSocket::UnconnectedState);
    QVERIFY(m_server->isLoggedIn(QStringLiteral("AB1CD")));
    QCOMPARE(second->next("USER_LIST"), QByteArray("USER_LIST|Lobby|7|AB1CD|Name 7|RX|1|0"));
}

void TestVoiceServer::aFreshLoginOnTheSameLinkKeepsTheRoom() {
    const auto wire = inLobby("AB1CD");
    QVERIFY(!wire->ask("LOGIN AB1CD pw", "LOGIN_OK").isEmpty());
    QCOMPARE(m_server->roomOf(QStringLiteral("AB1CD")), QStringLiteral("Lobby"));
    QVERIFY(!wire->ask("LOGIN EF2GH pw", "LOGIN_OK").isEmpty());
    QCOMPARE(m_server->roomOf(QStringLiteral("EF2GH")), QString());
    QVERIFY(!m_server->isLoggedIn(QStringLiteral("AB1CD")));
}

void TestVoiceServer::leavesTheRoomWhenTheConnectionEnds() {
    auto wire = inLobby("AB1CD");
    wire->ask("TX_START \"Lobby\"", "TX_START_OK");
    QSignalSpy gone(m_server.get(), &VoiceServer::clientDisconnected);
    QSignalSpy left(m_server.get(), &VoiceServer::left);
    QSignalSpy talking(m_server.get(), &VoiceServer::talkingChanged);
    wire->control.abort();
    QVERIFY(gone.wait());
    QCOMPARE(left.count(), 1);
    QCOMPARE(talking.count(), 1);
    QVERIFY(!m_server->isLoggedIn(QStringLiteral("AB1CD")));
}

void TestVoiceServer::quitClosesTheConnection() {
    const auto wire = inLobby("AB1CD");
    wire->send("QUIT");
    QTRY_COMPARE(wire->control.state(), QAbstractSocket::UnconnectedState);
}

void TestVoiceServer::dropsAClientThatSendsNoLineEnd() {
    const auto wire = client();
    wire->control.write(QByteArray(2 << 20, 'x'));
    QTRY_COMPARE(wire->control.state(), QAbstractSocket::UnconnectedState);
}

void TestVoiceServer::registersMediaEndpoints_data() {
    QTest::addColumn<QByteArray>("suffix");
    QTest::addColumn<QByteArray>("answer");
    QTest::newRow("with id") << QByteArray(":7") << QByteArray("REGISTERED:7");
    QTest::newRow("without id") << QByteArray() << QByteArray("OK");
    QTest::newRow("with another's id") << QByteArray(":8") << QByteArray();
    QTest::newRow("wrong token") << QByteArray("0:7") << QByteArray();
}

void TestVoiceServer::registersMediaEndpoints() {
    QFETCH(QByteArray, suffix);
    QFETCH(QByteArray, answer);
    const auto wire = client();
    const QByteArray token = wire->ask("LOGIN AB1CD pw", "LOGIN_OK").split('|').value(1);
    wire->sendDatagram("KEEPALIVE"); // nobody knows this endpoint yet
    wire->sendDatagram("TOKEN:" + token + suffix);
    wire->sendDatagram("KEEPALIVE");
    const QList<QByteArray> registered{answer, "KEEPALIVE_OK"};
    QCOMPARE(wire->datagramsSoFar(), answer.isEmpty() ? QList<QByteArray>() : registered);
}

void TestVoiceServer::relaysATalkerToTheOthersOfItsRoomOnly() {
    const auto talker = inLobby("AB1CD");
    const auto listener = inLobby("EF2GH");
    const auto elsewhere = client();
    QVERIFY(!elsewhere->enter("ADMIN", "Big Hall").isEmpty());
    QSignalSpy relayed(m_server.get(), &VoiceServer::audioRelayed);
    talker->ask("TX_START \"Lobby\"", "TX_START_OK");
    talker->sendDatagram(header7 + "frame");
    QCOMPARE(listener->nextDatagram(), header7 + "frame");
    QCOMPARE(talker->datagramsSoFar(), QList<QByteArray>());
    QCOMPARE(elsewhere->datagramsSoFar(), QList<QByteArray>());
    QCOMPARE(relayed.count(), 1);
    QCOMPARE(relayed.at(0).at(0).toString(), QStringLiteral("AB1CD"));
    QCOMPARE(relayed.at(0).at(1).toByteArray(), QByteArray("frame"));
}

void TestVoiceServer::relaysNothingThatIsNotATalkersOwn_data() {
    QTest::addColumn<bool>("talking");
    QTest::addColumn<bool>("fromElsewhere");
    QTest::addColumn<QByteArray>("datagram");
    QTest::newRow("not talking") << false << false << header7 + "frame";
    QTest::newRow("another's id") << true << false << QByteArray("\0\0\0\10frame", 9);
    QTest::newRow("no frame") << true << false << header7;
    QTest::newRow("three bytes") << true << false << QByteArray("\0\0\7", 3);
    QTest::newRow("unknown endpoint") << true << true << header7 + "frame";
}

void TestVoiceServer::relaysNothingThatIsNotATalkersOwn() {
    QFETCH(bool, talking);
    QFETCH(bool, fromElsewhere);
    QFETCH(QByteArray, datagram);
    const auto talker = inLobby("AB1CD");
    const auto listener = inLobby("EF2GH");
    const auto stranger = client();
    if (talking) {
        talker->ask("TX_START \"Lobby\"", "TX_START_OK");
    }
    QSignalSpy received(m_server.get(), &VoiceServer::datagramReceived);
    (fromElsewhere ? stranger : talker)->sendDatagram(datagram);
    QVERIFY(received.wait());
    QCOMPARE(listener->datagramsSoFar(), QList<QByteArray>());
}

void TestVoiceServer::sendsAudioAsIfFromAnyTalker() {
    const auto wire = inLobby("AB1CD");
    m_server->sendAudioTo(QStringLiteral("AB1CD"), 0xFFFFFFFF, "frame");
    QCOMPARE(wire->nextDatagram(), QByteArray("\xFF\xFF\xFF\xFF"
                                              "frame"));
}

void TestVoiceServer::saysNothingWhileSilentAndHeals() {
    const auto wire = inLobby("AB1CD");
    wire->linesSoFar();
    m_server->setSilent(true);
    wire->send("PING");
    wire->sendDatagram("PING");
    m_server->sendRaw(QStringLiteral("AB1CD"), "HELLO\r\n");
    QCOMPARE(wire->next("", 300), QByteArray());
    QCOMPARE(wire->nextDatagram(0), QByteArray());
    QCOMPARE(wire->control.state(), QAbstractSocket::ConnectedState);
    m_server->setSilent(false);
    QCOMPARE(wire->next(""), QByteArray("HELLO"));
    QCOMPARE(wire->next("PONG", 10000), QByteArray("PONG")); // the kernel sends the lost ping again
    wire->sendDatagram("PING");
    QCOMPARE(wire->nextDatagram(), QByteArray("PONG"));
}

void TestVoiceServer::acceptsNobodyWhileSilent() {
    m_server->setSilent(true);
    const auto wire = client();
    QVERIFY(!wire->control.waitForConnected(300));
    QCOMPARE(wire->control.state(), QAbstractSocket::UnconnectedState); // given up, not refused
    QCOMPARE(wire->control.error(), QAbstractSocket::SocketTimeoutError);
    m_server->setSilent(false);
    QCOMPARE(client()->next("ROIP"), QByteArray("ROIP SERVER READY"));
}

void TestVoiceServer::ignoresChosenCommands() {
    const auto wire = inLobby("AB1CD");
    QSignalSpy lines(m_server.get(), &VoiceServer::lineReceived);
    m_server->setIgnored([](const QString &line) { return line.startsWith(QLatin1String("TX_START")); });
    wire->send("TX_START \"Lobby\"");
    QVERIFY(!wire->linesSoFar().join('\n').contains("TX_START"));
    QVERIFY(!m_server->isTalking(QStringLiteral("AB1CD")));
    QCOMPARE(lines.at(0).at(0).toString(), QStringLiteral("AB1CD"));
    QCOMPARE(lines.at(0).at(1).toString(), QStringLiteral("TX_START \"Lobby\""));
    m_server->setIgnored({});
    QCOMPARE(wire->ask("TX_START \"Lobby\"", "TX_START"), QByteArray("TX_START_OK"));
}

void TestVoiceServer::losesChosenDatagrams() {
    const auto wire = inLobby("AB1CD");
    m_server->setMediaLoss([](const QByteArray &datagram) { return datagram == "KEEPALIVE_OK"; });
    wire->sendDatagram("KEEPALIVE");
    QCOMPARE(wire->datagramsSoFar(), QList<QByteArray>());
    m_server->setMediaLoss({});
    wire->sendDatagram("KEEPALIVE");
    QCOMPARE(wire->datagramsSoFar(), QList<QByteArray>{"KEEPALIVE_OK"});
}

void TestVoiceServer::delaysReplies() {
    const auto wire = inLobby("AB1CD");
    wire->linesSoFar();
    m_server->setReplyDelay(100);
    QElapsedTimer sinceSent;
    sinceSent.start();
    wire->send("ROOMS");
    wire->send("PING");
    QCOMPARE(wire->next(""), QByteArray("ROOMS|Lobby,Big Hall"));
    QVERIFY2(sinceSent.elapsed() >= 99, qPrintable(QString::number(sinceSent.elapsed())));
    QCOMPARE(wire->next(""), QByteArray("PONG"));
}

void TestVoiceServer::altersRepliesOnTheirWay() {
    const auto wire = inLobby("AB1CD");
    wire->linesSoFar();
    m_server->setReplyPath([](const QByteArray &line) { return QList<QByteArray>{line, line.left(2), line.mid(2)}; });
    QCOMPARE(wire->ask("ROOMS", ""), QByteArray("ROOMS|Lobby,Big Hall"));
    QCOMPARE(wire->next(""), QByteArray("ROOMS|Lobby,Big Hall"));
}

void TestVoiceServer::altersDatagramsOnTheirWay() {
    const auto wire = inLobby("AB1CD");
    QByteArray waiting;
    m_server->setMediaPath([&waiting](const QByteArray &datagram) {
        QList<QByteArray> pieces;
        if (!waiting.isEmpty()) {
            pieces = {datagram, waiting};
        }
        waiting = pieces.isEmpty() ? datagram : QByteArray();
        return pieces;
    });
    m_server->sendAudioTo(QStringLiteral("AB1CD"), 8, "first");
    m_server->sendAudioTo(QStringLiteral("AB1CD"), 8, "second");
    QVERIFY(wire->nextDatagram().endsWith("second"));
    QVERIFY(wire->nextDatagram().endsWith("first"));
}

void TestVoiceServer::startsAgainAfterStop() {
    const auto wire = inLobby("AB1CD");
    const quint16 tcpPort = m_server->tcpPort();
    const quint16 udpPort = m_server->udpPort();
    QSignalSpy gone(m_server.get(), &VoiceServer::clientDisconnected);
    m_server->stop();
    QCOMPARE(gone.count(), 1);
    QTRY_COMPARE(wire->control.state(), QAbstractSocket::UnconnectedState);
    WireClient refused(tcpPort);
    QTRY_COMPARE(refused.control.error(), QAbstractSocket::ConnectionRefusedError);
    QVERIFY(m_server->start(tcpPort, udpPort));
    QCOMPARE(client()->enter("AB1CD", "Lobby"), "JOIN_OK|Lobby|" + lobbyKey.toBase64());
}

void TestVoiceServer::saysWhenAPortIsTaken() {
    VoiceServer other;
    QVERIFY(!other.start(m_server->tcpPort(), 0));
    QVERIFY(!other.start(0, m_server->udpPort()));
    QVERIFY(other.start(0, 0));
}

QTEST_GUILESS_MAIN(TestVoiceServer)
#include "tst_VoiceServer.moc"
