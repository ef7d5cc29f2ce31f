#pragma once

#include <span>

/// A promise about cost: one benchmark's processor time over another's of the same run, or in milliseconds.
struct Figure {
    const char *what;
    const char *measured;  ///< name of a benchmark
    const char *reference; ///< name of a benchmark; null for milliseconds
    double limit;          ///< at most this
};

/// Runs the benchmarks of this program, several times each and in random order, and prints a line of the table per
/// figure: ratio of the medians (or the median), limit, kept or not. Takes Google Benchmark's options.
/// Returns the program's exit status: 0 when every figure keeps its limit.
int runFigures(int argc, char **argv, std::span<const Figure> figures);

/// Prints one line of the table. Returns whether the limit is kept.
bool printFigure(const char *what, double value, double limit, const char *detail);
