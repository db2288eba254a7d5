#include "plugin/GenericPluginSettings.h"

#include "foundation/Preferences.h"

GenericPlugin::SettingsBase::SettingsBase(std::string domain_) : domain(std::move(domain_)) {}

void GenericPlugin::SettingsBase::propertyChanged(AbstractProperty& property) {
    if (!loaded)
        return;
    for (Binding& binding : bindings)
        if (binding.property == &property)
            binding.dirty = true;
    requestUpdate();
}

void GenericPlugin::SettingsBase::read(SettingSerializer& reader) {
    for (Binding& binding : bindings)
        binding.read(reader, binding.key);
}

void GenericPlugin::SettingsBase::update() {
    {
        PreferencesWriter writer(domain);
        for (Binding& binding : bindings) {
            if (binding.dirty)
                binding.write(writer, binding.key);
            binding.dirty = false;
        }
    }
    changed.notify(this);
    UpdatedObject::update();
}

void GenericPlugin::SettingsBase::load() {
    PreferencesReader reader(domain);
    read(reader);
}

void GenericPlugin::SettingsBase::markLoaded() {
    if (loaded)
        return;
    loaded = true;
    changed.notify(this);
}

GenericPlugin::Settings::Settings(std::string domain, const InterfaceLimits& limits)
    : SettingsBase(std::move(domain)), interfaceLayout(limits.defaultLayout, 0, limits.maximumLayout, this),
      interfacePanels(limits.defaultPanels, 0, limits.maximumPanels, this),
      interfaceWidth(limits.defaultWidth, limits.minimumWidth, limits.maximumWidth, this),
      interfaceHeight(limits.defaultHeight, limits.minimumHeight, limits.maximumHeight, this) {
    bind("InterfaceLayout", interfaceLayout);
    bind("InterfacePanels", interfacePanels);
    bind("InterfaceWidth", interfaceWidth);
    bind("InterfaceHeight", interfaceHeight);
    bind("ScalingAdjustments", scalingAdjustments);
}

GenericPlugin::SharedSettings::SharedSettings() : SettingsBase(kCommonPreferencesDomain) {
    bind("EnableMIDIProgramChanges", enableMidiProgramChanges);
    bind("GraphicsAcceleration", graphicsAcceleration);
    bind("RetinaEnabled", retinaEnabled);
    bind("showInteractiveHelp", showInteractiveHelp);
    bind("showWelcomeHint", showWelcomeHint);
    bind("ShowComponentDisplays", showComponentDisplays);
    bind("PresetBrowserTypeToSearch", presetBrowserTypeToSearch);
}
