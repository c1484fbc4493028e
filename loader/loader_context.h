// What one load of a scene collects: the objects read so far, and the status and reason of a failure.
#pragma once

#include "scene/names.h"

constexpr int32_t kStatusCorruptData = 7;  // beside the QEL_STATUS_ codes: content was rejected

enum class LoadReason : uint8_t {
    None = 0,
    ObjectFailed = 1,   // memory, an invalid float, or the engine refused a value
    ObjectLength = 9,   // data does not match its declared length
    InvalidValue = 11,  // a field outside its allowed set
};

constexpr uint32_t kMaxExternalNames = 255;

struct LoaderContext {
    Object3D** objects;
    uint8_t* rootFlags;  // per object: no later object refers to it
    uint32_t objectCount, objectCapacity;
    uint8_t headerType;
    uint32_t headerLength;
    uint8_t versionMajor, versionMinor;
    uint8_t hasExternalReferences;
    uint32_t totalFileSize, approximateContentSize;
    char* externalNames[kMaxExternalNames];  // owned
    uint32_t externalNameCount;
    int32_t status;
    uint8_t reason;        // a LoadReason, or the engine's result code for an image or a child of a group
    uint32_t bytesRead;    // of the object being read
    uint32_t objectLimit;  // the table takes no more objects than that; 0: any number
    // What objects take, or will take once they are drawn, beyond what the file spells out; and the length of the
    // segments read so far, which all of that is held against.
    uint64_t derivedBytes, textureBytes, derivedWork;
    uint64_t segmentBytes;
};

LoaderContext* LoaderContext_create();  // null when memory runs out
// Releases names and arrays, not the objects, and returns the context to its initial values.
void LoaderContext_release(LoaderContext* context);
void LoaderContext_destroy(LoaderContext* context);
int32_t LoaderContext_getStatus(const LoaderContext* context);  // 0 for null
void LoaderContext_setStatus(LoaderContext* context, int32_t status);
// Adopts the caller's reference and sets the root flag. When the table cannot grow: false, with OUT_OF_MEMORY as
// status, and the reference stays the caller's.
bool LoaderContext_append(LoaderContext* context, Object3D* object);
void LoaderContext_clearRootFlag(LoaderContext* context, uint32_t entry);
// Adopts the name. False, with the status set and the name freed, for more than the list holds.
bool LoaderContext_appendExternalName(LoaderContext* context, char* name);
