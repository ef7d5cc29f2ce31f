#include "sim/server/ServerCommands.h"

#include "sim/server/CommandLine.h"
#include "sim/server/ServerReplies.h"

#include <algorithm>

namespace sim {

namespace {

/// Why this login is refused; null: it is not.
const char *loginObstacle(const Account *account, const QString &password, const QString &hwid) {
    if (!account || account->password != password)
        return "Callsign atau password salah";
    if (!account->hwid.isEmpty() && account->hwid != hwid)
        return "Perangkat tidak terdaftar";
    return nullptr;
}

void login(Switchboard &board, Session &session, const QStringList &arguments) {
    Account *account = board.accounts().byCallsign(arguments.at(0));
    if (const char *obstacle = loginObstacle(account, arguments.at(1), arguments.value(2))) {
        board.send(session, fieldsReply("LOGIN_FAILED", {QLatin1String(obstacle)}));
        return;
    }
    board.login(session, *account);
}

void join(Switchboard &board, Session &session, const QStringList &arguments) {
    const Room *room = board.rooms().find(restFrom(arguments, 0));
    if (!room)
        board.send(session, QStringLiteral("JOIN_FAILED|Room tidak ditemukan"));
    else if (session.room != room->name && int(board.members(room->name).size()) >= room->maxMembers)
        board.send(session, QStringLiteral("JOIN_FAILED|Room penuh"));
    else
        board.place(session, *room, joinOkReply(*room));
}

void leave(Switchboard &board, Session &session, const QStringList &) {
    if (session.room.isEmpty()) {
        refuse(board, session, "Belum bergabung ke room");
        return;
    }
    board.send(session, fieldsReply("LEAVE_OK", {session.room}));
    board.takeOut(session);
}

const char *talkObstacle(const Session &session, const QString &room) {
    if (session.room.isEmpty() || session.room != room)
        return "Belum bergabung ke room";
    if (session.account->muted)
        return "Anda di-mute oleh admin";
    return session.account->approved ? nullptr : "Akun belum disetujui";
}

void startTalking(Switchboard &board, Session &session, const QStringList &arguments) {
    if (const char *obstacle = talkObstacle(session, restFrom(arguments, 0))) {
        board.send(session, fieldsReply("TX_START_FAILED", {QLatin1String(obstacle)}));
        return;
    }
    board.send(session, QStringLiteral("TX_START_OK"));
    board.setTalking(session, true);
}

void stopTalking(Switchboard &board, Session &session, const QStringList &) {
    board.send(session, QStringLiteral("TX_STOP_OK"));
    board.setTalking(session, false);
}

void userInfo(Switchboard &board, Session &session, const QStringList &arguments) {
    if (const Account *account = board.accounts().byCallsign(arguments.at(0)))
        board.send(session, jsonReply("USER_INFO_RESULT", accountRecord(*account)));
    else
        refuse(board, session, "User tidak ditemukan");
}

void listRooms(Switchboard &board, Session &session, const QStringList &) {
    board.send(session, roomsReply(board.rooms().names()));
}

void listOnline(Switchboard &board, Session &session, const QStringList &) {
    board.send(session, onlineUsersReply(board.everybody()));
}

void ping(Switchboard &board, Session &session, const QStringList &) {
    board.send(session, QStringLiteral("PONG"));
}

void quit(Switchboard &board, Session &session, const QStringList &) {
    board.hangUp(session);
}

constexpr Command commands[] = {
    {"PING", Right::Anyone, 0, ping},
    {"QUIT", Right::Anyone, 0, quit},
    {"LOGIN", Right::Anyone, 2, login},
    {"JOIN", Right::LoggedIn, 1, join},
    {"LEAVE", Right::LoggedIn, 0, leave},
    {"ROOMS", Right::LoggedIn, 0, listRooms},
    {"ONLINE_USERS", Right::LoggedIn, 0, listOnline},
    {"TX_START", Right::LoggedIn, 1, startTalking},
    {"TX_STOP", Right::LoggedIn, 0, stopTalking},
    {"USER_GET_INFO", Right::LoggedIn, 1, userInfo},
};

const Command *findIn(std::span<const Command> table, const QString &keyword) {
    const auto it = std::find_if(table.begin(), table.end(),
                                 [&](const Command &command) { return keyword == QLatin1String(command.keyword); });
    return it == table.end() ? nullptr : &*it;
}

const Command *findCommand(const QString &keyword) {
    const Command *command = findIn(commands, keyword);
    return command ? command : findIn(adminCommands(), keyword);
}

const char *commandObstacle(const Command *command, const Session &session, int argumentCount) {
    if (!command)
        return "Perintah tidak dikenal";
    if (command->right != Right::Anyone && !session.account)
        return "Belum login";
    if (command->right == Right::Admin && !session.account->isAdmin)
        return "Khusus admin";
    return argumentCount < command->minArguments ? "Parameter kurang" : nullptr;
}

} // namespace

void refuse(Switchboard &board, const Session &session, const char *reason) {
    board.send(session, fieldsReply("ERROR", {QLatin1String(reason)}));
}

QString restFrom(const QStringList &arguments, int first) {
    return arguments.mid(first).join(QLatin1Char(' '));
}

void runCommand(Switchboard &board, int sessionId, const QString &line) {
    Session *session = board.byId(sessionId);
    QStringList words = splitCommand(line);
    if (!session || words.isEmpty())
        return;
    const Command *command = findCommand(words.takeFirst());
    if (const char *obstacle = commandObstacle(command, *session, words.size())) {
        refuse(board, *session, obstacle);
        return;
    }
    command->run(board, *session, words);
}

} // namespace sim
