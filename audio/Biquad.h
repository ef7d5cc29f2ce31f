#pragma once

/// Second-order filter section in single precision, Direct Form I. A new one passes everything through.
///
/// Sums are taken in the order they are written, without contraction, so that every processor gives the same samples.
class Biquad {
public:
    /// Coefficients of a transfer function (b0 + b1/z + b2/z²) / (a0 + a1/z + a2/z²).
    struct Coefficients {
        float b0, b1, b2, a0, a1, a2;
    };

    Biquad() = default;
    /// Divides by a0; the states start at zero.
    explicit Biquad(const Coefficients &c)
        : m_b0(c.b0 / c.a0),
          m_b1(c.b1 / c.a0),
          m_b2(c.b2 / c.a0),
          m_a1(c.a1 / c.a0),
          m_a2(c.a2 / c.a0) {}

    float process(float x) {
        const float y = m_b0 * x + m_b1 * m_x1 + m_b2 * m_x2 - m_a1 * m_y1 - m_a2 * m_y2;
        m_x2 = m_x1;
        m_x1 = x;
        m_y2 = m_y1;
        m_y1 = y;
        return y;
    }

    /// Ends a decay that has become far too faint to move a sample, before it reaches the subnormal numbers that some
    /// processors compute a hundred times slower. Call it between frames.
    void endFaintDecay();

private:
    float m_b0 = 1.0F, m_b1 = 0.0F, m_b2 = 0.0F, m_a1 = 0.0F, m_a2 = 0.0F;
    float m_x1 = 0.0F, m_x2 = 0.0F; ///< the last two inputs
    float m_y1 = 0.0F, m_y2 = 0.0F; ///< the last two outputs
};

// The filters of R. Bristow-Johnson's audio EQ cookbook, designed in single precision, shelves with slope 1.
//   gainDb       -12..+12; at 0 numerator and denominator are the same
//   frequencyHz  shelf midpoint or centre of the peak; below half of rateHz, else the filter is not stable
//   rateHz       sample rate
Biquad lowShelf(float gainDb, float frequencyHz, int rateHz);
Biquad peaking(float gainDb, float frequencyHz, float q, int rateHz);
Biquad highShelf(float gainDb, float frequencyHz, int rateHz);
