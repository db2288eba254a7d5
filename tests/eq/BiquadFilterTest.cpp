#include "eq/BiquadFilter.h"
#include "support/AllocationCounter.h"
#include "wave/Environment.h"
#include "wave/Input.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace {

using Coefficients = DigitalSectionCoefficients;
constexpr float kRate = 48000.0f;

// Hand-made cascades: fixed coefficients, given for both forms so that the form can be switched.
class FixedBiquad : public BiquadFilter {
public:
    explicit FixedBiquad(wave::Environment* environment) : BiquadFilter(environment) {}

    void setCascade(std::vector<Coefficients> directForm, std::vector<Coefficients> stateVariable = {}) {
        direct = std::move(directForm);
        svf = std::move(stateVariable);
    }

    void updateCoefficients(int32_t, int32_t numSamples) override {
        const auto& sections = getForm() == DigitalForm::DirectForm ? direct : svf;
        addSegment(numSamples, static_cast<int32_t>(sections.size()), 1.0f, sections.data());
    }

private:
    std::vector<Coefficients> direct;
    std::vector<Coefficients> svf;
};

// Textbook peaking and low-pass biquads (bilinear, a0 normalised), written out independently.
Coefficients peaking(double hz, double q, double db) {
    const double a = std::pow(10.0, db / 40.0);
    const double w = 2.0 * std::numbers::pi * hz / kRate;
    const double alpha = std::sin(w) / (2.0 * q);
    const double a0 = 1.0 + alpha / a;
    return {(1.0 + alpha * a) / a0, -2.0 * std::cos(w) / a0, (1.0 - alpha * a) / a0, -2.0 * std::cos(w) / a0,
            (1.0 - alpha / a) / a0};
}

Coefficients lowPass(double hz, double q) {
    const double w = 2.0 * std::numbers::pi * hz / kRate;
    const double alpha = std::sin(w) / (2.0 * q);
    const double c = std::cos(w);
    const double a0 = 1.0 + alpha;
    return {(1.0 - c) / 2.0 / a0, (1.0 - c) / a0, (1.0 - c) / 2.0 / a0, -2.0 * c / a0, (1.0 - alpha) / a0};
}

// The same analog resonant section in both forms: H(s) = (s^2 + 0.3 s + 1) / (s^2 + 0.1 s + 1) at 1 kHz.
std::pair<Coefficients, Coefficients> resonantSectionInBothForms() {
    AnalogBiquadPrototype section;
    section.setCoefficients({1.0, 0.3, 1.0, 1.0, 0.1, 1.0});
    const double k = std::tan(std::numbers::pi * 1000.0 / kRate);
    return {section.toDigital(k, DigitalForm::DirectForm), section.toDigital(k, DigitalForm::StateVariable)};
}

// The plain cascade: direct form I in double, float between sections.
std::vector<float> referenceCascade(const std::vector<Coefficients>& sections,
                                    const std::vector<float>& input) {
    std::vector<float> signal = input;
    for (const auto& c : sections) {
        double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
        for (float& sample : signal) {
            const double x = sample;
            const double y = c[0] * x + c[1] * x1 + c[2] * x2 - c[3] * y1 - c[4] * y2;
            x2 = x1;
            x1 = x;
            y2 = y1;
            y1 = y;
            sample = static_cast<float>(y);
        }
    }
    return signal;
}

std::vector<float> noise(size_t count, unsigned seed = 7) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    std::vector<float> samples(count);
    for (float& s : samples)
        s = uniform(random);
    return samples;
}

std::vector<float> sine(size_t count, double hz, double amplitude = 0.5) {
    std::vector<float> samples(count);
    for (size_t i = 0; i < count; ++i)
        samples[i] = static_cast<float>(amplitude * std::sin(2.0 * std::numbers::pi * hz * i / kRate));
    return samples;
}

// Processes in chunks of the given sizes (cycled) from a buffer that starts one float past an aligned
// address, with guard words after it.
std::vector<float> processInChunks(BiquadFilter& filter, const std::vector<float>& input,
                                   const std::vector<int32_t>& chunks) {
    constexpr float kGuard = 12345.0f;
    std::vector<float> buffer{kGuard};
    buffer.insert(buffer.end(), input.begin(), input.end());
    buffer.insert(buffer.end(), 8, kGuard);
    size_t position = 0;
    for (size_t n = 0; position < input.size(); ++n) {
        const auto count =
            std::min<size_t>(static_cast<size_t>(chunks[n % chunks.size()]), input.size() - position);
        float* samples = buffer.data() + 1 + position;
        filter.processBlock(samples, samples, static_cast<int32_t>(count));
        position += count;
    }
    EXPECT_EQ(buffer[0], kGuard);
    for (size_t i = input.size() + 1; i < buffer.size(); ++i)
        EXPECT_EQ(buffer[i], kGuard);
    return {buffer.begin() + 1, buffer.begin() + 1 + static_cast<std::ptrdiff_t>(input.size())};
}

class BiquadFilterTest : public ::testing::Test {
protected:
    BiquadFilterTest() { environment.setSampleRate(kRate); }

    wave::Environment environment{512, 0};
};

TEST_F(BiquadFilterTest, BlockProcessingMatchesThePlainCascadeInEveryChunking) {
    const std::vector<Coefficients> cascade{peaking(1000, 2.0, 9.0), lowPass(5000, 0.9),
                                            peaking(80, 4.0, -12.0)};
    const auto input = noise(4000);
    const auto expected = referenceCascade(cascade, input);
    std::vector<std::vector<int32_t>> chunkings{{1}, {31}, {64}, {511}, {3, 17, 1, 64, 5}};
    for (int32_t size = 2; size <= 16; ++size)
        chunkings.push_back({size});
    for (const auto& chunks : chunkings) {
        FixedBiquad filter(&environment);
        filter.setCascade(cascade);
        const auto output = processInChunks(filter, input, chunks);
        for (size_t i = 0; i < input.size(); ++i)
            ASSERT_NEAR(output[i], expected[i], 1e-5 * (1.0 + std::fabs(expected[i])))
                << "chunk " << chunks[0];
        FixedBiquad sampleBySample(&environment);
        sampleBySample.setCascade(cascade);
        EXPECT_EQ(processInChunks(sampleBySample, input, {1}), output);
    }
}

TEST_F(BiquadFilterTest, StateVariableFormRunsTheSameFilterAsTheDirectForm) {
    const auto [direct, svf] = resonantSectionInBothForms();
    const auto input = noise(3000);
    const auto expected = referenceCascade({direct, direct}, input);
    FixedBiquad filter(&environment);
    filter.setCascade({direct, direct}, {svf, svf});
    filter.setForm(DigitalForm::StateVariable);
    const auto output = processInChunks(filter, input, {13});
    for (size_t i = 0; i < input.size(); ++i)
        ASSERT_NEAR(output[i], expected[i], 1e-4);
}

TEST_F(BiquadFilterTest, ResetEqualsAFreshInstance) {
    const std::vector<Coefficients> cascade{peaking(300, 8.0, 12.0), lowPass(2000, 3.0)};
    for (DigitalForm form : {DigitalForm::DirectForm, DigitalForm::StateVariable}) {
        FixedBiquad used(&environment), fresh(&environment);
        for (FixedBiquad* f : {&used, &fresh}) {
            f->setCascade(cascade, {resonantSectionInBothForms().second});
            f->setForm(form);
        }
        processInChunks(used, noise(1000, 3), {100});
        used.enabled.setValue(false); // mid-fade at the reset
        processInChunks(used, noise(100, 4), {100});
        used.enabled.setValue(true);
        used.resetStates();
        const auto input = noise(2000, 5);
        EXPECT_EQ(processInChunks(used, input, {64}), processInChunks(fresh, input, {64}));
    }
}

TEST_F(BiquadFilterTest, LinkedAndJointPairsEqualTwoMonoFilters) {
    const std::vector<Coefficients> cascade{peaking(1000, 2.0, 9.0), lowPass(3000, 0.7)};
    const auto left = noise(1500, 1), right = noise(1500, 2);
    FixedBiquad monoLeft(&environment), monoRight(&environment);
    monoLeft.setCascade(cascade);
    monoRight.setCascade(cascade);
    const auto expectedLeft = processInChunks(monoLeft, left, {37});
    const auto expectedRight = processInChunks(monoRight, right, {37});
    for (int32_t mode : {BiquadFilter::kLinked, BiquadFilter::kJoint}) {
        FixedBiquad a(&environment), b(&environment);
        a.setCascade(cascade);
        a.linkWith(b, mode);
        EXPECT_EQ(b.getPartner(), &a);
        EXPECT_EQ(b.getLinkMode(), mode);
        std::vector<float> outLeft(left.size()), outRight(right.size());
        for (size_t p = 0; p < left.size(); p += 37) {
            const auto n = static_cast<int32_t>(std::min<size_t>(37, left.size() - p));
            a.processBlock(left.data() + p, outLeft.data() + p, right.data() + p, outRight.data() + p, n);
        }
        EXPECT_EQ(outLeft, expectedLeft);
        EXPECT_EQ(outRight, expectedRight);
        b.clearLink();
        EXPECT_EQ(a.getPartner(), nullptr);
        EXPECT_EQ(a.getLinkMode(), BiquadFilter::kAlone);
    }
}

TEST_F(BiquadFilterTest, AJointPairInTheGraphIsProcessedOnceForBothChannels) {
    const std::vector<Coefficients> cascade{peaking(700, 1.0, 6.0)};
    const auto left = noise(256, 1), right = noise(256, 2);
    wave::Input inLeft(&environment), inRight(&environment);
    FixedBiquad a(&environment), b(&environment);
    a.setCascade(cascade);
    a.setInput(&inLeft);
    b.setInput(&inRight);
    a.linkWith(b, BiquadFilter::kJoint);
    inLeft.setData(left.data(), 256);
    inRight.setData(right.data(), 256);
    environment.nextGeneration();
    const float* outLeft = a.fetch(256)->getData();
    const float* outRight = b.fetch(256)->getData();
    EXPECT_EQ(std::vector<float>(outLeft, outLeft + 256), referenceCascade(cascade, left));
    EXPECT_EQ(std::vector<float>(outRight, outRight + 256), referenceCascade(cascade, right));
    EXPECT_EQ(b.getStreamPosition(), 256);
}

TEST_F(BiquadFilterTest, EnableFadesOverExactlyTwentyMilliseconds) {
    FixedBiquad filter(&environment);
    filter.setCascade({{3.0, 0.0, 0.0, 0.0, 0.0}}); // filtered = 3 x dry, so output = 1 + 2 x fade
    const std::vector<float> ones(3000, 1.0f);
    filter.enabled.setValue(false); // before the stream starts: immediate
    EXPECT_EQ(processInChunks(filter, {1.0f, 1.0f}, {2}), (std::vector<float>{1.0f, 1.0f}));
    filter.enabled.setValue(true);
    const auto fadeIn = processInChunks(filter, ones, {100});
    const int32_t length = 960; // 20 ms at 48 kHz
    for (int32_t i = 0; i < length; ++i)
        ASSERT_NEAR(fadeIn[static_cast<size_t>(i)], 1.0 + 2.0 * (i + 1) / length, 1e-4) << i;
    EXPECT_EQ(fadeIn[length - 2] < 3.0f, true);
    for (size_t i = length - 1; i < ones.size(); ++i)
        ASSERT_EQ(fadeIn[i], 3.0f) << i;
    filter.enabled.setValue(false);
    const auto fadeOut = processInChunks(filter, ones, {77});
    for (int32_t i = 0; i < length; ++i)
        ASSERT_NEAR(fadeOut[static_cast<size_t>(i)], 1.0 + 2.0 * (1.0 - (i + 1.0) / length), 1e-4) << i;
    EXPECT_GT(fadeOut[length - 2], 1.0f);
    for (size_t i = length - 1; i < ones.size(); ++i)
        ASSERT_EQ(fadeOut[i], 1.0f) << i;
}

TEST_F(BiquadFilterTest, DisabledAndFadedCopiesAndComesBackFromRest) {
    const Coefficients resonant = resonantSectionInBothForms().first;
    FixedBiquad filter(&environment);
    filter.setCascade({resonant});
    processInChunks(filter, noise(500), {50});
    filter.enabled.setValue(false);
    processInChunks(filter, noise(1000), {50});
    const auto input = noise(700, 9);
    EXPECT_EQ(processInChunks(filter, input, {33}), input);
    filter.enabled.setValue(true);
    // Fades in with states from rest, not with the ringing from before the silent stretch.
    const auto output = processInChunks(filter, input, {33});
    const auto expected = referenceCascade({resonant}, input);
    for (size_t i = 0; i < input.size(); ++i) {
        const double fade = std::min(1.0, (i + 1.0) / 960.0);
        ASSERT_NEAR(output[i], input[i] + (expected[i] - input[i]) * fade, 1e-4) << i;
    }
}

TEST_F(BiquadFilterTest, FormSwitchContinuesTheOutputWithoutAJump) {
    const auto [direct, svf] = resonantSectionInBothForms();
    const auto input = sine(4000, 950.0);
    const auto expected = referenceCascade({direct, direct}, input);
    FixedBiquad filter(&environment);
    filter.setCascade({direct, direct}, {svf, svf});
    std::vector<float> output(input.size());
    size_t position = 0;
    for (size_t end : {size_t{1001}, size_t{2017}, size_t{3001}, input.size()}) {
        filter.processBlock(input.data() + position, output.data() + position,
                            static_cast<int32_t>(end - position));
        position = end;
        filter.setForm(filter.getForm() == DigitalForm::DirectForm ? DigitalForm::StateVariable
                                                                   : DigitalForm::DirectForm);
    }
    for (size_t i = 0; i < input.size(); ++i)
        ASSERT_NEAR(output[i], expected[i], 1e-4) << i;
}

TEST_F(BiquadFilterTest, SectionCountChangeCrossfadesOrRestarts) {
    const Coefficients two{2.0, 0.0, 0.0, 0.0, 0.0}, oneAndHalf{1.5, 0.0, 0.0, 0.0, 0.0};
    const std::vector<float> ones(6000, 1.0f);
    const int32_t span = 4800; // 0.1 s
    for (auto mode : {BiquadProcessor::ResetMode::Crossfade, BiquadProcessor::ResetMode::Restart}) {
        FixedBiquad a(&environment), b(&environment);
        a.resetMode.setValue(mode);
        a.setCascade({two});
        a.linkWith(b, BiquadFilter::kJoint);
        std::vector<float> outA(ones.size()), outB(ones.size());
        a.processBlock(ones.data(), outA.data(), ones.data(), outB.data(), 100);
        a.setCascade({two, oneAndHalf}); // old cascade gives 2, the new one 3
        a.processBlock(ones.data(), outA.data(), ones.data(), outB.data(), static_cast<int32_t>(ones.size()));
        for (int32_t i = 0; i < static_cast<int32_t>(ones.size()); ++i) {
            double expected = 3.0;
            if (mode == BiquadProcessor::ResetMode::Crossfade && i < span)
                expected = 2.0 + std::max(0.0, -1.0 + 2.0 * i / span);
            ASSERT_NEAR(outA[static_cast<size_t>(i)], expected, 1e-5) << i;
            ASSERT_EQ(outB[static_cast<size_t>(i)], outA[static_cast<size_t>(i)]) << i;
        }
        EXPECT_FALSE(a.isCrossfading());
        EXPECT_EQ(b.getNumberOfSections(), 2);
    }
}

TEST_F(BiquadFilterTest, NonFiniteInputLeavesTheFilterWorking) {
    const auto [direct, svf] = resonantSectionInBothForms();
    for (float bad : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
        for (DigitalForm form : {DigitalForm::DirectForm, DigitalForm::StateVariable}) {
            FixedBiquad filter(&environment);
            filter.setCascade({direct, lowPass(4000, 0.7)}, {svf, svf});
            filter.setForm(form);
            auto input = sine(6000, 440.0);
            for (size_t i = 1000; i < 1010; ++i)
                input[i] = bad;
            const auto output = processInChunks(filter, input, {64});
            for (float y : output)
                ASSERT_TRUE(std::isfinite(y));
            // Long after the burst the filter runs like one that never saw it.
            auto clean = input;
            std::fill(clean.begin(), clean.begin() + 1100, 0.0f);
            FixedBiquad reference(&environment);
            reference.setCascade({direct, lowPass(4000, 0.7)}, {svf, svf});
            reference.setForm(form);
            const auto expected = processInChunks(reference, clean, {64});
            for (size_t i = 5000; i < input.size(); ++i)
                ASSERT_NEAR(output[i], expected[i], 1e-3) << i;
        }
    }
}

TEST_F(BiquadFilterTest, ProcessingDoesNotAllocate) {
    FixedBiquad a(&environment), b(&environment);
    const auto [direct, svf] = resonantSectionInBothForms();
    a.setCascade({direct, direct, direct}, {svf, svf, svf});
    a.linkWith(b, BiquadFilter::kJoint);
    std::vector<float> left = noise(512), right = noise(512, 3);
    a.processBlock(left.data(), left.data(), right.data(), right.data(), 512);
    a.setCascade({direct}, {svf});
    testing_support::AllocationCounter counter;
    a.processBlock(left.data(), left.data(), right.data(), right.data(), 512); // crossfades to one section
    a.setForm(DigitalForm::StateVariable);
    a.enabled.setValue(false);
    a.processBlock(left.data(), left.data(), right.data(), right.data(), 512);
    EXPECT_EQ(counter.count(), 0u);
}

} // namespace
