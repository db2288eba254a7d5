#include "eq/EQBandDesign.h"

#include "foundation/Numbers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace {

constexpr double kMaximumGainDb = 30.0;

double finiteOr(double value, double fallback) {
    return std::isfinite(value) ? value : fallback;
}

double sanitisedFrequency(double frequency) {
    return std::clamp(finiteOr(frequency, 1000.0), 1e-6, 1e6);
}

// Flat Tilt tilts by gain/5 dB per octave around its second frequency; when the pivot lies
// on the side the tilt raises, the total seen between the two frequencies is kept within 30 dB.
double limitedFlatTiltGain(double gain, double unclampedGain, double frequency, double secondFrequency) {
    if (!((gain > 0.0 && frequency < secondFrequency) || (gain < 0.0 && frequency > secondFrequency)))
        return gain;
    double total = std::fabs(std::log2(frequency / secondFrequency) * std::fabs(gain / 5.0)) +
                   std::min(std::fabs(unclampedGain), kMaximumGainDb);
    total = std::max(total, kMaximumGainDb);
    return gain * kMaximumGainDb / total;
}

// Slope value against dB/oct, linear between the points.
constexpr std::array<std::array<double, 2>, 5> kSlopeTable{
    {{-1.0, 0.0}, {5.0, 36.0}, {6.0, 48.0}, {7.0, 72.0}, {8.0, 96.0}}};

// Reads the table from column `from` to column `to`; x is clamped to the table's range.
double throughSlopeTable(double x, size_t from, size_t to) {
    if (x <= kSlopeTable[0][from])
        return kSlopeTable[0][to];
    for (size_t i = 1; i < kSlopeTable.size(); ++i) {
        if (x <= kSlopeTable[i][from]) {
            const auto& a = kSlopeTable[i - 1];
            const auto& b = kSlopeTable[i];
            return a[to] + (x - a[from]) * (b[to] - a[to]) / (b[from] - a[from]);
        }
    }
    return kSlopeTable.back()[to];
}

} // namespace

bool isBrickwall(FilterShape shape, float slope) {
    return isCut(shape) && slope > 8.01f;
}

double slopeToDbPerOctave(float slope) {
    return throughSlopeTable(std::min(finiteOr(slope, -1.0), 8.0), 0, 1);
}

float dbPerOctaveToSlope(double dbPerOctave) {
    const double db = finiteOr(dbPerOctave, 0.0);
    if (db <= 0.0)
        return -1.0f;
    if (db > kSlopeTable.back()[1])
        return 9.0f;
    return static_cast<float>(throughSlopeTable(db, 1, 0));
}

double orderForSlope(FilterShape shape, float slope) {
    if (isBrickwall(shape, slope))
        return 12.0;
    double order = slopeToDbPerOctave(slope) / 6.0;
    const double minimum = allowsZeroOrder(shape) ? 0.0 : (isBandShape(shape) ? 2.0 : 1.0);
    order = std::max(order, minimum);
    const double nearest = std::round(order);
    return std::fabs(order - nearest) < 0.001 ? nearest : order;
}

double prototypeQ(FilterShape shape, double q) {
    q = std::clamp(finiteOr(q, 1.0), 1e-3, 1e3);
    if (isShelfOrTilt(shape))
        return std::exp2((std::log(q) / std::log(40.0) * 0.5 + 0.5) * 5.0) * 0.125;
    return q * kButterworthDamping;
}

double userQ(FilterShape shape, double q) {
    if (isShelfOrTilt(shape))
        return std::pow(40.0, (std::log(8.0 * q) / std::log(32.0) - 0.5) * 2.0);
    return q / kButterworthDamping;
}

void designBand(AnalogFilterPrototype& prototype, const EQBandSettings& band) {
    const bool brickwall = isBrickwall(band.shape, band.slope);
    const double frequency = sanitisedFrequency(band.frequency);
    const double secondFrequency = sanitisedFrequency(band.secondFrequency);
    const double unclampedGain = finiteOr(band.gain, 0.0);
    double gain = 0.0;
    if (hasGain(band.shape)) {
        gain = std::clamp(unclampedGain, -kMaximumGainDb, kMaximumGainDb);
        if (band.shape == FilterShape::FlatTilt)
            gain = limitedFlatTiltGain(gain, unclampedGain, frequency, secondFrequency);
    }
    const double q = prototypeQ(band.shape, brickwall ? 1.0 : band.q);
    const auto family = brickwall ? DesignFamily::Elliptic : DesignFamily::Butterworth;
    prototype.set(static_cast<float>(orderForSlope(band.shape, band.slope)), static_cast<float>(q),
                  static_cast<float>(dbToGain(gain)), family, band.shape);
    if (band.shape != FilterShape::FlatTilt) {
        prototype.setFrequency(frequency);
        return;
    }
    // Built around the second frequency, pivoting at the first.
    prototype.setFrequency(secondFrequency);
    prototype.scaleNumerators(dbToGain(std::log2(frequency / secondFrequency) * gain / -5.0));
}

void designDigitalBand(AnalogFilterPrototype& prototype, const EQBandSettings& angularBand,
                       double sampleRate) {
    // Below this a sub-first-order Low Cut's far sections shape nothing a listener could hear.
    constexpr double kLowCutNegligibleHz = 1.25;
    designBand(prototype, angularBand);
    if (angularBand.shape == FilterShape::LowCut && orderForSlope(angularBand.shape, angularBand.slope) < 1.0)
        prototype.dropNegligibleLowSections(2.0 * std::numbers::pi * kLowCutNegligibleHz / sampleRate);
}

BandEdges bandEdges(FilterShape shape, double frequency, float q, float slope) {
    const double userQValue = slope <= kFloatEpsilon && !isBandShape(shape) ? 1.0 : q;
    const double prototype = prototypeQ(shape, userQValue);
    double edge = 0.5 / prototype;
    if (shape == FilterShape::Bell || isShelf(shape)) {
        edge *= 2.0 / orderForSlope(shape, slope);
        if (shape == FilterShape::Bell)
            edge += 0.5 / prototype;
    }
    const double s = std::sqrt(edge * edge + 1.0);
    return {(s - edge) * frequency, (s + edge) * frequency};
}
