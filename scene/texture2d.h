#pragma once

#include "scene/image2d.h"
#include "scene/transformable.h"

enum class TextureBlending : int32_t { Add = 224, Blend = 225, Decal = 226, Modulate = 227, Replace = 228 };
enum class TextureFilter : int32_t { BaseLevel = 208, Linear = 209, Nearest = 210 };
enum class TextureWrap : int32_t { Clamp = 240, Repeat = 241 };

constexpr uint32_t kMaxMipmapLevels = 9;  // 256 down to 1

// The smaller levels of an image. Direct formats: levels[0] is the first level below the base, in the image's stored
// form (RGB and RGBA in 16 bits). Palette images: the block begins with the palette, expanded to 8-bit components, then
// come the base indices (levels[0]) and the smaller levels. The chain and its block are one allocation.
struct MipmapChain {
    uint32_t levelCount;
    uint32_t paletteBytes;       // 0 for direct formats
    uint32_t paletteComponents;  // 3 or 4 bytes an entry
    uint32_t imageVersion;       // of the image when the chain was built
    uint32_t blockBytes;
    uint8_t* block;
    uint8_t* levels[kMaxMipmapLevels];  // each width x height texels, both halved from level to level but never below 1
};

struct Texture2D : Transformable {
    Image2D* image;             // never null
    MipmapChain* mipmapLevels;  // owned, or null
    uint32_t mipmapsBuilt;
    uint32_t blendColor;  // 0xRRGGBB
    TextureBlending blending;
    TextureFilter levelFilter;
    TextureFilter imageFilter;
    TextureWrap wrapS, wrapT;
    int32_t widthLog2, heightLog2;
    RendererTexture* rendererTexture;
};

Texture2D* qelTexture2D_create(Image2D* image, Result* result);
Result qelTexture2D_setImage(Texture2D* texture, Image2D* image);
Result qelTexture2D_setFiltering(Texture2D* texture, int32_t levelFilter, int32_t imageFilter);
Result qelTexture2D_setWrapping(Texture2D* texture, int32_t wrapS, int32_t wrapT);
Result qelTexture2D_setBlending(Texture2D* texture, int32_t blending);
void qelTexture2D_setBlendColor(Texture2D* texture, uint32_t color);
Object3D* qelTexture2D_duplicate(const Texture2D* texture);
