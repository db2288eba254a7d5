#pragma once

#include "eq/AnalogFilterPrototype.h"

#include <cmath>
#include <numbers>

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

} // namespace prototype_test
