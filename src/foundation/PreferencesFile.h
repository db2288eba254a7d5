#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

// One preferences domain on disk: a UTF-8 text file of lines
//
//     # comment
//     Window Width=800
//     PresetFolder="/home/me/Presets/"
//
// Integers are bare decimal text; strings are in double quotes. Keys and strings escape "\\",
// "\"", "=", newline, carriage return and tab with a backslash ("\\\\", "\\\"", "\\=", "\\n", "\\r",
// "\\t") and other control bytes as "\\xHH". Only lines ending in a newline count, so a file cut
// short loses at most its unfinished line; lines that do not have this form are skipped.
struct PreferenceValue {
    enum class Type { Integer, String };

    Type type = Type::String;
    std::string text; // decimal digits for integers

    bool operator==(const PreferenceValue&) const = default;
};

using PreferenceMap = std::map<std::string, PreferenceValue>;

// Parsing and formatting of the file's text.
PreferenceMap parsePreferences(std::string_view text);
std::string formatPreferences(const PreferenceMap& values);
std::optional<std::pair<std::string, PreferenceValue>> parsePreferenceLine(std::string_view line);

// Reads a domain file; a missing, unreadable or oversized file reads as empty.
PreferenceMap loadPreferences(const std::string& path);

// Applies changes to the file as it is on disk now: under an exclusive lock on "<path>.lock"
// (so that writers of other threads and processes do not lose each other's keys) the file is
// re-read, changed, written to a temporary file in the same folder, synced and renamed over the
// old one, so that a reader or a crash never sees a half-written file. False when it failed.
bool updatePreferences(const std::string& path, const PreferenceMap& changes);
