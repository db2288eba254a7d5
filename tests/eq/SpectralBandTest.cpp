#include "ProcessorTestUtil.h"

#include "plugin/eq/ParameterMappings.h"
#include "support/AllocationCounter.h"
#include "support/LockCounter.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <thread>

namespace {

using namespace processor_test;

constexpr int32_t kStereo = 1;
constexpr float kRate = 48000.0f;

void setMode(Harness& h, ProcessingMode mode, ProcessingResolution resolution) {
    h.set("Processing Mode", static_cast<float>(mode));
    h.set("Processing Resolution", static_cast<float>(resolution));
}

// A wide, flat spectral band around 1 kHz that may cut 12 dB where the input is above -40 dB.
void addSpectralBand(Harness& h, int32_t band) {
    h.addBand(band, FilterShape::Bell, 1000.0, 0.0f, 0.5f);
    h.setBand(band, " Dynamic Range", -12.0f);
    h.setBand(band, " Dynamics Auto", 0.0f);
    h.setBand(band, " Threshold", static_cast<float>(storedFromThresholdDb(-40.0)));
    h.setBand(band, " Spectral Enabled", 1.0f);
}

// The level of a tone in a stretch of signal, in dB relative to amplitude 1.
double toneDb(const Signal& signal, size_t from, size_t to, double hz) {
    const double w = 2.0 * std::numbers::pi * hz / kRate;
    std::complex<double> sum = 0.0;
    for (size_t n = from; n < to; ++n)
        sum += static_cast<double>(signal[n]) * std::polar(1.0, -w * static_cast<double>(n));
    return 20.0 * std::log10(2.0 * std::abs(sum) / static_cast<double>(to - from));
}

struct ToneChanges {
    double loudDb = 0.0;
    double quietDb = 0.0;
    double channelDifferenceDb = 0.0;
};

// A loud 750 Hz tone and a quiet 1500 Hz tone through band 1 once it has settled on them.
ToneChanges changesOfTwoTones(Harness& h) {
    constexpr size_t kLength = 48000;
    Signal input = sine(kLength, 750.0, kRate, 0.5);
    const Signal quiet = sine(kLength, 1500.0, kRate, 0.003);
    for (size_t i = 0; i < kLength; ++i)
        input[i] += quiet[i];
    Signals out;
    // The worker analyses in the background: feed the tones for a while.
    for (int round = 0; round < 12; ++round) {
        out = h.process({input, input});
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const size_t from = kLength / 2;
    ToneChanges changes;
    changes.loudDb = toneDb(out[0], from, kLength, 750.0) - toneDb(input, from, kLength, 750.0);
    changes.quietDb = toneDb(out[0], from, kLength, 1500.0) - toneDb(input, from, kLength, 1500.0);
    changes.channelDifferenceDb = toneDb(out[1], from, kLength, 750.0) - toneDb(out[0], from, kLength, 750.0);
    return changes;
}

TEST(SpectralBandTest, OnlyTheLoudToneInTheBandIsReduced) {
    for (const ProcessingMode mode : {ProcessingMode::ZeroLatency, ProcessingMode::LinearPhase}) {
        SCOPED_TRACE(static_cast<int>(mode));
        Harness h(kStereo, kRate, 256);
        setMode(h, mode, ProcessingResolution::Low);
        addSpectralBand(h, 1);
        ASSERT_TRUE(h.waitUntilSettled());
        const ToneChanges changes = changesOfTwoTones(h);
        EXPECT_LT(changes.loudDb, -6.0) << "the loud tone is cut towards the band's range";
        EXPECT_NEAR(changes.quietDb, 0.0, 0.5) << "the quiet tone below the threshold is left alone";
        EXPECT_NEAR(changes.channelDifferenceDb, 0.0, 0.01);

        const RealTimeReadings readings = readRealTimeData(h.processor(), 4096 / 2 + 1);
        EXPECT_TRUE(readings.complete);
        ASSERT_EQ(readings.bands.size(), 1u);
        EXPECT_EQ(readings.bands[0].index, 0);
        EXPECT_GT(readings.bands[0].subBands, 0u);
        EXPECT_GT(readings.bands[0].largestReduction, 0.5f);
    }

    // The same band without spectral processing cuts the whole band, the quiet tone with the loud.
    Harness h(kStereo, kRate, 256);
    addSpectralBand(h, 1);
    h.setBand(1, " Spectral Enabled", 0.0f);
    ASSERT_TRUE(h.waitUntilSettled());
    const ToneChanges changes = changesOfTwoTones(h);
    EXPECT_LT(changes.loudDb, -6.0);
    EXPECT_LT(changes.quietDb, -6.0);
}

TEST(SpectralBandTest, ZeroLatencyTakesTheLinearKernelsLatencyOnlyWhileASpectralBandActs) {
    // Half the kernel plus the convolver's first partition; the two finest resolutions have no
    // spectral processing.
    const std::array<std::pair<ProcessingResolution, int32_t>, 5> expected{{
        {ProcessingResolution::Low, 2048 + 1024},
        {ProcessingResolution::Medium, 4096 + 1024},
        {ProcessingResolution::High, 8192 + 1024},
        {ProcessingResolution::VeryHigh, 0},
        {ProcessingResolution::Maximum, 0},
    }};
    Harness h(kStereo, kRate, 256);
    h.addBand(2, FilterShape::HighCut, 15000.0, 0.0f);
    for (const auto& [resolution, latency] : expected) {
        SCOPED_TRACE(static_cast<int>(resolution));
        setMode(h, ProcessingMode::ZeroLatency, resolution);
        addSpectralBand(h, 1);
        ASSERT_TRUE(h.waitUntilSettled());
        EXPECT_EQ(h.processor().getLatency(), latency);
        if (latency == 0) {
            // Where there is no spectral processing the band does not fall back to plain
            // dynamics: it keeps its static response.
            const ToneChanges changes = changesOfTwoTones(h);
            EXPECT_NEAR(changes.loudDb, 0.0, 0.05);
            EXPECT_NEAR(changes.quietDb, 0.0, 0.05);
        }
        h.setBand(1, " Spectral Enabled", 0.0f);
        ASSERT_TRUE(h.waitUntilSettled());
        EXPECT_EQ(h.processor().getLatency(), 0) << "a plain dynamic band runs as a filter";
    }
    h.set("Processing Resolution", static_cast<float>(ProcessingResolution::Medium));
    addSpectralBand(h, 1);
    h.setBand(1, " Dynamics Enabled", 0.0f);
    ASSERT_TRUE(h.waitUntilSettled());
    EXPECT_EQ(h.processor().getLatency(), 5120) << "a spectral band keeps its place while dynamics are off";
}

TEST(SpectralBandTest, ProcessingNeitherAllocatesNorLocksWhileBandsAreAnalysed) {
    Harness h(kStereo, kRate, 64);
    addSpectralBand(h, 1);
    addSpectralBand(h, 2);
    h.setBand(2, " Frequency", static_cast<float>(std::log2(5000.0)));
    h.setBand(2, " External Side Chain", 1.0f);
    setMode(h, ProcessingMode::ZeroLatency, ProcessingResolution::Low);
    ASSERT_TRUE(h.waitUntilSettled());
    std::atomic<bool> done{false};
    std::thread mover([&] {
        for (int i = 0; !done.load(); ++i) {
            h.setBand(1, " Spectral Density", static_cast<float>(i % 100));
            h.setBand(2, " Threshold", static_cast<float>(storedFromThresholdDb(-20.0 - i % 30)));
            if (i % 50 == 0)
                setMode(h, static_cast<ProcessingMode>((i / 50) % 3), ProcessingResolution::Low);
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
    });
    Signal noise = whiteNoise(64, 9);
    noise[7] = std::numeric_limits<float>::quiet_NaN();
    const Signal side = whiteNoise(64, 10);
    std::vector<const float*> in{noise.data(), noise.data()};
    std::vector<const float*> sideChain{side.data(), side.data()};
    Signals out(2, Signal(64));
    std::vector<float*> outPointers{out[0].data(), out[1].data()};
    size_t allocations = 0;
    int locks = 0;
    for (int block = 0; block < 6000; ++block) {
        testing_support::AllocationCounter counter;
        testing_support::LockCounter lockCounter;
        uint32_t flags = 0;
        h.processor().process(in.data(), sideChain.data(), outPointers.data(), 2, 64, flags);
        allocations += counter.count();
        locks += lockCounter.count();
    }
    done = true;
    mover.join();
    EXPECT_EQ(allocations, 0u);
    EXPECT_EQ(locks, 0);

    // Once the input is clean again, so is the output: the analysis ignored the bad sample.
    const Signals clean = h.process({whiteNoise(48000, 3), whiteNoise(48000, 4)});
    bool finite = true;
    for (const Signal& channel : clean)
        for (size_t i = 24000; i < channel.size(); ++i)
            finite = finite && std::isfinite(channel[i]);
    EXPECT_TRUE(finite);
}

} // namespace
