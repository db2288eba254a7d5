#pragma once

#include "pluginterfaces/vst/ivstaudioprocessor.h"
#include "public.sdk/source/vst/vstbus.h"
#include "public.sdk/source/vst/vstcomponent.h"

// An audio processor component with audio and event buses: the part of a VST3 audio effect every
// processor shares. (The SDK we build against lacks its own audio-effect class.)
// Threading: as the host calls VST3 components; nothing here locks.
class Vst3AudioEffect : public Steinberg::Vst::Component,
                        public Steinberg::Vst::IAudioProcessor,
                        public Steinberg::Vst::IProcessContextRequirements {
public:
    Vst3AudioEffect() = default;

    Steinberg::Vst::AudioBus* addAudioInput(const Steinberg::Vst::TChar* name,
                                            Steinberg::Vst::SpeakerArrangement arrangement,
                                            Steinberg::Vst::BusType type);
    Steinberg::Vst::AudioBus* addAudioOutput(const Steinberg::Vst::TChar* name,
                                             Steinberg::Vst::SpeakerArrangement arrangement,
                                             Steinberg::Vst::BusType type);
    Steinberg::Vst::EventBus* addEventInput(const Steinberg::Vst::TChar* name, Steinberg::int32 channels);
    Steinberg::Vst::AudioBus* getAudioInput(Steinberg::int32 index) const;
    Steinberg::Vst::AudioBus* getAudioOutput(Steinberg::int32 index) const;
    Steinberg::int32 countAudioInputs() const { return static_cast<Steinberg::int32>(audioInputs.size()); }
    Steinberg::int32 countAudioOutputs() const { return static_cast<Steinberg::int32>(audioOutputs.size()); }
    const Steinberg::Vst::ProcessSetup& getProcessSetup() const { return processSetup; }

    // IAudioProcessor
    Steinberg::tresult PLUGIN_API setBusArrangements(Steinberg::Vst::SpeakerArrangement* inputs,
                                                     Steinberg::int32 numIns,
                                                     Steinberg::Vst::SpeakerArrangement* outputs,
                                                     Steinberg::int32 numOuts) override;
    Steinberg::tresult PLUGIN_API getBusArrangement(Steinberg::Vst::BusDirection direction,
                                                    Steinberg::int32 index,
                                                    Steinberg::Vst::SpeakerArrangement& arrangement) override;
    Steinberg::tresult PLUGIN_API canProcessSampleSize(Steinberg::int32 symbolicSampleSize) override;
    Steinberg::uint32 PLUGIN_API getLatencySamples() override { return 0; }
    Steinberg::tresult PLUGIN_API setupProcessing(Steinberg::Vst::ProcessSetup& setup) override;
    Steinberg::tresult PLUGIN_API setProcessing(Steinberg::TBool state) override;
    Steinberg::tresult PLUGIN_API process(Steinberg::Vst::ProcessData& data) override;
    Steinberg::uint32 PLUGIN_API getTailSamples() override { return Steinberg::Vst::kNoTail; }

    // IProcessContextRequirements: none.
    Steinberg::uint32 PLUGIN_API getProcessContextRequirements() override { return 0; }

    OBJ_METHODS(Vst3AudioEffect, Steinberg::Vst::Component)
    DEFINE_INTERFACES
    DEF_INTERFACE(Steinberg::Vst::IAudioProcessor)
    DEF_INTERFACE(Steinberg::Vst::IProcessContextRequirements)
    END_DEFINE_INTERFACES(Steinberg::Vst::Component)
    REFCOUNT_METHODS(Steinberg::Vst::Component)

protected:
    Steinberg::Vst::ProcessSetup processSetup{};
};
