#include "wave/WaveShaper.h"

#include "foundation/Numbers.h"
#include "wave/ShaperLaws.h"

#include <algorithm>
#include <cmath>

using namespace shaper_laws;

namespace {

float sanitizedParameter(float value) {
    if (std::isnan(value))
        return 1.0f;
    return std::clamp(value, WaveShaper::kMinimumParameter, WaveShaper::kMaximumParameter);
}

constexpr double kLargestInput = 1e6;

bool isOne(float value) {
    return std::fabs(value - 1.0f) <= kFloatEpsilon;
}

} // namespace

WaveShaper::WaveShaper(float b, float p, int32_t type)
    : b(sanitizedParameter(b)), p(sanitizedParameter(p)), type(type) {}

double WaveShaper::curve(double e, double sign) const {
    switch (type) {
    case kArcTan:
        return kTwoOverPi * std::atan(kHalfPi * e);
    case kExponential:
        return 1.0 - std::exp(-e);
    case kDivAbs:
        return divAbsOfPositive(e);
    case kHardClip:
        return std::min(e, 1.0);
    case kTanHyperbolic:
        return std::tanh(e);
    case kAlgebraic:
        return e / std::sqrt(1.0 + e * e);
    case kSine:
        return std::sin(kHalfPi * std::min(e, 1.0));
    case kPolynomeOrder2:
    case kRectify:
        return polynomeOrder2OfPositive(e);
    case kPolynomeOrder3:
        return polynomeOrder3(e);
    case kPolynomeOrder5: {
        // w + w^3 / 2 - w^5 / 2: slope 1 at 0, flat at 1, where it reaches 1.
        const double w = std::min(e, 1.0);
        return w * (1.0 + 0.5 * w * w * (1.0 - w * w));
    }
    case kLogarithmic:
        return std::log1p(e);
    case kTube:
        return std::fabs(tube(sign * e));
    case kSoftKnee:
        // Linear up to 0.5, then a hyperbola that approaches 1 with a continuous slope.
        return e <= 0.5 ? e : 0.5 + (e - 0.5) / (1.0 + 2.0 * (e - 0.5));
    default:
        return e;
    }
}

void WaveShaper::process(const float* input, const float* level, float* output, int32_t n) const {
    const double inverseP = 1.0 / p;
    for (int32_t i = 0; i < n; ++i) {
        const float x = input[i];
        const double limit = level != nullptr ? level[i] : 0.0;
        // The rectifier drops the sign on purpose.
        const double sign = type == kRectify ? 1.0 : (x > 0.0f ? 1.0 : (x < 0.0f ? -1.0 : 0.0));
        const double g = x > 0.0f ? 1.0 : b;
        // Every curve is saturated (or nearly flat) long before this, and the power stays finite.
        const double u = std::pow(std::min(std::fabs(x) * g, kLargestInput), static_cast<double>(p));
        const double linear = std::min(u, limit);
        const double headroom = 1.0 - limit;
        const double e = headroom > 0.0 ? (u - linear) / headroom : 0.0;
        const double f = curve(e, sign);
        output[i] = static_cast<float>(sign * std::pow(f * headroom + linear, inverseP) / g);
    }
}

float WaveShaper::processSample(float x) const {
    alignas(16) float group[4] = {x, 0.0f, 0.0f, 0.0f};
    alignas(16) const float level[4] = {};
    process(group, level, group, 1);
    return group[0];
}

std::unique_ptr<WaveShaper> WaveShaper::create(int32_t type, bool linearLevel, float p, float b) {
    p = sanitizedParameter(p);
    b = sanitizedParameter(b);
    const bool plain = isOne(p) && isOne(b);
    if (linearLevel) {
        if (type == kTanHyperbolic && plain)
            return std::make_unique<WaveShaperVecLL<vectorClipTanHyperbolicLLFast>>(type);
        return std::make_unique<WaveShaper>(b, p, type);
    }
    if (!plain) {
        // Only some curves have parametrised fast forms, and the B forms only where p is 1.
        switch (type) {
        case kArcTan:
            if (isOne(p))
                return std::make_unique<WaveShaperVecB<vectorClipArcTanBFast>>(type, b);
            return std::make_unique<WaveShaperVecPB<vectorClipArcTanPBFast>>(type, p, b);
        case kDivAbs:
            if (isOne(p))
                return std::make_unique<WaveShaperVecB<vectorClipDivAbsBFast>>(type, b);
            return std::make_unique<WaveShaperVecPB<vectorClipDivAbsPBFast>>(type, p, b);
        case kPolynomeOrder3:
            return std::make_unique<WaveShaperVecPB<vectorClipPolynomeOrder3PBFast>>(type, p, b);
        case kTube:
            return std::make_unique<WaveShaperVecPB<vectorClipTubePBFast>>(type, p, b);
        default:
            return std::make_unique<WaveShaper>(b, p, type);
        }
    }
    switch (type) {
    case kArcTan:
        return std::make_unique<WaveShaperVec<vectorClipArcTanFast>>(type);
    case kDivAbs:
        return std::make_unique<WaveShaperVec<vectorClipDivAbsFast>>(type);
    case kSine:
        return std::make_unique<WaveShaperVec<vectorClipSineFast>>(type);
    case kPolynomeOrder2:
        return std::make_unique<WaveShaperVec<vectorClipPolynomeOrder2Fast>>(type);
    case kPolynomeOrder3:
        return std::make_unique<WaveShaperVec<vectorClipPolynomeOrder3Fast>>(type);
    case kTube:
        return std::make_unique<WaveShaperVec<vectorClipTubeFast>>(type);
    case kRectify:
        return std::make_unique<WaveShaperVec<vectorClipRectifyFast>>(type);
    default:
        return std::make_unique<WaveShaper>(b, p, type);
    }
}
