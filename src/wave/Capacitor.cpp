#include "wave/Capacitor.h"

#include <algorithm>
#include <cmath>

namespace wave {

namespace {

constexpr double kLn10 = 2.3025851;
constexpr double kExpLimit = 88.37626;
// Adding and removing this flushes a decaying state to zero before it turns denormal.
constexpr double kDenormalGuard = 1e-16;
// Slow enough for any envelope; also the scale of the adaptive smoothing of time changes.
constexpr float kLongestSeconds = 100.0f;

} // namespace

Capacitor::Capacitor(Environment* environment, float attackSeconds, float releaseSeconds)
    : Filter(environment), attackTime(environment, attackSeconds), releaseTime(environment, releaseSeconds) {
    for (FloatParameterSource* time : {&attackTime, &releaseTime})
        time->getParameter().setRange(0.0f, kLongestSeconds);
}

double Capacitor::coefficientFor(double seconds, double sampleRate) {
    // NaN and negative times count as 0: no smoothing.
    if (!(seconds > 0.0))
        return 1.0;
    const double exponent = std::clamp(-kLn10 / (sampleRate * seconds), -kExpLimit, kExpLimit);
    return 1.0 - std::exp(exponent);
}

void Capacitor::processFilter(const float* input, BasicBlock<float>* block, int32_t numSamples, int32_t) {
    processInPlace(input, block->getData(), numSamples);
}

void Capacitor::processInPlace(const float* input, float* output, int32_t numSamples) {
    const double rate = getEnvironment()->getSampleRate();
    if (rate != cachedRate) {
        cachedRate = rate;
        attack = {};
        release = {};
    }
    const float* attackSeconds = attackTime.fetch(numSamples)->getData();
    const float* releaseSeconds = releaseTime.fetch(numSamples)->getData();
    double y = state;
    int32_t count = sinceFlush;
    for (int32_t i = 0; i < numSamples; ++i) {
        const double x = input[i];
        const double c =
            x - y > 0.0 ? attack.get(attackSeconds[i], rate) : release.get(releaseSeconds[i], rate);
        y += (x - y) * c;
        output[i] = static_cast<float>(y);
        if (++count == 4) {
            count = 0;
            y = (y + kDenormalGuard) - kDenormalGuard;
        }
    }
    sinceFlush = count;
    // A NaN or infinite input would otherwise poison every later block.
    state = std::isfinite(y) ? y : 0.0;
}

} // namespace wave
