#pragma once

#include "wave/AlignedBuffer.h"

#include <atomic>
#include <cstdint>

namespace wave {

// Hands a stream of samples from the audio thread to one other thread in blocks. Neither side
// waits or allocates; a block that does not fit is dropped whole and counted, so a reader that
// falls behind loses audio but never blocks the writer.
// Threading: resize off both threads; then one writer thread and one reader thread.
class SampleRing {
public:
    // Room for at least capacity samples (rounded up to a power of two); empties the ring.
    void resize(int32_t capacity);

    bool write(const float* samples, int32_t count);
    // Up to maxCount samples; returns how many were read.
    int32_t read(float* samples, int32_t maxCount);
    int32_t available() const;
    // Drops everything written so far (reader side).
    void skipAll();
    uint32_t getDropped() const { return dropped.load(std::memory_order_relaxed); }

private:
    AlignedBuffer<float> ring;
    uint32_t mask = 0;
    std::atomic<uint32_t> written{0};
    std::atomic<uint32_t> consumed{0};
    std::atomic<uint32_t> dropped{0};
};

} // namespace wave
