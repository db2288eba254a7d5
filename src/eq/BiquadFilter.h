#pragma once

#include "eq/AnalogBiquadPrototype.h"
#include "eq/BiquadKernels.h"
#include "foundation/Property.h"
#include "wave/Producer.h"

#include <array>
#include <cstdint>

// How a biquad processor handles a change of its section count.
struct BiquadProcessor {
    enum class ResetMode : int32_t {
        Restart = 0,   // states restart from zero
        Crossfade = 1, // the old cascade keeps running while the new one settles, then hands over
    };
};

// A cascade of up to eight second-order sections run sample by sample in double precision, with an
// enable fade, stereo linking and click-free form and section-count changes. Coefficients come from
// updateCoefficients, which describes the next samples as a list of segments with piecewise-constant
// coefficients.
//
// Linking: a linked (1) or joint (2) pair is processed by whichever filter runs first in a block; it
// uses its own coefficients for both channels (joint: in the two-channel kernels) and each channel
// keeps its own states and enable fade.
//
// Threading: constructed, linked and unlinked under the frame's processing lock; everything else on
// the audio thread only. No locks; nothing allocates after construction.
class BiquadFilter : public wave::Filter, public PropertyOwner {
public:
    static constexpr int32_t kMaximumSections = 8;
    // Samples per coefficient update: bounds the segment list (a segment may be one sample long).
    static constexpr int32_t kChunkSize = 32;
    static constexpr double kEnableFadeSeconds = 0.02;
    static constexpr double kCrossfadeSeconds = 0.1;

    enum LinkMode : int32_t { kAlone = 0, kLinked = 1, kJoint = 2 };

    using Sections = std::array<DigitalSectionCoefficients, kMaximumSections>;

    explicit BiquadFilter(wave::Environment* environment);
    ~BiquadFilter() override;

    void processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                       int32_t flags) override;
    void reset() override { resetStates(); }

    // Clears the states (a joint partner's too), ends any fade at its target and restarts the stream.
    virtual void resetStates();
    // This filter's channel, and the partner's in the same call when linked (partner buffers may then
    // be null to process this channel only). Input and output may be the same buffer.
    virtual void processBlock(const float* input, float* output, const float* partnerInput,
                              float* partnerOutput, int32_t numSamples);
    // Appends segments covering the next numSamples samples; offset is their index within the current
    // processing call.
    virtual void updateCoefficients(int32_t offset, int32_t numSamples) = 0;
    virtual void setLink(int32_t mode);
    virtual void clearLink();
    void propertyChanged(AbstractProperty& property) override;

    // Converts the running states (and the current coefficients) so that the output continues.
    void setForm(DigitalForm form);
    // Takes effect at once; the reset mode decides between a crossfade and a restart.
    void setNumberOfSections(int32_t count);
    // Links both ways; mode 0 unlinks.
    void linkWith(BiquadFilter& partner, int32_t mode);

    void processBlock(const float* input, float* output, int32_t numSamples) {
        processBlock(input, output, nullptr, nullptr, numSamples);
    }

    DigitalForm getForm() const { return setup.form; }
    int32_t getNumberOfSections() const { return setup.numSections; }
    int32_t getLinkMode() const { return linkMode; }
    BiquadFilter* getPartner() const { return partner; }
    bool isCrossfading() const { return setup.crossfadePosition >= 0; }
    // Disabled and faded out: the output is the input.
    bool isFadedOut() const { return isSilentCopy(); }
    // Samples processed since the last reset.
    int64_t getStreamPosition() const { return streamPosition; }

    Property<bool> enabled{true, this};
    Property<BiquadProcessor::ResetMode> resetMode{BiquadProcessor::ResetMode::Crossfade, this};

protected:
    // For updateCoefficients: one more segment of the current call, with fixed coefficients.
    void addSegment(int32_t length, int32_t numSections, float wet,
                    const DigitalSectionCoefficients* sections);
    // For updateCoefficients: one more segment whose coefficients move between two sets, starting
    // with one sample at the given position (biquad_kernels::interpolated).
    void addRamp(int32_t numSections, float wet, const DigitalSectionCoefficients* lower,
                 const DigitalSectionCoefficients* upper, double position);
    // For updateCoefficients: the last segment added in this call grows by one sample at the given
    // position (it must be a ramp).
    void extendRamp(double position);
    // For updateCoefficients: the last segment added in this call grows by length samples (a ramp
    // holds its last position).
    void extendSegment(int32_t length);
    int32_t getSegmentCount() const { return segmentCount; }

private:
    // A run of samples with constant coefficients, or with coefficients ramping from sections toward
    // upper (positions per sample in rampPositions). The output is dry + (filtered - dry) x wet.
    struct Segment {
        int32_t start = 0;
        int32_t length = 0;
        int32_t numSections = 1;
        float wet = 1.0f;
        bool ramp = false;
        Sections sections{};
        Sections upper{};
    };

    // Everything a linked partner must share with the filter that processes it.
    struct Setup {
        DigitalForm form = DigitalForm::DirectForm;
        int32_t numSections = 1;
        float wet = 1.0f;
        Sections sections{};
        // The cascade before a section-count change, running out over the crossfade.
        int32_t crossfadePosition = -1;
        int32_t oldNumSections = 1;
        float oldWet = 1.0f;
        Sections oldSections{};
    };

    struct Fade {
        float target = 1.0f;
        float current = 1.0f;
        float step = 0.0f;
        int32_t remaining = 0;
    };

    using States = std::array<SectionState, kMaximumSections>;

    // One channel of a processing call: buffers and the filter that owns the states and the fade.
    struct Channel {
        BiquadFilter* owner;
        const float* input;
        float* output;
    };

    bool isSilentCopy() const { return fade.target == 0.0f && fade.remaining == 0; }
    bool isFadeDone() const { return fade.remaining == 0 && fade.current == 1.0f; }
    void clearRunningState();
    void processChunk(Channel* channels, int32_t numChannels, int32_t offset, int32_t count);
    void runSegments(Channel* const* channels, int32_t numChannels, int32_t count);
    Segment* appendSegment(int32_t length, int32_t numSections, float wet,
                           const DigitalSectionCoefficients* sections);
    // The coefficients a segment ends with.
    void copyFinalCoefficients(const Segment& segment, Sections& out) const;
    template <typename Source>
    void runCascade(const Source& source, int32_t numSections, bool useOldStates, Channel* const* channels,
                    float* const* samples, int32_t numChannels, int32_t count);
    void runCrossfade(Channel* const* channels, int32_t numChannels, int32_t start, int32_t count);
    void applyFade(const float* dryInput, float* output, int32_t count);
    void healNonFinite(const Setup& running, float* output, int32_t count);
    void startEnableFade();
    void convertStates(DigitalForm to);
    int32_t crossfadeLength() const;

    Fade fade;
    Setup setup;
    States states{};
    States oldStates{};
    int64_t streamPosition = 0;
    int32_t linkMode = kAlone;
    BiquadFilter* partner = nullptr;
    std::array<Segment, kChunkSize> segments{};
    int32_t segmentCount = 0;
    int32_t segmentEnd = 0;
    std::array<double, kChunkSize> rampPositions{};
    // The chunk's dry input (when processing in place) and the old cascade's output, per channel.
    std::array<std::array<float, kChunkSize>, 2> dry{};
    std::array<std::array<float, kChunkSize>, 2> old{};
};
