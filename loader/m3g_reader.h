// What all readers of JSR 184 objects work with: the place in the file, the failure of a load, and the objects that
// were read before.
#pragma once

#include "loader/loader_context.h"
#include "loader/stream.h"
#include "scene/object3d.h"

struct M3gReader {
    SegmentStream* stream;
    LoaderContext* context;
    uint32_t length;  // that the object being read says it has
};

// --- Failure ---

// Readers read a run of fields, wrong ones included, and then ask whether the load is still intact: nothing was refused
// and nothing read past the end. Until they have asked, references may be null and fields hold anything.
bool M3gReader_isIntact(const M3gReader* reader);

// The first failure of a load is the one that is kept.
void M3gReader_fail(M3gReader* reader, LoadReason reason);
void M3gReader_failOutOfMemory(M3gReader* reader);
// Fails unless the result is OK: with OUT_OF_MEMORY, or because the engine refused a value.
void M3gReader_require(M3gReader* reader, Result result);
// The same for an object that could not be made; returns null, for the reader to return.
Object3D* M3gReader_failCreation(M3gReader* reader, Result result = QEL_STATUS_OUT_OF_MEMORY);

// --- Counts ---

// Reads a count of elements that take at least so many bytes each; 0, and a failure, when fewer bytes are left.
uint32_t M3gReader_readCount(M3gReader* reader, uint32_t bytesPerElement);

// A few bytes can ask for much: a blank image, mipmaps of a shared image, deformed vertices of a shared buffer. Each of
// these accounts for what the file does not contain, and fails when it is out of all proportion to it.

void M3gReader_deriveBytes(M3gReader* reader, uint64_t count);     // of memory
void M3gReader_deriveTexture(M3gReader* reader, uint64_t texels);  // that an object does not share with others
void M3gReader_deriveWork(M3gReader* reader, uint64_t count);      // vertices drawn, or whatever takes as long
// The tracks of what several objects may share are sampled in a frame for each of them. Null has none.
void M3gReader_deriveAnimation(M3gReader* reader, const Object3D* animated);
void M3gReader_deriveAppearanceAnimation(M3gReader* reader, const Appearance* appearance);

// --- References ---

// Whether an object has that number. Number 1 is the header's, which cannot be referred to, and 0 is none.
bool M3gReader_isObject(const M3gReader* reader, uint32_t number);
Object3D* M3gReader_objectOf(const M3gReader* reader, uint32_t number);  // null for 0
// Something refers to the object now: it is no root of the scene. Ignores 0.
void M3gReader_useObject(M3gReader* reader, uint32_t number);

// Reads a number and uses its object. Null after a failure: no such object, or one of another class.
Object3D* M3gReader_readReference(M3gReader* reader, ClassId classId, bool mayBeNone);
Node* M3gReader_readNodeReference(M3gReader* reader);  // of any node class

template <typename T>
T* M3gReader_readOptional(M3gReader* reader, ClassId classId) {
    return static_cast<T*>(M3gReader_readReference(reader, classId, true));
}
template <typename T>
T* M3gReader_readRequired(M3gReader* reader, ClassId classId) {
    return static_cast<T*>(M3gReader_readReference(reader, classId, false));
}
