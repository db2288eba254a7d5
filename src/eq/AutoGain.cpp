#include "eq/AutoGain.h"

#include "eq/AnalogFilterPrototype.h"

#include <cmath>

namespace {

constexpr double kLowest = 20.0;
constexpr double kHighest = 20000.0;

// The loudness weighting's power response at f (Hz).
double loudnessWeight(double frequency) {
    AnalogFilterPrototype highPass;
    designBand(highPass, {FilterShape::LowCut, 1.0f, 0.0f, 0.5f, 38.0});
    AnalogFilterPrototype presence;
    designBand(presence, {FilterShape::HighShelf, 1.0f, 4.0f, 0.7f, 1681.0});
    return highPass.squaredMagnitude(frequency) * presence.squaredMagnitude(frequency);
}

} // namespace

AutoGainEstimator::AutoGainEstimator() {
    const double step = std::log(kHighest / kLowest) / (kPoints - 1);
    for (int32_t i = 0; i < kPoints; ++i) {
        const auto index = static_cast<size_t>(i);
        frequencies[index] = kLowest * std::exp(step * i);
        // Equal weight per point of a logarithmic grid is pink noise's equal power per octave.
        weights[index] = loudnessWeight(frequencies[index]);
        totalWeight += weights[index];
    }
}

double AutoGainEstimator::loudnessChangeDb(const BandSettingsArray& bands, float gainScale,
                                           std::span<const uint32_t> channelFlags) const {
    if (channelFlags.empty())
        return 0.0;
    std::array<AnalogFilterPrototype, kNumBands> designs;
    std::array<bool, kNumBands> designed{};
    double ratioSum = 0.0;
    for (const uint32_t flags : channelFlags) {
        std::array<double, kPoints> power;
        power.fill(1.0);
        for (size_t b = 0; b < bands.size(); ++b) {
            if (!bands[b].used || !bands[b].enabled || !bandAppliesToChannel(bands[b], flags))
                continue;
            if (!designed[b]) {
                designBand(designs[b], bands[b].design(bands[b].gain * gainScale));
                designed[b] = true;
            }
            for (size_t i = 0; i < power.size(); ++i)
                power[i] *= designs[b].squaredMagnitude(frequencies[i]);
        }
        double weighted = 0.0;
        for (size_t i = 0; i < power.size(); ++i)
            weighted += weights[i] * power[i];
        ratioSum += weighted / totalWeight;
    }
    const double ratio = ratioSum / static_cast<double>(channelFlags.size());
    return ratio > 1e-30 ? 10.0 * std::log10(ratio) : -300.0;
}
