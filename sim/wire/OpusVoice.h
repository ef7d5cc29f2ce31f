#pragma once

#include <QByteArray>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct OpusDecoder;
struct OpusEncoder;

namespace sim {

constexpr int voiceRateHz = 48000;
constexpr int voiceFrameMs = 20;
constexpr int voiceFrameSamples = voiceRateHz / 1000 * voiceFrameMs;

/// One speaking voice: 48 kHz mono, 32 kbit/s, complexity 5.
class VoiceEncoder {
public:
    VoiceEncoder();

    /// @param frame  voiceFrameSamples samples
    QByteArray encode(std::span<const std::int16_t> frame);

private:
    struct Destroy {
        void operator()(OpusEncoder *encoder) const;
    };
    std::unique_ptr<OpusEncoder, Destroy> m_encoder;
};

/// One heard voice, as 48 kHz mono whatever it was coded from.
class VoiceDecoder {
public:
    VoiceDecoder();

    /// Empty when the packet is not Opus.
    std::vector<std::int16_t> decode(const QByteArray &packet);

private:
    struct Destroy {
        void operator()(OpusDecoder *decoder) const;
    };
    std::unique_ptr<OpusDecoder, Destroy> m_decoder;
};

} // namespace sim
