#include "eq/FFTWindow.h"

#include <cmath>
#include <numbers>

namespace {

double raisedCosine(double constant, double* values, int32_t count, int32_t length, int32_t offset) {
    const double cosineWeight = 1.0 - constant;
    const double intervals = length > 1 ? static_cast<double>(length - 1) : 1.0;
    for (int32_t i = 0; i < count; ++i)
        values[i] = constant - cosineWeight * std::cos(2.0 * std::numbers::pi * (offset + i) / intervals);
    return (length - 1) * constant + (2.0 * constant - 1.0);
}

double kaiser(double attenuationDb, double* values, int32_t count, int32_t length, int32_t offset) {
    const double beta = FFTWindow::kaiserBeta(attenuationDb);
    const double norm = 1.0 / FFTWindow::besselI0(beta);
    const double halfSpan = length > 1 ? (length - 1) * 0.5 : 1.0;
    double sum = 0.0;
    for (int32_t i = 0; i < count; ++i) {
        const double j = offset + i;
        const double radicand = std::fmax(0.0, (length - 1 - j) * j);
        values[i] = FFTWindow::besselI0(beta * std::sqrt(radicand) / halfSpan) * norm;
        sum += values[i];
    }
    return sum;
}

} // namespace

double FFTWindow::fill(int32_t type, double parameter, double* values, int32_t count, int32_t length,
                       int32_t offset) {
    switch (type) {
    case kHann:
        return raisedCosine(0.5, values, count, length, offset);
    case kHamming:
        // 2 * 0.54 - 1 = 0.08: the closed form (L - 1) * 0.54 + 0.08.
        return raisedCosine(0.54, values, count, length, offset);
    case kKaiser:
        return kaiser(parameter, values, count, length, offset);
    default:
        for (int32_t i = 0; i < count; ++i)
            values[i] = 1.0;
        return length;
    }
}

double FFTWindow::kaiserBeta(double attenuationDb) {
    if (attenuationDb >= 60.0)
        return 0.12438 * (attenuationDb + 6.3);
    if (attenuationDb >= 13.26) {
        const double excess = attenuationDb - 13.26;
        return 0.76609 * std::pow(excess, 0.4) + 0.09834 * excess;
    }
    return 0.0;
}

double FFTWindow::besselI0(double x) {
    // sum over k of ((x/2)^k / k!)^2; the terms fall quickly once k exceeds x/2.
    const double halfSquare = 0.25 * x * x;
    double term = 1.0;
    double sum = 1.0;
    for (int k = 1; k < 500 && term > sum * 1e-17; ++k) {
        term *= halfSquare / (static_cast<double>(k) * k);
        sum += term;
    }
    return sum;
}
