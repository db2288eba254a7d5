#pragma once

#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <concepts>
#include <cstdint>

namespace wave {

// Four float lanes in an SSE2 register (the x86-64 baseline). Comparisons give masks with every bit
// of a lane set where the comparison holds; select blends by such a mask. Loads and stores are
// unaligned, so a group may start anywhere in a block.
struct Float4 {
    __m128 v;

    Float4() = default;
    Float4(__m128 value) : v(value) {}
    // A scalar stands for the same value in every lane.
    Float4(float value) : v(_mm_set1_ps(value)) {}

    static Float4 load(const float* p) { return _mm_loadu_ps(p); }
    void store(float* p) const { _mm_storeu_ps(p, v); }

    friend Float4 operator+(Float4 a, Float4 b) { return _mm_add_ps(a.v, b.v); }
    friend Float4 operator-(Float4 a, Float4 b) { return _mm_sub_ps(a.v, b.v); }
    friend Float4 operator*(Float4 a, Float4 b) { return _mm_mul_ps(a.v, b.v); }
    friend Float4 operator/(Float4 a, Float4 b) { return _mm_div_ps(a.v, b.v); }
    friend Float4 operator-(Float4 a) { return _mm_xor_ps(a.v, _mm_set1_ps(-0.0f)); }
    friend Float4 operator<(Float4 a, Float4 b) { return _mm_cmplt_ps(a.v, b.v); }
    friend Float4 operator<=(Float4 a, Float4 b) { return _mm_cmple_ps(a.v, b.v); }
    friend Float4 operator>(Float4 a, Float4 b) { return _mm_cmpgt_ps(a.v, b.v); }
    friend Float4 operator>=(Float4 a, Float4 b) { return _mm_cmpge_ps(a.v, b.v); }
    friend Float4 operator&(Float4 a, Float4 b) { return _mm_and_ps(a.v, b.v); }
    friend Float4 operator|(Float4 a, Float4 b) { return _mm_or_ps(a.v, b.v); }
};

// The primitives below exist for scalars and for Float4 under the same names, so that one kernel
// written as a template serves a scalar loop and the four-lane forms alike.

template <std::floating_point T>
T select(bool condition, T whenTrue, T whenFalse) {
    return condition ? whenTrue : whenFalse;
}
inline Float4 select(Float4 mask, Float4 whenTrue, Float4 whenFalse) {
    return _mm_or_ps(_mm_and_ps(mask.v, whenTrue.v), _mm_andnot_ps(mask.v, whenFalse.v));
}

template <std::floating_point T>
T minOf(T a, T b) {
    return std::min(a, b);
}
inline Float4 minOf(Float4 a, Float4 b) {
    return _mm_min_ps(a.v, b.v);
}
template <std::floating_point T>
T maxOf(T a, T b) {
    return std::max(a, b);
}
inline Float4 maxOf(Float4 a, Float4 b) {
    return _mm_max_ps(a.v, b.v);
}
template <std::floating_point T>
T clampOf(T x, T low, T high) {
    return std::clamp(x, low, high);
}
inline Float4 clampOf(Float4 x, Float4 low, Float4 high) {
    return minOf(maxOf(x, low), high);
}

inline Float4 absOf(Float4 x) {
    return _mm_andnot_ps(_mm_set1_ps(-0.0f), x.v);
}
// The sign bit of x on the magnitude of y.
inline Float4 withSignOf(Float4 y, Float4 x) {
    const __m128 sign = _mm_set1_ps(-0.0f);
    return _mm_or_ps(_mm_andnot_ps(sign, y.v), _mm_and_ps(sign, x.v));
}

// The largest integral value not above t, for |t| < 2^31.
inline float floorOf(float t) {
    const auto k = static_cast<float>(static_cast<int32_t>(t));
    return k > t ? k - 1.0f : k;
}
inline Float4 floorOf(Float4 t) {
    const Float4 k = _mm_cvtepi32_ps(_mm_cvttps_epi32(t.v));
    return select(k > t, k - 1.0f, k);
}

// 2^(k - 1) for an integral k in [-125, 128]; callers multiply by 2 last, so that k = 128 still
// fits the exponent field when the other factor is below 1.
inline float halfExp2Integral(float k) {
    return std::bit_cast<float>(static_cast<uint32_t>(static_cast<int32_t>(k) + 126) << 23);
}
inline Float4 halfExp2Integral(Float4 k) {
    const __m128i exponent = _mm_slli_epi32(_mm_add_epi32(_mm_cvttps_epi32(k.v), _mm_set1_epi32(126)), 23);
    return _mm_castsi128_ps(exponent);
}

// x = mantissa * 2^exponent with the mantissa in [0.5, 1), for a positive normal x.
inline void splitExponent(float x, float& mantissa, float& exponent) {
    const auto bits = std::bit_cast<uint32_t>(x);
    exponent = static_cast<float>(static_cast<int32_t>((bits >> 23) & 0xffu) - 126);
    mantissa = std::bit_cast<float>((bits & 0x007fffffu) | 0x3f000000u);
}
inline void splitExponent(Float4 x, Float4& mantissa, Float4& exponent) {
    const __m128i bits = _mm_castps_si128(x.v);
    const __m128i biased = _mm_and_si128(_mm_srli_epi32(bits, 23), _mm_set1_epi32(0xff));
    exponent = _mm_cvtepi32_ps(_mm_sub_epi32(biased, _mm_set1_epi32(126)));
    mantissa = _mm_castsi128_ps(
        _mm_or_si128(_mm_and_si128(bits, _mm_set1_epi32(0x007fffff)), _mm_set1_epi32(0x3f000000)));
}

} // namespace wave
