#pragma once

#include "eq/AnalogFilterPrototype.h"

#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

namespace prototype_test {

// 20 log10(2): the slope one order adds per octave.
inline constexpr double kDbPerOctave = 6.020599913279624;

// A prototype designed with a linear gain from dB, at frequency 1 (frequencies are then relative).
inline AnalogFilterPrototype designed(FilterShape shape, double order, double q = std::numbers::sqrt2 / 2,
                                      double gainDb = 0.0, DesignFamily family = DesignFamily::Butterworth) {
    AnalogFilterPrototype prototype(static_cast<float>(order), static_cast<float>(q),
                                    static_cast<float>(std::pow(10.0, gainDb / 20.0)), family, shape);
    prototype.setFrequency(1.0);
    return prototype;
}

inline double levelDb(const AnalogFilterPrototypeBase& filter, double frequency) {
    return 10.0 * std::log10(filter.squaredMagnitude(frequency));
}

// A digital section's frequency response at w radians per sample, direct form (b0, b1, b2, a1, a2).
inline std::complex<double> directFormResponse(const DigitalSectionCoefficients& c, double w) {
    const std::complex<double> z1 = std::polar(1.0, -w), z2 = std::polar(1.0, -2.0 * w);
    return (c[0] + c[1] * z1 + c[2] * z2) / (1.0 + c[3] * z1 + c[4] * z2);
}

// Runs the topology-preserving state-variable section (g, d, mL, mB, mH) on an impulse and evaluates
// the DTFT of the first `length` output samples at w.
inline std::complex<double> stateVariableResponse(const DigitalSectionCoefficients& c, double w,
                                                  int32_t length) {
    const auto [g, d, mL, mB, mH] = c;
    double s1 = 0.0, s2 = 0.0;
    std::complex<double> sum = 0.0;
    for (int32_t n = 0; n < length; ++n) {
        const double x = n == 0 ? 1.0 : 0.0;
        const double hp = (x - d * s1 - s2) / (1.0 + g * d);
        const double bp = s1 + g * hp;
        const double lp = s2 + g * bp;
        s1 = bp + g * hp;
        s2 = lp + g * bp;
        sum += (mB * bp + mH * hp + mL * lp) * std::polar(1.0, -w * n);
    }
    return sum;
}

// Reproducible white noise in [-1, 1).
inline std::vector<float> noise(std::size_t count, unsigned seed = 7) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    std::vector<float> samples(count);
    for (float& s : samples)
        s = uniform(random);
    return samples;
}

} // namespace prototype_test
