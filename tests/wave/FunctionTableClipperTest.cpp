#include "LevelTestUtil.h"

#include "support/AllocationCounter.h"
#include "support/LockCounter.h"
#include "wave/FunctionTableClipper.h"
#include "wave/sr/ConverterStyle.h"
#include "wave/sr/IIRConverterStyle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <functional>
#include <numbers>

using level_test::Floats;
using level_test::runThrough;

namespace {

constexpr double kPi = std::numbers::pi;

// A function given as a callable, for tabulating in tests.
class TabulatedFunction : public FunctionTableFunction {
public:
    explicit TabulatedFunction(std::function<double(double)> f) : f(std::move(f)) {}
    double evaluate(double x) const override { return f(x); }

private:
    std::function<double(double)> f;
};

double dbToGain(double db) {
    return std::pow(10.0, db / 20.0);
}

// The two characters the equaliser uses.
struct Characters {
    FunctionTableClipper::Style subtle{-12.0f, 20.0f, -17.0f, 0.0f, WaveShaper::kTanHyperbolic,
                                       true,   1.0f,  1.0f};
    FunctionTableClipper::Style warm{-30.0f, 6.0f, -8.0f, 0.55f, WaveShaper::kTube, false, 1.0f, 1.0f};
};

const Characters& characters() {
    static const Characters instance;
    return instance;
}

Floats sine(double frequency, double rate, size_t length, double amplitude) {
    Floats x(length);
    for (size_t t = 0; t < length; ++t)
        x[t] =
            static_cast<float>(amplitude * std::sin(2.0 * kPi * frequency / rate * static_cast<double>(t)));
    return x;
}

// The amplitude of the component at a whole number of cycles over x[from, from + length).
double amplitudeAt(const Floats& x, size_t from, size_t length, double cycles) {
    std::complex<double> sum = 0.0;
    for (size_t t = 0; t < length; ++t)
        sum += static_cast<double>(x[from + t]) *
               std::polar(1.0, -2.0 * kPi * cycles * static_cast<double>(t) / static_cast<double>(length));
    return 2.0 * std::abs(sum) / static_cast<double>(length);
}

struct ClipperSetup {
    explicit ClipperSetup(float rate = 48000.0f) : environment(256, 0) { environment.setSampleRate(rate); }
    wave::Environment environment;
};

} // namespace

TEST(FunctionTableFunction, TableOf256OverTheDriveRangeHitsBothEnds) {
    TabulatedFunction f([](double x) { return std::exp(3.0 * x) - x * x; });
    f.set(0.0, 1.0, 256);
    ASSERT_EQ(f.getSize(), 256);
    ASSERT_EQ(f.getTable().size(), 257u);
    EXPECT_EQ(f.value(0.0f), static_cast<float>(f.evaluate(0.0)));
    EXPECT_EQ(f.value(1.0f), static_cast<float>(f.evaluate(1.0)));
    EXPECT_EQ(f.getTable()[256], f.getTable()[255]);
    // Between the entries, linear interpolation: within h^2 max|f''| / 8 of the function.
    const double bound = std::pow(1.0 / 255.0, 2.0) * (9.0 * std::exp(3.0) + 2.0) / 8.0;
    for (double x = 0.0; x <= 1.0; x += 0.00137)
        EXPECT_NEAR(f.value(static_cast<float>(x)), f.evaluate(x), bound + 1e-5 * f.evaluate(x)) << x;
}

TEST(FunctionTableFunction, SizesRangesAndDegenerateTables) {
    TabulatedFunction line([](double x) { return 2.0 * x + 1.0; });
    for (const auto& [count, size] :
         std::vector<std::pair<int32_t, int32_t>>{{256, 256},
                                                  {257, 512},
                                                  {3, 4},
                                                  {1, 2},
                                                  {0, 2},
                                                  {-5, 2},
                                                  {1 << 30, FunctionTableFunction::kMaximumSize}}) {
        line.set(0.0, 1.0, count);
        EXPECT_EQ(line.getSize(), size) << count;
    }
    // A straight line comes back exactly anywhere, for a range around zero given either way round.
    for (const auto& [low, high] :
         std::vector<std::pair<double, double>>{{-1.0, 3.0}, {3.0, -1.0}, {0.25, 0.75}}) {
        line.set(low, high, 100);
        EXPECT_EQ(line.getLow(), static_cast<float>(std::min(low, high)));
        for (double x = std::min(low, high); x <= std::max(low, high); x += 0.0173)
            EXPECT_NEAR(line.value(static_cast<float>(x)), 2.0 * x + 1.0, 2e-6)
                << low << ".." << high << " at " << x;
    }
    // An empty range holds the one value.
    line.set(0.5, 0.5, 16);
    EXPECT_FLOAT_EQ(line.value(0.5f), 2.0f);
}

TEST(FunctionTableClipperStyle, PreScaleFollowsTheGainsInDecibels) {
    const auto& subtle = characters().subtle.getPreScale();
    EXPECT_FLOAT_EQ(subtle.value(0.0f), static_cast<float>(dbToGain(-12.0)));
    EXPECT_FLOAT_EQ(subtle.value(1.0f), 10.0f);
    // Subtle without a boost above 16 dB drives at 0.15: -12 + 32 * 0.15 = -7.2 dB.
    EXPECT_NEAR(subtle.value(0.15f), dbToGain(-7.2), 1e-4 * dbToGain(-7.2));
    const auto& warm = characters().warm.getPreScale();
    EXPECT_NEAR(warm.value(0.5f), dbToGain(-12.0), 1e-4);
    EXPECT_NEAR(warm.value(0.1f), dbToGain(-26.4), 1e-5);
}

TEST(FunctionTableClipperStyle, PostScaleRestoresTheMeanPeakAtTheReference) {
    // Checked against the generic curves, not the fast forms the style runs.
    for (const FunctionTableClipper::Style* style : {&characters().subtle, &characters().warm}) {
        const WaveShaper reference(1.0f, 1.0f, style->getShaper().getType());
        const double r = dbToGain(style->getReference());
        for (float drive : {0.0f, 0.1f, 0.5f, 0.77f, 1.0f}) {
            const auto peak = static_cast<float>(
                r * dbToGain(style->getLowGain() + (style->getHighGain() - style->getLowGain()) * drive));
            float in[2] = {peak, -peak}, out[2];
            reference.process(in, nullptr, out, 2);
            const double meanPeak =
                0.5 * (out[0] - std::min(out[1], 0.0f)) * style->getPostScale().value(drive);
            EXPECT_NEAR(meanPeak, r * dbToGain(style->getOffset()), 2e-4 * r) << "drive " << drive;
        }
    }
    // The tube's halves differ: the positive peak alone would give another make-up gain.
    const auto& warm = characters().warm;
    const float peak = static_cast<float>(dbToGain(-8.0) * warm.getPreScale().value(1.0f));
    EXPECT_GT(std::fabs(warm.getShaper().processSample(-peak)), 1.2f * warm.getShaper().processSample(peak));
}

TEST(FunctionTableClipper, ReferenceLevelPeaksComeBackAtTheReference) {
    // A quarter of the rate puts samples on the sine's peaks, and without oversampling nothing
    // filters the harmonics: the output's peaks are the shaper's at the input's peaks. (The tanh
    // curve's make-up is calibrated without its linear level, which only lifts the output.)
    const auto& warm = characters().warm;
    for (float drive : {0.0f, 0.1f, 0.4f, 1.0f}) {
        ClipperSetup setup;
        FunctionTableClipper clipper(&setup.environment, &warm, nullptr);
        clipper.getDrive().jumpTo(drive);
        const double r = dbToGain(warm.getReference());
        const Floats out = runThrough(setup.environment, clipper, sine(12000.0, 48000.0, 1024, r));
        const auto [low, high] = std::minmax_element(out.begin() + 16, out.end());
        EXPECT_NEAR(0.5 * (*high - *low), r * dbToGain(warm.getOffset()), 2e-4 * r) << "drive " << drive;
        // The halves differ: the tube's lower half reaches further.
        if (drive > 0.3f) {
            EXPECT_GT(-*low, 1.2f * *high);
        }
    }
}

TEST(FunctionTableClipper, SubtleLeavesAQuietSignalUnchanged) {
    ClipperSetup setup;
    sr::IIRConverterStyle minimumPhase(setup.environment);
    FunctionTableClipper clipper(&setup.environment, &characters().subtle, &minimumPhase);
    clipper.getDrive().jumpTo(0.15f);
    // 1 kHz at -40 dB, on whole cycles of the measured stretch.
    const Floats out = runThrough(setup.environment, clipper, sine(1000.0, 48000.0, 9600, 0.01));
    // Below the linear level the curve is a straight line; the make-up gain was calibrated on
    // tanh at the reference level, a / tanh(a).
    const double a = dbToGain(-17.0) * dbToGain(-7.2);
    const double gain = amplitudeAt(out, 4800, 4800, 100.0) / 0.01;
    EXPECT_NEAR(gain, a / std::tanh(a), 1e-3);
    EXPECT_LT(std::abs(20.0 * std::log10(gain)), 0.02);
    for (double harmonic : {2.0, 3.0, 5.0})
        EXPECT_LT(amplitudeAt(out, 4800, 4800, 100.0 * harmonic), 1e-5 * 0.01) << harmonic;
}

TEST(FunctionTableClipper, SubtleBendsOnlyAboveItsLinearLevel) {
    // At full drive a 0.04 sine reaches 0.4 at the shaper; its envelope puts the linear level at
    // about 0.41, so the curve stays straight. Twice as loud, the peaks pass the level and bend.
    ClipperSetup setup;
    sr::IIRConverterStyle minimumPhase(setup.environment);
    sr::ConverterStyle linearPhase(setup.environment);
    for (sr::ConverterStyleBase* style :
         std::initializer_list<sr::ConverterStyleBase*>{nullptr, &minimumPhase, &linearPhase}) {
        for (double amplitude : {0.04, 0.08}) {
            FunctionTableClipper clipper(&setup.environment, &characters().subtle, style);
            clipper.getDrive().jumpTo(1.0f);
            const Floats out =
                runThrough(setup.environment, clipper, sine(1000.0, 48000.0, 48000, amplitude));
            const double h1 = amplitudeAt(out, 38400, 9600, 200.0);
            const double h3 = amplitudeAt(out, 38400, 9600, 600.0);
            if (amplitude < 0.05) {
                EXPECT_LT(h3, 1e-5 * h1)
                    << "straight below the level, factor " << (style ? style->getFactor() : 1);
            } else {
                EXPECT_GT(h3, 1e-3 * h1)
                    << "bent above the level, factor " << (style ? style->getFactor() : 1);
            }
        }
    }
}

TEST(FunctionTableClipper, WarmAddsMainlyEvenHarmonics) {
    // Over the drives the equaliser uses, at the reference level.
    for (float drive : {0.1f, 0.3f, 0.5f}) {
        ClipperSetup setup;
        sr::IIRConverterStyle minimumPhase(setup.environment);
        FunctionTableClipper clipper(&setup.environment, &characters().warm, &minimumPhase);
        clipper.getDrive().jumpTo(drive);
        const Floats out =
            runThrough(setup.environment, clipper, sine(1000.0, 48000.0, 9600, dbToGain(-8.0)));
        const double h2 = amplitudeAt(out, 4800, 4800, 200.0);
        const double h3 = amplitudeAt(out, 4800, 4800, 300.0);
        EXPECT_GT(h2, 2.0 * h3) << "drive " << drive;
        EXPECT_GT(h2, 1e-3 * amplitudeAt(out, 4800, 4800, 100.0)) << "drive " << drive;
    }
}

TEST(FunctionTableClipper, OversamplingKeepsAliasesBelowTheFundamental) {
    // 15 kHz at 48 kHz through Warm at the highest drive the equaliser uses (0.5, for a 30 dB boost),
    // at -10 dB: every harmonic lies above 24 kHz, so whatever the output holds on the 3 kHz grid
    // the harmonics fold onto, apart from the tone, is aliasing.
    constexpr size_t kLength = 4800;
    const auto worstAliasDb = [](sr::ConverterStyleBase* style, wave::Environment& environment) {
        FunctionTableClipper clipper(&environment, &characters().warm, style);
        clipper.getDrive().jumpTo(0.5f);
        const Floats out =
            runThrough(environment, clipper, sine(15000.0, 48000.0, 2 * kLength, dbToGain(-10.0)));
        const double fundamental = amplitudeAt(out, kLength, kLength, 1500.0);
        double worst = 0.0;
        for (double cycles = 300.0; cycles < 2400.0; cycles += 300.0)
            if (cycles != 1500.0)
                worst = std::max(worst, amplitudeAt(out, kLength, kLength, cycles));
        return 20.0 * std::log10(worst / fundamental);
    };
    ClipperSetup setup;
    sr::IIRConverterStyle minimumPhase(setup.environment);
    sr::ConverterStyle linearPhase(setup.environment);
    EXPECT_GT(worstAliasDb(nullptr, setup.environment), -50.0)
        << "without oversampling the harmonics fold back";
    EXPECT_LT(worstAliasDb(&minimumPhase, setup.environment), -70.0);
    EXPECT_LT(worstAliasDb(&linearPhase, setup.environment), -70.0);
}

TEST(FunctionTableClipper, LatencyIsTheConverterStyles) {
    ClipperSetup setup;
    sr::ConverterStyle linearPhase(setup.environment);
    sr::IIRConverterStyle minimumPhase(setup.environment);
    FunctionTableClipper clipper(&setup.environment, &characters().subtle, nullptr);
    EXPECT_EQ(clipper.getLatency(), 0);
    clipper.setConverterStyle(&minimumPhase);
    EXPECT_EQ(clipper.getLatency(), 3);
    clipper.setConverterStyle(&linearPhase);
    EXPECT_EQ(clipper.getLatency(), linearPhase.getLatency());
    // A small impulse stays in the straight part of the curve: it comes out whole, at the latency.
    clipper.getDrive().jumpTo(0.15f);
    Floats in(1024, 0.0f);
    in[100] = 0.01f;
    const Floats out = runThrough(setup.environment, clipper, in);
    EXPECT_EQ(std::max_element(out.begin(), out.end()) - out.begin(), 100 + linearPhase.getLatency());
}

TEST(FunctionTableClipper, RampingDriveIsLookedUpPerSample) {
    ClipperSetup setup;
    FunctionTableClipper clipper(&setup.environment, &characters().warm, nullptr);
    FloatParameter twin(&setup.environment, 0.0f);
    twin.setRange(0.0f, 1.0f);
    const Floats in = sine(440.0, 48000.0, 256, 0.3);
    runThrough(setup.environment, clipper, Floats(256, 0.0f));
    clipper.getDrive().setValue(1.0f, 4.0f);
    twin.setValue(1.0f, 4.0f);
    const Floats out = runThrough(setup.environment, clipper, in);
    const FloatParameter::ValueBlock& ramp = twin.getValueBlock(256);
    ASSERT_FALSE(ramp.isConstant());
    const float* drives = ramp.getData();
    const auto& style = characters().warm;
    for (size_t i = 0; i < in.size(); ++i) {
        const float d = drives[i];
        const float expected = style.getShaper().processSample(in[i] * style.getPreScale().value(d)) *
                               style.getPostScale().value(d);
        ASSERT_NEAR(out[i], expected, 1e-6f) << i;
    }
}

TEST(FunctionTableClipper, RecoversFromNaNInput) {
    ClipperSetup setup;
    sr::IIRConverterStyle minimumPhase(setup.environment);
    sr::ConverterStyle linearPhase(setup.environment);
    for (sr::ConverterStyleBase* style :
         std::initializer_list<sr::ConverterStyleBase*>{&minimumPhase, &linearPhase}) {
        for (const FunctionTableClipper::Style* character : {&characters().subtle, &characters().warm}) {
            FunctionTableClipper clipper(&setup.environment, character, style);
            Floats in = sine(1000.0, 48000.0, 4096, 0.3);
            in[300] = NAN;
            in[301] = INFINITY;
            const Floats out = runThrough(setup.environment, clipper, in);
            EXPECT_TRUE(level_test::allFinite(out, 1024));
        }
    }
}

TEST(FunctionTableClipper, ProcessingAndSwitchingAllocateNothing) {
    ClipperSetup setup;
    sr::IIRConverterStyle minimumPhase(setup.environment);
    sr::ConverterStyle linearPhase(setup.environment);
    FunctionTableClipper clipper(&setup.environment, &characters().subtle, &linearPhase);
    // Both converter styles have been seen once: from now on switching only selects.
    clipper.setConverterStyle(&minimumPhase);
    wave::Input input(&setup.environment);
    clipper.setInput(&input);
    const Floats signal = level_test::randomSignal(256, 7, 0.8f);
    testing_support::AllocationCounter allocations;
    testing_support::LockCounter locks;
    for (int32_t block = 0; block < 40; ++block) {
        if (block % 10 == 3)
            clipper.setConverterStyle(block % 20 == 3 ? static_cast<sr::ConverterStyleBase*>(&linearPhase)
                                                      : &minimumPhase);
        if (block % 7 == 2)
            clipper.setStyle(block % 14 == 2 ? &characters().warm : &characters().subtle);
        if (block % 5 == 0)
            clipper.getDrive().setValue(static_cast<float>(block % 3) * 0.4f);
        const auto n = static_cast<int32_t>(1 + block * 37 % 256);
        setup.environment.nextGeneration();
        input.setData(signal.data(), n);
        clipper.fetch(n);
        setup.environment.advance(n, false);
    }
    EXPECT_EQ(allocations.count(), 0u);
    EXPECT_EQ(locks.count(), 0);
}

TEST(LinearLevelOscillator, PassesThroughWithoutB) {
    ClipperSetup setup;
    WaveShaper::LinearLevelOscillator oscillator(&setup.environment, 0.0f);
    wave::Input input(&setup.environment);
    oscillator.setInput(&input);
    const Floats signal = level_test::randomSignal(200, 3);
    setup.environment.nextGeneration();
    input.setData(signal.data(), 200);
    const wave::BasicBlock<float>* out = oscillator.fetch(200);
    EXPECT_EQ(out, input.getCurrentBlock());
    EXPECT_EQ(Floats(out->getData(), out->getData() + 200), signal);
}

TEST(LinearLevelOscillator, EnvelopeFollowsTheClampedLevelAndMapsToTheBendLevel) {
    for (float b : {1.0f, 0.6f}) {
        ClipperSetup setup;
        WaveShaper::LinearLevelOscillator envelope(&setup.environment, b);
        envelope.setMapsToLevel(false);
        WaveShaper::LinearLevelOscillator level(&setup.environment, b);
        wave::Input input(&setup.environment);
        envelope.setInput(&input);
        level.setInput(&input);
        // Quiet, then a steady tone, then a tone far above the clamp, then silence.
        Floats signal(4 * 24000, 0.0f);
        const Floats tone = sine(1000.0, 48000.0, 24000, 0.8);
        std::copy(tone.begin(), tone.end(), signal.begin() + 24000);
        for (size_t t = 0; t < 24000; ++t)
            signal[48000 + t] = 20.0f * tone[t];
        Floats e, l;
        for (size_t done = 0; done < signal.size(); done += 240) {
            setup.environment.nextGeneration();
            input.setData(signal.data() + done, 240);
            const float* envelopeData = envelope.fetch(240)->getData();
            const float* levelData = level.fetch(240)->getData();
            e.insert(e.end(), envelopeData, envelopeData + 240);
            l.insert(l.end(), levelData, levelData + 240);
            setup.environment.advance(240, false);
        }
        EXPECT_EQ(e[20000], 0.0f);
        EXPECT_NEAR(e[47000], 0.8f, 0.04f) << "the tone's peak level";
        EXPECT_NEAR(e[71000], 2.0f, 0.1f) << "clamped at 2";
        EXPECT_LT(e.back(), 0.01f) << "released in silence";
        for (size_t t = 0; t < e.size(); t += 97) {
            const float a = std::min(0.25f * e[t], 1.0f);
            ASSERT_NEAR(l[t], b * (0.5f - 0.49f * (2.0f * a - a * a)), 1e-6f) << t;
        }
        EXPECT_FLOAT_EQ(l[100], 0.5f * b);
    }
}
