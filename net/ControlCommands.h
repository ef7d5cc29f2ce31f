#pragma once

#include <QString>
#include <QStringList>
#include <QStringView>

/// Wire forms of the commands of the control link. %N stands for the Nth argument; a quote inside an argument is sent
/// as it stands, an argument outside quotes must not hold blanks.
struct ControlCommand {
    static constexpr QStringView login = u"LOGIN %1 %2";            ///< callsign, password
    static constexpr QStringView loginWithHwid = u"LOGIN %1 %2 %3"; ///< callsign, password, hardware id
    static constexpr QStringView loginHwid = u"LOGIN_HWID %1 %2";
    static constexpr QStringView join = u"JOIN %1";
    static constexpr QStringView leave = u"LEAVE";
    static constexpr QStringView rooms = u"ROOMS";
    static constexpr QStringView txStart = u"TX_START \"%1\""; ///< room
    static constexpr QStringView txStop = u"TX_STOP \"%1\"";   ///< room
    static constexpr QStringView ping = u"PING";
    static constexpr QStringView quit = u"QUIT";
    static constexpr QStringView onlineUsers = u"ONLINE_USERS";
    static constexpr QStringView userInfo = u"USER_GET_INFO %1"; ///< callsign
    static constexpr QStringView allUsers = u"ADMIN_GET_ALL_USERS";
    static constexpr QStringView pendingUsers = u"ADMIN_PENDING";
    static constexpr QStringView approveUser = u"ADMIN_APPROVE_USER %1";
    static constexpr QStringView unapproveUser = u"ADMIN_UNAPPROVE_USER %1";
    static constexpr QStringView resetHwid = u"ADMIN_RESET_HWID %1"; ///< user id or callsign
    static constexpr QStringView kickUser = u"ADMIN_KICK %1";
    static constexpr QStringView moveUser = u"ADMIN_MOVE %1 %2"; ///< user id, room
    static constexpr QStringView muteUser = u"ADMIN_MUTE %1 %2"; ///< user id, 1 or 0
    static constexpr QStringView deleteUser = u"ADMIN_DELETE_USER %1";
    static constexpr QStringView resetPassword = u"ADMIN_RESET_PASSWORD %1 \"%2\""; ///< user id, new password
    /// User id; name, responsible callsign, status, gateway name, frequency, location, e-mail, WhatsApp number;
    /// approved and administrator as 1 or 0; a date text, which may be empty.
    static constexpr QStringView updateUser =
        u"ADMIN_UPDATE_USER %1 \"%2\" \"%3\" \"%4\" \"%5\" \"%6\" \"%7\" \"%8\" \"%9\" %10 %11 \"%12\"";
    static constexpr QStringView createRoom = u"ADMIN_CREATE_ROOM \"%1\" %2"; ///< name, most members
    static constexpr QStringView deleteRoom = u"ADMIN_DELETE_ROOM \"%1\"";
    static constexpr QStringView editRoom =
        u"ADMIN_EDIT_ROOM \"%1\" \"%2\" %3 \"\""; ///< old name, new name, most members
    static constexpr QStringView setRoomOrder = u"ADMIN_SET_ROOM_ORDER %1";
    static constexpr QStringView setAudioQuality = u"ADMIN_SET_AUDIO_QUALITY %1"; ///< preset
};

/// The command line with every %N (one or two digits) replaced by the Nth argument, in one pass: an argument that
/// itself holds a "%5" goes out as it is. A position without an argument stays as it stands.
QString commandLine(QStringView pattern, const QStringList &arguments = {});
