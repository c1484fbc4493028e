// Deforms a figure's vertices on the CPU, in integers. _Figure_blendVertices of k8.h does the work.
#pragma once

#include "scene/figure_mesh.h"

// Fills vertexBones (maxInfluences 1), boneMatrices and boneMatrixDone from the figure's bones and groups, and lays out the blend plan. The vertex buffer and the bones
// must be set. False when memory runs out.
bool D_Figure_buildVertexBones(FigureMesh* figure);

// The bone's world transform, computed along the chain of changed ancestors and cached.
void D_Figure_boneWorldTransform(FigureMesh* figure, int32_t bone, Atrans3i* out);
