#include "wave/NormalizerStub.h"

#include "wave/FastLevel.h"

#include <algorithm>
#include <cmath>

namespace wave {

NormalizerStub::NormalizerStub(Environment* environment)
    : environment(environment), slowFollower(environment), fastFollower(environment), magnitudes(environment),
      envelopes(environment) {}

void NormalizerStub::process(const float* input, float* output, int32_t numSamples, bool constantInput) {
    silent =
        constantInput && std::fabs(input[0]) <= kEnvelopeFloor && slowFollower.getState() <= kEnvelopeFloor;
    if (silent) {
        const float ratio = std::fabs(input[0]) / kEnvelopeFloor;
        std::fill_n(output, numSamples, outputInDb ? fastAmplitudeToDb(ratio) : ratio);
    } else {
        float* magnitude = magnitudes.getData();
        float* envelope = envelopes.getData();
        for (int32_t i = 0; i < numSamples; ++i)
            magnitude[i] = std::fabs(input[i]);
        slowFollower.processInPlace(magnitude, envelope, numSamples);
        // Only the fast follower's state matters; its output may overwrite the magnitudes.
        if (startUpCountdown > 0)
            fastFollower.processInPlace(magnitude, magnitude, numSamples);
        for (int32_t i = 0; i < numSamples; ++i)
            output[i] = input[i] / std::max(envelope[i], kEnvelopeFloor);
        if (outputInDb)
            amplitudeToDb(output, numSamples);
    }
    if (startUpCountdown > 0) {
        startUpCountdown -= numSamples;
        if (startUpCountdown <= 0) {
            startUpCountdown = 0;
            slowFollower.setState(fastFollower.getState());
        }
    }
}

void NormalizerStub::restart() {
    if (startUpCountdown > 0 || slowFollower.getState() <= kEnvelopeFloor)
        return;
    fastFollower.reset();
    startUpCountdown = environment->msToSamples(kStartUpMs);
}

void NormalizerStub::reset() {
    slowFollower.reset();
    fastFollower.reset();
    startUpCountdown = 0;
    silent = false;
}

} // namespace wave
