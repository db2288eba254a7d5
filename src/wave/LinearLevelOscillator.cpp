#include "wave/LinearLevelOscillator.h"

#include "foundation/Numbers.h"
#include "wave/ShaperLaws.h"

#include <algorithm>
#include <cmath>

WaveShaper::LinearLevelOscillator::LinearLevelOscillator(wave::Environment* environment, float b)
    : wave::Filter(environment), b(b), gain(environment, 1.0f), source(environment),
      follower(environment, kAttackSeconds, kReleaseSeconds),
      smoother(environment, kSmoothingSeconds, kSmoothingSeconds) {
    gain.setRange(0.0f, 1000.0f);
    follower.setInput(&source);
    smoother.setInput(&follower);
}

bool WaveShaper::LinearLevelOscillator::isPassThrough() const {
    return std::fabs(b) <= kFloatEpsilon;
}

void WaveShaper::LinearLevelOscillator::process(wave::BasicBlock<float>* block, int32_t numSamples,
                                                int32_t flags) {
    wave::BasicBlock<float>* in = fetchInput(numSamples);
    if (isPassThrough()) {
        setCurrentBlock(in);
        return;
    }
    processFilter(in->getData(), block, numSamples, flags);
}

void WaveShaper::LinearLevelOscillator::processFilter(const float* input, wave::BasicBlock<float>* block,
                                                      int32_t numSamples, int32_t) {
    float* out = block->getData();
    const FloatParameter::ValueBlock& gains = gain.getValueBlockAt(numSamples);
    const float* g = gains.getData();
    const bool unity = gains.isConstant() && std::fabs(g[0] - 1.0f) <= kFloatEpsilon;
    // The follower sees the clamped magnitude: the chain follows the level, not the waveform. NaN
    // counts as the loudest input, so that it never reaches the chain's state.
    for (int32_t i = 0; i < numSamples; ++i) {
        const float scaled = unity ? input[i] : input[i] * (gains.isConstant() ? g[0] : g[i]);
        const float magnitude = std::fabs(scaled);
        out[i] = magnitude < 2.0f ? magnitude : 2.0f;
    }
    source.setData(out, numSamples);
    const float* envelope = smoother.fetch(numSamples)->getData();
    if (!mapsToLevel) {
        std::copy_n(envelope, numSamples, out);
    } else {
        for (int32_t i = 0; i < numSamples; ++i)
            out[i] = b * (0.5f - 0.49f * shaper_laws::polynomeOrder2OfPositive(0.25f * envelope[i]));
    }
    block->setConstant(false);
}

void WaveShaper::LinearLevelOscillator::reset() {
    follower.reset();
    smoother.reset();
}
