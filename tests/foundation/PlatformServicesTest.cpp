#include "foundation/AtomicCounters.h"
#include "foundation/CriticalSection.h"
#include "foundation/FileEnumerator.h"
#include "foundation/IntervalTimer.h"
#include "foundation/SystemFolders.h"

#include "support/TempHome.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

// Another thread that takes the lock once and lets it go again.
class LockAttempt {
public:
    explicit LockAttempt(CriticalSection& section)
        : thread([this, &section] {
              section.lock();
              acquired = true;
              section.unlock();
          }) {}
    ~LockAttempt() { thread.join(); }

    bool acquiredWithin(std::chrono::milliseconds limit) const {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!acquired && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(1ms);
        return acquired;
    }

private:
    std::atomic<bool> acquired{false};
    std::thread thread;
};

TEST(Locks, SameThreadMayLockTwiceAndAnotherThreadBlocksUntilFullyUnlocked) {
    LockedObject object;
    std::optional<LockAttempt> attempt;
    {
        ScopedLocker outer(&object);
        object.lock(); // would deadlock on a non-recursive mutex
        object.lock();
        object.unlock();
        attempt.emplace(*object.criticalSection());
        EXPECT_FALSE(attempt->acquiredWithin(100ms)) << "one unlock must not free a lock taken twice";
        object.unlock();
    }
    EXPECT_TRUE(attempt->acquiredWithin(5000ms));
    ScopedLocker none(static_cast<const LockedObject*>(nullptr)); // no locking, no crash
}

TEST(AtomicCounters, CompareAndSwapIncrementAndDecrement) {
    int32_t value = 5;
    EXPECT_FALSE(atomicCompareAndSwap(4, 9, &value));
    EXPECT_EQ(value, 5);
    EXPECT_TRUE(atomicCompareAndSwap(5, 9, &value));
    EXPECT_EQ(atomicIncrement(&value), 10);
    EXPECT_EQ(atomicDecrement(&value), 9);
    EXPECT_EQ(value, 9);
}

TEST(IntervalTimer, MillisecondsTruncateTowardZero) {
    EXPECT_EQ(elapsedMillisecondsBetween(5'000'000, 5'001'999), 1);
    EXPECT_EQ(elapsedMillisecondsBetween(5'000'000, 5'000'999), 0);
    EXPECT_EQ(elapsedMillisecondsBetween(1'999, 0), -1);
    EXPECT_EQ(elapsedMillisecondsBetween(0, 10'000'000'000), 10'000'000); // beyond 32 bits of microseconds

    MonotonicIntervalTimer timer;
    std::this_thread::sleep_for(30ms);
    const int32_t elapsed = timer.elapsedMilliseconds();
    EXPECT_GE(elapsed, 30);
    timer.restart();
    EXPECT_LT(timer.elapsedMilliseconds(), elapsed);
}

class FileEnumeratorTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"Ordinary.zvp", "notes.txt", ".hidden.zvp", "archive.zvp.bak", "zvp"})
            std::ofstream(folder / name) << "x";
        for (const char* name : {"Vocals.zvp", "Drums", ".cache"})
            std::filesystem::create_directory(folder / name);
    }

    Names enumerate(const std::string& path, FileEnumerator::EntryKind kind, const std::string& filter) {
        PosixFileEnumerator enumerator(path, kind, filter);
        Names names;
        while (enumerator.next())
            names.push_back(enumerator.currentName());
        std::sort(names.begin(), names.end());
        return names;
    }

    const std::filesystem::path folder = testing_support::makeTempFolder("enumerate");
    const std::string path = folder.string() + "/";
};

TEST_F(FileEnumeratorTest, KindExtensionAndDotNamesFilterTheEntries) {
    using Kind = FileEnumerator::EntryKind;
    EXPECT_EQ(enumerate(path, Kind::File, "zvp"), Names{"Ordinary.zvp"});
    EXPECT_EQ(enumerate(path, Kind::File, ""),
              (Names{"Ordinary.zvp", "archive.zvp.bak", "notes.txt", "zvp"}));
    EXPECT_EQ(enumerate(path, Kind::Folder, ""), (Names{"Drums", "Vocals.zvp"}));
    EXPECT_EQ(enumerate(path, Kind::Folder, "zvp"), Names{"Vocals.zvp"});
    // The folder is the path up to its last "/".
    EXPECT_EQ(enumerate(path + "Ordinary.zvp", Kind::File, "zvp"), Names{"Ordinary.zvp"});
    const Names parentNames = enumerate(folder.string(), Kind::Folder, "");
    EXPECT_NE(std::find(parentNames.begin(), parentNames.end(), folder.filename().string()),
              parentNames.end());
    EXPECT_TRUE(enumerate(path + "Missing/", Kind::File, "").empty());
}

TEST_F(FileEnumeratorTest, ModificationTimeIsTheFilesTime) {
    const auto when = std::chrono::file_clock::from_sys(std::chrono::sys_seconds(1'700'000'000s));
    std::filesystem::last_write_time(folder / "Ordinary.zvp", when);
    PosixFileEnumerator enumerator(path, FileEnumerator::EntryKind::File, "zvp");
    ASSERT_TRUE(enumerator.next());
    EXPECT_EQ(enumerator.currentModificationTime(), 1'700'000'000LL * 1'000'000'000LL);
    EXPECT_FALSE(enumerator.next());
}

// Sets (or, given null, unsets) an environment variable for one scope.
struct ScopedEnvironment {
    ScopedEnvironment(const char* name, const char* value) : name(name) {
        if (const char* old = std::getenv(name))
            previous = old;
        value != nullptr ? setenv(name, value, 1) : unsetenv(name);
    }
    ~ScopedEnvironment() { previous ? setenv(name, previous->c_str(), 1) : unsetenv(name); }
    const char* name;
    std::optional<std::string> previous;
};

TEST(SystemFolders, FollowXdgVariablesTheUserDirsFileAndFallBackBelowHome) {
    ScopedEnvironment home("HOME", "/home/tester");
    {
        ScopedEnvironment config("XDG_CONFIG_HOME", "/xdg/config");
        ScopedEnvironment data("XDG_DATA_HOME", "/xdg/data/");
        ScopedEnvironment documents("XDG_DOCUMENTS_DIR", "/xdg/docs");
        EXPECT_EQ(preferencesFolder(), "/xdg/config/Zorvane/");
        EXPECT_EQ(familyDataFolder("Spectra"), "/xdg/data/Zorvane/Spectra/");
        EXPECT_EQ(defaultPresetFolder("Ondrel"), "/xdg/docs/Zorvane/Presets/Ondrel/");
    }
    ScopedEnvironment data("XDG_DATA_HOME", "relative/data"); // not absolute: ignored
    ScopedEnvironment documents("XDG_DOCUMENTS_DIR", nullptr);
    EXPECT_EQ(familyDataFolder("Spectra"), "/home/tester/.local/share/Zorvane/Spectra/");
    {
        const auto folder = testing_support::makeTempFolder("userdirs");
        std::ofstream(folder / "user-dirs.dirs") << "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
                                                    "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n";
        ScopedEnvironment config("XDG_CONFIG_HOME", folder.c_str());
        EXPECT_EQ(defaultPresetFolder("Ondrel"), "/home/tester/Dokumente/Zorvane/Presets/Ondrel/");
    }
    ScopedEnvironment config("XDG_CONFIG_HOME", nullptr);
    EXPECT_EQ(preferencesFolder(), "/home/tester/.config/Zorvane/");
    EXPECT_EQ(defaultPresetFolder("Ondrel"), "/home/tester/Documents/Zorvane/Presets/Ondrel/");

    EXPECT_EQ(
        documentsFolderFromUserDirs(" XDG_DOCUMENTS_DIR=\"$HOME/A\"\nXDG_DOCUMENTS_DIR=\"$HOME\"\n", "/h"),
        "/h/");
    EXPECT_EQ(documentsFolderFromUserDirs("# XDG_DOCUMENTS_DIR=\"/x\"\nXDG_DOCUMENTS_DIR=\"docs\"\n", "/h"),
              "");
}

} // namespace
