#include "ProcessorTestUtil.h"

#include "eq/AnalogFilterPrototype.h"
#include "eq/EQBandDesign.h"
#include "eq/EngineWorker.h"
#include "plugin/eq/ParameterMappings.h"
#include "support/AllocationCounter.h"
#include "support/LockCounter.h"
#include "wave/ChannelLayouts.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <thread>

namespace {

using namespace processor_test;

constexpr float kRate = 48000.0f;
constexpr int32_t kStereo = 1;
constexpr int32_t kLayout51 = 6;
constexpr int32_t kLayout714 = 22;

double analogDb(FilterShape shape, double f0, float gain, float q, double hz, float slope = 1.0f) {
    AnalogFilterPrototype prototype;
    designBand(prototype, {shape, slope, gain, q, f0});
    return 10.0 * std::log10(prototype.squaredMagnitude(hz));
}

double gainDb(const Signal& in, const Signal& out, size_t from) {
    return 20.0 * std::log10(rms(out, from, out.size()) / rms(in, from, in.size()));
}

TEST(OndrelProcessorTest, ZeroLatencyBellFollowsTheAnalogDesignWithoutLatency) {
    Harness h(kStereo);
    h.addBand(1, FilterShape::Bell, 1000.0, 9.0f, 2.0f);
    h.addBand(2, FilterShape::LowCut, 60.0, 0.0f);
    const Signals ir = h.impulseResponse(0, 16384);
    EXPECT_EQ(h.processor().getLatency(), 0);
    for (double hz : {30.0, 100.0, 500.0, 1000.0, 2000.0, 8000.0}) {
        const double expected = analogDb(FilterShape::Bell, 1000.0, 9.0f, 2.0f, hz) +
                                analogDb(FilterShape::LowCut, 60.0, 0.0f, 1.0f, hz);
        EXPECT_NEAR(responseDb(ir[0], hz, kRate), expected, 0.1) << hz << " Hz";
        EXPECT_NEAR(responseDb(ir[1], hz, kRate), -300.0, 1.0) << "nothing crosses to the other channel";
    }
    const Signals right = h.impulseResponse(1, 16384);
    EXPECT_NEAR(responseDb(right[1], 1000.0, kRate), 9.0, 0.05);
}

TEST(OndrelProcessorTest, PlacementsActOnTheirSideOnly) {
    // A Mid band leaves a pure side signal alone, a Side band a pure mid signal; Left and Right
    // bands touch their own channel.
    struct Case {
        StereoPlacement placement;
        bool midInput;
        double expectedDb[2];
    };
    const Case cases[] = {
        {StereoPlacement::Mid, false, {0.0, 0.0}},  {StereoPlacement::Mid, true, {12.0, 12.0}},
        {StereoPlacement::Side, true, {0.0, 0.0}},  {StereoPlacement::Side, false, {12.0, 12.0}},
        {StereoPlacement::Left, true, {12.0, 0.0}}, {StereoPlacement::Right, true, {0.0, 12.0}},
    };
    for (const Case& c : cases) {
        Harness h(kStereo);
        h.addBand(1, FilterShape::Bell, 2000.0, 12.0f, 1.0f);
        h.setBand(1, " Stereo Placement", static_cast<float>(c.placement));
        const Signal tone = sine(24000, 2000.0, kRate, 0.25);
        Signal other = tone;
        if (!c.midInput)
            for (float& x : other)
                x = -x;
        const Signals out = h.process({tone, other});
        for (size_t ch = 0; ch < 2; ++ch)
            EXPECT_NEAR(gainDb(ch == 0 ? tone : other, out[ch], 12000), c.expectedDb[ch], 0.05)
                << "placement " << static_cast<int>(c.placement) << (c.midInput ? " mid" : " side")
                << " channel " << ch;
    }
}

TEST(OndrelProcessorTest, SpeakerSetsRestrictBandsInSurroundLayouts) {
    for (int32_t layout : {kLayout51, kLayout714}) {
        Harness h(layout);
        h.addBand(1, FilterShape::Bell, 100.0, -12.0f, 1.0f);
        h.setBand(1, " Speakers", static_cast<float>(chl::itemForSpeakerSet(chl::SpeakerSet::Lfe)));
        const auto flags = chl::layoutFlags(layout);
        for (int32_t c = 0; c < h.numChannels(); ++c) {
            const Signals ir = h.impulseResponse(c, 8192);
            const bool lfe = (flags[static_cast<size_t>(c)] & chl::kLfe) != 0;
            EXPECT_NEAR(responseDb(ir[static_cast<size_t>(c)], 100.0, kRate), lfe ? -12.0 : 0.0, 0.05)
                << "layout " << layout << " channel " << c;
        }
    }
}

TEST(OndrelProcessorTest, OutputStageAppliesLevelBalancePanMidSidePanAndPolarity) {
    Harness h(kStereo);
    h.set("Output Level", static_cast<float>(dbToOutputLevel(-6.0)));
    h.set("Output Pan", 0.5f);
    h.set("Output Invert Phase", 1.0f);
    const Signal left = sine(9600, 440.0, kRate, 0.25);
    const Signal right = sine(9600, 660.0, kRate, 0.25);
    Signals out = h.process({left, right});
    const size_t last = left.size() - 1;
    // Settled: left at half level (balance), right untouched by pan, both -6 dB and inverted.
    const double level = std::pow(10.0, -6.0 / 20.0);
    EXPECT_NEAR(out[0][last], -left[last] * level * 0.5, 1e-4);
    EXPECT_NEAR(out[1][last], -right[last] * level, 1e-4);

    h.set("Output Invert Phase", 0.0f);
    h.set("Output Level", 0.0f);
    h.set("Output Pan Mode", 1.0f);
    h.set("Output Pan", -1.0f);
    out = h.process({left, right});
    // Mid/side pan fully to mid: the side vanishes, both outputs carry the mid.
    const double mid = 0.5 * (left[last] + right[last]);
    EXPECT_NEAR(out[0][last], mid, 1e-4);
    EXPECT_NEAR(out[1][last], mid, 1e-4);
}

TEST(OndrelProcessorTest, ParameterChangesNeverJumpTheOutput) {
    // The change lands mid-cycle: the second part continues the first.
    const Signal tone = sine(48000, 1000.0, kRate, 0.25);
    const Signal first(tone.begin(), tone.begin() + 24011);
    const Signal second(tone.begin() + 24011, tone.end());
    // The most a 1 kHz tone of amplitude 0.25 moves from one sample to the next.
    const double smoothStep = 2.0 * std::numbers::pi * 1000.0 * 0.25 / kRate;
    const auto largestStep = [](const Signal& signal) {
        double worst = 0.0;
        for (size_t i = 1; i < signal.size(); ++i)
            worst = std::max(worst, static_cast<double>(std::fabs(signal[i] - signal[i - 1])));
        return worst;
    };
    // Each change alone, on a steady tone: a polarity flip, a level step, a pan and its mode, a
    // band's gain (whose output rises to 4 times the tone).
    const std::vector<std::pair<std::string, float>> changes{
        {"Output Invert Phase", 1.0f}, {"Output Level", static_cast<float>(dbToOutputLevel(-20.0))},
        {"Output Pan", 1.0f},          {"Output Pan Mode", 1.0f},
        {"Band 1 Gain", 12.0f},
    };
    for (const auto& [name, value] : changes) {
        Harness h(kStereo);
        h.addBand(1, FilterShape::Bell, 1000.0, 0.0f, 1.0f);
        h.set("Output Pan", name == "Output Pan Mode" ? 1.0f : 0.0f);
        Signal out = h.process({first, first})[0];
        h.set(name, value);
        const Signal rest = h.process({second, second}, 32)[0];
        out.insert(out.end(), rest.begin(), rest.end());
        EXPECT_LT(largestStep(out), smoothStep * (name == "Band 1 Gain" ? 4.0 : 1.0) * 1.05) << name;
    }
}

TEST(OndrelProcessorTest, SoloPlaysTheBandsRegionAtSoloGain) {
    Harness h(kStereo);
    h.addBand(1, FilterShape::Bell, 1000.0, 6.0f, 2.0f);
    h.addBand(2, FilterShape::LowCut, 300.0, 0.0f);
    const Signal inBand = sine(24000, 1000.0, kRate, 0.25);
    const Signal outOfBand = sine(24000, 8000.0, kRate, 0.25);
    EXPECT_NEAR(gainDb(inBand, h.process({inBand, inBand})[0], 12000), 6.0, 0.1);

    h.set("Solo Gain", -4.0f);
    h.setBand(1, " Solo", 1.0f);
    EXPECT_NEAR(gainDb(inBand, h.process({inBand, inBand})[0], 12000), -4.0, 0.2);
    EXPECT_LT(gainDb(outOfBand, h.process({outOfBand, outOfBand})[0], 12000), -20.0);
    EXPECT_EQ(h.processor().getMonitoredBand(), 0);

    // A soloed Low Cut plays what it removes.
    h.setBand(2, " Solo", 1.0f);
    const Signal low = sine(24000, 60.0, kRate, 0.25);
    EXPECT_NEAR(gainDb(low, h.process({low, low})[0], 12000), -4.0, 0.3);
    EXPECT_EQ(h.processor().getMonitoredBand(), 1) << "the band soloed last wins";
    EXPECT_LT(gainDb(inBand, h.process({inBand, inBand})[0], 12000), -20.0);

    h.setBand(2, " Solo", 0.0f);
    h.setBand(1, " Solo", 0.0f);
    EXPECT_NEAR(gainDb(inBand, h.process({inBand, inBand})[0], 12000), 6.0, 0.1);
    EXPECT_EQ(h.processor().getMonitoredBand(), -1);
}

TEST(OndrelProcessorTest, AuditionPlaysTheDetectionSignal) {
    Harness h(kStereo);
    h.addBand(1, FilterShape::Bell, 4000.0, 0.0f, 2.0f);
    h.setBand(1, " Dynamic Range", -12.0f);
    h.setBand(1, " Dynamics Auto", 0.0f);
    h.setBand(1, " Side Chain Audition", 1.0f);
    const Signal inBand = sine(24000, 4000.0, kRate, 0.1);
    const Signal outOfBand = sine(24000, 100.0, kRate, 0.1);
    EXPECT_NEAR(gainDb(inBand, h.process({inBand, inBand})[0], 12000), 0.0, 0.5);
    EXPECT_LT(gainDb(outOfBand, h.process({outOfBand, outOfBand})[0], 12000), -20.0);
}

TEST(OndrelProcessorTest, DynamicBandCompressesLoudPassagesOnly) {
    Harness h(kStereo);
    h.addBand(1, FilterShape::Bell, 2000.0, 0.0f, 1.0f);
    h.setBand(1, " Dynamic Range", -9.0f);
    h.setBand(1, " Dynamics Auto", 0.0f);
    h.setBand(1, " Threshold", static_cast<float>(storedFromThresholdDb(-30.0)));
    const Signal quiet = sine(48000, 2000.0, kRate, 0.003);
    const Signal loud = sine(48000, 2000.0, kRate, 0.5);
    EXPECT_NEAR(gainDb(quiet, h.process({quiet, quiet})[0], 24000), 0.0, 0.2);
    EXPECT_NEAR(gainDb(loud, h.process({loud, loud})[0], 24000), -9.0, 0.3);
    // Meters count as stale after a second without a reader: read once, then within the second.
    h.processor().getMeterValue(0, false);
    h.processor().getMeterValue(OndrelProcessor::kBandGainReductionMeter, false);
    h.process({Signal(loud.begin(), loud.begin() + 4800), Signal(loud.begin(), loud.begin() + 4800)});
    EXPECT_GT(h.processor().getMeterValue(0, false), -9.5f);
    EXPECT_LT(h.processor().getMeterValue(0, false), -8.5f);
    EXPECT_LT(h.processor().getMeterValue(OndrelProcessor::kBandGainReductionMeter, false), -8.5f);
}

TEST(OndrelProcessorTest, AutoGainCompensatesABroadBoost) {
    Harness h(kStereo);
    h.addBand(1, FilterShape::HighShelf, 1000.0, 6.0f, 1.0f);
    h.set("Auto Gain", 1.0f);
    const Signal noise = whiteNoise(96000, 7);
    h.process({noise, noise});
    // The worker estimates in the background; wait until it has seen the settings.
    for (int i = 0; i < 200 && std::fabs(h.processor().getWorker().getLoudnessChangeDb()) < 0.1f; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const float change = h.processor().getWorker().getLoudnessChangeDb();
    EXPECT_GT(change, 3.0f) << "a 6 dB shelf from 1 kHz up is well above half the weighted power";
    EXPECT_LT(change, 6.0f);
    const Signal tone = sine(48000, 100.0, kRate, 0.25);
    EXPECT_NEAR(gainDb(tone, h.process({tone, tone})[0], 24000), -change, 0.1)
        << "below the shelf only the make-up gain remains";
}

TEST(OndrelProcessorTest, ProcessingNeitherAllocatesNorLocksWhileParametersMove) {
    Harness h(kStereo, kRate, 128);
    h.addBand(1, FilterShape::Bell, 1000.0, 6.0f, 1.0f);
    h.addBand(2, FilterShape::Bell, 3000.0, 0.0f, 1.0f);
    h.setBand(2, " Dynamic Range", -6.0f);
    h.setBand(2, " Stereo Placement", static_cast<float>(StereoPlacement::Side));
    h.set("Auto Gain", 1.0f);
    h.settle(4800);
    const Signal noise = whiteNoise(128, 3);
    std::atomic<bool> done{false};
    // Another thread keeps setting parameters while the audio thread processes.
    std::thread mover([&] {
        for (int i = 0; !done.load(); ++i) {
            h.setBand(1, " Frequency", static_cast<float>(std::log2(200.0 + (i % 100) * 50.0)));
            h.setBand(3, " Used", static_cast<float>(i % 2));
            h.setBand(1, " Solo", static_cast<float>((i / 7) % 2));
            h.set("Output Pan", static_cast<float>((i % 10) / 10.0));
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    OndrelProcessor& p = h.processor();
    std::vector<const float*> in{noise.data(), noise.data()};
    Signals out(2, Signal(128));
    std::vector<float*> outPointers{out[0].data(), out[1].data()};
    size_t allocations = 0;
    int locks = 0;
    for (int block = 0; block < 400; ++block) {
        testing_support::AllocationCounter counter;
        testing_support::LockCounter lockCounter;
        uint32_t flags = 0;
        p.process(in.data(), nullptr, outPointers.data(), 2, 128, flags);
        allocations += counter.count();
        locks += lockCounter.count();
    }
    done = true;
    mover.join();
    EXPECT_EQ(allocations, 0u);
    EXPECT_EQ(locks, 0);
}

} // namespace
