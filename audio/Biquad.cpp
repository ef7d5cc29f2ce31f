#include "audio/Biquad.h"

#include <cmath>
#include <numbers>

namespace {

// The cookbook's intermediate variables, by its names.
struct Design {
    Design(float gainDb, float frequencyHz, int rateHz) : a(std::pow(10.0F, gainDb / 40.0F)) {
        const float w0 = 2.0F * std::numbers::pi_v<float> * frequencyHz / static_cast<float>(rateHz);
        cosine = std::cos(w0);
        sine = std::sin(w0);
    }

    // 2 sqrt(A) alpha, the term all shelf coefficients share.
    float shelfTerm() const {
        constexpr float slope = 1.0F;
        const float alpha = sine / 2.0F * std::sqrt((a + 1.0F / a) * (1.0F / slope - 1.0F) + 2.0F);
        return 2.0F * std::sqrt(a) * alpha;
    }

    float a;
    float cosine = 0.0F;
    float sine = 0.0F;
};

void endIfFaint(float &state) {
    constexpr float faint = 1e-30F;
    if (std::abs(state) < faint)
        state = 0.0F;
}

} // namespace

void Biquad::endFaintDecay() {
    endIfFaint(m_x1);
    endIfFaint(m_x2);
    endIfFaint(m_y1);
    endIfFaint(m_y2);
}

Biquad lowShelf(float gainDb, float frequencyHz, int rateHz) {
    const Design d(gainDb, frequencyHz, rateHz);
    const float a = d.a;
    const float up = a + 1.0F;
    const float down = a - 1.0F;
    const float term = d.shelfTerm();
    return Biquad({.b0 = a * (up - down * d.cosine + term),
                   .b1 = 2.0F * a * (down - up * d.cosine),
                   .b2 = a * (up - down * d.cosine - term),
                   .a0 = up + down * d.cosine + term,
                   .a1 = -2.0F * (down + up * d.cosine),
                   .a2 = up + down * d.cosine - term});
}

Biquad peaking(float gainDb, float frequencyHz, float q, int rateHz) {
    const Design d(gainDb, frequencyHz, rateHz);
    const float alpha = d.sine / (2.0F * q);
    return Biquad({.b0 = 1.0F + alpha * d.a,
                   .b1 = -2.0F * d.cosine,
                   .b2 = 1.0F - alpha * d.a,
                   .a0 = 1.0F + alpha / d.a,
                   .a1 = -2.0F * d.cosine,
                   .a2 = 1.0F - alpha / d.a});
}

Biquad highShelf(float gainDb, float frequencyHz, int rateHz) {
    const Design d(gainDb, frequencyHz, rateHz);
    const float a = d.a;
    const float up = a + 1.0F;
    const float down = a - 1.0F;
    const float term = d.shelfTerm();
    return Biquad({.b0 = a * (up + down * d.cosine + term),
                   .b1 = -2.0F * a * (down + up * d.cosine),
                   .b2 = a * (up + down * d.cosine - term),
                   .a0 = up - down * d.cosine + term,
                   .a1 = 2.0F * (down - up * d.cosine),
                   .a2 = up - down * d.cosine - term});
}
