// Meshes to pick, in few words, and what picking them gives.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "query/ray_intersection.h"
#include "scene/appearance.h"
#include "scene/mesh.h"
#include "scene/polygon_mode.h"
#include "tests/scene/held.h"

using Ray = std::array<float, 6>;  // origin, direction

inline TriangleStripArray* makeList(const std::vector<int32_t>& indices) {
    std::vector<int32_t> copy = indices, lengths(indices.size() / 3, 3);
    Result result;
    return qelTriangleStripArray_createExplicit(lengths.data(), int32_t(lengths.size()), copy.data(),
                                                int32_t(copy.size()), true, &result);
}

inline TriangleStripArray* makeStrips(int32_t first, std::vector<int32_t> lengths) {
    Result result;
    return qelTriangleStripArray_createImplicit(first, lengths.data(), int32_t(lengths.size()), true, &result);
}

inline Appearance* makeAppearance(Culling culling, Winding winding = Winding::Ccw) {
    Appearance* appearance = qelAppearance_create();
    const Held mode(qelPolygonMode_create());
    if (appearance && mode.get()) {
        mode->culling = culling;
        mode->winding = winding;
        qelAppearance_setPolygonMode(appearance, mode);
    }
    return appearance;
}

// Adopts all that it is given, null appearances too.
inline Mesh* makeMesh(VertexBuffer* buffer, const std::vector<TriangleStripArray*>& strips,
                      const std::vector<Appearance*>& appearances) {
    Result result;
    Mesh* mesh = qelMesh_create(buffer, strips.data(), appearances.data(), int32_t(strips.size()), &result);
    qelObject3D_unref(buffer);
    for (TriangleStripArray* part : strips) qelObject3D_unref(part);
    for (Appearance* appearance : appearances) qelObject3D_unref(appearance);
    return mesh;
}

// One submesh over positions: the list of indices, culled or not.
template <typename T>
Mesh* makeMesh(const std::vector<T>& positions, const std::vector<int32_t>& indices, Culling culling = Culling::None) {
    return makeMesh(makeBuffer<T>(positions), {makeList(indices)}, {makeAppearance(culling)});
}

struct Picked {
    bool found;
    Result result;
    RayIntersection record;
};

inline Picked pick(Mesh* mesh, const Ray& r) {
    Picked picked;
    qelRayIntersection_initialize(&picked.record);
    picked.found = qelMesh_pick(mesh, r[0], r[1], r[2], r[3], r[4], r[5], &picked.record, &picked.result);
    return picked;
}

struct PickedAll {
    bool found;
    Result result;
    std::vector<RayIntersection> records;
};

inline PickedAll pickAll(Mesh* mesh, const Ray& r) {
    PickedAll picked;
    RayIntersectionArray array;
    qelRayIntersectionArray_initialize(&array);
    picked.found = qelMesh_pickMultiple(mesh, r[0], r[1], r[2], r[3], r[4], r[5], &array, &picked.result);
    picked.records.assign(array.records, array.records + array.count);
    qelRayIntersectionArray_finalize(&array);
    return picked;
}
