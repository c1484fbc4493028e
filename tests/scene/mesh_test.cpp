#include "scene/mesh.h"

#include "scene/appearance.h"
#include "scene/figure_mesh.h"
#include "scene/group.h"
#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"

constexpr Result kOk = QEL_STATUS_OK, kNull = QEL_STATUS_NULL_POINTER, kArgument = QEL_STATUS_ILLEGAL_ARGUMENT;

// A mesh of two submeshes, the second without appearance.
struct TwoSubmeshes {
    TwoSubmeshes() { mesh = qelMesh_create(buffer, indexBuffers, appearances, 2, &result); }
    ~TwoSubmeshes() { qelObject3D_unref(mesh); }
    Held<VertexBuffer> buffer{makeBuffer<int8_t>(std::vector<int8_t>(9))};
    Held<TriangleStripArray> first{makeTriangle()}, second{makeTriangle()};
    Held<Appearance> appearance{qelAppearance_create()};
    TriangleStripArray* indexBuffers[2] = {first, second};
    Appearance* appearances[2] = {appearance, nullptr};
    Result result = -1;
    Mesh* mesh;
};

TEST(Mesh, RefusesWhatItCannotDrawWith) {
    TwoSubmeshes parts;
    TriangleStripArray* const withNull[2] = {parts.first, nullptr};
    struct Case {
        const char* what;
        VertexBuffer* buffer;
        TriangleStripArray* const* indexBuffers;
        int32_t submeshCount;
        Result result;
    };
    for (const Case& c : {Case{"no vertex buffer", nullptr, parts.indexBuffers, 2, kNull},
                          Case{"no index buffers", parts.buffer, nullptr, 2, kNull},
                          Case{"a null index buffer", parts.buffer, withNull, 2, kNull},
                          Case{"the null one left out", parts.buffer, withNull, 1, kOk},
                          Case{"no submeshes", parts.buffer, parts.indexBuffers, 0, kArgument},
                          Case{"negative count", parts.buffer, parts.indexBuffers, -1, kArgument}}) {
        SCOPED_TRACE(c.what);
        Result result = -1;
        const Held mesh(qelMesh_create(c.buffer, c.indexBuffers, nullptr, c.submeshCount, &result));
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(mesh.get() != nullptr, c.result == kOk);
    }
}

TEST(Mesh, HoldsFindsAndListsItsParts) {
    TwoSubmeshes parts;
    EXPECT_EQ(parts.result, kOk);
    const std::vector<Object3D*> references = {parts.buffer, parts.first, parts.second, parts.appearance};
    EXPECT_EQ(referencesOf(parts.mesh), references);
    const std::vector<Object3D*> searched = {parts.buffer, parts.first, parts.appearance, parts.second};
    for (size_t i = searched.size(); i-- > 0;) {  // each hides those after it
        searched[i]->userId = 5;
        EXPECT_EQ(parts.mesh->find(parts.mesh, 5), searched[i]);
    }
    for (const Object3D* part : references) EXPECT_EQ(part->refCount, 2);

    Result result;
    EXPECT_EQ(qelMesh_getAppearance(parts.mesh, 1, &result), nullptr);
    EXPECT_EQ(result, kOk) << "a submesh without appearance";
    for (const int32_t index : {-1, 2}) {
        EXPECT_EQ(qelMesh_getAppearance(parts.mesh, index, &result), nullptr);
        EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
        EXPECT_EQ(qelMesh_getIndexBuffer(parts.mesh, index, &result), nullptr);
        EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
        EXPECT_EQ(qelMesh_setAppearance(parts.mesh, index, parts.appearance), QEL_STATUS_INDEX_OUT_OF_RANGE);
    }
    EXPECT_EQ(parts.mesh->appearanceChanged[1], 1) << "at creation";
    parts.mesh->appearanceChanged[0] = parts.mesh->appearanceChanged[1] = 0;
    EXPECT_EQ(qelMesh_setAppearance(parts.mesh, 1, parts.appearance), kOk);
    EXPECT_EQ(parts.mesh->appearanceChanged[0], 0);
    EXPECT_EQ(parts.mesh->appearanceChanged[1], 1);
    EXPECT_EQ(parts.appearance->refCount, 3);
}

TEST(Mesh, DuplicateSharesPartsButNotTheirList) {
    TwoSubmeshes parts;
    const Held group(qelGroup_create());
    qelGroup_addChild(group, parts.mesh);
    const Held copy(static_cast<Mesh*>(qelMesh_duplicate(parts.mesh)));
    EXPECT_EQ(copy->parent, nullptr);
    EXPECT_EQ(referencesOf(copy), referencesOf(parts.mesh));
    qelMesh_setAppearance(copy, 0, nullptr);
    EXPECT_EQ(parts.mesh->appearances[0], parts.appearance.get());
    EXPECT_EQ(parts.first->refCount, 3);
}

// What the animate slots of the parts saw.
static std::vector<Object3D*> animatedParts;
static int32_t animateAs(Object3D* object, int32_t, Result* result) {
    animatedParts.push_back(object);
    *result = object->userId < 0 ? QEL_STATUS_ILLEGAL_STATE : kOk;
    return object->userId < 0 ? 0 : object->userId;
}

TEST(Mesh, AnimatesAppearancesThenVertices) {
    TwoSubmeshes parts;
    parts.appearance->animate = parts.buffer->animate = animateAs;
    parts.appearance->userId = 40;
    parts.buffer->userId = 30;
    animatedParts.clear();
    Result result;
    EXPECT_EQ(parts.mesh->animate(parts.mesh, 0, &result), 30);
    EXPECT_EQ(result, kOk);
    EXPECT_EQ(animatedParts, (std::vector<Object3D*>{parts.appearance, parts.buffer}));
    parts.appearance->userId = -1;
    animatedParts.clear();
    EXPECT_EQ(parts.mesh->animate(parts.mesh, 0, &result), 0);
    EXPECT_EQ(result, QEL_STATUS_ILLEGAL_STATE);
    EXPECT_EQ(animatedParts, (std::vector<Object3D*>{parts.appearance}));
}

TEST(Mesh, GivesEverythingBackWhenMemoryRunsOut) {
    TwoSubmeshes parts;
    sweepEngineAllocations(FailMode::Once, [&](CountingHeap& heap) {
        Result result;
        const Held mesh(qelMesh_create(parts.buffer, parts.indexBuffers, parts.appearances, 2, &result));
        EXPECT_EQ(result, mesh.get() ? kOk : QEL_STATUS_OUT_OF_MEMORY);
        const Held copy(mesh.get() ? qelMesh_duplicate(mesh) : nullptr);
        EXPECT_EQ(copy.get() == nullptr, heap.hasFailed());
    });
    EXPECT_EQ(parts.buffer->refCount, 2);
    EXPECT_EQ(parts.appearance->refCount, 2);
}

// --- FigureMesh ---

TEST(FigureMesh, FinalisedEqualsNewAndGivesEverythingBack) {
    CountingHeap heap;
    const Held figure(qelFigureMesh_create());
    const int32_t emptyBlocks = heap.liveBlocks();
    EXPECT_EQ(figure->requestedPattern, 0xFFFFFFFFu);
    EXPECT_EQ(figure->posedFrame, -1);
    EXPECT_EQ(figure->animate, nullptr);

    ASSERT_TRUE(qelMesh_allocSubmeshes(figure, 1));
    figure->vertexBuffer = makeBuffer<int16_t>({1, 2, 3});
    figure->indexBuffers[0] = makeTriangle();
    figure->appearanceCount = 2;
    figure->appearanceTable = qelAllocArrayOf<Appearance*>(2);
    figure->appearanceTable[0] = qelAppearance_create();
    Appearance* shown = qelAppearance_create();
    figure->appearanceTable[1] = static_cast<Appearance*>(qelObject3D_ref(shown));
    figure->appearances[0] = shown;  // without a reference
    figure->slotFlags = qelAllocArrayOf<uint32_t>(1);
    figure->patternTable = qelAllocArrayOf<uint32_t>(2);
    figure->bones.boneCount = 1;
    figure->bones.bones = qelAllocArrayOf<BoneRecord>(1);
    figure->bones.groupVertices = qelAllocArrayOf<uint16_t>(1);
    figure->opaqueColors = makeArray<int8_t>(4, {1, 2, 3, 4});
    figure->blendPlan = static_cast<BlendPlan*>(qelAllocArray(8, 1));
    figure->vertexBones = qelAllocArrayOf<int32_t>(1);
    figure->boneMatrices = qelAllocArrayOf<int32_t>(12);
    figure->boneMatrixDone = qelAllocArrayOf<uint8_t>(1);
    figure->boneCount = 1;
    ASSERT_EQ(qelSkinnedMesh_prepareSkinnedBuffer(figure), kOk);

    qelFigureMesh_finalise(figure);
    EXPECT_EQ(shown->refCount, 1);
    qelObject3D_unref(shown);
    EXPECT_EQ(heap.liveBlocks(), emptyBlocks);
    EXPECT_EQ(qelObject3D_getClassID(figure), uint32_t(QEL_CLASS_FIGURE_MESH));
    EXPECT_EQ(figure->submeshCount, 0);
    EXPECT_EQ(figure->bones.boneCount, 0u);
    EXPECT_EQ(figure->requestedPattern, 0xFFFFFFFFu);
}

TEST(FigureMesh, TakesNoBonesAndKeepsTheLengthOfItsNormals) {
    const Held figure(qelFigureMesh_create());
    EXPECT_EQ(qelSkinnedMesh_prepareSkinnedBuffer(figure), kOk) << "empty";
    EXPECT_EQ(figure->skinnedBuffer, nullptr);
    const Held bone(qelGroup_create());
    EXPECT_EQ(qelSkinnedMesh_addTransform(figure, bone, 1, 0, 1), kArgument);

    figure->vertexBuffer = makeBuffer<int16_t>({100, 200, 300});
    const Held normals(makeArray<int8_t>(3, {0, 64, 0}));
    qelVertexBuffer_setNormalsAsIs(figure->vertexBuffer, normals);
    ASSERT_EQ(qelSkinnedMesh_prepareSkinnedBuffer(figure), kOk);
    EXPECT_EQ(valuesOf<int16_t>(figure->skinnedBuffer->positions), (std::vector<int16_t>{100, 200, 300}));
    EXPECT_EQ(valuesOf<int8_t>(figure->skinnedBuffer->normals), (std::vector<int8_t>{0, 64, 0}));
    EXPECT_NE(figure->skinnedBuffer->normals, normals.get());
}
