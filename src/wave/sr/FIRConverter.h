#pragma once

#include "wave/sr/ConverterStyle.h"

#include <vector>

namespace sr {

// The state and the shared machinery of the polyphase FIR converters: one history per phase of
// the style's table, sized for the longest design the style can make, and the dot products that
// run each phase over a chunk. A new design of the style clears the state.
class FIRConverter : public ConverterBase {
public:
    FIRConverter(const ConverterStyle& style, int32_t histories);

    void reset() override;
    bool isAtRest() const override;

protected:
    // Clears the state when the style has made a new design since the last call.
    void followStyle();
    const ConverterStyle& getStyle() const { return style; }
    int32_t getFactor() const { return style.getFactor(); }
    // The history of one phase: getHistoryLength() - 1 older samples, then room for a chunk.
    float* history(int32_t index) { return histories.data() + static_cast<size_t>(index) * stride; }
    // Writes values[0], values[step], ... (count of them) into history index from position at
    // after its older samples, flushing denormals.
    void append(int32_t index, int32_t at, const float* values, int32_t count, int32_t step);
    // Drops the oldest count samples of every history, keeping getHistoryLength() - 1.
    void advance(int32_t count);
    // sums[t] += the phase's taps over history index, for t < count.
    void accumulate(int32_t phase, int32_t index, float* sums, int32_t count);

private:
    const ConverterStyle& style;
    uint32_t serial = 0;
    size_t stride;
    std::vector<float> histories;
};

// Base rate to factor times the base rate: output phase p of each input sample comes from the
// table's phase p.
class Interpolator : public FIRConverter {
public:
    explicit Interpolator(const ConverterStyle& style) : FIRConverter(style, 1) {}
    void process(const float* input, float* output, int32_t n) override;
};

// Factor times the base rate back to the base rate: the filtered stream keeps every factor-th
// sample, computed directly as the sum of each phase's taps over its own sub-stream.
class Decimator : public FIRConverter {
public:
    explicit Decimator(const ConverterStyle& style);
    void process(const float* input, float* output, int32_t n) override;
    void reset() override;
    bool isAtRest() const override;

private:
    // The last high-rate samples of the previous chunk that the next chunk's first outputs need.
    std::vector<float> carried;
};

} // namespace sr
