// The header that every engine object begins with: class, reference count, user parameters, animation tracks, and the
// four operations through which the engine is polymorphic.
#pragma once

#include "frame/allocator.h"
#include "scene/names.h"

struct UserParameter {
    uint32_t id;
    uint32_t length;  // bytes of data
    uint8_t* data;    // owned
};

constexpr int32_t kValidForever = 2147483647;

struct qelObject3D {
    ClassId classId;
    int32_t userId;
    int32_t refCount;
    uint8_t stateChanged;  // set by every setter that changes what is drawn, cleared by the renderer
    UserParameter* userParameters;
    uint32_t userParameterCount;
    uint8_t ownsUserParameters;

    // The first object with that user id among the object and what it references, or null.
    Object3D* (*find)(Object3D* object, int32_t userId);
    // The number of references; also writes them to `out` when that is not null.
    int32_t (*getReferences)(const Object3D* object, Object3D** out);

    int32_t animationTrackCount;
    int32_t animationTrackCapacity;
    AnimationTrack** animationTracks;

    // Applies the animation at a world time and always writes the result; returns for how many milliseconds the outcome
    // stays valid. Null: cannot be animated.
    int32_t (*animate)(Object3D* object, int32_t worldTime, Result* result);
    // Releases what the object owns and frees it.
    void (*destroy)(Object3D* object);

    Object3D* nextDoomed;  // chains objects without references that wait for their destroy
};

// The block of an object, for a class's create; null when memory runs out.
template <typename T>
T* qelObject3D_alloc(ClassId classId) {
    return static_cast<T*>(qelAlloc(uint32_t(classId), int32_t(sizeof(T))));
}

// Writes the defaults and leaves the four slots null. Every class's init calls it first.
void qelObject3D_init(Object3D* object);
// Releases tracks and user parameters and returns the header to its init state, but for the destroy slot.
void qelObject3D_finalise(Object3D* object);

// The common find and getReferences: own id and tracks. The slots of classes without references of their own.
Object3D* qelObject3D_findCommon(Object3D* object, int32_t userId);
int32_t qelObject3D_getReferencesCommon(const Object3D* object, Object3D** out);

// Helpers for the slots of classes that reference more: ask `object` unless it is null; append it unless it is null.
Object3D* qelObject3D_findIn(Object3D* object, int32_t userId);
int32_t qelObject3D_appendReference(Object3D* object, Object3D** out, int32_t count);

// Takes a reference to `object` (may be null) into the member, then releases what it held. Both may be the same.
template <typename T>
void qelObject3D_exchange(T*& member, T* object) {
    T* old = member;
    qelObject3D_ref(object);
    member = object;
    qelObject3D_unref(old);
}

Result qelObject3D_addAnimationTrack(Object3D* object, AnimationTrack* track);
Result qelObject3D_removeAnimationTrack(Object3D* object, AnimationTrack* track);
AnimationTrack* qelObject3D_getAnimationTrack(const Object3D* object, int32_t index, Result* result);
int32_t qelObject3D_getAnimationTrackCount(const Object3D* object);
void qelObject3D_setUserID(Object3D* object, int32_t userId);
// Takes the array and every entry's data over; they must come from qelAlloc. Releases what the object had.
void qelObject3D_adoptUserParameters(Object3D* object, UserParameter* parameters, uint32_t count);
UserParameter* qelObject3D_getUserParameters(const Object3D* object);
uint32_t qelObject3D_getUserParameterCount(const Object3D* object);

bool qelObject3D_isNode(const Object3D* object);   // false for null and for a FigureMesh
bool qelObject3D_isGroup(const Object3D* object);  // Group or World; false for null

// Gives a memberwise copy a header of its own: reference count 1, its own track list (a reference each) and user
// parameters, marked changed. False, with nothing kept, when memory runs out; the block is then to be freed without
// being finalised.
bool qelObject3D_duplicateHeader(const Object3D* source, Object3D* copy);

// The start of every class's duplicate: a copy with its own header, or null. Nodes use qelNode_copy. Before it does
// anything that can fail, the class takes a reference to everything it shares and clears what it must not share; from
// then on qelObject3D_unref gives the copy back.
template <typename T>
T* qelObject3D_copy(const T* source) {
    T* copy = qelObject3D_alloc<T>(source->classId);
    if (!copy) return nullptr;
    *copy = *source;
    if (qelObject3D_duplicateHeader(source, copy)) return copy;
    qelFree(copy);
    return nullptr;
}
