#include "tools/inspect/content_reader.h"

namespace inspect {

void ContentReader::need(std::string_view field, size_t byteCount) const {
    if (byteCount <= bytes_.size() - offset_) return;
    throw ContentProblem(offset_, std::string(whole_) + " ends where " + std::string(field) + " (" +
                                      std::to_string(byteCount) + (byteCount == 1 ? " byte" : " bytes") +
                                      ") was expected");
}

uint32_t ContentReader::unsignedValue(std::string_view field, uint32_t byteCount) {
    need(field, byteCount);
    lastOffset_ = offset_;
    uint32_t value = 0;
    for (uint32_t i = 0; i < byteCount; ++i) value |= uint32_t(bytes_[offset_++]) << (8 * i);
    return value;
}

uint32_t ContentReader::bits(std::string_view field, uint32_t count) {
    lastOffset_ = bitsLeft_ ? offset_ - 1 : offset_;
    uint32_t value = 0;
    for (uint32_t got = 0; got < count; ++got) {
        if (bitsLeft_ == 0) {
            need(field, 1);
            current_ = bytes_[offset_++];
            bitsLeft_ = 8;
        }
        if (got < 32) value |= (current_ & 1) << got;
        current_ >>= 1;
        --bitsLeft_;
    }
    return value;
}

int32_t ContentReader::signedBits(std::string_view field, uint32_t count) {
    const uint32_t value = bits(field, count);
    const uint32_t sign = 1u << (count - 1);
    return int32_t((value ^ sign) - sign);
}

void ContentReader::skip(std::string_view field, size_t byteCount) {
    need(field, byteCount);
    lastOffset_ = offset_;
    offset_ += byteCount;
}

void ContentReader::expect(bool ok, std::string_view field, int64_t value, std::string_view expected) const {
    if (!ok) reject(std::string(field) + " is " + std::to_string(value) + ", expected " + std::string(expected));
}

}  // namespace inspect
