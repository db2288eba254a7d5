#pragma once

#include "host/vst3/HostParameterMap.h"
#include "plugin/GenericPlugin.h"

#include "pluginterfaces/base/funknown.h"
#include "public.sdk/source/vst/vsteditcontroller.h"

// The host extension headers rely on the SDK's base types being declared first.
#include "ipslcontextinfo.h"
#include "ipslgainreduction.h"

#include "pluginterfaces/vst/ivstchannelcontextinfo.h"
#include "pluginterfaces/vst/ivstmidicontrollers.h"
#include "pluginterfaces/vst/ivstunits.h"

#include <memory>
#include <string>
#include <vector>

class OndrelPlugin;

// The edit-controller half of the plug-in under a VST3 host: owns the plug-in model, exports its
// parameters and the special parameters, converts values and texts, answers MIDI mapping and unit
// queries, follows the host's track name and colour, reports gain reduction, and keeps the
// processor informed by messages.
//
// Threading: every call comes on the host's main (user-interface) thread, and so do the model's
// adapter calls.
class Vst3PluginController : public Steinberg::Vst::EditController,
                             public Steinberg::Vst::IMidiMapping,
                             public Steinberg::Vst::IUnitInfo,
                             public Steinberg::Vst::ChannelContext::IInfoListener,
                             public GenericPlugin::Adapter,
                             public Presonus::IGainReductionInfo,
                             public Presonus::IContextInfoHandler {
public:
    static constexpr int32_t kNumSpecialParameters = 137;
    // Host flags from the host's name.
    static constexpr uint32_t kCubaseOrNuendo = 3;
    static constexpr uint32_t kBitwigOrLive = 4;

    Vst3PluginController();
    ~Vst3PluginController() override;

    static Steinberg::FUnknown* create(void* context);

    // EditController
    Steinberg::tresult PLUGIN_API initialize(Steinberg::FUnknown* context) override;
    Steinberg::tresult PLUGIN_API terminate() override;
    Steinberg::tresult PLUGIN_API connect(Steinberg::Vst::IConnectionPoint* other) override;
    Steinberg::tresult PLUGIN_API notify(Steinberg::Vst::IMessage* message) override;
    Steinberg::tresult PLUGIN_API setComponentState(Steinberg::IBStream* state) override;
    Steinberg::tresult PLUGIN_API getState(Steinberg::IBStream* state) override;
    Steinberg::tresult PLUGIN_API setState(Steinberg::IBStream* state) override;
    Steinberg::tresult PLUGIN_API getParamStringByValue(Steinberg::Vst::ParamID id,
                                                        Steinberg::Vst::ParamValue value,
                                                        Steinberg::Vst::String128 string) override;
    Steinberg::tresult PLUGIN_API getParamValueByString(Steinberg::Vst::ParamID id,
                                                        Steinberg::Vst::TChar* string,
                                                        Steinberg::Vst::ParamValue& value) override;
    Steinberg::Vst::ParamValue PLUGIN_API normalizedParamToPlain(Steinberg::Vst::ParamID id,
                                                                 Steinberg::Vst::ParamValue value) override;
    Steinberg::Vst::ParamValue PLUGIN_API plainParamToNormalized(Steinberg::Vst::ParamID id,
                                                                 Steinberg::Vst::ParamValue value) override;
    Steinberg::tresult PLUGIN_API setParamNormalized(Steinberg::Vst::ParamID id,
                                                     Steinberg::Vst::ParamValue value) override;
    Steinberg::IPlugView* PLUGIN_API createView(Steinberg::FIDString name) override;

    // IMidiMapping
    Steinberg::tresult PLUGIN_API getMidiControllerAssignment(Steinberg::int32 busIndex,
                                                              Steinberg::int16 channel,
                                                              Steinberg::Vst::CtrlNumber controller,
                                                              Steinberg::Vst::ParamID& id) override;

    // IUnitInfo
    Steinberg::int32 PLUGIN_API getUnitCount() override;
    Steinberg::tresult PLUGIN_API getUnitInfo(Steinberg::int32 index,
                                              Steinberg::Vst::UnitInfo& info) override;
    Steinberg::int32 PLUGIN_API getProgramListCount() override { return 1; }
    Steinberg::tresult PLUGIN_API getProgramListInfo(Steinberg::int32 index,
                                                     Steinberg::Vst::ProgramListInfo& info) override;
    Steinberg::tresult PLUGIN_API getProgramName(Steinberg::Vst::ProgramListID, Steinberg::int32,
                                                 Steinberg::Vst::String128) override {
        return Steinberg::kNotImplemented;
    }
    Steinberg::tresult PLUGIN_API getProgramInfo(Steinberg::Vst::ProgramListID, Steinberg::int32,
                                                 Steinberg::Vst::CString,
                                                 Steinberg::Vst::String128) override {
        return Steinberg::kNotImplemented;
    }
    Steinberg::tresult PLUGIN_API hasProgramPitchNames(Steinberg::Vst::ProgramListID,
                                                       Steinberg::int32) override {
        return Steinberg::kNotImplemented;
    }
    Steinberg::tresult PLUGIN_API getProgramPitchName(Steinberg::Vst::ProgramListID, Steinberg::int32,
                                                      Steinberg::int16, Steinberg::Vst::String128) override {
        return Steinberg::kNotImplemented;
    }
    Steinberg::Vst::UnitID PLUGIN_API getSelectedUnit() override { return 0; }
    Steinberg::tresult PLUGIN_API selectUnit(Steinberg::Vst::UnitID) override {
        return Steinberg::kNotImplemented;
    }
    Steinberg::tresult PLUGIN_API getUnitByBus(Steinberg::Vst::MediaType, Steinberg::Vst::BusDirection,
                                               Steinberg::int32, Steinberg::int32,
                                               Steinberg::Vst::UnitID& unit) override {
        unit = 0;
        return Steinberg::kResultOk;
    }
    Steinberg::tresult PLUGIN_API setUnitProgramData(Steinberg::int32, Steinberg::int32,
                                                     Steinberg::IBStream*) override {
        return Steinberg::kNotImplemented;
    }

    // ChannelContext::IInfoListener
    Steinberg::tresult PLUGIN_API setChannelContextInfos(Steinberg::Vst::IAttributeList* list) override;

    // Presonus extensions
    double PLUGIN_API getGainReductionValueInDb() override;
    void PLUGIN_API notifyContextInfoChange() override;

    // GenericPlugin::Adapter, in its order.
    void parameterChanged(int32_t index, double normalized) override;
    void controllerMappingChanged() override;
    void endEdit(int32_t index) override;
    void setupWordChanged() override;
    void latencyChanged() override;
    void playMidiMessage(uint8_t status, uint8_t data1, uint8_t data2) override;
    void parametersUpdated(int32_t index) override;
    void presetNameChanged(bool modifiedOnly) override;
    void realTimeDataWanted() override;
    void sendDataBlock(uint32_t id, std::span<const uint8_t> bytes) override;
    void beginEdit(int32_t index) override;

    OndrelPlugin& getModel() const { return *model; }
    uint32_t getHostFlags() const { return hostFlags; }
    int32_t getProcessorSampleRate() const { return processorSampleRate; }
    int32_t getProcessorLayout() const { return processorLayout; }

    OBJ_METHODS(Vst3PluginController, Steinberg::Vst::EditController)
    DEFINE_INTERFACES
    DEF_INTERFACE(Steinberg::Vst::IMidiMapping)
    DEF_INTERFACE(Steinberg::Vst::IUnitInfo)
    DEF_INTERFACE(Steinberg::Vst::ChannelContext::IInfoListener)
    DEF_INTERFACE(Presonus::IGainReductionInfo)
    DEF_INTERFACE(Presonus::IContextInfoHandler)
    END_DEFINE_INTERFACES(Steinberg::Vst::EditController)
    REFCOUNT_METHODS(Steinberg::Vst::EditController)

private:
    enum class TrackSource { None = 0, InfoListener = 1, ContextInfo = 2 };

    void exportParameters();
    // Sets a host parameter and tells the host of it.
    void setAndPerform(Steinberg::Vst::ParamID id, double normalized);
    void advanceCounter(Steinberg::Vst::ParamID id);
    void sendParameterState();
    void sendPresetName();
    void sendControllerMapping();
    void specialParameterChanged(Steinberg::Vst::ParamID id, double value);

    std::unique_ptr<OndrelPlugin> model;
    std::unique_ptr<HostParameterMap> parameterMap;
    uint32_t hostFlags = 0;
    std::string trackName;
    uint32_t trackColour = 0;
    std::vector<int64_t> trackIndexes;
    std::string documentId;
    TrackSource trackSource = TrackSource::None;
    float editorScale = 0.0f;
    bool controllerStateRestored = false;
    // While the host restores a state it already knows every value: nothing is sent back.
    bool restoring = false;
    int32_t processorSampleRate = 0;
    int32_t processorLayout = 1;
};
