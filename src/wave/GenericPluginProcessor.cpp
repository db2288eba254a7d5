#include "wave/GenericPluginProcessor.h"

#include "foundation/AtomicCounters.h"
#include "foundation/BinaryStreams.h"
#include "foundation/CriticalSection.h"
#include "foundation/Numbers.h"
#include "wave/BypassProcessor.h"
#include "wave/ControllerMidiReceiver.h"
#include "wave/FloatingPointMode.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// Guards the process-wide instance count and the product's global initialisation and shutdown.
CriticalSection& globalLock() {
    static PosixCriticalSection section;
    return section;
}

int32_t instanceCount = 0;

} // namespace

GenericPluginProcessor::GenericPluginProcessor() = default;

GenericPluginProcessor::~GenericPluginProcessor() {
    terminate();
    // Graph objects still registered need not unregister one by one.
    if (environment != nullptr)
        environment->setClosing(true);
    channels.clear();
    bypassProcessor.reset();
}

void GenericPluginProcessor::initialize(int32_t maxBlockSize, int32_t secondSize) {
    if (isInitialized())
        return;
    {
        ScopedLocker locker(&globalLock());
        if (instanceCount++ == 0)
            globalInitialize();
    }
    environment = std::make_unique<wave::Environment>(maxBlockSize, secondSize);
    environment->setPrimarySampleRateListener(&rateForwarder);
    midiReceiver = createMidiReceiver();
    controllerMidi = dynamic_cast<ControllerMidiReceiver*>(midiReceiver.get());
    bypassProcessor = std::make_unique<BypassProcessor>(*this);
    if ((flags & kMidiOutputFlag) != 0)
        outgoingMidi = std::make_unique<wave::LockFreeRing<MidiEvent, kOutgoingMidiQueueSize>>();
}

void GenericPluginProcessor::terminate() {
    if (!isInitialized() || terminated)
        return;
    terminated = true;
    ScopedLocker locker(&globalLock());
    if (--instanceCount == 0)
        globalShutdown();
}

void GenericPluginProcessor::setSampleRate(float rate) {
    if (environment != nullptr)
        environment->setSampleRate(rate);
}

float GenericPluginProcessor::getSampleRate() const {
    return environment != nullptr ? environment->getSampleRate() : wave::Environment::kDefaultSampleRate;
}

int32_t GenericPluginProcessor::getMaxBlockSize() const {
    return environment != nullptr ? environment->getMaxBlockSize() : 0;
}

int32_t GenericPluginProcessor::addChannel(std::unique_ptr<Channel> channel) {
    if (channel == nullptr || !isInitialized() || getNumChannels() >= kMaxChannels)
        return -1;
    channel->index = getNumChannels();
    channels.push_back(std::move(channel));
    meters.resize(channels.size());
    bypassProcessor->addChannel();
    return channels.back()->index;
}

void GenericPluginProcessor::reserveLatency(int32_t samples) {
    if (bypassProcessor != nullptr)
        bypassProcessor->reserveLatency(samples);
}

void GenericPluginProcessor::setProcessing(bool processing) {
    active = processing;
    if (processing && bypassProcessor != nullptr)
        bypassProcessor->restart();
}

void GenericPluginProcessor::setImmediateAction(int32_t index, ImmediateAction* action) {
    if (action != nullptr)
        immediateActions[index] = action;
    else
        immediateActions.erase(index);
}

void GenericPluginProcessor::setParameter(int32_t index, float value, bool fromHost) {
    if (const auto found = immediateActions.find(index); found != immediateActions.end())
        found->second->applyImmediately(index, value);
    parameterQueue.push({index, value});
    if (!fromHost && adapter != nullptr)
        adapter->processorParameterChanged(index, value);
}

bool GenericPluginProcessor::queueParameterAt(int32_t position, int32_t index, float value) {
    return parameterPoints.push({position, 0, index, value});
}

bool GenericPluginProcessor::queueMidiEvent(const MidiEvent& event) {
    return midiEvents.push(event);
}

void GenericPluginProcessor::suspendParameterUpdates() {
    atomicIncrement(&suspendCount);
}

void GenericPluginProcessor::resumeParameterUpdates() {
    atomicDecrement(&suspendCount);
}

void GenericPluginProcessor::setHostBypass(bool bypass) {
    hostBypass = bypass;
    applyBypassRequest();
}

void GenericPluginProcessor::applyBypassRequest() {
    if (bypassProcessor == nullptr)
        return;
    const bool request = isBypassRequested();
    if (request != bypassProcessor->isBypassed())
        bypassProcessor->setBypassed(request);
}

void GenericPluginProcessor::parameterChanged(int32_t index) {
    for (auto& channel : channels)
        channel->parameterChanged(index);
    const AbstractPluginParameter* parameter = index >= 0 ? getParameter(index) : nullptr;
    if (parameter == nullptr)
        return;
    if (index == modeParameterIndex) {
        mode = roundToInt(parameter->getPlain());
        if (mode == 1)
            setMode(1.0f);
    }
    if (index == bypassParameterIndex) {
        parameterBypass = roundToInt(parameter->getPlain()) != 0;
        applyBypassRequest();
    }
}

void GenericPluginProcessor::drainParameterQueue() {
    ParameterChange change;
    while (parameterQueue.pop(change)) {
        if (change.index == kSkipSmoothingCommand) {
            environment->reset(2);
        } else if (change.index < 0) {
            environment->reset(0);
        } else if (AbstractPluginParameter* parameter = getParameter(change.index)) {
            parameter->setPlain(change.value);
            parameterChanged(change.index);
        }
    }
}

void GenericPluginProcessor::setTransport(float newTempo, float hostBeatPosition, bool nowPlaying) {
    // A non-finite tempo would turn the free-running beat position into NaN for good.
    if (std::fabs(newTempo) <= kFloatEpsilon || !std::isfinite(newTempo))
        newTempo = kDefaultTempo;
    // Likewise a non-finite host position: it is never adopted, and never compared against.
    if (!std::isfinite(hostBeatPosition))
        hostBeatPosition = lastHostBeatPosition;
    if (nowPlaying || std::fabs(hostBeatPosition - lastHostBeatPosition) > kFloatEpsilon) {
        beatPosition = hostBeatPosition;
        if (nowPlaying && !playing)
            transportStarted();
    } else {
        const double elapsedBeats = static_cast<double>(newTempo) * samplesSinceTransportUpdate /
                                    (static_cast<double>(getSampleRate()) * 60.0);
        const double turns = (elapsedBeats + beatPosition) / kBeatWrap;
        beatPosition = kBeatWrap * (turns - std::floor(turns));
    }
    tempo = newTempo;
    lastHostBeatPosition = hostBeatPosition;
    playing = nowPlaying;
    tempoPending = true;
    samplesSinceTransportUpdate = 0;
}

void GenericPluginProcessor::setMeter(int32_t channel, int32_t meterIndex, LevelSource* source) {
    if (channel < 0 || channel >= getNumChannels() || meterIndex < 0)
        return;
    auto& row = meters[static_cast<size_t>(channel)];
    if (row.size() <= static_cast<size_t>(meterIndex))
        row.resize(static_cast<size_t>(meterIndex) + 1, nullptr);
    row[static_cast<size_t>(meterIndex)] = source;
}

float GenericPluginProcessor::getMeterValue(int32_t meterIndex, bool combineMax) const {
    if (meterIndex < 0 || meters.empty())
        return 0.0f;
    const auto read = [meterIndex](const std::vector<LevelSource*>& row) {
        const auto position = static_cast<size_t>(meterIndex);
        return position < row.size() && row[position] != nullptr ? row[position]->getLevelInfo().level : 0.0f;
    };
    float value = read(meters.front());
    if (meterIndex < firstPerChannelMeter)
        return value;
    for (size_t channel = 1; channel < meters.size(); ++channel)
        value = combineMax ? std::max(value, read(meters[channel])) : std::min(value, read(meters[channel]));
    return value;
}

void GenericPluginProcessor::setRealTimeDataSource(int32_t list, int32_t slot, RealTimeDataSource* source) {
    if (list < 0 || list >= kNumRealTimeLists || slot < 0)
        return;
    auto& sources = realTimeSources[static_cast<size_t>(list)];
    if (sources.size() <= static_cast<size_t>(slot))
        sources.resize(static_cast<size_t>(slot) + 1, nullptr);
    sources[static_cast<size_t>(slot)] = source;
}

void GenericPluginProcessor::answerRealTimeRequest(BinaryDataReader& request, BinaryDataWriter& stream) {
    readRealTimeRequest(request);
    writeRealTimeData(stream);
}

void GenericPluginProcessor::writeRealTimeData(BinaryDataWriter& stream) {
    std::atomic_ref<int32_t>(samplesSinceRequest).store(0);
    for (const auto& sources : realTimeSources) {
        for (auto* source : sources) {
            if (source != nullptr)
                source->writeRealTimeData(stream);
        }
    }
    stream.writeFloat(tempo);
    if (outgoingMidi == nullptr)
        return;
    MidiEvent event;
    while (outgoingMidi->pop(event)) {
        const uint8_t group[] = {1, event.status, event.data1, event.data2};
        stream.writeRaw(group, sizeof(group));
    }
    const uint8_t end = 0;
    stream.writeRaw(&end, 1);
}

bool GenericPluginProcessor::sendMidiEvent(const MidiEvent& event) {
    return outgoingMidi != nullptr && outgoingMidi->push(event);
}

int32_t GenericPluginProcessor::getSamplesSinceRealTimeRequest() const {
    return std::atomic_ref<int32_t>(const_cast<int32_t&>(samplesSinceRequest)).load();
}

void GenericPluginProcessor::countSamplesSinceRequest(int32_t numSamples) {
    int32_t counted = 0;
    int32_t next = 0;
    do {
        counted = getSamplesSinceRealTimeRequest();
        next = static_cast<int32_t>(
            std::min<int64_t>(static_cast<int64_t>(counted) + numSamples, kMaxSamplesSinceRequest));
    } while (!atomicCompareAndSwap(counted, next, &samplesSinceRequest));
    environment->setDisplayActive(static_cast<float>(next) < environment->getSampleRate());
}

std::unique_ptr<GenericPluginProcessor::MidiReceiver> GenericPluginProcessor::createMidiReceiver() {
    return std::make_unique<ControllerMidiReceiver>(*this);
}

bool GenericPluginProcessor::readControllerMapping(BinaryDataReader& reader) {
    return controllerMidi != nullptr && controllerMidi->readMapping(reader);
}

bool GenericPluginProcessor::writeControllerMapping(BinaryDataWriter& writer) const {
    if (controllerMidi == nullptr)
        return false;
    controllerMidi->writeMapping(writer);
    return true;
}

void GenericPluginProcessor::handleMidiEvent(const MidiEvent& event) {
    if (midiReceiver != nullptr && acceptsMidi())
        midiReceiver->receiveMidiEvent(event);
}

int32_t GenericPluginProcessor::offsetOfNextPoint(int32_t offset) const {
    const ParameterPoint* point = parameterPoints.peek();
    if (point == nullptr)
        return -1;
    // Positions are 32-bit and may wrap; the difference stays right across the wrap.
    const auto now = static_cast<uint32_t>(environment->getPosition());
    const auto ahead = static_cast<int32_t>(static_cast<uint32_t>(point->position) - now);
    const int64_t due = static_cast<int64_t>(offset) + std::max(ahead, 0);
    return static_cast<int32_t>(std::min<int64_t>(due, std::numeric_limits<int32_t>::max()));
}

void GenericPluginProcessor::processStretch(const float* const* inputs, const float* const* sideChain,
                                            float* const* outputs, int32_t numChannels, int32_t offset,
                                            int32_t end, uint32_t& silenceFlags) {
    while (offset < end) {
        const int32_t numSamples = bypassProcessor->limitChunk(std::min(end - offset, getMaxBlockSize()));
        for (int32_t index = 0; index < getNumChannels(); ++index) {
            Channel& channel = *channels[static_cast<size_t>(index)];
            if (index >= numChannels) {
                // Channels the host did not feed read silence, never a stale buffer.
                channel.setBuffers(nullptr, nullptr, 0);
                continue;
            }
            const float* side = sideChain != nullptr ? sideChain[index] : inputs[index];
            channel.setBuffers(inputs[index] + offset, side + offset, numSamples);
        }
        bypassProcessor->process(inputs, outputs, numChannels, offset, numSamples, silenceFlags);
        offset += numSamples;
    }
}

void GenericPluginProcessor::process(const float* const* inputs, const float* const* sideChain,
                                     float* const* outputs, int32_t numChannels, int32_t numSamples,
                                     uint32_t& silenceFlags) {
    if (numChannels < 0 || numSamples < 1 || !isInitialized())
        return;
    countSamplesSinceRequest(numSamples);
    const ScopedFlushToZero flushToZero;
    midiNotification = -1;
    samplesSinceTransportUpdate = static_cast<int32_t>(std::min<int64_t>(
        static_cast<int64_t>(samplesSinceTransportUpdate) + numSamples, std::numeric_limits<int32_t>::max()));
    if (std::atomic_ref<int32_t>(suspendCount).load() == 0)
        drainParameterQueue();
    if (tempoPending) {
        tempoChanged(tempo, beatPosition);
        tempoPending = false;
    }
    silenceFlags |= kOutputSilent;
    bool midiSeen = false;
    if (active) {
        midiSeen = processEventsAndAudio(inputs, sideChain, outputs, std::min(numChannels, getNumChannels()),
                                         numSamples, silenceFlags);
    } else {
        for (int32_t channel = 0; channel < numChannels; ++channel)
            std::fill_n(outputs[channel], numSamples, 0.0f);
    }
    // Events past the block's end, or of a stopped block, still reach the receiver, after the audio.
    MidiEvent late;
    while (midiEvents.pop(late)) {
        handleMidiEvent(late);
        midiSeen = true;
    }
    if (midiSeen && adapter != nullptr)
        adapter->midiHandled(midiNotification);
}

bool GenericPluginProcessor::processEventsAndAudio(const float* const* inputs, const float* const* sideChain,
                                                   float* const* outputs, int32_t numChannels,
                                                   int32_t numSamples, uint32_t& silenceFlags) {
    bool midiSeen = false;
    int32_t offset = 0;
    for (;;) {
        const MidiEvent* event = midiEvents.peek();
        if (event != nullptr && event->offset <= offset) {
            handleMidiEvent(*event);
            midiEvents.drop();
            midiSeen = true;
            if (std::atomic_ref<int32_t>(suspendCount).load() == 0)
                drainParameterQueue();
            continue;
        }
        const int32_t point = offsetOfNextPoint(offset);
        if (point == offset) {
            const ParameterPoint* due = parameterPoints.peek();
            applyParameterPoint(due->index, due->value);
            parameterPoints.drop();
            continue;
        }
        if (offset >= numSamples)
            break;
        int32_t end = numSamples;
        if (event != nullptr)
            end = std::min(end, event->offset);
        if (point >= 0)
            end = std::min(end, point);
        processStretch(inputs, sideChain, outputs, numChannels, offset, end, silenceFlags);
        offset = end;
    }
    return midiSeen;
}

bool GenericPluginProcessor::isOutputSilent(const float* const* buffers, int32_t numChannels,
                                            int32_t numSamples) {
    for (int32_t channel = 0; channel < numChannels; ++channel) {
        if (!isSilent(buffers[channel], numSamples))
            return false;
    }
    return true;
}

bool GenericPluginProcessor::isSilent(const float* samples, int32_t numSamples) {
    return std::all_of(samples, samples + numSamples,
                       [](float sample) { return std::fabs(sample) <= kFloatEpsilon; });
}

GenericPluginProcessor::Channel::Channel(GenericPluginProcessor& owner, uint32_t flags)
    : flags(flags), sideChainInput(owner.getEnvironment(), owner), mainInput(owner.getEnvironment()),
      sideChainTap(owner.getEnvironment()) {}

int32_t GenericPluginProcessor::Channel::getSide() const {
    if (hasFlag(kLeftSide))
        return 0;
    return hasFlag(kRightSide) ? 1 : -1;
}

void GenericPluginProcessor::Channel::setBuffers(const float* main, const float* sideChain,
                                                 int32_t numSamples) {
    mainInput.setData(main, numSamples);
    sideChainInput.setData(sideChain, numSamples);
    sideChainTap.setData(sideChain, numSamples);
}

void GenericPluginProcessor::Channel::ConnectedSideChainInput::process(wave::BasicBlock<float>* block,
                                                                       int32_t numSamples, int32_t flags) {
    if (owner.isSideChainActive())
        wave::Input::process(block, numSamples, flags);
    else
        setCurrentBlock(getEnvironment()->getZeroBlock());
}
