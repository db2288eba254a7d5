#include "GraphTestUtil.h"

#include "wave/Delay.h"
#include "wave/Input.h"

#include <gtest/gtest.h>

#include <vector>

using graph_test::blockValues;
using graph_test::CountingSource;
using wave::Delay;
using wave::Environment;
using Floats = std::vector<float>;

namespace {

Floats readDelay(Delay& delay, int32_t at, int32_t numSamples) {
    Floats out(static_cast<size_t>(numSamples), -99.0f);
    delay.read(at, out.data(), numSamples);
    return out;
}

Floats readFractional(Delay& delay, const Floats& delays) {
    Floats out(delays.size(), -99.0f);
    delay.readFractional(delays.data(), out.data(), static_cast<int32_t>(delays.size()));
    return out;
}

void expectNear(const Floats& actual, const Floats& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i)
        EXPECT_NEAR(actual[i], expected[i], 1e-6) << "sample " << i;
}

} // namespace

TEST(DelayRing, SizeIsNextPowerOfTwoOfBlockPlusDelay) {
    Environment environment(8, 0);
    EXPECT_EQ(Delay(&environment, 5).getRingSize(), 16);
    EXPECT_EQ(Delay(&environment, 8).getRingSize(), 16);
    EXPECT_EQ(Delay(&environment, 9).getRingSize(), 32);
    Environment single(1, 0);
    EXPECT_EQ(Delay(&single, 0).getRingSize(), 1);
    EXPECT_EQ(Delay(&single, 1).getRingSize(), 2);
}

TEST(DelayRead, IntegerReadsFollowTheRingAndWrap) {
    Environment environment(4, 0);
    Delay delay(&environment, 4); // ring of 8
    ASSERT_EQ(delay.getRingSize(), 8);

    const Floats first{1, 2, 3, 4};
    delay.write(first.data(), 4);
    EXPECT_EQ(readDelay(delay, 0, 4), first);                // delay 0 is the block just written
    EXPECT_EQ(readDelay(delay, 2, 4), (Floats{0, 0, 0, 0})); // reaches before the first sample
    EXPECT_EQ(delay.getRing()[4], 0.0f);                     // the slot ahead is cleared

    const Floats second{5, 6, 7, 8};
    delay.write(second.data(), 4);
    EXPECT_EQ(delay.getWritePosition(), 0);
    EXPECT_EQ(delay.getWritten(), 8);
    EXPECT_EQ(readDelay(delay, 2, 4), (Floats{3, 4, 5, 6}));
    EXPECT_EQ(readDelay(delay, 4, 4), (Floats{1, 2, 3, 4}));
    EXPECT_EQ(readDelay(delay, 1, 2), (Floats{6, 7})); // the last two samples, one back

    const Floats third{9, 10, 11, 12};
    delay.write(third.data(), 4);
    EXPECT_EQ(readDelay(delay, 3, 4), (Floats{6, 7, 8, 9})); // ring[5..7] then ring[0]
    EXPECT_EQ(readDelay(delay, 4, 4), (Floats{5, 6, 7, 8}));
}

TEST(DelayRead, FillValueAfterResetUntilWritten) {
    Environment environment(4, 0);
    Delay delay(&environment, 4);
    const Floats block{1, 2, 3, 4};
    for (int i = 0; i < 3; ++i)
        delay.write(block.data(), 4);
    delay.setFillValue(0.5f);
    delay.reset();
    EXPECT_EQ(delay.getWritten(), 0);
    EXPECT_EQ(readDelay(delay, 0, 4), (Floats{0.5f, 0.5f, 0.5f, 0.5f}));
    const Floats fresh{7, 8, 9, 10};
    delay.write(fresh.data(), 4);
    EXPECT_EQ(readDelay(delay, 0, 4), fresh);
    EXPECT_EQ(readDelay(delay, 1, 4), (Floats{0.5f, 0.5f, 0.5f, 0.5f})); // old data is not revived
}

TEST(DelayRead, FractionalReadsInterpolateAndStraddleTheFirstSample) {
    Environment environment(4, 0);
    Delay delay(&environment, 4); // ring of 8
    const Floats first{1, 2, 3, 4};
    delay.write(first.data(), 4);
    // Written: ring[0..3] = 1..4, write position 4. p = 8 + 4 - 4 + i - delay.
    // i=0, delay 0.5: p = 7.5, ring[7] unwritten, ring[0] = 1 -> 0.5 * 1.
    // i=1, delay 0.5: p = 8.5 -> 1 + 0.5 * (2 - 1).
    // i=2, delay 0.25: p = 9.75 -> 2 + 0.75 * (3 - 2).
    // i=3, delay 0: p = 11 -> ring[3] = 4.
    expectNear(readFractional(delay, {0.5f, 0.5f, 0.25f, 0.0f}), {0.5f, 1.5f, 2.75f, 4.0f});
    // i=0, delay 1.5: p = 6.5, ring[6] and ring[7] unwritten -> 0.
    expectNear(readFractional(delay, {1.5f, 0.0f, 0.0f, 0.0f}), {0.0f, 2.0f, 3.0f, 4.0f});

    const Floats second{5, 6, 7, 8};
    delay.write(second.data(), 4);
    // Full ring, write position 0: p = 4 + i - delay.
    // i=0, 2.5: p = 1.5 -> 2 + 0.5 = 2.5; i=1, 1.25: p = 3.75 -> 4 + 0.75 = 4.75;
    // i=2, 0: p = 6 -> 7; i=3, 7: p = 0 -> 1.
    expectNear(readFractional(delay, {2.5f, 1.25f, 0.0f, 7.0f}), {2.5f, 4.75f, 7.0f, 1.0f});

    const Floats third{9, 10, 11, 12};
    delay.write(third.data(), 4);
    // Write position 4: i=0, delay 0.5: p = 7.5 -> ring[7] = 8 and ring[0] = 9 across the wrap.
    expectNear(readFractional(delay, {0.5f, 0.0f, 0.0f, 0.0f}), {8.5f, 10.0f, 11.0f, 12.0f});
}

TEST(DelayLimits, SetMaxDelayClampsAndResetsOnlyWhenChanged) {
    Environment environment(8, 0);
    Delay delay(&environment, 10, 8);
    EXPECT_EQ(delay.getRingSize(), 32);
    delay.setDelay(20);
    EXPECT_EQ(delay.getDelay(), 10);
    delay.setDelay(8);

    const Floats block{1, 2, 3, 4, 5, 6, 7, 8};
    delay.write(block.data(), 8);
    delay.setMaxDelay(10); // unchanged: keeps its data
    EXPECT_EQ(delay.getWritten(), 8);

    delay.setMaxDelay(5);
    EXPECT_EQ(delay.getDelay(), 5);
    EXPECT_EQ(delay.getRingSize(), 16);
    EXPECT_EQ(delay.getWritten(), 0);
    EXPECT_EQ(delay.getWritePosition(), 0);
}

TEST(DelayLimits, BlockSizeChangeKeepsTheDelayedSignal) {
    Environment environment(4, 0);
    Delay delay(&environment, 3, 3); // ring of 8
    float next = 1.0f;
    std::vector<float> output;
    std::vector<float> input;
    const auto run = [&](int32_t numSamples) {
        Floats block(static_cast<size_t>(numSamples));
        for (auto& sample : block)
            sample = next++;
        input.insert(input.end(), block.begin(), block.end());
        delay.processInPlace(block.data(), numSamples);
        output.insert(output.end(), block.begin(), block.end());
    };
    for (int i = 0; i < 4; ++i)
        run(4);
    environment.setMaxBlockSize(16);
    EXPECT_EQ(delay.getRingSize(), 32);
    for (int i = 0; i < 3; ++i)
        run(16);
    environment.setMaxBlockSize(1);
    EXPECT_EQ(delay.getRingSize(), 4);
    for (int i = 0; i < 6; ++i)
        run(1);
    environment.setMaxBlockSize(4);
    for (int i = 0; i < 2; ++i)
        run(4);

    // After the first block (read before anything older was written) every sample is the input
    // three samples earlier, across every resize.
    ASSERT_EQ(output.size(), input.size());
    for (size_t t = 4; t < output.size(); ++t)
        EXPECT_EQ(output[t], input[t - 3]) << "sample " << t;
}

TEST(DelayFilter, DelaysItsInputAndResetsAfterAMissedBlock) {
    Environment environment(4, 0);
    CountingSource source(&environment);
    wave::DelayFilter delayed(&environment, 8, 2), skipping(&environment, 8, 2);
    delayed.setInput(&source);
    skipping.setInput(&source);

    const auto block = [&](bool pullSkipping) {
        environment.nextGeneration();
        delayed.fetch(4);
        if (pullSkipping)
            skipping.fetch(4);
        environment.advance(4, false);
    };
    block(true); // source 1..4: reading 2 back reaches before the first sample
    EXPECT_EQ(blockValues(delayed.getOutput(), 4), (Floats{0, 0, 0, 0}));
    block(true); // source 5..8
    EXPECT_EQ(blockValues(delayed.getOutput(), 4), (Floats{3, 4, 5, 6}));
    EXPECT_EQ(blockValues(skipping.getOutput(), 4), (Floats{3, 4, 5, 6}));
    block(false); // source 9..12, the second filter misses it
    block(true);  // source 13..16
    EXPECT_EQ(blockValues(delayed.getOutput(), 4), (Floats{11, 12, 13, 14}));
    EXPECT_EQ(blockValues(skipping.getOutput(), 4), (Floats{0, 0, 0, 0})); // stream interrupted
    block(true);
    EXPECT_EQ(blockValues(skipping.getOutput(), 4), (Floats{15, 16, 17, 18}));

    // A full reset of the environment clears the line at the next block, a partial one does not.
    environment.reset(2);
    block(true); // 21..24
    EXPECT_EQ(blockValues(delayed.getOutput(), 4), (Floats{19, 20, 21, 22}));
    environment.reset(0);
    block(true); // 25..28
    EXPECT_EQ(blockValues(delayed.getOutput(), 4), (Floats{0, 0, 0, 0}));
}

TEST(DelayFilter, HeadModeWritesAtTheEndOfEveryBlock) {
    Environment environment(4, 0);
    CountingSource source(&environment);
    wave::DelayFilter feedback(&environment, 8, 4, wave::DelayFilterBase::kWriteAtBlockEnd);
    feedback.setInput(&source);
    EXPECT_TRUE(feedback.isScheduled());
    EXPECT_EQ(environment.getHeadCount(), 1);

    std::vector<Floats> outputs;
    for (int i = 0; i < 4; ++i) {
        environment.nextGeneration();
        feedback.fetch(4);
        outputs.push_back(blockValues(feedback.getOutput(), 4));
        EXPECT_EQ(feedback.getDelayLine().getWritten(), 4 * i); // not yet written in this block
        environment.advance(4, false);
        EXPECT_EQ(feedback.getDelayLine().getWritten(), 4 * (i + 1));
    }
    // The pull reads what earlier blocks wrote: block k sees the source of block k - 2 (delay 4
    // behind the end of the previous block).
    EXPECT_EQ(outputs[0], (Floats{0, 0, 0, 0}));
    EXPECT_EQ(outputs[1], (Floats{0, 0, 0, 0}));
    EXPECT_EQ(outputs[2], (Floats{1, 2, 3, 4}));
    EXPECT_EQ(outputs[3], (Floats{5, 6, 7, 8}));
    EXPECT_EQ(source.processCount, 4);

    // Not pulled at all: still written by the schedule, and the output is computed there.
    environment.nextGeneration();
    environment.advance(4, false);
    EXPECT_EQ(feedback.getDelayLine().getWritten(), 16);
    EXPECT_EQ(blockValues(feedback.getOutput(), 4), (Floats{13, 14, 15, 16}));

    feedback.setMode(wave::DelayFilterBase::kWriteWhenPulled);
    EXPECT_FALSE(feedback.isScheduled());
    EXPECT_EQ(environment.getHeadCount(), 0);
}
