#include "eq/BandRouting.h"

#include "foundation/Numbers.h"
#include "plugin/eq/EQParameterSet.h"
#include "plugin/eq/ParameterMappings.h"
#include "wave/ChannelLayouts.h"
#include "wave/Environment.h"

#include <algorithm>
#include <cmath>

BandSettings BandSettings::from(const EQParameterSet& band, const EQParameterSetExtension& extension) {
    BandSettings s;
    s.used = band.used.getValue();
    s.enabled = band.enabled.getValue();
    s.solo = band.solo.getValue();
    s.shape = band.shape.getValue();
    s.frequency = band.frequency.getValue();
    s.gain = band.gain.getValue();
    s.q = band.q.getValue();
    s.slope = band.slope.getValue();
    s.placement = band.stereoPlacement.getValue();
    s.speakers = band.speakers.getValue();
    s.dynamicRange = band.dynamicRange.getValue();
    s.dynamicsEnabled = band.dynamicsEnabled.getValue();
    s.dynamicsAuto = band.dynamicsAuto.getValue();
    s.threshold = band.threshold.getValue();
    s.attack = band.attack.getValue();
    s.release = band.release.getValue();
    s.externalSideChain = band.externalSideChain.getValue();
    s.sideChainFiltering = band.sideChainFiltering.getValue();
    s.sideChainLowFrequency = band.sideChainLowFrequency.getValue();
    s.sideChainHighFrequency = band.sideChainHighFrequency.getValue();
    s.sideChainAudition = band.sideChainAudition.getValue();
    s.spectralEnabled = band.spectralEnabled.getValue();
    s.spectralDensity = band.spectralDensity.getValue();
    s.spectralTilt = extension.spectralTilt.getValue();
    return s;
}

float BandSettings::userQ() const {
    return static_cast<float>(qFromNormalized(q));
}

bool BandSettings::hasDynamicRange() const {
    return std::fabs(dynamicRange) > kFloatEpsilon;
}

EQBandSettings BandSettings::design(float gainDb) const {
    return {shape, engineSlope(), gainDb, userQ(), std::exp2(static_cast<double>(frequency))};
}

DetectorBand detectorBandFor(const BandSettings& band) {
    constexpr double kHighShelfDetectorLimit = 10000.0;
    const double frequency = std::exp2(static_cast<double>(band.frequency));
    DetectorBand detector;
    if (band.shape == FilterShape::HighShelf || band.shape == FilterShape::HighShelfVariant) {
        detector.low = std::min(frequency, kHighShelfDetectorLimit);
        detector.shape = FilterShape::LowCut;
    } else if (band.shape == FilterShape::LowShelf || band.shape == FilterShape::LowShelfVariant) {
        detector.high = frequency;
        detector.shape = FilterShape::HighCut;
    } else {
        const BandEdges edges = bandEdges(band.shape, frequency, band.userQ(), band.engineSlope());
        detector.low = edges.lower;
        detector.high = edges.upper;
    }
    return detector;
}

bool isBandActive(const BandSettings& band) {
    return band.used && (band.enabled || band.solo || (!band.dynamicsAuto && band.sideChainAudition));
}

bool bandAppliesToChannel(const BandSettings& band, uint32_t channelFlags) {
    if (!isBandActive(band) || !chl::speakerSetContains(band.speakers, channelFlags))
        return false;
    if ((channelFlags & chl::kUnpaired) != 0)
        return band.placement == StereoPlacement::Stereo;
    switch (band.placement) {
    case StereoPlacement::Stereo:
        return true;
    case StereoPlacement::Left:
    case StereoPlacement::Mid:
        return (channelFlags & chl::kLeftOfPair) != 0;
    case StereoPlacement::Right:
    case StereoPlacement::Side:
        return (channelFlags & chl::kRightOfPair) != 0;
    }
    return false;
}

bool isDynamicBand(const BandSettings& band) {
    return isBandActive(band) && band.dynamicsEnabled && hasGain(band.shape) && band.hasDynamicRange();
}

bool isSpectralBand(const BandSettings& band, ProcessingResolution resolution) {
    return band.used && hasGain(band.shape) && band.hasDynamicRange() && band.spectralEnabled &&
           spectralAvailable(resolution);
}

bool hasActiveDynamics(const BandSettings& band, ProcessingMode mode, ProcessingResolution resolution) {
    return dynamicsAvailable(mode, resolution) && isDynamicBand(band) &&
           (!band.spectralEnabled || spectralAvailable(resolution));
}

float maxBandBoost(const BandSettingsArray& bands) {
    float boost = 0.0f;
    for (const BandSettings& band : bands) {
        if (!isBandActive(band))
            continue;
        if (hasGain(band.shape)) {
            boost = std::max(boost, band.gain);
        } else if (band.shape == FilterShape::LowCut || band.shape == FilterShape::HighCut) {
            // The Q acts on one second-order section, which peaks above Q = 1/sqrt(2).
            const double q = prototypeQ(band.shape, band.userQ());
            if (q * q > 0.5)
                boost = std::max(boost,
                                 static_cast<float>(20.0 * std::log10(q / std::sqrt(1.0 - 0.25 / (q * q)))));
        }
    }
    return boost;
}

bool isAnalysedSpectralBand(const BandSettings& band, ProcessingResolution resolution) {
    return isSpectralBand(band, resolution) && isDynamicBand(band);
}

bool dynamicsAvailable(ProcessingMode mode, ProcessingResolution resolution) {
    return mode != ProcessingMode::LinearPhase || spectralAvailable(resolution);
}

bool spectralAvailable(ProcessingResolution resolution) {
    return static_cast<int32_t>(resolution) < static_cast<int32_t>(ProcessingResolution::VeryHigh);
}

namespace {

enum PlacementKind { kLeftRight = 0, kMidSide = 1, kStereo = 2 };

PlacementKind placementKind(StereoPlacement placement) {
    switch (placement) {
    case StereoPlacement::Left:
    case StereoPlacement::Right:
        return kLeftRight;
    case StereoPlacement::Mid:
    case StereoPlacement::Side:
        return kMidSide;
    case StereoPlacement::Stereo:
        break;
    }
    return kStereo;
}

StageType stageOf(bool linear, bool midSide) {
    if (linear)
        return midSide ? StageType::LinearMidSide : StageType::LinearLeftRight;
    return midSide ? StageType::MinimumMidSide : StageType::MinimumLeftRight;
}

} // namespace

StageAssignment assignStages(const BandSettingsArray& bands, ProcessingMode mode,
                             ProcessingResolution resolution, const StageAssignment& previous) {
    // counts[linear][kind]
    int32_t counts[2][3] = {};
    std::array<bool, kNumBands> linear{};
    for (size_t b = 0; b < bands.size(); ++b) {
        if (!bands[b].used)
            continue;
        linear[b] = mode == ProcessingMode::LinearPhase || isSpectralBand(bands[b], resolution);
        ++counts[linear[b] ? 1 : 0][placementKind(bands[b].placement)];
    }
    // Minimum-phase Stereo bands go mid/side only when there is mid/side work and no left/right work;
    // linear Stereo bands likewise.
    const bool minimumStereoToMidSide = counts[0][kLeftRight] == 0 && counts[0][kMidSide] > 0;
    const bool linearStereoToMidSide = counts[1][kLeftRight] == 0 && counts[1][kMidSide] > 0;

    StageAssignment result;
    result.stageOfBand = previous.stageOfBand;
    for (size_t b = 0; b < bands.size(); ++b) {
        if (!bands[b].used)
            continue;
        const PlacementKind kind = placementKind(bands[b].placement);
        const bool stereoToMidSide = linear[b] ? linearStereoToMidSide : minimumStereoToMidSide;
        const bool midSide = kind == kMidSide || (kind == kStereo && stereoToMidSide);
        const StageType stage = stageOf(linear[b], midSide);
        result.stageOfBand[b] = stage;
        ++result.counts[static_cast<size_t>(stage)];
    }
    return result;
}

int32_t linearKernelTaps(ProcessingResolution resolution, double sampleRate) {
    const auto index = static_cast<size_t>(std::clamp(static_cast<int32_t>(resolution), 0, 4));
    return wave::Environment::getRateFactor(sampleRate) * kLinearKernelTaps[index];
}

int32_t linearFirstPartition(double sampleRate) {
    return wave::Environment::getRateFactor(sampleRate) * kLinearFirstPartition;
}

namespace {

int32_t linearStageLatency(ProcessingResolution resolution, double sampleRate) {
    return linearKernelTaps(resolution, sampleRate) / 2 + linearFirstPartition(sampleRate);
}

} // namespace

StageSet stagesInUse(const StageAssignment& stages, ProcessingMode mode) {
    StageSet inUse{};
    for (size_t type = 0; type < inUse.size(); ++type)
        inUse[type] = stages.counts[type] > 0;
    // Without bands the mode's own stage still runs, so the latency does not depend on band count.
    if (std::none_of(inUse.begin(), inUse.end(), [](bool used) { return used; })) {
        if (mode == ProcessingMode::NaturalPhase)
            inUse[static_cast<size_t>(StageType::MinimumLeftRight)] = true;
        else if (mode == ProcessingMode::LinearPhase)
            inUse[static_cast<size_t>(StageType::LinearLeftRight)] = true;
    }
    return inUse;
}

int32_t stageLatency(StageType type, ProcessingMode mode, ProcessingResolution resolution,
                     double sampleRate) {
    if (isLinearStage(type))
        return linearStageLatency(resolution, sampleRate);
    return mode == ProcessingMode::NaturalPhase ? kNaturalKernelTaps / 2 + kNaturalFirstPartition : 0;
}

int32_t computeLatency(const StageAssignment& stages, ProcessingMode mode, ProcessingResolution resolution,
                       double sampleRate, int32_t characterLatency) {
    const StageSet inUse = stagesInUse(stages, mode);
    int32_t latency = std::max(characterLatency, 0);
    for (int32_t type = 0; type < kNumStageTypes; ++type) {
        if (inUse[static_cast<size_t>(type)])
            latency += stageLatency(static_cast<StageType>(type), mode, resolution, sampleRate);
    }
    return latency;
}

KernelConfig kernelConfigFor(const StageAssignment& stages, ProcessingMode mode,
                             ProcessingResolution resolution, double sampleRate) {
    const StageSet inUse = stagesInUse(stages, mode);
    KernelConfig config;
    config.sampleRate = static_cast<float>(sampleRate);
    if (mode == ProcessingMode::NaturalPhase)
        config.naturalTaps = kNaturalKernelTaps;
    if (inUse[static_cast<size_t>(StageType::LinearLeftRight)] ||
        inUse[static_cast<size_t>(StageType::LinearMidSide)]) {
        config.linearTaps = linearKernelTaps(resolution, sampleRate);
        config.linearFirstPartition = linearFirstPartition(sampleRate);
    }
    if (config.isEmpty())
        config.sampleRate = 0.0f;
    return config;
}

int32_t maximumLatency(double sampleRate, int32_t characterLatency) {
    return 2 * linearStageLatency(ProcessingResolution::Maximum, sampleRate) + std::max(characterLatency, 0);
}
