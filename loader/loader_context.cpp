#include "loader/loader_context.h"

#include <cassert>

#include "frame/allocator.h"

constexpr uint32_t kObjectTableStep = 20;

LoaderContext* LoaderContext_create() {
    return static_cast<LoaderContext*>(qelAlloc(kScratchTag, sizeof(LoaderContext)));
}

void LoaderContext_release(LoaderContext* context) {
    for (uint32_t i = 0; i < context->externalNameCount; ++i) qelFree(context->externalNames[i]);
    qelFree(context->objects);
    qelFree(context->rootFlags);
    *context = {};
}

void LoaderContext_destroy(LoaderContext* context) {
    if (!context) return;
    LoaderContext_release(context);
    qelFree(context);
}

int32_t LoaderContext_getStatus(const LoaderContext* context) { return context ? context->status : QEL_STATUS_OK; }

void LoaderContext_setStatus(LoaderContext* context, int32_t status) {
    if (context) context->status = status;
}

// Both arrays get room or the table keeps its capacity; the one that did grow is merely larger than it says.
static bool growObjectTable(LoaderContext* context) {
    const uint64_t capacity = uint64_t(context->objectCapacity) + kObjectTableStep;
    if (capacity > uint64_t(INT32_MAX) / sizeof(Object3D*)) return false;
    void* objects = qelRealloc(context->objects, int32_t(capacity * sizeof(Object3D*)));
    if (!objects) return false;
    context->objects = static_cast<Object3D**>(objects);
    void* rootFlags = qelRealloc(context->rootFlags, int32_t(capacity));
    if (!rootFlags) return false;
    context->rootFlags = static_cast<uint8_t*>(rootFlags);
    context->objectCapacity = uint32_t(capacity);
    return true;
}

bool LoaderContext_append(LoaderContext* context, Object3D* object) {
    if (context->objectCount == context->objectCapacity && !growObjectTable(context)) {
        context->status = QEL_STATUS_OUT_OF_MEMORY;
        return false;
    }
    context->objects[context->objectCount] = object;
    context->rootFlags[context->objectCount] = 1;
    ++context->objectCount;
    return true;
}

void LoaderContext_clearRootFlag(LoaderContext* context, uint32_t entry) {
    assert(entry < context->objectCount);
    context->rootFlags[entry] = 0;
}

bool LoaderContext_appendExternalName(LoaderContext* context, char* name) {
    if (context->externalNameCount == kMaxExternalNames) {
        qelFree(name);
        context->status = kStatusCorruptData;
        return false;
    }
    context->externalNames[context->externalNameCount++] = name;
    return true;
}
