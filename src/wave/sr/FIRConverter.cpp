#include "wave/sr/FIRConverter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace sr {

FIRConverter::FIRConverter(const ConverterStyle& style, int32_t count)
    : style(style), stride(static_cast<size_t>(style.getHistoryCapacity() - 1 + ConverterStyleBase::kChunk)),
      histories(stride * static_cast<size_t>(count), 0.0f) {}

void FIRConverter::reset() {
    std::fill(histories.begin(), histories.end(), 0.0f);
}

bool FIRConverter::isAtRest() const {
    const auto kept = static_cast<ptrdiff_t>(style.getHistoryLength() - 1);
    for (size_t i = 0; i < histories.size(); i += stride) {
        const auto begin = histories.begin() + static_cast<ptrdiff_t>(i);
        if (!std::all_of(begin, begin + kept, [](float x) { return x == 0.0f; }))
            return false;
    }
    return true;
}

void FIRConverter::followStyle() {
    if (serial == style.getDesignSerial())
        return;
    serial = style.getDesignSerial();
    reset();
}

void FIRConverter::append(int32_t index, int32_t at, const float* values, int32_t count, int32_t step) {
    float* to = history(index) + (style.getHistoryLength() - 1 + at);
    for (int32_t t = 0; t < count; ++t)
        to[t] = withoutTiny(values[t * step]);
}

void FIRConverter::advance(int32_t count) {
    const auto kept = static_cast<size_t>(style.getHistoryLength() - 1);
    for (size_t i = 0; i < histories.size(); i += stride)
        std::memmove(histories.data() + i, histories.data() + i + static_cast<size_t>(count),
                     kept * sizeof(float));
}

void FIRConverter::accumulate(int32_t phaseIndex, int32_t index, float* sums, int32_t count) {
    const ConverterStyle::Phase phase = style.getPhase(phaseIndex);
    // Tap k of the reversed phase meets the sample k places after the oldest one it needs.
    const float* x = history(index) + (style.getHistoryLength() - phase.first - phase.length);
    for (int32_t k = 0; k < phase.length; ++k) {
        const float c = phase.reversed[k];
        for (int32_t t = 0; t < count; ++t)
            sums[t] += c * x[k + t];
    }
}

void Interpolator::process(const float* input, float* output, int32_t n) {
    followStyle();
    const int32_t factor = getFactor();
    for (int32_t position = 0; position < n; position += ConverterStyleBase::kChunk) {
        const int32_t count = std::min(ConverterStyleBase::kChunk, n - position);
        append(0, 0, input + position, count, 1);
        float* out = output + static_cast<ptrdiff_t>(position) * factor;
        for (int32_t p = 0; p < factor; ++p) {
            float sums[ConverterStyleBase::kChunk] = {};
            accumulate(p, 0, sums, count);
            for (int32_t t = 0; t < count; ++t)
                out[t * factor + p] = sums[t];
        }
        advance(count);
    }
}

Decimator::Decimator(const ConverterStyle& style)
    : FIRConverter(style, style.getFactor()), carried(static_cast<size_t>(style.getFactor()), 0.0f) {}

void Decimator::reset() {
    FIRConverter::reset();
    std::fill(carried.begin(), carried.end(), 0.0f);
}

bool Decimator::isAtRest() const {
    return FIRConverter::isAtRest() &&
           std::all_of(carried.begin(), carried.end(), [](float x) { return x == 0.0f; });
}

void Decimator::process(const float* input, float* output, int32_t n) {
    followStyle();
    const int32_t factor = getFactor();
    for (int32_t position = 0; position < n; position += ConverterStyleBase::kChunk) {
        const int32_t count = std::min(ConverterStyleBase::kChunk, n - position);
        const float* in = input + static_cast<ptrdiff_t>(position) * factor;
        // Phase p reads the high-rate samples factor * t - p: for p > 0 the first of them is the
        // previous chunk's.
        append(0, 0, in, count, factor);
        for (int32_t p = 1; p < factor; ++p) {
            const auto i = static_cast<size_t>(p);
            append(p, 0, &carried[i], 1, 1);
            append(p, 1, in + (factor - p), count - 1, factor);
            carried[i] = in[count * factor - p];
        }
        float sums[ConverterStyleBase::kChunk] = {};
        for (int32_t p = 0; p < factor; ++p)
            accumulate(p, p, sums, count);
        const float scale = 1.0f / static_cast<float>(factor);
        for (int32_t t = 0; t < count; ++t)
            output[position + t] = sums[t] * scale;
        advance(count);
    }
}

} // namespace sr
