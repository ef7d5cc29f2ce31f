#pragma once

#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

namespace sim {

/// A stretch of mono 16-bit sound.
struct Pcm {
    int rateHz = 48000;
    std::vector<std::int16_t> samples;

    double seconds() const { return rateHz > 0 ? double(samples.size()) / rateHz : 0.0; }
};

/// Reads a 16-bit PCM WAV file of any rate, mono or stereo (averaged), as mono of its own rate.
std::optional<Pcm> readWav(const QString &path);
bool writeWav(const QString &path, const Pcm &pcm);

/// The same sound at another rate; good enough to speak and to compare with.
Pcm atRate(const Pcm &pcm, int rateHz);

/// A sine. @param dbfs  level of the peak, 0 is full scale
Pcm tone(double hz, double dbfs, double seconds, int rateHz = 48000);

} // namespace sim
