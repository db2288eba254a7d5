#pragma once

#include "plugin/GenericPluginBase.h"
#include "pluginterfaces/vst/vsttypes.h"

#include <cstdint>
#include <string>
#include <string_view>

// Host parameter ids of the plug-in's parameters and the conversions between the host's
// normalised values and the plug-in's plain values. Every plug-in parameter is exported under
// its own index; ids from 0x40000000 on are the special parameters, which the map does not own.
// Threading: the conversions only read the parameter descriptions, from any thread.
class HostParameterMap {
public:
    static constexpr Steinberg::Vst::ParamID kSpecialBase = 0x40000000;
    static constexpr Steinberg::Vst::ParamID kSpecialLast = 0x40000088;

    explicit HostParameterMap(const GenericPluginBase& plugin) : plugin(&plugin) {}
    void setPlugin(const GenericPluginBase& newPlugin) { plugin = &newPlugin; }

    int32_t count() const { return plugin->getNumParameters(); }
    static Steinberg::Vst::ParamID idOf(int32_t index) { return static_cast<Steinberg::Vst::ParamID>(index); }
    // The plug-in parameter of a host id, or -1 (special ids and ids past the list).
    int32_t indexOf(Steinberg::Vst::ParamID id) const;
    static bool isSpecial(Steinberg::Vst::ParamID id) { return id >= kSpecialBase && id <= kSpecialLast; }

    float toPlain(int32_t index, double normalized) const;
    double toNormalized(int32_t index, float plain) const;
    int32_t stepCount(int32_t index) const;
    double defaultNormalized(int32_t index) const;
    std::string format(int32_t index, double normalized) const;
    bool parse(int32_t index, std::string_view text, double& normalized) const;

private:
    const GenericPluginBase* plugin;
};
