// Uploads images as OpenGL ES textures on first use, within the process-wide texture memory budget.
#pragma once

#include "scene/image2d.h"
#include "scene/texture2d.h"

// Bytes charged for all uploaded images.
uint32_t qelTextures_memoryInUse();
// What an image is charged, a multiple of 128.
uint32_t qelTextures_accountingSize(const Image2D* image);

// Deletes the image's texture and uncharges it; called when an image goes. Needs no context when nothing was uploaded.
void qelTextures_releaseImage(Image2D* image);
