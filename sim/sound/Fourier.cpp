#include "sim/sound/Fourier.h"

#include <bit>
#include <cmath>
#include <numbers>
#include <utility>

namespace sim {
namespace {

using Complex = std::complex<double>;

void sortByReversedBits(std::vector<Complex> &values) {
    const std::size_t count = values.size();
    for (std::size_t i = 1, reversed = 0; i < count; ++i) {
        std::size_t bit = count >> 1;
        for (; (reversed & bit) != 0; bit >>= 1)
            reversed ^= bit;
        reversed |= bit;
        if (i < reversed)
            std::swap(values[i], values[reversed]);
    }
}

std::vector<Complex> unitRoots(std::size_t count) {
    std::vector<Complex> roots(count / 2);
    for (std::size_t i = 0; i < roots.size(); ++i)
        roots[i] = std::polar(1.0, -2.0 * std::numbers::pi * double(i) / double(count));
    return roots;
}

std::vector<Complex> spectrum(std::span<const double> signal, std::size_t count) {
    std::vector<Complex> values(count);
    for (std::size_t i = 0; i < signal.size(); ++i)
        values[i] = signal[i];
    transform(values);
    return values;
}

} // namespace

void transform(std::vector<Complex> &values) {
    const std::size_t count = values.size();
    const std::vector<Complex> roots = unitRoots(count);
    sortByReversedBits(values);
    for (std::size_t half = 1; half < count; half *= 2) {
        const std::size_t rootStep = count / (2 * half);
        for (std::size_t start = 0; start < count; start += 2 * half) {
            for (std::size_t i = start; i < start + half; ++i) {
                const Complex turned = values[i + half] * roots[(i - start) * rootStep];
                values[i + half] = values[i] - turned;
                values[i] += turned;
            }
        }
    }
}

std::vector<double> crossCorrelation(std::span<const double> a, std::span<const double> b, std::ptrdiff_t maxShift) {
    // Long enough that no shift asked for wraps round onto another.
    const std::size_t count = std::bit_ceil(a.size() + b.size() + 2 * std::size_t(maxShift));
    std::vector<Complex> product = spectrum(a, count);
    const std::vector<Complex> other = spectrum(b, count);
    for (std::size_t i = 0; i < count; ++i) {
        // Conjugated, so that a second forward transform does the work of the backward one.
        product[i] *= std::conj(other[i]);
    }
    transform(product);
    std::vector<double> correlation;
    correlation.reserve(2 * std::size_t(maxShift) + 1);
    for (std::ptrdiff_t shift = -maxShift; shift <= maxShift; ++shift) {
        const auto index = std::size_t(shift < 0 ? shift + std::ptrdiff_t(count) : shift);
        correlation.push_back(product[index].real() / double(count));
    }
    return correlation;
}

} // namespace sim
