// An OpenGL ES texture that belongs to the object that shows an image rather than to the image.
#pragma once

#include "scene/image2d.h"

// Backgrounds and sprites keep their image, brought to power-of-two sides, in a texture of their own. A Texture2D draws from
// the texture that its image carries, so that two textures over one image upload it once, and never fills its record.
struct RendererTexture {
    uint32_t textureName;  // OpenGL ES name, 0 while there is none
    int32_t width;         // sides of the uploaded copy
    int32_t height;
    uint8_t stretchX;  // the image fills the side rather than standing at the left or top
    uint8_t stretchY;
};

RendererTexture* qelRendererTexture_create();               // null when memory runs out
void qelRendererTexture_destroy(RendererTexture* texture);  // deletes its OpenGL ES texture; ignores null
