#include "loader/bit_reader.h"

#include <gtest/gtest.h>

#include "tests/loader/content.h"

namespace {

// Values of the given widths, all bits written one by one.
ByteList packBits(const std::vector<std::pair<uint64_t, uint32_t>>& values) {
    ByteList bytes;
    uint32_t bitCount = 0;
    for (const auto& [value, width] : values)
        for (uint32_t bit = 0; bit < width; ++bit, ++bitCount) {
            if (bitCount % 8 == 0) bytes.push_back(0);
            if (bit < 64 && value >> bit & 1) bytes.back() = uint8_t(bytes.back() | 1u << bitCount % 8);
        }
    return bytes;
}

TEST(BitReader, ReadsEveryWidthAtEveryPhase) {
    for (uint32_t phase = 0; phase < 8; ++phase)
        for (uint32_t width = 0; width <= 255; ++width) {
            const uint64_t value = 0xA5C3'96E1'8B7D'F00F;
            const HeapCopy bytes(packBits({{0x5A, phase}, {value, width}, {0x2D5, 10}}));
            MemoryStream stream;
            MemoryStream_init(&stream, bytes.data(), bytes.size());
            BitReader reader = {&stream};
            EXPECT_EQ(readBits(reader, phase), 0x5Au & ((1u << phase) - 1));
            const uint64_t kept = width >= 32 ? value & 0xFFFFFFFF : value & ((1u << width) - 1);
            EXPECT_EQ(readBits(reader, width), kept) << width << " bits after " << phase;
            EXPECT_EQ(readBits(reader, 10), 0x2D5u) << "behind " << width << " bits after " << phase;
            EXPECT_FALSE(hasError(&stream));
            EXPECT_EQ(LoaderStream_bytesLeft(&stream), 0u) << "no byte is fetched before it is needed";
        }
}

TEST(BitReader, ReadsAheadOnlyWhatIsExpected) {
    const HeapCopy bytes(packBits({{0x5, 3}, {0x123456789A, 40}, {0x3F, 5}, {0xAB, 8}}));
    MemoryStream stream;
    MemoryStream_init(&stream, bytes.data(), bytes.size());
    BitReader reader = {&stream};
    EXPECT_EQ(readBits(reader, 3), 5u);
    expectBits(reader, 45);
    EXPECT_EQ(readBits(reader, 20), 0x6789Au);
    EXPECT_EQ(readBits(reader, 20), 0x12345u);
    EXPECT_EQ(readBits(reader, 5), 0x3Fu & 31);
    EXPECT_EQ(readByte(&stream), 0xAB) << "the next section begins with the next byte";
}

TEST(BitReader, ExtendsSigns) {
    const HeapCopy bytes(packBits({{0x40, 7}, {0x3F, 7}, {0x1000, 13}, {0xFFFF, 16}, {1, 1}, {0x80000000, 32}}));
    MemoryStream stream;
    MemoryStream_init(&stream, bytes.data(), bytes.size());
    BitReader reader = {&stream};
    EXPECT_EQ(readSignedBits(reader, 7), -64);
    EXPECT_EQ(readSignedBits(reader, 7), 63);
    EXPECT_EQ(readSignedBits(reader, 13), -4096);
    EXPECT_EQ(readSignedBits(reader, 16), -1);
    EXPECT_EQ(readSignedBits(reader, 1), -1);
    EXPECT_EQ(readSignedBits(reader, 32), INT32_MIN);
}

TEST(BitReader, BehindTheEndAllBitsAreZero) {
    const uint8_t bytes[] = {0xFF};
    MemoryStream stream;
    MemoryStream_init(&stream, bytes, sizeof bytes);
    BitReader reader = {&stream};
    EXPECT_EQ(readBits(reader, 12), 0xFFu);
    EXPECT_TRUE(hasError(&stream));
    EXPECT_EQ(readBits(reader, 255), 0u);
}

}  // namespace
