#include "eq/SpectralAnalyzer.h"
#include "eq/AnalogFilterPrototype.h"
#include "eq/EQBandDesign.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

constexpr double kRate = 48000.0;
constexpr int32_t kBins = 4097; // an 8192-point analysis
const double kBinHz = kRate / 8192.0;

SpectralAnalyzer::Settings wideBand(float density) {
    SpectralAnalyzer::Settings settings;
    settings.lowEdge = static_cast<float>(std::log2(20.0));
    settings.highEdge = static_cast<float>(std::log2(20000.0));
    settings.density = density;
    settings.range = 12.0f;
    settings.thresholdDb = -30.0f;
    settings.attack = 0.0f;
    settings.release = 0.0f;
    return settings;
}

int32_t binOf(double hz) {
    return static_cast<int32_t>(std::lround(hz / kBinHz));
}

// A cutting Bell: static at 0 dB, full range at -12 dB.
struct CuttingBell {
    CuttingBell(double hz, float q) {
        designBand(staticDesign, {FilterShape::Bell, 1.0f, 0.0f, q, hz});
        designBand(fullDesign, {FilterShape::Bell, 1.0f, -12.0f, q, hz});
    }
    AnalogFilterPrototype staticDesign;
    AnalogFilterPrototype fullDesign;
};

TEST(SpectralAnalyzerTest, DensitySetsHowManySubBandsCoverTheRange) {
    const std::pair<float, int32_t> cases[] = {{0.0f, 58}, {50.0f, 93}, {100.0f, 128}};
    for (const auto& [density, expected] : cases) {
        SpectralAnalyzer analyzer;
        analyzer.setBinGrid(kBins, kBinHz);
        analyzer.configure(wideBand(density), kRate);
        EXPECT_EQ(analyzer.getSubBandCount(), expected) << "density " << density;
        EXPECT_NEAR(analyzer.getStep() * analyzer.getSubBandCount(), std::log2(20000.0 / 20.0), 1e-4);
    }
}

TEST(SpectralAnalyzerTest, TiltWeighsEachOctaveThreeDecibelsMore) {
    // A wide, deep cut: every sub-band's shape factor is 1, so the weights show the tilt alone.
    CuttingBell bell(1000.0, 0.1f);
    SpectralAnalyzer::Settings settings = wideBand(50.0f);
    settings.lowEdge = static_cast<float>(std::log2(250.0));
    settings.highEdge = static_cast<float>(std::log2(4000.0));
    settings.range = 1.0f;
    settings.tilt = 3.0f;
    SpectralAnalyzer analyzer;
    analyzer.setBinGrid(kBins, kBinHz);
    analyzer.configure(settings, kRate);
    analyzer.setResponses(&bell.staticDesign, &bell.fullDesign);
    const int32_t perOctave = static_cast<int32_t>(std::lround(1.0 / analyzer.getStep()));
    ASSERT_GT(analyzer.getSubBandCount(), perOctave);
    const double ratio = analyzer.getWeight(perOctave) / analyzer.getWeight(0);
    EXPECT_NEAR(ratio, std::pow(10.0, 3.0 * perOctave * analyzer.getStep() / 20.0), 1e-4);
    EXPECT_NEAR(std::pow(ratio, 1.0 / (perOctave * analyzer.getStep())), std::pow(10.0, 3.0 / 20.0), 1e-4);
}

TEST(SpectralAnalyzerTest, OnlyTheLoudFrequencyInsideTheBandIsReduced) {
    CuttingBell bell(1000.0, 0.5f);
    SpectralAnalyzer::Settings settings = wideBand(50.0f);
    settings.lowEdge = static_cast<float>(std::log2(300.0));
    settings.highEdge = static_cast<float>(std::log2(3300.0));
    SpectralAnalyzer analyzer;
    analyzer.setBinGrid(kBins, kBinHz);
    analyzer.configure(settings, kRate);
    analyzer.setResponses(&bell.staticDesign, &bell.fullDesign);

    // A loud tone at 700 Hz and a soft one at 1500 Hz, both inside the band.
    std::vector<float> spectrum(kBins, 0.0f);
    spectrum[static_cast<size_t>(binOf(700.0))] = 0.5f;
    spectrum[static_cast<size_t>(binOf(1500.0))] = 0.001f;
    for (int frame = 0; frame < 50; ++frame) {
        analyzer.markForReset();
        analyzer.gatherSpectrum(spectrum.data(), kBins);
        analyzer.update(4096);
    }
    EXPECT_GT(analyzer.getBinGain(binOf(700.0)), 0.3f) << "the loud tone's frequency is reduced";
    EXPECT_FLOAT_EQ(analyzer.getBinGain(binOf(1500.0)), 0.0f) << "the soft one is left alone";
    EXPECT_FLOAT_EQ(analyzer.getBinGain(binOf(100.0)), 0.0f) << "outside the band nothing moves";

    // The response moves toward the full range there, and never past it.
    std::vector<double> staticPower(kBins);
    std::vector<float> fullPower(kBins);
    for (int32_t i = 0; i < kBins; ++i) {
        staticPower[static_cast<size_t>(i)] = bell.staticDesign.squaredMagnitude(i * kBinHz);
        fullPower[static_cast<size_t>(i)] = static_cast<float>(bell.fullDesign.squaredMagnitude(i * kBinHz));
    }
    const std::vector<double> before = staticPower;
    analyzer.applyToMagnitudes(0, staticPower.data(), fullPower.data(), kBins);
    const auto at = [](const auto& v, double hz) {
        return static_cast<double>(v[static_cast<size_t>(binOf(hz))]);
    };
    EXPECT_LT(at(staticPower, 700.0), at(before, 700.0) * 0.9);
    EXPECT_GE(at(staticPower, 700.0), at(fullPower, 700.0) * (1.0 - 1e-6));
    EXPECT_DOUBLE_EQ(at(staticPower, 1500.0), at(before, 1500.0));
}

TEST(SpectralAnalyzerTest, QuietMaterialLeavesTheStaticResponseAndFullReductionStopsAtTheRange) {
    CuttingBell bell(1000.0, 1.0f);
    SpectralAnalyzer::Settings settings = wideBand(50.0f);
    settings.range = 12.0f;
    SpectralAnalyzer analyzer;
    analyzer.setBinGrid(kBins, kBinHz);
    analyzer.configure(settings, kRate);
    analyzer.setResponses(&bell.staticDesign, &bell.fullDesign);
    std::vector<float> spectrum(kBins, 0.01f); // -40 dB: below the -30 dB threshold
    std::vector<double> staticPower(kBins, 1.0);
    std::vector<float> fullPower(kBins, 0.0625f);
    for (int frame = 0; frame < 20; ++frame) {
        analyzer.markForReset();
        analyzer.gatherSpectrum(spectrum.data(), kBins);
        analyzer.update(4096);
    }
    for (int32_t k = 0; k < analyzer.getSubBandCount(); ++k)
        ASSERT_EQ(analyzer.getGainReduction(k), 0.0f);
    std::vector<double> shaped = staticPower;
    analyzer.applyToMagnitudes(0, shaped.data(), fullPower.data(), kBins);
    EXPECT_EQ(shaped, staticPower);

    // Very loud everywhere: the shaped power reaches the full range and stops there.
    std::fill(spectrum.begin(), spectrum.end(), 100.0f);
    for (int frame = 0; frame < 200; ++frame) {
        analyzer.markForReset();
        analyzer.gatherSpectrum(spectrum.data(), kBins);
        analyzer.update(4096);
    }
    analyzer.applyToMagnitudes(0, shaped.data(), fullPower.data(), kBins);
    EXPECT_NEAR(shaped[static_cast<size_t>(binOf(1000.0))], 0.0625, 1e-3);
    for (double power : shaped)
        ASSERT_GE(power, 0.0625 - 1e-9);
}

TEST(SpectralAnalyzerTest, ExpansionBoostsTowardTheFullRangeAndNoFurther) {
    SpectralAnalyzer::Settings settings = wideBand(50.0f);
    AnalogFilterPrototype flat;
    AnalogFilterPrototype boost;
    designBand(flat, {FilterShape::Bell, 1.0f, 0.0f, 0.3f, 1000.0});
    designBand(boost, {FilterShape::Bell, 1.0f, 12.0f, 0.3f, 1000.0});
    SpectralAnalyzer analyzer;
    analyzer.setBinGrid(kBins, kBinHz);
    analyzer.configure(settings, kRate);
    analyzer.setResponses(&flat, &boost);
    std::vector<float> spectrum(kBins, 1.0f);
    for (int frame = 0; frame < 200; ++frame) {
        analyzer.markForReset();
        analyzer.gatherSpectrum(spectrum.data(), kBins);
        analyzer.update(4096);
    }
    std::vector<double> power(kBins, 1.0);
    std::vector<float> fullPower(kBins, 15.85f);
    analyzer.applyToMagnitudes(0, power.data(), fullPower.data(), kBins);
    const double at = power[static_cast<size_t>(binOf(1000.0))];
    EXPECT_GT(at, 1.5);
    EXPECT_LE(at, 15.85 + 1e-6);
}

TEST(SpectralAnalyzerTest, LowSubBandsReactSlowerThanHighOnes) {
    CuttingBell bell(1000.0, 0.1f);
    SpectralAnalyzer::Settings settings = wideBand(50.0f);
    settings.attack = 30.0f;
    // A small range: every sub-band's weight is 1 and its target the same.
    settings.range = 1.0f;
    SpectralAnalyzer analyzer;
    analyzer.setBinGrid(kBins, kBinHz);
    analyzer.configure(settings, kRate);
    analyzer.setResponses(&bell.staticDesign, &bell.fullDesign);
    std::vector<float> spectrum(kBins, 1.0f);
    analyzer.markForReset();
    analyzer.gatherSpectrum(spectrum.data(), kBins);
    analyzer.update(256);
    // Sub-bands at or below 100 Hz take three times as long as those at 10 kHz and up.
    const auto subBandAt = [&analyzer](double hz) {
        return static_cast<int32_t>(std::lround((std::log2(hz) - analyzer.getStart()) / analyzer.getStep()));
    };
    const float low = analyzer.getGainReduction(subBandAt(100.0));
    const float high = analyzer.getGainReduction(subBandAt(12000.0));
    ASSERT_GT(low, 0.0f);
    // Both head for the same target; after the same time the slow one has covered less.
    EXPECT_LT(low, high * 0.6f);
}

} // namespace
