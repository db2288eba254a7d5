#include "foundation/SettingSerializer.h"

#include <charconv>

std::optional<int32_t> parseDecimalInt32(std::string_view text) {
    int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

std::string formatDouble(double value) {
    char text[32];
    const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 15);
    return std::string(text, result.ptr);
}

std::optional<double> parseDouble(std::string_view text) {
    double value = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

int32_t SettingSerializer::readInt(const std::string& key, int32_t defaultValue) {
    return parseDecimalInt32(readString(key, std::to_string(defaultValue))).value_or(defaultValue);
}

void SettingSerializer::writeInt(const std::string& key, int32_t value) {
    writeString(key, std::to_string(value));
}

bool SettingSerializer::readBool(const std::string& key, bool defaultValue) {
    return readInt(key, defaultValue ? 1 : 0) != 0;
}

void SettingSerializer::writeBool(const std::string& key, bool value) {
    writeInt(key, value ? 1 : 0);
}

double SettingSerializer::readDouble(const std::string& key, double defaultValue) {
    return parseDouble(readString(key, formatDouble(defaultValue))).value_or(defaultValue);
}

void SettingSerializer::writeDouble(const std::string& key, double value) {
    writeString(key, formatDouble(value));
}
