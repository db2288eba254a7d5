#include "wave/sr/IIRConverter.h"

#include <algorithm>

namespace sr {

IIRConverter::IIRConverter(const IIRConverterStyle& style)
    : style(style), state(static_cast<size_t>(IIRConverterStyle::kMaximumStages) * kStateSize, 0.0f) {
    // A stage's paths never take more than half of the highest rate's chunk; the buffers between
    // stages hold at most a chunk at the highest rate.
    const auto highest =
        static_cast<size_t>(ConverterStyleBase::kChunk) * static_cast<size_t>(style.getMaximumFactor());
    for (auto& path : paths)
        path.resize(highest / 2 + 1);
    for (auto& buffer : between)
        buffer.resize(highest);
}

void IIRConverter::reset() {
    std::fill(state.begin(), state.end(), 0.0f);
}

bool IIRConverter::isAtRest() const {
    return std::all_of(state.begin(), state.end(), [](float x) { return x == 0.0f; });
}

void IIRConverter::followStyle() {
    if (serial == style.getDesignSerial())
        return;
    serial = style.getDesignSerial();
    reset();
}

void IIRConverter::runPath(int32_t stage, int32_t first, float* data, int32_t count) {
    const IIRConverterStyle::Stage& coefficients = style.getStage(stage);
    float* sections = stageState(stage);
    for (int32_t i = first; i < coefficients.count; i += 2) {
        const float a = coefficients.coefficients[static_cast<size_t>(i)];
        float previousInput = sections[2 * i];
        float previousOutput = sections[2 * i + 1];
        for (int32_t t = 0; t < count; ++t) {
            const float x = data[t];
            previousOutput = a * (x - previousOutput) + previousInput;
            previousInput = x;
            data[t] = previousOutput;
        }
        sections[2 * i] = previousInput;
        sections[2 * i + 1] = previousOutput;
    }
}

void IIRConverter::tidyState() {
    if (!flushTiny(state.data(), static_cast<int32_t>(state.size())))
        reset();
}

void IIRInterpolator::interpolateStage(int32_t stage, const float* input, float* output, int32_t count) {
    float* early = pathBuffer(0);
    float* late = pathBuffer(1);
    for (int32_t t = 0; t < count; ++t)
        early[t] = late[t] = withoutTiny(input[t]);
    runPath(stage, 0, early, count);
    runPath(stage, 1, late, count);
    for (int32_t t = 0; t < count; ++t) {
        output[2 * t] = early[t];
        output[2 * t + 1] = late[t];
    }
}

void IIRInterpolator::process(const float* input, float* output, int32_t n) {
    followStyle();
    const int32_t stages = getStyle().getNumStages();
    if (stages == 0) {
        std::copy_n(input, n, output);
        return;
    }
    for (int32_t position = 0; position < n; position += ConverterStyleBase::kChunk) {
        const int32_t count = std::min(ConverterStyleBase::kChunk, n - position);
        const float* from = input + position;
        for (int32_t s = 0; s < stages; ++s) {
            float* to =
                s == stages - 1 ? output + (static_cast<ptrdiff_t>(position) << stages) : stageBuffer(s % 2);
            interpolateStage(s, from, to, count << s);
            from = to;
        }
        tidyState();
    }
}

void IIRDecimator::decimateStage(int32_t stage, const float* input, float* output, int32_t count) {
    float* even = pathBuffer(0);
    float* odd = pathBuffer(1);
    float& carried = stageState(stage)[kCarried];
    for (int32_t t = 0; t < count; ++t) {
        even[t] = withoutTiny(0.5f * input[2 * t]);
        odd[t] = withoutTiny(0.5f * (t == 0 ? carried : input[2 * t - 1]));
    }
    carried = input[2 * count - 1];
    runPath(stage, 0, even, count);
    runPath(stage, 1, odd, count);
    for (int32_t t = 0; t < count; ++t)
        output[t] = even[t] + odd[t];
}

void IIRDecimator::process(const float* input, float* output, int32_t n) {
    followStyle();
    const int32_t stages = getStyle().getNumStages();
    if (stages == 0) {
        std::copy_n(input, n, output);
        return;
    }
    for (int32_t position = 0; position < n; position += ConverterStyleBase::kChunk) {
        const int32_t count = std::min(ConverterStyleBase::kChunk, n - position);
        const float* from = input + (static_cast<ptrdiff_t>(position) << stages);
        for (int32_t s = stages - 1; s >= 0; --s) {
            float* to = s == 0 ? output + position : stageBuffer(s % 2);
            decimateStage(s, from, to, count << s);
            from = to;
        }
        tidyState();
    }
}

} // namespace sr
