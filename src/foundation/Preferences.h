#pragma once

#include "foundation/PreferencesFile.h"
#include "foundation/SettingSerializer.h"

#include <cstdint>
#include <string>

// The domain shared by every product of the family.
inline constexpr const char* kCommonPreferencesDomain = "com.zorvane.Common";

// "com.zorvane." + product identifier + "." + generation, e.g. "com.zorvane.Ondrel.4".
std::string preferencesDomain(const std::string& productIdentifier, int generation);

// <preferences folder><domain>.prefs
std::string preferencesFilePath(const std::string& domain);

// The settings of one preferences domain, read from its file once at construction. Values keep
// their type: an integer read from a key holding a string returns the default, a string read
// from a key holding an integer returns its decimal text. Keys must be non-empty UTF-8 and
// strings UTF-8; other reads return the default and other writes are dropped. Nothing is
// reported: a missing or damaged file reads as defaults. User-interface thread only.
class PreferencesSerializer : public SettingSerializer {
public:
    explicit PreferencesSerializer(const std::string& domain);

    std::string readString(const std::string& key, const std::string& defaultValue) override;
    void writeString(const std::string& key, const std::string& value) override;
    int32_t readInt(const std::string& key, int32_t defaultValue) override;
    void writeInt(const std::string& key, int32_t value) override;

    const std::string& domain() const { return domainName; }

protected:
    void store(const std::string& key, PreferenceValue value);

    const std::string domainName;
    const std::string path;
    PreferenceMap values;
    PreferenceMap changes;
};

// Reads a domain. Writes made through a reader change only what it reads back; they are never saved.
class PreferencesReader : public PreferencesSerializer {
public:
    using PreferencesSerializer::PreferencesSerializer;
};

// Writes a domain: the changes reach the file when the writer is flushed or destroyed, merged into
// what other writers saved meanwhile.
class PreferencesWriter : public PreferencesSerializer {
public:
    using PreferencesSerializer::PreferencesSerializer;
    ~PreferencesWriter() override;
    PreferencesWriter(const PreferencesWriter&) = delete;
    PreferencesWriter& operator=(const PreferencesWriter&) = delete;

    // False when the file could not be written (the changes are then kept for another try).
    bool flush();
};
