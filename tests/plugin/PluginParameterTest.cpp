#include "plugin/ParameterSets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

namespace {

// Records every value change it is told of.
class RecordingOwner : public GenericParameterResponder {
public:
    void parameterValueChanged(int32_t index, float plainValue) override {
        changes.emplace_back(index, plainValue);
    }
    std::vector<std::pair<int32_t, float>> changes;
};

double normalizedOfText(const AbstractPluginParameter& parameter, const char* text) {
    double normalized = -1.0;
    EXPECT_TRUE(parameter.parseText(text, normalized)) << text;
    return normalized;
}

} // namespace

TEST(FloatParameter, ClampsAndNotifiesOnlyRealChanges) {
    RecordingOwner owner;
    FloatPluginParameter first(owner, "First", -1.0f, 1.0f, 0.0f);
    FloatPluginParameter level(owner, "Level", 0.0f, 100.0f, 50.0f);

    level.setValue(150.0f);
    level.setValue(100.0f + 1e-8f);
    EXPECT_EQ(owner.changes, (std::vector<std::pair<int32_t, float>>{{1, 100.0f}}));
    level.setValue(-3.0f);
    level.setValue(NAN);
    EXPECT_EQ(level.getValue(), 0.0f);
    EXPECT_EQ(owner.changes.size(), 2u);
}

TEST(FloatParameter, LinearOrMappedNormalisedValues) {
    GenericParameterResponder owner;
    FloatPluginParameter gain(owner, "Gain", -30.0f, 30.0f, 6.0f);
    EXPECT_DOUBLE_EQ(gain.getDefaultNormalized(), 0.6);
    gain.setNormalized(0.25);
    EXPECT_FLOAT_EQ(gain.getValue(), -15.0f);

    FloatPluginParameter time(owner, "Time", 0.0f, 100.0f, 0.0f);
    time.setMapping([](double x) { return x * x * 100.0; },
                    [](double plain) { return std::sqrt(plain / 100.0); });
    time.setNormalized(0.5);
    EXPECT_FLOAT_EQ(time.getValue(), 25.0f);
    time.setValue(81.0f);
    EXPECT_NEAR(time.getNormalized(), 0.9, 1e-7);
    EXPECT_EQ(time.getTextForNormalized(0.1), "1.000");
}

TEST(FloatParameter, SetRangeResetsTheValueAndRejectsAnOutsideDefault) {
    GenericParameterResponder owner;
    FloatPluginParameter amount(owner, "Amount", 0.0f, 1.0f, 0.5f);
    amount.setValue(0.9f);
    amount.setRange(0.0f, 10.0f, 2.0f);
    EXPECT_EQ(amount.getValue(), 2.0f);
    EXPECT_DEATH(amount.setRange(0.0f, 1.0f, 2.0f), "default outside");
    EXPECT_DEATH(FloatPluginParameter(owner, "Bad", 1.0f, 0.0f, 0.5f), "default outside");
}

TEST(FloatParameter, TextThroughDisplayTransformAndUnit) {
    GenericParameterResponder owner;
    FloatPluginParameter shown(owner, "Shown", 0.0f, 10.0f, 5.0f);
    shown.setDisplayTransform(10.0f, 2.0f);
    EXPECT_EQ(shown.getText(), "20.00");
    EXPECT_NEAR(normalizedOfText(shown, "14"), 0.2, 1e-9);

    FloatPluginParameter gain(owner, "Gain", -30.0f, 30.0f, 3.0f, &DBParameterUnit::instance());
    EXPECT_EQ(gain.getText(), "+3.00");
    EXPECT_NEAR(normalizedOfText(gain, "-15"), 0.25, 1e-9);
    EXPECT_NEAR(normalizedOfText(gain, "99"), 1.0, 1e-9);
    double unchanged = 0.75;
    EXPECT_FALSE(gain.parseText("loud", unchanged));
    EXPECT_EQ(unchanged, 0.75);
}

TEST(FloatParameter, FrequencyStoredAsLog2HzReadsHzNumbersAndNotes) {
    GenericParameterResponder owner;
    FloatPluginParameter frequency(owner, "Frequency", std::log2(10.0f), std::log2(30000.0f),
                                   std::log2(1000.0f), &ExpFreqParameterUnit::instance());
    EXPECT_EQ(frequency.getText(), "1000.0");
    const auto hzOf = [&](const char* text) {
        return std::exp2(frequency.normalizedToPlain(normalizedOfText(frequency, text)));
    };
    EXPECT_NEAR(hzOf("2k"), 2000.0, 0.01);
    EXPECT_NEAR(hzOf("120"), 120.0, 0.001);
    EXPECT_NEAR(hzOf("2.5 kHz"), 2500.0, 0.01);
    EXPECT_NEAR(hzOf("c4"), 261.63, 0.005);
    // An absurd octave is still a very high note, clamped to the top of the range.
    EXPECT_NEAR(hzOf("C2147483647"), 30000.0, 0.05);
    double normalized = 0.0;
    EXPECT_FALSE(frequency.parseText("H4", normalized));
}

TEST(IndexedParameter, NormalisedValuesRoundToTheNearestItem) {
    RecordingOwner owner;
    IndexedPluginParameter<int32_t> placement(owner, "Placement", "Left,Right,Stereo,Mid,Side", 2);
    EXPECT_EQ(placement.getNumSteps(), 4);
    EXPECT_DOUBLE_EQ(placement.getDefaultNormalized(), 0.5);
    placement.setNormalized(0.124);
    EXPECT_EQ(placement.getText(), "Left");
    placement.setNormalized(0.126);
    EXPECT_EQ(placement.getItemIndex(), 1);
    placement.setNormalized(0.5);
    EXPECT_EQ(placement.getText(), "Stereo");
    EXPECT_EQ(placement.getTextForNormalized(0.875), "Side");
    EXPECT_EQ(placement.getTextForNormalized(0.874), "Mid");
    EXPECT_EQ(owner.changes, (std::vector<std::pair<int32_t, float>>{{0, 0.0f}, {0, 1.0f}, {0, 2.0f}}));
}

TEST(IndexedParameter, PlainValuesClampAndTextsParseToItems) {
    GenericParameterResponder owner;
    IndexedPluginParameter<int32_t> placement(owner, "Placement", "Left,Right,Stereo,Mid,Side", 2);
    placement.setPlain(9.0f);
    EXPECT_EQ(placement.getPlain(), 4.0f);
    placement.setPlain(0.6f);
    EXPECT_EQ(placement.getPlain(), 1.0f);
    placement.setPlain(NAN);
    placement.setNormalized(NAN);
    EXPECT_EQ(placement.getPlain(), 0.0f); // NaN plain is ignored, NaN normalised reads as 0

    EXPECT_DOUBLE_EQ(normalizedOfText(placement, "Mid"), 0.75);
    EXPECT_DOUBLE_EQ(normalizedOfText(placement, "1"), 0.25);
    double normalized = 0.0;
    EXPECT_FALSE(placement.parseText("Centre", normalized));
    EXPECT_FALSE(placement.parseText("2x", normalized));
    EXPECT_DEATH(IndexedPluginParameter<int32_t>(owner, "Bad", "A,B", 2), "outside");
}

TEST(IndexedParameter, IntegerRangeAndValueTable) {
    GenericParameterResponder owner;
    IndexedPluginParameter<int32_t> source(owner, "Source", -1, 65536, -1);
    EXPECT_EQ(source.getText(), "-1");
    EXPECT_DOUBLE_EQ(source.getNormalized(), 0.0);
    source.setNormalized(1.0);
    EXPECT_EQ(source.getValue(), 65536);

    static constexpr std::array<int32_t, 3> kTable{10, 20, 30};
    IndexedPluginParameter<int32_t> stepped(owner, "Stepped", "", kTable, 1, 20);
    EXPECT_EQ(stepped.getMaximumIndex(), 3);
    EXPECT_EQ(stepped.getItemIndex(), 2);
    EXPECT_EQ(stepped.getTextForNormalized(0.0), "10"); // index 0 clamps to the first entry
    EXPECT_EQ(stepped.getTextForNormalized(1.0), "30");
    stepped.setNormalized(1.0);
    EXPECT_EQ(stepped.getValue(), 30);
    stepped.setPlain(25.0f); // not in the table but inside its span: kept, and counts as the offset
    EXPECT_EQ(stepped.getValue(), 25);
    EXPECT_EQ(stepped.getItemIndex(), 1);
    stepped.setPlain(99.0f); // beyond the table's span: clamped to its largest value
    EXPECT_EQ(stepped.getValue(), 30);
    stepped.setPlain(-1.0e30f);
    EXPECT_EQ(stepped.getValue(), 10);
    EXPECT_NEAR(normalizedOfText(stepped, "30"), 1.0, 1e-12);
}

TEST(ParameterUnits, TimeUnitsGuessTheUnitOfBareNumbers) {
    const MsParameterUnit& ms = MsParameterUnit::instance();
    EXPECT_DOUBLE_EQ(*ms.parse("0.5", 1.0, 5000.0), 500.0);
    EXPECT_DOUBLE_EQ(*ms.parse("20", 1.0, 5000.0), 20.0);
    EXPECT_DOUBLE_EQ(*ms.parse("1.5 s", 1.0, 5000.0), 1500.0);
    EXPECT_DOUBLE_EQ(*ms.parse("30", 1.0, 20.0), 30.0); // too large either way: left to clamping
    EXPECT_DOUBLE_EQ(*ms.parse("-1", -10000.0, -5.0), -1000.0);

    const SecParameterUnit& sec = SecParameterUnit::instance();
    EXPECT_DOUBLE_EQ(*sec.parse("250", 0.01, 10.0), 0.25);
    EXPECT_DOUBLE_EQ(*sec.parse("0.5", 0.01, 10.0), 0.5);
    EXPECT_DOUBLE_EQ(*sec.parse("20 ms", 0.01, 10.0), 0.02);
    EXPECT_DOUBLE_EQ(*sec.parse("0.5", 0.0001, 0.8), 0.0005);
    EXPECT_DOUBLE_EQ(*sec.parse("0.05", 0.0001, 0.8), 0.05);
    EXPECT_EQ(sec.format(1.5), "1.500 sec");
    EXPECT_EQ(sec.format(0.005), "5.000 ms");
}

TEST(ParameterUnits, FrequencyAndFactorUnits) {
    EXPECT_NEAR(*HzParameterUnit::instance().parse("A4", 10.0, 30000.0), 440.0, 1e-4);
    EXPECT_DOUBLE_EQ(ExpFreqParameterUnit::instance().fromShown(2048.0), 11.0);
    EXPECT_DOUBLE_EQ(ExpFreqWithZeroParameterUnit::instance().toShown(0.0), 0.0);
    EXPECT_DOUBLE_EQ(ExpFreqWithZeroParameterUnit::instance().fromShown(0.0), 0.0);

    EXPECT_DOUBLE_EQ(*DBRangeParameterUnit::instance().parse("1.5x", 0.0, 2.0), 1.5);
    EXPECT_DOUBLE_EQ(*DBRangeParameterUnit::instance().parse("150%", 0.0, 2.0), 1.5);
    EXPECT_EQ(DBRangeParameterUnit::instance().format(1.0), "1.00");
    EXPECT_EQ(SlopeParameterUnit::instance().format(2.25), "2.3");
    EXPECT_EQ(PercentParameterUnit::instance().format(50.0), "50.00");
}

TEST(ParameterUnits, EveryUnitIsListedOnce) {
    const std::vector<const FloatPluginParameterUnit*> expected{&MsParameterUnit::instance(),
                                                                &SecParameterUnit::instance(),
                                                                &HzParameterUnit::instance(),
                                                                &ExpFreqParameterUnit::instance(),
                                                                &ExpFreqWithZeroParameterUnit::instance(),
                                                                &DBParameterUnit::instance(),
                                                                &DBRangeParameterUnit::instance(),
                                                                &OctavesParameterUnit::instance(),
                                                                &PercentParameterUnit::instance(),
                                                                &RatioParameterUnit::instance(),
                                                                &SlopeParameterUnit::instance()};
    const auto all = FloatPluginParameterUnit::allUnits();
    for (const FloatPluginParameterUnit* unit : expected)
        EXPECT_EQ(std::count(all.begin(), all.end(), unit), 1) << unit->getName();
}
