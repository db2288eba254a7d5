#pragma once

#include "plugin/GenericPluginBase.h"
#include "plugin/ParameterSets.h"
#include "plugin/PluginStateStore.h"

#include <cstdint>
#include <istream>
#include <map>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

class ErrorReporter;

// The texts a failed or partial load reports.
namespace preset_messages {
inline constexpr const char* kUnknownParameter = "Unknown parameter: ";
inline constexpr const char* kCorruptFile = "Incorrect file permissions or corrupt preset file.";
inline constexpr const char* kUnknownSignature =
    "Unknown preset signature (likely intended for another Zorvane plug-in): ";
inline constexpr const char* kUnsupportedVersion = "Preset version not supported: ";
inline constexpr const char* kInvalidFormat = "Invalid file format.";
inline constexpr const char* kInvalidHeader = "Invalid preset header.";
} // namespace preset_messages

// What a preset's text holds, read without touching any plug-in.
struct PresetContent {
    std::string signature;
    int32_t version = 0;
    PresetMetadata metadata;
    // Plain values by collection position; parameters the text does not set keep their defaults.
    std::vector<float> values;
    std::map<std::string, std::string> settings;
};

// The parameters that take part in a preset (all host parameters in index order), looked up by
// their names, and the reading and writing of the preset text:
//
//     [<product>Preset]            header: Signature, Version, optional Name, Author,
//     Signature=ZO4p               Description, Tags
//     Version=1
//
//     [Parameters]                 one entry per parameter, plain value with "%.15g"
//     ...
//
//     [Settings]                   optional, the per-preset settings
//
// Reading is stateless between texts and safe for any bytes: errors are reported, values that
// are not finite numbers are ignored, and reported keys and metadata are made valid UTF-8.
class PresetParameterCollection : public ParameterCollection {
public:
    static constexpr int32_t kCurrentVersion = 1;
    // Flag of writePreset: write the metadata entries that are not empty.
    static constexpr uint32_t kWriteMetadata = 1;

    explicit PresetParameterCollection(const GenericPluginBase& plugin);

    int32_t add(AbstractPluginParameter& parameter) override;
    // The position of the parameter with this key, or -1.
    int32_t find(std::string_view key) const;
    const std::string& getHeaderName() const { return headerName; }

    // Loaders of older generations widen these.
    virtual bool acceptsSignature(const std::string& signature) const { return signature == ownSignature; }
    virtual bool acceptsVersion(int32_t version) const { return version == kCurrentVersion; }

    // The parameters section is written only when values holds one value per parameter. True
    // when the stream is still good afterwards.
    bool writePreset(std::ostream& stream, int32_t version, uint32_t flags, std::span<const float> values,
                     const PresetMetadata& metadata,
                     const std::map<std::string, std::string>& settings) const;

    // Nothing when the header is unusable or the text is broken; the reasons go to errors.
    // Unknown parameter keys are reported and skipped.
    std::optional<PresetContent> readPreset(std::istream& stream, ErrorReporter& errors) const;

private:
    std::vector<float> defaultValues() const;

    std::string headerName;
    std::string ownSignature;
    std::unordered_map<std::string, int32_t> positions;
};
