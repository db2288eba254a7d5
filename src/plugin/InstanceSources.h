#pragma once

#include "foundation/CriticalSection.h"

#include <cstdint>

// The interfaces through which audio and levels cross thread and instance boundaries. Readers
// bracket every access with lock and unlock (which may nest); between them the source keeps the
// data it exposes alive. Reading threads: the user-interface thread of any instance and
// analysis threads; never the audio thread.
class LockedSource {
public:
    virtual ~LockedSource() = default;
    virtual void lock() = 0;
    virtual void unlock() = 0;
};

// Captured audio in blocks of equal length. Valid only while locked.
class AudioSource : public LockedSource {
public:
    virtual int32_t getSampleRate() = 0;
    // The samples of one block of one channel; null past the last channel or block.
    virtual const float* getChannelData(int32_t channel, int32_t block) = 0;
    virtual int32_t getNumChannels() = 0;
    virtual int32_t getBlockLength() = 0;
};

// The levels of several channels read together (one instance's meters). A reading is bracketed
// by beginReading and endReading so that all channels come from one hand-over.
class ChannelLevelSource {
public:
    virtual ~ChannelLevelSource() = default;
    virtual void beginReading() = 0;
    virtual void endReading() = 0;
    virtual int32_t getNumChannels() = 0;
    // In the source's display unit (dB for meters); 0 for a channel it does not have.
    virtual float getLevel(int32_t channel) = 0;
};

// A source slot whose target another component may set, replace or clear at any time; readers
// keep working and get empty answers while there is no target. The slot's own lock is held from
// lock to unlock, so a target is never swapped under a reader.
class AudioSourceProxy : public AudioSource, private LockedObject {
public:
    // Waits for readers that hold the slot; the old target may be destroyed afterwards. Never
    // called by a reader between its own lock and unlock.
    void setTarget(AudioSource* newTarget);

    void lock() override;
    void unlock() override;
    int32_t getSampleRate() override;
    const float* getChannelData(int32_t channel, int32_t block) override;
    int32_t getNumChannels() override;
    int32_t getBlockLength() override;

private:
    AudioSource* target = nullptr;
};

class LevelSourceProxy : public ChannelLevelSource, private LockedObject {
public:
    // Waits for a reading in progress on another thread; the old target may be destroyed afterwards.
    void setTarget(ChannelLevelSource* newTarget);

    void beginReading() override;
    void endReading() override;
    int32_t getNumChannels() override;
    float getLevel(int32_t channel) override;

private:
    ChannelLevelSource* target = nullptr;
};
