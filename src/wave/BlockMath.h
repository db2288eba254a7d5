#pragma once

#include "foundation/Numbers.h"
#include "wave/Producer.h"

#include <cmath>

namespace wave {

// The producer's block for this generation; an absent producer reads as the zero block.
inline BasicBlock<float>* fetchOrZero(Producer* producer, int32_t numSamples, Environment* environment) {
    return producer != nullptr ? producer->fetch(numSamples) : environment->getZeroBlock();
}

// Whether every sample of the block counts as equal to value, so that a fast path may stand in
// for the per-sample work.
inline bool isConstantAt(const BasicBlock<float>& block, float value) {
    return block.isConstant() && std::fabs(block.getData()[0] - value) <= kFloatEpsilon;
}

// out := in * gain, or out += in * gain when add is set. A null gain stands for unity; a constant
// gain is applied as a scalar and a constant gain of exactly 1 skips the multiplication. in may be
// out.
void applyGain(const float* in, const BasicBlock<float>* gain, float* out, int32_t numSamples, bool add);

} // namespace wave
