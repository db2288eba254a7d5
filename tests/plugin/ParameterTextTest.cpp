#include "plugin/ParameterText.h"

#include <gtest/gtest.h>

#include <cmath>

TEST(NumberFormatting, SignificantFiguresShrinkThePrecisionAsTheValueGrows) {
    EXPECT_EQ(formatNumber("*3f", 1.2345), "1.235");
    EXPECT_EQ(formatNumber("*3f", 12.345), "12.35");
    EXPECT_EQ(formatNumber("*3f", 123.45), "123.5");
    EXPECT_EQ(formatNumber("*3f", 1234.5), "1234.5");
    EXPECT_EQ(formatNumber("*3f", 12345.6), "12345.6");
    // Just below the rounding limit the precision stays; at it, one figure goes.
    EXPECT_EQ(formatNumber("*3f", 9.9994), "9.999");
    EXPECT_EQ(formatNumber("*3f", 9.9996), "10.00");
    EXPECT_EQ(formatNumber("*3f", 1.2345f), "1.235");
    EXPECT_EQ(formatNumber("*3e", 0.5), "5.000e-01");
}

TEST(NumberFormatting, FixedDecimalsRoundHalvesAwayFromZero) {
    EXPECT_EQ(formatNumber("%.2f", 0.125), "0.13");
    EXPECT_EQ(formatNumber("%.2f", -0.125), "-0.13");
    EXPECT_EQ(formatNumber("%.3e", 1234.5), "1.234e+03");
}

TEST(NumberFormatting, SignOfZeroIsDroppedAndInfinityHasAName) {
    EXPECT_EQ(formatNumber("*3f", -0.0004), "0.000");
    EXPECT_EQ(formatNumber("%+.2f", -0.0), "0.00");
    EXPECT_EQ(formatNumber("%+.2f", 0.001), "0.00");
    EXPECT_EQ(formatNumber("*+3f", -12.345), "-12.35");
    EXPECT_EQ(formatNumber("*3f", INFINITY), "INF");
    EXPECT_EQ(formatNumber("%.2f", -INFINITY), "-INF");
}

TEST(UnitTexts, DecibelsFrequenciesAndTimes) {
    EXPECT_EQ(decibelText(3.0, 2, 1), "+3.00");
    EXPECT_EQ(decibelText(-0.004, 2, 1), "0.00");
    EXPECT_EQ(decibelText(3.14159, 3, 0), "+3.142");
    EXPECT_EQ(decibelText(-INFINITY, 2, 1), "-INF");

    EXPECT_EQ(frequencyText(1000.0), "1000.0");
    EXPECT_EQ(frequencyText(99.99), "99.990");
    EXPECT_EQ(frequencyText(10000.0), "10000");
    EXPECT_EQ(frequencyText(9999.96), "10000");
    EXPECT_EQ(frequencyText(999.996), "1000.0");

    EXPECT_EQ(timeText(250.0), "250.0 ms");
    EXPECT_EQ(timeText(1500.0), "1.500 sec");
    EXPECT_EQ(timeText(5.0), "5.000 ms");
    EXPECT_EQ(timeText(1000.0), "1.000 sec");
}

namespace {

double parsedHz(const char* text) {
    const auto note = parseNote(text);
    EXPECT_TRUE(note.has_value()) << text;
    return note ? std::exp2(log2HzFromNote(*note)) : 0.0;
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
    // The A4 constant is log2(440) in single precision, good to about a millionth of a semitone.
    EXPECT_NEAR(noteFromLog2Hz(std::log2(880.0)), 81.0, 1e-6);

    for (const char* text : {"H4", "", "440", "A4 Hz", "C4 +"})
        EXPECT_FALSE(parseNote(text).has_value()) << text;
}

TEST(NoteNames, DisplayShowsTheNearestNoteAndCents) {
    EXPECT_EQ(noteText(69.0), "A4 +00");
    EXPECT_EQ(noteText(69.7), "A#4 -30");
    EXPECT_EQ(noteText(59.96), "C4 -04");
    EXPECT_EQ(noteText(0.0), "C-1 +00");
    EXPECT_EQ(noteText(noteFromLog2Hz(std::log2(1000.0))), "B5 +21");
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
    EXPECT_DOUBLE_EQ(parseNumberWithSuffix("2.5 KHZ", hz)->value, 2500.0);
    EXPECT_DOUBLE_EQ(parseNumberWithSuffix("-3.5", {})->value, -3.5);
    EXPECT_DOUBLE_EQ(parseNumberWithSuffix("+4", {})->value, 4.0);

    for (const char* text : {"12 apples", "", "k", "--5", "inf"})
        EXPECT_FALSE(parseNumberWithSuffix(text, hz).has_value()) << text;
}
