#pragma once

#include "foundation/Property.h"

#include <cstdint>
#include <vector>

// A piece of work split into granules of equal cost, so that it can be spread over many audio
// callbacks. A run hands the task a budget in cost units; the task spends it on its current
// granule, and a granule may stop part-way and go on with the next budget. The task maps the
// units spent inside a granule to the work it does (see pointsDone), which is why its results
// do not depend on how the budgets were cut.
//
// Threading: configured off the audio thread; start and run on one thread at a time.
class GranularTask {
public:
    enum State : int32_t { kIdle = 0, kRunnable = 1 };

    GranularTask() = default;
    virtual ~GranularTask() = default;
    GranularTask(const GranularTask&) = delete;
    GranularTask& operator=(const GranularTask&) = delete;

    // Back to the first granule and runnable; prepare() runs first, so it may change the granules.
    void start();
    // Spends up to budget units and subtracts what was spent. A task whose granules are all done
    // finishes and becomes idle, even with no budget left.
    void run(int32_t& budget);
    // start() and run with an unlimited budget.
    void runToEnd();
    // Drops the work in progress.
    void stop();

    State getState() const { return state; }
    int32_t getGranuleCount() const { return granuleCount; }
    int32_t getGranuleCost() const { return granuleCost; }
    int64_t getTotalCost() const { return static_cast<int64_t>(granuleCount) * granuleCost; }

    // A disabled task is passed over by its queue.
    Property<bool> enabled{true};

protected:
    // Called by start().
    virtual void prepare() {}
    // Called when the last granule is done.
    virtual void finish() {}
    // Does the work of granule `granule` between fromUnits and toUnits of its cost.
    virtual void runGranule(int32_t granule, int32_t fromUnits, int32_t toUnits) = 0;

    void setGranules(int32_t count, int32_t cost);

    // How many of a granule's points are done after spending units of its cost: all of them when
    // the granule is complete, else the proportional share rounded down to a multiple of eight,
    // so that vector loops over the points never start on an odd lane.
    static int32_t pointsDone(int32_t units, int32_t cost, int32_t points);

private:
    State state = kIdle;
    int32_t granuleCount = 0;
    int32_t granuleCost = 1;
    int32_t granule = 0;
    int32_t unitsInGranule = 0;
};

// Runs an ordered list of tasks over a period of samples. Each call covers some samples and gets
// the budget that brings the spent cost to total x (samples so far / period), so every task is
// finished exactly when the period's last sample is processed, whatever the call sizes. A task
// starts only after the one before it has finished, so later tasks may use earlier results.
//
// Threading: addTask off the audio thread (it allocates); the rest on one thread, never
// allocating.
class GranularTaskQueue {
public:
    void addTask(GranularTask& task);

    // Starts every enabled task and sums their costs.
    void startPeriod(int32_t periodSamples);
    // Work for `samples` more samples of the period.
    void run(int32_t samples);
    // Whatever is left of the period, now.
    void runToEnd();
    // Drops the period in progress.
    void stop();

    bool isFinished() const { return next >= tasks.size(); }
    int64_t getTotalCost() const { return totalCost; }
    int64_t getSpentCost() const { return spentCost; }

private:
    void spend(int64_t budget);

    std::vector<GranularTask*> tasks;
    size_t next = 0;
    int32_t period = 1;
    int32_t elapsed = 0;
    int64_t totalCost = 0;
    int64_t spentCost = 0;
};
