#include "animation/animation_track.h"

#include "animation/animation_controller.h"
#include "animation/keyframe_sequence.h"

// --- What suits a property ---

static bool isEngineProperty(int32_t property) {
    return property >= int32_t(AnimationProperty::Matrix) && property <= int32_t(AnimationProperty::Direction);
}

static bool isProperty(int32_t property) {
    return isEngineProperty(property) ||
           (property >= int32_t(AnimationProperty::Alpha) && property <= int32_t(AnimationProperty::Visibility));
}

static bool suitsComponentCount(AnimationProperty property, int32_t count) {
    switch (property) {
        case AnimationProperty::Alpha:
        case AnimationProperty::Density:
        case AnimationProperty::FarDistance:
        case AnimationProperty::FieldOfView:
        case AnimationProperty::Intensity:
        case AnimationProperty::NearDistance:
        case AnimationProperty::Pickability:
        case AnimationProperty::Shininess:
        case AnimationProperty::SpotAngle:
        case AnimationProperty::SpotExponent:
        case AnimationProperty::Visibility: return count == 1;
        case AnimationProperty::AmbientColor:
        case AnimationProperty::Color:
        case AnimationProperty::DiffuseColor:
        case AnimationProperty::EmissiveColor:
        case AnimationProperty::SpecularColor:
        case AnimationProperty::Translation: return count == 3;
        case AnimationProperty::Crop: return count == 2 || count == 4;
        case AnimationProperty::Scale: return count == 1 || count == 3;
        case AnimationProperty::Orientation: return count == 4;
        case AnimationProperty::MorphWeights: return true;
        case AnimationProperty::Matrix:
        case AnimationProperty::Reserved:
        case AnimationProperty::Direction: break;  // of the engine's own nothing is asked
    }
    return true;
}

// Quaternions turn things; they may also stand for four morph weights.
static bool suitsInterpolation(AnimationProperty property, Interpolation interpolation) {
    if (interpolation != Interpolation::Slerp && interpolation != Interpolation::Squad) return true;
    return property == AnimationProperty::Orientation || property == AnimationProperty::MorphWeights ||
           isEngineProperty(int32_t(property));
}

// --- Operation slots ---

static Object3D* findInAnimationTrack(Object3D* object, int32_t userId) {
    auto* track = static_cast<AnimationTrack*>(object);
    if (Object3D* found = qelObject3D_findCommon(track, userId)) return found;
    if (Object3D* found = qelObject3D_findIn(track->controller, userId)) return found;
    return qelObject3D_findIn(track->keyframeSequence, userId);
}

static int32_t getReferencesOfAnimationTrack(const Object3D* object, Object3D** out) {
    const auto* track = static_cast<const AnimationTrack*>(object);
    const int32_t count = qelObject3D_appendReference(track->controller, out, 0);
    return qelObject3D_appendReference(track->keyframeSequence, out, count);
}

static void destroyAnimationTrack(Object3D* object) {
    auto* track = static_cast<AnimationTrack*>(object);
    qelObject3D_unref(track->keyframeSequence);
    qelObject3D_unref(track->controller);
    qelObject3D_finalise(track);
    qelFree(track);
}

// --- Interface ---

AnimationTrack* qelAnimationTrack_create(KeyframeSequence* sequence, int32_t property, Result* result) {
    *result = QEL_STATUS_NULL_POINTER;
    if (!sequence) return nullptr;
    *result = QEL_STATUS_ILLEGAL_ARGUMENT;
    if (!isProperty(property)) return nullptr;
    const auto target = AnimationProperty(property);
    if (!suitsComponentCount(target, sequence->componentCount)) return nullptr;
    if (!suitsInterpolation(target, sequence->interpolation)) return nullptr;

    *result = QEL_STATUS_OUT_OF_MEMORY;
    auto* track = qelObject3D_alloc<AnimationTrack>(ClassId::AnimationTrack);
    if (!track) return nullptr;
    qelObject3D_init(track);
    track->classId = ClassId::AnimationTrack;
    track->find = findInAnimationTrack;
    track->getReferences = getReferencesOfAnimationTrack;
    track->destroy = destroyAnimationTrack;
    track->targetProperty = target;
    qelObject3D_exchange(track->keyframeSequence, sequence);
    *result = QEL_STATUS_OK;
    return track;
}

void qelAnimationTrack_setController(AnimationTrack* track, AnimationController* controller) {
    qelObject3D_exchange(track->controller, controller);
}

Object3D* qelAnimationTrack_duplicate(const AnimationTrack* track) {
    AnimationTrack* copy = qelObject3D_copy(track);
    if (!copy) return nullptr;
    qelObject3D_ref(copy->keyframeSequence);
    qelObject3D_ref(copy->controller);
    return copy;
}
