// Meshes. What they make of buffers and strips is accounted for when a mesh is read: meshes may share both, but each
// has deformed vertices of its own, and draws its strips itself.
#include <span>

#include "loader/m3g_fields.h"
#include "loader/m3g_object_readers.h"
#include "scene/appearance.h"
#include "scene/morphing_mesh.h"
#include "scene/skinned_mesh.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

struct SubmeshLists {
    explicit SubmeshLists(uint32_t count) : strips(count), appearances(count) {}
    bool hasMemory() const { return strips.data && appearances.data; }

    Scratch<TriangleStripArray*> strips;
    Scratch<Appearance*> appearances;
};

constexpr uint32_t kSubmeshSize = 8;

static uint64_t drawnVertexCountOf(const TriangleStripArray* strips) {
    return uint64_t(strips->indices ? strips->indexCount : strips->indexLimit - strips->firstIndex);
}

// First uses count as well: a strip of consecutive vertices takes four bytes, however long it is.
static void accountForDrawing(M3gReader* reader, const TriangleStripArray* strips) {
    if (strips) M3gReader_deriveWork(reader, drawnVertexCountOf(strips));
}

static VertexBuffer* readVertices(M3gReader* reader) {
    auto* vertices = M3gReader_readRequired<VertexBuffer>(reader, ClassId::VertexBuffer);
    M3gReader_deriveAnimation(reader, vertices);
    return vertices;
}

static void readSubmeshes(M3gReader* reader, SubmeshLists& lists) {
    if (!lists.hasMemory()) return M3gReader_failOutOfMemory(reader);
    for (uint32_t i = 0; i < lists.strips.count && M3gReader_isIntact(reader); ++i) {
        lists.strips.data[i] = M3gReader_readRequired<TriangleStripArray>(reader, ClassId::TriangleStripArray);
        lists.appearances.data[i] = M3gReader_readOptional<Appearance>(reader, ClassId::Appearance);
        accountForDrawing(reader, lists.strips.data[i]);
        M3gReader_deriveAppearanceAnimation(reader, lists.appearances.data[i]);
    }
}

Object3D* M3gReader_readMesh(M3gReader* reader) {
    const M3gNodeFields fields = M3gFields_readNode(reader);
    VertexBuffer* vertices = readVertices(reader);
    SubmeshLists submeshes(M3gReader_readCount(reader, kSubmeshSize));
    readSubmeshes(reader, submeshes);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Result result;
    Mesh* mesh = qelMesh_create(vertices, submeshes.strips.data, submeshes.appearances.data,
                                int32_t(submeshes.strips.count), &result);
    if (!mesh) return M3gReader_failCreation(reader, result);
    return M3gFields_complete(reader, fields, mesh);
}

// --- Morphing ---

struct TargetLists {
    explicit TargetLists(uint32_t count) : buffers(count), weights(count) {}
    bool hasMemory() const { return buffers.data && weights.data; }

    Scratch<VertexBuffer*> buffers;
    Scratch<float> weights;
};

constexpr uint32_t kTargetSize = 8;

static void readTargets(M3gReader* reader, TargetLists& lists) {
    if (!lists.hasMemory()) return M3gReader_failOutOfMemory(reader);
    for (uint32_t i = 0; i < lists.buffers.count; ++i) {
        lists.buffers.data[i] = M3gReader_readRequired<VertexBuffer>(reader, ClassId::VertexBuffer);
        lists.weights.data[i] = M3gReader_readFloat(reader);
    }
}

static uint64_t byteCountOf(const VertexArray* array) { return array ? qelVertexArray_byteCount(array) : 0; }

// Drawing gives the second texture unit the coordinates of the first where it has none.
static uint64_t byteCountOf(const VertexBuffer* buffer) {
    const VertexArray *first = buffer->texCoords[0], *second = buffer->texCoords[1];
    return byteCountOf(buffer->positions) + byteCountOf(buffer->normals) + byteCountOf(buffer->colors) +
           byteCountOf(first) + byteCountOf(second ? second : first);
}

// One buffer as large as the base one, into which every target goes, be it the same one again and again. Each of the
// mesh's tracks may be one of weights, with a value for every target.
static void accountForMorphing(M3gReader* reader, const VertexBuffer* base, uint32_t targetCount, uint32_t trackCount) {
    const uint64_t byteCount = byteCountOf(base);
    M3gReader_deriveBytes(reader, byteCount);
    M3gReader_deriveWork(reader, (byteCount + trackCount) * targetCount);
}

Object3D* M3gReader_readMorphingMesh(M3gReader* reader) {
    const M3gNodeFields fields = M3gFields_readNode(reader);
    VertexBuffer* vertices = readVertices(reader);
    SubmeshLists submeshes(M3gReader_readCount(reader, kSubmeshSize));
    readSubmeshes(reader, submeshes);
    TargetLists targets(M3gReader_readCount(reader, kTargetSize));
    readTargets(reader, targets);
    if (!M3gReader_isIntact(reader)) return nullptr;
    accountForMorphing(reader, vertices, targets.buffers.count, fields.trackCount);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Result result;
    MorphingMesh* mesh =
        qelMorphingMesh_create(vertices, targets.buffers.data, submeshes.strips.data, submeshes.appearances.data,
                               int32_t(submeshes.strips.count), int32_t(targets.buffers.count), &result);
    if (!mesh) return M3gReader_failCreation(reader, result);
    qelMorphingMesh_setWeights(mesh, targets.weights.data);
    return M3gFields_complete(reader, fields, mesh);
}

// --- Skinning ---

// Output arrays, a copy of the positions in a larger scale, and the influence tables of each vertex.
static void accountForSkinning(M3gReader* reader, const VertexBuffer* base) {
    constexpr uint64_t kTablesPerVertex = (1 + 2 * kMaxInfluences) * sizeof(int32_t) + sizeof(SkinRun);
    const uint64_t vertexCount = base->positions ? uint64_t(base->positions->vertexCount) : 0;
    M3gReader_deriveBytes(
        reader, 2 * byteCountOf(base->positions) + byteCountOf(base->normals) + vertexCount * kTablesPerVertex);
}

static uint64_t depthOf(const Node* node) {
    uint64_t depth = 0;
    while ((node = node->parent)) ++depth;
    return depth;
}

// The tables take time for every vertex of every binding, however few of them are kept; a bone is looked for among all,
// and for its first binding the transforms up to the mesh are multiplied.
static void readBinding(M3gReader* reader, SkinnedMesh* mesh) {
    constexpr uint64_t kWorkPerLevel = 64;  // a product takes as long as so many vertices
    Node* bone = M3gReader_readNodeReference(reader);
    const int32_t firstVertex = readInt32(reader->stream), vertexCount = readInt32(reader->stream);
    const int32_t weight = readInt32(reader->stream);
    const int32_t boneCount = mesh->boneCount;
    M3gReader_deriveWork(reader, uint64_t(boneCount));
    if (!M3gReader_isIntact(reader)) return;
    M3gReader_require(reader, qelSkinnedMesh_addTransform(mesh, bone, weight, firstVertex, vertexCount));
    if (!M3gReader_isIntact(reader)) return;
    if (mesh->boneCount > boneCount) M3gReader_deriveWork(reader, kWorkPerLevel * depthOf(bone));
    M3gReader_deriveBytes(reader, uint64_t(vertexCount));
}

static void readBindings(M3gReader* reader, SkinnedMesh* mesh) {
    constexpr uint32_t kBindingSize = 16;
    const uint32_t count = M3gReader_readCount(reader, kBindingSize);
    if (!M3gReader_isIntact(reader)) return;
    M3gReader_require(reader, qelSkinnedMesh_reserveBindings(mesh, int32_t(count)));
    for (uint32_t i = 0; i < count && M3gReader_isIntact(reader); ++i) readBinding(reader, mesh);
}

Object3D* M3gReader_readSkinnedMesh(M3gReader* reader) {
    const M3gNodeFields fields = M3gFields_readNode(reader);
    VertexBuffer* vertices = readVertices(reader);
    SubmeshLists submeshes(M3gReader_readCount(reader, kSubmeshSize));
    readSubmeshes(reader, submeshes);
    auto* skeleton = M3gReader_readRequired<Group>(reader, ClassId::Group);
    if (!M3gReader_isIntact(reader)) return nullptr;
    accountForSkinning(reader, vertices);
    if (!M3gReader_isIntact(reader)) return nullptr;
    Result result;
    SkinnedMesh* mesh = qelSkinnedMesh_create(vertices, submeshes.strips.data, submeshes.appearances.data, skeleton,
                                              int32_t(submeshes.strips.count), &result);
    if (!mesh) return M3gReader_failCreation(reader, result);
    readBindings(reader, mesh);
    return M3gFields_complete(reader, fields, mesh);
}
