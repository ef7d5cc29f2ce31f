#include "audio/ToneControl.h"

#include <algorithm>
#include <cmath>

namespace {

float heldGainDb(float gainDb) {
    constexpr float limit = 12.0F;
    return std::isnan(gainDb) ? 0.0F : std::clamp(gainDb, -limit, limit);
}

} // namespace

void ToneControl::set(float bass, float mid, float treble, int rateHz) {
    m_bass = heldGainDb(bass);
    m_mid = heldGainDb(mid);
    m_treble = heldGainDb(treble);
    const int designRateHz = std::max(rateHz, 8000);
    m_filters = BiquadCascade({lowShelf(m_bass, 150.0F, designRateHz), peaking(m_mid, 1000.0F, 0.9F, designRateHz),
                               highShelf(m_treble, 3000.0F, designRateHz)});
}

bool ToneControl::isFlat() const {
    return m_bass == 0.0F && m_mid == 0.0F && m_treble == 0.0F;
}

void ToneControl::process(std::span<qint16> frame) {
    if (!isFlat())
        m_filters.process(frame);
}
