#pragma once

#include "eq/AnalogFilterPrototype.h"
#include "eq/FrequencyResponseSource.h"

// A band's analog design sampled on a grid. The prototype's frequency is in Hz, like the grid's;
// the prototype is not owned, and its owner calls invalidate after changing it.

// Squared magnitudes only (zero phase): display curves and matching.
class EQMagnitudeResponse : public CachedDiscreteMagnitudeResponseSource {
public:
    EQMagnitudeResponse(const AnalogFilterPrototype& prototype, Mapping& mapping);

protected:
    float computeSquaredMagnitude(int32_t index) override;
    void computeSquaredMagnitudes(int32_t first, int32_t count, float* out) override;

private:
    const AnalogFilterPrototype& prototype;
    std::vector<float> scratch;
};

// The complex analog response.
class EQAnalogResponse : public CachedDiscreteFrequencyResponseSource {
public:
    EQAnalogResponse(const AnalogFilterPrototype& prototype, Mapping& mapping);

protected:
    std::complex<float> computeResponse(int32_t index) override;

private:
    const AnalogFilterPrototype& prototype;
};
