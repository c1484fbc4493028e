// Whether an edge of one triangle goes through another, in fixed-point arithmetic that wraps around. Meant for whole
// numbers of 16 bits.
#pragma once

#include <cstdint>

// Where the inside of a triangle is, seen from one of its edges, in the plane of two of the axes.
enum class EdgeSide : uint8_t { Above, Below, Right, Left, Nowhere };

struct EdgeBound {
    EdgeSide side;
    int32_t slope;
    int32_t offset;  // where the edge meets the second axis, or the first one where it is parallel to the second
};

struct CrossTriangle {
    int32_t corners[3][3];
    int32_t normal[3];
    int32_t distance;  // normal . p + distance is 0 in the plane
    bool hasEdges;
    // Worked out when first needed:
    uint8_t axes[2];  // the normal is largest along the third one
    EdgeBound edges[3];
};

// Completes a triangle of which only the corners are there.
void CrossTriangle_set(CrossTriangle* triangle);

// Whether an edge of either goes through the other. Edges that are parallel to the other's plane do not.
bool CrossTriangle_cross(CrossTriangle* a, CrossTriangle* b);
