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

/// Reads a 16-bit PCM WAV file of 4000 to 384000 Hz, mono or stereo (averaged), as mono of its own rate. Anything else
/// gives nothing, as do files beyond 256 MiB. A data chunk that promises more than there is (a stream, a file cut
/// short) gives what is there.
std::optional<Pcm> readWav(const QString &path);
/// Mono, 16 bit. False when the file cannot be written whole.
bool writeWav(const QString &path, const Pcm &pcm);

/// The same sound at another rate, without shift in time; the pass band ends 5 % below the lower of the two half rates.
/// Good enough to speak and to compare with.
Pcm atRate(const Pcm &pcm, int rateHz);

/// A sine. @param dbfs  level of the peak, 0 is full scale
Pcm tone(double hz, double dbfs, double seconds, int rateHz = 48000);

} // namespace sim
