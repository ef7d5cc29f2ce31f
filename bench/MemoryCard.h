#pragma once

#include "Voice.h"

/// A sound card of memory, in place of ALSA's calls for reading and for what a device grants: two channels, a given
/// rate, always a frame ready, the voice in both channels, over and over. What is played goes to ALSA's "null" device.
/// Costs a copy, so that what is measured is the engine.
namespace MemoryCard {

/// Name to open it by.
constexpr const char *deviceName = "null";

void load(const std::vector<Frame> &voice);
/// What playback devices opened from now on grant.
void setPlaybackRate(unsigned rateHz);

} // namespace MemoryCard
