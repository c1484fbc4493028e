// The entries of picking: deform the mesh if need be, then look for hits.
#include "query/pick_tree.h"
#include "query/pick_walk.h"
#include "scene/morphing_mesh.h"
#include "scene/skinned_mesh.h"
#include "scene/vertex_buffer.h"

// Where hits go; both null asks for any.
struct PickSink {
    RayIntersection* record;
    RayIntersectionArray* array;
};

static Pick makePick(Mesh* mesh, const PickRay& ray, const PickSink& sink) {
    return {mesh, mesh->vertexBuffer, false, ray, sink.record, sink.array, false, QEL_STATUS_OK};
}

static bool hasDirection(const PickRay& ray) {
    return ray.direction.x != 0 || ray.direction.y != 0 || ray.direction.z != 0;
}

static Result run(Pick* pick) {
    if (!pick->buffer || !pick->buffer->positions) return QEL_STATUS_ILLEGAL_STATE;
    if (pick->isFresh || !PickTree_pick(pick)) PickWalk_all(pick);
    return pick->result;
}

static bool pickPlain(Mesh* mesh, const PickRay& ray, const PickSink& sink, Result* result) {
    Pick pick = makePick(mesh, ray, sink);
    *result = hasDirection(ray) ? run(&pick) : QEL_STATUS_ILLEGAL_ARGUMENT;
    return *result == QEL_STATUS_OK && pick.found;
}

static bool pickMorphing(MorphingMesh* mesh, const PickRay& ray, const PickSink& sink, Result* result) {
    Pick pick = makePick(mesh, ray, sink);
    *result = hasDirection(ray) ? qelMorphingMesh_morph(mesh) : QEL_STATUS_ILLEGAL_ARGUMENT;
    if (*result != QEL_STATUS_OK) return false;
    pick.buffer = mesh->morphedBuffer;
    pick.isFresh = true;
    *result = run(&pick);
    return *result == QEL_STATUS_OK && pick.found;
}

static bool pickSkinned(SkinnedMesh* mesh, const PickRay& ray, const PickSink& sink, Result* result) {
    *result = QEL_STATUS_ILLEGAL_ARGUMENT;
    if (!hasDirection(ray)) return false;
    *result = QEL_STATUS_ILLEGAL_STATE;
    if (qelSkinnedMesh_skin(mesh, true) != QEL_STATUS_OK) return false;
    Pick pick = makePick(mesh, ray, sink);
    pick.buffer = mesh->skinnedBuffer;
    *result = run(&pick);
    return *result == QEL_STATUS_OK && pick.found;
}

// --- Entries ---

bool qelMesh_pick(Mesh* mesh, float ox, float oy, float oz, float dx, float dy, float dz, RayIntersection* record,
                  Result* result) {
    return pickPlain(mesh, {{ox, oy, oz}, {dx, dy, dz}}, {record, nullptr}, result);
}

bool qelMorphingMesh_pick(MorphingMesh* mesh, float ox, float oy, float oz, float dx, float dy, float dz,
                          RayIntersection* record, Result* result) {
    return pickMorphing(mesh, {{ox, oy, oz}, {dx, dy, dz}}, {record, nullptr}, result);
}

bool qelSkinnedMesh_pick(SkinnedMesh* mesh, float ox, float oy, float oz, float dx, float dy, float dz,
                         RayIntersection* record, Result* result) {
    return pickSkinned(mesh, {{ox, oy, oz}, {dx, dy, dz}}, {record, nullptr}, result);
}

bool qelMesh_pickMultiple(Mesh* mesh, float ox, float oy, float oz, float dx, float dy, float dz,
                          RayIntersectionArray* array, Result* result) {
    return pickPlain(mesh, {{ox, oy, oz}, {dx, dy, dz}}, {nullptr, array}, result);
}

bool qelMorphingMesh_pickMultiple(MorphingMesh* mesh, float ox, float oy, float oz, float dx, float dy, float dz,
                                  RayIntersectionArray* array, Result* result) {
    return pickMorphing(mesh, {{ox, oy, oz}, {dx, dy, dz}}, {nullptr, array}, result);
}

bool qelSkinnedMesh_pickMultiple(SkinnedMesh* mesh, float ox, float oy, float oz, float dx, float dy, float dz,
                                 RayIntersectionArray* array, Result* result) {
    return pickSkinned(mesh, {{ox, oy, oz}, {dx, dy, dz}}, {nullptr, array}, result);
}
