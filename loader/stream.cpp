#include "loader/stream.h"

#include <bit>
#include <cstring>

#include "frame/allocator.h"

static uint32_t countLeft(const MemoryStream* stream) { return uint32_t(stream->end - stream->cursor); }
static void advance(MemoryStream* stream, uint32_t count) { stream->cursor += count; }

static uint32_t countLeft(const SegmentStream* stream) { return stream->remaining; }
static void advance(SegmentStream* stream, uint32_t count) {
    stream->cursor += count;
    stream->remaining -= count;
}

// The next `count` bytes, consumed; or null, with the latch set, when there are not as many.
template <typename Stream>
static const uint8_t* take(LoaderStream* base, uint32_t count) {
    auto* stream = static_cast<Stream*>(base);
    if (stream->error) return nullptr;
    if (count > countLeft(stream)) {
        stream->error = 1;
        return nullptr;
    }
    const uint8_t* bytes = stream->cursor;
    advance(stream, count);
    return bytes;
}

template <typename Stream>
static uint8_t readByteFrom(LoaderStream* stream) {
    const uint8_t* bytes = take<Stream>(stream, 1);
    return bytes ? bytes[0] : uint8_t(0);
}

template <typename Stream>
static uint16_t readUInt16From(LoaderStream* stream) {
    const uint8_t* bytes = take<Stream>(stream, 2);
    return bytes ? uint16_t(bytes[0] | bytes[1] << 8) : uint16_t(0);
}

template <typename Stream>
static uint32_t readUInt32From(LoaderStream* stream) {
    const uint8_t* bytes = take<Stream>(stream, 4);
    return bytes ? uint32_t(bytes[0] | bytes[1] << 8 | bytes[2] << 16) | uint32_t(bytes[3]) << 24 : 0;
}

template <typename Stream>
static void readBytesFrom(LoaderStream* stream, void* destination, uint32_t count) {
    const uint8_t* bytes = take<Stream>(stream, count);
    if (bytes && count) std::memcpy(destination, bytes, count);
}

template <typename Stream>
static void skipIn(LoaderStream* stream, uint32_t count) {
    take<Stream>(stream, count);
}

template <typename Stream>
static bool hasErrorIn(LoaderStream* stream) {
    return static_cast<Stream*>(stream)->error;
}

static float readFloat32FromSegment(LoaderStream* stream) {
    return std::bit_cast<float>(readUInt32From<SegmentStream>(stream));
}

// A string without its end before the segment's keeps what there is and sets the latch.
static char* readStringFromSegment(LoaderStream* base) {
    auto* stream = static_cast<SegmentStream*>(base);
    const uint32_t left = stream->error ? 0 : stream->remaining;
    const void* terminator = left ? std::memchr(stream->cursor, 0, left) : nullptr;
    const uint32_t length = terminator ? uint32_t(static_cast<const uint8_t*>(terminator) - stream->cursor) : left;
    char* text = qelAllocArrayOf<char>(length + 1);  // zero-filled: this is the terminator
    if (!text) return nullptr;
    readBytesFrom<SegmentStream>(stream, text, length);
    skipIn<SegmentStream>(stream, 1);
    return text;
}

static constexpr LoaderStreamFunctions kMemoryFunctions = {
    readByteFrom<MemoryStream>,
    readUInt16From<MemoryStream>,
    readUInt32From<MemoryStream>,
    readBytesFrom<MemoryStream>,
    skipIn<MemoryStream>,
    hasErrorIn<MemoryStream>,
    nullptr,
    nullptr,
};

static constexpr LoaderStreamFunctions kSegmentFunctions = {
    readByteFrom<SegmentStream>,  readUInt16From<SegmentStream>, readUInt32From<SegmentStream>,
    readBytesFrom<SegmentStream>, skipIn<SegmentStream>,         hasErrorIn<SegmentStream>,
    readFloat32FromSegment,       readStringFromSegment,
};

void MemoryStream_init(MemoryStream* stream, const void* data, uint32_t length) {
    stream->functions = &kMemoryFunctions;
    stream->cursor = static_cast<const uint8_t*>(data);
    stream->end = stream->cursor + length;
    stream->error = 0;
}

void SegmentStream_init(SegmentStream* stream, const void* data, uint32_t length) {
    stream->functions = &kSegmentFunctions;
    stream->cursor = static_cast<const uint8_t*>(data);
    stream->end = stream->cursor + length;
    stream->remaining = length;
    stream->error = 0;
}

template <typename Stream>
static uint32_t bytesLeftIn(const LoaderStream* base) {
    const auto* stream = static_cast<const Stream*>(base);
    return stream->error ? 0 : countLeft(stream);
}

uint32_t LoaderStream_bytesLeft(const LoaderStream* stream) {
    if (stream->functions == &kMemoryFunctions) return bytesLeftIn<MemoryStream>(stream);
    if (stream->functions == &kSegmentFunctions) return bytesLeftIn<SegmentStream>(stream);
    return UINT32_MAX;
}
