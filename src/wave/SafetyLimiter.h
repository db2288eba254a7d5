#pragma once

#include "wave/Detector.h"

namespace wave {

// Guards an output against overs: its output is the gain to apply, 1 minus the gain reduction of
// a limiting detector that listens to its input.
// Threading: audio thread only after construction; nothing allocates while processing.
class SafetyLimiter : public FilterBase {
public:
    explicit SafetyLimiter(Environment* environment);

    void process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
    void reset() override { detector.reset(); }
    bool isAtRest() const override { return detector.isAtRest(); }

    void setThreshold(float db) { detector.thresholdDb.setValue(db); }
    void setKnee(float db) { detector.kneeDb.setValue(db); }
    void setAttack(float seconds) { detector.attackSeconds.setValue(seconds); }
    void setRelease(float seconds) { detector.releaseSeconds.setValue(seconds); }

    const Detector& getDetector() const { return detector; }

private:
    Detector detector;
};

} // namespace wave
