// Vertex arrays, vertex buffers and triangle strips.
#include <array>
#include <span>

#include "loader/m3g_fields.h"
#include "loader/m3g_object_readers.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

// --- Vertex arrays ---

enum class ValueEncoding : uint8_t { Plain = 0, Deltas = 1 };

// A value of either component size is stored as its bits: sums wrap around at that size.
template <typename T>
static void readValues(SegmentStream* stream, VertexArray* array, ValueEncoding encoding) {
    const auto perVertex = uint32_t(array->componentCount);
    const std::span values(static_cast<T*>(array->data), size_t(array->vertexCount) * perVertex);
    for (T& value : values) value = sizeof(T) == 1 ? T(readByte(stream)) : T(readUInt16(stream));
    if (encoding == ValueEncoding::Plain) return;
    for (size_t i = perVertex; i < values.size(); ++i) values[i] = T(values[i] + values[i - perVertex]);
}

Object3D* M3gReader_readVertexArray(M3gReader* reader) {
    const M3gObjectFields fields = M3gFields_readObject(reader);
    const uint8_t componentSize = readByte(reader->stream), componentCount = readByte(reader->stream);
    const uint8_t encoding = readByte(reader->stream);
    const uint16_t vertexCount = readUInt16(reader->stream);
    if (encoding > uint8_t(ValueEncoding::Deltas)) M3gReader_fail(reader, LoadReason::InvalidValue);
    if (uint32_t(vertexCount) * componentCount * componentSize > LoaderStream_bytesLeft(reader->stream))
        M3gReader_fail(reader, LoadReason::ObjectLength);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Result result;
    VertexArray* array = qelVertexArray_create(vertexCount, componentCount, componentSize, &result);
    if (!array) return M3gReader_failCreation(reader, result);
    if (componentSize == 1)
        readValues<uint8_t>(reader->stream, array, ValueEncoding(encoding));
    else
        readValues<uint16_t>(reader->stream, array, ValueEncoding(encoding));
    return M3gFields_complete(reader, fields, array);
}

// --- Vertex buffers ---

// An array with the scale and bias that turn its integers into coordinates.
struct ScaledArray {
    VertexArray* array;
    std::array<float, 3> bias;
    float scale;
};

static VertexArray* readArray(M3gReader* reader) {
    return M3gReader_readOptional<VertexArray>(reader, ClassId::VertexArray);
}

static ScaledArray readScaledArray(M3gReader* reader) {
    ScaledArray scaled;
    scaled.array = readArray(reader);
    M3gReader_readFloats(reader, scaled.bias);
    scaled.scale = M3gReader_readFloat(reader);
    return scaled;
}

// Every buffer normalises the array once more, which takes time for all of it.
static void setNormals(M3gReader* reader, VertexBuffer* buffer, VertexArray* normals) {
    if (!normals) return;
    M3gReader_deriveBytes(reader, qelVertexArray_byteCount(normals));
    if (M3gReader_isIntact(reader)) M3gReader_require(reader, qelVertexBuffer_setNormals(buffer, normals));
}

// Texture units beyond those of the engine may be there, but empty.
static void readTexCoords(M3gReader* reader, VertexBuffer* buffer) {
    constexpr uint32_t kScaledArraySize = 20;
    const uint32_t count = M3gReader_readCount(reader, kScaledArraySize);
    for (uint32_t unit = 0; unit < count; ++unit) {
        const ScaledArray coords = readScaledArray(reader);
        if (!coords.array) continue;
        M3gReader_require(reader, qelVertexBuffer_setTexCoords(buffer, int32_t(unit), coords.array, coords.scale,
                                                               coords.bias.data()));
    }
}

Object3D* M3gReader_readVertexBuffer(M3gReader* reader) {
    const M3gObjectFields fields = M3gFields_readObject(reader);
    const uint32_t defaultColor = M3gReader_readRgba(reader);
    const ScaledArray positions = readScaledArray(reader);
    VertexArray* normals = readArray(reader);
    VertexArray* colors = readArray(reader);
    if (!M3gReader_isIntact(reader)) return nullptr;
    VertexBuffer* buffer = qelVertexBuffer_create();
    if (!buffer) return M3gReader_failCreation(reader);
    qelVertexBuffer_setDefaultColor(buffer, defaultColor);
    M3gReader_require(reader,
                      qelVertexBuffer_setPositions(buffer, positions.array, positions.scale, positions.bias.data()));
    setNormals(reader, buffer, normals);
    M3gReader_require(reader, qelVertexBuffer_setColors(buffer, colors));
    readTexCoords(reader, buffer);
    return M3gFields_complete(reader, fields, buffer);
}

// --- Triangle strips ---

// Bit 7 of the encoding: the strips have indices rather than taking one vertex after the other.
constexpr uint8_t kHasIndices = 0x80;
// By the other bits: bytes of the start or of an index.
constexpr std::array<uint8_t, 3> kIndexSizes = {4, 1, 2};

static int32_t readNumber(SegmentStream* stream, uint8_t size) {
    switch (size) {
        case 1: return readByte(stream);
        case 2: return readUInt16(stream);
        default: return readInt32(stream);
    }
}

static void readNumbers(M3gReader* reader, Scratch<int32_t>& out, uint8_t size) {
    if (!out.data) return M3gReader_failOutOfMemory(reader);
    for (int32_t& index : out.span()) index = readNumber(reader->stream, size);
}

Object3D* M3gReader_readTriangleStripArray(M3gReader* reader) {
    const M3gObjectFields fields = M3gFields_readObject(reader);
    const uint8_t encoding = readByte(reader->stream);
    const uint8_t form = encoding & uint8_t(~kHasIndices);
    if (form >= kIndexSizes.size()) {
        M3gReader_fail(reader, LoadReason::InvalidValue);
        return nullptr;
    }
    const bool hasIndices = encoding & kHasIndices;
    const int32_t start = hasIndices ? 0 : readNumber(reader->stream, kIndexSizes[form]);
    Scratch<int32_t> indices(hasIndices ? M3gReader_readCount(reader, kIndexSizes[form]) : 0);
    readNumbers(reader, indices, kIndexSizes[form]);
    Scratch<int32_t> lengths(M3gReader_readCount(reader, sizeof(uint32_t)));
    readNumbers(reader, lengths, sizeof(uint32_t));
    for (const int32_t length : lengths.span())
        if (hasIndices && uint32_t(length) > indices.count) M3gReader_fail(reader, LoadReason::InvalidValue);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Result result;
    TriangleStripArray* strips =
        hasIndices ? qelTriangleStripArray_createExplicit(lengths.data, int32_t(lengths.count), indices.data,
                                                          int32_t(indices.count), true, &result)
                   : qelTriangleStripArray_createImplicit(start, lengths.data, int32_t(lengths.count), true, &result);
    if (!strips) return M3gReader_failCreation(reader, result);
    return M3gFields_complete(reader, fields, strips);
}
