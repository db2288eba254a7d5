#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace wave {

// Hands the latest value of a record from one thread to another without either waiting: the
// writer fills its own slot and publishes it, the reader takes the most recent publication. Values
// published in between are skipped, never torn.
// Threading: one writer thread (writeSlot, publish) and one reader thread (take, readSlot).
template <class T>
class TripleBuffer {
public:
    T& writeSlot() { return slots[writeIndex]; }

    void publish() {
        writeIndex = middle.exchange(writeIndex | kFresh, std::memory_order_acq_rel) & kIndexMask;
    }

    // True when a publication arrived since the last take; readSlot() then holds it.
    bool take() {
        if ((middle.load(std::memory_order_acquire) & kFresh) == 0)
            return false;
        readIndex = middle.exchange(readIndex, std::memory_order_acq_rel) & kIndexMask;
        return true;
    }

    const T& readSlot() const { return slots[readIndex]; }

private:
    static constexpr uint32_t kIndexMask = 3;
    static constexpr uint32_t kFresh = 4;

    std::array<T, 3> slots{};
    uint32_t writeIndex = 0;
    uint32_t readIndex = 2;
    std::atomic<uint32_t> middle{1};
};

} // namespace wave
