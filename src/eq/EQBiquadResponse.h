#pragma once

#include "eq/AnalogFilterPrototype.h"
#include "eq/FrequencyResponseSource.h"

#include <array>

// The response of a band's Zero Latency biquads as they actually run. The prototype is designed at
// its angular frequency in radians per sample (as the filters are); grid frequencies in Hz are
// converted with the sample rate. Keeps its own copy of the digital coefficients, redesigned on
// every invalidate.
class EQBiquadResponse : public CachedDiscreteFrequencyResponseSource {
public:
    EQBiquadResponse(const AnalogFilterPrototype& prototype, Mapping& mapping, double sampleRate);

    void invalidate() override;
    void setSampleRate(double newSampleRate);

    int32_t getNumSections() const { return numSections; }
    const DigitalSectionCoefficients& getSection(int32_t index) const {
        return sections[static_cast<size_t>(index)];
    }

protected:
    std::complex<float> computeResponse(int32_t index) override;

private:
    void designSections();

    const AnalogFilterPrototype& prototype;
    double sampleRate;
    std::array<DigitalSectionCoefficients, AnalogFilterPrototype::kMaximumSections> sections{};
    int32_t numSections = 0;
};
