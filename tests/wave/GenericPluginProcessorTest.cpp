#include "FrameTestUtil.h"

#include "foundation/BinaryStreams.h"
#include "support/AllocationCounter.h"
#include "wave/LockFreeRing.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <pthread.h>
#include <thread>

using frame_test::kMaxChunk;
using frame_test::runMono;
using frame_test::TestProcessor;
using Config = frame_test::TestProcessor::Config;

// Counts mutex locks taken by the calling thread. The test program's definition takes precedence
// over the C library's, so every lock through pthreads (std::mutex included) passes here.
namespace {

thread_local int locksTaken = 0;

using LockFunction = int (*)(pthread_mutex_t*);
// No function-local static: its guard may itself lock.
std::atomic<LockFunction> cachedLock{nullptr};

LockFunction libraryLock() {
    LockFunction function = cachedLock.load(std::memory_order_acquire);
    if (function == nullptr) {
        function = reinterpret_cast<LockFunction>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
        cachedLock.store(function, std::memory_order_release);
    }
    return function;
}

} // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
    ++locksTaken;
    return libraryLock()(mutex);
}

namespace {

std::vector<float> ramp(size_t count) {
    std::vector<float> samples(count);
    for (size_t i = 0; i < count; ++i)
        samples[i] = 1.0f + 0.01f * static_cast<float>(i % 97);
    return samples;
}

TEST(GenericPluginProcessorTest, CutsHostBlocksIntoChunksOfAtMostTheMaximumBlockSize) {
    struct Case {
        int32_t blockSize;
        std::vector<int32_t> chunks;
    };
    const Case cases[] = {{3 * kMaxChunk + 1, {64, 64, 64, 1}}, {1, {1}}, {37, {37}}, {200, {64, 64, 64, 8}}};
    for (const Case& c : cases) {
        TestProcessor processor;
        const std::vector<float> input = ramp(static_cast<size_t>(c.blockSize));
        runMono(processor, input, c.blockSize);
        EXPECT_EQ(processor.chunkSizes, c.chunks) << "block of " << c.blockSize;
    }
}

TEST(GenericPluginProcessorTest, DelayedSignalStaysContinuousAcrossIrregularBlocks) {
    constexpr int32_t kLatency = 5;
    TestProcessor processor(Config{kLatency});
    const std::vector<float> input = ramp(1 + 37 + 193 + 200 + 64);
    std::vector<float> output(input.size());
    size_t start = 0;
    for (const int32_t size : {1, 37, 193, 200, 64}) {
        const float* in = input.data() + start;
        float* out = output.data() + start;
        uint32_t flags = 0;
        processor.process(&in, nullptr, &out, 1, size, flags);
        start += static_cast<size_t>(size);
    }
    for (size_t n = 0; n < output.size(); ++n)
        ASSERT_EQ(output[n], n < kLatency ? 0.0f : input[n - kLatency]) << "sample " << n;
}

TEST(GenericPluginProcessorTest, MidiEventsCutTheBlockAndArriveBeforeTheirSample) {
    TestProcessor processor;
    processor.queueMidiEvent({0, 0x90, 60, 100});
    // A controller at 100 sets the gain to 0.5 through the parameter queue; the queue is drained
    // right after the event, so the new gain applies from sample 100 on.
    processor.queueMidiEvent({100, 0xb0, 7, 50});
    const std::vector<float> output = runMono(processor, std::vector<float>(193, 1.0f), 193);

    ASSERT_EQ(processor.midiRecords.size(), 2u);
    EXPECT_EQ(processor.midiRecords[0].offset, 0);
    EXPECT_EQ(processor.midiRecords[0].processedBefore, 0);
    EXPECT_EQ(processor.midiRecords[1].processedBefore, 100);
    EXPECT_EQ(processor.chunkSizes, (std::vector<int32_t>{64, 36, 64, 29}));
    for (size_t n = 0; n < output.size(); ++n)
        ASSERT_EQ(output[n], n < 100 ? 1.0f : 0.5f) << "sample " << n;
}

TEST(GenericPluginProcessorTest, EventsPastTheBlockEndAreHandedOverAfterTheAudio) {
    TestProcessor processor;
    processor.queueMidiEvent({500, 0x90, 60, 100});
    runMono(processor, std::vector<float>(100, 1.0f), 100);
    ASSERT_EQ(processor.midiRecords.size(), 1u);
    EXPECT_EQ(processor.midiRecords[0].processedBefore, 100);

    // A stopped block hands its events over too, rather than leave them to a later block.
    processor.setProcessing(false);
    processor.queueMidiEvent({3, 0x90, 62, 100});
    runMono(processor, std::vector<float>(10, 1.0f), 10);
    processor.setProcessing(true);
    runMono(processor, std::vector<float>(10, 1.0f), 10);
    ASSERT_EQ(processor.midiRecords.size(), 2u);
    EXPECT_EQ(processor.midiRecords[1].processedBefore, 100);
}

TEST(GenericPluginProcessorTest, ParameterPointsLandOnTheirSample) {
    TestProcessor processor;
    const int32_t gainIndex = processor.gain.getIndex();
    runMono(processor, std::vector<float>(10, 1.0f), 10);
    // Absolute positions: this block covers 10..209.
    processor.queueParameterAt(10 + 70, gainIndex, 0.25f);
    processor.queueParameterAt(10 + 130, gainIndex, 0.75f);
    processor.queueParameterAt(10 + 200 + 3, gainIndex, 2.0f);
    const std::vector<float> output = runMono(processor, std::vector<float>(200, 1.0f), 200);
    for (int32_t n = 0; n < 200; ++n)
        ASSERT_EQ(output[static_cast<size_t>(n)], n < 70 ? 1.0f : (n < 130 ? 0.25f : 0.75f))
            << "sample " << n;
    EXPECT_EQ(processor.chunkSizes, (std::vector<int32_t>{10, 64, 6, 60, 64, 6}));

    // The third point belongs to the next block.
    const std::vector<float> next = runMono(processor, std::vector<float>(8, 1.0f), 8);
    EXPECT_EQ(next, (std::vector<float>{0.75f, 0.75f, 0.75f, 2.0f, 2.0f, 2.0f, 2.0f, 2.0f}));
}

TEST(GenericPluginProcessorTest, QueuedParametersWaitWhileSuspended) {
    TestProcessor processor;
    processor.suspendParameterUpdates();
    processor.setParameter(processor.gain.getIndex(), 0.5f, true);
    EXPECT_EQ(runMono(processor, std::vector<float>(4, 1.0f), 4), std::vector<float>(4, 1.0f));
    processor.resumeParameterUpdates();
    EXPECT_EQ(runMono(processor, std::vector<float>(4, 1.0f), 4), std::vector<float>(4, 0.5f));
}

TEST(GenericPluginProcessorTest, ResetCommandClearsTheGraph) {
    constexpr int32_t kLatency = 5;
    TestProcessor processor(Config{kLatency});
    runMono(processor, std::vector<float>(32, 1.0f), 32);
    // Without a reset the delay line still holds five ones.
    TestProcessor untouched(Config{kLatency});
    runMono(untouched, std::vector<float>(32, 1.0f), 32);
    EXPECT_EQ(runMono(untouched, std::vector<float>(8, 0.0f), 8)[4], 1.0f);

    processor.setParameter(GenericPluginProcessor::kResetGraphCommand, 0.0f, true);
    EXPECT_EQ(runMono(processor, std::vector<float>(8, 0.0f), 8), std::vector<float>(8, 0.0f));
}

TEST(GenericPluginProcessorTest, ProcessesWithFlushToZeroAndRestoresTheMode) {
    TestProcessor processor;
    const uint32_t before = ScopedFlushToZero::currentMode();
    runMono(processor, std::vector<float>(16, 1.0f), 16);
    const uint32_t during = processor.modeWhileProcessing;
    EXPECT_EQ(during & ScopedFlushToZero::kFlushToZero, ScopedFlushToZero::kFlushToZero);
    EXPECT_EQ(during & ScopedFlushToZero::kDenormalsAreZero, ScopedFlushToZero::kDenormalsAreZero);
    EXPECT_EQ(during & ScopedFlushToZero::kExceptionMasks, ScopedFlushToZero::kExceptionMasks);
    EXPECT_EQ(during & ScopedFlushToZero::kRoundingBits, 0u);
    EXPECT_EQ(ScopedFlushToZero::currentMode(), before);
    EXPECT_EQ(before & ScopedFlushToZero::kFlushToZero, 0u);
}

TEST(GenericPluginProcessorTest, DenormalsFlushInsideTheScope) {
    volatile float tiny = 1e-30f;
    {
        const ScopedFlushToZero scope;
        EXPECT_EQ(tiny * 1e-10f, 0.0f);
    }
    EXPECT_GT(tiny * 1e-10f, 0.0f);
}

TEST(GenericPluginProcessorTest, ZeroTempoCountsAsOneHundredTwenty) {
    TestProcessor processor;
    processor.setTransport(0.0f, 4.0f, true);
    runMono(processor, std::vector<float>(16, 1.0f), 16);
    EXPECT_EQ(processor.tempoSeen, 120.0f);
    EXPECT_EQ(processor.beatSeen, 4.0);
    EXPECT_EQ(processor.transportStarts, 1);
    processor.setTransport(90.0f, 5.0f, true);
    EXPECT_EQ(processor.transportStarts, 1);
}

TEST(GenericPluginProcessorTest, StoppedTransportRunsFreelyAndWrapsAt256Beats) {
    TestProcessor processor;
    processor.setTransport(120.0f, 254.0f, true);
    processor.setTransport(120.0f, 254.0f, false);
    // Two seconds at 120 BPM are four beats: 254 + 4 wraps to 2.
    runMono(processor, std::vector<float>(96000, 0.0f), kMaxChunk);
    processor.setTransport(120.0f, 254.0f, false);
    EXPECT_NEAR(processor.getBeatPosition(), 2.0, 1e-9);
    // A quarter second at a zero tempo (taken as 120 BPM) is half a beat.
    runMono(processor, std::vector<float>(12000, 0.0f), kMaxChunk);
    processor.setTransport(0.0f, 254.0f, false);
    EXPECT_NEAR(processor.getBeatPosition(), 2.5, 1e-9);
    // A moved host position is taken as it is.
    processor.setTransport(120.0f, 17.0f, false);
    EXPECT_EQ(processor.getBeatPosition(), 17.0);
}

TEST(GenericPluginProcessorTest, ProcessingAllocatesNothingAndTakesNoLock) {
    std::mutex probe;
    const int locksBefore = locksTaken;
    probe.lock();
    probe.unlock();
    ASSERT_EQ(locksTaken, locksBefore + 1) << "the lock counter does not see locks";

    TestProcessor processor(Config{100, 2, 300, true});
    processor.setSideChainConnected(true);
    std::vector<float> left(193, 0.5f);
    std::vector<float> right(193, -0.5f);
    std::vector<float> outLeft(193);
    std::vector<float> outRight(193);
    const float* inputs[] = {left.data(), right.data()};
    float* outputs[] = {outLeft.data(), outRight.data()};

    testing_support::AllocationCounter allocations;
    const int locksAtStart = locksTaken;
    for (int32_t block = 0; block < 200; ++block) {
        processor.setTransport(block % 2 == 0 ? 0.0f : 100.0f, 1.0f, block % 3 == 0);
        processor.queueMidiEvent({block % 193, 0xb0, 7, static_cast<uint8_t>(block % 100)});
        processor.setParameter(processor.gain.getIndex(), 0.5f, true);
        processor.queueParameterAt(static_cast<int32_t>(block * 193 + 17), processor.gain.getIndex(), 0.9f);
        if (block % 40 == 10)
            processor.setHostBypass(true);
        if (block % 40 == 30)
            processor.setHostBypass(false);
        uint32_t flags = block > 150 ? GenericPluginProcessor::kInputSilent : 0u;
        processor.process(inputs, inputs, outputs, 2, 1 + block % 193, flags);
    }
    EXPECT_EQ(allocations.count(), 0u);
    EXPECT_EQ(locksTaken, locksAtStart);
    EXPECT_FALSE(processor.chunkSizes.empty());
}

TEST(GenericPluginProcessorTest, SideChainReachesTheGraphOnlyWhenConnectedAndUsed) {
    TestProcessor processor(Config{0, 1, GenericPluginProcessor::kNoTail, true});
    const std::vector<float> main(8, 1.0f);
    const std::vector<float> side(8, 0.25f);
    const auto run = [&] {
        std::vector<float> output(8);
        const float* in = main.data();
        const float* sc = side.data();
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
    FixedLevel overall(-3.0f);
    FixedLevel left(-12.0f);
    FixedLevel right(-6.0f);
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
    runMono(processor, std::vector<float>(64, 0.0f), 64);
    EXPECT_FALSE(environment.isDisplayActive());

    BinaryMemoryWriter writer;
    processor.setTransport(93.5f, 0.0f, false);
    processor.writeRealTimeData(writer);
    const std::vector<uint8_t> bytes = writer.release();
    ASSERT_EQ(bytes.size(), 4u);
    float tempo = 0.0f;
    std::memcpy(&tempo, bytes.data(), 4);
    EXPECT_EQ(tempo, 93.5f);

    runMono(processor, std::vector<float>(47000, 0.0f), kMaxChunk);
    EXPECT_TRUE(environment.isDisplayActive());
    runMono(processor, std::vector<float>(1000, 0.0f), kMaxChunk);
    EXPECT_FALSE(environment.isDisplayActive());
    EXPECT_EQ(processor.getSamplesSinceRealTimeRequest(), 48000);
}

TEST(GenericPluginProcessorTest, ModeParameterCallsTheModeSetterWhenItTurnsOne) {
    TestProcessor processor;
    const int32_t modeIndex = processor.mode.getIndex();
    const auto setAndRun = [&](float value) {
        processor.setParameter(modeIndex, value, true);
        runMono(processor, std::vector<float>(4, 1.0f), 4);
    };
    setAndRun(2.0f);
    EXPECT_EQ(processor.getMode(), 2);
    EXPECT_TRUE(processor.modeCalls.empty());
    // 0.6 rounds to mode 1.
    setAndRun(0.6f);
    EXPECT_EQ(processor.getMode(), 1);
    setAndRun(0.0f);
    EXPECT_EQ(processor.getMode(), 0);
    setAndRun(1.0f);
    EXPECT_EQ(processor.modeCalls, (std::vector<float>{1.0f, 1.0f}));
    // Other parameters leave the mode alone.
    setAndRun(2.0f);
    processor.setParameter(processor.gain.getIndex(), 1.0f, true);
    runMono(processor, std::vector<float>(4, 1.0f), 4);
    EXPECT_EQ(processor.getMode(), 2);
}

// Remembers what it saw of the parameter when the immediate action ran.
class GainWatcher : public GenericPluginProcessor::ImmediateAction {
public:
    explicit GainWatcher(const TestProcessor& processor) : processor(processor) {}
    void applyImmediately(int32_t index, float value) override {
        seen.push_back({index, value, processor.gain.getValue()});
    }
    struct Seen {
        int32_t index;
        float value;
        float gainThen;
    };
    std::vector<Seen> seen;

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
    EXPECT_EQ(watcher.seen[0].index, gainIndex);
    EXPECT_EQ(watcher.seen[0].value, 0.5f);
    EXPECT_EQ(watcher.seen[0].gainThen, 1.0f);
    EXPECT_EQ(runMono(processor, std::vector<float>(4, 1.0f), 4), std::vector<float>(4, 0.5f));

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

std::vector<uint32_t> wordsOf(const std::vector<uint8_t>& bytes, size_t count) {
    std::vector<uint32_t> words(count);
    std::memcpy(words.data(), bytes.data(), count * 4);
    return words;
}

TEST(GenericPluginProcessorTest, RealTimeAnswerReadsTheRequestAndWritesBothSourceListsInOrder) {
    EchoingProcessor processor(Config{});
    FixedRecord first(11);
    FixedRecord second(22);
    FixedRecord third(33);
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
    float tempo = 0.0f;
    std::memcpy(&tempo, bytes.data() + 12, 4);
    EXPECT_EQ(tempo, 120.0f);
    const std::vector<uint32_t> words = wordsOf(bytes, 5);
    EXPECT_EQ(words[0], 11u);
    EXPECT_EQ(words[1], 22u);
    EXPECT_EQ(words[2], 33u);
    EXPECT_EQ(words[4], 0x12345678u);
}

TEST(GenericPluginProcessorTest, OutgoingMidiIsWrittenAfterTheTempoOnlyWhenTheFlagAsksForIt) {
    TestProcessor plain;
    EXPECT_FALSE(plain.sendMidiEvent({0, 0x90, 60, 100}));
    BinaryMemoryWriter plainWriter;
    plain.writeRealTimeData(plainWriter);
    EXPECT_EQ(plainWriter.release().size(), 4u);

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
        for (int32_t i = 0; i < kCount; ++i) {
            while (!ring.push({i, 0, i * 3, static_cast<float>(i)}))
                std::this_thread::yield();
        }
    });
    int32_t expected = 0;
    GenericPluginProcessor::ParameterPoint point;
    while (expected < kCount) {
        if (!ring.pop(point)) {
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(point.position, expected);
        ASSERT_EQ(point.index, expected * 3);
        ++expected;
    }
    producer.join();
    EXPECT_TRUE(ring.isEmpty());
}

} // namespace
