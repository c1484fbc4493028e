// Images, stored in the form that OpenGL ES takes unchanged.
#pragma once

#include "scene/object3d.h"

enum class ImageFormat : int32_t { Alpha = 96, Luminance = 97, LuminanceAlpha = 98, Rgb = 99, Rgba = 100 };

// What the renderer knows of an image; one per image, so that all textures over it share one OpenGL ES texture.
struct LevelRecord {
    const uint8_t* pixels;  // upload-ready: the image's pixels, or its palette block
    int64_t textureName;    // OpenGL ES name, -1 while none exists
    uint8_t uploaded;       // a name exists
    uint8_t counted;        // its size is part of the texture memory in use
    uint8_t palette5551;    // the palette holds RGBA5551 entries
    uint8_t mipmapped;      // the smaller levels are uploaded as well
    uint32_t sampling;      // filters and wraps last given to the OpenGL ES texture, packed; 0 before
};

struct Image2D : Object3D {
    uint8_t isMutable;
    ImageFormat format;
    int32_t bytesPerPixel;  // of the stored form; of a palette entry in palette images
    int32_t width, height;
    uint8_t* pixels;        // owned, or the indices inside paletteBlock
    uint8_t* paletteBlock;  // owned: 256 palette entries, then width x height indices; null for direct images
    uint32_t version;       // counts pixel changes from 1, never 0
    uint32_t versionUploaded;
    LevelRecord* levelRecord;  // owned
};

constexpr uint32_t kPaletteEntries = 256;

Image2D* qelImage2D_createMutable(int32_t format, int32_t width, int32_t height, Result* result);
// Pixels of 1, 1, 2, 3, 4 bytes by format, rows top to bottom without padding; RGB and RGBA are packed to 16 bits.
// Without copy the image adopts the engine block `pixels` when the format is one of the other three; on failure it
// stays the caller's.
Image2D* qelImage2D_createFromPixels(int32_t format, int32_t width, int32_t height, const uint8_t* pixels, bool copy,
                                     Result* result);
// Entries of 1, 1, 2, 3, 4 bytes by format; paletteLength in bytes. Entries not given become 0xFF (ALPHA) or 0.
Image2D* qelImage2D_createPalettized(int32_t format, int32_t width, int32_t height, const uint8_t* indices,
                                     const uint8_t* palette, int32_t paletteLength, Result* result);
// 256 palette entries of r, g, b, a bytes, kept as RGBA5551.
Image2D* qelImage2D_createPalettized5551(int32_t width, int32_t height, const uint8_t* indices, const uint8_t* palette,
                                         Result* result);

// Makes a palette image whose indices the caller writes itself (a decoder, straight from its stream): width x height
// bytes, zero-filled, returned in `indices`. The palette follows with qelImage2D_setPalette before the image is used.
// palette5551: RGBA kept as 5-5-5-1.
Image2D* qelImage2D_createIndexed(ImageFormat format, int32_t width, int32_t height, bool palette5551,
                                  uint8_t** indices, Result* result);
// At most 256 entries in the form that createPalettized and createPalettized5551 take; the rest becomes 0xFF (ALPHA) or
// 0.
void qelImage2D_setPalette(Image2D* image, const uint8_t* palette, uint32_t entryCount);

// The same for a direct RGB image, whose 5-6-5 pixels the caller writes.
Image2D* qelImage2D_createRgb565(int32_t width, int32_t height, uint16_t** pixels, Result* result);

Result qelImage2D_set(Image2D* image, int32_t x, int32_t y, int32_t width, int32_t height, const uint8_t* pixels);
bool qelImage2D_needsUpload(const Image2D* image);
void qelImage2D_markUploaded(Image2D* image);
// Counts a pixel change.
void qelImage2D_touch(Image2D* image);
// Bytes of one palette entry as stored; 0 for a direct image.
uint32_t qelImage2D_storedEntrySize(const Image2D* image);
Object3D* qelImage2D_duplicate(const Image2D* image);

// n 5-6-5 pixels from r, g, b bytes (or b, g, r), and 4-4-4-4 and 5-5-5-1 ones from r, g, b, a bytes.
void qelImage2D_packRgb565(const uint8_t* rgb, uint16_t* out, uint32_t n);
void qelImage2D_packBgr565(const uint8_t* bgr, uint16_t* out, uint32_t n);
void qelImage2D_packRgba4444(const uint8_t* rgba, uint16_t* out, uint32_t n);
void qelImage2D_packRgba5551(const uint8_t* rgba, uint16_t* out, uint32_t n);
