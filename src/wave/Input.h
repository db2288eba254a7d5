#pragma once

#include "wave/Producer.h"

namespace wave {

// Feeds samples from an outside buffer into the graph. A host buffer longer than the maximum block
// size is consumed over successive blocks; past its end the input delivers silence.
// Threading: audio thread only.
class Input : public Producer {
public:
    explicit Input(Environment* environment) : Producer(environment) {}

    void setData(const float* pointer, int32_t count) {
        external = pointer;
        remaining = count;
    }
    int32_t getRemaining() const { return remaining; }

    void process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;

private:
    const float* external = nullptr;
    int32_t remaining = 0;
};

// Publishes another producer's block as its own without copying. The forwarded producer is given
// as the address of the pointer that holds it, so the owner may swap it between blocks.
// Threading: audio thread only.
class InputForwarder : public Producer {
public:
    InputForwarder(Environment* environment, Producer* const* forwarded)
        : Producer(environment, false), forwarded(forwarded) {}

    void process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;

private:
    Producer* const* forwarded;
};

} // namespace wave
