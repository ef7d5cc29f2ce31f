#pragma once

#include "Board.h"
#include "Pieces.h"
#include "Script.h"
#include "Server.h"
#include "app/Appliance.h"

#include <QJsonObject>

#include <chrono>
#include <cstdint>
#include <optional>

class VirtualTime;

/// A whole gateway between a voice server, a board and a Web UI that do whatever a script says, without a sound card
/// and in virtual time:
///
///   s  the server says the bytes          e  the server ends the connection, r  it drops it
///   m  the media server sends a datagram  b  the board says the bytes, x  it vanishes
///   c  the Web UI drops a command, l  a login trigger
///   t  time passes, how long tells the first byte; the rest is said by the server
///
/// What the gateway does is held against its promises all the time.
class Hilltop {
public:
    /// @param cutting  how the server's bytes are cut into pieces: 0 not at all, else at random from this seed
    explicit Hilltop(std::uint8_t cutting);
    Hilltop(const Hilltop &) = delete;
    Hilltop &operator=(const Hilltop &) = delete;

    /// Logged in as administrator and in a room.
    void enterRoom();
    void play(const Step &step);
    /// The last act: the server goes away for good, then the gateway ends.
    void finish();

private:
    using ms = std::chrono::milliseconds;

    void writeConfig();
    void say(const QByteArray &bytes);
    void makeServer(void (Server::*action)());
    void boardSays(const QByteArray &bytes);
    void dropCommand(const QByteArray &json);
    void dropTrigger(const QByteArray &json);
    void pass(ms span);
    void checkCommandsSent();
    void checkStatus();
    QJsonObject jsonIn(const QString &path) const;

    VirtualTime &m_time;
    Pieces m_pieces;
    ms m_timeLeft;
    Server m_server;
    Board m_board;
    AppliancePaths m_paths;
    std::optional<Appliance> m_appliance;
    QByteArray m_commandsHeard; ///< the beginning of a command
    int m_commandFiles = 0;
    bool m_speakerMuted = false;
};
