#pragma once

#include <cstdint>

// File byte order is little-endian. Building the bytes with shifts makes the conversion independent
// of the processor's own order.

inline void storeLittleEndian32(uint32_t value, uint8_t* bytes) {
    bytes[0] = static_cast<uint8_t>(value);
    bytes[1] = static_cast<uint8_t>(value >> 8);
    bytes[2] = static_cast<uint8_t>(value >> 16);
    bytes[3] = static_cast<uint8_t>(value >> 24);
}

inline uint32_t loadLittleEndian32(const uint8_t* bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}
