#include "loader/scene_package.h"

#include <span>

#include "loader/m3g_objects.h"
#include "loader/scene_handles.h"

constexpr uint8_t kUncompressed = 0;
constexpr uint32_t kSectionHeaderSize = 9;  // compression, the length of the section, and that of what is in it
constexpr uint32_t kMinSectionSize = 13;    // with a check sum

static bool readSection(MemoryStream* stream, LoaderContext* context) {
    const uint8_t compression = readByte(stream);
    const uint32_t length = readUInt32(stream);
    skipBytes(stream, sizeof(uint32_t));  // how long the objects are uncompressed
    if (hasError(stream) || compression != kUncompressed || length < kMinSectionSize) return false;
    const uint32_t segmentLength = length - kSectionHeaderSize;
    const uint8_t* segment = stream->cursor;
    skipBytes(stream, segmentLength);
    return !hasError(stream) && M3gObjects_parseSegment(context, segment, segmentLength);
}

// Sections are read until they have brought as many objects as there shall be.
static bool readSections(MemoryStream* stream, LoaderContext* context, uint32_t objectCount) {
    context->objectLimit = objectCount;
    while (context->objectCount < objectCount)
        if (!readSection(stream, context)) return false;
    return true;
}

// The one object that no other refers to, when it is a World. Borrowed; null when there is none or there are several.
static World* findRoot(const LoaderContext* context) {
    Object3D* root = nullptr;
    for (uint32_t i = 0; i < context->objectCount; ++i) {
        if (!context->rootFlags[i]) continue;
        if (root) return nullptr;
        root = context->objects[i];
    }
    return root && root->classId == ClassId::World ? static_cast<World*>(root) : nullptr;
}

// The World of the scene with one reference, or null. What it does not hold goes with the context.
static World* readScene(MemoryStream* stream, uint32_t objectCount) {
    LoaderContext* context = LoaderContext_create();
    if (!context) return nullptr;
    World* world = readSections(stream, context, objectCount) ? findRoot(context) : nullptr;
    qelObject3D_ref(world);
    for (Object3D* object : std::span(context->objects, context->objectCount)) qelObject3D_unref(object);
    LoaderContext_destroy(context);
    return world;
}

K8Group* K8ScenePackage_load(MemoryStream* stream, uint16_t objectCount, K8Allocator* allocator) {
    World* world = readScene(stream, objectCount);
    if (!world) return nullptr;
    K8Group* root = K8SceneHandles_make(world, allocator);
    qelObject3D_unref(world);
    return root;
}
