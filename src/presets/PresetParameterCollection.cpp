#include "presets/PresetParameterCollection.h"

#include "foundation/SettingSerializer.h"
#include "foundation/Utf8.h"
#include "plugin/ErrorReporter.h"
#include "presets/PresetText.h"

#include <cfloat>
#include <cmath>

namespace {

using Status = PresetTextReader::Status;

constexpr const char* kParametersSection = "Parameters";
constexpr const char* kSettingsSection = "Settings";
// A hostile key can be megabytes long; the message shows its beginning.
constexpr std::size_t kMaximumReportedKey = 200;

// Any decimal notation; nothing for text that is not a finite number.
std::optional<float> parsePlainValue(std::string_view text) {
    if (!text.empty() && text.front() == '+')
        text.remove_prefix(1);
    const std::optional<double> number = parseDouble(text);
    if (!number || !std::isfinite(*number))
        return std::nullopt;
    // Beyond the float range the parameter clamps anyway; narrowing must not overflow.
    return static_cast<float>(
        std::clamp(*number, -static_cast<double>(FLT_MAX), static_cast<double>(FLT_MAX)));
}

void reportProblem(Status status, ErrorReporter& errors) {
    errors.report(status == Status::ReadError ? preset_messages::kCorruptFile
                                              : preset_messages::kInvalidFormat);
}

} // namespace

PresetParameterCollection::PresetParameterCollection(const GenericPluginBase& plugin)
    : headerName(plugin.productName + "Preset"), ownSignature(plugin.presetSignature) {
    for (int32_t i = 0; i < plugin.getNumParameters(); ++i)
        add(*plugin.getParameter(i));
}

int32_t PresetParameterCollection::add(AbstractPluginParameter& parameter) {
    const int32_t position = ParameterCollection::add(parameter);
    positions.emplace(parameter.getName(), position);
    return position;
}

int32_t PresetParameterCollection::find(std::string_view key) const {
    const auto found = positions.find(std::string(key));
    return found == positions.end() ? -1 : found->second;
}

std::vector<float> PresetParameterCollection::defaultValues() const {
    std::vector<float> values(static_cast<size_t>(size()));
    for (int32_t i = 0; i < size(); ++i)
        values[static_cast<size_t>(i)] = at(i).getDefaultPlain();
    return values;
}

bool PresetParameterCollection::writePreset(std::ostream& stream, int32_t version, uint32_t flags,
                                            std::span<const float> values, const PresetMetadata& metadata,
                                            const std::map<std::string, std::string>& settings) const {
    PresetTextWriter writer(stream);
    writer.writeSection(headerName);
    writer.writeEntry("Signature", ownSignature);
    writer.writeInteger("Version", version);
    if ((flags & kWriteMetadata) != 0) {
        const std::pair<const char*, const std::string*> entries[] = {{"Name", &metadata.name},
                                                                      {"Author", &metadata.author},
                                                                      {"Description", &metadata.description},
                                                                      {"Tags", &metadata.tags}};
        for (const auto& [key, text] : entries)
            if (!text->empty())
                writer.writeEntry(key, *text);
    }
    if (static_cast<int32_t>(values.size()) == size()) {
        writer.writeSection(kParametersSection);
        for (int32_t i = 0; i < size(); ++i)
            writer.writeNumber(at(i).getName(), values[static_cast<size_t>(i)]);
    }
    if (!settings.empty()) {
        writer.writeSection(kSettingsSection);
        for (const auto& [key, text] : settings)
            writer.writeEntry(key, text);
    }
    stream.flush();
    return writer.good();
}

std::optional<PresetContent> PresetParameterCollection::readPreset(std::istream& stream,
                                                                   ErrorReporter& errors) const {
    if (!stream.good()) {
        errors.report(preset_messages::kCorruptFile);
        return std::nullopt;
    }
    PresetTextReader reader(stream);
    Status status = reader.next();
    if (status == Status::ReadError || PresetTextReader::isSyntaxError(status)) {
        reportProblem(status, errors);
        return std::nullopt;
    }
    if (status != Status::Section || reader.getSection() != headerName) {
        errors.report(preset_messages::kInvalidHeader);
        return std::nullopt;
    }

    PresetContent content;
    std::string* const metadataFields[] = {&content.metadata.name, &content.metadata.author,
                                           &content.metadata.description, &content.metadata.tags};
    static constexpr const char* kMetadataKeys[] = {"Name", "Author", "Description", "Tags"};
    while ((status = reader.next()) == Status::Entry) {
        const std::string& key = reader.getKey();
        if (key == "Signature")
            content.signature = reader.getValue();
        else if (key == "Version")
            content.version = parseDecimalInt32(reader.getValue()).value_or(0);
        for (std::size_t field = 0; field < std::size(kMetadataKeys); ++field)
            if (key == kMetadataKeys[field])
                *metadataFields[field] = toValidUtf8(reader.getValue());
    }
    if (status == Status::ReadError || PresetTextReader::isSyntaxError(status)) {
        reportProblem(status, errors);
        return std::nullopt;
    }
    if (!acceptsSignature(content.signature)) {
        errors.report(preset_messages::kUnknownSignature + toValidUtf8(content.signature));
        return std::nullopt;
    }
    if (!acceptsVersion(content.version)) {
        errors.report(preset_messages::kUnsupportedVersion + std::to_string(content.version));
        return std::nullopt;
    }

    content.values = defaultValues();
    while (status == Status::Section) {
        const std::string section = reader.getSection();
        while ((status = reader.next()) == Status::Entry) {
            if (section == kParametersSection) {
                const int32_t position = find(reader.getKey());
                if (position < 0) {
                    errors.report(
                        preset_messages::kUnknownParameter +
                        toValidUtf8(std::string_view(reader.getKey()).substr(0, kMaximumReportedKey)));
                } else if (const std::optional<float> value = parsePlainValue(reader.getValue())) {
                    content.values[static_cast<size_t>(position)] = *value;
                }
            } else if (section == kSettingsSection) {
                content.settings[toValidUtf8(reader.getKey())] = toValidUtf8(reader.getValue());
            }
        }
    }
    if (status != Status::EndOfFile) {
        reportProblem(status, errors);
        return std::nullopt;
    }
    return content;
}
