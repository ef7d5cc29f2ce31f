#pragma once

#include <QtGlobal>

#include <span>

/// Level of a mono frame: 0 at -50 dBFS (rms) and below, 100 at full scale, linear in dB between. An empty frame gives
/// 0.
int levelOf(std::span<const qint16> frame);
