#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace encode {

// One number of an encoded file, by a name such as "vertexCount" or "bone[2].parent". Every format here counts bits
// from the least significant one of the first byte, so a little-endian number at a byte boundary and a value inside a
// bit-packed section are described, read and overwritten in the same way.
struct Field {
    std::string name;
    size_t firstBit;
    uint32_t bitCount;  // at most 64

    size_t offset() const { return firstBit / 8; }  // of the byte that holds the first bit
};

// The bytes of a file and where each of its numbers ended up, in file order. Tests make a broken file out of a good one
// with `set`; tools tell a user which field they are looking at.
struct EncodedFile {
    std::vector<uint8_t> bytes;
    std::vector<Field> fields;

    const Field& field(std::string_view name) const;  // throws std::out_of_range with the name when there is none
    uint64_t get(const Field& field) const;           // zero-extended
    void set(const Field& field, uint64_t value);     // the low bits of value; everything else stays
    uint64_t get(std::string_view name) const { return get(field(name)); }
    void set(std::string_view name, uint64_t value) { set(field(name), value); }
};

// Appends numbers to a file, least significant bit first. A number that does not fit its field throws
// std::invalid_argument with the field's name, so encoders need no range checks of their own.
class ByteWriter {
public:
    void putUnsigned(std::string_view name, uint64_t value, uint32_t bitCount);
    void putSigned(std::string_view name, int64_t value, uint32_t bitCount);
    void putU8(std::string_view name, uint64_t value) { putUnsigned(name, value, 8); }
    void putU16(std::string_view name, uint64_t value) { putUnsigned(name, value, 16); }
    void putU32(std::string_view name, uint64_t value) { putUnsigned(name, value, 32); }
    void putI16(std::string_view name, int64_t value) { putSigned(name, value, 16); }
    void putI32(std::string_view name, int64_t value) { putSigned(name, value, 32); }
    void putF32(std::string_view name, float value);

    // Raw content without a name. Starts at the next byte boundary.
    void putBytes(std::span<const uint8_t> content);
    void putText(std::string_view text);
    void putFill(size_t byteCount, uint8_t value);

    // A whole file, whose fields keep their names behind the prefix. Starts at the next byte boundary.
    void putFile(std::string_view prefix, const EncodedFile& file);

    void alignToByte() { bitCount_ = (bitCount_ + 7) / 8 * 8; }  // ends a bit-packed section, its last bits stay 0
    size_t byteCount() const { return file_.bytes.size(); }
    EncodedFile take() { return std::move(file_); }  // the writer is done with

private:
    void putBits(std::string_view name, uint64_t value, uint32_t bitCount);

    EncodedFile file_;
    size_t bitCount_ = 0;
};

// "bone", 2 gives "bone[2]".
std::string indexed(std::string_view list, size_t index);

// The fewest bits that hold a value: 0 for 0, which a bit reader reads without touching the stream.
uint32_t unsignedWidth(uint64_t value);
uint32_t signedWidth(int64_t value);  // two's complement, at least 1

}  // namespace encode
