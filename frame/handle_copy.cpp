#include "frame/handle_copy.h"

#include <cstring>

#include "frame/allocator.h"
#include "frame/error_status.h"
#include "frame/primitive_handle.h"

// A handle still to be copied, and the pointer to some kind of handle that gets the address of its copy.
struct CopyWork {
    const K8Handle* source;
    void* destination;
    CopyWork* next;
};

struct TreeCopy {
    RecordPool* pool;
    K8Allocator* allocator;
    CopyWork* head;
    CopyWork* tail;
};

void K8Handle_setCopyRecordSizes(std::array<uint32_t, kRecordKindCount + 1>& sizes) {
    const auto set = [&sizes](RecordKind kind, size_t size) { sizes[uint32_t(kind)] = uint32_t(size); };
    set(RecordKind::WorkListEntry, sizeof(CopyWork));
    set(RecordKind::Transform, sizeof(K8Transform));
    set(RecordKind::ActionTable, sizeof(K8ActionTable));
    set(RecordKind::Figure, sizeof(K8Figure));
    set(RecordKind::FigureInfo, sizeof(K8FigureInfo));
    set(RecordKind::Texture, sizeof(K8Texture));
    set(RecordKind::TextureInfo, sizeof(K8TextureInfo));
    set(RecordKind::Primitive, sizeof(K8Primitive));
    set(RecordKind::PrimitiveInfo, sizeof(K8PrimitiveInfo));
    set(RecordKind::Group, sizeof(K8Group));
    set(RecordKind::GroupInfo, sizeof(K8GroupInfo));
    set(RecordKind::Light, sizeof(K8Light));
    set(RecordKind::LightInfo, sizeof(K8LightInfo));
    set(RecordKind::Fog, sizeof(K8Fog));
}

// --- Copying ---

template <typename T>
static T* takeRecord(TreeCopy& copy, RecordKind kind) {
    auto* record = static_cast<T*>(RecordPool_take(copy.pool, kind));
    if (record)
        *record = {};
    else
        K8ErrStorage_failOutOfMemory();
    return record;
}

// Appends a handle to the work list; a null source leaves its place null.
static bool queueCopy(TreeCopy& copy, const K8Handle* source, void* destination) {
    if (!source) return true;
    auto* work = takeRecord<CopyWork>(copy, RecordKind::WorkListEntry);
    if (!work) return false;
    *work = {source, destination, nullptr};
    (copy.tail ? copy.tail->next : copy.head) = work;
    copy.tail = work;
    return true;
}

template <typename T>
static bool allocArray(TreeCopy& copy, uint32_t count, T** out) {
    if (count == 0) return true;
    *out = K8Allocator_allocArrayOf<T>(copy.allocator, count);
    return *out || K8ErrStorage_failOutOfMemory();
}

// The handle record of a copy, linked to its place at once so that a failure later releases it with the rest.
template <typename T>
static T* startHandle(TreeCopy& copy, const K8Handle* source, RecordKind kind, void* destination) {
    auto* handle = takeRecord<T>(copy, kind);
    if (!handle) return nullptr;
    handle->header = {qelObject3D_ref(source->object), source->classId, copy.allocator, handle};
    memcpy(destination, &handle, sizeof handle);  // whatever the type of the pointer there
    return handle;
}

// Whether a pointer to some kind of handle points to one of that kind: a host casts what a load returns. Null does.
static bool isOfClass(const void* handle, int16_t classId) {
    return !handle || static_cast<const K8Handle*>(handle)->classId == classId;
}

static bool copyHeaderOnly(TreeCopy& copy, const CopyWork& work) {
    if (work.source->classId == K8_CLASS_FOG)
        return startHandle<K8Fog>(copy, work.source, RecordKind::Fog, work.destination);
    return startHandle<K8ActionTable>(copy, work.source, RecordKind::ActionTable, work.destination);
}

static bool copyFigure(TreeCopy& copy, const CopyWork& work) {
    auto* handle = startHandle<K8Figure>(copy, work.source, RecordKind::Figure, work.destination);
    if (!handle) return false;
    const K8FigureInfo* source = reinterpret_cast<const K8Figure*>(work.source)->info;
    if (!source) return true;
    auto* info = takeRecord<K8FigureInfo>(copy, RecordKind::FigureInfo);
    if (!info) return false;
    *info = *source;
    info->loadedTextures = nullptr;
    info->loadedAction = nullptr;
    info->textureIndices = nullptr;
    handle->info = info;
    const uint32_t count = source->loadedTextureCount;
    for (uint32_t i = 0; i < count; ++i)
        if (!source->loadedTextures || !source->loadedTextures[i] ||
            !isOfClass(source->loadedTextures[i], K8_CLASS_TEXTURE))
            return K8ErrStorage_fail();
    if (!isOfClass(source->loadedAction, K8_CLASS_ACTION_TABLE)) return K8ErrStorage_fail();
    if (!allocArray(copy, count, &info->loadedTextures)) return false;
    for (uint32_t i = 0; i < count; ++i)
        if (!queueCopy(copy, &source->loadedTextures[i]->header, &info->loadedTextures[i])) return false;
    return queueCopy(copy, reinterpret_cast<const K8Handle*>(source->loadedAction), &info->loadedAction);
}

static bool copyTexture(TreeCopy& copy, const CopyWork& work) {
    auto* handle = startHandle<K8Texture>(copy, work.source, RecordKind::Texture, work.destination);
    if (!handle) return false;
    const auto* texture = reinterpret_cast<const K8Texture*>(work.source);
    handle->keepsBlending = texture->keepsBlending;
    if (!texture->info) return true;
    auto* info = takeRecord<K8TextureInfo>(copy, RecordKind::TextureInfo);
    if (!info) return false;
    *info = *texture->info;
    info->secondMap = nullptr;
    handle->info = info;
    const K8Texture* secondMap = texture->info->secondMap;
    if (!secondMap) return true;
    if (!isOfClass(secondMap, K8_CLASS_TEXTURE)) return K8ErrStorage_fail();
    // A second map is only looked through, so its copy has no loaded info of its own.
    auto* second = startHandle<K8Texture>(copy, &secondMap->header, RecordKind::Texture, &info->secondMap);
    if (second) second->keepsBlending = secondMap->keepsBlending;
    return second;
}

static bool copyLight(TreeCopy& copy, const CopyWork& work) {
    auto* handle = startHandle<K8Light>(copy, work.source, RecordKind::Light, work.destination);
    if (!handle) return false;
    const K8LightInfo* source = reinterpret_cast<const K8Light*>(work.source)->info;
    if (!source) return true;
    handle->info = takeRecord<K8LightInfo>(copy, RecordKind::LightInfo);
    if (!handle->info) return false;
    *handle->info = *source;
    return true;
}

static bool copyPrimitive(TreeCopy& copy, const CopyWork& work) {
    auto* handle = startHandle<K8Primitive>(copy, work.source, RecordKind::Primitive, work.destination);
    if (!handle) return false;
    const K8PrimitiveInfo* source = reinterpret_cast<const K8Primitive*>(work.source)->info;
    if (!source) return true;
    auto* info = takeRecord<K8PrimitiveInfo>(copy, RecordKind::PrimitiveInfo);
    if (!info) return false;
    *info = *source;
    info->texture = nullptr;
    for (int32_t*& values : info->values) values = nullptr;
    handle->info = info;
    if (!isOfClass(source->texture, K8_CLASS_TEXTURE)) return K8ErrStorage_fail();
    for (int i = 0; i < kPrimitiveArrayCount; ++i) {
        if (source->counts[i] && !source->values[i]) return K8ErrStorage_fail();
        if (!allocArray(copy, source->counts[i], &info->values[i])) return false;
        if (source->counts[i]) memcpy(info->values[i], source->values[i], source->counts[i] * sizeof(int32_t));
    }
    return queueCopy(copy, reinterpret_cast<const K8Handle*>(source->texture), &info->texture);
}

static bool copyGroup(TreeCopy& copy, const CopyWork& work) {
    auto* handle = startHandle<K8Group>(copy, work.source, RecordKind::Group, work.destination);
    if (!handle) return false;
    const K8GroupInfo* source = reinterpret_cast<const K8Group*>(work.source)->info;
    if (!source) return true;
    auto* info = takeRecord<K8GroupInfo>(copy, RecordKind::GroupInfo);
    if (!info) return false;
    *info = *source;
    info->transform = nullptr;
    info->childHandles = nullptr;
    info->childData = nullptr;
    handle->info = info;
    if (source->transform) {
        info->transform = takeRecord<K8Transform>(copy, RecordKind::Transform);
        if (!info->transform) return false;
        *info->transform = *source->transform;
        info->transform->allocator = copy.allocator;
        info->transform->ownBlock = info->transform;
    }
    const uint32_t count = source->childHandleCount;
    if (count && !source->childHandles) return K8ErrStorage_fail();
    if (!allocArray(copy, count, &info->childHandles)) return false;
    for (uint32_t i = 0; i < count; ++i)  // a null child stays null
        if (!queueCopy(copy, source->childHandles[i], &info->childHandles[i])) return false;
    return true;
}

static bool copyOne(TreeCopy& copy, const CopyWork& work) {
    switch (work.source->classId) {
        case K8_CLASS_ACTION_TABLE:
        case K8_CLASS_FOG: return copyHeaderOnly(copy, work);
        case K8_CLASS_FIGURE: return copyFigure(copy, work);
        case K8_CLASS_TEXTURE: return copyTexture(copy, work);
        case K8_CLASS_LIGHT: return copyLight(copy, work);
        case K8_CLASS_PRIMITIVE: return copyPrimitive(copy, work);
        case K8_CLASS_GROUP:
        case K8_CLASS_SCENE_GROUP: return copyGroup(copy, work);
        default: return K8ErrStorage_fail();
    }
}

K8Handle* K8Handle_copyTree(const K8Handle* handle, RecordPool* pool) {
    if (!handle) {
        K8ErrStorage_fail();
        return nullptr;
    }
    TreeCopy copy = {pool, RecordPool_allocator(pool), nullptr, nullptr};
    K8Handle* root = nullptr;
    bool ok = queueCopy(copy, handle, &root);
    while (copy.head) {  // after a failure this only gives the work records back
        CopyWork* work = copy.head;
        ok = ok && copyOne(copy, *work);
        copy.head = work->next;
        RecordPool_giveBack(work);
    }
    if (ok) return root;
    K8Handle_releaseCopy(root);
    return nullptr;
}

// --- Releasing --- Must not fail, so the work list needs no memory: it is linked through the ownBlock members, which
// in a copy always hold the copy's own address.

static void queueRelease(K8Handle* handle, K8Handle*& list) {
    if (!handle) return;
    handle->ownBlock = list;
    list = handle;
}

static void giveBack(void* record) {
    if (record) RecordPool_giveBack(record);
}

static void releaseFigureInfo(K8FigureInfo* info, K8Allocator* allocator, K8Handle*& list) {
    for (uint32_t i = 0; info->loadedTextures && i < info->loadedTextureCount; ++i)
        queueRelease(reinterpret_cast<K8Handle*>(info->loadedTextures[i]), list);
    queueRelease(reinterpret_cast<K8Handle*>(info->loadedAction), list);
    K8Allocator_free(allocator, info->loadedTextures);
}

static void releaseGroupInfo(K8GroupInfo* info, K8Allocator* allocator, K8Handle*& list) {
    giveBack(info->transform);
    for (uint32_t i = 0; info->childHandles && i < info->childHandleCount; ++i)
        queueRelease(info->childHandles[i], list);
    K8Allocator_free(allocator, info->childHandles);
}

// Releases what the loaded info holds and gives its record back; the handles in it go to the list.
static void releaseInfo(K8Handle* handle, K8Handle*& list) {
    K8Allocator* allocator = handle->allocator;
    switch (handle->classId) {
        case K8_CLASS_FIGURE:
            if (K8FigureInfo* info = reinterpret_cast<K8Figure*>(handle)->info) {
                releaseFigureInfo(info, allocator, list);
                giveBack(info);
            }
            break;
        case K8_CLASS_TEXTURE:
            if (K8TextureInfo* info = reinterpret_cast<K8Texture*>(handle)->info) {
                queueRelease(reinterpret_cast<K8Handle*>(info->secondMap), list);
                giveBack(info);
            }
            break;
        case K8_CLASS_PRIMITIVE:
            if (K8PrimitiveInfo* info = reinterpret_cast<K8Primitive*>(handle)->info) {
                queueRelease(reinterpret_cast<K8Handle*>(info->texture), list);
                for (int32_t* values : info->values) K8Allocator_free(allocator, values);
                giveBack(info);
            }
            break;
        case K8_CLASS_GROUP:
        case K8_CLASS_SCENE_GROUP:
            if (K8GroupInfo* info = reinterpret_cast<K8Group*>(handle)->info) {
                releaseGroupInfo(info, allocator, list);
                giveBack(info);
            }
            break;
        case K8_CLASS_LIGHT: giveBack(reinterpret_cast<K8Light*>(handle)->info); break;
        default: break;
    }
}

static size_t handleSize(int16_t classId) {
    switch (classId) {
        case K8_CLASS_ACTION_TABLE:
        case K8_CLASS_FOG: return sizeof(K8Handle);
        case K8_CLASS_TEXTURE: return sizeof(K8Texture);
        default: return sizeof(K8Figure);  // every other family adds the pointer to its loaded info
    }
}

void K8Handle_releaseCopy(K8Handle* handle) {
    K8Handle* list = nullptr;
    queueRelease(handle, list);
    while (list) {
        K8Handle* next = list;
        list = static_cast<K8Handle*>(next->ownBlock);
        releaseInfo(next, list);
        qelObject3D_unref(next->object);
        memset(static_cast<void*>(next), 0, handleSize(next->classId));
        RecordPool_giveBack(next);
    }
}
