#include "WireServer.h"
#include "sim/server/ServerCommands.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

using namespace sim;

class TestServerCommands : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_server = std::make_unique<WireServer>(); }
    void cleanup() { m_server.reset(); }

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
    void tellsAUsersInformation();
    void aSecondLoginReplacesTheFirst();
    void aFreshLoginOnTheSameLinkKeepsTheRoom();

private:
    std::unique_ptr<WireServer> m_server;
};

void TestServerCommands::answersLogin_data() {
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

void TestServerCommands::answersLogin() {
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, answer);
    const auto wire = m_server->client();
    wire->next("ROIP");
    const QByteArray reply = wire->ask(line.constData(), "");
    QVERIFY2(reply.startsWith(answer), reply.constData());
}

void TestServerCommands::loginReplyHasItsFields() {
    const QList<QByteArray> admin = m_server->client()->ask("LOGIN ADMIN pw", "LOGIN_OK").split('|');
    QVERIFY(admin.size() >= 16);
    QVERIFY(admin.at(1).size() >= 16);
    QCOMPARE(admin.at(3), QByteArray("true"));
    QCOMPARE(admin.at(4), QByteArray("1"));
    QCOMPARE(QByteArray::fromBase64(admin.at(15)).size(), 32);
    const QList<QByteArray> other = m_server->client()->ask("LOGIN AB1CD pw", "LOGIN_OK").split('|');
    QCOMPARE(other.at(3), QByteArray("false"));
    QCOMPARE(other.at(4), QByteArray("7"));
    QVERIFY(other.at(1) != admin.at(1));
}

void TestServerCommands::tellsWhyARoomCannotBeJoined() {
    const auto wire = m_server->client();
    QCOMPARE(wire->ask("JOIN Lobby", "ERROR"), QByteArray("ERROR|Belum login"));
    wire->ask("LOGIN AB1CD pw", "LOGIN_OK");
    QCOMPARE(wire->ask("JOIN Nowhere", "JOIN_FAILED"), QByteArray("JOIN_FAILED|Room tidak ditemukan"));
    const auto admin = m_server->inLobby("ADMIN");
    admin->ask("ADMIN_CREATE_ROOM \"Tiny\" 1", "ADMIN_CREATE_ROOM_OK");
    QVERIFY(!admin->ask("JOIN Tiny", "JOIN_OK").isEmpty());
    QCOMPARE(wire->ask("JOIN Tiny", "JOIN_FAILED"), QByteArray("JOIN_FAILED|Room penuh"));
}

void TestServerCommands::handsOutTheRoomKeyOnJoin() {
    const auto wire = m_server->client();
    QSignalSpy joined(m_server.get(), &VoiceServer::joined);
    QCOMPARE(wire->enter("AB1CD", "Big Hall"), "JOIN_OK|Big Hall|" + hallKey.toBase64());
    QCOMPARE(joined.count(), 1);
    QCOMPARE(m_server->roomOf(QStringLiteral("AB1CD")), QStringLiteral("Big Hall"));
    m_server->setRoomKey(QStringLiteral("Big Hall"), {});
    QCOMPARE(m_server->client()->enter("EF2GH", "Big Hall"), QByteArray("JOIN_OK|Big Hall|"));
}

void TestServerCommands::listsTheRoomOnEveryChange() {
    const auto first = m_server->inLobby("AB1CD");
    QCOMPARE(first->next("USER_LIST"), QByteArray("USER_LIST|Lobby|7|AB1CD|Name 7|RX|1|0"));
    auto second = m_server->inLobby("EF2GH");
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

void TestServerCommands::doesNotMarkTheTalkerInItsOwnList() {
    const auto talker = m_server->inLobby("AB1CD");
    const auto listener = m_server->inLobby("EF2GH");
    talker->linesSoFar();
    talker->ask("TX_START \"Lobby\"", "TX_START_OK");
    QCOMPARE(talker->next("USER_LIST"), QByteArray("USER_LIST|Lobby|7,8|AB1CD,EF2GH|Name 7,Name 8|RX,RX|1,1|0,0"));
    listener->ask("TX_START \"Lobby\"", "TX_START_OK");
    QCOMPARE(talker->next("USER_LIST"), QByteArray("USER_LIST|Lobby|7,8|AB1CD,EF2GH|Name 7,Name 8|RX,TX|1,1|0,0"));
    QVERIFY(m_server->isTalking(QStringLiteral("AB1CD")));
    m_server->setTalking(QStringLiteral("AB1CD"), false);
    QCOMPARE(listener->linesSoFar().last(), QByteArray("USER_LIST|Lobby|7,8|AB1CD,EF2GH|Name 7,Name 8|RX,RX|1,1|0,0"));
}

void TestServerCommands::refusesToLetTalk_data() {
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

void TestServerCommands::refusesToLetTalk() {
    QFETCH(QByteArray, callsign);
    QFETCH(bool, muted);
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, answer);
    const auto wire = m_server->inLobby(callsign.constData());
    m_server->mute(QString::fromLatin1(callsign), muted, QStringLiteral("ADMIN"));
    QCOMPARE(wire->ask(line.constData(), "TX_START"), answer);
    QVERIFY(!m_server->isTalking(QString::fromLatin1(callsign)));
}

void TestServerCommands::answersQueries_data() {
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

void TestServerCommands::answersQueries() {
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, answer);
    const auto admin = m_server->inLobby("ADMIN");
    const auto wire = m_server->client();
    wire->ask("LOGIN AB1CD pw", "LOGIN_OK");
    QCOMPARE(wire->ask(line.constData(), ""), answer);
}

void TestServerCommands::tellsAUsersInformation() {
    const auto wire = m_server->inLobby("AB1CD");
    const QByteArray info = wire->ask("USER_GET_INFO EF2GH", "USER_INFO_RESULT|").mid(17);
    const QJsonObject record = QJsonDocument::fromJson(info).object();
    QCOMPARE(record[QStringLiteral("id")].toInt(), 8);
    QCOMPARE(record[QStringLiteral("name")].toString(), QStringLiteral("Name 8"));
}

void TestServerCommands::aSecondLoginReplacesTheFirst() {
    const auto first = m_server->inLobby("AB1CD");
    const auto second = m_server->client();
    QVERIFY(!second->enter("AB1CD", "Lobby").isEmpty());
    QTRY_COMPARE(first->control.state(), QAbstractSocket::UnconnectedState);
    QVERIFY(m_server->isLoggedIn(QStringLiteral("AB1CD")));
    QCOMPARE(second->next("USER_LIST"), QByteArray("USER_LIST|Lobby|7|AB1CD|Name 7|RX|1|0"));
}

void TestServerCommands::aFreshLoginOnTheSameLinkKeepsTheRoom() {
    const auto wire = m_server->inLobby("AB1CD");
    QVERIFY(!wire->ask("LOGIN AB1CD pw", "LOGIN_OK").isEmpty());
    QCOMPARE(m_server->roomOf(QStringLiteral("AB1CD")), QStringLiteral("Lobby"));
    QVERIFY(!wire->ask("LOGIN EF2GH pw", "LOGIN_OK").isEmpty());
    QCOMPARE(m_server->roomOf(QStringLiteral("EF2GH")), QString());
    QVERIFY(!m_server->isLoggedIn(QStringLiteral("AB1CD")));
}

QTEST_GUILESS_MAIN(TestServerCommands)
#include "tst_ServerCommands.moc"
