#pragma once

#include <complex>
#include <cstddef>
#include <span>
#include <vector>

namespace sim {

/// Discrete Fourier transform in place, not scaled. @param values  a power of two of them
void transform(std::vector<std::complex<double>> &values);

/// Correlation of two signals at every shift: element maxShift + k is the sum of a[i] * b[i + k] over all i that both
/// have, for k from -maxShift to +maxShift.
std::vector<double> crossCorrelation(std::span<const double> a, std::span<const double> b, std::ptrdiff_t maxShift);

} // namespace sim
