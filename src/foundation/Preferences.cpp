#include "foundation/Preferences.h"

#include "foundation/SystemFolders.h"

namespace {

bool isContinuationByte(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

} // namespace

bool isValidUtf8(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        std::size_t length = 0;
        uint32_t codePoint = 0;
        if (lead < 0x80) {
            length = 1;
            codePoint = lead;
        } else if ((lead & 0xE0) == 0xC0) {
            length = 2;
            codePoint = lead & 0x1F;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3;
            codePoint = lead & 0x0F;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4;
            codePoint = lead & 0x07;
        } else {
            return false;
        }
        if (i + length > text.size())
            return false;
        for (std::size_t k = 1; k < length; ++k) {
            const auto byte = static_cast<unsigned char>(text[i + k]);
            if (!isContinuationByte(byte))
                return false;
            codePoint = codePoint << 6 | (byte & 0x3F);
        }
        // Overlong forms, surrogates and values beyond Unicode are not UTF-8.
        static constexpr uint32_t kSmallestForLength[] = {0, 0, 0x80, 0x800, 0x10000};
        if (codePoint < kSmallestForLength[length] || codePoint > 0x10FFFF ||
            (codePoint >= 0xD800 && codePoint <= 0xDFFF))
            return false;
        i += length;
    }
    return true;
}

std::string preferencesDomain(const std::string& productIdentifier, int generation) {
    return "com.zorvane." + productIdentifier + "." + std::to_string(generation);
}

std::string preferencesFilePath(const std::string& domain) {
    return preferencesFolder() + domain + ".prefs";
}

PreferencesSerializer::PreferencesSerializer(const std::string& domain)
    : domainName(domain), path(preferencesFilePath(domain)), values(loadPreferences(path)) {}

std::string PreferencesSerializer::readString(const std::string& key, const std::string& defaultValue) {
    if (!isValidUtf8(key))
        return defaultValue;
    const auto found = values.find(key);
    return found == values.end() ? defaultValue : found->second.text;
}

int32_t PreferencesSerializer::readInt(const std::string& key, int32_t defaultValue) {
    if (!isValidUtf8(key))
        return defaultValue;
    const auto found = values.find(key);
    if (found == values.end() || found->second.type != PreferenceValue::Type::Integer)
        return defaultValue;
    return parseDecimalInt32(found->second.text).value_or(defaultValue);
}

void PreferencesSerializer::writeString(const std::string& key, const std::string& value) {
    if (isValidUtf8(value))
        store(key, {PreferenceValue::Type::String, value});
}

void PreferencesSerializer::writeInt(const std::string& key, int32_t value) {
    store(key, {PreferenceValue::Type::Integer, std::to_string(value)});
}

void PreferencesSerializer::store(const std::string& key, PreferenceValue value) {
    if (key.empty() || !isValidUtf8(key))
        return;
    values.insert_or_assign(key, value);
    changes.insert_or_assign(key, std::move(value));
}

PreferencesWriter::~PreferencesWriter() {
    flush();
}

bool PreferencesWriter::flush() {
    if (changes.empty())
        return true;
    if (!updatePreferences(path, changes))
        return false;
    changes.clear();
    return true;
}
