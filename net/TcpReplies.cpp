#include "net/TcpReplies.h"

#include "net/ControlCommands.h"
#include "net/ReplyFields.h"
#include "net/ReplyValues.h"

#include <QDebug>

#include <algorithm>
#include <iterator>

const TcpClient::Replies::Row TcpClient::Replies::table[] = {
    {.keyword = "LOGIN_OK", .handler = loginOk},
    {.keyword = "LOGIN_FAILED", .handler = loginFailed},
    {.keyword = "REGISTER_OK", .handler = registerOk},
    {.keyword = "REGISTER_FAILED", .handler = registerFailed},
    {.keyword = "ROOMS", .handler = rooms},
    {.keyword = "JOIN_OK", .handler = joinOk, .note = "[TCP] JOIN room:", .notedField = 1},
    {.keyword = "JOIN_FAILED", .handler = joinFailed},
    {.keyword = "LEAVE_OK", .handler = leaveOk},
    {.keyword = "MOVED", .handler = moved},
    {.keyword = "USER_LIST", .handler = userList},
    {.keyword = "ONLINE_USERS", .handler = online},
    {.keyword = "ADMIN_ALL_USERS", .handler = emitObjects<&TcpClient::allUsersReceived>},
    {.keyword = "ADMIN_GET_ALL_USERS", .handler = emitObjects<&TcpClient::allUsersReceived>},
    {.keyword = "ADMIN_PENDING", .handler = emitObjects<&TcpClient::pendingUsersReceived>},
    {.keyword = "USER_INFO", .handler = emitObject<&TcpClient::userInfoReceived>},
    {.keyword = "TX_START_OK", .handler = transmitOk},
    {.keyword = "TX_START_FAILED", .handler = transmitFailed},
    {.keyword = "TX_STOP_OK", .handler = transmitStopped},
    {.keyword = "USER_INFO_RESULT", .handler = emitObject<&TcpClient::userInfoReceived>},
    {.keyword = "USER_CHANGE_PASSWORD_OK", .handler = passwordChanged, .note = "[TCP] Password berubah"},
    {.keyword = "USER_PROFILE", .handler = emitObject<&TcpClient::userProfileReceived>},
    {.keyword = "USER_CHANGE_PASSWORD_FAIL", .handler = passwordRefused},
    {.keyword = "USER_REQUEST_HWID_RESET_OK", .note = "[TCP] Permintaan reset HWID Terkirim"},
    {.keyword = "ADMIN_NOTIFICATION", .handler = notification},
    {.keyword = "MUTED", .handler = muted},
    {.keyword = "ADMIN_KICK_OK", .note = "[TCP] Admin kick", .followUp = ControlCommand::allUsers},
    {.keyword = "ADMIN_APPROVE_USER_OK", .note = "[TCP] Admin approve", .followUp = ControlCommand::allUsers},
    {.keyword = "ADMIN_UNAPPROVE_USER_OK", .note = "[TCP] Admin unapprove", .followUp = ControlCommand::allUsers},
    {.keyword = "ADMIN_MUTE_OK", .handler = userMuted, .followUp = ControlCommand::allUsers},
    {.keyword = "ADMIN_RESET_HWID_OK", .handler = hwidReset, .followUp = ControlCommand::allUsers},
    {.keyword = "ADMIN_UPDATE_USER_OK", .note = "[TCP] Admin update user", .followUp = ControlCommand::allUsers},
    {.keyword = "ADMIN_DELETE_USER_OK",
     .note = "[TCP] Admin delete user OK -- refreshing",
     .followUp = ControlCommand::allUsers},
    {.keyword = "ADMIN_SET_AUDIO_QUALITY_OK", .note = "[TCP] Admin set audio quality:", .notedField = 1},
    {.keyword = "ADMIN_SET_ROOM_ORDER_OK", .note = "[TCP] Room order saved", .followUp = ControlCommand::rooms},
    {.keyword = "ADMIN_CREATE_ROOM_OK",
     .note = "[TCP] Admin create room:",
     .notedField = 1,
     .followUp = ControlCommand::rooms},
    {.keyword = "ADMIN_DELETE_ROOM_OK",
     .note = "[TCP] Admin delete room:",
     .notedField = 1,
     .followUp = ControlCommand::rooms},
    {.keyword = "ADMIN_EDIT_ROOM_OK",
     .note = "[TCP] Admin edit room:",
     .notedField = 1,
     .followUp = ControlCommand::rooms},
    {.keyword = "ADMIN_RESET_PASSWORD_OK", .note = "[TCP] Admin reset password for user:", .notedField = 1},
    // The server confirms an approval under either name, depending on the way it was asked.
    {.keyword = "ADMIN_APPROVE_OK",
     .note = "[TCP] Admin approve OK (alt) -- refreshing",
     .followUp = ControlCommand::allUsers},
    {.keyword = "ADMIN_UNAPPROVE_OK",
     .note = "[TCP] Admin unapprove (alt) -- refreshing",
     .followUp = ControlCommand::allUsers},
    {.keyword = "ADMIN_BAN_OK", .note = "[TCP] Admin ban -- refreshing", .followUp = ControlCommand::allUsers},
    {.keyword = "ADMIN_MOVE_OK", .note = "[TCP] Admin move -- refreshing", .followUp = ControlCommand::allUsers},
    {.keyword = "SERVER_INFO", .handler = emitObject<&TcpClient::serverInfoReceived>},
    {.keyword = "AUDIO_QUALITY", .handler = quality},
    {.keyword = "ERROR", .handler = error},
    {.keyword = "KICKED", .handler = kicked},
    {.keyword = "BANNED", .handler = banned},
    {.keyword = "ANNOUNCEMENT", .handler = emitObject<&TcpClient::announcementReceived>},
    {.keyword = "ANNOUNCEMENTS", .handler = emitObjects<&TcpClient::announcementsListReceived>},
};

void TcpClient::Replies::handle(TcpClient &client, const QString &line) {
    const ReplyFields reply(line);
    const Row *row = find(reply.keyword());
    if (row == nullptr) {
        qDebug() << "[TCP] Unknown command:" << line;
        return;
    }
    if (row->note != nullptr) {
        QDebug note = qDebug() << row->note;
        if (row->notedField > 0)
            note << reply.value(row->notedField);
    }
    if (row->handler != nullptr)
        row->handler(client, reply);
    if (!row->followUp.isEmpty())
        client.sendCommand(commandLine(row->followUp));
}

const TcpClient::Replies::Row *TcpClient::Replies::find(const QString &keyword) {
    const Row *row = std::find_if(std::begin(table), std::end(table), [&keyword](const Row &candidate) {
        return keyword == QLatin1String(candidate.keyword);
    });
    return row == std::end(table) ? nullptr : row;
}

void TcpClient::Replies::loginOk(TcpClient &client, const ReplyFields &reply) {
    client.m_loginText = reply.value(1);
    client.m_isAdmin = reply.value(3).compare(QLatin1String("true"), Qt::CaseInsensitive) == 0;
    client.m_userId = reply.number(4);
    qDebug() << "[TCP] Login successful, user_id:" << client.m_userId << "is_admin:" << client.m_isAdmin;
    const QString sessionKey = reply.value(15);
    if (!sessionKey.isEmpty())
        Q_EMIT client.sessionKeyReceived(sessionKey);
    Q_EMIT client.loginResult(true, QStringLiteral("Login berhasil"));
}

void TcpClient::Replies::loginFailed(TcpClient &client, const ReplyFields &reply) {
    Q_EMIT client.loginResult(false, reply.value(1, QStringLiteral("Login gagal")));
}

void TcpClient::Replies::registerOk(TcpClient &client, const ReplyFields &reply) {
    Q_EMIT client.registerResult(true, reply.value(1, QStringLiteral("Registrasi berhasil")));
}

void TcpClient::Replies::registerFailed(TcpClient &client, const ReplyFields &reply) {
    Q_EMIT client.registerResult(false, reply.value(1, QStringLiteral("Registrasi gagal")));
}

void TcpClient::Replies::rooms(TcpClient &client, const ReplyFields &reply) {
    Q_EMIT client.roomListReceived(listItems(reply.value(1)));
}

void TcpClient::Replies::joinOk(TcpClient &client, const ReplyFields &reply) {
    enterRoom(client, reply.value(1), reply.value(2));
}

void TcpClient::Replies::joinFailed(TcpClient &client, const ReplyFields &reply) {
    Q_EMIT client.joinRoomResult(false, reply.value(1, QStringLiteral("Gagal join room")));
}

void TcpClient::Replies::leaveOk(TcpClient &client, const ReplyFields &reply) {
    const QString room = reply.value(1);
    Q_EMIT client.leaveRoomResult(true, room.isEmpty() ? client.m_lastJoinedRoom : room);
}

void TcpClient::Replies::moved(TcpClient &client, const ReplyFields &reply) {
    enterRoom(client, reply.value(1), reply.value(3));
}

void TcpClient::Replies::userList(TcpClient &client, const ReplyFields &reply) {
    Q_EMIT client.roomUsersReceived(roomUsers(reply));
}

void TcpClient::Replies::online(TcpClient &client, const ReplyFields &reply) {
    if (const auto users = onlineUsers(reply))
        Q_EMIT client.onlineUsersReceived(*users);
}

void TcpClient::Replies::transmitOk(TcpClient &client, const ReplyFields &) {
    Q_EMIT client.transmitStarted();
}

void TcpClient::Replies::transmitFailed(TcpClient &client, const ReplyFields &reply) {
    Q_EMIT client.transmitFailed(reply.value(1, QStringLiteral("TX gagal")));
}

void TcpClient::Replies::transmitStopped(TcpClient &client, const ReplyFields &) {
    Q_EMIT client.transmitStopped();
}

void TcpClient::Replies::passwordChanged(TcpClient &client, const ReplyFields &) {
    Q_EMIT client.userPasswordChanged(true, QStringLiteral("Password berhasil diubah"));
}

void TcpClient::Replies::passwordRefused(TcpClient &client, const ReplyFields &reply) {
    const QString reason = reply.rest(1, QStringLiteral("Gagal"));
    qDebug() << "[TCP] Password gagal diubah:" << reason;
    Q_EMIT client.userPasswordChanged(false, reason);
}

void TcpClient::Replies::notification(TcpClient &client, const ReplyFields &reply) {
    const QString type = reply.value(1);
    if (reply.count() >= 4 && type == QLatin1String("HWID_RESET_REQUEST"))
        Q_EMIT client.adminNotification(type, reply.value(2) + QLatin1Char(':') + reply.value(3));
}

void TcpClient::Replies::muted(TcpClient &client, const ReplyFields &reply) {
    Q_EMIT client.adminMuted(reply.isSet(1), reply.rest(2));
}

void TcpClient::Replies::userMuted(TcpClient &client, const ReplyFields &reply) {
    const int userId = reply.number(1);
    const bool isMuted = reply.isSet(2);
    qDebug() << "[TCP] Admin mute/unmute OK — uid:" << userId << "muted:" << isMuted;
    Q_EMIT client.adminMuteStatusChanged(userId, isMuted);
}

void TcpClient::Replies::hwidReset(TcpClient &client, const ReplyFields &reply) {
    Q_EMIT client.hwidReset(reply.value(1));
}

void TcpClient::Replies::quality(TcpClient &client, const ReplyFields &reply) {
    if (const auto announced = audioQuality(reply))
        Q_EMIT client.audioQualityReceived(*announced);
}

void TcpClient::Replies::error(TcpClient &client, const ReplyFields &reply) {
    Q_EMIT client.errorOccurred(reply.value(1, QStringLiteral("Server error")));
}

void TcpClient::Replies::kicked(TcpClient &client, const ReplyFields &reply) {
    const QString reason = reply.rest(1, QStringLiteral("Dikeluarkan oleh admin"));
    Q_EMIT client.kicked(reason);
    Q_EMIT client.errorOccurred(QStringLiteral("KICKED: ") + reason);
    client.quit();
}

void TcpClient::Replies::banned(TcpClient &client, const ReplyFields &reply) {
    const QString reason = reply.rest(1, QStringLiteral("Akun dibanned oleh admin"));
    Q_EMIT client.banned(reason);
    Q_EMIT client.errorOccurred(QStringLiteral("BANNED: ") + reason);
    client.quit();
}

/// The room's key goes first, so that nothing said in the room meets the old one.
void TcpClient::Replies::enterRoom(TcpClient &client, const QString &room, const QString &roomKey) {
    client.m_lastJoinedRoom = room;
    if (!roomKey.isEmpty())
        Q_EMIT client.roomKeyReceived(roomKey);
    Q_EMIT client.joinRoomResult(true, room);
}

template <auto signal>
void TcpClient::Replies::emitObject(TcpClient &client, const ReplyFields &reply) {
    if (const auto object = jsonObject(reply))
        Q_EMIT(client.*signal)(*object);
}

template <auto signal>
void TcpClient::Replies::emitObjects(TcpClient &client, const ReplyFields &reply) {
    if (const auto objects = jsonObjects(reply))
        Q_EMIT(client.*signal)(*objects);
}
