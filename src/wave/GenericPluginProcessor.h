#pragma once

#include "plugin/GenericPluginBase.h"
#include "wave/Environment.h"
#include "wave/Input.h"
#include "wave/LevelSource.h"
#include "wave/LockFreeRing.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

class BinaryDataReader;
class BinaryDataWriter;
class ControllerMidiReceiver;

// The audio side of a plug-in of the family. The host layer hands it every host block; the frame
// applies queued parameter changes, cuts the block at MIDI events and sample-accurate parameter
// points into graph blocks of at most the maximum block size, runs the product's processing on
// each, crossfades with the latency-compensated dry signal for the soft bypass, tracks silence and
// tail, and keeps tempo and beat position. The product derives from it and overrides the
// processing hooks.
//
// Threading: initialize, terminate, channel and meter registration, setLatency and setProcessing
// run while the audio thread is not processing. process, setTransport, setHostBypass,
// queueParameterAt, queueMidiEvent and sendMidiEvent run on the audio thread. setParameter, the
// suspend calls, getMeterValue and the real-time request (one polling thread) may run on any thread. Nothing
// on the audio path allocates or locks.
class GenericPluginProcessor : public GenericPluginBase {
public:
    class Channel;
    class BypassProcessor;

    // One raw three-byte MIDI message at a sample offset of the current host block.
    struct MidiEvent {
        int32_t offset = 0;
        uint8_t status = 0;
        uint8_t data1 = 0;
        uint8_t data2 = 0;
    };

    // Takes the block's MIDI events on the audio thread.
    class MidiReceiver {
    public:
        virtual ~MidiReceiver() = default;
        virtual void receiveMidiEvent(const MidiEvent& event) = 0;
    };

    // What a parameter does at once when it is set, on the setting thread, before the audio
    // thread applies the queued value.
    class ImmediateAction {
    public:
        virtual ~ImmediateAction() = default;
        virtual void applyImmediately(int32_t index, float value) = 0;
    };

    // Implemented by the host layer.
    class ProcessorAdapter {
    public:
        virtual ~ProcessorAdapter() = default;
        // A change the processor made itself (not one that came from the host).
        virtual void processorParameterChanged(int32_t index, float value) = 0;
        // After a block in which MIDI events were handled.
        virtual void midiHandled(int32_t notification) = 0;
        // An event for the plug-in model: a pair of small numbers, or one number (audio thread).
        virtual void reportPair(int32_t, int32_t) {}
        virtual void reportNumber(int32_t) {}
    };

    // What the frame reports through ProcessorAdapter::reportNumber and reportPair.
    static constexpr int32_t kLatencyChangedReport = 1;
    static constexpr int32_t kProgramChangeReport = 1;

    // An object that contributes to the real-time record the editor polls.
    class RealTimeDataSource {
    public:
        virtual ~RealTimeDataSource() = default;
        virtual void writeRealTimeData(BinaryDataWriter& stream) = 0;
    };

    struct ParameterChange {
        int32_t index = 0;
        float value = 0.0f;
    };

    // position is absolute, in the environment's sample position.
    struct ParameterPoint {
        int32_t position = 0;
        int32_t reserved = 0;
        int32_t index = 0;
        float value = 0.0f;
    };
    static_assert(sizeof(ParameterPoint) == 16);

    // Bits of process's silence flags: the host sets the first, the frame answers with the second.
    enum SilenceFlags : uint32_t { kInputSilent = 1, kOutputSilent = 2 };

    // Reserved parameter-queue indexes: let smoothed parameters jump to their targets without
    // touching filter state, or reset the graph.
    static constexpr int32_t kSkipSmoothingCommand = -1;
    static constexpr int32_t kResetGraphCommand = -2;

    static constexpr int32_t kMaxChannels = 16;
    static constexpr uint32_t kParameterQueueSize = 8192;
    static constexpr uint32_t kParameterPointRingSize = 128;
    static constexpr uint32_t kMidiQueueSize = 1024;
    static constexpr uint32_t kOutgoingMidiQueueSize = 32;
    // The feature flag of products that send MIDI: only they get the outgoing queue.
    static constexpr uint32_t kMidiOutputFlag = 0x1000;
    // The real-time sources form two lists, written one after the other.
    static constexpr int32_t kNumRealTimeLists = 2;
    static constexpr float kDefaultTempo = 120.0f;
    static constexpr float kBypassFadeMs = 50.0f;
    // The beat position runs freely in [0, kBeatWrap) while the host transport stands still.
    static constexpr double kBeatWrap = 256.0;
    // About four and a half minutes at 44.1 kHz: long past any "display is watching" window.
    static constexpr int32_t kMaxSamplesSinceRequest = 12288000;

    // Answers of getTailSamples.
    static constexpr int32_t kInfiniteTail = -1;
    static constexpr int32_t kNoTail = -2;

    GenericPluginProcessor();
    ~GenericPluginProcessor() override;

    // Creates the environment and the bypass processor; the first instance in the process runs the
    // product's global initialisation.
    void initialize(int32_t maxBlockSize, int32_t secondSize);
    // Mirrors initialize; the last instance runs the global shutdown. The product's destructor
    // calls it so that its own overrides still run.
    void terminate();
    bool isInitialized() const { return environment != nullptr; }

    wave::Environment* getEnvironment() const { return environment.get(); }
    void setSampleRate(float rate);
    float getSampleRate() const;
    int32_t getMaxBlockSize() const;

    // The channel takes the next position in the channel list, which it is told and which is returned.
    int32_t addChannel(std::unique_ptr<Channel> channel);
    int32_t getNumChannels() const { return static_cast<int32_t>(channels.size()); }
    Channel& getChannel(int32_t index) const { return *channels[static_cast<size_t>(index)]; }

    // Starting processing restarts the bypass processor; while stopped, process outputs silence.
    void setProcessing(bool processing);
    bool isProcessing() const { return active; }

    void setParameter(int32_t index, float value, bool fromHost);
    bool queueParameterAt(int32_t position, int32_t index, float value);
    bool queueMidiEvent(const MidiEvent& event);
    void suspendParameterUpdates();
    void resumeParameterUpdates();

    void setHostBypass(bool bypass);
    void setBypassParameterIndex(int32_t index) { bypassParameterIndex = index; }
    void setModeParameterIndex(int32_t index) { modeParameterIndex = index; }
    // The integer value of the mode parameter, last seen on the audio thread.
    int32_t getMode() const { return mode; }
    // Registered while setting up, before any thread sets parameters.
    void setImmediateAction(int32_t index, ImmediateAction* action);
    bool isBypassRequested() const { return hostBypass || parameterBypass; }

    int32_t getLatency() const { return latency; }

    void setTransport(float tempo, float hostBeatPosition, bool playing);
    float getTempo() const { return tempo; }
    double getBeatPosition() const { return beatPosition; }

    void setSideChainConnected(bool connected) { sideChainConnected = connected; }
    void setSideChainUsed(bool used) { sideChainUsed = used; }
    bool isSideChainActive() const { return sideChainConnected && sideChainUsed; }

    // The meter table. Meters below firstPerChannelMeter describe the whole plug-in and are read
    // from channel 0; a meter's value is its source's current level.
    void setMeter(int32_t channel, int32_t meterIndex, LevelSource* source);
    void setFirstPerChannelMeter(int32_t index) { firstPerChannelMeter = index; }
    float getMeterValue(int32_t meterIndex, bool combineMax) const;

    // Sources write in list order and, inside a list, in slot order; empty slots are skipped.
    void setRealTimeDataSource(int32_t list, int32_t slot, RealTimeDataSource* source);
    // The host layer hands over the display's request and the stream for the answer.
    void answerRealTimeRequest(BinaryDataReader& request, BinaryDataWriter& stream);
    virtual void writeRealTimeData(BinaryDataWriter& stream);
    int32_t getSamplesSinceRealTimeRequest() const;

    void setAdapter(ProcessorAdapter* newAdapter) { adapter = newAdapter; }
    // Audio thread: passed to the adapter, if there is one.
    void reportPair(int32_t a, int32_t b) {
        if (adapter != nullptr)
            adapter->reportPair(a, b);
    }
    void reportNumber(int32_t n) {
        if (adapter != nullptr)
            adapter->reportNumber(n);
    }
    // The product's current gain reduction in dB (0 or below), if it measures one.
    virtual bool getGainReduction(float& db) const {
        db = 0.0f;
        return false;
    }

    // Audio thread. False without the outgoing queue (see kMidiOutputFlag) or when it is full.
    bool sendMidiEvent(const MidiEvent& event);
    bool hasMidiOutput() const { return outgoingMidi != nullptr; }

    // The learned controller map of the default MIDI receiver, in its binary form; false without
    // one. Any one thread besides the audio thread.
    bool readControllerMapping(BinaryDataReader& reader);
    bool writeControllerMapping(BinaryDataWriter& writer) const;

    // True when no sample differs from zero by more than the float epsilon (NaN counts as signal).
    static bool isSilent(const float* samples, int32_t numSamples);

    // inputs, sideChain (null without a side-chain bus) and outputs hold numChannels buffers of
    // numSamples; inputs and outputs may be the same buffers. Channels beyond the plug-in's count
    // are left alone.
    void process(const float* const* inputs, const float* const* sideChain, float* const* outputs,
                 int32_t numChannels, int32_t numSamples, uint32_t& silenceFlags);

protected:
    // The DSP of one graph block: pull the channels' graphs and write numSamples processed samples
    // to buffers[channel].
    virtual void processChannels(float* const* buffers, int32_t numChannels, int32_t numSamples) = 0;
    // Asked with silent input once the graph is at rest, for products with an infinite tail.
    virtual bool isOutputSilent(const float* const* buffers, int32_t numChannels, int32_t numSamples);
    // Samples the output rings on after the input fell silent, kInfiniteTail or kNoTail. A product
    // that keeps the default is watched for silence through isOutputSilent; one that answers kNoTail
    // is never skipped.
    virtual int32_t getTailSamples() const { return kInfiniteTail; }
    virtual void tempoChanged(float, double) {}
    // The product calls this version too: it forwards to the channels and handles bypass.
    virtual void parameterChanged(int32_t index);
    virtual void applyParameterPoint(int32_t, float) {}
    virtual void sampleRateChanged() {}
    virtual void globalInitialize() {}
    virtual void globalShutdown() {}
    // The default drives parameters from learned MIDI controllers (ControllerMidiReceiver).
    virtual std::unique_ptr<MidiReceiver> createMidiReceiver();
    // False while the product's "Receive Midi" is off: events are then dropped.
    virtual bool acceptsMidi() const { return true; }
    virtual void transportStarted() {}
    // Called when the mode parameter turns 1.
    virtual void setMode(float) {}
    // The request's contents belong to the plug-in model; the default ignores them.
    virtual void readRealTimeRequest(BinaryDataReader&) {}

    // The dry delays follow at the next graph block.
    void setLatency(int32_t samples) { latency = samples; }
    // Off the audio thread: the longest latency setLatency will be given, so that following a
    // latency change never allocates.
    void reserveLatency(int32_t samples);
    // Passed to the adapter once the block's MIDI events are handled.
    void setMidiNotification(int32_t value) { midiNotification = value; }

private:
    friend class BypassProcessor;

    // Forwards the environment's rate changes to the product.
    class RateForwarder : public wave::SampleRateListener {
    public:
        explicit RateForwarder(GenericPluginProcessor& owner) : owner(owner) {}
        void sampleRateChanged(float) override { owner.sampleRateChanged(); }

    private:
        GenericPluginProcessor& owner;
    };

    void applyBypassRequest();
    void drainParameterQueue();
    void countSamplesSinceRequest(int32_t numSamples);
    void handleMidiEvent(const MidiEvent& event);
    // Processes [offset, end) in graph blocks no longer than the maximum block size.
    void processStretch(const float* const* inputs, const float* const* sideChain, float* const* outputs,
                        int32_t numChannels, int32_t offset, int32_t end, uint32_t& silenceFlags);
    // Walks the block from MIDI event to parameter point; true when a MIDI event was handled.
    bool processEventsAndAudio(const float* const* inputs, const float* const* sideChain,
                               float* const* outputs, int32_t numChannels, int32_t numSamples,
                               uint32_t& silenceFlags);
    // Samples from offset to the next due parameter point, or -1 when none is queued.
    int32_t offsetOfNextPoint(int32_t offset) const;

    std::unique_ptr<wave::Environment> environment;
    bool terminated = false;
    RateForwarder rateForwarder{*this};
    std::vector<std::unique_ptr<Channel>> channels;
    std::unique_ptr<BypassProcessor> bypassProcessor;
    std::unique_ptr<MidiReceiver> midiReceiver;
    ControllerMidiReceiver* controllerMidi = nullptr;
    ProcessorAdapter* adapter = nullptr;

    bool active = false;
    bool hostBypass = false;
    bool parameterBypass = false;
    int32_t bypassParameterIndex = -1;
    int32_t modeParameterIndex = -1;
    int32_t mode = 0;
    int32_t latency = 0;

    float tempo = kDefaultTempo;
    float lastHostBeatPosition = 0.0f;
    bool playing = false;
    bool tempoPending = false;
    double beatPosition = 0.0;
    int32_t samplesSinceTransportUpdate = 0;

    int32_t midiNotification = -1;
    int32_t suspendCount = 0;
    int32_t samplesSinceRequest = kMaxSamplesSinceRequest;
    bool sideChainConnected = false;
    bool sideChainUsed = true;

    wave::LockFreeRing<ParameterChange, kParameterQueueSize> parameterQueue;
    wave::LockFreeRing<ParameterPoint, kParameterPointRingSize> parameterPoints;
    wave::LockFreeRing<MidiEvent, kMidiQueueSize> midiEvents;
    std::unique_ptr<wave::LockFreeRing<MidiEvent, kOutgoingMidiQueueSize>> outgoingMidi;
    std::map<int32_t, ImmediateAction*> immediateActions;

    std::vector<std::vector<LevelSource*>> meters;
    int32_t firstPerChannelMeter = 0;
    std::array<std::vector<RealTimeDataSource*>, kNumRealTimeLists> realTimeSources;
};

// One processing channel: the host's buffers enter the graph here; the product's subclass adds
// its graph. Flags are the channel's speaker flags for the current layout.
class GenericPluginProcessor::Channel {
public:
    // Delivers the side-chain samples, or silence while the side chain is inactive.
    class ConnectedSideChainInput : public wave::Input {
    public:
        ConnectedSideChainInput(wave::Environment* environment, const GenericPluginProcessor& owner)
            : wave::Input(environment), owner(owner) {}

        void process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;

    private:
        const GenericPluginProcessor& owner;
    };

    static constexpr uint32_t kLeftSide = 0x200;
    static constexpr uint32_t kRightSide = 0x400;

    Channel(GenericPluginProcessor& owner, uint32_t flags);
    virtual ~Channel() = default;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    virtual void parameterChanged(int32_t) {}

    // 0 for the left side of a pair, 1 for the right, -1 for neither.
    int32_t getSide() const;
    bool hasFlag(uint32_t mask) const { return (flags & mask) != 0; }
    uint32_t getFlags() const { return flags; }
    int32_t getIndex() const { return index; }

    wave::Input& getMainInput() { return mainInput; }
    ConnectedSideChainInput& getSideChainInput() { return sideChainInput; }
    wave::Input& getSideChainTap() { return sideChainTap; }

    // Points the inputs at the next numSamples of the host's buffers.
    void setBuffers(const float* main, const float* sideChain, int32_t numSamples);

private:
    friend class GenericPluginProcessor;

    uint32_t flags;
    int32_t index = -1;
    ConnectedSideChainInput sideChainInput;
    wave::Input mainInput;
    wave::Input sideChainTap;
};
