#include "plugin/ParameterText.h"

#include "foundation/Numbers.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

// The shortest decimal text that reads back as the value. Values that are exactly floats use the
// float's shortest text, so a parameter holding 123.45f rounds like the 123.45 the user typed.
std::string shortestFixedText(double value) {
    std::array<char, 400> buffer{};
    const float asFloat = static_cast<float>(value);
    const auto result =
        static_cast<double>(asFloat) == value
            ? std::to_chars(buffer.data(), buffer.data() + buffer.size(), asFloat, std::chars_format::fixed)
            : std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::fixed);
    return std::string(buffer.data(), result.ptr);
}

// Fixed-point text rounded in decimal, halves away from zero: binary noise in the last place
// must not turn 1.2345 into 1.234.
std::string fixedText(double value, int decimals, bool plusSign) {
    std::string digits = shortestFixedText(std::fabs(value));
    const auto point = digits.find('.');
    std::string integerPart = digits.substr(0, point);
    std::string fraction = point == std::string::npos ? std::string() : digits.substr(point + 1);

    bool roundUp = false;
    if (static_cast<int>(fraction.size()) > decimals) {
        roundUp = fraction[static_cast<size_t>(decimals)] >= '5';
        fraction.resize(static_cast<size_t>(decimals));
    }
    fraction.append(static_cast<size_t>(decimals) - fraction.size(), '0');

    std::string all = integerPart + fraction;
    for (auto it = all.rbegin(); roundUp && it != all.rend(); ++it) {
        roundUp = *it == '9';
        *it = roundUp ? '0' : static_cast<char>(*it + 1);
    }
    if (roundUp)
        all.insert(all.begin(), '1');

    const size_t integerDigits = all.size() - static_cast<size_t>(decimals);
    std::string text;
    if (std::signbit(value))
        text.push_back('-');
    else if (plusSign)
        text.push_back('+');
    text.append(all, 0, integerDigits);
    if (decimals > 0) {
        text.push_back('.');
        text.append(all, integerDigits);
    }
    return text;
}

std::string dropSignOfZero(std::string text) {
    const bool signed_ = !text.empty() && (text.front() == '-' || text.front() == '+');
    const bool anyNonZeroDigit = text.find_first_of("123456789") != std::string::npos;
    if (signed_ && !anyNonZeroDigit)
        text.erase(0, 1);
    return text;
}

struct NumberFormat {
    bool plusSign = false;
    int precision = 0;
    char conversion = 'f';
};

// Parses "[+]N<conv>" (after a star) or "%[+].N<conv>"; false for anything else.
bool parseFormat(std::string_view text, bool starForm, NumberFormat& format) {
    if (!text.empty() && text.front() == '+') {
        format.plusSign = true;
        text.remove_prefix(1);
    }
    if (!starForm) {
        if (text.empty() || text.front() != '.')
            return false;
        text.remove_prefix(1);
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), format.precision);
    if (error != std::errc() || end + 1 != text.data() + text.size() || format.precision < 0)
        return false;
    format.conversion = *end;
    return std::isalpha(static_cast<unsigned char>(format.conversion)) != 0;
}

std::string printWithPrecision(const NumberFormat& format, double value) {
    if (format.conversion == 'f')
        return fixedText(value, format.precision, format.plusSign);
    const std::string printfFormat =
        std::string("%") + (format.plusSign ? "+" : "") + ".*" + format.conversion;
    std::array<char, 64> buffer{};
    std::snprintf(buffer.data(), buffer.size(), printfFormat.c_str(), format.precision, value);
    return buffer.data();
}

std::string formatFinite(std::string_view format, double value) {
    NumberFormat parsed;
    if (!format.empty() && format.front() == '*' && parseFormat(format.substr(1), true, parsed)) {
        const int figures = parsed.precision;
        if (figures > 0) {
            const double limit = 10.0 - 0.5 / std::pow(10.0, figures);
            for (double magnitude = std::fabs(value); parsed.precision >= 2 && magnitude >= limit;
                 magnitude /= 10.0)
                --parsed.precision;
        }
        return printWithPrecision(parsed, value);
    }
    if (!format.empty() && format.front() == '%' && parseFormat(format.substr(1), false, parsed) &&
        parsed.conversion == 'f')
        return printWithPrecision(parsed, value);

    std::array<char, 400> buffer{};
    std::snprintf(buffer.data(), buffer.size(), std::string(format).c_str(), value);
    return buffer.data();
}

constexpr std::array<const char*, 12> kNoteNames{"C",  "C#", "D",  "D#", "E",  "F",
                                                 "F#", "G",  "G#", "A",  "A#", "B"};

// Semitones above C of the letters A..G.
constexpr std::array<int, 7> kLetterSemitones{9, 11, 0, 2, 4, 5, 7};

} // namespace

std::string formatNumber(std::string_view format, double value) {
    if (std::isinf(value))
        return value > 0.0 ? "INF" : "-INF";
    if (std::isnan(value))
        return "nan";
    return dropSignOfZero(formatFinite(format, value));
}

std::string decibelText(double db, int decimals, int mode) {
    if (std::isinf(db) && db < 0.0)
        return "-INF";
    const std::string format =
        mode == 1 ? "%+." + std::to_string(decimals) + "f" : "*+" + std::to_string(decimals) + "f";
    return formatNumber(format, db);
}

std::string frequencyText(double hz) {
    const char* format = hz > 9999.95 ? "%.0f" : hz > 999.995 ? "%.1f" : hz > 99.9995 ? "%.2f" : "%.3f";
    return formatNumber(format, hz);
}

std::string timeText(double milliseconds) {
    if (milliseconds >= 1000.0)
        return formatNumber("*3f", milliseconds / 1000.0) + " sec";
    return formatNumber("*3f", milliseconds) + " ms";
}

double noteFromLog2Hz(double log2Hz) {
    return (log2Hz - kLog2OfA4) * 12.0 + kMidiNoteA4;
}

double log2HzFromNote(double note) {
    return (note - kMidiNoteA4) / 12.0 + kLog2OfA4;
}

std::string noteText(double note) {
    const int nearest = roundToInt(note);
    const int cents = roundToInt((note - nearest) * 100.0);
    const int pitchClass = ((nearest % 12) + 12) % 12;
    const int octave = (nearest - pitchClass) / 12 - 1;
    std::array<char, 16> centsText{};
    std::snprintf(centsText.data(), centsText.size(), "%+03d", cents);
    return kNoteNames[static_cast<size_t>(pitchClass)] + std::to_string(octave) + " " + centsText.data();
}

std::optional<double> parseNote(std::string_view text) {
    text = trimmed(text);
    if (text.empty())
        return std::nullopt;
    const int letter = std::toupper(static_cast<unsigned char>(text.front()));
    if (letter < 'A' || letter > 'G')
        return std::nullopt;
    text.remove_prefix(1);

    int semitone = kLetterSemitones[static_cast<size_t>(letter - 'A')];
    if (!text.empty() && text.front() == '#') {
        ++semitone;
        text.remove_prefix(1);
    } else if (!text.empty() && (text.front() == 'b' || text.front() == 'B')) {
        --semitone;
        text.remove_prefix(1);
    }

    double base = 60.0;
    double cents = 0.0;
    const bool negativeOctave =
        text.size() >= 2 && text[0] == '-' && std::isdigit(static_cast<unsigned char>(text[1]));
    if (!text.empty() && (std::isdigit(static_cast<unsigned char>(text.front())) || negativeOctave)) {
        int octave = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), octave);
        if (error != std::errc())
            return std::nullopt;
        text.remove_prefix(static_cast<size_t>(end - text.data()));
        base = (octave + 1.0) * 12.0; // in double: a huge typed octave must not overflow

        text = trimmed(text);
        if (!text.empty()) {
            double sign = 1.0;
            if (text.front() == '+' || text.front() == '-') {
                sign = text.front() == '-' ? -1.0 : 1.0;
                text = trimmed(text.substr(1));
            }
            const auto [centsEnd, centsError] =
                std::from_chars(text.data(), text.data() + text.size(), cents);
            if (centsError != std::errc() || !std::isfinite(cents))
                return std::nullopt;
            cents *= sign;
            text.remove_prefix(static_cast<size_t>(centsEnd - text.data()));
        }
    }
    if (!trimmed(text).empty())
        return std::nullopt;
    return semitone + base + cents / 100.0;
}

std::optional<TypedNumber> parseNumberWithSuffix(std::string_view text,
                                                 const std::vector<UnitSuffix>& suffixes) {
    text = trimmed(text);
    double sign = 1.0;
    if (!text.empty() && text.front() == '+')
        text.remove_prefix(1);
    else if (!text.empty() && text.front() == '-') {
        sign = -1.0;
        text.remove_prefix(1);
    }
    if (!text.empty() && (text.front() == '+' || text.front() == '-'))
        return std::nullopt;
    double number = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || !std::isfinite(number))
        return std::nullopt;
    number *= sign;

    const std::string_view rest = trimmed(text.substr(static_cast<size_t>(end - text.data())));
    if (rest.empty())
        return TypedNumber{number, false};
    for (const UnitSuffix& suffix : suffixes)
        if (equalsIgnoringCase(rest, suffix.text))
            return TypedNumber{number * suffix.multiplier, true};
    return std::nullopt;
}
