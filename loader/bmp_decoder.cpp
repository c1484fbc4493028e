#include "loader/bmp_decoder.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>

#include "frame/wrap.h"
#include "render/capabilities.h"

constexpr uint16_t kBmpMagic = 0x4D42;  // "BM"
constexpr uint32_t kInfoHeaderSize = 40;
constexpr uint32_t kColorTableOffset = 54;
constexpr uint32_t kFileEntrySize = 4;      // of the colour table
constexpr uint32_t kOpaqueWidthLimit = 64;  // images for this limit keep an opaque palette even when they are padded

struct BmpHeader {
    uint32_t pixelOffset;
    uint32_t width, height;
    bool topDown;
    uint32_t bitsPerPixel;
    uint32_t paletteCount;  // what the header says or implies; only 8-bit files hold a palette
};

static bool isPowerOfTwo(uint32_t side) { return std::has_single_bit(side); }

static bool readHeader(LoaderStream* stream, const BmpOptions& options, BmpHeader& header) {
    uint16_t magic = kBmpMagic;
    if (!options.headerConsumed) {
        magic = readUInt16(stream);
        skipBytes(stream, 4 + 4);  // file size, reserved
    }
    header.pixelOffset = readUInt32(stream);
    const uint32_t infoHeaderSize = readUInt32(stream);
    header.width = readUInt32(stream);
    const int32_t signedHeight = readInt32(stream);
    header.topDown = signedHeight < 0;
    header.height = magnitude(signedHeight);
    skipBytes(stream, 2);  // planes
    header.bitsPerPixel = readUInt16(stream);
    const uint32_t compression = readUInt32(stream);
    skipBytes(stream, 12);  // image size and resolution
    const uint32_t colorsUsed = readUInt32(stream);
    header.paletteCount = colorsUsed ? colorsUsed : kPaletteEntries;
    skipBytes(stream, 4);  // important colours
    return !hasError(stream) && magic == kBmpMagic && infoHeaderSize == kInfoHeaderSize && compression == 0 &&
           (header.bitsPerPixel == 8 || header.bitsPerPixel == 24) && header.paletteCount <= kPaletteEntries &&
           header.width > 0 && header.height > 0 && header.width <= options.widthLimit &&
           header.height <= options.heightLimit;
}

static uint32_t rowSizeOf(const BmpHeader& header) { return header.width * (header.bitsPerPixel / 8); }
static uint32_t rowPaddingOf(const BmpHeader& header) { return (0u - rowSizeOf(header)) & 3; }

// An image is only made for a file that can fill it.
static bool holdsPixels(LoaderStream* stream, const BmpHeader& header) {
    const uint64_t rowSize = uint64_t(header.width) * (header.bitsPerPixel / 8);
    return rowSize * header.height <= LoaderStream_bytesLeft(stream);
}

static void skipToPixels(LoaderStream* stream, const BmpHeader& header) {
    const uint32_t expectedOffset = kColorTableOffset + header.paletteCount * kFileEntrySize;
    if (header.pixelOffset > expectedOffset) skipBytes(stream, header.pixelOffset - expectedOffset);
}

// Calls readRow(output row) for every row of the file, standing at its first pixel.
template <typename ReadRow>
static void readRows(LoaderStream* stream, const BmpHeader& header, ReadRow readRow) {
    const uint32_t padding = rowPaddingOf(header);
    for (uint32_t row = 0; row < header.height; ++row) {
        readRow(header.topDown ? row : header.height - 1 - row);
        if (padding) skipBytes(stream, padding);
    }
}

// Entries as the image takes them: r, g, b, and a unless it is opaque. Entry 0 is the transparent one.
static void readPalette(LoaderStream* stream, const BmpHeader& header, Image2D* image, bool opaque) {
    std::array<uint8_t, kPaletteEntries * kFileEntrySize> table{}, palette;
    readBytes(stream, table.data(), header.paletteCount * kFileEntrySize);
    uint8_t* entry = palette.data();
    for (uint32_t i = 0; i < header.paletteCount; ++i) {
        const uint8_t* bgr = table.data() + i * kFileEntrySize;
        entry = std::reverse_copy(bgr, bgr + 3, entry);
        if (!opaque) *entry++ = i == 0 ? 0 : 255;
    }
    qelImage2D_setPalette(image, palette.data(), header.paletteCount);
}

static Image2D* readIndexed(LoaderStream* stream, const BmpHeader& header, int32_t width, int32_t height, bool opaque) {
    uint8_t* indices;
    Result result;
    Image2D* image = qelImage2D_createIndexed(opaque ? ImageFormat::Rgb : ImageFormat::Rgba, width, height, !opaque,
                                              &indices, &result);
    if (!image) return nullptr;
    readPalette(stream, header, image, opaque);
    skipToPixels(stream, header);
    readRows(stream, header,
             [&](uint32_t row) { readBytes(stream, indices + size_t(row) * size_t(width), header.width); });
    return image;
}

using ColorRow = std::array<uint8_t, 256 * 3>;  // a whole row of the largest texture

static void readColorRow(LoaderStream* stream, ColorRow* bgr, uint16_t* pixels, uint32_t count) {
    while (count > 0) {
        const uint32_t part = std::min(count, uint32_t(bgr->size() / 3));
        readBytes(stream, bgr->data(), part * 3);
        qelImage2D_packBgr565(bgr->data(), pixels, part);
        pixels += part;
        count -= part;
    }
}

static Image2D* readColors(LoaderStream* stream, const BmpHeader& header, int32_t width, int32_t height) {
    uint16_t* pixels;
    Result result;
    Image2D* image = qelImage2D_createRgb565(width, height, &pixels, &result);
    if (!image) return nullptr;
    skipToPixels(stream, header);
    ColorRow bgr{};
    readRows(stream, header,
             [&](uint32_t row) { readColorRow(stream, &bgr, pixels + size_t(row) * size_t(width), header.width); });
    return image;
}

// What lies beside and below the pixels of a padded image stays zero, as the image was made.
Image2D* qelBmp_loadImage(LoaderStream* stream, const BmpOptions& options) {
    BmpHeader header;
    if (!readHeader(stream, options, header) || !holdsPixels(stream, header)) return nullptr;
    uint32_t width = header.width, height = header.height;
    if (options.padToSquare && !(isPowerOfTwo(width) && isPowerOfTwo(height)))
        width = height = std::bit_ceil(std::max(width, height));
    const bool opaque = !options.padToSquare || options.widthLimit == kOpaqueWidthLimit;
    Image2D* image = header.bitsPerPixel == 8 ? readIndexed(stream, header, int32_t(width), int32_t(height), opaque)
                                              : readColors(stream, header, int32_t(width), int32_t(height));
    if (image && hasError(stream)) {
        qelObject3D_unref(image);
        return nullptr;
    }
    return image;
}

Image2D* qelBmp_loadTextureImage(LoaderStream* stream) {
    const auto limit = uint32_t(qelGraphics3D_getProperties().maxTextureDimension);
    Image2D* image = qelBmp_loadImage(stream, {false, limit, limit, true});
    assert(!image || (isPowerOfTwo(uint32_t(image->width)) && isPowerOfTwo(uint32_t(image->height))));
    return image;
}
