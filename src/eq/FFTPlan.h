#pragma once

#include "wave/AlignedBuffer.h"

#include <cstdint>
#include <vector>

// Tables for a real-input FFT of N = 2^n points (T is float or double), and the analysis window
// that goes with them. The transforms themselves run in FFTStepper, which owns the work arrays,
// so one plan can serve any number of channels. Forward: X[k] = sum over j of x[j] exp(-2 pi i j k / N);
// the inverse includes the 1/N. Threading: create() and setWindow() allocate and belong off the
// audio thread; a finished plan is only read.
//
// Packed spectrum layout (N values for the N/2 + 1 bins):
//   [0] = Re X[0] (DC), [1] = Re X[N/2] (Nyquist), [2k], [2k + 1] = Re, Im X[k] for 0 < k < N/2.
// The imaginary parts of DC and Nyquist are zero for real input and are not stored. For N = 1 the
// spectrum is the one value X[0].
//
// Stage structure (stages 0 .. n - 1; M = N/2 complex points z[m] = x[2m] + i x[2m + 1]):
//   forward: 0 bit-reversed gather, 1 radix-4 butterflies (two radix-2 levels, no multiplies),
//            2 .. n - 2 radix-2 levels of span 2^stage, n - 1 split into the real spectrum;
//   inverse: 0 unsplit with bit-reversed scatter, 1 and 2 .. n - 2 as above with conjugated
//            twiddles, n - 1 interleave and scale by 1/N.
// Sizes below 8 compute their whole transform directly in the last stage. The split step reads its
// own row of twiddles (one per bin pair) instead of running a recurrence from a few constants, which
// keeps every bin as accurate as the butterflies.
template <class T>
class FFTPlan {
public:
    FFTPlan();
    explicit FFTPlan(int32_t requestedLength);

    // Builds every table for the smallest power of two not below the length (N = 1 for a length of
    // 1 or less). Allocates; nothing happens when N stays the same.
    void create(int32_t requestedLength);
    // Recomputes the window and its normalisation when the type or the parameter changed.
    void setWindow(int32_t type, double parameter);
    // Multiplies N samples by the window.
    void applyWindow(T* samples) const;

    // out = a * b (or out += a * b) bin by bin over packed spectra of N values.
    static void multiplySpectra(const T* a, const T* b, T* out, int32_t size, bool accumulate) {
        multiplySpectra(a, b, out, 0, size, accumulate);
    }
    // The same over the values [first, end) of the packed spectra; first and end are even.
    static void multiplySpectra(const T* a, const T* b, T* out, int32_t first, int32_t end, bool accumulate);

    int32_t getRequestedLength() const { return requestedLength; }
    int32_t getSize() const { return size; }
    int32_t getOrder() const { return order; }
    double getScale() const { return scale; }
    double getWindowNormalisation() const { return windowNormalisation; }
    int32_t getWindowType() const { return windowType; }
    double getWindowParameter() const { return windowParameter; }
    const double* getWindow() const { return window.data(); }

    int32_t getStageCount() const { return static_cast<int32_t>(stageCosts.size()); }
    int32_t getStageCost(int32_t stage) const { return stageCosts[static_cast<size_t>(stage)]; }
    int32_t getTotalCost() const { return totalCost; }

    const int32_t* getBitReversal() const { return bitReversal.data(); }
    // Twiddles of the radix-2 stage with the given span (4 .. N/4): for k = 0 .. span - 1 the pair
    // (cos, sin) of k pi / span, in blocks of four cosines followed by their four sines.
    const T* getStageTwiddles(int32_t span) const { return twiddles.getData() + (span - 4) * 2; }
    // Split-step twiddles: cos and sin of 2 pi k / N for k = 0 .. N/4 - 1, cosines first.
    const T* getSplitCosines() const { return splitTwiddles.getData(); }
    const T* getSplitSines() const { return splitTwiddles.getData() + size / 4; }

private:
    void buildBitReversal();
    void buildTwiddles();
    void buildStageCosts();
    void buildWindow();

    std::vector<int32_t> bitReversal;
    int32_t requestedLength = 0;
    int32_t size = 0;
    int32_t order = 0;
    double scale = 1.0;
    double windowNormalisation = 2.0;
    std::vector<int32_t> stageCosts;
    int32_t totalCost = 0;
    AlignedBuffer<T> twiddles;
    AlignedBuffer<T> splitTwiddles;
    int32_t windowType = -1;
    double windowParameter = 0.0;
    std::vector<double> window;
};

extern template class FFTPlan<float>;
extern template class FFTPlan<double>;
