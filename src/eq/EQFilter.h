#pragma once

#include "eq/BiquadFilter.h"
#include "eq/EQBandDesign.h"
#include "eq/MatchedSectionDesign.h"
#include "plugin/eq/EQTypes.h"

class FloatParameter;

// One EQ band as a running biquad cascade: turns the band's live frequency, gain and Q into
// coefficient segments. Redesigns are throttled to a 4-sample grid (frequency moves beyond 0.1
// octave) and a 32-sample grid (any frequency or Q change); gain automation interpolates between two
// designs 1 dB apart instead of redesigning every sample.
//
// Threading: audio thread only, like BiquadFilter. Properties are set by the parameter system on the
// audio thread between processing calls. No locks; nothing allocates after construction.
class EQFilter : public BiquadFilter {
public:
    using CoefficientCalculation = ::CoefficientCalculation;
    using Slope = SlopePosition;

    // Bit of the flags: fractional slopes are designed as they are, otherwise rounded.
    static constexpr int32_t kFractionalSlopes = 1 << 2;
    static constexpr float kMinimumFrequencyLog2 = 0.0f;  // 1 Hz
    static constexpr float kMaximumFrequencyLog2 = 20.0f; // 2^20 Hz
    static constexpr float kDefaultFrequencyLog2 = 10.0f; // 1024 Hz
    static constexpr double kMaximumTanArgument = 3.1315928;
    static constexpr double kDefaultSecondFrequency = 640.0;

    explicit EQFilter(wave::Environment* environment);

    // Slope value to dB/oct: below -1 gives 0, beyond the 96 dB/oct end of the table gives 100.
    static double slopeValueToDbPerOctave(float value);
    // dB/oct to slope value: 0 or less gives -1, above 96 gives 9 ("Brickwall").
    static float dbPerOctaveToSlopeValue(double dbPerOctave);

    // One value for the whole processing call (frequency as log2 of Hz, gain in dB, Q).
    void setFrequency(float log2Hz) { frequency.setConstant(log2Hz); }
    void setGain(float db) { gain.setConstant(db); }
    void setQ(float value) { q.setConstant(value); }
    // Per-sample values for the next processing call; null keeps the constant.
    void setParameterBlocks(const float* frequencies, const float* gains, const float* qs);
    // Parameters read block by block in processFilter; null leaves that parameter alone.
    void connectParameters(FloatParameter* frequencyParameter, FloatParameter* gainParameter,
                           FloatParameter* qParameter);
    // Flat Tilt's pivot, in Hz.
    void setSecondFrequency(double hz) { secondFrequency = hz; }

    void processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                       int32_t flags) override;
    void reset() override;
    void updateCoefficients(int32_t offset, int32_t numSamples) override;
    void clearLink() override;
    void propertyChanged(AbstractProperty& property) override;

    // The slope the design uses (rounded unless fractional slopes are allowed).
    float getDesignSlope() const { return designSlope; }
    float getLowerBracket() const { return lowerGain; }
    float getUpperBracket() const { return upperGain; }
    bool isInterpolating() const { return interpolating; }
    // Radians per sample of the last redesign.
    float getAngularFrequency() const { return w0; }
    // Section designs made since construction (full redesigns and bracket designs).
    int64_t getDesignCount() const { return designCount; }

    Property<FilterShape> shape{FilterShape::Bell, this};
    Property<float> slope{1.0f, this};
    // The band's gain is modulated per sample (a dynamic band).
    Property<bool> dynamic{false, this};
    Property<CoefficientCalculation> coefficientCalculation{CoefficientCalculation::MatchedMagnitude, this};
    Property<int32_t> flags{0, this};

private:
    // A band parameter over one processing call.
    struct ParameterInput {
        float constant = 0.0f;
        const float* values = nullptr;
        FloatParameter* source = nullptr;
        float at(int32_t index) const { return values != nullptr ? values[index] : constant; }
        void setConstant(float value) {
            constant = value;
            values = nullptr;
        }
    };

    void forceRedesign() { lastFrequency = -1.0f; }
    void updateSlope();
    void updateForm();
    // Designs the band at the last frequency and Q with the given gain; returns the section count.
    int32_t design(float gainDb, Sections& out);
    void redesign(float frequencyLog2, float gainDb, float qValue);
    enum class GainStep { Unchanged, WithinBrackets, NewBrackets, Redesigned };
    GainStep followGain(float gainDb);
    void interpolate(float designGain);
    // The coefficients at the last gain.
    const DigitalSectionCoefficients* currentCoefficients();

    ParameterInput frequency{kDefaultFrequencyLog2};
    ParameterInput gain{0.0f};
    ParameterInput q{1.0f};
    double secondFrequency = kDefaultSecondFrequency;

    AnalogFilterPrototype prototype;
    float designSlope = 1.0f;
    Sections current{};
    Sections lower{};
    Sections upper{};
    int32_t sectionCount = 1;
    int32_t lowerCount = 1;
    int32_t upperCount = 1;
    float lastFrequency = -1.0f;
    float lastGain = 0.0f;
    float lastQ = 1.0f;
    float lowerGain = 0.0f;
    float upperGain = 0.0f;
    bool interpolating = false;
    // Position between the brackets of the last interpolation (0 = lower, 1 = upper).
    double rampPosition = 0.0;
    bool currentIsStale = false;
    // The last segment of the current call is a ramp over the current brackets, with this wet factor.
    bool rampOpen = false;
    float rampWet = 1.0f;
    float smallGainFactor = 1.0f;
    float w0 = 1.0f;
    int64_t designCount = 0;
};
