#include "scene/world.h"

#include "animation/animate.h"
#include "scene/animate_parts.h"
#include "scene/background.h"
#include "scene/camera.h"

static Object3D* findInWorld(Object3D* object, int32_t userId) {
    auto* world = static_cast<World*>(object);
    if (Object3D* found = qelObject3D_findCommon(world, userId)) return found;
    if (Object3D* found = qelObject3D_findIn(world->background, userId)) return found;
    return qelObject3D_findIn(world->activeCamera, userId);
}

static int32_t getReferencesOfWorld(const Object3D* object, Object3D** out) {
    const auto* world = static_cast<const World*>(object);
    int32_t count = qelGroup_getReferences(world, out);
    count = qelObject3D_appendReference(world->background, out, count);
    return qelObject3D_appendReference(world->activeCamera, out, count);
}

static int32_t animateWorld(Object3D* object, int32_t worldTime, Result* result) {
    int32_t validity = qelObject3D_animateCommon(object, worldTime, result);
    if (*result == QEL_STATUS_OK) animatePart(static_cast<World*>(object)->background, worldTime, &validity, result);
    return validity;
}

static void destroyWorld(Object3D* object) {
    qelWorld_finalise(static_cast<World*>(object));
    qelFree(object);
}

World* qelWorld_create() {
    auto* world = qelObject3D_alloc<World>(ClassId::World);
    if (world) qelWorld_init(world);
    return world;
}

void qelWorld_init(World* world) {
    qelGroup_init(world);
    world->classId = ClassId::World;
    world->find = findInWorld;
    world->getReferences = getReferencesOfWorld;
    world->animate = animateWorld;
    world->destroy = destroyWorld;
    world->activeCamera = nullptr;
    world->background = nullptr;
}

void qelWorld_finalise(World* world) {
    qelObject3D_unref(world->activeCamera);
    qelObject3D_unref(world->background);
    qelGroup_finalise(world);
    qelWorld_init(world);
}

Result qelWorld_setActiveCamera(World* world, Camera* camera) {
    if (!camera) return QEL_STATUS_NULL_POINTER;
    qelObject3D_exchange(world->activeCamera, camera);
    camera->transformChanged = 1;
    return QEL_STATUS_OK;
}

void qelWorld_setBackground(World* world, Background* background) {
    qelObject3D_exchange(world->background, background);
}

Camera* qelWorld_getActiveCamera(const World* world) { return world->activeCamera; }

Background* qelWorld_getBackground(const World* world) { return world->background; }

// The copy has no active camera: which one it gets is known when the children are copied.
Object3D* qelWorld_duplicate(const World* world) {
    World* copy = qelNode_copy(world);
    if (!copy) return nullptr;
    copy->activeCamera = nullptr;
    qelObject3D_ref(copy->background);
    if (qelGroup_completeCopy(copy)) return copy;
    qelObject3D_unref(copy);
    return nullptr;
}
