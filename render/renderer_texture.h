// The renderer's own record for an object that shows an image: an OpenGL ES texture that belongs to the object rather than to its image.
#pragma once

#include <cstdint>

// Backgrounds and sprites keep their image, copied into power-of-two sides, in a texture of their own. A Texture2D draws from the texture that its image
// carries, so that two textures over one image upload it once; its record only tells two textures apart in the state cache.
struct RendererTexture {
    uint32_t textureName;  // OpenGL ES name, 0 while there is none
    int32_t textureWidth;  // sides of the uploaded copy, powers of two
    int32_t textureHeight;
    uint32_t serial;  // never reused within a process run, unlike an address
};

RendererTexture* qelRendererTexture_create();  // null when memory runs out
void qelRendererTexture_destroy(RendererTexture* texture);  // deletes its OpenGL ES texture; ignores null
