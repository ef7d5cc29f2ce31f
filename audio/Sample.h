#pragma once

#include <QtGlobal>

#include <algorithm>
#include <limits>

/// A computed value as a sample: held within lowest..32767, its fraction cut off (toward zero).
///
/// Transmit stages, tone controls and warning tones hold the negative end at -32767, the receive gain, the automatic
/// gain and the resampler at -32768; the difference is deliberate.
/// @param value   finite
template <class Real>
inline qint16 toSample(Real value, Real lowest) {
    constexpr Real highest = std::numeric_limits<qint16>::max();
    return static_cast<qint16>(std::min(std::max(value, lowest), highest));
}
