#pragma once

#include "scene/node.h"

// What the renderer keeps per submesh for culling and sorting. The depth is read for every submesh, the rest for few.
struct SubmeshBounds {
    float depth;  // sort depth of the last traversal
    float radius;
    float center[3];                // of the sphere, in world coordinates
    int32_t least[3], greatest[3];  // the box of the positions used, in their integers
    uint64_t boxContents;           // of the positions that the box was taken from; 0 at first
};

struct qelMesh : Node {
    VertexBuffer* vertexBuffer;  // one reference
    // Per submesh, all arrays in one block that `appearances` heads:
    Appearance** appearances;           // one reference each; null entries are not drawn
    TriangleStripArray** indexBuffers;  // one reference each
    uint32_t* rendererWords[2];         // the renderer's
    SubmeshBounds* bounds;              // the renderer's
    int32_t submeshCount;
    uint8_t* appearanceChanged;  // set at first and by setAppearance
};

Mesh* qelMesh_create(VertexBuffer* vertexBuffer, TriangleStripArray* const* indexBuffers,
                     Appearance* const* appearances, int32_t submeshCount, Result* result);
// The part of creation and destruction that MorphingMesh and SkinnedMesh share. initEmpty makes a mesh without buffer
// and submeshes; init, on top of it, leaves what can be finalised when it fails.
void qelMesh_initEmpty(Mesh* mesh);
Result qelMesh_init(Mesh* mesh, VertexBuffer* vertexBuffer, TriangleStripArray* const* indexBuffers,
                    Appearance* const* appearances, int32_t submeshCount);
void qelMesh_finalise(Mesh* mesh);
// Makes the per-submesh arrays of an empty mesh, with null appearances and index buffers. False, with nothing kept,
// when memory runs out.
bool qelMesh_allocSubmeshes(Mesh* mesh, int32_t submeshCount);

Result qelMesh_setAppearance(Mesh* mesh, int32_t index, Appearance* appearance);
TriangleStripArray* qelMesh_getIndexBuffer(const Mesh* mesh, int32_t index, Result* result);
int32_t qelMesh_getSubmeshCount(const Mesh* mesh);

Object3D* qelMesh_find(Object3D* object, int32_t userId);
int32_t qelMesh_getReferences(const Object3D* object, Object3D** out);
int32_t qelMesh_animate(Object3D* object, int32_t worldTime, Result* result);
Object3D* qelMesh_duplicate(const Mesh* mesh);

// The two steps from a memberwise copy with a header of its own to a duplicate. detach clears what it must not share,
// after which it can be given back; share takes references and copies the per-submesh arrays, false when memory runs
// out.
void qelMesh_detachCopy(Mesh* copy);
bool qelMesh_shareParts(Mesh* copy, const Mesh* source);
