#include "ModelTestSupport.h"

#include "plugin/PluginSnapshots.h"
#include "plugin/eq/OndrelPlugin.h"

#include <gtest/gtest.h>

using testing_support::RecordingAdapter;

namespace {

// Counts the product hook that runs after every applied snapshot.
class HookedPlugin : public OndrelPlugin {
public:
    int appliedSnapshots = 0;

protected:
    void snapshotApplied() override { ++appliedSnapshots; }
};

// An editor session: drags on band 1's gain.
class UndoSession : public ::testing::Test {
protected:
    void SetUp() override {
        plugin.setAdapter(&adapter);
        plugin.initialise(HostKind::Vst3);
        plugin.startHistory();
    }

    int32_t gain() const { return plugin.bands.getSet(0).gain.getIndex(); }
    float gainValue() { return plugin.getParameterPlain(gain()); }
    const GenericPlugin::UndoHistory& history() const { return plugin.getUndoHistory(); }

    // One drag through several values, ending at value: one gesture.
    void drag(float value) {
        plugin.beginEdit(gain());
        plugin.setParameterPlain(gain(), value / 2);
        plugin.setParameterPlain(gain(), value);
        plugin.endEdit(gain());
    }

    RecordingAdapter adapter;
    HookedPlugin plugin;
};

} // namespace

TEST_F(UndoSession, NothingToUndoOrRedoAtFirst) {
    EXPECT_EQ(history().getSnapshots().at(0).name, "Initial state");
    plugin.undo();
    plugin.redo();
    EXPECT_FALSE(plugin.canUndo() || plugin.canRedo());
    EXPECT_EQ(history().getPosition(), 0);
    EXPECT_EQ(plugin.appliedSnapshots, 0);
}

TEST_F(UndoSession, ADragIsOneStepAndUndoRedoMoveBetweenStates) {
    drag(6.0f);
    drag(12.0f);
    EXPECT_EQ(history().getUndoCount(), 2);
    EXPECT_EQ(history().getSnapshots().at(2).name, "");
    adapter.calls.clear();

    plugin.undo();
    EXPECT_FLOAT_EQ(gainValue(), 6.0f);
    // Applied as one change, not as an edit per parameter.
    EXPECT_EQ(adapter.calls, std::vector<std::string>{"updated -2"});
    plugin.undo();
    EXPECT_FLOAT_EQ(gainValue(), 0.0f);
    EXPECT_FALSE(plugin.canUndo());
    plugin.redo();
    plugin.redo();
    EXPECT_FLOAT_EQ(gainValue(), 12.0f);
    EXPECT_FALSE(plugin.canRedo());
    EXPECT_EQ(plugin.appliedSnapshots, 4);
}

TEST_F(UndoSession, AGestureThatEndsWhereItStartedRecordsNothing) {
    drag(6.0f);
    plugin.beginEdit(gain());
    plugin.setParameterPlain(gain(), 9.0f);
    plugin.setParameterPlain(gain(), 6.0f + 1e-8f); // back within the float epsilon
    plugin.endEdit(gain());
    EXPECT_EQ(history().getUndoCount(), 1);
    // Nested gestures (two knobs at once) record when the last one ends.
    const int32_t q = plugin.bands.getSet(0).q.getIndex();
    plugin.beginEdit(gain());
    plugin.beginEdit(q);
    plugin.setParameterPlain(q, 0.8f);
    plugin.endEdit(q);
    EXPECT_EQ(history().getUndoCount(), 1);
    plugin.endEdit(gain());
    EXPECT_EQ(history().getUndoCount(), 2);
}

TEST_F(UndoSession, ANewGestureDiscardsTheRedoBranch) {
    drag(3.0f);
    drag(6.0f);
    drag(9.0f);
    plugin.undo();
    plugin.undo();
    EXPECT_EQ(history().getRedoCount(), 2);
    drag(-3.0f);
    EXPECT_EQ(history().getRedoCount(), 0);
    EXPECT_EQ(history().getUndoCount(), 2);
    plugin.redo();
    EXPECT_FLOAT_EQ(gainValue(), -3.0f);
    plugin.undo();
    EXPECT_FLOAT_EQ(gainValue(), 3.0f);
}

TEST_F(UndoSession, OneHundredFiftyGesturesKeepTheLastStatesOnly) {
    // Gesture k leaves the gain at k / 10 dB.
    for (int k = 1; k <= 150; ++k)
        drag(k / 10.0f);
    EXPECT_EQ(history().getUndoCount(), 100);
    for (int k = 0; k < 99; ++k)
        plugin.undo();
    // The oldest state still in the ring is the one after gesture 51; gesture 50's is gone.
    EXPECT_FLOAT_EQ(gainValue(), 5.1f);
    EXPECT_TRUE(plugin.canUndo()); // the count saturated at 100
    plugin.undo();
    EXPECT_FALSE(plugin.canUndo());
    EXPECT_EQ(history().getRedoCount(), 100);
}

TEST_F(UndoSession, ABKeepsTwoStates) {
    drag(6.0f); // in A
    plugin.toggleAB();
    EXPECT_EQ(plugin.getCurrentABSlot(), 1);
    EXPECT_FLOAT_EQ(gainValue(), 0.0f); // B still holds the initial state
    drag(-6.0f);
    plugin.toggleAB();
    EXPECT_EQ(plugin.getCurrentABSlot(), 0);
    EXPECT_FLOAT_EQ(gainValue(), 6.0f);
    plugin.toggleAB();
    EXPECT_FLOAT_EQ(gainValue(), -6.0f);
    EXPECT_TRUE(plugin.hasABChanged());
}

TEST_F(UndoSession, CopyMakesTheOtherSlotEqualWithoutSwitching) {
    drag(4.5f);
    plugin.copyAB();
    EXPECT_EQ(plugin.getCurrentABSlot(), 0);
    EXPECT_FALSE(plugin.hasABChanged());
    drag(1.0f);
    plugin.toggleAB();
    EXPECT_FLOAT_EQ(gainValue(), 4.5f);
}

TEST_F(UndoSession, UndoAcrossAnABSwitchRestoresTheSlot) {
    drag(6.0f);
    plugin.toggleAB(); // recorded as a step
    EXPECT_EQ(history().getUndoCount(), 2);
    plugin.undo();
    EXPECT_EQ(plugin.getCurrentABSlot(), 0);
    EXPECT_FLOAT_EQ(gainValue(), 6.0f);
    // B kept what it held while current, so switching again shows it.
    plugin.toggleAB();
    EXPECT_FLOAT_EQ(gainValue(), 0.0f);
    plugin.undo();
    plugin.redo();
    EXPECT_EQ(plugin.getCurrentABSlot(), 1);
}

TEST_F(UndoSession, SnapshotsCarryThePresetStateSettingsAndExtraState) {
    plugin.setPresetState({"Bright", "/presets/Bright.zvp", false});
    plugin.setPresetSettings({{"DisplayZoom", "2"}});
    plugin.setExtraState({1, 2, 3});
    drag(2.0f);
    plugin.setPresetState({"Dark", "/presets/Dark.zvp", false});
    plugin.setPresetSettings({});
    plugin.setExtraState({});
    drag(4.0f);
    adapter.calls.clear();
    plugin.undo();
    EXPECT_EQ(plugin.getPresetState(), (PresetState{"Bright", "/presets/Bright.zvp", true}));
    EXPECT_EQ(plugin.getPresetSettings().at("DisplayZoom"), "2");
    EXPECT_EQ(plugin.getExtraState(), (std::vector<uint8_t>{1, 2, 3}));
    // The processor learns of the other preset identity.
    EXPECT_EQ(adapter.count("preset name"), 1);
}
