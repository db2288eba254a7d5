#pragma once

#include "wave/Float4.h"

// The saturation laws that need no transcendental function, written once for float (the generic
// per-sample shaper) and Float4 (the fast four-lane forms).
namespace shaper_laws {

inline constexpr float kHalfPi = 1.5707964f;
inline constexpr float kTwoOverPi = 0.63661975f;

// x / (1 + |x|) for x >= 0.
template <class V>
V divAbsOfPositive(V x) {
    return x / (x + 1.0f);
}

// 2a - a^2 with a = min(x, 1), for x >= 0: the second-order polynomial and the rectifier.
template <class V>
V polynomeOrder2OfPositive(V x) {
    const V a = wave::minOf(x, V(1.0f));
    return a * (2.0f - a);
}

// (1.5 - 0.5 w^2) w with w = clamp(x, -1, 1).
template <class V>
V polynomeOrder3(V x) {
    const V w = wave::clampOf(x, V(-1.0f), V(1.0f));
    return (1.5f - 0.5f * w * w) * w;
}

// The tube law: asymmetric, continuous, saturating at 0.6299328 above and -1.175451 below.
template <class V>
V tube(V x) {
    const V quadratic = x * (3.9375f - 6.153f * x);
    const V s = x + 1.032847f;
    const V s2 = s * s;
    const V s4 = s2 * s2;
    const V s12 = s4 * s4 * s4;
    const V lower = (s12 + (x + 0.032847f) / 3.0f - 1.0f) * 0.75f - 0.01f;
    V y = wave::select(x < V(-0.08905f), lower, quadratic);
    y = wave::select(x < V(-1.754818f), V(-1.175451f), y);
    return wave::select(x >= V(0.320018f), V(0.6299328f), y);
}

} // namespace shaper_laws
