#pragma once

#include "plugin/GenericPlugin.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace testing_support {

// Records what the model reports to its host, one line per call ("perform 3", "begin 3", ...).
class RecordingAdapter : public GenericPlugin::Adapter {
public:
    void parameterChanged(int32_t index, double) override { record("perform " + std::to_string(index)); }
    void controllerMappingChanged() override { record("mapping"); }
    void endEdit(int32_t index) override { record("end " + std::to_string(index)); }
    void setupWordChanged() override { record("setup"); }
    void latencyChanged() override { record("latency"); }
    void playMidiMessage(uint8_t status, uint8_t data1, uint8_t data2) override {
        record("play " + std::to_string(status) + " " + std::to_string(data1) + " " + std::to_string(data2));
    }
    void parametersUpdated(int32_t index) override { record("updated " + std::to_string(index)); }
    void presetNameChanged(bool modifiedOnly) override { record(modifiedOnly ? "dirty" : "preset name"); }
    void realTimeDataWanted() override { record("real-time"); }
    void sendDataBlock(uint32_t id, std::span<const uint8_t>) override {
        if (id == GenericPlugin::kKeepAliveBlockId)
            keepAlives.fetch_add(1);
        else
            record("block " + std::to_string(id));
    }
    void beginEdit(int32_t index) override { record("begin " + std::to_string(index)); }

    // Calls of one kind ("perform", "updated", ...).
    int count(const std::string& kind) const {
        int n = 0;
        for (const std::string& call : calls)
            n += call.rfind(kind, 0) == 0 ? 1 : 0;
        return n;
    }

    std::vector<std::string> calls;
    // May be counted from a reader's thread.
    std::atomic<int> keepAlives{0};

private:
    void record(std::string call) { calls.push_back(std::move(call)); }
};

// Records what the model tells its interface.
class RecordingListener : public GenericPlugin::Listener {
public:
    void parameterChanged(int32_t index, float) override { changedParameters.push_back(index); }
    void presetChanged(const PresetState& state) override { presetStates.push_back(state); }
    void programSelected(int32_t position) override { programs.push_back(position); }
    void settingsChanged() override { ++settingsChanges; }

    std::vector<int32_t> changedParameters;
    std::vector<PresetState> presetStates;
    std::vector<int32_t> programs;
    int settingsChanges = 0;
};

} // namespace testing_support
