#pragma once

#include "eq/FrequencyResponseSource.h"

#include <array>
#include <complex>
#include <cstdint>

// The correction that turns a cascade of biquads into the analog response, phase included: the
// product of the numerator sources over the product of the denominator sources (typically analog
// band responses over the biquad responses of the same bands). Near zeros of the denominator the
// quotient is unreliable, so it is kept continuous there; the phase fades out over the last eight
// points below index 256 so the correction kernel has no phase swing at the top of its grid.
class NaturalPhaseFrequencyResponseSource : public DiscreteFrequencyResponseSource {
public:
    static constexpr int32_t kMaximumSources = 24;
    static constexpr int32_t kPhaseFadeStart = 248;
    static constexpr int32_t kPhaseFadeLength = 8;

    using DiscreteFrequencyResponseSource::DiscreteFrequencyResponseSource;

    // Return false when the list is full. Sources are not owned.
    bool addNumeratorSource(DiscreteFrequencyResponseSource& source);
    bool addDenominatorSource(DiscreteFrequencyResponseSource& source);
    void clearSources();

    // A single index is a run of one: it starts afresh.
    std::complex<float> responseAt(int32_t index) override;
    void responses(int32_t first, int32_t count, std::complex<float>* out) override;

private:
    struct SourceList {
        std::array<DiscreteFrequencyResponseSource*, kMaximumSources> items{};
        int32_t count = 0;

        bool add(DiscreteFrequencyResponseSource& source);
        std::complex<double> product(int32_t index) const;
    };

    // The quotient at one index with the squared magnitude of its denominator.
    struct Quotient {
        std::complex<double> value;
        double denominatorPower = 1.0;
    };

    Quotient quotientAt(int32_t index) const;
    bool rejectedNearZero(const Quotient& current, int32_t index) const;

    SourceList numerators;
    SourceList denominators;
    std::complex<double> lastAccepted{1.0, 0.0};
};
