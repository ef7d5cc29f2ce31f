#pragma once

#include "sim/sound/Pcm.h"
#include "sim/wire/OpusVoice.h"

#include <QByteArray>

#include <cstdint>
#include <optional>

namespace sim {

/// A sound on its way out, packet by packet. Packet n is due n frame lengths after the beginning, however late the
/// caller asks; the last frame is filled up with silence. Times are CLOCK_MONOTONIC in ns and handed in.
class Speech {
public:
    /// @param pcm  of any rate
    explicit Speech(const Pcm &pcm);

    void begin(std::int64_t nowNs);
    bool hasBegun() const;
    /// The next packet, if it is due.
    std::optional<QByteArray> takeDue(std::int64_t nowNs);
    /// True when the last frame has been said to its end.
    bool isOver(std::int64_t nowNs) const;
    /// When the next packet is due or, after the last one, the speech is over.
    std::int64_t nextNs() const;

private:
    int frameCount() const;

    Pcm m_pcm;
    VoiceEncoder m_encoder;
    std::optional<std::int64_t> m_beginNs;
    int m_nextFrame = 0;
};

} // namespace sim
