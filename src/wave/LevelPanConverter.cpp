#include "wave/LevelPanConverter.h"

#include "wave/BlockMath.h"

#include <algorithm>

namespace wave {

void LevelPanConverter::processAll(float* const* outputs, int32_t numSamples) {
    BasicBlock<float>* levelBlock = fetchOrZero(level, numSamples, getEnvironment());
    BasicBlock<float>* panBlock = fetchOrZero(pan, numSamples, getEnvironment());
    const float* g = levelBlock->getData();
    const float* p = panBlock->getData();
    const float sign = invert ? -1.0f : 1.0f;
    const bool constant = levelBlock->isConstant() && panBlock->isConstant();

    if (isConstantAt(*panBlock, 0.0f)) {
        // Centred: both sides carry the level itself, or one shared negated copy of it.
        if (!invert) {
            forwardOutput(0, levelBlock);
            forwardOutput(1, levelBlock);
            return;
        }
        float* negated = outputs[0];
        for (int32_t i = 0; i < numSamples; ++i)
            negated[i] = -g[i];
        getOutputBlock(0)->setConstant(constant);
        forwardOutput(1, getOutputBlock(0));
        return;
    }

    float* left = outputs[0];
    float* right = outputs[1];
    for (int32_t i = 0; i < numSamples; ++i) {
        const float gain = sign * g[i];
        left[i] = gain * balanceGainLeft(p[i]);
        right[i] = gain * balanceGainRight(p[i]);
    }
    getOutputBlock(0)->setConstant(constant);
    getOutputBlock(1)->setConstant(constant);
}

} // namespace wave
