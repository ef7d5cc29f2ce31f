#pragma once

#include <QByteArray>

#include <cstdint>

/// What a fuzzer does with one input; each program has its own.
void fuzz(const QByteArray &input);

/// The byte that tells how the rest is to be taken; 0 for an empty input.
inline std::uint8_t firstByte(const QByteArray &input) {
    return input.isEmpty() ? 0 : static_cast<std::uint8_t>(input[0]);
}
