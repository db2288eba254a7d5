#pragma once

#include "wave/sr/IIRConverterStyle.h"

#include <array>
#include <vector>

namespace sr {

// The state and the shared machinery of the allpass converters: every section's previous input
// and output for each stage, and the buffers between the stages, sized for the most stages the
// style can design. A new design of the style clears the state; so does a state that is no longer
// finite (after NaN or infinite input), at the end of the chunk that made it so.
class IIRConverter : public ConverterBase {
public:
    explicit IIRConverter(const IIRConverterStyle& style);

    void reset() override;
    bool isAtRest() const override;

protected:
    // Per stage: each section's previous input and output, then the decimator's carried sample.
    static constexpr int32_t kStateSize = 2 * IIRConverterStyle::kMaximumCoefficients + 1;
    static constexpr int32_t kCarried = kStateSize - 1;

    // Clears the state when the style has made a new design since the last call.
    void followStyle();
    const IIRConverterStyle& getStyle() const { return style; }
    float* stageState(int32_t stage) { return state.data() + static_cast<size_t>(stage) * kStateSize; }
    // Runs a stage's even sections over path 0 and its odd sections over path 1, in place.
    void runPaths(int32_t stage, float* path0, float* path1, int32_t count);
    // Flushes tiny state values to zero, and clears the whole state if any is not finite.
    void tidyState();
    // Buffers for the paths and for the samples between stages.
    float* pathBuffer(int32_t path) { return paths[static_cast<size_t>(path)].data(); }
    float* stageBuffer(int32_t index) { return between[static_cast<size_t>(index)].data(); }

private:
    const IIRConverterStyle& style;
    uint32_t serial = 0;
    std::vector<float> state;
    std::array<std::vector<float>, 2> paths;
    std::array<std::vector<float>, 2> between;
};

// Each base-rate sample feeds both paths of the first stage; path 0 gives the earlier of the two
// output samples, path 1 the later. Stages run from the base rate upwards.
class IIRInterpolator : public IIRConverter {
public:
    using IIRConverter::IIRConverter;
    void process(const float* input, float* output, int32_t n) override;

private:
    void interpolateStage(int32_t stage, const float* input, float* output, int32_t count);
};

// Even samples, halved, feed path 0; odd samples, halved and one sample late, feed path 1; each
// output is the sum of the paths. Stages run from the highest rate down.
class IIRDecimator : public IIRConverter {
public:
    using IIRConverter::IIRConverter;
    void process(const float* input, float* output, int32_t n) override;

private:
    // count is the number of output samples.
    void decimateStage(int32_t stage, const float* input, float* output, int32_t count);
};

} // namespace sr
