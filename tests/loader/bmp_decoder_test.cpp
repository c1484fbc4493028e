#include "loader/bmp_decoder.h"

#include <gtest/gtest.h>

#include <bit>

#include "tests/loader/content.h"
#include "tests/support/counting_heap.h"
#include "tools/encode/bmp_encoder.h"

namespace {

using namespace encode;

constexpr BmpOptions kPlain = {false, 256, 256, false};
constexpr BmpOptions kTexture = {false, 256, 256, true};

// A picture, and the image that was loaded from it.
struct Loaded {
    Loaded(const ByteList& file, const BmpOptions& options) {
        const HeapCopy copy(file);
        MemoryStream stream;
        MemoryStream_init(&stream, copy.data(), copy.size());
        image = qelBmp_loadImage(&stream, options);
    }
    ~Loaded() { qelObject3D_unref(image); }
    ByteList indices() const { return {image->pixels, image->pixels + image->width * image->height}; }
    const uint16_t* pixels() const { return reinterpret_cast<const uint16_t*>(image->pixels); }
    Image2D* image;
};

bool decode(LoaderStream* stream) {
    Image2D* image = qelBmp_loadImage(stream, kTexture);
    qelObject3D_unref(image);
    return image != nullptr;
}

// Three columns, two rows, two colours.
BmpImage indexed3x2() {
    return {
        .width = 3, .height = 2, .indices = {0, 1, 1, 1, 0, 1}, .palette = {{8, 4, 8}, {255, 128, 16}}, .fill = 0xEE};
}

TEST(BmpDecoder, SkipsToPixelsThatBeginLate) {
    // an offset before the end of the colour table does not move the pixels
    EncodedFile early = encodeBmp(indexed3x2());
    early.set("pixelOffset", 0);
    EXPECT_EQ(Loaded(early.bytes, kPlain).indices(), (ByteList{0, 1, 1, 1, 0, 1}));
    // colour tables of 24-bit files count in the offset but are not skipped; 0 colours stand for 256
    EncodedFile colors = encodeBmp({.width = 1, .height = 1, .bitsPerPixel = 24, .pixels = {{255, 0, 0}}});
    colors.set("pixelOffset", 54 + 4 * 256 + 4);
    colors.bytes.insert(colors.bytes.begin() + 54, 4, 0);
    EXPECT_EQ(Loaded(colors.bytes, kPlain).pixels()[0], 0xF800);
}

TEST(BmpDecoder, RefusesWhatItDoesNotKnow) {
    EncodedFile good = encodeBmp(indexed3x2());
    good.bytes.resize(good.bytes.size() + 257 * 4, 0);  // no refusal just for want of bytes
    ASSERT_TRUE(decodes(HeapCopy(good.bytes), decode));
    const char* const changes =
        "magic=0x424D headerSize=108 width=0 width=257 width=-1 height=0 height=257 height=-257 height=0x80000000 "
        "bitsPerPixel=16 bitsPerPixel=0 compression=1 colorsUsed=257 colorsUsed=-1 pixelOffset=-1";
    forEachChange(good, changes, [](const EncodedFile& file) { expectRefused(HeapCopy(file.bytes), decode); });
}

TEST(BmpDecoder, RefusesEveryTruncation) {
    const BmpImage colors = {
        .width = 2, .height = 2, .bitsPerPixel = 24, .pixels = std::vector<std::array<uint8_t, 3>>(4)};
    for (const BmpImage& picture : {indexed3x2(), colors}) expectOnlyWhole(encodeBmp(picture).bytes, decode);
}

TEST(BmpDecoder, MakesNoImageThatTheFileCannotFill) {
    EncodedFile file = encodeBmp(indexed3x2());
    file.set("width", 65536);
    file.set("height", 32768);
    CountingHeap heap;
    EXPECT_EQ(Loaded(file.bytes, {false, 65536, 65536, false}).image, nullptr);
    EXPECT_EQ(heap.calls(), 0);
}

// --- Through the encoder, which knows nothing of the library, and back ---

// 0 colours: a true-colour picture.
BmpImage pictureOf(uint32_t width, uint32_t height, uint32_t colorCount) {
    BmpImage picture = {.width = width, .height = height, .fill = 0xEE};
    const auto colors = [](size_t count) {
        std::vector<std::array<uint8_t, 3>> list;
        for (uint32_t n = 0; n < count; ++n) list.push_back({uint8_t(n * 59), uint8_t(~n * 7), uint8_t(n * n + 100)});
        return list;
    };
    if (colorCount == 0) {
        picture.bitsPerPixel = 24;
        picture.pixels = colors(size_t(width) * height);
        return picture;
    }
    picture.palette = colors(colorCount);
    for (uint32_t i = 0; i < width * height; ++i) picture.indices.push_back(uint8_t(i * 7 % colorCount));
    return picture;
}

uint16_t pack565(const std::array<uint8_t, 3>& rgb) {
    return uint16_t(rgb[0] >> 3 << 11 | rgb[1] >> 2 << 5 | rgb[2] >> 3);
}
uint16_t pack5551(const std::array<uint8_t, 3>& rgb, bool isOpaque) {
    return uint16_t(rgb[0] >> 3 << 11 | rgb[1] >> 3 << 6 | rgb[2] >> 3 << 1 | (isOpaque ? 1 : 0));
}

void expectImage(const Image2D* image, const BmpImage& picture, const BmpOptions& options) {
    const bool isPadded =
        options.padToSquare && !(std::has_single_bit(picture.width) && std::has_single_bit(picture.height));
    const uint32_t square = std::bit_ceil(std::max(picture.width, picture.height));
    ASSERT_EQ(uint32_t(image->width), isPadded ? square : picture.width);
    ASSERT_EQ(uint32_t(image->height), isPadded ? square : picture.height);
    const bool isIndexed = picture.bitsPerPixel == 8;
    for (uint32_t i = 0; i < uint32_t(image->width * image->height); ++i) {
        const uint32_t x = i % uint32_t(image->width), y = i / uint32_t(image->width);
        const size_t from = y * picture.width + x;
        uint32_t expected = 0;
        if (x < picture.width && y < picture.height)
            expected = isIndexed ? picture.indices[from] : pack565(picture.pixels[from]);
        ASSERT_EQ(isIndexed ? image->pixels[i] : reinterpret_cast<const uint16_t*>(image->pixels)[i], expected) << i;
    }
    const bool cutsOut = isIndexed && options.padToSquare && options.widthLimit != 64;  // entry 0 is transparent
    EXPECT_EQ(image->format, cutsOut ? ImageFormat::Rgba : ImageFormat::Rgb);
    EXPECT_EQ(image->levelRecord->palette5551 != 0, cutsOut);
    ASSERT_EQ(image->paletteBlock != nullptr, isIndexed);
    const size_t storedCount = picture.colorsUsed == 0u ? 256 : picture.palette.size();
    for (size_t i = 0; isIndexed && i < 256; ++i) {
        const std::array<uint8_t, 3> rgb = i < picture.palette.size() ? picture.palette[i] : std::array<uint8_t, 3>{};
        ASSERT_EQ(reinterpret_cast<const uint16_t*>(image->paletteBlock)[i],
                  cutsOut ? pack5551(rgb, i > 0 && i < storedCount) : pack565(rgb))
            << "entry " << i;
    }
}

TEST(BmpRoundtrip, DecodesToWhatWasDescribed) {
    struct Case {
        uint32_t width, height;
        bool topDown, allColors;
        uint32_t gapByteCount;
    };
    const Case cases[] = {{1, 1, false, false, 0},   {3, 2, true, true, 5},    {4, 8, false, true, 0},
                          {17, 5, false, false, 50}, {64, 33, true, false, 0}, {32, 64, true, true, 1},
                          {255, 2, false, false, 0}, {256, 3, true, false, 4}, {257, 2, false, true, 0},
                          {600, 2, false, false, 0}};
    for (const Case& c : cases)
        for (const uint32_t colorCount : {0u, 1u, 77u, 256u})
            for (const BmpOptions& options : {BmpOptions{false, 1024, 1024, false}, BmpOptions{true, 600, 64, true},
                                              BmpOptions{true, 64, 64, false}, BmpOptions{false, 64, 64, true}}) {
                if (c.width > options.widthLimit) continue;
                SCOPED_TRACE(testing::PrintToString(std::array{c.width, c.height, colorCount, options.widthLimit}));
                BmpImage picture = pictureOf(c.width, c.height, colorCount);
                picture.topDown = c.topDown;
                if (colorCount > 0) {
                    picture.gapByteCount = c.gapByteCount;
                    if (c.allColors) picture.colorsUsed = 0;
                }
                ByteList file = encodeBmp(picture).bytes;
                if (options.headerConsumed) file.erase(file.begin(), file.begin() + 10);
                const CountingHeap heap;
                MemoryStream stream;
                MemoryStream_init(&stream, file.data(), uint32_t(file.size()));
                Image2D* image = qelBmp_loadImage(&stream, options);
                ASSERT_NE(image, nullptr);
                EXPECT_EQ(stream.cursor, stream.end);
                expectImage(image, picture, options);
                qelObject3D_unref(image);
            }
}

}  // namespace
