#include "tools/k8/picking.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace {

struct MeshRay {
    std::array<float, 3> origin, direction;
};

// Which values of a record a mesh writes.
struct Written {
    bool normal;
    std::array<bool, 2> texel;  // by texture unit
};

class HitArray {
public:
    HitArray() { qelRayIntersectionArray_initialize(&array); }
    ~HitArray() { qelRayIntersectionArray_finalize(&array); }
    HitArray(const HitArray&) = delete;
    HitArray& operator=(const HitArray&) = delete;
    qelRayIntersectionArray array;
};

}  // namespace

// Points and directions keep their distance along a ray when they go through a matrix, so hits in a mesh are as far in
// lengths of the direction as they are outside.
static MeshRay rayInMesh(const Ray& ray, const qelTransform& toMesh) {
    MeshRay out;
    for (size_t axis = 0; axis < 3; ++axis) {
        out.origin[axis] = float(ray.numbers[axis]);
        out.direction[axis] = float(ray.numbers[3 + axis]);
    }
    qelTransform_affineTransform(&toMesh, out.origin.data(), out.origin.data());
    qelTransform_transformNormal(&toMesh, out.direction.data(), out.direction.data());
    return out;
}

// --- Asking the library ---

// Calls the function that suits the object's class.
template <auto pickMesh, auto pickMorphingMesh, auto pickSkinnedMesh, typename Hits>
static bool pickByClass(qelObject3D* object, const MeshRay& ray, Hits* hits) {
    const std::array<float, 3>&o = ray.origin, &d = ray.direction;
    int32_t result = QEL_STATUS_OK;
    const auto pick = [&](auto function, auto* mesh) {
        return function(mesh, o[0], o[1], o[2], d[0], d[1], d[2], hits, &result);
    };
    bool isHit = false;
    switch (qelObject3D_getClassID(object)) {
        case QEL_CLASS_MESH: isHit = pick(pickMesh, reinterpret_cast<qelMesh*>(object)); break;
        case QEL_CLASS_MORPHING_MESH: isHit = pick(pickMorphingMesh, reinterpret_cast<qelMorphingMesh*>(object)); break;
        case QEL_CLASS_SKINNED_MESH:
        case QEL_CLASS_FIGURE_MESH: isHit = pick(pickSkinnedMesh, reinterpret_cast<qelSkinnedMesh*>(object)); break;
    }
    if (result == QEL_STATUS_OUT_OF_MEMORY) throw std::runtime_error("memory ran out");
    return isHit;  // a mesh that cannot be drawn is not hit, either
}

static bool pickNearest(qelObject3D* object, const MeshRay& ray, qelRayIntersection* record) {
    return pickByClass<qelMesh_pick, qelMorphingMesh_pick, qelSkinnedMesh_pick>(object, ray, record);
}

static void pickAll(qelObject3D* object, const MeshRay& ray, qelRayIntersectionArray* array) {
    pickByClass<qelMesh_pickMultiple, qelMorphingMesh_pickMultiple, qelSkinnedMesh_pickMultiple>(object, ray, array);
}

// --- Telling what was hit ---

// A normal goes through the transposed inverse.
static std::array<double, 3> normalOf(const qelRayIntersection& record, const qelTransform& toMesh) {
    std::array<double, 3> out{};
    for (size_t axis = 0; axis < 3; ++axis)
        for (size_t k = 0; k < 3; ++k) out[axis] += double(toMesh.elements[4 * k + axis]) * double(record.normal[k]);
    const double length = std::hypot(out[0], out[1], out[2]);
    for (double& component : out) component /= length;
    return out;
}

static PickHit hitOf(const qelRayIntersection& record, const Written& written, const Ray& ray,
                     const qelTransform& toMesh, size_t object) {
    PickHit hit{};
    const auto& n = ray.numbers;
    hit.object = object;
    hit.submesh = record.submeshIndex;
    hit.distance = double(record.distance) * std::hypot(n[3], n[4], n[5]);
    for (size_t axis = 0; axis < 3; ++axis) hit.point[axis] = n[axis] + double(record.distance) * n[3 + axis];
    if (written.normal) hit.normal = normalOf(record, toMesh);
    for (size_t unit = 0; unit < 2; ++unit)
        if (written.texel[unit]) hit.texel[unit] = {{double(record.textureS[unit]), double(record.textureT[unit])}};
    return hit;
}

static void addHits(std::vector<PickHit>& hits, const PlacedObject& object, size_t index, const Ray& ray,
                    bool wantsAll) {
    qelTransform toMesh;
    if (qelTransform_invert_copy(&object.fromMesh, &toMesh) != QEL_STATUS_OK) return;  // squeezed flat
    const MeshRay meshRay = rayInMesh(ray, toMesh);
    qelObject3D* mesh = object.handle->object;
    // A hit leaves what its mesh does not have as it was.
    constexpr float kUnwritten = std::numeric_limits<float>::quiet_NaN();
    qelRayIntersection nearest;
    qelRayIntersection_initialize(&nearest);
    nearest.normal[0] = nearest.textureS[0] = nearest.textureS[1] = kUnwritten;
    if (!pickNearest(mesh, meshRay, &nearest)) return;
    const Written written = {!std::isnan(nearest.normal[0]),
                             {!std::isnan(nearest.textureS[0]), !std::isnan(nearest.textureS[1])}};
    if (!wantsAll) return hits.push_back(hitOf(nearest, written, ray, toMesh, index));
    HitArray all;
    pickAll(mesh, meshRay, &all.array);
    for (int32_t i = 0; i < all.array.count; ++i)
        hits.push_back(hitOf(all.array.records[i], written, ray, toMesh, index));
}

std::vector<PickHit> pickFigures(const Placements& placements, const Ray& ray, bool wantsAll) {
    std::vector<PickHit> hits;
    for (size_t i = 0; i < placements.objects.size(); ++i)
        if (placements.objects[i].isPickable) addHits(hits, placements.objects[i], i, ray, wantsAll);
    std::ranges::stable_sort(hits, {}, &PickHit::distance);
    if (!wantsAll && hits.size() > 1) hits.resize(1);
    return hits;
}
