#pragma once

#include "sim/card/SoundCard.h"
#include "sim/server/VoiceServer.h"
#include "sim/site/Board.h"
#include "sim/site/Daemon.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>

namespace sim {

/// Puts the calling process into mount and network namespaces of its own: a fresh, writable "/opt/kivo-appliance" with
/// config/, tmp/ and sounds/ (owned as an installed box has it), a devpts folder, its own "/etc/hosts" and lock folder,
/// a loopback interface that is up, nothing else. Whatever else lies in "/opt" stays in sight. Works as root (also
/// inside a chroot) and, through a user namespace, as an ordinary user; root's site runs at the niceness of an
/// installed gateway. Call it first thing in main(), before any thread. On failure it says why on stderr and returns
/// false.
bool enterPrivateSite();

/// Folders inside the private site.
struct SitePaths {
    QString appliance = QStringLiteral("/opt/kivo-appliance");
    QString devpts;    ///< mounted devpts
    QString cards;     ///< shared memory files of the sound cards, and the ALSA configuration
    QString hostsFile; ///< writable; bound over /etc/hosts
};
SitePaths sitePaths();

/// A whole simulated site around the unmodified daemon: voice server, sound card 0, board. Ends the program when it is
/// not within enterPrivateSite(): it writes to "/opt/kivo-appliance", which on a real box is somebody's.
///
/// Begins as on a new box: the appliance's folders empty, the server with the keyed rooms "Lobby" and "Hilltop" and
/// three accounts.
class Site {
public:
    /// @param daemonProgram  path (and emulator) of the daemon; empty: Daemon::defaultProgram()
    explicit Site(const QStringList &daemonProgram = {}, const CardOptions &cardOptions = {});

    static Account gatewayAccount(); ///< AB1CD, id 42
    static Account memberAccount();  ///< EF2GH, id 200
    static Account adminAccount();   ///< XY9ZA, id 1

    VoiceServer &server() { return m_server; }
    SoundCard &card() { return m_card; } ///< "hw:0,0"
    Board &board() { return m_board; }
    Daemon &daemon() { return m_daemon; }

    /// Writes config.json: sensible settings for this site (callsign AB1CD, its password, 127.0.0.1, hw:0,0, the
    /// board's port), with the given keys on top and without the keys named last.
    void writeConfig(const QJsonObject &over = {}, const QStringList &without = {});
    QJsonObject readConfig() const;
    /// A JSON file of the Web UI exchange folder; empty when missing or partial.
    QJsonDocument readState(const QString &fileName) const;
    /// Creates a file of the exchange folder complete under its final name.
    void dropFile(const QString &fileName, const QByteArray &bytes);

    /// Runs the event loop until the condition holds; false when the deadline passes first.
    static bool waitFor(const std::function<bool()> &condition, int timeoutMs);
    /// Until the daemon's log has a line with the words, be it an old one (see Daemon::forgetLog()).
    bool waitForLog(const QString &words, int timeoutMs);

    /// Server up, daemon started, logged in and in its room with media ready. Writes a configuration if there is none.
    bool bringUp(int timeoutMs = 15000);

private:
    VoiceServer m_server;
    SoundCard m_card;
    Board m_board;
    Daemon m_daemon;
};

} // namespace sim
