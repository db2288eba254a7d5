#pragma once

#include "foundation/NotifyEvent.h"
#include "foundation/Property.h"
#include "foundation/SettingSerializer.h"
#include "foundation/UpdatedObject.h"
#include "plugin/GenericPlugin.h"

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

// Settings that outlive a project, kept in one preferences domain. Each property is bound to a
// key; all keys are read once at creation, and once the settings are marked loaded every change
// writes its key (several changes inside one update lock in one write) and fires `changed`.
// User-interface thread only.
class GenericPlugin::SettingsBase : public PropertyOwner, public UpdatedObject {
public:
    explicit SettingsBase(std::string domain);

    void propertyChanged(AbstractProperty& property) override;
    // Reads every bound key; values outside a limited property's range are clamped.
    virtual void read(SettingSerializer& reader);
    // Writes the changed keys to the preferences store, then tells the listeners.
    void update() override;

    // Reads the keys from the preferences store.
    void load();
    // From now on changes are written; the first call tells the listeners once.
    void markLoaded();
    bool isLoaded() const { return loaded; }
    const std::string& getDomain() const { return domain; }

    NotifyEvent changed;

protected:
    // Binds a Property of bool, int32_t, std::string or an int32_t-based enumeration, or a
    // LimitedProperty<int32_t>, to a key. The property must be owned by this object.
    template <class P>
    void bind(const char* key, P& property);

private:
    struct Binding {
        std::string key;
        AbstractProperty* property;
        std::function<void(SettingSerializer&, const std::string&)> read;
        std::function<void(SettingSerializer&, const std::string&)> write;
        bool dirty = false;
    };

    std::string domain;
    std::vector<Binding> bindings;
    bool loaded = false;
};

template <class P>
void GenericPlugin::SettingsBase::bind(const char* key, P& property) {
    using T = std::remove_cvref_t<decltype(property.getValue())>;
    Binding binding{key, &property, {}, {}};
    if constexpr (std::is_same_v<T, bool>) {
        binding.read = [&property](SettingSerializer& s, const std::string& k) {
            property.setValue(s.readBool(k, property.getValue()));
        };
        binding.write = [&property](SettingSerializer& s, const std::string& k) {
            s.writeBool(k, property.getValue());
        };
    } else if constexpr (std::is_same_v<T, std::string>) {
        binding.read = [&property](SettingSerializer& s, const std::string& k) {
            property.setValue(s.readString(k, property.getValue()));
        };
        binding.write = [&property](SettingSerializer& s, const std::string& k) {
            s.writeString(k, property.getValue());
        };
    } else {
        static_assert(std::is_same_v<T, int32_t> || std::is_enum_v<T>, "unsupported setting type");
        binding.read = [&property](SettingSerializer& s, const std::string& k) {
            property.setValue(static_cast<T>(s.readInt(k, static_cast<int32_t>(property.getValue()))));
        };
        binding.write = [&property](SettingSerializer& s, const std::string& k) {
            s.writeInt(k, static_cast<int32_t>(property.getValue()));
        };
    }
    bindings.push_back(std::move(binding));
}

// The limits and defaults of the editor's size and layout keys; they depend on the product.
struct InterfaceLimits {
    int32_t defaultLayout = 0;
    int32_t maximumLayout = 0;
    int32_t defaultPanels = 0;
    int32_t maximumPanels = 0;
    int32_t defaultWidth = 0;
    int32_t minimumWidth = 0;
    int32_t maximumWidth = 0;
    int32_t defaultHeight = 0;
    int32_t minimumHeight = 0;
    int32_t maximumHeight = 0;
};

// The product's own settings, in the product's preferences domain.
class GenericPlugin::Settings : public GenericPlugin::SettingsBase {
public:
    Settings(std::string domain, const InterfaceLimits& limits);

    // Layout variant of the editor window.
    LimitedProperty<int32_t> interfaceLayout;
    // Bit set of the optional panels that are open.
    LimitedProperty<int32_t> interfacePanels;
    // Editor size in points.
    LimitedProperty<int32_t> interfaceWidth;
    LimitedProperty<int32_t> interfaceHeight;
    // Per-display scaling adjustments of the editor.
    Property<std::string> scalingAdjustments{{}, this};
};

enum class GraphicsAccelerationMode : int32_t { Software = 0, Accelerated = 1 };

// Settings shared by every product of the family, in the family's domain.
class GenericPlugin::SharedSettings : public GenericPlugin::SettingsBase {
public:
    SharedSettings();

    // MIDI program changes select presets.
    Property<bool> enableMidiProgramChanges{false, this};
    Property<GraphicsAccelerationMode> graphicsAcceleration{GraphicsAccelerationMode::Accelerated, this};
    // High-resolution drawing.
    LimitedProperty<int32_t> retinaEnabled{1, 0, 300, this};
    Property<bool> showInteractiveHelp{true, this};
    // The first-run hint has been shown.
    Property<bool> showWelcomeHint{false, this};
    Property<bool> showComponentDisplays{true, this};
    // Typing in the preset browser starts a search.
    Property<bool> presetBrowserTypeToSearch{true, this};
};
