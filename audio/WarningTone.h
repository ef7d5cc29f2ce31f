#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

class Resampler;

/// How much louder than in its file a warning tone is played.
constexpr int wavBoost = 4;

/// A warning tone from a file, ready to be written to the playback device.
struct WavTone {
    QByteArray samples; ///< 16-bit, interleaved, at the device's rate and channels
    int rateHz;         ///< of the file
    int channels;       ///< of the file
};

/// Reads a 16-bit PCM WAV file and fits it to the playback device: rate, channels, loudness.
///
/// Nothing when the file cannot be used; the reason has been logged then. A stereo file is resampled as if it were one
/// mono stream.
/// @param channels  of the device, 1 or 2
std::optional<WavTone> warningToneFromWav(const QString &path, int deviceRateHz, int channels, Resampler &resampler);

/// Three beeps of 880 Hz, 150 ms each and 100 ms apart, with ramps of 10 ms, at 90 % of full scale: 16-bit,
/// interleaved. Empty when the device rate is too low for a beep to hold a sample.
QByteArray syntheticWarningTone(int deviceRateHz, int channels);
