#include "render/capabilities.h"

static constexpr Graphics3DProperties kProperties = {
    .supportAntialiasing = false,
    .supportTrueColor = false,
    .supportDithering = false,
    .supportMipmapping = true,
    .supportPerspectiveCorrection = true,
    .supportLocalCameraLighting = false,
    .maxLights = kMaxLights,
    .maxViewportDimension = kMaxViewportDimension,
    .maxTextureDimension = kMaxTextureDimension,
    .maxSpriteCropDimension = kMaxSpriteCropDimension,
    .maxTransformsPerVertex = kMaxTransformsPerVertex,
    .numTextureUnits = kMaxTextureUnits,
};

const Graphics3DProperties& qelGraphics3D_getProperties() { return kProperties; }
