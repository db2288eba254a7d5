#pragma once

#include "base/source/fobject.h"
#include "host/vst3/IPluginCompatibility.h"

#include <string>

// The compatibility class of the factory: this VST3 build replaces the product's VST2 builds.
class PluginCompatibility : public Steinberg::FObject, public Steinberg::IPluginCompatibility {
public:
    PluginCompatibility(std::string fourCharacterCode, std::string className);

    Steinberg::tresult PLUGIN_API getCompatibilityJSON(Steinberg::IBStream* stream) override;
    // The document itself, written in one piece.
    std::string document() const;

    static Steinberg::FUnknown* create(void* context);

    OBJ_METHODS(PluginCompatibility, Steinberg::FObject)
    DEFINE_INTERFACES
    DEF_INTERFACE(Steinberg::IPluginCompatibility)
    END_DEFINE_INTERFACES(Steinberg::FObject)
    REFCOUNT_METHODS(Steinberg::FObject)

private:
    std::string code;
    std::string lowerCaseName;
};
