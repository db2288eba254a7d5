#include "wave/WaveShaperCurves.h"

#include "wave/FastMath.h"
#include "wave/ShaperLaws.h"

using namespace shaper_laws;
using wave::Float4;

namespace {

// Runs the curve over every group of four, the last one possibly reaching past n.
template <class Curve>
void forEachGroup(const float* input, float* output, int32_t n, Curve&& curve) {
    for (int32_t i = 0; i < n; i += 4)
        curve(Float4::load(input + i)).store(output + i);
}

// The factor m(x) of the asymmetric forms: b on the negative half, 1 on the positive half.
Float4 negativeScale(Float4 x, float b) {
    return wave::select(x < 0.0f, Float4(b), Float4(1.0f));
}

Float4 arcTan(Float4 x) {
    return kTwoOverPi * wave::fastAtan(kHalfPi * x);
}

// The parametrised forms share one shape: a = m|x|, the curve works on a^p, and the result is
// taken back by the power 1/p with the sign restored and the scale undone.
template <class Curve>
void powerScaled(const float* input, float* output, int32_t n, float p, float b, Curve&& curve) {
    const float inverseP = 1.0f / p;
    forEachGroup(input, output, n, [&](Float4 x) {
        const Float4 m = negativeScale(x, b);
        const Float4 v = curve(wave::fastPow(m * wave::absOf(x), p), x);
        return wave::withSignOf(wave::fastPow(v, inverseP), x) / m;
    });
}

} // namespace

void vectorClipArcTanFast(const float* input, float* output, int32_t n) {
    forEachGroup(input, output, n, arcTan);
}

void vectorClipDivAbsFast(const float* input, float* output, int32_t n) {
    forEachGroup(input, output, n,
                 [](Float4 x) { return wave::withSignOf(divAbsOfPositive(wave::absOf(x)), x); });
}

void vectorClipSineFast(const float* input, float* output, int32_t n) {
    forEachGroup(input, output, n,
                 [](Float4 x) { return wave::fastSin(kHalfPi * wave::clampOf(x, -1.0f, 1.0f)); });
}

void vectorClipPolynomeOrder2Fast(const float* input, float* output, int32_t n) {
    forEachGroup(input, output, n,
                 [](Float4 x) { return wave::withSignOf(polynomeOrder2OfPositive(wave::absOf(x)), x); });
}

void vectorClipPolynomeOrder3Fast(const float* input, float* output, int32_t n) {
    forEachGroup(input, output, n, polynomeOrder3<Float4>);
}

void vectorClipTubeFast(const float* input, float* output, int32_t n) {
    forEachGroup(input, output, n, tube<Float4>);
}

void vectorClipRectifyFast(const float* input, float* output, int32_t n) {
    forEachGroup(input, output, n, [](Float4 x) { return polynomeOrder2OfPositive(wave::absOf(x)); });
}

void vectorClipArcTanBFast(const float* input, float* output, int32_t n, float b) {
    forEachGroup(input, output, n, [b](Float4 x) {
        const Float4 m = negativeScale(x, b);
        return arcTan(m * x) / m;
    });
}

void vectorClipDivAbsBFast(const float* input, float* output, int32_t n, float b) {
    forEachGroup(input, output, n, [b](Float4 x) {
        const Float4 mx = negativeScale(x, b) * x;
        return wave::withSignOf(divAbsOfPositive(wave::absOf(mx)), x) / negativeScale(x, b);
    });
}

void vectorClipArcTanPBFast(const float* input, float* output, int32_t n, float p, float b) {
    powerScaled(input, output, n, p, b, [](Float4 u, Float4) { return arcTan(u); });
}

void vectorClipDivAbsPBFast(const float* input, float* output, int32_t n, float p, float b) {
    powerScaled(input, output, n, p, b, [](Float4 u, Float4) { return divAbsOfPositive(u); });
}

void vectorClipPolynomeOrder3PBFast(const float* input, float* output, int32_t n, float p, float b) {
    powerScaled(input, output, n, p, b, [](Float4 u, Float4) { return polynomeOrder3(u); });
}

void vectorClipTubePBFast(const float* input, float* output, int32_t n, float p, float b) {
    // The tube law is asymmetric: it sees the signed power, and its magnitude goes back.
    powerScaled(input, output, n, p, b,
                [](Float4 u, Float4 x) { return wave::absOf(tube(wave::withSignOf(u, x))); });
}

void vectorClipTanHyperbolicLLFast(const float* input, const float* level, float* output, int32_t n) {
    for (int32_t i = 0; i < n; i += 4) {
        const Float4 x = Float4::load(input + i);
        const Float4 limit = level != nullptr ? Float4::load(level + i) : Float4(0.0f);
        const Float4 a = wave::absOf(x);
        const Float4 linear = wave::minOf(a, limit);
        const Float4 headroom = 1.0f - limit;
        const Float4 excess = wave::select(headroom > 0.0f, (a - linear) / headroom, 0.0f);
        const Float4 bent = wave::fastTanhOfPositive(excess) * headroom + linear;
        wave::withSignOf(bent, x).store(output + i);
    }
}
