#include "FrameTestUtil.h"

#include "wave/BypassProcessor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

using frame_test::kFadeSamples;
using frame_test::processBlock;
using frame_test::runConstant;
using frame_test::runMono;
using frame_test::signal;
using frame_test::signalAt;
using frame_test::TestProcessor;
using Config = frame_test::TestProcessor::Config;

namespace {

constexpr float kGain = 0.5f;

// The crossfade of dry with processed = kGain · dry, at a dry share of mix.
float mixed(float dry, double mix) {
    return static_cast<float>(dry * (kGain + (1.0 - kGain) * mix));
}

TEST(SoftBypassTest, WithoutLatencyTheBypassParameterFadesOverFiftyMilliseconds) {
    TestProcessor processor(Config{.gain = kGain});
    const int32_t bypassIndex = processor.bypass.getIndex();
    constexpr int32_t kBlock = 100;
    constexpr int32_t kLength = 6000;
    runConstant(processor, kLength, 1.0f, kBlock);
    for (const bool bypass : {true, false}) {
        processor.setParameter(bypassIndex, bypass ? 1.0f : 0.0f, true);
        const std::vector<float> fade = runConstant(processor, kLength, 1.0f, kBlock);
        for (int32_t k = 0; k < kLength; ++k) {
            const double ramp = std::min(1.0, k / static_cast<double>(kFadeSamples));
            ASSERT_NEAR(fade[static_cast<size_t>(k)], mixed(1.0f, bypass ? ramp : 1.0 - ramp), 1e-5) << k;
        }
        if (bypass) {
            // Fully bypassed: the product is not run at all.
            EXPECT_EQ(processor.processedSamples, kLength + kFadeSamples);
            runConstant(processor, kLength, 1.0f, kBlock);
            EXPECT_EQ(processor.processedSamples, kLength + kFadeSamples);
        }
    }
}

TEST(SoftBypassTest, WithLatencyTheDryPathIsDelayedAndTheFadeInWaits) {
    constexpr int32_t kLatency = 100;
    constexpr int32_t kBlock = 48;
    constexpr int64_t kBypassAt = 63 * kBlock;
    constexpr int64_t kReturnAt = 126 * kBlock;
    constexpr int64_t kLength = 200 * kBlock;
    TestProcessor processor(Config{.latency = kLatency, .gain = kGain});

    const std::vector<float> input = signal(static_cast<size_t>(kLength));
    std::vector<float> output(input.size());
    int64_t processedAtReturn = 0;
    for (int64_t start = 0; start < kLength; start += kBlock) {
        if (start == kBypassAt)
            processor.setHostBypass(true);
        if (start == kReturnAt) {
            processedAtReturn = processor.processedSamples;
            processor.setHostBypass(false);
        }
        processBlock(processor, input.data() + start, output.data() + start, kBlock);
    }
    // The product ran up to the end of the fade-out, then not until bypass was left.
    EXPECT_EQ(processedAtReturn, kBypassAt + kFadeSamples);

    for (int64_t n = 0; n < kLength; ++n) {
        const float dry = signalAt(n - kLatency);
        const auto at = static_cast<size_t>(n);
        if (n < kBypassAt) {
            ASSERT_NEAR(output[at], kGain * dry, 1e-6) << n;
        } else if (n < kReturnAt) {
            const double mix = std::min(1.0, (n - kBypassAt) / static_cast<double>(kFadeSamples));
            ASSERT_NEAR(output[at], mixed(dry, mix), 2e-5) << n;
            if (mix == 1.0) {
                ASSERT_EQ(output[at], dry) << n;
            }
        } else if (n < kReturnAt + kLatency) {
            ASSERT_EQ(output[at], dry) << n;
        } else {
            const double mix =
                std::max(0.0, 1.0 - (n - kReturnAt - kLatency) / static_cast<double>(kFadeSamples));
            ASSERT_NEAR(output[at], mixed(dry, mix), 2e-5) << n;
        }
    }
}

TEST(SoftBypassTest, ReversingAFadeContinuesFromWhereTheOutputIs) {
    TestProcessor processor(Config{.gain = kGain});
    runConstant(processor, kFadeSamples / 2, 1.0f, 100);
    processor.setHostBypass(true);
    const float halfway = runConstant(processor, kFadeSamples / 2, 1.0f, 100).back();
    processor.setHostBypass(false);
    const float next = runConstant(processor, 1, 1.0f).front();
    EXPECT_NEAR(next, halfway, 1e-3);
}

TEST(SoftBypassTest, StartingProcessingKeepsAFadeButDropsAWaitForTheProcessedSignal) {
    constexpr int32_t kLatency = 10;
    const std::vector<float> input = signal(400);
    {
        // A bypass asked for before the first block fades like any other.
        TestProcessor processor(Config{.latency = kLatency, .gain = kGain});
        processor.setHostBypass(true);
        const std::vector<float> output = runMono(processor, input, 64);
        for (size_t n = kLatency; n < output.size(); ++n) {
            const double mix = static_cast<double>(n) / kFadeSamples;
            ASSERT_NEAR(output[n], mixed(input[n - kLatency], mix), 2e-5) << n;
        }
    }
    TestProcessor processor(Config{.latency = kLatency, .gain = kGain});
    processor.setHostBypass(true);
    runMono(processor, signal(kFadeSamples + 64), 64);
    processor.setProcessing(false);
    const std::vector<float> stopped = runMono(processor, input, 64);
    EXPECT_EQ(stopped, std::vector<float>(400, 0.0f));
    float out = 1.0f;
    EXPECT_EQ(processBlock(processor, input.data(), &out, 1), GenericPluginProcessor::kOutputSilent);

    // Leaving bypass while stopped would wait kLatency samples; the restart lands the mix at once,
    // so the output is the processed signal of a graph that restarted clean.
    processor.setHostBypass(false);
    processor.setProcessing(true);
    const std::vector<float> output = runMono(processor, input, 64);
    for (size_t n = 0; n < output.size(); ++n)
        ASSERT_EQ(output[n], n < kLatency ? 0.0f : kGain * input[n - kLatency]) << n;
}

TEST(SoftBypassTest, DryDelaysFollowALatencyChange) {
    TestProcessor processor(Config{10});
    processor.setHostBypass(true);
    runMono(processor, signal(kFadeSamples + 200), 64);
    processor.setLatency(20);
    const std::vector<float> later = signal(200);
    const std::vector<float> output = runMono(processor, later, 64);
    // The rebuilt line starts empty and then delays by the new latency.
    for (size_t n = 0; n < output.size(); ++n)
        ASSERT_EQ(output[n], n < 20 ? 0.0f : later[n - 20]) << n;
}

// Runs silent blocks of 32; per block, whether the product ran and whether the output was called silent.
// Output called silent must be zero.
struct SilentBlock {
    bool ran, silent;
    bool operator==(const SilentBlock&) const = default;
};

std::vector<SilentBlock> runSilentBlocks(TestProcessor& processor, int32_t count) {
    const std::vector<float> zeros(32, 0.0f);
    std::vector<float> out(32);
    std::vector<SilentBlock> result;
    for (int32_t block = 0; block < count; ++block) {
        const int64_t before = processor.processedSamples;
        const uint32_t flags =
            processBlock(processor, zeros.data(), out.data(), 32, GenericPluginProcessor::kInputSilent);
        const bool silent = (flags & GenericPluginProcessor::kOutputSilent) != 0;
        EXPECT_TRUE(!silent || out == zeros) << block;
        result.push_back({processor.processedSamples > before, silent});
    }
    return result;
}

TEST(SoftBypassTest, TailKeepsProcessingAfterTheInputFallsSilent) {
    // 100 samples of tail (plus the latency) take four or five blocks of 32.
    for (const auto& [latency, blocksOfTail] : {std::pair{0, 4}, std::pair{30, 5}}) {
        TestProcessor processor(Config{latency, 1, 100});
        for (int round = 0; round < 2; ++round) {
            std::vector<float> ones(32, 1.0f), out(32);
            EXPECT_EQ(processBlock(processor, ones.data(), out.data(), 32), 0u);
            std::vector<SilentBlock> expected(static_cast<size_t>(blocksOfTail), {true, false});
            expected.resize(expected.size() + 2, {false, true});
            EXPECT_EQ(runSilentBlocks(processor, blocksOfTail + 2), expected) << latency;
        }
    }
}

TEST(SoftBypassTest, ALongTailPlusTheLatencyDoesNotOverflow) {
    TestProcessor processor(Config{.latency = 10, .tail = std::numeric_limits<int32_t>::max()});
    runConstant(processor, 64, 1.0f);
    EXPECT_EQ(runSilentBlocks(processor, 2), std::vector<SilentBlock>(2, {true, false}));
}

TEST(SoftBypassTest, WithoutATailAnswerSilentInputIsNeverSkipped) {
    for (const int32_t latency : {0, 40}) {
        TestProcessor processor(Config{latency});
        runConstant(processor, 64, 1.0f);
        EXPECT_EQ(runSilentBlocks(processor, 8), std::vector<SilentBlock>(8, {true, false})) << latency;
    }
}

TEST(SoftBypassTest, AnInfiniteTailWaitsOutTheLatencyBeforeTrustingSilence) {
    // A muted product is silent all along; with latency 100 its output is trusted to be silent
    // only after the count of 100 samples (four blocks of 32), in the fifth block.
    TestProcessor processor(
        Config{.latency = 100, .tail = GenericPluginProcessor::kInfiniteTail, .gain = 0.0f});
    runConstant(processor, 64, 1.0f);
    std::vector<SilentBlock> expected(4, {true, false});
    expected.insert(expected.end(), {{true, true}, {false, true}});
    EXPECT_EQ(runSilentBlocks(processor, 6), expected);
}

TEST(SoftBypassTest, BypassedSilenceIsReportedOnceTheDelayedDrySignalIsOut) {
    constexpr int32_t kLatency = 100;
    TestProcessor processor(Config{kLatency});
    processor.setHostBypass(true);
    runConstant(processor, kFadeSamples + 64, 1.0f, 64);
    // The first four silent blocks still carry the last 100 dry samples; the product stays off.
    std::vector<SilentBlock> expected(4, {false, false});
    expected.resize(6, {false, true});
    EXPECT_EQ(runSilentBlocks(processor, 6), expected);
}

TEST(SoftBypassTest, NonFiniteInputDoesNotOutliveItsPassage) {
    constexpr int32_t kLatency = 7;
    for (const bool fading : {false, true}) {
        TestProcessor processor(Config{kLatency});
        runMono(processor, signal(64), 64);
        if (fading)
            processor.setHostBypass(true);
        // The bad samples end the block, so they sit in both delay lines when the next block starts.
        std::vector<float> input = signal(64);
        input[59] = std::nanf("");
        input[61] = INFINITY;
        input[63] = -INFINITY;
        runMono(processor, input, 64);
        const std::vector<float> output = runMono(processor, signal(640), 64);
        // Sample 59 of the last block comes out at 59 + 7 - 64 = 2, sample 63 at 6.
        EXPECT_FALSE(std::isfinite(output[2]));
        EXPECT_FALSE(std::isfinite(output[6]));
        for (size_t n = kLatency; n < output.size(); ++n)
            ASSERT_TRUE(std::isfinite(output[n])) << n << fading;
    }
}

} // namespace
