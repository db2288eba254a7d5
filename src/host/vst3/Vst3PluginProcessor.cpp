#include "host/vst3/Vst3PluginProcessor.h"

#include "eq/OndrelProcessor.h"
#include "foundation/BinaryStreams.h"
#include "foundation/Numbers.h"
#include "host/vst3/ProcessorState.h"
#include "host/vst3/SpeakerArrangements.h"
#include "host/vst3/Vst3Ids.h"
#include "host/vst3/Vst3Messages.h"
#include "plugin/ErrorReporter.h"
#include "presets/PresetParameterCollection.h"
#include "wave/ChannelLayouts.h"

#include "pluginterfaces/base/ustring.h"
#include "pluginterfaces/vst/ivstprocesscontext.h"

#include <algorithm>
#include <cmath>
#include <sstream>

using namespace Steinberg;
using namespace Steinberg::Vst;

namespace {

constexpr int32 kMaxBusChannels = chl::kMaxLayoutChannels;
// Special parameters: host bypass, the reporting channels, gain reduction, then MIDI sources.
constexpr int32 kHostBypass = 0;
constexpr int32 kReportNumber = 1;
constexpr int32 kGainReduction = 4;
constexpr int32 kPitchBend = 5;
constexpr int32 kChannelPressure = 6;
constexpr int32 kFirstController = 7;
constexpr int32 kProgramChange = 135;
constexpr int32 kReportPair = 136;
constexpr double kPairScale = 2.3841858e-07; // 1 / 4194304

void setBusName(String128 name, std::string_view text) {
    UString128(std::string(text).c_str()).copyTo(name, 128);
}

} // namespace

Vst3PluginProcessor::Vst3PluginProcessor() {
    setControllerClass(vst3_ids::classId(vst3_ids::kControllerId));
}

Vst3PluginProcessor::~Vst3PluginProcessor() = default;

FUnknown* Vst3PluginProcessor::create(void*) {
    return static_cast<IAudioProcessor*>(new Vst3PluginProcessor());
}

std::unique_ptr<OndrelProcessor> Vst3PluginProcessor::createFrame(int32_t layout) const {
    const float rate = processSetup.sampleRate > 0.0
                           ? static_cast<float>(processSetup.sampleRate)
                           : (frame != nullptr ? frame->getSampleRate() : kDefaultSampleRate);
    auto created = std::make_unique<OndrelProcessor>(layout, kFrameBlockSize, rate);
    created->setAdapter(const_cast<Vst3PluginProcessor*>(this));
    return created;
}

tresult PLUGIN_API Vst3PluginProcessor::initialize(FUnknown* context) {
    const tresult result = Vst3AudioEffect::initialize(context);
    if (result != kResultOk)
        return result;
    if (frame != nullptr) {
        terminate();
        return kResultFalse;
    }
    specialValues.fill(0.0f);
    lock = std::make_unique<PosixCriticalSection>();
    frame = createFrame(vst3_layouts::kStereo);
    parameterMap = std::make_unique<HostParameterMap>(*frame);
    values = std::vector<std::atomic<float>>(static_cast<size_t>(frame->getNumParameters()));
    for (int32_t i = 0; i < frame->getNumParameters(); ++i)
        values[static_cast<size_t>(i)].store(frame->getParameter(i)->getPlain());
    buildBuses(vst3_layouts::arrangementOf(vst3_layouts::kStereo));
    addEventInput(STR16("Midi In"), 1);
    return kResultOk;
}

tresult PLUGIN_API Vst3PluginProcessor::terminate() {
    if (frame == nullptr)
        return kResultFalse;
    frame.reset();
    parameterMap.reset();
    lock.reset();
    Vst3AudioEffect::terminate();
    return kResultOk;
}

void Vst3PluginProcessor::buildBuses(SpeakerArrangement requested) {
    std::vector<TBool> inputsActive;
    for (int32 i = 0; i < countAudioInputs(); ++i)
        inputsActive.push_back(getAudioInput(i)->isActive());
    const bool hadOutput = countAudioOutputs() > 0;
    const TBool outputActive = hadOutput ? getAudioOutput(0)->isActive() : true;
    removeAudioBusses();

    const int32_t layout = frame->getLayout();
    const SpeakerArrangement arrangement =
        requested == vst3_layouts::kCentreOnly ? requested : vst3_layouts::arrangementOf(layout);
    const std::string name(vst3_layouts::layoutName(layout));
    const int32_t channels = chl::layoutChannelCount(layout);
    String128 busName;
    setBusName(busName, name + " In");
    addAudioInput(busName, arrangement, kMain);
    setBusName(busName, name + " Side Chain");
    addAudioInput(busName, arrangement, kAux);
    setBusName(busName, name + " Out");
    addAudioOutput(busName, arrangement, kMain);
    totalInputChannels = 2 * channels;

    for (size_t i = 0; i < inputsActive.size() && static_cast<int32>(i) < countAudioInputs(); ++i)
        getAudioInput(static_cast<int32>(i))->setActive(inputsActive[i]);
    getAudioOutput(0)->setActive(outputActive);
}

tresult PLUGIN_API Vst3PluginProcessor::setBusArrangements(SpeakerArrangement* inputs, int32 numIns,
                                                           SpeakerArrangement* outputs, int32 numOuts) {
    if (frame == nullptr || numIns < 0 || numOuts < 0 || (numIns > 0 && inputs == nullptr) ||
        (numOuts > 0 && outputs == nullptr))
        return kResultFalse;
    int32_t requested = vst3_layouts::kStereo;
    if (numOuts >= 1) {
        const int32_t layout = vst3_layouts::layoutOf(outputs[0]);
        if (layout >= 0)
            requested = layout;
    }
    if (requested != frame->getLayout()) {
        ScopedLocker locker(lock.get());
        std::unique_ptr<OndrelProcessor> replacement = createFrame(requested);
        parameterMap->setPlugin(*replacement);
        // The new frame takes over the values, the controller map and the bypass at once.
        for (int32_t i = 0; i < replacement->getNumParameters(); ++i)
            replacement->setParameter(i, values[static_cast<size_t>(i)].load(), true);
        replacement->setParameter(GenericPluginProcessor::kSkipSmoothingCommand, 0.0f, true);
        BinaryMemoryWriter mapping;
        if (frame->writeControllerMapping(mapping)) {
            BinaryMemoryReader reader(mapping.bytes());
            replacement->readControllerMapping(reader);
        }
        replacement->setHostBypass(specialValues[kHostBypass] > 0.5f);
        if (processing)
            replacement->setProcessing(true);
        frame = std::move(replacement);
        buildBuses(numOuts >= 1 ? outputs[0] : vst3_layouts::arrangementOf(requested));
        vst3_messages::sendInteger(*this, vst3_messages::kChannelLayout, requested);
    } else if (numOuts >= 1 && (outputs[0] == vst3_layouts::kCentreOnly) !=
                                   (getAudioOutput(0)->getArrangement() == vst3_layouts::kCentreOnly)) {
        buildBuses(outputs[0]);
    }
    bool matches = numIns == countAudioInputs() && numOuts == countAudioOutputs();
    for (int32 i = 0; matches && i < numIns; ++i)
        matches = getAudioInput(i)->getArrangement() == inputs[i];
    for (int32 i = 0; matches && i < numOuts; ++i)
        matches = getAudioOutput(i)->getArrangement() == outputs[i];
    return matches ? kResultOk : kResultFalse;
}

tresult PLUGIN_API Vst3PluginProcessor::setupProcessing(ProcessSetup& setup) {
    const tresult result = Vst3AudioEffect::setupProcessing(setup);
    if (result != kResultOk || frame == nullptr)
        return result;
    frame->setSampleRate(static_cast<float>(setup.sampleRate));
    growSilence(setup.maxSamplesPerBlock);
    vst3_messages::sendInteger(*this, vst3_messages::kSampleRate, roundToInt(setup.sampleRate));
    return result;
}

tresult PLUGIN_API Vst3PluginProcessor::setProcessing(TBool state) {
    Vst3AudioEffect::setProcessing(state);
    if (state && !processing && frame != nullptr)
        frame->setProcessing(true);
    processing = state != 0;
    return kResultOk;
}

void Vst3PluginProcessor::growSilence(int32 numSamples) {
    if (numSamples > static_cast<int32>(silence.size())) {
        silence.resize(static_cast<size_t>(numSamples), 0.0f);
        discardBuffer.resize(silence.size());
    }
}

uint32 PLUGIN_API Vst3PluginProcessor::getLatencySamples() {
    const int32_t override = latencyOverride.load();
    if (override != -1)
        return static_cast<uint32>(std::max(override, 0));
    return frame != nullptr ? static_cast<uint32>(std::max(frame->getLatency(), 0)) : 0;
}

uint32 PLUGIN_API Vst3PluginProcessor::getTailSamples() {
    return kInfiniteTail;
}

// --- Values from other threads

void Vst3PluginProcessor::queueValue(int32_t index, float plain) {
    if (index < 0 || index >= static_cast<int32_t>(values.size()))
        return;
    values[static_cast<size_t>(index)].store(plain);
    pendingValues.push({index, plain});
}

void Vst3PluginProcessor::queueAllValues(const std::vector<float>& newValues) {
    for (size_t i = 0; i < newValues.size() && i < values.size(); ++i)
        queueValue(static_cast<int32_t>(i), newValues[i]);
    pendingReset.store(true);
}

void Vst3PluginProcessor::applyQueuedValues() {
    PendingValue pending;
    while (pendingValues.pop(pending))
        frame->setParameter(pending.index, pending.value, true);
    if (pendingReset.exchange(false))
        frame->setParameter(GenericPluginProcessor::kSkipSmoothingCommand, 0.0f, true);
    if (pendingBypass.exchange(false))
        frame->setHostBypass(specialValues[kHostBypass] > 0.5f);
    GenericPluginProcessor::MidiEvent event;
    while (pendingMidi.pop(event))
        frame->queueMidiEvent(event);
}

// --- Processing

void Vst3PluginProcessor::writeOutputParameter(ParamID id, double value) {
    if (outputChanges == nullptr)
        return;
    int32 queueIndex = 0;
    IParamValueQueue* queue = outputChanges->addParameterData(id, queueIndex);
    int32 pointIndex = 0;
    if (queue != nullptr)
        queue->addPoint(0, value, pointIndex);
}

void Vst3PluginProcessor::applySpecialParameter(int32 k, double value, int32 offset) {
    if (k < kNumSpecialValues) {
        const auto stored = static_cast<float>(value);
        if (std::fabs(stored - specialValues[static_cast<size_t>(k)]) <= kFloatEpsilon)
            return;
        specialValues[static_cast<size_t>(k)] = stored;
        if (k == kHostBypass)
            frame->setHostBypass(stored > 0.5f);
        return;
    }
    if (k > kProgramChange)
        return;
    const auto v = static_cast<int32_t>(std::clamp(std::trunc(value * 16383.0), 0.0, 16383.0));
    GenericPluginProcessor::MidiEvent event{offset - currentOffset, 0, 0, 0};
    if (k == kPitchBend)
        event = {event.offset, 0xE0, static_cast<uint8_t>(v & 127), static_cast<uint8_t>(v >> 7)};
    else if (k == kChannelPressure)
        event = {event.offset, 0xD0, static_cast<uint8_t>(v >> 7), 0};
    else if (k == kProgramChange)
        event = {event.offset, 0xC0, static_cast<uint8_t>(v & 127), 0};
    else
        event = {event.offset, 0xB0, static_cast<uint8_t>(std::min(k - kFirstController, 127)),
                 static_cast<uint8_t>(v >> 7)};
    frame->queueMidiEvent(event);
}

void Vst3PluginProcessor::applyParameterChanges(IParameterChanges* changes, int32 offset, int32& nextOffset) {
    if (changes == nullptr)
        return;
    const int32 count = changes->getParameterCount();
    for (int32 q = 0; q < count; ++q) {
        IParamValueQueue* queue = changes->getParameterData(q);
        if (queue == nullptr)
            continue;
        const ParamID id = queue->getParameterId();
        const int32 points = queue->getPointCount();
        for (int32 p = 0; p < points; ++p) {
            int32 pointOffset = 0;
            ParamValue value = 0.0;
            if (queue->getPoint(p, pointOffset, value) != kResultOk)
                continue;
            if (pointOffset > offset) {
                nextOffset = std::min(nextOffset, pointOffset);
                break;
            }
            if (pointOffset < offset && offset > 0)
                continue;
            if (HostParameterMap::isSpecial(id)) {
                applySpecialParameter(static_cast<int32>(id - HostParameterMap::kSpecialBase), value, offset);
                continue;
            }
            const int32_t index = parameterMap->indexOf(id);
            if (index < 0)
                continue;
            const float plain = parameterMap->toPlain(index, value);
            values[static_cast<size_t>(index)].store(plain);
            frame->setParameter(index, plain, true);
        }
    }
}

void Vst3PluginProcessor::feedEvents(IEventList* events, int32 from, int32 to, int32& position) {
    if (events == nullptr)
        return;
    const int32 count = events->getEventCount();
    for (; position < count; ++position) {
        Event event{};
        if (events->getEvent(position, event) != kResultOk)
            continue;
        const int32 offset = std::max(event.sampleOffset, from);
        if (offset >= to)
            return;
        const auto at = [&](uint8_t status, int32 data1, float data2) {
            frame->queueMidiEvent(
                {offset - from, static_cast<uint8_t>(status), static_cast<uint8_t>(std::clamp(data1, 0, 127)),
                 static_cast<uint8_t>(std::clamp(static_cast<int32>(data2 * 127.0f), 0, 127))});
        };
        switch (event.type) {
        case Event::kNoteOnEvent:
            at(static_cast<uint8_t>(0x90 | (event.noteOn.channel & 15)), event.noteOn.pitch,
               event.noteOn.velocity);
            break;
        case Event::kNoteOffEvent:
            at(static_cast<uint8_t>(0x80 | (event.noteOff.channel & 15)), event.noteOff.pitch,
               event.noteOff.velocity);
            break;
        case Event::kPolyPressureEvent:
            at(static_cast<uint8_t>(0xA0 | (event.polyPressure.channel & 15)), event.polyPressure.pitch,
               event.polyPressure.pressure);
            break;
        default:
            break;
        }
    }
}

tresult PLUGIN_API Vst3PluginProcessor::process(ProcessData& data) {
    if (frame == nullptr || data.numSamples <= 0)
        return kResultOk;
    growSilence(data.numSamples);
    outputChanges = data.outputParameterChanges;
    applyQueuedValues();

    const int32_t layout = frame->getLayout();
    const auto order = vst3_layouts::hostChannelOrder(layout);
    const auto channels = static_cast<int32>(order.size());
    std::array<const float*, kMaxBusChannels> main{};
    std::array<const float*, kMaxBusChannels> side{};
    std::array<float*, kMaxBusChannels> out{};
    bool inputsSilent = true;
    bool sideChainConnected = false;
    for (int32 b = 0; b < 2; ++b) {
        std::array<const float*, kMaxBusChannels>& pointers = b == 0 ? main : side;
        pointers.fill(silence.data());
        AudioBus* bus = getAudioInput(b);
        if (b >= data.numInputs || data.inputs == nullptr || bus == nullptr || !bus->isActive())
            continue;
        const AudioBusBuffers& buffers = data.inputs[b];
        if (buffers.channelBuffers32 == nullptr)
            continue;
        sideChainConnected = sideChainConnected || b == 1;
        for (int32 c = 0; c < channels; ++c) {
            const int32 h = order[static_cast<size_t>(c)];
            if (h >= buffers.numChannels || buffers.channelBuffers32[h] == nullptr)
                continue;
            pointers[static_cast<size_t>(c)] = buffers.channelBuffers32[h];
            if ((buffers.silenceFlags & (uint64{1} << h)) == 0)
                inputsSilent = false;
        }
    }
    frame->setSideChainConnected(sideChainConnected);
    out.fill(discardBuffer.data());
    int32 gathered = 0;
    if (data.numOutputs > 0 && data.outputs != nullptr && getAudioOutput(0) != nullptr &&
        getAudioOutput(0)->isActive() && data.outputs[0].channelBuffers32 != nullptr) {
        const AudioBusBuffers& buffers = data.outputs[0];
        for (int32 c = 0; c < channels; ++c) {
            const int32 h = order[static_cast<size_t>(c)];
            if (h >= buffers.numChannels || buffers.channelBuffers32[h] == nullptr)
                break;
            out[static_cast<size_t>(c)] = buffers.channelBuffers32[h];
            ++gathered;
        }
    }

    if (const ProcessContext* context = data.processContext) {
        const bool tempoValid = (context->state & ProcessContext::kTempoValid) != 0;
        const bool positionValid = (context->state & ProcessContext::kProjectTimeMusicValid) != 0;
        frame->setTransport(tempoValid ? static_cast<float>(context->tempo)
                                       : GenericPluginProcessor::kDefaultTempo,
                            positionValid ? static_cast<float>(context->projectTimeMusic) : 0.0f,
                            (context->state & ProcessContext::kPlaying) != 0);
    } else {
        frame->setTransport(GenericPluginProcessor::kDefaultTempo, 0.0f, false);
    }

    currentOffset = 0;
    int32 next = data.numSamples;
    int32 eventPosition = 0;
    applyParameterChanges(data.inputParameterChanges, 0, next);
    feedEvents(data.inputEvents, 0, next, eventPosition);
    bool silent = true;
    std::array<const float*, kMaxBusChannels> mainAt{};
    std::array<const float*, kMaxBusChannels> sideAt{};
    std::array<float*, kMaxBusChannels> outAt{};
    while (currentOffset < data.numSamples) {
        const int32 stretch = std::max(next - currentOffset, 1);
        for (int32 c = 0; c < channels; ++c) {
            const auto i = static_cast<size_t>(c);
            // Silence and the discard buffer are shared by every stretch, so they are not advanced.
            mainAt[i] = main[i] == silence.data() ? main[i] : main[i] + currentOffset;
            sideAt[i] = side[i] == silence.data() ? side[i] : side[i] + currentOffset;
            outAt[i] = out[i] == discardBuffer.data() ? out[i] : out[i] + currentOffset;
        }
        uint32_t flags = inputsSilent ? GenericPluginProcessor::kInputSilent : 0u;
        frame->process(mainAt.data(), sideAt.data(), outAt.data(), channels, stretch, flags);
        silent = silent && (flags & GenericPluginProcessor::kOutputSilent) != 0;
        currentOffset += stretch;
        if (currentOffset >= data.numSamples)
            break;
        next = data.numSamples;
        applyParameterChanges(data.inputParameterChanges, currentOffset, next);
        feedEvents(data.inputEvents, currentOffset, next, eventPosition);
    }
    if (data.numOutputs > 0 && data.outputs != nullptr && gathered == data.outputs[0].numChannels)
        data.outputs[0].silenceFlags = silent ? 0xFFFFFFFFull : 0;

    float reduction = 0.0f;
    if (frame->getGainReduction(reduction))
        writeOutputParameter(HostParameterMap::kSpecialBase + kGainReduction,
                             1.0 - (reduction + 180.0) / 180.0);
    outputChanges = nullptr;
    return kResultOk;
}

// --- Reports from the frame (audio thread)

void Vst3PluginProcessor::processorParameterChanged(int32_t index, float value) {
    if (index < 0 || index >= static_cast<int32_t>(values.size()))
        return;
    values[static_cast<size_t>(index)].store(value);
    writeOutputParameter(HostParameterMap::idOf(index), parameterMap->toNormalized(index, value));
}

void Vst3PluginProcessor::midiHandled(int32_t) {}

void Vst3PluginProcessor::reportPair(int32_t a, int32_t b) {
    writeOutputParameter(HostParameterMap::kSpecialBase + kReportPair,
                         static_cast<double>(((a & 0x3FFF) << 8) | (b & 255)) * kPairScale);
}

void Vst3PluginProcessor::reportNumber(int32_t n) {
    // The high byte counts events, so the same number twice still changes the value.
    const int64_t previous = std::llround(rollingCode * 65536.0);
    rollingCode = static_cast<double>(((previous & ~int64_t{0xFF}) + n + 257) % 65536) / 65536.0;
    writeOutputParameter(HostParameterMap::kSpecialBase + kReportNumber, rollingCode);
}

// --- State

tresult PLUGIN_API Vst3PluginProcessor::getState(IBStream* state) {
    if (frame == nullptr || state == nullptr)
        return kResultFalse;
    std::vector<float> current(values.size());
    for (size_t i = 0; i < values.size(); ++i)
        current[i] = values[i].load();
    std::ostringstream text;
    PresetMetadata metadata;
    metadata.name = presetName;
    if (!PresetParameterCollection(*frame).writePreset(text, PresetParameterCollection::kCurrentVersion,
                                                       PresetParameterCollection::kWriteMetadata, current,
                                                       metadata, {}))
        return kResultFalse;
    const auto bytes = processor_state::write(text.str(), specialValues[kHostBypass]);
    return processor_state::writeStream(state, bytes) ? kResultOk : kResultFalse;
}

tresult PLUGIN_API Vst3PluginProcessor::setState(IBStream* state) {
    if (frame == nullptr || state == nullptr)
        return kResultFalse;
    const std::vector<uint8_t> bytes = processor_state::readStream(state);
    const std::optional<ProcessorState> restored = processor_state::read(bytes);
    if (!restored)
        return kResultFalse;
    ScopedLocker locker(lock.get());
    std::vector<float> newValues(values.size());
    for (int32_t i = 0; i < static_cast<int32_t>(newValues.size()); ++i)
        newValues[static_cast<size_t>(i)] = frame->getParameter(i)->getDefaultPlain();
    if (restored->legacy) {
        std::copy_n(restored->values.begin(), std::min(restored->values.size(), newValues.size()),
                    newValues.begin());
        presetName = restored->presetName;
        persisted = restored->persisted;
    } else {
        ErrorReporter errors;
        std::istringstream text(restored->presetText);
        const std::optional<PresetContent> content =
            PresetParameterCollection(*frame).readPreset(text, errors);
        if (!content)
            return kResultFalse;
        std::copy_n(content->values.begin(), std::min(content->values.size(), newValues.size()),
                    newValues.begin());
        presetName = content->metadata.name;
    }
    // Out-of-range values from an older state are brought into range by the parameters.
    for (int32_t i = 0; i < static_cast<int32_t>(newValues.size()); ++i)
        newValues[static_cast<size_t>(i)] =
            parameterMap->toPlain(i, parameterMap->toNormalized(i, newValues[static_cast<size_t>(i)]));
    queueAllValues(newValues);
    specialValues[kHostBypass] = restored->bypass;
    pendingBypass.store(true);
    stateRestored = true;
    return kResultOk;
}

// --- Messages from the controller

void Vst3PluginProcessor::sendRealTimeData() {
    BinaryMemoryWriter reply;
    reply.writeUInt32(static_cast<uint32_t>(frame->getNumChannels()));
    BinaryMemoryReader request(lastRequest);
    frame->answerRealTimeRequest(request, reply);
    vst3_messages::sendBinary(*this, vst3_messages::kRealTimeData, reply.bytes().data(),
                              reply.bytes().size());
}

tresult PLUGIN_API Vst3PluginProcessor::notify(IMessage* message) {
    if (frame == nullptr || message == nullptr)
        return kResultFalse;
    namespace msg = vst3_messages;
    ScopedLocker locker(lock.get());
    if (msg::is(message, msg::kRealTimeRequest)) {
        if (auto request = msg::readBinary(message))
            lastRequest = std::move(*request);
        sendRealTimeData();
        return kResultOk;
    }
    if (msg::is(message, msg::kControllerMapping)) {
        if (auto mapping = msg::readBinary(message)) {
            BinaryMemoryReader reader(*mapping);
            frame->readControllerMapping(reader);
            return kResultOk;
        }
    } else if (msg::is(message, msg::kDefaultParameterState)) {
        if (stateRestored)
            return kResultOk;
        auto block = msg::readBinary(message);
        if (block && block->size() == values.size() * sizeof(float)) {
            BinaryMemoryReader reader(*block);
            std::vector<float> defaults(values.size());
            for (float& value : defaults)
                value = reader.readFloat();
            if (reader.good())
                queueAllValues(defaults);
        }
        return kResultOk;
    } else if (msg::is(message, msg::kPresetName)) {
        if (auto name = msg::readBinary(message)) {
            presetName.assign(name->begin(), name->end());
            return kResultOk;
        }
    } else if (msg::is(message, msg::kSetup)) {
        if (msg::readInteger(message))
            return kResultOk;
    } else if (msg::is(message, msg::kLatencyChange)) {
        if (auto latency = msg::readInteger(message)) {
            latencyOverride.store(static_cast<int32_t>(std::clamp<int64_t>(*latency, 0, 1 << 24)));
            msg::sendInteger(*this, msg::kLatencyApplied, 0);
            return kResultOk;
        }
    } else if (msg::is(message, msg::kMidiMessage)) {
        if (auto packed = msg::readInteger(message)) {
            pendingMidi.push({0, static_cast<uint8_t>(*packed & 0xFF),
                              static_cast<uint8_t>((*packed >> 8) & 0xFF),
                              static_cast<uint8_t>((*packed >> 16) & 0xFF)});
            return kResultOk;
        }
    } else if (msg::is(message, msg::kProcessStateRequest)) {
        msg::sendInteger(*this, msg::kSampleRate, roundToInt(static_cast<double>(frame->getSampleRate())));
        msg::sendInteger(*this, msg::kChannelLayout, frame->getLayout());
        return kResultOk;
    } else if (msg::is(message, msg::kGenericPluginData)) {
        if (msg::readInteger(message, msg::kDataId) && msg::readBinary(message))
            return kResultOk;
    }
    return Vst3AudioEffect::notify(message);
}
