#pragma once

#include "Processor.h"
#include "TestSite.h"
#include "sim/sound/AudioAnalysis.h"

#include <QTimer>

#include <cmath>
#include <utility>

/// Watches whether the machine runs this program and the daemon whenever they are due. What is heard while it does not
/// says nothing about the gateway.
class Pace {
public:
    explicit Pace(const sim::Daemon &daemon) : m_daemon(daemon) {
        QObject::connect(&m_tick, &QTimer::timeout, &m_tick, [this] { look(); });
        m_tick.setTimerType(Qt::PreciseTimer);
        m_tick.start(5);
    }
    bool wasKept() {
        look();
        const std::int64_t lastedNs = m_lastNs - m_beginNs;
        const std::int64_t daemonsNs = m_waitedNs - m_waitedAtBeginNs;
        const std::int64_t stolen = stolenNs() - m_stolenAtBeginNs;
        return m_longestNs < 40'000'000 && m_daemonsLongestNs < 30'000'000 && daemonsNs * 10 < lastedNs &&
               stolen * 10 < lastedNs;
    }

private:
    void look() {
        const std::int64_t now = sim::monotonicNs();
        m_longestNs = std::max(m_longestNs, now - std::exchange(m_lastNs, now));
        const std::int64_t waited = waitedNs(m_daemon.processId());
        m_daemonsLongestNs = std::max(m_daemonsLongestNs, waited - std::exchange(m_waitedNs, waited));
    }

    const sim::Daemon &m_daemon;
    QTimer m_tick;
    const std::int64_t m_beginNs = sim::monotonicNs();
    std::int64_t m_lastNs = m_beginNs;
    std::int64_t m_longestNs = 0; ///< between two looks
    const std::int64_t m_waitedAtBeginNs = waitedNs(m_daemon.processId());
    std::int64_t m_waitedNs = m_waitedAtBeginNs;
    std::int64_t m_daemonsLongestNs = 0; ///< for a processor, added up when it gets one
    const std::int64_t m_stolenAtBeginNs = stolenNs();
};

/// Until the machine has kept the pace for a second; 15 s at most.
inline void waitForCalm(const sim::Daemon &daemon) {
    for (int second = 0; second < 15; ++second) {
        Pace pace(daemon);
        TestSite::waitFor([] { return false; }, 1000);
        if (pace.wasKept())
            return;
    }
}

/// What the attempt gives, made again when it is calm, while the machine was too busy for it; the last one stands.
/// @param prepare  what comes before each attempt, at whatever pace
template <class Attempt>
auto undisturbed(
    sim::Site &site, Attempt attempt, const std::function<void()> &prepare = [] {}) {
    constexpr int mostAttempts = 8;
    for (int made = 1;; ++made) {
        prepare();
        Pace pace(site.daemon());
        auto result = attempt();
        if (pace.wasKept() || made == mostAttempts)
            return result;
        waitForCalm(site.daemon());
    }
}

/// The gateway's transmission of that many frames: squelch open, frames, squelch closed.
inline sim::Pcm heardInRoom(TestSite &site, sim::RoomMember &member, int frames) {
    const int talker = TestSite::gatewayAccount().id;
    member.forgetHeard();
    site.board().setSquelch(true);
    TestSite::waitFor([&] { return int(member.heard().size()) >= frames; }, frames * 20 + 5000);
    site.board().setSquelch(false);
    TestSite::waitFor([&] { return !site.server().isTalking(TestSite::gateway()); }, 5000);
    return member.heardFrom(talker);
}

/// What was on the air while the member said this and the transmitter was keyed, from the first sound on.
inline sim::Pcm heardOnAir(TestSite &site, sim::RoomMember &member, const sim::Pcm &said) {
    const auto isQuiet = [&] {
        const std::int64_t now = sim::monotonicNs();
        return sim::rmsDbfs(site.card().played(now - 100'000'000, now).samples) == sim::silenceDbfs;
    };
    TestSite::waitFor(isQuiet, 2000); // what an earlier talker has left plays out first
    member.speak(said);
    TestSite::waitFor([&] { return site.board().isKeyed(); }, 5000);
    const std::int64_t keyedNs = sim::monotonicNs();
    TestSite::waitFor([&] { return !site.board().isKeyed(); }, int(said.seconds() * 1000) + 5000);
    sim::Pcm onAir = site.card().played(keyedNs, sim::monotonicNs());
    const auto sound = std::find_if(onAir.samples.begin(), onAir.samples.end(), [](int s) { return s != 0; });
    onAir.samples.erase(onAir.samples.begin(), sound);
    return onAir;
}

/// How many bytes were waiting when playback first began at these rates; 0 when it never did.
inline int bytesAtBeginning(TestSite &site, const QString &ratesAndRatio) {
    const QString beginning = "[Audio] SW buffer primed | "_s + ratesAndRatio + " | bufSize: "_s;
    const QString line = site.daemon().logged(beginning).value(0);
    return line.endsWith(" bytes"_s) ? line.mid(beginning.size()).chopped(6).toInt() : 0;
}

/// What is wrong with a sound that should be this tone and nothing else; empty when nothing is. A single frame left out
/// shows in the share, unless the tone has a whole number of waves per frame.
/// @param dbfs  peak level
inline QString complaintAbout(const sim::Pcm &sound, double hz, double dbfs) {
    const double measuredHz = sim::toneHz(sound);
    const double measuredDbfs = sim::toneLevelDbfs(sound, hz);
    const double share = sim::toneShare(sound, hz);
    const double gapMs = sim::longestGapMs(sound, dbfs - 10.0);
    const bool clean = sound.seconds() >= 0.3 && std::abs(measuredHz - hz) <= 0.003 * hz &&
                       std::abs(measuredDbfs - dbfs) <= 0.5 && share >= 0.985 && gapMs <= 2.0;
    return clean ? QString()
                 : QStringLiteral("%1 s of %2 Hz at %3 dBFS, share %4, longest gap %5 ms")
                       .arg(sound.seconds())
                       .arg(measuredHz)
                       .arg(measuredDbfs)
                       .arg(share)
                       .arg(gapMs);
}

#define VERIFY_TONE(sound, hz, dbfs)                                                                                   \
    do {                                                                                                               \
        const QString complaint = complaintAbout(sound, hz, dbfs);                                                     \
        QVERIFY2(complaint.isEmpty(), qPrintable(complaint));                                                          \
    } while (false)

/// The sound where it has settled. Up to a tenth of a second of what was said before may be heard in front of it: too
/// little for the card to start with, it was still in there.
inline sim::Pcm middle(const sim::Pcm &sound) {
    return sim::slice(sound, 0.25, sound.seconds() - 0.1);
}
