#pragma once

#include "scene/mesh.h"

struct qelMorphingMesh : Mesh {
    VertexBuffer** morphTargets;  // one reference each
    float* weights;
    int32_t targetCount;
    uint8_t weightsChanged;
    VertexBuffer* morphedBuffer;  // what is drawn and picked
    uint32_t morphedFromColor;    // the base's default colour at the last morph: tracks change it, and meshes share it
};

MorphingMesh* qelMorphingMesh_create(VertexBuffer* vertexBuffer, VertexBuffer* const* targets,
                                     TriangleStripArray* const* indexBuffers, Appearance* const* appearances,
                                     int32_t submeshCount, int32_t targetCount, Result* result);
void qelMorphingMesh_finalise(MorphingMesh* mesh);
Result qelMorphingMesh_setWeights(MorphingMesh* mesh, const float* weights);
void qelMorphingMesh_getWeights(const MorphingMesh* mesh, float* out);
VertexBuffer* qelMorphingMesh_getMorphTarget(const MorphingMesh* mesh, int32_t index, Result* result);
// Computes morphedBuffer from the weights and clears weightsChanged. ILLEGAL_STATE when the targets do not match each
// other or the base buffer; a morphed buffer in the shape of the base then keeps its values.
Result qelMorphingMesh_morph(MorphingMesh* mesh);
// Morphs when the weights or the shapes of the base's arrays have changed since the last time, and takes over the
// base's default colour when only that has.
Result qelMorphingMesh_update(MorphingMesh* mesh);
Object3D* qelMorphingMesh_duplicate(const MorphingMesh* mesh);
