#pragma once

#include <emmintrin.h>
#include <xmmintrin.h>

// Four lanes of float or double in SSE2 registers (the x86-64 baseline): the unit every FFT stage
// loop works in. Loads and stores are unaligned so that a resumed stage may start on any lane.
template <class T>
struct FFTVector;

template <>
struct FFTVector<float> {
    __m128 v;

    static FFTVector broadcast(float value) { return {_mm_set1_ps(value)}; }
    static FFTVector load(const float* p) { return {_mm_loadu_ps(p)}; }
    // Lanes p[3], p[2], p[1], p[0]: the mirror half of the real-spectrum split runs backwards.
    static FFTVector loadReversed(const float* p) {
        return {_mm_shuffle_ps(_mm_loadu_ps(p), _mm_loadu_ps(p), _MM_SHUFFLE(0, 1, 2, 3))};
    }
    // Four (re, im) pairs from anywhere: lanes re0..re3 and im0..im3.
    static void loadPairs(const float* p0, const float* p1, const float* p2, const float* p3, FFTVector& re,
                          FFTVector& im) {
        const __m128 low = _mm_loadh_pi(_mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(p0)),
                                        reinterpret_cast<const __m64*>(p1));
        const __m128 high = _mm_loadh_pi(_mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(p2)),
                                         reinterpret_cast<const __m64*>(p3));
        re.v = _mm_shuffle_ps(low, high, _MM_SHUFFLE(2, 0, 2, 0));
        im.v = _mm_shuffle_ps(low, high, _MM_SHUFFLE(3, 1, 3, 1));
    }
    void store(float* p) const { _mm_storeu_ps(p, v); }
    // p[0..7] = re0, im0, re1, im1, ...
    static void storeInterleaved(float* p, FFTVector re, FFTVector im) {
        _mm_storeu_ps(p, _mm_unpacklo_ps(re.v, im.v));
        _mm_storeu_ps(p + 4, _mm_unpackhi_ps(re.v, im.v));
    }
    // The same pairs in reverse order: p[0..7] = re3, im3, re2, im2, ...
    static void storeInterleavedReversed(float* p, FFTVector re, FFTVector im) {
        const __m128 low = _mm_unpacklo_ps(re.v, im.v), high = _mm_unpackhi_ps(re.v, im.v);
        _mm_storeu_ps(p, _mm_shuffle_ps(high, high, _MM_SHUFFLE(1, 0, 3, 2)));
        _mm_storeu_ps(p + 4, _mm_shuffle_ps(low, low, _MM_SHUFFLE(1, 0, 3, 2)));
    }
    // Rows become columns: lane l of row r trades places with lane r of row l.
    static void transpose(FFTVector& a, FFTVector& b, FFTVector& c, FFTVector& d) {
        _MM_TRANSPOSE4_PS(a.v, b.v, c.v, d.v);
    }
    friend FFTVector operator+(FFTVector a, FFTVector b) { return {_mm_add_ps(a.v, b.v)}; }
    friend FFTVector operator-(FFTVector a, FFTVector b) { return {_mm_sub_ps(a.v, b.v)}; }
    friend FFTVector operator*(FFTVector a, FFTVector b) { return {_mm_mul_ps(a.v, b.v)}; }
};

template <>
struct FFTVector<double> {
    __m128d low;
    __m128d high;

    static FFTVector broadcast(double value) { return {_mm_set1_pd(value), _mm_set1_pd(value)}; }
    static FFTVector load(const double* p) { return {_mm_loadu_pd(p), _mm_loadu_pd(p + 2)}; }
    static FFTVector loadReversed(const double* p) {
        const __m128d a = _mm_loadu_pd(p), b = _mm_loadu_pd(p + 2);
        return {_mm_shuffle_pd(b, b, 1), _mm_shuffle_pd(a, a, 1)};
    }
    static void loadPairs(const double* p0, const double* p1, const double* p2, const double* p3,
                          FFTVector& re, FFTVector& im) {
        const __m128d q0 = _mm_loadu_pd(p0), q1 = _mm_loadu_pd(p1);
        const __m128d q2 = _mm_loadu_pd(p2), q3 = _mm_loadu_pd(p3);
        re = {_mm_unpacklo_pd(q0, q1), _mm_unpacklo_pd(q2, q3)};
        im = {_mm_unpackhi_pd(q0, q1), _mm_unpackhi_pd(q2, q3)};
    }
    void store(double* p) const {
        _mm_storeu_pd(p, low);
        _mm_storeu_pd(p + 2, high);
    }
    static void storeInterleaved(double* p, FFTVector re, FFTVector im) {
        _mm_storeu_pd(p, _mm_unpacklo_pd(re.low, im.low));
        _mm_storeu_pd(p + 2, _mm_unpackhi_pd(re.low, im.low));
        _mm_storeu_pd(p + 4, _mm_unpacklo_pd(re.high, im.high));
        _mm_storeu_pd(p + 6, _mm_unpackhi_pd(re.high, im.high));
    }
    static void storeInterleavedReversed(double* p, FFTVector re, FFTVector im) {
        _mm_storeu_pd(p, _mm_unpackhi_pd(re.high, im.high));
        _mm_storeu_pd(p + 2, _mm_unpacklo_pd(re.high, im.high));
        _mm_storeu_pd(p + 4, _mm_unpackhi_pd(re.low, im.low));
        _mm_storeu_pd(p + 6, _mm_unpacklo_pd(re.low, im.low));
    }
    static void transpose(FFTVector& a, FFTVector& b, FFTVector& c, FFTVector& d) {
        const FFTVector rows[4] = {a, b, c, d};
        a = {_mm_unpacklo_pd(rows[0].low, rows[1].low), _mm_unpacklo_pd(rows[2].low, rows[3].low)};
        b = {_mm_unpackhi_pd(rows[0].low, rows[1].low), _mm_unpackhi_pd(rows[2].low, rows[3].low)};
        c = {_mm_unpacklo_pd(rows[0].high, rows[1].high), _mm_unpacklo_pd(rows[2].high, rows[3].high)};
        d = {_mm_unpackhi_pd(rows[0].high, rows[1].high), _mm_unpackhi_pd(rows[2].high, rows[3].high)};
    }
    friend FFTVector operator+(FFTVector a, FFTVector b) {
        return {_mm_add_pd(a.low, b.low), _mm_add_pd(a.high, b.high)};
    }
    friend FFTVector operator-(FFTVector a, FFTVector b) {
        return {_mm_sub_pd(a.low, b.low), _mm_sub_pd(a.high, b.high)};
    }
    friend FFTVector operator*(FFTVector a, FFTVector b) {
        return {_mm_mul_pd(a.low, b.low), _mm_mul_pd(a.high, b.high)};
    }
};
