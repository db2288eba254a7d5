#include "host/vst3/PluginCompatibility.h"

#include "host/vst3/Vst3Ids.h"

#include <algorithm>
#include <cctype>

PluginCompatibility::PluginCompatibility(std::string fourCharacterCode, std::string className)
    : code(std::move(fourCharacterCode)), lowerCaseName(std::move(className)) {
    std::transform(lowerCaseName.begin(), lowerCaseName.end(), lowerCaseName.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
}

Steinberg::FUnknown* PluginCompatibility::create(void*) {
    const std::string name =
        vst3_ids::className("Ondrel", vst3_ids::kGeneration, vst3_ids::kGenerationThreshold);
    return static_cast<Steinberg::IPluginCompatibility*>(
        new PluginCompatibility(vst3_ids::kFourCharacterCode, name));
}

std::string PluginCompatibility::document() const {
    Steinberg::TUID processor;
    vst3_ids::parseClassId(vst3_ids::kProcessorId, processor);
    std::string text = "[  {    \"New\": \"" + vst3_ids::hexDigits(processor) + "\",    \"Old\": [";
    for (int32_t variant = 0; variant < 4; ++variant) {
        text +=
            "      \"" + vst3_ids::legacyClassId(vst3_ids::vst2UniqueId(code, variant), lowerCaseName) + "\"";
        if (variant < 3)
            text += ",";
    }
    return text + "    ]  }]";
}

Steinberg::tresult PLUGIN_API PluginCompatibility::getCompatibilityJSON(Steinberg::IBStream* stream) {
    if (stream == nullptr)
        return Steinberg::kInvalidArgument;
    const std::string text = document();
    Steinberg::int32 written = 0;
    stream->write(const_cast<char*>(text.data()), static_cast<Steinberg::int32>(text.size()), &written);
    return Steinberg::kResultOk;
}
