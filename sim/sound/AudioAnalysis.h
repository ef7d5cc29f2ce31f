#pragma once

#include "sim/sound/Pcm.h"

#include <cstdint>
#include <span>
#include <vector>

namespace sim {

/// What digital silence measures, in dBFS.
constexpr double silenceDbfs = -120.0;

/// RMS level: a full-scale square wave is 0 dBFS, a full-scale sine -3.01. Nothing at all is silence.
double rmsDbfs(std::span<const std::int16_t> samples);

/// RMS level of each stretch of that length; a shorter rest at the end is left out.
std::vector<double> envelopeDbfs(const Pcm &pcm, int stretchMs = 20);

/// The part between two times, as far as the sound reaches.
Pcm slice(const Pcm &pcm, double fromSeconds, double toSeconds);

/// Frequency of the strongest component, to about a tenth of 1 / duration; 0 for less than 64 samples.
double toneHz(const Pcm &pcm);

/// Peak level of a sine of that frequency within the sound, so that a full-scale sine gives 0 dBFS whatever else is
/// there.
double toneLevelDbfs(const Pcm &pcm, double hz);

/// Share of the sound's power, 0..1, that is one unbroken sine of that frequency. A frame left out of a tone costs more
/// than its own share, since the phase no longer fits.
double toneShare(const Pcm &pcm, double hz);

/// Longest run of samples that all stay below that peak level, in ms.
double longestGapMs(const Pcm &pcm, double belowDbfs);

/// How a sound relates to what was said.
struct Comparison {
    double delayMs = 0.0;          ///< by how much it lags, if both began at the same moment; negative when it is ahead
    double similarity = 0.0;       ///< 1 for the same waveform at any volume, about 0 for something else
    double lossPercent = 100.0;    ///< share of the spoken 20 ms frames that are missing
    double saidDbfs = silenceDbfs; ///< RMS level of the spoken frames as said
    double heardDbfs = silenceDbfs; ///< RMS level of the same frames as heard
};

/// Finds what was said in what was heard and measures it. Both need the same rate.
///
/// The delay is where the two waveforms correlate best. The similarity is their normalised correlation in pieces of
/// half a second, weighted with the energy said; each piece may slide by 100 ms around the common delay, since sound
/// devices and jitter buffers skip or repeat a little without anybody noticing. A frame counts as spoken when it is at
/// most 25 dB below the level of the whole, and as missing when it came 20 dB weaker than the strongest tenth of the
/// frames did, each measured against the frame as said, or below -80 dBFS.
Comparison compare(const Pcm &said, const Pcm &heard, double maxDelayMs);

} // namespace sim
