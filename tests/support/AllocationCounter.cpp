#include "AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace {

thread_local bool counting = false;
thread_local std::size_t allocations = 0;

void* allocate(std::size_t size, std::size_t alignment) {
    if (counting)
        ++allocations;
    if (size == 0)
        size = 1;
    void* memory = nullptr;
    if (alignment <= alignof(std::max_align_t))
        memory = std::malloc(size);
    else if (posix_memalign(&memory, alignment, size) != 0)
        memory = nullptr;
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

} // namespace

void* operator new(std::size_t size) {
    return allocate(size, alignof(std::max_align_t));
}
void* operator new[](std::size_t size) {
    return allocate(size, alignof(std::max_align_t));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}

namespace testing_support {

AllocationCounter::AllocationCounter() : startCount(allocations), wasCounting(counting) {
    counting = true;
}

AllocationCounter::~AllocationCounter() {
    counting = wasCounting;
}

std::size_t AllocationCounter::count() const {
    return allocations - startCount;
}

} // namespace testing_support
