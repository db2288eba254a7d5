#include "GraphTestUtil.h"

#include "wave/Environment.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using graph_test::LoggingProducer;
using wave::Environment;
using Strings = std::vector<std::string>;

namespace {

class RecordingRateListener : public wave::SampleRateListener {
public:
    RecordingRateListener(std::string name, Strings& log) : name(std::move(name)), log(log) {}
    void sampleRateChanged(float) override { log.push_back(name); }

private:
    std::string name;
    Strings& log;
};

Strings scheduleNames(const Environment& environment, const std::vector<const LoggingProducer*>& producers,
                      const Strings& names) {
    Strings result;
    for (const auto* entry : environment.getSchedule())
        for (size_t i = 0; i < producers.size(); ++i)
            if (entry == producers[i])
                result.push_back(names[i]);
    return result;
}

} // namespace

TEST(EnvironmentTimeConversion, MillisecondsSecondsAndSamples) {
    Environment environment(64, 0);
    EXPECT_FLOAT_EQ(environment.getSampleRate(), 44100.0f);
    environment.setSampleRate(48000.0f);
    EXPECT_EQ(environment.msToSamples(50.0), 2400);
    EXPECT_EQ(environment.msToSamples(0.03), 1);   // 1.44 samples truncate
    EXPECT_EQ(environment.msToSamples(-0.03), -1); // toward zero
    EXPECT_EQ(Environment::msToSamples(1.9, 1000.0), 1);
    EXPECT_EQ(environment.secondsToSamples(0.5), 24000);
    EXPECT_EQ(environment.secondsToSamples(0.99999), 47999);

    EXPECT_DOUBLE_EQ(environment.samplesToMs(0), 0.0);
    EXPECT_NEAR(environment.samplesToMs(48), 48.4 / 48.0, 1e-9);
    environment.setSampleRate(1000.0f);
    EXPECT_NEAR(environment.samplesToMs(1), 1.4, 1e-9);
    EXPECT_NEAR(environment.samplesToMs(10), 10.4, 1e-9);
}

TEST(EnvironmentTimeConversion, RateFactorIsPowerOfTwoOfRounded48kMultiple) {
    EXPECT_EQ(Environment::getRateFactor(44100.0), 1);
    EXPECT_EQ(Environment::getRateFactor(48000.0), 1);
    EXPECT_EQ(Environment::getRateFactor(66000.0), 1); // 1.375 rounds to 1
    EXPECT_EQ(Environment::getRateFactor(72000.0), 2); // 1.5 rounds up to 2
    EXPECT_EQ(Environment::getRateFactor(88200.0), 2);
    EXPECT_EQ(Environment::getRateFactor(96000.0), 2);
    EXPECT_EQ(Environment::getRateFactor(144000.0), 4); // 3 -> next power of two
    EXPECT_EQ(Environment::getRateFactor(176400.0), 4);
    EXPECT_EQ(Environment::getRateFactor(192000.0), 4);
    EXPECT_EQ(Environment::getRateFactor(352800.0), 8);
    EXPECT_EQ(Environment::getRateFactor(384000.0), 8);
    EXPECT_EQ(Environment::getRateFactor(8000.0), 1); // never below 1
}

TEST(EnvironmentSampleRate, ChangeResetsThenNotifiesPrimaryThenNewestFirst) {
    Strings log;
    Environment environment(32, 0);
    RecordingRateListener primary("primary", log), first("first", log), second("second", log),
        third("third", log);
    environment.addSampleRateListener(&first);
    environment.setPrimarySampleRateListener(&primary);
    environment.addSampleRateListener(&second);
    environment.addSampleRateListener(&third);
    LoggingProducer resettable(&environment, "p", log);
    resettable.joinResets();
    resettable.setEnabled(false); // a rate change resets disabled producers too

    environment.setSampleRate(48000.0f);
    EXPECT_EQ(log, (Strings{"p:reset", "primary", "third", "second", "first"}));

    log.clear();
    environment.removeSampleRateListener(&second);
    environment.setSampleRate(96000.0f);
    EXPECT_EQ(log, (Strings{"p:reset", "primary", "third", "first"}));
}

TEST(EnvironmentSampleRate, SameRateWithinEpsilonDoesNothing) {
    Strings log;
    Environment environment(32, 0);
    RecordingRateListener primary("primary", log);
    environment.setPrimarySampleRateListener(&primary);
    LoggingProducer resettable(&environment, "p", log);
    resettable.joinResets();
    environment.setSampleRate(48000.0f);
    environment.advance(32, false);
    log.clear();

    environment.setSampleRate(48000.0f);
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(environment.getPositionAtLastReset(), 0); // no reset happened at position 32
    environment.setSampleRate(48000.0f + 3.0f);
    EXPECT_EQ(log, (Strings{"p:reset", "primary"}));
    EXPECT_EQ(environment.getPositionAtLastReset(), 32);
}

TEST(EnvironmentSchedule, ThreeGroupsInInsertionOrder) {
    Strings log;
    Environment environment(16, 0);
    LoggingProducer a(&environment, "a", log), b(&environment, "b", log), c(&environment, "c", log),
        d(&environment, "d", log), e(&environment, "e", log), f(&environment, "f", log);
    const std::vector<const LoggingProducer*> all{&a, &b, &c, &d, &e, &f};
    const Strings names{"a", "b", "c", "d", "e", "f"};

    a.schedule(false); // late: appended
    b.schedule(true);  // early: after the head group
    c.scheduleFirst(); // head: at the very front
    d.schedule(true);
    e.scheduleFirst();
    f.schedule(false);
    EXPECT_EQ(scheduleNames(environment, all, names), (Strings{"e", "c", "d", "b", "a", "f"}));
    EXPECT_EQ(environment.getHeadCount(), 2);

    environment.nextGeneration();
    environment.advance(16, false);
    EXPECT_EQ(log, (Strings{"e:2", "c:2", "d:1", "b:1", "a:1", "f:1"}));
    EXPECT_EQ(environment.getPosition(), 16);

    // Changing the mode moves the entry to its new group.
    a.scheduleFirst();
    EXPECT_EQ(scheduleNames(environment, all, names), (Strings{"a", "e", "c", "d", "b", "f"}));
    EXPECT_EQ(environment.getHeadCount(), 3);
    e.schedule(false);
    EXPECT_EQ(scheduleNames(environment, all, names), (Strings{"a", "c", "d", "b", "f", "e"}));
    EXPECT_EQ(environment.getHeadCount(), 2);
    c.unschedule();
    EXPECT_EQ(scheduleNames(environment, all, names), (Strings{"a", "d", "b", "f", "e"}));
    EXPECT_EQ(environment.getHeadCount(), 1);

    log.clear();
    environment.advance(16, true); // skipped: nothing driven, position still moves
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(environment.getPosition(), 32);
}

TEST(EnvironmentSchedule, PulledProducersAreDrivenAgainOnlyAsHeadEntries) {
    Strings log;
    Environment environment(8, 0);
    LoggingProducer head(&environment, "head", log), early(&environment, "early", log),
        late(&environment, "late", log), unpulled(&environment, "unpulled", log);
    head.scheduleFirst();
    early.schedule(true);
    late.schedule(false);
    unpulled.schedule(false);

    environment.nextGeneration();
    head.fetch(8);
    early.fetch(8);
    late.fetch(8);
    head.fetch(8); // second fetch in the same generation computes nothing
    EXPECT_EQ(log, (Strings{"head:0", "early:0", "late:0"}));
    log.clear();

    environment.advance(8, false);
    EXPECT_EQ(log, (Strings{"head:2", "unpulled:1"}));
    EXPECT_EQ(unpulled.getGeneration(), environment.getGeneration());

    // The driven producer is stamped, so a late fetch in the same generation does not recompute.
    log.clear();
    unpulled.fetch(8);
    EXPECT_TRUE(log.empty());
}

TEST(EnvironmentSchedule, DisableRemovesAndEnableReinsertsAndResets) {
    Strings log;
    Environment environment(8, 0);
    LoggingProducer first(&environment, "first", log), second(&environment, "second", log),
        early(&environment, "early", log);
    const std::vector<const LoggingProducer*> all{&first, &second, &early};
    const Strings names{"first", "second", "early"};
    first.scheduleFirst();
    second.scheduleFirst();
    early.schedule(true);
    second.joinResets();
    second.joinResets(); // joining twice keeps one entry

    second.setEnabled(false);
    EXPECT_EQ(scheduleNames(environment, all, names), (Strings{"first", "early"}));
    EXPECT_EQ(environment.getHeadCount(), 1);
    environment.advance(8, false);
    EXPECT_EQ(log, (Strings{"first:2", "early:1"}));
    log.clear();

    second.setEnabled(true);
    EXPECT_EQ(log, (Strings{"second:reset"}));
    EXPECT_EQ(scheduleNames(environment, all, names), (Strings{"second", "first", "early"}));
    EXPECT_EQ(environment.getHeadCount(), 2);

    // A disabled producer that is asked to schedule waits until it is enabled.
    log.clear();
    first.setEnabled(false);
    first.schedule(false);
    EXPECT_EQ(scheduleNames(environment, all, names), (Strings{"second", "early"}));
    first.setEnabled(true);
    EXPECT_EQ(scheduleNames(environment, all, names), (Strings{"second", "early", "first"}));
    EXPECT_EQ(environment.getHeadCount(), 1);
    EXPECT_TRUE(log.empty()); // not in the reset list: enabling does not reset it

    // Resetting once: the entry is not duplicated.
    environment.reset(1);
    EXPECT_EQ(log, (Strings{"second:reset"}));
}

TEST(EnvironmentSchedule, DestroyedProducerLeavesTheLists) {
    Strings log;
    Environment environment(8, 0);
    LoggingProducer kept(&environment, "kept", log);
    kept.scheduleFirst();
    {
        LoggingProducer gone(&environment, "gone", log);
        gone.scheduleFirst();
        gone.joinResets();
        EXPECT_EQ(environment.getSchedule().size(), 2u);
    }
    EXPECT_EQ(environment.getSchedule().size(), 1u);
    EXPECT_EQ(environment.getHeadCount(), 1);
    environment.reset(1);
    environment.advance(8, false);
    EXPECT_EQ(log, (Strings{"kept:2"}));
}

TEST(EnvironmentReset, KindsSelectProducersPositionsAndChildren) {
    Strings log;
    Environment environment(8, 0);
    wave::ChildEnvironment child(environment, 2);
    LoggingProducer enabled(&environment, "enabled", log), disabled(&environment, "disabled", log),
        inChild(&child, "child", log), notJoined(&environment, "notJoined", log);
    enabled.joinResets();
    disabled.joinResets();
    inChild.joinResets();
    disabled.setEnabled(false);

    environment.advance(8, false);
    log.clear();
    environment.reset(1);
    EXPECT_EQ(log, (Strings{"enabled:reset", "disabled:reset", "child:reset"}));
    EXPECT_EQ(environment.getPositionAtLastReset(), 8);
    EXPECT_EQ(environment.getPositionAtLastFullReset(), 8);
    EXPECT_EQ(child.getPositionAtLastReset(), 16); // the child runs at twice the rate

    environment.advance(8, false);
    log.clear();
    environment.reset(0);
    EXPECT_EQ(log, (Strings{"enabled:reset", "child:reset"}));
    EXPECT_EQ(environment.getPositionAtLastFullReset(), 16);

    environment.advance(8, false);
    log.clear();
    environment.reset(2);
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(environment.getPositionAtLastReset(), 24);
    EXPECT_EQ(environment.getPositionAtLastFullReset(), 16); // a partial reset is not a full one
    EXPECT_EQ(child.getPositionAtLastReset(), 48);

    environment.advance(8, false);
    log.clear();
    environment.reset(3);
    EXPECT_EQ(log, (Strings{"enabled:reset"}));
    EXPECT_EQ(environment.getPositionAtLastFullReset(), 32);
    EXPECT_EQ(child.getPositionAtLastReset(), 48); // kind 3 stays out of the children
}

TEST(EnvironmentChildren, FollowTheParentScaledByTheirFactor) {
    Strings log;
    Environment parent(16, 4);
    parent.setSampleRate(48000.0f);
    wave::ChildEnvironment child(parent, 4);
    LoggingProducer driven(&child, "driven", log);
    driven.schedule(false);
    EXPECT_FLOAT_EQ(child.getSampleRate(), 192000.0f);
    EXPECT_EQ(child.getMaxBlockSize(), 64);

    parent.setSampleRate(44100.0f);
    EXPECT_FLOAT_EQ(child.getSampleRate(), 176400.0f);
    parent.setMaxBlockSize(32);
    EXPECT_EQ(child.getMaxBlockSize(), 128);
    EXPECT_EQ(driven.getOwnBlock()->getCount(), 128);

    const int32_t generation = child.getGeneration();
    parent.nextGeneration();
    EXPECT_EQ(child.getGeneration(), generation + 1);
    parent.advance(32, false);
    EXPECT_EQ(child.getPosition(), 128);
    EXPECT_EQ(log, (Strings{"driven:1"}));
    parent.advance(32, true);
    EXPECT_EQ(log.size(), 1u);

    parent.setClosing(true);
    EXPECT_TRUE(child.isClosing());
    parent.setClosing(false);
    parent.setDisplayActive(true);
    EXPECT_TRUE(child.isDisplayActive());
}

TEST(EnvironmentRest, NeedsEveryResetProducerAndChildAtRest) {
    Strings log;
    Environment environment(8, 0);
    wave::ChildEnvironment child(environment, 2);
    LoggingProducer own(&environment, "own", log), inChild(&child, "child", log),
        notJoined(&environment, "notJoined", log);
    own.joinResets();
    inChild.joinResets();
    EXPECT_TRUE(environment.isAtRest());

    notJoined.atRest = false; // only the reset list counts
    EXPECT_TRUE(environment.isAtRest());
    inChild.atRest = false;
    EXPECT_FALSE(environment.isAtRest());
    inChild.atRest = true;
    own.atRest = false;
    EXPECT_FALSE(environment.isAtRest());
}

TEST(EnvironmentBlockSize, ListenersAndZeroBlockFollowTheMaximum) {
    Environment environment(8, 0);
    wave::ConstValueBlock half(&environment, 0.5f);
    EXPECT_EQ(environment.getZeroBlock()->getCount(), 8);
    EXPECT_TRUE(environment.getZeroBlock()->isConstant());

    environment.setMaxBlockSize(20);
    EXPECT_EQ(environment.getMaxBlockSize(), 20);
    ASSERT_EQ(half.getCount(), 20);
    ASSERT_EQ(environment.getZeroBlock()->getCount(), 20);
    for (int32_t i = 0; i < 20; ++i) {
        EXPECT_EQ(half[i], 0.5f);
        EXPECT_EQ((*environment.getZeroBlock())[i], 0.0f);
    }
    {
        wave::BasicBlock<double> temporary(&environment);
        EXPECT_EQ(temporary.getCount(), 20);
    }
    environment.setMaxBlockSize(4); // the destroyed block is no longer notified
    EXPECT_EQ(half.getCount(), 4);
}
