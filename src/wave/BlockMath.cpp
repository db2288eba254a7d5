#include "wave/BlockMath.h"

namespace wave {

namespace {

template <class Term>
void store(float* out, int32_t numSamples, bool add, Term term) {
    if (add) {
        for (int32_t i = 0; i < numSamples; ++i)
            out[i] += term(i);
    } else {
        for (int32_t i = 0; i < numSamples; ++i)
            out[i] = term(i);
    }
}

} // namespace

void applyGain(const float* in, const BasicBlock<float>* gain, float* out, int32_t numSamples, bool add) {
    const float* g = gain != nullptr ? gain->getData() : nullptr;
    if (gain != nullptr && !gain->isConstant())
        store(out, numSamples, add, [in, g](int32_t i) { return in[i] * g[i]; });
    else if (g == nullptr || g[0] == 1.0f)
        store(out, numSamples, add, [in](int32_t i) { return in[i]; });
    else
        store(out, numSamples, add, [in, s = g[0]](int32_t i) { return in[i] * s; });
}

} // namespace wave
