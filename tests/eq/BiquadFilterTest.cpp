#include "eq/BiquadFilter.h"
#include "PrototypeTestUtil.h"
#include "wave/Environment.h"
#include "wave/Input.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

using prototype_test::noise;

namespace {

using Coefficients = DigitalSectionCoefficients;
constexpr float kRate = 48000.0f;

// A cascade with fixed coefficients, given in both forms so that the form can be switched.
class FixedBiquad : public BiquadFilter {
public:
    FixedBiquad(wave::Environment* environment, std::vector<Coefficients> directForm,
                std::vector<Coefficients> stateVariable = {})
        : BiquadFilter(environment), direct(std::move(directForm)), svf(std::move(stateVariable)) {}

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

// Analog sections (b2, b1, b0, a2, a1, a0) bilinear-transformed at 1 kHz, in both forms.
struct Cascade {
    std::vector<Coefficients> direct, svf;
};

Cascade analogCascade(const std::vector<AnalogSectionCoefficients>& sections) {
    Cascade cascade;
    const double k = std::tan(std::numbers::pi * 1000.0 / kRate);
    for (const auto& coefficients : sections) {
        AnalogBiquadPrototype section;
        section.setCoefficients(coefficients);
        cascade.direct.push_back(section.toDigital(k, DigitalForm::DirectForm));
        cascade.svf.push_back(section.toDigital(k, DigitalForm::StateVariable));
    }
    return cascade;
}

// A resonant peak, a low-pass and a deep notch-like dip.
const Cascade kThreeSections = analogCascade(
    {{1.0, 0.3, 1.0, 1.0, 0.1, 1.0}, {0.0, 0.0, 4.0, 1.0, 1.4, 4.0}, {1.0, 0.02, 0.25, 1.0, 0.5, 0.25}});

// Textbook direct form I in double, float between sections.
std::vector<float> referenceCascade(const std::vector<Coefficients>& sections, std::vector<float> signal) {
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

// Processes in place in chunks of the given sizes (cycled), from a buffer one float past an aligned
// address with guard words around it.
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
        filter.processBlock(buffer.data() + 1 + position, buffer.data() + 1 + position,
                            static_cast<int32_t>(count));
        position += count;
    }
    EXPECT_EQ(buffer.front(), kGuard);
    EXPECT_EQ(std::vector<float>(buffer.end() - 8, buffer.end()), std::vector<float>(8, kGuard));
    return {buffer.begin() + 1, buffer.end() - 8};
}

void expectNear(const std::vector<float>& actual, const std::vector<float>& expected, double tolerance) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i)
        ASSERT_NEAR(actual[i], expected[i], tolerance * (1.0 + std::fabs(expected[i]))) << i;
}

class BiquadFilterTest : public ::testing::Test {
protected:
    BiquadFilterTest() { environment.setSampleRate(kRate); }

    wave::Environment environment{512, 0};
};

TEST_F(BiquadFilterTest, BothFormsRunThePlainCascadeInEveryChunking) {
    const auto input = noise(4000);
    for (size_t count : {1u, 2u, 3u}) {
        const std::vector<Coefficients> direct(kThreeSections.direct.begin(),
                                               kThreeSections.direct.begin() + count);
        const std::vector<Coefficients> svf(kThreeSections.svf.begin(), kThreeSections.svf.begin() + count);
        const auto expected = referenceCascade(direct, input);
        for (DigitalForm form : {DigitalForm::DirectForm, DigitalForm::StateVariable}) {
            FixedBiquad sampleBySample(&environment, direct, svf);
            sampleBySample.setForm(form);
            const auto reference = processInChunks(sampleBySample, input, {1});
            expectNear(reference, expected, form == DigitalForm::DirectForm ? 1e-6 : 1e-4);
            for (const std::vector<int32_t>& chunks :
                 std::vector<std::vector<int32_t>>{{2}, {7}, {16}, {31}, {64}, {511}, {3, 17, 1, 64, 5}}) {
                FixedBiquad filter(&environment, direct, svf);
                filter.setForm(form);
                ASSERT_EQ(processInChunks(filter, input, chunks), reference) << count << " " << chunks[0];
            }
        }
    }
}

TEST_F(BiquadFilterTest, LinkedAndJointPairsEqualTwoMonoFilters) {
    const auto left = noise(1500, 1), right = noise(1500, 2);
    for (DigitalForm form : {DigitalForm::DirectForm, DigitalForm::StateVariable}) {
        FixedBiquad monoLeft(&environment, kThreeSections.direct, kThreeSections.svf);
        FixedBiquad monoRight(&environment, kThreeSections.direct, kThreeSections.svf);
        monoLeft.setForm(form);
        monoRight.setForm(form);
        const auto expectedLeft = processInChunks(monoLeft, left, {37});
        const auto expectedRight = processInChunks(monoRight, right, {37});
        for (int32_t mode : {BiquadFilter::kLinked, BiquadFilter::kJoint}) {
            FixedBiquad a(&environment, kThreeSections.direct, kThreeSections.svf), b(&environment, {});
            a.linkWith(b, mode);
            a.setForm(form);
            EXPECT_EQ(b.getPartner(), &a);
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

    // In the graph, whichever filter is pulled first processes both channels once.
    wave::Input inLeft(&environment), inRight(&environment);
    FixedBiquad a(&environment, kThreeSections.direct), b(&environment, {});
    a.setInput(&inLeft);
    b.setInput(&inRight);
    a.linkWith(b, BiquadFilter::kJoint);
    inLeft.setData(left.data(), 256);
    inRight.setData(right.data(), 256);
    environment.nextGeneration();
    const float* outLeft = a.fetch(256)->getData();
    const float* outRight = b.fetch(256)->getData();
    const std::vector<float> left256(left.begin(), left.begin() + 256),
        right256(right.begin(), right.begin() + 256);
    EXPECT_EQ(std::vector<float>(outLeft, outLeft + 256), referenceCascade(kThreeSections.direct, left256));
    EXPECT_EQ(std::vector<float>(outRight, outRight + 256),
              referenceCascade(kThreeSections.direct, right256));
    EXPECT_EQ(b.getStreamPosition(), 256);
}

TEST_F(BiquadFilterTest, EnableFadesOverTwentyMillisecondsAndADisabledFilterCopies) {
    FixedBiquad filter(&environment, {{3.0, 0.0, 0.0, 0.0, 0.0}}); // output = 1 + 2 x fade for input 1
    const std::vector<float> ones(3000, 1.0f);
    filter.enabled.setValue(false); // before the stream starts: immediate
    EXPECT_EQ(processInChunks(filter, {1.0f, 1.0f}, {2}), (std::vector<float>{1.0f, 1.0f}));
    const int32_t length = 960; // 20 ms at 48 kHz
    for (bool on : {true, false}) {
        filter.enabled.setValue(on);
        const auto output = processInChunks(filter, ones, {77});
        for (int32_t i = 0; i < length - 1; ++i) {
            const double fade = (i + 1.0) / length;
            ASSERT_NEAR(output[static_cast<size_t>(i)], 1.0 + 2.0 * (on ? fade : 1.0 - fade), 1e-4) << i;
        }
        EXPECT_EQ(std::vector<float>(output.begin() + length - 1, output.end()),
                  std::vector<float>(ones.size() - length + 1, on ? 3.0f : 1.0f));
    }

    // Disabled and faded: a plain copy; enabled again, it fades in from rest, not with old ringing.
    FixedBiquad resonant(&environment, {kThreeSections.direct[0]});
    processInChunks(resonant, noise(500), {50});
    resonant.enabled.setValue(false);
    processInChunks(resonant, noise(1000), {50});
    const auto input = noise(700, 9);
    EXPECT_EQ(processInChunks(resonant, input, {33}), input);
    resonant.enabled.setValue(true);
    const auto output = processInChunks(resonant, input, {33});
    const auto expected = referenceCascade({kThreeSections.direct[0]}, input);
    for (size_t i = 0; i < input.size(); ++i) {
        const double fade = std::min(1.0, (i + 1.0) / length);
        ASSERT_NEAR(output[i], input[i] + (expected[i] - input[i]) * fade, 1e-4) << i;
    }
}

TEST_F(BiquadFilterTest, SectionCountChangeCrossfadesOrRestarts) {
    const Coefficients two{2.0, 0.0, 0.0, 0.0, 0.0}, oneAndHalf{1.5, 0.0, 0.0, 0.0, 0.0};
    const std::vector<float> ones(6000, 1.0f);
    const int32_t span = 4800; // 0.1 s
    for (auto mode : {BiquadProcessor::ResetMode::Crossfade, BiquadProcessor::ResetMode::Restart}) {
        FixedBiquad a(&environment, {two}), b(&environment, {});
        a.resetMode.setValue(mode);
        a.linkWith(b, BiquadFilter::kJoint);
        std::vector<float> outA(ones.size()), outB(ones.size());
        a.processBlock(ones.data(), outA.data(), ones.data(), outB.data(), 100);
        a.setCascade({two, oneAndHalf}); // the old cascade gives 2, the new one 3
        a.processBlock(ones.data(), outA.data(), ones.data(), outB.data(), static_cast<int32_t>(ones.size()));
        for (int32_t i = 0; i < static_cast<int32_t>(ones.size()); ++i) {
            double expected = 3.0;
            if (mode == BiquadProcessor::ResetMode::Crossfade && i < span)
                expected = 2.0 + std::max(0.0, -1.0 + 2.0 * i / span); // old only for the first 50 ms
            ASSERT_NEAR(outA[static_cast<size_t>(i)], expected, 1e-5) << i;
        }
        EXPECT_EQ(outB, outA);
        EXPECT_FALSE(a.isCrossfading());
        EXPECT_EQ(b.getNumberOfSections(), 2);
    }
}

TEST_F(BiquadFilterTest, NonFiniteInputLeavesTheFilterWorking) {
    for (float bad : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
        for (DigitalForm form : {DigitalForm::DirectForm, DigitalForm::StateVariable}) {
            auto input = noise(6000);
            std::fill_n(input.begin() + 1000, 10, bad);
            FixedBiquad filter(&environment, kThreeSections.direct, kThreeSections.svf);
            filter.setForm(form);
            const auto output = processInChunks(filter, input, {64});
            for (float y : output)
                ASSERT_TRUE(std::isfinite(y));
            // Long after the burst the filter runs like one that never saw it.
            std::fill_n(input.begin(), 1100, 0.0f);
            FixedBiquad clean(&environment, kThreeSections.direct, kThreeSections.svf);
            clean.setForm(form);
            const auto expected = processInChunks(clean, input, {64});
            for (size_t i = 5000; i < input.size(); ++i)
                ASSERT_NEAR(output[i], expected[i], 1e-3) << i;
        }
    }
}

} // namespace
