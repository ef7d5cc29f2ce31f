#pragma once

#include "app/SessionState.h"
#include "config/AppliancePaths.h"
#include "config/ConfigStore.h"

#include <algorithm>

class ArduinoController;
class AudioEngine;
class TcpClient;
class UdpAudio;

/// What all of the gateway's rules share: the settings, the session, and the four components, which start-up creates
/// one after the other. A component that does not exist (yet) is null; none is owned here.
struct Gateway {
    explicit Gateway(const AppliancePaths &appliancePaths) : paths(appliancePaths), config(paths.configDir()) {}

    const AppliancePaths paths;
    ConfigStore config;
    SessionState session;

    TcpClient *link = nullptr;
    UdpAudio *media = nullptr;
    AudioEngine *engine = nullptr;
    ArduinoController *radio = nullptr;

    /// A file in the folder that is shared with the Web UI.
    QString exchangeFile(const char *name) const {
        return paths.exchangeDir() + QLatin1Char('/') + QLatin1String(name);
    }

    /// The link exists and is up.
    bool online() const { return link && session.connected; }
    bool radioOpen() const;
    /// What the last login said about this account; 0 and false before it.
    int userId() const;
    bool isAdmin() const;

    /// Percent, brought into what the engine takes.
    static int gainPercent(int asked) { return std::clamp(asked, 0, 200); }

    /// Starts or ends sending what the radio hears. The engine encodes frames only while they are wanted.
    void setTransmitting(bool on);
    /// Keys the transmitter for a talker in the room, or releases it.
    void keyRadio(bool on);
    /// Computes and stores the identity of this box when the settings hold none. True when they changed; the caller
    /// saves.
    bool ensureHardwareId();
    /// Connects to the server that the settings name at this moment.
    void connectToServer();
};
