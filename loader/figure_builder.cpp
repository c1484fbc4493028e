#include "loader/figure_builder.h"

#include <algorithm>
#include <numeric>
#include <span>

#include "animation/figure_blend.h"
#include "frame/allocator.h"
#include "loader/figure_appearance.h"
#include "loader/mb_decoder.h"
#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

// Every pattern, attribute class and texture that has polygons makes a submesh of its own, of some 200 bytes. So that
// the polygons of a small file cannot scatter over the 53856 there could be, they must come with as many bytes of file
// each, beyond a number that no figure should want to draw.
constexpr uint32_t kUnpaidSubmeshes = 1024;
constexpr uint32_t kBytesPerSubmesh = 8;

// --- Vertices ---

// An array over a block of the model, which is the array's from then on. Null when memory runs out.
template <typename T>
static VertexArray* adopt(T*& block, uint32_t vertexCount, int32_t componentCount) {
    Result result;
    VertexArray* array = qelVertexArray_createAdopting(int32_t(vertexCount), componentCount, sizeof(T), block, &result);
    if (array) block = nullptr;
    return array;
}

static bool addPositions(VertexBuffer* buffer, FigureModelData* model) {
    VertexArray* positions = adopt(model->positions, model->expandedCount, 3);
    if (!positions) return false;
    const Result result = qelVertexBuffer_setPositions(buffer, positions, 1, nullptr);
    qelObject3D_unref(positions);
    return result == QEL_STATUS_OK;
}

static bool addTexCoords(VertexBuffer* buffer, FigureModelData* model) {
    if (!model->texCoords) return true;
    VertexArray* texCoords = adopt(model->texCoords, model->expandedCount, 2);
    if (!texCoords) return false;
    const Result result = qelVertexBuffer_setTexCoords(buffer, 0, texCoords, 1, nullptr);
    qelObject3D_unref(texCoords);
    return result == QEL_STATUS_OK;
}

static bool addNormals(VertexBuffer* buffer, FigureModelData* model) {
    if (!model->normals) return true;
    VertexArray* normals = adopt(model->normals, model->expandedCount, 3);
    if (!normals) return false;
    const Result result = qelVertexBuffer_setNormalsAsIs(buffer, normals);
    qelObject3D_unref(normals);
    return result == QEL_STATUS_OK;
}

static bool addColors(FigureMesh* figure, FigureModelData* model) {
    if (!model->colors) return true;
    VertexArray* colors = adopt(model->colors, model->expandedCount, 4);
    if (!colors) return false;
    const Result result = qelVertexBuffer_setColors(figure->vertexBuffer, colors);
    figure->opaqueColors = static_cast<VertexArray*>(qelVertexArray_duplicate(colors));
    qelObject3D_unref(colors);
    if (result != QEL_STATUS_OK || !figure->opaqueColors) return false;
    const std::span bytes(static_cast<uint8_t*>(figure->opaqueColors->data), model->expandedCount * 4);
    for (size_t alpha = 3; alpha < bytes.size(); alpha += 4) bytes[alpha] = 255;
    return true;
}

// A model without polygons has no vertices left: its buffer stays without arrays.
static bool makeVertexBuffer(FigureMesh* figure, FigureModelData* model) {
    figure->vertexBuffer = qelVertexBuffer_create();
    if (!figure->vertexBuffer) return false;
    if (model->expandedCount == 0) return true;
    return addPositions(figure->vertexBuffer, model) && addTexCoords(figure->vertexBuffer, model) &&
           addColors(figure, model) && addNormals(figure->vertexBuffer, model);
}

// --- Appearances ---

static bool blends(const Appearance* appearance) {
    const CompositingMode* mode = appearance->compositingMode;
    return mode && mode->blending != Blending::Replace;
}

static bool addAppearance(FigureMesh* figure, uint32_t index, uint16_t key, bool forColors) {
    Appearance* appearance = qelFigureAppearance_create(key, forColors);
    if (!appearance) return false;
    figure->appearanceTable[index] = appearance;
    if (blends(appearance)) figure->blendFlags |= 1;
    return true;
}

static uint32_t appearanceIndexOf(const FigureMesh* figure, uint32_t attributeClass, uint32_t texture) {
    const uint32_t colorCount = figure->hasColors ? figure->classCount : 0;
    return colorCount + attributeClass * figure->textureSlotCount + texture;
}

static bool makeAppearances(FigureMesh* figure, const FigureModelData* model) {
    figure->textureSlotCount = model->textureCount;
    figure->hasColors = model->colorCount > 0;
    figure->classCount = model->classCount;
    const uint32_t count = (figure->textureSlotCount + figure->hasColors) * figure->classCount;
    figure->appearanceTable = qelAllocArrayOf<Appearance*>(count);
    if (!figure->appearanceTable) return false;
    figure->appearanceCount = count;
    for (uint32_t a = 0; a < figure->classCount; ++a) {
        const uint16_t key = model->classKeys[a];
        if (figure->hasColors && !addAppearance(figure, a, key, true)) return false;
        for (uint32_t t = 0; t < figure->textureSlotCount; ++t)
            if (!addAppearance(figure, appearanceIndexOf(figure, a, t), key, false)) return false;
    }
    return true;
}

// --- Submeshes ---

// One shape of polygons, triangles or quads. The polygons of one pattern are sorted into buckets, one per submesh it
// could have: for each attribute class one per texture, then one for colour polygons.
template <typename Record>
struct PolygonSorter {
    PolygonSorter(const FigureModelData* source, const Record* polygons, uint32_t colorCount, uint32_t texturedCount,
                  const uint32_t* colorRanges, const uint32_t* texturedRanges)
        : model(source),
          records(polygons),
          coloredCount(colorCount),
          colorStarts(colorRanges),
          texturedStarts(texturedRanges),
          bucketsPerClass(source->textureCount + 1),
          starts(source->classCount * bucketsPerClass + 1),
          order(colorCount + texturedCount) {}

    const FigureModelData* model;
    const Record* records;
    uint32_t coloredCount;  // textured records come behind these
    const uint32_t *colorStarts, *texturedStarts;
    uint32_t bucketsPerClass;
    Scratch<uint32_t> starts;  // of each bucket in `order`, and the end
    Scratch<uint32_t> order;   // record numbers, bucket by bucket, in file order within each

    std::span<const uint32_t> bucket(uint32_t index) const {
        return order.span().subspan(starts.data[index], starts.data[index + 1] - starts.data[index]);
    }
};

// Calls visit(record number, bucket) for the polygons of a pattern.
template <typename Record, typename Visit>
static void visitPattern(const PolygonSorter<Record>& sorter, uint32_t pattern, Visit visit) {
    const uint32_t textureCount = sorter.model->textureCount;
    const auto visitRange = [&](uint32_t first, uint32_t end, uint32_t bucketOfClass) {
        for (uint32_t i = first; i < end; ++i)
            visit(i, sorter.records[i].attributeClass * sorter.bucketsPerClass + bucketOfClass);
    };
    for (uint32_t t = 0; t < textureCount; ++t) {
        const uint32_t* range = sorter.texturedStarts + pattern * textureCount + t;
        visitRange(sorter.coloredCount + range[0], sorter.coloredCount + range[1], t);
    }
    visitRange(sorter.colorStarts[pattern], sorter.colorStarts[pattern + 1], textureCount);
}

template <typename Record>
static void sortPattern(PolygonSorter<Record>& sorter, uint32_t pattern) {
    const std::span<uint32_t> starts = sorter.starts.span();
    std::ranges::fill(starts, 0u);
    visitPattern(sorter, pattern, [&](uint32_t, uint32_t bucket) { ++starts[bucket]; });
    std::exclusive_scan(starts.begin(), starts.end(), starts.begin(), 0u);
    visitPattern(sorter, pattern, [&](uint32_t i, uint32_t bucket) { sorter.order.data[starts[bucket]++] = i; });
    // Every start has moved to the end of its bucket, where the next one begins.
    std::shift_right(starts.begin(), starts.end(), 1);
    starts[0] = 0;
}

struct SubmeshBuilder {
    explicit SubmeshBuilder(const FigureModelData* model)
        : triangles(model, model->triangles, model->colorTriangleCount, model->texturedTriangleCount,
                    model->colorTriangleStarts, model->texturedTriangleStarts),
          quads(model, model->quads, model->colorQuadCount, model->texturedQuadCount, model->colorQuadStarts,
                model->texturedQuadStarts) {}

    PolygonSorter<TriangleRecord> triangles;
    PolygonSorter<QuadRecord> quads;

    uint32_t bucketCount() const { return triangles.starts.count - 1; }
    uint32_t stripCount(uint32_t bucket) const {
        return uint32_t(triangles.bucket(bucket).size() + quads.bucket(bucket).size());
    }
    bool hasMemory() const {
        return triangles.starts.data && triangles.order.data && quads.starts.data && quads.order.data;
    }
};

static void sortPattern(SubmeshBuilder& builder, uint32_t pattern) {
    sortPattern(builder.triangles, pattern);
    sortPattern(builder.quads, pattern);
}

// What the submeshes need in total and the largest one needs.
struct SubmeshSizes {
    uint32_t submeshCount = 0, maxStripCount = 0;
};

static SubmeshSizes measureSubmeshes(SubmeshBuilder& builder, uint32_t patternCount) {
    SubmeshSizes sizes;
    for (uint32_t pattern = 0; pattern < patternCount; ++pattern) {
        sortPattern(builder, pattern);
        for (uint32_t bucket = 0; bucket < builder.bucketCount(); ++bucket) {
            const uint32_t stripCount = builder.stripCount(bucket);
            if (stripCount > 0) ++sizes.submeshCount;
            sizes.maxStripCount = std::max(sizes.maxStripCount, stripCount);
        }
    }
    return sizes;
}

template <typename Record>
static void appendStrips(const PolygonSorter<Record>& sorter, uint32_t bucket, int32_t*& lengths, int32_t*& indices) {
    for (const uint32_t i : sorter.bucket(bucket)) {
        const Record& record = sorter.records[i];
        *lengths++ = int32_t(std::size(record.vertices));
        indices = std::copy(std::begin(record.vertices), std::end(record.vertices), indices);
    }
}

static TriangleStripArray* makeIndexBuffer(const SubmeshBuilder& builder, uint32_t bucket,
                                           const Scratch<int32_t>& lengths, const Scratch<int32_t>& indices) {
    int32_t* lengthEnd = lengths.data;
    int32_t* indexEnd = indices.data;
    appendStrips(builder.triangles, bucket, lengthEnd, indexEnd);
    appendStrips(builder.quads, bucket, lengthEnd, indexEnd);
    Result result;
    return qelTriangleStripArray_createExplicit(lengths.data, int32_t(lengthEnd - lengths.data), indices.data,
                                                int32_t(indexEnd - indices.data), true, &result);
}

static void fillSlot(FigureMesh* figure, uint32_t slot, uint32_t bucket) {
    const uint32_t bucketsPerClass = figure->textureSlotCount + 1;
    const uint32_t attributeClass = bucket / bucketsPerClass, texture = bucket % bucketsPerClass;
    const bool colored = texture == figure->textureSlotCount;
    const uint32_t index = colored ? attributeClass : appearanceIndexOf(figure, attributeClass, texture);
    Appearance* appearance = figure->appearanceTable[index];
    figure->patternTable[figure->patternCount + slot] = index;
    figure->appearances[slot] = appearance;
    figure->slotFlags[slot] = (blends(appearance) ? kSlotBlended : 0) | (colored ? kSlotColored : kSlotTextured);
}

static bool addSubmeshes(FigureMesh* figure, SubmeshBuilder& builder, uint32_t maxStripCount) {
    const Scratch<int32_t> lengths(maxStripCount), indices(maxStripCount * 4);
    if (!lengths.data || !indices.data) return false;
    uint32_t slot = 0;
    for (uint32_t pattern = 0; pattern < figure->patternCount; ++pattern) {
        sortPattern(builder, pattern);
        const uint32_t firstSlot = slot;
        for (uint32_t bucket = 0; bucket < builder.bucketCount(); ++bucket) {
            if (builder.stripCount(bucket) == 0) continue;
            figure->indexBuffers[slot] = makeIndexBuffer(builder, bucket, lengths, indices);
            if (!figure->indexBuffers[slot]) return false;
            fillSlot(figure, slot++, bucket);
        }
        figure->patternTable[pattern] = slot - firstSlot;
    }
    return true;
}

static bool makeSubmeshes(FigureMesh* figure, const FigureModelData* model) {
    SubmeshBuilder builder(model);
    if (!builder.hasMemory()) return false;
    const SubmeshSizes sizes = measureSubmeshes(builder, model->patternCount);
    if (sizes.submeshCount > kUnpaidSubmeshes + model->byteCount / kBytesPerSubmesh) return false;
    figure->patternCount = model->patternCount;
    figure->patternTable = qelAllocArrayOf<uint32_t>(model->patternCount + sizes.submeshCount);
    figure->slotFlags = figure->patternTable ? qelAllocArrayOf<uint32_t>(sizes.submeshCount) : nullptr;
    return figure->slotFlags && qelMesh_allocSubmeshes(figure, int32_t(sizes.submeshCount)) &&
           addSubmeshes(figure, builder, sizes.maxStripCount);
}

// --- Build and load ---

static bool takeBones(FigureMesh* figure, FigureModelData* model) {
    figure->polygonCount = model->colorTriangleCount + model->texturedTriangleCount +
                           2 * (model->colorQuadCount + model->texturedQuadCount);
    figure->bones = model->bones;
    model->bones = {};
    return D_Figure_buildVertexBones(figure);
}

bool D_Figure_build(FigureMesh* figure, FigureModelData* model) {
    return makeVertexBuffer(figure, model) && makeAppearances(figure, model) && makeSubmeshes(figure, model) &&
           takeBones(figure, model) && qelSkinnedMesh_prepareSkinnedBuffer(figure) == QEL_STATUS_OK;
}

bool D_Figure_load(FigureMesh* figure, LoaderStream* stream, bool magicConsumed) {
    if (figure->refCount > 1) return false;
    FigureModelData model;
    if (!D_FigureModel_decode(stream, &model, magicConsumed)) return false;
    const bool built = D_Figure_build(figure, &model);
    D_FigureModel_release(&model);
    if (!built) {
        qelFigureMesh_finalise(figure);
        return false;
    }
    D_Figure_setPattern(figure, 0);
    _Figure_blendVertices(figure);
    return true;
}
