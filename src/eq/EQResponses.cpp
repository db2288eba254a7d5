#include "eq/EQResponses.h"

EQMagnitudeResponse::EQMagnitudeResponse(const AnalogFilterPrototype& prototype, Mapping& mapping)
    : CachedDiscreteMagnitudeResponseSource(mapping), prototype(prototype) {}

float EQMagnitudeResponse::computeSquaredMagnitude(int32_t index) {
    return static_cast<float>(prototype.squaredMagnitude(getMapping().frequencyAt(index)));
}

void EQMagnitudeResponse::computeSquaredMagnitudes(int32_t first, int32_t count, float* out) {
    prototype.squaredMagnitudes(getMapping().frequenciesFor(first, count, scratch), out, count);
}

EQAnalogResponse::EQAnalogResponse(const AnalogFilterPrototype& prototype, Mapping& mapping)
    : CachedDiscreteFrequencyResponseSource(mapping), prototype(prototype) {}

std::complex<float> EQAnalogResponse::computeResponse(int32_t index) {
    const std::complex<double> value = prototype.response(getMapping().frequencyAt(index));
    return {static_cast<float>(value.real()), static_cast<float>(value.imag())};
}
