#pragma once

#include "TestSite.h"
#include "sim/AudioAnalysis.h"

#include <QTimer>

#include <cmath>

/// Watches whether the machine runs this program whenever it is due. What is heard while it does not says nothing about
/// the gateway, which was held up as well.
class Pace {
public:
    Pace() {
        QObject::connect(&m_tick, &QTimer::timeout, &m_tick, [this] { look(); });
        m_tick.setTimerType(Qt::PreciseTimer);
        m_tick.start(5);
    }
    bool wasKept() {
        look();
        return m_longestNs < 40'000'000;
    }

private:
    void look() {
        const std::int64_t now = sim::monotonicNs();
        m_longestNs = std::max(m_longestNs, now - m_lastNs);
        m_lastNs = now;
    }

    QTimer m_tick;
    std::int64_t m_lastNs = sim::monotonicNs();
    std::int64_t m_longestNs = 0;
};

/// What the attempt gives, made again while the machine was too busy for it; the last one stands.
/// @param prepare  what comes before each attempt, at whatever pace
template <class Attempt>
auto undisturbed(
    Attempt attempt, const std::function<void()> &prepare = [] {}) {
    constexpr int mostAttempts = 12;
    for (int made = 1;; ++made) {
        prepare();
        Pace pace;
        auto result = attempt();
        if (pace.wasKept() || made == mostAttempts)
            return result;
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

/// The sound without its first and last tenth of a second, where it sets in and breaks off.
inline sim::Pcm middle(const sim::Pcm &sound) {
    return sim::slice(sound, 0.1, sound.seconds() - 0.1);
}
