#include "foundation/Preferences.h"
#include "foundation/SystemFolders.h"

#include "support/TempHome.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <string>
#include <thread>

namespace {

// Each test gets a domain of its own inside the shared temporary configuration folder.
std::string uniqueDomain() {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    return std::string("com.zorvane.Test.") + test->name();
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// A string-only store, to exercise the typed operations' string path on their own.
class MapSerializer : public SettingSerializer {
public:
    std::string readString(const std::string& key, const std::string& defaultValue) override {
        const auto found = values.find(key);
        return found == values.end() ? defaultValue : found->second;
    }
    void writeString(const std::string& key, const std::string& value) override { values[key] = value; }

    std::map<std::string, std::string> values;
};

TEST(SettingSerializerStringPath, TypedValuesBecomeText) {
    MapSerializer store;
    store.writeInt("i", -42);
    store.writeBool("b", true);
    store.writeDouble("d", 0.1);
    store.writeDouble("third", 1.0 / 3.0);
    store.writeDouble("big", 1e20);
    EXPECT_EQ(store.values["i"], "-42");
    EXPECT_EQ(store.values["b"], "1");
    EXPECT_EQ(store.values["d"], "0.1");
    EXPECT_EQ(store.values["third"], "0.333333333333333"); // 15 significant digits
    EXPECT_EQ(store.values["big"], "1e+20");
    EXPECT_EQ(store.readInt("i", 0), -42);
    EXPECT_TRUE(store.readBool("b", false));
    EXPECT_DOUBLE_EQ(store.readDouble("d", 0.0), 0.1);
}

TEST(SettingSerializerStringPath, UnparsableOrMissingTextGivesDefault) {
    MapSerializer store;
    store.values = {
        {"word", "abc"}, {"trailing", "12x"}, {"huge", "2147483648"}, {"two", "2"}, {"zero", "0"}};
    EXPECT_EQ(store.readInt("word", 5), 5);
    EXPECT_EQ(store.readInt("trailing", 5), 5);
    EXPECT_EQ(store.readInt("huge", 5), 5);
    EXPECT_EQ(store.readInt("missing", 5), 5);
    EXPECT_DOUBLE_EQ(store.readDouble("word", 2.5), 2.5);
    EXPECT_TRUE(store.readBool("two", false)); // any non-zero
    EXPECT_FALSE(store.readBool("zero", true));
    EXPECT_TRUE(store.readBool("missing", true));
}

TEST(PreferencesDomains, Names) {
    EXPECT_STREQ(kCommonPreferencesDomain, "com.zorvane.Common");
    EXPECT_EQ(preferencesDomain("Ondrel", 4), "com.zorvane.Ondrel.4");
    EXPECT_EQ(preferencesDomain("Ondrel", 12), "com.zorvane.Ondrel.12");
    EXPECT_EQ(preferencesFilePath("com.zorvane.Common"), preferencesFolder() + "com.zorvane.Common.prefs");
    EXPECT_EQ(preferencesFolder(), (testing_support::tempHome() / ".config/Zorvane/").string());
}

TEST(Preferences, TypedReadsAfterWrites) {
    const std::string domain = uniqueDomain();
    {
        PreferencesWriter writer(domain);
        writer.writeInt("Interface Size", 125);
        writer.writeInt("Negative", std::numeric_limits<int32_t>::min());
        writer.writeString("PresetFolder", "/home/me/My \"Presets\"/");
        writer.writeBool("Show Help", true);
        writer.writeDouble("Zoom", 1.25);
        writer.writeString("Multi=Line", "a\nb\tc\\d=e\x01");
    }
    PreferencesReader reader(domain);
    EXPECT_EQ(reader.readInt("Interface Size", 0), 125);
    EXPECT_EQ(reader.readInt("Negative", 0), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(reader.readString("PresetFolder", ""), "/home/me/My \"Presets\"/");
    EXPECT_TRUE(reader.readBool("Show Help", false));
    EXPECT_DOUBLE_EQ(reader.readDouble("Zoom", 0.0), 1.25);
    EXPECT_EQ(reader.readString("Multi=Line", ""), "a\nb\tc\\d=e\x01");
}

TEST(Preferences, TypesAreKept) {
    const std::string domain = uniqueDomain();
    {
        PreferencesWriter writer(domain);
        writer.writeInt("Number", 300);
        writer.writeString("Text", "abc");
        writer.writeString("Digits", "77");
    }
    PreferencesReader reader(domain);
    // An integer read through the string path gives its decimal text.
    EXPECT_EQ(reader.readString("Number", "none"), "300");
    // A string is not an integer, even when it looks like one.
    EXPECT_EQ(reader.readInt("Text", -1), -1);
    EXPECT_EQ(reader.readInt("Digits", -1), -1);
    EXPECT_EQ(reader.readString("Missing", "fallback"), "fallback");
    EXPECT_EQ(reader.readInt("Missing", 9), 9);
}

TEST(Preferences, FileFormat) {
    const std::string domain = uniqueDomain();
    {
        PreferencesWriter writer(domain);
        writer.writeInt("Width", 800);
        writer.writeString("Name", "say \"hi\"");
    }
    const std::string text = readFile(preferencesFilePath(domain));
    EXPECT_NE(text.find("\nWidth=800\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\nName=\"say \\\"hi\\\"\"\n"), std::string::npos) << text;
}

TEST(Preferences, HandWrittenFileWithOddLines) {
    const std::string domain = uniqueDomain();
    writeFile(preferencesFilePath(domain), "# comment\n"
                                           "Good=12\n"
                                           "garbage without equals\n"
                                           "=5\n"
                                           "Big=2147483648\n"
                                           "Small=-2147483649\n"
                                           "Max=2147483647\n"
                                           "Unquoted=hello\n"
                                           "Open=\"no end\n"
                                           "Tail=\"x\" y\n"
                                           "BadEscape=\"\\q\"\n"
                                           "Hex=\"\\x41\\x7a\"\n"
                                           "Spaced Key=\"v\"\n"
                                           "Good=13\n"
                                           "Cut=99");
    PreferencesReader reader(domain);
    EXPECT_EQ(reader.readInt("Good", 0), 13); // the later line wins
    EXPECT_EQ(reader.readInt("Big", -1), -1); // beyond 32 bits
    EXPECT_EQ(reader.readInt("Small", -1), -1);
    EXPECT_EQ(reader.readString("Big", ""), "2147483648");
    EXPECT_EQ(reader.readInt("Max", 0), 2147483647);
    EXPECT_EQ(reader.readString("Unquoted", "d"), "d");
    EXPECT_EQ(reader.readString("Open", "d"), "d");
    EXPECT_EQ(reader.readString("Tail", "d"), "d");
    EXPECT_EQ(reader.readString("BadEscape", "d"), "d");
    EXPECT_EQ(reader.readString("Hex", "d"), "Az");
    EXPECT_EQ(reader.readString("Spaced Key", "d"), "v");
    EXPECT_EQ(reader.readInt("Cut", -1), -1); // unfinished last line
}

TEST(Preferences, DamagedFilesGiveDefaults) {
    const std::string domain = uniqueDomain();
    const std::string path = preferencesFilePath(domain);
    std::string binary;
    for (int i = 0; i < 4096; ++i)
        binary += static_cast<char>((i * 73 + 11) % 256);
    const std::string damaged[] = {binary,
                                   std::string("Width=\0"
                                               "800\n",
                                               11),
                                   "\xFF\xFE\x00\x01Width=800\n",
                                   "Width=8",
                                   "Name=\"ab",
                                   ""};
    for (const std::string& bytes : damaged) {
        writeFile(path, bytes);
        PreferencesReader reader(domain);
        EXPECT_EQ(reader.readInt("Width", 640), 640);
        EXPECT_EQ(reader.readString("Name", "default"), "default");
    }
    // A folder where the file should be, and no file at all.
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_EQ(PreferencesReader(domain).readInt("Width", 640), 640);
    std::filesystem::remove(path);
    EXPECT_EQ(PreferencesReader(domain).readInt("Width", 640), 640);
}

TEST(Preferences, InvalidUtf8KeysAndStringsAreSkipped) {
    const std::string domain = uniqueDomain();
    {
        PreferencesWriter writer(domain);
        writer.writeInt("Bad\xC3", 1);
        writer.writeString("Text", "caf\xE9");
        writer.writeString("Fine", "caf\xC3\xA9");
        writer.writeInt("", 2);
    }
    PreferencesReader reader(domain);
    EXPECT_EQ(reader.readInt("Bad\xC3", 0), 0);
    EXPECT_EQ(reader.readString("Text", "d"), "d");
    EXPECT_EQ(reader.readString("Fine", "d"), "caf\xC3\xA9");
    EXPECT_EQ(reader.readInt("", 0), 0);
    EXPECT_TRUE(isValidUtf8("\xF0\x9F\x8E\xB5"));
    EXPECT_FALSE(isValidUtf8("\xC0\xAF"));         // overlong "/"
    EXPECT_FALSE(isValidUtf8("\xED\xA0\x80"));     // surrogate
    EXPECT_FALSE(isValidUtf8("\xF4\x90\x80\x80")); // beyond U+10FFFF
}

TEST(Preferences, WritersMergeWithOtherWriters) {
    const std::string domain = uniqueDomain();
    {
        PreferencesWriter setup(domain);
        setup.writeInt("Shared", 1);
    }
    {
        PreferencesWriter slow(domain); // loaded Shared=1
        slow.writeInt("A", 10);
        {
            PreferencesWriter quick(domain);
            quick.writeInt("B", 20);
            quick.writeInt("Shared", 2);
        }
        // slow never changed Shared, so it must not write its stale copy back.
    }
    PreferencesReader reader(domain);
    EXPECT_EQ(reader.readInt("A", 0), 10);
    EXPECT_EQ(reader.readInt("B", 0), 20);
    EXPECT_EQ(reader.readInt("Shared", 0), 2);
}

TEST(Preferences, OnlyWritersSave) {
    const std::string domain = uniqueDomain();
    {
        PreferencesReader reader(domain);
        reader.writeInt("Key", 5);
        EXPECT_EQ(reader.readInt("Key", 0), 5);
    }
    EXPECT_FALSE(std::filesystem::exists(preferencesFilePath(domain)));
    PreferencesWriter writer(domain);
    writer.writeInt("Key", 6);
    EXPECT_FALSE(std::filesystem::exists(preferencesFilePath(domain)));
    EXPECT_TRUE(writer.flush());
    EXPECT_EQ(PreferencesReader(domain).readInt("Key", 0), 6);
}

TEST(Preferences, ReaderNeverSeesHalfWrittenFile) {
    const std::string domain = uniqueDomain();
    // Large enough that the file cannot be written with one system call.
    constexpr int kKeys = 100;
    constexpr int kRewrites = 150;
    const auto key = [](int k) { return "Key " + std::to_string(k) + std::string(200, 'k'); };
    std::atomic<bool> writing{true};
    std::thread writer([&] {
        for (int round = 1; round <= kRewrites; ++round) {
            PreferencesWriter preferences(domain);
            for (int k = 0; k < kKeys; ++k)
                preferences.writeInt(key(k), round);
        }
        writing = false;
    });
    int reads = 0;
    int inconsistent = 0;
    int latestRound = -1;
    while (writing || reads == 0) {
        PreferencesReader preferences(domain);
        // Every complete file holds all keys of one round, and rounds never go back.
        const int round = preferences.readInt(key(0), -1);
        if (round < latestRound)
            ++inconsistent;
        latestRound = round;
        for (int k = 1; k < kKeys; ++k) {
            if (preferences.readInt(key(k), -1) != round)
                ++inconsistent;
        }
        ++reads;
    }
    writer.join();
    EXPECT_EQ(inconsistent, 0) << "after " << reads << " reads";
    EXPECT_EQ(PreferencesReader(domain).readInt(key(kKeys - 1), -1), kRewrites);
    // No temporary files are left behind.
    for (const auto& entry : std::filesystem::directory_iterator(preferencesFolder())) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(domain)) {
            EXPECT_TRUE(name == domain + ".prefs" || name == domain + ".prefs.lock") << name;
        }
    }
}

} // namespace
