#pragma once

#include <cstdint>

/// A sound card of memory, in place of ALSA's calls for reading, writing and what a device grants: always a frame of
/// noise ready, never busy. Everything else is left to ALSA's "null" device.
namespace Card {

/// Name to open it by.
constexpr const char *deviceName = "null";

/// What devices opened from now on grant, whatever is asked for.
void grant(unsigned rateHz, unsigned channels);
/// So many of the next writes fail, as after an underrun.
void failWrites(int count);

/// Writes so far, and the most frames that one of them has had.
std::int64_t writes();
std::int64_t largestWrite();
void forget();

} // namespace Card
