#pragma once

#include "eq/BandCompander.h"
#include "eq/CharacterStage.h"
#include "eq/DynamicEQFilter.h"
#include "eq/EQFilter.h"
#include "eq/EngineSnapshot.h"
#include "eq/KernelStage.h"
#include "eq/MonitorMix.h"
#include "eq/OndrelProcessor.h"
#include "wave/LevelMeter.h"
#include "wave/SampleRing.h"

#include <array>
#include <memory>

class Convolver;

// One processing channel of the equaliser: every band's filter, detection filter and compander
// for this channel, the stage chains they are wired into, the monitor path and the channel's
// meters. The processor wires the chains; the channel owns the objects.
//
// Threading: built off the audio thread; configured and processed on the audio thread only.
class OndrelProcessor::OndrelChannel : public GenericPluginProcessor::Channel {
public:
    class BandChain;

    // A band as this channel runs it.
    struct BandSlot {
        explicit BandSlot(wave::Environment* environment);

        // The band in the signal path (Zero Latency and Natural Phase).
        DynamicEQFilter filter;
        // Band-limits the detection signal for the compander.
        EQFilter detector;
        BandCompander compander;
        // The compander's output as the band's gain change, and as gain reduction only.
        wave::LevelMeter gainMeter;
        wave::LevelMeter reductionMeter;
        // The detector's last design, to tell when it moved.
        float detectorFrequency = -1.0f;
        FilterShape detectorShape = FilterShape::BandPass;
    };

    OndrelChannel(OndrelProcessor& owner, uint32_t flags, int32_t maximumDelay);

    BandSlot& getSlot(int32_t band) { return *slots[static_cast<size_t>(band)]; }
    // The graph node of a kernel stage, and the convolvers of both banks behind it.
    KernelStage& getKernelStage(StageType type) { return *kernelStages[static_cast<size_t>(type)]; }
    Convolver& getConvolver(int32_t bank, StageType type) {
        return *convolvers[static_cast<size_t>(bank)][static_cast<size_t>(type)];
    }
    EQFilter& getSoloFilter() { return soloFilter; }
    MonitorMix& getMonitorMix() { return monitorMix; }
    CharacterStage& getCharacterStage() { return character; }
    wave::LevelMeter& getInputMeter() { return inputMeter; }
    wave::LevelMeter& getOutputMeter() { return outputMeter; }
    wave::LevelMeter& getSideChainMeter() { return sideChainMeter; }
    // The input and side chain on their way to the spectral analysis on the engine worker.
    wave::SampleRing& getSpectralInput() { return spectralInput; }
    wave::SampleRing& getSpectralSideChain() { return spectralSideChain; }

    // Audio thread: the band's filters act on this channel or fade out.
    void setBandApplies(int32_t band, bool applies);
    bool bandApplies(int32_t band) const { return applies[static_cast<size_t>(band)]; }
    // Where each stage starts on this channel (set while wiring), for detection and monitoring.
    void setStageInput(StageType type, wave::Producer* input) {
        stageInputs[static_cast<size_t>(type)] = input;
    }
    wave::Producer* getStageInput(StageType type) const { return stageInputs[static_cast<size_t>(type)]; }

private:
    std::array<std::unique_ptr<BandSlot>, kNumBands> slots;
    std::array<std::unique_ptr<KernelStage>, kNumStageTypes> kernelStages;
    std::array<std::array<std::unique_ptr<Convolver>, kNumStageTypes>, kKernelBanks> convolvers;
    std::array<bool, kNumBands> applies{};
    std::array<wave::Producer*, kNumStageTypes> stageInputs{};
    EQFilter soloFilter;
    CharacterStage character;
    MonitorMix monitorMix;
    wave::LevelMeter inputMeter;
    wave::LevelMeter outputMeter;
    wave::LevelMeter sideChainMeter;
    wave::SampleRing spectralInput;
    wave::SampleRing spectralSideChain;
};
