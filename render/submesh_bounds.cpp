#include "render/submesh_bounds.h"

#include <cmath>
#include <span>

#include "scene/vertex_array.h"

// A box in the integers of a vertex array.
struct IntegerBox {
    int32_t least[3], greatest[3];
};

template <typename T>
static void extend(IntegerBox* box, const T* p) {
    for (int i = 0; i < 3; ++i) {
        if (p[i] < box->least[i]) box->least[i] = p[i];
        if (p[i] > box->greatest[i]) box->greatest[i] = p[i];
    }
}

template <typename T>
static IntegerBox boxOf(const T* positions, const TriangleStripArray* strips) {
    // An index list's box starts from the first vertex of the array, an implicit range from its own.
    const T* first = strips->indices ? positions : positions + 3 * strips->firstIndex;
    IntegerBox box = {{first[0], first[1], first[2]}, {first[0], first[1], first[2]}};
    if (strips->indices) {
        for (const uint16_t index : std::span(strips->indices, size_t(strips->indexCount)))
            extend(&box, positions + 3 * index);
    } else {
        for (int32_t index = strips->firstIndex; index < strips->indexLimit; ++index)
            extend(&box, positions + 3 * index);
    }
    return box;
}

bool qelSubmeshBounds_indicesFit(const VertexBuffer* buffer, const TriangleStripArray* strips) {
    if (!buffer->positions) return false;
    const int32_t vertexCount = buffer->positions->vertexCount;
    return strips->indices ? strips->indexLimit < vertexCount : strips->indexLimit <= vertexCount;
}

void qelSubmeshBounds_compute(const VertexBuffer* buffer, const TriangleStripArray* strips, const qelTransform* world,
                              SubmeshBounds* bounds) {
    const VertexArray* positions = buffer->positions;
    const IntegerBox box = positions->componentSize == 1 ? boxOf(static_cast<const int8_t*>(positions->data), strips)
                                                         : boxOf(static_cast<const int16_t*>(positions->data), strips);
    float least[3], greatest[3];
    for (int i = 0; i < 3; ++i) {
        least[i] = float(box.least[i]) * buffer->positionScale + buffer->positionBias[i];
        greatest[i] = float(box.greatest[i]) * buffer->positionScale + buffer->positionBias[i];
    }
    qelTransform_affineTransform(world, least, least);
    qelTransform_affineTransform(world, greatest, greatest);
    float squared = 0.0f;
    for (int i = 0; i < 3; ++i) {
        bounds->center[i] = (least[i] + greatest[i]) / 2;
        squared += (greatest[i] - least[i]) * (greatest[i] - least[i]);
    }
    bounds->radius = std::sqrt(squared) / 2;
}
