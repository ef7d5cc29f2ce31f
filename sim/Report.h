#pragma once

#include "sim/AudioAnalysis.h"

#include <QString>

#include <vector>

namespace sim {

/// From this similarity on, a sentence counts as heard.
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
