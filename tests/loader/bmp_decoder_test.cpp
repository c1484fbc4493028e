#include "loader/bmp_decoder.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>

#include "tests/loader/content.h"
#include "tests/loader/random.h"
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

TEST(BmpDecoder, ReadsRowsOfAnyLength) {
    for (const uint32_t width : {1u, 2u, 5u, 17u, 255u, 256u, 257u, 600u}) {
        BmpImage picture = {.width = width, .height = 2, .bitsPerPixel = 24};
        for (uint32_t i = 0; i < 2 * width; ++i) picture.pixels.push_back({uint8_t(i << 3), uint8_t(i >> 3), 0});
        const Loaded loaded(encodeBmp(picture).bytes, {false, 1024, 2, false});
        ASSERT_NE(loaded.image, nullptr) << width;
        for (uint32_t i = 0; i < 2 * width; ++i)
            ASSERT_EQ(loaded.pixels()[i], uint16_t((i & 31) << 11 | (i >> 3 & 0xFC) << 3)) << width << ": " << i;
    }
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
    ASSERT_TRUE(loads(good.bytes));
    const char* const changes =
        "magic=0x424D headerSize=108 width=0 width=257 width=-1 height=0 height=257 height=-257 height=0x80000000 "
        "bitsPerPixel=16 bitsPerPixel=0 compression=1 colorsUsed=257 colorsUsed=-1 pixelOffset=-1";
    forEachChange(good, changes, [](const EncodedFile& file) {
        EXPECT_FALSE(loads(file.bytes));
        EXPECT_FALSE(loadsFromOpaqueStream(HeapCopy(file.bytes))) << "length not known";
    });
}

TEST(BmpDecoder, RefusesEveryTruncation) {
    const BmpImage colors = {
        .width = 2, .height = 2, .bitsPerPixel = 24, .pixels = std::vector<std::array<uint8_t, 3>>(4)};
    for (const BmpImage& picture : {indexed3x2(), colors})
        expectOnlyWhole(encodeBmp(picture).bytes, loads, loadsFromOpaqueStream);
}

TEST(BmpDecoder, MakesNoImageThatTheFileCannotFill) {
    EncodedFile file = encodeBmp(indexed3x2());
    file.set("width", 65536);
    file.set("height", 32768);
    CountingHeap heap;
    EXPECT_EQ(Loaded(file.bytes, {false, 65536, 65536, false}).image, nullptr);
    EXPECT_EQ(heap.calls(), 0);
}

// --- Random pictures through the encoder, which knows nothing of the library, and back ---

BmpImage randomImage(Random& random) {
    constexpr uint32_t kPowers[] = {1, 2, 4, 8, 16, 32, 64};
    const auto side = [&] { return random.chance(2) ? kPowers[random.below(7)] : 1 + random.below(64); };
    BmpImage image = {.width = side(), .height = side(), .topDown = random.chance(2), .fill = 0xEE};
    const uint32_t pixelCount = image.width * image.height;
    const auto byte = [&] { return uint8_t(random.engine()); };
    if (random.chance(3)) {
        image.bitsPerPixel = 24;
        for (uint32_t i = 0; i < pixelCount; ++i) image.pixels.push_back({byte(), byte(), byte()});
        return image;
    }
    const uint32_t colorCount = random.chance(4) ? 256 : 1 + random.below(256);
    for (uint32_t i = 0; i < colorCount; ++i) image.palette.push_back({byte(), byte(), byte()});
    for (uint32_t i = 0; i < pixelCount; ++i) image.indices.push_back(uint8_t(random.below(colorCount)));
    if (random.chance(3)) image.colorsUsed = 0;
    image.gapByteCount = random.chance(2) ? 0 : random.below(50);
    return image;
}

BmpOptions randomOptions(Random& random) {
    constexpr uint32_t kLimits[] = {64, 65, 256};
    return {random.chance(2), kLimits[random.below(3)], kLimits[random.below(3)], random.chance(2)};
}

// What an image must hold: 16-bit palette entries or pixels, rows from top to bottom.
struct Picture {
    ImageFormat format;
    uint32_t width, height;
    std::vector<uint16_t> palette;
    std::vector<uint16_t> pixels;  // indices or colours
};

uint16_t pack565(const std::array<uint8_t, 3>& rgb) {
    return uint16_t(rgb[0] >> 3 << 11 | rgb[1] >> 2 << 5 | rgb[2] >> 3);
}
uint16_t pack5551(const std::array<uint8_t, 3>& rgb, bool isOpaque) {
    return uint16_t(rgb[0] >> 3 << 11 | rgb[1] >> 3 << 6 | rgb[2] >> 3 << 1 | (isOpaque ? 1 : 0));
}

Picture expectedPicture(const BmpImage& image, const BmpOptions& options) {
    Picture picture = {ImageFormat::Rgb, image.width, image.height, {}, {}};
    if (options.padToSquare && !(std::has_single_bit(image.width) && std::has_single_bit(image.height)))
        picture.width = picture.height = std::bit_ceil(std::max(image.width, image.height));
    picture.pixels.resize(size_t(picture.width) * picture.height);
    for (size_t y = 0; y < image.height; ++y)
        for (size_t x = 0; x < image.width; ++x) {
            const size_t from = y * image.width + x;
            picture.pixels[y * picture.width + x] =
                image.bitsPerPixel == 8 ? image.indices[from] : pack565(image.pixels[from]);
        }
    if (image.bitsPerPixel == 24) return picture;

    const bool cutsOut = options.padToSquare && options.widthLimit != 64;  // entry 0 is transparent
    if (cutsOut) picture.format = ImageFormat::Rgba;
    const size_t storedCount = image.colorsUsed == 0u ? 256 : image.palette.size();
    for (size_t i = 0; i < 256; ++i) {
        const std::array<uint8_t, 3> rgb = i < image.palette.size() ? image.palette[i] : std::array<uint8_t, 3>{};
        picture.palette.push_back(cutsOut ? pack5551(rgb, i > 0 && i < storedCount) : pack565(rgb));
    }
    return picture;
}

template <typename T>
std::vector<uint16_t> readNumbers(const uint8_t* from, size_t count) {
    std::vector<uint16_t> numbers;
    for (size_t i = 0; i < count; ++i) {
        T number;
        std::memcpy(&number, from + i * sizeof(T), sizeof(T));
        numbers.push_back(number);
    }
    return numbers;
}

TEST(BmpRoundtrip, DecodesToWhatWasDescribed) {
    Random random{std::mt19937(40)};
    for (int round = 0; round < 1000 && !testing::Test::HasFailure(); ++round) {
        const BmpImage description = randomImage(random);
        const BmpOptions options = randomOptions(random);
        const EncodedFile file = encodeBmp(description);
        SCOPED_TRACE("round " + std::to_string(round) + ", " + std::to_string(description.bitsPerPixel) + " bits");
        CountingHeap heap;
        MemoryStream stream;
        const size_t consumed = options.headerConsumed ? 10 : 0;
        MemoryStream_init(&stream, file.bytes.data() + consumed, uint32_t(file.bytes.size() - consumed));
        Image2D* image = qelBmp_loadImage(&stream, options);
        ASSERT_TRUE(image);
        EXPECT_EQ(stream.cursor, stream.end);

        const Picture expected = expectedPicture(description, options);
        const bool hasPalette = !expected.palette.empty();
        EXPECT_EQ(image->format, expected.format);
        EXPECT_EQ(uint32_t(image->width), expected.width);
        EXPECT_EQ(uint32_t(image->height), expected.height);
        ASSERT_EQ(image->paletteBlock != nullptr, hasPalette);
        EXPECT_EQ(readNumbers<uint16_t>(image->paletteBlock, expected.palette.size()), expected.palette);
        EXPECT_EQ(image->levelRecord->palette5551 != 0, expected.format == ImageFormat::Rgba);
        const auto readPixels = hasPalette ? readNumbers<uint8_t> : readNumbers<uint16_t>;
        EXPECT_EQ(readPixels(image->pixels, expected.pixels.size()), expected.pixels);
        qelObject3D_unref(image);
        EXPECT_EQ(heap.liveBlocks(), 0);
    }
}

}  // namespace
