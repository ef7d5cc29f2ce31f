#pragma once

#include <QtGlobal>

#include <span>

/// Evens out the levels of different talkers: steers each frame's rms toward 8192 (about -12 dBFS), falling fast and
/// rising slowly. The factor is kept from frame to frame and from talker to talker.
class AutomaticGain {
public:
    /// Scales a mono frame in place. A frame below -60 dBFS is left as it is and does not move the factor, so that
    /// pauses are not pumped up to noise.
    void process(std::span<qint16> frame);
    /// Current factor, 0.1..10.
    float gain() const { return m_gain; }
    /// Back to a factor of 1.
    void reset() { m_gain = 1.0F; }

private:
    float m_gain = 1.0F;
};
