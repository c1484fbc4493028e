#include "tools/encode/bmp_encoder.h"

#include <algorithm>
#include <stdexcept>

namespace encode {

static constexpr uint32_t kHeaderByteCount = 54;  // file header 14, info header 40
static constexpr uint32_t kFullPalette = 256;

static void check(bool condition, const char* text) {
    if (!condition) throw std::invalid_argument(std::string("bmp: ") + text);
}

static void checkImage(const BmpImage& image) {
    const size_t pixelCount = size_t(image.width) * image.height;
    if (image.bitsPerPixel == 8) {
        check(image.indices.size() == pixelCount, "the number of indices is not width * height");
        check(!image.palette.empty() && image.palette.size() <= kFullPalette, "a palette has 1 to 256 entries");
        check(std::ranges::all_of(image.indices, [&](uint8_t index) { return index < image.palette.size(); }),
              "an index is beyond the palette");
        check(image.pixels.empty(), "8-bit images have no true colour pixels");
    } else {
        check(image.bitsPerPixel == 24, "bitsPerPixel is neither 8 nor 24");
        check(image.pixels.size() == pixelCount, "the number of pixels is not width * height");
        check(image.indices.empty() && image.palette.empty(), "24-bit images have neither indices nor a palette");
    }
    const uint32_t colorsUsed = image.colorsUsed.value_or(0);
    check(colorsUsed == 0 || colorsUsed == image.palette.size(), "colorsUsed is neither 0 nor the palette's size");
}

static void putHeaders(ByteWriter& writer, const BmpImage& image, uint32_t paletteSize, uint32_t imageByteCount) {
    const uint32_t pixelOffset = kHeaderByteCount + 4 * paletteSize + image.gapByteCount;
    writer.putU16("magic", 0x4D42);
    writer.putU32("fileSize", uint64_t(pixelOffset) + imageByteCount);
    writer.putU32("reserved", 0);
    writer.putU32("pixelOffset", pixelOffset);

    writer.putU32("headerSize", 40);
    writer.putU32("width", image.width);
    writer.putI32("height", image.topDown ? -int64_t(image.height) : int64_t(image.height));
    writer.putU16("planes", 1);
    writer.putU16("bitsPerPixel", image.bitsPerPixel);
    writer.putU32("compression", 0);
    writer.putU32("imageSize", imageByteCount);
    writer.putU32("xPixelsPerMetre", 2835);  // 72 dpi
    writer.putU32("yPixelsPerMetre", 2835);
    writer.putU32("colorsUsed", image.colorsUsed.value_or(uint32_t(image.palette.size())));
    writer.putU32("importantColors", 0);
}

static void putRow(ByteWriter& writer, const BmpImage& image, size_t row) {
    const size_t first = row * image.width;
    if (image.bitsPerPixel == 8) {
        writer.putBytes(std::span(image.indices).subspan(first, image.width));
    } else {
        for (const auto& [red, green, blue] : std::span(image.pixels).subspan(first, image.width))
            writer.putBytes(std::array{blue, green, red});
    }
}

EncodedFile encodeBmp(const BmpImage& image) {
    checkImage(image);
    uint32_t paletteSize = uint32_t(image.palette.size());
    if (image.bitsPerPixel == 8 && image.colorsUsed == 0u) paletteSize = kFullPalette;
    const uint32_t rowByteCount = image.width * (image.bitsPerPixel / 8);
    const uint32_t paddingByteCount = (4 - rowByteCount % 4) % 4;

    ByteWriter writer;
    putHeaders(writer, image, paletteSize, (rowByteCount + paddingByteCount) * image.height);
    for (const auto& [red, green, blue] : image.palette) writer.putBytes(std::array<uint8_t, 4>{blue, green, red, 0});
    writer.putFill(4 * (paletteSize - image.palette.size()), 0);
    writer.putFill(image.gapByteCount, image.fill);
    for (uint32_t stored = 0; stored < image.height; ++stored) {
        putRow(writer, image, image.topDown ? stored : image.height - 1 - stored);
        writer.putFill(paddingByteCount, image.fill);
    }
    return writer.take();
}

}  // namespace encode
