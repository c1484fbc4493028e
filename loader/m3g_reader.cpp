#include "loader/m3g_reader.h"

#include "frame/error_status.h"
#include "scene/appearance.h"
#include "scene/fog.h"
#include "scene/material.h"
#include "scene/node.h"
#include "scene/texture2d.h"

// --- Failure ---

bool M3gReader_isIntact(const M3gReader* reader) {
    return reader->context->status == QEL_STATUS_OK && !hasError(reader->stream);
}

static void keepFirst(LoaderContext* context, int32_t status, LoadReason reason) {
    if (context->status != QEL_STATUS_OK) return;
    context->status = status;
    context->reason = uint8_t(reason);
}

void M3gReader_fail(M3gReader* reader, LoadReason reason) { keepFirst(reader->context, kStatusCorruptData, reason); }

void M3gReader_failOutOfMemory(M3gReader* reader) {
    keepFirst(reader->context, QEL_STATUS_OUT_OF_MEMORY, LoadReason::ObjectFailed);
}

void M3gReader_require(M3gReader* reader, Result result) {
    if (result == QEL_STATUS_OK) return;
    // Some results name another cause although memory ran out; the engine status tells.
    if (result == QEL_STATUS_OUT_OF_MEMORY || qelStatus_get() == QEL_STATUS_OUT_OF_MEMORY)
        M3gReader_failOutOfMemory(reader);
    else
        M3gReader_fail(reader, LoadReason::ObjectFailed);
}

Object3D* M3gReader_failCreation(M3gReader* reader, Result result) {
    M3gReader_require(reader, result);
    return nullptr;
}

// --- Counts ---

uint32_t M3gReader_readCount(M3gReader* reader, uint32_t bytesPerElement) {
    const uint32_t count = readUInt32(reader->stream);
    if (count <= LoaderStream_bytesLeft(reader->stream) / bytesPerElement) return count;
    M3gReader_fail(reader, LoadReason::ObjectLength);
    return 0;
}

struct Budget {
    uint64_t floor, perByte;  // what any file may take, and what each of its bytes adds
};

// Sixteen times the file, and for small files as much as the largest blank image takes. Scenes that share their buffers
// and images among dozens of meshes and textures stay far below.
constexpr Budget kMemoryBudget = {16 << 20, 16};
// Hundreds of sprites over one image of 256 x 256, and a few over the largest.
constexpr Budget kTextureBudget = {64 << 20, 16};
// Work takes time but no memory, and scenes that draw one model a thousand times are common. The floor draws the
// largest strips that there are a thousand times.
constexpr Budget kWorkBudget = {64 << 20, 64};

static void spend(M3gReader* reader, const Budget& budget, uint64_t& spent, uint64_t count) {
    const uint64_t limit = budget.floor + budget.perByte * reader->context->segmentBytes;
    if (count > limit - spent)
        M3gReader_fail(reader, LoadReason::ObjectFailed);
    else
        spent += count;
}

void M3gReader_deriveBytes(M3gReader* reader, uint64_t count) {
    spend(reader, kMemoryBudget, reader->context->derivedBytes, count);
}

void M3gReader_deriveTexture(M3gReader* reader, uint64_t texels) {
    constexpr uint64_t kBytesPerTexel = 4;  // the most that a renderer keeps, whatever the image's format
    spend(reader, kTextureBudget, reader->context->textureBytes, texels * kBytesPerTexel);
}

void M3gReader_deriveWork(M3gReader* reader, uint64_t count) {
    spend(reader, kWorkBudget, reader->context->derivedWork, count);
}

void M3gReader_deriveAnimation(M3gReader* reader, const Object3D* animated) {
    constexpr uint64_t kWorkPerTrack = 16;  // a sample takes as long as so many vertices
    if (animated) M3gReader_deriveWork(reader, kWorkPerTrack * uint64_t(animated->animationTrackCount));
}

void M3gReader_deriveAppearanceAnimation(M3gReader* reader, const Appearance* appearance) {
    if (!appearance) return;
    M3gReader_deriveAnimation(reader, appearance->fog);
    M3gReader_deriveAnimation(reader, appearance->material);
    for (const Texture2D* texture : appearance->textures) M3gReader_deriveAnimation(reader, texture);
}

// --- References ---

constexpr uint32_t kFirstNumber = 2;  // of the first object of the table

bool M3gReader_isObject(const M3gReader* reader, uint32_t number) {
    return number >= kFirstNumber && number - kFirstNumber < reader->context->objectCount;
}

Object3D* M3gReader_objectOf(const M3gReader* reader, uint32_t number) {
    return number == 0 ? nullptr : reader->context->objects[number - kFirstNumber];
}

void M3gReader_useObject(M3gReader* reader, uint32_t number) {
    if (number != 0) LoaderContext_clearRootFlag(reader->context, number - kFirstNumber);
}

Object3D* M3gReader_readReference(M3gReader* reader, ClassId classId, bool mayBeNone) {
    const uint32_t number = readUInt32(reader->stream);
    if (number == 0 && mayBeNone) return nullptr;
    if (!M3gReader_isObject(reader, number) || M3gReader_objectOf(reader, number)->classId != classId) {
        M3gReader_fail(reader, LoadReason::InvalidValue);
        return nullptr;
    }
    M3gReader_useObject(reader, number);
    return M3gReader_objectOf(reader, number);
}

Node* M3gReader_readNodeReference(M3gReader* reader) {
    const uint32_t number = readUInt32(reader->stream);
    if (!M3gReader_isObject(reader, number) || !qelObject3D_isNode(M3gReader_objectOf(reader, number))) {
        M3gReader_fail(reader, LoadReason::InvalidValue);
        return nullptr;
    }
    M3gReader_useObject(reader, number);
    return static_cast<Node*>(M3gReader_objectOf(reader, number));
}
