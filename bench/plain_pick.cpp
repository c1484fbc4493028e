#include "bench/plain_pick.h"

#include <algorithm>
#include <cmath>

#include "scene/appearance.h"
#include "scene/polygon_mode.h"
#include "scene/texture2d.h"
#include "scene/transform.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

template <typename F>
static F dot(const F* a, const F* b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

static void subtract(const float* a, const float* b, float* out) {
    for (int i = 0; i < 3; ++i) out[i] = a[i] - b[i];
}

template <typename F>
static void cross(const F* a, const F* b, F* out) {
    out[0] = a[1] * b[2] - a[2] * b[1];
    out[1] = a[2] * b[0] - a[0] * b[2];
    out[2] = a[0] * b[1] - a[1] * b[0];
}

// --- One triangle ---

struct PlainTriangle {
    int32_t submesh;
    int32_t indices[3];
    float p[3][3];
};

static bool isCulled(const PolygonMode* mode, const PlainTriangle& triangle, const float* d) {
    const Culling culling = mode ? mode->culling : Culling::Back;
    const Winding winding = mode ? mode->winding : Winding::Ccw;
    if (culling == Culling::None) return false;
    float a[3], b[3], n[3];
    subtract(triangle.p[1], triangle.p[0], a);
    subtract(triangle.p[2], triangle.p[1], b);
    cross(a, b, n);
    const float s = dot(d, n);
    const bool cullsAlong = (winding == Winding::Ccw) == (culling == Culling::Back);
    return cullsAlong ? s >= 0 : s <= 0;
}

static bool isHit(const PlainTriangle& triangle, const float* o, const float* d, float* h) {
    const float* p0 = triangle.p[0];
    float e1[3], e2[3], m[3], toOrigin[3], w[3];
    subtract(triangle.p[1], p0, e1);
    subtract(triangle.p[2], p0, e2);
    cross(e1, e2, m);
    if (m[0] == 0 && m[1] == 0 && m[2] == 0) return false;
    subtract(o, p0, toOrigin);
    const float den = dot(m, d), num = dot(toOrigin, m);
    if (std::fabs(den) < 1e-8f) return false;
    const float t = -num / den;
    if (t < 0) return false;
    for (int i = 0; i < 3; ++i) h[i] = o[i] + t * d[i];
    subtract(h, p0, w);
    const float d00 = dot(e1, e1), d11 = dot(e2, e2), d01 = dot(e1, e2), w0 = dot(w, e1), w1 = dot(w, e2);
    const float q = d01 * d01 - d11 * d00;
    const float u = (w1 * d01 - w0 * d11) / q;
    const float v = (w0 * d01 - w1 * d00) / q;
    return u >= -0.0001f && u <= 1.0001f && v >= -0.0001f && u + v <= 1.0001f;
}

// --- Records ---

static float valueAt(const VertexArray* array, int32_t vertex, int component) {
    const int32_t i = vertex * array->componentCount + component;
    return array->componentSize == 1 ? float(static_cast<const int8_t*>(array->data)[i])
                                     : float(static_cast<const int16_t*>(array->data)[i]);
}

static void recordUnit(const VertexBuffer* buffer, int unit, const PlainTriangle& triangle, Texture2D* texture,
                       const float* h, RayIntersection* record) {
    const VertexArray* array = buffer->texCoords[unit];
    float s[4] = {}, t[4] = {};
    for (int k = 0; k < 3; ++k) {
        if (triangle.indices[k] >= array->vertexCount) return;
        float v[4] = {0, 0, 0, 1};
        for (int i = 0; i < array->componentCount; ++i)
            v[i] = valueAt(array, triangle.indices[k], i) * buffer->texCoordScale[unit] + buffer->texCoordBias[unit][i];
        if (texture) {
            qelTransformable_updateComposite(texture);
            qelTransform_transformVectors(&texture->composite, v, 1);
            v[0] /= v[3];
            v[1] /= v[3];
        }
        s[k] = v[0];
        t[k] = v[1];
    }
    const auto& p = triangle.p;
    double e[2][3], n[3];
    for (int i = 0; i < 3; ++i) {
        e[0][i] = double(p[1][i]) - p[0][i];
        e[1][i] = double(p[2][i]) - p[0][i];
    }
    cross(e[0], e[1], n);
    for (const auto& [a, b] : {std::pair(0, 1), std::pair(1, 2), std::pair(0, 2)}) {
        if (std::fabs(n[3 - a - b]) <= std::sqrt(dot(n, n)) / 1024) continue;  // seen from its side
        const float rows[16] = {p[0][a], p[0][b], 1, 0, p[1][a], p[1][b], 1, 0, p[2][a], p[2][b], 1, 0, 0, 0, 0, 1};
        qelTransform m;
        qelTransform_set_fl(&m, rows);
        if (qelTransform_invert(&m) != QEL_STATUS_OK) continue;
        qelTransform_transformVectors(&m, s, 1);
        qelTransform_transformVectors(&m, t, 1);
        record->textureS[unit] = s[0] * h[a] + s[1] * h[b] + s[2];
        record->textureT[unit] = t[0] * h[a] + t[1] * h[b] + t[2];
        return;
    }
}

static float distanceOf(const float* ray, const float* h) {
    float way[3];
    subtract(h, ray, way);
    const float waySquare = dot(way, way), unitSquare = dot(ray + 3, ray + 3);
    if (std::isnormal(waySquare) && std::isnormal(unitSquare)) return std::sqrt(waySquare) / std::sqrt(unitSquare);
    double wideWay[3], wideUnit[3];  // a square is out of the range of floats
    for (int i = 0; i < 3; ++i) {
        wideWay[i] = double(h[i]) - ray[i];
        wideUnit[i] = ray[i + 3];
    }
    return float(std::sqrt(dot(wideWay, wideWay)) / std::sqrt(dot(wideUnit, wideUnit)));
}

static void recordHit(Mesh* mesh, const VertexBuffer* buffer, const PlainTriangle& triangle, const float* ray,
                      const float* h, RayIntersection* record) {
    const Appearance* appearance = mesh->appearances[triangle.submesh];
    record->distance = distanceOf(ray, h);
    record->submeshIndex = triangle.submesh;
    record->intersected = mesh;
    if (buffer->normals) {
        float a[3], b[3], n[3];
        subtract(triangle.p[1], triangle.p[0], a);
        subtract(triangle.p[2], triangle.p[1], b);
        cross(a, b, n);
        const double length = std::sqrt(double(n[0]) * n[0] + double(n[1]) * n[1] + double(n[2]) * n[2]);
        const bool isCw = appearance->polygonMode && appearance->polygonMode->winding == Winding::Cw;
        if (length > 0)
            for (int i = 0; i < 3; ++i) record->normal[i] = float(isCw ? -(n[i] / length) : n[i] / length);
    }
    for (int unit = 0; unit < kMaxTextureUnits; ++unit)
        if (buffer->texCoords[unit]) recordUnit(buffer, unit, triangle, appearance->textures[unit], h, record);
}

// --- The walk ---

// visit(triangle, hit point) for every hit; false stops.
template <typename T, typename Visit>
static bool tryTriangle(const Mesh* mesh, const VertexBuffer* buffer, int32_t submesh, const int32_t (&indices)[3],
                        const float* ray, Result* result, Visit&& visit) {
    PlainTriangle triangle = {submesh, {indices[0], indices[1], indices[2]}, {}};
    for (int k = 0; k < 3; ++k) {
        if (indices[k] >= buffer->positions->vertexCount) {
            *result = QEL_STATUS_ILLEGAL_STATE;
            return false;
        }
        const T* in = static_cast<const T*>(buffer->positions->data) + 3 * indices[k];
        for (int i = 0; i < 3; ++i) triangle.p[k][i] = in[i] * buffer->positionScale + buffer->positionBias[i];
    }
    float h[3];
    if (isCulled(mesh->appearances[submesh]->polygonMode, triangle, ray + 3)) return true;
    return !isHit(triangle, ray, ray + 3, h) || visit(triangle, h);
}

template <typename T, typename Visit>
static void walk(const Mesh* mesh, const VertexBuffer* buffer, const float* ray, Result* result, Visit&& visit) {
    for (int32_t submesh = 0; submesh < mesh->submeshCount; ++submesh) {
        if (!mesh->appearances[submesh]) continue;
        const TriangleStripArray* strips = mesh->indexBuffers[submesh];
        if (strips->indices) {
            for (int32_t i = 0; i + 2 < strips->stripLengths[0]; i += 3) {
                const uint16_t* in = strips->indices + i;
                if (!tryTriangle<T>(mesh, buffer, submesh, {in[0], in[1], in[2]}, ray, result, visit)) return;
            }
            continue;
        }
        int32_t first = strips->firstIndex;
        for (int32_t strip = 0; strip < strips->stripCount; first += strips->stripLengths[strip++])
            for (int32_t k = 0; k < strips->stripLengths[strip] - 2; ++k) {
                const int32_t a = first + k, swap = k % 2;
                if (!tryTriangle<T>(mesh, buffer, submesh, {a + swap, a + 1 - swap, a + 2}, ray, result, visit)) return;
            }
    }
}

template <typename Visit>
static void walk(const Mesh* mesh, const VertexBuffer* buffer, const float* ray, Result* result, Visit&& visit) {
    *result = ray[3] == 0 && ray[4] == 0 && ray[5] == 0 ? QEL_STATUS_ILLEGAL_ARGUMENT
              : buffer->positions                       ? QEL_STATUS_OK
                                                        : QEL_STATUS_ILLEGAL_STATE;
    if (*result != QEL_STATUS_OK) return;
    if (buffer->positions->componentSize == 1)
        walk<int8_t>(mesh, buffer, ray, result, visit);
    else
        walk<int16_t>(mesh, buffer, ray, result, visit);
}

bool plainPick(Mesh* mesh, const VertexBuffer* buffer, const float ray[6], RayIntersection* record, Result* result) {
    bool found = false;
    walk(mesh, buffer, ray, result, [&](const PlainTriangle& triangle, const float* h) {
        if (record && record->distance != 0 && distanceOf(ray, h) > record->distance) return true;
        if (record) recordHit(mesh, buffer, triangle, ray, h, record);
        found = true;
        return record != nullptr;
    });
    return found && *result == QEL_STATUS_OK;
}

bool plainPickMultiple(Mesh* mesh, const VertexBuffer* buffer, const float ray[6], std::vector<RayIntersection>* hits,
                       Result* result) {
    bool found = false;
    walk(mesh, buffer, ray, result, [&](const PlainTriangle& triangle, const float* h) {
        found = true;
        if (!hits) return false;
        RayIntersection record{};
        record.normal[2] = 1;
        std::copy_n(ray, 6, record.ray);
        recordHit(mesh, buffer, triangle, ray, h, &record);
        hits->push_back(record);
        return true;
    });
    return found && *result == QEL_STATUS_OK;
}
