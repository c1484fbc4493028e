// The block that picking keeps with positions, in VertexArray::pickTree: a count of picks at first, a tree later.
#pragma once

#include "query/pick_triangle.h"
#include "query/ray_tree.h"

enum class KeptState : uint32_t { Counting, Tree, Refused };

// A tree goes on with what KeptParts names.
struct KeptPick {
    uint64_t key;  // of the positions and all triangles
    KeptState state;
    uint32_t credit;  // picks of these triangles less those of others, none below 0
    uint32_t submeshCount;
    uint32_t wildCount, boxedCount;  // triangles
};

struct KeptSubmesh {
    uint64_t contents;
    uint32_t firstTriangle;  // in walk order
};

static_assert(alignof(KeptSubmesh) <= alignof(KeptPick) && sizeof(RayTreeNode) % 4 == 0, "parts lie end to end");

// Four triangles, with their numbers in walk order; a leaf that has fewer repeats one.
struct KeptLeaf {
    uint32_t numbers[4];
    uint16_t corners[3][4];  // vertices: the first, second and third corners of the four
};

inline uint32_t KeptLeaf_countFor(uint32_t triangleCount) { return (triangleCount + 3) / 4; }

struct KeptParts {
    KeptSubmesh* submeshes;
    RayTreeNode* nodes;  // of a tree over the leaves of boxed triangles
    KeptLeaf *wild, *boxed;
};

inline KeptParts KeptPick_parts(KeptPick* kept) {
    KeptParts parts;
    parts.submeshes = reinterpret_cast<KeptSubmesh*>(kept + 1);
    parts.nodes = reinterpret_cast<RayTreeNode*>(parts.submeshes + kept->submeshCount);
    parts.wild = reinterpret_cast<KeptLeaf*>(parts.nodes + RayTree_nodeCount(KeptLeaf_countFor(kept->boxedCount)));
    parts.boxed = parts.wild + KeptLeaf_countFor(kept->wildCount);
    return parts;
}

// Boxes count in double steps (see PickReach), so that there is room around the positions.
constexpr double kStepsPerBoxUnit = 2;

// A new block: a tree, or a refusal where there is none in proportion. The mesh has triangleCount triangles, culled or
// not, and all their indices are good. Null when memory runs out.
KeptPick* KeptPick_make(const Pick* pick, uint64_t key, uint32_t triangleCount);
