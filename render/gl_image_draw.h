// Images drawn as such: backgrounds, the contents of image targets, and sprites.
#pragma once

#include "render/gl_state.h"

// What of an image covers the target, and how.
struct BackdropView {
    int32_t cropX, cropY, cropWidth, cropHeight;  // image pixels; stretched over the whole target
    ImageMode modeX, modeY;                       // Border leaves the clear colour where the crop is outside the image
    uint32_t clearColor;                          // 0xAARRGGBB
};

// Clears the colour buffer and draws the image over it. OUT_OF_MEMORY when the image cannot be uploaded.
Result GLImageDraw_backdrop(GLBackend* backend, const Image2D* image, const BackdropView& view,
                            RendererTexture* texture, bool imageChanged);

Result GLImageDraw_background(GLBackend* backend, Background* background);
Result GLImageDraw_sprite(GLBackend* backend, Sprite3D* sprite, const qelTransform* modelTransform, float alphaFactor);
