// The resampler against its own formula and against a resampler of comparable quality.

#include "Figures.h"
#include "Voice.h"
#include "audio/Resampler.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cmath>
#include <numbers>
#include <speex/speex_resampler.h>

namespace {

constexpr int toRateHz = 44100;
constexpr int toSamples = 882;

double sinc(double x) {
    return std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
}

double weightAt(double d) {
    if (d == 0.0)
        return 1.0;
    return std::abs(d) >= 4.0 ? 0.0 : sinc(d) * sinc(d / 4.0);
}

void resampleDirectly(const Frame &in, Frame &out) {
    const double ratio = static_cast<double>(toRateHz) / rateHz;
    out.resize(std::lround(static_cast<double>(in.size()) * ratio));
    for (std::size_t n = 0; n < out.size(); ++n) {
        const double position = static_cast<double>(n) / ratio;
        const double base = std::floor(position);
        double sum = 0.0;
        double weights = 0.0;
        for (int k = -3; k <= 4; ++k) {
            const auto index = static_cast<std::ptrdiff_t>(base) + k;
            if (index < 0 || index >= static_cast<std::ptrdiff_t>(in.size()))
                continue;
            const double weight = weightAt(position - base - k);
            sum += weight * in[index];
            weights += weight;
        }
        out[n] = static_cast<std::int16_t>(std::clamp(weights > 1e-10 ? sum / weights : 0.0, -32768.0, 32767.0));
    }
}

const std::vector<Frame> &frames() {
    static const std::vector<Frame> all = voice();
    return all;
}

const Frame &next(std::size_t &turn) {
    return frames()[turn++ % frames().size()];
}

void direct(benchmark::State &state) {
    Frame out;
    std::size_t turn = 0;
    while (state.KeepRunning()) {
        resampleDirectly(next(turn), out);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(direct);

void resampler(benchmark::State &state) {
    Resampler ours;
    Frame out;
    Frame expected;
    for (const Frame &frame : frames()) {
        ours.convert(frame, rateHz, toRateHz, out);
        resampleDirectly(frame, expected);
        if (out != expected)
            state.SkipWithError("the samples differ from the formula's");
    }
    std::size_t turn = 0;
    while (state.KeepRunning()) {
        ours.convert(next(turn), rateHz, toRateHz, out);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(resampler);

void speexQuality4(benchmark::State &state) {
    int error = RESAMPLER_ERR_SUCCESS;
    SpeexResamplerState *speex = speex_resampler_init(1, rateHz, toRateHz, 4, &error);
    if (!speex) {
        state.SkipWithError("no speex resampler");
        return;
    }
    std::array<std::int16_t, toSamples + 8> out{};
    std::size_t turn = 0;
    while (state.KeepRunning()) {
        spx_uint32_t inputSamples = frameSamples;
        spx_uint32_t outputSamples = out.size();
        if (speex_resampler_process_int(speex, 0, next(turn).data(), &inputSamples, out.data(), &outputSamples) != 0)
            state.SkipWithError("speex failed");
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    speex_resampler_destroy(speex);
}
BENCHMARK(speexQuality4);

constexpr std::array figures{
    Figure{"resample 48000 to 44100, 20 ms; the direct formula", "resampler", "direct", 1.0 / 15.0},
    Figure{"resample 48000 to 44100, 20 ms; speexdsp quality 4", "resampler", "speexQuality4", 1.0},
};

} // namespace

int main(int argc, char **argv) {
    return runFigures(argc, argv, figures);
}
