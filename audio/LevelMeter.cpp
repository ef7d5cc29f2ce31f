#include "audio/LevelMeter.h"

#include <algorithm>
#include <cmath>

int levelOf(std::span<const qint16> frame) {
    if (frame.empty())
        return 0;
    qint64 sum = 0;
    for (const qint16 sample : frame) {
        const int square = sample * sample;
        sum += square;
    }
    const double rms = std::sqrt(static_cast<double>(sum) / static_cast<double>(frame.size()));
    if (rms < 1.0)
        return 0;
    const double level = (20.0 * std::log10(rms / 32767.0) + 50.0) / 50.0 * 100.0;
    return std::clamp(static_cast<int>(level), 0, 100);
}
