#include "wave/Input.h"

#include <algorithm>

namespace wave {

void Input::process(BasicBlock<float>* block, int32_t numSamples, int32_t) {
    float* out = block->getData();
    const int32_t available = external != nullptr ? std::clamp(remaining, 0, numSamples) : 0;
    std::copy_n(external, available, out);
    std::fill(out + available, out + numSamples, 0.0f);
    if (external != nullptr)
        external += available;
    remaining = std::max(0, remaining - numSamples);
}

void InputForwarder::process(BasicBlock<float>*, int32_t numSamples, int32_t) {
    Producer* source = *forwarded;
    setCurrentBlock(source != nullptr ? source->fetch(numSamples) : getEnvironment()->getZeroBlock());
    stampGeneration();
}

} // namespace wave
