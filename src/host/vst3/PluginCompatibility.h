#pragma once

#include "base/source/fobject.h"
#include "pluginterfaces/base/ibstream.h"

#include <string>

namespace Steinberg {

// Lets a host replace instances of older builds of a plug-in by this one: the class writes a JSON
// document naming the new class and the old ones. (Newer SDKs declare this interface; the one we
// build against does not, so it is declared here with its published id.)
class IPluginCompatibility : public FUnknown {
public:
    virtual tresult PLUGIN_API getCompatibilityJSON(IBStream* stream) = 0;
    static const FUID iid;
};
DECLARE_CLASS_IID(IPluginCompatibility, 0x4AFD4B6A, 0x35D7C240, 0xA5C31414, 0xFB7D15E6)

} // namespace Steinberg

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
