#include "Voice.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr double twoPi = 2.0 * std::numbers::pi;
constexpr int seconds = 5;
constexpr int highestHarmonic = 28;

double bump(double x, double centre, double width) {
    const double distance = (x - centre) / width;
    return std::exp(-distance * distance);
}

// How strongly a vowel, which moves with time, sounds at a frequency.
double vowel(double frequencyHz, double time) {
    const double first = 500.0 + 250.0 * std::sin(twoPi * 1.3 * time);
    const double second = 1500.0 + 600.0 * std::sin(twoPi * 0.9 * time + 1.0);
    return bump(frequencyHz, first, 180.0) + 0.5 * bump(frequencyHz, second, 260.0) +
           0.2 * bump(frequencyHz, 2600.0, 400.0);
}

// Four syllables a second, a pause at the end of every one and a half.
double loudness(double time) {
    if (std::fmod(time, 1.5) > 1.2)
        return 0.0;
    return std::max(0.0, std::sin(twoPi * 2.0 * time) * std::sin(twoPi * 2.0 * time));
}

double voiceAt(double time, double &phase) {
    const double pitchHz = 125.0 + 20.0 * std::sin(twoPi * 0.7 * time);
    phase += pitchHz / rateHz;
    double sum = 0.0;
    for (int harmonic = 1; harmonic <= highestHarmonic; ++harmonic)
        sum += vowel(harmonic * pitchHz, time) * std::sin(twoPi * harmonic * phase);
    return 4000.0 * loudness(time) * sum;
}

} // namespace

std::vector<Frame> voice() {
    std::vector<Frame> frames(seconds * rateHz / frameSamples, Frame(frameSamples));
    double phase = 0.0;
    std::uint32_t noise = 1;
    int n = 0;
    for (Frame &frame : frames) {
        for (std::int16_t &sample : frame) {
            noise = noise * 1664525U + 1013904223U;
            const double hiss = static_cast<double>(noise >> 16U) / 65536.0 - 0.5;
            const double value = voiceAt(static_cast<double>(n++) / rateHz, phase) + 120.0 * hiss;
            sample = static_cast<std::int16_t>(std::clamp(value, -32000.0, 32000.0));
        }
    }
    return frames;
}
