// The two texture units of a draw.
#pragma once

#include "render/gl_state.h"

// What a unit takes for a draw.
struct TextureUnit {
    Texture2D* texture;  // null switches the unit off
    TextureBlending blending;
    const void* coordinates;  // bytes or 16-bit values
    int32_t componentCount, componentSize;
    float scale, bias[3];  // of the coordinates, before the texture's transform
};
using TextureUnits = std::array<TextureUnit, kMaxTextureUnits>;

TextureUnits GLTextureUnits_ofSubmesh(const SubmeshDraw& draw);
TextureUnits GLTextureUnits_ofImmediate(const ImmediateDraw& draw);
// Whether the first unit replaces the colour: nothing is left for lights to do then, unless the texture only brings
// alpha.
bool GLTextureUnits_replaceColor(const TextureUnits& units);

// Both select the unit, for the client's arrays and for the rest.
void GLTextureUnits_switchOff(int32_t unit);
void GLTextureUnits_switchOn(int32_t unit);

// Switches off the units without a texture and prepares the others: texture, environment, coordinates, matrix.
Result GLTextureUnits_send(const GLBackend* backend, const TextureUnits& units);
