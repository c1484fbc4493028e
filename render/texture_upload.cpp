#include "render/texture_upload.h"

#include <array>

#include "frame/allocator.h"
#include "frame/error_status.h"
#include "loader/mipmaps.h"
#include "render/gl_pixels.h"

constexpr int64_t kNoTextureName = -1;

// Charged bytes of every counted image of the process.
static uint32_t memoryInUse = 0;

uint32_t qelTextures_memoryInUse() { return memoryInUse; }

// What a texel takes in OpenGL ES; palette images are expanded there.
static uint32_t chargedTexelBytes(const Image2D* image) {
    const bool hasPalette = image->paletteBlock != nullptr;
    switch (image->format) {
        case ImageFormat::Alpha: return hasPalette ? 4 : 1;
        case ImageFormat::Luminance: return hasPalette ? 3 : 1;
        case ImageFormat::LuminanceAlpha: return hasPalette ? 4 : 2;
        case ImageFormat::Rgb:
        case ImageFormat::Rgba: break;
    }
    return 2;
}

uint32_t qelTextures_accountingSize(const Image2D* image) {
    constexpr uint32_t kGranule = 128;
    const uint32_t bytes = uint32_t(image->width) * uint32_t(image->height) * chargedTexelBytes(image);
    return (bytes + kGranule - 1) / kGranule * kGranule;
}

static bool charge(const Image2D* image, uint32_t limit) {
    const uint32_t size = qelTextures_accountingSize(image);
    if (limit != 0 && uint64_t(memoryInUse) + size > limit) {
        qelStatus_set(QEL_STATUS_OUT_OF_MEMORY);
        return false;
    }
    memoryInUse += size;
    return true;
}

static void uncharge(Image2D* image) {
    if (image->levelRecord->counted) memoryInUse -= qelTextures_accountingSize(image);
    image->levelRecord->counted = 0;
}

// --- Upload ---

static int32_t levelSide(int32_t side, uint32_t level) { return side >> level > 1 ? side >> level : 1; }

static bool hasLevels(const Texture2D* texture) { return texture->levelFilter != TextureFilter::BaseLevel; }

// The chain as the pixels are at this upload: the image may have been written since the chain was built.
static bool refreshChain(Texture2D* texture) {
    const MipmapChain* chain = texture->mipmapLevels;
    return (chain && chain->imageVersion == texture->image->version) || qelMipmaps_build(texture, texture->image);
}

static bool uploadDirect(const Texture2D* texture, uint32_t limit) {
    Image2D* image = texture->image;
    const PixelForm form = GLPixels_formOf(image->format);
    if (!charge(image, limit)) return false;
    image->levelRecord->counted = 1;
    if (!GLPixels_upload(0, form, image->width, image->height, image->levelRecord->pixels)) return false;
    if (!hasLevels(texture)) return true;
    const MipmapChain& chain = *texture->mipmapLevels;
    for (uint32_t i = 1; i <= chain.levelCount; ++i)
        if (!GLPixels_upload(GLint(i), form, levelSide(image->width, i), levelSide(image->height, i),
                             chain.levels[i - 1]))
            return false;
    return true;
}

static bool uploadPalettized(const Texture2D* texture, uint32_t limit) {
    Image2D* image = texture->image;
    const uint32_t byteCount =
        kPaletteEntries * qelImage2D_storedEntrySize(image) + uint32_t(image->width) * uint32_t(image->height);
    if (!charge(image, limit)) return false;
    image->levelRecord->counted = 1;
    return GLPixels_uploadPalettized(0, GLPixels_paletteFormatOf(image), image->width, image->height, byteCount,
                                     image->levelRecord->pixels);
}

// How many bits of a component a palette of the image's form keeps, by place in an entry; 8 for those as they were
// given.
static std::array<uint8_t, 4> componentBits(const Image2D* image) {
    switch (image->format) {
        case ImageFormat::Rgb: return {5, 6, 5};
        case ImageFormat::Rgba:
            return image->levelRecord->palette5551 ? std::array<uint8_t, 4>{5, 5, 5, 1}
                                                   : std::array<uint8_t, 4>{4, 4, 4, 4};
        case ImageFormat::Alpha:
        case ImageFormat::Luminance:
        case ImageFormat::LuminanceAlpha: break;
    }
    return {8, 8, 8, 8};
}

// A chain's palette holds each component at the top of its byte, with zeros below: white and opaque would fall short of
// 255, and so darken against the base image and fail its alpha test. The bits are repeated downwards; doing it again
// changes nothing.
static void fillComponents(MipmapChain* chain, const Image2D* image) {
    const std::array<uint8_t, 4> bits = componentBits(image);
    for (uint32_t i = 0; i < chain->paletteBytes; ++i) {
        uint8_t& component = chain->block[i];
        const uint32_t width = bits[i % chain->paletteComponents];
        component = width == 1 ? uint8_t(component ? 0xFF : 0) : uint8_t(component | component >> width);
    }
}

// All levels in one call, over one palette. Not charged.
static bool uploadPalettizedLevels(Texture2D* texture) {
    const Image2D* image = texture->image;
    MipmapChain* chain = texture->mipmapLevels;
    uint32_t byteCount = chain->paletteBytes;
    for (uint32_t i = 0; i < chain->levelCount; ++i)
        byteCount += uint32_t(levelSide(image->width, i)) * uint32_t(levelSide(image->height, i));
    fillComponents(chain, image);
    const GLenum format = chain->paletteComponents == 3 ? GL_PALETTE8_RGB8_OES : GL_PALETTE8_RGBA8_OES;
    return GLPixels_uploadPalettized(1 - GLint(chain->levelCount), format, image->width, image->height, byteCount,
                                     chain->block);
}

static bool upload(Texture2D* texture, uint32_t limit) {
    if (hasLevels(texture) && !refreshChain(texture)) return false;
    if (!texture->image->paletteBlock) return uploadDirect(texture, limit);
    return hasLevels(texture) ? uploadPalettizedLevels(texture) : uploadPalettized(texture, limit);
}

static void deleteTexture(Image2D* image) {
    const GLuint name = GLuint(image->levelRecord->textureName);
    uncharge(image);
    glDeleteTextures(1, &name);
}

static void renewTexture(Image2D* image) {
    LevelRecord& record = *image->levelRecord;
    if (record.textureName != kNoTextureName) deleteTexture(image);
    GLuint name = 0;
    glGenTextures(1, &name);
    record.textureName = name;
    record.uploaded = 1;
    record.sampling = 0;
    glBindTexture(GL_TEXTURE_2D, name);
}

static Result uploadImage(Texture2D* texture, uint32_t limit) {
    Image2D* image = texture->image;
    LevelRecord& record = *image->levelRecord;
    // A texture that only lacks the smaller levels stays: the other unit of the same draw may have it bound.
    if (record.textureName == kNoTextureName || qelImage2D_needsUpload(image))
        renewTexture(image);
    else
        uncharge(image);
    if (!upload(texture, limit)) {
        uncharge(image);
        // The contents that matched the version are gone or uncharged, so the next draw has to try again.
        if (!qelImage2D_needsUpload(image)) image->versionUploaded = 0;
        return QEL_STATUS_OUT_OF_MEMORY;
    }
    record.mipmapped = hasLevels(texture);
    qelImage2D_markUploaded(image);
    return QEL_STATUS_OK;
}

// --- Sampling ---

struct FilterPair {
    GLenum nearest, linear;  // by the image filter
};

static FilterPair minifyingFilters(TextureFilter levelFilter) {
    switch (levelFilter) {
        case TextureFilter::BaseLevel: break;
        case TextureFilter::Linear: return {GL_NEAREST_MIPMAP_LINEAR, GL_LINEAR_MIPMAP_LINEAR};
        case TextureFilter::Nearest: return {GL_NEAREST_MIPMAP_NEAREST, GL_LINEAR_MIPMAP_NEAREST};
    }
    return {GL_NEAREST, GL_LINEAR};
}

static void setParameter(GLenum name, GLenum value) { glTexParameterf(GL_TEXTURE_2D, name, GLfloat(value)); }

static GLenum wrapOf(TextureWrap wrap) { return wrap == TextureWrap::Repeat ? GL_REPEAT : GL_CLAMP_TO_EDGE; }

// Never 0, which stands for a texture as it was generated.
static uint32_t packSampling(const Texture2D* texture) {
    return 1u | uint32_t(int32_t(texture->levelFilter) - int32_t(TextureFilter::BaseLevel)) << 1 |
           uint32_t(texture->imageFilter == TextureFilter::Linear) << 3 |
           uint32_t(texture->wrapS == TextureWrap::Repeat) << 4 | uint32_t(texture->wrapT == TextureWrap::Repeat) << 5;
}

static void sendSampling(const Texture2D* texture) {
    const uint32_t sampling = packSampling(texture);
    if (texture->image->levelRecord->sampling == sampling) return;
    const bool isLinear = texture->imageFilter == TextureFilter::Linear;
    const FilterPair minifying = minifyingFilters(texture->levelFilter);
    setParameter(GL_TEXTURE_MIN_FILTER, isLinear ? minifying.linear : minifying.nearest);
    setParameter(GL_TEXTURE_MAG_FILTER, isLinear ? GL_LINEAR : GL_NEAREST);
    setParameter(GL_TEXTURE_WRAP_S, wrapOf(texture->wrapS));
    setParameter(GL_TEXTURE_WRAP_T, wrapOf(texture->wrapT));
    texture->image->levelRecord->sampling = sampling;
}

Result qelTextures_bind(Texture2D* texture, uint32_t limit) {
    Image2D* image = texture->image;
    const LevelRecord& record = *image->levelRecord;
    const bool hasName = record.textureName != kNoTextureName;
    if (hasName) glBindTexture(GL_TEXTURE_2D, GLuint(record.textureName));
    if (!hasName || qelImage2D_needsUpload(image) || (hasLevels(texture) && !record.mipmapped)) {
        const Result result = uploadImage(texture, limit);
        if (result != QEL_STATUS_OK) return result;
    }
    sendSampling(texture);
    texture->stateChanged = image->stateChanged = 0;
    return QEL_STATUS_OK;
}

void qelTextures_releaseImage(Image2D* image) {
    if (!image->levelRecord) return;
    if (image->levelRecord->textureName != kNoTextureName) deleteTexture(image);
    qelFree(image->levelRecord);
    image->levelRecord = nullptr;
}
