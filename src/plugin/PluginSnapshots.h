#pragma once

#include "plugin/GenericPlugin.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

// One complete state of an instance.
struct GenericPlugin::Snapshot {
    // Empty for ordinary undo steps.
    std::string name;
    PresetState presetState;
    // The A/B slot that was active when the snapshot was taken.
    int32_t abSlot = 0;
    // Plain values in global index order.
    std::vector<float> values;
    std::vector<uint8_t> extraState;
    std::map<std::string, std::string> settings;
};

// A fixed number of snapshots of one instance.
class GenericPlugin::SnapshotList {
public:
    SnapshotList(GenericPlugin& plugin, int32_t capacity);
    virtual ~SnapshotList() = default;

    int32_t getCapacity() const { return static_cast<int32_t>(snapshots.size()); }
    const Snapshot& at(int32_t i) const { return snapshots.at(static_cast<size_t>(i)); }
    void capture(int32_t i, std::string name);
    void apply(int32_t i);

private:
    GenericPlugin& plugin;
    std::vector<Snapshot> snapshots;
};

// A ring of complete states. The first record is the initial state; every step records the
// state after it, so undo applies the record before the current one.
class GenericPlugin::UndoHistory {
public:
    static constexpr int32_t kCapacity = 100;
    static constexpr const char* kInitialStateName = "Initial state";

    explicit UndoHistory(GenericPlugin& plugin);

    // Captures the initial state, only while nothing was recorded or moved yet.
    void initialise();
    void push(std::string name);
    void undo();
    void redo();
    // Whether the plug-in's values differ from the record at the current position.
    bool hasChanged() const;
    bool canUndo() const { return undoCount > 0; }
    bool canRedo() const { return redoCount > 0; }

    int32_t getUndoCount() const { return undoCount; }
    int32_t getRedoCount() const { return redoCount; }
    int32_t getPosition() const { return position; }
    const SnapshotList& getSnapshots() const { return snapshots; }

private:
    void move(int32_t delta);

    int32_t redoCount = 0;
    int32_t undoCount = 0;
    int32_t position = 0;
    GenericPlugin& plugin;
    SnapshotList snapshots;
};

// Two complete states, A (slot 0) and B (slot 1); the live state belongs to the current slot.
class GenericPlugin::CompareStates {
public:
    explicit CompareStates(GenericPlugin& plugin);

    // Captures the current state into both slots, once.
    void initialise();
    void toggle();
    // Captures the current state into the other slot without switching.
    void copy();
    void setChanged() { changed = true; }
    bool hasChanged() const { return changed; }
    int32_t getCurrentSlot() const { return currentSlot; }
    // Keeps the live state in the current slot and makes another slot current (undo across a switch).
    void switchTo(int32_t slot);

private:
    int32_t currentSlot = 0;
    bool changed = false;
    bool initialised = false;
    SnapshotList snapshots;
};
