// Images: blank ones, and those with pixels or with a palette.
#include "loader/m3g_fields.h"
#include "loader/m3g_object_readers.h"
#include "scene/image2d.h"

// A run of bytes where it lies in the file; null when it is not there.
struct ByteRun {
    const uint8_t* bytes;
    uint32_t count;
};

static ByteRun readRun(SegmentStream* stream) {
    const uint32_t count = readUInt32(stream);
    const uint8_t* bytes = stream->cursor;
    skipBytes(stream, count);
    return {hasError(stream) ? nullptr : bytes, count};
}

// Both as they are in the file.
struct ImageSize {
    uint32_t width, height;
};

static bool isPixelCount(const ImageSize& size, uint32_t count) { return uint64_t(size.width) * size.height == count; }

// One of a few dozen bytes would take any amount of memory. This is as large as sprites and render targets get.
constexpr uint32_t kMaxBlankSide = 2048;

static Image2D* makeBlank(M3gReader* reader, ImageFormat format, const ImageSize& size, uint32_t bytesPerPixel,
                          Result* result) {
    *result = QEL_STATUS_ILLEGAL_ARGUMENT;
    if (size.width > kMaxBlankSide || size.height > kMaxBlankSide) return nullptr;
    M3gReader_deriveBytes(reader, uint64_t(size.width) * size.height * bytesPerPixel);
    if (!M3gReader_isIntact(reader)) return nullptr;
    return qelImage2D_createMutable(int32_t(format), int32_t(size.width), int32_t(size.height), result);
}

static Image2D* makeFilled(M3gReader* reader, ImageFormat format, const ImageSize& size, uint32_t bytesPerPixel,
                           Result* result) {
    *result = QEL_STATUS_OK;
    const ByteRun palette = readRun(reader->stream), pixels = readRun(reader->stream);
    if (!M3gReader_isIntact(reader)) return nullptr;
    const auto width = int32_t(size.width), height = int32_t(size.height);
    if (palette.count > 0) {
        if (palette.count > kPaletteEntries * bytesPerPixel || !isPixelCount(size, pixels.count)) return nullptr;
        return qelImage2D_createPalettized(int32_t(format), width, height, pixels.bytes, palette.bytes,
                                           int32_t(palette.count), result);
    }
    if (pixels.count % bytesPerPixel != 0 || !isPixelCount(size, pixels.count / bytesPerPixel)) return nullptr;
    return qelImage2D_createFromPixels(int32_t(format), width, height, pixels.bytes, true, result);
}

static uint32_t bytesPerPixelOf(ImageFormat format) {
    switch (format) {
        case ImageFormat::Alpha:
        case ImageFormat::Luminance: return 1;
        case ImageFormat::LuminanceAlpha: return 2;
        case ImageFormat::Rgb: return 3;
        case ImageFormat::Rgba: break;
    }
    return 4;
}

Object3D* M3gReader_readImage2D(M3gReader* reader) {
    const M3gObjectFields fields = M3gFields_readObject(reader);
    const uint8_t format = readByte(reader->stream);
    const bool isMutable = M3gReader_readBoolean(reader);
    const uint32_t width = readUInt32(reader->stream), height = readUInt32(reader->stream);
    if (format < uint8_t(ImageFormat::Alpha) || format > uint8_t(ImageFormat::Rgba))
        M3gReader_fail(reader, LoadReason::InvalidValue);
    if (!M3gReader_isIntact(reader)) return nullptr;
    const auto kind = ImageFormat(format);
    const auto make = isMutable ? makeBlank : makeFilled;
    Result result;
    Image2D* image = make(reader, kind, {width, height}, bytesPerPixelOf(kind), &result);
    if (image) return M3gFields_complete(reader, fields, image);
    if (!M3gReader_isIntact(reader)) return nullptr;
    constexpr uint8_t kWrongLength = 5;  // where the engine had nothing to refuse
    M3gReader_require(reader, result);
    M3gReader_fail(reader, LoadReason::ObjectFailed);
    reader->context->reason = result != QEL_STATUS_OK ? uint8_t(result) : kWrongLength;
    return nullptr;
}
