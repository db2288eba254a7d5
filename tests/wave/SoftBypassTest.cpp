#include "FrameTestUtil.h"

#include "wave/BypassProcessor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using frame_test::kFadeSamples;
using frame_test::runMono;
using frame_test::TestProcessor;
using Config = frame_test::TestProcessor::Config;

namespace {

constexpr float kGain = 0.5f;

// A signal whose every sample is told apart from its neighbours.
float signalAt(int64_t n) {
    return n < 0 ? 0.0f : 1.0f + 0.01f * static_cast<float>(n % 97);
}

std::vector<float> signal(size_t count) {
    std::vector<float> samples(count);
    for (size_t n = 0; n < count; ++n)
        samples[n] = signalAt(static_cast<int64_t>(n));
    return samples;
}

// With processed = kGain · dry, the crossfade out = processed + (dry - processed) · mix is
// dry · (kGain + (1 - kGain) · mix).
float mixed(float dry, double mix) {
    return static_cast<float>(dry * (kGain + (1.0 - kGain) * mix));
}

TEST(SoftBypassTest, WithoutLatencyTheBypassParameterFadesOverFiftyMilliseconds) {
    TestProcessor processor;
    processor.gain.setValue(kGain);
    const int32_t bypassIndex = processor.bypass.getIndex();
    constexpr int32_t kBlock = 100;
    constexpr int32_t kLength = 6000;
    const std::vector<float> ones(kLength, 1.0f);
    runMono(processor, ones, kBlock);

    processor.setParameter(bypassIndex, 1.0f, true);
    const std::vector<float> fadeOut = runMono(processor, ones, kBlock);
    for (int32_t k = 0; k < kLength; ++k) {
        const double mix = std::min(1.0, k / static_cast<double>(kFadeSamples));
        ASSERT_NEAR(fadeOut[static_cast<size_t>(k)], mixed(1.0f, mix), 1e-5) << "sample " << k;
    }
    // Fully bypassed: the product is not run at all.
    const int64_t processed = processor.processedSamples;
    runMono(processor, ones, kBlock);
    EXPECT_EQ(processor.processedSamples, processed);
    EXPECT_EQ(processed, kLength + kFadeSamples);

    processor.setParameter(bypassIndex, 0.0f, true);
    const std::vector<float> fadeIn = runMono(processor, ones, kBlock);
    for (int32_t k = 0; k < kLength; ++k) {
        const double mix = std::max(0.0, 1.0 - k / static_cast<double>(kFadeSamples));
        ASSERT_NEAR(fadeIn[static_cast<size_t>(k)], mixed(1.0f, mix), 1e-5) << "sample " << k;
    }
}

TEST(SoftBypassTest, WithLatencyTheDryPathIsDelayedAndTheFadeInWaits) {
    constexpr int32_t kLatency = 100;
    constexpr int32_t kBlock = 48;
    constexpr int64_t kBypassAt = 63 * kBlock;
    constexpr int64_t kReturnAt = 126 * kBlock;
    constexpr int64_t kLength = 200 * kBlock;
    TestProcessor processor(Config{kLatency});
    processor.gain.setValue(kGain);

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
        const float* in = input.data() + start;
        float* out = output.data() + start;
        uint32_t flags = 0;
        processor.process(&in, nullptr, &out, 1, kBlock, flags);
    }
    // The product ran up to the end of the fade-out, then not until bypass was left.
    EXPECT_EQ(processedAtReturn, kBypassAt + kFadeSamples);

    for (int64_t n = 0; n < kLength; ++n) {
        const float dry = signalAt(n - kLatency);
        const auto at = static_cast<size_t>(n);
        if (n < kBypassAt) {
            ASSERT_NEAR(output[at], kGain * dry, 1e-6) << "sample " << n;
        } else if (n < kReturnAt) {
            const double mix = std::min(1.0, (n - kBypassAt) / static_cast<double>(kFadeSamples));
            ASSERT_NEAR(output[at], mixed(dry, mix), 2e-5) << "sample " << n;
            if (mix == 1.0) {
                ASSERT_EQ(output[at], dry) << "sample " << n;
            }
        } else if (n < kReturnAt + kLatency) {
            ASSERT_EQ(output[at], dry) << "sample " << n;
        } else {
            const double mix =
                std::max(0.0, 1.0 - (n - kReturnAt - kLatency) / static_cast<double>(kFadeSamples));
            ASSERT_NEAR(output[at], mixed(dry, mix), 2e-5) << "sample " << n;
        }
    }
}

TEST(SoftBypassTest, ReversingAFadeContinuesFromWhereTheOutputIs) {
    TestProcessor processor;
    processor.gain.setValue(kGain);
    const std::vector<float> ones(kFadeSamples / 2, 1.0f);
    runMono(processor, ones, 100);
    processor.setHostBypass(true);
    const float halfway = runMono(processor, ones, 100).back();
    processor.setHostBypass(false);
    const float next = runMono(processor, std::vector<float>(1, 1.0f), 1).front();
    EXPECT_NEAR(halfway, mixed(1.0f, 0.5), 1e-3);
    EXPECT_NEAR(next, halfway, 1e-3);
}

TEST(SoftBypassTest, StartingProcessingKeepsAFadeButDropsAWaitForTheProcessedSignal) {
    constexpr int32_t kLatency = 10;
    const std::vector<float> input = signal(400);
    {
        // A bypass asked for before the first block fades like any other.
        TestProcessor processor(Config{kLatency});
        processor.gain.setValue(kGain);
        processor.setHostBypass(true);
        const std::vector<float> output = runMono(processor, input, 64);
        for (size_t n = kLatency; n < output.size(); ++n) {
            const double mix = static_cast<double>(n) / kFadeSamples;
            ASSERT_NEAR(output[n], mixed(input[n - kLatency], mix), 2e-5) << "sample " << n;
        }
    }
    TestProcessor processor(Config{kLatency});
    processor.gain.setValue(kGain);
    processor.setHostBypass(true);
    runMono(processor, signal(kFadeSamples + 64), 64);
    processor.setProcessing(false);
    const std::vector<float> stopped = runMono(processor, input, 64);
    EXPECT_EQ(stopped, std::vector<float>(400, 0.0f));
    uint32_t flags = 0;
    const float* in = input.data();
    float out = 1.0f;
    float* outPointer = &out;
    processor.process(&in, nullptr, &outPointer, 1, 1, flags);
    EXPECT_EQ(flags, GenericPluginProcessor::kOutputSilent);

    // Leaving bypass while stopped would wait kLatency samples; the restart lands the mix at once,
    // so the output is the processed signal of a graph that restarted clean.
    processor.setHostBypass(false);
    processor.setProcessing(true);
    const std::vector<float> output = runMono(processor, input, 64);
    for (size_t n = 0; n < output.size(); ++n)
        ASSERT_EQ(output[n], n < kLatency ? 0.0f : kGain * input[n - kLatency]) << "sample " << n;
}

TEST(SoftBypassTest, DryDelaysFollowALatencyChange) {
    TestProcessor processor(Config{10});
    processor.setHostBypass(true);
    const std::vector<float> input = signal(kFadeSamples + 200);
    runMono(processor, input, 64);
    processor.changeLatency(20);
    const std::vector<float> later = signal(200);
    const std::vector<float> output = runMono(processor, later, 64);
    // The rebuilt line starts empty and then delays by the new latency.
    for (size_t n = 0; n < output.size(); ++n)
        ASSERT_EQ(output[n], n < 20 ? 0.0f : later[n - 20]) << "sample " << n;
}

TEST(SoftBypassTest, TailKeepsProcessingAfterTheInputFallsSilent) {
    // 100 samples of tail (plus the latency) take four or five blocks of 32.
    struct Case {
        int32_t latency;
        int32_t blocksOfTail;
    };
    for (const Case c : {Case{0, 4}, Case{30, 5}}) {
        TestProcessor processor(Config{c.latency, 1, 100});
        const std::vector<float> ones(32, 1.0f);
        const std::vector<float> zeros(32, 0.0f);
        for (int round = 0; round < 2; ++round) {
            std::vector<float> out(32);
            const float* in = ones.data();
            float* outPointer = out.data();
            uint32_t flags = 0;
            processor.process(&in, nullptr, &outPointer, 1, 32, flags);
            EXPECT_EQ(flags & GenericPluginProcessor::kOutputSilent, 0u);

            in = zeros.data();
            for (int32_t block = 1; block <= c.blocksOfTail + 2; ++block) {
                const int64_t before = processor.processedSamples;
                flags = GenericPluginProcessor::kInputSilent;
                processor.process(&in, nullptr, &outPointer, 1, 32, flags);
                const bool tailLeft = block <= c.blocksOfTail;
                EXPECT_EQ((flags & GenericPluginProcessor::kOutputSilent) == 0, tailLeft)
                    << "latency " << c.latency << " silent block " << block;
                EXPECT_EQ(processor.processedSamples - before, tailLeft ? 32 : 0) << "silent block " << block;
                if (!tailLeft) {
                    EXPECT_EQ(out, zeros);
                }
            }
        }
    }
}

// Runs silent blocks of 32; per block, whether the product ran and whether the output was called silent.
std::vector<std::pair<bool, bool>> runSilentBlocks(TestProcessor& processor, int32_t count) {
    const std::vector<float> zeros(32, 0.0f);
    std::vector<float> out(32);
    std::vector<std::pair<bool, bool>> result;
    for (int32_t block = 0; block < count; ++block) {
        const float* in = zeros.data();
        float* outPointer = out.data();
        const int64_t before = processor.processedSamples;
        uint32_t flags = GenericPluginProcessor::kInputSilent;
        processor.process(&in, nullptr, &outPointer, 1, 32, flags);
        result.emplace_back(processor.processedSamples > before,
                            (flags & GenericPluginProcessor::kOutputSilent) != 0);
    }
    return result;
}

TEST(SoftBypassTest, WithoutATailAnswerSilentInputIsNeverSkipped) {
    for (const int32_t latency : {0, 40}) {
        TestProcessor processor(Config{latency});
        runMono(processor, std::vector<float>(64, 1.0f), 64);
        for (const auto& [ran, silent] : runSilentBlocks(processor, 8)) {
            EXPECT_TRUE(ran) << "latency " << latency;
            EXPECT_FALSE(silent) << "latency " << latency;
        }
    }
}

TEST(SoftBypassTest, AnInfiniteTailWaitsOutTheLatencyBeforeTrustingSilence) {
    // A muted product is silent all along; with latency 100 its output is trusted to be silent
    // only after the count of 100 samples (four blocks of 32), in the fifth block.
    TestProcessor processor(Config{100, 1, GenericPluginProcessor::kInfiniteTail});
    processor.gain.setValue(0.0f);
    runMono(processor, std::vector<float>(64, 1.0f), 64);
    const std::vector<std::pair<bool, bool>> expected{{true, false}, {true, false}, {true, false},
                                                      {true, false}, {true, true},  {false, true}};
    EXPECT_EQ(runSilentBlocks(processor, 6), expected);
}

TEST(SoftBypassTest, BypassedSilenceIsReportedOnceTheDelayedDrySignalIsOut) {
    constexpr int32_t kLatency = 100;
    TestProcessor processor(Config{kLatency});
    processor.setHostBypass(true);
    runMono(processor, std::vector<float>(kFadeSamples + 64, 1.0f), 64);
    const std::vector<float> zeros(32, 0.0f);
    std::vector<float> out(32);
    const float* in = zeros.data();
    float* outPointer = out.data();
    // The first four silent blocks still carry the last 100 dry samples.
    for (int32_t block = 1; block <= 6; ++block) {
        uint32_t flags = GenericPluginProcessor::kInputSilent;
        processor.process(&in, nullptr, &outPointer, 1, 32, flags);
        EXPECT_EQ((flags & GenericPluginProcessor::kOutputSilent) != 0, block > 4)
            << "silent block " << block;
    }
}

TEST(SoftBypassTest, NonFiniteInputDoesNotOutliveItsPassage) {
    constexpr int32_t kLatency = 7;
    for (const bool fading : {false, true}) {
        TestProcessor processor(Config{kLatency});
        runMono(processor, signal(64), 64);
        if (fading)
            processor.setHostBypass(true);
        // The bad samples end the block, so they sit in the dry and processed delay lines when the
        // next block starts.
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
            ASSERT_TRUE(std::isfinite(output[n])) << "sample " << n << (fading ? " while fading" : "");
    }
}

} // namespace
