#include "StateChunkCheck.h"

#include "plugin/ErrorReporter.h"
#include "plugin/eq/EQParameterSet.h"

#include <cmath>
#include <sstream>

namespace testing_support {

bool holdsValidValue(const AbstractPluginParameter& parameter) {
    const float value = parameter.getPlain();
    if (dynamic_cast<const EQParameterSet::ShapeParameter*>(&parameter) != nullptr)
        return value >= 0.0f && value <= static_cast<float>(kNumFilterShapes - 1);
    return std::isfinite(value) && value >= parameter.getMinimum() && value <= parameter.getMaximum();
}

std::string checkStateChunk(GenericPlugin& plugin, std::string_view bytes) {
    const std::vector<float> before = plugin.getParameterValues();
    std::istringstream chunk{std::string(bytes)};
    ErrorReporter errors;
    const bool loaded = plugin.readState(chunk, errors);
    if (!loaded && plugin.getParameterValues() != before)
        return "a rejected chunk changed parameters";
    if (!loaded && errors.empty())
        return "a rejected chunk reported nothing";
    for (int32_t i = 0; i < plugin.getParameterCount(); ++i)
        if (!holdsValidValue(*plugin.getParameter(i)))
            return "parameter " + plugin.getParameter(i)->getName() + " holds an invalid value";
    if (!loaded)
        return {};

    const std::vector<float> values = plugin.getParameterValues();
    const std::string name = plugin.getPresetState().name;
    std::stringstream written;
    if (!plugin.writeState(written))
        return "writing the state failed";
    ErrorReporter rereadErrors;
    if (!plugin.readState(written, rereadErrors))
        return "the written state does not read back: " + rereadErrors.getText();
    if (plugin.getParameterValues() != values)
        return "values changed through a write and read";
    if (plugin.getPresetState().name != name)
        return "the preset name changed through a write and read";
    if (!rereadErrors.empty())
        return "the written state reads back with errors: " + rereadErrors.getText();
    return {};
}

} // namespace testing_support
