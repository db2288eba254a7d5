#pragma once

#include "wave/sr/ConverterStyleBase.h"

#include <array>

namespace sr {

// The minimum-phase style: a cascade of doubling stages, each a half-band filter made of two
// chains of first-order allpass sections in z^2 (an elliptic design, so the stop band is equiripple
// for the least number of sections). The first stage, nearest the base rate, has the narrowest
// transition; the stages above it only have to keep their images away from the band below.
class IIRConverterStyle : public ConverterStyleBase {
public:
    static constexpr int32_t kMaximumStages = 5;
    // (13 - 1) / 2: the highest order of any stage.
    static constexpr int32_t kMaximumCoefficients = 6;
    // Rates up to this may still be doubled.
    static constexpr double kHighestRate = 1536001.0;

    // One doubling stage: its allpass coefficients, smallest first, so that the even ones form the
    // path that takes the undelayed samples.
    struct Stage {
        std::array<float, kMaximumCoefficients> coefficients{};
        int32_t count = 0;
    };

    IIRConverterStyle(wave::Environment& environment, int32_t factor = 2);

    int32_t getFactor() const override { return 1 << numStages; }
    int32_t getLatency() const override { return latency; }
    std::unique_ptr<ConverterBase> createInterpolator() override;
    std::unique_ptr<ConverterBase> createDecimator() override;
    void refresh() override;

    int32_t getNumStages() const { return numStages; }
    // Stages count from the base rate upwards.
    const Stage& getStage(int32_t index) const { return stages[static_cast<size_t>(index)]; }

    // The coefficients of a half-band allpass pair for the pass band edge w (radians at the doubled
    // rate) and the odd order, smallest first; returns their count.
    static int32_t designHalfBand(double w, int32_t order, float* coefficients);
    // The doubling stages for a factor at a rate, and the delay they add up and down again.
    static int32_t stagesFor(int32_t factor, double sampleRate);
    static int32_t latencyFor(int32_t factor, double sampleRate);

private:
    void design();

    int32_t requestedFactor;
    int32_t numStages = 0;
    int32_t latency = 0;
    std::array<Stage, kMaximumStages> stages{};
};

} // namespace sr
