#include "plugin/eq/ParameterMappings.h"

#include "foundation/Numbers.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr double kLnMaximumQ = 3.6888795; // ln 40

constexpr std::array<double, 4> kThresholdStored{0.0, 0.1, 0.2, 1.0};
constexpr std::array<double, 4> kThresholdCurve{0.0, 0.2, 0.4666666, 1.0};

// The output level's knob position u = (level + 1) / 2 is linear in dB from 0.2 (-21.6 dB) to
// 1 (+36 dB); below 0.2 the gain falls quadratically to zero.
constexpr double kKneePosition = 0.2;
constexpr double kKneeDb = -21.6;
constexpr double kDbSpan = 57.6;
constexpr double kKneeGain = 0.083176374; // 10^(-21.6 / 20)

} // namespace

double qFromNormalized(double normalized) {
    return std::pow(40.0, 2.0 * normalized - 1.0);
}

double normalizedFromQ(double q) {
    return (std::log(q) / kLnMaximumQ + 1.0) * 0.5;
}

double interpolateBreakpoints(double x, const double* xs, const double* ys, int count) {
    if (count < 2 || x >= xs[count - 1])
        return ys[count - 1];
    if (x <= xs[0])
        return ys[0];
    int upper = 1;
    while (xs[upper] <= x)
        ++upper;
    const double t = (x - xs[upper - 1]) / (xs[upper] - xs[upper - 1]);
    return ys[upper - 1] + t * (ys[upper] - ys[upper - 1]);
}

double thresholdFromNormalized(double normalized) {
    return interpolateBreakpoints(normalized, kThresholdStored.data(), kThresholdCurve.data(),
                                  static_cast<int>(kThresholdStored.size()));
}

double normalizedFromThreshold(double threshold) {
    return interpolateBreakpoints(threshold, kThresholdCurve.data(), kThresholdStored.data(),
                                  static_cast<int>(kThresholdCurve.size()));
}

constexpr double kThresholdSpanDb = 60.0;

double thresholdDbFromStored(double stored) {
    return kThresholdSpanDb * (thresholdFromNormalized(stored) - 1.0);
}

double storedFromThresholdDb(double db) {
    return normalizedFromThreshold(db / kThresholdSpanDb + 1.0);
}

double outputLevelToGain(double level) {
    const double position = (level + 1.0) * 0.5;
    if (position >= kKneePosition)
        return dbToGain((position - kKneePosition) * kDbSpan / (1.0 - kKneePosition) + kKneeDb);
    const double fraction = std::max(position, 0.0) / kKneePosition;
    return fraction * fraction * kKneeGain;
}

double gainToOutputLevel(double gain) {
    double position;
    if (gain >= kKneeGain)
        position = (gainToDb(gain) - kKneeDb) * (1.0 - kKneePosition) / kDbSpan + kKneePosition;
    else
        position = std::sqrt(std::max(gain, 0.0) / kKneeGain) * kKneePosition;
    return 2.0 * position - 1.0;
}

double outputLevelToDb(double level) {
    const double gain = outputLevelToGain(level);
    return gain > 0.0 ? 20.0 * std::log10(gain) : -INFINITY;
}

double dbToOutputLevel(double db) {
    return gainToOutputLevel(std::isinf(db) && db < 0.0 ? 0.0 : dbToGain(db));
}
