#include "wave/sr/IIRConverter.h"

#include <algorithm>
#include <array>

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

namespace {

// Both paths of a stage in one pass over the samples, every section's state in a register: the
// sections' recursions are independent chains, so their latencies overlap instead of adding up.
// Section i sits on path i % 2; state holds each section's previous input and output.
template <int32_t Count>
void runSections(const float* coefficients, float* state, float* path0, float* path1, int32_t count) {
    std::array<float, Count> a, previousInput, previousOutput;
    for (int32_t i = 0; i < Count; ++i) {
        a[i] = coefficients[i];
        previousInput[i] = state[2 * i];
        previousOutput[i] = state[2 * i + 1];
    }
    for (int32_t t = 0; t < count; ++t) {
        float x[2] = {path0[t], path1[t]};
        for (int32_t i = 0; i < Count; ++i) {
            const float y = a[i] * (x[i % 2] - previousOutput[i]) + previousInput[i];
            previousInput[i] = x[i % 2];
            previousOutput[i] = y;
            x[i % 2] = y;
        }
        path0[t] = x[0];
        path1[t] = x[1];
    }
    for (int32_t i = 0; i < Count; ++i) {
        state[2 * i] = previousInput[i];
        state[2 * i + 1] = previousOutput[i];
    }
}

} // namespace

void IIRConverter::runPaths(int32_t stage, float* path0, float* path1, int32_t count) {
    const IIRConverterStyle::Stage& coefficients = style.getStage(stage);
    const float* a = coefficients.coefficients.data();
    float* sections = stageState(stage);
    static_assert(IIRConverterStyle::kMaximumCoefficients == 6);
    switch (coefficients.count) {
    case 1:
        return runSections<1>(a, sections, path0, path1, count);
    case 2:
        return runSections<2>(a, sections, path0, path1, count);
    case 3:
        return runSections<3>(a, sections, path0, path1, count);
    case 4:
        return runSections<4>(a, sections, path0, path1, count);
    case 5:
        return runSections<5>(a, sections, path0, path1, count);
    default:
        return runSections<6>(a, sections, path0, path1, count);
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
    runPaths(stage, early, late, count);
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
    runPaths(stage, even, odd, count);
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
