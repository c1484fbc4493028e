// Builders of the smaller levels of a texture's image.
#pragma once

#include "scene/texture2d.h"

// Each builds the chain for one kind of storage, stores it in the texture in place of an older one and sets its mipmapsBuilt; false, with nothing allocated left, when
// memory runs out.
bool qelMipmaps_buildPalettized(Texture2D* texture, const Image2D* image);
bool qelMipmaps_buildByte(Texture2D* texture, const Image2D* image);            // ALPHA, LUMINANCE
bool qelMipmaps_buildLuminanceAlpha(Texture2D* texture, const Image2D* image);
bool qelMipmaps_buildColor(Texture2D* texture, const Image2D* image);           // RGB, RGBA
void qelMipmaps_destroy(MipmapChain* chain);
