#pragma once

#include "wave/Producer.h"

namespace wave {

// Adds noise shaped by two control signals to its input: triangular noise in (-1, 1) times the
// product of the controls. The generator is a fixed linear congruential one, so the noise is the
// same sequence on every machine and every run.
// Threading: audio thread only after construction; nothing allocates while processing.
class NoiseFilter : public Filter {
public:
    static constexpr uint32_t kInitialState = 0x5eed1234u;

    explicit NoiseFilter(Environment* environment, uint32_t seed = kInitialState)
        : Filter(environment), generatorState(seed) {}

    void processFilter(const float* input, BasicBlock<float>* block, int32_t numSamples,
                       int32_t flags) override;

    // The noise is first * second; an unset control reads as silence.
    void setControls(Producer* first, Producer* second) {
        firstControl = first;
        secondControl = second;
    }
    uint32_t getGeneratorState() const { return generatorState; }

    // The generator's next value in [-1, 1).
    static float nextValue(uint32_t& state) {
        state = state * 1103515245u + 12345u;
        return 2.0f * static_cast<float>(state & 0x7fffffffu) * 4.656613e-10f - 1.0f;
    }

private:
    const float* controlData(Producer* control, int32_t numSamples) const;

    Producer* firstControl = nullptr;
    Producer* secondControl = nullptr;
    uint32_t generatorState;
};

} // namespace wave
