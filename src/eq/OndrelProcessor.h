#pragma once

#include "eq/BandRouting.h"
#include "eq/EngineSnapshot.h"
#include "plugin/eq/OndrelParameters.h"
#include "wave/GenericPluginProcessor.h"
#include "wave/TripleBuffer.h"

#include <array>
#include <bitset>
#include <cstdint>
#include <memory>
#include <vector>

class EngineWorker;
class OutputStage;
class BinaryDataWriter;

namespace sr {
class ConverterStyleBase;
class ConverterStyle;
class IIRConverterStyle;
} // namespace sr

namespace wave {
class MidSideConverter;
class LevelMeter;
} // namespace wave

// The equaliser's audio engine: 24 bands on every channel of a layout, grouped into processing
// stages (minimum-phase and linear, left/right and mid/side), in Zero Latency, Natural Phase or
// Linear Phase, followed by the monitor (solo and side-chain audition) and the output stage.
//
// Threading: constructed, resized (sample rate) and destroyed off the audio thread; the frame's
// audio-thread calls reach processChannels, parameterChanged and applyParameterPoint. Slow work
// (auto gain, kernels) runs on the engine worker, which only ever exchanges data with the audio
// thread through wait-free hand-overs.
class OndrelProcessor : public GenericPluginProcessor, public OndrelParameters {
public:
    class OndrelChannel;

    // Meters per channel: 0..23 each band's gain change (dB), 24..47 the same as gain reduction
    // (0 or below), then the input, output and side-chain levels.
    static constexpr int32_t kBandGainReductionMeter = kNumBands;
    static constexpr int32_t kInputMeter = 2 * kNumBands;
    static constexpr int32_t kOutputMeter = kInputMeter + 1;
    static constexpr int32_t kSideChainMeter = kInputMeter + 2;
    // Auto Gain never compensates by more than this.
    static constexpr float kMaximumMakeUpDb = 24.0f;

    // layout is a channel-layout index (0..28); an unknown layout falls back to stereo.
    OndrelProcessor(int32_t layout, int32_t maxBlockSize, float sampleRate);
    ~OndrelProcessor() override;

    int32_t getLayout() const { return layout; }
    OndrelChannel& getOndrelChannel(int32_t index) const;

    const BandSettings& getBandSettings(int32_t band) const {
        return bandSettings[static_cast<size_t>(band)];
    }
    // What the audio path runs now. After a change of mode, resolution or rate it keeps running the
    // old setup until the engine worker has the convolvers of the new one ready.
    const StageAssignment& getStages() const { return running.stages; }
    ProcessingMode getProcessingMode() const { return running.mode; }
    ProcessingResolution getProcessingResolution() const { return running.resolution; }
    bool isSwitchPending() const { return switchPending; }
    int32_t computeLatency(double sampleRate) const;
    // The band now heard alone (solo or side-chain audition), or -1.
    int32_t getMonitoredBand() const { return monitoredBand; }
    const EngineWorker& getWorker() const { return *worker; }
    // Counts the settings changes handed to the worker (see EngineWorker::getHandledSerial).
    uint64_t getSettingsSerial() const { return snapshot.settingsSerial; }
    bool hasKernelWorkPending() const;

    void writeRealTimeData(BinaryDataWriter& stream) override;
    // The deepest cut of any dynamic band in the last block.
    bool getGainReduction(float& db) const override;

protected:
    void processChannels(float* const* buffers, int32_t numChannels, int32_t numSamples) override;
    void parameterChanged(int32_t index) override;
    void applyParameterPoint(int32_t index, float value) override;
    void sampleRateChanged() override;
    bool acceptsMidi() const override;

private:
    // A left/right pair, or a channel on its own, with what the pair shares.
    struct ChannelGroup;

    // The setup the audio path runs.
    struct RunningSetup {
        ProcessingMode mode = ProcessingMode::ZeroLatency;
        ProcessingResolution resolution = ProcessingResolution::Medium;
        StageAssignment stages{};
        KernelConfig config{};
        Character character = Character::Clean;
    };

    // The bands whose gain readings the display must shift, for the real-time record (which the
    // polling thread writes while the audio thread runs).
    struct RealTimeBands {
        int32_t count = 0;
        std::array<int32_t, kNumBands> bands{};
        std::array<float, kNumBands> delaysMs{};
    };

    void createChannels();
    // Parameter changes are collected and applied once at the start of the next graph block.
    void applyPendingChanges();
    void updateStages();
    // Runs the current settings when their convolvers are at hand (or none are needed), else asks
    // the worker for them.
    void followSetup();
    void adoptSetup(int32_t bank);
    // Fades the output out, switches to the new setup once it is ready, and fades back in.
    void advanceSwitch();
    void unmuteWhenDue();
    void collectGainChanges(int32_t numSamples);
    void updateBand(int32_t band);
    void configureDetection(const BandSettings& band, OndrelChannel& channel, int32_t b);
    void updateMonitor(const std::bitset<kNumBands>& newlySoloed,
                       const std::bitset<kNumBands>& newlyAuditioned);
    void updateOutput();
    void updateLatency();
    // The oversampling converter of the Character stage in this mode, and the latency it adds.
    sr::ConverterStyleBase& converterFor(ProcessingMode mode) const;
    int32_t characterLatency(Character character, ProcessingMode mode) const;
    // The most latency any setting can have at the current rate.
    int32_t longestLatency() const;
    void updateCharacterDrive();
    float makeUpGainDb() const;
    void followLoudness();
    // The stages in the signal path (a Zero Latency stage stays while its last band fades out).
    StageSet wiredStages() const;
    void rewire();
    wave::Producer* wireStage(StageType type, OndrelChannel& channel, wave::Producer* input,
                              const ChannelGroup& group, int32_t side, bool used);
    wave::Producer* monitorSource(OndrelChannel& channel);
    void publishSnapshot();
    void fillSnapshot();
    void feedSpectralAnalysis(int32_t numSamples);
    void publishRealTimeBands();

    int32_t layout;
    std::vector<ChannelGroup> groups;
    std::unique_ptr<EngineWorker> worker;
    // Shared by every channel's Character stage: linear-phase for Linear Phase, else minimum-phase.
    std::unique_ptr<sr::ConverterStyle> linearPhaseConverter;
    std::unique_ptr<sr::IIRConverterStyle> minimumPhaseConverter;

    BandSettingsArray bandSettings{};
    // The stages the current settings ask for, and the convolvers they need.
    StageAssignment stages{};
    KernelConfig neededConfig{};
    RunningSetup running;
    bool switchPending = false;
    // Samples until the output fades back in after a switch, -1 when not counting.
    int32_t unmuteCountdown = -1;
    int32_t activeBank = -1;
    // Dynamic bands act in kernels: their gains go to the worker every block.
    bool followGains = false;
    bool anyDynamic = false;
    // Spectral bands act: the input and side chain go to the analysis.
    bool analysingSpectrum = false;
    float gainReduction = 0.0f;
    StageSet wired{};
    std::bitset<kNumBands> changedBands;
    bool globalsChanged = true;
    bool outputChanged = true;
    bool rewirePending = true;
    int32_t monitoredBand = -1;
    int32_t soloBand = -1;
    int32_t auditionBand = -1;
    bool soloPassesEverything = false;
    float appliedLoudnessChange = 0.0f;
    EngineSnapshot snapshot;
    bool snapshotPending = true;
    wave::TripleBuffer<RealTimeBands> realTimeBands;
};
