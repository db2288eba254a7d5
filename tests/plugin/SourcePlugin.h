#pragma once

#include "plugin/GenericPlugin.h"

#include <atomic>
#include <cstdint>
#include <vector>

namespace testing_support {

// Audio of constant samples in blocks; counts how often it is locked.
class ConstantAudio : public AudioSource {
public:
    ConstantAudio(float sample, int32_t channels, int32_t blocks, int32_t length)
        : samples(static_cast<size_t>(channels * blocks * length), sample), channels(channels),
          blocks(blocks), length(length) {}

    void lock() override { ++locks; }
    void unlock() override { --locks; }
    int32_t getSampleRate() override { return 48000; }
    const float* getChannelData(int32_t channel, int32_t block) override {
        if (channel < 0 || channel >= channels || block < 0 || block >= blocks)
            return nullptr;
        return samples.data() + (channel * blocks + block) * length;
    }
    int32_t getNumChannels() override { return channels; }
    int32_t getBlockLength() override { return length; }

    // The readers' lock depth; 0 whenever nobody reads.
    std::atomic<int> locks{0};

private:
    std::vector<float> samples;
    int32_t channels;
    int32_t blocks;
    int32_t length;
};

// Fixed levels, channel c at base - c dB.
class FixedLevels : public ChannelLevelSource {
public:
    explicit FixedLevels(float base) : base(base) {}
    void beginReading() override { ++readings; }
    void endReading() override { --readings; }
    int32_t getNumChannels() override { return 2; }
    float getLevel(int32_t channel) override { return channel >= 0 && channel < 2 ? base - channel : 0.0f; }

    std::atomic<int> readings{0};

private:
    float base;
};

// A small product with three parameters, two audio sources (the second without a target) and one
// level source, whose samples and levels tell instances apart.
class SourcePlugin : public GenericPlugin {
public:
    explicit SourcePlugin(float mark, std::string instanceName = {}) : audio(mark, 2, 3, 32), levels(mark) {
        setNumSourceSlots(2, 1);
        getAudioSourceSlot(0).setTarget(&audio);
        getLevelSourceSlot(0).setTarget(&levels);
        setInstanceName(std::move(instanceName));
    }
    ~SourcePlugin() override { terminate(); }

    FloatPluginParameter gain{*this, "Gain", -30.0f, 30.0f, 0.0f};
    FloatPluginParameter frequency{*this, "Frequency", 3.0f, 15.0f, 10.0f};
    IndexedPluginParameter<bool> active{*this, "Active", "Off,On", 0};

    ConstantAudio audio;
    FixedLevels levels;
};

} // namespace testing_support
