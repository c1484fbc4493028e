#include "frame/primitive_handle.h"

#include "frame/allocator.h"
#include "frame/error_status.h"
#include "frame/handle.h"

constexpr uint32_t kNormalBits = 0x300;
constexpr uint32_t kColorBits = 0xC00;
constexpr uint32_t kTextureBits = 0x3000;
constexpr uint32_t kSpriteBits = kTextureBits | K8_PRIM_ALPHA_TEST | 0x3;  // all that a sprite may have

static bool isPrimitive(const K8Primitive* handle) { return K8Handle_isOf(handle, K8_CLASS_PRIMITIVE); }

K8Primitive* K8Primitive_create(K8Primitive* memory, K8Allocator* allocator) {
    return static_cast<K8Primitive*>(K8Handle_create(memory, allocator, sizeof(K8Primitive), K8_CLASS_PRIMITIVE));
}

void K8Primitive_destroy(K8Primitive* handle) {
    if (!isPrimitive(handle)) return K8Object3D_destroy(reinterpret_cast<K8Handle*>(handle));
    K8Primitive_clearTmpData(handle);
    K8Handle_destroy(&handle->header, sizeof *handle);
}

static bool namesArray(const K8PrimitiveInfo& info, const int32_t* array) {
    for (const int32_t* values : info.values)
        if (values == array) return true;
    return false;
}

// Forgets the texture and releases the arrays, each once. An array that the record to come names again stays.
static void clearRecord(K8Primitive* handle, const K8PrimitiveInfo* next) {
    K8PrimitiveInfo* info = handle->info;
    info->texture = nullptr;
    for (int32_t*& values : info->values) {
        int32_t* array = values;
        values = nullptr;
        if (namesArray(*info, array) || (next && namesArray(*next, array))) continue;
        K8Allocator_free(handle->header.allocator, array);
    }
}

bool K8Primitive_setTmpData(K8Primitive* handle, const K8PrimitiveInfo* info) {
    if (!isPrimitive(handle) || !info) return K8ErrStorage_fail();
    const K8PrimitiveInfo record = *info;  // `info` may be the handle's own
    if (handle->info) clearRecord(handle, &record);
    auto* own = static_cast<K8PrimitiveInfo*>(K8Handle_ensureInfo(&handle->header, handle->info, sizeof record));
    if (!own) return false;
    *own = record;
    handle->info = own;
    return true;
}

void K8Primitive_clearTmpData(K8Primitive* handle) {
    if (!isPrimitive(handle) || !handle->info) return;
    clearRecord(handle, nullptr);
    K8Allocator_free(handle->header.allocator, handle->info);
    handle->info = nullptr;
}

void K8Primitive_clearLoadedInfo(K8Primitive* handle) {
    if (isPrimitive(handle) && handle->info) clearRecord(handle, nullptr);
}

uint32_t K8Primitive_plainType(uint32_t type) { return (type & 0xFFFFFF) == 0 ? type >> 24 : type; }

static int32_t rejectionCode(uint32_t type, uint32_t params) {
    const uint32_t texture = params & kTextureBits;
    const uint32_t color = params & kColorBits;
    switch (type) {
        case K8_PRIM_POINTS:
        case K8_PRIM_LINES:
            if ((params & ~kColorBits) || !color) return 2;
            break;
        case K8_PRIM_TRIANGLES:
        case K8_PRIM_QUADS:
            if (color && texture) return 3;
            if (params == 0x1000) return 4;
            break;
        case K8_PRIM_SPRITES:
            if (params & ~kSpriteBits) return 5;
            if (!texture) return 6;
            break;
        default: return 1;
    }
    if ((params & kNormalBits) == 0x100) return 7;
    if (color == kColorBits) return 8;
    if (type == K8_PRIM_SPRITES) return texture == 0x2000 ? 10 : 0;
    return texture == 0x1000 || texture == 0x2000 ? 9 : 0;
}

int32_t K8Primitive_checkValues(uint32_t type, uint32_t params) {
    const int32_t code = rejectionCode(K8Primitive_plainType(type), params);
    if (code) K8ErrStorage_fail();
    return code;
}

int32_t K8Primitive_getLength(uint32_t type, uint32_t params, int32_t kind) {
    type = K8Primitive_plainType(type);
    if (K8Primitive_checkValues(type, params)) return 0;
    if (kind < 0 || kind >= kPrimitiveArrayCount) {
        K8ErrStorage_fail();
        return 0;
    }
    const int32_t vertices = type == K8_PRIM_SPRITES ? 1 : int32_t(type);
    switch (kind) {
        case K8_PRIM_POSITIONS: return 3 * vertices;
        case K8_PRIM_NORMALS:
            if ((params & kNormalBits) == K8_PRIM_NORMAL_PER_VERTEX) return 3 * vertices;
            return (params & kNormalBits) == K8_PRIM_NORMAL_PER_PRIMITIVE ? 3 : 0;
        case K8_PRIM_COLORS:
            if ((params & kColorBits) == K8_PRIM_COLOR_PER_PRIMITIVE) return 1;
            return (params & kColorBits) == K8_PRIM_COLOR_PER_SET ? -1 : 0;
        case K8_PRIM_TEXTURE_COORDS:
            return type != K8_PRIM_SPRITES && (params & kTextureBits) == K8_PRIM_TEXTURE_PER_VERTEX ? 2 * vertices : 0;
        default:
            if (type != K8_PRIM_SPRITES) return 0;
            return (params & kTextureBits) == K8_PRIM_SPRITE_PER_PRIMITIVE ? 8 : -8;
    }
}

// --- Reading ---

// How long array `kind` is for so many primitives.
static uint64_t lengthOf(const PrimitiveValues& values, int32_t kind, uint32_t count) {
    const int32_t length = K8Primitive_getLength(values.type, values.params, kind);
    return length < 0 ? uint64_t(-length) : uint64_t(length) * count;
}

bool K8Primitive_readValues(const K8PrimitiveInfo& info, PrimitiveValues* out) {
    *out = {K8Primitive_plainType(info.type), info.params, 0, {}};
    if (K8Primitive_checkValues(out->type, out->params)) return false;
    out->count = info.counts[K8_PRIM_POSITIONS] / uint32_t(lengthOf(*out, K8_PRIM_POSITIONS, 1));
    for (int32_t kind = 0; kind < kPrimitiveArrayCount && out->count > 0; ++kind) {
        const uint64_t length = lengthOf(*out, kind, out->count);
        if (length == 0) continue;
        if (length > info.counts[kind] || !info.values[kind]) return false;
        out->arrays[size_t(kind)] = {info.values[kind], size_t(length)};
    }
    return true;
}

PrimitiveValues K8Primitive_partOf(const PrimitiveValues& all, uint32_t first, uint32_t count) {
    PrimitiveValues part = {all.type, all.params, count, {}};
    for (int32_t kind = 0; kind < kPrimitiveArrayCount; ++kind) {
        const auto each = K8Primitive_getLength(all.type, all.params, kind);
        const std::span<const int32_t> array = all.arrays[size_t(kind)];
        part.arrays[size_t(kind)] = each < 0 ? array : array.subspan(size_t(each) * first, size_t(each) * count);
    }
    return part;
}
