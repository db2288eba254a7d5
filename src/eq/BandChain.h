#pragma once

#include "eq/NaturalPhaseFrequencyResponseSource.h"
#include "eq/OndrelChannel.h"
#include "eq/SpectralAnalyzer.h"

#include <array>
#include <vector>

// The response of the bands one stage of one channel applies, on a kernel's linear grid. The
// magnitude kind (Linear Phase) multiplies the bands' analog magnitudes into a zero-phase response;
// the natural kind (the Natural Phase correction) divides the bands' analog responses by the
// responses of their Zero Latency biquads, so that biquads followed by this response sound
// analog, phase included. A chain without bands answers 1.
//
// Threading: the kernel builder's thread only; the sources it is given belong to that thread too.
class OndrelProcessor::OndrelChannel::BandChain : public DiscreteFrequencyResponseSource {
public:
    enum class Kind { Magnitude, NaturalPhase };

    BandChain(Mapping& mapping, Kind kind);

    Kind getKind() const { return kind; }
    void clear();
    // Magnitude kind: the band's analog magnitude source (biquad unused). Natural kind: its analog
    // response and its biquad response. False when the chain is full.
    bool addBand(DiscreteFrequencyResponseSource& analog, DiscreteFrequencyResponseSource* biquad);
    // Magnitude kind: a spectral band, whose power the analyzer moves per bin between its static
    // and its full-range response.
    bool addSpectralBand(DiscreteFrequencyResponseSource& staticResponse,
                         DiscreteFrequencyResponseSource& fullResponse, const SpectralAnalyzer& analyzer);

    std::complex<float> responseAt(int32_t index) override;
    void responses(int32_t first, int32_t count, std::complex<float>* out) override;

private:
    Kind kind;
    struct Entry {
        DiscreteFrequencyResponseSource* response = nullptr;
        DiscreteFrequencyResponseSource* fullResponse = nullptr;
        const SpectralAnalyzer* analyzer = nullptr;
    };

    std::array<Entry, kNumBands> magnitudes{};
    int32_t numMagnitudes = 0;
    NaturalPhaseFrequencyResponseSource correction;
    // Double: 24 bands of 30 dB would overflow a float's range.
    std::vector<double> product;
    std::vector<float> scratch;
    std::vector<float> fullScratch;
    std::vector<double> bandPower;
};
