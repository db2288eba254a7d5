#include "wave/MidSideConverter.h"

#include "wave/BlockMath.h"

namespace wave {

void MidSideConverter::processAll(float* const* outputs, int32_t numSamples) {
    BasicBlock<float>* first = fetchOrZero(firstInput, numSamples, getEnvironment());
    BasicBlock<float>* second = fetchOrZero(secondInput, numSamples, getEnvironment());
    if (conversion.getValue() == kPassThrough) {
        forwardOutput(0, first);
        forwardOutput(1, second);
        return;
    }

    const float* a = first->getData();
    const float* b = second->getData();
    float* out0 = outputs[0];
    float* out1 = outputs[1];
    if (conversion.getValue() == kEncode) {
        for (int32_t i = 0; i < numSamples; ++i) {
            const float halfDifference = (b[i] - a[i]) * 0.5f;
            out0[i] = a[i] + halfDifference;
            out1[i] = halfDifference;
        }
    } else {
        for (int32_t i = 0; i < numSamples; ++i) {
            const float mid = a[i];
            const float side = b[i];
            out0[i] = mid - side;
            out1[i] = mid + side;
        }
    }
    const bool constant = first->isConstant() && second->isConstant();
    getOutputBlock(0)->setConstant(constant);
    getOutputBlock(1)->setConstant(constant);
}

} // namespace wave
