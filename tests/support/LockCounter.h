#pragma once

namespace testing_support {

// Counts pthread mutex locks (std::mutex included) taken by the calling thread while a scope is
// open. The test program's pthread_mutex_lock takes precedence over the C library's and forwards.
class LockCounter {
public:
    LockCounter();
    LockCounter(const LockCounter&) = delete;
    LockCounter& operator=(const LockCounter&) = delete;

    int count() const;

private:
    int startCount;
};

} // namespace testing_support
