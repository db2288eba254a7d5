#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <type_traits>

namespace wave {

// A bounded single-producer single-consumer queue in fixed storage. One thread pushes, one thread
// peeks and pops; neither ever waits, locks or allocates. Holds exactly Capacity entries; a push to
// a full ring is refused.
template <class T, uint32_t Capacity>
class LockFreeRing {
    static_assert(std::is_trivially_copyable_v<T>, "entries are copied between threads");
    static_assert(Capacity > 0 && (Capacity & (Capacity - 1)) == 0, "the capacity is a power of two");

public:
    static constexpr uint32_t kCapacity = Capacity;

    bool push(const T& entry) {
        const uint32_t write = writeCount.load(std::memory_order_relaxed);
        if (write - readCount.load(std::memory_order_acquire) >= Capacity)
            return false;
        entries[write & (Capacity - 1)] = entry;
        writeCount.store(write + 1, std::memory_order_release);
        return true;
    }

    // The oldest entry, or null when the ring is empty; stays valid until pop.
    const T* peek() const {
        const uint32_t read = readCount.load(std::memory_order_relaxed);
        if (read == writeCount.load(std::memory_order_acquire))
            return nullptr;
        return &entries[read & (Capacity - 1)];
    }

    bool pop(T& entry) {
        const T* oldest = peek();
        if (oldest == nullptr)
            return false;
        entry = *oldest;
        drop();
        return true;
    }

    // Removes the oldest entry; only after peek found one.
    void drop() { readCount.store(readCount.load(std::memory_order_relaxed) + 1, std::memory_order_release); }

    bool isEmpty() const { return peek() == nullptr; }

private:
    // Free-running counts; their difference is the fill level, wrapping harmlessly.
    std::atomic<uint32_t> writeCount{0};
    std::atomic<uint32_t> readCount{0};
    std::array<T, Capacity> entries{};
};

} // namespace wave
