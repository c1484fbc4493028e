#include "tools/encode/byte_writer.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/tools/literal_bytes.h"
#include "tools/encode/bone_matrix.h"

namespace encode {
namespace {

TEST(ByteWriter, PutsTheLeastSignificantBitFirst) {
    ByteWriter writer;
    writer.putU16("word", 0x1234);
    writer.putUnsigned("three", 0b101, 3);
    writer.putSigned("ten", -2, 10);      // 11111 in the first byte, 11111 in the second
    writer.putUnsigned("nothing", 0, 0);  // takes no room
    writer.putF32("real", 1.0f);          // 3F800000, five bits into its first byte
    writer.putBytes(hexBytes("AB CD"));   // starts at a byte
    writer.putI32("long", -2);
    EXPECT_EQ(writer.take().bytes, hexBytes("3412 F5 1F 0000F007 ABCD FEFFFFFF"));
}

TEST(ByteWriter, RefusesWhatDoesNotFit) {
    struct Case {
        int64_t value;
        uint32_t bitCount;
        bool isSigned, fits;
    };
    const Case cases[] = {{255, 8, false, true}, {256, 8, false, false}, {0, 0, false, true},  {1, 0, false, false},
                          {-1, 8, false, false}, {1, 65, false, false},  {127, 8, true, true}, {128, 8, true, false},
                          {-128, 8, true, true}, {-129, 8, true, false}, {0, 0, true, false},  {-1, 1, true, true}};
    for (const Case& c : cases) {
        ByteWriter writer;
        const auto fits = [&] {
            try {
                c.isSigned ? writer.putSigned("it", c.value, c.bitCount)
                           : writer.putUnsigned("it", uint64_t(c.value), c.bitCount);
                return true;
            } catch (const std::invalid_argument&) {
                return false;
            }
        };
        EXPECT_EQ(fits(), c.fits) << c.value << " in " << c.bitCount << (c.isSigned ? " signed bits" : " bits");
    }
}

TEST(EncodedFile, OverwritesTheBitsOfOneField) {
    ByteWriter writer;
    writer.putUnsigned("left", 0b111, 3);
    writer.putUnsigned("middle", 0x155, 9);
    writer.putUnsigned("right", 0b1111, 4);
    EncodedFile file = writer.take();
    file.set("middle", 0xAA | 0x1000);  // bits above the field are dropped
    EXPECT_EQ(file.get("middle"), 0xAAu);
    EXPECT_EQ(file.bytes, packedBits("111 010101010 1111"));
    EXPECT_EQ(file.field("right").offset(), 1u);
    EXPECT_THROW(file.set("elsewhere", 0), std::out_of_range);
}

TEST(BoneMatrix, TurnsCounterClockwise) {
    EXPECT_EQ(rotationBone({2, 0, 0}, 90), (BoneMatrix{4096, 0, 0, 0, 0, 0, -4096, 0, 0, 4096, 0, 0}));
    EXPECT_EQ(rotationBone({0, 1, 0}, 90), (BoneMatrix{0, 0, 4096, 0, 0, 4096, 0, 0, -4096, 0, 0, 0}));
    EXPECT_EQ(rotationBone({0, 0, 1}, 30, {7, 8, 9}), (BoneMatrix{3547, -2048, 0, 7, 2048, 3547, 0, 8, 0, 0, 4096, 9}));
    // A third of a turn about the diagonal carries x to y, y to z and z to x.
    EXPECT_EQ(rotationBone({1, 1, 1}, 120, {1, 2, 3}), (BoneMatrix{0, 0, 4096, 1, 4096, 0, 0, 2, 0, 4096, 0, 3}));
    EXPECT_EQ(rotationBone({0, 1, 0}, 0, {1, 2, 3}), translationBone(1, 2, 3));
    EXPECT_THROW(rotationBone({0, 0, 0}, 90), std::invalid_argument);
}

}  // namespace
}  // namespace encode
