#include "plugin/GenericPlugin.h"

#include "foundation/Preferences.h"
#include "plugin/ControllerMapping.h"
#include "plugin/ErrorReporter.h"
#include "plugin/GenericPluginSettings.h"
#include "plugin/InstanceRegistry.h"
#include "plugin/PluginSnapshots.h"

#include <algorithm>
#include <thread>

namespace {

constexpr uint8_t kControlChange = 0xB0;
// Controllers that select banks or stop notes; learning them would hide their meaning.
constexpr uint8_t kBankSelectMsb = 0;
constexpr uint8_t kAllNotesOff = 123;

// Guards the processor link for keep-alives sent from other threads; held only for a call.
class SpinLocker {
public:
    explicit SpinLocker(std::atomic_flag& flag) : flag(flag) {
        while (flag.test_and_set(std::memory_order_acquire))
            std::this_thread::yield();
    }
    ~SpinLocker() { flag.clear(std::memory_order_release); }
    SpinLocker(const SpinLocker&) = delete;
    SpinLocker& operator=(const SpinLocker&) = delete;

private:
    std::atomic_flag& flag;
};

} // namespace

// Passes the decoded events of all channels, and every raw message for MIDI learn, to the model.
class DefaultEventReceiver : public AbstractMusicEventReceiver, public MidiMessageReceiver {
public:
    explicit DefaultEventReceiver(GenericPlugin& plugin) : plugin(plugin) {}

    void controlChange(int32_t controller, int32_t, float value) override {
        plugin.applyMidiController(controller, value);
    }
    void programChange(int32_t, int32_t program) override { plugin.programChangeReceived(program); }
    void receiveMidiMessage(uint8_t status, uint8_t data1, uint8_t) override {
        plugin.learnFromMessage(status, data1);
    }

private:
    GenericPlugin& plugin;
};

GenericPlugin::GenericPlugin(PluginStateStore* stateStore_)
    : stateStore(stateStore_), undoHistory(std::make_unique<UndoHistory>(*this)),
      compareStates(std::make_unique<CompareStates>(*this)),
      midiEvents(std::make_unique<DefaultEventReceiver>(*this)) {
    midiDecoder.setReceiver(MidiDecoder::kAllChannels, midiEvents.get());
    midiDecoder.setLearnListener(midiEvents.get());
}

GenericPlugin::~GenericPlugin() {
    terminate();
}

void GenericPlugin::initialise(HostKind hostKind) {
    if (initialised)
        return;
    InstanceRegistry::instance().registerInstance(*this, hostKind);
    initialised = true;
    getSharedSettings().changed.subscribe(this, &GenericPlugin::settingsChanged);
    getSettings().changed.subscribe(this, &GenericPlugin::settingsChanged);
    getControllerMapping().changed.event.subscribe(this, &GenericPlugin::controllerMappingChanged);
    if (stateStore != nullptr)
        stateStore->loadDefaults(*this);
}

void GenericPlugin::terminate() {
    if (!initialised)
        return;
    // The services are process-wide and outlive this instance, unless it is the last one.
    getSharedSettings().changed.unsubscribe(this, &GenericPlugin::settingsChanged);
    getSettings().changed.unsubscribe(this, &GenericPlugin::settingsChanged);
    getControllerMapping().changed.event.unsubscribe(this, &GenericPlugin::controllerMappingChanged);
    // Once out of the list no reader can reach this instance; readers that hold the registry
    // lock are waited for here.
    InstanceRegistry::instance().unregisterInstance(*this);
    initialised = false;
    setAdapter(nullptr);
    for (auto& slot : audioSources)
        slot->setTarget(nullptr);
    for (auto& slot : levelSources)
        slot->setTarget(nullptr);
}

HostKind GenericPlugin::getHostKind() {
    InstanceRegistry& registry = InstanceRegistry::instance();
    ScopedLocker locker(&registry.lock);
    return registry.hostKind;
}

void GenericPlugin::setAdapter(Adapter* newAdapter) {
    SpinLocker locker(processorLinkLock);
    adapter = newAdapter;
}

void GenericPlugin::setProcessorLinkAvailable(bool available) {
    SpinLocker locker(processorLinkLock);
    processorLinkUnavailable = !available;
}

void GenericPlugin::addListener(Listener* listener) {
    if (std::find(listeners.begin(), listeners.end(), listener) == listeners.end())
        listeners.push_back(listener);
}

void GenericPlugin::removeListener(Listener* listener) {
    std::erase(listeners, listener);
}

float GenericPlugin::getParameterPlain(int32_t index) {
    const AbstractPluginParameter* parameter = getParameter(index);
    return parameter != nullptr ? parameter->getPlain() : 0.0f;
}

void GenericPlugin::setParameterPlain(int32_t index, float plain) {
    if (AbstractPluginParameter* parameter = getParameter(index))
        parameter->setPlain(plain);
}

double GenericPlugin::getParameterNormalized(int32_t index) const {
    const AbstractPluginParameter* parameter = getParameter(index);
    return parameter != nullptr ? parameter->getNormalized() : 0.0;
}

void GenericPlugin::setParameterNormalizedFromHost(int32_t index, double normalized) {
    AbstractPluginParameter* parameter = getParameter(index);
    if (parameter == nullptr)
        return;
    ++hostChangeDepth;
    parameter->setNormalized(normalized);
    --hostChangeDepth;
}

void GenericPlugin::beginEdit(int32_t index) {
    startHistory();
    ++openGestures;
    if (adapter != nullptr)
        adapter->beginEdit(index);
}

void GenericPlugin::endEdit(int32_t index) {
    if (adapter != nullptr)
        adapter->endEdit(index);
    if (openGestures == 0 || --openGestures > 0)
        return;
    // However many values a drag changed, it is one step; a drag back to the start is none.
    if (undoHistory->hasChanged())
        recordUndoStep();
}

void GenericPlugin::parameterValueChanged(int32_t index, float plainValue) {
    if (isHostParameter(index) && !isBulkChangeRunning() && hostChangeDepth == 0) {
        if (adapter != nullptr)
            adapter->parameterChanged(index, getParameter(index)->getNormalized());
        if (!presetState.modified) {
            PresetState modified = presetState;
            modified.modified = true;
            setPresetState(modified);
        }
    }
    for (Listener* listener : listeners)
        listener->parameterChanged(index, plainValue);
}

std::vector<float> GenericPlugin::getParameterValues() const {
    std::vector<float> values(static_cast<size_t>(getParameterCount()));
    for (int32_t i = 0; i < getParameterCount(); ++i)
        values[static_cast<size_t>(i)] = getParameter(i)->getPlain();
    return values;
}

std::vector<float> GenericPlugin::getDefaultParameterValues() const {
    std::vector<float> values(static_cast<size_t>(getParameterCount()));
    for (int32_t i = 0; i < getParameterCount(); ++i)
        values[static_cast<size_t>(i)] = getParameter(i)->getDefaultPlain();
    return values;
}

void GenericPlugin::applyParameterValues(std::span<const float> values, int32_t updateCode) {
    ++bulkChangeDepth;
    const int32_t count = std::min(getParameterCount(), static_cast<int32_t>(values.size()));
    for (int32_t i = 0; i < count; ++i)
        getParameter(i)->setPlain(values[static_cast<size_t>(i)]);
    --bulkChangeDepth;
    if (adapter != nullptr)
        adapter->parametersUpdated(updateCode);
}

void GenericPlugin::setPresetState(const PresetState& state) {
    if (state == presetState)
        return;
    const bool identityChanged = state.name != presetState.name || state.identity != presetState.identity;
    const bool becameModified = state.modified && !presetState.modified;
    presetState = state;
    if (adapter != nullptr && (identityChanged || becameModified))
        adapter->presetNameChanged(!identityChanged);
    for (Listener* listener : listeners)
        listener->presetChanged(presetState);
}

bool GenericPlugin::writeState(std::ostream& stream) {
    return stateStore != nullptr && stateStore->writeState(*this, stream);
}

bool GenericPlugin::readState(std::istream& stream, ErrorReporter& errors) {
    return stateStore != nullptr && stateStore->readState(*this, stream, errors);
}

bool GenericPlugin::savePreset(const std::string& path, const PresetMetadata& metadata) {
    if (stateStore == nullptr || !stateStore->savePreset(*this, path, metadata))
        return false;
    setPresetState({metadata.name, path, false});
    return true;
}

bool GenericPlugin::loadPreset(const std::string& path, ErrorReporter& errors) {
    return stateStore != nullptr && stateStore->loadPreset(*this, path, errors);
}

void GenericPlugin::restoreDefaults() {
    if (stateStore != nullptr && stateStore->loadDefaults(*this))
        return;
    applyParameterValues(getDefaultParameterValues(), kPresetLoaded);
    presetSettings.clear();
    setPresetState({});
}

bool GenericPlugin::saveAsDefault() {
    return stateStore != nullptr && stateStore->saveDefaults(*this);
}

bool GenericPlugin::saveParameterAsDefault(int32_t index) {
    return stateStore != nullptr && isHostParameter(index) &&
           stateStore->saveParameterAsDefault(*this, index);
}

bool GenericPlugin::selectPreset(int32_t position, ErrorReporter& errors) {
    if (position < 0 || position >= static_cast<int32_t>(presetList.size()))
        return false;
    return loadPreset(presetList[static_cast<size_t>(position)], errors);
}

bool GenericPlugin::stepPreset(int32_t step, ErrorReporter& errors) {
    const int32_t count = static_cast<int32_t>(presetList.size());
    if (count == 0)
        return false;
    const auto current = std::find(presetList.begin(), presetList.end(), presetState.identity);
    const int32_t position =
        current == presetList.end()
            ? (step > 0 ? 0 : count - 1)
            : (static_cast<int32_t>(current - presetList.begin()) + step + count) % count;
    return selectPreset(position, errors);
}

void GenericPlugin::startHistory() {
    undoHistory->initialise();
    compareStates->initialise();
}

bool GenericPlugin::canUndo() const {
    return undoHistory->canUndo();
}

bool GenericPlugin::canRedo() const {
    return undoHistory->canRedo();
}

void GenericPlugin::undo() {
    startHistory();
    undoHistory->undo();
}

void GenericPlugin::redo() {
    startHistory();
    undoHistory->redo();
}

void GenericPlugin::toggleAB() {
    startHistory();
    compareStates->toggle();
    recordUndoStep();
}

void GenericPlugin::copyAB() {
    startHistory();
    compareStates->copy();
}

int32_t GenericPlugin::getCurrentABSlot() const {
    return compareStates->getCurrentSlot();
}

bool GenericPlugin::hasABChanged() const {
    return compareStates->hasChanged();
}

void GenericPlugin::recordUndoStep() {
    // No startHistory here: it would take the changed state for the initial one.
    undoHistory->push({});
    compareStates->setChanged();
}

void GenericPlugin::captureSnapshot(Snapshot& snapshot) const {
    snapshot.presetState = presetState;
    snapshot.abSlot = compareStates->getCurrentSlot();
    snapshot.values = getParameterValues();
    snapshot.extraState = extraState;
    snapshot.settings = presetSettings;
}

void GenericPlugin::applySnapshot(const Snapshot& snapshot) {
    applyParameterValues(snapshot.values, kSnapshotApplied);
    setPresetState(snapshot.presetState);
    extraState = snapshot.extraState;
    presetSettings = snapshot.settings;
    snapshotApplied();
}

void GenericPlugin::receiveMidiMessage(uint8_t status, uint8_t data1, uint8_t data2) {
    if (getMidiState() == MidiState::Disabled)
        return;
    midiDecoder.decode(status, data1, data2);
}

void GenericPlugin::learnFromMessage(uint8_t status, uint8_t data1) {
    ControllerMapping& mapping = getControllerMapping();
    if (!mapping.isLearning() || (status & 0xF0) != kControlChange || data1 == kBankSelectMsb ||
        data1 == kAllNotesOff || data1 >= ControllerMapping::kNumControllers)
        return;
    const uint32_t target = mapping.getLearnTarget();
    mapping.stopLearning();
    assignMidiController(data1, static_cast<int32_t>(target));
}

void GenericPlugin::startMidiLearn(int32_t parameterIndex) {
    if (isHostParameter(parameterIndex))
        getControllerMapping().startLearning(static_cast<uint32_t>(parameterIndex));
}

void GenericPlugin::cancelMidiLearn() {
    getControllerMapping().stopLearning();
}

void GenericPlugin::assignMidiController(int32_t controller, int32_t parameterIndex) {
    ControllerMapping& mapping = getControllerMapping();
    mapping.assign(controller, static_cast<uint32_t>(parameterIndex));
    mapping.saveFile(ControllerMapping::filePath());
}

void GenericPlugin::clearMidiController(int32_t controller) {
    ControllerMapping& mapping = getControllerMapping();
    mapping.clear(controller);
    mapping.saveFile(ControllerMapping::filePath());
}

ControllerMapping& GenericPlugin::getControllerMapping() {
    return *InstanceRegistry::instance().controllerMapping;
}

void GenericPlugin::applyMidiController(int32_t controller, float value) {
    const uint32_t index = getControllerMapping().getParameterForController(controller);
    if (index != ControllerMapping::kUnassigned && isHostParameter(static_cast<int32_t>(index)))
        getParameter(static_cast<int32_t>(index))->setNormalized(value);
}

void GenericPlugin::processorReportedPair(int32_t kind, int32_t value) {
    if (kind == kProgramChangeReport)
        programChangeReceived(value);
}

void GenericPlugin::programChangeReceived(int32_t program) {
    if (!getSharedSettings().enableMidiProgramChanges.getValue())
        return;
    ErrorReporter errors;
    if (!selectPreset(program, errors))
        return;
    for (Listener* listener : listeners)
        listener->programSelected(program);
}

void GenericPlugin::playMidiMessage(uint8_t status, uint8_t data1, uint8_t data2) {
    if (adapter != nullptr)
        adapter->playMidiMessage(status, data1, data2);
}

void GenericPlugin::setSetupWord(uint32_t word) {
    if (word == setupWord)
        return;
    setupWord = word;
    if (adapter != nullptr)
        adapter->setupWordChanged();
}

void GenericPlugin::setLatency(int32_t samples) {
    if (samples == latency)
        return;
    latency = samples;
    if (adapter != nullptr)
        adapter->latencyChanged();
}

void GenericPlugin::requestRealTimeData() {
    if (adapter != nullptr)
        adapter->realTimeDataWanted();
}

void GenericPlugin::writeRealTimeRequest(BinaryDataWriter&) {}

void GenericPlugin::readRealTimeData(BinaryDataReader&) {}

GenericPlugin::SharedSettings& GenericPlugin::getSharedSettings() const {
    return *InstanceRegistry::instance().sharedSettings;
}

GenericPlugin::Settings& GenericPlugin::getSettings() const {
    return *InstanceRegistry::instance().settings;
}

std::unique_ptr<GenericPlugin::SharedSettings> GenericPlugin::createSharedSettings() const {
    return std::make_unique<SharedSettings>();
}

std::unique_ptr<GenericPlugin::Settings> GenericPlugin::createSettings() const {
    return std::make_unique<Settings>(preferencesDomain(productName, 1), InterfaceLimits{});
}

void GenericPlugin::controllerMappingChanged() {
    if (adapter != nullptr)
        adapter->controllerMappingChanged();
}

void GenericPlugin::settingsChanged() {
    for (Listener* listener : listeners)
        listener->settingsChanged();
}

uint32_t GenericPlugin::getInstanceIdentifier() {
    InstanceRegistry& registry = InstanceRegistry::instance();
    ScopedLocker locker(&registry.lock);
    registry.assignIdentifier(*this);
    return identifier;
}

std::string GenericPlugin::getInstanceName() {
    return name.empty() ? trackName : name;
}

void GenericPlugin::setInstanceName(std::string newName) {
    name = std::move(newName);
}

void GenericPlugin::setTrackInfo(std::string newTrackName, uint32_t trackColour) {
    trackName = std::move(newTrackName);
    colour = trackColour;
}

AudioSource* GenericPlugin::getAudioSource(int32_t index) {
    if (index < 0 || index >= getNumAudioSources())
        return nullptr;
    return audioSources[static_cast<size_t>(index)].get();
}

ChannelLevelSource* GenericPlugin::getLevelSource(int32_t index) {
    if (index < 0 || index >= getNumLevelSources())
        return nullptr;
    return levelSources[static_cast<size_t>(index)].get();
}

void GenericPlugin::setNumSourceSlots(int32_t numAudioSources, int32_t numLevelSources) {
    audioSources.clear();
    levelSources.clear();
    for (int32_t i = 0; i < numAudioSources; ++i)
        audioSources.push_back(std::make_unique<AudioSourceProxy>());
    for (int32_t i = 0; i < numLevelSources; ++i)
        levelSources.push_back(std::make_unique<LevelSourceProxy>());
}

void GenericPlugin::keepAudioStreaming(double now) {
    if (now - lastStreamRequest < kKeepAliveInterval)
        return;
    SpinLocker locker(processorLinkLock);
    if (adapter == nullptr || processorLinkUnavailable)
        return;
    lastStreamRequest = now;
    adapter->sendDataBlock(kKeepAliveBlockId, {});
}
