#pragma once

#include "sim/sound/Pcm.h"

#include <QString>

#include <cstdint>
#include <vector>

namespace sim {

/// What happened on the site along one time axis: states that go on and off, and how loud sounds were. Times are handed
/// in as CLOCK_MONOTONIC ns and kept as seconds since the timeline's zero.
class Timeline {
public:
    struct Span {
        double from = 0.0;
        double to = 0.0;
    };

    /// Loudness of a sound, a value for each 20 ms.
    struct Trace {
        QString name;
        double from = 0.0;
        std::vector<double> envelopeDbfs;
    };

    struct Lane {
        QString title;
        std::vector<Span> spans;
        std::vector<Trace> traces;
        bool isOn = false; ///< the last span has not ended yet
    };

    explicit Timeline(std::int64_t zeroNs) : m_zeroNs(zeroNs) {}

    double secondsAt(std::int64_t timeNs) const { return double(timeNs - m_zeroNs) * 1e-9; }

    /// Lanes come in the order in which they are first mentioned.
    void addLane(const QString &title);
    /// A state that is already so is left as it is.
    void setState(const QString &lane, bool on, std::int64_t timeNs);
    void addSound(const QString &lane, const QString &name, std::int64_t startNs, const Pcm &pcm);

    /// The stretch to show. States that are still on last until its end.
    void setView(std::int64_t fromNs, std::int64_t toNs);
    Span view() const { return m_view; }
    const std::vector<Lane> &lanes() const { return m_lanes; }

private:
    Lane &laneOf(const QString &title);

    std::int64_t m_zeroNs;
    Span m_view;
    std::vector<Lane> m_lanes;
};

} // namespace sim
