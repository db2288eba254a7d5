#pragma once

#include "eq/EQFilter.h"
#include "foundation/Property.h"
#include "plugin/eq/FilterShape.h"
#include "wave/FloatParameter.h"

// One band of one channel whose gain may follow a detection signal. Instead of redesigning the
// filter per sample it runs the band twice, at the static gain (filter A) and at the static gain
// plus the range (filter B), and crossfades the outputs by where the momentary gain lies between
// the two in linear terms, so at the band's centre the mix has exactly the momentary gain.
//
// The gain source delivers the band's momentary gain change in dB (a BandCompander's output, 0 at
// rest, moving toward the range); the momentary gain is (base gain + change) x gain scale.
// Without dynamics the output is filter A's block itself.
//
// Threading: built and connected under the frame's processing lock; properties and processing on
// the audio thread only. Nothing allocates after construction.
class DynamicEQFilter : public wave::Producer, public PropertyOwner {
public:
    static constexpr float kGainLimitDb = 30.0f;

    explicit DynamicEQFilter(wave::Environment* environment);

    void process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t flags) override;
    void reset() override;
    void propertyChanged(AbstractProperty& property) override;

    // The band's input feeds both filters.
    void setInput(wave::Producer* producer);
    void setGainSource(wave::Producer* producer);
    // Runs this band and the same band of the other channel of a pair in one two-channel loop
    // (both must have the same settings); null unlinks. Each channel keeps its states and its gain.
    void linkJoint(DynamicEQFilter* partner);

    bool isDynamic() const { return dynamic; }
    // Disabled and faded out: the band's input block passes through untouched, at no cost.
    bool isFadedOut() const { return filterA.isFadedOut() && (!dynamic || filterB.isFadedOut()); }
    EQFilter& getFilterA() { return filterA; }
    EQFilter& getFilterB() { return filterB; }

    // Forwarded to both filters.
    Property<FilterShape> shape{FilterShape::Bell, this};
    Property<float> slope{1.0f, this};
    Property<float> frequency{EQFilter::kDefaultFrequencyLog2, this};
    Property<float> q{1.0f, this};
    // The band's gain in dB, its dynamic range in dB and the global gain scale factor.
    Property<float> baseGain{0.0f, this};
    Property<float> range{0.0f, this};
    Property<float> gainScale{1.0f, this};
    Property<bool> dynamicsEnabled{false, this};
    // On exactly when the band applies to this channel.
    Property<bool> filterEnabled{true, this};

private:
    void updateGains();
    void crossfade(const float* yA, const float* yB, const wave::BasicBlock<float>& gainsA,
                   const wave::BasicBlock<float>& gainsB, const float* changes, float* out,
                   int32_t numSamples) const;

    EQFilter filterA;
    EQFilter filterB;
    // Parameters are read once per block here and handed to both filters.
    FloatParameterSource frequencyParameter;
    FloatParameterSource qParameter;
    FloatParameterSource gainA;
    FloatParameterSource gainB;
    wave::Producer* input = nullptr;
    wave::Producer* gainSource = nullptr;
    bool dynamic = false;
};
