#pragma once

#include "scene/node.h"

struct Sprite3D : Node {
    Image2D* image;  // never null
    uint8_t scaled;
    Appearance* appearance;
    int32_t cropX, cropY, cropWidth, cropHeight;  // image pixels; negative sizes mirror
    uint32_t imageVersionSeen;
    RendererTexture* rendererTexture;
};

Sprite3D* qelSprite3D_create(bool scaled, Image2D* image, Appearance* appearance, Result* result);
Result qelSprite3D_init(Sprite3D* sprite, bool scaled, Image2D* image, Appearance* appearance);
void qelSprite3D_finalise(Sprite3D* sprite);
Result qelSprite3D_setCrop(Sprite3D* sprite, int32_t x, int32_t y, int32_t width, int32_t height);
Result qelSprite3D_setImage(Sprite3D* sprite, Image2D* image);
void qelSprite3D_setAppearance(Sprite3D* sprite, Appearance* appearance);
Object3D* qelSprite3D_duplicate(const Sprite3D* sprite);
