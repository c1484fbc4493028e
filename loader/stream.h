// Byte streams that every decoder reads through: little-endian values, and a latch that remembers the first read past
// the end.
#pragma once

#include "scene/names.h"

struct LoaderStream;

// Once the latch is set reads do nothing and return 0; a read that needs more than is left sets it and consumes
// nothing.
struct LoaderStreamFunctions {
    uint8_t (*readByte)(LoaderStream* stream);
    uint16_t (*readUInt16)(LoaderStream* stream);
    uint32_t (*readUInt32)(LoaderStream* stream);
    void (*readBytes)(LoaderStream* stream, void* destination, uint32_t count);
    void (*skip)(LoaderStream* stream, uint32_t count);
    bool (*hasError)(LoaderStream* stream);
    float (*readFloat32)(LoaderStream* stream);  // null in the basic table, as is readString
    char* (*readString)(LoaderStream* stream);   // NUL-terminated engine block, the caller's; null when memory ran out
};

struct LoaderStream {
    const LoaderStreamFunctions* functions;
};

// Has the basic table.
struct MemoryStream : LoaderStream {
    const uint8_t* cursor;
    const uint8_t* end;
    uint8_t error;
};

struct SegmentStream : LoaderStream {
    const uint8_t* cursor;
    const uint8_t* end;
    uint32_t remaining;
    uint8_t error;
};

// Streams never own their bytes.
void MemoryStream_init(MemoryStream* stream, const void* data, uint32_t length);
void SegmentStream_init(SegmentStream* stream, const void* data, uint32_t length);

// How many bytes can still be read: what a decoder holds the counts of a file against before they size anything.
// 0 once the latch is set, 0xFFFFFFFF for a stream that is neither of the two above.
uint32_t LoaderStream_bytesLeft(const LoaderStream* stream);

inline uint8_t readByte(LoaderStream* stream) { return stream->functions->readByte(stream); }
inline uint16_t readUInt16(LoaderStream* stream) { return stream->functions->readUInt16(stream); }
inline int16_t readInt16(LoaderStream* stream) { return int16_t(stream->functions->readUInt16(stream)); }
inline uint32_t readUInt32(LoaderStream* stream) { return stream->functions->readUInt32(stream); }
inline int32_t readInt32(LoaderStream* stream) { return int32_t(stream->functions->readUInt32(stream)); }
inline void readBytes(LoaderStream* stream, void* destination, uint32_t count) {
    stream->functions->readBytes(stream, destination, count);
}
inline void skipBytes(LoaderStream* stream, uint32_t count) { stream->functions->skip(stream, count); }
inline bool hasError(LoaderStream* stream) { return stream->functions->hasError(stream); }
