#pragma once

#include "eq/AnalogFilterPrototype.h"
#include "eq/BandChain.h"
#include "eq/Convolver.h"
#include "eq/EQBandDesign.h"
#include "eq/FrequencyResponseKernel.h"
#include "eq/SpectralAnalyzer.h"

#include <array>
#include <memory>
#include <span>
#include <vector>

// One band as a kernel sees it: its index (designs are kept per band and redone only when the
// band changes), its design (frequencies in Hz, gain in dB with dynamics and gain scale applied)
// and its static gain, which tells a dynamic band's movement from the user's.
struct KernelBand {
    int32_t index = 0;
    EQBandSettings settings;
    float staticGain = 0.0f;
    // A spectral band: its full-range design and the analyzer that moves each bin between the two,
    // with the analyzer's count of moves (a new count means a new kernel).
    const SpectralAnalyzer* spectral = nullptr;
    EQBandSettings fullSettings;
    uint64_t spectralVersion = 0;

    bool operator==(const KernelBand&) const = default;
};

// Turns the bands of one stage of one channel into a convolver kernel: a Linear Phase kernel from
// their analog magnitudes, or the Natural Phase correction kernel from their analog responses over
// their Zero Latency biquad responses. Every band keeps its designs and sampled responses between
// builds, so moving one band only resamples that band, and the same bands twice in a row (the
// channels of a pair) are designed once.
//
// Threading: the kernel builder's thread only. Allocates when constructed; building allocates
// nothing but what the response caches need the first time.
class KernelDesigner {
public:
    enum class Kind { LinearPhase, NaturalPhase };

    KernelDesigner(Kind kind, int32_t kernelLength, double sampleRate);
    ~KernelDesigner();

    // False when the response came out non-finite; the kernel is then unusable.
    bool build(std::span<const KernelBand> bands, Convolver::Kernel& kernel);

    Kind getKind() const { return kind; }
    int32_t getKernelLength() const { return builder.getLength(); }
    double getSampleRate() const { return sampleRate; }

private:
    struct BandResponses;

    BandResponses& prepare(const KernelBand& band);
    BandResponses& prepareFull(const KernelBand& band);

    Kind kind;
    double sampleRate;
    DiscreteFrequencyResponseSource::Mapping mapping;
    std::array<std::unique_ptr<BandResponses>, kNumBands> responses;
    OndrelProcessor::OndrelChannel::BandChain chain;
    FrequencyResponseKernel<double> builder;
    std::vector<KernelBand> lastBands;
    bool lastValid = false;
};
