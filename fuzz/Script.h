#pragma once

#include <QByteArray>

#include <vector>

/// One thing that happens in a fuzzed run: what, and the bytes that belong to it.
struct Step {
    char what;
    QByteArray bytes;
};

/// Cuts a fuzzer's input into steps, so that seeds can be written and findings read as text: a byte 0xFF begins a step
/// and is followed by the letter that tells what happens; 0xFF twice stands for the byte itself. What comes before the
/// first step is a step with the given letter.
std::vector<Step> scriptOf(const QByteArray &input, char first);
