#pragma once

#include <cstddef>

namespace testing_support {

// Counts heap allocations made by the calling thread while a scope is open. The test program
// replaces the global operator new, so every allocation (containers, std::function, ...) is seen.
class AllocationCounter {
public:
    AllocationCounter();
    ~AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    std::size_t count() const;

private:
    std::size_t startCount;
    bool wasCounting;
};

} // namespace testing_support
