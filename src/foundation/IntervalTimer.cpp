#include "foundation/IntervalTimer.h"

#include <ctime>

int64_t monotonicMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

int64_t TimeProvider::currentTime() const {
    return static_cast<int64_t>(std::time(nullptr));
}
