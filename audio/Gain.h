#pragma once

#include <QtGlobal>

#include <span>

/// Scales a mono frame in place, in integers: percent / 100 cut toward zero, held within lowest..32767.
/// @param percent  0..200; 100 leaves every sample as it is
/// @param lowest   -32767 on the way to the network, -32768 on the way to the radio
void applyGain(std::span<qint16> frame, int percent, int lowest);
