#pragma once

#include "Voice.h"

#include <vector>

/// How the sound is shaped in whatever is measured.
namespace Shaping {

constexpr int gainPercent = 80; ///< microphone and speaker

struct Tone {
    float bass, mid, treble; ///< decibels
};
constexpr Tone txTone{3.0F, -2.0F, 4.0F};
constexpr Tone rxTone{-3.0F, 2.0F, 5.0F};

/// The voice as the encoder sees it: after gain and tone. A reference that encodes is given the same frames, since some
/// frames take more encoding than others.
std::vector<Frame> shapedVoice();

} // namespace Shaping
