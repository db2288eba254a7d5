#pragma once

#include "wave/FastMath.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace wave {

// Level conversions for per-sample work, on the polynomial log and exp of FastMath.h: they have no
// branches or library calls, so loops over blocks vectorise.
namespace fast_level_detail {

inline constexpr float kNepersToDb = 8.685889f;
inline constexpr float kDbToNepers = 0.115129255f;
inline constexpr float kMinimumLevel = 1e-10f;
inline constexpr float kMinimumLevelDb = -180.0f;

} // namespace fast_level_detail

// 20 log10 |x|; levels below 1e-10 (and NaN) give -180 dB, infinity the largest float's level.
inline float fastAmplitudeToDb(float x) {
    using namespace fast_level_detail;
    const float magnitude = std::fabs(x);
    const float bounded = std::clamp(magnitude, kMinimumLevel, 3.4028235e38f);
    const float db = fastLog(bounded) * kNepersToDb;
    return magnitude >= kMinimumLevel ? db : kMinimumLevelDb;
}

// The inverse: exp(dB * 0.115129255).
inline float fastDbToAmplitude(float db) {
    return fastExp(db * fast_level_detail::kDbToNepers);
}

// Converts a block in place.
void amplitudeToDb(float* data, int32_t numSamples);
void dbToAmplitude(float* data, int32_t numSamples);

} // namespace wave
