#pragma once

#include "plugin/ErrorReporter.h"
#include "plugin/eq/OndrelPlugin.h"
#include "presets/PresetStateStore.h"

#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace testing_support {

// An initialised equaliser model with the preset store.
struct StoredPlugin {
    StoredPlugin() { plugin.initialise(HostKind::Vst3); }

    std::string stateText() {
        std::ostringstream text;
        plugin.writeState(text);
        return text.str();
    }
    // The messages of a load from text; the load's result in loaded.
    std::vector<std::string> load(const std::string& text, bool* loaded = nullptr) {
        std::istringstream stream(text);
        ErrorReporter errors;
        const bool result = plugin.readState(stream, errors);
        if (loaded != nullptr)
            *loaded = result;
        return errors.getMessages();
    }

    PresetStateStore store;
    OndrelPlugin plugin{&store};
};

// Sets every parameter to a random value it can take: anywhere in a float's range, any item of
// a value list.
inline void randomise(GenericPlugin& plugin, std::mt19937& random) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int32_t i = 0; i < plugin.getParameterCount(); ++i) {
        AbstractPluginParameter& parameter = *plugin.getParameter(i);
        if (parameter.getNumSteps() == 0) {
            const double range = parameter.getMaximum() - parameter.getMinimum();
            parameter.setPlain(static_cast<float>(parameter.getMinimum() + unit(random) * range));
        } else {
            parameter.setNormalized(unit(random));
        }
    }
}

inline bool bitIdentical(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

// The header of a preset of this plug-in, ending in an empty line.
inline std::string presetHeader(const std::string& signature = "ZO4p", const std::string& version = "1") {
    return "[OndrelPreset]\nSignature=" + signature + "\nVersion=" + version + "\n\n";
}

} // namespace testing_support
