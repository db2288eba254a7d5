#include "GraphTestUtil.h"

#include "wave/FloatParameter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

using graph_test::blockValues;
using graph_test::Floats;
using wave::Environment;

namespace {

// A parameter that has been read for one block, so it counts as live.
struct LiveParameter {
    LiveParameter(float sampleRate, int32_t blockSize, float initial, float minimum = 0.0f,
                  float maximum = 1.0f)
        : environment(blockSize, 0) {
        environment.setSampleRate(sampleRate);
        parameter = std::make_unique<FloatParameter>(&environment, initial);
        parameter->setRange(minimum, maximum);
        block();
    }

    // Reads one block the way a processor does, then moves the environment on.
    FloatParameter::ValueBlock& block() {
        environment.nextGeneration();
        auto& values = parameter->getValueBlockAt(environment.getMaxBlockSize());
        environment.advance(environment.getMaxBlockSize(), false);
        return values;
    }
    // A block in which nobody reads the parameter.
    void unreadBlock() {
        environment.nextGeneration();
        environment.advance(environment.getMaxBlockSize(), false);
    }
    FloatParameter* operator->() { return parameter.get(); }

    Environment environment;
    std::unique_ptr<FloatParameter> parameter;
};

void expectValues(const FloatParameter::ValueBlock& values, const Floats& expected) {
    EXPECT_FALSE(values.isConstant());
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_NEAR(values[static_cast<int32_t>(i)], expected[i], 1e-5f) << i;
}

} // namespace

TEST(FloatParameterSetup, InitialValueWidensTheDefaultRangeAndSetRangeClampsTheTarget) {
    Environment environment(8, 0);
    FloatParameter above(&environment, 5.0f), below(&environment, -3.0f);
    EXPECT_EQ(above.getRange(), 5.0f); // [0, 5]
    EXPECT_EQ(below.getRange(), 4.0f); // [-3, 1]
    EXPECT_EQ(blockValues(below.getValueBlock(8).getData(), 8), Floats(8, -3.0f));

    below.setRange(0.0f, 0.5f);
    EXPECT_EQ(below.getTarget(), 0.0f);
    EXPECT_EQ(blockValues(below.getValueBlock(8).getData(), 8), Floats(8, 0.0f));
    below.setValue(2.0f, 10.0f);
    EXPECT_EQ(below.getTarget(), 0.5f);
}

TEST(FloatParameterRamp, BeforeAnyBlockAndAfterAResetAdaptiveChangesJump) {
    Environment environment(8, 0);
    FloatParameter parameter(&environment, 0.0f);
    parameter.setValue(0.8f);
    EXPECT_EQ(parameter.getRampLength(), 0);
    auto& values = parameter.getValueBlockAt(8);
    EXPECT_TRUE(values.isConstant());
    EXPECT_EQ(blockValues(values.getData(), 8), Floats(8, 0.8f));

    LiveParameter live(1000.0f, 8, 0.0f);
    live.environment.reset(0);
    live->setValue(0.5f);
    EXPECT_EQ(live->getRampLength(), 0);
    live->setValue(0.7f, 10.0f); // an explicit time still ramps
    EXPECT_EQ(live->getRampLength(), 10);
}

TEST(FloatParameterRamp, FixedTimesTruncateMillisecondsTimesTheRate) {
    LiveParameter live(48000.0f, 512, 0.2f);
    live->setValue(0.2f + 1.0e-8f, 50.0f); // within epsilon of the target: no ramp
    EXPECT_EQ(live->getRampLength(), 0);
    EXPECT_TRUE(live.block().isConstant());

    live->setValue(1.0f, 50.0f);
    EXPECT_EQ(live->getRampLength(), 2400);
    const float increment = 0.8f / 2400.0f;
    EXPECT_FLOAT_EQ(live->getIncrement(), increment);
    Floats values;
    for (int block = 0; block < 5; ++block) {
        auto& data = live.block();
        EXPECT_FALSE(data.isConstant()) << block;
        values.insert(values.end(), data.getData(), data.getData() + 512);
    }
    for (size_t i = 0; i < 2400; i += 37)
        EXPECT_NEAR(values[i], 0.2f + static_cast<float>(i) * increment, 2e-4f) << i;
    EXPECT_EQ(Floats(values.begin() + 2400, values.end()), Floats(160, 1.0f)); // ended in the fifth block
    EXPECT_TRUE(live.block().isConstant());

    // 0.145 s lies just below 0.145 in binary: 6959.99... samples truncate to 6959.
    live->setValue(0.5f, 145.0f);
    EXPECT_EQ(live->getRampLength(), 6959);
}

TEST(FloatParameterRamp, ShortRampEndsInsideTheBlockAndJumpToTakesEffectAtOnce) {
    LiveParameter live(1000.0f, 8, 0.0f);
    live->setValue(1.0f, 5.0f);
    expectValues(live.block(), {0.0f, 0.2f, 0.4f, 0.6f, 0.8f, 1.0f, 1.0f, 1.0f});
    EXPECT_TRUE(live.block().isConstant());
    live->setValue(0.0f, 100.0f);
    live.block();
    live->jumpTo(0.25f);
    auto& values = live.block();
    EXPECT_TRUE(values.isConstant());
    EXPECT_EQ(blockValues(values.getData(), 8), Floats(8, 0.25f));

    // NaN from a host or an animation never reaches the block.
    live->setValue(NAN, 1.0f);
    live->jumpTo(NAN);
    EXPECT_EQ(blockValues(live.block().getData(), 8), Floats(8, 0.25f));
}

TEST(FloatParameterRamp, AdaptiveTimeFollowsTheSizeOfTheChange) {
    // At 1001 Hz a time of t ms is trunc(1.001 t) samples.
    LiveParameter live(1001.0f, 8, 0.0f);
    const auto lengthFor = [&](float value) {
        live->jumpTo(0.0f);
        live->setValue(value);
        return live->getRampLength();
    };
    EXPECT_EQ(lengthFor(1.0f), 20);     // the whole range: the minimum time
    EXPECT_EQ(lengthFor(0.45f), 20);    // 30 % or more: the minimum time
    EXPECT_EQ(lengthFor(0.15f), 52);    // 20 + 130 * (0.15 / 0.3)^2 = 52.5 ms
    EXPECT_EQ(lengthFor(1.0e-6f), 150); // the smallest change: the maximum time

    live->maximumSmoothingTime.setValue(300.0f);
    live->minimumSmoothingTime.setValue(10.0f);
    EXPECT_EQ(lengthFor(1.0e-6f), 300); // 300.3 samples
    EXPECT_EQ(lengthFor(1.0f), 10);
    // An explicit range of 2 makes 0.15 a change of 7.5 %: 10 + 290 * (0.225 / 0.3)^2 = 173.125 ms.
    live->setRange(0.0f, 1.0f, 2.0f);
    EXPECT_EQ(lengthFor(0.15f), 173);
}

TEST(FloatParameterRamp, NewTargetContinuesFromTheValueReachedWhileLive) {
    LiveParameter live(1000.0f, 10, 0.0f);
    live->setValue(1.0f, 100.0f); // 0.01 per sample
    for (int i = 0; i < 4; ++i)
        live.block();
    live->setValue(0.0f, 100.0f); // reached 0.4 after 40 samples
    EXPECT_NEAR(live->getIncrement(), -0.004f, 1e-7f);
    expectValues(live.block(), {0.4f, 0.396f, 0.392f});

    // Not read in the last block: where the ramp stands is unknown, so it starts from the old target.
    live.unreadBlock();
    live->setValue(1.0f, 100.0f);
    EXPECT_EQ(live->getRampStart(), 0.0f);
}

TEST(FloatParameterRamp, WrapPeriodTakesTheShortWayRound) {
    LiveParameter plain(1000.0f, 20, 350.0f, 0.0f, 360.0f);
    plain->setValue(10.0f, 20.0f); // without a period: down through 180
    EXPECT_FLOAT_EQ(plain->getIncrement(), -17.0f);

    struct Case {
        float from, to, minimum, rampStart, increment;
    };
    // 350 -> 10 starts at -10 (clamped to a minimum of 0); 10 -> 350 starts at 370 (clamped to 360).
    for (const Case& c : {Case{350.0f, 10.0f, 0.0f, 0.0f, 0.5f}, Case{350.0f, 10.0f, -360.0f, -10.0f, 1.0f},
                          Case{10.0f, 350.0f, 0.0f, 360.0f, -0.5f}}) {
        LiveParameter wrapped(1000.0f, 20, c.from, c.minimum, 360.0f);
        wrapped->wrapPeriod.setValue(360.0f);
        wrapped->setValue(c.to, 20.0f);
        EXPECT_FLOAT_EQ(wrapped->getRampStart(), c.rampStart) << c.from << " " << c.minimum;
        EXPECT_FLOAT_EQ(wrapped->getIncrement(), c.increment) << c.from << " " << c.minimum;
        EXPECT_NEAR(wrapped.block()[19], c.rampStart + 19 * c.increment, 1e-4f);
    }
}

TEST(FloatParameterRead, UnseenSamplesAreSkippedWhenReadAgain) {
    LiveParameter live(1000.0f, 10, 0.0f);
    live->setValue(1.0f, 100.0f); // 0.01 per sample
    expectValues(live.block(), {0.0f, 0.01f});
    for (int i = 0; i < 3; ++i)
        live.unreadBlock();
    expectValues(live.block(), {0.40f, 0.41f}); // samples 40.. of the ramp
    expectValues(live.block(), {0.50f});
    // After a reset that the parameter did not see, the rest of the ramp is skipped.
    live.unreadBlock();
    live.environment.reset(2);
    auto& afterReset = live.block();
    EXPECT_TRUE(afterReset.isConstant());
    EXPECT_EQ(afterReset[0], 1.0f);
}

TEST(FloatParameterRead, ConstantBlockIsRewrittenOnlyWhereNeeded) {
    Environment environment(16, 0);
    FloatParameter parameter(&environment, 0.5f);
    auto& values = parameter.getValueBlock(8);
    values[2] = 99.0f;           // a stray write shows whether the parameter rewrites the sample
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

TEST(FloatParameterGraph, SourcePublishesTheValueBlockAndTheBusReachesEveryTarget) {
    Environment environment(8, 0);
    environment.setSampleRate(1000.0f);
    FloatParameterSource source(&environment, 0.0f);
    FloatParameter other(&environment, 0.0f);
    graph_test::GainFilter reader(&environment, 2.0f);
    reader.setInput(&source);
    FloatParameterBus bus;
    bus.addTarget(&source);
    bus.addTarget(&other);
    bus.setValue(0.5f);
    EXPECT_EQ(other.getTarget(), 0.5f);

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
