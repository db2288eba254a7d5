// Feeds arbitrary bytes to the equaliser model as a host state chunk (the preset text form) and
// aborts when a rejected chunk changed anything, a parameter left its range, or an accepted
// chunk does not survive a write and a read.

#include "StateChunkCheck.h"

#include "plugin/eq/OndrelPlugin.h"
#include "presets/PresetStateStore.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

// Settings and defaults files go to a folder of their own, never to the user's.
struct TemporaryHome {
    TemporaryHome() {
        std::string pattern = (std::filesystem::temp_directory_path() / "ondrel-fuzz-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            std::abort();
        setenv("HOME", pattern.c_str(), 1);
        setenv("XDG_CONFIG_HOME", (pattern + "/.config").c_str(), 1);
        setenv("XDG_DATA_HOME", (pattern + "/.local/share").c_str(), 1);
    }
};

// One instance for the whole run, as a host keeps one.
struct Harness {
    Harness() { plugin.initialise(HostKind::Vst3); }

    TemporaryHome home;
    PresetStateStore store;
    OndrelPlugin plugin{&store};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Harness harness;
    const std::string problem = testing_support::checkStateChunk(
        harness.plugin, std::string_view(reinterpret_cast<const char*>(data), size));
    if (!problem.empty()) {
        std::fprintf(stderr, "%s\n", problem.c_str());
        std::abort();
    }
    return 0;
}
