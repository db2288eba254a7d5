#pragma once

#include "eq/AnalogFilterPrototype.h"

#include <optional>

// Normalised low-pass designs (corner at 1 rad/s) as pole-zero groups, and the transforms that
// turn them into the other shapes.
namespace pole_zero {

// Butterworth-type low-pass of a possibly fractional order (1 to 16). With a shelf ratio the
// zeros sit at the poles scaled up and the poles are scaled down, so that the DC gain is the
// ratio, the gain at infinity is 1 and the gain at the corner is the square root of the ratio.
void butterworth(double order, std::optional<double> shelfRatio, PoleZeroGroupList& groups);

// Six real pole-zero pairs 2.5 octaves apart: a slope of 6 order dB/oct for orders below 1.
void staircase(double order, PoleZeroGroupList& groups);

// Three groups of pairs spread over 12.5 octaves around 1: a constant tilt of gain/5 dB/oct
// (gain in dB of the linear gain), unity at 1.
void flatTilt(double linearGain, PoleZeroGroupList& groups);

// Chebyshev type I with a 0.70710677 dB pass-band ripple above unity.
void chebyshevI(int32_t order, PoleZeroGroupList& groups);
// Chebyshev type II with a 60 dB stop band from 1 upwards.
void chebyshevII(int32_t order, PoleZeroGroupList& groups);
// Elliptic with 0.1 dB pass-band ripple (pass band up to 1) and 90 dB stop band.
void elliptic(int32_t order, PoleZeroGroupList& groups);

// Low-pass to band-pass, s -> (s^2 + 1) / (s bandwidth); doubles the group's poles.
PoleZeroGroup bandTransform(const PoleZeroGroup& group, double bandwidth);
// Low-pass to high-pass, s -> 1/s, keeping the gain at corresponding frequencies.
PoleZeroGroup highPassTransform(const PoleZeroGroup& group);
// Zeros mirrored at the imaginary axis and unity gain: an all-pass on the same poles.
PoleZeroGroup allPass(const PoleZeroGroup& group);
// Divides the group by the square root of its DC gain: a shelf becomes a tilt centred on unity.
PoleZeroGroup centred(const PoleZeroGroup& group);

} // namespace pole_zero
