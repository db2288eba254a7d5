#pragma once

#include "plugin/PluginParameter.h"
#include "wave/FloatingPointMode.h"
#include "wave/GenericPluginProcessor.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

namespace frame_test {

constexpr int32_t kMaxChunk = 64;
constexpr int32_t kFadeSamples = 2400; // 50 ms at 48 kHz

// Delays its input by a fixed number of samples; graph resets clear it.
class RingDelay : public wave::Filter {
public:
    RingDelay(wave::Environment* environment, int32_t delay)
        : wave::Filter(environment), history(static_cast<size_t>(delay), 0.0f) {
        joinResets();
    }

    void processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                       int32_t) override {
        float* out = block->getData();
        for (int32_t i = 0; i < numSamples; ++i) {
            out[i] = history.empty() ? input[i] : std::exchange(history[next], input[i]);
            if (!history.empty())
                next = (next + 1) % history.size();
        }
    }

    void reset() override {
        std::fill(history.begin(), history.end(), 0.0f);
        next = 0;
    }

private:
    std::vector<float> history;
    size_t next = 0;
};

// Delays its main input (or its side-chain input) by the product's latency.
class DelayChannel : public GenericPluginProcessor::Channel {
public:
    DelayChannel(GenericPluginProcessor& owner, uint32_t flags, int32_t latency, bool fromSideChain)
        : GenericPluginProcessor::Channel(owner, flags), delay(owner.getEnvironment(), latency) {
        delay.setInput(fromSideChain ? static_cast<wave::Producer*>(&getSideChainInput()) : &getMainInput());
    }

    RingDelay delay;
};

struct MidiRecord {
    int32_t offset;
    int64_t processedBefore;
    bool operator==(const MidiRecord&) const = default;
};

// A product that delays by its reported latency and scales by "Gain" times the last gain point; a
// MIDI controller sets "Gain" through the parameter queue. Recording storage is reserved up front.
class TestProcessor : public GenericPluginProcessor {
public:
    struct Config {
        int32_t latency = 0;
        int32_t numChannels = 1;
        int32_t tail = kNoTail;
        bool fromSideChain = false;
        uint32_t featureFlags = 0;
        float gain = 1.0f;
    };

    explicit TestProcessor(const Config& setup) : tail(setup.tail) {
        chunkSizes.reserve(100000);
        midiRecords.reserve(1000);
        flags = setup.featureFlags;
        initialize(kMaxChunk, 48000);
        setSampleRate(48000.0f);
        setLatency(setup.latency);
        for (int32_t channel = 0; channel < setup.numChannels; ++channel) {
            const uint32_t speakers = channel == 0 ? Channel::kLeftSide : Channel::kRightSide;
            addChannel(std::make_unique<DelayChannel>(*this, speakers, setup.latency, setup.fromSideChain));
        }
        setBypassParameterIndex(bypass.getIndex());
        setModeParameterIndex(mode.getIndex());
        gain.setValue(setup.gain);
        setProcessing(true);
    }
    TestProcessor() : TestProcessor(Config{}) {}
    ~TestProcessor() override { terminate(); }

    using GenericPluginProcessor::setLatency;

    FloatPluginParameter gain{*this, "Gain", 0.0f, 2.0f, 1.0f};
    FloatPluginParameter bypass{*this, "Bypass", 0.0f, 1.0f, 0.0f};
    FloatPluginParameter mode{*this, "Mode", 0.0f, 2.0f, 0.0f};

    float pointGain = 1.0f;
    int32_t tail;
    std::vector<int32_t> chunkSizes;
    int64_t processedSamples = 0;
    std::vector<MidiRecord> midiRecords;
    uint32_t modeWhileProcessing = 0;
    int32_t transportStarts = 0;
    float tempoSeen = 0.0f;
    double beatSeen = -1.0;
    std::vector<float> modeCalls;

protected:
    void processChannels(float* const* buffers, int32_t numChannels, int32_t numSamples) override {
        chunkSizes.push_back(numSamples);
        modeWhileProcessing = ScopedFlushToZero::currentMode();
        const float g = gain.getValue() * pointGain;
        for (int32_t channel = 0; channel < numChannels; ++channel) {
            const float* delayed =
                static_cast<DelayChannel&>(getChannel(channel)).delay.fetch(numSamples)->getData();
            for (int32_t i = 0; i < numSamples; ++i)
                buffers[channel][i] = delayed[i] * g;
        }
        processedSamples += numSamples;
    }

    int32_t getTailSamples() const override { return tail; }

    void applyParameterPoint(int32_t index, float value) override {
        if (index == gain.getIndex())
            pointGain = value;
    }

    void tempoChanged(float tempo, double beatPosition) override {
        tempoSeen = tempo;
        beatSeen = beatPosition;
    }

    void transportStarted() override { ++transportStarts; }

    void setMode(float value) override { modeCalls.push_back(value); }

    std::unique_ptr<MidiReceiver> createMidiReceiver() override { return std::make_unique<Receiver>(*this); }

private:
    class Receiver : public MidiReceiver {
    public:
        explicit Receiver(TestProcessor& owner) : owner(owner) {}
        void receiveMidiEvent(const MidiEvent& event) override {
            owner.midiRecords.push_back({event.offset, owner.processedSamples});
            if (event.status == 0xb0)
                owner.setParameter(owner.gain.getIndex(), static_cast<float>(event.data2) / 100.0f, true);
        }

    private:
        TestProcessor& owner;
    };
};

// A signal whose every sample is told apart from its neighbours.
inline float signalAt(int64_t n) {
    return n < 0 ? 0.0f : 1.0f + 0.01f * static_cast<float>(n % 97);
}

inline std::vector<float> signal(size_t count) {
    std::vector<float> samples(count);
    for (size_t n = 0; n < count; ++n)
        samples[n] = signalAt(static_cast<int64_t>(n));
    return samples;
}

// Processes one mono block and returns the flags the processor answers with.
inline uint32_t processBlock(GenericPluginProcessor& processor, const float* in, float* out, int32_t count,
                             uint32_t flags = 0) {
    processor.process(&in, nullptr, &out, 1, count, flags);
    return flags;
}

// Runs a mono signal through the processor in host blocks of blockSize; returns the output.
inline std::vector<float> runMono(GenericPluginProcessor& processor, const std::vector<float>& input,
                                  int32_t blockSize) {
    std::vector<float> output(input.size(), -99.0f);
    for (size_t start = 0; start < input.size(); start += static_cast<size_t>(blockSize))
        processBlock(processor, input.data() + start, output.data() + start,
                     static_cast<int32_t>(std::min(input.size() - start, static_cast<size_t>(blockSize))));
    return output;
}

// Runs count samples of one value, in a single host block unless blockSize is given.
inline std::vector<float> runConstant(GenericPluginProcessor& processor, size_t count, float value,
                                      int32_t blockSize = 0) {
    return runMono(processor, std::vector<float>(count, value),
                   blockSize > 0 ? blockSize : static_cast<int32_t>(count));
}

} // namespace frame_test
