#include "ModelTestSupport.h"
#include "SourcePlugin.h"

#include "plugin/ErrorReporter.h"
#include "plugin/InstanceRegistry.h"
#include "plugin/PluginSnapshots.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

using testing_support::RecordingAdapter;
using testing_support::SourcePlugin;

namespace {

std::unique_ptr<SourcePlugin> makeInstance(float mark, std::string name = {}) {
    auto plugin = std::make_unique<SourcePlugin>(mark, std::move(name));
    plugin->initialise(HostKind::Vst3);
    return plugin;
}

std::vector<uint32_t> identifiersInListOrder() {
    std::vector<uint32_t> identifiers;
    InstanceRegistry::instance().forEachInstance(
        [&](GenericPlugin::InstanceProxy& proxy) { identifiers.push_back(proxy.getInstanceIdentifier()); });
    return identifiers;
}

double fakeSeconds = 0.0;
double fakeClock() {
    return fakeSeconds;
}

// Keep-alive timing runs on a clock the test moves.
class KeepAlive : public ::testing::Test {
protected:
    void SetUp() override {
        fakeSeconds = 1000.0;
        InstanceRegistry::instance().setClock(fakeClock);
        target->setAdapter(&adapter);
    }
    void TearDown() override { InstanceRegistry::instance().setClock(nullptr); }

    void readAudioOnce(GenericPlugin::InstanceProxy& proxy) {
        AudioSource* audio = proxy.getAudioSource(0);
        audio->lock();
        audio->unlock();
    }

    RecordingAdapter adapter;
    std::unique_ptr<SourcePlugin> target = makeInstance(0.5f);
    GenericPlugin::InstanceProxy proxy = InstanceRegistry::instance().makeProxy(*target);
};

} // namespace

TEST(InstanceRegistry, IdentifiersFollowTheOrderInstancesAreFirstLookedAt) {
    auto a = makeInstance(1.0f);
    auto b = makeInstance(2.0f);
    auto c = makeInstance(3.0f);
    EXPECT_EQ(c->getInstanceIdentifier(), 0u);
    // Enumeration visits the list in registration order and names the others as it goes.
    EXPECT_EQ(identifiersInListOrder(), (std::vector<uint32_t>{1, 2, 0}));
    EXPECT_EQ(a->getInstanceIdentifier(), 1u);

    // Identifiers are not reused while the list lives.
    b.reset();
    auto d = makeInstance(4.0f);
    EXPECT_EQ(d->getInstanceIdentifier(), 3u);
    a.reset();
    c.reset();
    d.reset();
    // Registering into an empty list starts again at 0.
    auto e = makeInstance(5.0f);
    EXPECT_EQ(identifiersInListOrder(), std::vector<uint32_t>{0});
}

TEST(InstanceProxy, FindsItsTargetAfterItsSlotMoved) {
    auto first = makeInstance(1.0f, "First");
    auto second = makeInstance(2.0f, "Second");
    GenericPlugin::InstanceProxy proxy = InstanceRegistry::instance().makeProxy(*second);
    EXPECT_EQ(proxy.getCachedSlot(), 1);
    first.reset();
    EXPECT_EQ(proxy.getInstanceName(), "Second");
    EXPECT_EQ(proxy.getCachedSlot(), 0);
    // A copy keeps identifier and slot but has sources of its own.
    GenericPlugin::InstanceProxy copy = proxy;
    EXPECT_EQ(copy.getInstanceIdentifier(), proxy.getInstanceIdentifier());
    EXPECT_EQ(copy.getCachedSlot(), 0);
    EXPECT_NE(copy.getAudioSource(0), proxy.getAudioSource(0));
    EXPECT_EQ(copy.getNumLevelSources(), 1);
}

TEST(InstanceProxy, ForwardsToALiveTarget) {
    auto target = makeInstance(0.25f, "Kick");
    RecordingAdapter adapter;
    target->setAdapter(&adapter);
    target->setTrackInfo("Kick In", 0xFF336699u);
    target->startHistory();
    GenericPlugin::InstanceProxy proxy = InstanceRegistry::instance().makeProxy(*target);

    EXPECT_EQ(proxy.getInstanceName(), "Kick");
    EXPECT_EQ(proxy.getTrackName(), "Kick In");
    EXPECT_EQ(proxy.getInstanceColour(), 0xFF336699u);
    EXPECT_EQ(proxy.getParameterCount(), 3);

    const int32_t gain = target->gain.getIndex();
    proxy.beginEdit(gain);
    proxy.setParameterPlain(gain, -12.0f);
    proxy.endEdit(gain);
    EXPECT_FLOAT_EQ(target->gain.getValue(), -12.0f);
    EXPECT_FLOAT_EQ(proxy.getParameterPlain(gain), -12.0f);
    // The target's host records the edit and the target's history has a step.
    EXPECT_EQ(adapter.calls, (std::vector<std::string>{"begin 0", "perform 0", "dirty", "end 0"}));
    EXPECT_EQ(target->getUndoHistory().getUndoCount(), 1);

    AudioSource* audio = proxy.getAudioSource(0);
    audio->lock();
    EXPECT_EQ(target->audio.locks.load(), 1);
    EXPECT_EQ(audio->getSampleRate(), 48000);
    EXPECT_EQ(audio->getNumChannels(), 2);
    EXPECT_EQ(audio->getBlockLength(), 32);
    EXPECT_EQ(audio->getChannelData(1, 2), target->audio.getChannelData(1, 2));
    EXPECT_EQ(audio->getChannelData(1, 3), nullptr);
    audio->unlock();
    EXPECT_EQ(target->audio.locks.load(), 0);
    EXPECT_EQ(audio->getChannelData(0, 0), nullptr); // only between lock and unlock

    ChannelLevelSource* levels = proxy.getLevelSource(0);
    levels->beginReading();
    EXPECT_EQ(target->levels.readings.load(), 1);
    EXPECT_EQ(levels->getNumChannels(), 2);
    EXPECT_FLOAT_EQ(levels->getLevel(1), -0.75f);
    levels->endReading();
    EXPECT_EQ(target->levels.readings.load(), 0);
}

TEST(InstanceProxy, AnswersDefaultsOnceItsTargetIsGone) {
    // Proxies live in instances, so the list never empties under them (an empty list restarts
    // the identifiers).
    auto bystander = makeInstance(0.1f, "Bystander");
    auto target = makeInstance(0.25f, "Snare");
    const int32_t gain = target->gain.getIndex();
    target->setParameterPlain(gain, 6.0f);
    GenericPlugin::InstanceProxy proxy = InstanceRegistry::instance().makeProxy(*target);
    EXPECT_TRUE(proxy.isTargetAlive());
    target.reset();
    // Another instance now lives where the target was.
    auto other = makeInstance(0.75f, "Other");

    EXPECT_FALSE(proxy.isTargetAlive());
    EXPECT_EQ(proxy.getParameterPlain(gain), 0.0f);
    proxy.setParameterPlain(gain, 9.0f);
    proxy.beginEdit(gain);
    proxy.endEdit(gain);
    EXPECT_FLOAT_EQ(other->gain.getValue(), 0.0f);
    EXPECT_EQ(proxy.getParameterCount(), 0);
    EXPECT_EQ(proxy.getInstanceName(), "");
    EXPECT_EQ(proxy.getInstanceColour(), 0u);
    std::istringstream chunk("[SourcePreset]\n");
    ErrorReporter errors;
    EXPECT_FALSE(proxy.readState(chunk, errors));

    AudioSource* audio = proxy.getAudioSource(0);
    audio->lock();
    EXPECT_EQ(audio->getChannelData(0, 0), nullptr);
    EXPECT_EQ(audio->getNumChannels(), 0);
    audio->unlock();
    EXPECT_EQ(other->audio.locks.load(), 0);
    ChannelLevelSource* levels = proxy.getLevelSource(0);
    levels->beginReading();
    EXPECT_EQ(levels->getNumChannels(), 0);
    EXPECT_EQ(levels->getLevel(0), 0.0f);
    levels->endReading();
    EXPECT_EQ(proxy.getAudioSource(2), nullptr);
}

TEST(InstanceProxy, ASourceWhoseTargetWasClearedReadsAsEmpty) {
    auto target = makeInstance(0.25f);
    GenericPlugin::InstanceProxy proxy = InstanceRegistry::instance().makeProxy(*target);
    target->getAudioSourceSlot(0).setTarget(nullptr);
    AudioSource* audio = proxy.getAudioSource(0);
    audio->lock();
    EXPECT_EQ(audio->getChannelData(0, 0), nullptr);
    EXPECT_EQ(audio->getSampleRate(), 0);
    audio->unlock();
    EXPECT_EQ(target->audio.locks.load(), 0);
}

TEST_F(KeepAlive, ReadingTwiceWithinFiveSecondsSendsOneRequest) {
    readAudioOnce(proxy);
    fakeSeconds += 4.9;
    readAudioOnce(proxy);
    EXPECT_EQ(adapter.keepAlives.load(), 1);
    fakeSeconds += 0.1; // five seconds after the first request
    readAudioOnce(proxy);
    EXPECT_EQ(adapter.keepAlives.load(), 2);
}

TEST_F(KeepAlive, NestedLocksThroughOneProxyAskOnlyOnce) {
    AudioSource* audio = proxy.getAudioSource(0);
    AudioSource* other = proxy.getAudioSource(1);
    audio->lock();
    fakeSeconds += 10.0;
    other->lock();
    audio->lock();
    EXPECT_EQ(proxy.getLockCount(), 3);
    EXPECT_EQ(other->getChannelData(0, 0), nullptr); // a slot without a target
    audio->unlock();
    other->unlock();
    audio->unlock();
    EXPECT_EQ(proxy.getLockCount(), 0);
    EXPECT_EQ(adapter.keepAlives.load(), 1);
    EXPECT_EQ(target->audio.locks.load(), 0);
}

TEST_F(KeepAlive, NothingIsSentWithoutAProcessorLink) {
    target->setProcessorLinkAvailable(false);
    readAudioOnce(proxy);
    target->setProcessorLinkAvailable(true);
    target->setAdapter(nullptr);
    fakeSeconds += 6.0;
    readAudioOnce(proxy);
    EXPECT_EQ(adapter.keepAlives.load(), 0);
    // Once the link is back the next reader asks at once.
    target->setAdapter(&adapter);
    readAudioOnce(proxy);
    EXPECT_EQ(adapter.keepAlives.load(), 1);
}
