#include "plugin/InstanceRegistry.h"

#include "plugin/ControllerMapping.h"
#include "plugin/GenericPluginSettings.h"

#include <algorithm>
#include <chrono>

namespace {

double monotonicSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

} // namespace

InstanceRegistry& InstanceRegistry::instance() {
    static InstanceRegistry registry;
    return registry;
}

InstanceRegistry::InstanceRegistry() : clock(monotonicSeconds) {}

void InstanceRegistry::setClock(Clock newClock) {
    ScopedLocker locker(&lock);
    clock = newClock != nullptr ? newClock : monotonicSeconds;
}

void InstanceRegistry::forEachInstance(const std::function<void(GenericPlugin::InstanceProxy&)>& visit) {
    ScopedLocker locker(&lock);
    // Indexed afresh each step: a visitor may create or destroy instances on this thread.
    for (size_t i = 0; i < instances.size(); ++i) {
        GenericPlugin::InstanceProxy proxy = makeProxyLocked(*instances[i], static_cast<int32_t>(i));
        visit(proxy);
    }
}

int32_t InstanceRegistry::getNumInstances() {
    ScopedLocker locker(&lock);
    return static_cast<int32_t>(instances.size());
}

GenericPlugin::InstanceProxy InstanceRegistry::makeProxy(GenericPlugin& plugin) {
    ScopedLocker locker(&lock);
    const auto found = std::find(instances.begin(), instances.end(), &plugin);
    return makeProxyLocked(plugin,
                           found == instances.end() ? -1 : static_cast<int32_t>(found - instances.begin()));
}

GenericPlugin::InstanceProxy InstanceRegistry::makeProxyLocked(GenericPlugin& plugin, int32_t slot) {
    assignIdentifier(plugin);
    return GenericPlugin::InstanceProxy(plugin.identifier, slot, plugin.getNumAudioSources(),
                                        plugin.getNumLevelSources());
}

void InstanceRegistry::registerInstance(GenericPlugin& plugin, HostKind kind) {
    ScopedLocker locker(&lock);
    if (instances.empty()) {
        nextIdentifier = 0;
        hostKind = kind;
        sharedSettings = plugin.createSharedSettings();
        sharedSettings->load();
        controllerMapping = std::make_unique<ControllerMapping>();
        controllerMapping->loadFile(ControllerMapping::filePath());
        settings = plugin.createSettings();
        settings->load();
    }
    sharedSettings->markLoaded();
    settings->markLoaded();
    instances.push_back(&plugin);
}

void InstanceRegistry::unregisterInstance(GenericPlugin& plugin) {
    ScopedLocker locker(&lock);
    const auto found = std::find(instances.begin(), instances.end(), &plugin);
    if (found == instances.end())
        return;
    instances.erase(found);
    if (!instances.empty())
        return;
    // Settings are written on every change, so releasing them loses nothing.
    settings.reset();
    controllerMapping.reset();
    sharedSettings.reset();
}

void InstanceRegistry::assignIdentifier(GenericPlugin& plugin) {
    if (plugin.identifier == GenericPlugin::kNoIdentifier)
        plugin.identifier = nextIdentifier++;
}

GenericPlugin* InstanceRegistry::resolve(uint32_t identifier, int32_t& slot) {
    const int32_t count = static_cast<int32_t>(instances.size());
    if (slot >= 0 && slot < count) {
        GenericPlugin& cached = *instances[static_cast<size_t>(slot)];
        assignIdentifier(cached);
        if (cached.identifier == identifier)
            return &cached;
    }
    for (int32_t i = 0; i < count; ++i) {
        GenericPlugin& candidate = *instances[static_cast<size_t>(i)];
        assignIdentifier(candidate);
        if (candidate.identifier == identifier) {
            slot = i;
            return &candidate;
        }
    }
    return nullptr;
}

GenericPlugin::InstanceProxy::InstanceProxy() = default;

GenericPlugin::InstanceProxy::InstanceProxy(uint32_t identifier_, int32_t slot_, int32_t numAudioSources,
                                            int32_t numLevelSources)
    : identifier(identifier_), slot(slot_) {
    createSourceProxies(numAudioSources, numLevelSources);
}

GenericPlugin::InstanceProxy::InstanceProxy(const InstanceProxy& other)
    : identifier(other.identifier), slot(other.slot) {
    createSourceProxies(static_cast<int32_t>(other.audioSources.size()),
                        static_cast<int32_t>(other.levelSources.size()));
}

GenericPlugin::InstanceProxy& GenericPlugin::InstanceProxy::operator=(const InstanceProxy& other) {
    if (this != &other) {
        identifier = other.identifier;
        slot = other.slot;
        createSourceProxies(static_cast<int32_t>(other.audioSources.size()),
                            static_cast<int32_t>(other.levelSources.size()));
    }
    return *this;
}

GenericPlugin::InstanceProxy::~InstanceProxy() = default;

void GenericPlugin::InstanceProxy::createSourceProxies(int32_t numAudioSources, int32_t numLevelSources) {
    audioSources.clear();
    levelSources.clear();
    for (int32_t i = 0; i < numAudioSources; ++i)
        audioSources.push_back(std::make_unique<InstanceAudioSource>(*this, i));
    for (int32_t i = 0; i < numLevelSources; ++i)
        levelSources.push_back(std::make_unique<InstanceLevelSource>(*this, i));
}

GenericPlugin* GenericPlugin::InstanceProxy::resolve() {
    return InstanceRegistry::instance().resolve(identifier, slot);
}

bool GenericPlugin::InstanceProxy::isTargetAlive() {
    ScopedLocker locker(&InstanceRegistry::instance().lock);
    return resolve() != nullptr;
}

std::string GenericPlugin::InstanceProxy::getInstanceName() {
    ScopedLocker locker(&InstanceRegistry::instance().lock);
    GenericPlugin* target = resolve();
    return target != nullptr ? target->getInstanceName() : std::string();
}

uint32_t GenericPlugin::InstanceProxy::getInstanceColour() {
    ScopedLocker locker(&InstanceRegistry::instance().lock);
    GenericPlugin* target = resolve();
    return target != nullptr ? target->getInstanceColour() : 0;
}

std::string GenericPlugin::InstanceProxy::getTrackName() {
    ScopedLocker locker(&InstanceRegistry::instance().lock);
    GenericPlugin* target = resolve();
    return target != nullptr ? target->getTrackName() : std::string();
}

int32_t GenericPlugin::InstanceProxy::getParameterCount() const {
    ScopedLocker locker(&InstanceRegistry::instance().lock);
    GenericPlugin* target = InstanceRegistry::instance().resolve(identifier, slot);
    return target != nullptr ? target->getParameterCount() : 0;
}

float GenericPlugin::InstanceProxy::getParameterPlain(int32_t index) {
    ScopedLocker locker(&InstanceRegistry::instance().lock);
    GenericPlugin* target = resolve();
    return target != nullptr ? target->getParameterPlain(index) : 0.0f;
}

void GenericPlugin::InstanceProxy::setParameterPlain(int32_t index, float plain) {
    ScopedLocker locker(&InstanceRegistry::instance().lock);
    if (GenericPlugin* target = resolve())
        target->setParameterPlain(index, plain);
}

void GenericPlugin::InstanceProxy::beginEdit(int32_t index) {
    ScopedLocker locker(&InstanceRegistry::instance().lock);
    if (GenericPlugin* target = resolve())
        target->beginEdit(index);
}

void GenericPlugin::InstanceProxy::endEdit(int32_t index) {
    ScopedLocker locker(&InstanceRegistry::instance().lock);
    if (GenericPlugin* target = resolve())
        target->endEdit(index);
}

bool GenericPlugin::InstanceProxy::readState(std::istream& stream, ErrorReporter& errors) {
    ScopedLocker locker(&InstanceRegistry::instance().lock);
    GenericPlugin* target = resolve();
    return target != nullptr && target->readState(stream, errors);
}

AudioSource* GenericPlugin::InstanceProxy::getAudioSource(int32_t index) {
    if (index < 0 || index >= getNumAudioSources())
        return nullptr;
    return audioSources[static_cast<size_t>(index)].get();
}

ChannelLevelSource* GenericPlugin::InstanceProxy::getLevelSource(int32_t index) {
    if (index < 0 || index >= getNumLevelSources())
        return nullptr;
    return levelSources[static_cast<size_t>(index)].get();
}

void GenericPlugin::InstanceProxy::InstanceAudioSource::lock() {
    InstanceRegistry& registry = InstanceRegistry::instance();
    registry.lock.lock();
    ++owner.lockCount;
    if (++depth > 1)
        return;
    GenericPlugin* target = owner.resolve();
    if (target == nullptr)
        return;
    if (owner.lockCount == 1)
        target->keepAudioStreaming(registry.now());
    if (AudioSource* source = target->getAudioSource(index)) {
        source->lock();
        locked = source;
    }
}

void GenericPlugin::InstanceProxy::InstanceAudioSource::unlock() {
    if (depth == 0)
        return;
    if (--depth == 0 && locked != nullptr) {
        locked->unlock();
        locked = nullptr;
    }
    --owner.lockCount;
    InstanceRegistry::instance().lock.unlock();
}

int32_t GenericPlugin::InstanceProxy::InstanceAudioSource::getSampleRate() {
    return locked != nullptr ? locked->getSampleRate() : 0;
}

const float* GenericPlugin::InstanceProxy::InstanceAudioSource::getChannelData(int32_t channel,
                                                                               int32_t block) {
    return locked != nullptr ? locked->getChannelData(channel, block) : nullptr;
}

int32_t GenericPlugin::InstanceProxy::InstanceAudioSource::getNumChannels() {
    return locked != nullptr ? locked->getNumChannels() : 0;
}

int32_t GenericPlugin::InstanceProxy::InstanceAudioSource::getBlockLength() {
    return locked != nullptr ? locked->getBlockLength() : 0;
}

ChannelLevelSource* GenericPlugin::InstanceProxy::InstanceLevelSource::resolveTarget() {
    GenericPlugin* target = owner.resolve();
    return target != nullptr ? target->getLevelSource(index) : nullptr;
}

void GenericPlugin::InstanceProxy::InstanceLevelSource::beginReading() {
    InstanceRegistry::instance().lock.lock();
    if (++depth > 1)
        return;
    reading = resolveTarget();
    if (reading != nullptr)
        reading->beginReading();
}

void GenericPlugin::InstanceProxy::InstanceLevelSource::endReading() {
    if (depth == 0)
        return;
    if (--depth == 0 && reading != nullptr) {
        reading->endReading();
        reading = nullptr;
    }
    InstanceRegistry::instance().lock.unlock();
}

int32_t GenericPlugin::InstanceProxy::InstanceLevelSource::getNumChannels() {
    ScopedLocker locker(&InstanceRegistry::instance().lock);
    ChannelLevelSource* target = resolveTarget();
    return target != nullptr ? target->getNumChannels() : 0;
}

float GenericPlugin::InstanceProxy::InstanceLevelSource::getLevel(int32_t channel) {
    ScopedLocker locker(&InstanceRegistry::instance().lock);
    ChannelLevelSource* target = resolveTarget();
    return target != nullptr ? target->getLevel(channel) : 0.0f;
}
