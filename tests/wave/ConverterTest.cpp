#include "support/AllocationCounter.h"
#include "support/LockCounter.h"
#include "wave/sr/ConverterStyle.h"
#include "wave/sr/IIRConverterStyle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <memory>
#include <numbers>
#include <vector>

namespace {

using Floats = std::vector<float>;
using Complex = std::complex<double>;

constexpr double kPi = std::numbers::pi;
constexpr float kRates[] = {44100.0f, 48000.0f, 96000.0f, 192000.0f};

// Feeds n base-rate samples at a time, cycling through the block sizes.
Floats upsample(sr::ConverterBase& converter, const Floats& base, int32_t factor,
                const std::vector<int32_t>& blocks = {256}) {
    Floats high(base.size() * static_cast<size_t>(factor));
    for (size_t done = 0, b = 0; done < base.size(); ++b) {
        const auto n = static_cast<int32_t>(
            std::min<size_t>(static_cast<size_t>(blocks[b % blocks.size()]), base.size() - done));
        converter.process(base.data() + done, high.data() + done * static_cast<size_t>(factor), n);
        done += static_cast<size_t>(n);
    }
    return high;
}

Floats downsample(sr::ConverterBase& converter, const Floats& high, int32_t factor,
                  const std::vector<int32_t>& blocks = {256}) {
    Floats base(high.size() / static_cast<size_t>(factor));
    for (size_t done = 0, b = 0; done < base.size(); ++b) {
        const auto n = static_cast<int32_t>(
            std::min<size_t>(static_cast<size_t>(blocks[b % blocks.size()]), base.size() - done));
        converter.process(high.data() + done * static_cast<size_t>(factor), base.data() + done, n);
        done += static_cast<size_t>(n);
    }
    return base;
}

Floats roundTrip(sr::ConverterStyleBase& style, const Floats& signal,
                 const std::vector<int32_t>& blocks = {256}) {
    const auto up = style.createInterpolator();
    const auto down = style.createDecimator();
    return downsample(*down, upsample(*up, signal, style.getFactor(), blocks), style.getFactor(), blocks);
}

Floats sine(double frequency, double rate, size_t length, double amplitude = 0.5) {
    Floats x(length);
    for (size_t t = 0; t < length; ++t)
        x[t] =
            static_cast<float>(amplitude * std::sin(2.0 * kPi * frequency / rate * static_cast<double>(t)));
    return x;
}

Floats impulse(size_t length, size_t at = 0) {
    Floats x(length, 0.0f);
    x[at] = 1.0f;
    return x;
}

// The spectrum of x at one frequency (radians per sample).
Complex dft(const Floats& x, double omega, size_t from = 0) {
    Complex sum = 0.0;
    for (size_t t = from; t < x.size(); ++t)
        sum += static_cast<double>(x[t]) * std::polar(1.0, -omega * static_cast<double>(t - from));
    return sum;
}

// The group delay of an impulse response at omega: Re(sum t h[t] e^-jwt / sum h[t] e^-jwt); at DC it is
// the centroid of the response.
double groupDelay(const Floats& response, double omega) {
    Complex weighted = 0.0;
    Complex plain = 0.0;
    for (size_t t = 0; t < response.size(); ++t) {
        const Complex rotation = std::polar(1.0, -omega * static_cast<double>(t));
        weighted += static_cast<double>(t) * static_cast<double>(response[t]) * rotation;
        plain += static_cast<double>(response[t]) * rotation;
    }
    return (weighted / plain).real();
}

double db(double ratio) {
    return 20.0 * std::log10(ratio);
}

double rms(const Floats& x, size_t from, size_t to) {
    double sum = 0.0;
    for (size_t t = from; t < to; ++t)
        sum += static_cast<double>(x[t]) * static_cast<double>(x[t]);
    return std::sqrt(sum / static_cast<double>(to - from));
}

// Pass-band test frequencies up to the edge, spread on a log scale.
std::vector<double> passBandFrequencies(double edge) {
    std::vector<double> frequencies;
    for (double f = 20.0; f < edge; f *= 1.4)
        frequencies.push_back(f);
    frequencies.push_back(edge);
    return frequencies;
}

// The elliptic discrimination k1 of an order-n low-pass with selectivity k, from the degree equation
// through the nome: q1 = q(k)^n and k1 = 4 sqrt(q1) prod ((1 + q1^2m) / (1 + q1^(2m-1)))^4. Independent
// of the arithmetic-geometric mean and Landen steps the design uses.
double discrimination(int32_t order, double k) {
    const double complement = std::sqrt(1.0 - k * k);
    const double q = std::exp(-kPi * std::comp_ellint_1(complement) / std::comp_ellint_1(k));
    const double q1 = std::pow(q, order);
    double product = 1.0;
    for (int32_t m = 1; m < 8; ++m)
        product *= std::pow((1.0 + std::pow(q1, 2 * m)) / (1.0 + std::pow(q1, 2 * m - 1)), 4.0);
    return 4.0 * std::sqrt(q1) * product;
}

// The half-band 0.5 (A0(z^2) + z^-1 A1(z^2)) of a coefficient list, even coefficients on path 0.
Complex halfBand(const float* coefficients, int32_t count, double omega) {
    const Complex zInverse = std::polar(1.0, -omega);
    const Complex z2Inverse = zInverse * zInverse;
    Complex paths[2] = {1.0, 1.0};
    for (int32_t i = 0; i < count; ++i) {
        const double a = coefficients[i];
        paths[i % 2] *= (a + z2Inverse) / (1.0 + a * z2Inverse);
    }
    return 0.5 * (paths[0] + zInverse * paths[1]);
}

struct ConverterSetup {
    explicit ConverterSetup(float rate) : environment(512, 0) { environment.setSampleRate(rate); }
    wave::Environment environment;
};

} // namespace

TEST(FIRConverter, RoundTripIsTheInputDelayedByTheLatency) {
    for (float rate : kRates) {
        ConverterSetup setup(rate);
        sr::ConverterStyle style(setup.environment);
        ASSERT_EQ(style.getFactor(), 2);
        ASSERT_DOUBLE_EQ(style.getPassBandEdge(), 20000.0);
        const int32_t latency = style.getLatency();
        double worstDb = -300.0;
        for (double f : passBandFrequencies(style.getPassBandEdge())) {
            const Floats in = sine(f, rate, 8192);
            const Floats out = roundTrip(style, in);
            Floats error(in.size(), 0.0f);
            const auto from = static_cast<size_t>(4 * style.getTaps());
            for (size_t t = from; t < in.size(); ++t)
                error[t] = out[t] - in[t - static_cast<size_t>(latency)];
            worstDb = std::max(worstDb, db(rms(error, from, in.size()) / rms(in, from, in.size())));
        }
        EXPECT_LT(worstDb, -70.0) << "at " << rate << " Hz";
    }
}

TEST(FIRConverter, StopBandRejectionIsAtLeast70dB) {
    for (float rate : kRates) {
        ConverterSetup setup(rate);
        sr::ConverterStyle style(setup.environment);
        const double highRate = 2.0 * rate;
        const double stopEdge = style.getStopBandEdge();
        ASSERT_NEAR(stopEdge, rate - 20000.0, 1e-6);

        // The interpolator's images: its response to one base-rate impulse, against its DC gain.
        const auto up = style.createInterpolator();
        const Floats response = upsample(*up, impulse(1024), 2);
        const double dc = std::abs(dft(response, 0.0));
        double worstImage = -300.0;
        for (int32_t i = 0; i <= 400; ++i) {
            const double f = stopEdge + (rate - stopEdge) * i / 400.0;
            worstImage = std::max(worstImage, db(std::abs(dft(response, 2.0 * kPi * f / highRate)) / dc));
        }
        EXPECT_LT(worstImage, -70.0) << "images at " << rate << " Hz";

        // The decimator's aliases: a stop-band tone at the high rate, measured where it folds to.
        double worstAlias = -300.0;
        for (int32_t i = 0; i <= 24; ++i) {
            const double f = stopEdge + (rate - stopEdge) * i / 24.0;
            const auto down = style.createDecimator();
            const Floats out = downsample(*down, sine(f, highRate, 16384, 1.0), 2);
            const double alias = std::fabs(rate - f);
            // A Hann window keeps the leakage of the measurement itself far below the target.
            Floats windowed(out.begin() + 1024, out.end());
            for (size_t t = 0; t < windowed.size(); ++t)
                windowed[t] *= static_cast<float>(0.5 - 0.5 * std::cos(2.0 * kPi * t / windowed.size()));
            const double amplitude =
                4.0 * std::abs(dft(windowed, 2.0 * kPi * alias / rate)) / windowed.size();
            worstAlias = std::max(worstAlias, db(amplitude));
        }
        EXPECT_LT(worstAlias, -70.0) << "aliases at " << rate << " Hz";
    }
}

TEST(ConverterLatency, EqualsTheMeasuredDelayOfEveryPlan) {
    for (float rate : kRates) {
        ConverterSetup setup(rate);
        // Linear phase: the impulse comes out whole, centred on the latency.
        for (int32_t factor : {2, 4}) {
            sr::ConverterStyle fir(setup.environment, 70.0, 20000.0, factor);
            const Floats out = roundTrip(fir, impulse(2048, 100));
            const auto peak = std::max_element(out.begin(), out.end()) - out.begin();
            EXPECT_EQ(peak - 100, fir.getLatency()) << "FIR factor " << factor << " at " << rate;
            for (int32_t k = 1; k < 20; ++k)
                EXPECT_NEAR(out[static_cast<size_t>(peak + k)], out[static_cast<size_t>(peak - k)], 1e-6f);
        }
        // Minimum phase: the group delay at low frequencies, measured at DC (the centroid of the
        // response) and at 1 kHz.
        for (int32_t factor : {2, 4, 8, 16, 32}) {
            sr::IIRConverterStyle iir(setup.environment, factor);
            const Floats out = roundTrip(iir, impulse(4096));
            for (double f : {0.0, 1000.0})
                EXPECT_NEAR(groupDelay(out, 2.0 * kPi * f / rate), iir.getLatency(), 0.05)
                    << "IIR factor " << iir.getFactor() << " at " << rate << " Hz, " << f << " Hz";
        }
    }
}

TEST(IIRConverterStyle, PlansFollowTheRateAndTheFactor) {
    const struct {
        float rate;
        int32_t factor;
        int32_t stages;
        std::vector<int32_t> coefficientCounts;
        int32_t latency;
    } plans[] = {
        {44100.0f, 2, 1, {6}, 3},
        {48000.0f, 2, 1, {6}, 3},
        {88200.0f, 2, 1, {3}, 2},
        {96000.0f, 2, 1, {3}, 2},
        {192000.0f, 2, 1, {3}, 2},
        {768000.0f, 2, 1, {3}, 2},
        {44100.0f, 8, 3, {5, 3, 3}, 4},
        {96000.0f, 8, 3, {4, 3, 3}, 4},
        {192000.0f, 8, 3, {4, 3, 3}, 4},
        {384000.0f, 8, 2, {3, 3}, 3},
        {48000.0f, 4, 2, {6, 3}, 4},
        {48000.0f, 16, 4, {6, 4, 3, 3}, 5},
        {48000.0f, 32, 5, {6, 4, 3, 3, 3}, 5},
        {96000.0f, 32, 4, {3, 4, 3, 3}, 4},
        {48000.0f, 6, 2, {6, 3}, 4},
        {48000.0f, 1, 0, {}, 0},
        {1000000.0f, 2, 0, {}, 0},
    };
    for (const auto& plan : plans) {
        ConverterSetup setup(plan.rate);
        sr::IIRConverterStyle style(setup.environment, plan.factor);
        ASSERT_EQ(style.getNumStages(), plan.stages) << plan.rate << " x" << plan.factor;
        EXPECT_EQ(style.getFactor(), 1 << plan.stages);
        EXPECT_EQ(style.getLatency(), plan.latency) << plan.rate << " x" << plan.factor;
        for (int32_t s = 0; s < plan.stages; ++s)
            EXPECT_EQ(style.getStage(s).count, plan.coefficientCounts[static_cast<size_t>(s)]);
    }
}

TEST(IIRConverterStyle, HalfBandsMatchTheEllipticDesign) {
    const struct {
        double w;
        int32_t order;
    } designs[] = {{0.44 * kPi, 13}, {0.33 * kPi, 7}, {0.444 * kPi, 11}, {0.345 * kPi, 9}, {0.4 * kPi, 9}};
    for (const auto& design : designs) {
        float coefficients[sr::IIRConverterStyle::kMaximumCoefficients] = {};
        const int32_t count = sr::IIRConverterStyle::designHalfBand(design.w, design.order, coefficients);
        ASSERT_EQ(count, (design.order - 1) / 2);
        for (int32_t i = 0; i < count; ++i) {
            EXPECT_GT(coefficients[i], 0.0f);
            EXPECT_LT(coefficients[i], 1.0f);
            if (i > 0) {
                EXPECT_GT(coefficients[i], coefficients[i - 1]) << "smallest first";
            }
        }
        // An elliptic half-band is power complementary: stop band |H|^2 = k1 / (1 + k1), pass band
        // |H|^2 = 1 / (1 + k1), with k = tan^2(w / 2).
        const double k1 = discrimination(design.order, std::pow(std::tan(design.w / 2.0), 2.0));
        const double predictedStopDb = 10.0 * std::log10(k1 / (1.0 + k1));
        double worstStop = 0.0, worstPass = 0.0;
        for (int32_t i = 0; i <= 2000; ++i) {
            const double t = i / 2000.0;
            worstStop = std::max(worstStop, std::abs(halfBand(coefficients, count, kPi - design.w * t)));
            worstPass = std::max(worstPass, 1.0 - std::norm(halfBand(coefficients, count, design.w * t)));
        }
        EXPECT_NEAR(db(worstStop), predictedStopDb, 0.5) << "order " << design.order;
        EXPECT_LT(worstPass, 2.0 * k1 / (1.0 + k1) + 1e-7) << "order " << design.order;
        // Just inside the transition band the attenuation is already less than in the stop band.
        EXPECT_GT(db(std::abs(halfBand(coefficients, count, kPi - design.w - 0.05))), predictedStopDb + 3.0);
    }
}

TEST(IIRConverter, InterpolatorRunsTheDesignedHalfBand) {
    // The interpolator's response to one base-rate impulse is the half-band at the doubled rate
    // (times 2 for the zeros it fills in): measured, it has the design's stop band.
    for (float rate : kRates) {
        ConverterSetup setup(rate);
        sr::IIRConverterStyle style(setup.environment);
        const sr::IIRConverterStyle::Stage& stage = style.getStage(0);
        const auto up = style.createInterpolator();
        const Floats response = upsample(*up, impulse(2048), 2);
        const double w = rate <= 48001.0f ? 0.44 * kPi : 0.33 * kPi;
        const int32_t order = rate <= 48001.0f ? 13 : 7;
        const double k1 = discrimination(order, std::pow(std::tan(w / 2.0), 2.0));
        double worstStop = 0.0;
        for (int32_t i = 0; i <= 500; ++i) {
            const double omega = kPi - w * i / 500.0;
            const double measured = 0.5 * std::abs(dft(response, omega));
            worstStop = std::max(worstStop, measured);
            EXPECT_NEAR(measured, std::abs(halfBand(stage.coefficients.data(), stage.count, omega)), 1e-6);
        }
        EXPECT_NEAR(db(worstStop), 10.0 * std::log10(k1 / (1.0 + k1)), 0.5) << rate;
        EXPECT_NEAR(0.5 * std::abs(dft(response, 0.0)), 1.0, 1e-5);
    }
}

TEST(IIRConverter, RoundTripKeepsThePassBandLevel) {
    // Not linear phase, so the round trip is judged by its magnitude: each pass-band tone comes back at
    // its level. The tones sit on whole cycles of the measured stretch, so its RMS is exact.
    constexpr size_t kSettle = 4096, kMeasured = 8192;
    for (float rate : kRates) {
        ConverterSetup setup(rate);
        sr::IIRConverterStyle style(setup.environment);
        const double edge = rate <= 48001.0f ? 0.44 * rate : 0.33 * rate;
        double worstDb = -300.0;
        for (double f : passBandFrequencies(edge)) {
            const double cycles = std::max(1.0, std::floor(f * kMeasured / rate));
            const Floats out = roundTrip(style, sine(cycles * rate / kMeasured, rate, kSettle + kMeasured));
            const double level = rms(out, kSettle, out.size()) / (0.5 / std::sqrt(2.0));
            worstDb = std::max(worstDb, db(std::fabs(level - 1.0)));
        }
        EXPECT_LT(worstDb, -70.0) << rate;
    }
}

TEST(Converters, BlockSizesDoNotChangeTheResult) {
    ConverterSetup setup(44100.0f);
    sr::ConverterStyle fir(setup.environment, 70.0, 20000.0, 2);
    sr::ConverterStyle fir4(setup.environment, 70.0, 20000.0, 4);
    sr::IIRConverterStyle iir(setup.environment, 2);
    sr::IIRConverterStyle iir8(setup.environment, 8);
    Floats signal(3000);
    for (size_t t = 0; t < signal.size(); ++t)
        signal[t] = static_cast<float>(std::sin(0.001 * static_cast<double>(t * t % 7919)));
    for (sr::ConverterStyleBase* style :
         std::initializer_list<sr::ConverterStyleBase*>{&fir, &fir4, &iir, &iir8}) {
        const Floats whole = roundTrip(*style, signal, {3000});
        EXPECT_EQ(roundTrip(*style, signal, {1, 3, 63, 64, 65, 200, 7}), whole)
            << "factor " << style->getFactor();
    }
}

TEST(Converters, RecoverFromNaNAndInfiniteInput) {
    ConverterSetup setup(48000.0f);
    sr::ConverterStyle fir(setup.environment);
    sr::IIRConverterStyle iir(setup.environment);
    for (sr::ConverterStyleBase* style : std::initializer_list<sr::ConverterStyleBase*>{&fir, &iir}) {
        for (float bad : {NAN, INFINITY, -INFINITY}) {
            Floats signal = sine(1000.0, 48000.0, 4096);
            signal[70] = bad;
            const Floats out = roundTrip(*style, signal, {64});
            // Clean again within a few hundred samples, and for good.
            EXPECT_TRUE(std::all_of(out.begin() + 600, out.end(), [](float x) { return std::isfinite(x); }))
                << "factor " << style->getFactor() << " after " << bad;
            // And then a working converter again: the tone passes at its level.
            EXPECT_NEAR(rms(out, 2048, out.size()), 0.5 / std::sqrt(2.0), 1e-3);
        }
    }
}

TEST(Converters, FlushDenormalsAndComeToRest) {
    ConverterSetup setup(44100.0f);
    sr::ConverterStyle fir(setup.environment);
    sr::IIRConverterStyle iir(setup.environment);
    for (sr::ConverterStyleBase* style : std::initializer_list<sr::ConverterStyleBase*>{&fir, &iir}) {
        const auto up = style->createInterpolator();
        const auto down = style->createDecimator();
        // A burst, then denormal input, then silence; the processing thread does not flush by itself.
        Floats signal(20000, 0.0f);
        for (size_t t = 0; t < 500; ++t)
            signal[t] = static_cast<float>(std::sin(0.1 * static_cast<double>(t)));
        for (size_t t = 500; t < 1500; ++t)
            signal[t] = 1e-39f * static_cast<float>(t % 3);
        const Floats high = upsample(*up, signal, style->getFactor());
        const Floats out = downsample(*down, high, style->getFactor());
        for (const Floats* values : {&high, &out})
            EXPECT_TRUE(std::none_of(values->begin(), values->end(),
                                     [](float x) { return std::fpclassify(x) == FP_SUBNORMAL; }))
                << "factor " << style->getFactor();
        EXPECT_TRUE(up->isAtRest());
        EXPECT_TRUE(down->isAtRest());
    }
}

TEST(Converters, ProcessingAllocatesNothingAndTakesNoLock) {
    ConverterSetup setup(96000.0f);
    sr::ConverterStyle fir(setup.environment);
    sr::IIRConverterStyle iir(setup.environment, 4);
    std::vector<std::unique_ptr<sr::ConverterBase>> converters;
    for (sr::ConverterStyleBase* style : std::initializer_list<sr::ConverterStyleBase*>{&fir, &iir}) {
        converters.push_back(style->createInterpolator());
        converters.push_back(style->createDecimator());
    }
    Floats base(512, 0.25f), high(512 * 4, 0.25f);
    const auto processAll = [&] {
        for (int32_t n : {1, 17, 64, 300, 512}) {
            converters[0]->process(base.data(), high.data(), n);
            converters[1]->process(high.data(), base.data(), n);
            converters[2]->process(base.data(), high.data(), n);
            converters[3]->process(high.data(), base.data(), n);
        }
    };
    {
        testing_support::AllocationCounter allocations;
        testing_support::LockCounter locks;
        processAll();
        EXPECT_EQ(allocations.count(), 0u);
        EXPECT_EQ(locks.count(), 0);
    }
    // The styles follow a new rate (a longer FIR design, a longer IIR plan); the converters take
    // the new designs over without allocating.
    setup.environment.setSampleRate(22050.0f);
    ASSERT_GT(fir.getTaps(), 60);
    ASSERT_EQ(iir.getFactor(), 4);
    testing_support::AllocationCounter allocations;
    processAll();
    EXPECT_EQ(allocations.count(), 0u);
}

TEST(Converters, FollowARateChange) {
    ConverterSetup setup(96000.0f);
    sr::ConverterStyle fir(setup.environment);
    sr::IIRConverterStyle iir(setup.environment);
    const int32_t shortLatency = fir.getLatency();
    EXPECT_EQ(iir.getLatency(), 2);
    const auto up = fir.createInterpolator();
    const auto down = fir.createDecimator();
    upsample(*up, sine(1000.0, 96000.0, 1000), 2);
    setup.environment.setSampleRate(44100.0f);
    EXPECT_GT(fir.getLatency(), shortLatency);
    EXPECT_EQ(iir.getLatency(), 3);
    EXPECT_EQ(fir.getDesignRate(), 44100.0);
    // The converters made before the change run the new design.
    const Floats in = sine(15000.0, 44100.0, 8192);
    const Floats out = downsample(*down, upsample(*up, in, 2), 2);
    const auto latency = static_cast<size_t>(fir.getLatency());
    Floats error(in.size() - 1000);
    for (size_t t = 0; t < error.size(); ++t)
        error[t] = out[t + 1000] - in[t + 1000 - latency];
    EXPECT_LT(db(rms(error, 0, error.size()) / rms(in, 1000, in.size())), -70.0);
}

TEST(Converters, AbsurdFactorsAndRatesAreSafe) {
    for (float rate : {0.0f, -44100.0f, NAN, 1e9f, 8000.0f}) {
        ConverterSetup setup(44100.0f);
        setup.environment.setSampleRate(rate);
        for (int32_t factor : {-3, 0, 1, 3, 1000}) {
            sr::ConverterStyle fir(setup.environment, 70.0, 20000.0, factor);
            sr::IIRConverterStyle iir(setup.environment, factor);
            EXPECT_GE(fir.getFactor(), 1);
            EXPECT_LE(fir.getFactor(), sr::ConverterStyle::kMaximumFactor);
            EXPECT_LE(iir.getFactor(), 32);
            for (sr::ConverterStyleBase* style : std::initializer_list<sr::ConverterStyleBase*>{&fir, &iir}) {
                EXPECT_LE(style->getFactor(), style->getMaximumFactor());
                const Floats out = roundTrip(*style, sine(100.0, 8000.0, 500));
                EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](float x) { return std::isfinite(x); }))
                    << "rate " << rate << " factor " << factor;
            }
        }
    }
}
