#pragma once

#include "Bystanders.h"
#include "Journal.h"
#include "LoopWatch.h"
#include "sim/site/Site.h"

#include <QObject>

#include <optional>
#include <vector>

/// What the gateway is held to all along. It is told what is done to the site, sees what comes of it, and writes what
/// was not kept into the journal. The time that the machine kept the daemon waiting is not held against it.
class Promises : public QObject {
    Q_OBJECT

public:
    Promises(sim::Site &site, const Bystanders &members, LoopWatch &loop, Journal &journal);

    // What is done to the site.
    void squelchIs(bool open);
    void serverIs(bool up);
    void serverIsSilent(bool silent);
    void speakerIsMuted(bool muted);
    void gatewayIsMuted(bool muted);
    /// The board drops PTT by itself.
    void boardResets();
    /// Something that a transmission into the room need not survive.
    void isDisturbed();

    /// The gateway is in a room with media ready, and the server hears it.
    bool isSessionUp() const;
    /// Looks at everything that may be overdue.
    void look();
    void lookAtLoop();

    enum Measure { ReleaseByList, ReleaseByLinkLoss, Transmit, BackFromCut, BackFromSilence };
    struct Delay {
        double ms = 0.0;
        double ownMs = 0.0; ///< without the machine's part
    };
    const std::vector<Delay> &delays(Measure measure) const { return m_delays[measure]; }
    static double limitMs(Measure measure);

    /// A loop that is held up: on purpose, while the warning tone is written or what is in the card is played out
    /// before a change of quality; or not.
    enum HoldUp { Unmeant, Tone, PlayingOut };
    static double stallLimitMs(HoldUp kind);
    const Delay &longestStall(HoldUp kind) const { return m_longestStall[kind]; }

private:
    using Moment = LoopWatch::Moment;
    using Watch = std::optional<Moment>; ///< since when something should not be; empty: it is not
    struct LogReaction {
        const char *beginning;
        void (Promises::*react)();
    };
    static const LogReaction logReactions[];

    Moment now() const { return m_loop.now(); }
    static Delay between(const Moment &begin, const Moment &end);
    Delay since(const Moment &moment) const;
    void measure(Measure measure, const Moment &from);
    void hold(Watch &watch, bool isSo, double limit, const char *promise);

    void takeLog(const sim::LogLine &line);
    void linkIsUp();
    void linkIsLost();
    void mediaBegin();
    void mediaAreReady();
    void mediaHaveFailed();
    void toneSounds();
    void qualityChanges();
    void pttIs(bool keyed);
    void talkingIs(const QString &callsign, bool talking);
    bool hasReasonToKey() const;
    HoldUp reasonOf(const LoopWatch::Stall &stall) const;
    void lookAtReason();
    void lookAtSession();
    void lookAtSquelch();

    sim::Site &m_site;
    const Bystanders &m_members;
    LoopWatch &m_loop;
    Journal &m_journal;

    bool m_squelchOpen = false, m_serverUp = true, m_silent = false, m_gatewayMuted = false;
    bool m_linkUp = true, m_mediaReady = true, m_heardSinceSilence = true;
    bool m_boardResetting = false;
    bool m_sawSilence = false; ///< since the session was up
    Moment m_squelchChanged, m_disturbed, m_silenceEnded, m_tone, m_quality;
    Watch m_noReason;   ///< to be keyed
    Watch m_isAway;     ///< though nothing keeps it
    Watch m_keyedMuted; ///< with the speaker muted
    bool m_speakerMuted = false;
    Watch m_stuckTalking, m_notTalking, m_deafLink;
    bool m_wasUp = true;
    bool m_hangs = false;
    std::vector<Delay> m_delays[BackFromSilence + 1];
    Delay m_longestStall[PlayingOut + 1];
};
