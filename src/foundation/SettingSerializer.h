#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// A key/value store with string values at its core. The typed operations go through the string
// path unless a store keeps types of its own: integers as decimal text, booleans as the integers
// 0 and 1 (any non-zero reads as true), doubles as "%.15g" text. A value that does not parse
// reads as the default.
class SettingSerializer {
public:
    virtual ~SettingSerializer() = default;

    virtual std::string readString(const std::string& key, const std::string& defaultValue) = 0;
    virtual void writeString(const std::string& key, const std::string& value) = 0;

    virtual int32_t readInt(const std::string& key, int32_t defaultValue);
    virtual void writeInt(const std::string& key, int32_t value);

    bool readBool(const std::string& key, bool defaultValue);
    void writeBool(const std::string& key, bool value);

    double readDouble(const std::string& key, double defaultValue);
    void writeDouble(const std::string& key, double value);
};

// The whole text must be a decimal integer that fits 32 bits.
std::optional<int32_t> parseDecimalInt32(std::string_view text);
// Shortest form with 15 significant digits, like "%.15g" but independent of the locale.
std::string formatDouble(double value);
std::optional<double> parseDouble(std::string_view text);
