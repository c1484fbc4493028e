#include "loader/m3g_objects.h"

#include <array>

#include "frame/allocator.h"
#include "loader/m3g_fields.h"
#include "loader/m3g_object_readers.h"

constexpr uint8_t kHeaderType = 0, kExternalReferenceType = 255;
constexpr uint32_t kObjectHeaderSize = 5;  // type and length
constexpr uint32_t kCheckSumSize = 4;

// By type byte - 1.
constexpr std::array kReaders = {
    M3gReader_readAnimationController,
    M3gReader_readAnimationTrack,
    M3gReader_readAppearance,
    M3gReader_readBackground,
    M3gReader_readCamera,
    M3gReader_readCompositingMode,
    M3gReader_readFog,
    M3gReader_readPolygonMode,
    M3gReader_readGroup,
    M3gReader_readImage2D,
    M3gReader_readTriangleStripArray,
    M3gReader_readLight,
    M3gReader_readMaterial,
    M3gReader_readMesh,
    M3gReader_readMorphingMesh,
    M3gReader_readSkinnedMesh,
    M3gReader_readTexture2D,
    M3gReader_readSprite3D,
    M3gReader_readKeyframeSequence,
    M3gReader_readVertexArray,
    M3gReader_readVertexBuffer,
    M3gReader_readWorld,
};

// Null, with the load failed, when memory runs out.
static char* readString(M3gReader* reader) {
    char* text = reader->stream->functions->readString(reader->stream);
    if (!text) M3gReader_failOutOfMemory(reader);
    return text;
}

static void readHeader(M3gReader* reader) {
    LoaderContext* context = reader->context;
    context->headerType = kHeaderType;
    context->headerLength = reader->length;
    context->versionMajor = readByte(reader->stream);
    context->versionMinor = readByte(reader->stream);
    context->hasExternalReferences = M3gReader_readBoolean(reader);
    context->totalFileSize = readUInt32(reader->stream);
    context->approximateContentSize = readUInt32(reader->stream);
    qelFree(readString(reader));  // who made the file
}

static void readExternalReference(M3gReader* reader) {
    if (char* name = readString(reader)) LoaderContext_appendExternalName(reader->context, name);
}

// What the table is to take, or null: a failure, or something that is no object of the scene.
static Object3D* readObject(M3gReader* reader, uint8_t type) {
    if (type == kHeaderType) {
        readHeader(reader);
    } else if (type == kExternalReferenceType) {
        readExternalReference(reader);
    } else {
        const LoaderContext* context = reader->context;
        const bool isFull = context->objectLimit != 0 && context->objectCount >= context->objectLimit;
        if (type <= kReaders.size() && !isFull) return kReaders[type - 1u](reader);
        M3gReader_fail(reader, LoadReason::None);
    }
    return nullptr;
}

bool M3gObjects_parseSequence(LoaderContext* context, SegmentStream* stream, uint32_t byteCount) {
    int64_t remaining = byteCount;
    while (context->status == QEL_STATUS_OK && remaining > 0) {
        const uint8_t type = readByte(stream);
        M3gReader reader{stream, context, readUInt32(stream)};
        Object3D* object = readObject(&reader, type);
        // The next object is looked for where this one ended, whatever length it said it had: only the sum counts.
        remaining -= kObjectHeaderSize + int64_t(reader.length);
        if (remaining < 0 || hasError(stream)) M3gReader_fail(&reader, LoadReason::ObjectLength);
        if (!object) continue;
        if (context->status != QEL_STATUS_OK || !LoaderContext_append(context, object)) qelObject3D_unref(object);
    }
    return context->status == QEL_STATUS_OK;
}

bool M3gObjects_parseSegment(LoaderContext* context, const uint8_t* bytes, uint32_t length) {
    if (context->status != QEL_STATUS_OK) return false;
    if (length < kCheckSumSize) {
        context->status = kStatusCorruptData;
        context->reason = uint8_t(LoadReason::ObjectLength);
        return false;
    }
    const uint32_t byteCount = length - kCheckSumSize;
    context->segmentBytes += byteCount;
    SegmentStream stream;
    SegmentStream_init(&stream, bytes, byteCount);
    return M3gObjects_parseSequence(context, &stream, byteCount);
}
