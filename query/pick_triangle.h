// Whether a ray hits a triangle, and what is recorded of a hit.
#pragma once

#include "query/float4.h"
#include "scene/mesh.h"

// --- Arithmetic ---

// Of floats, or of vectors of floats with one triangle in each lane: both run the same operations in the same order, so
// that both decide the same.
template <typename F>
struct Vector3 {
    F x, y, z;
};

template <typename F, typename G>
inline auto operator-(const Vector3<F>& a, const Vector3<G>& b) -> Vector3<decltype(a.x - b.x)> {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

template <typename F, typename G>
inline auto cross(const Vector3<F>& a, const Vector3<G>& b) -> Vector3<decltype(a.x * b.x)> {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

template <typename F, typename G>
inline auto dot(const Vector3<F>& a, const Vector3<G>& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

// --- The test ---

struct PickRay {
    Vector3<float> origin, direction;
};

// Which triangles a ray does not see, by the sign of its direction along their normals.
enum class PickCulling { None, Along, Against };

PickCulling PickCulling_of(const Appearance* appearance);

inline bool isAny(bool mask) { return mask; }

// For each lane whether the ray hits, and where. A number that is not one ends as a miss: it fails the last
// comparisons.
template <typename F>
inline auto PickRay_hits(const PickRay& ray, PickCulling culling, const Vector3<F>& p0, const Vector3<F>& p1,
                         const Vector3<F>& p2, Vector3<F>* hitPoint) {
    const auto& d = ray.direction;
    const Vector3<F> e1 = p1 - p0;
    auto in = F{} == F{};
    if (culling != PickCulling::None) {
        const F s = dot(d, cross(e1, p2 - p1));
        in = (s != s) | (culling == PickCulling::Along ? s < 0 : s > 0);
        if (!isAny(in)) return in;
    }

    const Vector3<F> e2 = p2 - p0;
    const Vector3<F> m = cross(e1, e2);
    const F den = dot(m, d), num = dot(ray.origin - p0, m);
    const F t = -num / den;
    in = in & ((m.x != 0) | (m.y != 0) | (m.z != 0)) & ((den >= 1e-8f) | (den <= -1e-8f)) & (t >= 0);
    if (!isAny(in)) return in;

    const Vector3<F> h = {ray.origin.x + t * d.x, ray.origin.y + t * d.y, ray.origin.z + t * d.z};
    const Vector3<F> w = h - p0;
    const F d00 = dot(e1, e1), d11 = dot(e2, e2), d01 = dot(e1, e2), w0 = dot(w, e1), w1 = dot(w, e2);
    const F q = d01 * d01 - d11 * d00;
    const F u = (w1 * d01 - w0 * d11) / q, v = (w0 * d01 - w1 * d00) / q;
    *hitPoint = h;
    in = in & (u >= -0.0001f) & (u <= 1.0001f) & (v >= -0.0001f) & (u + v <= 1.0001f);
    return in;
}

// --- A pick ---

struct Pick {
    Mesh* mesh;                  // has the triangles and appearances; named in records
    const VertexBuffer* buffer;  // has the vertices, positions in any case
    bool isFresh;                // the vertices were computed for this pick: they are worth no tree
    PickRay ray;
    RayIntersection* nearest;   // what becomes of hits: kept here when nearer, ...
    RayIntersectionArray* all;  // ... or appended here; with neither, the first one ends the pick
    bool found;
    Result result;
};

struct PickTriangle {
    int32_t submesh;
    uint32_t corners[3];  // vertices
};

// Whether the pick's ray hits a triangle; it must have its three vertices.
bool PickTriangle_isHit(const Pick* pick, PickCulling culling, const PickTriangle& triangle, Vector3<float>* hitPoint);

// The same for four, bit by bit; of their vertices come the four first corners, then the second and the third ones.
uint32_t PickTriangle_hitsOfFour(const Pick* pick, PickCulling culling, const uint16_t (&corners)[3][4]);

// Takes note of a hit. False when the pick is over.
bool Pick_takeHit(Pick* pick, const PickTriangle& triangle, const Vector3<float>& hitPoint);
