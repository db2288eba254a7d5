#pragma once

#include "plugin/GenericPluginBase.h"
#include "plugin/eq/EQParameterSet.h"

// Describes the product before any parameter exists.
class OndrelInit {
protected:
    explicit OndrelInit(GenericPluginInfo& info);
};

// The equaliser's 600 host parameters. The plug-in model, the processor and the command-line tool
// each build one, so an index means the same parameter everywhere. Members are declared in host
// order: bands 0..551, global block 552..561, analyzer 562..572, global block 573..575, the
// per-band extension 576..599.
class OndrelParameters : public OndrelInit {
public:
    static constexpr int32_t kNumParameters = 600;

    explicit OndrelParameters(GenericPluginBase& owner);

    EQParameterSetArray bands;

    IndexedPluginParameter<ProcessingMode> processingMode;
    IndexedPluginParameter<ProcessingResolution> processingResolution;
    IndexedPluginParameter<Character> character;
    FloatPluginParameter gainScale;
    FloatPluginParameter outputLevel;
    StereoPanParameter outputPan;
    IndexedPluginParameter<ChannelMode> outputPanMode;
    IndexedPluginParameter<bool> bypass;
    IndexedPluginParameter<bool> outputInvertPhase;
    IndexedPluginParameter<bool> autoGain;

    AnalyzerParameterSet analyzer;

    IndexedPluginParameter<DisplayRange> displayRange;
    IndexedPluginParameter<GenericPluginBase::MidiState> receiveMidi;
    FloatPluginParameter soloGain;

    EQParameterSetExtensionArray extensions;
};
