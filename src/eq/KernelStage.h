#pragma once

#include "wave/Producer.h"

class Convolver;

// A stage's convolver in the graph: runs the convolver that the bank in use holds for this channel
// and stage, so switching banks is a pointer change at a block boundary.
// Threading: audio thread only after construction.
class KernelStage : public wave::Filter {
public:
    explicit KernelStage(wave::Environment* environment);

    void setConvolver(Convolver* newConvolver) { convolver = newConvolver; }
    Convolver* getConvolver() const { return convolver; }

    void processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                       int32_t flags) override;
    void reset() override;
    // Sound still on its way through the kernel keeps the graph from counting as silent.
    bool isAtRest() const override;

private:
    Convolver* convolver = nullptr;
};
