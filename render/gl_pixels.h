// Pixels on their way into and out of OpenGL ES: formats, row padding and the upload calls. Included by the backend's
// files.
#pragma once

#include <GLES/gl.h>

#include "scene/image2d.h"

// The format and type of a direct image, and the bytes of one texel. RGB and RGBA count as 16-bit also while a
// mutable image still stores 3 or 4 bytes a pixel: all of those are 0xFF until the first set, which reads the same
// either way.
struct PixelForm {
    GLenum format, type;
    uint32_t texelBytes;
};
PixelForm GLPixels_formOf(ImageFormat format);
GLenum GLPixels_paletteFormatOf(const Image2D* image);

// Bytes from one row to the next as OpenGL ES counts them under the alignment in force, GL_UNPACK_ALIGNMENT or
// GL_PACK_ALIGNMENT. Both are the host's to set; they are asked for only where they can matter.
uint32_t GLPixels_rowStride(uint32_t rowBytes, GLenum alignment);

// Specifies a level of the bound texture from rows without padding. False, with the engine status set, when memory
// runs out here or in OpenGL ES.
bool GLPixels_upload(GLint level, const PixelForm& form, int32_t width, int32_t height, const uint8_t* pixels);
// The same from a palette and the indices behind it. A level of 1 - n gives n levels at once.
bool GLPixels_uploadPalettized(GLint level, GLenum format, int32_t width, int32_t height, uint32_t byteCount,
                               const uint8_t* block);
