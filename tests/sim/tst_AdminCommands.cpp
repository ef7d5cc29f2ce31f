#include "WireServer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

using namespace sim;

class TestAdminCommands : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { m_server = std::make_unique<WireServer>(); }
    void cleanup() { m_server.reset(); }

    void refusesAdministrationByOthers();
    void answersAdministration_data();
    void answersAdministration();
    void letsMembersUpdateThemselvesOnly();
    void tellsTheUserDirectory();
    void approvesWaitingUsers();
    void kicks();
    void mutes();
    void movesWithTheNewKey();
    void renamesARoomAroundItsMembers();
    void deletesAUserWhoIsOnline();
    void announcesQualityNowAndLater();

private:
    std::unique_ptr<WireServer> m_server;
};

void TestAdminCommands::refusesAdministrationByOthers() {
    const auto wire = m_server->inLobby("AB1CD");
    for (const char *line : {"ADMIN_GET_ALL_USERS", "ADMIN_KICK 1", "ADMIN_MUTE 1 1", "ADMIN_DELETE_USER 1",
                             "ADMIN_CREATE_ROOM \"X\" 5", "ADMIN_SET_AUDIO_QUALITY high"}) {
        QCOMPARE(wire->ask(line, "ERROR"), QByteArray("ERROR|Khusus admin"));
    }
}

void TestAdminCommands::answersAdministration_data() {
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

void TestAdminCommands::answersAdministration() {
    QFETCH(QByteArray, line);
    QFETCH(QByteArray, answer);
    const auto admin = m_server->inLobby("ADMIN");
    admin->linesSoFar();
    QCOMPARE(admin->ask(line.constData(), ""), answer);
}

void TestAdminCommands::letsMembersUpdateThemselvesOnly() {
    const auto wire = m_server->inLobby("AB1CD");
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

void TestAdminCommands::tellsTheUserDirectory() {
    const auto admin = m_server->inLobby("ADMIN");
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

void TestAdminCommands::approvesWaitingUsers() {
    const auto admin = m_server->inLobby("ADMIN");
    const auto wire = m_server->inLobby("WAITS");
    QVERIFY(wire->next("USER_LIST").endsWith("|1,0|0,0"));
    admin->ask("ADMIN_APPROVE_USER 10", "ADMIN_APPROVE_USER_OK");
    QVERIFY(wire->next("USER_LIST").endsWith("|1,1|0,0"));
    QCOMPARE(wire->ask("TX_START \"Lobby\"", "TX_START"), QByteArray("TX_START_OK"));
}

void TestAdminCommands::kicks() {
    const auto admin = m_server->inLobby("ADMIN");
    const auto wire = m_server->inLobby("AB1CD");
    QSignalSpy gone(m_server.get(), &VoiceServer::clientDisconnected);
    QCOMPARE(admin->ask("ADMIN_KICK 7", "ADMIN_KICK_OK"), QByteArray("ADMIN_KICK_OK|7"));
    QCOMPARE(wire->next("KICKED"), QByteArray("KICKED|Dikeluarkan oleh ADMIN"));
    QTRY_COMPARE(wire->control.state(), QAbstractSocket::UnconnectedState);
    QCOMPARE(gone.count(), 1);
    QCOMPARE(gone.at(0).at(0).toString(), QStringLiteral("AB1CD"));
    QVERIFY(!m_server->isLoggedIn(QStringLiteral("AB1CD")));
    QVERIFY(admin->linesSoFar().contains("USER_LIST|Lobby|1|ADMIN|Name 1|RX|1|0"));
}

void TestAdminCommands::mutes() {
    const auto admin = m_server->inLobby("ADMIN");
    const auto wire = m_server->inLobby("AB1CD");
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

void TestAdminCommands::movesWithTheNewKey() {
    const auto admin = m_server->inLobby("ADMIN");
    const auto wire = m_server->inLobby("AB1CD");
    admin->ask("ADMIN_MOVE 7 Big Hall", "ADMIN_MOVE_OK");
    QCOMPARE(wire->next("MOVED"), "MOVED|Big Hall|ADMIN|" + hallKey.toBase64());
    QCOMPARE(wire->next("USER_LIST"), QByteArray("USER_LIST|Big Hall|7|AB1CD|Name 7|RX|1|0"));
    QVERIFY(admin->linesSoFar().contains("USER_LIST|Lobby|1|ADMIN|Name 1|RX|1|0"));
    m_server->move(QStringLiteral("AB1CD"), QStringLiteral("Lobby"));
    QCOMPARE(wire->next("MOVED"), "MOVED|Lobby|server|" + lobbyKey.toBase64());
}

void TestAdminCommands::renamesARoomAroundItsMembers() {
    const auto admin = m_server->inLobby("ADMIN");
    const auto wire = m_server->inLobby("AB1CD");
    admin->ask("ADMIN_EDIT_ROOM \"Lobby\" \"Foyer\" 10 \"\"", "ADMIN_EDIT_ROOM_OK");
    QCOMPARE(wire->next("MOVED"), "MOVED|Foyer|ADMIN|" + lobbyKey.toBase64());
    QCOMPARE(wire->ask("ROOMS", "ROOMS"), QByteArray("ROOMS|Foyer,Big Hall"));
    QCOMPARE(m_server->roomOf(QStringLiteral("ADMIN")), QStringLiteral("Foyer"));
}

void TestAdminCommands::deletesAUserWhoIsOnline() {
    const auto admin = m_server->inLobby("ADMIN");
    const auto wire = m_server->inLobby("AB1CD");
    admin->ask("ADMIN_DELETE_USER 7", "ADMIN_DELETE_USER_OK");
    QCOMPARE(wire->next("KICKED"), QByteArray("KICKED|Akun dihapus"));
    QVERIFY(m_server->client()->ask("LOGIN AB1CD pw", "LOGIN_").startsWith("LOGIN_FAILED"));
}

void TestAdminCommands::announcesQualityNowAndLater() {
    const auto admin = m_server->inLobby("ADMIN");
    const auto wire = m_server->inLobby("AB1CD");
    QVERIFY(!wire->linesSoFar().join('\n').contains("AUDIO_QUALITY"));
    admin->send("ADMIN_SET_AUDIO_QUALITY low");
    QCOMPARE(wire->next("AUDIO_QUALITY"), QByteArray("AUDIO_QUALITY|low|16000|16000|40|5"));
    m_server->announceQuality(QStringLiteral("odd"), -1, 0, 20, 11);
    QCOMPARE(wire->next("AUDIO_QUALITY"), QByteArray("AUDIO_QUALITY|odd|-1|0|20|11"));
    const auto later = m_server->client();
    later->send("LOGIN EF2GH pw");
    QCOMPARE(later->next("AUDIO_QUALITY"), QByteArray("AUDIO_QUALITY|odd|-1|0|20|11"));
}

QTEST_GUILESS_MAIN(TestAdminCommands)
#include "tst_AdminCommands.moc"
