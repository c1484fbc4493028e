#include "render/gl_pixels.h"

#include "frame/allocator.h"
#include "frame/error_status.h"

PixelForm GLPixels_formOf(ImageFormat format) {
    switch (format) {
        case ImageFormat::Alpha: return {GL_ALPHA, GL_UNSIGNED_BYTE, 1};
        case ImageFormat::Luminance: return {GL_LUMINANCE, GL_UNSIGNED_BYTE, 1};
        case ImageFormat::LuminanceAlpha: return {GL_LUMINANCE_ALPHA, GL_UNSIGNED_BYTE, 2};
        case ImageFormat::Rgb: return {GL_RGB, GL_UNSIGNED_SHORT_5_6_5, 2};
        case ImageFormat::Rgba: return {GL_RGBA, GL_UNSIGNED_SHORT_4_4_4_4, 2};
    }
    return {GL_RGBA, GL_UNSIGNED_SHORT_4_4_4_4, 2};
}

GLenum GLPixels_paletteFormatOf(const Image2D* image) {
    switch (image->format) {
        case ImageFormat::Alpha:
        case ImageFormat::LuminanceAlpha: return GL_PALETTE8_RGBA8_OES;
        case ImageFormat::Luminance: return GL_PALETTE8_RGB8_OES;
        case ImageFormat::Rgb: return GL_PALETTE8_R5_G6_B5_OES;
        case ImageFormat::Rgba: break;
    }
    return image->levelRecord->palette5551 ? GL_PALETTE8_RGB5_A1_OES : GL_PALETTE8_RGBA4_OES;
}

uint32_t GLPixels_rowStride(uint32_t rowBytes, GLenum alignmentName) {
    constexpr uint32_t kLargestAlignment = 8;
    constexpr GLint kDefaultAlignment = 4;
    if (rowBytes % kLargestAlignment == 0) return rowBytes;
    GLint alignment = 0;
    glGetIntegerv(alignmentName, &alignment);
    const uint32_t mask = uint32_t(alignment > 0 ? alignment : kDefaultAlignment) - 1;  // a power of two
    return (rowBytes + mask) & ~mask;
}

static bool hadMemory() {
    if (glGetError() != GL_OUT_OF_MEMORY) return true;
    qelStatus_set(QEL_STATUS_OUT_OF_MEMORY);
    return false;
}

bool GLPixels_upload(GLint level, const PixelForm& form, int32_t width, int32_t height, const uint8_t* pixels) {
    const uint32_t rowBytes = uint32_t(width) * form.texelBytes;
    const uint32_t stride = height > 1 ? GLPixels_rowStride(rowBytes, GL_UNPACK_ALIGNMENT) : rowBytes;
    const bool isPadded = stride != rowBytes;
    uint8_t* padded = nullptr;
    if (isPadded) {
        padded = static_cast<uint8_t*>(qelAllocArray(uint32_t(height), stride));
        if (!padded) return false;
        for (int32_t y = 0; y < height; ++y)
            std::memcpy(padded + size_t(y) * stride, pixels + size_t(y) * rowBytes, rowBytes);
    }
    glTexImage2D(GL_TEXTURE_2D, level, GLint(form.format), width, height, 0, form.format, form.type,
                 isPadded ? padded : pixels);
    qelFree(padded);
    return hadMemory();
}

bool GLPixels_uploadPalettized(GLint level, GLenum format, int32_t width, int32_t height, uint32_t byteCount,
                               const uint8_t* block) {
    glCompressedTexImage2D(GL_TEXTURE_2D, level, format, width, height, 0, GLsizei(byteCount), block);
    return hadMemory();
}
