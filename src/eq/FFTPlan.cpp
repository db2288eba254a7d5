#include "eq/FFTPlan.h"

#include "eq/FFTWindow.h"

#include <cmath>
#include <numbers>

namespace {

constexpr int32_t kDefaultWindowType = FFTWindow::kHamming;
constexpr double kDefaultWindowParameter = 60.0;

} // namespace

template <class T>
FFTPlan<T>::FFTPlan() : FFTPlan(1) {}

template <class T>
FFTPlan<T>::FFTPlan(int32_t requestedLength) {
    create(requestedLength);
}

template <class T>
void FFTPlan<T>::create(int32_t length) {
    requestedLength = length;
    int32_t newSize = 1;
    int32_t newOrder = 0;
    while (newSize < length) {
        newSize *= 2;
        ++newOrder;
    }
    if (newSize == size)
        return;
    size = newSize;
    order = newOrder;
    scale = 1.0 / size;
    buildBitReversal();
    buildTwiddles();
    buildStageCosts();
    window.assign(static_cast<size_t>(size), 1.0);
    if (windowType < 0) {
        windowType = kDefaultWindowType;
        windowParameter = kDefaultWindowParameter;
    }
    buildWindow();
}

template <class T>
void FFTPlan<T>::setWindow(int32_t type, double parameter) {
    if (type == windowType && parameter == windowParameter)
        return;
    windowType = type;
    windowParameter = parameter;
    buildWindow();
}

template <class T>
void FFTPlan<T>::applyWindow(T* samples) const {
    for (int32_t i = 0; i < size; ++i)
        samples[i] = static_cast<T>(samples[i] * window[static_cast<size_t>(i)]);
}

template <class T>
void FFTPlan<T>::multiplySpectra(const T* a, const T* b, T* out, int32_t first, int32_t end,
                                 bool accumulate) {
    // DC and Nyquist are real; every other pair is one complex bin.
    if (first == 0 && end > 0) {
        const T dc = a[0] * b[0];
        out[0] = accumulate ? out[0] + dc : dc;
        if (end < 2)
            return;
        const T nyquist = a[1] * b[1];
        out[1] = accumulate ? out[1] + nyquist : nyquist;
        first = 2;
    }
    if (accumulate) {
        for (int32_t i = first; i < end; i += 2) {
            out[i] += a[i] * b[i] - a[i + 1] * b[i + 1];
            out[i + 1] += a[i] * b[i + 1] + a[i + 1] * b[i];
        }
    } else {
        for (int32_t i = first; i < end; i += 2) {
            out[i] = a[i] * b[i] - a[i + 1] * b[i + 1];
            out[i + 1] = a[i] * b[i + 1] + a[i + 1] * b[i];
        }
    }
}

template <class T>
void FFTPlan<T>::buildBitReversal() {
    bitReversal.assign(static_cast<size_t>(size), 0);
    int32_t j = 0;
    for (int32_t i = 0; i < size - 1; ++i) {
        bitReversal[static_cast<size_t>(i)] = j;
        int32_t m = size / 2;
        while (m >= 1 && j >= m) {
            j -= m;
            m /= 2;
        }
        j += m;
    }
    bitReversal[static_cast<size_t>(size - 1)] = size - 1;
}

template <class T>
void FFTPlan<T>::buildTwiddles() {
    // Spans 4 .. N/4 take 2 * span values each: 2 * (N/2 - 4) in all.
    const int32_t half = size / 2;
    twiddles.resize(half > 4 ? 2 * (half - 4) : 0);
    for (int32_t span = 4; span <= half / 2; span *= 2) {
        T* row = twiddles.getData() + (span - 4) * 2;
        for (int32_t k = 0; k < span; ++k) {
            const double angle = std::numbers::pi * k / span;
            T* block = row + (k / 4) * 8;
            block[k % 4] = static_cast<T>(std::cos(angle));
            block[4 + k % 4] = static_cast<T>(std::sin(angle));
        }
    }
    const int32_t quarter = size / 4;
    splitTwiddles.resize(2 * quarter);
    for (int32_t k = 0; k < quarter; ++k) {
        const double angle = 2.0 * std::numbers::pi * k / size;
        splitTwiddles[k] = static_cast<T>(std::cos(angle));
        splitTwiddles[quarter + k] = static_cast<T>(std::sin(angle));
    }
}

template <class T>
void FFTPlan<T>::buildStageCosts() {
    // Stage 1 runs two butterfly levels at once; stages from 10 on outgrow the caches.
    stageCosts.assign(static_cast<size_t>(order), size);
    if (order > 1)
        stageCosts[1] = 3 * size;
    for (int32_t stage = 10; stage < order; ++stage)
        stageCosts[static_cast<size_t>(stage)] = 2 * size;
    totalCost = 0;
    for (int32_t cost : stageCosts)
        totalCost += cost;
}

template <class T>
void FFTPlan<T>::buildWindow() {
    // N values of an (N + 1)-point window: periodic, as spectral analysis wants.
    const double sum = FFTWindow::fill(windowType, windowParameter, window.data(), size, size + 1);
    windowNormalisation = sum != 0.0 ? 2.0 / sum : 2.0;
}

template class FFTPlan<float>;
template class FFTPlan<double>;
