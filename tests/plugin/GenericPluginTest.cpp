#include "ModelTestSupport.h"

#include "plugin/ControllerMapping.h"
#include "plugin/GenericPluginSettings.h"
#include "plugin/InstanceRegistry.h"
#include "plugin/eq/OndrelPlugin.h"

#include <gtest/gtest.h>

#include <algorithm>

using testing_support::RecordingAdapter;
using testing_support::RecordingListener;

namespace {

// An initialised model with an adapter and a listener attached.
struct Model {
    Model() {
        plugin.setAdapter(&adapter);
        plugin.addListener(&listener);
        plugin.initialise(HostKind::Vst3);
        adapter.calls.clear();
    }

    int32_t gainIndex(int band = 0) const { return plugin.bands.getSet(band).gain.getIndex(); }

    RecordingAdapter adapter;
    RecordingListener listener;
    OndrelPlugin plugin;
};

} // namespace

TEST(GenericPlugin, DescribesTheProduct) {
    OndrelPlugin plugin;
    EXPECT_EQ(plugin.formatNumber, 5u);
    EXPECT_EQ(plugin.flags, 0xBEEu);
    EXPECT_NE(plugin.flags & 0x200u, 0u); // presets are saved as text
    EXPECT_EQ(plugin.presetSignature, "ZO4p");
    EXPECT_EQ(plugin.productName, "Ondrel");
    EXPECT_EQ(plugin.keyedValues.size(), 1u);
    EXPECT_EQ(plugin.keyedValues.count(2), 1u);
    EXPECT_EQ(plugin.layoutValue0, 3u);
    EXPECT_EQ(plugin.layoutValue1, 1u);
    EXPECT_EQ(plugin.layoutValue2, 48u);
    EXPECT_EQ(plugin.getParameterCount(), 600);
}

TEST(GenericPlugin, HostChangesAreNotEchoedButReachTheInterface) {
    Model model;
    const int32_t gain = model.gainIndex();
    model.plugin.setParameterNormalizedFromHost(gain, 0.75);
    EXPECT_FLOAT_EQ(model.plugin.getParameterPlain(gain), 15.0f);
    EXPECT_TRUE(model.adapter.calls.empty());
    EXPECT_EQ(model.listener.changedParameters, std::vector<int32_t>{gain});
    // Automation does not make the preset "modified" (the project would turn dirty on playback).
    EXPECT_FALSE(model.plugin.getPresetState().modified);
}

TEST(GenericPlugin, InterfaceGesturesAreReportedToTheHostInOrder) {
    Model model;
    const int32_t gain = model.gainIndex();
    model.plugin.beginEdit(gain);
    model.plugin.setParameterPlain(gain, 3.0f);
    model.plugin.setParameterPlain(gain, 4.0f);
    model.plugin.setParameterPlain(gain, 4.0f); // unchanged: nothing to report
    model.plugin.endEdit(gain);
    const std::string g = std::to_string(gain);
    const std::vector<std::string> expected{"begin " + g, "perform " + g, "dirty", "perform " + g,
                                            "end " + g};
    EXPECT_EQ(model.adapter.calls, expected);
    EXPECT_TRUE(model.plugin.getPresetState().modified);
    ASSERT_FALSE(model.listener.presetStates.empty());
    EXPECT_TRUE(model.listener.presetStates.back().modified);
}

TEST(GenericPlugin, BulkChangesReachTheHostOnceAndKeepThePresetUnmodified) {
    Model model;
    std::vector<float> values = model.plugin.getDefaultParameterValues();
    values[static_cast<size_t>(model.gainIndex(2))] = -6.0f;
    values[static_cast<size_t>(model.plugin.autoGain.getIndex())] = 1.0f;
    model.plugin.applyParameterValues(values, GenericPlugin::kPresetLoaded);
    EXPECT_EQ(model.adapter.calls, std::vector<std::string>{"updated -3"});
    EXPECT_FALSE(model.plugin.getPresetState().modified);
    EXPECT_EQ(model.listener.changedParameters.size(), 2u);
    EXPECT_FLOAT_EQ(model.plugin.bands.getSet(2).gain.getValue(), -6.0f);
    EXPECT_EQ(model.plugin.getParameterValues(), values);
}

TEST(GenericPlugin, PresetStateChangesTellTheProcessorOnlyWhenTheNameChanges) {
    Model model;
    model.plugin.setPresetState({"Warm", "/p/Warm.zvp", false});
    model.plugin.setPresetState({"Warm", "/p/Warm.zvp", false}); // the same: nothing
    model.plugin.setPresetState({"Warm", "/p/Warm.zvp", true});
    model.plugin.setPresetState({"Warm", "/p/Warm.zvp", false}); // cleared: the listeners only
    EXPECT_EQ(model.adapter.calls, (std::vector<std::string>{"preset name", "dirty"}));
    EXPECT_EQ(model.listener.presetStates.size(), 3u);
}

TEST(GenericPlugin, ProcessorSideChangesGoThroughTheAdapter) {
    Model model;
    model.plugin.setSetupWord(7);
    model.plugin.setSetupWord(7);
    model.plugin.setLatency(512);
    model.plugin.playMidiMessage(0x90, 60, 100);
    model.plugin.requestRealTimeData();
    const std::vector<std::string> expected{"setup", "latency", "play 144 60 100", "real-time"};
    EXPECT_EQ(model.adapter.calls, expected);
    EXPECT_EQ(model.plugin.getLatency(), 512);
}

TEST(GenericPlugin, ProcessWideServicesAreSharedAndReleasedByTheLastInstance) {
    EXPECT_EQ(InstanceRegistry::instance().getNumInstances(), 0);
    auto first = std::make_unique<OndrelPlugin>();
    RecordingListener listener;
    first->addListener(&listener);
    first->initialise(HostKind::Vst2);
    {
        OndrelPlugin second;
        second.initialise(HostKind::Vst3);
        EXPECT_EQ(&second.getSharedSettings(), &first->getSharedSettings());
        EXPECT_EQ(&second.getOndrelSettings(), &first->getOndrelSettings());
        EXPECT_EQ(GenericPlugin::getHostKind(), HostKind::Vst2); // the first instance's
        EXPECT_EQ(InstanceRegistry::instance().getNumInstances(), 2);

        // A setting changed in one instance is seen by both instances' interfaces.
        second.getOndrelSharedSettings().useAccessibleColors.setValue(true);
        EXPECT_EQ(listener.settingsChanges, 1);
    }
    EXPECT_EQ(InstanceRegistry::instance().getNumInstances(), 1);
    EXPECT_TRUE(first->getOndrelSharedSettings().useAccessibleColors.getValue());
    first->getOndrelSharedSettings().useAccessibleColors.setValue(false);
    first.reset();
    EXPECT_EQ(InstanceRegistry::instance().getNumInstances(), 0);

    // The next first instance reads what was written.
    OndrelPlugin third;
    third.initialise(HostKind::Vst3);
    EXPECT_FALSE(third.getOndrelSharedSettings().useAccessibleColors.getValue());
    EXPECT_EQ(GenericPlugin::getHostKind(), HostKind::Vst3);
}

TEST(GenericPlugin, MappedControllersDriveParametersUnlessMidiIsOff) {
    Model model;
    const int32_t gain = model.gainIndex(1);
    model.plugin.assignMidiController(7, gain);
    model.adapter.calls.clear();

    model.plugin.receiveMidiMessage(0xB3, 7, 127); // any channel
    EXPECT_FLOAT_EQ(model.plugin.getParameterPlain(gain), 30.0f);
    EXPECT_EQ(model.adapter.calls, (std::vector<std::string>{"perform " + std::to_string(gain), "dirty"}));
    model.plugin.receiveMidiMessage(0xB0, 8, 0); // not assigned
    EXPECT_FLOAT_EQ(model.plugin.getParameterPlain(gain), 30.0f);

    model.plugin.receiveMidi.setValue(GenericPluginBase::MidiState::Disabled);
    model.plugin.receiveMidiMessage(0xB0, 7, 0);
    EXPECT_FLOAT_EQ(model.plugin.getParameterPlain(gain), 30.0f);
    model.plugin.receiveMidi.setValue(GenericPluginBase::MidiState::Enabled);
    model.plugin.receiveMidiMessage(0xB0, 7, 0);
    EXPECT_FLOAT_EQ(model.plugin.getParameterPlain(gain), -30.0f);
    model.plugin.clearMidiController(7);
}

TEST(GenericPlugin, MidiLearnAssignsTheNextControllerInEveryInstance) {
    Model learning;
    Model other;
    const int32_t q = learning.plugin.bands.getSet(0).q.getIndex();
    learning.plugin.startMidiLearn(q);
    // Bank select and all-notes-off are not learnt; a note is not a controller.
    other.plugin.receiveMidiMessage(0xB0, 0, 5);
    other.plugin.receiveMidiMessage(0xB0, 123, 0);
    other.plugin.receiveMidiMessage(0x90, 60, 100);
    EXPECT_EQ(GenericPlugin::getControllerMapping().getControllerForParameter(q),
              ControllerMapping::kUnassigned);

    other.plugin.receiveMidiMessage(0xB5, 21, 127); // learnt, and applied at once
    EXPECT_EQ(GenericPlugin::getControllerMapping().getParameterForController(21), static_cast<uint32_t>(q));
    EXPECT_FALSE(GenericPlugin::getControllerMapping().isLearning());
    EXPECT_FLOAT_EQ(other.plugin.getParameterPlain(q), 1.0f);
    // Both processors need the new map.
    EXPECT_EQ(learning.adapter.count("mapping"), 1);
    EXPECT_EQ(other.adapter.count("mapping"), 1);

    // The map file holds the assignment for the next process.
    ControllerMapping reloaded;
    ASSERT_TRUE(reloaded.loadFile(ControllerMapping::filePath()));
    EXPECT_EQ(reloaded.getParameterForController(21), static_cast<uint32_t>(q));
    learning.plugin.clearMidiController(21);
    ASSERT_TRUE(reloaded.loadFile(ControllerMapping::filePath()));
    EXPECT_EQ(reloaded.getParameterForController(21), ControllerMapping::kUnassigned);
}

TEST(GenericPlugin, ProgramChangesNeedTheSettingAndAPresetList) {
    Model model;
    model.plugin.setPresetList({"/nowhere/a.zvp"});
    model.plugin.receiveMidiMessage(0xC0, 0, 0);
    EXPECT_TRUE(model.listener.programs.empty()); // the setting is off
    model.plugin.getSharedSettings().enableMidiProgramChanges.setValue(true);
    model.plugin.receiveMidiMessage(0xC0, 1, 0); // no such position
    model.plugin.receiveMidiMessage(0xC0, 0, 0); // no store to load it with
    EXPECT_TRUE(model.listener.programs.empty());
    model.plugin.getSharedSettings().enableMidiProgramChanges.setValue(false);
}
