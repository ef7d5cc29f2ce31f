#include "app/WebUiActions.h"

#include "app/Gateway.h"
#include "app/StateFiles.h"
#include "audio/AudioEngine.h"
#include "config/Settings.h"
#include "net/ControlCommands.h"
#include "net/TcpClient.h"
#include "radio/ArduinoController.h"

#include <QDebug>

#include <algorithm>
#include <cstdio>

namespace {

/// One command, with what it acts upon.
struct Request {
    Gateway &gateway;
    StateFiles &files;
    const QJsonObject &command;
    QString room;
    int userId;
    int value;

    QString text(const char *key, const char *fallback = "") const {
        return command.value(QLatin1String(key)).toString(QLatin1String(fallback));
    }
    int integer(const char *key, int fallback = 0) const { return command.value(QLatin1String(key)).toInt(fallback); }
    bool flag(const char *key, bool fallback) const { return command.value(QLatin1String(key)).toBool(fallback); }
    double number(const char *key) const { return command.value(QLatin1String(key)).toDouble(); }

    TcpClient &link() const { return *gateway.link; }
    AudioEngine &engine() const { return *gateway.engine; }
    QJsonObject &settings() const { return gateway.config.object(); }
    /// The user as the log names it.
    QString user() const { return QStringLiteral("user %1").arg(userId); }

    void set(const char *key, const QJsonValue &newValue) const { settings().insert(QLatin1String(key), newValue); }
    void send(QStringView pattern, std::initializer_list<QString> arguments = {}) const {
        link().sendCommand(commandLine(pattern, arguments));
    }
};

/// What must hold before an action runs; any number of them together.
enum Need : unsigned {
    Nothing = 0,
    Link = 1U << 0,
    Online = 1U << 1,
    UserId = 1U << 2,
    OwnId = 1U << 3,
    Engine = 1U << 4,
    Board = 1U << 5,
};

unsigned whatHolds(const Request &request) {
    const Gateway &gateway = request.gateway;
    return (gateway.link ? Link : Nothing) | (gateway.online() ? Online : Nothing) |
           (request.userId > 0 ? UserId : Nothing) | (gateway.userId() > 0 ? OwnId : Nothing) |
           (gateway.engine ? Engine : Nothing) | (gateway.radio ? Board : Nothing);
}

// The room

void join(const Request &request) {
    request.link().joinRoom(request.room.isEmpty() ? QStringLiteral("Lobby") : request.room);
}

void leave(const Request &request) {
    request.link().leaveRoom();
}

// Sound

void muteMic(const Request &request) {
    request.engine().setMicMuted(true);
}

void unmuteMic(const Request &request) {
    request.engine().setMicMuted(false);
}

void muteSpeaker(const Request &request) {
    request.engine().setSpkMuted(true);
    request.gateway.session.speakerMuted = true;
    if (!request.gateway.radioOpen())
        return;
    request.gateway.keyRadio(false);
    qInfo() << "[TX] PTT dimatikan — speaker muted";
}

void unmuteSpeaker(const Request &request) {
    SessionState &session = request.gateway.session;
    request.engine().setSpkMuted(false);
    session.speakerMuted = false;
    if (!request.gateway.radioOpen() || !session.remoteTalker)
        return;
    request.gateway.keyRadio(true);
    session.lastTalker = *session.remoteTalker;
    qInfo() << "[TX] PTT diaktifkan kembali — speaker unmuted";
}

void setMicGain(const Request &request) {
    const int percent = Gateway::gainPercent(request.value);
    request.engine().setMicGain(percent);
    request.set("mic_gain", percent);
    qDebug() << "[Appliance] Mic gain set to" << request.value;
}

void setSpeakerGain(const Request &request) {
    const int percent = Gateway::gainPercent(request.value);
    request.engine().setSpeakerGain(percent);
    request.set("speaker_gain", percent);
    qDebug() << "[Appliance] Speaker gain set to" << request.value;
}

void setAgc(const Request &request) {
    const bool enabled = request.flag("enabled", false);
    request.engine().setAgcEnabled(enabled);
    request.set("agc_enabled", enabled);
    request.gateway.config.save();
    qInfo() << "[AGC]" << (enabled ? "Enabled — normalisasi level downlink aktif" : "Disabled");
}

void setTot(const Request &request) {
    constexpr int offered[] = {0, 60, 90, 120, 180};
    const bool known = std::find(std::begin(offered), std::end(offered), request.value) != std::end(offered);
    const int seconds = known ? request.value : 0;
    request.engine().setTotDuration(seconds);
    request.set("tot_duration", seconds);
    request.gateway.config.save();
    qInfo() << "[TOT] Duration set to" << seconds << (seconds == 0 ? "seconds (unlimited)" : "seconds");
}

using ToneSetter = void (AudioEngine::*)(float bass, float mid, float treble);

/// The settings keep what was asked for; the engine brings it into its range.
void setTone(const Request &request, ToneSetter apply, const char *bassKey, const char *midKey, const char *trebleKey) {
    const double bass = request.number("bass");
    const double mid = request.number("mid");
    const double treble = request.number("treble");
    (request.engine().*apply)(static_cast<float>(bass), static_cast<float>(mid), static_cast<float>(treble));
    request.set(bassKey, bass);
    request.set(midKey, mid);
    request.set(trebleKey, treble);
    request.gateway.config.save();
}

void setTxTone(const Request &request) {
    setTone(request, &AudioEngine::setTxTone, "tx_bass", "tx_mid", "tx_treble");
}

void setRxTone(const Request &request) {
    setTone(request, &AudioEngine::setRxTone, "rx_bass", "rx_mid", "rx_treble");
}

// The radio interface

void setPttConfig(const Request &request) {
    const bool cosLogicHigh = request.flag("cos_logic_high", true);
    const bool pttInvert = request.flag("ptt_invert", false);
    request.set("cos_logic_high", cosLogicHigh);
    request.set("ptt_invert", pttInvert);
    request.gateway.config.save();
    if (!request.gateway.radioOpen())
        return;
    request.gateway.radio->updateConfig(cosLogicHigh, pttInvert);
    qInfo() << "[Arduino] Config updated — COS_HIGH:" << cosLogicHigh << "PTT_INVERT:" << pttInvert;
}

void stopInEmergency(const Request &request) {
    Gateway &gateway = request.gateway;
    if (gateway.session.transmitting && gateway.link && !gateway.session.currentRoom.isEmpty()) {
        qWarning() << "[Appliance] EMERGENCY TX_STOP before shutdown";
        gateway.link->stopTransmit(gateway.session.currentRoom);
    }
    gateway.setTransmitting(false);
    if (gateway.radio)
        gateway.radio->setPtt(false);
    request.files.writeStatus();
    qInfo() << "[TX] Emergency TX_STOP — siap shutdown";
}

// Users, by an administrator

void approveUser(const Request &request) {
    request.link().approveUser(request.userId);
}

void revokeUser(const Request &request) {
    request.link().unapproveUser(request.userId);
}

void muteUser(const Request &request) {
    request.link().muteUser(request.userId, true);
}

void unmuteUser(const Request &request) {
    request.link().muteUser(request.userId, false);
}

void kickUser(const Request &request) {
    request.link().kickUser(request.userId);
}

void moveUser(const Request &request) {
    const QString room = request.room.trimmed();
    if (room.isEmpty()) {
        qWarning() << "[Appliance] Admin MOVE: room kosong, diabaikan";
        return;
    }
    request.link().moveUser(request.userId, room);
    qInfo() << "[Admin] Pindah" << request.user() << "ke room:" << room;
}

// Deliberately the kick command: there is none of its own for a ban.
void banUser(const Request &request) {
    request.link().kickUser(request.userId);
    qInfo() << "[Admin] BAN:" << request.user();
}

void deleteUser(const Request &request) {
    request.send(ControlCommand::deleteUser, {QString::number(request.userId)});
    qInfo() << "[Admin] Hapus user:" << request.user();
}

void resetHwid(const Request &request) {
    const QString callsign = request.text("callsign");
    if (callsign.isEmpty())
        return;
    request.link().resetHwid(callsign);
    qInfo() << "[Admin] Reset HWID:" << callsign;
}

void resetPassword(const Request &request) {
    const QString password = request.text("password");
    if (password.isEmpty())
        return;
    request.send(ControlCommand::resetPassword, {QString::number(request.userId), password});
    qInfo() << "[Admin] Reset password for uid:" << request.userId;
}

void updateUser(const Request &request) {
    request.send(ControlCommand::updateUser,
                 {QString::number(request.userId), request.text("name"), request.text("responsible_callsign"),
                  request.text("status", "active"), request.text("gateway_name"), request.text("frequency"),
                  request.text("location"), request.text("email"), request.text("whatsapp"),
                  QString::number(request.integer("approved")), QString::number(request.integer("is_admin")),
                  request.text("date")});
    qInfo() << "[Admin] Update user:" << request.user();
}

void listAllUsers(const Request &request) {
    request.link().requestAllUsers();
}

void listPendingUsers(const Request &request) {
    request.send(ControlCommand::pendingUsers);
    qDebug() << "[Admin] Get pending users";
}

// Rooms and audio quality, by an administrator

constexpr int usualRoomSize = 50;

void createRoom(const Request &request) {
    const QString name = request.text("name");
    request.send(ControlCommand::createRoom, {name, QString::number(request.integer("max", usualRoomSize))});
    qInfo() << "[Admin] Buat room:" << name;
}

void deleteRoom(const Request &request) {
    const QString name = request.text("name");
    request.send(ControlCommand::deleteRoom, {name});
    qInfo() << "[Admin] Hapus room:" << name;
}

void editRoom(const Request &request) {
    const QString oldName = request.text("old");
    const QString newName = request.text("new");
    request.send(ControlCommand::editRoom, {oldName, newName, QString::number(request.integer("max", usualRoomSize))});
    qInfo() << "[Admin] Rename room:" << oldName << "→" << newName;
}

void setRoomOrder(const Request &request) {
    request.send(ControlCommand::setRoomOrder, {request.text("order")});
    qDebug() << "[Admin] Room order updated";
}

void setAudioQuality(const Request &request) {
    const QString preset = request.text("preset", "standard");
    request.send(ControlCommand::setAudioQuality, {preset});
    qInfo() << "[Admin] Audio quality:" << preset;
}

// This gateway's own profile and log

void updateProfile(const Request &request) {
    for (const char *key : {"responsible_name", "responsible_callsign", "frequency", "location", "email", "whatsapp"})
        request.set(key, request.text(key));
    request.gateway.config.save();
    const QJsonObject &settings = request.settings();
    const int userId = request.gateway.userId();
    request.send(ControlCommand::updateUser,
                 {QString::number(userId), Settings::responsibleName(settings), Settings::responsibleCallsign(settings),
                  QStringLiteral("active"), Settings::gatewayName(settings), Settings::frequency(settings),
                  Settings::location(settings), Settings::email(settings), Settings::whatsapp(settings),
                  QString::number(1), QString::number(request.gateway.isAdmin() ? 1 : 0), QString()});
    qInfo() << "[User] Profile updated — sent ADMIN_UPDATE_USER for self uid:" << userId;
}

void clearLog(const Request &) {
    qInfo() << "[Admin] Log dibersihkan via Web UI";
    // What cannot be flushed cannot be reported either.
    (void)std::fflush(stdout);
    (void)std::fflush(stderr);
}

struct Action {
    const char *name;
    unsigned needs;
    void (*run)(const Request &);
};

constexpr Action actions[] = {
    {"join", Online, join},
    {"leave", Online, leave},
    {"mute_mic", Engine, muteMic},
    {"unmute_mic", Engine, unmuteMic},
    {"mute_spk", Engine, muteSpeaker},
    {"unmute_spk", Engine, unmuteSpeaker},
    {"set_mic_gain", Engine, setMicGain},
    {"set_spk_gain", Engine, setSpeakerGain},
    {"set_agc", Engine, setAgc},
    {"set_tot", Engine, setTot},
    {"set_ptt_config", Board, setPttConfig},
    {"set_tx_tone", Engine, setTxTone},
    {"set_rx_tone", Engine, setRxTone},
    {"admin_approve", Link | UserId, approveUser},
    {"admin_revoke", Link | UserId, revokeUser},
    {"admin_mute", Online | UserId, muteUser},
    {"admin_unmute", Online | UserId, unmuteUser},
    {"admin_kick", Link | UserId, kickUser},
    {"admin_move", Online | UserId, moveUser},
    {"admin_ban", Link | UserId, banUser},
    {"admin_delete_user", Link | UserId, deleteUser},
    {"admin_reset_hwid", Link, resetHwid},
    {"admin_create_room", Online, createRoom},
    {"admin_delete_room", Online, deleteRoom},
    {"admin_edit_room", Online, editRoom},
    {"admin_set_room_order", Online, setRoomOrder},
    {"admin_set_audio_quality", Online, setAudioQuality},
    {"admin_update_user", Online | UserId, updateUser},
    {"admin_reset_password", Online | UserId, resetPassword},
    {"user_update_profile", Online | OwnId, updateProfile},
    {"admin_refresh", Link, listAllUsers},
    {"admin_pending", Online, listPendingUsers},
    {"tx_stop_emergency", Nothing, stopInEmergency},
    {"clear_log", Nothing, clearLog},
};

} // namespace

void runWebUiCommand(Gateway &gateway, StateFiles &files, const QJsonObject &command) {
    const QString name = command.value(QStringLiteral("action")).toString();
    const auto action = std::find_if(std::begin(actions), std::end(actions),
                                     [&name](const Action &row) { return name == QLatin1String(row.name); });
    if (action == std::end(actions))
        return;
    const Request request{gateway,
                          files,
                          command,
                          command.value(QStringLiteral("room")).toString(),
                          command.value(QStringLiteral("user_id")).toInt(),
                          command.value(QStringLiteral("value")).toInt()};
    if ((action->needs & ~whatHolds(request)) == 0)
        action->run(request);
}
