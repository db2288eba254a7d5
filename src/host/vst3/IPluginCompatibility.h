#pragma once

#include "pluginterfaces/base/funknown.h"
#include "pluginterfaces/base/ibstream.h"

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
