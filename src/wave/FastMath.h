#pragma once

#include "wave/Float4.h"

namespace wave {

// Polynomial transcendental functions with single-precision accuracy, built only from
// multiplications, divisions, comparisons and blends. They are always inlined: a call per group of
// four would cost more than the polynomial. log and exp are templates over float and
// Float4 (one kernel for the level blocks' scalar loops and the shapers' four lanes); the others
// exist for four lanes only, the shapers being their one user.
namespace fast_math_detail {

inline constexpr float kSqrtHalf = 0.70710677f;
// ln 2 split in two so that k * ln 2 is exact in the high part.
inline constexpr float kLn2High = 0.6933594f;
inline constexpr float kLn2Low = -0.00021219444f;
inline constexpr float kLog2e = 1.44269504f;
// Below this the result would need an exponent field of 0 (zero or subnormal): treated as 0.
inline constexpr float kExpLowest = -87.33f;
inline constexpr float kExpHighest = 88.37626f;
inline constexpr float kSmallestNormal = 1.1754944e-38f;

} // namespace fast_math_detail

// Natural log of a positive, finite, normal x.
template <class V>
[[gnu::always_inline]] inline V fastLog(V x) {
    using namespace fast_math_detail;
    V m, exponent;
    splitExponent(x, m, exponent);
    // Keep the mantissa near 1 so that the series converges fast on both sides.
    const auto low = m < V(kSqrtHalf);
    exponent = select(low, exponent - 1.0f, exponent);
    m = select(low, m + m - 1.0f, m - 1.0f);
    const V z = m * m;
    V y = 0.070376836f;
    y = y * m - 0.1151461f;
    y = y * m + 0.116769984f;
    y = y * m - 0.12420141f;
    y = y * m + 0.14249323f;
    y = y * m - 0.16668057f;
    y = y * m + 0.20000714f;
    y = y * m - 0.24999994f;
    y = y * m + 0.3333333f;
    y = y * m * z;
    y = y + exponent * kLn2Low;
    y = y - z * 0.5f;
    return m + y + exponent * kLn2High;
}

// e^x; x is clamped to the normal single-precision range (results below about 1e-38 are 0).
template <class V>
[[gnu::always_inline]] inline V fastExp(V x) {
    using namespace fast_math_detail;
    x = clampOf(x, V(kExpLowest), V(kExpHighest));
    const V k = floorOf(x * kLog2e + 0.5f);
    const V r = x - k * kLn2High - k * kLn2Low;
    V p = 0.00019875691f;
    p = p * r + 0.0013981999f;
    p = p * r + 0.008333452f;
    p = p * r + 0.041665796f;
    p = p * r + 0.16666666f;
    p = p * r + 0.5f;
    p = p * r * r + r + 1.0f;
    return p * halfExp2Integral(k) * 2.0f;
}

// a^p for a >= 0, with 0^p = 0.
[[gnu::always_inline]] inline Float4 fastPow(Float4 a, Float4 p) {
    const Float4 raised = fastExp(p * fastLog(maxOf(a, fast_math_detail::kSmallestNormal)));
    return select(a > 0.0f, raised, 0.0f);
}

// Arc tangent, reduced to |x| <= tan(pi / 8) by the angle-addition identities.
[[gnu::always_inline]] inline Float4 fastAtan(Float4 x) {
    const Float4 a = absOf(x);
    const Float4 beyondTan3Eighths = a > 2.4142137f;
    const Float4 beyondTanEighth = a > 0.41421357f;
    Float4 reduced = select(beyondTanEighth, (a - 1.0f) / (a + 1.0f), a);
    reduced = select(beyondTan3Eighths, -1.0f / a, reduced);
    Float4 offset = select(beyondTanEighth, 0.7853982f, 0.0f);
    offset = select(beyondTan3Eighths, 1.5707964f, offset);
    const Float4 z = reduced * reduced;
    const Float4 poly = ((0.080537446f * z - 0.13877685f) * z + 0.19977711f) * z - 0.3333295f;
    return withSignOf(reduced + reduced * z * poly + offset, x);
}

// Sine: the argument is reduced to an octant by 4 / pi, with pi / 4 in three parts so that the
// reduction stays exact for moderate arguments.
[[gnu::always_inline]] inline Float4 fastSin(Float4 x) {
    const Float4 a = absOf(x);
    // The octant index rounded up to even: j in {0, 2, 4, ...}.
    const __m128i j = _mm_and_si128(_mm_add_epi32(_mm_cvttps_epi32((a * 1.2732395f).v), _mm_set1_epi32(1)),
                                    _mm_set1_epi32(~1));
    const Float4 y = _mm_cvtepi32_ps(j);
    const Float4 r = ((a - y * 0.78515625f) - y * 0.00024187565f) - y * 3.774895e-08f;
    const Float4 z = r * r;
    const Float4 cosine = ((2.4433157e-05f * z - 0.0013887316f) * z + 0.041666646f) * z * z - z * 0.5f + 1.0f;
    const Float4 sine = ((-0.00019515296f * z + 0.008332161f) * z - 0.16666655f) * z * r + r;
    // Octants 2 and 6 (mod 8) take the cosine polynomial; 4 and 6 flip the sign.
    const Float4 useCosine =
        _mm_castsi128_ps(_mm_cmpeq_epi32(_mm_and_si128(j, _mm_set1_epi32(2)), _mm_set1_epi32(2)));
    const Float4 flip = _mm_castsi128_ps(_mm_slli_epi32(_mm_and_si128(j, _mm_set1_epi32(4)), 29));
    const Float4 value = select(useCosine, cosine, sine);
    return _mm_xor_ps(_mm_xor_ps(value.v, flip.v), _mm_and_ps(x.v, _mm_set1_ps(-0.0f)));
}

// Hyperbolic tangent of e >= 0 as (exp(2e) - 1) / (exp(2e) + 1), with 2e limited to 44.
[[gnu::always_inline]] inline Float4 fastTanhOfPositive(Float4 e) {
    const Float4 g = fastExp(minOf(e + e, 44.0f));
    return (g - 1.0f) / (g + 1.0f);
}

} // namespace wave
