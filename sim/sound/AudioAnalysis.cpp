#include "sim/sound/AudioAnalysis.h"

#include "sim/sound/Fourier.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <numeric>

namespace sim {
namespace {

constexpr double fullScale = 32768.0;
constexpr int frameMs = 20;
constexpr double spokenMarginDb = 25.0;
constexpr double missingMarginDb = 20.0;
constexpr double missingDbfs = -80.0;
constexpr double pieceSeconds = 0.5;
constexpr double slideSeconds = 0.1;

using Signal = std::vector<double>;

double toDbfs(double power) {
    return power > 0.0 ? std::max(silenceDbfs, 10.0 * std::log10(power)) : silenceDbfs;
}

double powerOf(double dbfs) {
    return std::pow(10.0, dbfs / 10.0);
}

Signal toSignal(std::span<const std::int16_t> samples) {
    Signal signal(samples.size());
    std::transform(samples.begin(), samples.end(), signal.begin(), [](std::int16_t s) { return s / fullScale; });
    return signal;
}

double energyOf(std::span<const double> signal) {
    return std::inner_product(signal.begin(), signal.end(), signal.begin(), 0.0);
}

double hann(std::size_t index, std::size_t count) {
    return 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * (double(index) + 0.5) / double(count));
}

/// The part that begins at `from`, with silence wherever the signal does not reach.
Signal section(const Signal &signal, std::ptrdiff_t from, std::size_t count) {
    Signal part(count);
    const std::ptrdiff_t first = std::max<std::ptrdiff_t>(from, 0);
    const std::ptrdiff_t last = std::min(from + std::ptrdiff_t(count), std::ptrdiff_t(signal.size()));
    if (first < last)
        std::copy(signal.begin() + first, signal.begin() + last, part.begin() + (first - from));
    return part;
}

std::ptrdiff_t bestShift(const Signal &said, const Signal &heard, std::ptrdiff_t maxShift) {
    const Signal correlation = crossCorrelation(said, heard, maxShift);
    return std::max_element(correlation.begin(), correlation.end()) - correlation.begin() - maxShift;
}

/// Highest normalised correlation of the piece with any equally long part of the wider signal.
double bestFit(const Signal &piece, const Signal &wider) {
    const auto shifts = std::ptrdiff_t(wider.size() - piece.size());
    const Signal correlation = crossCorrelation(piece, wider, shifts);
    const double pieceEnergy = energyOf(piece);
    double partEnergy = energyOf({wider.data(), piece.size()});
    double best = 0.0;
    for (std::ptrdiff_t shift = 0; shift <= shifts; ++shift) {
        const double scale = std::sqrt(pieceEnergy * partEnergy);
        if (scale > 1e-9)
            best = std::max(best, correlation[std::size_t(shifts + shift)] / scale);
        if (shift < shifts) {
            const double entering = wider[std::size_t(shift) + piece.size()];
            const double leaving = wider[std::size_t(shift)];
            partEnergy += entering * entering - leaving * leaving;
        }
    }
    return best;
}

double similarityOf(const Signal &said, const Signal &heard, std::ptrdiff_t delay, int rateHz) {
    const auto pieceLength = std::size_t(pieceSeconds * rateHz);
    const auto slide = std::ptrdiff_t(slideSeconds * rateHz);
    double fit = 0.0;
    for (std::size_t start = 0; start < said.size(); start += pieceLength) {
        const std::size_t length = std::min(pieceLength, said.size() - start);
        const Signal piece = section(said, std::ptrdiff_t(start), length);
        const Signal wider = section(heard, std::ptrdiff_t(start) + delay - slide, length + 2 * std::size_t(slide));
        fit += energyOf(piece) * bestFit(piece, wider);
    }
    const double energy = energyOf(said);
    return energy > 0.0 ? fit / energy : 0.0;
}

Signal framePowers(const Signal &signal, int rateHz) {
    const std::size_t length = std::size_t(rateHz) * frameMs / 1000;
    Signal powers;
    for (std::size_t start = 0; length > 0 && start + length <= signal.size(); start += length)
        powers.push_back(energyOf({signal.data() + start, length}) / double(length));
    return powers;
}

double mean(const Signal &values) {
    return values.empty() ? 0.0 : std::accumulate(values.begin(), values.end(), 0.0) / double(values.size());
}

/// Only the frames in which something was said.
void keepSpoken(Signal &said, Signal &heard) {
    const double leastPower = mean(said) * powerOf(-spokenMarginDb);
    std::size_t kept = 0;
    for (std::size_t i = 0; i < said.size(); ++i) {
        if (said[i] > 0.0 && said[i] >= leastPower) {
            said[kept] = said[i];
            heard[kept] = heard[i];
            ++kept;
        }
    }
    said.resize(kept);
    heard.resize(kept);
}

double lossPercent(const Signal &said, const Signal &heard) {
    if (said.empty())
        return 100.0;
    Signal gains(said.size());
    std::transform(heard.begin(), heard.end(), said.begin(), gains.begin(), std::divides<>());
    Signal sorted = gains;
    std::sort(sorted.begin(), sorted.end());
    const double leastGain = sorted[sorted.size() * 9 / 10] * powerOf(-missingMarginDb);
    std::size_t missing = 0;
    for (std::size_t i = 0; i < gains.size(); ++i)
        missing += gains[i] < leastGain || heard[i] < powerOf(missingDbfs) ? 1 : 0;
    return 100.0 * double(missing) / double(gains.size());
}

/// Complex amplitude of that frequency, 1 for a full-scale sine; the window keeps other frequencies out.
std::complex<double> amplitudeAt(const Pcm &pcm, double hz) {
    std::complex<double> sum = 0.0;
    double windowSum = 0.0;
    const std::size_t count = pcm.samples.size();
    for (std::size_t i = 0; i < count; ++i) {
        const double window = hann(i, count);
        sum += std::polar(window * pcm.samples[i] / fullScale, -2.0 * std::numbers::pi * hz * double(i) / pcm.rateHz);
        windowSum += window;
    }
    return count > 0 ? 2.0 * sum / windowSum : 0.0;
}

} // namespace

double rmsDbfs(std::span<const std::int16_t> samples) {
    double energy = 0.0;
    for (const std::int16_t sample : samples)
        energy += double(sample) * sample;
    return samples.empty() ? silenceDbfs : toDbfs(energy / (fullScale * fullScale * double(samples.size())));
}

std::vector<double> envelopeDbfs(const Pcm &pcm, int stretchMs) {
    const std::size_t length = std::size_t(pcm.rateHz) * std::size_t(stretchMs) / 1000;
    std::vector<double> envelope;
    for (std::size_t start = 0; length > 0 && start + length <= pcm.samples.size(); start += length)
        envelope.push_back(rmsDbfs({pcm.samples.data() + start, length}));
    return envelope;
}

Pcm slice(const Pcm &pcm, double fromSeconds, double toSeconds) {
    const auto sampleAt = [&](double seconds) {
        return std::ptrdiff_t(std::clamp(std::round(seconds * pcm.rateHz), 0.0, double(pcm.samples.size())));
    };
    const std::ptrdiff_t from = sampleAt(fromSeconds);
    const std::ptrdiff_t to = std::max(from, sampleAt(toSeconds));
    return {pcm.rateHz, {pcm.samples.begin() + from, pcm.samples.begin() + to}};
}

double toneHz(const Pcm &pcm) {
    constexpr std::size_t leastSamples = 64;
    constexpr std::size_t mostSamples = 65536;
    if (pcm.samples.size() < leastSamples)
        return 0.0;
    const std::size_t count = std::min(mostSamples, std::bit_floor(pcm.samples.size()));
    const std::size_t start = (pcm.samples.size() - count) / 2;
    std::vector<std::complex<double>> bins(count);
    for (std::size_t i = 0; i < count; ++i)
        bins[i] = hann(i, count) * pcm.samples[start + i];
    transform(bins);
    const auto stronger = [](const auto &a, const auto &b) { return std::norm(a) < std::norm(b); };
    const auto peak = std::max_element(bins.begin() + 1, bins.begin() + std::ptrdiff_t(count / 2) - 1, stronger);
    // The window's main lobe is close to a parabola in dB: its vertex lies between the bins.
    const double before = std::log(std::norm(*(peak - 1)) + 1e-9);
    const double at = std::log(std::norm(*peak) + 1e-9);
    const double after = std::log(std::norm(*(peak + 1)) + 1e-9);
    const double curvature = before - 2.0 * at + after;
    const double offset = curvature < 0.0 ? 0.5 * (before - after) / curvature : 0.0;
    return (double(peak - bins.begin()) + offset) * pcm.rateHz / double(count);
}

double toneLevelDbfs(const Pcm &pcm, double hz) {
    return toDbfs(std::norm(amplitudeAt(pcm, hz)));
}

double toneShare(const Pcm &pcm, double hz) {
    // Least squares over sine and cosine; over many periods the two are as good as orthogonal.
    const Signal signal = toSignal(pcm.samples);
    std::complex<double> sum = 0.0;
    for (std::size_t i = 0; i < signal.size(); ++i)
        sum += std::polar(signal[i], -2.0 * std::numbers::pi * hz * double(i) / pcm.rateHz);
    const double energy = energyOf(signal);
    return energy > 0.0 ? std::min(1.0, 2.0 * std::norm(sum) / (energy * double(signal.size()))) : 0.0;
}

double longestGapMs(const Pcm &pcm, double belowDbfs) {
    const double peak = fullScale * std::sqrt(powerOf(belowDbfs));
    std::size_t longest = 0;
    std::size_t run = 0;
    for (const std::int16_t sample : pcm.samples) {
        run = std::abs(double(sample)) < peak ? run + 1 : 0;
        longest = std::max(longest, run);
    }
    return 1000.0 * double(longest) / pcm.rateHz;
}

Comparison compare(const Pcm &said, const Pcm &heard, double maxDelayMs) {
    const Signal saidSignal = toSignal(said.samples);
    const Signal heardSignal = toSignal(heard.samples);
    const std::ptrdiff_t delay = bestShift(saidSignal, heardSignal, std::ptrdiff_t(maxDelayMs * said.rateHz / 1000.0));
    Signal saidPowers = framePowers(saidSignal, said.rateHz);
    Signal heardPowers = framePowers(section(heardSignal, delay, saidSignal.size()), said.rateHz);
    keepSpoken(saidPowers, heardPowers);
    return {1000.0 * double(delay) / said.rateHz, similarityOf(saidSignal, heardSignal, delay, said.rateHz),
            lossPercent(saidPowers, heardPowers), toDbfs(mean(saidPowers)), toDbfs(mean(heardPowers))};
}

} // namespace sim
