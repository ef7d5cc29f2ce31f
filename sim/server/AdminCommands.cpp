#include "sim/server/ServerCommands.h"
#include "sim/server/ServerReplies.h"

#include <algorithm>

namespace sim {

namespace {

constexpr char noSuchUser[] = "User tidak ditemukan";
constexpr char notOnline[] = "User tidak online";
constexpr char noSuchRoom[] = "Room tidak ditemukan";

void listUsers(Switchboard &board, Session &session, const QStringList &) {
    board.send(session, jsonReply("ADMIN_ALL_USERS", board.accounts().records([](const Account &) { return true; })));
}

void listPending(Switchboard &board, Session &session, const QStringList &) {
    const QJsonArray pending = board.accounts().records([](const Account &account) { return !account.approved; });
    board.send(session, jsonReply("ADMIN_PENDING", pending));
}

void setApproved(Switchboard &board, Session &session, const QString &id, bool approved) {
    Account *account = board.accounts().byId(id.toInt());
    if (!account) {
        refuse(board, session, noSuchUser);
        return;
    }
    account->approved = approved;
    board.send(session, fieldsReply(approved ? "ADMIN_APPROVE_USER_OK" : "ADMIN_UNAPPROVE_USER_OK", {id}));
    if (Session *online = board.byAccount(account->id))
        board.sendUserLists(online->room);
}

void approve(Switchboard &board, Session &session, const QStringList &arguments) {
    setApproved(board, session, arguments.at(0), true);
}

void unapprove(Switchboard &board, Session &session, const QStringList &arguments) {
    setApproved(board, session, arguments.at(0), false);
}

void kick(Switchboard &board, Session &session, const QStringList &arguments) {
    Session *target = board.byAccount(arguments.at(0).toInt());
    if (!target) {
        refuse(board, session, notOnline);
        return;
    }
    board.send(session, fieldsReply("ADMIN_KICK_OK", {arguments.at(0)}));
    board.kick(*target, QStringLiteral("Dikeluarkan oleh ") + session.account->callsign);
}

void move(Switchboard &board, Session &session, const QStringList &arguments) {
    Session *target = board.byAccount(arguments.at(0).toInt());
    const Room *room = board.rooms().find(restFrom(arguments, 1));
    if (!target || !room) {
        refuse(board, session, target ? noSuchRoom : notOnline);
        return;
    }
    board.send(session, fieldsReply("ADMIN_MOVE_OK", {arguments.at(0), room->name}));
    board.move(*target, *room, session.account->callsign);
}

void mute(Switchboard &board, Session &session, const QStringList &arguments) {
    Account *account = board.accounts().byId(arguments.at(0).toInt());
    if (!account) {
        refuse(board, session, noSuchUser);
        return;
    }
    board.mute(*account, arguments.at(1) == QLatin1String("1"), session.account->callsign);
    board.send(session, fieldsReply("ADMIN_MUTE_OK", {arguments.at(0), arguments.at(1)}));
}

void resetHwid(Switchboard &board, Session &session, const QStringList &arguments) {
    Account *account = board.accounts().named(arguments.at(0));
    if (!account) {
        refuse(board, session, noSuchUser);
        return;
    }
    account->hwid.clear();
    board.send(session, fieldsReply("ADMIN_RESET_HWID_OK", {account->callsign}));
}

void createRoom(Switchboard &board, Session &session, const QStringList &arguments) {
    const QString &name = arguments.at(0);
    if (!board.rooms().add({name, randomKey(), arguments.at(1).toInt()})) {
        refuse(board, session, "Nama room tidak bisa dipakai");
        return;
    }
    board.send(session, fieldsReply("ADMIN_CREATE_ROOM_OK", {name}));
}

void deleteRoom(Switchboard &board, Session &session, const QStringList &arguments) {
    const QString &name = arguments.at(0);
    if (!board.members(name).empty()) {
        refuse(board, session, "Room masih terisi");
        return;
    }
    if (!board.rooms().remove(name)) {
        refuse(board, session, noSuchRoom);
        return;
    }
    board.send(session, fieldsReply("ADMIN_DELETE_ROOM_OK", {name}));
}

/// Old name, new name, most members; the fourth argument is not used by any client.
void editRoom(Switchboard &board, Session &session, const QStringList &arguments) {
    const QString &newName = arguments.at(1);
    Room *room = board.rooms().find(arguments.at(0));
    const Room *holder = board.rooms().find(newName);
    if (!room || newName.isEmpty() || (holder && holder != room)) {
        refuse(board, session, room ? "Nama room tidak bisa dipakai" : noSuchRoom);
        return;
    }
    room->maxMembers = arguments.at(2).toInt();
    board.send(session, fieldsReply("ADMIN_EDIT_ROOM_OK", {newName}));
    if (room->name != newName)
        board.renameRoom(*room, newName, session.account->callsign);
}

void sortRooms(Switchboard &board, Session &session, const QStringList &arguments) {
    board.rooms().sortBy(restFrom(arguments, 0).split(QLatin1Char(',')));
    board.send(session, QStringLiteral("ADMIN_SET_ROOM_ORDER_OK"));
}

void setQuality(Switchboard &board, Session &session, const QStringList &arguments) {
    static const Quality presets[] = {
        {QStringLiteral("low"), 16000, 16000, 40, 5},
        {QStringLiteral("standard"), 32000, 48000, 20, 5},
        {QStringLiteral("high"), 64000, 48000, 20, 10},
    };
    const auto *preset = std::find_if(std::begin(presets), std::end(presets),
                                      [&](const Quality &quality) { return quality.preset == arguments.at(0); });
    if (preset == std::end(presets)) {
        refuse(board, session, "Preset tidak dikenal");
        return;
    }
    board.send(session, fieldsReply("ADMIN_SET_AUDIO_QUALITY_OK", {preset->preset}));
    board.announce(*preset);
}

/// The texts of an update line, in their order after the user id. The name is that of the responsible person.
constexpr QString Account::*updatedTexts[] = {&Account::name,      &Account::responsibleCallsign,
                                              &Account::status,    &Account::gatewayName,
                                              &Account::frequency, &Account::location,
                                              &Account::email,     &Account::whatsapp};
constexpr int updateApproved = 1 + int(std::size(updatedTexts));
constexpr int updateIsAdmin = updateApproved + 1;
constexpr int updateDate = updateIsAdmin + 1;

/// Anybody may update himself, but only an administrator what he is allowed to do.
void updateUser(Switchboard &board, Session &session, const QStringList &arguments) {
    Account *account = board.accounts().byId(arguments.at(0).toInt());
    const bool byAdmin = session.account->isAdmin;
    if (!account || (!byAdmin && account != session.account)) {
        refuse(board, session, byAdmin ? noSuchUser : "Khusus admin");
        return;
    }
    for (int i = 0; i < int(std::size(updatedTexts)); ++i)
        account->*updatedTexts[i] = arguments.at(i + 1);
    account->responsibleName = account->name;
    if (byAdmin) {
        account->approved = arguments.at(updateApproved).toInt() != 0;
        account->isAdmin = arguments.at(updateIsAdmin).toInt() != 0;
        account->date = arguments.at(updateDate);
    }
    board.send(session, fieldsReply("ADMIN_UPDATE_USER_OK", {arguments.at(0)}));
    if (Session *online = board.byAccount(account->id))
        board.sendUserLists(online->room);
}

void resetPassword(Switchboard &board, Session &session, const QStringList &arguments) {
    Account *account = board.accounts().byId(arguments.at(0).toInt());
    if (!account) {
        refuse(board, session, noSuchUser);
        return;
    }
    account->password = arguments.at(1);
    board.send(session, fieldsReply("ADMIN_RESET_PASSWORD_OK", {account->callsign}));
}

void deleteUser(Switchboard &board, Session &session, const QStringList &arguments) {
    const int id = arguments.at(0).toInt();
    if (!board.accounts().byId(id)) {
        refuse(board, session, noSuchUser);
        return;
    }
    board.send(session, fieldsReply("ADMIN_DELETE_USER_OK", {arguments.at(0)}));
    if (Session *online = board.byAccount(id))
        board.kick(*online, QStringLiteral("Akun dihapus"));
    board.accounts().remove(id);
}

constexpr Command commands[] = {
    {"ADMIN_GET_ALL_USERS", Right::Admin, 0, listUsers},
    {"ADMIN_PENDING", Right::Admin, 0, listPending},
    {"ADMIN_APPROVE_USER", Right::Admin, 1, approve},
    {"ADMIN_UNAPPROVE_USER", Right::Admin, 1, unapprove},
    {"ADMIN_KICK", Right::Admin, 1, kick},
    {"ADMIN_MOVE", Right::Admin, 2, move},
    {"ADMIN_MUTE", Right::Admin, 2, mute},
    {"ADMIN_RESET_HWID", Right::Admin, 1, resetHwid},
    {"ADMIN_CREATE_ROOM", Right::Admin, 2, createRoom},
    {"ADMIN_DELETE_ROOM", Right::Admin, 1, deleteRoom},
    {"ADMIN_EDIT_ROOM", Right::Admin, 3, editRoom},
    {"ADMIN_SET_ROOM_ORDER", Right::Admin, 1, sortRooms},
    {"ADMIN_SET_AUDIO_QUALITY", Right::Admin, 1, setQuality},
    {"ADMIN_UPDATE_USER", Right::LoggedIn, updateDate + 1, updateUser},
    {"ADMIN_RESET_PASSWORD", Right::Admin, 2, resetPassword},
    {"ADMIN_DELETE_USER", Right::Admin, 1, deleteUser},
};

} // namespace

std::span<const Command> adminCommands() {
    return commands;
}

} // namespace sim
