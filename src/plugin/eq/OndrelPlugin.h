#pragma once

#include "plugin/GenericPlugin.h"
#include "plugin/GenericPluginSettings.h"
#include "plugin/eq/OndrelParameters.h"

// The equaliser's controller-side model: the generic model with the 600 parameters.
class OndrelPlugin : public GenericPlugin, public OndrelParameters {
public:
    class OndrelSettings;
    class OndrelSharedSettings;

    // What typing does in the Instance List.
    enum class KeyAction : int32_t { FilterList = 0, JumpToInstance = 1 };

    // The product generation in the name of its preferences domain, "com.zorvane.Ondrel.4".
    static constexpr int kGeneration = 4;

    explicit OndrelPlugin(PluginStateStore* stateStore = nullptr);
    ~OndrelPlugin() override;

    MidiState getMidiState() const override { return receiveMidi.getValue(); }

    OndrelSettings& getOndrelSettings() const;
    OndrelSharedSettings& getOndrelSharedSettings() const;

protected:
    std::unique_ptr<SharedSettings> createSharedSettings() const override;
    std::unique_ptr<Settings> createSettings() const override;
};

class OndrelPlugin::OndrelSettings : public GenericPlugin::Settings {
public:
    OndrelSettings();

    // Q narrows as gain grows when editing bells.
    Property<bool> gainQInteraction{false, this};
    // The piano keyboard under the frequency axis.
    Property<bool> pianoRoll{false, this};
    Property<bool> showOutputLevelMeter{true, this};
};

class OndrelPlugin::OndrelSharedSettings : public GenericPlugin::SharedSettings {
public:
    static constexpr int32_t kMaximumZoomLevel = 4;

    OndrelSharedSettings();

    // The display range follows the band gains.
    Property<bool> autoAdjustDisplayRange{true, this};
    // EQ Sketch turns strokes into bands by itself.
    Property<bool> autoEqSketch{false, this};
    Property<bool> instanceListAutoZoom{true, this};
    Property<KeyAction> instanceListKeyAction{KeyAction::FilterList, this};
    // Item size of the Instance List, 0 (smallest) to kMaximumZoomLevel.
    LimitedProperty<int32_t> instanceListZoomLevel{2, 0, kMaximumZoomLevel, this};
    Property<bool> instanceListShowMinimap{true, this};
    Property<bool> showMouseFrequency{true, this};
    // A colour-blind-friendly palette.
    Property<bool> useAccessibleColors{false, this};
};
