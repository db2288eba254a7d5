#include "eq/GranularTask.h"

#include <algorithm>
#include <limits>

void GranularTask::start() {
    granule = 0;
    unitsInGranule = 0;
    prepare();
    state = kRunnable;
}

void GranularTask::run(int32_t& budget) {
    while (state == kRunnable) {
        if (granule >= granuleCount) {
            state = kIdle;
            finish();
            return;
        }
        if (budget <= 0)
            return;
        const int32_t spent = std::min(budget, granuleCost - unitsInGranule);
        runGranule(granule, unitsInGranule, unitsInGranule + spent);
        unitsInGranule += spent;
        budget -= spent;
        if (unitsInGranule == granuleCost) {
            ++granule;
            unitsInGranule = 0;
        }
    }
}

void GranularTask::runToEnd() {
    start();
    int32_t budget = std::numeric_limits<int32_t>::max();
    run(budget);
}

void GranularTask::stop() {
    state = kIdle;
}

void GranularTask::setGranules(int32_t count, int32_t cost) {
    granuleCount = std::max(count, 0);
    granuleCost = std::max(cost, 1);
}

int32_t GranularTask::pointsDone(int32_t units, int32_t cost, int32_t points) {
    if (units >= cost)
        return points;
    return static_cast<int32_t>(static_cast<int64_t>(units) * points / cost) & ~7;
}

void GranularTaskQueue::addTask(GranularTask& task) {
    tasks.push_back(&task);
    next = tasks.size();
}

void GranularTaskQueue::startPeriod(int32_t periodSamples) {
    period = std::max(periodSamples, 1);
    elapsed = 0;
    spentCost = 0;
    totalCost = 0;
    for (GranularTask* task : tasks) {
        if (!task->enabled)
            continue;
        task->start();
        totalCost += task->getTotalCost();
    }
    next = 0;
}

void GranularTaskQueue::run(int32_t samples) {
    if (isFinished())
        return;
    elapsed = static_cast<int32_t>(std::min<int64_t>(period, static_cast<int64_t>(elapsed) + samples));
    const int64_t target = totalCost * elapsed / period;
    const int64_t budget = target - spentCost;
    spentCost = target;
    spend(budget);
}

void GranularTaskQueue::runToEnd() {
    elapsed = period;
    spentCost = totalCost;
    spend(std::numeric_limits<int64_t>::max());
}

void GranularTaskQueue::stop() {
    for (GranularTask* task : tasks)
        task->stop();
    next = tasks.size();
}

void GranularTaskQueue::spend(int64_t budget) {
    // A task with nothing left finishes even on an empty budget, so the loop runs at least once per
    // task that may be done.
    while (next < tasks.size()) {
        GranularTask& task = *tasks[next];
        while (task.enabled && task.getState() == GranularTask::kRunnable) {
            const auto given =
                static_cast<int32_t>(std::min<int64_t>(budget, std::numeric_limits<int32_t>::max()));
            int32_t left = given;
            task.run(left);
            budget -= given - left;
            if (task.getState() == GranularTask::kRunnable && budget <= 0)
                return;
        }
        ++next;
    }
}
