#pragma once

#include <atomic>
#include <cstdint>

namespace wave {

// Hands block levels from the audio thread to one reading thread without locks. Two slots and a
// published index (-1 = empty); the reader claims the published slot with a compare-and-swap that
// leaves -1. The writer first tries the same swap on its own last slot: if that succeeds the
// reader never saw the record, so the writer merges it with the new one and rewrites that slot;
// otherwise the reader owns that slot and the writer fills the other one. A single reader finishes
// one slot before it can claim the next, so the writer never writes a slot being read, and every
// sample counted by the writer is taken exactly once.
class LevelHandOver {
public:
    struct Record {
        float value = 0.0f;
        int32_t sampleCount = 0;
    };
    // Atomic slots keep the exchange free of data races even on paper.
    static_assert(std::atomic<Record>::is_always_lock_free, "the audio thread must never lock");

    // Writer. merge(unread, newer) combines a record the reader has not taken with the new one.
    template <class Merge>
    void publish(Record record, Merge merge) {
        int32_t slot = lastPublished == 0 ? 1 : 0;
        int32_t expected = lastPublished;
        if (expected >= 0 && index.compare_exchange_strong(expected, -1, std::memory_order_acq_rel)) {
            slot = lastPublished;
            record = merge(slots[slot].load(std::memory_order_relaxed), record);
        }
        slots[slot].store(record, std::memory_order_relaxed);
        lastPublished = slot;
        index.store(slot, std::memory_order_release);
    }

    // Reader: the record published since the last take, if any.
    bool take(Record& record) {
        int32_t published = index.load(std::memory_order_acquire);
        if (published < 0 || !index.compare_exchange_strong(published, -1, std::memory_order_acq_rel))
            return false;
        record = slots[published].load(std::memory_order_relaxed);
        return true;
    }

private:
    std::atomic<int32_t> index{-1};
    std::atomic<Record> slots[2];
    // Writer-only.
    int32_t lastPublished = -1;
};

} // namespace wave
