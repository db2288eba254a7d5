#include "PresetTestSupport.h"
#include "support/TempHome.h"

#include "ModelTestSupport.h"
#include "plugin/GenericPluginSettings.h"
#include "plugin/InstanceRegistry.h"
#include "presets/PresetParameterCollection.h"
#include "support/KilledWriter.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace testing_support;

namespace {

void removeInterfaceDefaults() {
    std::filesystem::remove(PresetStateStore::interfaceDefaultsPath());
}

std::optional<PresetContent> readDefaultsFile(const GenericPlugin& plugin) {
    std::ifstream file(PresetStateStore::interfaceDefaultsPath());
    ErrorReporter errors;
    return PresetParameterCollection(plugin).readPreset(file, errors);
}

std::string presetFile(const std::string& name, float band1Gain) {
    const std::string path = (std::filesystem::path(tempHome()) / (name + ".zvp")).string();
    std::ofstream(path) << presetHeader() << "Name=" << name << "\n\n[Parameters]\nBand 1 Gain=" << band1Gain
                        << "\n";
    return path;
}

} // namespace

TEST(PluginState, AProjectRestoresEveryParameterAndThePresetName) {
    std::mt19937 random(11);
    StoredPlugin saved;
    randomise(saved.plugin, random);
    saved.plugin.setPresetState({"Vocal Lead 2", "/presets/Vocals/Vocal Lead 2.zvp", true});
    const std::string chunk = saved.stateText();

    StoredPlugin restored;
    RecordingAdapter adapter;
    restored.plugin.setAdapter(&adapter);
    EXPECT_TRUE(restored.load(chunk).empty());
    EXPECT_TRUE(bitIdentical(restored.plugin.getParameterValues(), saved.plugin.getParameterValues()));
    EXPECT_EQ(restored.plugin.getPresetState().name, "Vocal Lead 2");
    EXPECT_FALSE(restored.plugin.getPresetState().modified);
    // One whole-state change for the host and the name for the processor.
    EXPECT_EQ(adapter.calls, (std::vector<std::string>{"updated -3", "preset name"}));
}

TEST(PluginState, NewInstancesStartFromTheSavedDefaults) {
    removeInterfaceDefaults();
    {
        StoredPlugin first;
        first.plugin.autoGain.setValue(true);
        first.plugin.bands.getSet(4).frequency.setValue(7.0f);
        first.plugin.setPresetState({"House Default", {}, false});
        ASSERT_TRUE(first.plugin.saveAsDefault());
    }
    {
        StoredPlugin second;
        EXPECT_TRUE(second.plugin.autoGain.getValue());
        EXPECT_FLOAT_EQ(second.plugin.bands.getSet(4).frequency.getValue(), 7.0f);
        EXPECT_EQ(second.plugin.getPresetState().name, "House Default");
        // Restoring defaults goes back to the saved defaults, not the layout's.
        second.plugin.autoGain.setValue(false);
        second.plugin.restoreDefaults();
        EXPECT_TRUE(second.plugin.autoGain.getValue());
    }
    removeInterfaceDefaults();
    StoredPlugin third;
    EXPECT_FALSE(third.plugin.autoGain.getValue());
    EXPECT_TRUE(bitIdentical(third.plugin.getParameterValues(), third.plugin.getDefaultParameterValues()));
    third.plugin.bands.getSet(0).used.setValue(true);
    third.plugin.restoreDefaults();
    EXPECT_TRUE(bitIdentical(third.plugin.getParameterValues(), third.plugin.getDefaultParameterValues()));
}

TEST(PluginState, OneParameterCanBecomeTheDefault) {
    removeInterfaceDefaults();
    StoredPlugin stored;
    const int32_t gainScale = stored.plugin.gainScale.getIndex();
    const int32_t soloGain = stored.plugin.soloGain.getIndex();

    // Without a defaults file the whole state is saved.
    stored.plugin.soloGain.setValue(-3.0f);
    stored.plugin.gainScale.setValue(1.5f);
    ASSERT_TRUE(stored.plugin.saveParameterAsDefault(gainScale));
    std::optional<PresetContent> defaults = readDefaultsFile(stored.plugin);
    ASSERT_TRUE(defaults.has_value());
    EXPECT_FLOAT_EQ(defaults->values[static_cast<size_t>(soloGain)], -3.0f);

    // With one, only that parameter's entry changes.
    stored.plugin.soloGain.setValue(5.0f);
    stored.plugin.gainScale.setValue(0.25f);
    ASSERT_TRUE(stored.plugin.saveParameterAsDefault(gainScale));
    defaults = readDefaultsFile(stored.plugin);
    ASSERT_TRUE(defaults.has_value());
    EXPECT_FLOAT_EQ(defaults->values[static_cast<size_t>(gainScale)], 0.25f);
    EXPECT_FLOAT_EQ(defaults->values[static_cast<size_t>(soloGain)], -3.0f);
    EXPECT_FALSE(stored.plugin.saveParameterAsDefault(600));
    removeInterfaceDefaults();
}

TEST(PluginState, AKilledDefaultsWriterNeverLeavesAMixedFile) {
    removeInterfaceDefaults();
    StoredPlugin stored;
    ASSERT_TRUE(stored.plugin.saveAsDefault());
    killWritersAtVaryingMoments(
        25,
        [&] {
            for (int k = 0;; ++k) {
                stored.plugin.autoGain.setValue(k % 2 == 0);
                stored.plugin.saveAsDefault();
            }
        },
        [&](int round) {
            const std::optional<PresetContent> defaults = readDefaultsFile(stored.plugin);
            ASSERT_TRUE(defaults.has_value()) << "round " << round;
            // A complete file: the last parameter is there.
            std::ifstream file(PresetStateStore::interfaceDefaultsPath());
            std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
            EXPECT_NE(text.find("Band 24 Spectral Tilt=0\n"), std::string::npos) << "round " << round;
        });
    removeInterfaceDefaults();
}

TEST(PluginState, ProgramChangesSelectFromThePresetList) {
    StoredPlugin stored;
    RecordingListener listener;
    stored.plugin.addListener(&listener);
    const std::string low = presetFile("Low", -6.0f);
    const std::string high = presetFile("High", 9.0f);
    stored.plugin.setPresetList({low, high});
    stored.plugin.getSharedSettings().enableMidiProgramChanges.setValue(true);

    stored.plugin.receiveMidiMessage(0xC0, 1, 0);
    EXPECT_FLOAT_EQ(stored.plugin.bands.getSet(0).gain.getValue(), 9.0f);
    EXPECT_EQ(stored.plugin.getPresetState(), (PresetState{"High", high, false}));
    EXPECT_EQ(listener.programs, std::vector<int32_t>{1});
    stored.plugin.receiveMidiMessage(0xC0, 2, 0); // beyond the list
    EXPECT_EQ(listener.programs, std::vector<int32_t>{1});

    // Next and previous wrap at both ends.
    ErrorReporter errors;
    EXPECT_TRUE(stored.plugin.nextPreset(errors));
    EXPECT_EQ(stored.plugin.getPresetState().name, "Low");
    EXPECT_TRUE(stored.plugin.previousPreset(errors));
    EXPECT_EQ(stored.plugin.getPresetState().name, "High");

    stored.plugin.getSharedSettings().enableMidiProgramChanges.setValue(false);
    stored.plugin.receiveMidiMessage(0xC0, 0, 0);
    EXPECT_EQ(stored.plugin.getPresetState().name, "High");
}

TEST(PluginState, AnotherInstanceCanLoadAStateThroughItsProxy) {
    StoredPlugin source;
    StoredPlugin target;
    source.plugin.bands.getSet(7).gain.setValue(-9.0f);
    source.plugin.setPresetState({"Shared", {}, false});
    GenericPlugin::InstanceProxy proxy = InstanceRegistry::instance().makeProxy(target.plugin);
    std::istringstream chunk(source.stateText());
    ErrorReporter errors;
    EXPECT_TRUE(proxy.readState(chunk, errors));
    EXPECT_FLOAT_EQ(target.plugin.bands.getSet(7).gain.getValue(), -9.0f);
    EXPECT_EQ(target.plugin.getPresetState().name, "Shared");
}
