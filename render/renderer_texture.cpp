#include "render/renderer_texture.h"

#include <bit>

#include "frame/allocator.h"
#include "frame/error_status.h"
#include "render/gl_pixels.h"

RendererTexture* qelRendererTexture_create() {
    return static_cast<RendererTexture*>(qelAlloc(kScratchTag, sizeof(RendererTexture)));
}

static void deleteTexture(RendererTexture* texture) {
    if (texture->textureName == 0) return;
    glDeleteTextures(1, &texture->textureName);
    texture->textureName = 0;
}

void qelRendererTexture_destroy(RendererTexture* texture) {
    if (!texture) return;
    deleteTexture(texture);
    qelFree(texture);
}

struct Side {
    int32_t length;
    uint8_t isStretched;
};

// A stretched image fills its side. A side of four times its length, where that is not too long, keeps the edges of its
// texels within an eighth of a texel of where they belong.
static Side sideFor(int32_t imageSide, bool stretch) {
    constexpr uint32_t kFineSide = 1024;
    uint32_t length = std::bit_ceil(uint32_t(imageSide));
    const bool isStretched = stretch && length != uint32_t(imageSide);
    for (int doubled = 0; isStretched && doubled < 2 && length < kFineSide; ++doubled) length *= 2;
    return {int32_t(length), isStretched};
}

// The texel of the image that stands at one place of the copy. Stretched sides are sampled at texel centres: whoever
// then draws the image pixel by pixel hits every texel once.
static int32_t sourceOf(int32_t place, int32_t imageSide, int32_t side, bool isStretched) {
    return isStretched ? int32_t((2 * int64_t(place) + 1) * imageSide / (2 * int64_t(side))) : place;
}

static void copyTexels(const Image2D* image, const RendererTexture& texture, uint32_t texelBytes, uint8_t* out) {
    const auto pixelBytes = uint32_t(image->paletteBlock ? 1 : image->bytesPerPixel);
    const int32_t columns = texture.stretchX ? texture.width : image->width;
    const int32_t rows = texture.stretchY ? texture.height : image->height;
    for (int32_t y = 0; y < rows; ++y) {
        const int32_t sourceY = sourceOf(y, image->height, texture.height, texture.stretchY);
        const uint8_t* in = image->pixels + size_t(sourceY) * uint32_t(image->width) * pixelBytes;
        uint8_t* row = out + size_t(y) * uint32_t(texture.width) * texelBytes;
        for (int32_t x = 0; x < columns; ++x) {
            const int32_t sourceX = sourceOf(x, image->width, texture.width, texture.stretchX);
            std::memcpy(row + size_t(x) * texelBytes, in + size_t(sourceX) * pixelBytes, texelBytes);
        }
    }
}

// The image with the texture's sides.
static bool upload(const Image2D* image, const RendererTexture& texture) {
    const PixelForm form = GLPixels_formOf(image->format);
    const uint32_t paletteBytes = image->paletteBlock ? kPaletteEntries * qelImage2D_storedEntrySize(image) : 0;
    const uint32_t texelBytes = image->paletteBlock ? 1 : form.texelBytes;
    const uint64_t byteCount = paletteBytes + uint64_t(texture.width) * uint64_t(texture.height) * texelBytes;
    if (byteCount > INT32_MAX) {
        qelStatus_set(QEL_STATUS_OUT_OF_MEMORY);
        return false;
    }
    const Scratch<uint8_t> copy{uint32_t(byteCount)};
    if (!copy.data) return false;
    if (paletteBytes) std::memcpy(copy.data, image->paletteBlock, paletteBytes);
    copyTexels(image, texture, texelBytes, copy.data + paletteBytes);
    return paletteBytes ? GLPixels_uploadPalettized(0, GLPixels_paletteFormatOf(image), texture.width, texture.height,
                                                    uint32_t(byteCount), copy.data)
                        : GLPixels_upload(0, form, texture.width, texture.height, copy.data);
}

Result qelRendererTexture_bind(RendererTexture* texture, const Image2D* image, bool stretchX, bool stretchY,
                               bool imageChanged) {
    constexpr int32_t kLargestSide = 1 << 30;
    if (image->width > kLargestSide || image->height > kLargestSide) {
        qelStatus_set(QEL_STATUS_OUT_OF_MEMORY);
        return QEL_STATUS_OUT_OF_MEMORY;
    }
    const Side x = sideFor(image->width, stretchX), y = sideFor(image->height, stretchY);
    const bool isCurrent = texture->textureName != 0 && !imageChanged && texture->stretchX == x.isStretched &&
                           texture->stretchY == y.isStretched;
    if (isCurrent) {
        glBindTexture(GL_TEXTURE_2D, texture->textureName);
        return QEL_STATUS_OK;
    }
    deleteTexture(texture);
    *texture = {0, x.length, y.length, x.isStretched, y.isStretched};
    glGenTextures(1, &texture->textureName);
    glBindTexture(GL_TEXTURE_2D, texture->textureName);
    if (upload(image, *texture)) return QEL_STATUS_OK;
    deleteTexture(texture);
    return QEL_STATUS_OUT_OF_MEMORY;
}
