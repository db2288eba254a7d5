#include "GraphTestUtil.h"

#include "wave/Delay.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using graph_test::blockValues;
using graph_test::CountingSource;
using graph_test::Floats;
using wave::Delay;
using wave::Environment;

namespace {

Floats readDelay(Delay& delay, int32_t at, int32_t numSamples) {
    Floats out(static_cast<size_t>(numSamples), -99.0f);
    delay.read(at, out.data(), numSamples);
    return out;
}

void expectFractional(Delay& delay, const Floats& delays, const Floats& expected) {
    Floats out(delays.size(), -99.0f);
    delay.readFractional(delays.data(), out.data(), static_cast<int32_t>(delays.size()));
    for (size_t i = 0; i < out.size(); ++i)
        EXPECT_NEAR(out[i], expected[i], 1e-6) << "sample " << i;
}

void write(Delay& delay, const Floats& block) {
    delay.write(block.data(), static_cast<int32_t>(block.size()));
}

} // namespace

TEST(DelayRing, SizeIsTheNextPowerOfTwoOfBlockPlusDelay) {
    Environment environment(8, 0), single(1, 0);
    EXPECT_EQ(Delay(&environment, 8).getRingSize(), 16);
    EXPECT_EQ(Delay(&environment, 9).getRingSize(), 32);
    EXPECT_EQ(Delay(&single, 0).getRingSize(), 1);
    EXPECT_EQ(Delay(&single, 1).getRingSize(), 2);
}

TEST(DelayRead, IntegerReadsFollowTheRingAndWrapWithTheFillValueWhereNothingWasWritten) {
    Environment environment(4, 0);
    Delay delay(&environment, 4); // ring of 8
    delay.setFillValue(0.5f);
    write(delay, {1, 2, 3, 4});
    EXPECT_EQ(readDelay(delay, 0, 4), (Floats{1, 2, 3, 4}));             // delay 0: the block just written
    EXPECT_EQ(readDelay(delay, 2, 4), (Floats{0.5f, 0.5f, 0.5f, 0.5f})); // reaches before the first sample
    write(delay, {5, 6, 7, 8});
    EXPECT_EQ(readDelay(delay, 2, 4), (Floats{3, 4, 5, 6}));
    EXPECT_EQ(readDelay(delay, 1, 2), (Floats{6, 7}));
    write(delay, {9, 10, 11, 12});
    EXPECT_EQ(readDelay(delay, 3, 4), (Floats{6, 7, 8, 9})); // ring[5..7] then ring[0]

    delay.reset();
    write(delay, {7, 8, 9, 10});
    EXPECT_EQ(readDelay(delay, 0, 4), (Floats{7, 8, 9, 10}));
    EXPECT_EQ(readDelay(delay, 1, 4), (Floats{0.5f, 0.5f, 0.5f, 0.5f})); // old data is not revived
}

TEST(DelayRead, FractionalReadsInterpolateAndStraddleTheFirstSample) {
    Environment environment(4, 0);
    Delay delay(&environment, 4); // ring of 8
    write(delay, {1, 2, 3, 4});
    // ring[0..3] = 1..4, write position 4, so p = 8 + i - delay.
    // i=0, 0.5: p = 7.5, ring[7] unwritten, ring[0] = 1 -> 0.5 * 1; i=1, 0.5: p = 8.5 -> 1.5;
    // i=2, 0.25: p = 9.75 -> 2.75; i=3, 0: p = 11 -> 4.
    expectFractional(delay, {0.5f, 0.5f, 0.25f, 0.0f}, {0.5f, 1.5f, 2.75f, 4.0f});
    // i=0, 1.5: p = 6.5, ring[6] and ring[7] unwritten -> 0.
    expectFractional(delay, {1.5f, 0.0f, 0.0f, 0.0f}, {0.0f, 2.0f, 3.0f, 4.0f});
    write(delay, {5, 6, 7, 8});
    // Full ring, write position 0: p = 4 + i - delay.
    expectFractional(delay, {2.5f, 1.25f, 0.0f, 7.0f}, {2.5f, 4.75f, 7.0f, 1.0f});
    write(delay, {9, 10, 11, 12});
    // Write position 4: i=0, 0.5: p = 7.5 -> between ring[7] = 8 and ring[0] = 9, across the wrap.
    expectFractional(delay, {0.5f, 0.0f, 0.0f, 0.0f}, {8.5f, 10.0f, 11.0f, 12.0f});
    // NaN and negative delays read the current sample; a huge delay reads one ring back (p = 10 - 8).
    expectFractional(delay, {NAN, -3.0f, 1e9f, 4.0f}, {9.0f, 10.0f, 11.0f, 8.0f});
}

TEST(DelayLimits, SetMaxDelayClampsAndResetsOnlyWhenChanged) {
    Environment environment(8, 0);
    Delay delay(&environment, 10, 8);
    delay.setDelay(20);
    EXPECT_EQ(delay.getDelay(), 10);
    write(delay, {1, 2, 3, 4, 5, 6, 7, 8});
    delay.setMaxDelay(10); // unchanged: keeps its data
    EXPECT_EQ(delay.getWritten(), 8);
    delay.setMaxDelay(5);
    EXPECT_EQ(delay.getDelay(), 5);
    EXPECT_EQ(delay.getRingSize(), 16);
    EXPECT_EQ(delay.getWritten(), 0);
}

TEST(DelayLimits, BlockSizeChangesKeepTheDelayedSignal) {
    Environment environment(4, 0);
    Delay delay(&environment, 3, 3); // ring of 8
    float next = 1.0f;
    Floats input, output;
    const auto run = [&](int blocks, int32_t numSamples) {
        for (int b = 0; b < blocks; ++b) {
            Floats block(static_cast<size_t>(numSamples));
            for (auto& sample : block)
                sample = next++;
            input.insert(input.end(), block.begin(), block.end());
            delay.processInPlace(block.data(), numSamples);
            output.insert(output.end(), block.begin(), block.end());
        }
    };
    run(4, 4);
    environment.setMaxBlockSize(16);
    EXPECT_EQ(delay.getRingSize(), 32);
    run(3, 16);
    environment.setMaxBlockSize(1);
    EXPECT_EQ(delay.getRingSize(), 4);
    run(6, 1);
    environment.setMaxBlockSize(4);
    run(2, 4);
    // After the first block every sample is the input three samples earlier, across every resize.
    for (size_t t = 4; t < output.size(); ++t)
        EXPECT_EQ(output[t], input[t - 3]) << "sample " << t;
}

TEST(DelayFilter, DelaysItsInputAndResetsAfterAMissedBlockOrAFullReset) {
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
    block(true); // 5..8
    EXPECT_EQ(blockValues(skipping.getOutput(), 4), (Floats{3, 4, 5, 6}));
    block(false); // 9..12: the second filter misses it
    block(true);  // 13..16
    EXPECT_EQ(blockValues(delayed.getOutput(), 4), (Floats{11, 12, 13, 14}));
    EXPECT_EQ(blockValues(skipping.getOutput(), 4), (Floats{0, 0, 0, 0})); // stream interrupted
    environment.reset(2);                                                  // partial: the line keeps its data
    block(true);                                                           // 17..20
    EXPECT_EQ(blockValues(delayed.getOutput(), 4), (Floats{15, 16, 17, 18}));
    environment.reset(0);
    block(true);
    EXPECT_EQ(blockValues(delayed.getOutput(), 4), (Floats{0, 0, 0, 0}));
}

TEST(DelayFilter, HeadModeWritesAtTheEndOfEveryBlock) {
    Environment environment(4, 0);
    CountingSource source(&environment);
    wave::DelayFilter feedback(&environment, 8, 4, wave::DelayFilterBase::kWriteAtBlockEnd);
    feedback.setInput(&source);
    EXPECT_EQ(environment.getHeadCount(), 1);

    // The pull reads what earlier blocks wrote: block k sees the source of block k - 2.
    const std::vector<Floats> expected{{0, 0, 0, 0}, {0, 0, 0, 0}, {1, 2, 3, 4}, {5, 6, 7, 8}};
    for (int i = 0; i < 4; ++i) {
        environment.nextGeneration();
        feedback.fetch(4);
        EXPECT_EQ(blockValues(feedback.getOutput(), 4), expected[static_cast<size_t>(i)]) << i;
        EXPECT_EQ(feedback.getDelayLine().getWritten(), 4 * i); // not yet written in this block
        environment.advance(4, false);
    }
    EXPECT_EQ(source.processCount, 4);
    // Not pulled at all: still written by the schedule, and the output is computed there.
    environment.nextGeneration();
    environment.advance(4, false);
    EXPECT_EQ(feedback.getDelayLine().getWritten(), 16);
    EXPECT_EQ(blockValues(feedback.getOutput(), 4), (Floats{13, 14, 15, 16}));

    feedback.setMode(wave::DelayFilterBase::kWriteWhenPulled);
    EXPECT_EQ(environment.getHeadCount(), 0);
}
