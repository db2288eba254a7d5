#pragma once

#include "wave/sr/ConverterStyleBase.h"

#include <vector>

namespace sr {

// The linear-phase style: a Kaiser-windowed sinc low-pass at the base rate's Nyquist frequency, run
// as a polyphase filter of factor phases. The window's shape comes from the attenuation plus a
// margin for the round trip, where the pass-band ripple of the interpolator and the decimator adds
// up; the length starts from the Kaiser estimate for the transition from the pass band edge to its
// mirror image above Nyquist and grows until the design measures up: at least the attenuation in
// the stop band, and an interpolator-decimator pair within that much of unity in the pass band.
// The length is a multiple of twice the factor, so the round trip delays by a whole number of
// base-rate samples.
class ConverterStyle : public ConverterStyleBase {
public:
    static constexpr int32_t kMaximumFactor = 16;

    // The factor is brought into [1, kMaximumFactor]; the attenuation into [20, 150] dB.
    ConverterStyle(wave::Environment& environment, double attenuationDb = 70.0, double passBandEdge = 20000.0,
                   int32_t factor = 2);

    int32_t getFactor() const override { return factor; }
    int32_t getLatency() const override;
    std::unique_ptr<ConverterBase> createInterpolator() override;
    std::unique_ptr<ConverterBase> createDecimator() override;
    void refresh() override;

    // One phase of the table: the coefficients of taps first .. first + length - 1 of the phase,
    // stored last tap first so that a dot product runs forward over the history.
    struct Phase {
        int32_t first = 0;
        int32_t length = 0;
        const float* reversed = nullptr;
    };
    Phase getPhase(int32_t index) const;
    // Base-rate samples of history the longest phase needs (its last tap index plus one).
    int32_t getHistoryLength() const { return historyLength; }
    // The most history any design of this style can need: converters reserve this much.
    int32_t getHistoryCapacity() const { return phaseCapacity; }
    // The prototype's length in taps (high-rate samples).
    int32_t getTaps() const { return taps; }
    double getAttenuation() const { return attenuation; }
    // The pass band edge and the start of the stop band of the current design, in Hz.
    double getPassBandEdge() const;
    double getStopBandEdge() const;

private:
    // The normalised transition width at the environment's current rate.
    double transitionWidth() const;
    int32_t kaiserOrder(double transition) const;
    void design();
    // Builds the polyphase table for a prototype of the given order (length order + 1).
    void buildTable(int32_t order, double beta);
    // Whether the table's prototype meets the stop band and round-trip targets.
    bool meetsTargets() const;

    double attenuation;
    double passEdge;
    int32_t factor;
    // The transition width of the current design.
    double width = 1.0;
    int32_t taps = 1;
    int32_t historyLength = 1;
    int32_t phaseCapacity;
    std::vector<int32_t> firsts;
    std::vector<int32_t> lengths;
    // factor rows of phaseCapacity coefficients each.
    std::vector<float> table;
    // Scratch of the design: the prototype in double.
    std::vector<double> prototype;
};

} // namespace sr
