#include "Promises.h"

#include "sim/MonotonicClock.h"

#include <algorithm>
#include <utility>

namespace {

QString gateway() {
    return sim::Site::gatewayAccount().callsign;
}

constexpr double transmitLimitMs = 1000;
constexpr double silenceLimitMs = 36000; // half a minute, and the kernel's timers
constexpr double mutedLimitMs = 2000;    // the commands are looked at twice a second
constexpr double toneMs = 3000;          // the warning tone is meant to hold the loop up, for less than that

} // namespace

double Promises::limitMs(Measure measure) {
    switch (measure) {
    case ReleaseByList:
    case ReleaseByLinkLoss:
    case Transmit:
        return transmitLimitMs;
    case BackFromCut:
        return 20000; // five seconds until it tries, one until it joins, and all over again when that was cut, too
    case BackFromSilence:
        return 50000; // the kernel asks an unheard server again after 1, 2, 4, 8, 16 s
    }
    return 0;
}

Promises::Promises(sim::Site &site, const Bystanders &members, LoopWatch &loop, Journal &journal)
    : m_site(site),
      m_members(members),
      m_loop(loop),
      m_journal(journal),
      m_squelchChanged(now()),
      m_disturbed(now()),
      m_silenceEnded(now()),
      m_tone{0, 0},
      m_quality{0, 0} {
    connect(&site.daemon(), &sim::Daemon::logLine, this, &Promises::takeLog);
    connect(&site.daemon(), &sim::Daemon::ended, this, [this] { m_journal.broken(QStringLiteral("the daemon runs")); });
    connect(&site.board(), &sim::Board::pttChanged, this, &Promises::pttIs);
    connect(&site.server(), &sim::VoiceServer::talkingChanged, this, &Promises::talkingIs);
    connect(&site.server(), &sim::VoiceServer::joined, this, [this](const QString &callsign) {
        if (callsign == gateway())
            isDisturbed();
        lookAtReason();
    });
    connect(&site.server(), &sim::VoiceServer::left, this, &Promises::lookAtReason);
    connect(&site.server(), &sim::VoiceServer::lineReceived, this, [this](const QString &callsign) {
        if (m_heardSinceSilence || m_silent || callsign != gateway())
            return;
        m_heardSinceSilence = true;
        isDisturbed(); // what has been said in the meantime was held back by the kernels
    });
}

// What is done to the site

void Promises::squelchIs(bool open) {
    m_squelchOpen = open;
    m_squelchChanged = now();
}

void Promises::serverIs(bool up) {
    m_serverUp = up;
    isDisturbed();
}

void Promises::serverIsSilent(bool silent) {
    m_silent = silent;
    m_sawSilence = true;
    m_heardSinceSilence = false;
    if (!silent)
        m_silenceEnded = now();
    isDisturbed();
}

void Promises::speakerIsMuted(bool muted) {
    m_speakerMuted = muted;
    m_keyedMuted.reset();
}

void Promises::gatewayIsMuted(bool muted) {
    m_gatewayMuted = muted;
    isDisturbed();
}

void Promises::boardResets() {
    squelchIs(false); // it has forgotten
    isDisturbed();
    m_boardResetting = true;
    m_site.board().reset();
    m_boardResetting = false;
}

void Promises::isDisturbed() {
    m_disturbed = now();
    lookAtReason();
}

bool Promises::isSessionUp() const {
    return m_serverUp && !m_silent && m_heardSinceSilence && m_linkUp && m_mediaReady &&
           !m_site.server().roomOf(gateway()).isEmpty();
}

// What comes of it

Promises::Delay Promises::between(const Moment &begin, const Moment &end) {
    const double ms = double(end.timeNs - begin.timeNs) / 1e6;
    return {ms, std::max(0.0, ms - double(end.machineNs - begin.machineNs) / 1e6)};
}

Promises::Delay Promises::since(const Moment &moment) const {
    return between(moment, now());
}

void Promises::measure(Measure measure, const Moment &from) {
    const Delay delay = since(from);
    if (delay.ms > limitMs(measure))
        m_journal.event(QStringLiteral("delay"), QStringLiteral("measure %1: %2 ms").arg(measure).arg(delay.ms));
    m_delays[measure].push_back(delay);
}

/// Nothing may be so for longer than that; told once each time. By the time that the loop was last seen at work: until
/// the daemon runs again, the kernel does not tell that it waits for a processor.
void Promises::hold(Watch &watch, bool isSo, double limit, const char *promise) {
    constexpr Moment told = {-1, 0};
    if (!isSo) {
        watch.reset();
    } else if (!watch) {
        watch = now();
    } else if (watch->timeNs != told.timeNs && between(*watch, m_loop.lastSeen()).ownMs > limit) {
        m_journal.broken(QLatin1String(promise));
        watch = told;
    }
}

const Promises::LogReaction Promises::logReactions[] = {
    {"[Server] Terhubung ke server", &Promises::linkIsUp},
    {"[Server] Terputus dari server", &Promises::linkIsLost},
    {"[UDP] enableUdp called with:", &Promises::mediaBegin},
    {"[UDP] Siap", &Promises::mediaAreReady},
    {"[UDP] UDP handshake failed!", &Promises::mediaHaveFailed},
    {"[TOT] Warning", &Promises::toneSounds},
    {"[Audio] Quality change", &Promises::qualityChanges},
};

void Promises::takeLog(const sim::LogLine &line) {
    m_journal.daemonSaid(line);
    for (const LogReaction &reaction : logReactions) {
        if (line.text.startsWith(QLatin1String(reaction.beginning)))
            (this->*reaction.react)();
    }
}

void Promises::linkIsUp() {
    m_linkUp = true;
}

void Promises::linkIsLost() {
    m_linkUp = false;
    m_mediaReady = false;
    isDisturbed();
}

void Promises::mediaBegin() {
    m_mediaReady = false;
    isDisturbed();
}

void Promises::mediaAreReady() {
    m_mediaReady = true;
}

/// Nothing asks for the media again before the next login, so that this is seen to when the server was out of reach.
void Promises::mediaHaveFailed() {
    constexpr double handshakeMs = 5000;
    if (!m_silent && since(m_silenceEnded).ms > handshakeMs)
        m_journal.broken(QStringLiteral("the media handshake succeeds when the server is there"));
    m_journal.event(QStringLiteral("media handshake lost in a silence, kicked for another"));
    m_site.server().kick(gateway(), QStringLiteral("media"));
}

void Promises::toneSounds() {
    m_tone = now();
}

void Promises::pttIs(bool keyed) {
    if (!keyed && m_noReason && m_noReason->timeNs > 0 && !m_boardResetting)
        measure(m_linkUp ? ReleaseByList : ReleaseByLinkLoss, *m_noReason);
    m_noReason.reset();
    lookAtReason();
}

void Promises::talkingIs(const QString &callsign, bool talking) {
    if (callsign == gateway() && talking && m_squelchOpen && m_disturbed.timeNs < m_squelchChanged.timeNs)
        measure(Transmit, m_squelchChanged);
    lookAtReason();
}

void Promises::qualityChanges() {
    m_quality = now();
}

/// While the server is silent, and until the kernels have made up for it, the gateway cannot know better.
bool Promises::hasReasonToKey() const {
    const QString room = m_site.server().roomOf(gateway());
    const bool cannotKnow = m_silent || !m_heardSinceSilence;
    return m_linkUp && (cannotKnow || (!room.isEmpty() && m_members.isAnyTalkingIn(room)));
}

void Promises::lookAtReason() {
    const bool sounds = since(m_tone).ms < toneMs;
    hold(m_noReason, m_site.board().isKeyed() && !hasReasonToKey(), limitMs(ReleaseByList) + (sounds ? toneMs : 0),
         "the transmitter is released when nobody talks");
}

void Promises::look() {
    lookAtReason();
    lookAtSession();
    lookAtSquelch();
    lookAtLoop();
    hold(m_keyedMuted, m_speakerMuted && m_site.board().isKeyed(), mutedLimitMs,
         "the transmitter is released while the speaker is muted");
    hold(m_deafLink, m_silent && m_linkUp, silenceLimitMs, "a silent server is noticed");
}

void Promises::lookAtSession() {
    const bool isUp = isSessionUp();
    const Measure back = m_sawSilence ? BackFromSilence : BackFromCut;
    if (isUp && !m_wasUp) {
        if (m_isAway && m_isAway->timeNs > 0)
            measure(back, *m_isAway);
        m_disturbed = now();
        m_sawSilence = false;
    }
    m_wasUp = isUp;
    hold(m_isAway, !isUp && m_serverUp && !m_silent, limitMs(back), "the session comes back");
}

void Promises::lookAtSquelch() {
    const bool talks = m_site.server().isTalking(gateway());
    const bool isSteady = isSessionUp() && m_wasUp;
    hold(m_stuckTalking, isSteady && !m_squelchOpen && talks, transmitLimitMs,
         "the room is left alone when the squelch has closed");
    const bool shouldTalk =
        isSteady && m_squelchOpen && !m_gatewayMuted && m_disturbed.timeNs < m_squelchChanged.timeNs;
    hold(m_notTalking, shouldTalk && !talks, transmitLimitMs, "an open squelch is transmitted into the room");
}

double Promises::stallLimitMs(HoldUp kind) {
    switch (kind) {
    case Unmeant:
        return 500; // of the host, too: what it takes from a processor of a virtual machine is told nowhere
    case Tone:
        return toneMs;
    case PlayingOut:
        return 800; // a dozen of the longest frames
    }
    return 0;
}

Promises::HoldUp Promises::reasonOf(const LoopWatch::Stall &stall) const {
    const auto isIn = [&](const Moment &moment, double ms) {
        return double(stall.timeNs - moment.timeNs) / 1e6 < ms + stall.lateMs;
    };
    constexpr double nextRewriteMs = 400;
    return isIn(m_tone, toneMs) ? Tone : isIn(m_quality, nextRewriteMs) ? PlayingOut : Unmeant;
}

void Promises::lookAtLoop() {
    constexpr double hangingMs = 15000;
    const bool hangs = since(m_loop.lastSeen()).ms > hangingMs;
    if (hangs && !std::exchange(m_hangs, hangs))
        m_journal.broken(QStringLiteral("the loop runs"));
    static const QString names[] = {QStringLiteral("stall"), QStringLiteral("stall (warning tone)"),
                                    QStringLiteral("stall (played out before a change of quality)")};
    for (const LoopWatch::Stall &stall : m_loop.takeStalls()) {
        const HoldUp reason = reasonOf(stall);
        m_journal.event(
            names[reason],
            QStringLiteral("%1 ms, own %2 ms, ran %3 ms").arg(stall.lateMs).arg(stall.ownMs).arg(stall.ranMs));
        Delay &longest = m_longestStall[reason];
        longest = {std::max(longest.ms, stall.lateMs), std::max(longest.ownMs, stall.ownMs)};
        if (stall.ownMs > stallLimitMs(reason))
            m_journal.broken(QStringLiteral("the loop is not held up"));
    }
}
