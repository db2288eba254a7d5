#pragma once

#include "wave/FloatParameter.h"
#include "wave/Producer.h"

namespace wave {

// One-pole attack/release smoother. Times are seconds to cover 90 % of a step, read per sample
// from their parameter blocks; rising input uses the attack time, falling input the release time,
// and a time of 0 passes the input through.
// Threading: audio thread only after construction; nothing allocates while processing.
class Capacitor : public Filter {
public:
    Capacitor(Environment* environment, float attackSeconds = 0.0f, float releaseSeconds = 0.0f);

    void processFilter(const float* input, BasicBlock<float>* block, int32_t numSamples,
                       int32_t flags) override;
    void reset() override { state = 0.0; }
    bool isAtRest() const override { return state == 0.0; }

    // For owners that drive the smoother themselves; input and output may be the same array.
    void processInPlace(const float* input, float* output, int32_t numSamples);

    FloatParameterSource& getAttackTime() { return attackTime; }
    FloatParameterSource& getReleaseTime() { return releaseTime; }
    double getState() const { return state; }
    void setState(double value) { state = value; }

    // 1 - exp(-ln 10 / (rate * seconds)): the per-sample step that covers 90 % in that time.
    static double coefficientFor(double seconds, double sampleRate);

private:
    // A time and its coefficient, recomputed only when the time changes.
    struct CachedCoefficient {
        float seconds = -1.0f;
        double coefficient = 1.0;

        double get(float newSeconds, double sampleRate) {
            if (newSeconds != seconds) {
                seconds = newSeconds;
                coefficient = coefficientFor(newSeconds, sampleRate);
            }
            return coefficient;
        }
    };

    FloatParameterSource attackTime;
    FloatParameterSource releaseTime;
    CachedCoefficient attack;
    CachedCoefficient release;
    double cachedRate = 0.0;
    double state = 0.0;
    // Samples since the last denormal flush; counted across blocks so that short blocks flush too.
    int32_t sinceFlush = 0;
};

} // namespace wave
