#include "sim/sound/Pcm.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

namespace sim {

namespace {

constexpr double pi = std::numbers::pi;
constexpr int zeroCrossings = 32; ///< on each side of the kernel
constexpr double passBand = 0.95; ///< share of the lower half rate

std::int16_t toSample(double value) {
    return std::int16_t(std::lround(std::clamp(value, -32768.0, 32767.0)));
}

double sinc(double x) {
    return x == 0.0 ? 1.0 : std::sin(pi * x) / (pi * x);
}

/// Blackman's window over -1..1.
double window(double x) {
    return std::abs(x) >= 1.0 ? 0.0 : 0.42 + 0.5 * std::cos(pi * x) + 0.08 * std::cos(2.0 * pi * x);
}

/// Windowed-sinc interpolation between two rates. Positions of the output in the input repeat after rateOut / gcd
/// samples; the weights of each are made when they are first needed.
class Interpolation {
public:
    Interpolation(int rateIn, int rateOut)
        : m_step(rateIn / std::gcd(rateIn, rateOut)),
          m_phases(rateOut / std::gcd(rateIn, rateOut)),
          m_cutoff(passBand * std::min(1.0, double(rateOut) / rateIn)),
          m_reach(std::int64_t(std::ceil(zeroCrossings / m_cutoff))),
          m_weights(std::size_t(m_phases)) {}

    double at(const std::vector<std::int16_t> &samples, std::int64_t index) {
        const std::int64_t position = index * m_step;
        const std::vector<double> &weights = weightsOf(int(position % m_phases));
        const std::int64_t first = position / m_phases - m_reach + 1;
        const std::int64_t begin = std::max<std::int64_t>(0, first);
        const std::int64_t end = std::min<std::int64_t>(std::int64_t(samples.size()), first + 2 * m_reach);
        double sum = 0.0;
        for (std::int64_t i = begin; i < end; ++i)
            sum += samples[std::size_t(i)] * weights[std::size_t(i - first)];
        return sum;
    }

private:
    const std::vector<double> &weightsOf(int phase) {
        std::vector<double> &weights = m_weights[std::size_t(phase)];
        if (weights.empty())
            weights = makeWeights(double(phase) / m_phases);
        return weights;
    }

    /// They add up to 1, so that a constant stays what it is.
    std::vector<double> makeWeights(double fraction) const {
        std::vector<double> weights;
        for (std::int64_t tap = 0; tap < 2 * m_reach; ++tap) {
            const double distance = double(tap - m_reach + 1) - fraction;
            weights.push_back(sinc(m_cutoff * distance) * window(distance / double(m_reach)));
        }
        const double sum = std::accumulate(weights.begin(), weights.end(), 0.0);
        for (double &weight : weights)
            weight /= sum;
        return weights;
    }

    std::int64_t m_step;
    int m_phases;
    double m_cutoff;      ///< in half rates of the input
    std::int64_t m_reach; ///< input samples on each side
    std::vector<std::vector<double>> m_weights;
};

} // namespace

Pcm atRate(const Pcm &pcm, int rateHz) {
    if (pcm.rateHz == rateHz || pcm.rateHz <= 0 || rateHz <= 0)
        return pcm;
    Interpolation interpolation(pcm.rateHz, rateHz);
    Pcm out{rateHz, std::vector<std::int16_t>(pcm.samples.size() * std::size_t(rateHz) / std::size_t(pcm.rateHz))};
    for (std::size_t i = 0; i < out.samples.size(); ++i)
        out.samples[i] = toSample(interpolation.at(pcm.samples, std::int64_t(i)));
    return out;
}

Pcm tone(double hz, double dbfs, double seconds, int rateHz) {
    const double peak = 32767.0 * std::pow(10.0, dbfs / 20.0);
    Pcm out{rateHz, std::vector<std::int16_t>(std::size_t(std::lround(seconds * rateHz)))};
    for (std::size_t i = 0; i < out.samples.size(); ++i)
        out.samples[i] = toSample(peak * std::sin(2.0 * pi * hz * double(i) / rateHz));
    return out;
}

} // namespace sim
