#include "tools/encode/bmp_encoder.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "tests/tools/literal_bytes.h"

namespace encode {
namespace {

BmpImage smallPaletteImage() {
    return {.width = 3, .height = 2, .indices = {0, 1, 0, 1, 1, 0}, .palette = {{0x10, 0x20, 0x30}, {0xFF, 0x80, 0}}};
}

TEST(BmpEncoder, WritesAPalettePictureFromItsBottomRowUp) {
    BmpImage image = smallPaletteImage();
    image.fill = 0xEE;
    EXPECT_EQ(encodeBmp(image).bytes, hexBytes("424D 46000000 00000000 3E000000"  // 70 bytes, pixels at 62
                                               "28000000 03000000 02000000 0100 0800 00000000"  // 3 x 2, 8 bits
                                               "08000000 130B0000 130B0000 02000000 00000000"   // 8 bytes, 2 colours
                                               "30201000 0080FF00"
                                               "01 01 00 EE  00 01 00 EE"));
}

TEST(BmpEncoder, WritesTrueColorFromTheTopAfterAGap) {
    const BmpImage image = {.width = 1,
                            .height = 2,
                            .bitsPerPixel = 24,
                            .pixels = {{1, 2, 3}, {4, 5, 6}},
                            .topDown = true,
                            .gapByteCount = 3,
                            .fill = 0xEE};
    EXPECT_EQ(encodeBmp(image).bytes, hexBytes("424D 41000000 00000000 39000000"
                                               "28000000 01000000 FEFFFFFF 0100 1800 00000000"
                                               "08000000 130B0000 130B0000 00000000 00000000"
                                               "EEEEEE 030201EE 060504EE"));
}

TEST(BmpEncoder, RefusesContradictions) {
    struct Case {
        const char* what;
        std::function<void(BmpImage&)> spoil;
    };
    const Case cases[] = {
        {"16 bits", [](BmpImage& i) { i.bitsPerPixel = 16; }},
        {"too few indices", [](BmpImage& i) { i.indices.pop_back(); }},
        {"an index beyond the palette", [](BmpImage& i) { i.indices[3] = 2; }},
        {"no palette", [](BmpImage& i) { i.palette.clear(); }},
        {"257 colours", [](BmpImage& i) { i.palette.resize(257); }},
        {"colorsUsed of another palette", [](BmpImage& i) { i.colorsUsed = 3; }},
        {"24 bits with indices", [](BmpImage& i) { i.bitsPerPixel = 24; }},
    };
    for (const Case& c : cases) {
        BmpImage image = smallPaletteImage();
        c.spoil(image);
        EXPECT_THROW(encodeBmp(image), std::invalid_argument) << c.what;
    }
}

}  // namespace
}  // namespace encode
