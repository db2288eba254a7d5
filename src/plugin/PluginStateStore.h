#pragma once

#include <cstdint>
#include <istream>
#include <ostream>
#include <string>

class ErrorReporter;
class GenericPlugin;

// A preset's descriptive entries.
struct PresetMetadata {
    std::string name;
    std::string author;
    std::string description;
    // Tag texts joined with ",".
    std::string tags;
};

// How the model saves and restores itself: the preset text format, the host state chunk and the
// interface defaults live in the presets layer, above this one, which implements this interface.
// Loads report their problems to the ErrorReporter and leave the plug-in untouched when the
// text cannot be used at all. Controller thread only.
class PluginStateStore {
public:
    virtual ~PluginStateStore() = default;

    // The host's project chunk: every parameter, the preset name and the per-preset settings.
    virtual bool writeState(const GenericPlugin& plugin, std::ostream& stream) = 0;
    virtual bool readState(GenericPlugin& plugin, std::istream& stream, ErrorReporter& errors) = 0;

    virtual bool savePreset(const GenericPlugin& plugin, const std::string& path,
                            const PresetMetadata& metadata) = 0;
    virtual bool loadPreset(GenericPlugin& plugin, const std::string& path, ErrorReporter& errors) = 0;

    // The state new instances start from.
    virtual bool saveDefaults(const GenericPlugin& plugin) = 0;
    // Only this parameter's entry changes when defaults exist; otherwise the whole state is saved.
    virtual bool saveParameterAsDefault(const GenericPlugin& plugin, int32_t index) = 0;
    // False (and the plug-in is untouched) when there are no usable defaults.
    virtual bool loadDefaults(GenericPlugin& plugin) = 0;
};
