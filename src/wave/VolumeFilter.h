#pragma once

#include "wave/Producer.h"

namespace wave {

// Multiplies its input by a linear gain and, when present, a second linear gain. Silent and unity
// gains cost nothing: a gain of 0 publishes the zero block and a lone gain of 1 publishes the input
// block itself. An absent gain counts as unity.
// Threading: built under the frame's processing lock, then audio thread only.
class VolumeFilter : public Filter {
public:
    explicit VolumeFilter(Environment* environment, Producer* gain = nullptr, Producer* secondGain = nullptr)
        : Filter(environment), gain(gain), secondGain(secondGain) {}

    void process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
    void processFilter(const float* input, BasicBlock<float>* block, int32_t numSamples,
                       int32_t flags) override;

    void setGain(Producer* producer) { gain = producer; }
    void setSecondGain(Producer* producer) { secondGain = producer; }

private:
    // The first gain's block, or null when it is absent or constant at unity.
    const BasicBlock<float>* scalingGain(int32_t numSamples) const;

    Producer* gain;
    Producer* secondGain;
};

} // namespace wave
