#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Text formatting and parsing shared by parameter units, the editor's value displays and presets.

// Formats a number. "*[+]N<conv>" asks for N significant figures (the precision shrinks while the
// value has more integer digits); "%[+].Nf" is fixed-point; anything else goes to snprintf as is.
// Infinite values print "INF" / "-INF"; a sign in front of an all-zero result is dropped.
std::string formatNumber(std::string_view format, double value);

// Signed decibel text: mode 1 gives "%+.<decimals>f", mode 0 "*+<decimals>f".
std::string decibelText(double db, int decimals, int mode);

// Frequency in Hz with fewer decimals as the value grows ("1000.0", "99.990", "10000").
std::string frequencyText(double hz);

// Time in milliseconds as "250.0 ms" or, from one second on, "1.500 sec".
std::string timeText(double milliseconds);

// log2 of 440 Hz; frequency parameters store log2(Hz).
inline constexpr double kLog2OfA4 = 8.781359672546387;
inline constexpr int kMidiNoteA4 = 69;

double noteFromLog2Hz(double log2Hz);
double log2HzFromNote(double note);

// "A4 +00", "C#5 -12": nearest note name, octave (MIDI 60 is C4) and cents deviation.
std::string noteText(double note);

// Parses "A4", "c#5", "Bb3 -20", "A#5 + 20" or a lone "A" (octave 4) into a fractional MIDI note.
std::optional<double> parseNote(std::string_view text);

// One accepted suffix of typed numbers: "2k" with ("k", 1000) reads as 2000.
struct UnitSuffix {
    std::string text;
    double multiplier;
};

struct TypedNumber {
    double value;
    bool hadSuffix;
};

// A decimal number optionally followed by one of the suffixes (case-insensitive, spaces allowed
// around it); the result is already multiplied. Nothing else may follow.
std::optional<TypedNumber> parseNumberWithSuffix(std::string_view text,
                                                 const std::vector<UnitSuffix>& suffixes);
