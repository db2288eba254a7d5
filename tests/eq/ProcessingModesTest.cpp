#include "ProcessorTestUtil.h"

#include "eq/AnalogFilterPrototype.h"
#include "eq/EQBandDesign.h"
#include "plugin/eq/ParameterMappings.h"
#include "support/AllocationCounter.h"
#include "support/LockCounter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <complex>
#include <numbers>
#include <thread>

namespace {

using namespace processor_test;

constexpr int32_t kStereo = 1;

void setMode(Harness& h, ProcessingMode mode,
             ProcessingResolution resolution = ProcessingResolution::Medium) {
    h.set("Processing Mode", static_cast<float>(mode));
    h.set("Processing Resolution", static_cast<float>(resolution));
}

std::complex<double> analogResponse(FilterShape shape, double f0, float gain, float q, double hz) {
    AnalogFilterPrototype prototype;
    designBand(prototype, {shape, 1.0f, gain, q, f0});
    return prototype.response(hz);
}

// Frequencies from `low` to `high`, 12 per octave.
std::vector<double> logGrid(double low, double high) {
    std::vector<double> grid;
    for (double f = low; f <= high * 1.0001; f *= std::exp2(1.0 / 12.0))
        grid.push_back(f);
    return grid;
}

TEST(ProcessingModesTest, ReportedLatencyIsTheMeasuredDelayOfAnImpulse) {
    struct Case {
        ProcessingMode mode;
        ProcessingResolution resolution;
    };
    std::vector<Case> cases{{ProcessingMode::ZeroLatency, ProcessingResolution::Medium},
                            {ProcessingMode::NaturalPhase, ProcessingResolution::Medium}};
    for (int32_t r = 0; r < 5; ++r)
        cases.push_back({ProcessingMode::LinearPhase, static_cast<ProcessingResolution>(r)});
    for (float rate : {44100.0f, 48000.0f, 96000.0f, 192000.0f}) {
        for (const Case& c : cases) {
            Harness h(kStereo, rate, 256);
            setMode(h, c.mode, c.resolution);
            ASSERT_TRUE(h.waitUntilSettled());
            const int32_t latency = h.processor().getLatency();
            EXPECT_EQ(latency, computeLatency({}, c.mode, c.resolution, rate, 0));
            // A flat EQ in any mode is a pure delay of exactly the reported latency.
            const Signals ir = h.impulseResponse(1, latency + 600);
            double stray = 0.0;
            for (size_t i = 0; i < ir[1].size(); ++i)
                if (static_cast<int32_t>(i) != latency)
                    stray = std::max(stray, static_cast<double>(std::fabs(ir[1][i])));
            EXPECT_NEAR(ir[1][static_cast<size_t>(latency)], 1.0f, 1e-5f)
                << "mode " << static_cast<int>(c.mode) << " resolution " << static_cast<int>(c.resolution)
                << " at " << rate;
            EXPECT_LT(stray, 1e-5);
        }
    }
}

TEST(ProcessingModesTest, NaturalPhaseFollowsTheAnalogMagnitudeAndPhase) {
    double worstDb = 0.0;
    double worstDegrees = 0.0;
    for (float rate : {44100.0f, 48000.0f}) {
        for (FilterShape shape : {FilterShape::Bell, FilterShape::LowShelf, FilterShape::HighShelf}) {
            for (double f0 : {20.0, 100.0, 1000.0, 6000.0, 12000.0, 18000.0}) {
                Harness h(kStereo, rate, 256);
                setMode(h, ProcessingMode::NaturalPhase);
                h.addBand(1, shape, f0, 9.0f, 1.0f);
                ASSERT_TRUE(h.waitUntilSettled());
                const int32_t latency = h.processor().getLatency();
                ASSERT_EQ(latency, 320);
                const Signals ir = h.impulseResponse(0, 32768);
                for (double hz : logGrid(50.0, 18000.0)) {
                    const std::complex<double> measured = responseAt(ir[0], hz, rate, latency);
                    const std::complex<double> expected = analogResponse(shape, f0, 9.0f, 1.0f, hz);
                    const double db = std::fabs(20.0 * std::log10(std::abs(measured) / std::abs(expected)));
                    const double degrees =
                        std::fabs(std::arg(measured / expected)) * 180.0 / std::numbers::pi;
                    worstDb = std::max(worstDb, db);
                    worstDegrees = std::max(worstDegrees, degrees);
                    EXPECT_LT(db, 0.1) << "shape " << static_cast<int>(shape) << " f0 " << f0 << " at " << hz;
                    EXPECT_LT(degrees, 10.0)
                        << "shape " << static_cast<int>(shape) << " f0 " << f0 << " at " << hz;
                }
            }
        }
    }
    std::printf("Natural Phase worst deviation: %.4f dB, %.3f degrees\n", worstDb, worstDegrees);
}

TEST(ProcessingModesTest, LinearPhaseFollowsTheAnalogMagnitudeWithASymmetricImpulse) {
    constexpr float kRate = 48000.0f;
    double worstDb = 0.0;
    double worstAsymmetry = -1000.0;
    for (FilterShape shape : {FilterShape::Bell, FilterShape::LowShelf, FilterShape::HighShelf}) {
        for (double f0 : {100.0, 1000.0, 10000.0, 18000.0}) {
            Harness h(kStereo, kRate, 256);
            setMode(h, ProcessingMode::LinearPhase, ProcessingResolution::Medium);
            h.addBand(1, shape, f0, -9.0f, 1.0f);
            ASSERT_TRUE(h.waitUntilSettled());
            const int32_t latency = h.processor().getLatency();
            const Signals ir = h.impulseResponse(0, 2 * latency + 1);
            for (double hz : logGrid(50.0, 20000.0)) {
                const double measured = responseDb(ir[0], hz, kRate, latency);
                const double expected =
                    20.0 * std::log10(std::abs(analogResponse(shape, f0, -9.0f, 1.0f, hz)));
                worstDb = std::max(worstDb, std::fabs(measured - expected));
                EXPECT_NEAR(measured, expected, 0.1)
                    << "shape " << static_cast<int>(shape) << " f0 " << f0 << " at " << hz;
            }
            double peak = 0.0;
            double asymmetry = 0.0;
            for (int32_t k = 0; k <= latency; ++k) {
                const double before = ir[0][static_cast<size_t>(latency - k)];
                const double after = ir[0][static_cast<size_t>(latency + k)];
                peak = std::max(peak, std::fabs(after));
                asymmetry = std::max(asymmetry, std::fabs(after - before));
            }
            worstAsymmetry = std::max(worstAsymmetry, 20.0 * std::log10(asymmetry / peak + 1e-30));
        }
    }
    EXPECT_LT(worstAsymmetry, -100.0);
    std::printf("Linear Phase worst deviation: %.4f dB; asymmetry %.1f dB below the peak\n", worstDb,
                worstAsymmetry);
}

TEST(ProcessingModesTest, SwitchingModesWhilePlayingNeverClicks) {
    constexpr float kRate = 48000.0f;
    Harness h(kStereo, kRate, 256);
    h.addBand(1, FilterShape::Bell, 440.0, 6.0f, 1.0f);
    h.addBand(2, FilterShape::HighShelf, 3000.0, -6.0f, 1.0f);
    const Signal tone = sine(12000, 440.0, kRate, 0.25);
    const std::pair<ProcessingMode, ProcessingResolution> sequence[] = {
        {ProcessingMode::LinearPhase, ProcessingResolution::Low},
        {ProcessingMode::NaturalPhase, ProcessingResolution::Low},
        {ProcessingMode::LinearPhase, ProcessingResolution::High},
        {ProcessingMode::ZeroLatency, ProcessingResolution::High},
        {ProcessingMode::NaturalPhase, ProcessingResolution::High},
        {ProcessingMode::ZeroLatency, ProcessingResolution::Medium},
    };
    // The loudest a 440 Hz tone with 6 dB of boost moves from one sample to the next.
    const double smoothStep = 2.0 * std::numbers::pi * 440.0 * 0.25 * 2.0 / kRate;
    float previous = 0.0f;
    double worst = 0.0;
    int switches = 0;
    for (const auto& [mode, resolution] : sequence) {
        setMode(h, mode, resolution);
        for (int round = 0; round < 30; ++round) {
            const Signals out = h.process({tone, tone});
            for (float x : out[0]) {
                worst = std::max(worst, static_cast<double>(std::fabs(x - previous)));
                previous = x;
            }
            if (!h.processor().isSwitchPending())
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        switches += h.processor().getProcessingMode() == mode ? 1 : 0;
    }
    EXPECT_EQ(switches, 6);
    EXPECT_LT(worst, smoothStep * 1.1);
}

TEST(ProcessingModesTest, SoundInsideTheLatencyOutlastsSilentInput) {
    // A host that flags its input silent must still get the click that is on its way out.
    Harness h(kStereo, 48000.0f, 256);
    setMode(h, ProcessingMode::LinearPhase, ProcessingResolution::Low);
    ASSERT_TRUE(h.waitUntilSettled());
    const int32_t latency = h.processor().getLatency();
    std::vector<float> in(256, 0.0f);
    std::vector<float> out(256, 0.0f);
    const float* inputs[] = {in.data(), in.data()};
    float* outputs[] = {out.data(), out.data()};
    float heard = 0.0f;
    for (int32_t block = 0; block * 256 < latency + 1024; ++block) {
        in[0] = block == 0 ? 1.0f : 0.0f;
        uint32_t flags = block == 0 ? 0u : static_cast<uint32_t>(GenericPluginProcessor::kInputSilent);
        h.processor().process(inputs, nullptr, outputs, 2, 256, flags);
        for (float x : out)
            heard = std::max(heard, std::fabs(x));
    }
    EXPECT_NEAR(heard, 1.0f, 1e-4f);
}

TEST(ProcessingModesTest, RealTimeRecordTellsHowFarSpectralReadingsLead) {
    constexpr float kRate = 48000.0f;
    Harness h(kStereo, kRate, 256);
    setMode(h, ProcessingMode::LinearPhase, ProcessingResolution::Medium);
    h.addBand(1, FilterShape::Bell, 200.0, 3.0f);
    h.setBand(1, " Stereo Placement", static_cast<float>(StereoPlacement::Left));
    for (int32_t band : {2, 3}) {
        h.addBand(band, FilterShape::Bell, 1000.0 * band, -3.0f);
        h.setBand(band, " Dynamic Range", -6.0f);
        h.setBand(band, " Spectral Enabled", 1.0f);
    }
    h.setBand(2, " Stereo Placement", static_cast<float>(StereoPlacement::Mid));
    ASSERT_TRUE(h.waitUntilSettled());
    ASSERT_EQ(h.processor().getLatency(), 2 * 5120);

    const RealTimeReadings readings = readRealTimeData(h.processor(), 8192 / 2 + 1);
    EXPECT_TRUE(readings.complete);
    EXPECT_FLOAT_EQ(readings.tempo, 120.0f) << "the frame's part ends with the tempo";
    ASSERT_EQ(readings.bands.size(), 2u);
    // The mid band's stage follows the left/right stage: its readings lead by one stage less. Both
    // are measured from the kernel's analysis frame: half the kernel back, half a 1024 partition on.
    const float correction = 512.0f - 4096.0f;
    EXPECT_EQ(readings.bands[0].index, 1);
    EXPECT_NEAR(readings.bands[0].delayMs, (5120.0f + correction) / kRate * 1000.0f, 0.01f);
    EXPECT_EQ(readings.bands[1].index, 2);
    EXPECT_NEAR(readings.bands[1].delayMs, (10240.0f + correction) / kRate * 1000.0f, 0.01f);
}

TEST(ProcessingModesTest, DynamicBandShapesTheLinearPhaseKernel) {
    constexpr float kRate = 48000.0f;
    Harness h(kStereo, kRate, 256);
    setMode(h, ProcessingMode::LinearPhase, ProcessingResolution::Low);
    h.addBand(1, FilterShape::Bell, 2000.0, 0.0f, 1.0f);
    h.setBand(1, " Dynamic Range", -9.0f);
    h.setBand(1, " Dynamics Auto", 0.0f);
    h.setBand(1, " Threshold", static_cast<float>(storedFromThresholdDb(-30.0)));
    ASSERT_TRUE(h.waitUntilSettled());
    const Signal loud = sine(96000, 2000.0, kRate, 0.5);
    Signals out;
    // The worker follows the compander in the background: feed the tone a few times.
    for (int round = 0; round < 40; ++round) {
        out = h.process({loud, loud});
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const double gain = 20.0 * std::log10(rms(out[0], 48000, 96000) / rms(loud, 48000, 96000));
    EXPECT_NEAR(gain, -9.0, 0.5);
}

TEST(ProcessingModesTest, KernelModesNeitherAllocateNorLockWhileEverythingMoves) {
    Harness h(kStereo, 48000.0f, 64);
    h.addBand(1, FilterShape::Bell, 1000.0, 6.0f, 1.0f);
    h.addBand(2, FilterShape::HighShelf, 5000.0, -3.0f, 1.0f);
    h.setBand(2, " Stereo Placement", static_cast<float>(StereoPlacement::Side));
    h.addBand(3, FilterShape::Bell, 300.0, 0.0f, 1.0f);
    h.setBand(3, " Dynamic Range", -6.0f);
    setMode(h, ProcessingMode::NaturalPhase);
    ASSERT_TRUE(h.waitUntilSettled());
    std::atomic<bool> done{false};
    std::thread mover([&] {
        for (int i = 0; !done.load(); ++i) {
            h.setBand(1, " Frequency", static_cast<float>(std::log2(200.0 + (i % 50) * 100.0)));
            h.setBand(2, " Gain", static_cast<float>(i % 12) - 6.0f);
            if (i % 40 == 0)
                setMode(h, static_cast<ProcessingMode>((i / 40) % 3),
                        static_cast<ProcessingResolution>((i / 120) % 3));
            if (i % 70 == 0)
                h.set("Character", static_cast<float>((i / 70) % 3));
            std::this_thread::sleep_for(std::chrono::microseconds(300));
        }
    });
    const Signal noise = whiteNoise(64, 9);
    std::vector<const float*> in{noise.data(), noise.data()};
    Signals out(2, Signal(64));
    std::vector<float*> outPointers{out[0].data(), out[1].data()};
    size_t allocations = 0;
    int locks = 0;
    bool finite = true;
    for (int block = 0; block < 6000; ++block) {
        testing_support::AllocationCounter counter;
        testing_support::LockCounter lockCounter;
        uint32_t flags = 0;
        h.processor().process(in.data(), nullptr, outPointers.data(), 2, 64, flags);
        allocations += counter.count();
        locks += lockCounter.count();
        finite = finite && std::isfinite(out[0][63]) && std::isfinite(out[1][63]);
    }
    done = true;
    mover.join();
    EXPECT_EQ(allocations, 0u);
    EXPECT_EQ(locks, 0);
    EXPECT_TRUE(finite);
}

} // namespace
