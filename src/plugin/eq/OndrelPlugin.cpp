#include "plugin/eq/OndrelPlugin.h"

#include "foundation/Preferences.h"

namespace {

// The editor's layouts, optional panels and the sizes it can be drawn at.
constexpr InterfaceLimits kInterfaceLimits{
    .defaultLayout = 0,
    .maximumLayout = 2,
    .defaultPanels = 0,
    .maximumPanels = 0xFF,
    .defaultWidth = 1000,
    .minimumWidth = 760,
    .maximumWidth = 3840,
    .defaultHeight = 600,
    .minimumHeight = 450,
    .maximumHeight = 2160,
};

} // namespace

OndrelPlugin::OndrelPlugin(PluginStateStore* stateStore)
    : GenericPlugin(stateStore), OndrelParameters(static_cast<GenericPluginBase&>(*this)) {}

OndrelPlugin::~OndrelPlugin() {
    // Out of the registry before the parameters go.
    terminate();
}

OndrelPlugin::OndrelSettings& OndrelPlugin::getOndrelSettings() const {
    return static_cast<OndrelSettings&>(getSettings());
}

OndrelPlugin::OndrelSharedSettings& OndrelPlugin::getOndrelSharedSettings() const {
    return static_cast<OndrelSharedSettings&>(getSharedSettings());
}

std::unique_ptr<GenericPlugin::SharedSettings> OndrelPlugin::createSharedSettings() const {
    return std::make_unique<OndrelSharedSettings>();
}

std::unique_ptr<GenericPlugin::Settings> OndrelPlugin::createSettings() const {
    return std::make_unique<OndrelSettings>();
}

OndrelPlugin::OndrelSettings::OndrelSettings()
    : Settings(preferencesDomain("Ondrel", kGeneration), kInterfaceLimits) {
    bind("GainQInteraction", gainQInteraction);
    bind("PianoRoll", pianoRoll);
    bind("ShowOutputLevelMeter", showOutputLevelMeter);
}

OndrelPlugin::OndrelSharedSettings::OndrelSharedSettings() {
    bind("AutoAdjustDisplayRange", autoAdjustDisplayRange);
    bind("AutoEQSketch", autoEqSketch);
    bind("InstanceListAutoZoom", instanceListAutoZoom);
    bind("InstanceListKeyAction", instanceListKeyAction);
    bind("InstanceListZoomLevel", instanceListZoomLevel);
    bind("InstanceListShowMinimap", instanceListShowMinimap);
    bind("ShowMouseFrequency", showMouseFrequency);
    bind("UseAccessibleColors", useAccessibleColors);
}
