#pragma once

#include "scene/group.h"
#include "scene/mesh.h"

constexpr int32_t kMaxInfluences = 3;

struct SkinBinding {
    int32_t bone;
    int32_t weight;
    int32_t firstVertex;
    int32_t vertexCount;
};

// Consecutive vertices with the same bones and weights.
struct SkinRun {
    int32_t firstVertex;
    int32_t vertexCount;
};

struct qelSkinnedMesh : Mesh {
    Group* skeleton;                // one reference; its parent is the mesh
    int32_t* vertexInfluenceCount;  // per vertex
    int32_t* vertexWeights;         // per vertex maxInfluences entries, 20.12
    int32_t* vertexBones;           // per vertex maxInfluences entries
    VertexArray* skinnedPositions;  // the deformed output; one reference each
    VertexArray* skinnedNormals;
    int32_t maxInfluences;
    SkinBinding* bindings;
    int32_t bindingCount, bindingCapacity;
    uint8_t bindingsChanged;
    qelTransform** restTransforms;  // per bone: mesh to bone when it was first bound
    int32_t* boneMatrices;          // per bone, as the kernel keeps them; for normals again behind boneCapacity bones
    uint8_t* boneMatrixDone;        // per bone, within one pass
    VertexBuffer* skinnedBuffer;    // what is drawn and picked
    Node** bones;                   // no references
    int32_t boneCount, boneCapacity;
    uint8_t tablesValid;             // 0 for good once the influence tables could not be built
    VertexArray* rescaledPositions;  // base positions requantised for a larger scale, or null
    float skinScale;                 // of the skinned positions
    uint8_t normalsSkinnedOnce;      // and have kept up with the positions since
    SkinRun* runs;                   // all vertices, in order
    int32_t runCount;
};

SkinnedMesh* qelSkinnedMesh_create(VertexBuffer* vertexBuffer, TriangleStripArray* const* indexBuffers,
                                   Appearance* const* appearances, Group* skeleton, int32_t submeshCount,
                                   Result* result);
// A skinned mesh without vertex buffer, submeshes and skeleton: the base of a figure.
void qelSkinnedMesh_initEmpty(SkinnedMesh* mesh);
void qelSkinnedMesh_finalise(SkinnedMesh* mesh);
Result qelSkinnedMesh_addTransform(SkinnedMesh* mesh, Node* bone, int32_t weight, int32_t firstVertex,
                                   int32_t vertexCount);
// Makes room for so many bindings in all, for callers that know how many they add.
Result qelSkinnedMesh_reserveBindings(SkinnedMesh* mesh, int32_t capacity);

// Makes skinnedBuffer and its arrays, or brings them to the shape and attributes of the base buffer. The first step of
// skinning; also makes a figure's output, whose normals keep their length.
Result qelSkinnedMesh_prepareSkinnedBuffer(SkinnedMesh* mesh);
// Computes the skinned vertices; normals only when asked for, present and needed by a material. ILLEGAL_STATE when the
// influence tables are invalid, OUT_OF_MEMORY, or ARITHMETIC when no position scale makes the vertices fit.
Result qelSkinnedMesh_skin(SkinnedMesh* mesh, bool withNormals);
// The copy has skinned arrays of its own and no skeleton; its bone list still names the source's bones.
// duplicateSubtree puts the copied skeleton and bones in their place.
Object3D* qelSkinnedMesh_duplicate(const SkinnedMesh* mesh);
