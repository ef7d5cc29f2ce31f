#pragma once

#include "sim/sound/AudioAnalysis.h"

#include <QString>

#include <vector>

namespace sim {

/// From this similarity on, a sentence counts as heard. Measured with synthetic speech: the codec alone leaves 0.95 at
/// 16 kbit/s and more, and 0.75 at 6 kbit/s; another sentence of the same voice does not get beyond 0.35.
constexpr double heardSimilarity = 0.7;

/// What came of one sentence.
struct Passage {
    QString direction;
    Comparison comparison;

    bool wasHeard() const { return comparison.similarity >= heardSimilarity; }
};

/// A table for the terminal, one line per direction.
QString reportTable(const std::vector<Passage> &passages);

} // namespace sim
