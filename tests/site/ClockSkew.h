#pragma once

#include "Hearing.h"
#include "Measured.h"

#include <algorithm>
#include <cmath>
#include <optional>

/// A sound by which a delay can be told at any moment: one second of a low tone, one of a high one, and so on.
namespace Alternation {

constexpr double lowHertz = 700, highHertz = 1500;
constexpr double pieceSeconds = 0.01;

inline sim::Pcm sound(int seconds) {
    sim::Pcm all;
    for (int second = 0; second < seconds; ++second) {
        const sim::Pcm one = sim::tone(second % 2 == 0 ? lowHertz : highHertz, -10, 1.0);
        all.samples.insert(all.samples.end(), one.samples.begin(), one.samples.end());
    }
    return all;
}

/// Follows it where it is heard, in pieces of 10 ms.
class Ear {
public:
    /// @param beginNs  when the first second of it begins where it is made
    explicit Ear(std::int64_t beginNs) : m_beginNs(beginNs) {}

    /// What is heard from that moment on; follows what was heard before.
    /// @param counts  false while the machine keeps nobody's time: delays and gaps are then passed over
    void hear(std::int64_t fromNs, const sim::Pcm &pcm, bool counts) {
        m_counts = counts;
        for (double at = 0; at + pieceSeconds <= pcm.seconds() + 1e-6; at += pieceSeconds)
            hearPiece(fromNs + std::int64_t(at * 1e9), sim::slice(pcm, at, at + pieceSeconds));
    }

    /// In seconds, at each change of the tone.
    const std::vector<double> &delays() const { return m_delays; }
    double firstDelay() const { return m_delays.empty() ? -1 : m_delays.front(); }
    double lastDelay() const { return m_delays.empty() ? -1 : m_delays.back(); }
    double mostDelay() const { return m_delays.empty() ? -1 : *std::max_element(m_delays.begin(), m_delays.end()); }
    double leastDelay() const { return m_delays.empty() ? -1 : *std::min_element(m_delays.begin(), m_delays.end()); }
    /// Silence within the sound.
    double longestGap() const { return m_longestGap; }
    double allGaps() const { return m_allGaps; }
    double heardSeconds() const { return m_heardSeconds; }

private:
    void hearPiece(std::int64_t timeNs, const sim::Pcm &piece) {
        const double low = sim::toneLevelDbfs(piece, lowHertz);
        const double high = sim::toneLevelDbfs(piece, highHertz);
        if (std::max(low, high) < -25.0) {
            m_gap += pieceSeconds;
            return;
        }
        noteGap();
        m_heardSeconds += pieceSeconds;
        const bool isHigh = high > low;
        if (m_wasHigh && *m_wasHigh != isHigh)
            noteChange(timeNs, isHigh);
        m_wasHigh = isHigh;
    }
    void noteGap() {
        const double gap = std::exchange(m_gap, 0.0);
        if (!m_wasHigh || !m_counts)
            return; // before the sound, or not its fault
        m_longestGap = std::max(m_longestGap, gap);
        m_allGaps += gap;
    }
    /// It turns high at every odd second.
    void noteChange(std::int64_t timeNs, bool isHigh) {
        if (m_counts)
            m_delays.push_back(std::fmod(secondsBetween(m_beginNs, timeNs) + (isHigh ? 1.0 : 0.0), 2.0));
    }

    const std::int64_t m_beginNs;
    std::optional<bool> m_wasHigh;
    bool m_counts = true;
    double m_gap = 0, m_longestGap = 0, m_allGaps = 0, m_heardSeconds = 0;
    std::vector<double> m_delays;
};

} // namespace Alternation

/// Sound both ways at once, through a card whose two sides keep different times.
class SkewedTalk {
public:
    SkewedTalk(TestSite &site, sim::RoomMember &member, int seconds)
        : m_site(site),
          m_member(member),
          m_seconds(seconds) {}

    /// False when it does not begin.
    bool begin() {
        m_member.speak(Alternation::sound(m_seconds + 5));
        const bool talks =
            TestSite::waitFor([&] { return m_site.server().isTalking(TestSite::memberAccount().callsign); }, 5000);
        m_onAir.emplace(sim::monotonicNs());
        m_site.board().setSquelch(true);
        const bool isTaken = TestSite::waitFor([&] { return m_site.server().isTalking(TestSite::gateway()); }, 5000);
        m_inRoom.emplace(m_site.card().feed(Alternation::sound(feedSeconds)));
        m_fedSeconds = feedSeconds;
        m_playedNs = sim::monotonicNs();
        m_member.forgetHeard();
        m_lookedNs = sim::monotonicNs();
        return talks && isTaken;
    }

    /// Listens for a while. What happens while the machine does not keep pace, and right behind that, is passed over.
    void goOn(double seconds) {
        const int underrunsBefore = m_site.card().playbackXruns(), overrunsBefore = m_site.card().captureXruns();
        Pace pace(m_site.daemon());
        letPass(seconds);
        const bool wasCalm = std::exchange(m_isCalm, pace.wasKept());
        const bool counts = wasCalm && m_isCalm;
        const std::int64_t listenNs = sim::monotonicNs();
        listenOnAir(counts);
        const int frames = listenInRoom(counts);
        feedOn();
        m_isCalm = m_isCalm && secondsBetween(listenNs, sim::monotonicNs()) < 0.15; // a standstill meanwhile
        const int underruns = m_site.card().playbackXruns() - underrunsBefore;
        (counts ? m_underruns : m_disturbedXruns) += underruns;
        (counts ? m_overruns : m_disturbedXruns) += m_site.card().captureXruns() - overrunsBefore;
        m_framesInRoom += counts ? frames : 0;
        const std::int64_t lookedNs = std::exchange(m_lookedNs, sim::monotonicNs());
        (counts ? m_calmSeconds : m_disturbedSeconds) += secondsBetween(lookedNs, m_lookedNs);
    }

    const Alternation::Ear &onAir() const { return *m_onAir; }
    const Alternation::Ear &inRoom() const { return *m_inRoom; }
    int underruns() const { return m_underruns; }
    int overruns() const { return m_overruns; }
    int framesInRoom() const { return m_framesInRoom; }
    double calmSeconds() const { return m_calmSeconds; }
    double disturbedSeconds() const { return m_disturbedSeconds; }
    int disturbedXruns() const { return m_disturbedXruns; }

private:
    static constexpr int feedSeconds = 60;

    void listenOnAir(bool counts) {
        const std::int64_t untilNs = m_playedNs + (sim::monotonicNs() - m_playedNs) / 10'000'000 * 10'000'000;
        m_onAir->hear(m_playedNs, m_site.card().played(m_playedNs, untilNs), counts);
        m_playedNs = untilNs;
    }
    int listenInRoom(bool counts) {
        for (const sim::RoomMember::Heard &frame : m_member.heard())
            m_inRoom->hear(frame.timeNs, {48000, {frame.samples.begin(), frame.samples.end()}}, counts);
        const int frames = int(m_member.heard().size());
        m_member.forgetHeard();
        return frames;
    }
    /// An even number of seconds each time: it begins low.
    void feedOn() {
        constexpr int piece = 20;
        if (m_fedSeconds - secondsSoFar() < 30) {
            m_site.card().feed(Alternation::sound(piece));
            m_fedSeconds += piece;
        }
    }
    double secondsSoFar() const { return secondsBetween(m_beginNs, sim::monotonicNs()); }

    TestSite &m_site;
    sim::RoomMember &m_member;
    const int m_seconds;
    const std::int64_t m_beginNs = sim::monotonicNs();
    std::optional<Alternation::Ear> m_onAir, m_inRoom;
    std::int64_t m_playedNs = 0; ///< up to where it has been listened to on the air
    std::int64_t m_lookedNs = 0; ///< the same in the room
    int m_fedSeconds = 0;
    bool m_isCalm = true;
    int m_underruns = 0, m_overruns = 0, m_disturbedXruns = 0, m_framesInRoom = 0;
    double m_calmSeconds = 0, m_disturbedSeconds = 0;
};

/// How far the card's clocks are off, and what that must come to.
struct Skew {
    double capturePpm = 0, playbackPpm = 0;
    int seconds = 0;
    int leastUnderruns = 0, mostUnderruns = 0;
    double leastDrift = 0, mostDrift = 0; ///< of the delay on the air from least to most, in seconds
};
Q_DECLARE_METATYPE(Skew)

inline void tellOf(const char *where, const Alternation::Ear &ear, int xruns) {
    qInfo(
        "measured: %s: delay %.0f ms at first, %.0f at last, %.0f to %.0f; %d xruns, gaps %.0f ms in all, longest %.0f",
        where, ear.firstDelay() * 1e3, ear.lastDelay() * 1e3, ear.leastDelay() * 1e3, ear.mostDelay() * 1e3, xruns,
        ear.allGaps() * 1e3, ear.longestGap() * 1e3);
}

/// However the clocks differ: sound both ways, whose delay stays within the buffers, at no expense.
inline void verifyTheTalkGoesOn(const Skew &skew, double lookEverySeconds) {
    sim::CardOptions options;
    options.capturePpm = skew.capturePpm;
    options.playbackPpm = skew.playbackPpm;
    TestSite site(options);
    QVERIFY(site.bringUp());
    const auto member = site.memberIn("Lobby"_s);
    QVERIFY(member);
    QVERIFY(site.waitForLog("[Appliance] Gateway info saved"_s, 5000)); // the login's last line
    SkewedTalk talk(site, *member, skew.seconds);
    QVERIFY(talk.begin());
    QVERIFY(site.waitForLog("[Audio] SW buffer primed"_s, 5000)); // the talk's last line
    const Expense expense(site);
    while (expense.seconds() < skew.seconds)
        talk.goOn(lookEverySeconds);
    const double framesOfTheCard = talk.calmSeconds() * 50.0 * (1.0 + skew.capturePpm / 1e6);

    const Alternation::Ear &onAir = talk.onAir(), &inRoom = talk.inRoom();
    tellOf("on the air", onAir, talk.underruns());
    tellOf("in the room", inRoom, talk.overruns());
    tellMeasured("frames missing in the room", framesOfTheCard - talk.framesInRoom(), "frames");
    qInfo("measured: %.0f s at a steady pace, %.0f s disturbed with %d xruns", talk.calmSeconds(),
          talk.disturbedSeconds(), talk.disturbedXruns());
    expense.tell("clock skew");
    if (talk.calmSeconds() < 5.0)
        QSKIP("the machine is too busy to keep time");

    // Half a second of the device's buffer, 200 ms of the queue's, and the way.
    VERIFY_BETWEEN(onAir.mostDelay(), 0.05, 0.8);
    const bool wasCalm = talk.disturbedSeconds() < 0.1 * skew.seconds; // else the drift may have passed unseen
    if (wasCalm && talk.disturbedXruns() == 0)
        VERIFY_BETWEEN(onAir.mostDelay() - onAir.leastDelay(), skew.leastDrift, skew.mostDrift);
    VERIFY_BETWEEN(talk.underruns(), 0, skew.mostUnderruns);
    VERIFY_BETWEEN(talk.underruns() + talk.disturbedXruns(), skew.leastUnderruns, 1000);
    VERIFY_BETWEEN(onAir.longestGap(), 0.0, 0.25);
    VERIFY_BETWEEN(onAir.allGaps(), 0.0, 0.15 * talk.underruns() + 0.1);
    VERIFY_BETWEEN(inRoom.mostDelay() - inRoom.leastDelay(), 0.0, 0.12);
    // At the edge of a disturbed second, frames may count to the wrong side; ten more may have been waiting in the card
    // when the counting began.
    const double edges = 10.0 + 2.0 * talk.disturbedSeconds();
    VERIFY_BETWEEN(framesOfTheCard - talk.framesInRoom(), -edges - 10.0, edges);
    VERIFY_BETWEEN(talk.overruns(), 0, 1);
    VERIFY_CHEAP(expense);
    QCOMPARE(expense.lines(), 0);
    QCOMPARE(site.daemon().logged("[Server] Terputus"_s), QStringList());
    QVERIFY(site.board().isKeyed());
    member->stopTalking();
    QVERIFY(sim::Site::waitFor([&] { return !site.board().isKeyed(); }, 2000));
}
