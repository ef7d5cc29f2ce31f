#pragma once

#include "audio/Biquad.h"

#include <QtGlobal>

#include <span>

/// Three-band tone control of one direction: bass shelf at 150 Hz, mid peak at 1000 Hz, treble shelf at 3000 Hz.
///
/// Filter states run on from frame to frame. A new one is flat.
class ToneControl {
public:
    /// Stores the settings, held within -12..+12 dB, and designs the filters with zeroed states.
    /// @param rateHz  sample rate of the frames to come; below 8000 the filters are those of 8000, where treble lies
    ///                below half the rate and the filter is stable
    void set(float bass, float mid, float treble, int rateHz);
    float bass() const { return m_bass; }
    float mid() const { return m_mid; }
    float treble() const { return m_treble; }
    /// All three settings are exactly 0.
    bool isFlat() const;

    /// Filters a mono frame in place, held within -32767..32767; leaves it as it is when flat. When not flat, all three
    /// filters run, those at 0 dB too.
    void process(std::span<qint16> frame);

private:
    float m_bass = 0.0F;
    float m_mid = 0.0F;
    float m_treble = 0.0F;
    BiquadCascade m_filters;
};
