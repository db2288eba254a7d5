#include "GraphTestUtil.h"

#include "wave/Environment.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using graph_test::LoggingProducer;
using graph_test::Strings;
using wave::Environment;

namespace {

class RecordingRateListener : public wave::SampleRateListener {
public:
    RecordingRateListener(std::string name, Strings& log) : name(std::move(name)), log(log) {}
    void sampleRateChanged(float) override { log.push_back(name); }

private:
    std::string name;
    Strings& log;
};

// The names of the logging producers in the environment's schedule, in list order.
Strings scheduleNames(const Environment& environment) {
    Strings names;
    for (const auto* entry : environment.getSchedule())
        names.push_back(static_cast<const LoggingProducer*>(entry)->name);
    return names;
}

} // namespace

TEST(EnvironmentTimeConversion, MillisecondsSecondsSamplesAndRateFactor) {
    Environment environment(64, 0);
    EXPECT_EQ(environment.getSampleRate(), 44100.0f);
    environment.setSampleRate(48000.0f);
    EXPECT_EQ(environment.msToSamples(50.0), 2400);
    EXPECT_EQ(environment.msToSamples(-0.03), -1); // -1.44 truncates toward zero
    EXPECT_EQ(environment.secondsToSamples(0.99999), 47999);
    EXPECT_EQ(environment.samplesToMs(0), 0.0);
    environment.setSampleRate(1000.0f);
    EXPECT_NEAR(environment.samplesToMs(1), 1.4, 1e-9);
    EXPECT_NEAR(environment.samplesToMs(10), 10.4, 1e-9);

    // Rounded multiple of 48 kHz (at least 1), then the next power of two.
    const std::vector<std::pair<double, int32_t>> factors{{8000, 1},   {44100, 1},  {48000, 1},  {66000, 1},
                                                          {72000, 2},  {88200, 2},  {96000, 2},  {144000, 4},
                                                          {176400, 4}, {192000, 4}, {352800, 8}, {384000, 8}};
    for (const auto& [rate, factor] : factors)
        EXPECT_EQ(Environment::getRateFactor(rate), factor) << rate;
}

TEST(EnvironmentSampleRate, ChangeResetsThenNotifiesPrimaryThenNewestFirstButNotWithinEpsilon) {
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
    environment.removeSampleRateListener(&second);
    environment.advance(32, false);
    log.clear();
    environment.setSampleRate(48000.0f);
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(environment.getPositionAtLastReset(), 0);
    environment.setSampleRate(48003.0f);
    EXPECT_EQ(log, (Strings{"p:reset", "primary", "third", "first"}));
    EXPECT_EQ(environment.getPositionAtLastReset(), 32);
}

TEST(EnvironmentSchedule, ThreeGroupsAndModeChangesMoveTheEntry) {
    Strings log;
    Environment environment(16, 0);
    LoggingProducer a(&environment, "a", log), b(&environment, "b", log), c(&environment, "c", log),
        d(&environment, "d", log), e(&environment, "e", log), f(&environment, "f", log);
    a.schedule(false); // late: appended
    b.schedule(true);  // early: after the head group
    c.scheduleFirst(); // head: at the very front
    d.schedule(true);
    e.scheduleFirst();
    f.schedule(false);
    EXPECT_EQ(scheduleNames(environment), (Strings{"e", "c", "d", "b", "a", "f"}));

    environment.nextGeneration();
    environment.advance(16, false);
    EXPECT_EQ(log, (Strings{"e:2", "c:2", "d:1", "b:1", "a:1", "f:1"}));

    a.scheduleFirst();
    EXPECT_EQ(scheduleNames(environment), (Strings{"a", "e", "c", "d", "b", "f"}));
    e.schedule(false);
    c.unschedule();
    b.schedule(true); // the early group starts after the one head entry left
    EXPECT_EQ(scheduleNames(environment), (Strings{"a", "b", "d", "f", "e"}));
    EXPECT_EQ(environment.getHeadCount(), 1);

    log.clear();
    environment.advance(16, true); // skipped: nothing driven, the position still moves
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
    for (LoggingProducer* producer : {&head, &early, &late, &head})
        producer->fetch(8); // the second fetch of a generation computes nothing
    environment.advance(8, false);
    unpulled.fetch(8); // driven and stamped: not computed again
    EXPECT_EQ(log, (Strings{"head:0", "early:0", "late:0", "head:2", "unpulled:1"}));
}

TEST(EnvironmentSchedule, DisableRemovesAndEnableReinsertsAndResets) {
    Strings log;
    Environment environment(8, 0);
    LoggingProducer first(&environment, "first", log), second(&environment, "second", log),
        early(&environment, "early", log);
    first.scheduleFirst();
    second.scheduleFirst();
    early.schedule(true);
    second.joinResets();
    second.joinResets(); // joining twice keeps one entry

    second.setEnabled(false);
    EXPECT_EQ(scheduleNames(environment), (Strings{"first", "early"}));
    EXPECT_EQ(environment.getHeadCount(), 1);
    second.setEnabled(true);
    EXPECT_EQ(log, (Strings{"second:reset"}));
    EXPECT_EQ(scheduleNames(environment), (Strings{"second", "first", "early"}));

    // A disabled producer that is asked to schedule waits until it is enabled.
    first.setEnabled(false);
    first.schedule(false);
    EXPECT_EQ(scheduleNames(environment), (Strings{"second", "early"}));
    first.setEnabled(true);
    EXPECT_EQ(scheduleNames(environment), (Strings{"second", "early", "first"}));
    EXPECT_EQ(environment.getHeadCount(), 1);
    {
        LoggingProducer gone(&environment, "gone", log);
        gone.scheduleFirst();
        gone.joinResets();
    }
    EXPECT_EQ(scheduleNames(environment), (Strings{"second", "early", "first"}));
    EXPECT_EQ(environment.getHeadCount(), 1);
    environment.reset(1);
    EXPECT_EQ(log, (Strings{"second:reset", "second:reset"}));
}

TEST(EnvironmentReset, KindsSelectProducersPositionsAndChildrenAndRestNeedsTheWholeList) {
    Strings log;
    Environment environment(8, 0);
    wave::ChildEnvironment child(environment, 2);
    LoggingProducer enabled(&environment, "enabled", log), disabled(&environment, "disabled", log),
        inChild(&child, "child", log), notJoined(&environment, "notJoined", log);
    enabled.joinResets();
    disabled.joinResets();
    inChild.joinResets();
    disabled.setEnabled(false);

    struct Expected {
        int32_t kind;
        Strings resets;
        int64_t lastFull, childLast;
    };
    // Each reset follows one block of 8 samples (16 in the child).
    const std::vector<Expected> steps{{1, {"enabled:reset", "disabled:reset", "child:reset"}, 8, 16},
                                      {0, {"enabled:reset", "child:reset"}, 16, 32},
                                      {2, {}, 16, 48},
                                      {3, {"enabled:reset"}, 32, 48}};
    for (const Expected& step : steps) {
        environment.advance(8, false);
        log.clear();
        environment.reset(step.kind);
        EXPECT_EQ(log, step.resets) << step.kind;
        EXPECT_EQ(environment.getPositionAtLastReset(), environment.getPosition()) << step.kind;
        EXPECT_EQ(environment.getPositionAtLastFullReset(), step.lastFull) << step.kind;
        EXPECT_EQ(child.getPositionAtLastReset(), step.childLast) << step.kind;
    }
    // At rest when every producer of the reset lists, the children's included, is.
    notJoined.atRest = false;
    EXPECT_TRUE(environment.isAtRest());
    inChild.atRest = false;
    EXPECT_FALSE(environment.isAtRest());
    inChild.atRest = true;
    disabled.atRest = false;
    EXPECT_FALSE(environment.isAtRest());
}

TEST(EnvironmentChildren, FollowTheParentScaledByTheirFactor) {
    Strings log;
    Environment parent(16, 4);
    parent.setSampleRate(48000.0f);
    wave::ChildEnvironment child(parent, 4);
    LoggingProducer driven(&child, "driven", log);
    driven.schedule(false);
    EXPECT_EQ(child.getSampleRate(), 192000.0f);
    EXPECT_EQ(child.getMaxBlockSize(), 64);

    parent.setSampleRate(44100.0f);
    EXPECT_EQ(child.getSampleRate(), 176400.0f);
    parent.setMaxBlockSize(32);
    EXPECT_EQ(driven.getOwnBlock()->getCount(), 128);

    const int32_t generation = child.getGeneration();
    parent.nextGeneration();
    EXPECT_EQ(child.getGeneration(), generation + 1);
    parent.advance(32, false);
    EXPECT_EQ(child.getPosition(), 128);
    parent.advance(32, true);
    EXPECT_EQ(log, (Strings{"driven:1"}));
}

TEST(EnvironmentBlockSize, ListenersAndTheZeroBlockFollowTheMaximum) {
    Environment environment(8, 0);
    wave::ConstValueBlock half(&environment, 0.5f);
    EXPECT_TRUE(environment.getZeroBlock()->isConstant());
    environment.setMaxBlockSize(20);
    ASSERT_EQ(half.getCount(), 20);
    ASSERT_EQ(environment.getZeroBlock()->getCount(), 20);
    for (int32_t i = 0; i < 20; ++i) {
        EXPECT_EQ(half[i], 0.5f);
        EXPECT_EQ((*environment.getZeroBlock())[i], 0.0f);
    }
    { wave::BasicBlock<double> temporary(&environment); }
    environment.setMaxBlockSize(4); // the destroyed block is no longer notified
    EXPECT_EQ(half.getCount(), 4);
}
