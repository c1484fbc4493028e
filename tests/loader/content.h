// What the tests of decoders share: bytes on exact-size heap blocks, streams that hide their length, and files with
// changed fields.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>
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

// Changes fields of a file: "version=6", "boneCount+=1", "objectCount=0&groupCount=0". A number with a point stands for
// the bits of a float, and a number that is too wide for its field for its low bits.
inline void changeFields(encode::EncodedFile& file, const std::string& changes, const std::string& prefix = {}) {
    std::istringstream parts(changes);
    for (std::string part; std::getline(parts, part, '&');) {
        const size_t equals = part.find('=');
        const bool adds = part[equals - 1] == '+';
        const std::string field = prefix + part.substr(0, equals - adds), text = part.substr(equals + 1);
        uint64_t value = adds ? file.get(field) : 0;
        if (text.find('.') != std::string::npos)
            value = std::bit_cast<uint32_t>(std::stof(text));
        else
            value += uint64_t(std::stoll(text, nullptr, 0));
        file.set(field, value);
    }
}

// Numbers of all types, so that many compare at once.
template <typename... T>
std::vector<double> all(T... values) {
    return {double(values)...};
}

// Every one of a list of changes, each made to a file of its own.
template <typename Check>
void forEachChange(const encode::EncodedFile& file, const std::string& list, Check&& check,
                   const std::string& prefix = {}) {
    std::istringstream changes(list);
    for (std::string change; changes >> change;) {
        SCOPED_TRACE(prefix + change);
        encode::EncodedFile changed = file;
        changeFields(changed, change, prefix);
        check(changed);
    }
}

// Decodes, gives everything back and says whether it could.
using Decode = bool (*)(LoaderStream*);

inline bool decodes(const HeapCopy& file, Decode decode) {
    MemoryStream stream;
    MemoryStream_init(&stream, file.data(), file.size());
    return decode(&stream);
}

// A decoder has two ways to find that a file is broken: from the bytes left, and from the latch of a stream of unknown
// length.
inline void expectRefused(const HeapCopy& file, Decode decode) {
    EXPECT_FALSE(decodes(file, decode));
    OpaqueStream opaque(file.data(), file.size());
    EXPECT_FALSE(decode(&opaque)) << "length not known";
}

// No part of a file decodes; the file with more behind it does.
inline void expectOnlyWhole(const ByteList& file, Decode decode) {
    for (size_t length = 0; length < file.size(); ++length) {
        SCOPED_TRACE(length);
        expectRefused(HeapCopy(file, length), decode);
    }
    ByteList more = file;
    more.push_back(0);
    const HeapCopy copy(more);
    EXPECT_TRUE(decodes(copy, decode));
    OpaqueStream opaque(copy.data(), copy.size());
    EXPECT_TRUE(decode(&opaque));
}
