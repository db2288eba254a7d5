#include "wave/NoiseFilter.h"

namespace wave {

const float* NoiseFilter::controlData(Producer* control, int32_t numSamples) const {
    return (control != nullptr ? control->fetch(numSamples) : getEnvironment()->getZeroBlock())->getData();
}

void NoiseFilter::processFilter(const float* input, BasicBlock<float>* block, int32_t numSamples, int32_t) {
    const float* first = controlData(firstControl, numSamples);
    const float* second = controlData(secondControl, numSamples);
    float* out = block->getData();
    uint32_t state = generatorState;
    for (int32_t i = 0; i < numSamples; ++i) {
        const float scale = first[i] * second[i];
        const float r1 = nextValue(state);
        const float r2 = nextValue(state);
        out[i] = input[i] + (r1 + r2) * scale * 0.5f;
    }
    generatorState = state;
}

} // namespace wave
