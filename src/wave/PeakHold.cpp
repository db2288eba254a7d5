#include "wave/PeakHold.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace wave {

namespace {

int32_t ringSizeFor(int32_t maxWindow) {
    // Local peaks are at least two samples apart, and the window holds maxWindow + 1 samples.
    return static_cast<int32_t>(std::bit_ceil(static_cast<uint32_t>(maxWindow / 2 + 2)));
}

} // namespace

PeakHold::PeakHold(Environment* environment, float holdMs, float maxHoldMs)
    : Filter(environment), holdTime(environment, holdMs),
      maxWindow(std::max(Environment::msToSamples(maxHoldMs, environment->getSampleRate()), 1)),
      candidates(static_cast<size_t>(ringSizeFor(maxWindow))), mask(ringSizeFor(maxWindow) - 1),
      magnitudes(environment, maxWindow), delayed(environment), windowDelays(environment) {}

int32_t PeakHold::windowSamples(float holdMs) const {
    const double samples = static_cast<double>(holdMs) * getEnvironment()->getSampleRate() / 1000.0;
    // Truncated; NaN and negative times give an empty window, long ones the longest there is room for.
    return samples > 0.0 ? static_cast<int32_t>(std::min(samples, static_cast<double>(maxWindow))) : 0;
}

void PeakHold::insertCandidate(int64_t position, float value) {
    // Values decrease from the oldest; keep those larger than the new one.
    int32_t low = 0;
    int32_t high = count;
    while (low < high) {
        const int32_t middle = (low + high) / 2;
        if (candidateAt(middle).value > value)
            low = middle + 1;
        else
            high = middle;
    }
    count = low;
    if (count == mask + 1) {
        start = (start + 1) & mask;
        --count;
    }
    candidateAt(count) = {position, value};
    ++count;
}

void PeakHold::dropCandidatesBefore(int64_t oldestPosition) {
    while (count > 0 && candidateAt(0).position < oldestPosition) {
        start = (start + 1) & mask;
        --count;
    }
}

void PeakHold::processFilter(const float* input, BasicBlock<float>* block, int32_t numSamples, int32_t) {
    BasicBlock<float>* holdBlock = holdTime.fetch(numSamples);
    const float* holdMs = holdBlock->getData();
    float* out = block->getData();
    for (int32_t i = 0; i < numSamples; ++i)
        out[i] = std::fabs(input[i]);
    magnitudes.write(out, numSamples);
    // The window's oldest sample, W samples back. Whole-sample delays read exactly, and unlike a
    // block read they tell written samples from unwritten ones sample by sample.
    float* delays = windowDelays.getData();
    if (holdBlock->isConstant())
        std::fill_n(delays, numSamples, static_cast<float>(windowSamples(holdMs[0])));
    else
        for (int32_t i = 0; i < numSamples; ++i)
            delays[i] = static_cast<float>(windowSamples(holdMs[i]));
    magnitudes.readFractional(delays, delayed.getData(), numSamples);
    const float* oldest = delayed.getData();
    for (int32_t i = 0; i < numSamples; ++i, ++sampleCounter) {
        const float v = out[i];
        if (v < lastMagnitude && !falling)
            insertCandidate(sampleCounter - 1, lastMagnitude);
        if (v < lastMagnitude)
            falling = true;
        else if (v > lastMagnitude)
            falling = false;
        lastMagnitude = v;
        dropCandidatesBefore(sampleCounter - windowSamples(holdMs[i]));
        const float held = count > 0 ? candidateAt(0).value : 0.0f;
        out[i] = std::max({held, v, oldest[i]});
    }
}

void PeakHold::reset() {
    start = 0;
    count = 0;
    magnitudes.reset();
    lastMagnitude = 0.0f;
    falling = false;
}

} // namespace wave
