#include "PluginInstance.h"

#include "pluginterfaces/base/ustring.h"
#include "public.sdk/source/common/memorystream.h"

#include <algorithm>
#include <cstring>

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace vst3_host {

namespace {

template <class Interface>
Interface* queryFrom(FUnknown* object) {
    void* result = nullptr;
    if (object == nullptr || object->queryInterface(Interface::iid, &result) != kResultOk)
        return nullptr;
    return static_cast<Interface*>(result);
}

std::vector<uint8_t> bytesOf(MemoryStream& stream) {
    const auto* data = reinterpret_cast<const uint8_t*>(stream.getData());
    return std::vector<uint8_t>(data, data + stream.getSize());
}

} // namespace

std::unique_ptr<PluginInstance> PluginInstance::create(PluginModule& module, FUnknown* hostContext,
                                                       std::string& error) {
    IPluginFactory* factory = module.getFactory();
    std::unique_ptr<PluginInstance> instance(new PluginInstance());
    for (int32 i = 0; i < factory->countClasses() && instance->component == nullptr; ++i) {
        PClassInfo info;
        if (factory->getClassInfo(i, &info) != kResultOk ||
            std::strcmp(info.category, kVstAudioEffectClass) != 0)
            continue;
        void* object = nullptr;
        if (factory->createInstance(info.cid, IComponent::iid, &object) == kResultOk)
            instance->component = static_cast<IComponent*>(object);
    }
    if (instance->component == nullptr || instance->component->initialize(hostContext) != kResultOk) {
        error = "the bundle offers no audio effect that could be created";
        return nullptr;
    }
    instance->processor = queryFrom<IAudioProcessor>(instance->component);
    TUID controllerId;
    if (instance->component->getControllerClassId(controllerId) == kResultOk) {
        void* object = nullptr;
        if (factory->createInstance(controllerId, IEditController::iid, &object) == kResultOk)
            instance->controller = static_cast<IEditController*>(object);
    }
    if (instance->processor == nullptr || instance->controller == nullptr ||
        instance->controller->initialize(hostContext) != kResultOk) {
        error = "the audio effect has no processor or controller";
        return nullptr;
    }
    instance->controller->setComponentHandler(&instance->handler);
    instance->componentConnection = queryFrom<IConnectionPoint>(instance->component);
    instance->controllerConnection = queryFrom<IConnectionPoint>(instance->controller);
    if (instance->componentConnection != nullptr && instance->controllerConnection != nullptr) {
        instance->componentConnection->connect(instance->controllerConnection);
        instance->controllerConnection->connect(instance->componentConnection);
    }
    // The controller starts from the processor's state.
    const std::vector<uint8_t> state = instance->getState();
    MemoryStream stream(const_cast<uint8_t*>(state.data()), static_cast<TSize>(state.size()));
    instance->controller->setComponentState(&stream);
    return instance;
}

PluginInstance::~PluginInstance() {
    stop();
    if (componentConnection != nullptr && controllerConnection != nullptr) {
        componentConnection->disconnect(controllerConnection);
        controllerConnection->disconnect(componentConnection);
    }
    for (FUnknown* object :
         std::initializer_list<FUnknown*>{componentConnection, controllerConnection, processor})
        if (object != nullptr)
            object->release();
    if (controller != nullptr) {
        controller->terminate();
        controller->release();
    }
    if (component != nullptr) {
        component->terminate();
        component->release();
    }
}

bool PluginInstance::start(SpeakerArrangement arrangement, double sampleRate, int32_t block,
                           std::string& error) {
    const int32 numIns = component->getBusCount(kAudio, kInput);
    const int32 numOuts = component->getBusCount(kAudio, kOutput);
    std::vector<SpeakerArrangement> ins(static_cast<size_t>(std::max(numIns, 0)), arrangement);
    std::vector<SpeakerArrangement> outs(static_cast<size_t>(std::max(numOuts, 0)), arrangement);
    if (processor->setBusArrangements(ins.data(), numIns, outs.data(), numOuts) != kResultOk) {
        error = "the plug-in does not take this channel layout";
        return false;
    }
    ProcessSetup setup{kRealtime, kSample32, block, sampleRate};
    if (processor->setupProcessing(setup) != kResultOk) {
        error = "the plug-in does not take this sample rate or block size";
        return false;
    }
    for (int32 b = 0; b < numIns; ++b)
        component->activateBus(kAudio, kInput, b, true);
    component->activateBus(kAudio, kOutput, 0, true);
    component->setActive(true);
    processor->setProcessing(true);
    active = true;
    numChannels = SpeakerArr::getChannelCount(arrangement);
    maxBlock = block;
    inputBuses.resize(static_cast<size_t>(std::max(numIns, 0)));
    channelPointers.resize(static_cast<size_t>(std::max(numIns, 0) * numChannels));
    return true;
}

void PluginInstance::stop() {
    if (!active)
        return;
    processor->setProcessing(false);
    component->setActive(false);
    active = false;
}

int64_t PluginInstance::findParameter(const std::string& title) const {
    const int32 count = controller->getParameterCount();
    for (int32 i = 0; i < count; ++i) {
        ParameterInfo info{};
        if (controller->getParameterInfo(i, info) != kResultOk)
            continue;
        char text[256];
        UString(info.title, 128).toAscii(text, sizeof(text));
        if (title == text)
            return info.id;
    }
    return -1;
}

double PluginInstance::normalizedOf(ParamID id, double plain) const {
    return controller->plainParamToNormalized(id, plain);
}

void PluginInstance::process(const float* const* inputs, const float* const* sideChain, float* const* outputs,
                             int32_t numSamples, ParameterChanges* changes, EventList* events,
                             ParameterChanges* outputChanges, const ProcessContext* context) {
    for (size_t b = 0; b < inputBuses.size(); ++b) {
        const float* const* source = b == 0 ? inputs : sideChain;
        AudioBusBuffers& bus = inputBuses[b];
        bus.numChannels = numChannels;
        bus.silenceFlags = 0;
        for (int32_t c = 0; c < numChannels; ++c)
            channelPointers[b * static_cast<size_t>(numChannels) + static_cast<size_t>(c)] =
                source != nullptr ? source[c] : nullptr;
        bus.channelBuffers32 =
            const_cast<float**>(channelPointers.data() + b * static_cast<size_t>(numChannels));
    }
    AudioBusBuffers output{};
    output.numChannels = numChannels;
    output.channelBuffers32 = const_cast<float**>(outputs);
    ProcessData data{};
    data.processMode = kRealtime;
    data.symbolicSampleSize = kSample32;
    data.numSamples = numSamples;
    data.numInputs = static_cast<int32>(inputBuses.size());
    data.numOutputs = 1;
    data.inputs = inputBuses.data();
    data.outputs = &output;
    data.inputParameterChanges = changes;
    data.outputParameterChanges = outputChanges;
    data.inputEvents = events;
    data.processContext = const_cast<ProcessContext*>(context);
    processor->process(data);
}

void PluginInstance::forwardToController(ParameterChanges& outputChanges) {
    for (int32 q = 0; q < outputChanges.getParameterCount(); ++q) {
        IParamValueQueue* queue = outputChanges.getParameterData(q);
        int32 offset = 0;
        ParamValue value = 0.0;
        if (queue != nullptr && queue->getPointCount() > 0 &&
            queue->getPoint(queue->getPointCount() - 1, offset, value) == kResultOk)
            controller->setParamNormalized(queue->getParameterId(), value);
    }
}

std::vector<uint8_t> PluginInstance::getState() const {
    MemoryStream stream;
    if (component->getState(&stream) != kResultOk)
        return {};
    return bytesOf(stream);
}

bool PluginInstance::setState(const std::vector<uint8_t>& bytes) {
    MemoryStream forComponent(const_cast<uint8_t*>(bytes.data()), static_cast<TSize>(bytes.size()));
    if (component->setState(&forComponent) != kResultOk)
        return false;
    MemoryStream forController(const_cast<uint8_t*>(bytes.data()), static_cast<TSize>(bytes.size()));
    return controller->setComponentState(&forController) == kResultOk;
}

} // namespace vst3_host
