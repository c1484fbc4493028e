// Reads content files for people: the first thing that is wrong becomes a sentence with its offset.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace inspect {

// What is wrong with a file, and where.
struct ContentProblem : std::runtime_error {
    ContentProblem(size_t where, const std::string& what) : std::runtime_error(what), offset(where) {}
    size_t offset;  // of the first byte concerned
};

// Reads little-endian numbers, byte-aligned or bit by bit from the least significant one. Running out of bytes is a
// problem, named after the field that was to be read.
class ContentReader {
public:
    explicit ContentReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}
    // From an offset on, up to the end of `bytes`, which problems call by the given name.
    ContentReader(std::span<const uint8_t> bytes, size_t offset, const char* whole)
        : bytes_(bytes), offset_(offset), lastOffset_(offset), whole_(whole) {}

    uint32_t unsignedValue(std::string_view field, uint32_t byteCount);
    int32_t signed16(std::string_view field) { return int16_t(unsignedValue(field, 2)); }
    uint32_t u8(std::string_view field) { return unsignedValue(field, 1); }
    uint32_t u16(std::string_view field) { return unsignedValue(field, 2); }
    uint32_t u32(std::string_view field) { return unsignedValue(field, 4); }
    float f32(std::string_view field) { return std::bit_cast<float>(u32(field)); }
    uint32_t bits(std::string_view field, uint32_t count);  // any count; the low 32 bits are kept
    int32_t signedBits(std::string_view field, uint32_t count);
    void skip(std::string_view field, size_t byteCount);
    void alignToByte() { bitsLeft_ = 0; }

    size_t offset() const { return offset_; }          // of the next byte
    size_t lastOffset() const { return lastOffset_; }  // where the value read last began
    size_t size() const { return bytes_.size(); }

    // A problem with the value read last.
    [[noreturn]] void reject(const std::string& what) const { throw ContentProblem(lastOffset_, what); }
    // Throws "<field> is <value>, expected <expected>" unless ok.
    void expect(bool ok, std::string_view field, int64_t value, std::string_view expected) const;

private:
    void need(std::string_view field, size_t byteCount) const;

    std::span<const uint8_t> bytes_;
    size_t offset_ = 0;
    size_t lastOffset_ = 0;
    const char* whole_ = "the file";
    uint32_t current_ = 0;  // the byte that bits() is in the middle of
    uint32_t bitsLeft_ = 0;
};

}  // namespace inspect
