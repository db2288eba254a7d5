#include "GraphTestUtil.h"

#include "wave/AlignedBuffer.h"
#include "wave/Input.h"
#include "wave/MultiProducer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

using graph_test::blockValues;
using graph_test::CountingSource;
using graph_test::GainFilter;
using wave::Environment;

namespace {

bool isAligned(const void* pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer) % 32 == 0;
}

// Three outputs computed together: the running count, its double and its negation.
class TripleProducer : public wave::MultiProducer {
public:
    explicit TripleProducer(Environment* environment) : wave::MultiProducer(environment, 3) {}

    void processAll(float* const* outputs, int32_t numSamples) override {
        ++processCount;
        for (int32_t i = 0; i < numSamples; ++i) {
            outputs[0][i] = next;
            outputs[1][i] = 2.0f * next;
            outputs[2][i] = -next;
            next += 1.0f;
        }
    }

    int processCount = 0;
    float next = 1.0f;
};

} // namespace

TEST(AlignedBuffer, AlignedZeroFilledAndResizedKeepingLeadingElements) {
    for (int32_t count : {1, 3, 7, 8, 33, 1000}) {
        AlignedBuffer<float> floats(count);
        AlignedBuffer<double> doubles(count);
        ASSERT_EQ(floats.getCount(), count);
        EXPECT_TRUE(isAligned(floats.getData())) << count;
        EXPECT_TRUE(isAligned(doubles.getData())) << count;
        for (int32_t i = 0; i < count; ++i) {
            EXPECT_EQ(floats[i], 0.0f);
            EXPECT_EQ(doubles[i], 0.0);
        }
    }

    AlignedBuffer<float> buffer(5);
    std::iota(buffer.getData(), buffer.getData() + 5, 1.0f);
    const float* before = buffer.getData();
    buffer.resize(5); // same count: nothing happens
    EXPECT_EQ(buffer.getData(), before);

    buffer.resize(9);
    EXPECT_TRUE(isAligned(buffer.getData()));
    EXPECT_EQ(blockValues(buffer.getData(), 9), (std::vector<float>{1, 2, 3, 4, 5, 0, 0, 0, 0}));
    buffer.resize(3);
    EXPECT_EQ(blockValues(buffer.getData(), 3), (std::vector<float>{1, 2, 3}));
    buffer.resize(6);
    EXPECT_EQ(blockValues(buffer.getData(), 6), (std::vector<float>{1, 2, 3, 0, 0, 0}));

    buffer.resize(0);
    EXPECT_EQ(buffer.getData(), nullptr);
    EXPECT_EQ(buffer.getCount(), 0);
    AlignedBuffer<float> negative(-4);
    EXPECT_EQ(negative.getData(), nullptr);
    EXPECT_EQ(negative.getCount(), 0);
}

TEST(GraphPull, ASourceReadByTwoFiltersComputesOncePerGeneration) {
    Environment environment(4, 0);
    CountingSource source(&environment);
    GainFilter doubled(&environment, 2.0f), tripled(&environment, 3.0f);
    doubled.setInput(&source);
    tripled.setInput(&source);

    environment.nextGeneration();
    doubled.fetch(4);
    tripled.fetch(4);
    EXPECT_EQ(source.processCount, 1);
    EXPECT_EQ(source.lastFlags, wave::Producer::kPulled);
    EXPECT_EQ(blockValues(doubled.getOutput(), 4), (std::vector<float>{2, 4, 6, 8}));
    EXPECT_EQ(blockValues(tripled.getOutput(), 4), (std::vector<float>{3, 6, 9, 12}));
    environment.advance(4, false);

    environment.nextGeneration();
    tripled.fetch(4);
    doubled.fetch(4);
    doubled.fetch(4);
    EXPECT_EQ(source.processCount, 2);
    EXPECT_EQ(doubled.processCount, 2);
    EXPECT_EQ(blockValues(doubled.getOutput(), 4), (std::vector<float>{10, 12, 14, 16}));
}

TEST(GraphPull, UnconnectedInputAndSilenceReadAsTheZeroBlock) {
    Environment environment(4, 0);
    GainFilter filter(&environment, 5.0f);
    SilenceProducer silence(&environment);
    EXPECT_EQ(silence.getOutput(), environment.getZeroBlock()->getData()); // before any block
    environment.nextGeneration();
    filter.fetch(4);
    EXPECT_EQ(blockValues(filter.getOutput(), 4), (std::vector<float>{0, 0, 0, 0}));
    EXPECT_EQ(silence.fetch(4), environment.getZeroBlock());
    EXPECT_EQ(silence.getOutput(), environment.getZeroBlock()->getData());
}

TEST(GraphInput, LongHostBufferIsConsumedOverSeveralBlocks) {
    Environment environment(8, 0);
    wave::Input input(&environment);
    GainFilter unity(&environment, 1.0f);
    unity.setInput(&input);
    std::vector<float> host(20);
    std::iota(host.begin(), host.end(), 1.0f);
    input.setData(host.data(), 20);

    std::vector<float> received;
    for (int block = 0; block < 3; ++block) {
        environment.nextGeneration();
        unity.fetch(8);
        received.insert(received.end(), unity.getOutput(), unity.getOutput() + 8);
        environment.advance(8, false);
    }
    std::vector<float> expected(host);
    expected.resize(24, 0.0f); // past the end of the host buffer: silence
    EXPECT_EQ(received, expected);
    EXPECT_EQ(input.getRemaining(), 0);

    // A second host block of fewer samples than the graph block.
    const float shortBlock[3] = {7.0f, 8.0f, 9.0f};
    input.setData(shortBlock, 3);
    environment.nextGeneration();
    unity.fetch(3);
    EXPECT_EQ(blockValues(unity.getOutput(), 3), (std::vector<float>{7, 8, 9}));
}

TEST(GraphInputForwarder, PublishesTheForwardedBlockWithoutCopying) {
    Environment environment(4, 0);
    CountingSource first(&environment, 1.0f), second(&environment, 100.0f);
    wave::Producer* forwarded = &first;
    wave::InputForwarder forwarder(&environment, &forwarded);
    GainFilter direct(&environment, 1.0f), throughForwarder(&environment, 10.0f);
    direct.setInput(&first);
    throughForwarder.setInput(&forwarder);

    environment.nextGeneration();
    throughForwarder.fetch(4);
    direct.fetch(4);
    EXPECT_EQ(first.processCount, 1);
    EXPECT_EQ(forwarder.getOutput(), first.getOutput()); // the same memory, not a copy
    EXPECT_EQ(forwarder.getCurrentBlock(), first.getOwnBlock());
    EXPECT_EQ(blockValues(throughForwarder.getOutput(), 4), (std::vector<float>{10, 20, 30, 40}));
    environment.advance(4, false);

    forwarded = &second;
    environment.nextGeneration();
    throughForwarder.fetch(4);
    EXPECT_EQ(forwarder.getOutput(), second.getOutput());
    EXPECT_EQ(blockValues(throughForwarder.getOutput(), 4), (std::vector<float>{1000, 1010, 1020, 1030}));
    EXPECT_EQ(first.processCount, 1); // no longer read

    forwarded = nullptr;
    environment.nextGeneration();
    EXPECT_EQ(forwarder.fetch(4), environment.getZeroBlock());
}

TEST(GraphMultiProducer, PullingAnyOutputComputesAllOnce) {
    Environment environment(4, 0);
    TripleProducer triple(&environment);
    GainFilter readsSecond(&environment, 1.0f), readsThird(&environment, 1.0f);
    readsSecond.setInput(triple.getOutputProducer(1));
    readsThird.setInput(triple.getOutputProducer(2));

    environment.nextGeneration();
    readsThird.fetch(4);
    readsSecond.fetch(4);
    triple.getOutputProducer(0)->fetch(4);
    EXPECT_EQ(triple.processCount, 1);
    EXPECT_EQ(blockValues(triple.getOutputProducer(0)->getOutput(), 4), (std::vector<float>{1, 2, 3, 4}));
    EXPECT_EQ(blockValues(readsSecond.getOutput(), 4), (std::vector<float>{2, 4, 6, 8}));
    EXPECT_EQ(blockValues(readsThird.getOutput(), 4), (std::vector<float>{-1, -2, -3, -4}));
    for (int32_t index = 0; index < 3; ++index)
        EXPECT_EQ(triple.getOutputProducer(index)->getGeneration(), environment.getGeneration());
    environment.advance(4, false);

    environment.nextGeneration();
    readsSecond.fetch(4);
    readsThird.fetch(4);
    EXPECT_EQ(triple.processCount, 2);
    EXPECT_EQ(blockValues(readsThird.getOutput(), 4), (std::vector<float>{-5, -6, -7, -8}));
}

TEST(GraphMultiProducer, ScheduledOutputDrivesTheComputationWhenNobodyPulls) {
    Environment environment(4, 0);
    TripleProducer triple(&environment);
    triple.getOutputProducer(2)->schedule(false);
    environment.nextGeneration();
    environment.advance(4, false);
    EXPECT_EQ(triple.processCount, 1);
    EXPECT_EQ(blockValues(triple.getOutput(0), 4), (std::vector<float>{1, 2, 3, 4}));
    EXPECT_TRUE(isAligned(triple.getOutput(1)));
}
