#include "wave/SampleRing.h"

#include <algorithm>
#include <bit>

namespace wave {

void SampleRing::resize(int32_t capacity) {
    const auto size = std::bit_ceil(static_cast<uint32_t>(std::max(capacity, 2)));
    ring.resize(static_cast<int32_t>(size));
    mask = size - 1;
    written.store(0);
    consumed.store(0);
    dropped.store(0);
}

bool SampleRing::write(const float* samples, int32_t count) {
    const uint32_t size = mask + 1;
    const uint32_t write = written.load(std::memory_order_relaxed);
    const uint32_t used = write - consumed.load(std::memory_order_acquire);
    if (count < 0 || static_cast<uint32_t>(count) > size - used) {
        dropped.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    float* data = ring.getData();
    const uint32_t position = write & mask;
    const uint32_t first = std::min(static_cast<uint32_t>(count), size - position);
    std::copy_n(samples, first, data + position);
    std::copy_n(samples + first, static_cast<uint32_t>(count) - first, data);
    written.store(write + static_cast<uint32_t>(count), std::memory_order_release);
    return true;
}

int32_t SampleRing::available() const {
    return static_cast<int32_t>(written.load(std::memory_order_acquire) -
                                consumed.load(std::memory_order_relaxed));
}

int32_t SampleRing::read(float* samples, int32_t maxCount) {
    const uint32_t read = consumed.load(std::memory_order_relaxed);
    const auto count =
        static_cast<uint32_t>(std::clamp(std::min(available(), maxCount), 0, static_cast<int32_t>(mask + 1)));
    const float* data = ring.getData();
    const uint32_t position = read & mask;
    const uint32_t first = std::min(count, mask + 1 - position);
    std::copy_n(data + position, first, samples);
    std::copy_n(data, count - first, samples + first);
    consumed.store(read + count, std::memory_order_release);
    return static_cast<int32_t>(count);
}

void SampleRing::skipAll() {
    consumed.store(written.load(std::memory_order_acquire), std::memory_order_release);
}

} // namespace wave
