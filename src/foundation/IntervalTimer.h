#pragma once

#include <cstdint>

// A millisecond stopwatch.
class IntervalTimer {
public:
    virtual ~IntervalTimer() = default;
    virtual int32_t elapsedMilliseconds() const = 0;
    virtual void restart() = 0;
};

// Microseconds of the monotonic clock, which never jumps with the wall clock.
int64_t monotonicMicroseconds();

// Whole milliseconds between two microsecond readings, truncated toward zero.
inline int32_t elapsedMillisecondsBetween(int64_t startMicroseconds, int64_t nowMicroseconds) {
    return static_cast<int32_t>((nowMicroseconds - startMicroseconds) / 1000);
}

class MonotonicIntervalTimer : public IntervalTimer {
public:
    MonotonicIntervalTimer() : startTime(monotonicMicroseconds()) {}

    int32_t elapsedMilliseconds() const override {
        return elapsedMillisecondsBetween(startTime, monotonicMicroseconds());
    }
    void restart() override { startTime = monotonicMicroseconds(); }

private:
    int64_t startTime;
};

// Calendar time in whole seconds since the epoch; virtual so that tests can fix the date.
class TimeProvider {
public:
    virtual ~TimeProvider() = default;
    virtual int64_t currentTime() const;
};
