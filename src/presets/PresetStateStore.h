#pragma once

#include "plugin/PluginStateStore.h"

#include <string>

// Saves and restores a plug-in model in the preset text form: preset files, the host's state
// chunk (the same text, with the current preset name as its Name entry) and the interface
// defaults "InterfaceDefaults.zvd" that new instances start from. Files are replaced atomically,
// so a crash while saving leaves the old file. One store serves every instance of the process.
class PresetStateStore : public PluginStateStore {
public:
    // In the family's preferences folder.
    static std::string interfaceDefaultsPath();

    bool writeState(const GenericPlugin& plugin, std::ostream& stream) override;
    // A chunk that fails the header check leaves the plug-in as it was.
    bool readState(GenericPlugin& plugin, std::istream& stream, ErrorReporter& errors) override;

    bool savePreset(const GenericPlugin& plugin, const std::string& path,
                    const PresetMetadata& metadata) override;
    bool loadPreset(GenericPlugin& plugin, const std::string& path, ErrorReporter& errors) override;

    bool saveDefaults(const GenericPlugin& plugin) override;
    bool saveParameterAsDefault(const GenericPlugin& plugin, int32_t index) override;
    bool loadDefaults(GenericPlugin& plugin) override;
};
