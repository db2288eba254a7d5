#include "wave/sr/ConverterStyle.h"

#include "wave/sr/FIRConverter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace sr {

namespace {

// The pass-band ripples of interpolator and decimator add up: the window is shaped for twice the
// ripple the attenuation alone would allow.
constexpr double kRoundTripMarginDb = 6.0;
// The design must beat its targets by this much, so that measurements never sit on the edge.
constexpr double kTargetMarginDb = 0.5;
constexpr double kMinimumWidth = 0.09;
constexpr int32_t kLengthSteps = 32;
constexpr int32_t kGridPoints = 512;

} // namespace

ConverterStyle::ConverterStyle(wave::Environment& environment, double attenuationDb, double passBandEdge,
                               int32_t requestedFactor)
    : ConverterStyleBase(environment, std::clamp(requestedFactor, 1, kMaximumFactor)),
      attenuation(std::clamp(attenuationDb, 20.0, 150.0)), passEdge(std::max(passBandEdge, 0.0)),
      factor(std::clamp(requestedFactor, 1, kMaximumFactor)) {
    // Every phase of the longest design fits: the Kaiser estimate at the narrowest transition plus
    // every lengthening step.
    phaseCapacity = kaiserOrder(kMinimumWidth) / factor + 2 * kLengthSteps + 2;
    firsts.resize(static_cast<size_t>(factor));
    lengths.resize(static_cast<size_t>(factor));
    table.resize(static_cast<size_t>(factor) * static_cast<size_t>(phaseCapacity));
    prototype.reserve(table.size() + 1);
    refresh();
}

int32_t ConverterStyle::getLatency() const {
    // Each of the two filters delays by half its order at the high rate.
    return (taps - 1) / factor;
}

std::unique_ptr<ConverterBase> ConverterStyle::createInterpolator() {
    return std::make_unique<Interpolator>(*this);
}

std::unique_ptr<ConverterBase> ConverterStyle::createDecimator() {
    return std::make_unique<Decimator>(*this);
}

void ConverterStyle::refresh() {
    if (rateChanged())
        design();
}

ConverterStyle::Phase ConverterStyle::getPhase(int32_t index) const {
    const auto i = static_cast<size_t>(index);
    return {firsts[i], lengths[i], table.data() + i * static_cast<size_t>(phaseCapacity)};
}

double ConverterStyle::transitionWidth() const {
    const double rate = getEnvironment().getSampleRate();
    const double relative = rate > 0.0 ? (rate - 2.0 * passEdge) / rate : 0.0;
    return std::clamp(relative, kMinimumWidth, 1.0);
}

double ConverterStyle::getPassBandEdge() const {
    return 0.5 * getDesignRate() * (1.0 - width);
}

double ConverterStyle::getStopBandEdge() const {
    return 0.5 * getDesignRate() * (1.0 + width);
}

int32_t ConverterStyle::kaiserOrder(double transition) const {
    const double designDb = attenuation + kRoundTripMarginDb;
    int32_t order = static_cast<int32_t>((designDb - 7.95) / 14.36 * factor / transition) + factor;
    return order - order % (2 * factor);
}

void ConverterStyle::design() {
    width = transitionWidth();
    if (factor == 1) {
        buildTable(0, 0.0);
    } else {
        const double beta = 0.1102 * (attenuation + kRoundTripMarginDb - 8.7);
        int32_t order = kaiserOrder(width);
        for (int32_t step = 0;; ++step) {
            buildTable(order, beta);
            if (step == kLengthSteps || meetsTargets())
                break;
            order += 2 * factor;
        }
    }
    designed();
}

void ConverterStyle::buildTable(int32_t order, double beta) {
    taps = order + 1;
    const int32_t half = order / 2;
    const double windowScale = 1.0 / std::cyl_bessel_i(0.0, beta);
    prototype.assign(static_cast<size_t>(taps), 0.0);
    for (int32_t n = 0; n < taps; ++n) {
        const int32_t d = n - half;
        // The sinc's zeros fall exactly on the taps at multiples of the factor from the centre.
        if (d != 0 && d % factor == 0)
            continue;
        const double window =
            half > 0
                ? std::cyl_bessel_i(0.0, beta * std::sqrt(static_cast<double>((2 * half - n) * n)) / half) *
                      windowScale
                : 1.0;
        const double x = std::numbers::pi * d;
        prototype[static_cast<size_t>(n)] = d == 0 ? window / factor : window * std::sin(x / factor) / x;
    }

    // Phase p holds taps p, p + factor, ...; each phase sums to one, so the interpolator passes DC
    // exactly on every output phase and the decimator (scaled by 1 / factor) does too.
    historyLength = 1;
    for (int32_t p = 0; p < factor; ++p) {
        double sum = 0.0;
        int32_t first = -1;
        int32_t last = -1;
        for (int32_t j = 0; j * factor + p < taps; ++j) {
            const double g = prototype[static_cast<size_t>(j * factor + p)];
            sum += g;
            if (g != 0.0) {
                first = first < 0 ? j : first;
                last = j;
            }
        }
        const auto row = static_cast<size_t>(p) * static_cast<size_t>(phaseCapacity);
        const double scale = sum != 0.0 ? 1.0 / sum : 0.0;
        first = std::max(first, 0);
        const int32_t length = std::max(last - first + 1, 1);
        for (int32_t k = 0; k < length; ++k) {
            const auto n = static_cast<size_t>((first + length - 1 - k) * factor + p);
            table[row + static_cast<size_t>(k)] = static_cast<float>(prototype[n] * scale);
        }
        firsts[static_cast<size_t>(p)] = first;
        lengths[static_cast<size_t>(p)] = length;
        historyLength = std::max(historyLength, first + length);
        // The prototype as it runs, for the measurements of meetsTargets.
        for (int32_t j = 0; j * factor + p < taps; ++j)
            prototype[static_cast<size_t>(j * factor + p)] *= scale / factor;
    }
}

bool ConverterStyle::meetsTargets() const {
    const double limit = std::pow(10.0, -(attenuation + kTargetMarginDb) / 20.0);
    const double passEnd = std::numbers::pi * (1.0 - width) / factor;
    const double stopStart = std::numbers::pi * (1.0 + width) / factor;
    const int32_t half = (taps - 1) / 2;
    // The zero-phase amplitude of the symmetric prototype.
    const auto amplitude = [&](double omega) {
        double sum = prototype[static_cast<size_t>(half)];
        for (int32_t k = 1; k <= half; ++k)
            sum += 2.0 * prototype[static_cast<size_t>(half + k)] * std::cos(omega * k);
        return sum;
    };
    for (int32_t i = 0; i <= kGridPoints; ++i) {
        const double t = static_cast<double>(i) / kGridPoints;
        const double pass = amplitude(passEnd * t);
        if (std::fabs(pass * pass - 1.0) > limit)
            return false;
        if (std::fabs(amplitude(stopStart + (std::numbers::pi - stopStart) * t)) > limit)
            return false;
    }
    return true;
}

} // namespace sr
