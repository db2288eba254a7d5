#include "eq/BandChain.h"

#include <algorithm>
#include <cmath>

OndrelProcessor::OndrelChannel::BandChain::BandChain(Mapping& mapping, Kind kind)
    : DiscreteFrequencyResponseSource(mapping), kind(kind), correction(mapping) {}

void OndrelProcessor::OndrelChannel::BandChain::clear() {
    numMagnitudes = 0;
    correction.clearSources();
}

bool OndrelProcessor::OndrelChannel::BandChain::addBand(DiscreteFrequencyResponseSource& analog,
                                                        DiscreteFrequencyResponseSource* biquad) {
    if (kind == Kind::NaturalPhase)
        return biquad != nullptr && correction.addNumeratorSource(analog) &&
               correction.addDenominatorSource(*biquad);
    if (numMagnitudes >= static_cast<int32_t>(magnitudes.size()))
        return false;
    magnitudes[static_cast<size_t>(numMagnitudes++)] = {&analog, nullptr, nullptr};
    return true;
}

bool OndrelProcessor::OndrelChannel::BandChain::addSpectralBand(
    DiscreteFrequencyResponseSource& staticResponse, DiscreteFrequencyResponseSource& fullResponse,
    const SpectralAnalyzer& analyzer) {
    if (kind == Kind::NaturalPhase || numMagnitudes >= static_cast<int32_t>(magnitudes.size()))
        return false;
    magnitudes[static_cast<size_t>(numMagnitudes++)] = {&staticResponse, &fullResponse, &analyzer};
    return true;
}

std::complex<float> OndrelProcessor::OndrelChannel::BandChain::responseAt(int32_t index) {
    std::complex<float> value;
    responses(index, 1, &value);
    return value;
}

void OndrelProcessor::OndrelChannel::BandChain::responses(int32_t first, int32_t count,
                                                          std::complex<float>* out) {
    if (kind == Kind::NaturalPhase) {
        correction.responses(first, count, out);
        return;
    }
    const auto size = static_cast<size_t>(std::max(count, 0));
    product.assign(size, 1.0);
    scratch.resize(size);
    for (int32_t b = 0; b < numMagnitudes; ++b) {
        const Entry& entry = magnitudes[static_cast<size_t>(b)];
        entry.response->squaredMagnitudes(first, count, scratch.data());
        if (entry.analyzer == nullptr) {
            for (size_t i = 0; i < size; ++i)
                product[i] *= scratch[i];
            continue;
        }
        fullScratch.resize(size);
        entry.fullResponse->squaredMagnitudes(first, count, fullScratch.data());
        bandPower.assign(scratch.begin(), scratch.end());
        entry.analyzer->applyToMagnitudes(first, bandPower.data(), fullScratch.data(), count);
        for (size_t i = 0; i < size; ++i)
            product[i] *= bandPower[i];
    }
    for (size_t i = 0; i < size; ++i)
        out[i] = {static_cast<float>(std::sqrt(product[i])), 0.0f};
}
