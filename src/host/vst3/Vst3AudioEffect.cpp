#include "host/vst3/Vst3AudioEffect.h"

using namespace Steinberg;
using namespace Steinberg::Vst;

AudioBus* Vst3AudioEffect::addAudioInput(const TChar* name, SpeakerArrangement arrangement, BusType type) {
    auto* bus = new AudioBus(name, type, BusInfo::kDefaultActive, arrangement);
    audioInputs.push_back(IPtr<Vst::Bus>(bus, false));
    return bus;
}

AudioBus* Vst3AudioEffect::addAudioOutput(const TChar* name, SpeakerArrangement arrangement, BusType type) {
    auto* bus = new AudioBus(name, type, BusInfo::kDefaultActive, arrangement);
    audioOutputs.push_back(IPtr<Vst::Bus>(bus, false));
    return bus;
}

EventBus* Vst3AudioEffect::addEventInput(const TChar* name, int32 channels) {
    auto* bus = new EventBus(name, kMain, BusInfo::kDefaultActive, channels);
    eventInputs.push_back(IPtr<Vst::Bus>(bus, false));
    return bus;
}

AudioBus* Vst3AudioEffect::getAudioInput(int32 index) const {
    return index >= 0 && index < countAudioInputs()
               ? FCast<AudioBus>(audioInputs.at(static_cast<size_t>(index)).get())
               : nullptr;
}

AudioBus* Vst3AudioEffect::getAudioOutput(int32 index) const {
    return index >= 0 && index < countAudioOutputs()
               ? FCast<AudioBus>(audioOutputs.at(static_cast<size_t>(index)).get())
               : nullptr;
}

tresult PLUGIN_API Vst3AudioEffect::setBusArrangements(SpeakerArrangement* inputs, int32 numIns,
                                                       SpeakerArrangement* outputs, int32 numOuts) {
    if (numIns != countAudioInputs() || numOuts != countAudioOutputs())
        return kResultFalse;
    for (int32 i = 0; i < numIns; ++i)
        getAudioInput(i)->setArrangement(inputs[i]);
    for (int32 i = 0; i < numOuts; ++i)
        getAudioOutput(i)->setArrangement(outputs[i]);
    return kResultOk;
}

tresult PLUGIN_API Vst3AudioEffect::getBusArrangement(BusDirection direction, int32 index,
                                                      SpeakerArrangement& arrangement) {
    AudioBus* bus = direction == kInput ? getAudioInput(index) : getAudioOutput(index);
    if (bus == nullptr)
        return kInvalidArgument;
    arrangement = bus->getArrangement();
    return kResultOk;
}

tresult PLUGIN_API Vst3AudioEffect::canProcessSampleSize(int32 symbolicSampleSize) {
    return symbolicSampleSize == kSample32 ? kResultTrue : kResultFalse;
}

namespace {
// Rates beyond this are no audio setup but a host's mistake.
constexpr double kHighestSampleRate = 768000.0;
} // namespace

tresult PLUGIN_API Vst3AudioEffect::setupProcessing(ProcessSetup& setup) {
    if (setup.symbolicSampleSize != kSample32 || setup.maxSamplesPerBlock < 1 ||
        !(setup.sampleRate >= 1000.0) || setup.sampleRate > kHighestSampleRate)
        return kResultFalse;
    processSetup = setup;
    return kResultOk;
}

tresult PLUGIN_API Vst3AudioEffect::setProcessing(TBool) {
    return kResultOk;
}

tresult PLUGIN_API Vst3AudioEffect::process(ProcessData&) {
    return kNotImplemented;
}
