#include "audio/Biquad.h"

#include "audio/Sample.h"

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

// As the cookbook gives them.
struct Coefficients {
    float b0, b1, b2, a0, a1, a2;
};

Biquad normalised(const Coefficients &c) {
    return {.b0 = c.b0 / c.a0, .b1 = c.b1 / c.a0, .b2 = c.b2 / c.a0, .a1 = c.a1 / c.a0, .a2 = c.a2 / c.a0};
}

} // namespace

Biquad lowShelf(float gainDb, float frequencyHz, int rateHz) {
    const Design d(gainDb, frequencyHz, rateHz);
    const float a = d.a;
    const float up = a + 1.0F;
    const float down = a - 1.0F;
    const float term = d.shelfTerm();
    return normalised({.b0 = a * (up - down * d.cosine + term),
                       .b1 = 2.0F * a * (down - up * d.cosine),
                       .b2 = a * (up - down * d.cosine - term),
                       .a0 = up + down * d.cosine + term,
                       .a1 = -2.0F * (down + up * d.cosine),
                       .a2 = up + down * d.cosine - term});
}

Biquad peaking(float gainDb, float frequencyHz, float q, int rateHz) {
    const Design d(gainDb, frequencyHz, rateHz);
    const float alpha = d.sine / (2.0F * q);
    return normalised({.b0 = 1.0F + alpha * d.a,
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
    return normalised({.b0 = a * (up + down * d.cosine + term),
                       .b1 = -2.0F * a * (down + up * d.cosine),
                       .b2 = a * (up + down * d.cosine - term),
                       .a0 = up - down * d.cosine + term,
                       .a1 = 2.0F * (down - up * d.cosine),
                       .a2 = up - down * d.cosine - term});
}

BiquadCascade::BiquadCascade(const std::array<Biquad, sections> &biquads) {
    for (int i = 0; i < sections; ++i) {
        m_b0[i] = biquads[i].b0;
        m_b1[i] = biquads[i].b1;
        m_b2[i] = biquads[i].b2;
        m_a1[i] = biquads[i].a1;
        m_a2[i] = biquads[i].a2;
    }
}

// At both ends of a frame some sections have no sample of it before them: they stand still.
inline BiquadCascade::States BiquadCascade::steppedWhereAtWork(States before, States after, int step, int size) {
    const auto isAtWork = [=](int section) { return step >= lag * section && step < size + lag * section ? -1 : 0; };
    using Mask [[gnu::vector_size(sizeof(Lanes))]] = int;
    const Mask mask{isAtWork(0), isAtWork(1), isAtWork(2)};
    return {mask ? after.x1 : before.x1, mask ? after.x2 : before.x2, mask ? after.y1 : before.y1,
            mask ? after.y2 : before.y2};
}

// A section has to wait for its own last output, which leaves the processor idle; so all three step at once, each in
// its lane and two samples behind the one before it, whose output is then long ready.
void BiquadCascade::process(std::span<qint16> frame) {
    const int size = static_cast<int>(frame.size());
    States states = m_states;
    Lanes last{};
    Lanes lastButOne{};
    for (int step = 0; step < size + lagOfLast; ++step) {
        const float sample = step < size ? frame[step] : 0.0F;
        const Lanes x = __builtin_shufflevector(Lanes{sample}, lastButOne, 0, 4, 5, 6);
        const Lanes y = m_b0 * x + m_b1 * states.x1 + m_b2 * states.x2 - m_a1 * states.y1 - m_a2 * states.y2;
        States stepped{x, states.x1, y, states.y1};
        if (step < lagOfLast || step >= size)
            stepped = steppedWhereAtWork(states, stepped, step, size);
        states = stepped;
        lastButOne = last;
        last = y;
        if (step >= lagOfLast)
            frame[step - lagOfLast] = toSample(y[sections - 1], -32767.0F);
    }
    m_states = {endOfDecay(states.x1), endOfDecay(states.x2), endOfDecay(states.y1), endOfDecay(states.y2)};
}

// A decay that has become far too faint to move a sample is ended, before it reaches the subnormal numbers that some
// processors compute a hundred times slower.
BiquadCascade::Lanes BiquadCascade::endOfDecay(const Lanes &values) {
    constexpr float faint = 1e-30F;
    return ((values > -faint) & (values < faint)) ? Lanes{} : values;
}
