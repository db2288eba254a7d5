#include "FrameTestUtil.h"

#include "foundation/BinaryStreams.h"
#include "support/AllocationCounter.h"
#include "support/LockCounter.h"
#include "wave/LockFreeRing.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <mutex>
#include <thread>

using frame_test::kMaxChunk;
using frame_test::processBlock;
using frame_test::runConstant;
using frame_test::runMono;
using frame_test::signal;
using frame_test::TestProcessor;
using Config = frame_test::TestProcessor::Config;

namespace {

TEST(GenericPluginProcessorTest, CutsHostBlocksIntoChunksOfAtMostTheMaximumBlockSize) {
    const std::pair<int32_t, std::vector<int32_t>> cases[] = {
        {3 * kMaxChunk + 1, {64, 64, 64, 1}}, {1, {1}}, {37, {37}}, {200, {64, 64, 64, 8}}};
    for (const auto& [blockSize, chunks] : cases) {
        TestProcessor processor;
        runConstant(processor, static_cast<size_t>(blockSize), 1.0f);
        EXPECT_EQ(processor.chunkSizes, chunks) << blockSize;
    }
}

TEST(GenericPluginProcessorTest, DelayedSignalStaysContinuousAcrossIrregularBlocks) {
    constexpr int32_t kLatency = 5;
    TestProcessor processor(Config{kLatency});
    const std::vector<float> input = signal(1 + 37 + 193 + 200 + 64);
    std::vector<float> output(input.size());
    size_t start = 0;
    for (const int32_t size : {1, 37, 193, 200, 64}) {
        processBlock(processor, input.data() + start, output.data() + start, size);
        start += static_cast<size_t>(size);
    }
    for (size_t n = 0; n < output.size(); ++n)
        ASSERT_EQ(output[n], n < kLatency ? 0.0f : input[n - kLatency]) << n;
}

TEST(GenericPluginProcessorTest, MidiEventsCutTheBlockAndArriveBeforeTheirSample) {
    TestProcessor processor;
    processor.queueMidiEvent({0, 0x90, 60, 100});
    // A controller at 100 sets the gain to 0.5 through the parameter queue, applied from sample 100.
    processor.queueMidiEvent({100, 0xb0, 7, 50});
    const std::vector<float> output = runConstant(processor, 193, 1.0f);

    EXPECT_EQ(processor.midiRecords, (std::vector<frame_test::MidiRecord>{{0, 0}, {100, 100}}));
    for (size_t n = 0; n < output.size(); ++n)
        ASSERT_EQ(output[n], n < 100 ? 1.0f : 0.5f) << n;
}

TEST(GenericPluginProcessorTest, EventsPastTheBlockEndAreHandedOverAfterTheAudio) {
    TestProcessor processor;
    processor.queueMidiEvent({500, 0x90, 60, 100});
    runConstant(processor, 100, 1.0f);
    ASSERT_EQ(processor.midiRecords.size(), 1u);
    EXPECT_EQ(processor.midiRecords[0].processedBefore, 100);

    // A stopped block hands its events over too, rather than leave them to a later block.
    processor.setProcessing(false);
    processor.queueMidiEvent({3, 0x90, 62, 100});
    runConstant(processor, 10, 1.0f);
    processor.setProcessing(true);
    runConstant(processor, 10, 1.0f);
    ASSERT_EQ(processor.midiRecords.size(), 2u);
    EXPECT_EQ(processor.midiRecords[1].processedBefore, 100);
}

TEST(GenericPluginProcessorTest, ParameterPointsLandOnTheirSample) {
    TestProcessor processor;
    const int32_t gainIndex = processor.gain.getIndex();
    runConstant(processor, 10, 1.0f);
    // Absolute positions: this block covers 10..209.
    processor.queueParameterAt(10 + 70, gainIndex, 0.25f);
    processor.queueParameterAt(10 + 130, gainIndex, 0.75f);
    processor.queueParameterAt(10 + 200 + 3, gainIndex, 2.0f);
    const std::vector<float> output = runConstant(processor, 200, 1.0f);
    for (size_t n = 0; n < 200; ++n)
        ASSERT_EQ(output[n], n < 70 ? 1.0f : (n < 130 ? 0.25f : 0.75f)) << n;

    // The third point belongs to the next block.
    EXPECT_EQ(runConstant(processor, 5, 1.0f), (std::vector<float>{0.75f, 0.75f, 0.75f, 2.0f, 2.0f}));
}

TEST(GenericPluginProcessorTest, QueuedParametersWaitWhileSuspended) {
    TestProcessor processor;
    processor.suspendParameterUpdates();
    processor.setParameter(processor.gain.getIndex(), 0.5f, true);
    EXPECT_EQ(runConstant(processor, 4, 1.0f), std::vector<float>(4, 1.0f));
    processor.resumeParameterUpdates();
    EXPECT_EQ(runConstant(processor, 4, 1.0f), std::vector<float>(4, 0.5f));
}

TEST(GenericPluginProcessorTest, ResetCommandClearsTheGraph) {
    constexpr int32_t kLatency = 5;
    for (const bool reset : {false, true}) {
        TestProcessor processor(Config{kLatency});
        runConstant(processor, 32, 1.0f);
        if (reset)
            processor.setParameter(GenericPluginProcessor::kResetGraphCommand, 0.0f, true);
        // Without a reset the delay line still holds five ones.
        EXPECT_EQ(runConstant(processor, 8, 0.0f)[4], reset ? 0.0f : 1.0f);
    }
}

TEST(GenericPluginProcessorTest, ProcessesWithFlushToZeroAndRestoresTheMode) {
    TestProcessor processor;
    const uint32_t before = ScopedFlushToZero::currentMode();
    runConstant(processor, 16, 1.0f);
    const uint32_t wanted = ScopedFlushToZero::kFlushToZero | ScopedFlushToZero::kDenormalsAreZero |
                            ScopedFlushToZero::kExceptionMasks;
    EXPECT_EQ(processor.modeWhileProcessing & (wanted | ScopedFlushToZero::kRoundingBits), wanted);
    EXPECT_EQ(ScopedFlushToZero::currentMode(), before);
    EXPECT_EQ(before & ScopedFlushToZero::kFlushToZero, 0u);

    volatile float tiny = 1e-30f;
    {
        const ScopedFlushToZero scope;
        EXPECT_EQ(tiny * 1e-10f, 0.0f);
    }
    EXPECT_GT(tiny * 1e-10f, 0.0f);
}

TEST(GenericPluginProcessorTest, ZeroTempoIsOneHundredTwentyAndAStoppedTransportWrapsAt256Beats) {
    TestProcessor processor;
    processor.setTransport(0.0f, 4.0f, true);
    runConstant(processor, 16, 1.0f);
    EXPECT_EQ(processor.tempoSeen, 120.0f);
    EXPECT_EQ(processor.beatSeen, 4.0);
    processor.setTransport(120.0f, 254.0f, true);
    EXPECT_EQ(processor.transportStarts, 1);
    processor.setTransport(120.0f, 254.0f, false);
    // Two seconds at 120 BPM are four beats: 254 + 4 wraps to 2.
    runConstant(processor, 96000, 0.0f, kMaxChunk);
    processor.setTransport(120.0f, 254.0f, false);
    EXPECT_NEAR(processor.getBeatPosition(), 2.0, 1e-9);
    // A quarter second at a zero tempo is half a beat.
    runConstant(processor, 12000, 0.0f, kMaxChunk);
    processor.setTransport(0.0f, 254.0f, false);
    EXPECT_NEAR(processor.getBeatPosition(), 2.5, 1e-9);
    // A moved host position is taken as it is.
    processor.setTransport(120.0f, 17.0f, false);
    EXPECT_EQ(processor.getBeatPosition(), 17.0);
}

TEST(GenericPluginProcessorTest, NonFiniteTransportValuesLeaveNoLastingNaN) {
    TestProcessor processor;
    processor.setTransport(INFINITY, 8.0f, false);
    EXPECT_EQ(processor.getTempo(), 120.0f);
    processor.setTransport(NAN, 8.0f, false);
    processor.setTransport(120.0f, NAN, true);
    runConstant(processor, 24000, 0.0f, kMaxChunk);
    processor.setTransport(120.0f, NAN, false);
    // Half a second at 120 BPM from beat 8.
    EXPECT_NEAR(processor.getBeatPosition(), 9.0, 1e-9);
    processor.setTransport(120.0f, 3.0f, false);
    EXPECT_EQ(processor.getBeatPosition(), 3.0);
}

TEST(GenericPluginProcessorTest, ProcessingAllocatesNothingAndTakesNoLock) {
    {
        std::mutex probe;
        testing_support::LockCounter seen;
        probe.lock();
        probe.unlock();
        ASSERT_EQ(seen.count(), 1) << "the lock interposer is not in effect";
    }

    TestProcessor processor(Config{100, 2, 300, true});
    processor.setSideChainConnected(true);
    std::vector<float> left(193, 0.5f), right(193, -0.5f), outLeft(193), outRight(193);
    const float* inputs[] = {left.data(), right.data()};
    float* outputs[] = {outLeft.data(), outRight.data()};

    testing_support::AllocationCounter allocations;
    testing_support::LockCounter locks;
    for (int32_t block = 0; block < 200; ++block) {
        processor.setTransport(block % 2 == 0 ? 0.0f : 100.0f, 1.0f, block % 3 == 0);
        processor.queueMidiEvent({block % 193, 0xb0, 7, static_cast<uint8_t>(block % 100)});
        processor.setParameter(processor.gain.getIndex(), 0.5f, true);
        processor.queueParameterAt(static_cast<int32_t>(block * 193 + 17), processor.gain.getIndex(), 0.9f);
        if (block % 20 == 10)
            processor.setHostBypass(block % 40 == 10);
        uint32_t flags = block > 150 ? GenericPluginProcessor::kInputSilent : 0u;
        processor.process(inputs, inputs, outputs, 2, 1 + block % 193, flags);
    }
    EXPECT_EQ(allocations.count(), 0u);
    EXPECT_EQ(locks.count(), 0);
}

TEST(GenericPluginProcessorTest, SideChainReachesTheGraphOnlyWhenConnectedAndUsed) {
    TestProcessor processor(Config{0, 1, GenericPluginProcessor::kNoTail, true});
    const std::vector<float> main(8, 1.0f), side(8, 0.25f);
    const auto run = [&] {
        std::vector<float> output(8);
        const float *in = main.data(), *sc = side.data();
        float* out = output.data();
        uint32_t flags = 0;
        processor.process(&in, &sc, &out, 1, 8, flags);
        return output;
    };
    EXPECT_EQ(run(), std::vector<float>(8, 0.0f));
    processor.setSideChainConnected(true);
    EXPECT_EQ(run(), std::vector<float>(8, 0.25f));
    processor.setSideChainUsed(false);
    EXPECT_EQ(run(), std::vector<float>(8, 0.0f));
}

class FixedLevel : public LevelSource {
public:
    explicit FixedLevel(float level) : level(level) {}
    Info getLevelInfo() override { return {level, level, level}; }
    Detection getDetection() const override { return {}; }

private:
    float level;
};

TEST(GenericPluginProcessorTest, PerChannelMetersCombineAcrossChannels) {
    TestProcessor processor(Config{0, 2});
    FixedLevel overall(-3.0f), left(-12.0f), right(-6.0f);
    processor.setMeter(0, 0, &overall);
    processor.setMeter(1, 0, &right);
    processor.setMeter(0, 1, &left);
    processor.setMeter(1, 1, &right);
    processor.setFirstPerChannelMeter(1);
    EXPECT_EQ(processor.getMeterValue(0, true), -3.0f);
    EXPECT_EQ(processor.getMeterValue(1, true), -6.0f);
    EXPECT_EQ(processor.getMeterValue(1, false), -12.0f);
    EXPECT_EQ(processor.getMeterValue(-1, true), 0.0f);
}

TEST(GenericPluginProcessorTest, RealTimeRequestsKeepTheDisplayFlagAlive) {
    TestProcessor processor;
    wave::Environment& environment = *processor.getEnvironment();
    runConstant(processor, 64, 0.0f);
    EXPECT_FALSE(environment.isDisplayActive());
    BinaryMemoryWriter writer;
    processor.writeRealTimeData(writer);
    runConstant(processor, 47000, 0.0f, kMaxChunk);
    EXPECT_TRUE(environment.isDisplayActive());
    runConstant(processor, 1000, 0.0f, kMaxChunk);
    EXPECT_FALSE(environment.isDisplayActive());
    EXPECT_EQ(processor.getSamplesSinceRealTimeRequest(), 48000);
}

TEST(GenericPluginProcessorTest, ModeParameterCallsTheModeSetterWhenItTurnsOne) {
    TestProcessor processor;
    const int32_t modeIndex = processor.mode.getIndex();
    const auto setAndRun = [&](float value) {
        processor.setParameter(modeIndex, value, true);
        runConstant(processor, 4, 1.0f);
    };
    // 0.6 rounds to mode 1; only that change and the later 1.0 reach the setter.
    for (const auto& [value, mode] : {std::pair{2.0f, 2}, {0.6f, 1}, {0.0f, 0}, {1.0f, 1}}) {
        setAndRun(value);
        EXPECT_EQ(processor.getMode(), mode) << value;
    }
    EXPECT_EQ(processor.modeCalls, (std::vector<float>{1.0f, 1.0f}));
    // Other parameters leave the mode alone.
    setAndRun(2.0f);
    processor.setParameter(processor.gain.getIndex(), 1.0f, true);
    runConstant(processor, 4, 1.0f);
    EXPECT_EQ(processor.getMode(), 2);
}

// Remembers what it saw of the parameter when the immediate action ran.
class GainWatcher : public GenericPluginProcessor::ImmediateAction {
public:
    explicit GainWatcher(const TestProcessor& processor) : processor(processor) {}
    void applyImmediately(int32_t index, float value) override {
        seen.push_back({static_cast<float>(index), value, processor.gain.getValue()});
    }
    // Index, value, and the gain parameter's value then.
    std::vector<std::array<float, 3>> seen;

private:
    const TestProcessor& processor;
};

TEST(GenericPluginProcessorTest, ImmediateActionRunsAtOnceAndTheValueStillQueues) {
    TestProcessor processor;
    GainWatcher watcher(processor);
    const int32_t gainIndex = processor.gain.getIndex();
    processor.setImmediateAction(gainIndex, &watcher);
    processor.setParameter(gainIndex, 0.5f, true);
    processor.setParameter(processor.mode.getIndex(), 1.0f, true);
    ASSERT_EQ(watcher.seen.size(), 1u);
    EXPECT_EQ(watcher.seen[0], (std::array<float, 3>{static_cast<float>(gainIndex), 0.5f, 1.0f}));
    EXPECT_EQ(runConstant(processor, 4, 1.0f), std::vector<float>(4, 0.5f));

    processor.setImmediateAction(gainIndex, nullptr);
    processor.setParameter(gainIndex, 0.25f, true);
    EXPECT_EQ(watcher.seen.size(), 1u);
}

class FixedRecord : public GenericPluginProcessor::RealTimeDataSource {
public:
    explicit FixedRecord(uint32_t value) : value(value) {}
    void writeRealTimeData(BinaryDataWriter& stream) override { stream.writeUInt32(value); }

private:
    uint32_t value;
};

// Reads a word from the display's request and echoes it after the frame's record.
class EchoingProcessor : public TestProcessor {
public:
    using TestProcessor::TestProcessor;

protected:
    void readRealTimeRequest(BinaryDataReader& request) override { requested = request.readUInt32(); }
    void writeRealTimeData(BinaryDataWriter& stream) override {
        TestProcessor::writeRealTimeData(stream);
        stream.writeUInt32(requested);
    }

private:
    uint32_t requested = 0;
};

TEST(GenericPluginProcessorTest, RealTimeAnswerReadsTheRequestAndWritesBothSourceListsInOrder) {
    EchoingProcessor processor(Config{});
    FixedRecord first(11), second(22), third(33);
    processor.setRealTimeDataSource(1, 0, &third);
    processor.setRealTimeDataSource(0, 2, &second);
    processor.setRealTimeDataSource(0, 0, &first);
    processor.setRealTimeDataSource(2, 0, &first);
    processor.setTransport(120.0f, 0.0f, false);

    const std::vector<uint8_t> request{0x78, 0x56, 0x34, 0x12};
    BinaryMemoryReader reader(request);
    BinaryMemoryWriter writer;
    processor.answerRealTimeRequest(reader, writer);
    const std::vector<uint8_t> bytes = writer.release();
    ASSERT_EQ(bytes.size(), 20u);
    uint32_t words[5];
    float tempo = 0.0f;
    std::memcpy(words, bytes.data(), 20);
    std::memcpy(&tempo, &words[3], 4);
    EXPECT_EQ(tempo, 120.0f);
    EXPECT_EQ((std::vector<uint32_t>{words[0], words[1], words[2], words[4]}),
              (std::vector<uint32_t>{11, 22, 33, 0x12345678}));
}

TEST(GenericPluginProcessorTest, OutgoingMidiIsWrittenAfterTheTempoOnlyWhenTheFlagAsksForIt) {
    TestProcessor plain;
    EXPECT_FALSE(plain.sendMidiEvent({0, 0x90, 60, 100}));

    Config config;
    config.featureFlags = GenericPluginProcessor::kMidiOutputFlag;
    TestProcessor sender(config);
    EXPECT_TRUE(sender.sendMidiEvent({0, 0x90, 60, 100}));
    EXPECT_TRUE(sender.sendMidiEvent({7, 0xb0, 7, 5}));
    BinaryMemoryWriter writer;
    sender.writeRealTimeData(writer);
    std::vector<uint8_t> bytes = writer.release();
    ASSERT_EQ(bytes.size(), 4u + 9u);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 4, bytes.end()),
              (std::vector<uint8_t>{1, 0x90, 60, 100, 1, 0xb0, 7, 5, 0}));

    // The queue holds 32 events and is empty after each answer.
    for (int32_t i = 0; i < 32; ++i)
        ASSERT_TRUE(sender.sendMidiEvent({0, 0x80, static_cast<uint8_t>(i), 0}));
    EXPECT_FALSE(sender.sendMidiEvent({0, 0x80, 99, 0}));
    BinaryMemoryWriter full;
    sender.writeRealTimeData(full);
    bytes = full.release();
    ASSERT_EQ(bytes.size(), 4u + 32u * 4u + 1u);
    EXPECT_EQ(bytes[4 + 31 * 4 + 2], 31);
    BinaryMemoryWriter empty;
    sender.writeRealTimeData(empty);
    EXPECT_EQ(empty.release(), (std::vector<uint8_t>{0, 0, 0xf0, 0x42, 0}));
}

// Counts global initialisation and shutdown across instances; initialised after construction,
// as the host layer does, so that its own overrides run.
class GlobalCounting : public GenericPluginProcessor {
public:
    GlobalCounting() { initialize(kMaxChunk, 48000); }
    ~GlobalCounting() override { terminate(); }
    static inline int initializations = 0;
    static inline int shutdowns = 0;

protected:
    void processChannels(float* const*, int32_t, int32_t) override {}
    void globalInitialize() override { ++initializations; }
    void globalShutdown() override { ++shutdowns; }
};

TEST(GenericPluginProcessorTest, FirstInstanceInitialisesGloballyAndTheLastShutsDown) {
    auto first = std::make_unique<GlobalCounting>();
    auto second = std::make_unique<GlobalCounting>();
    EXPECT_EQ(GlobalCounting::initializations, 1);
    first.reset();
    EXPECT_EQ(GlobalCounting::shutdowns, 0);
    second.reset();
    EXPECT_EQ(GlobalCounting::shutdowns, 1);
    GlobalCounting third;
    EXPECT_EQ(GlobalCounting::initializations, 2);
}

TEST(LockFreeRingTest, HoldsExactlyItsCapacityInOrder) {
    auto ring = std::make_unique<wave::LockFreeRing<GenericPluginProcessor::ParameterChange, 8192>>();
    for (int32_t i = 0; i < 8192; ++i)
        ASSERT_TRUE(ring->push({i, static_cast<float>(i)}));
    EXPECT_FALSE(ring->push({-5, 0.0f}));
    GenericPluginProcessor::ParameterChange change;
    for (int32_t i = 0; i < 8192; ++i) {
        ASSERT_TRUE(ring->pop(change));
        ASSERT_EQ(change.index, i);
    }
    EXPECT_FALSE(ring->pop(change));
}

TEST(LockFreeRingTest, CarriesEveryEntryAcrossThreadsInOrder) {
    constexpr int32_t kCount = 20000;
    wave::LockFreeRing<GenericPluginProcessor::ParameterPoint, 128> ring;
    std::thread producer([&ring] {
        for (int32_t i = 0; i < kCount; ++i)
            while (!ring.push({i, 0, i * 3, static_cast<float>(i)}))
                std::this_thread::yield();
    });
    int32_t expected = 0;
    GenericPluginProcessor::ParameterPoint point;
    while (expected < kCount) {
        if (!ring.pop(point)) {
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(point.position, expected);
        ASSERT_EQ(point.index, 3 * expected++);
    }
    producer.join();
    EXPECT_TRUE(ring.isEmpty());
}

} // namespace
