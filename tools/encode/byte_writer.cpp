#include "tools/encode/byte_writer.h"

#include <bit>
#include <stdexcept>

namespace encode {

const Field& EncodedFile::field(std::string_view name) const {
    for (const Field& each : fields)
        if (each.name == name) return each;
    throw std::out_of_range("the file has no field " + std::string(name));
}

uint64_t EncodedFile::get(const Field& field) const {
    uint64_t value = 0;
    for (uint32_t bit = 0; bit < field.bitCount; ++bit) {
        const size_t at = field.firstBit + bit;
        value |= uint64_t(bytes.at(at / 8) >> at % 8 & 1) << bit;
    }
    return value;
}

void EncodedFile::set(const Field& field, uint64_t value) {
    for (uint32_t bit = 0; bit < field.bitCount; ++bit) {
        const size_t at = field.firstBit + bit;
        const auto mask = uint8_t(1u << at % 8);
        uint8_t& byte = bytes.at(at / 8);
        byte = uint8_t(value >> bit & 1 ? byte | mask : byte & ~mask);
    }
}

static std::invalid_argument doesNotFit(std::string_view name, const std::string& value, const char* kind,
                                        uint32_t bitCount) {
    return std::invalid_argument(std::string(name) + ": " + value + " does not fit " + std::to_string(bitCount) + " " +
                                 kind + " bits");
}

void ByteWriter::putUnsigned(std::string_view name, uint64_t value, uint32_t bitCount) {
    if (unsignedWidth(value) > bitCount) throw doesNotFit(name, std::to_string(value), "unsigned", bitCount);
    putBits(name, value, bitCount);
}

void ByteWriter::putSigned(std::string_view name, int64_t value, uint32_t bitCount) {
    if (signedWidth(value) > bitCount) throw doesNotFit(name, std::to_string(value), "signed", bitCount);
    putBits(name, uint64_t(value), bitCount);
}

void ByteWriter::putF32(std::string_view name, float value) { putBits(name, std::bit_cast<uint32_t>(value), 32); }

void ByteWriter::putBits(std::string_view name, uint64_t value, uint32_t bitCount) {
    if (bitCount > 64) throw std::invalid_argument(std::string(name) + ": fields have at most 64 bits");
    file_.fields.push_back({std::string(name), bitCount_, bitCount});
    bitCount_ += bitCount;
    file_.bytes.resize((bitCount_ + 7) / 8);
    file_.set(file_.fields.back(), value);
}

void ByteWriter::putBytes(std::span<const uint8_t> content) {
    alignToByte();
    file_.bytes.insert(file_.bytes.end(), content.begin(), content.end());
    bitCount_ = file_.bytes.size() * 8;
}

void ByteWriter::putText(std::string_view text) {
    putBytes({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

void ByteWriter::putFill(size_t byteCount, uint8_t value) {
    alignToByte();
    file_.bytes.resize(file_.bytes.size() + byteCount, value);
    bitCount_ = file_.bytes.size() * 8;
}

void ByteWriter::putFile(std::string_view prefix, const EncodedFile& file) {
    alignToByte();
    for (const Field& field : file.fields)
        file_.fields.push_back({std::string(prefix) + field.name, bitCount_ + field.firstBit, field.bitCount});
    putBytes(file.bytes);
}

std::string indexed(std::string_view list, size_t index) {
    return std::string(list) + "[" + std::to_string(index) + "]";
}

uint32_t unsignedWidth(uint64_t value) { return uint32_t(std::bit_width(value)); }

uint32_t signedWidth(int64_t value) { return uint32_t(std::bit_width(uint64_t(value < 0 ? ~value : value))) + 1; }

}  // namespace encode
