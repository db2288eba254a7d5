#include "SourcePlugin.h"

#include "plugin/InstanceRegistry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>

using testing_support::SourcePlugin;

namespace {

constexpr float kMark = 0.375f;

// Counts keep-alives, which arrive on the reader's thread.
class KeepAliveCounter : public GenericPlugin::Adapter {
public:
    void parameterChanged(int32_t, double) override {}
    void controllerMappingChanged() override {}
    void endEdit(int32_t) override {}
    void setupWordChanged() override {}
    void latencyChanged() override {}
    void playMidiMessage(uint8_t, uint8_t, uint8_t) override {}
    void parametersUpdated(int32_t) override {}
    void presetNameChanged(bool) override {}
    void realTimeDataWanted() override {}
    void sendDataBlock(uint32_t, std::span<const uint8_t>) override { count.fetch_add(1); }
    void beginEdit(int32_t) override {}

    std::atomic<int> count{0};
};

// Reads every instance's audio and levels through proxies, keeping stale proxies around so that
// destroyed targets are read as well. Every sample it gets must be an instance's mark.
struct Reader {
    void run(const std::atomic<bool>& running) {
        std::vector<GenericPlugin::InstanceProxy> proxies;
        while (running.load()) {
            InstanceRegistry::instance().forEachInstance(
                [&](GenericPlugin::InstanceProxy& proxy) { proxies.push_back(proxy); });
            for (GenericPlugin::InstanceProxy& proxy : proxies)
                read(proxy);
            if (proxies.size() > 64)
                proxies.erase(proxies.begin(), proxies.begin() + 48);
        }
    }

    void read(GenericPlugin::InstanceProxy& proxy) {
        AudioSource* audio = proxy.getAudioSource(0);
        audio->lock();
        for (int32_t block = 0; const float* samples = audio->getChannelData(1, block); ++block) {
            for (int32_t i = 0; i < audio->getBlockLength(); ++i)
                wrongSamples += samples[i] != kMark ? 1 : 0;
            blocksRead.fetch_add(1);
        }
        audio->unlock();
        ChannelLevelSource* levels = proxy.getLevelSource(0);
        levels->beginReading();
        const float level = levels->getLevel(0);
        wrongLevels += level != kMark && level != 0.0f ? 1 : 0;
        levels->endReading();
        reads.fetch_add(1);
    }

    std::atomic<long> reads{0};
    std::atomic<long> blocksRead{0};
    long wrongSamples = 0;
    long wrongLevels = 0;
};

} // namespace

// Instances are created and destroyed on this thread (the host's user-interface thread) while
// another thread reads their sources through the registry: no sample may come from freed memory
// and (under ThreadSanitizer) no access may race.
TEST(RegistryStress, InstancesComeAndGoWhileAnotherThreadReadsThem) {
    KeepAliveCounter keepAlives;
    // Keeps the list from emptying, so the shared services stay put.
    SourcePlugin anchor(kMark);
    anchor.initialise(HostKind::Vst3);

    std::atomic<bool> running{true};
    Reader reader;
    std::thread readerThread([&] { reader.run(running); });

    std::mt19937 random(7);
    std::vector<std::unique_ptr<SourcePlugin>> live;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    int created = 0;
    while ((created < 400 || reader.reads.load() < 2000) && std::chrono::steady_clock::now() < deadline) {
        if (live.size() < 8 && random() % 3 != 0) {
            auto plugin = std::make_unique<SourcePlugin>(kMark);
            plugin->setAdapter(&keepAlives);
            plugin->initialise(HostKind::Vst3);
            live.push_back(std::move(plugin));
            ++created;
        } else if (!live.empty()) {
            live.erase(live.begin() + static_cast<long>(random() % live.size()));
        }
        std::this_thread::yield();
    }
    live.clear();
    running = false;
    readerThread.join();

    EXPECT_GE(created, 400);
    EXPECT_GT(reader.blocksRead.load(), 0);
    EXPECT_GT(keepAlives.count.load(), 0);
    EXPECT_EQ(reader.wrongSamples, 0);
    EXPECT_EQ(reader.wrongLevels, 0);
    EXPECT_EQ(anchor.audio.locks.load(), 0);
}
