#pragma once

// Stage code of the real FFT, written once against a four-lane vector type V and included by the
// files that compile it for each instruction set. Internal linkage keeps every instantiation
// private to the file that compiled it, so code built for a wider instruction set can never stand
// in for the baseline.

#include "eq/FFTStageCall.h"

#include <cstdint>
#include <type_traits>

namespace {

// Work arrays hold M = N/2 complex points split into real parts [0, M) and imaginary parts [M, N),
// so every butterfly loop runs over plain contiguous rows that vectorise four wide.

template <class T>
struct SplitComplex {
    T* re;
    T* im;
};

template <class T>
SplitComplex<T> splitOf(T* data, int32_t half) {
    return {data, data + half};
}

// Points [first, end) are the complex points [first/2, end/2): z[m] = x[2 r] + i x[2 r + 1] with
// r the bit reversal of m over M points, which is entry 2m of the N-point table. Pieces start and
// end on multiples of eight points, so blocks of four complex points cover them exactly.
template <class T, class V>
void gatherBitReversed(const T* x, SplitComplex<T> out, const int32_t* bitReversal, int32_t first,
                       int32_t end) {
    for (int32_t m = first / 2; m < end / 2; m += 4) {
        const int32_t* reversed = bitReversal + 2 * m;
        V re, im;
        V::loadPairs(x + 2 * reversed[0], x + 2 * reversed[2], x + 2 * reversed[4], x + 2 * reversed[6], re,
                     im);
        re.store(out.re + m);
        im.store(out.im + m);
    }
}

// The first two radix-2 levels (spans 1 and 2) of one group of four complex points, in place. The
// span-2 twiddle is -i forward and +i inverse, so there are no multiplications. V is a scalar or
// four lanes holding four groups.
template <bool inverse, class V>
void radix4Group(V (&re)[4], V (&im)[4]) {
    const V r0 = re[0] + re[1], i0 = im[0] + im[1];
    const V r1 = re[0] - re[1], i1 = im[0] - im[1];
    const V r2 = re[2] + re[3], i2 = im[2] + im[3];
    const V r3 = re[2] - re[3], i3 = im[2] - im[3];
    re[0] = r0 + r2;
    im[0] = i0 + i2;
    re[2] = r0 - r2;
    im[2] = i0 - i2;
    // (r3, i3) times -i is (i3, -r3); times +i it is (-i3, r3).
    re[1] = inverse ? r1 - i3 : r1 + i3;
    im[1] = inverse ? i1 + r3 : i1 - r3;
    re[3] = inverse ? r1 + i3 : r1 - i3;
    im[3] = inverse ? i1 - r3 : i1 + r3;
}

// Groups [first/8, end/8); four groups at a time are transposed so that each lane holds one group.
template <class T, class V, bool inverse>
void radix4(SplitComplex<T> in, SplitComplex<T> out, int32_t first, int32_t end) {
    auto scalarGroup = [&](int32_t q) {
        T re[4], im[4];
        for (int32_t i = 0; i < 4; ++i) {
            re[i] = in.re[4 * q + i];
            im[i] = in.im[4 * q + i];
        }
        radix4Group<inverse>(re, im);
        for (int32_t i = 0; i < 4; ++i) {
            out.re[4 * q + i] = re[i];
            out.im[4 * q + i] = im[i];
        }
    };
    auto transposeAll = [](V(&rows)[4]) { V::transpose(rows[0], rows[1], rows[2], rows[3]); };
    int32_t q = first / 8;
    const int32_t qEnd = end / 8;
    for (; q < qEnd && q % 4 != 0; ++q)
        scalarGroup(q);
    for (; q + 4 <= qEnd; q += 4) {
        V re[4], im[4];
        for (int32_t i = 0; i < 4; ++i) {
            re[i] = V::load(in.re + 4 * (q + i));
            im[i] = V::load(in.im + 4 * (q + i));
        }
        transposeAll(re);
        transposeAll(im);
        radix4Group<inverse>(re, im);
        transposeAll(re);
        transposeAll(im);
        for (int32_t i = 0; i < 4; ++i) {
            re[i].store(out.re + 4 * (q + i));
            im[i].store(out.im + 4 * (q + i));
        }
    }
    for (; q < qEnd; ++q)
        scalarGroup(q);
}

// v * w^k for w = exp(-i pi / span) forward and its conjugate inverse; scalar or four lanes, with
// the same operations in the same order so that both give bit-identical results.
template <bool inverse, class V>
void rotate(V br, V bi, V c, V s, V& vr, V& vi) {
    vr = inverse ? br * c - bi * s : br * c + bi * s;
    vi = inverse ? bi * c + br * s : bi * c - br * s;
}

template <class V, class T>
V loadAs(const T* p) {
    if constexpr (std::is_same_v<V, T>)
        return *p;
    else
        return V::load(p);
}

template <class V, class T>
void storeAs(T* p, V value) {
    if constexpr (std::is_same_v<V, T>)
        *p = value;
    else
        value.store(p);
}

// One butterfly (V = T) or four neighbours (four lanes) at `at`: u = a[at], v = a[at + span] w^k,
// out = u + v, u - v.
template <class V, bool inverse, class T>
void butterfly(SplitComplex<T> in, SplitComplex<T> out, int32_t at, int32_t span, V c, V s) {
    V vr, vi;
    rotate<inverse>(loadAs<V>(in.re + at + span), loadAs<V>(in.im + at + span), c, s, vr, vi);
    const V ur = loadAs<V>(in.re + at), ui = loadAs<V>(in.im + at);
    storeAs(out.re + at, ur + vr);
    storeAs(out.im + at, ui + vi);
    storeAs(out.re + at + span, ur - vr);
    storeAs(out.im + at + span, ui - vi);
}

// Whole groups, four butterflies at a time. Twiddles come in blocks of four cosines and four
// sines, so the block of k (a multiple of four) starts at 2k. Small spans are compile-time
// constants so that their short inner loops unroll.
template <class T, class V, bool inverse, int32_t fixedSpan>
void wholeGroups(SplitComplex<T> in, SplitComplex<T> out, const T* twiddles, int32_t span, int32_t firstGroup,
                 int32_t endGroup) {
    const int32_t width = fixedSpan > 0 ? fixedSpan : span;
    for (int32_t group = firstGroup; group < endGroup; ++group) {
        const int32_t base = group * 2 * width;
        for (int32_t k = 0; k < width; k += 4)
            butterfly<V, inverse>(in, out, base + k, width, loadAs<V>(twiddles + 2 * k),
                                  loadAs<V>(twiddles + 2 * k + 4));
    }
}

// Butterflies [k, kEnd) of the group at base, where a piece of the stage starts or ends inside it.
template <class T, class V, bool inverse>
void partialGroup(SplitComplex<T> in, SplitComplex<T> out, const T* twiddles, int32_t span, int32_t base,
                  int32_t k, int32_t kEnd) {
    auto single = [&](int32_t at) {
        const T* block = twiddles + (at / 4) * 8;
        butterfly<T, inverse>(in, out, base + at, span, block[at % 4], block[4 + at % 4]);
    };
    for (; k < kEnd && k % 4 != 0; ++k)
        single(k);
    for (; k + 4 <= kEnd; k += 4)
        butterfly<V, inverse>(in, out, base + k, span, loadAs<V>(twiddles + 2 * k),
                              loadAs<V>(twiddles + 2 * k + 4));
    for (; k < kEnd; ++k)
        single(k);
}

// One radix-2 level of the given span; points [first, end) are butterflies [first/4, end/4).
template <class T, class V, bool inverse>
void radix2(SplitComplex<T> in, SplitComplex<T> out, const T* twiddles, int32_t span, int32_t first,
            int32_t end) {
    int32_t b = first / 4;
    const int32_t bEnd = end / 4;
    if (b % span != 0) {
        const int32_t k = b % span;
        const int32_t kEnd = k + bEnd - b < span ? k + bEnd - b : span;
        partialGroup<T, V, inverse>(in, out, twiddles, span, (b / span) * 2 * span, k, kEnd);
        b += kEnd - k;
    }
    const int32_t firstGroup = b / span, endGroup = bEnd / span;
    if (endGroup > firstGroup) {
        switch (span) {
        case 4:
            wholeGroups<T, V, inverse, 4>(in, out, twiddles, span, firstGroup, endGroup);
            break;
        case 8:
            wholeGroups<T, V, inverse, 8>(in, out, twiddles, span, firstGroup, endGroup);
            break;
        case 16:
            wholeGroups<T, V, inverse, 16>(in, out, twiddles, span, firstGroup, endGroup);
            break;
        default:
            wholeGroups<T, V, inverse, 0>(in, out, twiddles, span, firstGroup, endGroup);
        }
        b = endGroup * span;
    }
    if (b < bEnd)
        partialGroup<T, V, inverse>(in, out, twiddles, span, (b / span) * 2 * span, 0, bEnd - b);
}

// Turns the M-point complex spectrum Z of z into the real spectrum X of x, a pair of bins
// (k, M - k) at a time: X[k] = E + w^k O, X[M - k] = conj(E - w^k O) with
// E = (Z[k] + conj Z[M - k]) / 2, O = (Z[k] - conj Z[M - k]) / 2i, w = exp(-2 pi i / N).
// Pair 0 also carries the middle bin X[M/2] = conj Z[M/2]. Points [first, end) are pairs [first/4, end/4).
template <class T, class V>
void splitSpectrum(SplitComplex<T> z, T* out, const T* cosines, const T* sines, int32_t half, int32_t first,
                   int32_t end) {
    int32_t k = first / 4;
    if (k == 0) {
        out[0] = z.re[0] + z.im[0];
        out[1] = z.re[0] - z.im[0];
        out[half] = z.re[half / 2];
        out[half + 1] = -z.im[half / 2];
        k = 1;
    }
    // One pair (scalar) or four pairs (vector) of bins; mirror values come in the same lane order.
    auto pairs = [](auto zr, auto zi, auto mr, auto mi, auto c, auto s, auto h, auto store) {
        const auto er = (zr + mr) * h, ei = (zi - mi) * h;
        const auto orr = (zi + mi) * h, oi = (mr - zr) * h;
        const auto tr = c * orr + s * oi;
        const auto ti = c * oi - s * orr;
        store(er + tr, ei + ti, er - tr, ti - ei);
    };
    const V vectorHalf = V::broadcast(static_cast<T>(0.5));
    for (; k + 4 <= end / 4; k += 4) {
        const int32_t mirror = half - k - 3;
        pairs(V::load(z.re + k), V::load(z.im + k), V::loadReversed(z.re + mirror),
              V::loadReversed(z.im + mirror), V::load(cosines + k), V::load(sines + k), vectorHalf,
              [&](V xr, V xi, V yr, V yi) {
                  V::storeInterleaved(out + 2 * k, xr, xi);
                  V::storeInterleavedReversed(out + 2 * mirror, yr, yi);
              });
    }
    for (; k < end / 4; ++k) {
        const int32_t mirror = half - k;
        pairs(z.re[k], z.im[k], z.re[mirror], z.im[mirror], cosines[k], sines[k], static_cast<T>(0.5),
              [&](T xr, T xi, T yr, T yi) {
                  out[2 * k] = xr;
                  out[2 * k + 1] = xi;
                  out[2 * mirror] = yr;
                  out[2 * mirror + 1] = yi;
              });
    }
}

// The reverse of splitSpectrum without its halving (the final 1/N absorbs it), writing Z in
// bit-reversed order for the butterflies that follow. Outputs are written in order and their
// inputs read from wherever the reversal puts them: scattered stores stall on cache lines that
// scattered loads merely wait for. Points [first, end) are the outputs [first/2, end/2); output
// r holds Z[m] with m the reversal of r (an involution), from the bin pair (k, M - k) that holds m.
template <class T>
void unsplitSpectrum(const T* x, SplitComplex<T> z, const T* cosines, const T* sines,
                     const int32_t* bitReversal, int32_t half, int32_t first, int32_t end) {
    for (int32_t r = first / 2; r < end / 2; ++r) {
        const int32_t m = bitReversal[2 * r];
        if (m == 0) {
            z.re[r] = x[0] + x[1];
            z.im[r] = x[0] - x[1];
            continue;
        }
        if (m == half / 2) {
            z.re[r] = 2 * x[half];
            z.im[r] = -2 * x[half + 1];
            continue;
        }
        const int32_t k = m < half / 2 ? m : half - m;
        const int32_t mirror = half - k;
        const T xr = x[2 * k], xi = x[2 * k + 1];
        const T yr = x[2 * mirror], yi = x[2 * mirror + 1];
        const T er = xr + yr, ei = xi - yi;
        const T dr = xr - yr, di = xi + yi;
        const T orr = cosines[k] * dr - sines[k] * di;
        const T oi = cosines[k] * di + sines[k] * dr;
        z.re[r] = m == k ? er - oi : er + oi;
        z.im[r] = m == k ? ei + orr : orr - ei;
    }
}

template <class T>
void interleaveScaled(SplitComplex<T> z, T* out, T scale, int32_t first, int32_t end) {
    for (int32_t m = first / 2; m < end / 2; ++m) {
        out[2 * m] = z.re[m] * scale;
        out[2 * m + 1] = z.im[m] * scale;
    }
}

// Picks the stage's code: see the stage structure on FFTPlan.
template <class T, class V>
void runFFTStageWith(const FFTStageCall<T>& call) {
    const FFTPlan<T>& plan = *call.plan;
    const int32_t half = plan.getSize() / 2;
    const int32_t last = plan.getStageCount() - 1;
    const SplitComplex<T> from = splitOf(call.from, half);
    const SplitComplex<T> to = splitOf(call.to, half);
    const int32_t first = call.first, end = call.end;
    if (call.stage == 0) {
        if (call.inverse)
            unsplitSpectrum(call.input, to, plan.getSplitCosines(), plan.getSplitSines(),
                            plan.getBitReversal(), half, first, end);
        else
            gatherBitReversed<T, V>(call.input, to, plan.getBitReversal(), first, end);
    } else if (call.stage == 1) {
        if (call.inverse)
            radix4<T, V, true>(from, to, first, end);
        else
            radix4<T, V, false>(from, to, first, end);
    } else if (call.stage < last) {
        const int32_t span = 1 << call.stage;
        const T* twiddles = plan.getStageTwiddles(span);
        if (call.inverse)
            radix2<T, V, true>(from, to, twiddles, span, first, end);
        else
            radix2<T, V, false>(from, to, twiddles, span, first, end);
    } else if (call.inverse) {
        interleaveScaled(from, call.output, static_cast<T>(plan.getScale()), first, end);
    } else {
        splitSpectrum<T, V>(from, call.output, plan.getSplitCosines(), plan.getSplitSines(), half, first,
                            end);
    }
}

} // namespace
