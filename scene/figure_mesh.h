// The drawable object of a figure: a skinned mesh whose vertices each follow one bone of an integer hierarchy, and
// whose submeshes are switched by patterns.
#pragma once

#include "frame/atrans3i.h"
#include "scene/skinned_mesh.h"

constexpr uint32_t kMaxFigureTextures = 16;

struct BoneRecord {
    int16_t parent;    // -1: a root
    uint16_t changed;  // the local transform changed since the world transform was computed
    Atrans3i rest;
    uint32_t firstGroup;  // vertex groups that the bone owns
    uint32_t groupCount;
};

// The expanded vertices made from one vertex of the file.
struct VertexGroup {
    uint16_t* vertices;  // a part of FigureBones::groupVertices
    uint32_t count;
};

// The bones of a figure; taken over from the decoded model. Two blocks: one that `bones` heads and that holds the other
// arrays up to `groups`, and groupVertices.
struct FigureBones {
    uint32_t boneCount;
    uint32_t groupCount;
    BoneRecord* bones;
    int32_t* chain;   // scratch: bone indices from a bone to its root
    Atrans3i* world;  // cached world transforms
    Atrans3i* local;  // last posed transforms; the rest transforms after loading
    VertexGroup* groups;
    uint16_t* groupVertices;  // all groups' lists, one behind the other
};

// Slot flags, one word per submesh.
constexpr uint32_t kSlotColored = 1;   // draws colour polygons
constexpr uint32_t kSlotTextured = 2;  // draws textured polygons
constexpr uint32_t kSlotBlended = 4;   // its appearance blends

struct BlendPlan;  // how vertex blending visits the vertices; animation/

// The per-submesh appearance slots of the base hold no references here: what they point to belongs to the appearance
// table.
struct qelFigureMesh : SkinnedMesh {
    float scaleWord;  // 1.0
    uint32_t requestedPattern, appliedPattern;
    uint32_t polygonCount;
    uint32_t patternCount;
    uint32_t textureSlotCount;  // T
    uint8_t hasColors;          // E
    uint32_t classCount;        // R: attribute classes
    // (T + E) R appearances, one reference each: with E the R colour classes first, then for class a and texture t
    // entry E R + a T + t.
    uint32_t appearanceCount;
    Appearance** appearanceTable;                 // owned
    uint32_t* slotFlags;                          // per submesh; owned
    Texture2D* textureSlots[kMaxFigureTextures];  // no references; the appearances hold them
    const ActTable* posedTable;                   // identity of what was last posed; never followed
    int32_t posedAction;
    int32_t posedFrame;
    // patternCount submesh counts, then one appearance-table index per submesh, submeshes in pattern order; owned.
    uint32_t* patternTable;
    FigureBones bones;
    uint32_t blendFlags;        // bit 0: some appearance of the table blends
    VertexArray* opaqueColors;  // the colours with every alpha 255, or null
    BlendPlan* blendPlan;       // owned: one engine block
};

FigureMesh* qelFigureMesh_create();  // empty; null when memory runs out
void qelFigureMesh_init(FigureMesh* figure);
void qelFigureMesh_finalise(FigureMesh* figure);
void FigureBones_release(FigureBones* bones);  // leaves it empty
