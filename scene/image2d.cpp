#include "scene/image2d.h"

#include <algorithm>

#include "render/texture_upload.h"

// Bytes per format: of a pixel or palette entry as it is given, of a pixel and of a palette entry as they are stored.
struct FormatSizes {
    uint8_t given, pixel, entry;
};

static FormatSizes sizesOf(ImageFormat format) {
    switch (format) {
        case ImageFormat::Alpha: return {1, 1, 4};
        case ImageFormat::Luminance: return {1, 1, 3};
        case ImageFormat::LuminanceAlpha: return {2, 2, 4};
        case ImageFormat::Rgb: return {3, 2, 2};
        case ImageFormat::Rgba: return {4, 2, 2};
    }
    return {};
}

static bool isValid(int32_t format, int32_t width, int32_t height) {
    return format >= int32_t(ImageFormat::Alpha) && format <= int32_t(ImageFormat::Rgba) && width >= 0 && height >= 0;
}

static uint64_t pixelCountOf(const Image2D* image) { return uint64_t(image->width) * uint64_t(image->height); }

// --- Life ---

static void destroyImage2D(Object3D* object) {
    auto* image = static_cast<Image2D*>(object);
    qelTextures_releaseImage(image);
    qelFree(image->paletteBlock ? image->paletteBlock : image->pixels);
    qelObject3D_finalise(image);
    qelFree(image);
}

// Sizes that no allocator serves fail like exhausted memory.
static uint8_t* allocBytes(uint64_t count) {
    return qelAllocArrayOf<uint8_t>(uint32_t(std::min<uint64_t>(count, UINT32_MAX)));
}

static bool allocLevelRecord(Image2D* image) {
    image->levelRecord = qelAllocArrayOf<LevelRecord>(1);
    if (!image->levelRecord) return false;
    image->levelRecord->pixels = image->paletteBlock ? image->paletteBlock : image->pixels;
    image->levelRecord->textureName = -1;
    return true;
}

// An image over storage that it owns from then on: the pixels, or a palette with the indices behind it. Null, with the
// storage left to the caller, when memory runs out.
static Image2D* createOver(uint8_t* storage, ImageFormat format, int32_t width, int32_t height, uint32_t paletteBytes) {
    auto* image = qelObject3D_alloc<Image2D>(ClassId::Image2D);
    if (!image) return nullptr;
    qelObject3D_init(image);
    image->classId = ClassId::Image2D;
    image->find = qelObject3D_findCommon;
    image->getReferences = qelObject3D_getReferencesCommon;
    image->destroy = destroyImage2D;
    image->format = format;
    image->width = width;
    image->height = height;
    image->bytesPerPixel = paletteBytes ? sizesOf(format).entry : sizesOf(format).pixel;
    image->version = 1;
    image->pixels = storage + paletteBytes;
    image->paletteBlock = paletteBytes ? storage : nullptr;
    if (allocLevelRecord(image)) return image;
    qelFree(image);
    return nullptr;
}

// The same over a new zeroed block.
static Image2D* createWithStorage(ImageFormat format, int32_t width, int32_t height, uint32_t bytesPerPixel,
                                  uint32_t paletteBytes) {
    uint8_t* storage = allocBytes(uint64_t(width) * uint64_t(height) * bytesPerPixel + paletteBytes);
    if (!storage) return nullptr;
    Image2D* image = createOver(storage, format, width, height, paletteBytes);
    if (!image) qelFree(storage);
    return image;
}

// --- Direct images ---

// n pixels from the form in which they are given to the one in which they are stored.
static void storePixels(ImageFormat format, const uint8_t* given, uint8_t* stored, size_t n) {
    if (format == ImageFormat::Rgb)
        qelImage2D_packRgb565(given, reinterpret_cast<uint16_t*>(stored), uint32_t(n));
    else if (format == ImageFormat::Rgba)
        qelImage2D_packRgba4444(given, reinterpret_cast<uint16_t*>(stored), uint32_t(n));
    else
        std::copy_n(given, n * sizesOf(format).pixel, stored);
}

Image2D* qelImage2D_createMutable(int32_t format, int32_t width, int32_t height, Result* result) {
    *result = QEL_STATUS_ILLEGAL_ARGUMENT;
    if (!isValid(format, width, height)) return nullptr;
    *result = QEL_STATUS_OUT_OF_MEMORY;
    const uint8_t bytesPerPixel = sizesOf(ImageFormat(format)).given;
    Image2D* image = createWithStorage(ImageFormat(format), width, height, bytesPerPixel, 0);
    if (!image) return nullptr;
    image->isMutable = 1;
    image->bytesPerPixel = bytesPerPixel;
    std::fill_n(image->pixels, pixelCountOf(image) * bytesPerPixel, uint8_t(0xFF));
    *result = QEL_STATUS_OK;
    return image;
}

Image2D* qelImage2D_createFromPixels(int32_t format, int32_t width, int32_t height, const uint8_t* pixels, bool copy,
                                     Result* result) {
    *result = pixels ? QEL_STATUS_ILLEGAL_ARGUMENT : QEL_STATUS_NULL_POINTER;
    if (!pixels || !isValid(format, width, height)) return nullptr;
    const auto kind = ImageFormat(format);
    const bool isPacked = kind == ImageFormat::Rgb || kind == ImageFormat::Rgba;
    Image2D* image;
    if (copy || isPacked) {
        image = createWithStorage(kind, width, height, sizesOf(kind).pixel, 0);
        if (image) storePixels(kind, pixels, image->pixels, pixelCountOf(image));
    } else {
        image = createOver(const_cast<uint8_t*>(pixels), kind, width, height, 0);
    }
    *result = image ? QEL_STATUS_OK : QEL_STATUS_OUT_OF_MEMORY;
    return image;
}

Image2D* qelImage2D_createRgb565(int32_t width, int32_t height, uint16_t** pixels, Result* result) {
    *result = QEL_STATUS_ILLEGAL_ARGUMENT;
    if (width < 0 || height < 0) return nullptr;
    Image2D* image = createWithStorage(ImageFormat::Rgb, width, height, 2, 0);
    *result = image ? QEL_STATUS_OK : QEL_STATUS_OUT_OF_MEMORY;
    if (image) *pixels = reinterpret_cast<uint16_t*>(image->pixels);
    return image;
}

static Result checkRectangle(const Image2D* image, int32_t x, int32_t y, int32_t width, int32_t height) {
    if (!image->isMutable) return QEL_STATUS_ILLEGAL_STATE;
    const bool isInside = x >= 0 && y >= 0 && width >= 1 && height >= 1 && width <= image->width &&
                          height <= image->height && x <= image->width - width && y <= image->height - height;
    return isInside ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_ARGUMENT;
}

Result qelImage2D_set(Image2D* image, int32_t x, int32_t y, int32_t width, int32_t height, const uint8_t* pixels) {
    const Result result = checkRectangle(image, x, y, width, height);
    if (result != QEL_STATUS_OK) return result;
    if (!pixels) return QEL_STATUS_NULL_POINTER;
    // A mutable image that nothing was set in holds 0xFF bytes alone, which is the same white in 16 bits: all it takes
    // to change its form is to say so.
    const FormatSizes sizes = sizesOf(image->format);
    image->bytesPerPixel = sizes.pixel;
    for (int32_t row = 0; row < height; ++row) {
        const size_t first = size_t(y + row) * size_t(image->width) + size_t(x);
        storePixels(image->format, pixels, image->pixels + first * sizes.pixel, size_t(width));
        pixels += size_t(width) * sizes.given;
    }
    qelImage2D_touch(image);
    return QEL_STATUS_OK;
}

// --- Palette images ---

Image2D* qelImage2D_createIndexed(ImageFormat format, int32_t width, int32_t height, bool palette5551,
                                  uint8_t** indices, Result* result) {
    *result = QEL_STATUS_ILLEGAL_ARGUMENT;
    if (!isValid(int32_t(format), width, height)) return nullptr;
    Image2D* image = createWithStorage(format, width, height, 1, kPaletteEntries * sizesOf(format).entry);
    *result = image ? QEL_STATUS_OK : QEL_STATUS_OUT_OF_MEMORY;
    if (!image) return nullptr;
    image->levelRecord->palette5551 = palette5551;
    *indices = image->pixels;
    return image;
}

static void storePalette(const Image2D* image, const uint8_t* given, uint32_t count) {
    uint8_t* stored = image->paletteBlock;
    const auto packed = reinterpret_cast<uint16_t*>(stored);
    switch (image->format) {
        case ImageFormat::Alpha:
            for (uint32_t i = 0; i < count; ++i, stored += 4) {
                stored[0] = stored[1] = stored[2] = 0xFF;
                stored[3] = given[i];
            }
            return;
        case ImageFormat::Luminance:
            for (uint32_t i = 0; i < count; ++i, stored += 3) stored[0] = stored[1] = stored[2] = given[i];
            return;
        case ImageFormat::LuminanceAlpha:
            for (uint32_t i = 0; i < count; ++i, stored += 4) {
                stored[0] = stored[1] = stored[2] = given[2 * i];
                stored[3] = given[2 * i + 1];
            }
            return;
        case ImageFormat::Rgb: qelImage2D_packRgb565(given, packed, count); return;
        case ImageFormat::Rgba:
            if (image->levelRecord->palette5551)
                qelImage2D_packRgba5551(given, packed, count);
            else
                qelImage2D_packRgba4444(given, packed, count);
            return;
    }
}

void qelImage2D_setPalette(Image2D* image, const uint8_t* palette, uint32_t entryCount) {
    const uint32_t count = std::min(entryCount, kPaletteEntries), entrySize = sizesOf(image->format).entry;
    storePalette(image, palette, count);
    const uint8_t rest = image->format == ImageFormat::Alpha ? 0xFF : 0;
    std::fill_n(image->paletteBlock + count * entrySize, (kPaletteEntries - count) * entrySize, rest);
}

static Image2D* createFromIndices(ImageFormat format, int32_t width, int32_t height, bool palette5551,
                                  const uint8_t* indices, const uint8_t* palette, uint32_t entryCount, Result* result) {
    uint8_t* storedIndices;
    Image2D* image = qelImage2D_createIndexed(format, width, height, palette5551, &storedIndices, result);
    if (!image) return nullptr;
    std::copy_n(indices, pixelCountOf(image), storedIndices);
    qelImage2D_setPalette(image, palette, entryCount);
    return image;
}

Image2D* qelImage2D_createPalettized(int32_t format, int32_t width, int32_t height, const uint8_t* indices,
                                     const uint8_t* palette, int32_t paletteLength, Result* result) {
    *result = indices && palette ? QEL_STATUS_ILLEGAL_ARGUMENT : QEL_STATUS_NULL_POINTER;
    if (!indices || !palette || !isValid(format, width, height)) return nullptr;
    const int32_t entrySize = sizesOf(ImageFormat(format)).given;
    const int32_t used = std::min(paletteLength, int32_t(kPaletteEntries) * entrySize);
    if (used < 0 || used % entrySize != 0) return nullptr;
    return createFromIndices(ImageFormat(format), width, height, false, indices, palette, uint32_t(used / entrySize),
                             result);
}

Image2D* qelImage2D_createPalettized5551(int32_t width, int32_t height, const uint8_t* indices, const uint8_t* palette,
                                         Result* result) {
    *result = QEL_STATUS_NULL_POINTER;
    if (!indices || !palette) return nullptr;
    return createFromIndices(ImageFormat::Rgba, width, height, true, indices, palette, kPaletteEntries, result);
}

uint32_t qelImage2D_storedEntrySize(const Image2D* image) {
    return image->paletteBlock ? sizesOf(image->format).entry : 0;
}

// --- Versions and copies ---

bool qelImage2D_needsUpload(const Image2D* image) { return image->version != image->versionUploaded; }

void qelImage2D_markUploaded(Image2D* image) { image->versionUploaded = image->version; }

void qelImage2D_touch(Image2D* image) {
    image->stateChanged = 1;
    if (++image->version == 0) image->version = 1;
}

Object3D* qelImage2D_duplicate(const Image2D* image) {
    Image2D* copy = qelObject3D_copy(image);
    if (!copy) return nullptr;
    copy->pixels = nullptr;
    copy->paletteBlock = nullptr;
    copy->levelRecord = nullptr;

    const uint32_t paletteBytes = kPaletteEntries * qelImage2D_storedEntrySize(image);
    const uint64_t byteCount = pixelCountOf(image) * (paletteBytes ? 1 : uint32_t(image->bytesPerPixel)) + paletteBytes;
    uint8_t* storage = allocBytes(byteCount);
    if (storage) {
        std::copy_n(image->pixels - paletteBytes, byteCount, storage);
        copy->pixels = storage + paletteBytes;
        copy->paletteBlock = paletteBytes ? storage : nullptr;
    }
    if (!storage || !allocLevelRecord(copy)) {
        qelObject3D_unref(copy);
        return nullptr;
    }
    copy->levelRecord->palette5551 = image->levelRecord->palette5551;
    return copy;
}
