#include "eq/EQFilter.h"
#include "PrototypeTestUtil.h"
#include "support/AllocationCounter.h"
#include "wave/Environment.h"
#include "wave/FloatParameter.h"
#include "wave/Input.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <memory>
#include <numbers>
#include <tuple>
#include <utility>
#include <vector>

using prototype_test::noise;

namespace {

using Coefficients = DigitalSectionCoefficients;
constexpr double kPi = std::numbers::pi;
constexpr float kRate = 48000.0f;

std::vector<float> sine(size_t count, double hz, double rate = kRate, double amplitude = 0.5) {
    std::vector<float> samples(count);
    for (size_t i = 0; i < count; ++i)
        samples[i] = static_cast<float>(amplitude * std::sin(2.0 * kPi * hz * static_cast<double>(i) / rate));
    return samples;
}

// A value ramp from a to b over count samples.
std::vector<float> ramp(size_t count, float a, float b) {
    std::vector<float> values(count);
    for (size_t i = 0; i < count; ++i)
        values[i] = a + (b - a) * static_cast<float>(i) / static_cast<float>(count - 1);
    return values;
}

// The filter's output for the whole input as one block.
std::vector<float> processed(EQFilter& filter, const std::vector<float>& input) {
    std::vector<float> output(input.size());
    filter.processBlock(input.data(), output.data(), static_cast<int32_t>(input.size()));
    return output;
}

// Level in dB at hz of the filter's response to an impulse from rest (the DFT of the impulse response).
double measuredLevelDb(EQFilter& filter, double hz, double rate = kRate) {
    filter.resetStates();
    std::vector<float> impulse(16384, 0.0f);
    impulse[0] = 1.0f;
    impulse = processed(filter, impulse);
    std::complex<double> sum;
    for (size_t n = 0; n < impulse.size(); ++n)
        sum += static_cast<double>(impulse[n]) *
               std::polar(1.0, -2.0 * kPi * hz / rate * static_cast<double>(n));
    return 20.0 * std::log10(std::abs(sum));
}

AnalogFilterPrototype designedBand(FilterShape shape, float slope, double gainDb, double q,
                                   double frequency) {
    AnalogFilterPrototype prototype;
    designBand(prototype, {shape, slope, static_cast<float>(gainDb), static_cast<float>(q), frequency});
    return prototype;
}

// The band's analog design in Hz, the yardstick of the digital response.
double analogLevelDb(FilterShape shape, float slope, double gainDb, double q, double frequency, double hz) {
    return 10.0 * std::log10(designedBand(shape, slope, gainDb, q, frequency).squaredMagnitude(hz));
}

// A Bell redesigned every sample, run as a plain direct-form cascade: the smooth reference for automation.
class FineReference {
public:
    float process(float input, double hz, double gainDb, double q) {
        const double w0 = 2.0 * kPi * hz / kRate;
        std::array<Coefficients, 8> sections{};
        const int32_t count =
            designDigitalSections(designedBand(FilterShape::Bell, 1.0f, gainDb, q, w0), w0,
                                  CoefficientCalculation::MatchedMagnitude, DigitalForm::DirectForm,
                                  kStaticGainTolerance, sections.data());
        float x = input;
        for (int32_t k = 0; k < count; ++k) {
            const auto& c = sections[static_cast<size_t>(k)];
            auto& s = states[static_cast<size_t>(k)];
            const double y = c[0] * x + c[1] * s[0] + c[2] * s[1] - c[3] * s[2] - c[4] * s[3];
            s = {x, s[0], y, s[2]};
            x = static_cast<float>(y);
        }
        return x;
    }

private:
    std::array<std::array<double, 4>, 8> states{};
};

class EQFilterTest : public ::testing::Test {
protected:
    EQFilterTest() { environment.setSampleRate(kRate); }

    std::unique_ptr<EQFilter> bell(double hz, float gainDb, float q) {
        auto filter = std::make_unique<EQFilter>(&environment);
        filter->shape.setValue(FilterShape::Bell);
        filter->setFrequency(static_cast<float>(std::log2(hz)));
        filter->setGain(gainDb);
        filter->setQ(q);
        return filter;
    }

    // Runs per-sample parameter blocks through the filter in chunks of the given size.
    static std::vector<float> automate(EQFilter& filter, const std::vector<float>& input,
                                       const std::vector<float>& frequencies, const std::vector<float>& gains,
                                       size_t chunk) {
        std::vector<float> output(input.size());
        for (size_t p = 0; p < input.size(); p += chunk) {
            const size_t n = std::min(chunk, input.size() - p);
            filter.setParameterBlocks(frequencies.data() + p, gains.data() + p, nullptr);
            filter.processBlock(input.data() + p, output.data() + p, static_cast<int32_t>(n));
        }
        return output;
    }

    wave::Environment environment{512, 0};
};

TEST_F(EQFilterTest, BellResponseFollowsTheAnalogDesignInEveryCalculationAndForm) {
    for (auto calculation : {CoefficientCalculation::MatchedMagnitude, CoefficientCalculation::Bilinear}) {
        for (bool dynamic : {false, true}) {
            auto filter = bell(1000.0, 6.0f, 1.0f);
            filter->coefficientCalculation.setValue(calculation);
            filter->dynamic.setValue(dynamic);
            EXPECT_EQ(filter->getForm(), dynamic ? DigitalForm::StateVariable : DigitalForm::DirectForm);
            EXPECT_NEAR(measuredLevelDb(*filter, 1000.0), 6.0, 0.02);
            EXPECT_NEAR(measuredLevelDb(*filter, 20.0), 0.0, 0.05);
            EXPECT_NEAR(measuredLevelDb(*filter, 2000.0),
                        analogLevelDb(FilterShape::Bell, 1.0f, 6.0, 1.0, 1000, 2000), 0.1);
        }
    }
    // Near Nyquist the matched design keeps the analog peak and width that the bilinear one cramps.
    environment.setSampleRate(44100.0f);
    auto filter = bell(20000.0, 12.0f, 2.0f);
    EXPECT_NEAR(measuredLevelDb(*filter, 20000.0, 44100.0), 12.0, 0.3);
    EXPECT_NEAR(measuredLevelDb(*filter, 17000.0, 44100.0),
                analogLevelDb(FilterShape::Bell, 1.0f, 12.0, 2.0, 20000, 17000), 0.75);
}

TEST_F(EQFilterTest, BlockProcessingEqualsSampleBySampleAndThePlainCascade) {
    const auto input = noise(4800);
    const auto frequencies = ramp(input.size(), std::log2(200.0f), std::log2(5000.0f));
    const auto gains = ramp(input.size(), -12.0f, 12.0f);
    for (bool dynamic : {false, true}) {
        const auto automated = [&](size_t chunk) {
            auto filter = bell(1000.0, 0.0f, 1.5f);
            filter->dynamic.setValue(dynamic);
            return automate(*filter, input, frequencies, gains, chunk);
        };
        const auto expected = automated(1);
        for (size_t chunk : {2, 3, 7, 31, 64, 511, 4800})
            ASSERT_EQ(automated(chunk), expected) << chunk;
        // A joint pair runs both channels as the mono filter runs one.
        auto filter = bell(1000.0, 0.0f, 1.5f);
        filter->dynamic.setValue(dynamic);
        EQFilter partner(&environment);
        filter->linkWith(partner, BiquadFilter::kJoint);
        std::vector<float> left(input.size()), right(input.size());
        for (size_t p = 0; p < input.size(); p += 100) {
            filter->setParameterBlocks(frequencies.data() + p, gains.data() + p, nullptr);
            filter->processBlock(input.data() + p, left.data() + p, input.data() + p, right.data() + p, 100);
        }
        EXPECT_EQ(left, expected);
        EXPECT_EQ(right, expected);
    }

    // Constant parameters: the plain cascade of the same design.
    const auto output = processed(*bell(3000.0, -8.0f, 4.0f), input);
    FineReference reference;
    for (size_t i = 0; i < input.size(); ++i)
        ASSERT_NEAR(output[i], reference.process(input[i], 3000.0, -8.0, 4.0), 1e-5) << i;
}

TEST_F(EQFilterTest, ResetEqualsAFreshInstance) {
    const auto input = noise(3000);
    const auto frequencies = ramp(input.size(), std::log2(100.0f), std::log2(900.0f));
    const auto gains = ramp(input.size(), 3.0f, -7.0f);
    EQFilter used(&environment), fresh(&environment);
    for (EQFilter* filter : {&used, &fresh}) {
        filter->shape.setValue(FilterShape::LowShelf);
        filter->slope.setValue(3.0f);
        filter->dynamic.setValue(true);
    }
    automate(used, input, frequencies, gains, 100);
    used.setSecondFrequency(2000.0);
    used.enabled.setValue(false); // mid-fade at the reset
    std::vector<float> scratch(100);
    used.processBlock(input.data(), scratch.data(), 100);
    used.enabled.setValue(true);
    used.reset();
    EXPECT_EQ(automate(used, input, frequencies, gains, 64), automate(fresh, input, frequencies, gains, 64));
}

TEST_F(EQFilterTest, FrequencyAndGainSweepsStayCloseToAFinelyRedesignedReference) {
    const size_t count = 24000;
    const auto input = sine(count, 1000.0);
    struct Sweep {
        std::vector<float> frequencies, gains;
    };
    const Sweep sweeps[] = {
        {ramp(count, std::log2(300.0f), std::log2(3000.0f)), std::vector<float>(count, 12.0f)},
        {std::vector<float>(count, std::log2(1000.0f)), ramp(count, -15.0f, 15.0f)},
        {std::vector<float>(count, std::log2(1000.0f)), ramp(count, 15.0f, -15.0f)},
    };
    for (const Sweep& sweep : sweeps) {
        auto filter = bell(1000.0, 0.0f, 2.0f);
        const auto output = automate(*filter, input, sweep.frequencies, sweep.gains, 256);
        FineReference reference;
        double largestReferenceStep = 0.0, largestStep = 0.0, previous = 0.0;
        for (size_t i = 0; i < count; ++i) {
            const double expected =
                reference.process(input[i], std::exp2(sweep.frequencies[i]), sweep.gains[i], 2.0);
            ASSERT_NEAR(output[i], expected, 0.02) << i; // 1 % of the peak level
            if (i > 0) {
                largestReferenceStep = std::max(largestReferenceStep, std::fabs(expected - previous));
                largestStep =
                    std::max(largestStep, std::fabs(static_cast<double>(output[i]) - output[i - 1]));
            }
            previous = expected;
        }
        EXPECT_LT(largestStep, largestReferenceStep * 1.02);
    }
}

TEST_F(EQFilterTest, GainSweepDesignsOnlyAtOneDecibelBracketsAndNeverAtZero) {
    auto filter = bell(1000.0, 0.0f, 1.0f);
    const auto gains = ramp(6000, -3.0f, 3.0f);
    const std::vector<float> frequencies(gains.size(), std::log2(1000.0f));
    const auto input = noise(gains.size());
    std::vector<std::pair<float, float>> brackets;
    for (size_t i = 0; i < gains.size(); ++i) {
        automate(*filter, {input[i]}, {frequencies[i]}, {gains[i]}, 1);
        const std::pair<float, float> pair{filter->getLowerBracket(), filter->getUpperBracket()};
        if (brackets.empty() || brackets.back() != pair)
            brackets.push_back(pair);
    }
    const std::vector<std::pair<float, float>> expected{{-3.0f, -3.0f},   {-3.0f, -2.0f}, {-2.0f, -1.0f},
                                                        {-1.01f, -0.01f}, {0.01f, 1.01f}, {1.01f, 2.01f},
                                                        {2.01f, 3.01f}};
    ASSERT_EQ(brackets.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NEAR(brackets[i].first, expected[i].first, 1e-5) << i;
        EXPECT_NEAR(brackets[i].second, expected[i].second, 1e-5) << i;
    }
    // One full design, then one per step except the two steps around 0 dB, which share no bracket.
    EXPECT_EQ(filter->getDesignCount(), 9);
}

TEST_F(EQFilterTest, SmallGainsFadeTowardFlatAndZeroIsExactlyFlat) {
    const auto input = noise(3000);
    for (FilterShape shape :
         {FilterShape::Bell, FilterShape::LowShelf, FilterShape::HighShelf, FilterShape::TiltShelf}) {
        auto filter = bell(1000.0, 0.0f, 1.0f);
        filter->shape.setValue(shape);
        EXPECT_EQ(processed(*filter, input), input);
    }
    // Deviation at the peak = wet x (design gain - 1); wet = 20 |gain| below 0.05 dB, design gain >= 0.01 dB.
    const std::pair<float, double> cases[] = {{0.025f, 0.5 * (std::pow(10.0, 0.025 / 20) - 1)},
                                              {0.005f, 0.1 * (std::pow(10.0, 0.01 / 20) - 1)},
                                              {-0.03f, 0.6 * (std::pow(10.0, -0.03 / 20) - 1)},
                                              {0.05f, std::pow(10.0, 0.05 / 20) - 1}};
    for (const auto& [gainDb, deviation] : cases) {
        auto filter = bell(1000.0, gainDb, 1.0f);
        EXPECT_NEAR(measuredLevelDb(*filter, 1000.0), 20.0 * std::log10(1.0 + deviation), 2e-5) << gainDb;
    }
}

TEST_F(EQFilterTest, FrequencyIsClampedAndANonNumberKeepsTheLastOne) {
    const auto input = noise(2000);
    const auto run = [&](std::vector<float> frequencies, FilterShape shape) {
        EQFilter filter(&environment);
        filter.shape.setValue(shape);
        filter.coefficientCalculation.setValue(CoefficientCalculation::Bilinear);
        const std::vector<float> gains(input.size(), 6.0f);
        frequencies.resize(input.size(), frequencies.back());
        auto output = automate(filter, input, frequencies, gains, 256);
        return std::make_pair(std::move(output), filter.getAngularFrequency());
    };
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    const auto top = run({20.0f}, FilterShape::HighCut);
    EXPECT_FLOAT_EQ(top.second, static_cast<float>(2.0 * kPi * 1048576.0 / kRate));
    EXPECT_EQ(run({std::log2(1e9f)}, FilterShape::HighCut), top);
    EXPECT_EQ(run({inf}, FilterShape::HighCut), top);
    const auto bottom = run({0.0f}, FilterShape::LowCut);
    EXPECT_FLOAT_EQ(bottom.second, static_cast<float>(2.0 * kPi / kRate));
    EXPECT_EQ(run({-inf}, FilterShape::LowCut), bottom); // 0 Hz
    EXPECT_EQ(run({-3.0f}, FilterShape::LowCut), bottom);
    // 100 Hz, then the value is lost for the rest of the stream.
    std::vector<float> lost(1000, std::log2(100.0f));
    lost.push_back(nan);
    EXPECT_EQ(run(lost, FilterShape::Bell), run({std::log2(100.0f)}, FilterShape::Bell));
}

TEST_F(EQFilterTest, AbsurdParametersAndNonFiniteInputNeverBreakTheFilter) {
    auto input = noise(4800);
    std::fill_n(input.begin() + 1000, 3, std::numeric_limits<float>::quiet_NaN());
    std::fill_n(input.begin() + 1003, 3, std::numeric_limits<float>::infinity());
    for (int shape = 0; shape <= static_cast<int>(FilterShape::FlatTilt); ++shape)
        for (float frequency :
             {-std::numeric_limits<float>::infinity(), 25.0f, std::numeric_limits<float>::quiet_NaN()})
            for (float q : {0.0f, 1e9f})
                for (float gain : {1e6f, -1e6f})
                    for (int calculation = 0; calculation <= 2; ++calculation) {
                        EQFilter filter(&environment);
                        filter.shape.setValue(static_cast<FilterShape>(shape));
                        filter.slope.setValue(3.0f);
                        filter.coefficientCalculation.setValue(
                            static_cast<CoefficientCalculation>(calculation));
                        filter.setFrequency(frequency);
                        filter.setQ(q);
                        filter.setGain(gain);
                        for (float y : processed(filter, input))
                            ASSERT_TRUE(std::isfinite(y) && std::fabs(y) < 1e4f)
                                << shape << " " << calculation;
                    }
}

TEST_F(EQFilterTest, PrewarpedQEqualsBilinearWithTheWarpedQ) {
    const auto input = noise(3000);
    // 15 kHz, and 2^20 Hz where the tan argument is capped.
    for (double hz : {15000.0, 1048576.0}) {
        const double w0 = 2.0 * kPi * hz / kRate;
        const double warpedQ = 2.0 * (w0 / 2.0) / std::tan(std::min(w0, 3.1315928) / 2.0);
        auto prewarped = bell(hz, 6.0f, 2.0f);
        prewarped->coefficientCalculation.setValue(CoefficientCalculation::BilinearPrewarpedQ);
        auto plain = bell(hz, 6.0f, static_cast<float>(warpedQ));
        plain->coefficientCalculation.setValue(CoefficientCalculation::Bilinear);
        const auto a = processed(*prewarped, input), b = processed(*plain, input);
        for (size_t i = 0; i < input.size(); ++i)
            ASSERT_NEAR(a[i], b[i], 1e-5) << hz << " " << i;
    }
}

TEST_F(EQFilterTest, ConnectedParametersDriveTheFilterInTheGraph) {
    FloatParameter frequency(&environment, std::log2(1000.0f)), gain(&environment, 0.0f);
    frequency.setRange(0.0f, 20.0f);
    gain.setRange(-30.0f, 30.0f);
    wave::Input source(&environment);
    EQFilter graphFilter(&environment);
    graphFilter.setInput(&source);
    graphFilter.connectParameters(&frequency, &gain, nullptr);
    auto direct = bell(1000.0, 0.0f, 1.0f);
    graphFilter.setQ(1.0f);

    const auto input = noise(2048);
    // The ramps the connected parameters deliver once they are set after the first block.
    const auto frequencies = ramp(1201, std::log2(1000.0f), std::log2(4000.0f));
    const auto gains = ramp(481, 0.0f, 9.0f);
    std::vector<float> frequencyBlock(input.size(), std::log2(4000.0f)), gainBlock(input.size(), 9.0f);
    std::fill_n(frequencyBlock.begin(), 256, std::log2(1000.0f));
    std::fill_n(gainBlock.begin(), 256, 0.0f);
    std::copy(frequencies.begin(), frequencies.end() - 1, frequencyBlock.begin() + 256);
    std::copy(gains.begin(), gains.end() - 1, gainBlock.begin() + 256);
    direct->setParameterBlocks(frequencyBlock.data(), gainBlock.data(), nullptr);
    const auto expected = processed(*direct, input);

    for (size_t p = 0; p < input.size(); p += 256) {
        if (p == 256) {
            frequency.setValue(std::log2(4000.0f), 25.0f); // 1200 samples at 48 kHz
            gain.setValue(9.0f, 10.0f);                    // 480 samples
        }
        environment.nextGeneration();
        source.setData(input.data() + p, 256);
        const float* output = graphFilter.fetch(256)->getData();
        for (size_t i = 0; i < 256; ++i)
            ASSERT_NEAR(output[i], expected[p + i], 1e-4) << p + i;
        environment.advance(256, true);
    }
}

TEST_F(EQFilterTest, SlopeRulesAndConversions) {
    const std::pair<float, double> conversions[] = {{-3.0f, 0.0}, {3.0f, 24.0}, {6.5f, 60.0}, {9.0f, 100.0}};
    for (const auto& [value, db] : conversions)
        EXPECT_EQ(EQFilter::slopeValueToDbPerOctave(value), db);
    const std::pair<double, float> inverses[] = {{-6.0, -1.0f}, {15.0, 1.5f}, {84.0, 7.5f}, {96.5, 9.0f}};
    for (const auto& [db, value] : inverses)
        EXPECT_EQ(EQFilter::dbPerOctaveToSlopeValue(db), value);

    EQFilter filter(&environment);
    filter.shape.setValue(FilterShape::LowCut);
    const std::pair<float, float> rounding[] = {{2.5f, 3.0f}, {-0.5f, -1.0f}, {2.49f, 2.0f}};
    for (const auto& [value, rounded] : rounding) {
        filter.slope.setValue(value);
        EXPECT_EQ(filter.getDesignSlope(), rounded) << value;
    }
    filter.flags.setValue(EQFilter::kFractionalSlopes);
    EXPECT_EQ(filter.getDesignSlope(), 2.49f);

    // Brickwall and sub-first-order cuts restart; everything else crossfades.
    const std::tuple<FilterShape, float, BiquadProcessor::ResetMode> modes[] = {
        {FilterShape::LowCut, 9.0f, BiquadProcessor::ResetMode::Restart},
        {FilterShape::HighCut, -0.5f, BiquadProcessor::ResetMode::Restart},
        {FilterShape::HighCut, 0.0f, BiquadProcessor::ResetMode::Crossfade},
        {FilterShape::Bell, 9.0f, BiquadProcessor::ResetMode::Crossfade},
        {FilterShape::BandPass, -1.0f, BiquadProcessor::ResetMode::Crossfade},
    };
    for (const auto& [shape, slope, mode] : modes) {
        filter.shape.setValue(shape);
        filter.slope.setValue(slope);
        EXPECT_EQ(filter.resetMode.getValue(), mode) << static_cast<int>(shape) << " " << slope;
    }
}

TEST_F(EQFilterTest, BecomingDynamicSwitchesFormWithoutAJump) {
    const auto input = sine(9600, 700.0);
    for (auto [shape, slope] : {std::pair{FilterShape::Bell, 1.0f}, std::pair{FilterShape::LowShelf, 7.0f}}) {
        EQFilter switched(&environment), steady(&environment);
        for (EQFilter* filter : {&switched, &steady}) {
            filter->shape.setValue(shape);
            filter->slope.setValue(slope);
            filter->setFrequency(std::log2(1000.0f));
            filter->setGain(9.0f);
            filter->setQ(3.0f);
        }
        std::vector<float> a(input.size());
        size_t position = 0;
        for (size_t end : {size_t{3001}, size_t{6001}, input.size()}) {
            switched.processBlock(input.data() + position, a.data() + position,
                                  static_cast<int32_t>(end - position));
            position = end;
            switched.dynamic.setValue(!switched.dynamic);
            EXPECT_EQ(switched.getForm(),
                      switched.dynamic ? DigitalForm::StateVariable : DigitalForm::DirectForm);
        }
        EXPECT_GT(switched.getNumberOfSections(), shape == FilterShape::Bell ? 0 : 1);
        const auto b = processed(steady, input);
        for (size_t i = 0; i < input.size(); ++i)
            ASSERT_NEAR(a[i], b[i], 2e-4) << i;
    }
}

TEST_F(EQFilterTest, SlopeChangeCrossfadesToTheNewSectionCount) {
    EQFilter filter(&environment), before(&environment), after(&environment);
    for (EQFilter* f : {&filter, &before, &after}) {
        f->shape.setValue(FilterShape::LowCut);
        f->slope.setValue(1.0f); // 12 dB/oct: one section
        f->setFrequency(std::log2(500.0f));
    }
    after.slope.setValue(3.0f); // 24 dB/oct: two sections
    const auto input = noise(8000);
    std::vector<float> output(input.size()), old(input.size()), fresh(input.size());
    filter.processBlock(input.data(), output.data(), 1000);
    filter.slope.setValue(3.0f);
    filter.processBlock(input.data() + 1000, output.data() + 1000, 7000);
    before.processBlock(input.data(), old.data(), 8000);
    after.processBlock(input.data() + 1000, fresh.data() + 1000, 7000); // from rest at the change
    EXPECT_EQ(filter.getNumberOfSections(), 2);
    for (size_t i = 1000; i < 1000 + 2400; ++i)
        ASSERT_NEAR(output[i], old[i], 1e-5) << i;
    for (size_t i = 1000 + 4800; i < input.size(); ++i)
        ASSERT_NEAR(output[i], fresh[i], 1e-5) << i;
}

TEST_F(EQFilterTest, AutomatedProcessingDoesNotAllocate) {
    const auto input = noise(2048);
    const auto frequencies = ramp(input.size(), 7.0f, 14.0f);
    const auto gains = ramp(input.size(), -20.0f, 20.0f);
    auto filter = bell(1000.0, 0.0f, 1.0f);
    EQFilter partner(&environment);
    filter->linkWith(partner, BiquadFilter::kJoint);
    std::vector<float> left(input.size()), right(input.size());
    testing_support::AllocationCounter counter;
    for (size_t p = 0; p < input.size(); p += 512) {
        filter->setParameterBlocks(frequencies.data() + p, gains.data() + p, nullptr);
        filter->processBlock(input.data() + p, left.data() + p, input.data() + p, right.data() + p, 512);
        filter->dynamic.setValue(p % 1024 == 0);
    }
    filter->shape.setValue(FilterShape::LowCut); // crossfades to more sections
    filter->slope.setValue(5.0f);
    filter->processBlock(input.data(), left.data(), input.data(), right.data(), 512);
    filter->enabled.setValue(false); // each channel has its own fade
    partner.enabled.setValue(false);
    filter->processBlock(input.data(), left.data(), input.data(), right.data(), 512);
    EXPECT_EQ(counter.count(), 0u);
    EXPECT_EQ(left, right);
}

} // namespace
