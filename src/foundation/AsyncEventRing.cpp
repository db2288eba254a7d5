#include "foundation/AsyncEventRing.h"

#include <algorithm>
#include <bit>

AsyncEventRing::AsyncEventRing(std::size_t capacity)
    : mask(std::bit_ceil(std::max<std::size_t>(capacity, 2)) - 1) {
    cells.reset(new Cell[mask + 1]);
    for (std::size_t i = 0; i <= mask; ++i)
        cells[i].sequence.store(i, std::memory_order_relaxed);
}

// A cell whose sequence equals the position is free for the producer at that position; one
// past it holds a record for the consumer at that position.
bool AsyncEventRing::push(const AsyncEventRecord& record) {
    std::size_t position = enqueuePosition.load(std::memory_order_relaxed);
    for (;;) {
        Cell& cell = cells[position & mask];
        const std::size_t sequence = cell.sequence.load(std::memory_order_acquire);
        const auto difference = static_cast<std::ptrdiff_t>(sequence - position);
        if (difference == 0) {
            if (enqueuePosition.compare_exchange_weak(position, position + 1, std::memory_order_relaxed)) {
                cell.record = record;
                cell.sequence.store(position + 1, std::memory_order_release);
                return true;
            }
        } else if (difference < 0) {
            return false;
        } else {
            position = enqueuePosition.load(std::memory_order_relaxed);
        }
    }
}

bool AsyncEventRing::pop(AsyncEventRecord& record) {
    std::size_t position = dequeuePosition.load(std::memory_order_relaxed);
    for (;;) {
        Cell& cell = cells[position & mask];
        const std::size_t sequence = cell.sequence.load(std::memory_order_acquire);
        const auto difference = static_cast<std::ptrdiff_t>(sequence - (position + 1));
        if (difference == 0) {
            if (dequeuePosition.compare_exchange_weak(position, position + 1, std::memory_order_relaxed)) {
                record = cell.record;
                cell.sequence.store(position + mask + 1, std::memory_order_release);
                return true;
            }
        } else if (difference < 0) {
            return false;
        } else {
            position = dequeuePosition.load(std::memory_order_relaxed);
        }
    }
}
