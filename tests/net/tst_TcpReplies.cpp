#include "ActiveTimers.h"
#include "ControlServer.h"
#include "SignalJournal.h"
#include "net/TcpClient.h"

#include <QtTest>

namespace {

void row(const char *line, std::initializer_list<const char *> events, const char *sent = "") {
    QTest::newRow(line) << QString::fromUtf8(line) << entries(events) << QByteArray(sent);
}

const char *const allUsers = "ADMIN_GET_ALL_USERS\r\n";
const char *const rooms = "ROOMS\r\n";

void greetingAndPong() {
    row("PONG", {}); // none outstanding
    row("ROIP SERVER READY", {"debug [TCP] Server siap"});
    row("ROIP SERVER READY v2|x", {"debug [TCP] Server siap"});
}

void accountReplies() {
    row("LOGIN_OK|x|y|TRUE|42",
        {"debug [TCP] Login successful, user_id: 42 is_admin: true", "loginResult(true, Login berhasil)"});
    row("LOGIN_OK|tok|2|false|7|5|6|7|8|9|10|11|12|13|14|key",
        {"debug [TCP] Login successful, user_id: 7 is_admin: false", "sessionKeyReceived(key)",
         "loginResult(true, Login berhasil)"});
    row("LOGIN_OK|tok|2|true|7|5|6|7|8|9|10|11|12|13|14|",
        {"debug [TCP] Login successful, user_id: 7 is_admin: true", "loginResult(true, Login berhasil)"});
    row("LOGIN_OK", {"debug [TCP] Login successful, user_id: 0 is_admin: false", "loginResult(true, Login berhasil)"});
    row("LOGIN_OK|t||1|x",
        {"debug [TCP] Login successful, user_id: 0 is_admin: false", "loginResult(true, Login berhasil)"});
    row("LOGIN_FAILED|Perangkat tidak terdaftar|x", {"loginResult(false, Perangkat tidak terdaftar)"});
    row("LOGIN_FAILED", {"loginResult(false, Login gagal)"});
    row("LOGIN_FAILED|", {"loginResult(false, )"});
    row("REGISTER_OK|welcome", {"registerResult(true, welcome)"});
    row("REGISTER_OK", {"registerResult(true, Registrasi berhasil)"});
    row("REGISTER_FAILED|taken", {"registerResult(false, taken)"});
    row("REGISTER_FAILED", {"registerResult(false, Registrasi gagal)"});
}

void roomAndUserReplies() {
    row("ROOMS|Lobby,Room A,,B", {R"(roomListReceived(["Lobby","Room A","B"]))"});
    row("ROOMS|", {"roomListReceived([])"});
    row("ROOMS", {"roomListReceived([])"});
    row("JOIN_OK|Lobby|a2V5",
        {R"(debug [TCP] JOIN room: "Lobby")", "roomKeyReceived(a2V5)", "joinRoomResult(true, Lobby)"});
    row("JOIN_OK|Lobby|", {R"(debug [TCP] JOIN room: "Lobby")", "joinRoomResult(true, Lobby)"});
    row("JOIN_OK", {R"(debug [TCP] JOIN room: "")", "joinRoomResult(true, )"});
    row("JOIN_FAILED|full", {"joinRoomResult(false, full)"});
    row("JOIN_FAILED", {"joinRoomResult(false, Gagal join room)"});
    row("LEAVE_OK|Room A", {"leaveRoomResult(true, Room A)"});
    row("MOVED|Room B|admin|a2V5", {"roomKeyReceived(a2V5)", "joinRoomResult(true, Room B)"});
    row("MOVED|Room B|admin", {"joinRoomResult(true, Room B)"});
    row("USER_LIST|Lobby|1|AB1CD|Ana|TX|1|0",
        {R"(roomUsersReceived([{"approved":true,"callsign":"AB1CD","is_muted":false,"is_transmitting":true,)"
         R"("name":"Ana","user_id":1}]))"});
    row("USER_LIST|Lobby|1|AB1CD|Ana|TX", {"roomUsersReceived([])"});
    row("ONLINE_USERS|1,AB1CD,Name,Room,true",
        {R"(onlineUsersReceived([{"callsign":"AB1CD","id":1,"is_admin":false,"name":"Name","room":"Room"}]))"});
    row("ONLINE_USERS", {});
    row(R"(ADMIN_ALL_USERS|[{"id":1},2])", {R"(allUsersReceived([{"id":1}]))"});
    row(R"(ADMIN_GET_ALL_USERS|[{"id":1}])", {R"(allUsersReceived([{"id":1}]))"});
    row("ADMIN_ALL_USERS|{}", {});
    row(R"(ADMIN_PENDING|[{"id":1}])", {R"(pendingUsersReceived([{"id":1}]))"});
    row("ADMIN_PENDING", {});
    row(R"(USER_INFO|{"email":"a|b"})", {R"(userInfoReceived({"email":"a|b"}))"});
    row("USER_INFO|[]", {});
    row("TX_START_OK", {"transmitStarted()"});
    row("TX_START_FAILED|busy", {"transmitFailed(busy)"});
    row("TX_START_FAILED", {"transmitFailed(TX gagal)"});
    row("TX_STOP_OK|x", {"transmitStopped()"});
    row(R"(USER_INFO_RESULT|{"id":1})", {R"(userInfoReceived({"id":1}))"});
    row("USER_INFO_RESULT", {});
    row("USER_CHANGE_PASSWORD_OK",
        {"debug [TCP] Password berubah", "userPasswordChanged(true, Password berhasil diubah)"});
    row(R"(USER_PROFILE|{"id":1})", {R"(userProfileReceived({"id":1}))"});
    row("USER_PROFILE|x", {});
    row("USER_CHANGE_PASSWORD_FAIL|too|short",
        {R"(debug [TCP] Password gagal diubah: "too|short")", "userPasswordChanged(false, too|short)"});
    row("USER_CHANGE_PASSWORD_FAIL",
        {R"(debug [TCP] Password gagal diubah: "Gagal")", "userPasswordChanged(false, Gagal)"});
    row("USER_REQUEST_HWID_RESET_OK", {"debug [TCP] Permintaan reset HWID Terkirim"});
    row("ADMIN_NOTIFICATION|HWID_RESET_REQUEST|AB1CD|new phone|x",
        {"adminNotification(HWID_RESET_REQUEST, AB1CD:new phone)"});
    row("ADMIN_NOTIFICATION|HWID_RESET_REQUEST|AB1CD", {});
    row("ADMIN_NOTIFICATION|OTHER|x|y", {});
    row("MUTED|1|by|Budi", {"adminMuted(true, by|Budi)"});
    row("MUTED|0|", {"adminMuted(false, )"});
    row("MUTED", {"adminMuted(false, )"});
}

void adminConfirmations() {
    row("ADMIN_KICK_OK", {"debug [TCP] Admin kick"}, allUsers);
    row("ADMIN_APPROVE_USER_OK", {"debug [TCP] Admin approve"}, allUsers);
    row("ADMIN_UNAPPROVE_USER_OK", {"debug [TCP] Admin unapprove"}, allUsers);
    row("ADMIN_MUTE_OK|7|1",
        {"debug [TCP] Admin mute/unmute OK — uid: 7 muted: true", "adminMuteStatusChanged(7, true)"}, allUsers);
    row("ADMIN_MUTE_OK|x|true",
        {"debug [TCP] Admin mute/unmute OK — uid: 0 muted: false", "adminMuteStatusChanged(0, false)"}, allUsers);
    row("ADMIN_RESET_HWID_OK|AB1CD", {"hwidReset(AB1CD)"}, allUsers);
    row("ADMIN_UPDATE_USER_OK", {"debug [TCP] Admin update user"}, allUsers);
    row("ADMIN_DELETE_USER_OK", {"debug [TCP] Admin delete user OK -- refreshing"}, allUsers);
    row("ADMIN_SET_AUDIO_QUALITY_OK|high", {R"(debug [TCP] Admin set audio quality: "high")"});
    row("ADMIN_SET_ROOM_ORDER_OK", {"debug [TCP] Room order saved"}, rooms);
    row("ADMIN_CREATE_ROOM_OK|Room A", {R"(debug [TCP] Admin create room: "Room A")"}, rooms);
    row("ADMIN_DELETE_ROOM_OK|Room A", {R"(debug [TCP] Admin delete room: "Room A")"}, rooms);
    row("ADMIN_EDIT_ROOM_OK|Room A", {R"(debug [TCP] Admin edit room: "Room A")"}, rooms);
    row("ADMIN_RESET_PASSWORD_OK|AB1CD", {R"(debug [TCP] Admin reset password for user: "AB1CD")"});
    row("ADMIN_APPROVE_OK", {"debug [TCP] Admin approve OK (alt) -- refreshing"}, allUsers);
    row("ADMIN_UNAPPROVE_OK", {"debug [TCP] Admin unapprove (alt) -- refreshing"}, allUsers);
    row("ADMIN_BAN_OK", {"debug [TCP] Admin ban -- refreshing"}, allUsers);
    row("ADMIN_MOVE_OK|7|Lobby", {"debug [TCP] Admin move -- refreshing"}, allUsers);
}

void noticesAndEndings() {
    row(R"(SERVER_INFO|{"name":"Kivo"})", {R"(serverInfoReceived({"name":"Kivo"}))"});
    row("AUDIO_QUALITY|high|64000|48000|20|8",
        {R"(audioQualityReceived({"bitrate":64000,"complexity":8,"frame_duration":20,"preset":"high",)"
         R"("sample_rate":48000}))"});
    row("AUDIO_QUALITY|high|64000|48000|20", {});
    row("ERROR|not allowed|x", {"errorOccurred(not allowed)"});
    row("ERROR", {"errorOccurred(Server error)"});
    row("KICKED", {"kicked(Dikeluarkan oleh admin)", "errorOccurred(KICKED: Dikeluarkan oleh admin)"}, "QUIT\r\n");
    row("KICKED|a|b", {"kicked(a|b)", "errorOccurred(KICKED: a|b)"}, "QUIT\r\n");
    row("KICKED|", {"kicked()", "errorOccurred(KICKED: )"}, "QUIT\r\n");
    row("BANNED", {"banned(Akun dibanned oleh admin)", "errorOccurred(BANNED: Akun dibanned oleh admin)"}, "QUIT\r\n");
    row("BANNED|a|b", {"banned(a|b)", "errorOccurred(BANNED: a|b)"}, "QUIT\r\n");
    row(R"(ANNOUNCEMENT|{"text":"hi"})", {R"(announcementReceived({"text":"hi"}))"});
    row(R"(ANNOUNCEMENTS|[{"text":"hi"}])", {R"(announcementsListReceived([{"text":"hi"}]))"});
}

void unknownLines() {
    row("WHATEVER|x", {R"(debug [TCP] Unknown command: "WHATEVER|x")"});
    row("pong", {R"(debug [TCP] Unknown command: "pong")"});
    row("PONG|1", {R"(debug [TCP] Unknown command: "PONG|1")"});
    row("rooms|a", {R"(debug [TCP] Unknown command: "rooms|a")"});
    row("ROOMS2|a", {R"(debug [TCP] Unknown command: "ROOMS2|a")"});
    row("ADMIN_APPROVE", {R"(debug [TCP] Unknown command: "ADMIN_APPROVE")"});
    row("|x", {R"(debug [TCP] Unknown command: "|x")"});
}

} // namespace

/// What each reply of the server causes: log lines and signals in order, state, and commands sent in answer.
class TestTcpReplies : public QObject {
    Q_OBJECT

    ControlServer m_server;
    TcpClient m_client{nullptr, steadyEpochMs, {.heartbeat = std::chrono::hours(1)}}; // no PING among what is sent

private Q_SLOTS:
    void initTestCase();
    void handlesEveryReply_data();
    void handlesEveryReply();
    void keepsTheAccountOfTheLogin();
    void namesTheRoomLastJoinedWhenLeaving();
    void remembersTheLastReply();
    void stopsTheHeartbeatWhenKicked_data();
    void stopsTheHeartbeatWhenKicked();
};

void TestTcpReplies::initTestCase() {
    QVERIFY(m_server.isListening());
    QVERIFY(m_server.accept(m_client));
}

void TestTcpReplies::handlesEveryReply_data() {
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("events");
    QTest::addColumn<QByteArray>("sent");
    greetingAndPong();
    accountReplies();
    roomAndUserReplies();
    adminConfirmations();
    noticesAndEndings();
    unknownLines();
}

void TestTcpReplies::handlesEveryReply() {
    QFETCH(QString, line);
    SignalJournal journal(&m_client);
    m_client.dispatchLine(line);
    QTEST(journal.take(), "events");
    QTEST(m_server.heard(m_client), "sent");
}

void TestTcpReplies::keepsTheAccountOfTheLogin() {
    TcpClient client;
    QCOMPARE(client.userId(), 0);
    QCOMPARE(client.isAdmin(), false);
    QCOMPARE(client.loginText(), QString());
    client.dispatchLine(QStringLiteral("LOGIN_OK|session token|y|TRUE|42"));
    QCOMPARE(client.userId(), 42);
    QCOMPARE(client.isAdmin(), true);
    QCOMPARE(client.loginText(), QStringLiteral("session token"));
    client.dispatchLine(QStringLiteral("LOGIN_FAILED|no"));
    QCOMPARE(client.userId(), 42);
    client.dispatchLine(QStringLiteral("LOGIN_OK"));
    QCOMPARE(client.userId(), 0);
    QCOMPARE(client.isAdmin(), false);
    QCOMPARE(client.loginText(), QString());
}

void TestTcpReplies::namesTheRoomLastJoinedWhenLeaving() {
    TcpClient client;
    QSignalSpy left(&client, &TcpClient::leaveRoomResult);
    const auto leave = [&](const char *reply) {
        client.dispatchLine(QString::fromLatin1(reply));
        return left.takeLast().at(1).toString();
    };
    QCOMPARE(leave("LEAVE_OK"), QString());
    client.dispatchLine(QStringLiteral("JOIN_OK|Lobby"));
    QCOMPARE(leave("LEAVE_OK"), QStringLiteral("Lobby"));
    client.dispatchLine(QStringLiteral("MOVED|Room B"));
    client.dispatchLine(QStringLiteral("JOIN_FAILED|full"));
    QCOMPARE(leave("LEAVE_OK|"), QStringLiteral("Room B"));
    QCOMPARE(leave("LEAVE_OK|Room C"), QStringLiteral("Room C"));
}

void TestTcpReplies::remembersTheLastReply() {
    TcpClient client;
    client.dispatchLine(QStringLiteral("JOIN_OK|Lobby"));
    client.dispatchLine(QStringLiteral("PONG"));
    client.dispatchLine(QStringLiteral("ROIP SERVER READY"));
    QCOMPARE(client.lastReply(), QStringLiteral("JOIN_OK|Lobby"));
    client.dispatchLine(QStringLiteral("NONSENSE"));
    QCOMPARE(client.lastReply(), QStringLiteral("NONSENSE"));
}

void TestTcpReplies::stopsTheHeartbeatWhenKicked_data() {
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("kicked") << QByteArray("KICKED|x\r\n");
    QTest::newRow("banned") << QByteArray("BANNED|x\r\n");
}

void TestTcpReplies::stopsTheHeartbeatWhenKicked() {
    QFETCH(QByteArray, reply);
    ControlServer server;
    TcpClient client(nullptr, steadyEpochMs, {.heartbeat = std::chrono::milliseconds(20)});
    QVERIFY(server.accept(client));
    QVERIFY(QTest::qWaitFor([&] { return server.peer()->peek(6) == "PING\r\n"; }));
    // Lines behind the end of the session are still read.
    QSignalSpy lists(&client, &TcpClient::roomListReceived);
    server.say(reply + "ROOMS|a\r\n");
    QTRY_COMPARE(lists.count(), 1);
    QVERIFY(server.heard(client).endsWith("QUIT\r\n"));
    QCOMPARE(activeTimers(client), 0);
}

QTEST_GUILESS_MAIN(TestTcpReplies)
#include "tst_TcpReplies.moc"
