#include "audio/AutomaticGain.h"

#include "audio/Sample.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr float targetRms = 8192.0F;
constexpr float silenceRms = 32.767F;
constexpr float lowestGain = 0.1F;
constexpr float highestGain = 10.0F;

// Added up in float, first sample to last: the rounding of this sum is part of the gain's course.
float rmsOf(std::span<const qint16> frame) {
    float sum = 0.0F;
    for (const qint16 sample : frame) {
        const auto value = static_cast<float>(sample);
        sum += value * value;
    }
    return std::sqrt(sum / static_cast<float>(frame.size()));
}

float nextGain(float gain, float wanted) {
    // Beyond the ceiling the factor drifts to it; the clamp of the caller sets a factor above it to exactly the
    // ceiling.
    if (wanted >= highestGain)
        return 0.98F * gain + 0.2F;
    wanted = std::max(wanted, lowestGain);
    if (wanted < gain)
        return 0.7F * gain + 0.3F * wanted;
    return 0.98F * gain + 0.02F * wanted;
}

} // namespace

void AutomaticGain::process(std::span<qint16> frame) {
    if (frame.empty())
        return;
    const float rms = rmsOf(frame);
    if (rms < silenceRms)
        return;
    m_gain = std::clamp(nextGain(m_gain, targetRms / rms), lowestGain, highestGain);
    for (qint16 &sample : frame)
        sample = toSample(static_cast<float>(sample) * m_gain, -32768.0F);
}
