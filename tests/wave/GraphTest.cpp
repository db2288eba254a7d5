#include "GraphTestUtil.h"

#include "wave/AlignedBuffer.h"
#include "wave/Input.h"
#include "wave/MultiProducer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

using graph_test::blockValues;
using graph_test::CountingSource;
using graph_test::Floats;
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
        for (int32_t i = 0; i < numSamples; ++i, next += 1.0f) {
            outputs[0][i] = next;
            outputs[1][i] = 2.0f * next;
            outputs[2][i] = -next;
        }
    }

    int processCount = 0;
    float next = 1.0f;
};

} // namespace

TEST(AlignedBuffer, AlignedZeroFilledAndResizedKeepingLeadingElements) {
    for (int32_t count : {1, 3, 7, 33}) {
        AlignedBuffer<double> buffer(count);
        EXPECT_TRUE(isAligned(buffer.getData())) << count;
        EXPECT_EQ(std::count(buffer.getData(), buffer.getData() + count, 0.0), count);
    }
    AlignedBuffer<float> buffer(5);
    std::iota(buffer.getData(), buffer.getData() + 5, 1.0f);
    buffer.resize(9);
    EXPECT_TRUE(isAligned(buffer.getData()));
    EXPECT_EQ(blockValues(buffer.getData(), 9), (Floats{1, 2, 3, 4, 5, 0, 0, 0, 0}));
    buffer.resize(3);
    buffer.resize(6);
    EXPECT_EQ(blockValues(buffer.getData(), 6), (Floats{1, 2, 3, 0, 0, 0}));
    buffer.resize(-4);
    EXPECT_EQ(buffer.getData(), nullptr);
    EXPECT_EQ(buffer.getCount(), 0);
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
    EXPECT_EQ(blockValues(doubled.getOutput(), 4), (Floats{2, 4, 6, 8}));
    EXPECT_EQ(blockValues(tripled.getOutput(), 4), (Floats{3, 6, 9, 12}));
    environment.advance(4, false);

    environment.nextGeneration();
    tripled.fetch(4);
    doubled.fetch(4);
    doubled.fetch(4);
    EXPECT_EQ(source.processCount, 2);
    EXPECT_EQ(doubled.processCount, 2);
    EXPECT_EQ(blockValues(doubled.getOutput(), 4), (Floats{10, 12, 14, 16}));

    GainFilter unconnected(&environment, 5.0f); // an unconnected input reads as silence
    SilenceProducer silence(&environment);
    unconnected.fetch(4);
    EXPECT_EQ(blockValues(unconnected.getOutput(), 4), (Floats{0, 0, 0, 0}));
    EXPECT_EQ(silence.fetch(4), environment.getZeroBlock());
}

TEST(GraphInput, LongHostBufferIsConsumedOverSeveralBlocks) {
    Environment environment(8, 0);
    wave::Input input(&environment);
    Floats host(20);
    std::iota(host.begin(), host.end(), 1.0f);
    input.setData(host.data(), 20);
    Floats received;
    for (int block = 0; block < 3; ++block) {
        environment.nextGeneration();
        const float* data = input.fetch(8)->getData();
        received.insert(received.end(), data, data + 8);
    }
    host.resize(24, 0.0f); // past the end of the host buffer: silence
    EXPECT_EQ(received, host);
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
    EXPECT_EQ(blockValues(throughForwarder.getOutput(), 4), (Floats{10, 20, 30, 40}));

    forwarded = &second;
    environment.nextGeneration();
    throughForwarder.fetch(4);
    EXPECT_EQ(forwarder.getOutput(), second.getOutput());
    EXPECT_EQ(first.processCount, 1);

    forwarded = nullptr;
    environment.nextGeneration();
    EXPECT_EQ(forwarder.fetch(4), environment.getZeroBlock());
}

TEST(GraphMultiProducer, PullingOrDrivingAnyOutputComputesAllOnce) {
    Environment environment(4, 0);
    TripleProducer triple(&environment);
    GainFilter readsSecond(&environment, 1.0f), readsThird(&environment, 1.0f);
    readsSecond.setInput(triple.getOutputProducer(1));
    readsThird.setInput(triple.getOutputProducer(2));
    triple.getOutputProducer(0)->schedule(false);

    environment.nextGeneration();
    readsThird.fetch(4);
    readsSecond.fetch(4);
    environment.advance(4, false); // the scheduled first output was computed with the others
    EXPECT_EQ(triple.processCount, 1);
    EXPECT_EQ(blockValues(triple.getOutputProducer(0)->getOutput(), 4), (Floats{1, 2, 3, 4}));
    EXPECT_EQ(blockValues(readsSecond.getOutput(), 4), (Floats{2, 4, 6, 8}));
    EXPECT_EQ(blockValues(readsThird.getOutput(), 4), (Floats{-1, -2, -3, -4}));

    environment.nextGeneration();
    environment.advance(4, false); // nobody pulls: the schedule drives the computation
    EXPECT_EQ(triple.processCount, 2);
    EXPECT_EQ(blockValues(triple.getOutput(2), 4), (Floats{-5, -6, -7, -8}));
}
