#include "plugin/PluginSnapshots.h"

#include <algorithm>
#include <cmath>

GenericPlugin::SnapshotList::SnapshotList(GenericPlugin& plugin_, int32_t capacity)
    : plugin(plugin_), snapshots(static_cast<size_t>(capacity)) {}

void GenericPlugin::SnapshotList::capture(int32_t i, std::string name) {
    Snapshot& snapshot = snapshots.at(static_cast<size_t>(i));
    snapshot.name = std::move(name);
    plugin.captureSnapshot(snapshot);
}

void GenericPlugin::SnapshotList::apply(int32_t i) {
    plugin.applySnapshot(snapshots.at(static_cast<size_t>(i)));
}

GenericPlugin::UndoHistory::UndoHistory(GenericPlugin& plugin_)
    : plugin(plugin_), snapshots(plugin_, kCapacity) {}

void GenericPlugin::UndoHistory::initialise() {
    if (redoCount != 0 || undoCount != 0 || position != 0)
        return;
    snapshots.capture(0, kInitialStateName);
}

void GenericPlugin::UndoHistory::push(std::string name) {
    position = (position + 1) % kCapacity;
    snapshots.capture(position, std::move(name));
    redoCount = 0;
    undoCount = std::min(undoCount + 1, kCapacity);
}

void GenericPlugin::UndoHistory::undo() {
    if (undoCount < 1)
        return;
    move(-1);
    --undoCount;
    redoCount = std::min(redoCount + 1, kCapacity);
}

void GenericPlugin::UndoHistory::redo() {
    if (redoCount < 1)
        return;
    move(1);
    undoCount = std::min(undoCount + 1, kCapacity);
    --redoCount;
}

void GenericPlugin::UndoHistory::move(int32_t delta) {
    position = (position + delta + kCapacity) % kCapacity;
    const Snapshot& snapshot = snapshots.at(position);
    CompareStates& compare = *plugin.compareStates;
    // Undoing across an A/B switch switches the indicator back as well.
    if (snapshot.abSlot != compare.getCurrentSlot())
        compare.switchTo(snapshot.abSlot);
    snapshots.apply(position);
    compare.setChanged();
}

bool GenericPlugin::UndoHistory::hasChanged() const {
    const std::vector<float>& recorded = snapshots.at(position).values;
    const int32_t count = plugin.getParameterCount();
    if (static_cast<int32_t>(recorded.size()) != count)
        return true;
    for (int32_t i = 0; i < count; ++i)
        if (std::fabs(plugin.getParameter(i)->getPlain() - recorded[static_cast<size_t>(i)]) > kFloatEpsilon)
            return true;
    return false;
}

GenericPlugin::CompareStates::CompareStates(GenericPlugin& plugin) : snapshots(plugin, 2) {}

void GenericPlugin::CompareStates::initialise() {
    if (initialised)
        return;
    snapshots.capture(0, {});
    snapshots.capture(1, {});
    changed = false;
    initialised = true;
}

void GenericPlugin::CompareStates::toggle() {
    const int32_t other = 1 - currentSlot;
    snapshots.capture(currentSlot, {});
    currentSlot = other;
    snapshots.apply(currentSlot);
}

void GenericPlugin::CompareStates::copy() {
    snapshots.capture(1 - currentSlot, {});
    changed = false;
}

void GenericPlugin::CompareStates::switchTo(int32_t slot) {
    snapshots.capture(currentSlot, {});
    currentSlot = std::clamp(slot, 0, 1);
}
