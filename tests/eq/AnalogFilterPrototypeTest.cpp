#include "PrototypeTestUtil.h"

#include "eq/EQBandDesign.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <vector>

using prototype_test::designed;
using prototype_test::kDbPerOctave;
using prototype_test::levelDb;
using Shape = FilterShape;

namespace {

constexpr double kButterworthQ = std::numbers::sqrt2 / 2;

// Frequency x past the corner of a low-pass, mirrored for a high-pass.
double past(Shape shape, double x) {
    return shape == Shape::LowCut ? 1.0 / x : x;
}

void expectStable(const AnalogFilterPrototype& prototype, const char* what) {
    std::vector<std::complex<double>> poles, zeros;
    prototype.polesAndZeros(poles, zeros);
    for (const auto& pole : poles)
        EXPECT_LT(pole.real(), 0.0) << what;
    for (int32_t i = 0; i < prototype.getNumSections(); ++i) {
        const auto& c = prototype.getSection(i).getCoefficients();
        for (double value : {c.b2, c.b1, c.b0, c.a2, c.a1, c.a0})
            EXPECT_TRUE(std::isfinite(value)) << what << " section " << i;
    }
}

} // namespace

TEST(ButterworthCuts, IntegerOrdersAreTheClassicDesign) {
    for (Shape shape : {Shape::HighCut, Shape::LowCut}) {
        for (int32_t order = 1; order <= 16; ++order) {
            const auto cut = designed(shape, order);
            EXPECT_EQ(cut.getNumSections(), (order + 1) / 2);
            EXPECT_NEAR(levelDb(cut, 1.0), -3.0103, 1e-3) << order;
            for (double x : {0.25, 0.7, 1.5, 4.0}) {
                const double classic = -10.0 * std::log10(1.0 + std::pow(x, 2.0 * order));
                EXPECT_NEAR(levelDb(cut, past(shape, x)), classic, 1e-6 + 1e-9 * std::fabs(classic))
                    << "order " << order << " at " << x;
            }
        }
    }
}

TEST(ButterworthCuts, FractionalOrdersFallAtSixDbPerOctaveTimesTheOrder) {
    for (Shape shape : {Shape::HighCut, Shape::LowCut}) {
        for (double order = 0.0; order <= 16.0; order += 0.05) {
            const auto cut = designed(shape, order);
            const double slope = (levelDb(cut, past(shape, 4.0)) - levelDb(cut, past(shape, 16.0))) / 2.0;
            EXPECT_NEAR(slope, kDbPerOctave * order, 0.2) << "order " << order;
        }
    }
}

TEST(ButterworthDesigns, TinyOrderChangesGiveTinyResponseChanges) {
    const double orders[] = {0.3,    0.999, 1.0,  1.001,  1.5, 1.9999, 2.0,
                             2.0001, 3.0,   3.25, 7.9999, 8.0, 11.5,   15.999};
    for (Shape shape : {Shape::HighCut, Shape::LowCut, Shape::LowShelf, Shape::HighShelf, Shape::TiltShelf,
                        Shape::Bell, Shape::BandPass, Shape::Notch}) {
        for (double order : orders) {
            const auto a = designed(shape, order, 0.9, 9.0);
            const auto b = designed(shape, order + 1e-4, 0.9, 9.0);
            for (double f = 0.01; f < 100.0; f *= 1.07)
                EXPECT_LT(std::abs(a.response(f) - b.response(f)), 2e-3)
                    << "shape " << static_cast<int>(shape) << " order " << order << " at " << f;
        }
    }
}

TEST(GainShapes, ShelvesReachFullGainOnOneSideAndHalfTheGainAtTheCorner) {
    struct Case {
        Shape shape;
        double lowFraction, cornerFraction, highFraction; // of the gain in dB
    };
    const Case cases[] = {{Shape::LowShelf, 1.0, 0.5, 0.0},
                          {Shape::LowShelfVariant, 1.0, 0.5, 0.0},
                          {Shape::HighShelf, 0.0, 0.5, 1.0},
                          {Shape::TiltShelf, -0.5, 0.0, 0.5}};
    for (const Case& c : cases) {
        for (double order : {1.0, 1.4, 2.0, 2.7, 3.0, 5.5, 16.0}) {
            for (double gain : {-24.0, -3.0, 6.0, 30.0}) {
                const auto shelf = designed(c.shape, order, kButterworthQ, gain);
                const double tolerance = 1e-6 * std::fabs(gain) + 1e-9;
                const double far = 1e5;
                EXPECT_NEAR(levelDb(shelf, 1.0 / far), c.lowFraction * gain, 1e-3) << order;
                EXPECT_NEAR(levelDb(shelf, 1.0), c.cornerFraction * gain, tolerance) << order;
                EXPECT_NEAR(levelDb(shelf, far), c.highFraction * gain, 1e-3) << order;
            }
        }
    }
}

TEST(GainShapes, BellPeaksAtTheCentreAndBandShapesKeepTheirLevels) {
    for (double order : {2.0, 4.0, 6.5, 16.0}) {
        for (double gain : {-18.0, 9.0}) {
            const auto bell = designed(Shape::Bell, order, 1.7, gain);
            EXPECT_NEAR(levelDb(bell, 1.0), gain, 1e-5); // the linear gain is a float
            EXPECT_NEAR(levelDb(bell, 1e-4), 0.0, 1e-3);
            EXPECT_NEAR(levelDb(bell, 1e4), 0.0, 1e-3);
        }
        const auto bandPass = designed(Shape::BandPass, order, 0.6);
        EXPECT_NEAR(levelDb(bandPass, 1.0), 0.0, 1e-9);
        EXPECT_LT(levelDb(bandPass, 0.1), -15.0);
        EXPECT_LT(levelDb(bandPass, 10.0), -15.0);
        const auto notch = designed(Shape::Notch, order, 0.6);
        EXPECT_LT(levelDb(notch, 1.0), -200.0);
        EXPECT_NEAR(levelDb(notch, 1e-4), 0.0, 1e-3);
        EXPECT_NEAR(levelDb(notch, 1e4), 0.0, 1e-3);
    }
    // Second order: sB / (s^2 + sB + 1) with B = 1/q is half power where |x - 1/x| = B.
    const double bandwidth = 1.0 / 0.6;
    const double upper = (bandwidth + std::sqrt(bandwidth * bandwidth + 4.0)) / 2.0;
    const auto bandPass = designed(Shape::BandPass, 2.0, 0.6);
    EXPECT_NEAR(levelDb(bandPass, upper), -3.0103, 1e-4);
    EXPECT_NEAR(levelDb(bandPass, 1.0 / upper), -3.0103, 1e-4);
    // The scaled variant multiplies the band pass by q sqrt 2.
    EXPECT_NEAR(levelDb(designed(Shape::ScaledBandPass, 4.0, 2.0), 1.0),
                20.0 * std::log10(2.0 * std::sqrt(2.0)), 1e-9);
}

TEST(GainShapes, FlatTiltRisesByAFifthOfTheGainPerOctave) {
    const auto tilt = designed(Shape::FlatTilt, 2.0, kButterworthQ, 10.0);
    EXPECT_NEAR(levelDb(tilt, 1.0), 0.0, 1e-9);
    for (double f : {1.0 / 16, 0.5, 4.0})
        EXPECT_NEAR(levelDb(tilt, 2.0 * f) - levelDb(tilt, f), 2.0, 0.15) << f;
}

TEST(AllPass, UnityMagnitudeAndWrappedPhase) {
    for (double order : {1.0, 2.0, 3.6, 9.0, 16.0}) {
        const auto allPass = designed(Shape::AllPass, order, 2.0);
        std::vector<float> frequencies, phases(200);
        for (int32_t i = 0; i < 200; ++i)
            frequencies.push_back(static_cast<float>(std::pow(10.0, -2.0 + 0.02 * i)));
        allPass.phases(frequencies.data(), phases.data(), 200);
        for (int32_t i = 0; i < 200; ++i) {
            EXPECT_NEAR(allPass.squaredMagnitude(frequencies[i]), 1.0, 1e-9);
            EXPECT_GE(phases[i], -std::numbers::pi_v<float>); // exactly -pi stays unwrapped
            EXPECT_LE(phases[i], std::numbers::pi_v<float>);
            const float exact = static_cast<float>(std::arg(allPass.response(frequencies[i])));
            EXPECT_NEAR(std::remainder(phases[i] - exact, 2.0f * std::numbers::pi_v<float>), 0.0f, 2e-5f);
        }
    }
}

TEST(ArrayForms, SinglePrecisionArraysFollowTheExactResponse) {
    for (Shape shape : {Shape::HighCut, Shape::Bell, Shape::HighShelf}) {
        const auto filter = designed(shape, 11.5, 1.3, 12.0);
        std::vector<float> frequencies, levels(150);
        for (int32_t i = 0; i < 150; ++i)
            frequencies.push_back(static_cast<float>(std::pow(10.0, -1.5 + 0.02 * i)));
        filter.squaredMagnitudes(frequencies.data(), levels.data(), 150);
        for (int32_t i = 0; i < 150; ++i) {
            const double exact = std::norm(filter.response(frequencies[static_cast<size_t>(i)]));
            EXPECT_NEAR(levels[static_cast<size_t>(i)], exact, 1e-4 * exact + 1e-30) << frequencies[i];
        }
    }
}

TEST(UserQ, OnlyTheFirstSectionResonates) {
    // At 48 dB/oct a high Q adds a single resonant peak near the corner; Q 1 stays Butterworth.
    const auto resonant = designed(Shape::HighCut, 8.0, 8.0 * kButterworthQ);
    const auto flat = designed(Shape::HighCut, 8.0);
    for (int32_t i = 1; i < 4; ++i)
        EXPECT_EQ(resonant.getSection(i).getCoefficients().a1, flat.getSection(i).getCoefficients().a1);
    double peak = -1e9;
    for (double f = 0.5; f < 1.5; f *= 1.001)
        peak = std::max(peak, levelDb(resonant, f));
    EXPECT_GT(peak, 10.0);
    EXPECT_NEAR(levelDb(resonant, 1e-3), 0.0, 1e-6);
    // At first order the damping has faded to Butterworth: Q has no effect.
    const auto firstOrder = designed(Shape::LowShelf, 1.0, 3.0, 12.0);
    EXPECT_NEAR(levelDb(firstOrder, 0.3), levelDb(designed(Shape::LowShelf, 1.0, kButterworthQ, 12.0), 0.3),
                1e-9);
}

TEST(Robustness, EveryDesignIsStableAndFinite) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (int32_t shape = 0; shape < kNumFilterShapes; ++shape) {
        for (int32_t family = 0; family < 4; ++family) {
            for (float order : {0.0f, 0.4f, 1.0f, 2.5f, 7.0f, 12.0f, 16.0f, 40.0f, nan}) {
                for (float q : {0.0f, 0.02f, 0.7f, 50.0f, nan}) {
                    for (float gain : {0.0f, 0.03f, 1.0f, 1e6f, nan}) {
                        const AnalogFilterPrototype prototype(
                            order, q, gain, static_cast<DesignFamily>(family), static_cast<Shape>(shape));
                        EXPECT_LE(prototype.getNumSections(), 8);
                        expectStable(prototype, "direct design");
                    }
                }
            }
        }
    }
    for (double frequency : {0.0, 1e9, std::numeric_limits<double>::quiet_NaN()}) {
        for (int32_t shape = 0; shape < kNumFilterShapes; ++shape) {
            AnalogFilterPrototype prototype;
            designBand(prototype, {static_cast<Shape>(shape), 3.5f, 1e6f, 0.0f, frequency, frequency});
            expectStable(prototype, "band design");
            EXPECT_FALSE(std::isnan(prototype.squaredMagnitude(1000.0)));
            std::array<DigitalSectionCoefficients, 8> digital{};
            prototype.toDigital(std::tan(std::numbers::pi * 1000.0 / 48000.0), DigitalForm::DirectForm,
                                digital.data());
            for (int32_t i = 0; i < prototype.getNumSections(); ++i)
                for (double value : digital[static_cast<size_t>(i)])
                    EXPECT_FALSE(std::isnan(value));
        }
    }
}

TEST(BandDesign, SlopeValuesBecomeOrders) {
    struct Case {
        Shape shape;
        float slope;
        double order;
        int32_t sections;
    };
    const Case cases[] = {
        {Shape::LowCut, -1.0f, 0.0, 3}, // staircase of flat steps
        {Shape::Bell, -1.0f, 2.0, 1},   {Shape::HighShelf, -1.0f, 1.0, 1}, {Shape::HighCut, 0.0f, 1.0, 1},
        {Shape::HighCut, 2.5f, 3.5, 2}, {Shape::LowCut, 5.5f, 7.0, 4},     {Shape::LowCut, 8.0f, 16.0, 8},
        {Shape::Bell, 9.0f, 16.0, 8},   {Shape::HighCut, 9.0f, 12.0, 6},
    };
    for (const Case& c : cases) {
        AnalogFilterPrototype prototype;
        designBand(prototype, {c.shape, c.slope, 6.0f, 1.0f, 1000.0, 640.0});
        EXPECT_FLOAT_EQ(prototype.getOrder(), static_cast<float>(c.order)) << c.slope;
        EXPECT_EQ(prototype.getNumSections(), c.sections) << c.slope;
    }
    AnalogFilterPrototype flatCut;
    designBand(flatCut, {Shape::LowCut, -1.0f, 0.0f, 1.0f, 1000.0, 640.0});
    for (double f : {10.0, 1000.0, 20000.0})
        EXPECT_NEAR(levelDb(flatCut, f), 0.0, 1e-9);
    AnalogFilterPrototype loudBell;
    designBand(loudBell, {Shape::Bell, 1.0f, 40.0f, 1.0f, 1000.0, 640.0});
    EXPECT_NEAR(levelDb(loudBell, 1000.0), 30.0, 1e-6);
}

TEST(BandDesign, FlatTiltPivotsAtTheBandFrequencyWithinThirtyDb) {
    struct Case {
        double frequency, secondFrequency, gain, expectedGain;
    };
    // The pivot below the second frequency limits a rising tilt: 30 x 30 / (2 octaves x 30/5 + 30).
    const Case cases[] = {{2000.0, 500.0, 10.0, 10.0}, {250.0, 1000.0, 30.0, 900.0 / 42.0}};
    for (const Case& c : cases) {
        AnalogFilterPrototype tilt;
        designBand(tilt,
                   {Shape::FlatTilt, 1.0f, static_cast<float>(c.gain), 1.0f, c.frequency, c.secondFrequency});
        EXPECT_NEAR(levelDb(tilt, c.frequency), 0.0, 0.1);
        const double f1 = c.secondFrequency;
        EXPECT_NEAR(levelDb(tilt, 2.0 * f1) - levelDb(tilt, f1), c.expectedGain / 5.0, 0.15);
    }
}

TEST(BandDesign, QMappingAndBandEdges) {
    EXPECT_NEAR(prototypeQ(Shape::LowShelf, 1.0), kButterworthQ, 1e-7);
    EXPECT_NEAR(prototypeQ(Shape::TiltShelf, 40.0), 4.0, 1e-9);
    EXPECT_NEAR(prototypeQ(Shape::HighShelf, 1.0 / 40.0), 0.125, 1e-9);
    EXPECT_NEAR(prototypeQ(Shape::Bell, 2.0), 2.0 * kButterworthQ, 1e-7);
    for (Shape shape : {Shape::LowShelf, Shape::Bell})
        for (double q : {0.05, 1.0, 13.0})
            EXPECT_NEAR(userQ(shape, prototypeQ(shape, q)), q, 1e-6 * q);
    // Low Cut, Q 1: e = 1/sqrt 2, edges (sqrt(3/2) -+ 1/sqrt 2) f.
    const BandEdges cut = bandEdges(Shape::LowCut, 100.0, 1.0f, 3.0f);
    EXPECT_NEAR(cut.lower, 100.0 * (std::sqrt(1.5) - std::sqrt(0.5)), 1e-4);
    EXPECT_NEAR(cut.upper, 100.0 * (std::sqrt(1.5) + std::sqrt(0.5)), 1e-4);
    // Bell at 12 dB/oct, Q 1: e = 2/sqrt 2, edges (sqrt 3 -+ sqrt 2) f.
    const BandEdges bell = bandEdges(Shape::Bell, 100.0, 1.0f, 1.0f);
    EXPECT_NEAR(bell.lower, 100.0 * (std::sqrt(3.0) - std::sqrt(2.0)), 1e-4);
    EXPECT_NEAR(bell.upper, 100.0 * (std::sqrt(3.0) + std::sqrt(2.0)), 1e-4);
    // A 6 dB/oct band ignores Q.
    const BandEdges shelf = bandEdges(Shape::LowShelf, 100.0, 9.0f, 0.0f);
    const BandEdges shelfAtQ1 = bandEdges(Shape::LowShelf, 100.0, 1.0f, 0.0f);
    EXPECT_DOUBLE_EQ(shelf.lower, shelfAtQ1.lower);
}
