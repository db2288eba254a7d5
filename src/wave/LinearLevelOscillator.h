#pragma once

#include "wave/Capacitor.h"
#include "wave/FloatParameter.h"
#include "wave/Input.h"
#include "wave/WaveShaper.h"

// The per-sample level for the linear-level tanh curve. The input, scaled by the gain and clamped
// to [-2, 2], runs through an analysis chain that follows its level: a peak follower (fast attack,
// slow release) and a smoother that takes the ripple off. The envelope e becomes the level
// 0.5 b - 0.49 b PolynomeOrder2(e / 4): the louder the signal, the lower the level at which the
// curve starts to bend (0.5 b in silence, 0.01 b from e = 4). With mapping switched off the output
// is e itself; with b = 0 the oscillator passes its input through.
//
// Threading: built off the audio thread; then audio thread only. Nothing allocates while
// processing.
class WaveShaper::LinearLevelOscillator : public wave::Filter {
public:
    static constexpr float kAttackSeconds = 0.002f;
    static constexpr float kReleaseSeconds = 0.15f;
    static constexpr float kSmoothingSeconds = 0.02f;

    LinearLevelOscillator(wave::Environment* environment, float b);

    void process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
    void processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                       int32_t flags) override;
    void reset() override;
    bool isAtRest() const override { return follower.isAtRest() && smoother.isAtRest(); }

    void setB(float value) { b = value; }
    float getB() const { return b; }
    FloatParameter& getGain() { return gain; }
    void setMapsToLevel(bool value) { mapsToLevel = value; }
    bool getMapsToLevel() const { return mapsToLevel; }

private:
    bool isPassThrough() const;

    float b;
    FloatParameter gain;
    // The analysis chain: the oscillator writes into the source, the smoother's block is e.
    wave::Input source;
    wave::Capacitor follower;
    wave::Capacitor smoother;
    bool mapsToLevel = true;
};
