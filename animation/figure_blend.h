// Deforms a figure's vertices on the CPU, in integers. _Figure_blendVertices of k8.h does the work.
#pragma once

#include "scene/figure_mesh.h"

// Fills vertexBones (-1 for vertices that no bone owns) from the bones' vertex groups, and lays out the blend plan,
// which also takes the place of the base's bone matrices. The vertex buffer and the bones must be set; they stay as
// they are for the figure's life. False when memory runs out.
bool D_Figure_buildVertexBones(FigureMesh* figure);

// The world transform of a bone of a figure that has vertices, computed along the chain of its ancestors where one of
// them changed, and cached.
void D_Figure_boneWorldTransform(FigureMesh* figure, int32_t bone, Atrans3i* out);
