// Reads bit-packed sections: values follow each other without gaps, least significant bit first, and bytes are used
// from bit 0 upward.
#pragma once

#include "loader/stream.h"

// Start with no bits at the beginning of a section; what is left of the section's last byte is dropped with the reader.
struct BitReader {
    LoaderStream* stream;
    uint64_t bits = 0;        // read from the stream and not used yet, the next one lowest
    uint32_t bitCount = 0;    // of them
    uint64_t wordsAhead = 0;  // 32-bit words that surely belong to the section: these are read whole
};

// Tells how many bits are going to be read, at least.
inline void expectBits(BitReader& reader, uint64_t count) {
    reader.wordsAhead = count > reader.bitCount ? (count - reader.bitCount) / 32 : 0;
}

// Makes 32 bits or less ready.
inline void fetchBits(BitReader& reader, uint32_t wanted) {
    while (reader.bitCount < wanted) {
        const bool whole = reader.wordsAhead > 0;
        const uint64_t fetched = whole ? readUInt32(reader.stream) : readByte(reader.stream);
        reader.bits |= fetched << reader.bitCount;
        reader.bitCount += whole ? 32 : 8;
        reader.wordsAhead -= whole;
    }
}

inline uint32_t takeBits(BitReader& reader, uint32_t width) {
    const auto value = uint32_t(reader.bits & ((uint64_t(1) << width) - 1));
    reader.bits >>= width;
    reader.bitCount -= width;
    return value;
}

// Widths come from files and go up to 255. No value has a use for more than 32 bits: of the higher ones any that is set
// shows as bit 31, which puts the value out of every range. Behind the end of the stream all bits are 0.
inline uint32_t readBits(BitReader& reader, uint32_t width) {
    constexpr uint32_t kMaxBits = 32;
    const uint32_t used = width < kMaxBits ? width : kMaxBits;
    fetchBits(reader, used);
    uint32_t value = takeBits(reader, used);
    for (uint32_t left = width - used; left > 0;) {
        const uint32_t skipped = left < kMaxBits ? left : kMaxBits;
        fetchBits(reader, skipped);
        if (takeBits(reader, skipped) != 0) value |= 0x80000000u;
        left -= skipped;
    }
    return value;
}

// Two's complement numbers of 1 to 32 bits.
inline int32_t readSignedBits(BitReader& reader, uint32_t width) {
    const uint32_t unusedBits = 32 - width;
    return int32_t(readBits(reader, width) << unusedBits) >> unusedBits;
}
