#include "LockCounter.h"

#include <atomic>
#include <dlfcn.h>
#include <pthread.h>

namespace {

thread_local int locksTaken = 0;

using LockFunction = int (*)(pthread_mutex_t*);
// No function-local static: its guard may itself lock.
std::atomic<LockFunction> cachedLock{nullptr};

LockFunction libraryLock() {
    LockFunction function = cachedLock.load(std::memory_order_acquire);
    if (function == nullptr) {
        function = reinterpret_cast<LockFunction>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
        cachedLock.store(function, std::memory_order_release);
    }
    return function;
}

} // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
    ++locksTaken;
    return libraryLock()(mutex);
}

namespace testing_support {

LockCounter::LockCounter() : startCount(locksTaken) {}

int LockCounter::count() const {
    return locksTaken - startCount;
}

} // namespace testing_support
