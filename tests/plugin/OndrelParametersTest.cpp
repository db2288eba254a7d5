#include "plugin/eq/OndrelParameters.h"
#include "plugin/eq/ParameterMappings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

struct ExpectedRow {
    std::string name;
    bool isFloat;
    double minimum;
    double maximum;
    double defaultValue;
    std::string items; // comma-separated value list, empty for none
    std::string unit;  // unit name, empty for none
    bool hasHelp;
};

const char* const kShapes =
    "Bell,Low Shelf,Low Cut,High Shelf,High Cut,Notch,Band Pass,Tilt Shelf,Flat Tilt,All Pass";
const char* const kSpeakers = "All Speakers,All (excl. LFE),LFE,Center,L/R (Front),Lc/Rc (Front Center),"
                              "Lss/Rss (Surround Side),Ls/Rs (Surround),Lsr/Rsr (Surround Rear),"
                              "Cs or S (Center Surround),Lts/Rts (Top Surround),L/C/R (Front + Center),"
                              "Lw/Rw (Wide),Ltf/Rtf (Top Surround Front),Ltr/Rtr (Top Surround Rear)";
const char* const kOffOn = "Off,On";
const char* const kDisEn = "Disabled,Enabled";

// The band rows: suffix, float?, minimum, maximum, default, items, unit, help.
const std::vector<ExpectedRow> kBandRows{
    {" Used", false, 0, 1, 0, "Unused,Used", "", false},
    {" Enabled", false, 0, 1, 1, kDisEn, "", true},
    {" Frequency", true, 3.321928, 14.872675, 9.965784, "", "log2 Hz", true},
    {" Gain", true, -30, 30, 0, "", "dB", true},
    {" Q", true, 0, 1, 0.5, "", "ratio", true},
    {" Shape", false, 0, 9, 7, kShapes, "", true},
    {" Slope", true, 0, 10, 2, "", "slope", true},
    {" Stereo Placement", false, 0, 4, 2, "Left,Right,Stereo,Mid,Side", "", true},
    {" Speakers", false, 0, 14, 1, kSpeakers, "", true},
    {" Dynamic Range", true, -30, 30, 0, "", "dB", true},
    {" Dynamics Enabled", false, 0, 1, 1, "Dynamics Disabled,Dynamics Enabled", "", true},
    {" Dynamics Auto", false, 0, 1, 1, "Dynamics Auto,Dynamics Manual", "", true},
    {" Threshold", true, 0, 1, 0.6666667, "", "dB", true},
    {" Attack", true, 0, 100, 50, "", "%", true},
    {" Release", true, 0, 100, 50, "", "%", true},
    {" External Side Chain", false, 0, 1, 0, kOffOn, "", true},
    {" Side Chain Filtering", false, 0, 1, 0, "Band,Free", "", false},
    {" Side Chain Low Frequency", true, 3.321928, 14.287712, 3.321928, "", "log2 Hz", true},
    {" Side Chain High Frequency", true, 3.321928, 14.287712, 14.287712, "", "log2 Hz", true},
    {" Side Chain Audition", false, 0, 1, 0, kDisEn, "", true},
    {" Spectral Enabled", false, 0, 1, 0, kDisEn, "", true},
    {" Spectral Density", true, 0, 100, 50, "", "", true},
    {" Solo", false, 0, 1, 0, kDisEn, "", true},
};

// Indexes 552..575.
const std::vector<ExpectedRow> kGlobalRows{
    {"Processing Mode", false, 0, 2, 0, "Zero Latency,Natural Phase,Linear Phase", "", false},
    {"Processing Resolution", false, 0, 4, 1, "Low,Medium,High,Very High,Maximum", "", false},
    {"Character", false, 0, 2, 0, "Clean,Subtle,Warm", "", false},
    {"Gain Scale", true, 0, 2, 1, "", "x", false},
    {"Output Level", true, -1, 1, 0, "", "dB", false},
    {"Output Pan", true, -1, 1, 0, "", "", false},
    {"Output Pan Mode", false, 0, 1, 0, "Left/Right,Mid/Side", "", false},
    {"Bypass", false, 0, 1, 0, "Not Bypassed,Bypassed", "", false},
    {"Output Invert Phase", false, 0, 1, 0, "Normal,Inverted", "", false},
    {"Auto Gain", false, 0, 1, 0, kOffOn, "", false},
    {"Analyzer Show Pre-Processing", false, 0, 1, 1, kDisEn, "", false},
    {"Analyzer Show Post-Processing", false, 0, 1, 1, kDisEn, "", false},
    {"Analyzer Show External Spectrum", false, 0, 1, 0, kDisEn, "", false},
    {"Analyzer External Spectrum", false, -1, 65536, -1, "", "", false},
    {"Analyzer Range", false, 0, 2, 1, "60 dB,90 dB,120 dB", "", false},
    {"Analyzer Resolution", false, 0, 3, 2, "Low,Medium,High,Maximum", "", false},
    {"Analyzer Speed", false, 0, 4, 2, "Very Slow,Slow,Medium,Fast,Very Fast", "", false},
    {"Analyzer Tilt", false, 0, 4, 3, "0 dB/oct,1.5 dB/oct,3 dB/oct,4.5 dB/oct,6 dB/oct", "", false},
    {"Analyzer Freeze", false, 0, 1, 0, kOffOn, "", false},
    {"Analyzer Show Collisions", false, 0, 1, 1, kDisEn, "", false},
    {"Spectrum Grab", false, 0, 1, 1, kDisEn, "", false},
    {"Display Range", false, 0, 3, 2, "3 dB,6 dB,12 dB,30 dB", "", false},
    {"Receive Midi", false, 0, 1, 0, "Enabled,Disabled", "", false},
    {"Solo Gain", true, -20, 20, 0, "", "dB", false},
};

std::vector<ExpectedRow> expectedLayout() {
    std::vector<ExpectedRow> rows;
    for (int band = 1; band <= 24; ++band)
        for (ExpectedRow row : kBandRows) {
            row.name = "Band " + std::to_string(band) + row.name;
            rows.push_back(row);
        }
    rows.insert(rows.end(), kGlobalRows.begin(), kGlobalRows.end());
    for (int band = 1; band <= 24; ++band)
        rows.push_back({"Band " + std::to_string(band) + " Spectral Tilt", false, 0, 1, 0, kDisEn, "", true});
    return rows;
}

std::string joined(const std::vector<std::string>& items) {
    std::string text;
    for (const std::string& item : items)
        text += (text.empty() ? "" : ",") + item;
    return text;
}

std::string unitName(const AbstractPluginParameter& parameter) {
    const auto* floating = dynamic_cast<const FloatPluginParameter*>(&parameter);
    return floating && floating->getUnit() ? floating->getUnit()->getName() : "";
}

class OndrelLayout : public ::testing::Test {
protected:
    GenericPluginBase owner;
    OndrelParameters layout{owner};
    EQParameterSet& band = layout.bands.getSet(3);
};

} // namespace

TEST_F(OndrelLayout, EveryHostParameterMatchesTheTable) {
    const std::vector<ExpectedRow> expected = expectedLayout();
    ASSERT_EQ(expected.size(), 600u);
    ASSERT_EQ(owner.getNumParameters(), 600);
    for (int32_t index = 0; index < 600; ++index) {
        const ExpectedRow& row = expected[static_cast<size_t>(index)];
        const AbstractPluginParameter* parameter = owner.getParameter(index);
        ASSERT_NE(parameter, nullptr);
        SCOPED_TRACE(row.name);
        EXPECT_EQ(parameter->getIndex(), index);
        EXPECT_EQ(parameter->getName(), row.name);
        EXPECT_EQ(parameter->getNumSteps() == 0, row.isFloat);
        EXPECT_NEAR(parameter->getMinimum(), row.minimum, 1e-5);
        EXPECT_NEAR(parameter->getMaximum(), row.maximum, 1e-5);
        EXPECT_NEAR(parameter->getDefaultPlain(), row.defaultValue, 1e-5);
        EXPECT_NEAR(parameter->getPlain(), row.defaultValue, 1e-5);
        EXPECT_EQ(joined(parameter->getItemTexts()), row.items);
        EXPECT_EQ(unitName(*parameter), row.unit);
        EXPECT_EQ(!parameter->getHelpText().empty(), row.hasHelp);
        EXPECT_TRUE(parameter->isAutomatable());
    }
    EXPECT_EQ(owner.getParameter(600), nullptr);
}

TEST_F(OndrelLayout, LandmarksAndSetArithmetic) {
    EXPECT_EQ(owner.getParameter(0), &layout.bands.getSet(0).used);
    EXPECT_EQ(owner.getParameter(551), &layout.bands.getSet(23).solo);
    EXPECT_EQ(owner.getParameter(552), &layout.processingMode);
    EXPECT_EQ(owner.getParameter(562), &layout.analyzer.showPreProcessing);
    EXPECT_EQ(owner.getParameter(575), &layout.soloGain);
    EXPECT_EQ(owner.getParameter(599), &layout.extensions.getSet(23).spectralTilt);

    EXPECT_EQ(layout.extensions.getFirstParameterIndex(), 576u);
    EXPECT_EQ(layout.extensions.getSetIndexForParameter(580), 4);
    EXPECT_EQ(layout.extensions.getSetIndexForParameter(575), -1);
    EXPECT_TRUE(layout.analyzer.containsParameterIndex(572));
    EXPECT_FALSE(layout.analyzer.containsParameterIndex(573));
}

TEST_F(OndrelLayout, ProductDescription) {
    EXPECT_EQ(owner.productName, "Ondrel");
    EXPECT_EQ(owner.presetSignature, "ZO4p");
    EXPECT_EQ(owner.formatNumber, 5u);
    EXPECT_EQ(owner.flags, 0xBEEu);
    ASSERT_EQ(owner.keyedValues.size(), 1u);
    EXPECT_EQ(owner.keyedValues.begin()->first, 2u);
    EXPECT_EQ(owner.layoutValue0, 3u);
    EXPECT_EQ(owner.layoutValue1, 1u);
    EXPECT_EQ(owner.layoutValue2, 48u);
}

TEST_F(OndrelLayout, FrequenciesSpanTenHertzToThirtyKilohertz) {
    band.frequency.setNormalized(1.0);
    EXPECT_NEAR(std::exp2(band.frequency.getValue()), 30000.0, 0.05);
    EXPECT_EQ(band.frequency.getText(), "30000");
    band.sideChainHighFrequency.setNormalized(1.0);
    EXPECT_NEAR(std::exp2(band.sideChainHighFrequency.getValue()), 20000.0, 0.05);
    EXPECT_EQ(band.sideChainLowFrequency.getTextForNormalized(0.0), "10.000");
    double normalized = 0.0;
    ASSERT_TRUE(band.frequency.parseText("A4", normalized));
    band.frequency.setNormalized(normalized);
    EXPECT_EQ(band.frequency.getText(), "440.00");
}

TEST_F(OndrelLayout, QStoresZeroToOneAndShowsTheQ) {
    EXPECT_NEAR(qFromNormalized(0.75), std::sqrt(40.0), 1e-9);
    EXPECT_NEAR(normalizedFromQ(40.0), 1.0, 1e-7);

    EXPECT_EQ(band.q.getText(), "1.000");
    EXPECT_EQ(band.q.getTextForNormalized(0.0), "0.025");
    EXPECT_EQ(band.q.getTextForNormalized(1.0), "40.00");
    double normalized = 0.0;
    ASSERT_TRUE(band.q.parseText("40", normalized));
    EXPECT_NEAR(normalized, 1.0, 1e-7);
    ASSERT_TRUE(band.q.parseText("0.5", normalized));
    band.q.setNormalized(normalized);
    EXPECT_NEAR(band.q.getValue(), 0.5 - std::log(2.0) / std::log(40.0) / 2.0, 1e-7); // 40^(2x-1) = 0.5
    EXPECT_EQ(band.q.getText(), "0.500");
    ASSERT_TRUE(band.q.parseText("1000", normalized));
    EXPECT_EQ(normalized, 1.0);
    EXPECT_FALSE(band.q.parseText("-2", normalized));
}

TEST(EqMappings, ThresholdIsPiecewiseLinear) {
    EXPECT_NEAR(thresholdFromNormalized(0.6666667), 0.7777778, 1e-6);
    EXPECT_NEAR(normalizedFromThreshold(0.7777778), 0.6666667, 1e-6);
    EXPECT_NEAR(thresholdFromNormalized(0.05), 0.1, 1e-12);
    EXPECT_NEAR(thresholdFromNormalized(0.15), 0.3333333, 1e-7);
    EXPECT_EQ(thresholdFromNormalized(1.5), 1.0);

    // The dynamic band's law, 60 (m - 1) dB, shown as the parameter's text and typed back.
    GenericPluginBase owner;
    OndrelParameters layout{owner};
    auto& threshold = layout.bands.getSet(0).threshold;
    EXPECT_EQ(threshold.getText(), "-13.33");
    EXPECT_EQ(threshold.getTextForNormalized(0.0), "-60.00");
    EXPECT_EQ(threshold.getTextForNormalized(0.1), "-48.00"); // m = 0.2
    EXPECT_EQ(threshold.getTextForNormalized(1.0), "0.00");
    double normalized = 0.0;
    ASSERT_TRUE(threshold.parseText("-48", normalized));
    EXPECT_NEAR(normalized, 0.1, 1e-6);
    const double xs[] = {0.0, 1.0};
    const double ys[] = {5.0, 7.0};
    EXPECT_EQ(interpolateBreakpoints(0.5, xs, ys, 1), 5.0); // fewer than two points: the last y
}

TEST_F(OndrelLayout, OutputLevelCurveAndDecibelText) {
    EXPECT_EQ(outputLevelToGain(-1.0), 0.0);
    EXPECT_NEAR(outputLevelToGain(1.0), 63.0957344, 1e-6);                  // +36 dB
    EXPECT_NEAR(outputLevelToGain(0.5), std::pow(10.0, 18.0 / 20.0), 1e-9); // knob 0.75: +18 dB
    // Below the knee the gain grows with the square of the knob position.
    EXPECT_NEAR(outputLevelToGain(-0.8), 0.25 * 0.083176374, 1e-12);
    for (double level : {-1.0, -0.95, -0.6, 0.0, 0.35, 1.0})
        EXPECT_NEAR(gainToOutputLevel(outputLevelToGain(level)), level, 1e-6) << level;

    EXPECT_EQ(layout.outputLevel.getText(), "0.00");
    EXPECT_EQ(layout.outputLevel.getTextForNormalized(1.0), "+36.00");
    EXPECT_EQ(layout.outputLevel.getTextForNormalized(0.2), "-21.60");
    EXPECT_EQ(layout.outputLevel.getTextForNormalized(0.0), "-INF");
    double normalized = 0.0;
    ASSERT_TRUE(layout.outputLevel.parseText("-21.6", normalized));
    EXPECT_NEAR(normalized, 0.2, 1e-6);
    EXPECT_EQ(layout.gainScale.getText(), "1.00");
}

TEST_F(OndrelLayout, ShapeStoresTheFilterShapeValue) {
    const int32_t valueOfItem[10] = {7, 2, 3, 5, 0, 10, 8, 6, 12, 11};
    // Bell, the shelves, Tilt Shelf and Flat Tilt use gain; Flat Tilt alone ignores Q.
    const bool gainOfItem[10] = {true, true, false, true, false, false, false, true, true, false};
    EXPECT_EQ(band.shape.getPlain(), 7.0f);
    for (int item = 0; item < 10; ++item) {
        band.shape.setNormalized(item / 9.0);
        EXPECT_EQ(band.shape.getPlain(), static_cast<float>(valueOfItem[item]));
        EXPECT_EQ(band.shape.getItemIndex(), item);
        EXPECT_EQ(band.shapeHasGain(), gainOfItem[item]) << item;
        EXPECT_EQ(band.shapeHasQ(), item != 8) << item;
    }
    band.shape.setPlain(3.0f);
    EXPECT_EQ(band.shape.getText(), "Low Cut");
    band.shape.setPlain(1.0f); // a designer variant outside the table
    EXPECT_EQ(band.shape.getPlain(), 1.0f);
    EXPECT_EQ(band.shape.getText(), "Bell");

    const int32_t groups[12] = {3, 2, 1, 5, 4, 1, 1, 1, 1, 1, 6, 1};
    for (int item = 0; item < 12; ++item)
        EXPECT_EQ(band.shape.getItemGroup(item), groups[item]);
}

TEST_F(OndrelLayout, BandStateQueries) {
    band.used.setValue(true);
    EXPECT_TRUE(band.isActive());
    EXPECT_FALSE(band.needsDynamicPath());
    band.dynamicRange.setValue(-6.0f);
    EXPECT_TRUE(band.isDynamic());
    band.dynamicRange.setValue(1e-8f);
    EXPECT_FALSE(band.isDynamic());
    band.dynamicRange.setValue(3.0f);

    band.dynamicsEnabled.setValue(false);
    EXPECT_FALSE(band.needsDynamicPath());
    band.spectralEnabled.setValue(true);
    EXPECT_TRUE(band.needsDynamicPath());
    band.shape.setValue(FilterShape::LowCut);
    EXPECT_FALSE(band.needsDynamicPath());

    band.shape.setValue(FilterShape::Bell);
    band.dynamicsEnabled.setValue(true);
    band.enabled.setValue(false);
    EXPECT_FALSE(band.isActive());
    EXPECT_FALSE(band.isDynamic());
    EXPECT_TRUE(band.isSpectral()); // spectral processing follows " Used" alone
}

TEST_F(OndrelLayout, SpeakerItemsSelectSpeakerSetCodes) {
    const int32_t codeOfItem[15] = {0, 1, 4, 5, 6, 7, 9, 10, 11, 12, 14, 3, 8, 13, 15};
    EXPECT_EQ(band.speakers.getValue(), chl::SpeakerSet::AllExceptLfe);
    for (int item = 0; item < 15; ++item) {
        band.speakers.setPlain(static_cast<float>(item));
        EXPECT_EQ(static_cast<int32_t>(band.speakers.getValue()), codeOfItem[item]);
    }
    band.speakers.setValue(chl::SpeakerSet::Lfe);
    EXPECT_EQ(band.speakers.getPlain(), 2.0f);
    band.speakers.setValue(chl::SpeakerSet::Height); // no list item: unchanged
    EXPECT_EQ(band.speakers.getPlain(), 2.0f);
}

TEST_F(OndrelLayout, BandHelpComesFromTheHintTexts) {
    EXPECT_EQ(band.q.getHelpText().rfind("The Q parameter lets you control the bandwidth", 0), 0u);
    EXPECT_EQ(layout.extensions.getSet(0).spectralTilt.getHelpText().rfind("The Spectral Tilt button", 0),
              0u);
}

TEST(FilterShapes, PredicatesCoverTheirValues) {
    const auto shapesWhere = [](bool (*predicate)(FilterShape)) {
        std::vector<int> values;
        for (int value = 0; value < kNumFilterShapes; ++value)
            if (predicate(static_cast<FilterShape>(value)))
                values.push_back(value);
        return values;
    };
    EXPECT_EQ(shapesWhere(isCut), (std::vector<int>{0, 3}));
    EXPECT_EQ(shapesWhere(hasGain), (std::vector<int>{1, 2, 4, 5, 6, 7, 12}));
    EXPECT_EQ(shapesWhere(isShelfOrTilt), (std::vector<int>{1, 2, 4, 5, 6, 12}));
    EXPECT_EQ(shapesWhere(isShelf), (std::vector<int>{1, 2, 4, 5}));
    EXPECT_EQ(shapesWhere(allowsZeroOrder), (std::vector<int>{0, 3, 8}));
    EXPECT_EQ(shapesWhere(isBandShape), (std::vector<int>{7, 8, 9, 10}));
    EXPECT_EQ(shapesWhere(needsHighPassTransform), (std::vector<int>{3, 4, 5, 6, 10}));
}
