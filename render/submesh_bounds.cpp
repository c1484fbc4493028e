#include "render/submesh_bounds.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "scene/vertex_array.h"

template <typename T>
static void extend(SubmeshBounds* bounds, const T* p) {
    for (int i = 0; i < 3; ++i) {
        if (p[i] < bounds->least[i]) bounds->least[i] = p[i];
        if (p[i] > bounds->greatest[i]) bounds->greatest[i] = p[i];
    }
}

template <typename T>
static void takeBox(SubmeshBounds* bounds, const T* positions, const TriangleStripArray* strips) {
    // An index list's box starts from the first vertex of the array, an implicit range from its own.
    const T* first = strips->indices ? positions : positions + 3 * strips->firstIndex;
    std::copy_n(first, 3, bounds->least);
    std::copy_n(first, 3, bounds->greatest);
    if (strips->indices) {
        for (const uint16_t index : std::span(strips->indices, size_t(strips->indexCount)))
            extend(bounds, positions + 3 * index);
    } else {
        for (int32_t index = strips->firstIndex; index < strips->indexLimit; ++index)
            extend(bounds, positions + 3 * index);
    }
}

bool qelSubmeshBounds_indicesFit(const VertexBuffer* buffer, const TriangleStripArray* strips) {
    if (!buffer->positions) return false;
    const int32_t vertexCount = buffer->positions->vertexCount;
    return strips->indices ? strips->indexLimit < vertexCount : strips->indexLimit <= vertexCount;
}

void qelSubmeshBounds_compute(const VertexBuffer* buffer, const TriangleStripArray* strips, const qelTransform* world,
                              SubmeshBounds* bounds) {
    const VertexArray* positions = buffer->positions;
    if (bounds->boxContents != positions->contents) {
        if (positions->componentSize == 1)
            takeBox(bounds, static_cast<const int8_t*>(positions->data), strips);
        else
            takeBox(bounds, static_cast<const int16_t*>(positions->data), strips);
        bounds->boxContents = positions->contents;
    }
    float least[3], greatest[3];
    for (int i = 0; i < 3; ++i) {
        least[i] = float(bounds->least[i]) * buffer->positionScale + buffer->positionBias[i];
        greatest[i] = float(bounds->greatest[i]) * buffer->positionScale + buffer->positionBias[i];
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
