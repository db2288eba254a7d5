#include "LevelTestUtil.h"
#include "support/AllocationCounter.h"

#include "wave/Capacitor.h"
#include "wave/Detector.h"
#include "wave/FastLevel.h"
#include "wave/GainComputer.h"
#include "wave/NoiseFilter.h"
#include "wave/NormalizerStub.h"
#include "wave/PeakHold.h"
#include "wave/SafetyLimiter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using level_test::ChunkedRun;
using level_test::Floats;
using level_test::randomSignal;
using wave::Capacitor;
using wave::Environment;
using wave::GainComputer;

namespace {

constexpr float kRate = 48000.0f;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

struct Graph {
    Graph() : environment(256, 48000) { environment.setSampleRate(kRate); }
    Environment environment;
};

// Reference: 20 log10 in double precision.
double referenceDb(double x) {
    return 20.0 * std::log10(x);
}

bool allFinite(const Floats& values, size_t from) {
    return std::all_of(values.begin() + static_cast<std::ptrdiff_t>(from), values.end(),
                       [](float v) { return std::isfinite(v); });
}

} // namespace

TEST(GainComputer, FollowsTheSoftKneeLaw) {
    // Knee 6 dB, ratio 2 (slope 0.5); distance d from the threshold.
    const auto change = [](float d) {
        return GainComputer::gainChangeDb(d - 20.0f, -20.0f, 6.0f, 2.0f, 30.0f);
    };
    EXPECT_NEAR(change(0.0f), 0.375f, 1e-6f);    // (0 + 3)^2 / 12 = 0.75 dB over, halved.
    EXPECT_NEAR(change(-1.5f), 0.09375f, 1e-6f); // 1.5^2 / 12 / 2
    EXPECT_EQ(change(-3.0f), 0.0f);              // lower knee edge: nothing yet
    EXPECT_EQ(change(-3.5f), 0.0f);
    EXPECT_EQ(change(-40.0f), 0.0f);
    EXPECT_NEAR(change(3.0f), 1.5f, 1e-6f); // upper knee edge meets the straight line
    EXPECT_NEAR(change(3.5f), 1.75f, 1e-6f);
    EXPECT_NEAR(change(10.0f), 5.0f, 1e-6f);
    // Continuous across both edges.
    for (const float edge : {-3.0f, 3.0f})
        EXPECT_NEAR(change(edge - 1e-3f), change(edge + 1e-3f), 2e-3f) << edge;
}

TEST(GainComputer, HardKneeRatioAndLimit) {
    EXPECT_NEAR(GainComputer::gainChangeDb(0.5f, 0.0f, 0.0f, 2.0f, 30.0f), 0.25f, 1e-7f);
    EXPECT_EQ(GainComputer::gainChangeDb(-0.1f, 0.0f, 0.0f, 2.0f, 30.0f), 0.0f);
    EXPECT_NEAR(GainComputer::gainChangeDb(0.5f, 0.0f, 5e-4f, 4.0f, 30.0f), 0.375f, 1e-7f);
    // A ratio of 99.9999 and more limits: slope 1.
    EXPECT_NEAR(GainComputer::gainChangeDb(10.0f, 0.0f, 6.0f, 99.9999f, 30.0f), 10.0f, 1e-6f);
    EXPECT_NEAR(GainComputer::gainChangeDb(10.0f, 0.0f, 6.0f, 99.99f, 30.0f), 10.0f * (1.0f - 1.0f / 99.99f),
                1e-5f);
    EXPECT_EQ(GainComputer::gainChangeDb(20.0f, 0.0f, 6.0f, 1000.0f, 12.0f), 12.0f);
    EXPECT_EQ(GainComputer::gainChangeDb(kNaN, 0.0f, 6.0f, 2.0f, 12.0f), 0.0f);
}

TEST(FastLevel, MatchesTheLibraryConversions) {
    for (double x = 1.1e-10; x < 1e7; x *= 1.0137) {
        // Within a few float ulps of the exact value.
        const double expected = referenceDb(static_cast<float>(x));
        EXPECT_NEAR(wave::fastAmplitudeToDb(static_cast<float>(x)), expected,
                    2e-6 + 4e-7 * std::fabs(expected))
            << x;
    }
    EXPECT_NEAR(wave::fastAmplitudeToDb(-0.5f), referenceDb(0.5), 1e-5);
    for (const float silent : {0.0f, 9e-11f, -1e-12f, kNaN})
        EXPECT_EQ(wave::fastAmplitudeToDb(silent), -180.0f) << silent;
    for (double db = -170.0; db < 80.0; db += 0.73) {
        const double expected = std::pow(10.0, db / 20.0);
        EXPECT_NEAR(wave::fastDbToAmplitude(static_cast<float>(db)) / expected, 1.0, 3e-6) << db;
    }
    EXPECT_EQ(wave::fastDbToAmplitude(-1e6f), wave::fastExp(-88.37626f));
    EXPECT_TRUE(std::isfinite(wave::fastExp(1e6f)));
}

TEST(Capacitor, ZeroTimesPassTheInputUnchanged) {
    Graph graph;
    Capacitor capacitor(&graph.environment);
    ChunkedRun run(graph.environment, capacitor);
    capacitor.setInput(&run.getInput());
    const Floats signal = randomSignal(1000, 1);
    EXPECT_EQ(run.run(signal, {7, 256, 33}), signal);
}

TEST(Capacitor, ReachesNinetyPercentInTheAttackTime) {
    Graph graph;
    Capacitor capacitor(&graph.environment, 0.01f, 0.5f);
    ChunkedRun run(graph.environment, capacitor);
    capacitor.setInput(&run.getInput());
    const Floats out = run.run(Floats(1000, 1.0f), {100, 256, 17});
    // 480 samples at 48 kHz; after n samples the gap is (1 - c)^n with c = 1 - exp(-ln 10 / 480).
    EXPECT_NEAR(out[479], 0.9f, 1e-6f);
    EXPECT_LT(out[470], 0.899f);
    EXPECT_GT(out[490], 0.901f);
    const double keep = std::exp(-std::log(10.0) / 480.0);
    for (size_t n = 0; n < out.size(); n += 37)
        EXPECT_NEAR(out[n], 1.0 - std::pow(keep, static_cast<double>(n + 1)), 2e-6) << n;
}

TEST(Capacitor, ReleasesWithTheReleaseTime) {
    Graph graph;
    Capacitor capacitor(&graph.environment, 0.0f, 0.1f);
    ChunkedRun run(graph.environment, capacitor);
    capacitor.setInput(&run.getInput());
    Floats signal(6000, 0.0f);
    signal[0] = 1.0f;
    const Floats out = run.run(signal);
    EXPECT_EQ(out[0], 1.0f); // attack 0 jumps
    // 0.1 s = 4800 samples to fall to 10 %.
    EXPECT_NEAR(out[4800], 0.1f, 1e-5f);
}

TEST(Capacitor, RecoversFromNaNAndInfinity) {
    for (const float bad : {kNaN, kInf, -kInf}) {
        Graph graph;
        Capacitor capacitor(&graph.environment, 0.001f, 0.002f);
        ChunkedRun run(graph.environment, capacitor);
        capacitor.setInput(&run.getInput());
        Floats signal = randomSignal(2000, 2);
        signal[300] = bad;
        const Floats out = run.run(signal, {256});
        EXPECT_TRUE(allFinite(out, 512)) << bad;
    }
}

TEST(NormalizerStub, SilenceGivesAConstantAndKeepsTheEnvelope) {
    Graph graph;
    wave::NormalizerStub normalizer(&graph.environment);
    normalizer.getSlowFollower().setState(0.005);
    const Floats silence(64, 0.0f);
    Floats out(64, -1.0f);
    normalizer.process(silence.data(), out.data(), 64, true);
    EXPECT_TRUE(normalizer.isSilent());
    EXPECT_EQ(out, Floats(64, 0.0f));
    normalizer.setOutputInDb(true);
    normalizer.process(silence.data(), out.data(), 64, true);
    EXPECT_EQ(out, Floats(64, -180.0f));
    EXPECT_EQ(normalizer.getSlowFollower().getState(), 0.005);
    // Quiet but not zero: |x0| / 0.01 = 0.5, -6.02 dB.
    const Floats quiet(64, -0.005f);
    normalizer.process(quiet.data(), out.data(), 64, true);
    EXPECT_NEAR(out[63], referenceDb(0.5), 1e-4);
}

TEST(NormalizerStub, DividesBySignalsOwnLevel) {
    Graph graph;
    wave::NormalizerStub normalizer(&graph.environment);
    // Followers without smoothing: the envelope is |x| floored at 0.01.
    const Floats signal{0.5f, -0.25f, 0.004f, -2.0f};
    Floats out(4);
    normalizer.process(signal.data(), out.data(), 4, false);
    EXPECT_FALSE(normalizer.isSilent());
    const Floats expected{1.0f, -1.0f, 0.4f, -1.0f};
    for (size_t i = 0; i < 4; ++i)
        EXPECT_FLOAT_EQ(out[i], expected[i]) << i;
    // In place and in dB.
    normalizer.setOutputInDb(true);
    Floats data = signal;
    normalizer.process(data.data(), data.data(), 4, false);
    EXPECT_NEAR(data[0], 0.0f, 1e-5f);
    EXPECT_NEAR(data[2], referenceDb(0.4), 1e-4);
}

TEST(NormalizerStub, StartUpWindowHandsTheFastEnvelopeOver) {
    Graph graph;
    wave::NormalizerStub normalizer(&graph.environment);
    normalizer.getSlowFollower().getAttackTime().getParameter().jumpTo(100.0f);
    normalizer.getSlowFollower().getReleaseTime().getParameter().jumpTo(100.0f);
    normalizer.getSlowFollower().setState(0.5);
    Floats block(240, 0.1f), out(240);
    normalizer.restart();
    EXPECT_EQ(normalizer.getStartUpCountdown(), 24000); // 500 ms at 48 kHz
    normalizer.getSlowFollower().setState(0.4);
    normalizer.restart(); // ignored while counting down
    EXPECT_EQ(normalizer.getStartUpCountdown(), 24000);
    for (int b = 0; b < 99; ++b)
        normalizer.process(block.data(), out.data(), 240, false);
    EXPECT_EQ(normalizer.getStartUpCountdown(), 240);
    EXPECT_GT(normalizer.getSlowFollower().getState(), 0.39); // the slow follower barely moved
    normalizer.process(block.data(), out.data(), 240, false);
    EXPECT_EQ(normalizer.getStartUpCountdown(), 0);
    // The fast follower (no smoothing) sits on 0.1 and now leads the envelope.
    EXPECT_DOUBLE_EQ(normalizer.getSlowFollower().getState(), 0.1f);
    normalizer.getSlowFollower().setState(0.0099);
    normalizer.restart(); // the envelope rests at its floor: nothing to settle
    EXPECT_EQ(normalizer.getStartUpCountdown(), 0);
}

TEST(NormalizerStub, RecoversFromNaN) {
    Graph graph;
    wave::NormalizerStub normalizer(&graph.environment);
    normalizer.getSlowFollower().getReleaseTime().getParameter().jumpTo(0.05f);
    Floats block = randomSignal(128, 3);
    Floats out(128);
    block[5] = kNaN;
    normalizer.process(block.data(), out.data(), 128, false);
    block[5] = 0.3f;
    normalizer.process(block.data(), out.data(), 128, false);
    EXPECT_TRUE(allFinite(out, 0));
}

namespace {

// Reference: the maximum of |x| over samples n - window .. n, by scanning.
Floats slidingMaximum(const Floats& signal, int32_t window) {
    Floats out(signal.size());
    for (size_t n = 0; n < signal.size(); ++n) {
        float m = 0.0f;
        for (size_t k = n >= static_cast<size_t>(window) ? n - static_cast<size_t>(window) : 0; k <= n; ++k)
            if (std::isfinite(signal[k]))
                m = std::max(m, std::fabs(signal[k]));
        out[n] = m;
    }
    return out;
}

Floats runPeakHold(const Floats& signal, float holdMs, const std::vector<int32_t>& chunks) {
    Graph graph;
    wave::PeakHold peakHold(&graph.environment, holdMs, 50.0f);
    ChunkedRun run(graph.environment, peakHold);
    peakHold.setInput(&run.getInput());
    return run.run(signal, chunks);
}

} // namespace

TEST(PeakHold, HoldsAnIsolatedPeakForTheHoldTime) {
    Floats signal(2000, 0.0f);
    signal[100] = -0.8f;
    const Floats out = runPeakHold(signal, 10.0f, {64, 200, 13});
    EXPECT_EQ(out[99], 0.0f);
    // 10 ms at 48 kHz: still held 480 samples after the peak, gone one sample later.
    for (size_t n = 100; n <= 580; ++n)
        ASSERT_EQ(out[n], 0.8f) << n;
    EXPECT_EQ(out[581], 0.0f);
}

TEST(PeakHold, EqualsTheSlidingMaximumOfRandomSignals) {
    // Noise, a slow sine (long falling runs) and plateaus exercise every path of the queue.
    Floats noise = randomSignal(6000, 4);
    Floats sine(6000), steps(6000);
    for (size_t n = 0; n < sine.size(); ++n) {
        sine[n] = std::sin(static_cast<float>(n) * 0.003f) *
                  (1.0f + 0.3f * std::sin(static_cast<float>(n) * 0.05f));
        steps[n] = static_cast<float>((n / 37) % 5) * ((n / 111) % 2 == 0 ? 1.0f : -1.0f);
    }
    for (const Floats* signal : {&noise, &sine, &steps})
        for (const float holdMs : {0.0f, 0.02f, 1.0f, 7.3f, 50.0f}) {
            const auto window = static_cast<int32_t>(holdMs * kRate / 1000.0f);
            const Floats out = runPeakHold(*signal, holdMs, {1, 255, 64, 3});
            const Floats expected = slidingMaximum(*signal, window);
            const auto mismatch = std::mismatch(out.begin(), out.end(), expected.begin());
            EXPECT_EQ(mismatch.first, out.end())
                << "hold " << holdMs << " first difference at sample " << (mismatch.first - out.begin());
        }
}

TEST(PeakHold, NaNAndInfinityPassAfterTheWindow) {
    Floats signal = randomSignal(3000, 5);
    signal[200] = kNaN;
    signal[201] = kInf;
    const Floats out = runPeakHold(signal, 2.0f, {128});
    const Floats expected = slidingMaximum(signal, 96);
    EXPECT_TRUE(allFinite(out, 300));
    EXPECT_EQ(Floats(out.begin() + 300, out.end()), Floats(expected.begin() + 300, expected.end()));
}

namespace {

// A control signal of one fixed value.
class Constant : public wave::Source {
public:
    Constant(Environment* environment, float value) : wave::Source(environment), value(value) {}
    void process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t) override {
        std::fill_n(block->getData(), numSamples, value);
    }
    float value;
};

// The generator written out from its definition, with 64-bit arithmetic and an explicit modulus.
struct ReferenceGenerator {
    uint64_t state;
    float next() {
        state = (state * 1103515245ull + 12345ull) % 4294967296ull;
        const auto low31 = static_cast<float>(state % 2147483648ull);
        return 2.0f * low31 * 4.656613e-10f - 1.0f;
    }
};

} // namespace

TEST(NoiseFilter, GeneratorIsTheLinearCongruentialSequence) {
    uint32_t state = 1;
    wave::NoiseFilter::nextValue(state);
    EXPECT_EQ(state, 1103527590u);
    wave::NoiseFilter::nextValue(state);
    EXPECT_EQ(state, 2524885223u); // wrapped modulo 2^32
    // Values stay in [-1, 1).
    state = 0x7fffffffu * 3u;
    for (int i = 0; i < 100000; ++i) {
        const float v = wave::NoiseFilter::nextValue(state);
        ASSERT_GE(v, -1.0f);
        ASSERT_LT(v, 1.0f);
    }
}

TEST(NoiseFilter, AddsTheExactShapedSequence) {
    Graph graph;
    Constant level(&graph.environment, 0.5f), shape(&graph.environment, 0.25f);
    wave::NoiseFilter noise(&graph.environment, 12345u);
    noise.setControls(&level, &shape);
    ChunkedRun run(graph.environment, noise);
    noise.setInput(&run.getInput());
    const Floats signal = randomSignal(3000, 6);
    const Floats out = run.run(signal, {100, 1, 256});
    ReferenceGenerator reference{12345u};
    for (size_t n = 0; n < signal.size(); ++n) {
        const float r1 = reference.next();
        const float r2 = reference.next();
        const float expected = signal[n] + (r1 + r2) * (0.5f * 0.25f) * 0.5f;
        ASSERT_EQ(out[n], expected) << n;
    }
    EXPECT_EQ(noise.getGeneratorState(), static_cast<uint32_t>(reference.state));
}

TEST(NoiseFilter, NoiseIsTriangularAndSilentWithoutControls) {
    Graph graph;
    Constant level(&graph.environment, 1.0f);
    wave::NoiseFilter noise(&graph.environment);
    ChunkedRun run(graph.environment, noise);
    noise.setInput(&run.getInput());
    const Floats signal = randomSignal(500, 7);
    EXPECT_EQ(run.run(signal), signal);
    noise.setControls(&level, &level);
    const Floats out = run.run(Floats(200000, 0.0f));
    double sum = 0.0, squares = 0.0;
    for (const float v : out) {
        sum += v;
        squares += static_cast<double>(v) * v;
    }
    // The mean of two uniform values on (-1, 1): mean 0, variance 1/6.
    EXPECT_NEAR(sum / static_cast<double>(out.size()), 0.0, 0.005);
    EXPECT_NEAR(squares / static_cast<double>(out.size()), 1.0 / 6.0, 0.003);
}

namespace {

// Gain reduction fraction for a gain change in dB.
double reductionFor(double changeDb) {
    return 1.0 - std::pow(10.0, -changeDb / 20.0);
}

Floats runDetector(wave::Detector& detector, Graph& graph, const Floats& signal) {
    ChunkedRun run(graph.environment, detector);
    detector.setInput(&run.getInput());
    return run.run(signal, {100, 33});
}

} // namespace

TEST(Detector, ReducesByTheGainComputerCurve) {
    Graph graph;
    wave::Detector detector(&graph.environment);
    detector.attackSeconds.setValue(0.0f);
    detector.releaseSeconds.setValue(0.0f);
    detector.thresholdDb.setValue(-20.0f);
    // 0.5 is 13.98 dB over: ratio 4 takes three quarters of it.
    const double over = referenceDb(0.5) + 20.0;
    EXPECT_NEAR(runDetector(detector, graph, Floats(64, -0.5f))[63], reductionFor(over * 0.75), 1e-5);
    // 1 dB over: inside the soft knee (4^2 / 12 dB over) or on the hard corner (1 dB over).
    const auto oneDbOver = static_cast<float>(std::pow(10.0, -19.0 / 20.0));
    EXPECT_NEAR(runDetector(detector, graph, Floats(64, oneDbOver))[63], reductionFor(16.0 / 12.0 * 0.75),
                2e-5);
    detector.kneeStyle.setValue(wave::Detector::kHardKnee);
    EXPECT_NEAR(runDetector(detector, graph, Floats(64, oneDbOver))[63], reductionFor(0.75), 2e-5);
    // A limiter ignores the ratio.
    detector.purpose.setValue(wave::Detector::kLimiter);
    EXPECT_NEAR(runDetector(detector, graph, Floats(64, 0.5f))[63], reductionFor(over), 1e-5);
    EXPECT_EQ(runDetector(detector, graph, Floats(64, 0.05f))[63], 0.0f);
}

TEST(Detector, SmoothsTheGainChangeAndReportsSteadyState) {
    Graph graph;
    wave::Detector detector(&graph.environment);
    detector.purpose.setValue(wave::Detector::kLimiter);
    detector.kneeStyle.setValue(wave::Detector::kHardKnee);
    detector.thresholdDb.setValue(-12.0f);
    detector.attackSeconds.setValue(0.01f);
    const Floats out = runDetector(detector, graph, Floats(2000, 1.0f));
    // 12 dB of change, 90 % of it after 480 samples.
    EXPECT_NEAR(-referenceDb(1.0 - out[479]), 10.8, 1e-3);
    EXPECT_FALSE(detector.isSteady()); // non-constant blocks never count as steady
    wave::ConstValueBlock constant(&graph.environment, 1.0f);
    Floats settled(256);
    detector.computeGainReduction(constant.getData(), settled.data(), 256, true);
    EXPECT_TRUE(detector.isSteady());
    EXPECT_NEAR(settled[255], reductionFor(12.0), 1e-5);
}

TEST(SafetyLimiter, OutputsTheGainThatKeepsTheSignalAtTheThreshold) {
    Graph graph;
    wave::SafetyLimiter limiter(&graph.environment);
    limiter.setThreshold(0.0f);
    limiter.setKnee(0.0f);
    limiter.setAttack(0.0f);
    limiter.setRelease(0.0f);
    ChunkedRun run(graph.environment, limiter);
    limiter.setInput(&run.getInput());
    const Floats gains = run.run(Floats{2.0f, -4.0f, 0.5f, 1.0f});
    EXPECT_NEAR(gains[0] * 2.0f, 1.0f, 1e-5f);
    EXPECT_NEAR(gains[1] * 4.0f, 1.0f, 1e-5f);
    EXPECT_EQ(gains[2], 1.0f);
    EXPECT_EQ(gains[3], 1.0f);
}

TEST(Detector, RecoversFromNaNAndInfinity) {
    Graph graph;
    wave::Detector detector(&graph.environment);
    detector.thresholdDb.setValue(-30.0f);
    Floats signal = randomSignal(1000, 9);
    signal[10] = kNaN;
    signal[20] = kInf;
    EXPECT_TRUE(allFinite(runDetector(detector, graph, signal), 200));
}

TEST(LevelBlocks, ProcessWithoutAllocating) {
    Graph graph;
    Capacitor capacitor(&graph.environment, 0.01f, 0.1f);
    wave::PeakHold peakHold(&graph.environment, 5.0f, 20.0f);
    Constant level(&graph.environment, 0.1f);
    wave::NoiseFilter noise(&graph.environment);
    noise.setControls(&level, &level);
    wave::NormalizerStub normalizer(&graph.environment);
    wave::SafetyLimiter limiter(&graph.environment);
    ChunkedRun run(graph.environment, peakHold);
    limiter.setInput(&peakHold);
    capacitor.setInput(&noise);
    peakHold.setInput(&capacitor);
    noise.setInput(&run.getInput());
    const Floats signal = randomSignal(4096, 8);
    Floats out, normalized(256);
    out.reserve(signal.size());
    testing_support::AllocationCounter counter;
    for (size_t at = 0; at < signal.size(); at += 256) {
        run.runBlock(signal.data() + at, 256, out);
        limiter.fetch(256);
        normalizer.restart();
        normalizer.process(out.data() + at, normalized.data(), 256, false);
    }
    EXPECT_EQ(counter.count(), 0u);
    EXPECT_EQ(out.size(), signal.size());
}
