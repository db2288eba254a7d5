#pragma once

#include "plugin/GenericPluginBase.h"
#include "plugin/InstanceSources.h"
#include "plugin/MidiDecoder.h"
#include "plugin/PluginStateStore.h"

#include <atomic>
#include <cstdint>
#include <istream>
#include <map>
#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <vector>

class BinaryDataReader;
class BinaryDataWriter;
class ControllerMapping;
class DefaultEventReceiver;
class ErrorReporter;

// The kind of host the process loaded us into; remembered by the first instance.
enum class HostKind : int32_t { Unknown = 0, Vst3 = 1, Vst2 = 2 };

// What the model knows about the preset the current state came from.
struct PresetState {
    std::string name;
    // Where it came from (a preset file's path); empty for states without a file.
    std::string identity;
    bool modified = false;

    bool operator==(const PresetState&) const = default;
};

// How other instances and the registry see an instance. Implemented by the instance itself and
// by GenericPlugin::InstanceProxy, which answers defaults once its target is gone.
class GenericPluginAbstractInstance {
public:
    virtual ~GenericPluginAbstractInstance() = default;

    virtual uint32_t getInstanceIdentifier() = 0;
    virtual std::string getInstanceName() = 0;
    virtual uint32_t getInstanceColour() = 0;
    virtual std::string getTrackName() = 0;

    virtual int32_t getParameterCount() const = 0;
    virtual float getParameterPlain(int32_t index) = 0;
    virtual void setParameterPlain(int32_t index, float plain) = 0;
    virtual void beginEdit(int32_t index) = 0;
    virtual void endEdit(int32_t index) = 0;
    // A host state chunk or a preset's text.
    virtual bool readState(std::istream& stream, ErrorReporter& errors) = 0;

    virtual int32_t getNumAudioSources() = 0;
    virtual AudioSource* getAudioSource(int32_t index) = 0;
    virtual int32_t getNumLevelSources() = 0;
    virtual ChannelLevelSource* getLevelSource(int32_t index) = 0;
};

// The controller-side model of one plug-in instance: parameter values, the preset state,
// undo and A/B, MIDI, and its place in the process-wide instance registry. It reports to the
// host through an Adapter and to the interface through Listeners.
//
// Threads: everything runs on the host's controller (user-interface) thread, except what the
// registry documents (proxies may read sources from analysis threads) and the keep-alive that a
// reader of this instance's audio sends through the adapter.
//
// Life: construct, initialise once, terminate, destroy. A product that adds state reachable
// through the registry (parameters, sources) calls terminate() first in its own destructor, so
// that no other instance can reach it while it is being torn down.
class GenericPlugin : public GenericPluginBase,
                      public GenericPluginAbstractInstance,
                      public MidiMessageReceiver {
public:
    class Adapter;
    class Listener;
    class SettingsBase;
    class Settings;
    class SharedSettings;
    struct Snapshot;
    class SnapshotList;
    class UndoHistory;
    class CompareStates;
    class InstanceProxy;

    // Arguments of Adapter::parametersUpdated: one parameter (>= 0), or all parameters at once.
    // The two whole-state codes let the host adapter tell the host that the state changed as a
    // whole (it advances a counter parameter for each).
    static constexpr int32_t kAllParametersUpdated = -1;
    static constexpr int32_t kSnapshotApplied = -2;
    static constexpr int32_t kPresetLoaded = -3;

    // The id of the data block that asks the processor to keep streaming audio for readers in
    // other instances.
    static constexpr uint32_t kKeepAliveBlockId = 0x4B416C76; // "KAlv"
    // Readers ask again after this long.
    static constexpr double kKeepAliveInterval = 5.0;

    static constexpr uint32_t kNoIdentifier = 0xFFFFFFFFu;

    // The store reads and writes presets and state; without one those operations fail.
    explicit GenericPlugin(PluginStateStore* stateStore = nullptr);
    ~GenericPlugin() override;
    GenericPlugin(const GenericPlugin&) = delete;
    GenericPlugin& operator=(const GenericPlugin&) = delete;

    // Attaches to (or, for the first instance, creates) the process-wide services, registers in
    // the instance registry and starts from the interface defaults when they exist.
    void initialise(HostKind hostKind);
    // Leaves the registry (the last instance releases the process-wide services) and detaches
    // from the adapter and the source targets. Safe to call more than once.
    void terminate();
    static HostKind getHostKind();

    // Not owned. Set and cleared on the controller thread.
    void setAdapter(Adapter* newAdapter);
    // A keep-alive is only sent while the processor is reachable.
    void setProcessorLinkAvailable(bool available);
    void addListener(Listener* listener);
    void removeListener(Listener* listener);

    // --- Parameters
    int32_t getParameterCount() const override { return GenericPluginBase::getParameterCount(); }
    float getParameterPlain(int32_t index) override;
    // From the interface: reported to the host (perform edit) and to the listeners.
    void setParameterPlain(int32_t index, float plain) override;
    double getParameterNormalized(int32_t index) const;
    // From the host: stored and told to the listeners, never echoed to the host.
    void setParameterNormalizedFromHost(int32_t index, double normalized);
    // An edit gesture; when the last open gesture ends and the state changed, one undo step is
    // recorded.
    void beginEdit(int32_t index) override;
    void endEdit(int32_t index) override;
    void parameterValueChanged(int32_t index, float plainValue) override;

    // Plain values of all host parameters in index order, and their application as one change:
    // the host hears parametersUpdated(updateCode) once instead of an edit per parameter.
    std::vector<float> getParameterValues() const;
    void applyParameterValues(std::span<const float> values, int32_t updateCode);
    std::vector<float> getDefaultParameterValues() const;

    // --- Preset state, per-preset settings and the product's extra state
    const PresetState& getPresetState() const { return presetState; }
    void setPresetState(const PresetState& state);
    const std::map<std::string, std::string>& getPresetSettings() const { return presetSettings; }
    void setPresetSettings(std::map<std::string, std::string> settings) {
        presetSettings = std::move(settings);
    }
    const std::vector<uint8_t>& getExtraState() const { return extraState; }
    void setExtraState(std::vector<uint8_t> state) { extraState = std::move(state); }

    // --- Presets and state, through the state store
    bool writeState(std::ostream& stream);
    bool readState(std::istream& stream, ErrorReporter& errors) override;
    bool savePreset(const std::string& path, const PresetMetadata& metadata);
    bool loadPreset(const std::string& path, ErrorReporter& errors);
    // The interface defaults when they exist, else every parameter's own default.
    void restoreDefaults();
    bool saveAsDefault();
    bool saveParameterAsDefault(int32_t index);
    // The presets that program changes and next/previous step through (paths, in list order).
    void setPresetList(std::vector<std::string> paths) { presetList = std::move(paths); }
    bool selectPreset(int32_t position, ErrorReporter& errors);
    // Wrap at both ends; the current preset is found by its identity (the first when unknown).
    bool nextPreset(ErrorReporter& errors) { return stepPreset(1, errors); }
    bool previousPreset(ErrorReporter& errors) { return stepPreset(-1, errors); }

    // --- Undo, redo and A/B. The history starts (captures its initial state) when the editor
    // first opens or at the first gesture, whichever comes first.
    void startHistory();
    const UndoHistory& getUndoHistory() const { return *undoHistory; }
    const CompareStates& getCompareStates() const { return *compareStates; }
    bool canUndo() const;
    bool canRedo() const;
    void undo();
    void redo();
    // Switches A/B; undoable.
    void toggleAB();
    // Copies the current state into the other slot without switching.
    void copyAB();
    int32_t getCurrentABSlot() const;
    bool hasABChanged() const;
    // A recorded step, as at the end of a gesture, for actions that are not gestures; the
    // history must have been started before the action.
    void recordUndoStep();
    // Applies a snapshot as one change (used by the undo history and the A/B states).
    void applySnapshot(const Snapshot& snapshot);
    void captureSnapshot(Snapshot& snapshot) const;

    // --- MIDI
    // From the host or the processor: decoded unless "Receive Midi" is off.
    void receiveMidiMessage(uint8_t status, uint8_t data1, uint8_t data2) override;
    // The next controller moved in any instance drives the parameter.
    void startMidiLearn(int32_t parameterIndex);
    void cancelMidiLearn();
    void assignMidiController(int32_t controller, int32_t parameterIndex);
    void clearMidiController(int32_t controller);
    static ControllerMapping& getControllerMapping();
    // Sends a message for the processor to play (the interface's keyboard).
    void playMidiMessage(uint8_t status, uint8_t data1, uint8_t data2);

    // --- Processor side
    // What the processor reports on its own (through the host adapter): a program change it
    // received as MIDI selects a preset when program changes are enabled.
    static constexpr int32_t kProgramChangeReport = 1;
    void processorReportedPair(int32_t kind, int32_t value);
    uint32_t getSetupWord() const { return setupWord; }
    void setSetupWord(uint32_t word);
    int32_t getLatency() const { return latency; }
    void setLatency(int32_t samples);
    // Asks the adapter to fetch real-time data; it calls the two hooks below.
    void requestRealTimeData();
    // The product writes its request and reads the processor's answer; nothing by default.
    virtual void writeRealTimeRequest(BinaryDataWriter& writer);
    virtual void readRealTimeData(BinaryDataReader& reader);

    // --- Settings (process-wide, valid between initialise and terminate)
    SharedSettings& getSharedSettings() const;
    Settings& getSettings() const;

    // --- Registry
    uint32_t getInstanceIdentifier() override;
    std::string getInstanceName() override;
    void setInstanceName(std::string name);
    uint32_t getInstanceColour() override { return colour; }
    std::string getTrackName() override { return trackName; }
    // Track information from hosts that report it: the name also names the instance.
    void setTrackInfo(std::string name, uint32_t trackColour);
    int32_t getNumAudioSources() override { return static_cast<int32_t>(audioSources.size()); }
    AudioSource* getAudioSource(int32_t index) override;
    int32_t getNumLevelSources() override { return static_cast<int32_t>(levelSources.size()); }
    ChannelLevelSource* getLevelSource(int32_t index) override;
    // The slots the product points at its real sources.
    AudioSourceProxy& getAudioSourceSlot(int32_t index) {
        return *audioSources.at(static_cast<size_t>(index));
    }
    LevelSourceProxy& getLevelSourceSlot(int32_t index) {
        return *levelSources.at(static_cast<size_t>(index));
    }

    // The product's "Receive Midi" state; enabled unless the product has such a parameter.
    virtual MidiState getMidiState() const { return MidiState::Enabled; }

protected:
    // The product's settings classes, created once per process by the first instance. The
    // defaults (the generic keys, product domain generation 1) serve products without their own.
    virtual std::unique_ptr<SharedSettings> createSharedSettings() const;
    virtual std::unique_ptr<Settings> createSettings() const;
    // Called once a snapshot (undo, redo, A/B) has been applied.
    virtual void snapshotApplied() {}
    // Fixes how many source slots other instances see; before initialise.
    void setNumSourceSlots(int32_t numAudioSources, int32_t numLevelSources);

private:
    friend class InstanceRegistry;
    friend class DefaultEventReceiver;

    bool isHostParameter(int32_t index) const { return index >= 0 && index < getParameterCount(); }
    bool isBulkChangeRunning() const { return bulkChangeDepth > 0; }
    bool stepPreset(int32_t step, ErrorReporter& errors);
    void applyMidiController(int32_t controller, float value);
    void programChangeReceived(int32_t program);
    void learnFromMessage(uint8_t status, uint8_t data1);
    void controllerMappingChanged();
    void settingsChanged();
    void notifyPresetChanged();
    // Called by the registry, which holds its lock, for a reader of this instance's audio.
    void keepAudioStreaming(double now);

    PluginStateStore* stateStore;
    Adapter* adapter = nullptr;
    std::vector<Listener*> listeners;
    bool initialised = false;

    PresetState presetState;
    std::map<std::string, std::string> presetSettings;
    std::vector<uint8_t> extraState;
    std::vector<std::string> presetList;

    std::unique_ptr<UndoHistory> undoHistory;
    std::unique_ptr<CompareStates> compareStates;
    int32_t openGestures = 0;
    int32_t hostChangeDepth = 0;
    int32_t bulkChangeDepth = 0;

    std::unique_ptr<DefaultEventReceiver> midiEvents;
    MidiDecoder midiDecoder;

    uint32_t setupWord = 0;
    int32_t latency = 0;

    // Registry state, guarded by the registry lock.
    uint32_t identifier = kNoIdentifier;
    std::string name;
    uint32_t colour = 0;
    std::string trackName;
    std::vector<std::unique_ptr<AudioSourceProxy>> audioSources;
    std::vector<std::unique_ptr<LevelSourceProxy>> levelSources;
    double lastStreamRequest = -1.0e300;
    // Guards the link to the processor for keep-alives sent from readers' threads.
    std::atomic_flag processorLinkLock = ATOMIC_FLAG_INIT;
    bool processorLinkUnavailable = false;
};

// Implemented by the host adapter (VST3 controller, unified adapter). The model calls these on
// the controller (user-interface) thread, except sendDataBlock with kKeepAliveBlockId, which
// may come from any thread that reads this instance's audio through the registry; it is then
// called with the model's processor-link lock held and must neither block nor call back into
// the model. Declaration order is part of the contract with the host adapters.
class GenericPlugin::Adapter {
public:
    virtual ~Adapter() = default;
    // Inside an edit gesture (or for a MIDI-driven change): the host records automation.
    virtual void parameterChanged(int32_t index, double normalized) = 0;
    // The process-wide controller mapping changed; the processor needs the new one.
    virtual void controllerMappingChanged() = 0;
    virtual void endEdit(int32_t index) = 0;
    // getSetupWord() changed.
    virtual void setupWordChanged() = 0;
    // getLatency() changed; the host must be told.
    virtual void latencyChanged() = 0;
    virtual void playMidiMessage(uint8_t status, uint8_t data1, uint8_t data2) = 0;
    // Parameter index changed as part of a larger change, or (kAllParametersUpdated,
    // kSnapshotApplied, kPresetLoaded) every parameter may have changed: read the values back
    // from the model.
    virtual void parametersUpdated(int32_t index) = 0;
    // The preset's name or identity changed (modifiedOnly false: the processor stores the
    // name), or only its modified flag went on (modifiedOnly true); either way the project is dirty.
    virtual void presetNameChanged(bool modifiedOnly) = 0;
    // The model wants real-time data: let it write its request (writeRealTimeRequest), hand the
    // request to the processor and the answer back (readRealTimeData).
    virtual void realTimeDataWanted() = 0;
    // An opaque block for the processor.
    virtual void sendDataBlock(uint32_t id, std::span<const uint8_t> bytes) = 0;
    virtual void beginEdit(int32_t index) = 0;
};

// Implemented by the interface. Called on the controller thread.
class GenericPlugin::Listener {
public:
    virtual ~Listener() = default;
    virtual void parameterChanged(int32_t /*index*/, float /*plainValue*/) {}
    virtual void presetChanged(const PresetState& /*state*/) {}
    // A MIDI program change selected the preset at this position of the preset list.
    virtual void programSelected(int32_t /*position*/) {}
    // The shared or the product settings changed.
    virtual void settingsChanged() {}
};
