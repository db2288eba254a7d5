// Interface ids that the SDK build we use declares without defining (the editor's), or does not
// have at all (the compatibility interface and the PreSonus extensions).
#include "host/vst3/IPluginCompatibility.h"
#include "pluginterfaces/gui/iplugview.h"
#include "pluginterfaces/gui/iplugviewcontentscalesupport.h"

// The extension headers rely on the SDK's base types being declared first.
#include "ipslcontextinfo.h"
#include "ipslgainreduction.h"

namespace Steinberg {
DEF_CLASS_IID(IPlugView)
DEF_CLASS_IID(IPlugFrame)
DEF_CLASS_IID(IPlugViewContentScaleSupport)
DEF_CLASS_IID(IPluginCompatibility)
} // namespace Steinberg

namespace Presonus {
DEF_CLASS_IID(IGainReductionInfo)
DEF_CLASS_IID(IContextInfoHandler)
DEF_CLASS_IID(IContextInfoProvider)
} // namespace Presonus
