#include "render/gl_readback.h"

#include "frame/allocator.h"
#include "render/gl_pixels.h"

struct Pixel {
    uint8_t r, g, b, a;
};

static uint8_t luminanceOf(const Pixel& p) { return uint8_t((p.r + p.g + p.b) / 3); }

static void putLittleEndian(uint32_t value, uint8_t* out) {
    out[0] = uint8_t(value);
    out[1] = uint8_t(value >> 8);
}

static void convertPixel(ImageFormat format, const Pixel& p, uint8_t* out) {
    switch (format) {
        case ImageFormat::Alpha: out[0] = p.a; break;
        case ImageFormat::Luminance: out[0] = luminanceOf(p); break;
        case ImageFormat::LuminanceAlpha:
            out[0] = luminanceOf(p);
            out[1] = p.a;
            break;
        case ImageFormat::Rgb: putLittleEndian((p.r & 0xF8) << 8 | (p.g & 0xFC) << 3 | p.b >> 3, out); break;
        case ImageFormat::Rgba:
            putLittleEndian((p.r & 0xF0) << 8 | (p.g & 0xF0) << 4 | (p.b & 0xF0) | p.a >> 4, out);
            break;
    }
}

static bool growBuffer(GLBackend* backend, uint32_t rows, uint32_t stride) {
    if (uint64_t(rows) * stride <= backend->readBackBytes) return true;
    auto* buffer = static_cast<uint8_t*>(qelAllocArray(rows, stride));
    if (!buffer) return false;
    qelFree(backend->readBack);
    backend->readBack = buffer;
    backend->readBackBytes = rows * stride;
    return true;
}

Result GLReadback_intoTargetImage(GLBackend* backend) {
    Image2D* image = backend->targetImage;
    const auto width = uint32_t(image->width), height = uint32_t(image->height);
    const uint32_t stride = GLPixels_rowStride(width * uint32_t(sizeof(Pixel)), GL_PACK_ALIGNMENT);
    if (!growBuffer(backend, height, stride)) return QEL_STATUS_OUT_OF_MEMORY;
    glFinish();
    glReadPixels(0, 0, image->width, image->height, GL_RGBA, GL_UNSIGNED_BYTE, backend->readBack);

    const uint32_t texelBytes = GLPixels_formOf(image->format).texelBytes;
    uint8_t* out = image->pixels;
    for (uint32_t row = height; row-- > 0;) {  // OpenGL ES reads the bottom row first
        const uint8_t* in = backend->readBack + size_t(row) * stride;
        for (uint32_t x = 0; x < width; ++x, in += sizeof(Pixel), out += texelBytes)
            convertPixel(image->format, {in[0], in[1], in[2], in[3]}, out);
    }
    image->bytesPerPixel = int32_t(texelBytes);  // an image that was never set leaves its 3 or 4 bytes a pixel here
    qelImage2D_touch(image);
    return QEL_STATUS_OK;
}
