#pragma once

#include "scene/object3d.h"

enum class ImageMode : int32_t { Border = 32, Repeat = 33 };

struct Background : Object3D {
    uint32_t color;                               // 0xAARRGGBB
    Image2D* image;                               // one reference, or null; RGB or RGBA
    int32_t cropX, cropY, cropWidth, cropHeight;  // image pixels
    uint8_t colorClearEnabled;
    uint8_t depthClearEnabled;
    ImageMode imageModeX, imageModeY;
    uint32_t imageVersionSeen;  // the image's version when the renderer last took it
    RendererTexture* rendererTexture;
};

Background* qelBackground_create();
Result qelBackground_init(Background* background);
void qelBackground_finalise(Background* background);
void qelBackground_setColor(Background* background, uint32_t argb);
Result qelBackground_setImage(Background* background, Image2D* image);
Result qelBackground_setCrop(Background* background, int32_t x, int32_t y, int32_t width, int32_t height);
Result qelBackground_setImageMode(Background* background, int32_t modeX, int32_t modeY);
void qelBackground_setColorClearEnable(Background* background, bool enabled);
void qelBackground_setDepthClearEnable(Background* background, bool enabled);
Object3D* qelBackground_duplicate(const Background* background);
