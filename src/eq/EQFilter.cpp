#include "eq/EQFilter.h"

#include "foundation/Numbers.h"
#include "wave/Environment.h"
#include "wave/FloatParameter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr float kGainLimitDb = 30.0f;
constexpr float kBracketWidthDb = 1.0f;
// Below this magnitude the band's deviation fades toward flat; below the floor it is designed at the floor.
constexpr float kFadeGainDb = 0.05f;
constexpr float kGainFloorDb = 0.01f;
// A frequency move this large (octaves) redesigns on the 4-sample grid; smaller ones wait for 32.
constexpr float kFastFrequencyMove = 0.1f;

bool isZero(const DigitalSectionCoefficients& c) {
    return std::all_of(c.begin(), c.end(), [](double v) { return v == 0.0; });
}

// The gain the design sees: within the gain range and never closer to 0 dB than the floor.
float designGainFor(float gainDb) {
    const float limited = std::clamp(gainDb, -kGainLimitDb, kGainLimitDb);
    if (std::fabs(limited) >= kGainFloorDb)
        return limited;
    return limited < 0.0f ? -kGainFloorDb : kGainFloorDb;
}

// How far a gain this small fades the band toward flat (1 = not at all).
float smallGainFactorFor(float gainDb) {
    return std::fabs(gainDb) < kFadeGainDb ? std::fabs(gainDb) * 20.0f : 1.0f;
}

} // namespace

EQFilter::EQFilter(wave::Environment* environment) : BiquadFilter(environment) {
    current[0] = {1.0, 0.0, 0.0, 0.0, 0.0};
    lower = upper = current;
}

double EQFilter::slopeValueToDbPerOctave(float value) {
    return value > 8.0f ? 100.0 : slopeToDbPerOctave(value);
}

float EQFilter::dbPerOctaveToSlopeValue(double dbPerOctave) {
    return dbPerOctaveToSlope(dbPerOctave);
}

void EQFilter::setParameterBlocks(const float* frequencies, const float* gains, const float* qs) {
    frequency.values = frequencies;
    gain.values = gains;
    q.values = qs;
}

void EQFilter::connectParameters(FloatParameter* frequencyParameter, FloatParameter* gainParameter,
                                 FloatParameter* qParameter) {
    frequency.source = frequencyParameter;
    gain.source = gainParameter;
    q.source = qParameter;
}

void EQFilter::processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                             int32_t processFlags) {
    for (ParameterInput* parameter : {&frequency, &gain, &q}) {
        if (parameter->source == nullptr)
            continue;
        auto& values = parameter->source->getValueBlockAt(numSamples);
        if (values.isConstant())
            parameter->setConstant(values[0]);
        else
            parameter->values = values.getData();
    }
    BiquadFilter::processFilter(input, block, numSamples, processFlags);
}

void EQFilter::reset() {
    BiquadFilter::reset();
    forceRedesign();
    lowerGain = upperGain = 0.0f;
    interpolating = false;
    setNumberOfSections(1);
    lastQ = 1.0f;
    w0 = 1.0f;
    secondFrequency = kDefaultSecondFrequency;
}

void EQFilter::clearLink() {
    BiquadFilter::clearLink();
    // While linked the partner designed for both; this filter's own record is stale.
    forceRedesign();
}

void EQFilter::propertyChanged(AbstractProperty& property) {
    BiquadFilter::propertyChanged(property);
    if (&property == &enabled) {
        if (enabled)
            forceRedesign();
        return;
    }
    if (&property == &resetMode)
        return; // set from here, nothing to redesign
    if (&property == &shape || &property == &slope || &property == &flags) {
        updateSlope();
        updateForm();
    } else if (&property == &dynamic) {
        updateForm();
    }
    forceRedesign();
}

void EQFilter::updateSlope() {
    const float value = std::isfinite(slope.getValue()) ? slope.getValue() : 1.0f;
    designSlope = (flags & kFractionalSlopes) != 0 ? value : static_cast<float>(roundToInt(value));
    const FilterShape s = shape;
    const bool restart = isCut(s) && (isBrickwall(s, designSlope) || orderForSlope(s, designSlope) < 1.0);
    resetMode.setValue(restart ? BiquadProcessor::ResetMode::Restart : BiquadProcessor::ResetMode::Crossfade);
}

void EQFilter::updateForm() {
    setForm(hasGain(shape) && dynamic ? DigitalForm::StateVariable : DigitalForm::DirectForm);
}

int32_t EQFilter::design(float gainDb, Sections& out) {
    ++designCount;
    const double sampleRate = getEnvironment()->getSampleRate();
    const double frequencyHz = std::exp2(static_cast<double>(lastFrequency));
    const double angular = 2.0 * std::numbers::pi * frequencyHz / sampleRate;
    w0 = static_cast<float>(angular);
    const auto calculation = coefficientCalculation.getValue();
    double designQ = lastQ;
    if (calculation == CoefficientCalculation::BilinearPrewarpedQ && isBandShape(shape))
        designQ *= (angular / 2.0) / std::tan(std::min(angular, kMaximumTanArgument) / 2.0);

    EQBandSettings band;
    band.shape = shape;
    band.slope = designSlope;
    band.gain = gainDb;
    band.q = static_cast<float>(designQ);
    band.frequency = angular;
    band.secondFrequency = 2.0 * std::numbers::pi * secondFrequency / sampleRate;
    designDigitalBand(prototype, band, sampleRate);

    out.fill({});
    const double tolerance = dynamic ? kDynamicGainTolerance : kStaticGainTolerance;
    const int32_t count =
        designDigitalSections(prototype, angular, calculation, getForm(), tolerance, out.data());
    if (count > 0)
        return std::min(count, kMaximumSections);
    out[0] = getForm() == DigitalForm::DirectForm ? DigitalSectionCoefficients{1.0, 0.0, 0.0, 0.0, 0.0}
                                                  : DigitalSectionCoefficients{0.0, 0.0, 1.0, 0.0, 1.0};
    return 1;
}

void EQFilter::redesign(float frequencyLog2, float gainDb, float qValue) {
    lastFrequency = frequencyLog2;
    lastQ = qValue;
    lastGain = gainDb;
    const bool gainBearing = hasGain(shape);
    smallGainFactor = gainBearing ? smallGainFactorFor(gainDb) : 1.0f;
    const float designGain = gainBearing ? designGainFor(gainDb) : 0.0f;
    sectionCount = design(designGain, current);
    currentIsStale = false;
    lower = upper = current;
    lowerCount = upperCount = sectionCount;
    lowerGain = upperGain = designGain;
    interpolating = false;
}

EQFilter::GainStep EQFilter::followGain(float gainDb) {
    lastGain = gainDb;
    smallGainFactor = smallGainFactorFor(gainDb);
    const float designGain = designGainFor(gainDb);
    if (designGain >= lowerGain && designGain <= upperGain) {
        interpolate(designGain);
        return GainStep::WithinBrackets;
    }
    // One bracket step toward the gain, never with 0 dB as an end.
    float newLower = 0.0f;
    float newUpper = 0.0f;
    if (designGain > upperGain) {
        newLower = upperGain;
        newUpper = upperGain + kBracketWidthDb;
        if (newUpper > kGainLimitDb) {
            newLower = kGainLimitDb - kBracketWidthDb;
            newUpper = kGainLimitDb;
        }
    } else {
        newLower = lowerGain - kBracketWidthDb;
        newUpper = lowerGain;
        if (newLower < -kGainLimitDb) {
            newLower = -kGainLimitDb;
            newUpper = -kGainLimitDb + kBracketWidthDb;
        }
    }
    if (newUpper >= 0.0f && newLower <= 0.0f) {
        newLower = designGain >= 0.0f ? kGainFloorDb : -kGainFloorDb - kBracketWidthDb;
        newUpper = newLower + kBracketWidthDb;
    }
    if (designGain < newLower || designGain > newUpper) {
        redesign(lastFrequency, gainDb, lastQ);
        return GainStep::Redesigned;
    }
    // A bracket that coincides with an old one keeps that design; only the other is designed.
    if (newLower == upperGain) { // a step up: the old upper becomes the lower
        lower = upper;
        lowerCount = upperCount;
        upperCount = design(newUpper, upper);
    } else if (newUpper == lowerGain) { // a step down
        upper = lower;
        upperCount = lowerCount;
        lowerCount = design(newLower, lower);
    } else {
        lowerCount = design(newLower, lower);
        upperCount = design(newUpper, upper);
    }
    lowerGain = newLower;
    upperGain = newUpper;
    sectionCount = std::max(lowerCount, upperCount);
    for (size_t k = 0; k < static_cast<size_t>(sectionCount); ++k) {
        if (isZero(lower[k]) && !isZero(upper[k]))
            lower[k] = upper[k];
        else if (isZero(upper[k]) && !isZero(lower[k]))
            upper[k] = lower[k];
    }
    interpolating = true;
    interpolate(designGain);
    return GainStep::NewBrackets;
}

void EQFilter::interpolate(float designGain) {
    const float width = upperGain - lowerGain;
    rampPosition = width > 0.0f ? (designGain - lowerGain) / width : 0.0;
    currentIsStale = true; // ramps compute their own coefficients; the set is needed only at a segment start
}

const DigitalSectionCoefficients* EQFilter::currentCoefficients() {
    if (currentIsStale) {
        for (size_t k = 0; k < static_cast<size_t>(sectionCount); ++k)
            current[k] = biquad_kernels::interpolated(lower[k], upper[k], rampPosition);
        currentIsStale = false;
    }
    return current.data();
}

void EQFilter::updateCoefficients(int32_t offset, int32_t numSamples) {
    const int64_t start = getStreamPosition();
    const bool gainBearing = hasGain(shape);
    for (int32_t i = 0; i < numSamples; ++i) {
        const int64_t position = start + i;
        float v = frequency.at(offset + i);
        float g = gain.at(offset + i);
        float qValue = q.at(offset + i);
        // NaN keeps the last good value; the frequency is clamped to 1 Hz ... 2^20 Hz.
        if (std::isnan(v))
            v = lastFrequency >= 0.0f ? lastFrequency : kDefaultFrequencyLog2;
        v = std::clamp(v, kMinimumFrequencyLog2, kMaximumFrequencyLog2);
        g = std::isfinite(g) ? g : lastGain;
        qValue = std::isfinite(qValue) ? qValue : lastQ;

        bool designNow = lastFrequency < 0.0f;
        if (position % 4 == 0) {
            const float frequencyMove = std::fabs(v - lastFrequency);
            if (position % 32 == 0)
                designNow |= frequencyMove > kFloatEpsilon || std::fabs(qValue - lastQ) > kFloatEpsilon;
            else
                designNow |= frequencyMove > kFastFrequencyMove;
        }
        GainStep step = GainStep::Unchanged;
        if (designNow) {
            redesign(v, g, qValue);
        } else if (gainBearing && std::fabs(g - lastGain) > kFloatEpsilon) {
            step = followGain(g);
        } else if (getSegmentCount() > 0) {
            extendSegment(1);
            continue;
        }
        // Gain moves within one pair of brackets ramp the coefficients inside the kernels.
        const bool ramps = step == GainStep::WithinBrackets || step == GainStep::NewBrackets;
        if (!ramps)
            addSegment(1, sectionCount, smallGainFactor, currentCoefficients());
        else if (step == GainStep::WithinBrackets && rampOpen && getSegmentCount() > 0 &&
                 smallGainFactor == rampWet)
            extendRamp(rampPosition);
        else
            addRamp(sectionCount, smallGainFactor, lower.data(), upper.data(), rampPosition);
        rampOpen = ramps;
        rampWet = smallGainFactor;
    }
}
