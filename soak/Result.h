#pragma once

#include "Rest.h"

#include <vector>

/// What was measured, as a table on stdout, and whether every limit was kept.
class Result {
public:
    Result(Scene &scene, std::vector<Rest> rests, Figures most, double seconds);

    /// True when all was kept.
    bool print();

private:
    void printMemory();
    void printCounts();
    void printLog();
    void printLoop();
    void printCard();
    void printDelays();
    void printDuplex();
    void printEvents();
    void row(const QString &what, const QString &value, const QString &limit = {}, bool kept = true);

    Scene &m_scene;
    const std::vector<Rest> m_rests; ///< the first before the first event; growth counts from the second on
    const Figures m_most;
    const double m_seconds; ///< since the first rest
    bool m_kept = true;
};
