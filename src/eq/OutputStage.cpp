#include "eq/OutputStage.h"

#include "wave/BlockMath.h"
#include "wave/LevelPanConverter.h"

#include <algorithm>

namespace {

constexpr float kSmoothingMs = 20.0f;
constexpr float kSwitchFadeMs = 10.0f;

} // namespace

OutputStage::OutputStage(wave::Environment* environment, int32_t numChannels)
    : MultiProducer(environment, std::clamp(numChannels, 1, 2)), level(environment, 1.0f),
      makeUp(environment, 1.0f), pan(environment, 0.0f), midSideAmount(environment, 0.0f),
      polarity(environment, 1.0f), switchGain(environment, 1.0f) {
    level.setRange(0.0f, 64.0f);
    makeUp.setRange(0.0f, 64.0f);
    pan.setRange(-1.0f, 1.0f);
    midSideAmount.setRange(0.0f, 1.0f);
    polarity.setRange(-1.0f, 1.0f);
    switchGain.setRange(0.0f, 1.0f);
    for (FloatParameter* control : {&level, &makeUp, &pan, &midSideAmount, &polarity}) {
        control->minimumSmoothingTime.setValue(kSmoothingMs);
        control->maximumSmoothingTime.setValue(kSmoothingMs);
    }
    switchGain.minimumSmoothingTime.setValue(kSwitchFadeMs);
    switchGain.maximumSmoothingTime.setValue(kSwitchFadeMs);
}

void OutputStage::jumpToTargets() {
    for (FloatParameter* control : {&level, &makeUp, &pan, &midSideAmount, &polarity, &switchGain})
        control->jumpTo(control->getTarget());
}

void OutputStage::processAll(float* const* outputs, int32_t numSamples) {
    const float* left = wave::fetchOrZero(inputs[0], numSamples, getEnvironment())->getData();
    if (getNumOutputs() == 1) {
        const float* g = level.getValueBlockAt(numSamples).getData();
        const float* m = makeUp.getValueBlockAt(numSamples).getData();
        const float* p = polarity.getValueBlockAt(numSamples).getData();
        const float* s = switchGain.getValueBlockAt(numSamples).getData();
        for (int32_t i = 0; i < numSamples; ++i)
            outputs[0][i] = left[i] * g[i] * m[i] * p[i] * s[i];
        return;
    }
    const float* right = wave::fetchOrZero(inputs[1], numSamples, getEnvironment())->getData();
    processPair(left, right, outputs[0], outputs[1], numSamples);
}

void OutputStage::processPair(const float* left, const float* right, float* outLeft, float* outRight,
                              int32_t numSamples) {
    const float* g = level.getValueBlockAt(numSamples).getData();
    const float* m = makeUp.getValueBlockAt(numSamples).getData();
    const float* p = polarity.getValueBlockAt(numSamples).getData();
    const float* s = switchGain.getValueBlockAt(numSamples).getData();
    const float* position = pan.getValueBlockAt(numSamples).getData();
    const float* amount = midSideAmount.getValueBlockAt(numSamples).getData();
    for (int32_t i = 0; i < numSamples; ++i) {
        const float gain = g[i] * m[i] * p[i] * s[i];
        const float a = wave::balanceGainLeft(position[i]);
        const float b = wave::balanceGainRight(position[i]);
        // Left/right balance, and the same law on mid and side (decoded back to left/right).
        const float balancedLeft = left[i] * a;
        const float balancedRight = right[i] * b;
        const float mid = 0.5f * (left[i] + right[i]) * a;
        const float side = 0.5f * (right[i] - left[i]) * b;
        const float w = amount[i];
        outLeft[i] = gain * (balancedLeft + (mid - side - balancedLeft) * w);
        outRight[i] = gain * (balancedRight + (mid + side - balancedRight) * w);
    }
}
