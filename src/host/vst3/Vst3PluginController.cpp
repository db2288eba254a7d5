#include "host/vst3/Vst3PluginController.h"

#include "foundation/BinaryStreams.h"
#include "foundation/Numbers.h"
#include "host/vst3/ProcessorState.h"
#include "host/vst3/Vst3Ids.h"
#include "host/vst3/Vst3Messages.h"
#include "host/vst3/Vst3Strings.h"
#include "plugin/ControllerMapping.h"
#include "plugin/ErrorReporter.h"
#include "plugin/eq/OndrelPlugin.h"
#include "presets/PresetStateStore.h"
#include "wave/ChannelLayouts.h"
#include "wave/GenericPluginProcessor.h"

#include "pluginterfaces/vst/ivsthostapplication.h"

#include <algorithm>
#include <cmath>
#include <sstream>

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

constexpr ParamID kSpecial = HostParameterMap::kSpecialBase;
constexpr ParamID kHostBypass = kSpecial;
constexpr ParamID kReportNumber = kSpecial + 1;
constexpr ParamID kSnapshotCounter = kSpecial + 2;
constexpr ParamID kPresetCounter = kSpecial + 3;
constexpr ParamID kGainReduction = kSpecial + 4;
constexpr ParamID kPitchBendParameter = kSpecial + 5;
constexpr ParamID kChannelPressureParameter = kSpecial + 6;
constexpr ParamID kFirstController = kSpecial + 7;
constexpr ParamID kReportPair = kSpecial + 136;
constexpr const char* kModelChunk = "ZVst";
constexpr const char* kEditorChunk = "ZVed";
constexpr double kPairScale = 4194304.0;

// One store serves every instance; it holds no state of its own.
PresetStateStore& stateStore() {
    static PresetStateStore store;
    return store;
}

std::string textOf(const std::vector<uint8_t>& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

} // namespace

Vst3PluginController::Vst3PluginController()
    : model(std::make_unique<OndrelPlugin>(&stateStore())),
      parameterMap(std::make_unique<HostParameterMap>(*model)) {
    model->initialise(HostKind::Vst3);
    model->setAdapter(this);
    exportParameters();
}

Vst3PluginController::~Vst3PluginController() {
    if (model != nullptr)
        model->terminate();
}

FUnknown* Vst3PluginController::create(void*) {
    return static_cast<IEditController*>(new Vst3PluginController());
}

void Vst3PluginController::exportParameters() {
    String128 title;
    for (int32_t i = 0; i < parameterMap->count(); ++i) {
        const AbstractPluginParameter* parameter = model->getParameter(i);
        vst3_strings::toUtf16(parameter->getName(), title, 128);
        const int32_t steps = parameterMap->stepCount(i);
        // A continuous parameter carries the list flag and a stepped one does not: hosts expect
        // it that way round from this product.
        int32 flags = parameter->isAutomatable() ? ParameterInfo::kCanAutomate : 0;
        if (steps == 0)
            flags |= ParameterInfo::kIsList;
        Parameter* exported = parameters.addParameter(
            title, nullptr, steps, parameterMap->defaultNormalized(i), flags, HostParameterMap::idOf(i), 0);
        if (exported != nullptr)
            exported->setNormalized(model->getParameterNormalized(i));
    }
    for (int32_t k = 0; k < kNumSpecialParameters; ++k) {
        const char* name = "MIDI CC";
        int32 steps = 0;
        int32 flags = 0;
        if (k == 0) {
            name = "Host Bypass";
            steps = 1;
            flags = ParameterInfo::kCanAutomate | ParameterInfo::kIsBypass;
        } else if (k >= 1 && k <= 3) {
            name = "Internal";
        } else if (k == 5) {
            name = "Pitch Bend";
        } else if (k == 6) {
            name = "Channel Pressure";
        } else if (k == 135) {
            steps = 127;
            flags = ParameterInfo::kCanAutomate | ParameterInfo::kIsList | ParameterInfo::kIsProgramChange;
        } else if (k == 136) {
            name = "Internal";
            steps = 0x400000;
            flags = ParameterInfo::kIsReadOnly | ParameterInfo::kIsList | ParameterInfo::kIsHidden;
        }
        vst3_strings::toUtf16(name, title, 128);
        parameters.addParameter(title, nullptr, steps, 0.0, flags, kSpecial + static_cast<ParamID>(k), 0);
    }
}

tresult PLUGIN_API Vst3PluginController::initialize(FUnknown* context) {
    const tresult result = EditController::initialize(context);
    if (result != kResultOk)
        return result;
    hostFlags = 0;
    FUnknownPtr<IHostApplication> application(context);
    String128 name{};
    if (application && application->getName(name) == kResultOk) {
        const std::string host = vst3_strings::toUtf8(name, 128);
        const auto startsWith = [&host](std::string_view prefix) { return host.rfind(prefix, 0) == 0; };
        if (startsWith("Cubase") || startsWith("Nuendo"))
            hostFlags = kCubaseOrNuendo;
        else if (startsWith("Bitwig") || startsWith("Ableton Live"))
            hostFlags = kBitwigOrLive;
    }
    return kResultOk;
}

tresult PLUGIN_API Vst3PluginController::terminate() {
    if (model != nullptr) {
        model->setProcessorLinkAvailable(false);
        model->terminate();
    }
    parameters.removeAll();
    return EditController::terminate();
}

tresult PLUGIN_API Vst3PluginController::connect(IConnectionPoint* other) {
    const tresult result = EditController::connect(other);
    if (result != kResultOk)
        return result;
    sendParameterState();
    sendPresetName();
    sendControllerMapping();
    setupWordChanged();
    model->setProcessorLinkAvailable(true);
    vst3_messages::sendInteger(*this, vst3_messages::kProcessStateRequest, 0);
    return kResultOk;
}

void Vst3PluginController::sendParameterState() {
    BinaryMemoryWriter writer;
    for (float value : model->getParameterValues())
        writer.writeFloat(value);
    vst3_messages::sendBinary(*this, vst3_messages::kDefaultParameterState, writer.bytes().data(),
                              writer.bytes().size());
}

void Vst3PluginController::sendPresetName() {
    const std::string& name = model->getPresetState().name;
    vst3_messages::sendBinary(*this, vst3_messages::kPresetName, name.data(), name.size());
}

void Vst3PluginController::sendControllerMapping() {
    BinaryMemoryWriter writer;
    GenericPlugin::getControllerMapping().write(writer);
    vst3_messages::sendBinary(*this, vst3_messages::kControllerMapping, writer.bytes().data(),
                              writer.bytes().size());
}

tresult PLUGIN_API Vst3PluginController::notify(IMessage* message) {
    namespace msg = vst3_messages;
    if (message == nullptr)
        return kInvalidArgument;
    if (msg::is(message, msg::kRealTimeData)) {
        if (auto data = msg::readBinary(message)) {
            BinaryMemoryReader reader(*data);
            // A reply meant for another layout (during a layout change) is dropped.
            const uint32_t channels = reader.readUInt32();
            if (reader.good() && static_cast<int32_t>(channels) == chl::layoutChannelCount(processorLayout))
                model->readRealTimeData(reader);
            return kResultOk;
        }
    } else if (msg::is(message, msg::kSampleRate)) {
        if (auto rate = msg::readInteger(message)) {
            processorSampleRate = static_cast<int32_t>(*rate);
            return kResultOk;
        }
    } else if (msg::is(message, msg::kChannelLayout)) {
        if (auto layout = msg::readInteger(message)) {
            processorLayout = static_cast<int32_t>(*layout);
            return kResultOk;
        }
    } else if (msg::is(message, msg::kLatencyApplied)) {
        if (componentHandler != nullptr)
            componentHandler->restartComponent(kLatencyChanged);
        return kResultOk;
    }
    return EditController::notify(message);
}

// --- State

namespace {

// Sets a flag for the life of a scope.
class ScopedFlag {
public:
    explicit ScopedFlag(bool& flag) : flag(flag) { flag = true; }
    ~ScopedFlag() { flag = false; }
    ScopedFlag(const ScopedFlag&) = delete;
    ScopedFlag& operator=(const ScopedFlag&) = delete;

private:
    bool& flag;
};

} // namespace

tresult PLUGIN_API Vst3PluginController::setComponentState(IBStream* state) {
    const ScopedFlag restoringState(restoring);
    const std::optional<ProcessorState> restored = processor_state::read(processor_state::readStream(state));
    if (!restored)
        return kResultFalse;
    if (restored->legacy) {
        std::vector<float> values = model->getDefaultParameterValues();
        std::copy_n(restored->values.begin(), std::min(restored->values.size(), values.size()),
                    values.begin());
        model->applyParameterValues(values, GenericPlugin::kAllParametersUpdated);
        PresetState preset = model->getPresetState();
        preset.name = restored->presetName;
        preset.modified = false;
        model->setPresetState(preset);
    } else {
        ErrorReporter errors;
        std::istringstream text(restored->presetText);
        if (!model->readState(text, errors))
            return kResultFalse;
    }
    for (int32_t i = 0; i < parameterMap->count(); ++i)
        EditController::setParamNormalized(HostParameterMap::idOf(i), model->getParameterNormalized(i));
    EditController::setParamNormalized(kHostBypass, restored->bypass);
    return kResultOk;
}

tresult PLUGIN_API Vst3PluginController::getState(IBStream* state) {
    if (state == nullptr)
        return kResultFalse;
    std::ostringstream text;
    if (!model->writeState(text))
        return kResultFalse;
    const std::string modelState = text.str();
    BinaryMemoryWriter writer;
    writer.writeChunkHeader(kModelChunk, static_cast<uint32_t>(modelState.size()));
    writer.writeRaw(modelState.data(), modelState.size());
    writer.writeChunkHeader(kEditorChunk, 0);
    writer.writeFloat(editorScale);
    return processor_state::writeStream(state, writer.bytes()) ? kResultOk : kResultFalse;
}

tresult PLUGIN_API Vst3PluginController::setState(IBStream* state) {
    const ScopedFlag restoringState(restoring);
    const std::vector<uint8_t> bytes = processor_state::readStream(state);
    BinaryMemoryReader reader(bytes);
    if (!reader.readChunkHeader(kModelChunk) || reader.chunkSize() > bytes.size())
        return kResultFalse;
    std::vector<uint8_t> modelState(reader.chunkSize());
    if (!reader.readRaw(modelState.data(), modelState.size()))
        return kResultFalse;
    ErrorReporter errors;
    std::istringstream text(textOf(modelState));
    if (!model->readState(text, errors))
        return kResultFalse;
    if (!reader.readChunkHeader(kEditorChunk))
        return kResultFalse;
    const float scale = reader.readFloat();
    if (reader.good() && std::isfinite(scale) && std::fabs(editorScale) <= kFloatEpsilon)
        editorScale = scale;
    controllerStateRestored = true;
    return kResultOk;
}

// --- Values and texts

tresult PLUGIN_API Vst3PluginController::getParamStringByValue(ParamID id, ParamValue value,
                                                               String128 string) {
    if (string == nullptr)
        return kInvalidArgument;
    if (HostParameterMap::isSpecial(id)) {
        const bool bypassed = std::clamp(std::trunc(value + 0.5), 0.0, 1.0) == 1.0;
        vst3_strings::toUtf16(id == kHostBypass ? (bypassed ? "Bypassed" : "Not Bypassed") : "-", string,
                              128);
        return kResultOk;
    }
    const int32_t index = parameterMap->indexOf(id);
    vst3_strings::toUtf16(index >= 0 ? parameterMap->format(index, value) : std::string{}, string, 128);
    return kResultOk;
}

tresult PLUGIN_API Vst3PluginController::getParamValueByString(ParamID id, TChar* string, ParamValue& value) {
    if (HostParameterMap::isSpecial(id)) {
        value = 0.0;
        return kResultOk;
    }
    const int32_t index = parameterMap->indexOf(id);
    double normalized = 0.0;
    if (index < 0 || string == nullptr ||
        !parameterMap->parse(index, vst3_strings::toUtf8(string, 128), normalized))
        return kResultFalse;
    value = normalized;
    return kResultOk;
}

ParamValue PLUGIN_API Vst3PluginController::normalizedParamToPlain(ParamID id, ParamValue value) {
    const int32_t index = parameterMap->indexOf(id);
    return index >= 0 ? parameterMap->toPlain(index, value) : value;
}

ParamValue PLUGIN_API Vst3PluginController::plainParamToNormalized(ParamID id, ParamValue value) {
    const int32_t index = parameterMap->indexOf(id);
    return index >= 0 ? parameterMap->toNormalized(index, static_cast<float>(value)) : value;
}

tresult PLUGIN_API Vst3PluginController::setParamNormalized(ParamID id, ParamValue value) {
    if (HostParameterMap::isSpecial(id)) {
        Parameter* parameter = getParameterObject(id);
        if (parameter == nullptr || std::fabs(parameter->getNormalized() - value) <= kFloatEpsilon)
            return kResultOk;
        parameter->setNormalized(value);
        specialParameterChanged(id, value);
        return kResultOk;
    }
    const int32_t index = parameterMap->indexOf(id);
    if (index < 0)
        return kResultFalse;
    EditController::setParamNormalized(id, value);
    model->setParameterNormalizedFromHost(index, value);
    return kResultOk;
}

void Vst3PluginController::specialParameterChanged(ParamID id, double value) {
    if (id == kReportPair) {
        const auto packed = static_cast<int64_t>(std::trunc(value * kPairScale));
        model->processorReportedPair(static_cast<int32_t>(packed >> 8), static_cast<int32_t>(packed & 255));
    } else if (id == kReportNumber) {
        const int32_t n = static_cast<int32_t>(std::llround(value * 65536.0) & 255) - 1;
        // The processor's latency moved: the host asks for the new figure.
        if (n == GenericPluginProcessor::kLatencyChangedReport && componentHandler != nullptr)
            componentHandler->restartComponent(kLatencyChanged);
    }
}

IPlugView* PLUGIN_API Vst3PluginController::createView(FIDString) {
    return nullptr;
}

// --- MIDI mapping and units

tresult PLUGIN_API Vst3PluginController::getMidiControllerAssignment(int32, int16, CtrlNumber controller,
                                                                     ParamID& id) {
    if (controller == Vst::kPitchBend) {
        id = kPitchBendParameter;
        return kResultOk;
    }
    if (controller == Vst::kAfterTouch) {
        id = kChannelPressureParameter;
        return kResultOk;
    }
    if (controller >= 0 && controller <= 127) {
        id = kFirstController + static_cast<ParamID>(controller);
        return kResultOk;
    }
    return kResultFalse;
}

int32 PLUGIN_API Vst3PluginController::getUnitCount() {
    return 1;
}

tresult PLUGIN_API Vst3PluginController::getUnitInfo(int32 index, UnitInfo& info) {
    info.id = index;
    info.parentUnitId = index == 0 ? kNoParentUnitId : kRootUnitId;
    info.programListId = index == 0 ? 0 : kNoProgramListId;
    vst3_strings::toUtf16("Root", info.name, 128);
    return kResultOk;
}

tresult PLUGIN_API Vst3PluginController::getProgramListInfo(int32, ProgramListInfo& info) {
    info.id = 0;
    info.programCount = 128;
    return kResultOk;
}

// --- Track information

tresult PLUGIN_API Vst3PluginController::setChannelContextInfos(IAttributeList* list) {
    if (list == nullptr || trackSource == TrackSource::ContextInfo)
        return kResultFalse;
    trackSource = TrackSource::InfoListener;
    bool informed = false;
    TChar name[128]{};
    if (list->getString(ChannelContext::kChannelNameKey, name, sizeof(name)) == kResultTrue) {
        int64 length = 128;
        list->getInt(ChannelContext::kChannelNameLengthKey, length);
        trackName = vst3_strings::toUtf8(name, static_cast<int32_t>(std::clamp<int64>(length, 0, 128)));
        informed = true;
    }
    int64 index = 0;
    if (list->getInt(ChannelContext::kChannelIndexKey, index) == kResultTrue)
        trackIndexes.push_back(index);
    int64 order = 0;
    trackIndexes.push_back(
        list->getInt(ChannelContext::kChannelIndexNamespaceOrderKey, order) == kResultTrue ? order : 0);
    int64 colour = 0;
    if (list->getInt(ChannelContext::kChannelColorKey, colour) == kResultTrue) {
        trackColour = static_cast<uint32_t>(colour);
        informed = true;
    }
    if (informed)
        model->setTrackInfo(trackName, trackColour);
    return kResultOk;
}

void PLUGIN_API Vst3PluginController::notifyContextInfoChange() {
    if (trackSource == TrackSource::InfoListener)
        return;
    trackSource = TrackSource::ContextInfo;
    FUnknownPtr<Presonus::IContextInfoProvider> provider(componentHandler);
    if (!provider)
        return;
    TChar name[128]{};
    if (provider->getContextInfoString(name, 128, Presonus::ContextInfo::kName) == kResultOk)
        trackName = vst3_strings::toUtf8(name, 128);
    int32 colour = 0;
    if (provider->getContextInfoValue(colour, Presonus::ContextInfo::kColor) == kResultOk) {
        const auto c = static_cast<uint32_t>(colour);
        // RGBA from the low byte up, except hosts that send it from the high byte down.
        const uint32_t red = hostFlags == kBitwigOrLive ? (c >> 24) & 0xFF : c & 0xFF;
        const uint32_t green = hostFlags == kBitwigOrLive ? (c >> 16) & 0xFF : (c >> 8) & 0xFF;
        const uint32_t blue = hostFlags == kBitwigOrLive ? (c >> 8) & 0xFF : (c >> 16) & 0xFF;
        const uint32_t alpha = hostFlags == kBitwigOrLive ? c & 0xFF : (c >> 24) & 0xFF;
        trackColour = (alpha << 24) | (red << 16) | (green << 8) | blue;
    }
    TChar document[128]{};
    if (provider->getContextInfoString(document, 128, "documentID") == kResultOk)
        documentId = vst3_strings::toUtf8(document, 128);
    model->setTrackInfo(trackName, trackColour);
}

double PLUGIN_API Vst3PluginController::getGainReductionValueInDb() {
    Parameter* parameter = getParameterObject(kGainReduction);
    return parameter != nullptr ? -180.0 * parameter->getNormalized() : 0.0;
}

// --- GenericPlugin::Adapter

void Vst3PluginController::setAndPerform(ParamID id, double normalized) {
    EditController::setParamNormalized(id, normalized);
    if (componentHandler != nullptr && !restoring)
        performEdit(id, normalized);
}

void Vst3PluginController::parameterChanged(int32_t index, double normalized) {
    setAndPerform(HostParameterMap::idOf(index), normalized);
}

void Vst3PluginController::controllerMappingChanged() {
    sendControllerMapping();
}

void Vst3PluginController::endEdit(int32_t index) {
    EditController::endEdit(HostParameterMap::idOf(index));
}

void Vst3PluginController::beginEdit(int32_t index) {
    EditController::beginEdit(HostParameterMap::idOf(index));
}

void Vst3PluginController::setupWordChanged() {
    vst3_messages::sendInteger(*this, vst3_messages::kSetup, model->getSetupWord());
}

void Vst3PluginController::latencyChanged() {
    vst3_messages::sendInteger(*this, vst3_messages::kLatencyChange, model->getLatency());
}

void Vst3PluginController::playMidiMessage(uint8_t status, uint8_t data1, uint8_t data2) {
    vst3_messages::sendInteger(*this, vst3_messages::kMidiMessage, status | (data1 << 8) | (data2 << 16));
}

void Vst3PluginController::advanceCounter(ParamID id) {
    Parameter* parameter = getParameterObject(id);
    if (parameter == nullptr)
        return;
    const int64_t count = std::llround(parameter->getNormalized() * 65536.0);
    setAndPerform(id, static_cast<double>((count + 1) % 65536) / 65536.0);
}

void Vst3PluginController::parametersUpdated(int32_t index) {
    if (index >= 0) {
        setAndPerform(HostParameterMap::idOf(index), model->getParameterNormalized(index));
        return;
    }
    // Cubase and Nuendo hear one restart instead of an edit per parameter.
    const bool oneRestart = (hostFlags & 1) != 0;
    for (int32_t i = 0; i < parameterMap->count(); ++i) {
        const double normalized = model->getParameterNormalized(i);
        if (oneRestart)
            EditController::setParamNormalized(HostParameterMap::idOf(i), normalized);
        else
            setAndPerform(HostParameterMap::idOf(i), normalized);
    }
    if (restoring)
        return;
    if (oneRestart && componentHandler != nullptr)
        componentHandler->restartComponent(kParamValuesChanged);
    if (index == GenericPlugin::kPresetLoaded)
        advanceCounter(kPresetCounter);
    else if (index == GenericPlugin::kSnapshotApplied)
        advanceCounter(kSnapshotCounter);
}

void Vst3PluginController::presetNameChanged(bool modifiedOnly) {
    if (!modifiedOnly)
        sendPresetName();
    if (restoring)
        return;
    FUnknownPtr<IComponentHandler2> handler(componentHandler);
    if (handler)
        handler->setDirty(true);
}

void Vst3PluginController::realTimeDataWanted() {
    BinaryMemoryWriter request;
    model->writeRealTimeRequest(request);
    vst3_messages::sendBinary(*this, vst3_messages::kRealTimeRequest, request.bytes().data(),
                              request.bytes().size());
}

void Vst3PluginController::sendDataBlock(uint32_t id, std::span<const uint8_t> bytes) {
    vst3_messages::sendBinary(*this, vst3_messages::kGenericPluginData, bytes.data(), bytes.size(), id);
}
