#pragma once

#include <cstdint>

// For its lifetime the calling thread flushes denormal results to zero, reads denormal inputs as
// zero, masks every floating-point exception and rounds to nearest; the previous mode comes back
// at the end of the scope. Denormals in decaying filter states cost a hundred times a normal
// operation, which an audio thread cannot afford.
class ScopedFlushToZero {
public:
    ScopedFlushToZero();
    ~ScopedFlushToZero();
    ScopedFlushToZero(const ScopedFlushToZero&) = delete;
    ScopedFlushToZero& operator=(const ScopedFlushToZero&) = delete;

    // The SSE control and status word of the calling thread.
    static uint32_t currentMode();
    static constexpr uint32_t kFlushToZero = 0x8000;
    static constexpr uint32_t kDenormalsAreZero = 0x0040;
    static constexpr uint32_t kExceptionMasks = 0x1f80;
    static constexpr uint32_t kRoundingBits = 0x6000;

private:
    uint32_t previousMode;
};
