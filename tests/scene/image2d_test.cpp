#include "scene/image2d.h"

#include <array>
#include <random>

#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"

using Bytes = std::vector<uint8_t>;
using Words = std::vector<uint16_t>;

constexpr int32_t kAlpha = 96, kLuminance = 97, kLuminanceAlpha = 98, kRgb = 99, kRgba = 100;

// The 16-bit forms, written from their bit layouts.
static uint16_t rgb565(int r, int g, int b) { return uint16_t((r / 8) * 2048 + (g / 4) * 32 + b / 8); }
static uint16_t rgba4444(int r, int g, int b, int a) {
    return uint16_t((r / 16) * 4096 + (g / 16) * 256 + (b / 16) * 16 + a / 16);
}
static uint16_t rgba5551(int r, int g, int b, int a) {
    return uint16_t((r / 8) * 2048 + (g / 8) * 64 + (b / 8) * 2 + (a & 8 ? 1 : 0));
}

static Bytes bytesOf(const void* data, size_t count) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    return {bytes, bytes + count};
}

// --- Packing ---

TEST(PixelPacking, MatchesTheBitLayoutsForEveryByteAndLength) {
    std::mt19937 random(1);
    Bytes given(4 * 1024 + 1);
    for (uint8_t& byte : given) byte = uint8_t(random());
    for (uint32_t i = 0; i < 256; ++i) std::fill_n(&given[4 * i + 1], 4, uint8_t(i));
    struct Case {
        const char* what;
        void (*pack)(const uint8_t*, uint16_t*, uint32_t);
        uint32_t bytes;
        uint16_t (*packOne)(const uint8_t*);
    };
    for (const Case& c :
         {Case{"rgb", qelImage2D_packRgb565, 3, [](const uint8_t* p) { return rgb565(p[0], p[1], p[2]); }},
          Case{"bgr", qelImage2D_packBgr565, 3, [](const uint8_t* p) { return rgb565(p[2], p[1], p[0]); }},
          Case{"4444", qelImage2D_packRgba4444, 4, [](const uint8_t* p) { return rgba4444(p[0], p[1], p[2], p[3]); }},
          Case{"5551", qelImage2D_packRgba5551, 4, [](const uint8_t* p) { return rgba5551(p[0], p[1], p[2], p[3]); }}})
        for (const uint32_t n : {0u, 1u, 2u, 3u, 7u, 8u, 9u, 15u, 16u, 17u, 33u, 1000u, 1024u}) {
            const uint8_t* p = given.data() + 1;  // aligned to nothing
            Words packed(n + 1, 0xBEEF), expected = packed;
            c.pack(p, packed.data(), n);
            for (uint32_t i = 0; i < n; ++i) expected[i] = c.packOne(p + c.bytes * i);
            EXPECT_EQ(packed, expected) << c.what << ", " << n;
        }
}

// --- Stored forms ---

TEST(Image2D, StoresPixelsReadyForUpload) {
    struct Case {
        int32_t format;
        Bytes given;  // 2 x 1
        Bytes stored;
        int32_t bytesPerPixel;
    };
    for (const Case& c : {Case{kAlpha, {1, 2}, {1, 2}, 1}, Case{kLuminance, {1, 2}, {1, 2}, 1},
                          Case{kLuminanceAlpha, {1, 2, 3, 4}, {1, 2, 3, 4}, 2},
                          Case{kRgb, {0x12, 0x34, 0x56, 255, 0, 0}, {0xAA, 0x11, 0x00, 0xF8}, 2},
                          Case{kRgba, {0x12, 0x34, 0x56, 0x78, 0, 255, 0, 16}, {0x57, 0x13, 0x01, 0x0F}, 2}}) {
        SCOPED_TRACE(c.format);
        Result result;
        const Held image(qelImage2D_createFromPixels(c.format, 2, 1, c.given.data(), true, &result));
        ASSERT_EQ(result, QEL_STATUS_OK);
        EXPECT_EQ(bytesOf(image->pixels, c.stored.size()), c.stored);
        EXPECT_EQ(image->bytesPerPixel, c.bytesPerPixel);
        EXPECT_EQ(image->levelRecord->pixels, image->pixels);
        EXPECT_EQ(image->levelRecord->textureName, -1);
        EXPECT_EQ(qelImage2D_set(image, 0, 0, 1, 1, c.given.data()), QEL_STATUS_ILLEGAL_STATE) << "immutable";
    }
}

TEST(Image2D, StoresPalettesOf256EntriesBeforeTheIndices) {
    const Bytes indices = {0, 255, 1, 7};  // 4 x 1
    struct Case {
        int32_t format;
        Bytes palette;  // two entries
        Bytes stored;   // the same two
        uint8_t rest;
    };
    for (const Case& c : {Case{kAlpha, {5, 6}, {255, 255, 255, 5, 255, 255, 255, 6}, 0xFF},
                          Case{kLuminance, {5, 6}, {5, 5, 5, 6, 6, 6}, 0},
                          Case{kLuminanceAlpha, {5, 6, 7, 8}, {5, 5, 5, 6, 7, 7, 7, 8}, 0},
                          Case{kRgb, {0x12, 0x34, 0x56, 255, 0, 0}, {0xAA, 0x11, 0x00, 0xF8}, 0},
                          Case{kRgba, {0x12, 0x34, 0x56, 0x78, 0, 255, 0, 16}, {0x57, 0x13, 0x01, 0x0F}, 0}}) {
        SCOPED_TRACE(c.format);
        Result result;
        const Held image(qelImage2D_createPalettized(c.format, 4, 1, indices.data(), c.palette.data(),
                                                     int32_t(c.palette.size()), &result));
        ASSERT_EQ(result, QEL_STATUS_OK);
        const size_t entrySize = c.stored.size() / 2;
        EXPECT_EQ(qelImage2D_storedEntrySize(image), entrySize);
        Bytes block = c.stored;
        block.resize(256 * entrySize, c.rest);
        block.insert(block.end(), indices.begin(), indices.end());
        EXPECT_EQ(bytesOf(image->paletteBlock, block.size()), block);
        EXPECT_EQ(image->pixels, image->paletteBlock + 256 * entrySize);
        EXPECT_EQ(image->levelRecord->pixels, image->paletteBlock);
        EXPECT_EQ(image->levelRecord->palette5551, 0);
    }
}

TEST(Image2D, ChecksPaletteLengths) {
    const Bytes indices(4), palette(2000);
    Result result;
    for (const auto& [format, length, isTaken] : {std::tuple(kRgb, 0, true),
                                                  {kRgb, 3, true},
                                                  {kRgb, 768, true},
                                                  {kRgb, 2000, true},
                                                  {kRgb, -3, false},
                                                  {kRgb, 767, false},
                                                  {kRgba, 6, false},
                                                  {kLuminanceAlpha, 3, false}}) {
        const Held image(qelImage2D_createPalettized(format, 2, 2, indices.data(), palette.data(), length, &result));
        EXPECT_EQ(image.get() != nullptr, isTaken) << format << ", " << length;
    }
    EXPECT_EQ(qelImage2D_createPalettized(kRgb, 2, 2, nullptr, palette.data(), 3, &result), nullptr);
    EXPECT_EQ(qelImage2D_createPalettized(kRgb, 2, 2, indices.data(), nullptr, 0, &result), nullptr);
    EXPECT_EQ(result, QEL_STATUS_NULL_POINTER);
}

TEST(Image2D, KeepsFigureTexturesAs5551) {
    const Bytes indices = {1, 0};
    Bytes palette(1024);
    for (size_t i = 0; i < palette.size(); ++i) palette[i] = uint8_t(i * 37);
    Result result;
    const Held image(qelImage2D_createPalettized5551(2, 1, indices.data(), palette.data(), &result));
    ASSERT_EQ(result, QEL_STATUS_OK);
    Words expected;
    for (size_t i = 0; i < 1024; i += 4)
        expected.push_back(rgba5551(palette[i], palette[i + 1], palette[i + 2], palette[i + 3]));
    EXPECT_EQ(bytesOf(image->paletteBlock, 512), bytesOf(expected.data(), 512));
    EXPECT_EQ(image->format, ImageFormat::Rgba);
    EXPECT_EQ(image->levelRecord->palette5551, 1);
}

TEST(Image2D, RefusesWhatIsNoImage) {
    const Bytes some(16);
    constexpr Result kBad = QEL_STATUS_ILLEGAL_ARGUMENT, kMemory = QEL_STATUS_OUT_OF_MEMORY;
    using Row = std::array<int32_t, 4>;
    for (const auto& [format, width, height, expected] :
         {Row{95, 1, 1, kBad}, Row{101, 1, 1, kBad}, Row{kRgb, -1, 1, kBad}, Row{kRgb, 1, -1, kBad},
          Row{kRgba, INT32_MAX, INT32_MAX, kMemory}, Row{kAlpha, 65536, 65536, kMemory},
          Row{kLuminanceAlpha, 32768, 65536, kMemory}, Row{kRgb, 0, 5, QEL_STATUS_OK}}) {
        SCOPED_TRACE(testing::Message() << format << ": " << width << " x " << height);
        Result result = -1;
        const Held blank(qelImage2D_createMutable(format, width, height, &result));
        EXPECT_EQ(result, expected);
        const Held image(qelImage2D_createFromPixels(format, width, height, some.data(), true, &result));
        EXPECT_EQ(result, expected);
        const Held indexed(qelImage2D_createPalettized(format, width, height, some.data(), some.data(), 0, &result));
        EXPECT_EQ(result, expected);
    }
}

TEST(Image2D, AdoptsOnlyPixelsThatNeedNoPacking) {
    CountingHeap heap;
    for (const int32_t format : {kAlpha, kLuminance, kLuminanceAlpha, kRgb, kRgba}) {
        SCOPED_TRACE(format);
        const bool isPacked = format >= kRgb;
        auto* pixels = qelAllocArrayOf<uint8_t>(16);
        Result result;
        heap.failAfter(0);
        EXPECT_EQ(qelImage2D_createFromPixels(format, 2, 2, pixels, false, &result), nullptr);
        EXPECT_EQ(result, QEL_STATUS_OUT_OF_MEMORY);
        heap.failAfter(kNeverFail);
        Image2D* image = qelImage2D_createFromPixels(format, 2, 2, pixels, false, &result);
        EXPECT_EQ(image->pixels == pixels, !isPacked);
        qelObject3D_unref(image);
        if (isPacked) qelFree(pixels);
        EXPECT_EQ(heap.liveBlocks(), 0);
    }
}

// --- Changes ---

TEST(Image2D, MutableImagesStartWhiteAndTurnTo16Bits) {
    for (const int32_t format : {kAlpha, kLuminance, kLuminanceAlpha, kRgb, kRgba}) {
        SCOPED_TRACE(format);
        const size_t given = std::array<size_t, 5>{1, 1, 2, 3, 4}[size_t(format - kAlpha)];
        const size_t stored = std::min<size_t>(given, 2);
        Result result;
        const Held image(qelImage2D_createMutable(format, 3, 2, &result));
        EXPECT_EQ(bytesOf(image->pixels, 6 * given), Bytes(6 * given, 0xFF));

        const Bytes patch(2 * given, 0x21);  // columns 1 and 2 of row 1
        image->stateChanged = 0;
        EXPECT_EQ(qelImage2D_set(image, 1, 1, 2, 1, patch.data()), QEL_STATUS_OK);
        EXPECT_EQ(size_t(image->bytesPerPixel), stored);
        EXPECT_EQ(image->version, 2u);
        EXPECT_EQ(image->stateChanged, 1);
        Bytes expected(6 * stored, 0xFF);
        const uint16_t packed = format == kRgb ? rgb565(0x21, 0x21, 0x21) : rgba4444(0x21, 0x21, 0x21, 0x21);
        for (size_t i = 4 * stored; i < expected.size(); ++i)
            expected[i] = format < kRgb ? 0x21 : uint8_t(i % 2 ? packed >> 8 : packed);
        EXPECT_EQ(bytesOf(image->pixels, expected.size()), expected);
    }
}

TEST(Image2D, SetsOnlyRectanglesInside) {
    const Held image(makeImage(ImageFormat::Alpha, 4, 3));
    const Bytes pixels(12);
    using Row = std::array<int32_t, 5>;
    for (const auto& [x, y, width, height, isInside] :
         {Row{0, 0, 4, 3, true}, Row{3, 2, 1, 1, true}, Row{1, 0, 4, 1, false}, Row{0, 1, 1, 3, false},
          Row{-1, 0, 1, 1, false}, Row{0, -1, 1, 1, false}, Row{0, 0, 0, 1, false}, Row{0, 0, 1, 0, false},
          Row{1, 0, INT32_MAX, 1, false}, Row{INT32_MAX, 0, 1, 1, false}}) {
        SCOPED_TRACE(testing::Message() << x << ' ' << y << ' ' << width << ' ' << height);
        const uint32_t version = image->version;
        EXPECT_EQ(qelImage2D_set(image, x, y, width, height, pixels.data()),
                  isInside ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_ARGUMENT);
        EXPECT_EQ(image->version, version + uint32_t(isInside));
    }
    EXPECT_EQ(qelImage2D_set(image, 0, 0, 1, 1, nullptr), QEL_STATUS_NULL_POINTER);

    qelImage2D_markUploaded(image);
    EXPECT_FALSE(qelImage2D_needsUpload(image));
    image->version = image->versionUploaded = 0xFFFFFFFF;
    qelImage2D_touch(image);
    EXPECT_EQ(image->version, 1u) << "0 is no version";
    EXPECT_TRUE(qelImage2D_needsUpload(image));
}

TEST(Image2D, DuplicateOwnsPixelsAndTexture) {
    const Bytes indices = {1, 2, 3, 4}, palette(1024, 0x88);
    Result result;
    const Held indexed(qelImage2D_createPalettized5551(2, 2, indices.data(), palette.data(), &result));
    const Held blank(makeImage(ImageFormat::Rgba));
    for (const Image2D* image : {indexed.get(), blank.get()}) {
        const auto stored = [](const Image2D* i) {
            return i->paletteBlock ? bytesOf(i->paletteBlock, 512 + 4) : bytesOf(i->pixels, 16);
        };
        const Held copy(static_cast<Image2D*>(qelImage2D_duplicate(image)));
        EXPECT_NE(copy->pixels, image->pixels);
        EXPECT_EQ(stored(copy), stored(image));
        EXPECT_EQ(copy->levelRecord->pixels, copy->paletteBlock ? copy->paletteBlock : copy->pixels);
        EXPECT_EQ(copy->levelRecord->textureName, -1);
        EXPECT_EQ(copy->levelRecord->palette5551, image->levelRecord->palette5551);
    }
}
