#pragma once

#include <cmath>
#include <cstdint>

// Number conventions shared by every subsystem.

// Whether a float value counts as unchanged.
inline constexpr float kFloatEpsilon = 1.1920929e-07f;

// Tolerance for positions and rectangles.
inline constexpr double kPositionEpsilon = 0.001;

// Levels below this count as -180 dB.
inline constexpr double kMinimumLevel = 1e-10;
inline constexpr double kMinimumLevelDb = -180.0;

// ln(10) / 20: linear = exp(dB * kDbToNepers).
inline constexpr double kDbToNepers = 0.1151292546497023;

// Floats become integers by rounding halves away from zero.
inline int32_t roundToInt(double value) {
    return static_cast<int32_t>(value >= 0.0 ? value + 0.5 : value - 0.5);
}

inline double dbToGain(double db) {
    return std::exp(db * kDbToNepers);
}

inline double gainToDb(double gain) {
    return gain < kMinimumLevel ? kMinimumLevelDb : std::log(gain) / kDbToNepers;
}
