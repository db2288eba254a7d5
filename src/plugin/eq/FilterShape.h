#pragma once

#include <cstdint>
#include <initializer_list>

// The band filter shapes as the analog designer numbers them. The band's " Shape" parameter
// stores these values; 1, 4 and 9 are designer variants the parameter never produces.
enum class FilterShape : int32_t {
    HighCut = 0, // low-pass
    LowShelfVariant = 1,
    LowShelf = 2,
    LowCut = 3, // high-pass
    HighShelfVariant = 4,
    HighShelf = 5,
    TiltShelf = 6,
    Bell = 7,
    BandPass = 8,
    ScaledBandPass = 9,
    Notch = 10,
    AllPass = 11,
    FlatTilt = 12,
};

inline constexpr int32_t kNumFilterShapes = 13;

namespace filter_shape_detail {
constexpr bool isOneOf(FilterShape shape, std::initializer_list<int32_t> values) {
    for (int32_t value : values)
        if (static_cast<int32_t>(shape) == value)
            return true;
    return false;
}
} // namespace filter_shape_detail

// Low-pass or high-pass: the only shapes with a "Brickwall" slope.
constexpr bool isCut(FilterShape shape) {
    return filter_shape_detail::isOneOf(shape, {0, 3});
}

// The gain parameter applies (shelves, Tilt Shelf, Bell, Flat Tilt).
constexpr bool hasGain(FilterShape shape) {
    return filter_shape_detail::isOneOf(shape, {1, 2, 4, 5, 6, 7, 12});
}

// Q goes through the shelf Q mapping.
constexpr bool isShelfOrTilt(FilterShape shape) {
    return filter_shape_detail::isOneOf(shape, {1, 2, 4, 5, 6, 12});
}

constexpr bool isShelf(FilterShape shape) {
    return filter_shape_detail::isOneOf(shape, {1, 2, 4, 5});
}

// The filter order may fall to 0 (slope 0 dB/oct).
constexpr bool allowsZeroOrder(FilterShape shape) {
    return filter_shape_detail::isOneOf(shape, {0, 3, 8});
}

// Designed as a low-pass of half the order, then band-transformed.
constexpr bool isBandShape(FilterShape shape) {
    return filter_shape_detail::isOneOf(shape, {7, 8, 9, 10});
}

// The low-pass prototype is turned into a high-pass (s to 1/s).
constexpr bool needsHighPassTransform(FilterShape shape) {
    return filter_shape_detail::isOneOf(shape, {3, 4, 5, 6, 10});
}
