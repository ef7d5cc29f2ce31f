#pragma once

#include <QtGlobal>

#include <array>
#include <span>

/// Coefficients of a second-order filter section, divided by a0: y = b0 x + b1 x1 + b2 x2 - a1 y1 - a2 y2, where x1 and
/// x2 are the last two inputs and y1 and y2 the last two outputs. The default passes everything through.
struct Biquad {
    float b0 = 1.0F, b1 = 0.0F, b2 = 0.0F, a1 = 0.0F, a2 = 0.0F;
};

// The filters of R. Bristow-Johnson's audio EQ cookbook, designed in single precision, shelves with slope 1.
//   gainDb       -12..+12; at 0 numerator and denominator are the same
//   frequencyHz  shelf midpoint or centre of the peak; below half of rateHz, else the filter is not stable
//   rateHz       sample rate
Biquad lowShelf(float gainDb, float frequencyHz, int rateHz);
Biquad peaking(float gainDb, float frequencyHz, float q, int rateHz);
Biquad highShelf(float gainDb, float frequencyHz, int rateHz);

/// Three sections in series, in single precision, each in Direct Form I with the sum taken in the order written above.
/// Nothing is contracted or reordered: every processor gives the same samples, those of one section after the other.
class BiquadCascade {
public:
    static constexpr int sections = 3;

    /// Passes everything through.
    BiquadCascade() : BiquadCascade({Biquad(), Biquad(), Biquad()}) {}
    /// States start at zero.
    explicit BiquadCascade(const std::array<Biquad, sections> &biquads);

    /// Filters a mono frame in place; the results are held within -32767..32767 and their fractions cut off. States run
    /// on from frame to frame.
    void process(std::span<qint16> frame);

private:
    /// One lane per section; the fourth is idle.
    using Lanes [[gnu::vector_size(4 * sizeof(float))]] = float;

    struct States {
        Lanes x1{}, x2{}, y1{}, y2{};
    };
    static constexpr int lag = 2; ///< samples that a section works behind the one before it
    static constexpr int lagOfLast = lag * (sections - 1);

    static States steppedWhereAtWork(States before, States after, int step, int size);
    static Lanes endOfDecay(const Lanes &values);

    Lanes m_b0{}, m_b1{}, m_b2{}, m_a1{}, m_a2{};
    States m_states;
};
