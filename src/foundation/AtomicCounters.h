#pragma once

#include <atomic>
#include <cstdint>

// Atomic operations on plain 32-bit integers, each a full memory barrier. The integers stay
// ordinary fields so that records holding them keep their layout.

// Stores newValue when *address equals oldValue; true when the swap happened.
inline bool atomicCompareAndSwap(int32_t oldValue, int32_t newValue, int32_t* address) {
    return std::atomic_ref<int32_t>(*address).compare_exchange_strong(oldValue, newValue,
                                                                      std::memory_order_seq_cst);
}

// Both return the new value.
inline int32_t atomicIncrement(int32_t* address) {
    return std::atomic_ref<int32_t>(*address).fetch_add(1, std::memory_order_seq_cst) + 1;
}

inline int32_t atomicDecrement(int32_t* address) {
    return std::atomic_ref<int32_t>(*address).fetch_sub(1, std::memory_order_seq_cst) - 1;
}
