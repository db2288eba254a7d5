#include "wave/VolumeFilter.h"

#include "wave/BlockMath.h"

namespace wave {

const BasicBlock<float>* VolumeFilter::scalingGain(int32_t numSamples) const {
    if (gain == nullptr)
        return nullptr;
    const BasicBlock<float>* block = gain->fetch(numSamples);
    return isConstantAt(*block, 1.0f) ? nullptr : block;
}

void VolumeFilter::process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) {
    BasicBlock<float>* in = fetchInput(numSamples);
    if (gain != nullptr && isConstantAt(*gain->fetch(numSamples), 0.0f)) {
        setCurrentBlock(getEnvironment()->getZeroBlock());
        return;
    }
    const BasicBlock<float>* first = scalingGain(numSamples);
    if (first == nullptr && secondGain == nullptr) {
        setCurrentBlock(in);
        return;
    }
    processFilter(in->getData(), block, numSamples, flags);
    block->setConstant(in->isConstant() && (first == nullptr || first->isConstant()) &&
                       (secondGain == nullptr || secondGain->fetch(numSamples)->isConstant()));
}

void VolumeFilter::processFilter(const float* input, BasicBlock<float>* block, int32_t numSamples, int32_t) {
    float* out = block->getData();
    const BasicBlock<float>* first = scalingGain(numSamples);
    const BasicBlock<float>* second = secondGain != nullptr ? secondGain->fetch(numSamples) : nullptr;
    if (first == nullptr) {
        applyGain(input, second, out, numSamples, false);
        return;
    }
    applyGain(input, first, out, numSamples, false);
    if (second != nullptr)
        applyGain(out, second, out, numSamples, false);
}

} // namespace wave
