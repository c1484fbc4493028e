// What the tests of decoders share: bytes on exact-size heap blocks, streams that hide their length, and broken files.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "loader/stream.h"
#include "tools/encode/byte_writer.h"

using ByteList = std::vector<uint8_t>;

// The first `length` bytes of a file in a block of exactly that size: sanitizers see a read of one byte too many.
class HeapCopy {
public:
    HeapCopy(const ByteList& file, size_t length) : bytes_(new uint8_t[length]), size_(length) {
        if (length) std::memcpy(bytes_.get(), file.data(), length);
    }
    explicit HeapCopy(const ByteList& file) : HeapCopy(file, file.size()) {}
    const uint8_t* data() const { return bytes_.get(); }
    uint32_t size() const { return uint32_t(size_); }

private:
    std::unique_ptr<uint8_t[]> bytes_;
    size_t size_;
};

// A stream of a make that the library does not know: a decoder cannot ask it how much is left and has to rely on its
// latch.
struct OpaqueStream : LoaderStream {
    MemoryStream inner;

    OpaqueStream(const void* data, uint32_t length) {
        MemoryStream_init(&inner, data, length);
        functions = &kFunctions;
    }
    static LoaderStream* innerOf(LoaderStream* stream) { return &static_cast<OpaqueStream*>(stream)->inner; }
    static constexpr LoaderStreamFunctions kFunctions = {
        [](LoaderStream* stream) { return readByte(innerOf(stream)); },
        [](LoaderStream* stream) { return readUInt16(innerOf(stream)); },
        [](LoaderStream* stream) { return readUInt32(innerOf(stream)); },
        [](LoaderStream* stream, void* to, uint32_t count) { readBytes(innerOf(stream), to, count); },
        [](LoaderStream* stream, uint32_t count) { skipBytes(innerOf(stream), count); },
        [](LoaderStream* stream) { return hasError(innerOf(stream)); },
        nullptr,
        nullptr};
};

// One way to break a file that is otherwise good.
struct BrokenFile {
    const char* what;
    std::function<void(encode::EncodedFile&)> breakIt;
};
