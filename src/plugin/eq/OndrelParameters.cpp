#include "plugin/eq/OndrelParameters.h"

#include "plugin/eq/ParameterMappings.h"

namespace {

// Shows the stored -1..1 output level in dB.
const DBParameterUnit& outputLevelUnit() {
    static const DBParameterUnit unit(outputLevelToDb, dbToOutputLevel);
    return unit;
}

} // namespace

OndrelInit::OndrelInit(GenericPluginInfo& info) {
    info.productName = "Ondrel";
    info.presetSignature = "ZO4p";
    info.formatNumber = 5;
    info.flags = 3054;
    info.keyedValues = {{2, 0}};
}

OndrelParameters::OndrelParameters(GenericPluginBase& owner)
    : OndrelInit(owner), bands(owner),
      processingMode(owner, "Processing Mode", "Zero Latency,Natural Phase,Linear Phase", 0),
      processingResolution(owner, "Processing Resolution", "Low,Medium,High,Very High,Maximum", 1),
      character(owner, "Character", "Clean,Subtle,Warm", 0),
      gainScale(owner, "Gain Scale", 0.0f, 2.0f, 1.0f, &DBRangeParameterUnit::instance()),
      outputLevel(owner, "Output Level", -1.0f, 1.0f, 0.0f, &outputLevelUnit()),
      outputPan(owner, "Output Pan"), outputPanMode(owner, "Output Pan Mode", "Left/Right,Mid/Side", 0),
      bypass(owner, "Bypass", "Not Bypassed,Bypassed", 0),
      outputInvertPhase(owner, "Output Invert Phase", "Normal,Inverted", 0),
      autoGain(owner, "Auto Gain", "Off,On", 0), analyzer(owner),
      displayRange(owner, "Display Range", "3 dB,6 dB,12 dB,30 dB", 2),
      receiveMidi(owner, "Receive Midi", "Enabled,Disabled", 0),
      soloGain(owner, "Solo Gain", -20.0f, 20.0f, 0.0f, &DBParameterUnit::instance()), extensions(owner) {
    // The description's last three values are set in this call order.
    owner.layoutValue1 = 1;
    owner.layoutValue2 = 48;
    owner.layoutValue0 = 3;
}
