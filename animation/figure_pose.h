// Poses a figure: evaluates an action's tracks into bone transforms, deforms the vertices, applies the action's
// patterns. Integer arithmetic throughout.
#pragma once

#include "loader/act_table.h"
#include "scene/figure_mesh.h"

// The frame count of an action as a frame position; 0 for an action that the table does not have.
int32_t D_ActTable_getFrameCount(const ActTable* table, int32_t action);

// Nothing happens unless the table has data, the action exists and the figure has vertices.
void D_Figure_applyAction(FigureMesh* figure, const ActTable* table, int32_t action, int32_t frame);

// Puts a texture (or null) into a texture slot of the figure, on unit 0 and unit 1: all appearances that draw this
// texture get it, and a texture is scaled so that texel coordinates fit. A slot the figure does not have is ignored.
void D_Figure_setTexture(FigureMesh* figure, int32_t slot, Texture2D* texture);
void D_Figure_setSecondTexture(FigureMesh* figure, int32_t slot, Texture2D* texture);
