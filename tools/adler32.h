// The checksum of the sections of JSR 184 content (RFC 1950).
#pragma once

#include <cstdint>
#include <span>

inline uint32_t adler32(std::span<const uint8_t> bytes) {
    uint32_t low = 1, high = 0;
    for (const uint8_t byte : bytes) {
        low = (low + byte) % 65521;
        high = (high + low) % 65521;
    }
    return high << 16 | low;
}
