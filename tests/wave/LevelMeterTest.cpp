#include "LevelTestUtil.h"
#include "support/AllocationCounter.h"

#include "wave/LevelMeter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <thread>
#include <utility>

using level_test::ChunkedRun;
using level_test::Floats;
using level_test::referenceDb;
using wave::LevelHandOver;
using wave::LevelMeter;

namespace {

// A stopwatch the test moves by hand.
class ManualTimer : public IntervalTimer {
public:
    explicit ManualTimer(int32_t& now) : now(now) {}
    int32_t elapsedMilliseconds() const override { return now; }
    void restart() override { now = 0; }

private:
    int32_t& now;
};

struct MeterRig {
    MeterRig() : environment(1024, 48000), meter(&environment, std::make_unique<ManualTimer>(nowMs)) {
        environment.setSampleRate(48000.0f);
        meter.setInput(&run.getInput());
    }

    // Linear display clamped to [low, 1].
    void linear(float low = 0.0f) {
        meter.displayInDb.setValue(false);
        meter.setClampRange(low, 1.0f);
    }
    // Runs one block whose every sample is value (as a non-constant block).
    void feed(float value, int32_t n) { run.run(Floats(static_cast<size_t>(n), value)); }
    auto info() { return meter.getLevelInfo(); }

    int32_t nowMs = 0;
    wave::Environment environment;
    LevelMeter meter;
    ChunkedRun run{environment, meter};
};

} // namespace

TEST(LevelHandOver, ConcurrentReadsSeeWholeRecordsAndLoseNoSamples) {
    // Every record ties its value to its sample count; a torn or stale-merged read breaks the tie,
    // and the counts taken must add up to the counts written.
    LevelHandOver handOver;
    constexpr int64_t kMinimumReads = 2000;
    std::atomic<bool> done{false};
    std::atomic<int64_t> reads{0};
    int64_t written = 0, taken = 0;
    std::thread writer([&] {
        // Keeps writing until the reader has really overlapped with it, however the threads are scheduled.
        for (int b = 0; b < 300000 || reads < kMinimumReads; ++b) {
            const int32_t n = 1 + b % 64;
            written += n;
            handOver.publish({static_cast<float>(n) * 0.5f, n}, [](const auto& unread, const auto& newer) {
                const int32_t count = unread.sampleCount + newer.sampleCount;
                return LevelHandOver::Record{static_cast<float>(count) * 0.5f, count};
            });
        }
        done = true;
    });
    bool consistent = true;
    LevelHandOver::Record record;
    const auto takeOne = [&] {
        if (!handOver.take(record))
            return;
        consistent = consistent && record.sampleCount > 0 &&
                     record.value == static_cast<float>(record.sampleCount) * 0.5f;
        taken += record.sampleCount;
        ++reads;
    };
    while (!done)
        takeOne();
    writer.join();
    takeOne();
    EXPECT_TRUE(consistent);
    EXPECT_EQ(taken, written);
    EXPECT_GE(reads, kMinimumReads);
    EXPECT_FALSE(handOver.take(record)); // each record is taken once
}

TEST(LevelMeter, ReportsBlockLevelsByDomain) {
    MeterRig rig;
    const Floats block{0.1f, -0.5f, 0.25f, 0.0f};
    EXPECT_EQ(rig.run.run(block), block); // passes its input on
    EXPECT_NEAR(rig.info().level, referenceDb(0.5), 1e-4);
    rig.meter.levelDomain.setValue(LevelMeter::kPower); // root of the mean square
    rig.run.run(block);
    EXPECT_NEAR(rig.info().level, referenceDb(std::sqrt((0.01 + 0.25 + 0.0625) / 4.0)), 1e-4);
    rig.meter.levelDomain.setValue(LevelMeter::kRaw); // the largest value
    rig.linear(-1.0f);
    rig.run.run(block);
    EXPECT_FLOAT_EQ(rig.info().level, 0.25f);
}

TEST(LevelMeter, MergesBlocksTheDisplayHasNotCollected) {
    MeterRig rig;
    for (const float value : {0.25f, 0.5f, 0.125f})
        rig.feed(value, 256);
    EXPECT_NEAR(rig.info().level, referenceDb(0.5), 1e-4);
    rig.meter.levelDomain.setValue(LevelMeter::kPower);
    rig.feed(1.0f, 300);
    rig.feed(0.0f, 900); // mean square 300 / 1200
    EXPECT_NEAR(rig.info().level, referenceDb(0.5), 1e-4);
    // More than a second's worth uncollected reads as the floor.
    for (int b = 0; b < 47; ++b)
        rig.feed(0.5f, 1024);
    EXPECT_EQ(rig.info().level, -180.0f);
}

TEST(LevelMeter, HoldsThePeakThenFallsFasterWithAge) {
    MeterRig rig;
    rig.linear();
    rig.meter.setHold(100, 0.001f);
    rig.feed(1.0f, 64);
    EXPECT_EQ(rig.info().peak, 1.0f);
    // Ages 64, 128, ...: held while the age is within 100, then down by age * 0.001 per read.
    for (const float peak : {1.0f, 0.872f, 0.68f, 0.424f, 0.104f, 0.0f}) {
        rig.feed(0.0f, 64);
        const auto info = rig.info();
        EXPECT_NEAR(info.peak, peak, 1e-6f);
        EXPECT_EQ(info.level, 0.0f);
        EXPECT_EQ(info.maximumPeak, 1.0f);
    }
    rig.feed(3.0f, 64); // a new peak jumps at once and is clamped
    EXPECT_EQ(rig.info().peak, 1.0f);
    rig.meter.resetMaximumPeak();
    rig.feed(0.5f, 64);
    EXPECT_EQ(rig.info().maximumPeak, 0.5f);
}

TEST(LevelMeter, FallsWithElapsedTimeWhenNoBlocksArrive) {
    MeterRig rig;
    rig.linear();
    rig.meter.setHold(480, 0.0005f);
    rig.feed(0.8f, 64);
    // Ages 240 and 480 samples are held; at 528 it falls by 528 * 0.0005.
    const std::pair<int32_t, float> reads[] = {{0, 0.8f}, {5, 0.8f}, {5, 0.8f}, {1, 0.8f - 0.264f}};
    for (const auto& [ms, peak] : reads) {
        rig.nowMs += ms;
        EXPECT_NEAR(rig.info().peak, peak, 1e-6f) << rig.nowMs;
    }
}

TEST(LevelMeter, ElapsedTimeSurvivesTheMillisecondCounterWrapping) {
    MeterRig rig; // the counter wraps after 24.8 days
    rig.linear();
    rig.meter.setHold(480, 0.0005f);
    rig.nowMs = std::numeric_limits<int32_t>::max() - 4;
    rig.info();
    rig.feed(0.8f, 64);
    EXPECT_EQ(rig.info().peak, 0.8f);
    rig.nowMs = std::numeric_limits<int32_t>::min() + 6; // 11 ms later: falls by 528 * 0.0005
    EXPECT_NEAR(rig.info().peak, 0.8f - 0.264f, 1e-6f);
}

TEST(LevelMeter, GainReductionMetersCountLowerAsMore) {
    MeterRig rig;
    rig.meter.levelDomain.setValue(LevelMeter::kRaw);
    rig.linear();
    rig.meter.setDirection(1);
    rig.meter.setHold(0, 0.01f);
    EXPECT_EQ(rig.info().peak, 1.0f); // at rest: no reduction
    rig.run.run(Floats{1.0f, 0.5f, 0.75f});
    EXPECT_EQ(rig.info().peak, 0.5f);
    rig.feed(1.0f, 10); // recovers upward by age * fall, never past the new value
    EXPECT_NEAR(rig.info().peak, 0.6f, 1e-6f);
    rig.feed(1.0f, 100);
    EXPECT_EQ(rig.info().peak, 1.0f);
}

TEST(LevelMeter, RecoversFromNaNWithoutAllocating) {
    MeterRig rig;
    Floats out;
    out.reserve(4096);
    const Floats bad(256, std::numeric_limits<float>::quiet_NaN()), good(256, 0.25f);
    testing_support::AllocationCounter counter;
    rig.run.runBlock(bad.data(), 256, out);
    rig.run.runBlock(good.data(), 256, out);
    const auto info = rig.info();
    EXPECT_EQ(counter.count(), 0u);
    EXPECT_NEAR(info.level, referenceDb(0.25), 1e-4);
    EXPECT_FALSE(std::isnan(info.peak));
}

TEST(LevelMeter, DisplayThreadReadsWhileAudioRuns) {
    MeterRig rig;
    rig.linear();
    std::atomic<bool> done{false};
    std::atomic<int> fedLevelsSeen{0};
    std::thread audio([&] {
        const Floats quiet(128, 0.25f), loud(128, 0.5f);
        Floats out;
        out.reserve(128);
        for (int b = 0; b < 20000 || fedLevelsSeen < 100; ++b) {
            out.clear();
            rig.run.runBlock((b % 3 == 0 ? loud : quiet).data(), 128, out);
        }
        done = true;
    });
    bool onlyFedLevels = true;
    while (!done) {
        const float level = rig.info().level; // 0 is the floor: no block since the last read
        onlyFedLevels = onlyFedLevels && (level == 0.0f || level == 0.25f || level == 0.5f);
        fedLevelsSeen += level > 0.0f ? 1 : 0;
    }
    audio.join();
    EXPECT_TRUE(onlyFedLevels);
    EXPECT_GT(fedLevelsSeen, 0);
}
