// What this renderer can do: constant for the life of the library, and a limit for scene objects and loaders as well.
#pragma once

#include <cstdint>

struct Graphics3DProperties {
    bool supportAntialiasing;
    bool supportTrueColor;
    bool supportDithering;
    bool supportMipmapping;
    bool supportPerspectiveCorrection;
    bool supportLocalCameraLighting;
    int32_t maxLights;
    int32_t maxViewportDimension;    // pixels
    int32_t maxTextureDimension;     // texels
    int32_t maxSpriteCropDimension;  // texels
    int32_t maxTransformsPerVertex;
    int32_t numTextureUnits;
};

// The same limits for sizing arrays.
constexpr int32_t kMaxLights = 8;
constexpr int32_t kMaxViewportDimension = 2048;
constexpr int32_t kMaxTextureDimension = 256;
constexpr int32_t kMaxSpriteCropDimension = 2048;
constexpr int32_t kMaxTransformsPerVertex = 3;
constexpr int32_t kMaxTextureUnits = 2;

const Graphics3DProperties& qelGraphics3D_getProperties();
