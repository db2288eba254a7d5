#pragma once

#include "HostObjects.h"
#include "PluginModule.h"

#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "pluginterfaces/vst/ivstcomponent.h"
#include "pluginterfaces/vst/ivsteditcontroller.h"
#include "pluginterfaces/vst/ivstmessage.h"
#include "pluginterfaces/vst/ivstprocesscontext.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vst3_host {

// One instance of the first audio effect of a module, with its controller, connected and
// initialised the way a DAW does it.
class PluginInstance {
public:
    static std::unique_ptr<PluginInstance> create(PluginModule& module, Steinberg::FUnknown* hostContext,
                                                  std::string& error);
    ~PluginInstance();
    PluginInstance(const PluginInstance&) = delete;
    PluginInstance& operator=(const PluginInstance&) = delete;

    Steinberg::Vst::IComponent* getComponent() const { return component; }
    Steinberg::Vst::IAudioProcessor* getProcessor() const { return processor; }
    Steinberg::Vst::IEditController* getController() const { return controller; }
    ComponentHandler& getHandler() { return handler; }

    // Arranges every audio bus with the arrangement, sets up, activates and starts processing.
    bool start(Steinberg::Vst::SpeakerArrangement arrangement, double sampleRate, int32_t maxBlock,
               std::string& error);
    void stop();
    int32_t getNumChannels() const { return numChannels; }
    int32_t getMaxBlock() const { return maxBlock; }

    // The host id of the parameter with this title, or -1.
    int64_t findParameter(const std::string& title) const;
    // Plain to normalised through the controller.
    double normalizedOf(Steinberg::Vst::ParamID id, double plain) const;

    // One block: numChannels buffers each for main input, optional side chain and output.
    void process(const float* const* inputs, const float* const* sideChain, float* const* outputs,
                 int32_t numSamples, ParameterChanges* changes, EventList* events,
                 ParameterChanges* outputChanges, const Steinberg::Vst::ProcessContext* context = nullptr);
    // Delivers the processor's output parameter changes to the controller, as hosts do.
    void forwardToController(ParameterChanges& outputChanges);

    std::vector<uint8_t> getState() const;
    bool setState(const std::vector<uint8_t>& bytes);
    uint32_t getLatency() const { return processor->getLatencySamples(); }

private:
    PluginInstance() = default;

    Steinberg::Vst::IComponent* component = nullptr;
    Steinberg::Vst::IAudioProcessor* processor = nullptr;
    Steinberg::Vst::IEditController* controller = nullptr;
    Steinberg::Vst::IConnectionPoint* componentConnection = nullptr;
    Steinberg::Vst::IConnectionPoint* controllerConnection = nullptr;
    ComponentHandler handler;
    bool active = false;
    int32_t numChannels = 0;
    int32_t maxBlock = 0;
    std::vector<Steinberg::Vst::AudioBusBuffers> inputBuses;
    std::vector<const float*> channelPointers;
};

} // namespace vst3_host
