#include "query/collision_part.h"

#include <algorithm>
#include <bit>

#include "frame/wrap.h"

constexpr int32_t kCoordinateBits = 10;

void CollisionPart_setBounds(CollisionPart* part, const int32_t least[3], const int32_t greatest[3]) {
    uint32_t largest = 0;
    for (int i = 0; i < 3; ++i) largest = std::max({largest, magnitude(least[i]), magnitude(greatest[i])});
    part->shift = uint8_t(std::bit_width(largest >> kCoordinateBits));
    for (int i = 0; i < 3; ++i) {
        part->least[i] = least[i] >> part->shift;
        part->greatest[i] = greatest[i] >> part->shift;
    }
}

// --- Vertices ---

template <typename T>
static void readVertex(const T* from, int32_t shift, int16_t out[3]) {
    for (int i = 0; i < 3; ++i) out[i] = int16_t(from[i] >> shift);
}

template <typename T>
static void readMesh(const CollisionPart& part, uint32_t first, uint32_t count, int16_t (*out)[3]) {
    const T* coordinates = static_cast<const T*>(part.coordinates);
    if (part.shape == PartShape::IndexCorners) {
        for (uint32_t i = 0; i < count; ++i)
            readVertex(coordinates + 3 * size_t(part.indices[first + i] - part.firstIndex), part.shift, out[i]);
    } else {
        for (uint32_t i = 0; i < count; ++i) readVertex(coordinates + 3 * size_t(first + i), part.shift, out[i]);
    }
}

// Every line has its middle as a third vertex. The sum of two words needs a bit more than a word has.
static void readLines(const CollisionPart& part, uint32_t first, uint32_t count, int16_t (*out)[3]) {
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t line = (first + i) / 3, corner = (first + i) % 3;
        const int32_t* begin = static_cast<const int32_t*>(part.coordinates) + 6 * size_t(line);
        const int32_t* end = begin + 3;
        if (corner == 1) {
            for (int axis = 0; axis < 3; ++axis)
                out[i][axis] = int16_t((int64_t(begin[axis]) + end[axis]) >> (part.shift + 1));
        } else {
            readVertex(corner == 0 ? begin : end, part.shift, out[i]);
        }
    }
}

void CollisionPart_readVertices(const CollisionPart& part, uint32_t first, uint32_t count, int16_t (*out)[3]) {
    if (part.shape == PartShape::Lines)
        readLines(part, first, count, out);
    else if (part.componentSize == 1)
        readMesh<int8_t>(part, first, count, out);
    else if (part.componentSize == 2)
        readMesh<int16_t>(part, first, count, out);
    else
        readMesh<int32_t>(part, first, count, out);
}

// --- Corners ---

static void setCorners(uint32_t out[3], uint32_t a, uint32_t b, uint32_t c) {
    out[0] = a;
    out[1] = b;
    out[2] = c;
}

// Every other triangle of a strip swaps its first two corners, as in an index list made of it.
static void readStrips(const CollisionPart& part, uint32_t vertex, uint32_t (*out)[3]) {
    const uint32_t(*end)[3] = out + part.triangleCount;
    for (const int32_t* length = part.stripLengths; out < end; vertex += uint32_t(*length++))
        for (uint32_t k = 0; k < uint32_t(*length) - 2; ++k)
            setCorners(*out++, vertex + k + (k & 1), vertex + k + 1 - (k & 1), vertex + k + 2);
}

static void readQuads(const CollisionPart& part, uint32_t vertex, uint32_t (*out)[3]) {
    for (uint32_t i = 0; i < part.triangleCount; i += 2, vertex += 4) {
        setCorners(out[i], vertex, vertex + 1, vertex + 2);
        setCorners(out[i + 1], vertex, vertex + 2, vertex + 3);
    }
}

void CollisionPart_readCorners(const CollisionPart& part, uint32_t firstVertex, uint32_t (*out)[3]) {
    switch (part.shape) {
        case PartShape::IndexRange: {
            const uint16_t* index = part.indices;
            const uint32_t base = firstVertex - part.firstIndex;  // may wrap around, and back with the index
            for (uint32_t i = 0; i < part.triangleCount; ++i, index += 3)
                setCorners(out[i], base + index[0], base + index[1], base + index[2]);
            break;
        }
        case PartShape::Strips: readStrips(part, firstVertex, out); break;
        case PartShape::Quads: readQuads(part, firstVertex, out); break;
        case PartShape::IndexCorners:
        case PartShape::Triangles:
        case PartShape::Lines:
            for (uint32_t i = 0; i < part.triangleCount; ++i, firstVertex += 3)
                setCorners(out[i], firstVertex, firstVertex + 1, firstVertex + 2);
            break;
    }
}
