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
#include <numeric>

using level_test::allFinite;
using level_test::ChunkedRun;
using level_test::Floats;
using level_test::randomSignal;
using level_test::referenceDb;
using level_test::runThrough;
using wave::Capacitor;
using wave::Environment;
using wave::GainComputer;

namespace {

constexpr float kRate = 48000.0f;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

struct Graph : Environment {
    Graph() : Environment(256, 48000) { setSampleRate(kRate); }
};

// A control signal of one fixed value.
class Constant : public wave::Source {
public:
    Constant(Environment* environment, float value) : wave::Source(environment), value(value) {}
    void process(wave::BasicBlock<float>* block, int32_t numSamples, int32_t) override {
        std::fill_n(block->getData(), numSamples, value);
    }
    float value;
};

// Gain reduction fraction for a gain change in dB.
double reductionFor(double changeDb) {
    return 1.0 - std::pow(10.0, -changeDb / 20.0);
}

} // namespace

TEST(GainComputer, FollowsTheSoftAndHardKneeLaws) {
    struct Case {
        float over, knee, ratio, limit, expected;
    };
    // Over the threshold by `over` dB: inside a 6 dB knee the change is (over + 3)^2 / 12 times the slope;
    // a ratio of 99.9999 and more limits (slope 1).
    const Case cases[] = {
        {0.0f, 6.0f, 2.0f, 30.0f, 0.375f},     {-1.5f, 6.0f, 2.0f, 30.0f, 0.09375f},
        {-3.0f, 6.0f, 2.0f, 30.0f, 0.0f},      {-3.5f, 6.0f, 2.0f, 30.0f, 0.0f},
        {-40.0f, 6.0f, 2.0f, 30.0f, 0.0f},     {3.0f, 6.0f, 2.0f, 30.0f, 1.5f},
        {3.5f, 6.0f, 2.0f, 30.0f, 1.75f},      {10.0f, 6.0f, 2.0f, 30.0f, 5.0f},
        {0.5f, 0.0f, 2.0f, 30.0f, 0.25f},      {-0.1f, 0.0f, 2.0f, 30.0f, 0.0f},
        {0.5f, 5e-4f, 4.0f, 30.0f, 0.375f},    {kNaN, 6.0f, 2.0f, 12.0f, 0.0f},
        {10.0f, 6.0f, 99.9999f, 30.0f, 10.0f}, {10.0f, 6.0f, 99.99f, 30.0f, 10.0f * (1.0f - 1.0f / 99.99f)},
        {20.0f, 6.0f, 1000.0f, 12.0f, 12.0f}};
    for (const Case& c : cases)
        EXPECT_NEAR(GainComputer::gainChangeDb(c.over - 20.0f, -20.0f, c.knee, c.ratio, c.limit), c.expected,
                    1e-5f)
            << c.over << " " << c.ratio;
    for (const float edge : {-3.0f, 3.0f}) // continuous across both knee edges
        EXPECT_NEAR(GainComputer::gainChangeDb(edge - 20.001f, -20.0f, 6.0f, 2.0f, 30.0f),
                    GainComputer::gainChangeDb(edge - 19.999f, -20.0f, 6.0f, 2.0f, 30.0f), 2e-3f);
}

TEST(FastLevel, MatchesTheLibraryConversions) {
    for (double x = 1.1e-10; x < 1e7; x *= 1.0137) {
        const double expected = referenceDb(static_cast<float>(x)); // within a few float ulps
        EXPECT_NEAR(wave::fastAmplitudeToDb(static_cast<float>(x)), expected,
                    2e-6 + 4e-7 * std::fabs(expected))
            << x;
    }
    EXPECT_NEAR(wave::fastAmplitudeToDb(-0.5f), referenceDb(0.5), 1e-5);
    for (const float silent : {0.0f, 9e-11f, -1e-12f, kNaN})
        EXPECT_EQ(wave::fastAmplitudeToDb(silent), -180.0f) << silent;
    for (double db = -170.0; db < 80.0; db += 0.73)
        EXPECT_NEAR(wave::fastDbToAmplitude(static_cast<float>(db)) / std::pow(10.0, db / 20.0), 1.0, 3e-6)
            << db;
    EXPECT_EQ(wave::fastDbToAmplitude(-1e6f), wave::fastExp(-88.37626f));
    EXPECT_TRUE(std::isfinite(wave::fastExp(1e6f)));
}

TEST(Capacitor, AttackReleasePassThroughAndRecovery) {
    Graph env;
    Capacitor passing(&env); // zero times pass the input unchanged
    const Floats signal = randomSignal(1000, 1);
    EXPECT_EQ(runThrough(env, passing, signal, {7, 256, 33}), signal);

    Capacitor attack(&env, 0.01f, 0.5f);
    const Floats out = runThrough(env, attack, Floats(1000, 1.0f), {100, 256, 17});
    // 90 % after 480 samples; after n samples the gap is (1 - c)^n with c = 1 - exp(-ln 10 / 480).
    EXPECT_NEAR(out[479], 0.9f, 1e-6f);
    EXPECT_LT(out[470], 0.899f);
    EXPECT_GT(out[490], 0.901f);
    const double keep = std::exp(-std::log(10.0) / 480.0);
    for (size_t n = 0; n < out.size(); n += 37)
        EXPECT_NEAR(out[n], 1.0 - std::pow(keep, static_cast<double>(n + 1)), 2e-6) << n;

    Capacitor release(&env, 0.0f, 0.1f);
    Floats impulse(6000, 0.0f);
    impulse[0] = 1.0f;
    const Floats released = runThrough(env, release, impulse);
    EXPECT_EQ(released[0], 1.0f);             // attack 0 jumps
    EXPECT_NEAR(released[4800], 0.1f, 1e-5f); // 0.1 s = 4800 samples to fall to 10 %

    for (const float bad : {kNaN, kInf, -kInf}) { // recovers from non-finite input
        Capacitor capacitor(&env, 0.001f, 0.002f);
        Floats noisy = randomSignal(2000, 2);
        noisy[300] = bad;
        EXPECT_TRUE(allFinite(runThrough(env, capacitor, noisy, {256}), 512)) << bad;
    }
}

TEST(Capacitor, FlushesTinyStatesInBlocksShorterThanFour) {
    Graph env;
    Capacitor capacitor(&env, 0.0f, 0.001f); // ten times smaller every 48 samples
    Floats signal(2000, 0.0f);
    signal[0] = 1.0f;
    // Unflushed, the state would reach about 1e-41 by the end: a subnormal float.
    const Floats out = runThrough(env, capacitor, signal, {3, 1, 2});
    EXPECT_TRUE(
        std::none_of(out.begin(), out.end(), [](float v) { return std::fpclassify(v) == FP_SUBNORMAL; }));
}

TEST(NormalizerStub, DividesBySignalsOwnLevelAndHandlesSilence) {
    Graph env;
    wave::NormalizerStub normalizer(&env);
    // Followers without smoothing: the envelope is |x| floored at 0.01.
    const Floats signal{0.5f, -0.25f, 0.004f, -2.0f};
    Floats out(64, -1.0f);
    normalizer.process(signal.data(), out.data(), 4, false);
    EXPECT_FALSE(normalizer.isSilent());
    for (size_t i = 0; i < 4; ++i)
        EXPECT_FLOAT_EQ(out[i], (Floats{1.0f, -1.0f, 0.4f, -1.0f})[i]);
    normalizer.setOutputInDb(true); // in place and in dB
    Floats data = signal;
    normalizer.process(data.data(), data.data(), 4, false);
    EXPECT_NEAR(data[0], 0.0f, 1e-5f);
    EXPECT_NEAR(data[2], referenceDb(0.4), 1e-4);

    // Silence gives a constant and keeps the envelope.
    normalizer.setOutputInDb(false);
    normalizer.getSlowFollower().setState(0.005);
    const Floats silence(64, 0.0f);
    normalizer.process(silence.data(), out.data(), 64, true);
    EXPECT_TRUE(normalizer.isSilent());
    EXPECT_EQ(out, silence);
    normalizer.setOutputInDb(true);
    normalizer.process(silence.data(), out.data(), 64, true);
    EXPECT_EQ(out, Floats(64, -180.0f));
    EXPECT_EQ(normalizer.getSlowFollower().getState(), 0.005);
    const Floats quiet(64, -0.005f); // |x0| / 0.01 = 0.5
    normalizer.process(quiet.data(), out.data(), 64, true);
    EXPECT_NEAR(out[63], referenceDb(0.5), 1e-4);

    normalizer.getSlowFollower().getReleaseTime().getParameter().jumpTo(0.05f); // recovers from NaN
    Floats block = randomSignal(64, 3);
    block[5] = kNaN;
    normalizer.process(block.data(), out.data(), 64, false);
    block[5] = 0.3f;
    normalizer.process(block.data(), out.data(), 64, false);
    EXPECT_TRUE(allFinite(out, 0));
}

TEST(NormalizerStub, StartUpWindowHandsTheFastEnvelopeOver) {
    Graph env;
    wave::NormalizerStub normalizer(&env);
    auto& slow = normalizer.getSlowFollower();
    slow.getAttackTime().getParameter().jumpTo(100.0f);
    slow.getReleaseTime().getParameter().jumpTo(100.0f);
    slow.setState(0.5);
    Floats block(240, 0.1f), out(240);
    normalizer.restart();
    EXPECT_EQ(normalizer.getStartUpCountdown(), 24000); // 500 ms at 48 kHz
    slow.setState(0.4);
    normalizer.restart(); // ignored while counting down
    EXPECT_EQ(normalizer.getStartUpCountdown(), 24000);
    for (int b = 0; b < 99; ++b)
        normalizer.process(block.data(), out.data(), 240, false);
    EXPECT_EQ(normalizer.getStartUpCountdown(), 240);
    EXPECT_GT(slow.getState(), 0.39); // the slow follower barely moved
    normalizer.process(block.data(), out.data(), 240, false);
    EXPECT_EQ(normalizer.getStartUpCountdown(), 0);
    EXPECT_DOUBLE_EQ(slow.getState(), 0.1f); // the unsmoothed fast follower now leads
    slow.setState(0.0099);
    normalizer.restart(); // the envelope rests at its floor: nothing to settle
    EXPECT_EQ(normalizer.getStartUpCountdown(), 0);
}

namespace {

// Reference: the maximum of finite |x| over samples n - window .. n, by scanning.
Floats slidingMaximum(const Floats& signal, size_t window) {
    Floats out(signal.size());
    for (size_t n = 0; n < signal.size(); ++n)
        for (size_t k = n >= window ? n - window : 0; k <= n; ++k)
            if (std::isfinite(signal[k]))
                out[n] = std::max(out[n], std::fabs(signal[k]));
    return out;
}

Floats runPeakHold(const Floats& signal, float holdMs, const std::vector<int32_t>& chunks) {
    Graph env;
    wave::PeakHold peakHold(&env, holdMs, 50.0f);
    return runThrough(env, peakHold, signal, chunks);
}

} // namespace

TEST(PeakHold, HoldsAnIsolatedPeakForTheHoldTime) {
    Floats signal(2000, 0.0f);
    signal[100] = -0.8f;
    const Floats out = runPeakHold(signal, 10.0f, {64, 200, 13});
    // 10 ms at 48 kHz: held from the peak until 480 samples after it, gone one sample later.
    EXPECT_EQ(Floats(out.begin() + 99, out.begin() + 582), [] {
        Floats expected(483, 0.8f);
        expected.front() = expected.back() = 0.0f;
        return expected;
    }());
}

TEST(PeakHold, EqualsTheSlidingMaximumOfRandomSignals) {
    // Noise, a slow sine (long falling runs) and plateaus exercise every path of the queue.
    Floats noise = randomSignal(6000, 4), sine(6000), steps(6000);
    for (size_t n = 0; n < sine.size(); ++n) {
        const auto t = static_cast<float>(n);
        sine[n] = std::sin(t * 0.003f) * (1.0f + 0.3f * std::sin(t * 0.05f));
        steps[n] = static_cast<float>((n / 37) % 5) * ((n / 111) % 2 == 0 ? 1.0f : -1.0f);
    }
    for (const Floats* signal : {&noise, &sine, &steps})
        for (const float holdMs : {0.0f, 0.02f, 1.0f, 7.3f, 50.0f})
            EXPECT_EQ(runPeakHold(*signal, holdMs, {1, 255, 64, 3}),
                      slidingMaximum(*signal, static_cast<size_t>(holdMs * kRate / 1000.0f)))
                << holdMs;
}

TEST(PeakHold, NaNAndInfinityPassAfterTheWindow) {
    Floats signal = randomSignal(3000, 5);
    signal[200] = kNaN;
    signal[201] = kInf;
    const Floats out = runPeakHold(signal, 2.0f, {128});
    const Floats expected = slidingMaximum(signal, 96);
    EXPECT_EQ(Floats(out.begin() + 300, out.end()), Floats(expected.begin() + 300, expected.end()));
}

TEST(NoiseFilter, AddsTheExactLinearCongruentialSequence) {
    Graph env;
    Constant level(&env, 0.5f), shape(&env, 0.25f);
    wave::NoiseFilter noise(&env, 12345u);
    noise.setControls(&level, &shape);
    const Floats signal = randomSignal(3000, 6);
    const Floats out = runThrough(env, noise, signal, {100, 1, 256});
    // The generator written out with 64-bit arithmetic and an explicit modulus.
    uint64_t state = 12345u;
    const auto next = [&] {
        state = (state * 1103515245ull + 12345ull) % 4294967296ull;
        return 2.0f * static_cast<float>(state % 2147483648ull) * 4.656613e-10f - 1.0f;
    };
    for (size_t n = 0; n < signal.size(); ++n) {
        const float r1 = next(), r2 = next();
        ASSERT_EQ(out[n], signal[n] + (r1 + r2) * (0.5f * 0.25f) * 0.5f) << n;
    }
    EXPECT_EQ(noise.getGeneratorState(), static_cast<uint32_t>(state));
    uint32_t raw = 1;
    wave::NoiseFilter::nextValue(raw);
    wave::NoiseFilter::nextValue(raw);
    EXPECT_EQ(raw, 2524885223u); // 1103527590 after one step, then wrapped modulo 2^32
    raw = 0x7fffffffu * 3u;
    for (int i = 0; i < 100000; ++i) { // values stay in [-1, 1)
        const float v = wave::NoiseFilter::nextValue(raw);
        ASSERT_TRUE(v >= -1.0f && v < 1.0f) << v;
    }
}

TEST(NoiseFilter, NoiseIsTriangularAndSilentWithoutControls) {
    Graph env;
    Constant level(&env, 1.0f);
    wave::NoiseFilter noise(&env);
    ChunkedRun run(env, noise);
    noise.setInput(&run.getInput());
    const Floats signal = randomSignal(500, 7);
    EXPECT_EQ(run.run(signal), signal);
    noise.setControls(&level, &level);
    const Floats out = run.run(Floats(200000, 0.0f));
    // The mean of two uniform values on (-1, 1): mean 0, variance 1/6.
    const auto size = static_cast<double>(out.size());
    EXPECT_NEAR(std::accumulate(out.begin(), out.end(), 0.0) / size, 0.0, 0.005);
    EXPECT_NEAR(std::inner_product(out.begin(), out.end(), out.begin(), 0.0) / size, 1.0 / 6.0, 0.003);
}

TEST(Detector, ReducesByTheGainComputerCurve) {
    Graph env;
    wave::Detector detector(&env);
    detector.attackSeconds.setValue(0.0f);
    detector.releaseSeconds.setValue(0.0f);
    detector.thresholdDb.setValue(-20.0f);
    const auto settled = [&](float value) {
        return runThrough(env, detector, Floats(64, value), {100, 33})[63];
    };
    // 0.5 is 13.98 dB over: ratio 4 takes three quarters of it.
    const double over = referenceDb(0.5) + 20.0;
    EXPECT_NEAR(settled(-0.5f), reductionFor(over * 0.75), 1e-5);
    // 1 dB over: inside the soft knee (4^2 / 12 dB over) or on the hard corner (1 dB over).
    const auto oneDbOver = static_cast<float>(std::pow(10.0, -19.0 / 20.0));
    EXPECT_NEAR(settled(oneDbOver), reductionFor(16.0 / 12.0 * 0.75), 2e-5);
    detector.kneeStyle.setValue(wave::Detector::kHardKnee);
    EXPECT_NEAR(settled(oneDbOver), reductionFor(0.75), 2e-5);
    detector.purpose.setValue(wave::Detector::kLimiter); // ignores the ratio
    EXPECT_NEAR(settled(0.5f), reductionFor(over), 1e-5);
    EXPECT_EQ(settled(0.05f), 0.0f);
}

TEST(Detector, SmoothsReportsSteadyStateAndRecovers) {
    Graph env;
    wave::Detector detector(&env);
    detector.purpose.setValue(wave::Detector::kLimiter);
    detector.kneeStyle.setValue(wave::Detector::kHardKnee);
    detector.thresholdDb.setValue(-12.0f);
    detector.attackSeconds.setValue(0.01f);
    const Floats out = runThrough(env, detector, Floats(2000, 1.0f), {100, 33});
    EXPECT_NEAR(-referenceDb(1.0 - out[479]), 10.8, 1e-3); // 90 % of 12 dB after 480 samples
    EXPECT_FALSE(detector.isSteady());                     // non-constant blocks never count as steady
    wave::ConstValueBlock constant(&env, 1.0f);
    Floats settled(256);
    detector.computeGainReduction(constant.getData(), settled.data(), 256, true);
    EXPECT_TRUE(detector.isSteady());
    EXPECT_NEAR(settled[255], reductionFor(12.0), 1e-5);
    Floats signal = randomSignal(1000, 9); // recovers from non-finite input
    signal[10] = kNaN;
    signal[20] = kInf;
    EXPECT_TRUE(allFinite(runThrough(env, detector, signal, {100, 33}), 200));
}

TEST(SafetyLimiter, OutputsTheGainThatKeepsTheSignalAtTheThreshold) {
    Graph env;
    wave::SafetyLimiter limiter(&env);
    limiter.setThreshold(0.0f);
    limiter.setKnee(0.0f);
    limiter.setAttack(0.0f);
    limiter.setRelease(0.0f);
    const Floats gains = runThrough(env, limiter, Floats{2.0f, -4.0f, 0.5f, 1.0f});
    EXPECT_NEAR(gains[0], 0.5f, 1e-5f);
    EXPECT_NEAR(gains[1], 0.25f, 1e-5f);
    EXPECT_EQ(Floats(gains.begin() + 2, gains.end()), (Floats{1.0f, 1.0f}));
}

TEST(LevelBlocks, ProcessWithoutAllocating) {
    Graph env;
    Capacitor capacitor(&env, 0.01f, 0.1f);
    wave::PeakHold peakHold(&env, 5.0f, 20.0f);
    Constant level(&env, 0.1f);
    wave::NoiseFilter noise(&env);
    noise.setControls(&level, &level);
    wave::NormalizerStub normalizer(&env);
    wave::SafetyLimiter limiter(&env);
    ChunkedRun run(env, peakHold);
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
