// Random pictures go through the encoder, which knows nothing of the library, and back through the decoder.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>

#include "loader/bmp_decoder.h"
#include "tests/loader/random.h"
#include "tests/support/counting_heap.h"
#include "tools/encode/bmp_encoder.h"

namespace {

using namespace encode;

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
