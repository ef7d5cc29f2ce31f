#include "audio/Gain.h"

#include <algorithm>

void applyGain(std::span<qint16> frame, int percent, int lowest) {
    constexpr int unity = 100;
    if (percent == unity)
        return;
    for (qint16 &sample : frame)
        sample = static_cast<qint16>(std::clamp(sample * percent / unity, lowest, 32767));
}
