#include "loader/bmp_decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <span>

#include "tests/loader/content.h"
#include "tests/support/counting_heap.h"
#include "tools/encode/bmp_encoder.h"

namespace {

using namespace encode;
using testing::Each;
using testing::ElementsAre;

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
    Loaded(const BmpImage& picture, const BmpOptions& options) : Loaded(encodeBmp(picture).bytes, options) {}
    ~Loaded() { qelObject3D_unref(image); }
    std::span<const uint8_t> indices() const { return {image->pixels, size_t(image->width * image->height)}; }
    std::span<const uint16_t> palette() const { return {reinterpret_cast<uint16_t*>(image->paletteBlock), 256}; }
    std::span<const uint16_t> pixels() const {
        return {reinterpret_cast<uint16_t*>(image->pixels), size_t(image->width * image->height)};
    }
    Image2D* image;
};

bool loads(const ByteList& file) { return Loaded(file, kTexture).image != nullptr; }

bool loadsFromOpaqueStream(const HeapCopy& file) {
    OpaqueStream stream(file.data(), file.size());
    Image2D* image = qelBmp_loadImage(&stream, kTexture);
    qelObject3D_unref(image);
    return image != nullptr;
}

// Three columns, two rows, two colours.
BmpImage indexed3x2() {
    return {
        .width = 3, .height = 2, .indices = {0, 1, 1, 1, 0, 1}, .palette = {{8, 4, 8}, {255, 128, 16}}, .fill = 0xEE};
}

BmpImage solid(uint32_t width, uint32_t height) {
    return {.width = width,
            .height = height,
            .indices = std::vector<uint8_t>(size_t(width) * height, 1),
            .palette = {{}, {}}};
}

TEST(BmpDecoder, PadsTexturesToATransparentSquare) {
    for (const bool topDown : {false, true}) {
        BmpImage picture = indexed3x2();
        picture.topDown = topDown;
        const Loaded loaded(picture, kTexture);
        ASSERT_NE(loaded.image, nullptr);
        EXPECT_EQ(loaded.image->width, 4);
        EXPECT_EQ(loaded.image->height, 4);
        EXPECT_EQ(loaded.image->format, ImageFormat::Rgba);
        EXPECT_EQ(loaded.image->levelRecord->palette5551, 1);
        EXPECT_THAT(loaded.indices(), ElementsAre(0, 1, 1, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0));
        EXPECT_THAT(loaded.palette().first(2), ElementsAre(1 << 11 | 0 << 6 | 1 << 1, 31 << 11 | 16 << 6 | 2 << 1 | 1))
            << "only entry 0 is transparent";
        EXPECT_THAT(loaded.palette().subspan(2), Each(0))
            << "entries that the file does not have are transparent black";
    }
}

TEST(BmpDecoder, KeepsThePaletteOpaqueUnlessItMakesATexture) {
    for (const BmpOptions& options : {kPlain, BmpOptions{false, 64, 256, true}}) {
        const Loaded loaded(indexed3x2(), options);
        ASSERT_NE(loaded.image, nullptr);
        EXPECT_EQ(loaded.image->width, options.padToSquare ? 4 : 3);
        EXPECT_EQ(loaded.image->format, ImageFormat::Rgb);
        EXPECT_EQ(loaded.image->levelRecord->palette5551, 0);
        EXPECT_THAT(loaded.palette().first(3), ElementsAre(1 << 11 | 1 << 5 | 1, 31 << 11 | 32 << 5 | 2, 0));
    }
}

TEST(BmpDecoder, PacksColors) {
    BmpImage picture = {
        .width = 1, .height = 3, .bitsPerPixel = 24, .pixels = {{0x12, 0x34, 0x56}, {255, 0, 0}, {0, 0, 255}}};
    picture.fill = 0xEE;  // one pixel a row is three bytes and one of padding
    const Loaded plain(picture, kPlain);
    ASSERT_NE(plain.image, nullptr);
    EXPECT_EQ(plain.image->format, ImageFormat::Rgb);
    EXPECT_EQ(plain.image->paletteBlock, nullptr);
    EXPECT_THAT(plain.pixels(), ElementsAre(0x11AA, 0xF800, 0x001F));
    const Loaded padded(picture, kTexture);
    EXPECT_THAT(padded.pixels(), ElementsAre(0x11AA, 0, 0, 0, 0xF800, 0, 0, 0, 0x001F, 0, 0, 0, 0, 0, 0, 0));
}

TEST(BmpDecoder, ReadsRowsOfAnyLength) {
    for (const uint32_t width : {1u, 2u, 5u, 17u, 255u, 256u, 257u, 600u}) {
        BmpImage picture = {.width = width, .height = 2, .bitsPerPixel = 24};
        for (uint32_t i = 0; i < 2 * width; ++i) picture.pixels.push_back({uint8_t(i << 3), uint8_t(i >> 3), 0});
        const Loaded loaded(picture, {false, 1024, 2, false});
        ASSERT_NE(loaded.image, nullptr) << width;
        for (uint32_t i = 0; i < 2 * width; ++i)
            ASSERT_EQ(loaded.pixels()[i], uint16_t((i & 31) << 11 | (i >> 3 & 0xFC) << 3)) << width << ": " << i;
    }
}

TEST(BmpDecoder, KeepsSidesThatArePowersOfTwo) {
    struct Case {
        uint32_t width, height, paddedWidth, paddedHeight;
    };
    for (const Case& c : {Case{64, 32, 64, 32}, Case{1, 1, 1, 1}, Case{64, 33, 64, 64}, Case{5, 200, 256, 256},
                          Case{256, 256, 256, 256}}) {
        const Loaded loaded(solid(c.width, c.height), kTexture);
        ASSERT_NE(loaded.image, nullptr);
        EXPECT_EQ(loaded.image->width, int32_t(c.paddedWidth)) << c.width << " x " << c.height;
        EXPECT_EQ(loaded.image->height, int32_t(c.paddedHeight)) << c.width << " x " << c.height;
    }
}

TEST(BmpDecoder, SkipsToPixelsThatBeginLate) {
    BmpImage picture = indexed3x2();
    picture.gapByteCount = 7;
    EXPECT_THAT(Loaded(picture, kPlain).indices(), ElementsAre(0, 1, 1, 1, 0, 1));
    // an offset before the end of the colour table does not move the pixels
    EncodedFile early = encodeBmp(indexed3x2());
    early.set("pixelOffset", 0);
    EXPECT_THAT(Loaded(early.bytes, kPlain).indices(), ElementsAre(0, 1, 1, 1, 0, 1));
    // colour tables of 24-bit files count in the offset but are not skipped; 0 colours stand for 256
    EncodedFile colors = encodeBmp({.width = 1, .height = 1, .bitsPerPixel = 24, .pixels = {{255, 0, 0}}});
    colors.set("pixelOffset", 54 + 4 * 256 + 4);
    colors.bytes.insert(colors.bytes.begin() + 54, 4, 0);
    EXPECT_THAT(Loaded(colors.bytes, kPlain).pixels(), ElementsAre(0xF800));
}

TEST(BmpDecoder, StartsBehindAHeaderThatWasConsumed) {
    const ByteList file = encodeBmp(indexed3x2()).bytes;
    EXPECT_NE(Loaded(ByteList(file.begin() + 10, file.end()), {true, 256, 256, true}).image, nullptr);
}

TEST(BmpDecoder, RefusesWhatItDoesNotKnow) {
    const auto set = [](const char* field, uint64_t value) {
        return [=](EncodedFile& file) { file.set(field, value); };
    };
    const BrokenFile cases[] = {
        {"another magic", set("magic", 0x424D)},
        {"a 108-byte info header", set("headerSize", 108)},
        {"width 0", set("width", 0)},
        {"width 257", set("width", 257)},
        {"width -1", set("width", 0xFFFFFFFF)},
        {"height 0", set("height", 0)},
        {"height 257", set("height", 257)},
        {"height -257", set("height", uint64_t(-257))},
        {"the height without a magnitude", set("height", 0x80000000)},
        {"16 bits per pixel", set("bitsPerPixel", 16)},
        {"0 bits per pixel", set("bitsPerPixel", 0)},
        {"run lengths", set("compression", 1)},
        {"257 colours", set("colorsUsed", 257)},
        {"as many colours as can be said", set("colorsUsed", 0xFFFFFFFF)},
        {"pixels far behind the end", set("pixelOffset", 0xFFFFFFFF)},
    };
    for (const BrokenFile& c : cases) {
        EncodedFile file = encodeBmp(indexed3x2());
        c.breakIt(file);
        file.bytes.resize(file.bytes.size() + 257 * 4, 0);  // no refusal just for want of bytes
        EXPECT_FALSE(loads(file.bytes)) << c.what;
        EXPECT_FALSE(loadsFromOpaqueStream(HeapCopy(file.bytes))) << c.what << ", length not known";
    }
    const Loaded tooWide(solid(300, 1), {false, 256, 256, true}), wideEnough(solid(300, 1), {false, 300, 1, false});
    EXPECT_EQ(tooWide.image, nullptr);
    EXPECT_NE(wideEnough.image, nullptr);
}

TEST(BmpDecoder, RefusesEveryTruncation) {
    const BmpImage colors = {
        .width = 2, .height = 2, .bitsPerPixel = 24, .pixels = std::vector<std::array<uint8_t, 3>>(4)};
    for (const BmpImage& picture : {indexed3x2(), colors}) {
        const ByteList file = encodeBmp(picture).bytes;
        for (size_t length = 0; length < file.size(); ++length) {
            EXPECT_FALSE(loads(ByteList(file.begin(), file.begin() + ptrdiff_t(length)))) << length;
            EXPECT_FALSE(loadsFromOpaqueStream(HeapCopy(file, length))) << length;
        }
        EXPECT_TRUE(loads(file));
        EXPECT_TRUE(loadsFromOpaqueStream(HeapCopy(file)));
    }
}

TEST(BmpDecoder, GivesEverythingBackWhenMemoryRunsOut) {
    for (const uint32_t bitsPerPixel : {8u, 24u}) {
        BmpImage picture = indexed3x2();
        picture.bitsPerPixel = bitsPerPixel;
        if (bitsPerPixel == 24) picture.pixels.resize(6), picture.palette.clear(), picture.indices.clear();
        const ByteList file = encodeBmp(picture).bytes;
        sweepEngineAllocations(FailMode::Once, [&](CountingHeap& heap) {
            const bool loaded = loads(file);
            EXPECT_EQ(loaded, !heap.hasFailed());
        });
    }
}

TEST(BmpDecoder, MakesNoImageThatTheFileCannotFill) {
    EncodedFile file = encodeBmp(indexed3x2());
    file.set("width", 65536);
    file.set("height", 32768);
    CountingHeap heap;
    EXPECT_EQ(Loaded(file.bytes, {false, 65536, 65536, false}).image, nullptr);
    EXPECT_EQ(heap.calls(), 0);
}

TEST(BmpDecoder, TexturesAreAtMost256OnASide) {
    for (const uint32_t width : {256u, 257u}) {
        const ByteList file = encodeBmp(solid(width, 3)).bytes;
        MemoryStream stream;
        MemoryStream_init(&stream, file.data(), uint32_t(file.size()));
        Image2D* image = qelBmp_loadTextureImage(&stream);
        EXPECT_EQ(image != nullptr, width == 256);
        qelObject3D_unref(image);
    }
}

}  // namespace
