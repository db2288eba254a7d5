#include "plugin/InstanceSources.h"

void AudioSourceProxy::setTarget(AudioSource* newTarget) {
    ScopedLocker locker(criticalSection());
    target = newTarget;
}

void AudioSourceProxy::lock() {
    LockedObject::lock();
    if (target != nullptr)
        target->lock();
}

void AudioSourceProxy::unlock() {
    if (target != nullptr)
        target->unlock();
    LockedObject::unlock();
}

int32_t AudioSourceProxy::getSampleRate() {
    ScopedLocker locker(criticalSection());
    return target != nullptr ? target->getSampleRate() : 0;
}

const float* AudioSourceProxy::getChannelData(int32_t channel, int32_t block) {
    ScopedLocker locker(criticalSection());
    return target != nullptr ? target->getChannelData(channel, block) : nullptr;
}

int32_t AudioSourceProxy::getNumChannels() {
    ScopedLocker locker(criticalSection());
    return target != nullptr ? target->getNumChannels() : 0;
}

int32_t AudioSourceProxy::getBlockLength() {
    ScopedLocker locker(criticalSection());
    return target != nullptr ? target->getBlockLength() : 0;
}

void LevelSourceProxy::setTarget(ChannelLevelSource* newTarget) {
    ScopedLocker locker(criticalSection());
    target = newTarget;
}

void LevelSourceProxy::beginReading() {
    LockedObject::lock();
    if (target != nullptr)
        target->beginReading();
}

void LevelSourceProxy::endReading() {
    if (target != nullptr)
        target->endReading();
    LockedObject::unlock();
}

int32_t LevelSourceProxy::getNumChannels() {
    ScopedLocker locker(criticalSection());
    return target != nullptr ? target->getNumChannels() : 0;
}

float LevelSourceProxy::getLevel(int32_t channel) {
    ScopedLocker locker(criticalSection());
    return target != nullptr ? target->getLevel(channel) : 0.0f;
}
