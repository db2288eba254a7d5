#include "eq/KernelDesigner.h"

#include "eq/EQBiquadResponse.h"
#include "eq/EQResponses.h"

#include <algorithm>
#include <numbers>
#include <optional>

// A band's designs and their responses on the kernel grid: the analog design in Hz (magnitude or
// complex response) and, for the Natural Phase correction, the design the biquads run.
struct KernelDesigner::BandResponses {
    BandResponses(Kind kind, DiscreteFrequencyResponseSource::Mapping& mapping, double sampleRate) {
        if (kind == Kind::LinearPhase) {
            analog = std::make_unique<EQMagnitudeResponse>(analogDesign, mapping);
            full = std::make_unique<EQMagnitudeResponse>(fullDesign, mapping);
            return;
        }
        analog = std::make_unique<EQAnalogResponse>(analogDesign, mapping);
        biquad = std::make_unique<EQBiquadResponse>(digitalDesign, mapping, sampleRate);
    }

    AnalogFilterPrototype analogDesign;
    AnalogFilterPrototype digitalDesign;
    // A spectral band's full-range design.
    AnalogFilterPrototype fullDesign;
    std::unique_ptr<DiscreteFrequencyResponseSource> analog;
    std::unique_ptr<DiscreteFrequencyResponseSource> biquad;
    std::unique_ptr<DiscreteFrequencyResponseSource> full;
    std::optional<EQBandSettings> designed;
    std::optional<EQBandSettings> fullDesigned;
};

KernelDesigner::KernelDesigner(Kind kind, int32_t kernelLength, double sampleRate)
    : kind(kind), sampleRate(sampleRate),
      mapping(false, 0.0f, static_cast<float>(sampleRate * 0.5), std::max(kernelLength, 2) / 2),
      chain(mapping, kind == Kind::LinearPhase
                         ? OndrelProcessor::OndrelChannel::BandChain::Kind::Magnitude
                         : OndrelProcessor::OndrelChannel::BandChain::Kind::NaturalPhase),
      builder(kernelLength) {
    for (auto& band : responses)
        band = std::make_unique<BandResponses>(kind, mapping, sampleRate);
}

KernelDesigner::~KernelDesigner() = default;

KernelDesigner::BandResponses& KernelDesigner::prepare(const KernelBand& band) {
    BandResponses& r = *responses[static_cast<size_t>(std::clamp(band.index, 0, kNumBands - 1))];
    if (r.designed == band.settings)
        return r;
    r.designed = band.settings;
    designBand(r.analogDesign, band.settings);
    r.analog->invalidate();
    if (r.biquad != nullptr) {
        const double toAngular = 2.0 * std::numbers::pi / sampleRate;
        EQBandSettings angular = band.settings;
        angular.frequency *= toAngular;
        angular.secondFrequency *= toAngular;
        designDigitalBand(r.digitalDesign, angular, sampleRate);
        r.biquad->invalidate();
    }
    return r;
}

KernelDesigner::BandResponses& KernelDesigner::prepareFull(const KernelBand& band) {
    BandResponses& r = *responses[static_cast<size_t>(std::clamp(band.index, 0, kNumBands - 1))];
    if (r.fullDesigned != band.fullSettings) {
        r.fullDesigned = band.fullSettings;
        designBand(r.fullDesign, band.fullSettings);
        r.full->invalidate();
    }
    return r;
}

bool KernelDesigner::build(std::span<const KernelBand> bands, Convolver::Kernel& kernel) {
    if (lastValid && std::equal(bands.begin(), bands.end(), lastBands.begin(), lastBands.end()))
        return kernel.setImpulseResponse(builder.getImpulseResponse(), builder.getLength());
    lastBands.assign(bands.begin(), bands.end());
    chain.clear();
    for (const KernelBand& band : bands) {
        BandResponses& r = prepare(band);
        if (band.spectral != nullptr && r.full != nullptr)
            chain.addSpectralBand(*r.analog, *prepareFull(band).full, *band.spectral);
        else
            chain.addBand(*r.analog, r.biquad.get());
    }
    lastValid = builder.build(chain, kernel);
    return lastValid;
}
