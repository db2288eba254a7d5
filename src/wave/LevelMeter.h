#pragma once

#include "foundation/IntervalTimer.h"
#include "foundation/Property.h"
#include "wave/LevelHandOver.h"
#include "wave/LevelSource.h"
#include "wave/Producer.h"

#include <atomic>
#include <memory>

namespace wave {

// A meter in the signal path: passes its input on unchanged, measures each block's level on the
// audio thread and hands it to the display thread, which keeps a held peak with accelerating
// fall-off and the maximum peak. Blocks the display has not collected yet are merged, so no peak
// is lost between two display updates.
// Threading: process runs on the audio thread; getLevelInfo and the settings belong to the
// reading thread. The two meet only in the lock-free hand-over and two atomics.
class LevelMeter : public FilterBase, public LevelSource, public PropertyOwner {
public:
    enum LevelDomain : int32_t { kRaw = 0, kAmplitude = 1, kPower = 2 };

    // Without a time provider the meter uses the monotonic clock.
    explicit LevelMeter(Environment* environment, std::unique_ptr<IntervalTimer> timeProvider = nullptr);

    void process(BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;

    Info getLevelInfo() override;
    Detection getDetection() const override;
    void propertyChanged(AbstractProperty& property) override;

    // 1 when a lower value means more (gain reduction).
    void setDirection(int32_t value);
    void setClampRange(float minimumValue, float maximumValue);
    void setHold(int32_t samples, float fall) {
        holdSamples = samples;
        fallPerSample = fall;
    }
    void resetMaximumPeak() { maximumPeak = floorValue(); }

    Property<LevelDomain> levelDomain{kAmplitude, this};
    Property<bool> displayInDb{true, this};

private:
    // The value shown at rest: the least "more" end of the clamp range.
    float floorValue() const { return direction == 1 ? maximum : minimum; }
    bool isMore(float value, float than) const { return direction == 1 ? value < than : value > than; }
    float clampValue(float value) const;
    void restartDisplay();
    float blockLevel(const BasicBlock<float>& block, int32_t numSamples) const;
    LevelHandOver::Record merge(const LevelHandOver::Record& older, const LevelHandOver::Record& newer) const;
    float displayValue(const LevelHandOver::Record& record) const;
    void advancePeak(float value, int32_t elapsedSamples);

    // Audio-thread view of the settings.
    std::atomic<int32_t> audioDomain{kAmplitude};
    std::atomic<int32_t> audioDirection{0};
    std::atomic<float> sampleRate;
    LevelHandOver handOver;

    // Reading-thread state.
    std::unique_ptr<IntervalTimer> timeProvider;
    int32_t lastReadMs = 0;
    int32_t direction = 0;
    float minimum = -180.0f;
    float maximum = 24.0f;
    float current;
    float held;
    int32_t heldAge = 0;
    int32_t holdSamples = 0;
    float fallPerSample = 0.0f;
    float maximumPeak;
};

} // namespace wave
