#include "animation/animation_controller.h"

#include <cmath>

static void destroyAnimationController(Object3D* object) {
    qelObject3D_finalise(object);
    qelFree(object);
}

AnimationController* qelAnimationController_create() {
    auto* controller = qelObject3D_alloc<AnimationController>(ClassId::AnimationController);
    if (!controller) return nullptr;
    qelObject3D_init(controller);
    controller->classId = ClassId::AnimationController;
    controller->find = qelObject3D_findCommon;
    controller->getReferences = qelObject3D_getReferencesCommon;
    controller->destroy = destroyAnimationController;
    controller->weight = 1;
    controller->speed = 1;
    return controller;
}

Object3D* qelAnimationController_duplicate(const AnimationController* controller) {
    return qelObject3D_copy(controller);
}

Result qelAnimationController_setActiveInterval(AnimationController* controller, int32_t start, int32_t end) {
    if (start > end) return QEL_STATUS_ILLEGAL_ARGUMENT;
    controller->activeStart = start;
    controller->activeEnd = end;
    return QEL_STATUS_OK;
}

static int64_t elapsedAt(const AnimationController* controller, int32_t worldTime) {
    return int64_t(worldTime) - controller->referenceWorldTime;
}

void qelAnimationController_setSpeed(AnimationController* controller, float speed, int32_t worldTime) {
    const double elapsed = double(elapsedAt(controller, worldTime)) * controller->speed;
    controller->referenceSequenceTime = float(controller->referenceSequenceTime + elapsed);
    controller->referenceWorldTime = worldTime;
    controller->speed = speed;
}

void qelAnimationController_setPosition(AnimationController* controller, float sequenceTime, int32_t worldTime) {
    controller->referenceSequenceTime = sequenceTime;
    controller->referenceWorldTime = worldTime;
}

Result qelAnimationController_setWeight(AnimationController* controller, float weight) {
    if (!(weight >= 0)) return QEL_STATUS_ILLEGAL_ARGUMENT;  // NaN included
    controller->weight = weight;
    return QEL_STATUS_OK;
}

double qelAnimationController_getPosition(const AnimationController* controller, int32_t worldTime) {
    constexpr int32_t kChunk = 16776960;  // a little below 2^24, up to which a single float counts without gaps
    const int64_t elapsed = elapsedAt(controller, worldTime);
    const double speed = controller->speed;
    if (worldTime < kChunk) return double(elapsed) * speed + controller->referenceSequenceTime;
    const int64_t chunks = elapsed / kChunk, rest = elapsed % kChunk;  // both of the sign of `elapsed`
    return std::round(double(controller->referenceSequenceTime)) + double(chunks) * std::round(speed * kChunk) +
           std::round(speed * double(rest));
}
