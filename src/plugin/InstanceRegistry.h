#pragma once

#include "foundation/CriticalSection.h"
#include "plugin/ControllerMapping.h"
#include "plugin/GenericPlugin.h"

#include <functional>
#include <memory>
#include <vector>

// Reaches another instance by identifier, safely even while that instance is destroyed: every
// operation takes the registry lock, finds the target and forwards, or answers defaults (0,
// empty, nothing done) when the target is gone. A proxy never owns its target. Copies keep the
// identifier and the cached slot and get their own source proxies.
class GenericPlugin::InstanceProxy : public GenericPluginAbstractInstance {
public:
    class InstanceAudioSource;
    class InstanceLevelSource;

    // A proxy for nothing.
    InstanceProxy();
    InstanceProxy(const InstanceProxy& other);
    InstanceProxy& operator=(const InstanceProxy& other);
    ~InstanceProxy() override;

    uint32_t getInstanceIdentifier() override { return identifier; }
    std::string getInstanceName() override;
    uint32_t getInstanceColour() override;
    std::string getTrackName() override;
    int32_t getParameterCount() const override;
    float getParameterPlain(int32_t index) override;
    void setParameterPlain(int32_t index, float plain) override;
    void beginEdit(int32_t index) override;
    void endEdit(int32_t index) override;
    bool readState(std::istream& stream, ErrorReporter& errors) override;

    // One proxy per source the target had when this proxy was made; they outlive the target.
    int32_t getNumAudioSources() override { return static_cast<int32_t>(audioSources.size()); }
    AudioSource* getAudioSource(int32_t index) override;
    int32_t getNumLevelSources() override { return static_cast<int32_t>(levelSources.size()); }
    ChannelLevelSource* getLevelSource(int32_t index) override;

    bool isTargetAlive();
    int32_t getCachedSlot() const { return slot; }
    int32_t getLockCount() const { return lockCount; }

private:
    friend class InstanceRegistry;

    InstanceProxy(uint32_t identifier, int32_t slot, int32_t numAudioSources, int32_t numLevelSources);
    void createSourceProxies(int32_t numAudioSources, int32_t numLevelSources);
    // Caller holds the registry lock.
    GenericPlugin* resolve();

    int32_t lockCount = 0;
    uint32_t identifier = kNoIdentifier;
    // mutable: resolving from a const query may move the cached slot.
    mutable int32_t slot = -1;
    std::vector<std::unique_ptr<InstanceLevelSource>> levelSources;
    std::vector<std::unique_ptr<InstanceAudioSource>> audioSources;
};

// Another instance's audio source. The registry lock is held from lock to unlock, so the target
// cannot go away while its audio is read; the outermost lock through the proxy also asks the
// target's processor, at most every kKeepAliveInterval seconds, to keep streaming. lock and
// unlock must be called on the same thread.
class GenericPlugin::InstanceProxy::InstanceAudioSource : public AudioSource {
public:
    InstanceAudioSource(InstanceProxy& owner, int32_t index) : owner(owner), index(index) {}

    void lock() override;
    void unlock() override;
    // Between lock and unlock, the target's answers; otherwise (or with no target) 0 and null.
    int32_t getSampleRate() override;
    const float* getChannelData(int32_t channel, int32_t block) override;
    int32_t getNumChannels() override;
    int32_t getBlockLength() override;

private:
    InstanceProxy& owner;
    int32_t index;
    int32_t depth = 0;
    AudioSource* locked = nullptr;
};

// Another instance's levels. A reading holds the registry lock from beginReading to
// endReading (same thread); every answer is 0 when the target is gone.
class GenericPlugin::InstanceProxy::InstanceLevelSource : public ChannelLevelSource {
public:
    InstanceLevelSource(InstanceProxy& owner, int32_t index) : owner(owner), index(index) {}

    void beginReading() override;
    void endReading() override;
    int32_t getNumChannels() override;
    float getLevel(int32_t channel) override;

private:
    ChannelLevelSource* resolveTarget();

    InstanceProxy& owner;
    int32_t index;
    int32_t depth = 0;
    ChannelLevelSource* reading = nullptr;
};

// The process-wide list of live instances and the services they share. One recursive lock
// guards all of it; it is taken by the user-interface thread of any instance and by analysis
// threads that read other instances' sources through proxies, never by the audio thread.
//
// Identifiers are given lazily, in the order in which instances are first looked at, and are
// never reused while the list lives: the counter restarts at 0 only when an instance registers
// into an empty list.
class InstanceRegistry {
public:
    // Monotonic seconds; replaceable so that keep-alive timing can be tested.
    using Clock = double (*)();

    static InstanceRegistry& instance();

    void setClock(Clock newClock);

    // Calls visit with a proxy of every registered instance, in registration order, under the lock.
    void forEachInstance(const std::function<void(GenericPlugin::InstanceProxy&)>& visit);
    int32_t getNumInstances();
    GenericPlugin::InstanceProxy makeProxy(GenericPlugin& plugin);

private:
    friend class GenericPlugin;
    friend class GenericPlugin::InstanceProxy;
    friend class GenericPlugin::InstanceProxy::InstanceAudioSource;
    friend class GenericPlugin::InstanceProxy::InstanceLevelSource;

    InstanceRegistry();

    // Both under the lock. The first instance creates the shared services, the last one
    // releases them.
    void registerInstance(GenericPlugin& plugin, HostKind hostKind);
    void unregisterInstance(GenericPlugin& plugin);
    // The target of a proxy: by the cached slot, else by scanning (which updates the slot);
    // null when it is gone. Caller holds the lock.
    GenericPlugin* resolve(uint32_t identifier, int32_t& slot);
    void assignIdentifier(GenericPlugin& plugin);
    GenericPlugin::InstanceProxy makeProxyLocked(GenericPlugin& plugin, int32_t slot);
    double now() const { return clock(); }

    PosixCriticalSection lock;
    std::vector<GenericPlugin*> instances;
    uint32_t nextIdentifier = 0;
    Clock clock;

    HostKind hostKind = HostKind::Unknown;
    std::unique_ptr<GenericPlugin::SharedSettings> sharedSettings;
    std::unique_ptr<GenericPlugin::Settings> settings;
    std::unique_ptr<ControllerMapping> controllerMapping;
};
