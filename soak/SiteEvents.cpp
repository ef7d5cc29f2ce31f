#include "Events.h"

using namespace sim;

namespace {

Told cardOverruns(Scene &scene, QRandomGenerator &) {
    scene.card().overrun();
    return QString();
}

Told cardUnderruns(Scene &scene, QRandomGenerator &) {
    scene.card().underrun();
    return QString();
}

Told cardTakesNothing(Scene &scene, QRandomGenerator &random) {
    const int ms = random.bounded(100, 5000);
    if (!scene.isCardSettled() || !scene.promises().isSessionUp())
        return {};
    scene.setCardRefusing(true);
    scene.later(ms, [&scene] { scene.setCardRefusing(false); });
    return secondsText(ms);
}

Told cardIsPulled(Scene &scene, QRandomGenerator &random) {
    const int ms = random.bounded(100, 2500); // less than until the one attempt after playback was given up
    if (!scene.isCardSettled() || !scene.promises().isSessionUp())
        return {};
    scene.pullCard();
    scene.later(ms, [&scene] { scene.plugCardIn(); });
    return secondsText(ms);
}

Told boardResets(Scene &scene, QRandomGenerator &) {
    scene.resetBoard();
    return QString();
}

/// Without a NUL: with it goes the rest of what is read at once, and with that the end of the line, so that the next
/// report of the squelch would be part of the nonsense.
Told boardTalksNonsense(Scene &scene, QRandomGenerator &random) {
    QByteArray bytes(random.bounded(1, 3000), Qt::Uninitialized);
    for (char &byte : bytes)
        byte = char(random.bounded(1, 256));
    scene.site().board().sendRaw(bytes + '\n');
    return QStringLiteral("%1 bytes").arg(bytes.size());
}

Told webUiSets(Scene &scene, QRandomGenerator &random) {
    static const QByteArray commands[] = {
        R"({"action":"set_mic_gain","value":150})",
        R"({"action":"set_mic_gain","value":-7})",
        R"({"action":"set_spk_gain","value":40})",
        R"({"action":"set_spk_gain","value":100000})",
        R"({"action":"set_agc","enabled":true})",
        R"({"action":"set_agc","enabled":false})",
        R"({"action":"set_tot","value":60})",
        R"({"action":"set_tot","value":60})",
        R"({"action":"set_tot","value":0})",
        R"({"action":"set_ptt_config","cos_logic_high":false,"ptt_invert":true})",
        R"({"action":"set_ptt_config"})",
        R"({"action":"set_tx_tone","bass":12,"mid":-12,"treble":5})",
        R"({"action":"set_tx_tone"})",
        R"({"action":"set_rx_tone","bass":-300,"mid":1e300,"treble":0.1})",
        R"({"action":"set_rx_tone"})",
        R"({"action":"user_update_profile","responsible_name":"Siti","frequency":"145.500"})",
        R"({"action":"admin_refresh"})",
        R"({"action":"admin_kick","user_id":201})",
        R"({"action":"admin_move","user_id":201,"room":"  "})",
        R"({"action":"admin_set_audio_quality","preset":"rendah"})",
        R"({"action":"clear_log"})",
        R"({"action":"join","room":"no such room"})",
    };
    const QByteArray &command = commands[random.bounded(int(std::size(commands)))];
    scene.command(command);
    return QString::fromLatin1(command);
}

Told webUiDropsRubbish(Scene &scene, QRandomGenerator &random) {
    QByteArray bytes(random.bounded(0, 20000), Qt::Uninitialized);
    for (char &byte : bytes)
        byte = char(random.bounded(256));
    const int files = random.bounded(1, 40);
    for (int file = 0; file < files; ++file)
        scene.command(file % 2 == 0 ? bytes : QByteArray(R"({"action":[{}],"value":"x"})"));
    return QStringLiteral("%1 files of %2 bytes").arg(files).arg(bytes.size());
}

Told webUiMutesMicrophone(Scene &scene, QRandomGenerator &random) {
    const int ms = random.bounded(500, 6000);
    scene.command(R"({"action":"mute_mic"})");
    scene.later(ms, [&scene] { scene.command(R"({"action":"unmute_mic"})"); });
    return secondsText(ms);
}

Told webUiMutesSpeaker(Scene &scene, QRandomGenerator &random) {
    const int ms = random.bounded(500, 8000);
    scene.muteSpeaker(true);
    scene.later(ms, [&scene] { scene.muteSpeaker(false); });
    return secondsText(ms);
}

Told webUiStopsTransmission(Scene &scene, QRandomGenerator &) {
    scene.promises().isDisturbed();
    scene.command(R"({"action":"tx_stop_emergency"})");
    scene.later(1000, [&scene] { scene.promises().isDisturbed(); }); // when it has been read at the latest
    return QString();
}

Told webUiLeavesRoom(Scene &scene, QRandomGenerator &random) {
    const int ms = random.bounded(100, 5000);
    if (!scene.promises().isSessionUp())
        return {};
    scene.promises().isDisturbed();
    scene.command(R"({"action":"leave"})");
    scene.later(ms, [&scene] { scene.command(R"({"action":"join","room":"Lobby"})"); });
    return QStringLiteral("back after ") + secondsText(ms);
}

Told webUiLogsIn(Scene &scene, QRandomGenerator &) {
    if (!scene.promises().isSessionUp())
        return {};
    const Account account = Site::gatewayAccount();
    scene.promises().isDisturbed();
    scene.site().dropFile(QStringLiteral("login-cred.json"),
                          QStringLiteral(R"({"action":"login","callsign":"%1","password":"%2"})")
                              .arg(account.callsign, account.password)
                              .toUtf8());
    return QString();
}

/// Some of these are only there once they have been needed, and any may be half written.
Told webUiReads(Scene &scene, QRandomGenerator &) {
    int read = 0;
    for (const char *name : {"status", "vu", "rooms", "server-info", "online-users", "userlist", "admin-users"})
        read += scene.site().readState(QStringLiteral("kivo-%1.json").arg(QLatin1String(name))).isNull() ? 0 : 1;
    return QStringLiteral("%1 files").arg(read);
}

constexpr Event events[] = {
    {"the card overruns", 12, cardOverruns},
    {"the card underruns", 12, cardUnderruns},
    {"the card takes nothing", 4, cardTakesNothing},
    {"the card is pulled", 4, cardIsPulled},
    {"the board resets", 10, boardResets},
    {"the board talks nonsense", 8, boardTalksNonsense},
    {"the Web UI sets something", 30, webUiSets},
    {"the Web UI drops rubbish", 6, webUiDropsRubbish},
    {"the Web UI mutes the microphone", 6, webUiMutesMicrophone},
    {"the Web UI mutes the speaker", 8, webUiMutesSpeaker},
    {"the Web UI stops the transmission", 5, webUiStopsTransmission},
    {"the Web UI leaves the room", 5, webUiLeavesRoom},
    {"the Web UI logs in again", 4, webUiLogsIn},
    {"the Web UI reads what it shows", 40, webUiReads},
};

} // namespace

std::span<const Event> siteEvents() {
    return events;
}
