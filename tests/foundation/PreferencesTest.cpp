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
    return std::string("com.zorvane.Test.") + ::testing::UnitTest::GetInstance()->current_test_info()->name();
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
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

TEST(SettingSerializerStringPath, TypedValuesBecomeTextAndUnparsableTextGivesTheDefault) {
    MapSerializer store;
    store.writeInt("i", -42);
    store.writeBool("b", true);
    store.writeDouble("third", 1.0 / 3.0);
    store.writeDouble("big", 1e20);
    store.values.insert({{"word", "abc"}, {"trailing", "12x"}, {"huge", "2147483648"}, {"two", "2"}});
    EXPECT_EQ(store.values["third"], "0.333333333333333"); // 15 significant digits
    EXPECT_EQ(store.values["big"], "1e+20");
    EXPECT_EQ(store.readInt("i", 0), -42);
    EXPECT_EQ(store.readString("b", ""), "1");
    for (const char* key : {"word", "trailing", "huge", "missing"})
        EXPECT_EQ(store.readInt(key, 5), 5) << key;
    EXPECT_EQ(store.readDouble("word", 2.5), 2.5);
    EXPECT_TRUE(store.readBool("two", false)); // any non-zero
}

TEST(Preferences, DomainsAndTheirFiles) {
    EXPECT_STREQ(kCommonPreferencesDomain, "com.zorvane.Common");
    EXPECT_EQ(preferencesDomain("Ondrel", 4), "com.zorvane.Ondrel.4");
    EXPECT_EQ(preferencesFilePath("com.zorvane.Common"),
              (testing_support::tempHome() / ".config/Zorvane/com.zorvane.Common.prefs").string());
}

TEST(Preferences, TypedReadsAfterWritesKeepTheirTypes) {
    const std::string domain = uniqueDomain();
    {
        PreferencesWriter writer(domain);
        writer.writeInt("Interface Size", 125);
        writer.writeInt("Negative", std::numeric_limits<int32_t>::min());
        writer.writeString("PresetFolder", "/home/me/My \"Presets\"/");
        writer.writeBool("Show Help", true);
        writer.writeDouble("Zoom", 1.25);
        writer.writeString("Multi=Line", "a\nb\tc\\d=e\x01");
        writer.writeString("Digits", "77");
    }
    const std::string text = [&] {
        std::ifstream file(preferencesFilePath(domain), std::ios::binary);
        return std::string{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }();
    EXPECT_NE(text.find("\nInterface Size=125\n"), std::string::npos) << text;
    EXPECT_NE(text.find("\nPresetFolder=\"/home/me/My \\\"Presets\\\"/\"\n"), std::string::npos) << text;

    PreferencesReader reader(domain);
    EXPECT_EQ(reader.readInt("Interface Size", 0), 125);
    EXPECT_EQ(reader.readString("Interface Size", ""), "125"); // an integer through the string path
    EXPECT_EQ(reader.readInt("Negative", 0), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(reader.readString("PresetFolder", ""), "/home/me/My \"Presets\"/");
    EXPECT_TRUE(reader.readBool("Show Help", false));
    EXPECT_DOUBLE_EQ(reader.readDouble("Zoom", 0.0), 1.25);
    EXPECT_EQ(reader.readString("Multi=Line", ""), "a\nb\tc\\d=e\x01");
    EXPECT_EQ(reader.readInt("Digits", -1), -1); // a string is not an integer, even when it looks like one
    EXPECT_EQ(reader.readString("Missing", "fallback"), "fallback");
}

TEST(Preferences, HandWrittenFileWithOddLines) {
    const std::string domain = uniqueDomain();
    writeFile(preferencesFilePath(domain), "# comment\nGood=12\ngarbage without equals\n=5\nBig=2147483648\n"
                                           "Max=2147483647\nUnquoted=hello\nOpen=\"no end\nTail=\"x\" y\n"
                                           "BadEscape=\"\\q\"\nHex=\"\\x41\\x7a\"\nGood=13\nCut=99");
    PreferencesReader reader(domain);
    EXPECT_EQ(reader.readInt("Good", 0), 13); // the later line wins
    EXPECT_EQ(reader.readInt("Big", -1), -1); // beyond 32 bits
    EXPECT_EQ(reader.readInt("Max", 0), 2147483647);
    for (const char* key : {"Unquoted", "Open", "Tail", "BadEscape"})
        EXPECT_EQ(reader.readString(key, "d"), "d") << key;
    EXPECT_EQ(reader.readString("Hex", "d"), "Az");
    EXPECT_EQ(reader.readInt("Cut", -1), -1); // unfinished last line
}

TEST(Preferences, MissingOrDamagedFilesGiveDefaults) {
    const std::string domain = uniqueDomain();
    const std::string path = preferencesFilePath(domain);
    std::string binary;
    for (int i = 0; i < 4096; ++i)
        binary += static_cast<char>((i * 73 + 11) % 256);
    for (const std::string& bytes :
         {binary,
          std::string("Width=\0"
                      "800\n",
                      11),
          std::string("\xFF\xFE\x00\x01Width=800\n", 14), std::string("Width=8")}) {
        writeFile(path, bytes);
        EXPECT_EQ(PreferencesReader(domain).readInt("Width", 640), 640);
    }
    std::filesystem::remove(path);
    EXPECT_EQ(PreferencesReader(domain).readInt("Width", 640), 640);
    std::filesystem::create_directory(path); // a folder where the file should be
    EXPECT_EQ(PreferencesReader(domain).readString("Name", "default"), "default");
}

TEST(Preferences, InvalidUtf8KeysAndStringsAreSkipped) {
    const std::string domain = uniqueDomain();
    {
        PreferencesWriter writer(domain);
        writer.writeInt("Bad\xC3", 1);
        writer.writeInt("", 2);
        writer.writeString("Text", "caf\xE9");
        writer.writeString("Fine", "caf\xC3\xA9\xF0\x9F\x8E\xB5");
        for (const char* invalid :
             {"\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) // overlong, surrogate, too big
            writer.writeString(invalid, "x");
    }
    PreferencesReader reader(domain);
    EXPECT_EQ(reader.readInt("Bad\xC3", 0), 0);
    EXPECT_EQ(reader.readString("Text", "d"), "d");
    EXPECT_EQ(reader.readString("Fine", "d"), "caf\xC3\xA9\xF0\x9F\x8E\xB5");
    EXPECT_EQ(loadPreferences(preferencesFilePath(domain)).size(), 1u); // only "Fine" was saved
}

TEST(Preferences, OnlyWritersSaveAndTheyMergeWithOtherWriters) {
    const std::string domain = uniqueDomain();
    {
        PreferencesReader reader(domain);
        reader.writeInt("Shared", 5);
        EXPECT_EQ(reader.readInt("Shared", 0), 5);
    }
    EXPECT_FALSE(std::filesystem::exists(preferencesFilePath(domain)));
    {
        PreferencesWriter setup(domain);
        setup.writeInt("Shared", 1);
        EXPECT_TRUE(setup.flush());
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

TEST(Preferences, AReaderNeverSeesAHalfWrittenFile) {
    const std::string domain = uniqueDomain();
    // Large enough that the file cannot be written with one system call.
    constexpr int kKeys = 100;
    constexpr int kRewrites = 80;
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
    int reads = 0, inconsistent = 0, latestRound = -1;
    while (writing || reads == 0) {
        // Every complete file holds all keys of one round, and rounds never go back.
        PreferencesReader preferences(domain);
        const int round = preferences.readInt(key(0), -1);
        inconsistent += round < latestRound ? 1 : 0;
        latestRound = round;
        for (int k = 1; k < kKeys; ++k)
            inconsistent += preferences.readInt(key(k), -1) != round ? 1 : 0;
        ++reads;
    }
    writer.join();
    EXPECT_EQ(inconsistent, 0) << "after " << reads << " reads";
    EXPECT_EQ(PreferencesReader(domain).readInt(key(kKeys - 1), -1), kRewrites);
    for (const auto& entry : std::filesystem::directory_iterator(preferencesFolder())) {
        const std::string name = entry.path().filename().string();
        // No temporary files are left behind.
        EXPECT_TRUE(!name.starts_with(domain) || name == domain + ".prefs" || name == domain + ".prefs.lock")
            << name;
    }
}

} // namespace
