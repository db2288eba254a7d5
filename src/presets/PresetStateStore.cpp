#include "presets/PresetStateStore.h"

#include "foundation/AtomicFile.h"
#include "foundation/SystemFolders.h"
#include "plugin/ErrorReporter.h"
#include "plugin/GenericPlugin.h"
#include "presets/PresetParameterCollection.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

namespace {

// The text of the plug-in's state with the given values, metadata and settings.
bool writeText(const GenericPlugin& plugin, std::ostream& stream, std::span<const float> values,
               const PresetMetadata& metadata, const std::map<std::string, std::string>& settings) {
    const PresetParameterCollection collection(plugin);
    return collection.writePreset(stream, PresetParameterCollection::kCurrentVersion,
                                  PresetParameterCollection::kWriteMetadata, values, metadata, settings);
}

bool writeCurrentState(const GenericPlugin& plugin, std::ostream& stream, const PresetMetadata& metadata) {
    return writeText(plugin, stream, plugin.getParameterValues(), metadata, plugin.getPresetSettings());
}

PresetMetadata currentMetadata(const GenericPlugin& plugin) {
    PresetMetadata metadata;
    metadata.name = plugin.getPresetState().name;
    return metadata;
}

bool saveFile(const std::string& path, const std::function<bool(std::ostream&)>& write) {
    std::ostringstream text;
    if (!write(text))
        return false;
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    return writeFileAtomically(path, text.view());
}

std::optional<PresetContent> readFile(const GenericPlugin& plugin, const std::string& path,
                                      ErrorReporter& errors) {
    std::ifstream file(path, std::ios::binary);
    return PresetParameterCollection(plugin).readPreset(file, errors);
}

void apply(GenericPlugin& plugin, PresetContent content, const std::string& identity) {
    plugin.applyParameterValues(content.values, GenericPlugin::kPresetLoaded);
    plugin.setPresetSettings(std::move(content.settings));
    plugin.setPresetState({std::move(content.metadata.name), identity, false});
}

} // namespace

std::string PresetStateStore::interfaceDefaultsPath() {
    return preferencesFolder() + "InterfaceDefaults.zvd";
}

bool PresetStateStore::writeState(const GenericPlugin& plugin, std::ostream& stream) {
    return writeCurrentState(plugin, stream, currentMetadata(plugin));
}

bool PresetStateStore::readState(GenericPlugin& plugin, std::istream& stream, ErrorReporter& errors) {
    std::optional<PresetContent> content = PresetParameterCollection(plugin).readPreset(stream, errors);
    if (!content)
        return false;
    apply(plugin, std::move(*content), {});
    return true;
}

bool PresetStateStore::savePreset(const GenericPlugin& plugin, const std::string& path,
                                  const PresetMetadata& metadata) {
    return saveFile(path, [&](std::ostream& stream) { return writeCurrentState(plugin, stream, metadata); });
}

bool PresetStateStore::loadPreset(GenericPlugin& plugin, const std::string& path, ErrorReporter& errors) {
    std::optional<PresetContent> content = readFile(plugin, path, errors);
    if (!content)
        return false;
    apply(plugin, std::move(*content), path);
    return true;
}

bool PresetStateStore::saveDefaults(const GenericPlugin& plugin) {
    return saveFile(interfaceDefaultsPath(), [&](std::ostream& stream) {
        return writeCurrentState(plugin, stream, currentMetadata(plugin));
    });
}

bool PresetStateStore::saveParameterAsDefault(const GenericPlugin& plugin, int32_t index) {
    ErrorReporter ignored;
    std::optional<PresetContent> defaults = readFile(plugin, interfaceDefaultsPath(), ignored);
    // Without usable defaults the whole current state becomes the default.
    if (!defaults)
        return saveDefaults(plugin);
    defaults->values.at(static_cast<size_t>(index)) =
        plugin.getParameterValues().at(static_cast<size_t>(index));
    return saveFile(interfaceDefaultsPath(), [&](std::ostream& stream) {
        return writeText(plugin, stream, defaults->values, defaults->metadata, defaults->settings);
    });
}

bool PresetStateStore::loadDefaults(GenericPlugin& plugin) {
    ErrorReporter ignored;
    std::optional<PresetContent> defaults = readFile(plugin, interfaceDefaultsPath(), ignored);
    if (!defaults)
        return false;
    apply(plugin, std::move(*defaults), {});
    return true;
}
