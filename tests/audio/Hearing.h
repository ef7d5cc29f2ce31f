#pragma once

#include "sim/sound/Pcm.h"

#include <QDebug>

#include <algorithm>
#include <cmath>

/// Repeats what needs the pace of a sound card for as long as it tells that the machine was too busy to keep it. False
/// when even the last attempt was disturbed.
template <class Attempt>
bool undisturbed(Attempt attempt) {
    for (int attempts = 0; attempts < 25; ++attempts) {
        if (attempt())
            return true;
    }
    return false;
}

/// What was put on the air, without the silence before and after it.
inline sim::Pcm spoken(const sim::Pcm &onAir) {
    const auto isSound = [](int sample) { return sample != 0; };
    const auto &samples = onAir.samples;
    const auto first = std::find_if(samples.begin(), samples.end(), isSound);
    const auto last = std::find_if(samples.rbegin(), std::make_reverse_iterator(first), isSound).base();
    return {onAir.rateHz, {first, last}};
}

inline bool isNear(double value, double expected, double tolerance) {
    if (std::abs(value - expected) > tolerance) {
        qWarning() << "got" << value << "instead of" << expected;
        return false;
    }
    return true;
}
