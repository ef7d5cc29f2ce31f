#pragma once

#include <cstdint>
#include <vector>

/// A frame of 20 ms at 48000 Hz, mono.
using Frame = std::vector<std::int16_t>;
constexpr int rateHz = 48000;
constexpr int frameSamples = 960;

/// Five seconds of something like speech, always the same: a voice of moving pitch and vowels, in syllables with
/// pauses, over a little noise. Keeps an encoder about as busy as a talker does.
std::vector<Frame> voice();
