// What the loaded info of figures and textures means for appearances and textures.
#pragma once

#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/polygon_mode.h"
#include "scene/texture2d.h"
#include "scene/vertex_buffer.h"

// Of a K8_BLEND_ value; any other is opaque.
Blending K8FigureParameters_blending(int16_t blendMode);
// A factor of 0..1 from an opacity in percent, an F number.
float K8FigureParameters_alphaFactor(int32_t transparency);

// Blends where the figure does, tests depth, and writes depth only where nothing blends. Null is ignored.
void K8FigureParameters_applyCompositing(CompositingMode* mode, Blending figureBlending);

// Gives the handle's Texture2D the blending of its info, and the second map's Texture2D that of second maps.
void K8FigureParameters_applyTextureMode(const K8Texture* handle);
// The Texture2D of the handle's second map, or null when it has none that is to be drawn.
Texture2D* K8FigureParameters_secondMap(const K8Texture* handle);
// Lets second maps be laid over a mesh with the coordinates of the first.
void K8FigureParameters_ensureSecondCoordinates(VertexBuffer* buffer);
