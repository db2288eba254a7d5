#include "eq/SpectralAnalyzer.h"

#include "eq/AnalogFilterPrototype.h"
#include "eq/BandCompander.h"
#include "foundation/BinaryStreams.h"
#include "foundation/Numbers.h"

#include <algorithm>
#include <cmath>

namespace {

const double kLog2Of100 = std::log2(100.0);
const double kLog2Of10k = std::log2(10000.0);
constexpr double kTimeConstant = 2.3025851; // ln 10: the time to reach 90 %

// The weight of bin position u (in steps from a sub-band's start): full inside, square-root tapers
// one step below and one above.
double taper(double u) {
    if (u < 0.0)
        return std::sqrt(std::max(u + 1.0, 0.0));
    if (u > 1.0)
        return std::sqrt(std::max(2.0 - u, 0.0));
    return 1.0;
}

double approach(double elapsedSamples, double seconds, double sampleRate) {
    const double span = seconds * sampleRate;
    return span <= 1.1920929e-07 ? 1.0 : 1.0 - std::exp(-kTimeConstant * elapsedSamples / span);
}

} // namespace

void SpectralAnalyzer::configure(const Settings& newSettings, double rate) {
    const bool gridChanged = !configured || newSettings.density != settings.density ||
                             newSettings.lowEdge != settings.lowEdge ||
                             newSettings.highEdge != settings.highEdge;
    const bool densityOnly = configured && newSettings.density != settings.density &&
                             newSettings.lowEdge == settings.lowEdge &&
                             newSettings.highEdge == settings.highEdge;
    const bool timesChanged = gridChanged || newSettings.attack != settings.attack ||
                              newSettings.release != settings.release || rate != sampleRate;
    if (newSettings.range != settings.range || newSettings.tilt != settings.tilt) {
        weightsValid = false;
        maskValid = false;
    }
    settings = newSettings;
    sampleRate = rate > 0.0 ? rate : 48000.0;
    configured = true;
    if (gridChanged)
        regrid();
    if (timesChanged)
        retime();
    // A new detection range (not a mere change of density) lets the programme envelope settle again.
    if (gridChanged && !(densityOnly && startUpCountdown > 0)) {
        startUpCountdown = static_cast<int64_t>(kStartUpSeconds * sampleRate);
        fastEnvelope = 0.0;
    }
}

void SpectralAnalyzer::setResponses(const AnalogFilterPrototype* newStatic,
                                    const AnalogFilterPrototype* newFull) {
    staticDesign = newStatic;
    fullDesign = newFull;
    weightsValid = false;
    maskValid = false;
}

void SpectralAnalyzer::setBinGrid(int32_t numBins, double spacing) {
    const auto bins = static_cast<size_t>(std::max(numBins, 0));
    binHz = spacing > 0.0 ? spacing : 1.0;
    binLog2.resize(bins);
    for (size_t i = 0; i < bins; ++i)
        binLog2[i] = static_cast<float>(std::log2(std::max(static_cast<double>(i) * binHz, 1.0)));
    binGain.assign(bins, 0.0f);
    binMask.assign(bins, 0.0f);
    subBandStarts.assign(bins, false);
    maskValid = false;
    if (configured)
        regrid();
}

void SpectralAnalyzer::regrid() {
    const double low = settings.lowEdge;
    const double high = settings.highEdge;
    const double span = std::max(high - low, 0.01);
    const double mid = std::clamp((high + low) * 0.5, kLog2Of100, kLog2Of10k) - kLog2Of100;
    double width = (-0.1 * mid / (kLog2Of10k - kLog2Of100) + 0.125) * (-1.5 * settings.density / 100.0 + 2.0);
    width = std::min(width, span * 0.25);
    if (width < span / kMaxSubBands)
        width = span / kMaxSubBands;
    count = std::clamp(static_cast<int32_t>(span / width), 4, kMaxSubBands);
    start = static_cast<float>(low);
    end = static_cast<float>(low + span);
    step = static_cast<float>(span / count);

    // A bit marks the first bin of each sub-band after the one the lowest bin falls in.
    const auto indexOf = [this](size_t bin) {
        return static_cast<int32_t>(std::trunc((binLog2[bin] - start) / step));
    };
    int32_t lastIndex = subBandStarts.empty() ? 0 : indexOf(0);
    for (size_t i = 1; i < subBandStarts.size(); ++i) {
        const int32_t index = indexOf(i);
        subBandStarts[i] = index > lastIndex;
        lastIndex = std::max(lastIndex, index);
    }
    if (!subBandStarts.empty())
        subBandStarts[0] = false;
    weightsValid = false;
}

void SpectralAnalyzer::retime() {
    for (int32_t k = 0; k < count; ++k) {
        const double centre = start + k * step;
        const double p = std::clamp(centre, kLog2Of100, kLog2Of10k) - kLog2Of100;
        // Low sub-bands react up to three times slower than high ones.
        const double slowness = 3.0 - 2.0 * p / (kLog2Of10k - kLog2Of100);
        const double a = settings.attack * 0.01;
        attackSeconds[static_cast<size_t>(k)] =
            static_cast<float>((a * a * a * 0.99975 + 0.00025) * slowness);
        releaseSeconds[static_cast<size_t>(k)] = static_cast<float>(
            (BandCompander::releaseCurve(settings.release * 0.01) * 2.95 + 0.05) * slowness);
    }
}

float SpectralAnalyzer::shapeWeightAt(double hz) const {
    if (staticDesign == nullptr || fullDesign == nullptr || settings.range <= 0.0f)
        return 0.0f;
    const double a = 10.0 * std::log10(std::max(staticDesign->squaredMagnitude(hz), 1e-30));
    const double b = 10.0 * std::log10(std::max(fullDesign->squaredMagnitude(hz), 1e-30));
    return static_cast<float>(std::min(std::fabs(a - b) / settings.range, 1.0));
}

void SpectralAnalyzer::refreshWeights() {
    const bool haveResponses = staticDesign != nullptr && fullDesign != nullptr;
    double tilt = std::pow(10.0, settings.tilt * (start - (start + end) * 0.5) / 20.0);
    const double tiltStep = std::pow(10.0, settings.tilt * step / 20.0);
    for (int32_t k = 0; k < count; ++k) {
        weight[static_cast<size_t>(k)] =
            haveResponses ? static_cast<float>(shapeWeightAt(std::exp2(start + k * step)) * tilt) : 0.0f;
        tilt *= tiltStep;
    }
    weightsValid = true;
}

float SpectralAnalyzer::getWeight(int32_t subBand) {
    if (!weightsValid)
        refreshWeights();
    return weight[static_cast<size_t>(subBand)];
}

void SpectralAnalyzer::refreshMask() {
    for (size_t i = 0; i < binMask.size(); ++i)
        binMask[i] = shapeWeightAt(std::exp2(static_cast<double>(binLog2[i])));
    maskValid = true;
}

void SpectralAnalyzer::gatherSpectrum(const float* magnitudes, int32_t numBins) {
    if (resetPending) {
        level.fill(0.0f);
        resetPending = false;
    }
    const int32_t bins = std::min(numBins, static_cast<int32_t>(binLog2.size()));
    for (int32_t k = 0; k < count; ++k) {
        const double centre = start + k * step;
        const auto first = std::max(static_cast<int32_t>(std::exp2(centre - step) / binHz), 1);
        const auto last = std::min(static_cast<int32_t>(std::exp2(centre + 2.0 * step) / binHz), bins - 1);
        float peak = level[static_cast<size_t>(k)];
        for (int32_t b = first; b <= last; ++b) {
            const double u = (binLog2[static_cast<size_t>(b)] - centre) / step;
            peak = std::max(peak, static_cast<float>(taper(u)) * magnitudes[b]);
        }
        level[static_cast<size_t>(k)] = peak;
    }
}

double SpectralAnalyzer::thresholdLevel() const {
    return dbToGain(settings.autoThreshold ? kAutoThresholdDb : settings.thresholdDb);
}

void SpectralAnalyzer::update(int64_t elapsedSamples) {
    if (elapsedSamples <= 0)
        return;
    if (!weightsValid)
        refreshWeights();
    const double threshold = thresholdLevel();
    double peak = threshold;
    for (int32_t k = 0; k < count; ++k)
        peak = std::max(peak,
                        static_cast<double>(level[static_cast<size_t>(k)]) * weight[static_cast<size_t>(k)]);
    peak = std::max(peak, 0.001);

    const auto elapsed = static_cast<double>(elapsedSamples);
    const double decay = approach(elapsed, kEnvelopeSeconds, sampleRate);
    slowEnvelope = peak > slowEnvelope ? peak : slowEnvelope + (peak - slowEnvelope) * decay;
    if (startUpCountdown > 0) {
        fastEnvelope = peak > fastEnvelope ? peak : fastEnvelope + (peak - fastEnvelope) * decay;
        startUpCountdown -= elapsedSamples;
        if (startUpCountdown <= 0)
            slowEnvelope = fastEnvelope;
    }
    envelopeDb = static_cast<float>(20.0 * std::log10(std::max(slowEnvelope, 1e-9)));

    const double norm = settings.autoThreshold && slowEnvelope != 0.0 ? 1.0 / slowEnvelope : 1.0;
    const double minimumGain = dbToGain(-std::fabs(settings.range));
    for (int32_t k = 0; k < count; ++k) {
        const auto index = static_cast<size_t>(k);
        const double x = std::max(level[index] * weight[index] * norm, threshold);
        const double g = std::max(threshold / x, minimumGain);
        const double target = 1.0 - g;
        const double seconds = target > gainReduction[index] ? attackSeconds[index] : releaseSeconds[index];
        gainReduction[index] +=
            static_cast<float>((target - gainReduction[index]) * approach(elapsed, seconds, sampleRate));
    }

    if (!maskValid)
        refreshMask();
    for (size_t i = 0; i < binGain.size(); ++i) {
        const auto k = static_cast<int32_t>(std::lround((binLog2[i] - start) / step));
        const float s = k >= 0 && k < count ? gainReduction[static_cast<size_t>(k)] : 0.0f;
        binGain[i] = s * binMask[i];
    }
}

void SpectralAnalyzer::applyToMagnitudes(int32_t first, double* staticPower, const float* fullPower,
                                         int32_t numBins) const {
    for (int32_t i = 0; i < numBins; ++i) {
        const int32_t bin = first + i;
        const double reduction =
            bin >= 0 && bin < static_cast<int32_t>(binGain.size()) ? binGain[static_cast<size_t>(bin)] : 0.0;
        const double a = staticPower[i];
        const double b = fullPower[i];
        const double g = 1.0 - reduction;
        // A cut deepens toward the full range; a boost (expansion) grows toward it.
        const double f = a < b ? (g > 0.0 ? 1.0 / g : 1e30) : g;
        staticPower[i] = std::clamp(f * f * a, std::min(a, b), std::max(a, b));
    }
}

void SpectralAnalyzer::writeRecord(BinaryDataWriter& writer, int64_t position) const {
    const auto wide = static_cast<uint64_t>(position);
    writer.writeUInt32(static_cast<uint32_t>(wide & 0xFFFFFFFFu));
    writer.writeUInt32(static_cast<uint32_t>(wide >> 32));
    writer.writeFloat(start);
    writer.writeFloat(step);
    writer.writeFloat(envelopeDb);
    writer.writeFloat(settings.range);
    writer.writeUInt32(static_cast<uint32_t>(count));
    for (int32_t k = 0; k < count; ++k)
        writer.writeFloat(gainReduction[static_cast<size_t>(k)]);
    for (size_t word = 0; word * 32 < subBandStarts.size(); ++word) {
        uint32_t bits = 0;
        for (size_t bit = 0; bit < 32 && word * 32 + bit < subBandStarts.size(); ++bit)
            bits |= subBandStarts[word * 32 + bit] ? (1u << bit) : 0u;
        writer.writeUInt32(bits);
    }
}
