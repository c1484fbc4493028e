// BMP images: 8-bit palette or 24-bit, uncompressed.
#pragma once

#include "loader/stream.h"
#include "scene/image2d.h"

// How a BMP becomes an image.
struct BmpOptions {
    bool headerConsumed;  // the stream stands behind the first ten bytes
    uint32_t widthLimit, heightLimit;
    bool padToSquare;  // sides that are not both powers of two: pad to the smallest square that holds the image
};

// 24-bit: RGB. 8-bit: palette RGB, or, padded to square with a width limit other than 64, palette RGBA 5551 in which
// entry 0 is transparent. Null when the file is not accepted or memory runs out.
Image2D* qelBmp_loadImage(LoaderStream* stream, const BmpOptions& options);

// The image of a K8 texture: padded, at most 256 on a side, sides powers of two.
Image2D* qelBmp_loadTextureImage(LoaderStream* stream);
