#include "GraphTestUtil.h"

#include "support/AllocationCounter.h"
#include "wave/LevelPanConverter.h"
#include "wave/MidSideConverter.h"
#include "wave/Mixer.h"
#include "wave/Router.h"
#include "wave/VolumeFilter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

using graph_test::blockValues;
using graph_test::Floats;
using wave::BasicBlock;
using wave::Environment;
using wave::Producer;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// Publishes a repeating list of samples, marked constant when asked, and counts its runs.
class SampleSource : public wave::Source {
public:
    SampleSource(Environment* environment, Floats values, bool constant = false)
        : wave::Source(environment), values(std::move(values)), constant(constant) {}

    void process(BasicBlock<float>* block, int32_t numSamples, int32_t) override {
        ++runs;
        for (int32_t i = 0; i < numSamples; ++i)
            block->getData()[i] = values[static_cast<size_t>(i) % values.size()];
        block->setConstant(constant);
    }

    Floats values;
    bool constant;
    int runs = 0;
};

// A constant source of one value.
SampleSource constantSource(Environment& environment, float value) {
    return SampleSource(&environment, {value}, true);
}

// The values of one fetch in a fresh generation.
Floats pull(Environment& environment, Producer& producer, int32_t numSamples) {
    environment.nextGeneration();
    return blockValues(producer.fetch(numSamples)->getData(), numSamples);
}

// One fetch in a fresh generation.
BasicBlock<float>* fresh(Environment& environment, Producer& producer, int32_t numSamples) {
    environment.nextGeneration();
    return producer.fetch(numSamples);
}

// Both outputs of a two-output block, in a fresh generation.
template <typename TwoOutputs>
std::pair<Floats, Floats> pullBoth(Environment& environment, TwoOutputs& block, int32_t numSamples) {
    Floats first = pull(environment, *block.getOutputProducer(0), numSamples);
    return {first, blockValues(block.getOutputProducer(1)->fetch(numSamples)->getData(), numSamples)};
}

void expectNear(const Floats& actual, const Floats& expected, float tolerance = 1e-6f) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i)
        EXPECT_NEAR(actual[i], expected[i], tolerance * std::max(1.0f, std::fabs(expected[i])))
            << "sample " << i;
}

bool allFinite(const Floats& values) {
    return std::all_of(values.begin(), values.end(), [](float v) { return std::isfinite(v); });
}

} // namespace

TEST(MidSideConverter, EncodesHalfSumAndHalfSecondMinusFirstAndDecodesBack) {
    Environment environment(8, 0);
    SampleSource a(&environment, {1.0f, 0.25f, -2.0f, 3.0f, 0.0f});
    SampleSource b(&environment, {0.0f, 0.75f, 1.0f, 3.0f, -4.0f});
    wave::MidSideConverter encoder(&environment, &a, &b);
    encoder.conversion.setValue(wave::MidSideConverter::kEncode);

    const auto [mid, side] = pullBoth(environment, encoder, 5);
    EXPECT_EQ(mid, (Floats{0.5f, 0.5f, -0.5f, 3.0f, -2.0f}));
    EXPECT_EQ(side, (Floats{-0.5f, 0.25f, 1.5f, 0.0f, -2.0f}));
    EXPECT_EQ(a.runs, 1);

    SampleSource midIn(&environment, {0.5f}), sideIn(&environment, {-0.5f});
    wave::MidSideConverter decoder(&environment, &midIn, &sideIn);
    decoder.conversion.setValue(wave::MidSideConverter::kDecode);
    EXPECT_EQ(pullBoth(environment, decoder, 3), std::pair(Floats(3, 1.0f), Floats(3, 0.0f)));
}

TEST(MidSideConverter, EncodeThenDecodeRestoresThePairAtOddLengths) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> sample(-2.0f, 2.0f);
    Floats left(37), right(37);
    for (size_t i = 0; i < left.size(); ++i) {
        left[i] = sample(random);
        right[i] = sample(random);
    }
    Environment environment(37, 0);
    SampleSource l(&environment, left), r(&environment, right);
    wave::MidSideConverter encoder(&environment, &l, &r);
    encoder.conversion.setValue(wave::MidSideConverter::kEncode);
    wave::MidSideConverter decoder(&environment, encoder.getOutputProducer(0), encoder.getOutputProducer(1));
    decoder.conversion.setValue(wave::MidSideConverter::kDecode);

    for (int32_t length : {1, 3, 7, 37}) {
        const auto [first, second] = pullBoth(environment, decoder, length);
        expectNear(first, Floats(left.begin(), left.begin() + length));
        expectNear(second, Floats(right.begin(), right.begin() + length));
    }
}

TEST(MidSideConverter, PassThroughPublishesTheInputBlocksAndConstancyFollowsTheInputs) {
    Environment environment(8, 0);
    SampleSource a(&environment, {1.0f, 2.0f});
    SampleSource b = constantSource(environment, 0.5f);
    SampleSource c = constantSource(environment, -0.5f);
    wave::MidSideConverter converter(&environment, &a, &b);

    EXPECT_EQ(fresh(environment, *converter.getOutputProducer(0), 8), a.getOwnBlock());
    EXPECT_EQ(converter.getOutputProducer(1)->fetch(8), b.getOwnBlock());

    converter.conversion.setValue(wave::MidSideConverter::kEncode);
    EXPECT_NE(fresh(environment, *converter.getOutputProducer(0), 8), a.getOwnBlock());
    EXPECT_FALSE(converter.getOutputProducer(0)->fetch(8)->isConstant());

    converter.setFirstInput(&c);
    EXPECT_TRUE(fresh(environment, *converter.getOutputProducer(0), 8)->isConstant());
    EXPECT_TRUE(converter.getOutputProducer(1)->fetch(8)->isConstant());
    EXPECT_EQ(blockValues(converter.getOutputProducer(1)->getOutput(), 2), (Floats{0.5f, 0.5f}));
    converter.setSecondInput(&a);
    EXPECT_FALSE(fresh(environment, *converter.getOutputProducer(0), 8)->isConstant());
    EXPECT_FALSE(converter.getOutputProducer(1)->fetch(8)->isConstant());

    // A missing input reads as silence: encoding (x, nothing) gives x/2 and -x/2.
    converter.setFirstInput(&a);
    converter.setSecondInput(nullptr);
    EXPECT_EQ(pullBoth(environment, converter, 2), std::pair(Floats{0.5f, 1.0f}, Floats{-0.5f, -1.0f}));
}

TEST(LevelPanConverter, LinearBalanceLawFadesOnlyTheFarSide) {
    Environment environment(8, 0);
    SampleSource level = constantSource(environment, 0.8f);
    SampleSource pan(&environment, {1.0f, -0.5f, 0.0f, 0.5f, -1.0f, 0.25f});
    wave::LevelPanConverter converter(&environment, &level, &pan);
    const Floats expectedLeft{0.0f, 0.8f, 0.8f, 0.4f, 0.8f, 0.6f};
    const Floats expectedRight{0.8f, 0.4f, 0.8f, 0.8f, 0.0f, 0.8f};

    for (const float sign : {1.0f, -1.0f}) {
        converter.setInvert(sign < 0.0f);
        const auto [left, right] = pullBoth(environment, converter, 6);
        for (size_t i = 0; i < left.size(); ++i) {
            EXPECT_NEAR(left[i], sign * expectedLeft[i], 1e-6f) << i;
            EXPECT_NEAR(right[i], sign * expectedRight[i], 1e-6f) << i;
        }
    }
    EXPECT_FALSE(converter.getOutputProducer(0)->fetch(6)->isConstant());

    // A varying level scales both sides sample by sample.
    SampleSource varyingLevel(&environment, {1.0f, 2.0f});
    SampleSource steadyPan = constantSource(environment, -0.25f);
    wave::LevelPanConverter varying(&environment, &varyingLevel, &steadyPan);
    EXPECT_EQ(pullBoth(environment, varying, 2), std::pair(Floats{1.0f, 2.0f}, Floats{0.75f, 1.5f}));
}

TEST(LevelPanConverter, CentredPanForwardsTheLevelBlockOrOneSharedNegation) {
    Environment environment(4, 0);
    SampleSource level(&environment, {0.5f, 0.25f});
    SampleSource centre = constantSource(environment, 5e-8f);
    wave::LevelPanConverter converter(&environment, &level, &centre);

    EXPECT_EQ(fresh(environment, *converter.getOutputProducer(0), 4), level.getOwnBlock());
    EXPECT_EQ(converter.getOutputProducer(1)->fetch(4), level.getOwnBlock());

    converter.setInvert(true);
    BasicBlock<float>* left = fresh(environment, *converter.getOutputProducer(0), 4);
    EXPECT_EQ(converter.getOutputProducer(1)->fetch(4), left);
    EXPECT_NE(left, level.getOwnBlock());
    EXPECT_EQ(blockValues(left->getData(), 4), (Floats{-0.5f, -0.25f, -0.5f, -0.25f}));
    EXPECT_FALSE(left->isConstant());

    // Constant only when both level and pan are constant.
    SampleSource steadyLevel = constantSource(environment, 2.0f);
    SampleSource steadyPan = constantSource(environment, 0.5f);
    SampleSource varyingPan(&environment, {0.5f, 0.4f});
    wave::LevelPanConverter steady(&environment, &steadyLevel, &steadyPan);
    EXPECT_TRUE(fresh(environment, *steady.getOutputProducer(0), 4)->isConstant());
    EXPECT_TRUE(steady.getOutputProducer(1)->fetch(4)->isConstant());
    steady.setPan(&varyingPan);
    EXPECT_FALSE(fresh(environment, *steady.getOutputProducer(0), 4)->isConstant());
    steady.setInvert(true);
    steady.setPan(&centre);
    EXPECT_TRUE(fresh(environment, *steady.getOutputProducer(1), 4)->isConstant());
    EXPECT_EQ(steady.getOutputProducer(1)->fetch(4)->getData()[3], -2.0f);
}

TEST(VolumeFilter, SilentAndUnityGainsPublishExistingBlocks) {
    Environment environment(4, 0);
    SampleSource in(&environment, {1.0f, -2.0f, 3.0f, 4.0f});
    SampleSource unity = constantSource(environment, 1.0f + 5e-8f);
    SampleSource silent = constantSource(environment, -5e-8f);
    SampleSource half = constantSource(environment, 0.5f);
    SampleSource ramp(&environment, {0.0f, 0.5f, 1.0f, 2.0f});

    wave::VolumeFilter filter(&environment, &unity);
    filter.setInput(&in);
    EXPECT_EQ(fresh(environment, filter, 4), in.getOwnBlock());

    filter.setGain(nullptr);
    EXPECT_EQ(fresh(environment, filter, 4), in.getOwnBlock());

    filter.setGain(&silent);
    EXPECT_EQ(fresh(environment, filter, 4), environment.getZeroBlock());
    filter.setSecondGain(&half);
    EXPECT_EQ(fresh(environment, filter, 4), environment.getZeroBlock());

    // Unity first gain with a second gain: the second alone applies.
    filter.setGain(&unity);
    filter.setSecondGain(&ramp);
    EXPECT_EQ(pull(environment, filter, 4), (Floats{0.0f, -1.0f, 3.0f, 8.0f}));
    EXPECT_NE(filter.getCurrentBlock(), in.getOwnBlock());

    filter.setGain(&half);
    EXPECT_EQ(pull(environment, filter, 4), (Floats{0.0f, -0.5f, 1.5f, 4.0f}));
    EXPECT_FALSE(filter.getCurrentBlock()->isConstant());

    filter.setGain(&ramp);
    filter.setSecondGain(nullptr);
    EXPECT_EQ(pull(environment, filter, 4), (Floats{0.0f, -1.0f, 3.0f, 8.0f}));

    SampleSource steady = constantSource(environment, 3.0f);
    filter.setInput(&steady);
    filter.setGain(&half);
    filter.setSecondGain(&half);
    EXPECT_EQ(pull(environment, filter, 4), (Floats{0.75f, 0.75f, 0.75f, 0.75f}));
    EXPECT_TRUE(filter.getCurrentBlock()->isConstant());
}

// Two inputs: a with a constant gain of 0.5, b with a per-sample gain. Per sample:
//   a*ga   = 1, -0.5, 0.25, 0, 1.5, -1.5      |a|*ga = 1, 0.5, 0.25, 0, 1.5, 1.5
//   b*gb   = 1, 8, -0.125, 0, -1e-12, 1
class MixerOperations : public ::testing::Test {
protected:
    Floats mix(wave::Mixer::Operation op) {
        mixer.operation.setValue(op);
        return pull(environment, mixer, 6);
    }

    Environment environment{8, 0};
    SampleSource a{&environment, {2.0f, -1.0f, 0.5f, 0.0f, 3.0f, -3.0f}};
    SampleSource b{&environment, {1.0f, 4.0f, -0.25f, 0.0f, -1e-12f, 0.5f}};
    SampleSource ga = constantSource(environment, 0.5f);
    SampleSource gb{&environment, {1.0f, 2.0f, 0.5f, 1.0f, 1.0f, 2.0f}};
    wave::Mixer mixer{&environment};
};

TEST_F(MixerOperations, EveryOperationCombinesScaledInputsInListOrder) {
    mixer.addInput(nullptr);
    mixer.addInput(&a, &ga);
    mixer.addInput(&b, &gb);
    using M = wave::Mixer;
    expectNear(mix(M::kAdd), {2.0f, 7.5f, 0.125f, 0.0f, 1.5f, -0.5f});
    expectNear(mix(M::kSubtract), {0.0f, -8.5f, 0.375f, 0.0f, 1.5f, -2.5f});
    expectNear(mix(M::kMaximumMagnitude), {1.0f, 8.0f, 0.25f, 0.0f, 1.5f, 1.5f});
    expectNear(mix(M::kMultiply), {1.0f, -4.0f, -0.03125f, 0.0f, -1.5e-12f, -1.5f});
    expectNear(mix(M::kLimitedRatio), {1.0f, 0.0625f, 1.0f, 0.0f, 1.0f, 1.0f});
    expectNear(mix(M::kRatio), {1.0f, 0.0625f, 2.0f, 1.0f, 1.5e9f, 1.5f});
    expectNear(mix(M::kMaximum), {1.0f, 8.0f, 0.25f, 0.0f, 1.5f, 1.0f});
    expectNear(mix(M::kMinimum), {1.0f, -0.5f, -0.125f, 0.0f, -1e-12f, -1.5f});
}

TEST_F(MixerOperations, HeldRatioKeepsTheLastRatioWhileTheDivisorIsTinyAcrossBlocks) {
    mixer.addInput(&a, &ga);
    mixer.addInput(&b, &gb);
    b.values = {1.0f, 4.0f, -0.25f, 0.0f, -1e-12f, 0.25f};
    expectNear(mix(wave::Mixer::kHeldRatio), {1.0f, 0.0625f, 2.0f, 2.0f, 2.0f, 3.0f});

    b.values = {0.0f};
    expectNear(mix(wave::Mixer::kHeldRatio), Floats(6, 3.0f));

    // A NaN numerator passes through once but is never held.
    a.values = {kNaN};
    b.values = {1.0f};
    EXPECT_TRUE(std::isnan(mix(wave::Mixer::kHeldRatio)[0]));
    a.values = {1.0f};
    b.values = {0.0f};
    expectNear(mix(wave::Mixer::kHeldRatio), Floats(6, 3.0f));

    mixer.reset();
    expectNear(mix(wave::Mixer::kHeldRatio), Floats(6, 1.0f));
}

TEST_F(MixerOperations, LimitedRatioIsZeroWhenTheRatioIsNegative) {
    SampleSource negative = constantSource(environment, -1.0f);
    mixer.addInput(&a, &negative);
    mixer.addInput(&b, &gb);
    expectNear(mix(wave::Mixer::kLimitedRatio), Floats(6, 0.0f));
}

TEST_F(MixerOperations, AdditionOfManyInputsMatchesAPlainSumAndConstancyFollowsTheInputs) {
    std::mt19937 random(3);
    std::uniform_real_distribution<float> value(-1.0f, 1.0f);
    // Gain patterns by input: each group of three meets both the scalar and the per-sample form,
    // both as the first group (written) and as a later one (added), and a lone seventh input both.
    for (const std::string varying : {"0001001", "0100000"}) {
        std::vector<std::unique_ptr<SampleSource>> inputs, gains;
        wave::Mixer sum(&environment);
        Floats expected(6, 0.0f);
        for (size_t k = 0; k < varying.size(); ++k) {
            const bool perSample = varying[k] == '1';
            const float first = k == 0 && !perSample ? 1.0f : value(random);
            inputs.push_back(std::make_unique<SampleSource>(
                &environment, Floats{value(random), value(random), value(random)}));
            gains.push_back(std::make_unique<SampleSource>(
                &environment, perSample ? Floats{first, value(random)} : Floats{first}, !perSample));
            sum.addInput(inputs[k].get(), gains[k].get());
            for (size_t i = 0; i < expected.size(); ++i)
                expected[i] += inputs[k]->values[i % 3] * gains[k]->values[i % gains[k]->values.size()];
            expectNear(pull(environment, sum, 6), expected, 1e-5f);
        }
    }

    SampleSource one = constantSource(environment, 1.0f), two = constantSource(environment, 2.0f);
    wave::Mixer steady(&environment);
    for (int k = 0; k < 4; ++k)
        steady.addInput(&one, &two);
    EXPECT_EQ(pull(environment, steady, 3), (Floats{8.0f, 8.0f, 8.0f}));
    EXPECT_TRUE(steady.getCurrentBlock()->isConstant());
    steady.addInput(&a);
    pull(environment, steady, 3);
    EXPECT_FALSE(steady.getCurrentBlock()->isConstant());
}

TEST_F(MixerOperations, WithoutConnectedInputsTheOutputIsSilence) {
    mixer.addInput(nullptr, &ga);
    for (auto op : {wave::Mixer::kAdd, wave::Mixer::kMultiply}) {
        mix(op);
        EXPECT_EQ(mixer.getCurrentBlock(), environment.getZeroBlock());
    }
    mixer.setInput(0, &a);
    EXPECT_EQ(mix(wave::Mixer::kSubtract), a.values);
}

TEST(Router, SilentRoutesAreNotPulledAndALoneUnityRouteIsForwarded) {
    Environment environment(4, 0);
    SampleSource first(&environment, {1.0f, 2.0f}), second(&environment, {10.0f, 20.0f});
    wave::Router router(&environment);
    router.addRoute(&first);
    router.addRoute(&second, 0.0f);
    router.addRoute(nullptr, 0.5f);

    EXPECT_EQ(fresh(environment, router, 4), first.getOwnBlock());
    EXPECT_EQ(second.runs, 0);
    EXPECT_EQ(router.getPassThrough(), &first);

    // Remembered: later blocks forward without reading the routes.
    EXPECT_EQ(fresh(environment, router, 4), first.getOwnBlock());
    EXPECT_EQ(first.runs, 2);

    // Changing a route's producer forgets the remembered one.
    router.setRouteProducer(0, &second);
    EXPECT_EQ(fresh(environment, router, 4), second.getOwnBlock());
    router.setRouteProducer(0, &first);

    router.jumpRouteGain(1, 0.5f);
    EXPECT_EQ(router.getPassThrough(), nullptr);
    EXPECT_EQ(pull(environment, router, 4), (Floats{6.0f, 12.0f, 6.0f, 12.0f}));
    EXPECT_EQ(second.runs, 2);

    // The unity route after a scaled one is a plain add.
    router.jumpRouteGain(0, 0.0f);
    router.addRoute(&first);
    EXPECT_EQ(pull(environment, router, 4), (Floats{6.0f, 12.0f, 6.0f, 12.0f}));

    router.jumpRouteGain(1, 0.0f);
    router.setRouteProducer(3, nullptr);
    pull(environment, router, 4);
    EXPECT_EQ(router.getCurrentBlock(), environment.getZeroBlock());
}

TEST(Router, RouteGainsRampOverTwentyMilliseconds) {
    Environment environment(64, 0);
    environment.setSampleRate(48000.0f);
    SampleSource in = constantSource(environment, 2.0f);
    wave::Router router(&environment);
    router.addRoute(&in);
    pull(environment, router, 64);
    environment.advance(64, false);
    ASSERT_EQ(router.getPassThrough(), &in);

    router.setRouteGain(0, 0.5f);
    // 20 ms at 48 kHz is 960 samples: 15 blocks of 64 from 2.0 down to 1.0.
    Floats output;
    for (int block = 0; block < 16; ++block, environment.advance(64, false))
        for (const float value : pull(environment, router, 64))
            output.push_back(value);
    EXPECT_NEAR(output[0], 2.0f, 1e-3f);
    EXPECT_NEAR(output[480], 1.5f, 1e-3f);
    EXPECT_GT(output[959], 1.0f);
    EXPECT_NEAR(output[959], 1.0f, 1e-2f);
    EXPECT_EQ(output[960], 1.0f);
    EXPECT_EQ(output.back(), 1.0f);
    EXPECT_TRUE(router.getCurrentBlock()->isConstant());
}

TEST(Router, ANotedUnityRouteJoinsTheNextContributor) {
    Environment environment(4, 0);
    SampleSource first(&environment, {1.0f, 2.0f}), second(&environment, {10.0f, -20.0f});
    wave::Router router(&environment);
    router.addRoute(&first);
    router.addRoute(&second, 0.25f);
    EXPECT_EQ(pull(environment, router, 4), (Floats{3.5f, -3.0f, 3.5f, -3.0f}));
    EXPECT_EQ(router.getPassThrough(), nullptr);
    EXPECT_NE(router.getCurrentBlock(), first.getOwnBlock());

    // A NaN gain is refused; a NaN input does not outlast its block.
    router.setRouteGain(1, kNaN);
    second.values = {kNaN};
    EXPECT_TRUE(std::isnan(pull(environment, router, 4)[0]));
    second.values = {4.0f};
    EXPECT_EQ(pull(environment, router, 4), (Floats{2.0f, 3.0f, 2.0f, 3.0f}));
}

TEST(RoutingBlocks, NaNInputLeavesNoTraceOnceFinite) {
    Environment environment(8, 0);
    SampleSource in(&environment, {kNaN, 1.0f});
    SampleSource gain(&environment, {0.5f, 2.0f});
    SampleSource pan(&environment, {0.25f, -0.5f});
    wave::MidSideConverter encoder(&environment, &in, &gain);
    encoder.conversion.setValue(wave::MidSideConverter::kEncode);
    wave::LevelPanConverter panner(&environment, encoder.getOutputProducer(0), &pan);
    wave::VolumeFilter volume(&environment, panner.getOutputProducer(1), &gain);
    volume.setInput(&in);

    EXPECT_FALSE(allFinite(pull(environment, volume, 8)));
    in.values = {0.5f, 1.0f};
    EXPECT_TRUE(allFinite(pull(environment, volume, 8)));
}

TEST(RoutingBlocks, ProcessingAllocatesNothing) {
    Environment environment(64, 0);
    environment.setSampleRate(48000.0f);
    SampleSource left(&environment, {0.1f, -0.2f, 0.3f}), right(&environment, {0.4f, 0.5f});
    SampleSource level = constantSource(environment, 0.7f);
    SampleSource pan(&environment, {-0.3f, 0.2f});
    wave::MidSideConverter encoder(&environment, &left, &right);
    encoder.conversion.setValue(wave::MidSideConverter::kEncode);
    wave::LevelPanConverter panner(&environment, &level, &pan);
    panner.setInvert(true);
    wave::VolumeFilter volume(&environment, panner.getOutputProducer(0), &level);
    volume.setInput(encoder.getOutputProducer(1));
    wave::Mixer mixer(&environment);
    for (Producer* input :
         {static_cast<Producer*>(&volume), static_cast<Producer*>(encoder.getOutputProducer(0)),
          static_cast<Producer*>(&left), static_cast<Producer*>(&right)})
        mixer.addInput(input, &pan);
    wave::Router router(&environment);
    router.addRoute(&mixer);
    router.addRoute(&volume, 0.0f);

    testing_support::AllocationCounter counter;
    for (int block = 0; block < 40; ++block) {
        mixer.operation.setValue(static_cast<wave::Mixer::Operation>(block % 9));
        if (block % 10 == 5)
            router.setRouteGain(1, 0.5f * static_cast<float>(block % 3));
        environment.nextGeneration();
        router.fetch(block % 2 == 0 ? 64 : 17);
        environment.advance(block % 2 == 0 ? 64 : 17, false);
    }
    EXPECT_EQ(counter.count(), 0u);
}
