#pragma once

#include <chrono>
#include <cstdint>

namespace sim {

/// CLOCK_MONOTONIC in ns: the one time base of everything that happens on the site.
inline std::int64_t monotonicNs() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace sim
