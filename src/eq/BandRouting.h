#pragma once

#include "eq/EQBandDesign.h"
#include "plugin/eq/EQTypes.h"
#include "plugin/eq/FilterShape.h"

#include <array>
#include <cstdint>

class EQParameterSet;
class EQParameterSetExtension;

// One band's parameters as plain values: what the processor routes by, and what the kernel builder
// designs from. Frequencies are log2 of Hz, gains dB, q the stored 0..1 value, slope the stored
// position (engine slope + 1).
struct BandSettings {
    bool used = false;
    bool enabled = true;
    bool solo = false;
    FilterShape shape = FilterShape::Bell;
    float frequency = 9.965784f;
    float gain = 0.0f;
    float q = 0.5f;
    float slope = 2.0f;
    StereoPlacement placement = StereoPlacement::Stereo;
    chl::SpeakerSet speakers = chl::SpeakerSet::AllExceptLfe;
    float dynamicRange = 0.0f;
    bool dynamicsEnabled = true;
    bool dynamicsAuto = true;
    float threshold = 0.6666667f;
    float attack = 50.0f;
    float release = 50.0f;
    bool externalSideChain = false;
    SideChainFiltering sideChainFiltering = SideChainFiltering::Band;
    float sideChainLowFrequency = 3.321928f;
    float sideChainHighFrequency = 14.287712f;
    bool sideChainAudition = false;
    bool spectralEnabled = false;
    float spectralDensity = 50.0f;
    bool spectralTilt = true;

    static BandSettings from(const EQParameterSet& band, const EQParameterSetExtension& extension);

    // The Q itself and the engine's slope value.
    float userQ() const;
    float engineSlope() const { return slope - 1.0f; }
    bool hasDynamicRange() const;
    // What the analog designer needs, at the given gain in dB (frequencies in Hz).
    EQBandSettings design(float gainDb) const;
};

inline constexpr int32_t kNumBands = 24;
using BandSettingsArray = std::array<BandSettings, kNumBands>;

// The processing stages of a channel, in signal order: minimum-phase and linear left/right, then
// minimum-phase and linear mid/side. Odd stages are linear (Linear Phase or spectral bands).
enum class StageType : int32_t {
    MinimumLeftRight = 0,
    LinearLeftRight = 1,
    MinimumMidSide = 2,
    LinearMidSide = 3
};
inline constexpr int32_t kNumStageTypes = 4;

constexpr bool isLinearStage(StageType type) {
    return (static_cast<int32_t>(type) & 1) != 0;
}
constexpr bool isMidSideStage(StageType type) {
    return static_cast<int32_t>(type) >= 2;
}

// Which stage each used band runs in, and how many bands each stage has.
struct StageAssignment {
    std::array<int32_t, kNumStageTypes> counts{};
    std::array<StageType, kNumBands> stageOfBand{};

    bool hasStage(StageType type) const { return counts[static_cast<size_t>(type)] > 0; }
    bool operator==(const StageAssignment&) const = default;
};

// Kernel taps of Linear Phase (and spectral) stages at 44.1 and 48 kHz, by resolution.
inline constexpr std::array<int32_t, 5> kLinearKernelTaps{4096, 8192, 16384, 32768, 131072};
inline constexpr int32_t kLinearFirstPartition = 1024;
// The Natural Phase correction kernel, at every rate: 512 / 2 + 64 = 320 samples of latency.
inline constexpr int32_t kNaturalKernelTaps = 512;
inline constexpr int32_t kNaturalFirstPartition = 64;

// What a band's detection listens to, in Hz: below a low shelf's corner, above a high shelf's
// (at most from 10 kHz), the band's edges otherwise; with the filter shape that selects it.
struct DetectorBand {
    double low = 20.0;
    double high = 30000.0;
    FilterShape shape = FilterShape::BandPass;
};
DetectorBand detectorBandFor(const BandSettings& band);

// " Used", and " Enabled" or solo or a manual band whose side chain is being auditioned.
bool isBandActive(const BandSettings& band);
// Active, in the channel's speaker set, and by placement: unpaired channels take Stereo bands only;
// Left and Mid act on the left member of a pair, Right and Side on the right member.
bool bandAppliesToChannel(const BandSettings& band, uint32_t channelFlags);
bool isDynamicBand(const BandSettings& band);
bool isSpectralBand(const BandSettings& band, ProcessingResolution resolution);
// A dynamic band whose dynamics run in this mode and resolution: a band that asks for spectral
// processing where there is none stays static.
bool hasActiveDynamics(const BandSettings& band, ProcessingMode mode, ProcessingResolution resolution);
// A spectral band whose dynamics run: its shaping follows the spectral analysis.
bool isAnalysedSpectralBand(const BandSettings& band, ProcessingResolution resolution);
// Linear Phase at Very High or Maximum resolution runs without dynamics.
bool dynamicsAvailable(ProcessingMode mode, ProcessingResolution resolution);
bool spectralAvailable(ProcessingResolution resolution);

// The largest boost of the active bands in dB (0 when none boosts): a band's gain, or for a cut its
// resonance peak. Drives the Character stage.
float maxBandBoost(const BandSettingsArray& bands);

// Groups the used bands into stages. Stereo bands join a stage of their kind so that a setup with
// only left/right or only mid/side bands needs one stage per kind. Unused bands keep the stage they
// had in previous (so that a band fading out stays where it was).
StageAssignment assignStages(const BandSettingsArray& bands, ProcessingMode mode,
                             ProcessingResolution resolution, const StageAssignment& previous);

int32_t linearKernelTaps(ProcessingResolution resolution, double sampleRate);
int32_t linearFirstPartition(double sampleRate);

// The stages a channel runs: those with bands, or without any band the mode's own stage (Natural
// Phase's minimum-phase and Linear Phase's linear left/right stage), so latency never depends on
// whether bands exist.
using StageSet = std::array<bool, kNumStageTypes>;
StageSet stagesInUse(const StageAssignment& stages, ProcessingMode mode);
// The delay one stage adds: Natural Phase's correction kernel for minimum-phase stages, the linear
// kernel's centre and first partition for linear ones.
int32_t stageLatency(StageType type, ProcessingMode mode, ProcessingResolution resolution, double sampleRate);

// Latency in samples of the stages in use; characterLatency is the Character stage's converter.
int32_t computeLatency(const StageAssignment& stages, ProcessingMode mode, ProcessingResolution resolution,
                       double sampleRate, int32_t characterLatency);
// The convolvers a setting needs: the Natural Phase correction kernel for minimum-phase stages and
// the linear kernel for linear stages (0 taps where none is needed).
struct KernelConfig {
    int32_t naturalTaps = 0;
    int32_t linearTaps = 0;
    int32_t linearFirstPartition = 0;
    float sampleRate = 0.0f;

    bool isEmpty() const { return naturalTaps == 0 && linearTaps == 0; }
    int32_t tapsFor(StageType type) const { return isLinearStage(type) ? linearTaps : naturalTaps; }
    int32_t firstPartitionFor(StageType type) const {
        return isLinearStage(type) ? linearFirstPartition : kNaturalFirstPartition;
    }
    bool operator==(const KernelConfig&) const = default;
};

KernelConfig kernelConfigFor(const StageAssignment& stages, ProcessingMode mode,
                             ProcessingResolution resolution, double sampleRate);

// The largest latency any setting can have at this rate (Linear Phase at Maximum, both stages).
int32_t maximumLatency(double sampleRate, int32_t characterLatency);
