#include "plugin/ParameterText.h"

#include <gtest/gtest.h>

#include <cmath>

TEST(NumberFormatting, SignificantFiguresShrinkThePrecisionAsTheValueGrows) {
    EXPECT_EQ(formatNumber("*3f", 1.2345), "1.235");
    EXPECT_EQ(formatNumber("*3f", 12.345), "12.35");
    EXPECT_EQ(formatNumber("*3f", 123.45), "123.5");
    EXPECT_EQ(formatNumber("*3f", 1234.5), "1234.5");
    EXPECT_EQ(formatNumber("*3f", 12345.6), "12345.6");
    EXPECT_EQ(formatNumber("*3f", 250.0), "250.0");
    // Just below the rounding limit the precision stays; at it, one figure goes.
    EXPECT_EQ(formatNumber("*3f", 9.9994), "9.999");
    EXPECT_EQ(formatNumber("*3f", 9.9996), "10.00");
}

TEST(NumberFormatting, FloatValuesRoundLikeTheirShortestDecimalText) {
    EXPECT_EQ(formatNumber("*3f", 1.2345f), "1.235");
    EXPECT_EQ(formatNumber("*3f", 123.45f), "123.5");
    EXPECT_EQ(formatNumber("%.2f", 0.125), "0.13");
    EXPECT_EQ(formatNumber("%.2f", -0.125), "-0.13");
    EXPECT_EQ(formatNumber("%.0f", 9.5), "10");
    EXPECT_EQ(formatNumber("%.1f", 99.96), "100.0");
}

TEST(NumberFormatting, SignOfZeroIsDroppedAndInfinityHasAName) {
    EXPECT_EQ(formatNumber("*3f", -0.0004), "0.000");
    EXPECT_EQ(formatNumber("%+.2f", -0.0), "0.00");
    EXPECT_EQ(formatNumber("%+.2f", 0.001), "0.00");
    EXPECT_EQ(formatNumber("%+.2f", 3.0), "+3.00");
    EXPECT_EQ(formatNumber("*+3f", -12.345), "-12.35");
    EXPECT_EQ(formatNumber("*3f", INFINITY), "INF");
    EXPECT_EQ(formatNumber("%.2f", -INFINITY), "-INF");
}

TEST(NumberFormatting, OtherFormatsGoToThePrintFunction) {
    EXPECT_EQ(formatNumber("%.3e", 1234.5), "1.234e+03");
    EXPECT_EQ(formatNumber("*3e", 0.5), "5.000e-01");
    EXPECT_EQ(formatNumber("%g", 0.25), "0.25");
}

TEST(DecibelText, FixedDecimalsOrSignificantFigures) {
    EXPECT_EQ(decibelText(3.0, 2, 1), "+3.00");
    EXPECT_EQ(decibelText(-6.02, 2, 1), "-6.02");
    EXPECT_EQ(decibelText(0.0, 2, 1), "0.00");
    EXPECT_EQ(decibelText(-0.004, 2, 1), "0.00");
    EXPECT_EQ(decibelText(3.14159, 3, 0), "+3.142");
    EXPECT_EQ(decibelText(-24.5, 3, 0), "-24.50");
    EXPECT_EQ(decibelText(-INFINITY, 2, 1), "-INF");
}

TEST(FrequencyText, DecimalsFallAsTheFrequencyRises) {
    EXPECT_EQ(frequencyText(1000.0), "1000.0");
    EXPECT_EQ(frequencyText(99.99), "99.990");
    EXPECT_EQ(frequencyText(10000.0), "10000");
    EXPECT_EQ(frequencyText(440.0), "440.00");
    EXPECT_EQ(frequencyText(20.0), "20.000");
    EXPECT_EQ(frequencyText(9999.96), "10000");
    EXPECT_EQ(frequencyText(999.996), "1000.0");
}

TEST(TimeText, MillisecondsUpToOneSecondThenSeconds) {
    EXPECT_EQ(timeText(250.0), "250.0 ms");
    EXPECT_EQ(timeText(1500.0), "1.500 sec");
    EXPECT_EQ(timeText(5.0), "5.000 ms");
    EXPECT_EQ(timeText(999.0), "999.0 ms");
    EXPECT_EQ(timeText(1000.0), "1.000 sec");
    EXPECT_EQ(timeText(12500.0), "12.50 sec");
}

namespace {

double hzOfNote(double note) {
    return std::exp2(log2HzFromNote(note));
}

double parsedHz(const char* text) {
    const auto note = parseNote(text);
    EXPECT_TRUE(note.has_value()) << text;
    return note ? hzOfNote(*note) : 0.0;
}

} // namespace

TEST(NoteNames, ParsedNotesGiveTheirEqualTemperedFrequencies) {
    EXPECT_NEAR(parsedHz("A4"), 440.0, 0.005);
    EXPECT_NEAR(parsedHz("C4"), 261.63, 0.005);
    EXPECT_NEAR(parsedHz("a#5"), 932.33, 0.005);
    EXPECT_NEAR(parsedHz("A4+50"), 452.89, 0.005);
    EXPECT_NEAR(parsedHz("A"), 440.0, 0.005);
    EXPECT_NEAR(parsedHz("  Bb3"), 233.08, 0.005);
    EXPECT_NEAR(parsedHz("A#5 + 20"), 943.16, 0.005);
    EXPECT_NEAR(parsedHz("E2 -35"), 80.76, 0.005);
    EXPECT_NEAR(parsedHz("C-1"), 8.176, 0.0005);
}

TEST(NoteNames, TextsThatAreNotNotes) {
    EXPECT_FALSE(parseNote("H4").has_value());
    EXPECT_FALSE(parseNote("").has_value());
    EXPECT_FALSE(parseNote("440").has_value());
    EXPECT_FALSE(parseNote("A4 Hz").has_value());
    EXPECT_FALSE(parseNote("C4 +").has_value());
}

TEST(NoteNames, DisplayShowsTheNearestNoteAndCents) {
    EXPECT_EQ(noteText(69.0), "A4 +00");
    EXPECT_EQ(noteText(60.0), "C4 +00");
    EXPECT_EQ(noteText(69.3), "A4 +30");
    EXPECT_EQ(noteText(69.7), "A#4 -30");
    EXPECT_EQ(noteText(82.0), "A#5 +00");
    EXPECT_EQ(noteText(59.96), "C4 -04");
    EXPECT_EQ(noteText(0.0), "C-1 +00");
    EXPECT_EQ(noteText(noteFromLog2Hz(std::log2(1000.0))), "B5 +21");
}

// The A4 constant is log2(440) in single precision, good to about a millionth of a semitone.
TEST(NoteNames, NoteAndLog2FrequencyAreInverse) {
    EXPECT_NEAR(noteFromLog2Hz(std::log2(440.0)), 69.0, 1e-6);
    EXPECT_NEAR(noteFromLog2Hz(std::log2(880.0)), 81.0, 1e-6);
    EXPECT_NEAR(log2HzFromNote(57.0), std::log2(220.0), 1e-7);
    EXPECT_DOUBLE_EQ(noteFromLog2Hz(log2HzFromNote(42.5)), 42.5);
}

TEST(TypedNumbers, SuffixesMultiplyAndAnythingElseFails) {
    const std::vector<UnitSuffix> hz{{"Hz", 1.0}, {"kHz", 1000.0}, {"k", 1000.0}};
    const auto twoK = parseNumberWithSuffix("2k", hz);
    ASSERT_TRUE(twoK.has_value());
    EXPECT_DOUBLE_EQ(twoK->value, 2000.0);
    EXPECT_TRUE(twoK->hadSuffix);

    const auto plain = parseNumberWithSuffix(" 120 ", hz);
    ASSERT_TRUE(plain.has_value());
    EXPECT_DOUBLE_EQ(plain->value, 120.0);
    EXPECT_FALSE(plain->hadSuffix);

    EXPECT_DOUBLE_EQ(parseNumberWithSuffix("120 Hz", hz)->value, 120.0);
    EXPECT_DOUBLE_EQ(parseNumberWithSuffix("2.5 KHZ", hz)->value, 2500.0);
    EXPECT_DOUBLE_EQ(parseNumberWithSuffix("-3.5", {})->value, -3.5);
    EXPECT_DOUBLE_EQ(parseNumberWithSuffix("+4", {})->value, 4.0);

    EXPECT_FALSE(parseNumberWithSuffix("12 apples", hz).has_value());
    EXPECT_FALSE(parseNumberWithSuffix("", hz).has_value());
    EXPECT_FALSE(parseNumberWithSuffix("k", hz).has_value());
    EXPECT_FALSE(parseNumberWithSuffix("--5", {}).has_value());
    EXPECT_FALSE(parseNumberWithSuffix("inf", {}).has_value());
}
