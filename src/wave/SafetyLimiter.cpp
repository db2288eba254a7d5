#include "wave/SafetyLimiter.h"

namespace wave {

SafetyLimiter::SafetyLimiter(Environment* environment) : FilterBase(environment), detector(environment) {
    detector.purpose.setValue(Detector::kLimiter);
}

void SafetyLimiter::process(BasicBlock<float>* block, int32_t numSamples, int32_t) {
    const BasicBlock<float>* input = fetchInput(numSamples);
    float* gain = block->getData();
    detector.computeGainReduction(input->getData(), gain, numSamples, input->isConstant());
    for (int32_t i = 0; i < numSamples; ++i)
        gain[i] = 1.0f - gain[i];
}

} // namespace wave
