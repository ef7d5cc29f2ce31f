#pragma once

#include <algorithm>
#include <cstdint>

/// How a stream of bytes is cut on its way.
class Pieces {
public:
    /// @param seed  0: not at all; else at random
    explicit Pieces(std::uint8_t seed) : m_state(seed) {}

    /// Size of the next piece: 1..most. @param most  what is left, at least 1
    int next(int most) {
        if (m_state == 0)
            return most;
        constexpr std::uint32_t longest = 64;
        m_state = m_state * 1664525U + 1013904223U; // a linear congruential generator, whose high bits are good enough
        return std::min(most, 1 + static_cast<int>((m_state >> 20U) % longest));
    }

private:
    std::uint32_t m_state;
};
