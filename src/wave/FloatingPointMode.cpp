#include "wave/FloatingPointMode.h"

#include <xmmintrin.h>

ScopedFlushToZero::ScopedFlushToZero() : previousMode(currentMode()) {
    // Rounding bits cleared means round to nearest.
    _mm_setcsr((previousMode & ~kRoundingBits) | kFlushToZero | kDenormalsAreZero | kExceptionMasks);
}

ScopedFlushToZero::~ScopedFlushToZero() {
    _mm_setcsr(previousMode);
}

uint32_t ScopedFlushToZero::currentMode() {
    return _mm_getcsr();
}
