#include "eq/MatchedSectionDesign.h"
#include "PrototypeTestUtil.h"
#include "eq/EQBandDesign.h"
#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <vector>

using Complex = std::complex<double>;
using Shape = FilterShape;

using prototype_test::directFormResponse;
using prototype_test::stateVariableResponse;

namespace {

constexpr double kPi = std::numbers::pi;
using Sections = std::array<DigitalSectionCoefficients, AnalogFilterPrototype::kMaximumSections>;

struct Design {
    AnalogFilterPrototype prototype;
    Sections sections{};
    int32_t count = 0;
};

Design design(Shape shape, float slope, float gain, float q, double w0,
              CoefficientCalculation calculation = CoefficientCalculation::MatchedMagnitude,
              DigitalForm form = DigitalForm::DirectForm) {
    Design d;
    designBand(d.prototype, {shape, slope, gain, q, w0, 1.0});
    d.count =
        designDigitalSections(d.prototype, w0, calculation, form, kStaticGainTolerance, d.sections.data());
    return d;
}

double angular(double hz, double sampleRate) {
    return 2.0 * kPi * hz / sampleRate;
}

double cascadeDb(const Design& d, double w) {
    double power = 1.0;
    for (int32_t i = 0; i < d.count; ++i)
        power *= std::norm(directFormResponse(d.sections[static_cast<size_t>(i)], w));
    return 10.0 * std::log10(power);
}

double analogDb(const Design& d, double w) {
    return 10.0 * std::log10(d.prototype.squaredMagnitude(w));
}

double largestRootMagnitude(double c0, double c1, double c2) {
    if (c0 == 0.0)
        return c1 == 0.0 ? 0.0 : std::fabs(c2 / c1);
    const Complex root = std::sqrt(Complex(c1 * c1 - 4.0 * c0 * c2, 0.0));
    return std::max(std::abs((-c1 + root) / (2.0 * c0)), std::abs((-c1 - root) / (2.0 * c0)));
}

// Worst deviation in dB of the cascade from the analog design over 10 Hz .. 0.45 fs (1/12 octave
// steps), both levels floored at -80 dB, where a difference says nothing audible.
double worstDeviation(const Design& d, double sampleRate) {
    double worst = 0.0;
    for (double f = 10.0; f < 0.45 * sampleRate * 1.0001; f *= std::exp2(1.0 / 12.0)) {
        const double w = angular(std::min(f, 0.45 * sampleRate), sampleRate);
        worst =
            std::max(worst, std::fabs(std::max(cascadeDb(d, w), -80.0) - std::max(analogDb(d, w), -80.0)));
    }
    return worst;
}

void expectStableAndMinimumPhase(const Design& d) {
    for (int32_t i = 0; i < d.count; ++i) {
        const auto& c = d.sections[static_cast<size_t>(i)];
        for (double v : c)
            ASSERT_TRUE(std::isfinite(v));
        EXPECT_LT(largestRootMagnitude(1.0, c[3], c[4]), 1.0) << "poles of section " << i;
        EXPECT_LE(largestRootMagnitude(c[0], c[1], c[2]), 1.0 + 1e-7) << "zeros of section " << i;
    }
}

} // namespace

TEST(MatchedSectionDesign, EverySectionIsStableAndMinimumPhaseOverTheGrid) {
    const Shape shapes[] = {Shape::Bell,      Shape::LowShelf, Shape::HighShelf,
                            Shape::TiltShelf, Shape::LowCut,   Shape::HighCut,
                            Shape::Notch,     Shape::BandPass, Shape::FlatTilt};
    for (Shape shape : shapes)
        for (float slope : {0.0f, 1.0f, 3.0f, 5.5f, 8.0f})
            for (float gain : {-30.0f, -3.0f, 9.0f, 30.0f})
                for (float q : {0.1f, 1.0f, 10.0f})
                    for (double w0 : {1e-4, 0.01, 0.3, 1.5, 2.5, 3.0}) {
                        SCOPED_TRACE(::testing::Message() << static_cast<int>(shape) << " slope " << slope
                                                          << " gain " << gain << " q " << q << " w0 " << w0);
                        expectStableAndMinimumPhase(design(shape, slope, gain, q, w0));
                    }
}

TEST(MatchedSectionDesign, BadInputNeverYieldsNaNOrUnstableSections) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (Shape shape : {Shape::Bell, Shape::LowCut, Shape::HighShelf, Shape::Notch})
        for (double w0 : {nan, -1.0, 0.0, kPi, 4.0, inf})
            for (float gain : {0.0f, 1e6f, -1e6f, static_cast<float>(nan)})
                for (float q : {0.0f, 1.0f, static_cast<float>(nan)}) {
                    SCOPED_TRACE(::testing::Message() << static_cast<int>(shape) << " w0 " << w0 << " gain "
                                                      << gain << " q " << q);
                    for (auto form : {DigitalForm::DirectForm, DigitalForm::StateVariable}) {
                        const Design d =
                            design(shape, 1.0f, gain, q, w0, CoefficientCalculation::MatchedMagnitude, form);
                        for (int32_t i = 0; i < d.count; ++i)
                            for (double v : d.sections[static_cast<size_t>(i)])
                                ASSERT_TRUE(std::isfinite(v));
                        if (form == DigitalForm::DirectForm)
                            expectStableAndMinimumPhase(d);
                    }
                }
}

TEST(MatchedSectionDesign, DcGainIsExactForEveryShape) {
    // DC of a Bell, a high shelf and Tilt Shelf from their definitions: 0 dB, 0 dB and -gain/2.
    struct Case {
        Shape shape;
        float gain;
        double expectedDb;
    };
    for (const Case& c : {Case{Shape::Bell, 12.0f, 0.0}, Case{Shape::HighShelf, -18.0f, 0.0},
                          Case{Shape::TiltShelf, 10.0f, -5.0}, Case{Shape::LowShelf, 7.0f, 7.0},
                          Case{Shape::HighCut, 0.0f, 0.0}})
        for (double f0 : {100.0, 3000.0, 15000.0}) {
            const Design d = design(c.shape, 1.0f, c.gain, 1.0f, angular(f0, 48000.0));
            EXPECT_NEAR(cascadeDb(d, 0.0), c.expectedDb, 0.01) << static_cast<int>(c.shape) << " at " << f0;
        }
}

TEST(MatchedSectionDesign, BellKeepsItsPeakGainAtItsCentre) {
    for (double fs : {44100.0, 48000.0, 96000.0})
        for (float gain : {-24.0f, -6.0f, 6.0f, 24.0f})
            for (double f0 : {50.0, 1000.0, 12000.0, 0.4 * fs}) {
                const Design d = design(Shape::Bell, 1.0f, gain, 2.0f, angular(f0, fs));
                EXPECT_NEAR(cascadeDb(d, angular(f0, fs)), gain, 0.01) << fs << " " << f0;
            }
}

TEST(MatchedSectionDesign, BandAt20kHzKeepsItsWidthUnlikeTheBilinearDesign) {
    const double fs = 44100.0, w0 = angular(20000.0, fs);
    const Design matched = design(Shape::Bell, 1.0f, 12.0f, 1.0f, w0);
    const Design bilinear = design(Shape::Bell, 1.0f, 12.0f, 1.0f, w0, CoefficientCalculation::Bilinear);
    EXPECT_NEAR(cascadeDb(matched, w0), 12.0, 0.01);
    // Half the gain in dB sits an analog bandwidth below the centre; compare across the skirt.
    double worstMatched = 0.0, worstBilinear = 0.0;
    for (double f = 8000.0; f <= 19000.0; f += 250.0) {
        const double w = angular(f, fs);
        worstMatched = std::max(worstMatched, std::fabs(cascadeDb(matched, w) - analogDb(matched, w)));
        worstBilinear = std::max(worstBilinear, std::fabs(cascadeDb(bilinear, w) - analogDb(bilinear, w)));
    }
    EXPECT_LT(worstMatched, 0.5);
    EXPECT_GT(worstBilinear, 2.0);
}

TEST(MatchedSectionDesign, LowFrequencyBandsFollowTheAnalogResponse) {
    // Well below Nyquist the analog and digital shapes coincide; 10 Hz .. 0.45 fs, levels above -80 dB.
    struct Case {
        Shape shape;
        float slope;
        float gain;
        float q;
    };
    const Case cases[] = {{Shape::LowCut, 0.0f, 0.0f, 1.0f},    {Shape::LowCut, 3.0f, 0.0f, 1.0f},
                          {Shape::LowCut, 8.0f, 0.0f, 1.0f},    {Shape::Bell, 1.0f, 6.0f, 2.0f},
                          {Shape::Bell, 1.0f, -12.0f, 5.0f},    {Shape::LowShelf, 1.0f, 6.0f, 1.0f},
                          {Shape::HighShelf, 1.0f, -6.0f, 1.0f}};
    for (double fs : {44100.0, 48000.0, 96000.0})
        for (const Case& c : cases)
            for (double f0 : {30.0, 200.0, 1000.0}) {
                const Design d = design(c.shape, c.slope, c.gain, c.q, angular(f0, fs));
                double worst = 0.0;
                for (double f = 10.0; f < 0.45 * fs; f *= 1.05) {
                    const double w = angular(f, fs);
                    const double analog = analogDb(d, w);
                    if (analog > -80.0)
                        worst = std::max(worst, std::fabs(cascadeDb(d, w) - analog));
                }
                EXPECT_LT(worst, 0.1)
                    << static_cast<int>(c.shape) << " slope " << c.slope << " f0 " << f0 << " fs " << fs;
            }
}

TEST(MatchedSectionDesign, AlmostFlatSectionsBecomeExactlyFlat) {
    // A gain of 1e-5 dB moves every squared magnitude by far less than the tolerance.
    const Design direct = design(Shape::Bell, 1.0f, 1e-5f, 1.0f, 0.2);
    const double g = std::sqrt(direct.prototype.getSection(0).squaredMagnitude(0.2));
    ASSERT_EQ(direct.count, 1);
    EXPECT_EQ(direct.sections[0], (DigitalSectionCoefficients{g, 0.0, 0.0, 0.0, 0.0}));
    const Design svf = design(Shape::Bell, 1.0f, 1e-5f, 1.0f, 0.2, CoefficientCalculation::MatchedMagnitude,
                              DigitalForm::StateVariable);
    EXPECT_EQ(svf.sections[0], (DigitalSectionCoefficients{0.0, 0.0, g, 0.0, g}));
    // One decibel is far from flat.
    EXPECT_NE(design(Shape::Bell, 1.0f, 1.0f, 1.0f, 0.2).sections[0][1], 0.0);
}

TEST(MatchedSectionDesign, StateVariableFormRunsTheSameResponse) {
    for (Shape shape : {Shape::Bell, Shape::HighShelf, Shape::LowCut, Shape::HighCut, Shape::Notch})
        for (double w0 : {0.05, 1.2, 2.6}) {
            const Design direct = design(shape, 2.0f, 9.0f, 1.5f, w0);
            const Design svf = design(shape, 2.0f, 9.0f, 1.5f, w0, CoefficientCalculation::MatchedMagnitude,
                                      DigitalForm::StateVariable);
            ASSERT_EQ(direct.count, svf.count);
            for (int32_t i = 0; i < direct.count; ++i)
                for (double w : {0.01, 0.4, 1.3, 2.9}) {
                    const Complex expected = directFormResponse(direct.sections[static_cast<size_t>(i)], w);
                    const Complex actual =
                        stateVariableResponse(svf.sections[static_cast<size_t>(i)], w, 20000);
                    EXPECT_NEAR(std::abs(actual - expected), 0.0, 1e-6 * std::max(1.0, std::abs(expected)))
                        << static_cast<int>(shape) << " w0 " << w0 << " section " << i << " w " << w;
                }
        }
}

TEST(MatchedSectionDesign, OtherCasesUseTheBilinearTransform) {
    struct Case {
        Shape shape;
        float slope;
        CoefficientCalculation calculation;
        double w0;
    };
    // A brickwall cut (elliptic), All Pass, the two bilinear calculations; w0 beyond the cap.
    for (const Case& c : {Case{Shape::LowCut, 9.0f, CoefficientCalculation::MatchedMagnitude, 0.3},
                          Case{Shape::AllPass, 1.0f, CoefficientCalculation::MatchedMagnitude, 0.3},
                          Case{Shape::Bell, 1.0f, CoefficientCalculation::Bilinear, 1.0},
                          Case{Shape::Bell, 1.0f, CoefficientCalculation::BilinearPrewarpedQ, 3.14}})
        for (auto form : {DigitalForm::DirectForm, DigitalForm::StateVariable}) {
            const Design d = design(c.shape, c.slope, 4.0f, 1.0f, c.w0, c.calculation, form);
            Sections expected{};
            d.prototype.toDigital(std::tan(std::min(c.w0, 3.1315928) / 2.0), form, expected.data());
            for (int32_t i = 0; i < d.count; ++i)
                EXPECT_EQ(d.sections[static_cast<size_t>(i)], expected[static_cast<size_t>(i)])
                    << static_cast<int>(c.shape) << " section " << i;
        }
}

TEST(MatchedSectionDesign, DesignDoesNotAllocate) {
    AnalogFilterPrototype prototype;
    designBand(prototype, {Shape::LowCut, 8.0f, 0.0f, 1.0f, 0.5, 1.0});
    Sections sections{};
    testing_support::AllocationCounter counter;
    designDigitalSections(prototype, 0.5, CoefficientCalculation::MatchedMagnitude,
                          DigitalForm::StateVariable, kDynamicGainTolerance, sections.data());
    EXPECT_EQ(counter.count(), 0u);
}

namespace {

// One family of settings and the worst deviation it may show for f0 up to fs/16, fs/8, fs/4 and
// 0.4 fs.
struct AccuracyCase {
    const char* name;
    Shape shape;
    std::vector<float> slopes;
    std::vector<float> gains;
    std::vector<float> qs;
    std::array<double, 4> boundsDb;
};

void expectAccuracy(const AccuracyCase& c) {
    constexpr std::array<double, 4> kLimits{1.0 / 16.0, 1.0 / 8.0, 0.25, 0.4};
    for (double fs : {44100.0, 96000.0})
        for (double f0 = 30.0; f0 <= 0.4 * fs * 1.0001; f0 *= 2.0)
            for (double f : {f0, std::min(f0 * 1.41, 0.4 * fs)})
                for (float slope : c.slopes)
                    for (float gain : c.gains)
                        for (float q : c.qs) {
                            const auto range = static_cast<size_t>(
                                std::find_if(kLimits.begin(), kLimits.end(),
                                             [&](double limit) { return f <= limit * fs * 1.0001; }) -
                                kLimits.begin());
                            const Design d = design(c.shape, slope, gain, q, angular(f, fs));
                            EXPECT_LE(worstDeviation(d, fs), c.boundsDb[range])
                                << c.name << " fs " << fs << " f0 " << f << " slope " << slope << " gain "
                                << gain << " q " << q;
                        }
}

} // namespace

TEST(MatchedSectionDesign, ModerateSettingsMeetTheAccuracyTargets) {
    // 0.1 dB up to fs/8 where one biquad per analog section can follow the analog curve that far.
    const AccuracyCase cases[] = {
        {"bell", Shape::Bell, {1.0f}, {-6.0f, -1.0f, 1.0f, 6.0f}, {0.7f, 1.0f, 2.0f}, {0.1, 0.1, 0.15, 0.2}},
        {"low shelf",
         Shape::LowShelf,
         {0.0f, 1.0f, 3.0f},
         {-12.0f, -1.0f, 6.0f, 12.0f},
         {0.7f, 1.0f, 2.0f},
         {0.1, 0.1, 0.25, 0.25}},
        {"high shelf", Shape::HighShelf, {1.0f}, {-12.0f, 6.0f}, {1.0f}, {0.1, 0.1, 0.25, 0.25}},
        {"tilt shelf",
         Shape::TiltShelf,
         {0.0f, 1.0f},
         {-12.0f, -1.0f, 6.0f, 12.0f},
         {0.7f, 1.0f, 2.0f},
         {0.1, 0.1, 0.15, 0.25}},
        {"low cut", Shape::LowCut, {1.0f, 2.0f, 3.0f}, {0.0f}, {1.0f}, {0.1, 0.1, 0.15, 0.3}},
    };
    for (const AccuracyCase& c : cases)
        expectAccuracy(c);
}

TEST(MatchedSectionDesign, ExtremeSettingsStayWithinTheBoundsOneBiquadPerSectionReaches) {
    // A digital biquad's response is flat at Nyquist while the analog one keeps moving, so a
    // section that still changes near the top of the band (a wide +-30 dB bell, a steep shelf or cut
    // near fs/4, the stop band of a high cut) cannot follow it within 0.1 dB; an exhaustive search
    // over the interpolation points of single sections found no better than about 0.2 dB for a
    // -30 dB, Q 1 bell at 10 kHz / 44.1 kHz. These bounds are what the design reaches (the full grid
    // is printed by the zero_latency_report program); the cascades of a high cut add up their
    // sections' stop-band deviations.
    const std::vector<float> gains{-30.0f, -12.0f, 1.0f, 30.0f};
    const std::vector<float> qs{0.1f, 1.0f, 10.0f};
    const std::vector<float> slopes{0.0f, 1.0f, 2.0f, 3.0f, 5.0f, 6.0f, 8.0f};
    const AccuracyCase cases[] = {
        {"bell", Shape::Bell, {1.0f}, gains, qs, {0.4, 0.4, 0.45, 0.8}},
        {"four-pole bell", Shape::Bell, {3.0f}, gains, qs, {0.4, 0.4, 1.0, 2.0}},
        {"low shelf", Shape::LowShelf, {0.0f, 1.0f, 3.0f}, gains, qs, {0.3, 0.6, 1.0, 1.3}},
        {"tilt shelf", Shape::TiltShelf, {0.0f, 1.0f}, gains, qs, {0.3, 0.6, 0.75, 0.75}},
        {"low cut", Shape::LowCut, slopes, {0.0f}, {1.0f}, {0.15, 0.25, 1.0, 2.0}},
        {"high cut", Shape::HighCut, slopes, {0.0f}, {1.0f}, {0.8, 0.9, 1.5, 1.5}},
        {"notch", Shape::Notch, {1.0f, 3.0f}, {0.0f}, qs, {0.45, 0.45, 0.75, 2.5}},
        {"band pass", Shape::BandPass, {1.0f, 3.0f}, {0.0f}, qs, {1.1, 1.1, 1.4, 1.8}},
    };
    for (const AccuracyCase& c : cases)
        expectAccuracy(c);
}

TEST(MatchedSectionDesign, NeverFallsFarBehindTheBilinearDesign) {
    // The bilinear transform of the whole cascade is exact in shape, only cramped near Nyquist; the
    // matched design must not trade that for anything worse.
    for (Shape shape : {Shape::Bell, Shape::LowShelf, Shape::TiltShelf, Shape::LowCut, Shape::HighCut,
                        Shape::Notch, Shape::BandPass})
        for (float slope : {1.0f, 3.0f, 8.0f})
            for (float gain : {-30.0f, 12.0f})
                for (float q : {0.1f, 1.0f, 10.0f})
                    for (double f0 : {100.0, 2000.0, 9000.0, 15000.0}) {
                        const double w0 = angular(f0, 44100.0);
                        const Design matched = design(shape, slope, gain, q, w0);
                        const Design bilinear =
                            design(shape, slope, gain, q, w0, CoefficientCalculation::Bilinear);
                        EXPECT_LE(worstDeviation(matched, 44100.0), worstDeviation(bilinear, 44100.0) + 0.05)
                            << static_cast<int>(shape) << " slope " << slope << " gain " << gain << " q " << q
                            << " f0 " << f0;
                    }
}

TEST(MatchedSectionDesign, AnalyticAnchorPointsAreExact) {
    // Levels that follow from the definitions alone: a Butterworth cut is 3.01 dB down at f0 for
    // any order, a shelf is at half its gain in dB, Tilt Shelf crosses 0 dB, a notch has its zero.
    // Shelves only up to fs/8: above, a pole or zero of theirs can lie beyond the band, and the
    // section is then matched at the one inside it.
    const double butterworthCorner = -10.0 * std::log10(2.0);
    for (double fs : {44100.0, 96000.0})
        for (double f0 : {40.0, 700.0, fs / 8.0, 0.25 * fs, 0.4 * fs}) {
            const double w0 = angular(f0, fs);
            for (Shape shape : {Shape::LowCut, Shape::HighCut})
                for (float slope : {1.0f, 3.0f, 5.0f, 8.0f})
                    EXPECT_NEAR(cascadeDb(design(shape, slope, 0.0f, 1.0f, w0), w0), butterworthCorner, 0.01)
                        << static_cast<int>(shape) << " slope " << slope << " f0 " << f0 << " fs " << fs;
            EXPECT_LT(cascadeDb(design(Shape::Notch, 1.0f, 0.0f, 1.0f, w0), w0), -80.0) << f0 << " " << fs;
            if (f0 > fs / 8.0)
                continue;
            for (float gain : {-24.0f, 9.0f}) {
                for (float slope : {1.0f, 3.0f})
                    EXPECT_NEAR(cascadeDb(design(Shape::LowShelf, slope, gain, 1.0f, w0), w0), gain / 2.0,
                                0.01)
                        << "shelf slope " << slope << " gain " << gain << " f0 " << f0 << " fs " << fs;
                EXPECT_NEAR(cascadeDb(design(Shape::TiltShelf, 1.0f, gain, 1.0f, w0), w0), 0.0, 0.01)
                    << "tilt gain " << gain << " f0 " << f0 << " fs " << fs;
            }
        }
}
