#pragma once

#include "foundation/Property.h"
#include "wave/Capacitor.h"
#include "wave/GainComputer.h"
#include "wave/SteadyStateSource.h"

namespace wave {

// A compressor-style detector: the level of its input in dB goes through the gain computer, the
// gain change is smoothed (attack while it grows, release while it shrinks), and the output is the
// gain reduction as a fraction: 0 for none, approaching 1 for full.
// Threading: audio thread only after construction (properties included); nothing allocates while
// processing.
class Detector : public FilterBase, public PropertyOwner, public SteadyStateSource {
public:
    // A limiter ignores the ratio: everything above the knee is pulled down to the threshold.
    enum Purpose : int32_t { kCompressor = 0, kLimiter = 1 };
    enum KneeStyle : int32_t { kSoftKnee = 0, kHardKnee = 1 };

    explicit Detector(Environment* environment);

    void process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
    void reset() override;
    bool isAtRest() const override { return smoother.isAtRest(); }
    bool isSteady() const override { return steady; }
    void propertyChanged(AbstractProperty& property) override;

    // For owners that drive the detector themselves; input and output may be the same array.
    void computeGainReduction(const float* input, float* output, int32_t numSamples, bool constantInput);

    Property<int32_t> purpose{kCompressor, this};
    Property<int32_t> kneeStyle{kSoftKnee, this};
    Property<float> thresholdDb{0.0f, this};
    Property<float> ratio{4.0f, this};
    Property<float> kneeDb{GainComputer::kDefaultKneeDb, this};
    Property<float> attackSeconds{0.001f, this};
    Property<float> releaseSeconds{0.1f, this};

private:
    void updateCurve();

    Capacitor smoother;
    float effectiveKneeDb = GainComputer::kDefaultKneeDb;
    float effectiveRatio = 4.0f;
    bool steady = false;
};

} // namespace wave
