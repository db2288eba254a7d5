#pragma once

#include <istream>
#include <ostream>
#include <string>
#include <string_view>

// The line-oriented text of presets:
//
//     [OndrelPreset]
//     Signature=ZO4p
//     Name="My Preset"
//
//     [Parameters]
//     Band 1 Used=1
//
// Lines end with a line feed. Leading blanks (spaces, tabs) are ignored, empty lines and lines
// whose first non-blank character is ";" are skipped. A section line is a name in brackets with
// nothing but blanks after it. An entry is key=value; the key ends at the first "=" and loses its
// trailing blanks. A value containing a blank is written in double quotes; in every value line
// feed, carriage return, double quote and backslash are escaped with a backslash.

// Reads one meaningful line at a time. Whatever the bytes, it never fails harder than a status.
class PresetTextReader {
public:
    enum class Status {
        Entry,
        Section,
        EndOfFile,
        MissingBracket,
        TextAfterBracket,
        MissingEquals,
        ReadError
    };

    explicit PresetTextReader(std::istream& stream) : stream(stream) {}

    // Advances to the next section or entry line (or the end, or an error).
    Status next();

    const std::string& getSection() const { return section; }
    const std::string& getKey() const { return key; }
    const std::string& getValue() const { return value; }

    static bool isSyntaxError(Status status) {
        return status == Status::MissingBracket || status == Status::TextAfterBracket ||
               status == Status::MissingEquals;
    }

private:
    Status parseLine(std::string_view line);

    std::istream& stream;
    std::string line;
    std::string section;
    std::string key;
    std::string value;
};

// Writes sections and entries; an empty line goes before every section line but the first line.
class PresetTextWriter {
public:
    explicit PresetTextWriter(std::ostream& stream) : stream(stream) {}

    void writeSection(std::string_view name);
    // Skipped when the key cannot be read back as written (see isWritableKey).
    void writeEntry(std::string_view key, std::string_view value);
    // "%.15g", independent of the locale.
    void writeNumber(std::string_view key, double number);
    void writeInteger(std::string_view key, int64_t number);

    bool good() const { return stream.good(); }

    // Not empty, no "=", line feed or carriage return, and no blank, "[" or ";" where a reader
    // would take the line for something else or trim the key.
    static bool isWritableKey(std::string_view key);

private:
    void writeRawEntry(std::string_view key, std::string_view text);

    std::ostream& stream;
    bool atStart = true;
};
