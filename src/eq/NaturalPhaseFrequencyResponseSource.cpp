#include "eq/NaturalPhaseFrequencyResponseSource.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

// Below this squared magnitude the denominator is treated as a zero of the biquad response.
constexpr double kNearZeroPower = 0.0001;
constexpr double kNegligiblePower = 1e-6;
constexpr double kMaximumPower = 10000.0;
constexpr double kPhaseTolerance = 0.1;

// |arg a - arg b| wrapped into [0, pi].
double phaseDistance(std::complex<double> a, std::complex<double> b) {
    const double difference = std::fmod(std::fabs(std::arg(a) - std::arg(b)), 2.0 * std::numbers::pi);
    return difference > std::numbers::pi ? 2.0 * std::numbers::pi - difference : difference;
}

std::complex<double> fadedPhase(std::complex<double> value, int32_t index) {
    using Source = NaturalPhaseFrequencyResponseSource;
    if (index <= Source::kPhaseFadeStart)
        return value;
    const double magnitude = std::abs(value);
    if (!std::isfinite(magnitude))
        return value;
    const double a =
        std::min(static_cast<double>(index - Source::kPhaseFadeStart) / Source::kPhaseFadeLength, 1.0);
    const double phase = std::arg(value);
    return std::polar(magnitude, phase - a * a * phase);
}

} // namespace

bool NaturalPhaseFrequencyResponseSource::SourceList::add(DiscreteFrequencyResponseSource& source) {
    if (count >= kMaximumSources)
        return false;
    items[static_cast<size_t>(count++)] = &source;
    return true;
}

std::complex<double> NaturalPhaseFrequencyResponseSource::SourceList::product(int32_t index) const {
    std::complex<double> result{1.0, 0.0};
    for (int32_t i = 0; i < count; ++i) {
        const std::complex<float> value = items[static_cast<size_t>(i)]->responseAt(index);
        result *= std::complex<double>(value.real(), value.imag());
    }
    return result;
}

bool NaturalPhaseFrequencyResponseSource::addNumeratorSource(DiscreteFrequencyResponseSource& source) {
    return numerators.add(source);
}

bool NaturalPhaseFrequencyResponseSource::addDenominatorSource(DiscreteFrequencyResponseSource& source) {
    return denominators.add(source);
}

void NaturalPhaseFrequencyResponseSource::clearSources() {
    numerators.count = 0;
    denominators.count = 0;
}

std::complex<float> NaturalPhaseFrequencyResponseSource::responseAt(int32_t index) {
    std::complex<float> value;
    responses(index, 1, &value);
    return value;
}

NaturalPhaseFrequencyResponseSource::Quotient
NaturalPhaseFrequencyResponseSource::quotientAt(int32_t index) const {
    const std::complex<double> denominator = denominators.product(index);
    const double power = std::norm(denominator);
    const std::complex<double> numerator = numerators.product(index);
    return {power > 0.0 ? numerator / denominator : numerator, power};
}

bool NaturalPhaseFrequencyResponseSource::rejectedNearZero(const Quotient& current, int32_t index) const {
    const double power = std::norm(current.value);
    if (power > kMaximumPower)
        return true;
    if (current.denominatorPower <= kNegligiblePower || power <= kNegligiblePower) {
        const double lastPower = std::norm(lastAccepted);
        return power < std::min(0.001 * lastPower, 0.001) ||
               power > std::min(std::max(10.0, 10.0 * lastPower), 100.0);
    }
    // A phase step is believed only when the next point continues it.
    const double step = phaseDistance(current.value, lastAccepted);
    return step > kPhaseTolerance && phaseDistance(quotientAt(index + 1).value, lastAccepted) < 0.5 * step;
}

void NaturalPhaseFrequencyResponseSource::responses(int32_t first, int32_t count, std::complex<float>* out) {
    for (int32_t i = 0; i < count; ++i) {
        const int32_t index = first + i;
        const Quotient current = quotientAt(index);
        std::complex<double> result = current.value;
        if (current.denominatorPower < kNearZeroPower) {
            if (i == 0)
                result = std::fabs(std::arg(result)) <= kPhaseTolerance ? std::abs(result) : 1.0;
            else if (rejectedNearZero(current, index))
                result = lastAccepted;
        }
        lastAccepted = result;
        const std::complex<double> faded = fadedPhase(result, index);
        out[i] = {static_cast<float>(faded.real()), static_cast<float>(faded.imag())};
    }
}
