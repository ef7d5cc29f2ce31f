#include "sim/member/Speech.h"

#include <span>

namespace sim {

namespace {

constexpr std::int64_t voiceFrameNs = voiceFrameMs * 1'000'000LL;

} // namespace

Speech::Speech(const Pcm &pcm) : m_pcm(atRate(pcm, voiceRateHz)) {
    const std::size_t frames = (m_pcm.samples.size() + voiceFrameSamples - 1) / voiceFrameSamples;
    m_pcm.samples.resize(frames * voiceFrameSamples);
}

void Speech::begin(std::int64_t nowNs) {
    m_beginNs = nowNs;
}

bool Speech::hasBegun() const {
    return m_beginNs.has_value();
}

std::optional<QByteArray> Speech::takeDue(std::int64_t nowNs) {
    if (m_nextFrame == frameCount() || nowNs < nextNs())
        return std::nullopt;
    const std::size_t first = std::size_t(m_nextFrame++) * voiceFrameSamples;
    return m_encoder.encode(std::span(m_pcm.samples).subspan(first, voiceFrameSamples));
}

bool Speech::isOver(std::int64_t nowNs) const {
    return m_nextFrame == frameCount() && nowNs >= nextNs();
}

std::int64_t Speech::nextNs() const {
    return m_beginNs.value_or(0) + m_nextFrame * voiceFrameNs;
}

int Speech::frameCount() const {
    return int(m_pcm.samples.size() / voiceFrameSamples);
}

} // namespace sim
