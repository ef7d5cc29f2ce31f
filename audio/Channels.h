#pragma once

#include <QtGlobal>

#include <span>
#include <vector>

/// Mixes interleaved frames down to mono in place: the mean of a frame's channels, truncated toward zero.
/// Returns the mono part, one sample per whole frame, at the front of the same storage.
std::span<qint16> mixToMono(std::span<qint16> interleaved, int channels);

/// The same sound in another number of channels: surplus channels are left out, missing ones repeat the last.
/// Returns the input itself when nothing is to be done, else what is now in `storage`.
std::span<const qint16> fitChannels(std::span<const qint16> interleaved, int from, int to,
                                    std::vector<qint16> &storage);
