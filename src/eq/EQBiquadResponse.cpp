#include "eq/EQBiquadResponse.h"

#include "eq/MatchedSectionDesign.h"

#include <numbers>

EQBiquadResponse::EQBiquadResponse(const AnalogFilterPrototype& prototype, Mapping& mapping,
                                   double sampleRate)
    : CachedDiscreteFrequencyResponseSource(mapping), prototype(prototype), sampleRate(sampleRate) {
    designSections();
}

void EQBiquadResponse::invalidate() {
    designSections();
    CachedDiscreteFrequencyResponseSource::invalidate();
}

void EQBiquadResponse::setSampleRate(double newSampleRate) {
    sampleRate = newSampleRate;
    invalidate();
}

void EQBiquadResponse::designSections() {
    numSections = designDigitalSections(prototype, prototype.getReferenceFrequency(),
                                        CoefficientCalculation::MatchedMagnitude, DigitalForm::DirectForm,
                                        kStaticGainTolerance, sections.data());
}

std::complex<float> EQBiquadResponse::computeResponse(int32_t index) {
    const double w = 2.0 * std::numbers::pi * getMapping().frequencyAt(index) / sampleRate;
    const std::complex<double> z1 = std::polar(1.0, -w);
    const std::complex<double> z2 = z1 * z1;
    std::complex<double> product{1.0, 0.0};
    for (int32_t i = 0; i < numSections; ++i) {
        const auto& [b0, b1, b2, a1, a2] = sections[static_cast<size_t>(i)];
        const std::complex<double> denominator = 1.0 + a1 * z1 + a2 * z2;
        if (std::norm(denominator) == 0.0)
            continue;
        product *= (b0 + b1 * z1 + b2 * z2) / denominator;
    }
    return {static_cast<float>(product.real()), static_cast<float>(product.imag())};
}
