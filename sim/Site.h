#pragma once

#include "sim/Board.h"
#include "sim/Daemon.h"
#include "sim/SoundCard.h"
#include "sim/VoiceServer.h"

#include <QJsonObject>
#include <QString>

#include <functional>
#include <memory>

namespace sim {

/// Puts the calling process into mount and network namespaces of its own: a fresh, writable "/opt/kivo-appliance" with
/// config/, tmp/ and sounds/ (owned as an installed box has it), a devpts folder, its own "/etc/hosts", a loopback interface
/// that is up, nothing else. Works as root (also inside a chroot) and, through a user namespace, as an ordinary user. Call
/// it first thing in main(), before any thread. On failure it says why on stderr and returns false.
bool enterPrivateSite();

/// Folders inside the private site.
struct SitePaths {
    QString appliance = QStringLiteral("/opt/kivo-appliance");
    QString devpts;     ///< mounted devpts
    QString cards;      ///< shared memory files of the sound cards, and the ALSA configuration
    QString hostsFile;  ///< writable; bound over /etc/hosts
};
SitePaths sitePaths();

/// A whole simulated site around the unmodified daemon: voice server, sound card 0, board.
class Site {
public:
    /// @param daemonProgram  path (and emulator) of the daemon; empty: what the build made
    explicit Site(const QStringList &daemonProgram = {});
    ~Site();

    VoiceServer &server();
    SoundCard &card(); ///< "hw:0,0"
    Board &board();
    Daemon &daemon();

    /// Writes config.json: sensible settings for this site (callsign AB1CD, its password, 127.0.0.1, hw:0,0, the board's
    /// port), with the given keys on top. A key with value QJsonValue::Undefined removes it.
    void writeConfig(const QJsonObject &over = {});
    QJsonObject readConfig() const;
    /// A JSON file of the Web UI exchange folder; empty when missing or partial.
    QJsonDocument readState(const QString &fileName) const;
    /// Creates a file of the exchange folder complete under its final name.
    void dropFile(const QString &fileName, const QByteArray &bytes);

    /// Runs the event loop until the condition holds; false when the deadline passes first.
    static bool waitFor(const std::function<bool()> &condition, int timeoutMs);
    bool waitForLog(const QString &words, int timeoutMs);

    /// Server up, daemon started, logged in and in its room with media ready.
    bool bringUp(int timeoutMs = 15000);
};

} // namespace sim
