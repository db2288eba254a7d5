#pragma once

#include "wave/Block.h"
#include "wave/Delay.h"
#include "wave/FloatParameter.h"
#include "wave/GenericPluginProcessor.h"

#include <array>
#include <memory>

// Runs the product's processing for one graph block and crossfades it with the dry signal, which a
// delay per channel holds back by the product's latency, so that bypassing never changes timing.
// Leaving bypass with latency L keeps the output dry for L samples, until the processed signal
// that restarted from a clean graph is valid, and then fades in. Also tracks the tail after the
// input fell silent so that silent blocks can be skipped.
// Threading: audio thread, except the constructor, addChannel and reserveLatency.
class GenericPluginProcessor::BypassProcessor {
public:
    // Tail state: still producing (the count has not started); 0 at rest; above 0 samples of tail
    // left; or the declared tail ran out on a product whose tail is not a count.
    static constexpr int32_t kProducing = -1;
    static constexpr int32_t kTailUnknown = -2;

    explicit BypassProcessor(GenericPluginProcessor& owner);

    // Builds the dry delay of one more channel.
    void addChannel();
    // Off the audio thread: sizes the dry delays for the longest latency the product can report,
    // so that later latency changes never allocate.
    void reserveLatency(int32_t samples);
    // The first block after processing starts: a fade-in still waiting for the processed signal
    // lands at once, as no delayed signal from before the stop is worth waiting for.
    void restart() { restartPending = true; }
    void setBypassed(bool bypassed);
    bool isBypassed() const { return bypassed; }
    bool isWaiting() const { return waiting; }
    int32_t getTailState() const { return tailState; }

    // A graph block must end where the wait before fading in runs out, so the fade starts on time.
    int32_t limitChunk(int32_t numSamples) const;

    // inputs and outputs point at the block's first sample; processes [offset, offset + numSamples).
    void process(const float* const* inputs, float* const* outputs, int32_t numChannels, int32_t offset,
                 int32_t numSamples, uint32_t& silenceFlags);

private:
    void startFade();
    // The tail state of a product that has not produced anything yet.
    int32_t initialTailState() const;
    void rebuildDryDelays();
    // Runs the product unless the tail is over; false when processing was skipped.
    bool processWet(const float* const* inputs, float* const* outputs, int32_t numChannels, int32_t offset,
                    int32_t numSamples, uint32_t& silenceFlags);

    GenericPluginProcessor& owner;
    wave::Environment& environment;
    FloatParameter mix;
    // The mix value the last block ended on, where a reversed fade continues from.
    float lastMix = 0.0f;
    std::array<std::unique_ptr<wave::Delay>, kMaxChannels> dryDelays;
    int32_t numDelays = 0;
    wave::BasicBlock<float> dryBlock;
    std::array<float*, kMaxChannels> wetPointers{};
    bool bypassed = false;
    bool waiting = false;
    int32_t waitCountdown = 0;
    bool restartPending = false;
    int32_t latency = 0;
    int32_t reservedLatency = 0;
    int32_t tailState = kProducing;
};
