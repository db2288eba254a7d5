#include "wave/FloatParameter.h"

#include "foundation/Numbers.h"

#include <algorithm>
#include <cmath>

void FloatParameter::ValueBlock::maxBlockSizeChanged(int32_t maxBlockSize) {
    wave::BasicBlock<float>::maxBlockSizeChanged(maxBlockSize);
    owner.filled = 0;
}

FloatParameter::FloatParameter(wave::Environment* environment, float initial)
    : environment(environment), valueBlock(environment, *this), maximum(std::max(initial, 1.0f)),
      minimum(std::min(initial, 0.0f)), range(maximum - minimum) {
    target = clamp(initial);
    rampStart = target;
}

float FloatParameter::clamp(float value) const {
    return std::clamp(value, minimum, maximum);
}

bool FloatParameter::isLive() const {
    return environment->getPositionAtLastReset() < position && environment->getPosition() == position;
}

void FloatParameter::jump(float value) {
    target = value;
    rampStart = value;
    done = filled = rampLength = 0;
    increment = 0.0f;
}

void FloatParameter::jumpTo(float value) {
    if (std::isnan(value))
        return;
    jump(clamp(value));
}

void FloatParameter::setRange(float newMinimum, float newMaximum, float newRange) {
    minimum = newMinimum;
    maximum = newMaximum;
    range = newRange > 0.0f ? newRange : maximum - minimum;
    const float clamped = clamp(target);
    if (clamped != target)
        jump(clamped);
}

float FloatParameter::adaptiveTimeMs(float change) const {
    const float t = std::max(0.0f, 0.3f - std::fabs(change) / range) / 0.3f;
    return (maximumSmoothingTime.getValue() - minimumSmoothingTime.getValue()) * t * t +
           minimumSmoothingTime.getValue();
}

void FloatParameter::setValue(float value, float timeMs) {
    // A NaN target would poison every value the ramp delivers; keep the last good one.
    if (std::isnan(value))
        return;
    const float v = clamp(value);
    if (std::fabs(v - target) <= kFloatEpsilon)
        return;
    const bool live = isLive();
    position = environment->getPosition();

    float start = target;
    if (done < rampLength && live)
        start = rampStart + static_cast<float>(done) * increment;
    done = filled = 0;

    const float period = wrapPeriod.getValue();
    if (period > 0.0f) {
        // Fold the distance on the circle into half a period either way.
        const auto fraction = [](double x) { return x - std::floor(x); };
        double d = fraction(static_cast<double>(v) / period) - fraction(static_cast<double>(start) / period);
        if (d < -0.5)
            d += 1.0;
        else if (d > 0.5)
            d -= 1.0;
        start = clamp(static_cast<float>(v - period * d));
    }
    rampStart = start;

    const float time = timeMs < 0.0f && live ? adaptiveTimeMs(v - start) : std::max(timeMs, 0.0f);
    // Milliseconds become seconds before the rate multiplies: 145 ms at 48 kHz is 6959 samples.
    rampLength = static_cast<int32_t>(static_cast<double>(time) * 0.001 * environment->getSampleRate());
    increment = rampLength >= 1 ? (v - start) / static_cast<float>(rampLength) : 0.0f;
    target = v;
}

FloatParameter::ValueBlock& FloatParameter::getValueBlock(int32_t numSamples) {
    float* data = valueBlock.getData();
    if (done < rampLength) {
        valueBlock.setConstant(false);
        const int32_t count = std::min(numSamples, rampLength - done);
        float value = rampStart + static_cast<float>(done) * increment;
        for (int32_t i = 0; i < count; ++i) {
            data[i] = value;
            value += increment;
        }
        done += count;
        std::fill(data + count, data + numSamples, target);
        return valueBlock;
    }
    valueBlock.setConstant(true);
    if (filled < numSamples)
        std::fill(data + filled, data + numSamples, target);
    filled = numSamples;
    return valueBlock;
}

FloatParameter::ValueBlock& FloatParameter::getValueBlockAt(int32_t numSamples) {
    if (isLive()) {
        position += numSamples;
        return getValueBlock(numSamples);
    }
    const int64_t environmentPosition = environment->getPosition();
    const int64_t rest = rampLength - done;
    const int64_t skip = position <= environment->getPositionAtLastReset()
                             ? rest
                             : std::clamp<int64_t>(environmentPosition - position, 0, rest);
    done += static_cast<int32_t>(skip);
    position = environmentPosition + numSamples;
    return getValueBlock(numSamples);
}

void FloatParameterSource::process(wave::BasicBlock<float>*, int32_t numSamples, int32_t) {
    setCurrentBlock(&parameter.getValueBlockAt(numSamples));
}

void FloatParameterBus::setValue(float value) {
    for (auto* target : targets)
        target->setValue(value);
}
