#include "frame/allocator.h"
#include "frame/error_status.h"
#include "frame/handle.h"
#include "scene/figure_mesh.h"

static bool isFigure(const K8Figure* handle) { return K8Handle_isOf(handle, K8_CLASS_FIGURE); }

K8Figure* K8Figure_create(K8Figure* memory, K8Allocator* allocator) {
    return static_cast<K8Figure*>(K8Handle_create(memory, allocator, sizeof(K8Figure), K8_CLASS_FIGURE));
}

void K8Figure_destroy(K8Figure* handle) {
    if (!isFigure(handle)) return K8Object3D_destroy(reinterpret_cast<K8Handle*>(handle));
    K8Figure_clearTmpData(handle);
    K8Handle_destroy(&handle->header, sizeof *handle);
}

// Releases the arrays of the record and zeroes it. An array that the record to come names again stays.
static void clearRecord(K8Figure* handle, const K8FigureInfo* next) {
    K8FigureInfo* info = handle->info;
    if (!next || next->loadedTextures != info->loadedTextures)
        K8Allocator_free(handle->header.allocator, info->loadedTextures);
    if (!next || next->textureIndices != info->textureIndices)
        K8Allocator_free(handle->header.allocator, info->textureIndices);
    *info = {};
}

bool K8Figure_setTmpData(K8Figure* handle, const K8FigureInfo* info) {
    if (!isFigure(handle) || !info) return K8ErrStorage_fail();
    const K8FigureInfo record = *info;  // `info` may be the handle's own
    if (handle->info) clearRecord(handle, &record);
    auto* own = static_cast<K8FigureInfo*>(K8Handle_ensureInfo(&handle->header, handle->info, sizeof record));
    if (!own) return false;
    *own = record;
    handle->info = own;
    return true;
}

void K8Figure_clearTmpData(K8Figure* handle) {
    if (!isFigure(handle) || !handle->info) return;
    clearRecord(handle, nullptr);
    K8Allocator_free(handle->header.allocator, handle->info);
    handle->info = nullptr;
}

void K8Figure_clearLoadedInfo(K8Figure* handle) {
    if (isFigure(handle) && handle->info) clearRecord(handle, nullptr);
}

// The loaded info, or null with the failure stored.
static const K8FigureInfo* requireInfo(const K8Figure* handle) {
    const K8FigureInfo* info = isFigure(handle) ? handle->info : nullptr;
    if (!info) K8ErrStorage_fail();
    return info;
}

int32_t K8Figure_getLoadedNumTextures(const K8Figure* handle) {
    const K8FigureInfo* info = requireInfo(handle);
    return info ? info->loadedTextureCount : 0;
}

K8Texture** K8Figure_getLoadedTextures(const K8Figure* handle) {
    const K8FigureInfo* info = requireInfo(handle);
    return info ? info->loadedTextures : nullptr;
}

K8ActionTable* K8Figure_getLoadedAction(const K8Figure* handle) {
    const K8FigureInfo* info = requireInfo(handle);
    return info ? info->loadedAction : nullptr;
}

int32_t K8Figure_canChangeLoadedAction(const K8Figure* handle) {
    const K8FigureInfo* info = requireInfo(handle);
    return info ? info->canChangeAction : 0;
}

int32_t K8Figure_canChangeLoadedTextures(const K8Figure* handle) {
    const K8FigureInfo* info = requireInfo(handle);
    return info ? info->canChangeTextures : 0;
}

// The wrapped object when it is a figure mesh, else null.
static FigureMesh* figureMeshOf(const K8Figure* handle) {
    Object3D* object = handle->header.object;
    return object && object->classId == ClassId::FigureMesh ? static_cast<FigureMesh*>(object) : nullptr;
}

bool K8Figure_canChangeAction(const K8Figure* figure, const K8ActionTable* actionTable) {
    if (!isFigure(figure) || !K8Handle_isOf(actionTable, K8_CLASS_ACTION_TABLE) || !figure->header.object ||
        !actionTable->header.object)
        return K8ErrStorage_fail();
    return figureMeshOf(figure) && actionTable->header.object->classId == ClassId::ActTable;
}

int32_t K8Figure_getNumPatterns(const K8Figure* handle) {
    if (!isFigure(handle) || !handle->header.object) {
        K8ErrStorage_fail();
        return 0;
    }
    const FigureMesh* figure = figureMeshOf(handle);
    return figure ? D_Figure_getNumPatterns(figure) : 1;
}

bool K8Figure_setPattern(K8Figure* handle, uint32_t pattern) {
    if (!isFigure(handle) || !handle->header.object) return K8ErrStorage_fail();
    const uint32_t shifted = pattern << 1;
    if (!figureMeshOf(handle)) return shifted == 0 || K8ErrStorage_fail();
    if (!handle->info) return K8ErrStorage_fail();  // the pattern has nowhere to go
    handle->info->pattern = shifted;
    return true;
}

int32_t K8Figure_getNumBones(const K8Figure* handle) {
    const FigureMesh* figure = isFigure(handle) ? figureMeshOf(handle) : nullptr;
    return figure ? int32_t(figure->bones.boneCount) : 0;
}
