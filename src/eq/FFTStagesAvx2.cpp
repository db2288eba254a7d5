// The double-precision stage code again, four lanes in one AVX register. Everything this file
// shares with the baseline is included before the target switch, so only the code below is built
// for AVX2; the stepper calls it only where the processor has AVX2. No fused multiply-adds: the
// results stay bit-identical to the baseline.
#include "eq/FFTStageCall.h"
#include "eq/FFTVector.h"

#include <immintrin.h>

#include <cstdint>

#pragma GCC push_options
#pragma GCC target("avx2")

namespace {

struct AvxDoubles {
    __m256d v;

    static AvxDoubles broadcast(double value) { return {_mm256_set1_pd(value)}; }
    static AvxDoubles load(const double* p) { return {_mm256_loadu_pd(p)}; }
    static AvxDoubles loadReversed(const double* p) {
        const __m256d x = _mm256_loadu_pd(p);
        return {_mm256_permute_pd(_mm256_permute2f128_pd(x, x, 0x01), 0x5)};
    }
    static void loadPairs(const double* p0, const double* p1, const double* p2, const double* p3,
                          AvxDoubles& re, AvxDoubles& im) {
        const __m256d even =
            _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(p0)), _mm_loadu_pd(p2), 1);
        const __m256d odd =
            _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(p1)), _mm_loadu_pd(p3), 1);
        re.v = _mm256_unpacklo_pd(even, odd);
        im.v = _mm256_unpackhi_pd(even, odd);
    }
    void store(double* p) const { _mm256_storeu_pd(p, v); }
    static void storeInterleaved(double* p, AvxDoubles re, AvxDoubles im) {
        const __m256d even = _mm256_unpacklo_pd(re.v, im.v), odd = _mm256_unpackhi_pd(re.v, im.v);
        _mm256_storeu_pd(p, _mm256_permute2f128_pd(even, odd, 0x20));
        _mm256_storeu_pd(p + 4, _mm256_permute2f128_pd(even, odd, 0x31));
    }
    static void storeInterleavedReversed(double* p, AvxDoubles re, AvxDoubles im) {
        const __m256d even = _mm256_unpacklo_pd(re.v, im.v), odd = _mm256_unpackhi_pd(re.v, im.v);
        _mm256_storeu_pd(p, _mm256_permute2f128_pd(odd, even, 0x31));
        _mm256_storeu_pd(p + 4, _mm256_permute2f128_pd(odd, even, 0x20));
    }
    static void transpose(AvxDoubles& a, AvxDoubles& b, AvxDoubles& c, AvxDoubles& d) {
        const __m256d ab0 = _mm256_unpacklo_pd(a.v, b.v), ab1 = _mm256_unpackhi_pd(a.v, b.v);
        const __m256d cd0 = _mm256_unpacklo_pd(c.v, d.v), cd1 = _mm256_unpackhi_pd(c.v, d.v);
        a.v = _mm256_permute2f128_pd(ab0, cd0, 0x20);
        b.v = _mm256_permute2f128_pd(ab1, cd1, 0x20);
        c.v = _mm256_permute2f128_pd(ab0, cd0, 0x31);
        d.v = _mm256_permute2f128_pd(ab1, cd1, 0x31);
    }
};

// Free functions: the target switch does not reach friends defined inside the class.
AvxDoubles operator+(AvxDoubles a, AvxDoubles b) {
    return {_mm256_add_pd(a.v, b.v)};
}

AvxDoubles operator-(AvxDoubles a, AvxDoubles b) {
    return {_mm256_sub_pd(a.v, b.v)};
}

AvxDoubles operator*(AvxDoubles a, AvxDoubles b) {
    return {_mm256_mul_pd(a.v, b.v)};
}

} // namespace

#include "eq/FFTStages.h"

void runAvx2FFTStage(const FFTStageCall<double>& call) {
    runFFTStageWith<double, AvxDoubles>(call);
}

#pragma GCC pop_options
