// Builders of the smaller levels of a texture's image.
#pragma once

#include "scene/texture2d.h"

// Builds the chain with the builder that suits the image's storage.
bool qelMipmaps_build(Texture2D* texture, const Image2D* image);

// Each builds the chain for one kind of storage, stores it in the texture in place of an older one and sets its
// mipmapsBuilt; false, with the texture as it was, when memory runs out. The texture's size logarithms must be those of
// the image.
bool qelMipmaps_buildPalettized(Texture2D* texture, const Image2D* image);
bool qelMipmaps_buildByte(Texture2D* texture, const Image2D* image);  // ALPHA, LUMINANCE
bool qelMipmaps_buildLuminanceAlpha(Texture2D* texture, const Image2D* image);
bool qelMipmaps_buildColor(Texture2D* texture, const Image2D* image);  // RGB, RGBA
MipmapChain* qelMipmaps_duplicate(const MipmapChain* chain);           // null when memory runs out
void qelMipmaps_destroy(MipmapChain* chain);
