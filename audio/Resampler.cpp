#include "audio/Resampler.h"

#include "audio/Sample.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

namespace {

constexpr int lobes = 4;
constexpr int taps = 2 * lobes;
constexpr int firstTap = 1 - lobes;

/// Two neighbouring outputs, computed side by side in one vector register.
using Pair [[gnu::vector_size(2 * sizeof(double))]] = double;

// The fraction cut off in the end makes the last bit of a weight count: a steady level comes out as itself or one less.
// The sine is the C library's; glibc's gives the same on 64-bit Arm as on x86-64 with FMA, not on older x86-64.
double sinc(double x) {
    const double angle = std::numbers::pi * x;
    return std::sin(angle) / angle;
}

double lanczos(double distance) {
    if (distance == 0.0)
        return 1.0;
    if (std::abs(distance) >= lobes)
        return 0.0;
    return sinc(distance) * sinc(distance / lobes);
}

double ratioOf(int fromRate, int toRate) {
    return static_cast<double>(toRate) / fromRate;
}

// Never shorter than the kernel, so that every output can read all its taps.
void toSource(std::span<const qint16> in, std::vector<double> &source) {
    source.assign(in.begin(), in.end());
    source.resize(std::max<std::size_t>(in.size(), taps), 0.0);
}

void store(Pair values, std::span<qint16> out) {
    constexpr double lowest = -32768.0;
    out[0] = toSample(values[0], lowest);
    if (out.size() > 1)
        out[1] = toSample(values[1], lowest);
}

} // namespace

/// What two neighbouring outputs are made of. Every output reads as many inputs as the kernel has taps, all inside the
/// input; a tap that lies outside has been shifted out and a weight of 0 in, which leaves the sum as it is.
struct Resampler::OutputPair {
    std::array<Pair, taps> weights{};
    Pair weightSum{};
    std::array<int, 2> start{}; ///< input index of the first weight

    Pair valueOf(const double *source) const {
        const double *first = source + start[0];
        const double *second = source + start[1];
        Pair sum{};
        for (int k = 0; k < taps; ++k)
            sum += weights[k] * Pair{first[k], second[k]};
        return sum / weightSum;
    }
};

/// Computes the weights of one conversion.
class Resampler::Kernel {
public:
    explicit Kernel(const Conversion &conversion)
        : m_inputSamples(conversion.inputSamples),
          m_ratio(ratioOf(conversion.fromRate, conversion.toRate)) {}

    OutputPair pairAt(qint64 output) const {
        OutputPair pair;
        weigh(pair, 0, output);
        weigh(pair, 1, output + 1);
        return pair;
    }

private:
    void weigh(OutputPair &pair, int lane, qint64 output) const {
        const double position = static_cast<double>(output) / m_ratio;
        const double base = std::floor(position);
        const qint64 firstInput = static_cast<qint64>(base) + firstTap;
        const qint64 start = std::clamp<qint64>(firstInput, 0, std::max<qint64>(m_inputSamples - taps, 0));
        double sum = 0.0;
        for (int k = 0; k < taps; ++k) {
            const qint64 input = firstInput + k;
            if (input < 0 || input >= m_inputSamples)
                continue;
            const double weight = lanczos(position - base - (firstTap + k));
            pair.weights[input - start][lane] = weight;
            sum += weight;
        }
        pair.start[lane] = static_cast<int>(start);
        pair.weightSum[lane] = sum;
        if (!(sum > 1e-10))
            silence(pair, lane);
    }

    // Too few taps to go by: the output is 0.
    static void silence(OutputPair &pair, int lane) {
        for (Pair &weight : pair.weights)
            weight[lane] = 0.0;
        pair.weightSum[lane] = 1.0;
    }

    qint64 m_inputSamples;
    double m_ratio;
};

Resampler::Resampler() = default;
Resampler::~Resampler() = default;

qint64 Resampler::outputSamples(qint64 inputSamples, int fromRate, int toRate) {
    if (fromRate < 1 || toRate < 1)
        return inputSamples;
    return std::llround(static_cast<double>(inputSamples) * ratioOf(fromRate, toRate));
}

std::optional<Resampler::Conversion> Resampler::conversionOf(qint64 inputSamples, int fromRate, int toRate) {
    if (fromRate < 1 || toRate < 1 || fromRate == toRate || inputSamples < 2)
        return std::nullopt;
    const qint64 outputs = outputSamples(inputSamples, fromRate, toRate);
    if (outputs < 1 || outputs > maxOutputSamples)
        return std::nullopt;
    return Conversion{inputSamples, outputs, fromRate, toRate};
}

void Resampler::convert(std::span<const qint16> in, int fromRate, int toRate, std::vector<qint16> &out) {
    const auto conversion = conversionOf(static_cast<qint64>(in.size()), fromRate, toRate);
    if (!conversion) {
        out.assign(in.begin(), in.end());
        return;
    }
    run(*conversion, in, out);
}

QByteArray Resampler::convert(const QByteArray &samples, int fromRate, int toRate) {
    const auto conversion = conversionOf(samples.size() / qint64{sizeof(qint16)}, fromRate, toRate);
    if (!conversion)
        return samples;
    std::vector<qint16> in(conversion->inputSamples);
    std::memcpy(in.data(), samples.constData(), in.size() * sizeof(qint16));
    std::vector<qint16> out;
    run(*conversion, in, out);
    return {reinterpret_cast<const char *>(out.data()), static_cast<int>(out.size() * sizeof(qint16))};
}

void Resampler::run(const Conversion &conversion, std::span<const qint16> in, std::vector<qint16> &out) {
    // The longest codec frame, 120 ms, at the highest rate a sound card has. What is longer is no stream.
    constexpr qint64 longestFrame = 120LL * 192;
    out.resize(conversion.outputSamples);
    if (std::max(conversion.inputSamples, conversion.outputSamples) <= longestFrame) {
        runFrame(conversion, in, out);
        return;
    }
    std::vector<double> source;
    toSource(in, source);
    const Kernel kernel(conversion);
    for (qint64 output = 0; output < conversion.outputSamples; output += 2)
        store(kernel.pairAt(output).valueOf(source.data()), std::span(out).subspan(output));
}

void Resampler::runFrame(const Conversion &conversion, std::span<const qint16> in, std::span<qint16> out) {
    if (conversion != m_tableFor) {
        const Kernel kernel(conversion);
        m_table.clear();
        for (qint64 output = 0; output < conversion.outputSamples; output += 2)
            m_table.push_back(kernel.pairAt(output));
        m_tableFor = conversion;
    }
    toSource(in, m_source);
    for (std::size_t pair = 0; pair < m_table.size(); ++pair)
        store(m_table[pair].valueOf(m_source.data()), out.subspan(2 * pair));
}
