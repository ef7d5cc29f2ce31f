#pragma once

#include "sim/MonotonicClock.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace sim {

constexpr std::int64_t nsPerSecond = 1'000'000'000;

/// Number of the frame that passes a jack at a CLOCK_MONOTONIC time: floor(time * rate), without overflow.
constexpr std::int64_t airIndex(std::int64_t timeNs, std::int64_t rateHz) {
    return timeNs / nsPerSecond * rateHz + timeNs % nsPerSecond * rateHz / nsPerSecond;
}

/// The first nanosecond at which that frame passes.
constexpr std::int64_t airTimeNs(std::int64_t index, std::int64_t rateHz) {
    return index / rateHz * nsPerSecond + (index % rateHz * nsPerSecond + rateHz - 1) / rateHz;
}

/// Mono sound, each frame at the moment it passes a jack: the slot of an air index carries the lap of the ring in which
/// it was written beside the sample, so that whatever nobody wrote in this lap is silence without ever being cleared.
class AirRing {
public:
    /// 87 s at 48 kHz.
    static constexpr std::int64_t frames = std::int64_t(1) << 22;

    std::int16_t at(std::int64_t index) const {
        const std::uint32_t slot = m_slots[std::size_t(index % frames)].load(std::memory_order_relaxed);
        return slot >> 16 == lap(index) ? std::int16_t(slot) : std::int16_t(0);
    }
    void put(std::int64_t index, std::int16_t sample) {
        m_slots[std::size_t(index % frames)].store(lap(index) << 16 | std::uint16_t(sample), std::memory_order_relaxed);
    }

private:
    static std::uint32_t lap(std::int64_t index) { return std::uint16_t(index / frames); }

    std::array<std::atomic<std::uint32_t>, std::size_t(frames)> m_slots;
};

/// One direction of a card.
struct CardSide {
    std::atomic<std::int64_t> frames;         ///< moved by the device's end since the card was made
    std::atomic<std::uint32_t> xruns;         ///< counted by the device's end
    std::atomic<std::uint32_t> xrunsOrdered;  ///< each step makes the running stream over- or underrun
    std::atomic<std::int32_t> clockErrorPpb;  ///< parts per billion by which the card's clock is fast
    std::atomic<std::uint32_t> refusedStarts; ///< 1: streams do not start
};

/// What the site's end and the device's end (the ALSA plugin) of one simulated card share: a file of this layout that
/// both map. Nothing but lock-free integers of fixed size, so that either end may run on another 64-bit processor's
/// emulator.
struct CardMemory {
    std::atomic<std::uint32_t> present;       ///< 0: cannot be opened, no such device
    std::atomic<std::uint32_t> busy;          ///< 1: cannot be opened, device busy
    std::atomic<std::uint32_t> unplugs;       ///< each step ends every open stream for good
    std::atomic<std::uint32_t> failingWrites; ///< 1: playback neither takes frames nor recovers
    std::atomic<std::uint32_t> rateHz;
    std::atomic<std::uint32_t> minChannels;
    std::atomic<std::uint32_t> maxChannels;
    std::atomic<std::uint32_t> stalled; ///< 1: no stream moves on
    CardSide capture;
    CardSide playback;
    AirRing heard;  ///< what the receiver gives to the capture jack; written ahead by the site
    AirRing played; ///< what the playback jack gives to the transmitter; written ahead by the device's end
};

static_assert(std::atomic<std::uint32_t>::is_always_lock_free && std::atomic<std::int64_t>::is_always_lock_free);
static_assert(sizeof(CardSide) == 24 && sizeof(CardMemory) == 80 + 2 * sizeof(AirRing) &&
              sizeof(AirRing) == 4 * std::size_t(AirRing::frames));

} // namespace sim
