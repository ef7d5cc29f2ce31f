#pragma once

#include "Bystanders.h"
#include "Journal.h"
#include "LoopWatch.h"
#include "Promises.h"
#include "sim/site/Site.h"
#include "sim/sound/Pcm.h"

#include <QTimer>

#include <functional>
#include <memory>

/// The site in the midst of everything, and what is being done to it.
class Scene {
public:
    /// The site is up, its gateway in a room.
    Scene(sim::Site &site, Journal &journal);

    sim::Site &site() { return m_site; }
    sim::VoiceServer &server() { return m_site.server(); }
    sim::SoundCard &card() { return m_site.card(); }
    Bystanders &members() { return m_members; }
    Promises &promises() { return m_promises; }
    Journal &journal() { return m_journal; }
    const LoopWatch &loop() const { return m_loop; }

    static QString gateway() { return sim::Site::gatewayAccount().callsign; }
    /// Twenty seconds, something like speech.
    const sim::Pcm &voice() const { return m_voice; }

    /// The look at the promises, many times a second, ends.
    void stopLooking() { m_tick.stop(); }

    void setSquelch(bool open);
    bool isSquelchOpen() const { return m_squelchOpen; }
    void stopServer();
    void startServer();
    void setServerSilent(bool silent);
    bool isServerReachable() const { return m_serverUp && !m_silent; }
    void pullCard();
    void plugCardIn();
    void setCardRefusing(bool refusing);
    /// There, and working. What is away when the gateway reopens it stays closed until the daemon is restarted, so that
    /// no quality is announced meanwhile, and none has just been when a card goes.
    bool isCardIn() const { return m_cardIn && !m_refusing; }
    bool isCardOpen() const { return m_site.card().isCaptureOpen() && m_site.card().isPlaybackOpen(); }
    bool isCardSettled() const;
    void resetBoard();
    void muteSpeaker(bool muted);
    void muteGateway(bool muted);
    /// Drops a Web UI command.
    void command(const QByteArray &json);
    /// Announces one of the qualities that a server offers, never the same twice in a row.
    void announceNextQuality();
    void announceUsualQuality();
    /// Numbers as they stand, however senseless.
    void announceQuality(const QString &preset, int bitrate, int rateHz, int frameMs, int complexity);

    /// Later, unless everything has been healed by then.
    void later(int ms, std::function<void()> action);
    /// Takes back everything that was done, and all that was still to come.
    void heal();

private:
    void announce(int quality);

    sim::Site &m_site;
    Journal &m_journal;
    const sim::Pcm m_voice;
    Bystanders m_members;
    LoopWatch m_loop;
    Promises m_promises;
    std::unique_ptr<QObject> m_future = std::make_unique<QObject>(); ///< what is still to come hangs on it
    QTimer m_tick;
    bool m_squelchOpen = false, m_serverUp = true, m_silent = false, m_cardIn = true;
    bool m_refusing = false;
    std::int64_t m_qualityNs = 0; ///< when one was last announced
    int m_quality = 0;
    int m_commands = 0;
};
