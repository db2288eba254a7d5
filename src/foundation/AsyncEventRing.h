#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

// One posted asynchronous event.
struct AsyncEventRecord {
    uint64_t sender = 0;    // identity of the posting queue ("Send")
    int32_t identifier = 0; // "EvId"
    void* data = nullptr;   // "Data"
};

// A bounded multi-producer, multi-consumer ring of event records (Vyukov's sequence-numbered
// cells). The cells are allocated up front; push and pop never allocate, lock or wait for
// another thread, and push fails instead of blocking when the ring is full.
class AsyncEventRing {
public:
    // Capacity is rounded up to a power of two.
    explicit AsyncEventRing(std::size_t capacity);
    AsyncEventRing(const AsyncEventRing&) = delete;
    AsyncEventRing& operator=(const AsyncEventRing&) = delete;

    bool push(const AsyncEventRecord& record);
    bool pop(AsyncEventRecord& record);
    std::size_t capacity() const { return mask + 1; }

private:
    struct Cell {
        std::atomic<std::size_t> sequence;
        AsyncEventRecord record;
    };

    std::size_t mask;
    std::unique_ptr<Cell[]> cells;
    alignas(64) std::atomic<std::size_t> enqueuePosition{0};
    alignas(64) std::atomic<std::size_t> dequeuePosition{0};
};
