// Uploads images as OpenGL ES textures on first use, within the process-wide texture memory budget.
#pragma once

#include "scene/image2d.h"
#include "scene/texture2d.h"

// Binds the texture's image on the active unit: uploads it when it has no texture, changed, or lacks the smaller
// levels that the texture asks for, and sends filters and wraps where they differ from what that OpenGL ES texture
// last got. limit is the budget in bytes, 0 for none. OUT_OF_MEMORY leaves the image to be tried again by the next
// draw.
Result qelTextures_bind(Texture2D* texture, uint32_t limit);

// Bytes charged for all uploaded images.
uint32_t qelTextures_memoryInUse();
// What an image is charged, a multiple of 128.
uint32_t qelTextures_accountingSize(const Image2D* image);

// Deletes the image's texture, uncharges it and frees the level record; called when an image goes. Calls OpenGL ES
// only when there is a texture.
void qelTextures_releaseImage(Image2D* image);
