// What the tests of decoders share: bytes on exact-size heap blocks, streams that hide their length, and broken files.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "loader/stream.h"

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
