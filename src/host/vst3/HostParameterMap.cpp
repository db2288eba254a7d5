#include "host/vst3/HostParameterMap.h"

#include "plugin/PluginParameter.h"

#include <algorithm>
#include <cmath>

int32_t HostParameterMap::indexOf(Steinberg::Vst::ParamID id) const {
    return id < static_cast<Steinberg::Vst::ParamID>(count()) ? static_cast<int32_t>(id) : -1;
}

float HostParameterMap::toPlain(int32_t index, double normalized) const {
    const AbstractPluginParameter* parameter = plugin->getParameter(index);
    if (parameter == nullptr)
        return 0.0f;
    // A host's NaN or out-of-range value is brought back into the parameter's range.
    const double bounded =
        std::isfinite(normalized) ? std::clamp(normalized, 0.0, 1.0) : parameter->getDefaultNormalized();
    return parameter->plainOfNormalized(bounded);
}

double HostParameterMap::toNormalized(int32_t index, float plain) const {
    const AbstractPluginParameter* parameter = plugin->getParameter(index);
    return parameter != nullptr ? std::clamp(parameter->normalizedOfPlain(plain), 0.0, 1.0) : 0.0;
}

int32_t HostParameterMap::stepCount(int32_t index) const {
    const AbstractPluginParameter* parameter = plugin->getParameter(index);
    return parameter != nullptr ? parameter->getNumSteps() : 0;
}

double HostParameterMap::defaultNormalized(int32_t index) const {
    const AbstractPluginParameter* parameter = plugin->getParameter(index);
    return parameter != nullptr ? parameter->getDefaultNormalized() : 0.0;
}

std::string HostParameterMap::format(int32_t index, double normalized) const {
    const AbstractPluginParameter* parameter = plugin->getParameter(index);
    return parameter != nullptr ? parameter->getTextForNormalized(std::clamp(normalized, 0.0, 1.0))
                                : std::string{};
}

bool HostParameterMap::parse(int32_t index, std::string_view text, double& normalized) const {
    const AbstractPluginParameter* parameter = plugin->getParameter(index);
    return parameter != nullptr && parameter->parseText(text, normalized);
}
