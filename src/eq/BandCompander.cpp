#include "eq/BandCompander.h"

#include "foundation/Numbers.h"
#include "plugin/eq/ParameterMappings.h"
#include "wave/FastLevel.h"
#include "wave/GainComputer.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <iterator>

namespace {

// Release value (as a fraction) to its curve position; slow settings spread over most of the knob.
constexpr double kReleaseValues[] = {0.0, 0.1, 0.25, 0.5, 0.7, 0.9, 1.0};
constexpr double kReleaseCurve[] = {0.0, 0.002, 0.05, 0.16, 0.36, 0.91, 1.0};
constexpr int kReleasePoints = static_cast<int>(std::size(kReleaseValues));

// Every constant block in the list.
bool allConstant(std::initializer_list<const wave::BasicBlock<float>*> blocks) {
    return std::all_of(blocks.begin(), blocks.end(), [](auto* block) { return block->isConstant(); });
}

} // namespace

BandCompander::BandCompander(wave::Environment* environment)
    : Filter(environment), threshold(environment, static_cast<float>(thresholdDbFromStored(0.6666667))),
      knee(environment, wave::GainComputer::kDefaultKneeDb), ratio(environment, kDefaultRatio),
      limit(environment, kLargestRangeDb), stages{wave::Capacitor(environment), wave::Capacitor(environment),
                                                  wave::Capacitor(environment)},
      normalizer(environment), levels(environment), scratch(environment) {
    threshold.getParameter().setRange(-120.0f, 24.0f);
    knee.getParameter().setRange(0.0f, 24.0f);
    ratio.getParameter().setRange(1.0f, 100.0f);
    limit.getParameter().setRange(0.0f, kLargestRangeDb);
    normalizer.setOutputInDb(true);
    normalizer.getSlowFollower().getAttackTime().getParameter().jumpTo(kEnvelopeAttackSeconds);
    normalizer.getSlowFollower().getReleaseTime().getParameter().jumpTo(kEnvelopeReleaseSeconds);
    normalizer.getFastFollower().getAttackTime().getParameter().jumpTo(kEnvelopeStartUpSeconds);
    normalizer.getFastFollower().getReleaseTime().getParameter().jumpTo(kEnvelopeStartUpSeconds);
    updateTimeConstants();
}

double BandCompander::releaseCurve(double fraction) {
    return std::copysign(
        interpolateBreakpoints(std::fabs(fraction), kReleaseValues, kReleaseCurve, kReleasePoints), fraction);
}

BandCompander::TimeConstants BandCompander::timeConstantsFor(float attack, float release, float lowEdge,
                                                             float highEdge) {
    const double xr = releaseCurve(release * 0.01);
    const double w = lowEdge < 4.5f ? 1.0 : 1.0 - 0.1 * std::min(lowEdge - 4.5, 10.0);
    const double ya = std::pow(attack * (1.0 + 0.6 * w * w) * 0.01, 4.0);
    const double y2 = ya * 0.59975004 + 0.00025;
    const double fc = std::max(std::exp2((lowEdge + highEdge) * 0.5), 100.0);
    const double q = 100.0 / fc;
    const double bandwidth = highEdge - lowEdge;
    const double b = bandwidth < 2.0 ? 0.0 : (std::min(bandwidth, 8.0) - 2.0) / 6.0;
    const double x = 2.495 * xr + 0.005;
    TimeConstants times;
    times.stage1Release = static_cast<float>(std::min(q + b, 1.0) * 0.02 + 0.015);
    times.stage2Attack = static_cast<float>(std::max(0.3 - 30.0 * y2, 0.12));
    times.stage2Release = static_cast<float>(1.290372985 * x + 0.25);
    times.stage3Attack = static_cast<float>(y2 + 0.01 * b);
    times.stage3Release = static_cast<float>(x * (0.25 * q + 0.45));
    return times;
}

void BandCompander::propertyChanged(AbstractProperty& property) {
    if (&property == &attack || &property == &release || &property == &detectorLowEdge ||
        &property == &detectorHighEdge)
        updateTimeConstants();
}

void BandCompander::updateTimeConstants() {
    const TimeConstants times = timeConstantsFor(attack, release, detectorLowEdge, detectorHighEdge);
    // Stage 1 catches every peak at once; only its release is program dependent.
    stages[0].getAttackTime().getParameter().jumpTo(0.0f);
    stages[0].getReleaseTime().getParameter().jumpTo(times.stage1Release);
    stages[1].getAttackTime().getParameter().jumpTo(times.stage2Attack);
    stages[1].getReleaseTime().getParameter().jumpTo(times.stage2Release);
    stages[2].getAttackTime().getParameter().jumpTo(times.stage3Attack);
    // The slowest stage glides to a new release so that a knob turn does not jolt the gain.
    stages[2].getReleaseTime().getParameter().setValue(times.stage3Release);
}

void BandCompander::reset() {
    for (wave::Capacitor& stage : stages)
        stage.reset();
    normalizer.reset();
}

void BandCompander::process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t flags) {
    const wave::BasicBlock<float>* input = fetchInput(numSamples);
    inputConstant = input->isConstant();
    processFilter(input->getData(), block, numSamples, flags);
}

bool BandCompander::measureLevel(const float* input, float* level, int32_t numSamples) {
    if (autoThreshold) {
        normalizer.process(input, level, numSamples, inputConstant);
        return normalizer.isSilent();
    }
    if (inputConstant) {
        std::fill_n(level, numSamples, wave::fastAmplitudeToDb(input[0]));
        return true;
    }
    std::copy_n(input, numSamples, level);
    wave::amplitudeToDb(level, numSamples);
    return false;
}

bool BandCompander::stagesRestAt(float value) const {
    return std::all_of(stages.begin(), stages.end(), [value](const wave::Capacitor& stage) {
        return std::fabs(stage.getState() - value) <= kFloatEpsilon;
    });
}

void BandCompander::smooth(float* out, int32_t numSamples) {
    float* held = scratch.getData();
    stages[0].processInPlace(out, out, numSamples);
    stages[1].processInPlace(out, held, numSamples);
    // The slow stage holds the gain through short dips between peaks.
    for (int32_t i = 0; i < numSamples; ++i)
        out[i] = std::max(out[i], held[i]);
    stages[2].processInPlace(out, out, numSamples);
}

void BandCompander::processFilter(const float* input, wave::BasicBlock<float>* block, int32_t numSamples,
                                  int32_t) {
    wave::Environment* environment = getEnvironment();
    if (expectedPosition == environment->getPositionAtLastFullReset() ||
        expectedPosition != environment->getPosition())
        reset();
    expectedPosition = environment->getPosition() + numSamples;

    const auto* thresholds = threshold.fetch(numSamples);
    const auto* knees = knee.fetch(numSamples);
    const auto* ratios = ratio.fetch(numSamples);
    const auto* limits = limit.fetch(numSamples);
    float* level = levels.getData();
    float* out = block->getData();
    const bool steadyLevel = measureLevel(input, level, numSamples);

    // Auto mode measures against the running level, so the band's own threshold does not apply.
    const bool relative = autoThreshold;
    const auto thresholdAt = [&](int32_t i) {
        return relative ? kAutoThresholdDb : thresholds->getData()[i];
    };
    const bool steady = steadyLevel && allConstant({thresholds, knees, ratios, limits});
    if (steady) {
        const float change = wave::GainComputer::gainChangeDb(level[0], thresholdAt(0), knees->getData()[0],
                                                              ratios->getData()[0], limits->getData()[0]);
        std::fill_n(out, numSamples, change);
    } else {
        for (int32_t i = 0; i < numSamples; ++i)
            out[i] = wave::GainComputer::gainChangeDb(level[i], thresholdAt(i), knees->getData()[i],
                                                      ratios->getData()[i], limits->getData()[i]);
    }

    const bool atRest = steady && stagesRestAt(out[0]);
    if (!atRest)
        smooth(out, numSamples);
    if (rangeSign < 0.0f) {
        for (int32_t i = 0; i < numSamples; ++i)
            out[i] = -out[i];
    }
    block->setConstant(atRest);
}
