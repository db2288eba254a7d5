#pragma once

#include "wave/Delay.h"
#include "wave/FloatParameter.h"

#include <vector>

namespace wave {

// The maximum of |x| over the last hold-time window. Local peaks wait in a queue of decreasing
// values (a newer, larger peak makes older smaller ones irrelevant); inside a falling run the
// window's oldest sample is the maximum, which a delay line supplies. O(1) amortised per sample.
// The longest hold is reserved when the block is built, at the sample rate of that moment.
// Threading: audio thread only after construction; nothing allocates while processing.
class PeakHold : public Filter {
public:
    PeakHold(Environment* environment, float holdMs, float maxHoldMs);

    void processFilter(const float* input, BasicBlock<float>* block, int32_t numSamples,
                       int32_t flags) override;
    void reset() override;

    FloatParameterSource& getHoldTime() { return holdTime; }

private:
    struct Candidate {
        int64_t position;
        float value;
    };

    int32_t windowSamples(float holdMs) const;
    void insertCandidate(int64_t position, float value);
    void dropCandidatesBefore(int64_t oldestPosition);
    Candidate& candidateAt(int32_t offset) {
        return candidates[static_cast<size_t>((start + offset) & mask)];
    }

    FloatParameterSource holdTime;
    int32_t maxWindow;
    std::vector<Candidate> candidates;
    int32_t start = 0;
    int32_t count = 0;
    int32_t mask;
    Delay magnitudes;
    BasicBlock<float> delayed;
    BasicBlock<float> windowDelays;
    float lastMagnitude = 0.0f;
    bool falling = false;
    int64_t sampleCounter = 0;
};

} // namespace wave
