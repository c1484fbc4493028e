#include "scene/object3d.h"

#include <algorithm>
#include <span>

#include "animation/animation_track.h"
#include "animation/keyframe_sequence.h"

constexpr int32_t kTrackListGrowth = 5;

static std::span<AnimationTrack*> tracksOf(const Object3D* object) {
    return {object->animationTracks, size_t(object->animationTrackCount)};
}

// --- Life ---

void qelObject3D_init(Object3D* object) {
    object->classId = ClassId::Object3D;
    object->userId = 0;
    object->refCount = 1;
    object->stateChanged = 1;  // the renderer has never seen it
    object->userParameters = nullptr;
    object->userParameterCount = 0;
    object->ownsUserParameters = 1;
    object->find = nullptr;
    object->getReferences = nullptr;
    object->animationTrackCount = 0;
    object->animationTrackCapacity = 0;
    object->animationTracks = nullptr;
    object->animate = nullptr;
    object->destroy = nullptr;
    object->nextDoomed = nullptr;
}

static void releaseUserParameters(Object3D* object) {
    if (object->ownsUserParameters) {
        for (UserParameter& parameter : std::span(object->userParameters, object->userParameterCount))
            qelFree(parameter.data);
        qelFree(object->userParameters);
    }
    object->userParameters = nullptr;
    object->userParameterCount = 0;
}

static void releaseTracks(Object3D* object) {
    for (AnimationTrack* track : tracksOf(object)) qelObject3D_unref(track);
    qelFree(object->animationTracks);
    object->animationTracks = nullptr;
    object->animationTrackCount = 0;
    object->animationTrackCapacity = 0;
}

void qelObject3D_finalise(Object3D* object) {
    releaseTracks(object);
    releaseUserParameters(object);
    const auto destroy = object->destroy;
    qelObject3D_init(object);
    object->destroy = destroy;
}

uint32_t qelObject3D_getClassID(const Object3D* object) { return uint32_t(object->classId); }

Object3D* qelObject3D_ref(Object3D* object) {
    if (object) ++object->refCount;
    return object;
}

// Destroying an object gives up what it referred to, and so on down. A chain of groups can be as long as its file, so
// this goes round a loop instead of down the stack: what loses its last reference inside a destroy waits until that
// destroy is done.
static Object3D* doomedObjects;
static bool destroying;

void qelObject3D_unref(Object3D* object) {
    if (!object || --object->refCount != 0) return;
    object->nextDoomed = doomedObjects;
    doomedObjects = object;
    if (destroying) return;
    destroying = true;
    while (doomedObjects) {
        Object3D* next = doomedObjects;
        doomedObjects = next->nextDoomed;
        next->destroy(next);
    }
    destroying = false;
}

// --- Animation tracks ---

static bool isNodeProperty(AnimationProperty property) {
    return property == AnimationProperty::Orientation || property == AnimationProperty::Scale ||
           property == AnimationProperty::Translation || property == AnimationProperty::Alpha ||
           property == AnimationProperty::Pickability || property == AnimationProperty::Visibility;
}

// A FigureMesh is drawn like a node, but is no part of a scene.
static bool isNodeClass(ClassId classId) {
    return classId == ClassId::Camera || classId == ClassId::Group || classId == ClassId::Light ||
           classId == ClassId::Mesh || classId == ClassId::MorphingMesh || classId == ClassId::Node ||
           classId == ClassId::SkinnedMesh || classId == ClassId::Sprite3D || classId == ClassId::World;
}

// The properties of a class beyond those of all nodes.
static std::span<const AnimationProperty> ownProperties(ClassId classId) {
    using enum AnimationProperty;
    static constexpr AnimationProperty kBackground[] = {Alpha, Color, Crop};
    static constexpr AnimationProperty kCamera[] = {FarDistance, FieldOfView, NearDistance};
    static constexpr AnimationProperty kFog[] = {Color, Density, FarDistance, NearDistance};
    static constexpr AnimationProperty kGroup[] = {Direction, Matrix};
    static constexpr AnimationProperty kLight[] = {Color, SpotAngle, SpotExponent, Intensity};
    static constexpr AnimationProperty kMaterial[] = {Alpha,        AmbientColor,  EmissiveColor,
                                                      DiffuseColor, SpecularColor, Shininess};
    static constexpr AnimationProperty kMorphingMesh[] = {MorphWeights};
    static constexpr AnimationProperty kSprite3D[] = {Crop};
    static constexpr AnimationProperty kTexture2D[] = {Orientation, Scale, Translation, Color};
    static constexpr AnimationProperty kVertexBuffer[] = {Alpha, Color};
    switch (classId) {
        case ClassId::Background: return kBackground;
        case ClassId::Camera: return kCamera;
        case ClassId::Fog: return kFog;
        case ClassId::Group: return kGroup;
        case ClassId::Light: return kLight;
        case ClassId::Material: return kMaterial;
        case ClassId::MorphingMesh: return kMorphingMesh;
        case ClassId::Sprite3D: return kSprite3D;
        case ClassId::Texture2D: return kTexture2D;
        case ClassId::VertexBuffer: return kVertexBuffer;
        case ClassId::ActTable:
        case ClassId::FigureMesh:
        case ClassId::AnimationController:
        case ClassId::AnimationTrack:
        case ClassId::Appearance:
        case ClassId::CompositingMode:
        case ClassId::Image2D:
        case ClassId::KeyframeSequence:
        case ClassId::Mesh:
        case ClassId::Node:
        case ClassId::Object3D:
        case ClassId::PolygonMode:
        case ClassId::SkinnedMesh:
        case ClassId::TriangleStripArray:
        case ClassId::VertexArray:
        case ClassId::World: break;
    }
    return {};
}

static bool suits(ClassId classId, AnimationProperty property) {
    const bool hasNodeProperties = isNodeClass(classId) || classId == ClassId::FigureMesh;
    if (hasNodeProperties && isNodeProperty(property)) return true;
    const std::span<const AnimationProperty> own = ownProperties(classId);
    return std::ranges::find(own, property) != own.end();
}

// Samples of one property are summed, so all its sequences must have as many components; directions are not summed.
// Those that an object has agree already: one stands for all.
static bool clashes(std::span<AnimationTrack* const> present, const AnimationTrack* added) {
    if (std::ranges::find(present, added) != present.end()) return true;
    if (added->targetProperty == AnimationProperty::Direction) return false;
    const auto same = std::ranges::find(present, added->targetProperty, &AnimationTrack::targetProperty);
    return same != present.end() &&
           (*same)->keyframeSequence->componentCount != added->keyframeSequence->componentCount;
}

Result qelObject3D_addAnimationTrack(Object3D* object, AnimationTrack* track) {
    if (!track) return QEL_STATUS_NULL_POINTER;
    if (!suits(object->classId, track->targetProperty)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (clashes(tracksOf(object), track)) return QEL_STATUS_ILLEGAL_ARGUMENT;

    if (object->animationTrackCount == object->animationTrackCapacity) {
        const int32_t capacity = object->animationTrackCapacity + kTrackListGrowth;
        void* grown = qelReallocArray(object->animationTracks, uint32_t(capacity), sizeof(AnimationTrack*));
        if (!grown) return QEL_STATUS_OUT_OF_MEMORY;
        object->animationTracks = static_cast<AnimationTrack**>(grown);
        object->animationTrackCapacity = capacity;
    }
    qelObject3D_ref(track);
    object->animationTracks[object->animationTrackCount++] = track;
    return QEL_STATUS_OK;
}

Result qelObject3D_removeAnimationTrack(Object3D* object, AnimationTrack* track) {
    if (!track) return QEL_STATUS_NULL_POINTER;
    const std::span<AnimationTrack*> tracks = tracksOf(object);
    const auto found = std::ranges::find(tracks, track);
    if (found == tracks.end()) return QEL_STATUS_OK;
    std::copy(found + 1, tracks.end(), found);
    tracks.back() = nullptr;
    --object->animationTrackCount;
    qelObject3D_unref(track);
    return QEL_STATUS_OK;
}

AnimationTrack* qelObject3D_getAnimationTrack(const Object3D* object, int32_t index, Result* result) {
    const bool exists = index >= 0 && index < object->animationTrackCount;
    *result = exists ? QEL_STATUS_OK : QEL_STATUS_INDEX_OUT_OF_RANGE;
    return exists ? object->animationTracks[index] : nullptr;
}

int32_t qelObject3D_getAnimationTrackCount(const Object3D* object) { return object->animationTrackCount; }

// --- User id and parameters ---

void qelObject3D_setUserID(Object3D* object, int32_t userId) { object->userId = userId; }

void qelObject3D_adoptUserParameters(Object3D* object, UserParameter* parameters, uint32_t count) {
    releaseUserParameters(object);
    object->userParameters = parameters;
    object->userParameterCount = count;
    object->ownsUserParameters = 1;
}

UserParameter* qelObject3D_getUserParameters(const Object3D* object) { return object->userParameters; }

uint32_t qelObject3D_getUserParameterCount(const Object3D* object) { return object->userParameterCount; }

// --- Find and references ---

Object3D* qelObject3D_findIn(Object3D* object, int32_t userId) {
    return object ? object->find(object, userId) : nullptr;
}

Object3D* qelObject3D_findCommon(Object3D* object, int32_t userId) {
    if (object->userId == userId) return object;
    for (AnimationTrack* track : tracksOf(object))
        if (Object3D* found = qelObject3D_findIn(track, userId)) return found;
    return nullptr;
}

int32_t qelObject3D_appendReference(Object3D* object, Object3D** out, int32_t count) {
    if (!object) return count;
    if (out) out[count] = object;
    return count + 1;
}

int32_t qelObject3D_getReferencesCommon(const Object3D* object, Object3D** out) {
    if (out) std::ranges::copy(tracksOf(object), out);
    return object->animationTrackCount;
}

bool qelObject3D_isNode(const Object3D* object) { return object && isNodeClass(object->classId); }

bool qelObject3D_isGroup(const Object3D* object) {
    return object && (object->classId == ClassId::Group || object->classId == ClassId::World);
}

// --- Duplication ---

static bool duplicateUserParameters(const Object3D* source, Object3D* copy) {
    if (!source->userParameters || !source->ownsUserParameters) {
        copy->userParameters = source->userParameters;
        copy->userParameterCount = source->userParameterCount;
        return true;
    }
    copy->userParameters = qelAllocArrayOf<UserParameter>(source->userParameterCount);
    if (!copy->userParameters) return false;
    copy->userParameterCount = source->userParameterCount;
    for (uint32_t i = 0; i < source->userParameterCount; ++i) {
        const UserParameter& from = source->userParameters[i];
        UserParameter& to = copy->userParameters[i];
        to.data = qelAllocArrayOf<uint8_t>(from.length);
        if (!to.data) return false;
        to.id = from.id;
        to.length = from.length;
        std::copy_n(from.data, from.length, to.data);
    }
    return true;
}

static bool duplicateTracks(const Object3D* source, Object3D* copy) {
    if (!source->animationTracks) return true;
    copy->animationTracks = qelAllocArrayOf<AnimationTrack*>(uint32_t(source->animationTrackCapacity));
    if (!copy->animationTracks) return false;
    copy->animationTrackCapacity = source->animationTrackCapacity;
    copy->animationTrackCount = source->animationTrackCount;
    std::ranges::copy(tracksOf(source), copy->animationTracks);
    for (AnimationTrack* track : tracksOf(copy)) qelObject3D_ref(track);
    return true;
}

bool qelObject3D_duplicateHeader(const Object3D* source, Object3D* copy) {
    copy->refCount = 1;
    copy->stateChanged = 1;
    copy->userParameters = nullptr;
    copy->userParameterCount = 0;
    copy->animationTrackCount = 0;
    copy->animationTrackCapacity = 0;
    copy->animationTracks = nullptr;
    copy->nextDoomed = nullptr;
    if (duplicateUserParameters(source, copy) && duplicateTracks(source, copy)) return true;
    releaseTracks(copy);
    releaseUserParameters(copy);
    return false;
}
