#include "eq/BandCompander.h"
#include "eq/DynamicEQFilter.h"
#include "eq/EQFilter.h"
#include "plugin/eq/ParameterMappings.h"
#include "support/AllocationCounter.h"
#include "wave/Environment.h"
#include "wave/FloatParameter.h"
#include "wave/Input.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>
#include <numbers>
#include <random>
#include <utility>
#include <vector>

namespace {

constexpr float kRate = 48000.0f;
constexpr int32_t kBlock = 256;

int32_t seconds(double s) {
    return static_cast<int32_t>(s * kRate);
}

float dbToAmplitude(double db) {
    return static_cast<float>(std::pow(10.0, db / 20.0));
}

// Appends a sine of the given length, frequency and level; the phase runs on across segments.
void appendTone(std::vector<float>& signal, int32_t count, double hz, double levelDb) {
    const double amplitude = std::pow(10.0, levelDb / 20.0);
    const size_t start = signal.size();
    for (int32_t i = 0; i < count; ++i)
        signal.push_back(static_cast<float>(
            amplitude * std::sin(2.0 * std::numbers::pi * hz * static_cast<double>(start + i) / kRate)));
}

std::vector<float> noise(int32_t count) {
    std::mt19937 random(11);
    std::uniform_real_distribution<float> uniform(-0.5f, 0.5f);
    std::vector<float> samples(static_cast<size_t>(count));
    for (float& s : samples)
        s = uniform(random);
    return samples;
}

double rms(const std::vector<float>& signal, int32_t from, int32_t to) {
    double sum = 0.0;
    for (int32_t i = from; i < to; ++i)
        sum += static_cast<double>(signal[static_cast<size_t>(i)]) * signal[static_cast<size_t>(i)];
    return std::sqrt(sum / (to - from));
}

// Gain in dB from input to output over a window given in seconds.
double gainDb(const std::vector<float>& input, const std::vector<float>& output, double from, double to) {
    return 20.0 *
           std::log10(rms(output, seconds(from), seconds(to)) / rms(input, seconds(from), seconds(to)));
}

class DynamicEQTest : public ::testing::Test {
protected:
    DynamicEQTest() { environment.setSampleRate(kRate); }

    // One block through the graph; returns nothing, so that it may run where allocation is counted.
    void step(std::initializer_list<wave::Producer*> outputs, int32_t n) {
        environment.nextGeneration();
        for (wave::Producer* output : outputs)
            output->fetch(n);
        environment.advance(n, true);
    }

    // Runs the graph for count samples and returns what each producer delivered.
    std::vector<std::vector<float>> render(std::initializer_list<wave::Producer*> outputs, int32_t count) {
        std::vector<std::vector<float>> results(outputs.size());
        for (int32_t done = 0; done < count; done += kBlock) {
            const int32_t n = std::min(kBlock, count - done);
            environment.nextGeneration();
            auto result = results.begin();
            for (wave::Producer* output : outputs) {
                const float* data = output->fetch(n)->getData();
                result->insert(result->end(), data, data + n);
                ++result;
            }
            environment.advance(n, true);
        }
        return results;
    }

    // A compander set up as a plain (manual) detector with the given curve.
    void configure(BandCompander& compander, float thresholdDb, float ratio, float limitDb) {
        compander.getThreshold().getParameter().jumpTo(thresholdDb);
        compander.getRatio().getParameter().jumpTo(ratio);
        compander.getLimit().getParameter().jumpTo(limitDb);
    }

    // A dynamic Bell at 1 kHz, Q 1, static gain 0 dB, with the given range.
    void configureBell(DynamicEQFilter& filter, float rangeDb) {
        filter.shape.setValue(FilterShape::Bell);
        filter.frequency.setValue(std::log2(1000.0f));
        filter.q.setValue(1.0f);
        filter.baseGain.setValue(0.0f);
        filter.range.setValue(rangeDb);
        filter.dynamicsEnabled.setValue(true);
    }

    // The signal through a static Bell at 1 kHz.
    std::vector<float> staticBell(std::vector<float> signal, float q, float gainDb) {
        EQFilter reference(&environment);
        reference.setFrequency(std::log2(1000.0f));
        reference.setQ(q);
        reference.setGain(gainDb);
        reference.processBlock(signal.data(), signal.data(), static_cast<int32_t>(signal.size()));
        return signal;
    }

    wave::Environment environment{512, 0};
};

TEST_F(DynamicEQTest, ThresholdLawAndTimeConstantExamples) {
    // 60 (m - 1) with m from the stored value's breakpoints (0, 0.1, 0.2, 1) -> (0, 0.2, 0.4666666, 1).
    const std::pair<float, float> thresholds[] = {
        {0.0f, -60.0f}, {0.1f, -48.0f}, {0.6666667f, -13.33333f}, {1.0f, 0.0f}};
    for (const auto& [stored, db] : thresholds)
        EXPECT_NEAR(thresholdDbFromStored(stored), db, 1e-3);

    const float lo1k = std::log2(1000.0f);
    const float hi4k = std::log2(4000.0f);
    // Attack 0 on a two-octave band from 1 to 4 kHz: y2 = 0.00025 s, b = 0, fc = 2 kHz, q = 0.05.
    auto times = BandCompander::timeConstantsFor(0.0f, 35.0f, lo1k, hi4k);
    EXPECT_NEAR(times.stage1Release, 0.016f, 1e-6);
    EXPECT_NEAR(times.stage2Attack, 0.2925f, 1e-6);
    EXPECT_NEAR(times.stage3Attack, 0.00025f, 1e-7);
    // Release 35: xr = 0.05 + 0.4 * 0.11 = 0.094, X = 2.495 * 0.094 + 0.005 = 0.23953.
    EXPECT_NEAR(times.stage2Release, 1.290372985f * 0.23953f + 0.25f, 1e-5);
    EXPECT_NEAR(times.stage3Release, 0.23953f * (0.25f * 0.05f + 0.45f), 1e-5);

    // A wide band (20 Hz .. 20 kHz, almost 10 octaves): b = 1, q = 100 / 632.5 Hz.
    times = BandCompander::timeConstantsFor(0.0f, 70.0f, std::log2(20.0f), std::log2(20000.0f));
    EXPECT_NEAR(times.stage3Attack, 0.00025f + 0.01f, 1e-6);
    EXPECT_NEAR(times.stage1Release, 0.035f, 1e-6); // min(q + 1, 1) caps it
    // Release 70: xr = 0.36, X = 0.9032.
    EXPECT_NEAR(times.stage2Release, 1.290372985f * 0.9032f + 0.25f, 1e-5);
    EXPECT_NEAR(times.stage3Release, 0.9032f * (0.25f * 100.0f / 632.4555f + 0.45f), 1e-5);

    // Attack 50 below 4.5 (w = 1): ya = 0.8^4, the fast stage bottoms out at 0.12 s.
    times = BandCompander::timeConstantsFor(50.0f, 0.0f, 4.0f, 14.0f);
    EXPECT_NEAR(times.stage2Attack, 0.12f, 1e-6);
    EXPECT_NEAR(times.stage3Attack, 0.4096f * 0.59975004f + 0.00025f + 0.01f, 1e-6);
    EXPECT_NEAR(times.stage2Release, 0.25f + 1.290372985f * 0.005f, 1e-6);
    // Attack 25 with the low edge at 14.5 (w = 0): ya = 0.25^4.
    times = BandCompander::timeConstantsFor(25.0f, 35.0f, 14.5f, 15.0f);
    EXPECT_NEAR(times.stage2Attack, 0.3f - 30.0f * (0.00390625f * 0.59975004f + 0.00025f), 1e-6);

    // The compander applies them when its settings change.
    BandCompander compander(&environment);
    compander.attack.setValue(0.0f);
    compander.detectorLowEdge.setValue(lo1k);
    compander.detectorHighEdge.setValue(hi4k);
    EXPECT_NEAR(compander.getStage(0).getReleaseTime().getParameter().getTarget(), 0.016f, 1e-6);
    EXPECT_NEAR(compander.getStage(1).getAttackTime().getParameter().getTarget(), 0.2925f, 1e-6);
    EXPECT_NEAR(compander.getStage(2).getAttackTime().getParameter().getTarget(), 0.00025f, 1e-7);
}

TEST_F(DynamicEQTest, SteadyLevelsSettleOnTheGainComputerCurve) {
    struct Case {
        float overDb, ratio, limitDb, sign, expected;
    };
    // Threshold -20 dB, knee 6 dB. At the threshold: (0 + 3)^2 / 12 = 0.75 dB over, 0.375 at ratio 2;
    // 1.5 dB into the knee: 4.5^2 / 12 = 1.6875 over; 10 dB above at ratio 4: 7.5; a limiter takes
    // all 10 dB unless the limit stops it; 4 dB below the threshold is below the knee.
    const Case cases[] = {{0.0f, 2.0f, 20.0f, 1.0f, 0.375f},   {1.5f, 2.0f, 20.0f, 1.0f, 0.84375f},
                          {10.0f, 4.0f, 20.0f, 1.0f, 7.5f},    {10.0f, 100.0f, 20.0f, 1.0f, 10.0f},
                          {10.0f, 99.9999f, 4.0f, 1.0f, 4.0f}, {-4.0f, 2.0f, 20.0f, 1.0f, 0.0f},
                          {0.0f, 2.0f, 20.0f, -1.0f, -0.375f}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.overDb);
        FloatParameterSource dc(&environment, dbToAmplitude(-20.0 + c.overDb));
        BandCompander compander(&environment);
        compander.setInput(&dc);
        configure(compander, -20.0f, c.ratio, c.limitDb);
        compander.setRangeSign(c.sign);
        const auto out = render({&compander}, seconds(1.0))[0];
        EXPECT_NEAR(out.back(), c.expected, 2e-3);
        // Once every stage has arrived the block is steady and says so.
        EXPECT_TRUE(compander.getCurrentBlock()->isConstant());
    }
}

TEST_F(DynamicEQTest, ToneBurstMovesTheBandTowardItsRangeAndBack) {
    std::vector<float> signal;
    appendTone(signal, seconds(0.5), 1000.0, -40.0);
    appendTone(signal, seconds(1.0), 1000.0, -6.0);
    appendTone(signal, seconds(2.5), 1000.0, -40.0);
    appendTone(signal, seconds(1.0), 100.0, -6.0); // out of band: must not trigger

    for (const float range : {-12.0f, 12.0f}) {
        SCOPED_TRACE(range);
        wave::Input input(&environment);
        input.setData(signal.data(), static_cast<int32_t>(signal.size()));
        EQFilter detector(&environment);
        detector.shape.setValue(FilterShape::BandPass);
        detector.setFrequency(std::log2(1000.0f));
        detector.setQ(2.0f);
        detector.setInput(&input);
        BandCompander compander(&environment);
        compander.setInput(&detector);
        configure(compander, -20.0f, 100.0f, std::fabs(range));
        compander.setRangeSign(range);
        DynamicEQFilter band(&environment);
        configureBell(band, range);
        band.setInput(&input);
        band.setGainSource(&compander);
        ASSERT_TRUE(band.isDynamic());

        const auto results = render({&band, &compander}, static_cast<int32_t>(signal.size()));
        const auto& output = results[0];
        EXPECT_NEAR(gainDb(signal, output, 0.3, 0.5), 0.0, 0.05);  // quiet: static gain
        EXPECT_NEAR(gainDb(signal, output, 1.0, 1.5), range, 0.2); // loud: gain + range
        EXPECT_NEAR(gainDb(signal, output, 3.5, 4.0), 0.0, 0.1);   // released
        EXPECT_NEAR(gainDb(signal, output, 4.2, 5.0), 0.0, 0.2);   // 100 Hz tone: Bell's skirt only
        const auto& change = results[1];
        const auto outOfBand = std::minmax_element(change.begin() + seconds(4.1), change.end());
        EXPECT_LT(std::max(std::fabs(*outOfBand.first), std::fabs(*outOfBand.second)), 0.01f);
    }
}

TEST_F(DynamicEQTest, AutoThresholdFollowsTheProgrammeLevel) {
    std::vector<float> signal;
    appendTone(signal, seconds(4.0), 1000.0, -30.0);
    appendTone(signal, seconds(5.0), 1000.0, -6.0);
    wave::Input input(&environment);
    input.setData(signal.data(), static_cast<int32_t>(signal.size()));
    BandCompander compander(&environment);
    compander.setInput(&input);
    // A manual threshold this low would hold the band at its limit; auto mode must ignore it.
    configure(compander, -100.0f, 100.0f, 12.0f);
    compander.autoThreshold.setValue(true);
    const auto change = render({&compander}, static_cast<int32_t>(signal.size()))[0];

    const auto peakIn = [&](double from, double to) {
        return *std::max_element(change.begin() + seconds(from), change.begin() + seconds(to));
    };
    const float settledQuiet = peakIn(3.5, 4.0);
    const float settledLoud = peakIn(8.5, 9.0);
    // A steady tone settles to the same small change at any level.
    EXPECT_LT(settledQuiet, 0.5f);
    EXPECT_NEAR(settledLoud, settledQuiet, 0.1f);
    // A jump of 24 dB above the running level drives the band to its limit, and it lets go as the
    // running level catches up.
    EXPECT_GT(peakIn(4.0, 4.3), 11.5f);
    EXPECT_LE(peakIn(4.0, 4.3), 12.0f);
    EXPECT_LT(peakIn(6.0, 6.5), 1.0f);
}

TEST_F(DynamicEQTest, WithoutDynamicsTheBandIsItsStaticFilter) {
    const auto signal = noise(seconds(0.2));
    struct Case {
        bool dynamicsEnabled;
        float range;
    };
    for (const Case c : {Case{true, 0.0f}, Case{false, -12.0f}}) {
        wave::Input input(&environment);
        input.setData(signal.data(), static_cast<int32_t>(signal.size()));
        FloatParameterSource change(&environment, -6.0f);
        change.getParameter().setRange(-30.0f, 30.0f);
        change.getParameter().jumpTo(-6.0f);
        DynamicEQFilter band(&environment);
        band.frequency.setValue(std::log2(1000.0f));
        band.q.setValue(2.0f);
        band.baseGain.setValue(3.0f);
        band.gainScale.setValue(2.0f);
        band.range.setValue(c.range);
        band.dynamicsEnabled.setValue(c.dynamicsEnabled);
        band.setInput(&input);
        band.setGainSource(&change);
        EXPECT_FALSE(band.isDynamic());

        EXPECT_EQ(render({&band}, static_cast<int32_t>(signal.size()))[0], staticBell(signal, 2.0f, 6.0f));
    }
}

TEST_F(DynamicEQTest, CrossfadeLandsOnTheMomentaryGain) {
    const auto signal = noise(seconds(0.2));
    std::vector<float> tone;
    appendTone(tone, seconds(0.5), 1000.0, -6.0);
    for (const float changeDb : {0.0f, -12.0f, -6.0f}) {
        SCOPED_TRACE(changeDb);
        FloatParameterSource change(&environment, 0.0f);
        change.getParameter().setRange(-30.0f, 30.0f);
        change.getParameter().jumpTo(changeDb);
        DynamicEQFilter band(&environment);
        configureBell(band, -12.0f);
        band.setGainSource(&change);
        ASSERT_TRUE(band.isDynamic());

        wave::Input input(&environment);
        band.setInput(&input);
        input.setData(tone.data(), static_cast<int32_t>(tone.size()));
        const auto output = render({&band}, static_cast<int32_t>(tone.size()))[0];
        // At the centre frequency the two filters are in phase; the mix carries the momentary gain.
        EXPECT_NEAR(gainDb(tone, output, 0.3, 0.5), changeDb, 0.02);

        if (changeDb == -6.0f)
            continue;
        // At the ends the band is exactly one of its static filters.
        band.reset();
        input.setData(signal.data(), static_cast<int32_t>(signal.size()));
        const auto expected = staticBell(signal, 1.0f, changeDb);
        const auto noiseOutput = render({&band}, static_cast<int32_t>(signal.size()))[0];
        for (size_t i = 0; i < noiseOutput.size(); ++i)
            ASSERT_NEAR(noiseOutput[i], expected[i], 1e-6f) << i;
    }
}

TEST_F(DynamicEQTest, SilenceRestsAndAJumpInTimeResets) {
    FloatParameterSource level(&environment, 0.5f);
    BandCompander compander(&environment);
    compander.setInput(&level);
    configure(compander, -20.0f, 100.0f, 12.0f);
    EXPECT_NEAR(render({&compander}, seconds(0.5))[0].back(), 12.0f, 1e-3);

    // Silence after a loud passage: the gain is released gradually, then rests as a constant 0.
    level.getParameter().jumpTo(0.0f);
    auto released = render({&compander}, seconds(0.05))[0];
    EXPECT_GT(released.front(), 1.0f);
    EXPECT_FALSE(compander.getCurrentBlock()->isConstant());
    released = render({&compander}, seconds(10.0))[0];
    EXPECT_TRUE(compander.getCurrentBlock()->isConstant());
    EXPECT_EQ(released.back(), 0.0f);
    for (int32_t stage = 0; stage < BandCompander::kStages; ++stage)
        EXPECT_NEAR(compander.getStage(stage).getState(), 0.0, 1e-6);

    // Loud again, then the stream skips ahead: the stages start afresh instead of releasing.
    level.getParameter().jumpTo(0.5f);
    render({&compander}, seconds(0.5));
    level.getParameter().jumpTo(0.0f);
    environment.advance(1000, true);
    const auto afterJump = render({&compander}, kBlock)[0];
    EXPECT_EQ(afterJump.front(), 0.0f);
    EXPECT_TRUE(compander.getCurrentBlock()->isConstant());
}

TEST_F(DynamicEQTest, ProcessingNeitherAllocatesNorStaysBrokenAfterNonFiniteInput) {
    std::vector<float> signal;
    appendTone(signal, seconds(0.3), 1000.0, -6.0);
    const float bad[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity()};
    for (int32_t i = 0; i < 3 * kBlock; ++i)
        signal[static_cast<size_t>(seconds(0.1) + i)] = bad[i % 3];
    wave::Input input(&environment);
    input.setData(signal.data(), static_cast<int32_t>(signal.size()));
    BandCompander compander(&environment);
    compander.setInput(&input);
    configure(compander, -20.0f, 100.0f, 12.0f);
    compander.setRangeSign(-1.0f);
    DynamicEQFilter band(&environment);
    configureBell(band, -12.0f);
    band.setInput(&input);
    band.setGainSource(&compander);

    {
        testing_support::AllocationCounter counter;
        for (int32_t done = 0; done < seconds(0.05); done += kBlock)
            step({&band, &compander}, kBlock);
        // Settings change on the audio thread too.
        compander.attack.setValue(10.0f);
        compander.release.setValue(60.0f);
        band.range.setValue(-9.0f);
        compander.getLimit().setValue(9.0f);
        EXPECT_EQ(counter.count(), 0u);
    }
    const int32_t start = seconds(0.05);
    const std::vector<float> rest(signal.begin() + start, signal.end());
    const auto results = render({&band, &compander}, static_cast<int32_t>(rest.size()));
    const int32_t healed = seconds(0.2) - start; // 0.1 s after the last bad sample
    for (const auto& result : results)
        for (size_t i = static_cast<size_t>(healed); i < result.size(); ++i)
            ASSERT_TRUE(std::isfinite(result[i])) << i;
    // And the band works again: the loud tone is cut by the new range.
    EXPECT_NEAR(gainDb(rest, results[0], 0.15, 0.2), -9.0, 0.3);
}

} // namespace
