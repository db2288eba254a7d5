#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

// A zero-filled array of samples whose start is 32-byte aligned, so vector loops over it need no
// peeling. Storage comes from operator new (the allocation counters of the tests see it); the raw
// pointer sits just before the aligned start so that it can be freed.
template <class T>
class AlignedBuffer {
    static_assert(std::is_trivially_copyable_v<T>, "samples are copied as bytes");

public:
    static constexpr std::size_t kAlignment = 32;

    explicit AlignedBuffer(int32_t count = 0) { resize(count); }
    ~AlignedBuffer() { release(data); }
    AlignedBuffer(const AlignedBuffer&) = delete;
    AlignedBuffer& operator=(const AlignedBuffer&) = delete;

    // Keeps the leading min(old, new) elements; the rest are zero.
    void resize(int32_t newCount) {
        if (newCount == count)
            return;
        T* newData = allocate(newCount);
        if (newData != nullptr && data != nullptr)
            std::memcpy(newData, data, sizeof(T) * static_cast<std::size_t>(std::min(count, newCount)));
        release(data);
        data = newData;
        count = newData != nullptr ? newCount : 0;
    }

    void swap(AlignedBuffer& other) noexcept {
        std::swap(count, other.count);
        std::swap(data, other.data);
    }

    int32_t getCount() const { return count; }
    T* getData() { return data; }
    const T* getData() const { return data; }
    T& operator[](int32_t index) { return data[index]; }
    const T& operator[](int32_t index) const { return data[index]; }

private:
    static T* allocate(int32_t elements) {
        if (elements <= 0)
            return nullptr;
        const std::size_t bytes = sizeof(T) * static_cast<std::size_t>(elements);
        auto* raw = static_cast<std::byte*>(::operator new(bytes + kAlignment + sizeof(void*)));
        const auto first = reinterpret_cast<std::uintptr_t>(raw + sizeof(void*));
        auto* aligned = reinterpret_cast<std::byte*>((first + kAlignment - 1) & ~(kAlignment - 1));
        std::memcpy(aligned - sizeof(void*), &raw, sizeof(void*));
        std::memset(aligned, 0, bytes);
        return reinterpret_cast<T*>(aligned);
    }

    static void release(T* aligned) {
        if (aligned == nullptr)
            return;
        void* raw = nullptr;
        std::memcpy(&raw, reinterpret_cast<std::byte*>(aligned) - sizeof(void*), sizeof(void*));
        ::operator delete(raw);
    }

    int32_t count = 0;
    T* data = nullptr;
};
