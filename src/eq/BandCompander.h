#pragma once

#include "foundation/Property.h"
#include "wave/Capacitor.h"
#include "wave/FloatParameter.h"
#include "wave/NormalizerStub.h"

#include <array>

// Turns a band's detection signal into its momentary gain change in dB: the level (absolute, or
// relative to the signal's own running level in auto mode) goes through the soft-knee gain
// computer and then through three program-dependent smoothing stages. The output is 0 while the
// band rests and moves toward the range (its sign included) while the band acts.
//
// Threading: built under the frame's processing lock; properties, parameters and processing on the
// audio thread only. Nothing allocates after construction.
class BandCompander : public wave::Filter, public PropertyOwner {
public:
    // Seconds for 90 % of a step, per smoothing stage.
    struct TimeConstants {
        float stage1Release = 0.0f;
        float stage2Attack = 0.0f;
        float stage2Release = 0.0f;
        float stage3Attack = 0.0f;
        float stage3Release = 0.0f;
    };

    static constexpr int32_t kStages = 3;
    // In auto mode the level is measured against the signal's running mean magnitude; a steady tone
    // peaks 3.9 dB above it, so this threshold (with the default knee) leaves steady material alone
    // and catches what rises clearly above its surroundings.
    static constexpr float kAutoThresholdDb = 6.0f;
    // Times of the auto mode's envelope follower: slow enough to stand for the programme level.
    static constexpr float kEnvelopeAttackSeconds = 1.0f;
    static constexpr float kEnvelopeReleaseSeconds = 3.0f;
    static constexpr float kEnvelopeStartUpSeconds = 0.05f;
    static constexpr float kDefaultRatio = 2.0f;
    // The largest range a band can have, and so the largest limit.
    static constexpr float kLargestRangeDb = 30.0f;
    // Detector edges in log2 Hz: 20 Hz .. 30 kHz by default, limited to 1 Hz .. 2^20 Hz.
    static constexpr float kDefaultLowEdge = 4.321928f;
    static constexpr float kDefaultHighEdge = 14.872675f;

    explicit BandCompander(wave::Environment* environment);

    void process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
    void processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                       int32_t flags) override;
    void reset() override;
    void propertyChanged(AbstractProperty& property) override;
    // Lets the auto mode's envelope settle quickly after the detection signal changed.
    void restartNormalizer() { normalizer.restart(); }

    // The release knob's curve: a fraction 0..1 to its position on the time scale (sign kept).
    static double releaseCurve(double fraction);
    // Stage times for an attack value 0..50, a release value 0..70 and detector edges in log2 Hz.
    static TimeConstants timeConstantsFor(float attack, float release, float lowEdge, float highEdge);

    // Parameters read per sample: threshold (dB), knee width (dB), ratio (99.9999 or more is a
    // limiter) and limit (dB, the magnitude of the band's range).
    FloatParameterSource& getThreshold() { return threshold; }
    FloatParameterSource& getKnee() { return knee; }
    FloatParameterSource& getRatio() { return ratio; }
    FloatParameterSource& getLimit() { return limit; }
    wave::Capacitor& getStage(int32_t index) { return stages[static_cast<size_t>(index)]; }
    // A negative sign turns the output into a cut (the band's range is negative).
    void setRangeSign(float sign) { rangeSign = sign; }

    Property<bool> autoThreshold{false, this};
    Property<float> attack{25.0f, this};
    Property<float> release{35.0f, this};
    LimitedProperty<float> detectorLowEdge{kDefaultLowEdge, 0.0f, 20.0f, this};
    LimitedProperty<float> detectorHighEdge{kDefaultHighEdge, 0.0f, 20.0f, this};

private:
    // Fills level with the detection level in dB; returns whether every sample is the same.
    bool measureLevel(const float* input, float* level, int32_t numSamples);
    bool stagesRestAt(float value) const;
    void smooth(float* out, int32_t numSamples);
    void updateTimeConstants();

    FloatParameterSource threshold;
    FloatParameterSource knee;
    FloatParameterSource ratio;
    FloatParameterSource limit;
    std::array<wave::Capacitor, kStages> stages;
    wave::NormalizerStub normalizer;
    wave::BasicBlock<float> levels;
    wave::BasicBlock<float> scratch;
    float rangeSign = 1.0f;
    // Whether this block's input is constant; set by process before processFilter runs.
    bool inputConstant = false;
    int64_t expectedPosition = 0;
};
