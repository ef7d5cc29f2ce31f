#pragma once

#include "sim/sound/AudioAnalysis.h"

#include <cstdint>
#include <vector>

namespace sim {

/// The level, moment by moment, of a sound that is being played.
class RunningLevel {
public:
    void start(const Pcm &pcm, std::int64_t startNs) {
        m_envelope = envelopeDbfs(pcm);
        m_startNs = startNs;
    }

    /// Silence before the sound, after it, and when none was ever started.
    double dbfsAt(std::int64_t timeNs) const {
        constexpr std::int64_t stretchNs = 20'000'000;
        const std::int64_t index = timeNs < m_startNs ? -1 : (timeNs - m_startNs) / stretchNs;
        return index >= 0 && index < std::int64_t(m_envelope.size()) ? m_envelope[std::size_t(index)] : silenceDbfs;
    }

private:
    std::vector<double> m_envelope;
    std::int64_t m_startNs = 0;
};

} // namespace sim
