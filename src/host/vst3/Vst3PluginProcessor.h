#pragma once

#include "foundation/CriticalSection.h"
#include "host/vst3/HostParameterMap.h"
#include "host/vst3/Vst3AudioEffect.h"
#include "wave/GenericPluginProcessor.h"
#include "wave/LockFreeRing.h"

#include "pluginterfaces/vst/ivstevents.h"
#include "pluginterfaces/vst/ivstparameterchanges.h"

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

class OndrelProcessor;

// The audio half of the plug-in under a VST3 host: owns the processor frame of the current
// channel layout, declares the buses, turns the host's buffers, parameter changes, events and
// transport into calls on the frame, and talks to the controller through messages and hidden
// output parameters.
//
// Threading: process runs on the audio thread and takes no lock. notify and setBusArrangements
// take the processor's lock; the host never calls setBusArrangements while processing. Values that
// arrive on other threads (state, messages) reach the frame through a wait-free ring that the
// audio thread empties at the start of each block.
class Vst3PluginProcessor : public Vst3AudioEffect, public GenericPluginProcessor::ProcessorAdapter {
public:
    // The frame chops host blocks into graph blocks of at most this size.
    static constexpr int32_t kFrameBlockSize = 512;
    static constexpr float kDefaultSampleRate = 44100.0f;
    static constexpr int32_t kNumSpecialValues = 5;

    Vst3PluginProcessor();
    ~Vst3PluginProcessor() override;

    static Steinberg::FUnknown* create(void* context);

    Steinberg::tresult PLUGIN_API initialize(Steinberg::FUnknown* context) override;
    Steinberg::tresult PLUGIN_API terminate() override;
    Steinberg::tresult PLUGIN_API setBusArrangements(Steinberg::Vst::SpeakerArrangement* inputs,
                                                     Steinberg::int32 numIns,
                                                     Steinberg::Vst::SpeakerArrangement* outputs,
                                                     Steinberg::int32 numOuts) override;
    Steinberg::tresult PLUGIN_API setupProcessing(Steinberg::Vst::ProcessSetup& setup) override;
    Steinberg::tresult PLUGIN_API setProcessing(Steinberg::TBool state) override;
    Steinberg::tresult PLUGIN_API process(Steinberg::Vst::ProcessData& data) override;
    Steinberg::uint32 PLUGIN_API getLatencySamples() override;
    Steinberg::uint32 PLUGIN_API getTailSamples() override;
    Steinberg::tresult PLUGIN_API getState(Steinberg::IBStream* state) override;
    Steinberg::tresult PLUGIN_API setState(Steinberg::IBStream* state) override;
    Steinberg::tresult PLUGIN_API notify(Steinberg::Vst::IMessage* message) override;

    // GenericPluginProcessor::ProcessorAdapter, on the audio thread.
    void processorParameterChanged(int32_t index, float value) override;
    void midiHandled(int32_t notification) override;
    void reportPair(int32_t a, int32_t b) override;
    void reportNumber(int32_t n) override;

    // For tests and the host tool's checks.
    OndrelProcessor* getFrame() const { return frame.get(); }

private:
    struct PendingValue {
        int32_t index = 0;
        float value = 0.0f;
    };

    std::unique_ptr<OndrelProcessor> createFrame(int32_t layout) const;
    void buildBuses(Steinberg::Vst::SpeakerArrangement requested);
    // Plain values for the frame from any thread but the audio thread; applied at the next block.
    void queueValue(int32_t index, float plain);
    void queueAllValues(const std::vector<float>& values);
    void applyQueuedValues();
    void applyParameterChanges(Steinberg::Vst::IParameterChanges* changes, Steinberg::int32 offset,
                               Steinberg::int32& nextOffset);
    void applySpecialParameter(Steinberg::int32 k, double value, Steinberg::int32 offset);
    void feedEvents(Steinberg::Vst::IEventList* events, Steinberg::int32 from, Steinberg::int32 to,
                    Steinberg::int32& position);
    void writeOutputParameter(Steinberg::Vst::ParamID id, double value);
    void sendRealTimeData();
    void growSilence(Steinberg::int32 numSamples);

    std::unique_ptr<OndrelProcessor> frame;
    std::unique_ptr<PosixCriticalSection> lock;
    std::unique_ptr<HostParameterMap> parameterMap;
    Steinberg::Vst::IParameterChanges* outputChanges = nullptr;
    std::atomic<int32_t> latencyOverride{-1};
    Steinberg::int32 currentOffset = 0;
    bool processing = false;
    bool stateRestored = false;
    int32_t totalInputChannels = 0;
    std::string presetName;
    std::array<float, kNumSpecialValues> specialValues{};
    bool persisted = false;
    // The host's view of every plain value (state and layout changes read it off the audio thread).
    std::vector<std::atomic<float>> values;
    wave::LockFreeRing<PendingValue, 8192> pendingValues;
    wave::LockFreeRing<GenericPluginProcessor::MidiEvent, 256> pendingMidi;
    std::atomic<bool> pendingReset{false};
    std::atomic<bool> pendingBypass{false};
    std::vector<uint8_t> lastRequest;
    std::vector<float> silence;
    // Where channels the host gives no buffer for are written.
    std::vector<float> discardBuffer;
    double rollingCode = 0.0;
};
