#pragma once

#include "wave/FloatParameter.h"
#include "wave/FunctionTableFunction.h"
#include "wave/LinearLevelOscillator.h"
#include "wave/WaveShaper.h"
#include "wave/sr/ConverterStyleBase.h"

#include <array>
#include <memory>

// A drive-dependent saturator: the input is scaled by a pre-gain that grows with the drive, bent by
// the style's shaper (at a multiple of the sample rate when the converter style oversamples) and
// brought back by a make-up post-gain, so that a signal at the style's reference level keeps its
// level at every drive. Both gains are tables over the drive.
//
// Threading: built, given styles and resized off the audio thread (or under the frame's processing
// lock); processFilter, setStyle and switching back to a converter style used before run on the
// audio thread without allocating.
class FunctionTableClipper : public wave::Filter {
public:
    // A saturation character: the gains over the drive, the reference level and the shaper. Styles
    // are built once (they allocate) and shared by every clipper that uses them; they must outlive
    // those clippers.
    class Style {
    public:
        static constexpr int32_t kTableSize = 256;

        // 10^((low + (high - low) d) / 20): the gain in front of the shaper at drive d.
        class PreScaleFunction : public FunctionTableFunction {
        public:
            explicit PreScaleFunction(const Style* style) : style(style) {}
            double evaluate(double drive) const override;

        private:
            const Style* style;
        };

        // The make-up gain that brings the mean of the positive and the negative output peak, for an
        // input peak at the reference level, back to the reference level (plus the offset).
        class PostScaleFunction : public FunctionTableFunction {
        public:
            explicit PostScaleFunction(const Style* style) : style(style) {}
            double evaluate(double drive) const override;

        private:
            const Style* style;
        };

        Style(float lowGainDb, float highGainDb, float referenceDb, float offsetDb, int32_t type,
              bool linearLevel, float p, float b);
        Style(const Style&) = delete;
        Style& operator=(const Style&) = delete;

        const WaveShaper& getShaper() const { return *shaper; }
        bool isLinearLevel() const { return linearLevel; }
        float getLowGain() const { return lowGain; }
        float getHighGain() const { return highGain; }
        float getReference() const { return reference; }
        float getOffset() const { return offset; }
        const PreScaleFunction& getPreScale() const { return preScale; }
        const PostScaleFunction& getPostScale() const { return postScale; }

    private:
        float lowGain;
        float highGain;
        float reference;
        float offset;
        bool linearLevel;
        std::unique_ptr<WaveShaper> shaper;
        PreScaleFunction preScale{this};
        PostScaleFunction postScale{this};
    };

    // A null converter style runs the shaper at the base rate.
    FunctionTableClipper(wave::Environment* environment, const Style* style,
                         sr::ConverterStyleBase* converterStyle);

    void processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                       int32_t flags) override;
    void reset() override;
    bool isAtRest() const override;
    // The level oscillator reads the same input.
    void setInput(wave::Producer* producer) override;

    void setStyle(const Style* style);
    const Style* getStyle() const { return style; }
    // Makes the up- and down-samplers of a new style (allocating); the two most recent styles
    // keep theirs, so switching back and forth between two styles allocates nothing after the
    // first time.
    void setConverterStyle(sr::ConverterStyleBase* converterStyle);
    sr::ConverterStyleBase* getConverterStyle() const;
    // The delay the converters add, in samples at the base rate.
    int32_t getLatency() const;
    FloatParameter& getDrive() { return drive; }
    WaveShaper::LinearLevelOscillator& getLevelOscillator() { return oscillator; }

private:
    struct Samplers {
        sr::ConverterStyleBase* style = nullptr;
        std::unique_ptr<sr::ConverterBase> up;
        std::unique_ptr<sr::ConverterBase> down;
        std::unique_ptr<sr::ConverterBase> levelUp;
        void reset();
    };

    // Runs one chunk of pre-scaled samples through the shaper, at the oversampled rate if any.
    void shapeChunk(float* samples, const float* level, int32_t count, int32_t factor);

    FloatParameter drive;
    const Style* style;
    WaveShaper::LinearLevelOscillator oscillator;
    std::array<Samplers, 2> samplers;
    Samplers* active = nullptr;
    int32_t factor = 1;
    // Chunk buffers, padded by a group of four for the shapers' last group: the audio and the level
    // at the base rate and oversampled.
    AlignedBuffer<float> chunk;
    AlignedBuffer<float> level;
    AlignedBuffer<float> upsampled;
    AlignedBuffer<float> upsampledLevel;
};
