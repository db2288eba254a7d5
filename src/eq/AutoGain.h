#pragma once

#include "eq/BandRouting.h"

#include <cstdint>
#include <span>

// Auto Gain's estimate of how much louder or quieter the EQ makes typical programme material.
//
// Programme material is modelled as pink noise (equal power per octave), heard through the
// loudness weighting of broadcast metering: a high-pass around 38 Hz, which discounts sub-bass the
// ear barely rates, and a +4 dB shelf above about 1.7 kHz, where the ear is most sensitive. The
// estimate is the ratio of the weighted power after the EQ to the weighted power before it,
// evaluated on a logarithmic grid from 20 Hz to 20 kHz, for each channel with the bands that act
// on it, then averaged in power over the channels. Power averaging is deliberate: a broad 6 dB
// shelf changes loudness a lot, a narrow 12 dB notch or peak very little. Bands use their static
// gain, so dynamics do not make the compensation pump.
//
// Threading: any thread; allocates nothing.
class AutoGainEstimator {
public:
    static constexpr int32_t kPoints = 96;

    AutoGainEstimator();

    // The change in dB (positive when the EQ adds loudness); Auto Gain applies its negative.
    double loudnessChangeDb(const BandSettingsArray& bands, float gainScale,
                            std::span<const uint32_t> channelFlags) const;

private:
    std::array<double, kPoints> frequencies{};
    std::array<double, kPoints> weights{};
    double totalWeight = 0.0;
};
