#include "GraphTestUtil.h"

#include "wave/FloatParameter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using graph_test::blockValues;
using wave::Environment;
using Floats = std::vector<float>;

namespace {

// An environment in which a parameter has been read for one block, so it counts as live.
struct LiveParameter {
    LiveParameter(float sampleRate, int32_t blockSize, float initial) : environment(blockSize, 0) {
        environment.setSampleRate(sampleRate);
        parameter = std::make_unique<FloatParameter>(&environment, initial);
        block();
    }

    // Reads one block the way a processor does, then moves the environment on.
    FloatParameter::ValueBlock& block(int32_t numSamples) {
        environment.nextGeneration();
        auto& values = parameter->getValueBlockAt(numSamples);
        environment.advance(numSamples, false);
        return values;
    }
    FloatParameter::ValueBlock& block() { return block(environment.getMaxBlockSize()); }

    Environment environment;
    std::unique_ptr<FloatParameter> parameter;
};

class RecordingTarget : public ValueAssignable<float> {
public:
    RecordingTarget(std::string name, std::vector<std::string>& log) : name(std::move(name)), log(log) {}
    void setValue(float value) override { log.push_back(name + "=" + std::to_string(value)); }

private:
    std::string name;
    std::vector<std::string>& log;
};

} // namespace

TEST(FloatParameterSetup, InitialValueWidensTheDefaultRange) {
    Environment environment(8, 0);
    FloatParameter inside(&environment, 0.25f), above(&environment, 5.0f), below(&environment, -3.0f);
    EXPECT_EQ(inside.getMinimum(), 0.0f);
    EXPECT_EQ(inside.getMaximum(), 1.0f);
    EXPECT_EQ(above.getMaximum(), 5.0f);
    EXPECT_EQ(above.getRange(), 5.0f);
    EXPECT_EQ(below.getMinimum(), -3.0f);
    EXPECT_EQ(below.getRange(), 4.0f);
    EXPECT_EQ(below.getTarget(), -3.0f);
    auto& values = inside.getValueBlock(8);
    EXPECT_TRUE(values.isConstant());
    EXPECT_EQ(blockValues(values.getData(), 8), Floats(8, 0.25f));
}

TEST(FloatParameterSetup, SetRangeClampsTheTargetAndJumps) {
    LiveParameter live(1000.0f, 8, 0.8f);
    live.parameter->setRange(0.0f, 0.5f);
    EXPECT_EQ(live.parameter->getTarget(), 0.5f);
    EXPECT_EQ(live.parameter->getRange(), 0.5f);
    EXPECT_EQ(blockValues(live.block().getData(), 8), Floats(8, 0.5f));
    live.parameter->setValue(2.0f, 10.0f); // clamped to the maximum
    EXPECT_EQ(live.parameter->getTarget(), 0.5f);
}

TEST(FloatParameterRamp, FirstSetBeforeAnyBlockJumps) {
    Environment environment(8, 0);
    environment.setSampleRate(48000.0f);
    FloatParameter parameter(&environment, 0.0f);
    parameter.setValue(0.8f);
    EXPECT_EQ(parameter.getRampLength(), 0);
    parameter.setValue(0.3f, -1.0f); // still not live: adaptive requests jump
    EXPECT_EQ(parameter.getRampLength(), 0);
    auto& values = parameter.getValueBlockAt(8);
    EXPECT_TRUE(values.isConstant());
    EXPECT_EQ(blockValues(values.getData(), 8), Floats(8, 0.3f));
}

TEST(FloatParameterRamp, ChangeWithinEpsilonStartsNoRamp) {
    LiveParameter live(48000.0f, 16, 0.5f);
    live.parameter->setValue(0.5f + 1.0e-8f, 50.0f);
    EXPECT_EQ(live.parameter->getRampLength(), 0);
    EXPECT_TRUE(live.block().isConstant());
    live.parameter->setValue(0.5f + 1.0e-6f, 50.0f);
    EXPECT_EQ(live.parameter->getRampLength(), 2400);
    EXPECT_FALSE(live.block().isConstant());
}

TEST(FloatParameterRamp, FiftyMillisecondsAt48kHzIs2400Samples) {
    LiveParameter live(48000.0f, 512, 0.2f);
    live.parameter->setValue(1.0f, 50.0f);
    EXPECT_EQ(live.parameter->getRampLength(), 2400);
    const float increment = (1.0f - 0.2f) / 2400.0f;
    EXPECT_FLOAT_EQ(live.parameter->getIncrement(), increment);

    std::vector<float> values;
    for (int block = 0; block < 5; ++block) {
        auto& values512 = live.block();
        EXPECT_FALSE(values512.isConstant()) << block;
        values.insert(values.end(), values512.getData(), values512.getData() + 512);
    }
    for (size_t i = 0; i < 2400; i += 37)
        EXPECT_NEAR(values[i], 0.2f + static_cast<float>(i) * increment, 2e-4f) << i;
    EXPECT_NEAR(values[2399], 1.0f - increment, 2e-4f);
    for (size_t i = 2400; i < values.size(); ++i) // the ramp ended inside the fifth block
        ASSERT_EQ(values[i], 1.0f) << i;
    auto& after = live.block();
    EXPECT_TRUE(after.isConstant());
    EXPECT_EQ(blockValues(after.getData(), 512), Floats(512, 1.0f));
}

TEST(FloatParameterRamp, ShortRampEndsInsideTheBlock) {
    LiveParameter live(1000.0f, 8, 0.0f);
    live.parameter->setValue(1.0f, 5.0f);
    auto& values = live.block();
    EXPECT_FALSE(values.isConstant());
    const Floats expected{0.0f, 0.2f, 0.4f, 0.6f, 0.8f, 1.0f, 1.0f, 1.0f};
    for (int32_t i = 0; i < 8; ++i)
        EXPECT_NEAR(values[i], expected[static_cast<size_t>(i)], 1e-6f) << i;
    EXPECT_TRUE(live.block().isConstant());
}

TEST(FloatParameterRamp, AdaptiveTimeFollowsTheSizeOfTheChange) {
    // At 1001 Hz a time of t ms is trunc(1.001 t) samples: 20 ms -> 20, 150 ms -> 150,
    // 52.5 ms (20 + 130 * (0.15 / 0.3)^2) -> 52.
    LiveParameter live(1001.0f, 8, 0.0f);
    FloatParameter& parameter = *live.parameter;
    parameter.setValue(1.0f); // the whole range
    EXPECT_EQ(parameter.getRampLength(), 20);
    parameter.jumpTo(0.0f);
    parameter.setValue(0.15f);
    EXPECT_EQ(parameter.getRampLength(), 52);
    parameter.jumpTo(0.0f);
    parameter.setValue(0.45f); // beyond 30 % of the range: the minimum time
    EXPECT_EQ(parameter.getRampLength(), 20);
    parameter.jumpTo(0.0f);
    parameter.setValue(1.0e-6f); // smallest change: the maximum time
    EXPECT_EQ(parameter.getRampLength(), 150);

    parameter.jumpTo(0.0f);
    parameter.maximumSmoothingTime.setValue(300.0f);
    parameter.minimumSmoothingTime.setValue(10.0f);
    parameter.setValue(1.0e-6f);
    EXPECT_EQ(parameter.getRampLength(), 300); // 300.3 samples
    parameter.jumpTo(0.0f);
    parameter.setValue(1.0f);
    EXPECT_EQ(parameter.getRampLength(), 10);

    // An explicit range makes the same change relatively smaller: 0.15 of a range of 2 is 7.5 %,
    // 10 + 290 * (0.225 / 0.3)^2 = 173.125 ms -> 173 samples.
    parameter.jumpTo(0.0f);
    parameter.setRange(0.0f, 1.0f, 2.0f);
    parameter.setValue(0.15f);
    EXPECT_EQ(parameter.getRampLength(), 173);
}

TEST(FloatParameterRamp, AfterEnvironmentResetAdaptiveChangesJump) {
    LiveParameter live(1000.0f, 8, 0.0f);
    live.environment.reset(0);
    live.parameter->setValue(0.5f);
    EXPECT_EQ(live.parameter->getRampLength(), 0);
    live.parameter->setValue(0.7f, 10.0f); // an explicit time still ramps
    EXPECT_EQ(live.parameter->getRampLength(), 10);
}

TEST(FloatParameterRamp, NewTargetContinuesFromTheValueReached) {
    LiveParameter live(1000.0f, 10, 0.0f);
    live.parameter->setValue(1.0f, 100.0f); // 0.01 per sample
    for (int i = 0; i < 4; ++i)
        live.block();
    live.parameter->setValue(0.0f, 100.0f); // reached 0.4 after 40 samples
    EXPECT_NEAR(live.parameter->getRampStart(), 0.4f, 1e-5f);
    EXPECT_NEAR(live.parameter->getIncrement(), -0.004f, 1e-7f);
    auto& values = live.block();
    EXPECT_NEAR(values[0], 0.4f, 1e-5f);
    EXPECT_NEAR(values[9], 0.4f - 9 * 0.004f, 1e-5f);

    // Not read in the last block: where the ramp stands is unknown, so the next one starts from
    // the old target.
    live.environment.nextGeneration();
    live.environment.advance(10, false);
    live.parameter->setValue(1.0f, 100.0f);
    EXPECT_EQ(live.parameter->getRampStart(), 0.0f);
    EXPECT_NEAR(live.parameter->getIncrement(), 0.01f, 1e-7f);
}

TEST(FloatParameterRamp, JumpToTakesEffectAtOnce) {
    LiveParameter live(1000.0f, 8, 0.0f);
    live.parameter->setValue(1.0f, 100.0f);
    live.block();
    live.parameter->jumpTo(0.25f);
    auto& values = live.block();
    EXPECT_TRUE(values.isConstant());
    EXPECT_EQ(blockValues(values.getData(), 8), Floats(8, 0.25f));
}

TEST(FloatParameterRamp, WrapPeriodTakesTheShortWayRound) {
    // Without a wrap period, 350 -> 10 sweeps down through 180.
    LiveParameter plain(1000.0f, 20, 350.0f);
    plain.parameter->setRange(0.0f, 360.0f);
    plain.parameter->setValue(10.0f, 20.0f);
    EXPECT_FLOAT_EQ(plain.parameter->getIncrement(), -17.0f);

    // With a period of 360 the start becomes 10 - 20 = -10, clamped to the minimum 0.
    LiveParameter wrapped(1000.0f, 20, 350.0f);
    wrapped.parameter->setRange(0.0f, 360.0f);
    wrapped.parameter->wrapPeriod.setValue(360.0f);
    wrapped.parameter->setValue(10.0f, 20.0f);
    EXPECT_FLOAT_EQ(wrapped.parameter->getRampStart(), 0.0f);
    EXPECT_FLOAT_EQ(wrapped.parameter->getIncrement(), 0.5f);
    auto& values = wrapped.block();
    EXPECT_NEAR(values[0], 0.0f, 1e-4f);
    EXPECT_NEAR(values[19], 9.5f, 1e-4f);

    // Room below zero: the ramp runs from -10 up to 10.
    LiveParameter roomy(1000.0f, 20, 350.0f);
    roomy.parameter->setRange(-360.0f, 360.0f);
    roomy.parameter->wrapPeriod.setValue(360.0f);
    roomy.parameter->setValue(10.0f, 20.0f);
    EXPECT_FLOAT_EQ(roomy.parameter->getRampStart(), -10.0f);
    EXPECT_FLOAT_EQ(roomy.parameter->getIncrement(), 1.0f);

    // The other direction: 10 -> 350 starts at 370, clamped to 360, and ramps down.
    LiveParameter back(1000.0f, 20, 10.0f);
    back.parameter->setRange(0.0f, 360.0f);
    back.parameter->wrapPeriod.setValue(360.0f);
    back.parameter->setValue(350.0f, 20.0f);
    EXPECT_FLOAT_EQ(back.parameter->getRampStart(), 360.0f);
    EXPECT_FLOAT_EQ(back.parameter->getIncrement(), -0.5f);
}

TEST(FloatParameterRead, UnseenSamplesAreSkippedWhenReadAgain) {
    LiveParameter live(1000.0f, 10, 0.0f);
    live.parameter->setValue(1.0f, 100.0f); // 0.01 per sample
    auto& first = live.block();
    EXPECT_NEAR(first[9], 0.09f, 1e-5f);
    for (int i = 0; i < 3; ++i) { // three blocks nobody reads
        live.environment.nextGeneration();
        live.environment.advance(10, false);
    }
    auto& later = live.block(); // samples 40..49 of the ramp
    EXPECT_NEAR(later[0], 0.40f, 1e-5f);
    EXPECT_NEAR(later[9], 0.49f, 1e-5f);
    auto& next = live.block();
    EXPECT_NEAR(next[0], 0.50f, 1e-5f);

    // After a reset that the parameter did not see, the rest of the ramp is skipped.
    live.environment.nextGeneration();
    live.environment.advance(10, false);
    live.environment.reset(2);
    auto& afterReset = live.block();
    EXPECT_TRUE(afterReset.isConstant());
    EXPECT_EQ(afterReset[0], 1.0f);
}

TEST(FloatParameterRead, ConstantBlockIsRewrittenOnlyWhereNeeded) {
    Environment environment(16, 0);
    FloatParameter parameter(&environment, 0.5f);
    auto& values = parameter.getValueBlock(8);
    values[2] = 99.0f; // a stray write shows whether the parameter rewrites the sample
    parameter.getValueBlock(8);
    EXPECT_EQ(values[2], 99.0f);
    parameter.getValueBlock(16); // longer: only the new tail is written
    EXPECT_EQ(values[2], 99.0f);
    EXPECT_EQ(blockValues(values.getData() + 8, 8), Floats(8, 0.5f));
    parameter.jumpTo(0.75f); // a change rewrites everything
    parameter.getValueBlock(16);
    EXPECT_EQ(blockValues(values.getData(), 16), Floats(16, 0.75f));

    // Shrinking drops samples that growing brings back as zeros: a resized block is rewritten.
    environment.setMaxBlockSize(8);
    environment.setMaxBlockSize(32);
    parameter.getValueBlock(32);
    EXPECT_EQ(blockValues(values.getData(), 32), Floats(32, 0.75f));
}

TEST(FloatParameterGraph, SourcePublishesTheValueBlockAndBusFansOutInOrder) {
    Environment environment(8, 0);
    environment.setSampleRate(1000.0f);
    FloatParameterSource source(&environment, 0.0f);
    graph_test::GainFilter reader(&environment, 2.0f);
    reader.setInput(&source);

    std::vector<std::string> log;
    RecordingTarget before("before", log), after("after", log);
    FloatParameterBus bus;
    bus.addTarget(&before);
    bus.addTarget(&source);
    bus.addTarget(&after);
    bus.setValue(0.5f);
    EXPECT_EQ(log, (std::vector<std::string>{"before=0.500000", "after=0.500000"}));
    EXPECT_EQ(source.getParameter().getTarget(), 0.5f);

    environment.nextGeneration();
    reader.fetch(8);
    EXPECT_EQ(source.getCurrentBlock(), &source.getParameter().getValueBlock(8));
    EXPECT_EQ(blockValues(reader.getOutput(), 8), Floats(8, 1.0f));
    environment.advance(8, false);

    source.getParameter().setValue(1.0f, 4.0f); // now live: a four-sample ramp
    environment.nextGeneration();
    reader.fetch(8);
    EXPECT_EQ(blockValues(reader.getOutput(), 8), (Floats{1.0f, 1.25f, 1.5f, 1.75f, 2, 2, 2, 2}));
}
