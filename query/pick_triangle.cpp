#include "query/pick_triangle.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "query/ray_intersection.h"
#include "scene/appearance.h"
#include "scene/polygon_mode.h"
#include "scene/texture2d.h"
#include "scene/transform.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

// --- What a ray sees ---

static Winding windingOf(const Appearance* appearance) {
    return appearance->polygonMode ? appearance->polygonMode->winding : Winding::Ccw;
}

PickCulling PickCulling_of(const Appearance* appearance) {
    const Culling culling = appearance->polygonMode ? appearance->polygonMode->culling : Culling::Back;
    if (culling == Culling::None) return PickCulling::None;
    const bool isBack = culling == Culling::Back, isCcw = windingOf(appearance) == Winding::Ccw;
    return isBack == isCcw ? PickCulling::Along : PickCulling::Against;
}

// --- Vertices ---

static float componentAt(const VertexArray* array, uint32_t index) {
    if (array->componentSize == 1) return static_cast<const int8_t*>(array->data)[index];
    return static_cast<const int16_t*>(array->data)[index];
}

template <typename T>
static Vector3<float> positionIn(const VertexBuffer* buffer, uint32_t vertex) {
    const T* in = static_cast<const T*>(buffer->positions->data) + 3 * size_t(vertex);
    const float scale = buffer->positionScale;
    const float* bias = buffer->positionBias;
    return {in[0] * scale + bias[0], in[1] * scale + bias[1], in[2] * scale + bias[2]};
}

static Vector3<float> positionOf(const VertexBuffer* buffer, uint32_t vertex) {
    return buffer->positions->componentSize == 1 ? positionIn<int8_t>(buffer, vertex)
                                                 : positionIn<int16_t>(buffer, vertex);
}

struct Corners {
    Vector3<float> p[3];
};

static Corners cornersOf(const VertexBuffer* buffer, const PickTriangle& triangle) {
    return {{positionOf(buffer, triangle.corners[0]), positionOf(buffer, triangle.corners[1]),
             positionOf(buffer, triangle.corners[2])}};
}

bool PickTriangle_isHit(const Pick* pick, PickCulling culling, const PickTriangle& triangle, Vector3<float>* hitPoint) {
    const auto [p] = cornersOf(pick->buffer, triangle);
    return PickRay_hits(pick->ray, culling, p[0], p[1], p[2], hitPoint);
}

// Two neighbouring 16-bit integers of each of four places.
static void loadPairs(const int16_t* const (&in)[4], Float4* first, Float4* second) {
    int32_t pairs[4];
    for (int k = 0; k < 4; ++k) std::memcpy(&pairs[k], in[k], sizeof pairs[k]);
    const auto shorts = Short8(Int4{pairs[0], pairs[1], pairs[2], pairs[3]});
    *first =
        __builtin_convertvector(Int4(__builtin_shufflevector(shorts, shorts, 0, 0, 2, 2, 4, 4, 6, 6)) >> 16, Float4);
    *second =
        __builtin_convertvector(Int4(__builtin_shufflevector(shorts, shorts, 1, 1, 3, 3, 5, 5, 7, 7)) >> 16, Float4);
}

static Vector3<Float4> loadFour(const int16_t* const (&in)[4]) {
    Vector3<Float4> integers;
    loadPairs(in, &integers.x, &integers.y);
    integers.z = __builtin_convertvector(Int4{in[0][2], in[1][2], in[2][2], in[3][2]}, Float4);
    return integers;
}

static Vector3<Float4> loadFour(const int8_t* const (&in)[4]) {
    return {__builtin_convertvector(Int4{in[0][0], in[1][0], in[2][0], in[3][0]}, Float4),
            __builtin_convertvector(Int4{in[0][1], in[1][1], in[2][1], in[3][1]}, Float4),
            __builtin_convertvector(Int4{in[0][2], in[1][2], in[2][2], in[3][2]}, Float4)};
}

template <typename T>
static Vector3<Float4> fourPositionsIn(const VertexBuffer* buffer, const uint16_t (&vertices)[4]) {
    const T* in[4];
    for (int k = 0; k < 4; ++k) in[k] = static_cast<const T*>(buffer->positions->data) + 3 * size_t(vertices[k]);
    const Vector3<Float4> integers = loadFour(in);
    const float scale = buffer->positionScale;
    const float* bias = buffer->positionBias;
    return {integers.x * scale + bias[0], integers.y * scale + bias[1], integers.z * scale + bias[2]};
}

uint32_t PickTriangle_hitsOfFour(const Pick* pick, PickCulling culling, const uint16_t (&corners)[3][4]) {
    Vector3<Float4> p[3], unused;
    for (int i = 0; i < 3; ++i)
        p[i] = pick->buffer->positions->componentSize == 1 ? fourPositionsIn<int8_t>(pick->buffer, corners[i])
                                                           : fourPositionsIn<int16_t>(pick->buffer, corners[i]);
    return laneBits(PickRay_hits(pick->ray, culling, p[0], p[1], p[2], &unused));
}

// --- Texture coordinates ---

// The affine function of two coordinates that has given values at the corners of a triangle: values x inverse.
struct PlaneFit {
    int a, b;  // which coordinates
    qelTransform inverse;
};

template <typename F>
static F coordinate(const Vector3<F>& p, int i) {
    return i == 0 ? p.x : i == 1 ? p.y : p.z;
}

static Vector3<double> widen(const Vector3<float>& p) { return {p.x, p.y, p.z}; }

// False for a triangle without area in every projection.
//
// In a projection along its plane a triangle has an area mostly by rounding, and M an inverse of noise. On the plane
// the function is the same for every pair, so such a pair is left out: where the normal has next to nothing of the
// axis that the pair lacks.
static bool fitPlane(const Corners& corners, PlaneFit* fit) {
    constexpr int kPairs[][2] = {{0, 1}, {1, 2}, {0, 2}};
    constexpr double kLeastPart = 0x1p-10;
    const Vector3<double> p0 = widen(corners.p[0]);
    const Vector3<double> n = cross(widen(corners.p[1]) - p0, widen(corners.p[2]) - p0);
    for (const auto [a, b] : kPairs) {
        const double part = coordinate(n, 3 - a - b);
        if (part * part <= kLeastPart * kLeastPart * dot(n, n)) continue;
        float m[16] = {};
        for (int k = 0; k < 3; ++k) {
            m[4 * k] = coordinate(corners.p[k], a);
            m[4 * k + 1] = coordinate(corners.p[k], b);
            m[4 * k + 2] = 1;
        }
        m[15] = 1;
        fit->a = a;
        fit->b = b;
        qelTransform_set_fl(&fit->inverse, m);
        if (qelTransform_invert(&fit->inverse) == QEL_STATUS_OK) return true;
    }
    return false;
}

static float valueAt(const PlaneFit& fit, const float (&cornerValues)[3], const Vector3<float>& h) {
    float v[4] = {cornerValues[0], cornerValues[1], cornerValues[2], 0};
    qelTransform_transformVectors(&fit.inverse, v, 1);
    return v[0] * coordinate(h, fit.a) + v[1] * coordinate(h, fit.b) + v[2];
}

// As it is drawn: scaled, biased, and through the texture's own transform.
static void textureCoordinatesOf(const VertexBuffer* buffer, int32_t unit, uint32_t vertex, Texture2D* texture,
                                 float* s, float* t) {
    const VertexArray* array = buffer->texCoords[unit];
    float v[4] = {0, 0, 0, 1};
    for (int32_t i = 0; i < array->componentCount; ++i)
        v[i] =
            componentAt(array, vertex * uint32_t(array->componentCount) + uint32_t(i)) * buffer->texCoordScale[unit] +
            buffer->texCoordBias[unit][i];
    if (texture) {
        qelTransform_transformVectors(&texture->composite, v, 1);
        v[0] /= v[3];
        v[1] /= v[3];
    }
    *s = v[0];
    *t = v[1];
}

// An array that ends before a corner of the triangle has no coordinates for it.
static bool hasTextureCoordinates(const VertexBuffer* buffer, int32_t unit, const PickTriangle& triangle) {
    const VertexArray* array = buffer->texCoords[unit];
    if (!array) return false;
    for (const uint32_t vertex : triangle.corners)
        if (vertex >= uint32_t(array->vertexCount)) return false;
    return true;
}

static void recordTextureCoordinates(const Pick* pick, const PickTriangle& triangle, const Corners& corners,
                                     const Vector3<float>& hitPoint, RayIntersection* record) {
    const Appearance* appearance = pick->mesh->appearances[triangle.submesh];
    PlaneFit fit;
    bool hasFit = false;
    for (int32_t unit = 0; unit < kMaxTextureUnits; ++unit) {
        if (!hasTextureCoordinates(pick->buffer, unit, triangle)) continue;
        if (!hasFit && !fitPlane(corners, &fit)) return;
        hasFit = true;
        Texture2D* texture = appearance->textures[unit];
        if (texture) qelTransformable_updateComposite(texture);
        float s[3], t[3];
        for (int k = 0; k < 3; ++k)
            textureCoordinatesOf(pick->buffer, unit, triangle.corners[k], texture, &s[k], &t[k]);
        record->textureS[unit] = valueAt(fit, s, hitPoint);
        record->textureT[unit] = valueAt(fit, t, hitPoint);
    }
}

// --- Records ---

// In lengths of the ray's direction. Squares leave the range of floats long before lengths do.
static float distanceTo(const PickRay& ray, const Vector3<float>& hitPoint) {
    const Vector3<float> way = hitPoint - ray.origin, d = ray.direction;
    const float waySquare = dot(way, way), unitSquare = dot(d, d);
    if (std::isnormal(waySquare) && std::isnormal(unitSquare)) return std::sqrt(waySquare) / std::sqrt(unitSquare);
    const Vector3<double> wideWay = widen(hitPoint) - widen(ray.origin), wideUnit = widen(d);
    return float(std::sqrt(dot(wideWay, wideWay)) / std::sqrt(dot(wideUnit, wideUnit)));
}

// A sliver whose normal vanishes in this form leaves the record's normal alone.
static void recordNormal(const Corners& corners, Winding winding, RayIntersection* record) {
    const Vector3<float> n = cross(corners.p[1] - corners.p[0], corners.p[2] - corners.p[1]);
    float normal[3] = {n.x, n.y, n.z};
    if (!_qel_normalize3(normal)) return;
    for (int i = 0; i < 3; ++i) record->normal[i] = winding == Winding::Cw ? -normal[i] : normal[i];
}

static void recordHit(const Pick* pick, const PickTriangle& triangle, const Vector3<float>& hitPoint, float distance,
                      RayIntersection* record) {
    const Corners corners = cornersOf(pick->buffer, triangle);
    record->distance = distance;
    record->submeshIndex = triangle.submesh;
    record->intersected = pick->mesh;
    if (pick->buffer->normals) recordNormal(corners, windingOf(pick->mesh->appearances[triangle.submesh]), record);
    recordTextureCoordinates(pick, triangle, corners, hitPoint, record);
}

// A record that comes with a hit keeps it against farther ones: that is how one record goes along a row of meshes.
static void keepNearest(Pick* pick, const PickTriangle& triangle, const Vector3<float>& hitPoint) {
    const float distance = distanceTo(pick->ray, hitPoint), kept = pick->nearest->distance;
    if (kept != 0 && distance > kept) return;
    recordHit(pick, triangle, hitPoint, distance, pick->nearest);
    pick->found = true;
}

static bool append(Pick* pick, const PickTriangle& triangle, const Vector3<float>& hitPoint) {
    RayIntersection record;
    qelRayIntersection_initialize(&record);
    const auto& [o, d] = pick->ray;
    const float ray[] = {o.x, o.y, o.z, d.x, d.y, d.z};
    std::copy_n(ray, 6, record.ray);
    recordHit(pick, triangle, hitPoint, distanceTo(pick->ray, hitPoint), &record);
    pick->result = qelRayIntersectionArray_appendIntersection(pick->all, &record);
    pick->found |= pick->result == QEL_STATUS_OK;
    return pick->result == QEL_STATUS_OK;
}

bool Pick_takeHit(Pick* pick, const PickTriangle& triangle, const Vector3<float>& hitPoint) {
    if (pick->all) return append(pick, triangle, hitPoint);
    if (pick->nearest) {
        keepNearest(pick, triangle, hitPoint);
        return true;
    }
    pick->found = true;
    return false;
}
