#include "eq/KernelStage.h"

#include "eq/Convolver.h"

#include <algorithm>

KernelStage::KernelStage(wave::Environment* environment) : wave::Filter(environment) {
    joinResets();
}

void KernelStage::processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                                int32_t) {
    block->setConstant(false);
    if (convolver != nullptr)
        convolver->process(input, block->getData(), numSamples);
    else
        std::copy_n(input, numSamples, block->getData());
}

void KernelStage::reset() {
    if (convolver != nullptr)
        convolver->reset();
}

bool KernelStage::isAtRest() const {
    return convolver == nullptr || convolver->isAtRest();
}
