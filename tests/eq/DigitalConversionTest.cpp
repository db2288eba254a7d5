#include "PrototypeTestUtil.h"

#include "eq/EQBandDesign.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

using Complex = std::complex<double>;
using Shape = FilterShape;

using prototype_test::directFormResponse;
using prototype_test::stateVariableResponse;

namespace {

constexpr double kSampleRate = 48000.0;

struct Case {
    Shape shape;
    float slope;
    float gain;
    double frequency;
};

// Low-frequency staircase steps and high corners included; shelves and cuts with first-order sections.
const Case kCases[] = {
    {Shape::Bell, 1.0f, 9.0f, 1000.0},      {Shape::LowShelf, 0.0f, -12.0f, 300.0},
    {Shape::HighShelf, 2.3f, 6.0f, 5000.0}, {Shape::HighCut, 1.0f, 0.0f, 15000.0},
    {Shape::LowCut, -0.5f, 0.0f, 200.0},    {Shape::TiltShelf, 3.0f, 8.0f, 800.0},
    {Shape::Notch, 2.0f, 0.0f, 2000.0},     {Shape::FlatTilt, 1.0f, 5.0f, 500.0},
    {Shape::LowCut, 9.0f, 0.0f, 100.0},
};

AnalogFilterPrototype designedBand(const Case& c) {
    AnalogFilterPrototype prototype;
    designBand(prototype, {c.shape, c.slope, c.gain, 1.0f, c.frequency, 1000.0});
    return prototype;
}

double prewarp(const Case& c) {
    return std::tan(std::numbers::pi * (c.shape == Shape::FlatTilt ? 1000.0 : c.frequency) / kSampleRate);
}

} // namespace

TEST(DigitalConversion, DirectFormIsTheBilinearImageOfTheAnalogResponse) {
    for (const Case& c : kCases) {
        const auto prototype = designedBand(c);
        const double k = prewarp(c);
        const double reference = c.shape == Shape::FlatTilt ? 1000.0 : c.frequency;
        std::array<DigitalSectionCoefficients, 8> sections{};
        prototype.toDigital(k, DigitalForm::DirectForm, sections.data());
        for (double f : {20.0, 100.0, 1000.0, 7000.0, 16000.0, 23000.0}) {
            const double w = 2.0 * std::numbers::pi * f / kSampleRate;
            Complex digital = 1.0;
            for (int32_t i = 0; i < prototype.getNumSections(); ++i)
                digital *= directFormResponse(sections[static_cast<size_t>(i)], w);
            // z = e^jw maps to s = j tan(w/2) / k in units of the reference frequency.
            const Complex analog = prototype.response(reference * std::tan(w / 2.0) / k);
            EXPECT_NEAR(std::abs(digital - analog), 0.0, 1e-7 * std::max(1.0, std::abs(analog)))
                << "shape " << static_cast<int>(c.shape) << " at " << f;
        }
    }
}

TEST(DigitalConversion, StateVariableFormRunsTheSameSections) {
    for (const Case& c : kCases) {
        if (c.shape == Shape::LowCut || c.shape == Shape::FlatTilt)
            continue; // sections far below the audio band ring for longer than the impulse
        const auto prototype = designedBand(c);
        std::array<DigitalSectionCoefficients, 8> direct{}, stateVariable{};
        prototype.toDigital(prewarp(c), DigitalForm::DirectForm, direct.data());
        prototype.toDigital(prewarp(c), DigitalForm::StateVariable, stateVariable.data());
        for (int32_t i = 0; i < prototype.getNumSections(); ++i) {
            for (double f : {50.0, 900.0, 12000.0}) {
                const double w = 2.0 * std::numbers::pi * f / kSampleRate;
                const Complex expected = directFormResponse(direct[static_cast<size_t>(i)], w);
                const Complex actual =
                    stateVariableResponse(stateVariable[static_cast<size_t>(i)], w, 1 << 15);
                EXPECT_NEAR(std::abs(actual - expected), 0.0, 1e-6 * std::max(1.0, std::abs(expected)))
                    << "shape " << static_cast<int>(c.shape) << " section " << i << " at " << f;
            }
        }
    }
}

TEST(DigitalConversion, NegligibleStaircaseStepsAreDropped) {
    // A Low Cut at 3 dB/oct from 100 Hz: steps below 1.25 Hz become identity, the audible band stays.
    AnalogFilterPrototype cut;
    designBand(cut, {Shape::LowCut, -0.5f, 0.0f, 1.0f, 100.0, 1000.0});
    const AnalogFilterPrototype full = cut;
    cut.dropNegligibleLowSections(1.25);
    EXPECT_EQ(cut.getSection(2).getCoefficients().b0, cut.getSection(2).getCoefficients().a0);
    EXPECT_NE(cut.getSection(1).getCoefficients().b0, cut.getSection(1).getCoefficients().a0);
    EXPECT_NEAR(prototype_test::levelDb(cut.getSection(2), 100.0), 0.0, 1e-12);
    for (double f : {20.0, 100.0, 1000.0})
        EXPECT_NEAR(prototype_test::levelDb(cut, f), prototype_test::levelDb(full, f), 0.05) << f;
}
