// Costs of the preset text: writing and reading a whole state chunk (600 parameters), per
// parameter, and of snapshotting the state for undo. Settings and defaults files go to a
// temporary folder.
#include "plugin/ErrorReporter.h"
#include "plugin/PluginSnapshots.h"
#include "plugin/eq/OndrelPlugin.h"
#include "presets/PresetStateStore.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>

namespace {

using bench_support::reportPerUnit;

struct Rig {
    Rig() {
        static const std::string home = [] {
            std::string pattern = (std::filesystem::temp_directory_path() / "ondrel-bench-XXXXXX").string();
            if (mkdtemp(pattern.data()) == nullptr)
                std::abort();
            setenv("XDG_CONFIG_HOME", pattern.c_str(), 1);
            return pattern;
        }();
        plugin.initialise(HostKind::Vst3);
        for (int band = 0; band < EQParameterSetArray::kNumBands; ++band)
            plugin.bands.getSet(band).gain.setValue(0.37f * static_cast<float>(band) - 4.0f);
    }

    PresetStateStore store;
    OndrelPlugin plugin{&store};
};

void BM_WriteState(benchmark::State& state) {
    Rig rig;
    for (auto _ : state) {
        std::ostringstream text;
        rig.plugin.writeState(text);
        benchmark::DoNotOptimize(text.view().data());
    }
    reportPerUnit(state, "per_parameter", OndrelParameters::kNumParameters);
}
BENCHMARK(BM_WriteState);

void BM_ReadState(benchmark::State& state) {
    Rig rig;
    std::ostringstream written;
    rig.plugin.writeState(written);
    const std::string chunk = written.str();
    for (auto _ : state) {
        std::istringstream text(chunk);
        ErrorReporter errors;
        benchmark::DoNotOptimize(rig.plugin.readState(text, errors));
    }
    reportPerUnit(state, "per_parameter", OndrelParameters::kNumParameters);
}
BENCHMARK(BM_ReadState);

// One undo step: capture at the end of a gesture after comparing with the last record.
void BM_RecordUndoStep(benchmark::State& state) {
    Rig rig;
    rig.plugin.startHistory();
    const int32_t gain = rig.plugin.bands.getSet(0).gain.getIndex();
    float value = 0.0f;
    for (auto _ : state) {
        value = value > 20.0f ? -20.0f : value + 0.5f;
        rig.plugin.beginEdit(gain);
        rig.plugin.setParameterPlain(gain, value);
        rig.plugin.endEdit(gain);
    }
    benchmark::DoNotOptimize(rig.plugin.getUndoHistory().getUndoCount());
}
BENCHMARK(BM_RecordUndoStep);

} // namespace
