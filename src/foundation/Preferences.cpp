#include "foundation/Preferences.h"

#include "foundation/SystemFolders.h"
#include "foundation/Utf8.h"

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
