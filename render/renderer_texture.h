// An OpenGL ES texture that belongs to the object that shows an image rather than to the image.
#pragma once

#include "scene/image2d.h"

// Backgrounds and sprites keep their image, brought to power-of-two sides, in a texture of their own. A Texture2D
// draws from the texture that its image carries, so that two textures over one image upload it once, and never fills
// its record.
struct RendererTexture {
    uint32_t textureName;  // OpenGL ES name, 0 while there is none
    int32_t width;         // sides of the uploaded copy
    int32_t height;
    uint8_t stretchX;  // the image fills the side rather than standing at the left or top
    uint8_t stretchY;
};

RendererTexture* qelRendererTexture_create();               // null when memory runs out
void qelRendererTexture_destroy(RendererTexture* texture);  // deletes its OpenGL ES texture; ignores null

// Binds the texture on the active unit and uploads the image, which must not be empty, unless the texture has it in
// that form and it did not change. Power-of-two sides stay as they are; the others grow, with the image stretched or
// at the left or top. OUT_OF_MEMORY leaves no texture.
Result qelRendererTexture_bind(RendererTexture* texture, const Image2D* image, bool stretchX, bool stretchY,
                               bool imageChanged);
