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

TEST(Locks, SameThreadMayLockTwiceAndOtherThreadBlocksUntilFullyUnlocked) {
    PosixCriticalSection section;
    section.lock();
    section.lock(); // would deadlock on a non-recursive mutex
    section.unlock();
    LockAttempt attempt(section);
    EXPECT_FALSE(attempt.acquiredWithin(100ms)) << "one unlock must not free a lock taken twice";
    section.unlock();
    EXPECT_TRUE(attempt.acquiredWithin(5000ms));
}

TEST(Locks, LockedObjectAndScopedLocker) {
    LockedObject object;
    std::optional<LockAttempt> attempt;
    {
        ScopedLocker outer(&object);
        ScopedLocker inner(&object); // nested on one thread
        attempt.emplace(*object.criticalSection());
        EXPECT_FALSE(attempt->acquiredWithin(100ms));
    }
    EXPECT_TRUE(attempt->acquiredWithin(5000ms));
    ScopedLocker none(static_cast<const LockedObject*>(nullptr)); // no locking, no crash
}

TEST(AtomicCounters, CompareAndSwapIncrementDecrement) {
    int32_t value = 5;
    EXPECT_FALSE(atomicCompareAndSwap(4, 9, &value));
    EXPECT_EQ(value, 5);
    EXPECT_TRUE(atomicCompareAndSwap(5, 9, &value));
    EXPECT_EQ(value, 9);
    EXPECT_EQ(atomicIncrement(&value), 10);
    EXPECT_EQ(atomicDecrement(&value), 9);
}

TEST(AtomicCounters, ConcurrentUpdatesAreNotLost) {
    int32_t counter = 0;
    int32_t swaps = 0;
    constexpr int kPerThread = 20000;
    auto work = [&] {
        for (int i = 0; i < kPerThread; ++i) {
            atomicIncrement(&counter);
            atomicIncrement(&counter);
            atomicDecrement(&counter);
            for (int32_t seen = std::atomic_ref<int32_t>(swaps).load();
                 !atomicCompareAndSwap(seen, seen + 1, &swaps);
                 seen = std::atomic_ref<int32_t>(swaps).load()) {
            }
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(counter, 2 * kPerThread);
    EXPECT_EQ(swaps, 2 * kPerThread);
}

TEST(IntervalTimer, MillisecondsTruncateTowardZero) {
    EXPECT_EQ(elapsedMillisecondsBetween(5'000'000, 5'001'999), 1);
    EXPECT_EQ(elapsedMillisecondsBetween(5'000'000, 5'000'999), 0);
    EXPECT_EQ(elapsedMillisecondsBetween(0, 2'000'000), 2000);
    EXPECT_EQ(elapsedMillisecondsBetween(1'999, 0), -1);
    // Beyond 32 bits of microseconds.
    EXPECT_EQ(elapsedMillisecondsBetween(0, 10'000'000'000), 10'000'000);
}

TEST(IntervalTimer, MeasuresAndRestarts) {
    MonotonicIntervalTimer timer;
    std::this_thread::sleep_for(30ms);
    const int32_t elapsed = timer.elapsedMilliseconds();
    EXPECT_GE(elapsed, 30);
    EXPECT_LT(elapsed, 5000);
    timer.restart();
    EXPECT_LT(timer.elapsedMilliseconds(), elapsed);
}

TEST(TimeProvider, GivesCalendarSeconds) {
    const auto expected =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    EXPECT_NEAR(static_cast<double>(TimeProvider().currentTime()), static_cast<double>(expected), 2.0);
}

std::vector<std::string> enumerate(const std::string& path, FileEnumerator::EntryKind kind,
                                   const std::string& filter) {
    PosixFileEnumerator enumerator(path, kind, filter);
    std::vector<std::string> names;
    while (enumerator.next())
        names.push_back(enumerator.currentName());
    std::sort(names.begin(), names.end());
    return names;
}

class FileEnumeratorTest : public ::testing::Test {
protected:
    void SetUp() override {
        folder = testing_support::makeTempFolder("enumerate");
        touch("Ordinary.zvp");
        touch("notes.txt");
        touch(".hidden.zvp");
        touch("archive.zvp.bak");
        touch("zvp");
        std::filesystem::create_directory(folder / "Vocals.zvp");
        std::filesystem::create_directory(folder / "Drums");
        std::filesystem::create_directory(folder / ".cache");
    }
    void touch(const std::string& name) { std::ofstream(folder / name) << "x"; }
    std::string path() const { return folder.string() + "/"; }

    std::filesystem::path folder;
};

TEST_F(FileEnumeratorTest, FilesWithExtension) {
    EXPECT_EQ(enumerate(path(), FileEnumerator::EntryKind::File, "zvp"),
              std::vector<std::string>{"Ordinary.zvp"});
}

TEST_F(FileEnumeratorTest, FilesWithoutFilterSkipDotNames) {
    EXPECT_EQ(enumerate(path(), FileEnumerator::EntryKind::File, ""),
              (std::vector<std::string>{"Ordinary.zvp", "archive.zvp.bak", "notes.txt", "zvp"}));
}

TEST_F(FileEnumeratorTest, FoldersMode) {
    EXPECT_EQ(enumerate(path(), FileEnumerator::EntryKind::Folder, ""),
              (std::vector<std::string>{"Drums", "Vocals.zvp"}));
    EXPECT_EQ(enumerate(path(), FileEnumerator::EntryKind::Folder, "zvp"),
              std::vector<std::string>{"Vocals.zvp"});
}

TEST_F(FileEnumeratorTest, FolderIsThePathUpToItsLastSlash) {
    // A path naming a file inside the folder enumerates that folder.
    EXPECT_EQ(enumerate(path() + "Ordinary.zvp", FileEnumerator::EntryKind::File, "zvp"),
              std::vector<std::string>{"Ordinary.zvp"});
    // Without a trailing slash the folder's parent is enumerated.
    const auto parentNames = enumerate(folder.string(), FileEnumerator::EntryKind::Folder, "");
    EXPECT_NE(std::find(parentNames.begin(), parentNames.end(), folder.filename().string()),
              parentNames.end());
    EXPECT_TRUE(enumerate(path() + "Missing/", FileEnumerator::EntryKind::File, "").empty());
}

TEST_F(FileEnumeratorTest, ModificationTimeIsTheFilesTime) {
    // 2023-11-14 22:13:20 UTC.
    const auto when =
        std::chrono::file_clock::from_sys(std::chrono::sys_seconds(std::chrono::seconds(1'700'000'000)));
    std::filesystem::last_write_time(folder / "Ordinary.zvp", when);
    PosixFileEnumerator enumerator(path(), FileEnumerator::EntryKind::File, "zvp");
    ASSERT_TRUE(enumerator.next());
    EXPECT_EQ(enumerator.currentModificationTime(), 1'700'000'000LL * 1'000'000'000LL);
    EXPECT_FALSE(enumerator.next());
}

TEST(EnumerationPath, SplitsAtLastSlashAndLastDot) {
    const EnumerationPath parts = splitEnumerationPath("/a/b.c/name.tar.gz");
    EXPECT_EQ(parts.folder, "/a/b.c/");
    EXPECT_EQ(parts.name, "name.tar.gz");
    EXPECT_EQ(parts.base, "name.tar");
    EXPECT_EQ(parts.extension, "gz");
    const EnumerationPath bare = splitEnumerationPath("README");
    EXPECT_EQ(bare.folder, "");
    EXPECT_EQ(bare.extension, "");
    EXPECT_FALSE(hasExtension("zvp", "zvp"));
    EXPECT_TRUE(hasExtension("a.b.zvp", "zvp"));
    EXPECT_FALSE(hasExtension("a.ZVP", "zvp"));
}

// Sets or unsets an environment variable for one scope.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value) : name(name) {
        if (const char* old = std::getenv(name))
            previous = old;
        if (value != nullptr)
            setenv(name, value, 1);
        else
            unsetenv(name);
    }
    ~ScopedEnvironment() {
        if (previous)
            setenv(name, previous->c_str(), 1);
        else
            unsetenv(name);
    }

private:
    const char* name;
    std::optional<std::string> previous;
};

TEST(SystemFolders, FollowXdgVariables) {
    ScopedEnvironment home("HOME", "/home/tester");
    ScopedEnvironment config("XDG_CONFIG_HOME", "/xdg/config");
    ScopedEnvironment data("XDG_DATA_HOME", "/xdg/data/");
    ScopedEnvironment documents("XDG_DOCUMENTS_DIR", "/xdg/docs");
    EXPECT_EQ(preferencesFolder(), "/xdg/config/Zorvane/");
    EXPECT_EQ(familyDataFolder("Spectra"), "/xdg/data/Zorvane/Spectra/");
    EXPECT_EQ(defaultPresetFolder("Ondrel"), "/xdg/docs/Zorvane/Presets/Ondrel/");
}

TEST(SystemFolders, FallBackBelowHomeWhenUnsetOrRelative) {
    ScopedEnvironment home("HOME", "/home/tester");
    ScopedEnvironment config("XDG_CONFIG_HOME", nullptr);
    ScopedEnvironment data("XDG_DATA_HOME", "relative/data");
    ScopedEnvironment documents("XDG_DOCUMENTS_DIR", nullptr);
    EXPECT_EQ(homeFolder(), "/home/tester/");
    EXPECT_EQ(preferencesFolder(), "/home/tester/.config/Zorvane/");
    EXPECT_EQ(familyDataFolder("Spectra"), "/home/tester/.local/share/Zorvane/Spectra/");
    // No user-dirs.dirs below this home.
    EXPECT_EQ(defaultPresetFolder("Ondrel"), "/home/tester/Documents/Zorvane/Presets/Ondrel/");
}

TEST(SystemFolders, DocumentsFromUserDirsFile) {
    const auto folder = testing_support::makeTempFolder("userdirs");
    std::ofstream(folder / "user-dirs.dirs") << "# written by xdg-user-dirs-update\n"
                                                "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
                                                "XDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n";
    ScopedEnvironment home("HOME", "/home/tester");
    ScopedEnvironment config("XDG_CONFIG_HOME", folder.c_str());
    ScopedEnvironment documents("XDG_DOCUMENTS_DIR", nullptr);
    EXPECT_EQ(documentsFolder(), "/home/tester/Dokumente/");
    EXPECT_EQ(defaultPresetFolder("Ondrel"), "/home/tester/Dokumente/Zorvane/Presets/Ondrel/");
}

TEST(SystemFolders, UserDirsParsing) {
    EXPECT_EQ(documentsFolderFromUserDirs("XDG_DOCUMENTS_DIR=\"/srv/docs\"\n", "/h"), "/srv/docs/");
    EXPECT_EQ(documentsFolderFromUserDirs("XDG_DOCUMENTS_DIR=\"$HOME\"\n", "/h"), "/h/");
    EXPECT_EQ(documentsFolderFromUserDirs("  XDG_DOCUMENTS_DIR=\"$HOME/A\"\nXDG_DOCUMENTS_DIR=\"$HOME/B\"\n",
                                          "/h/"),
              "/h/B/");
    EXPECT_EQ(documentsFolderFromUserDirs("# XDG_DOCUMENTS_DIR=\"/x\"\nXDG_MUSIC_DIR=\"/m\"\n", "/h"), "");
    EXPECT_EQ(documentsFolderFromUserDirs("XDG_DOCUMENTS_DIR=\"docs\"\n", "/h"), "");
}

} // namespace
