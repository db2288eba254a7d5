#include "wave/Detector.h"

#include "foundation/Numbers.h"
#include "wave/FastLevel.h"

#include <algorithm>
#include <cmath>

namespace wave {

namespace {

// No limit on the gain change: the curve alone decides.
constexpr float kUnlimitedDb = 1000.0f;

} // namespace

Detector::Detector(Environment* environment) : FilterBase(environment), smoother(environment) {
    smoother.getAttackTime().getParameter().jumpTo(attackSeconds);
    smoother.getReleaseTime().getParameter().jumpTo(releaseSeconds);
}

void Detector::updateCurve() {
    effectiveKneeDb = kneeStyle == kHardKnee ? 0.0f : kneeDb.getValue();
    effectiveRatio = purpose == kLimiter ? GainComputer::kInfiniteRatio : ratio.getValue();
}

void Detector::propertyChanged(AbstractProperty& property) {
    if (&property == &attackSeconds)
        smoother.getAttackTime().getParameter().jumpTo(attackSeconds);
    else if (&property == &releaseSeconds)
        smoother.getReleaseTime().getParameter().jumpTo(releaseSeconds);
    else
        updateCurve();
}

void Detector::reset() {
    smoother.reset();
    steady = false;
}

void Detector::process(BasicBlock<float>* block, int32_t numSamples, int32_t) {
    const BasicBlock<float>* input = fetchInput(numSamples);
    computeGainReduction(input->getData(), block->getData(), numSamples, input->isConstant());
}

void Detector::computeGainReduction(const float* input, float* output, int32_t numSamples,
                                    bool constantInput) {
    if (numSamples <= 0)
        return;
    if (output != input)
        std::copy_n(input, numSamples, output);
    amplitudeToDb(output, numSamples);
    for (int32_t i = 0; i < numSamples; ++i)
        output[i] =
            GainComputer::gainChangeDb(output[i], thresholdDb, effectiveKneeDb, effectiveRatio, kUnlimitedDb);
    const float target = output[numSamples - 1];
    smoother.processInPlace(output, output, numSamples);
    steady = constantInput && std::fabs(smoother.getState() - target) <= kFloatEpsilon;
    for (int32_t i = 0; i < numSamples; ++i)
        output[i] = -output[i];
    dbToAmplitude(output, numSamples);
    for (int32_t i = 0; i < numSamples; ++i)
        output[i] = 1.0f - output[i];
}

} // namespace wave
