#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

namespace wave {

// Level conversions for per-sample work: polynomial natural log and exp with single-precision
// accuracy. They take the float apart with bit operations and have no branches or library calls,
// so loops over blocks vectorise.
namespace fast_level_detail {

inline constexpr float kSqrtHalf = 0.70710677f;
// ln 2 split in two so that k * ln 2 is exact in the high part.
inline constexpr float kLn2High = 0.6933594f;
inline constexpr float kLn2Low = -0.00021219444f;
inline constexpr float kLog2e = 1.44269504f;
// Below this the result would need an exponent field of 0 (zero or subnormal): treated as 0.
inline constexpr float kExpLowest = -87.33f;
inline constexpr float kExpHighest = 88.37626f;
inline constexpr float kNepersToDb = 8.685889f;
inline constexpr float kDbToNepers = 0.115129255f;
inline constexpr float kMinimumLevel = 1e-10f;
inline constexpr float kMinimumLevelDb = -180.0f;

} // namespace fast_level_detail

// Natural log of a positive, finite, normal x.
inline float fastLog(float x) {
    using namespace fast_level_detail;
    const auto bits = std::bit_cast<uint32_t>(x);
    // x = m * 2^e with m in [0.5, 1).
    auto exponent = static_cast<float>(static_cast<int32_t>((bits >> 23) & 0xffu) - 126);
    float m = std::bit_cast<float>((bits & 0x007fffffu) | 0x3f000000u);
    // Keep the mantissa near 1 so that the series converges fast on both sides.
    const bool low = m < kSqrtHalf;
    exponent = low ? exponent - 1.0f : exponent;
    m = low ? m + m - 1.0f : m - 1.0f;
    const float z = m * m;
    float y = 0.070376836f;
    y = y * m - 0.1151461f;
    y = y * m + 0.116769984f;
    y = y * m - 0.12420141f;
    y = y * m + 0.14249323f;
    y = y * m - 0.16668057f;
    y = y * m + 0.20000714f;
    y = y * m - 0.24999994f;
    y = y * m + 0.3333333f;
    y = y * m * z;
    y += kLn2Low * exponent;
    y -= 0.5f * z;
    return m + y + kLn2High * exponent;
}

// e^x; x is clamped to the normal single-precision range (results below about 1e-38 are 0).
inline float fastExp(float x) {
    using namespace fast_level_detail;
    x = std::clamp(x, kExpLowest, kExpHighest);
    // k = round(x / ln 2), by truncation corrected for negative values.
    const float t = x * kLog2e + 0.5f;
    auto k = static_cast<int32_t>(t);
    k = static_cast<float>(k) > t ? k - 1 : k;
    const auto kf = static_cast<float>(k);
    const float r = x - kf * kLn2High - kf * kLn2Low;
    float p = 0.00019875691f;
    p = p * r + 0.0013981999f;
    p = p * r + 0.008333452f;
    p = p * r + 0.041665796f;
    p = p * r + 0.16666666f;
    p = p * r + 0.5f;
    p = p * r * r + r + 1.0f;
    // 2^k as 2^(k-1) * 2, so that k = 128 still fits the exponent field.
    return p * std::bit_cast<float>(static_cast<uint32_t>(k + 126) << 23) * 2.0f;
}

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
