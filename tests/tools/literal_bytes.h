#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

// Expected bytes written by hand, by other means than the writer under test.
using ByteList = std::vector<uint8_t>;

// "4D42 02 00": hexadecimal digits, two per byte, spaces anywhere between bytes.
inline ByteList hexBytes(const std::string& text) {
    ByteList bytes;
    std::string digits;
    for (const char c : text)
        if (c != ' ') digits += c;
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(uint8_t(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

// "101 0011": values in binary, as wide as they have digits; the first value's last digit is bit 0 of the first byte.
inline ByteList packedBits(const std::string& text) {
    std::string stream;
    std::istringstream values(text);
    for (std::string value; values >> value;) stream.append(value.rbegin(), value.rend());
    ByteList bytes;
    for (size_t i = 0; i < stream.size(); i += 8) {
        std::string byte = stream.substr(i, 8);
        byte.resize(8, '0');
        bytes.push_back(uint8_t(std::stoul(std::string(byte.rbegin(), byte.rend()), nullptr, 2)));
    }
    return bytes;
}

inline ByteList operator+(ByteList left, const ByteList& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}
