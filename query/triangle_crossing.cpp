#include "query/triangle_crossing.h"

#include <algorithm>

#include "frame/fixed_point.h"
#include "frame/wrap.h"

// --- Planes ---

static void subtract(const int32_t a[3], const int32_t b[3], int32_t out[3]) {
    for (int i = 0; i < 3; ++i) out[i] = wrapSub(a[i], b[i]);
}

void CrossTriangle_set(CrossTriangle* triangle) {
    const int32_t(&p)[3][3] = triangle->corners;
    int32_t first[3], second[3];
    subtract(p[1], p[0], first);
    subtract(p[2], p[0], second);
    crossFixed(first, second, triangle->normal);
    triangle->distance = wrapNeg(dotFixed(triangle->normal, p[0]));
    triangle->hasEdges = false;
}

// --- Inside ---

static void chooseAxes(CrossTriangle* triangle) {
    const uint32_t x = magnitude(triangle->normal[0]), y = magnitude(triangle->normal[1]),
                   z = magnitude(triangle->normal[2]);
    const bool alongX = x >= y && x >= z, alongY = y >= x && y >= z;
    triangle->axes[0] = alongX ? 1 : 0;
    triangle->axes[1] = alongX || alongY ? 2 : 1;
}

// The edge's height at `a`, along the second axis.
static int32_t heightAt(const EdgeBound& edge, int32_t a) { return wrapAdd(fixedMul(edge.slope, a), edge.offset); }

// Edge from (a0, b0) to (a1, b1) of a triangle whose centre is (ca, cb).
static EdgeBound boundOf(int32_t a0, int32_t b0, int32_t a1, int32_t b1, int32_t ca, int32_t cb) {
    if (a0 == a1) return {a0 < ca ? EdgeSide::Right : a0 > ca ? EdgeSide::Left : EdgeSide::Nowhere, 0, a0};
    EdgeBound edge = {EdgeSide::Below, fixedDiv(wrapSub(b1, b0), wrapSub(a1, a0)), 0};
    edge.offset = wrapSub(b0, fixedMul(edge.slope, a0));
    if (heightAt(edge, ca) < cb) edge.side = EdgeSide::Above;
    return edge;
}

static void setEdges(CrossTriangle* triangle) {
    chooseAxes(triangle);
    int32_t a[3], b[3];
    for (int i = 0; i < 3; ++i) {
        a[i] = triangle->corners[i][triangle->axes[0]];
        b[i] = triangle->corners[i][triangle->axes[1]];
    }
    const int32_t ca = wrapAdd(wrapAdd(a[0], a[1]), a[2]) / 3, cb = wrapAdd(wrapAdd(b[0], b[1]), b[2]) / 3;
    for (int i = 0; i < 3; ++i) {
        const int j = (i + 1) % 3;
        triangle->edges[i] = boundOf(a[i], b[i], a[j], b[j], ca, cb);
    }
    triangle->hasEdges = true;
}

static bool isWithin(const EdgeBound& edge, int32_t a, int32_t b) {
    switch (edge.side) {
        case EdgeSide::Above: return b >= heightAt(edge, a);
        case EdgeSide::Below: return b <= heightAt(edge, a);
        case EdgeSide::Right: return a > edge.offset;
        case EdgeSide::Left: return a < edge.offset;
        case EdgeSide::Nowhere: break;
    }
    return false;
}

static bool contains(CrossTriangle* triangle, const int32_t point[3]) {
    if (!triangle->hasEdges) setEdges(triangle);
    const int32_t a = point[triangle->axes[0]], b = point[triangle->axes[1]];
    return std::ranges::all_of(triangle->edges, [=](const EdgeBound& edge) { return isWithin(edge, a, b); });
}

// --- Edges ---

// The end of an edge, and its height above the plane through the origin that is parallel to the other triangle.
struct EdgeEnd {
    const int32_t* point;
    int32_t height;
};

static bool isBetween(int32_t value, int32_t a, int32_t b) {
    return std::min(a, b) <= value && value <= std::max(a, b);
}

// Whether the edge reaches the plane is asked first; whether it does so inside of the triangle costs more.
static bool edgeCrosses(CrossTriangle* triangle, const EdgeEnd& start, const EdgeEnd& end) {
    if (start.height == end.height) return false;
    const int32_t *s = start.point, *e = end.point, *n = triangle->normal;
    // Where the line meets the plane: 0 at the end, -1.0 at the start.
    const int32_t t = fixedDiv(wrapAdd(end.height, triangle->distance), wrapSub(start.height, end.height));
    const bool reaches = t <= 0 && t >= -kFixedOne;
    int32_t meeting[3];
    if (s[0] == e[0] && s[2] == e[2]) {
        const int32_t rest = wrapAdd(triangle->distance, wrapAdd(fixedMul(n[2], s[2]), fixedMul(n[0], s[0])));
        meeting[0] = s[0];
        meeting[1] = fixedDiv(wrapNeg(rest), n[1]);
        meeting[2] = s[2];
        if (!reaches && !isBetween(meeting[1], s[1], e[1])) return false;
    } else {
        if (!reaches) return false;
        for (int i = 0; i < 3; ++i)
            meeting[i] = wrapAdd(fixedMul(s[i], wrapNeg(t)), fixedMul(e[i], wrapAdd(t, kFixedOne)));
    }
    return contains(triangle, meeting);
}

static bool edgesCross(const CrossTriangle& edges, CrossTriangle* triangle) {
    const int32_t* n = triangle->normal;
    if ((n[0] | n[1] | n[2]) == 0) return false;  // everything is parallel to it
    EdgeEnd ends[3];
    for (int i = 0; i < 3; ++i) ends[i] = {edges.corners[i], dotFixed(n, edges.corners[i])};
    return edgeCrosses(triangle, ends[0], ends[1]) || edgeCrosses(triangle, ends[1], ends[2]) ||
           edgeCrosses(triangle, ends[2], ends[0]);
}

bool CrossTriangle_cross(CrossTriangle* a, CrossTriangle* b) { return edgesCross(*b, a) || edgesCross(*a, b); }
