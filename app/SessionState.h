#pragma once

#include <QString>

#include <optional>

/// What the gateway knows about its session with the voice server and about the traffic in its room. One instance for
/// the process, shared by the gateway's rules; all of it lives on the event-loop thread.
struct SessionState {
    /// The host of the voice server and of its media port, read once at start-up.
    QString serverAddress;

    bool connected = false;
    /// The server refused this device: no reconnection until the Web UI hands in credentials.
    bool loginBlocked = false;
    /// Empty while in no room.
    QString currentRoom;
    /// Room to join after the next successful login; empty for the last or default room.
    QString rejoinRoom;

    /// The gateway has asked to transmit what it hears. Changed through Gateway::setTransmitting() only.
    bool transmitting = false;
    /// The squelch opened while no room was joined.
    bool cosPending = false;
    /// Encoded frames that found no media link; only grows.
    int framesDropped = 0;

    /// Callsign of the first talker in the room's last user list; nothing while nobody talks.
    std::optional<QString> remoteTalker;
    /// The transmitter is on because of a talker in the room.
    bool radioKeyed = false;
    /// Callsign of the talker for whom it was keyed last.
    QString lastTalker;

    bool speakerMuted = false;
    bool adminMuted = false;
    int usersOnline = 0;
    int usersInRoom = 0;
    int pingMs = 0;
};
