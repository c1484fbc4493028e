#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "bench/plain_cross.h"
#include "frame/error_status.h"
#include "query/record_crossing.h"
#include "scene/group.h"
#include "scene/morphing_mesh.h"
#include "scene/skinned_mesh.h"
#include "tests/query/cross_objects.h"
#include "tests/support/counting_heap.h"
#include "tests/support/figure_fixture.h"

using Floats = std::array<float, 16>;

// The answer, which has to be that of the formulas, come without error and leave nothing behind.
static bool crosses(const K8Handle* a, const K8Transform* placeA, const K8Handle* b, const K8Transform* placeB) {
    K8ErrStorage_setErrorStatus(7);
    const int32_t status = K8Util_getCrossStatus(a, placeA, b, placeB);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
    EXPECT_EQ(status, plainCross(a, placeA, b, placeB) ? 1 : 0);
    return status == 1;
}

class CrossStatus : public testing::Test {
protected:
    CountingAllocator allocator;
    CrossObjects make{allocator.get()};
    K8Handle* flat = make.primitive(K8_PRIM_TRIANGLES, {-1, -1, 0, 1, -1, 0, 0, 1, 0});
    K8Handle* upright = make.primitive(K8_PRIM_TRIANGLES, {0, -1, -1, 0, -1, 1, 0, 1, 0});
};

// A triangle in the plane z = 0, and the same with one more behind it that nothing uses.
static const std::vector<int16_t> kFlat = {-90, -90, 0, 90, -90, 0, 0, 90, 0},
                                  kFlatAndFar = {-90, -90, 0, 90, -90, 0, 0, 90, 0, 100, 100, 100};

TEST_F(CrossStatus, FindsWhatPierces) {
    K8Handle* needle = make.primitive(K8_PRIM_LINES, {3, 1, -40, 2, 2, 40});
    K8Handle* nail = make.primitive(K8_PRIM_TRIANGLES, {0, 0, -40, 9, 9, 40, 9, 0, 40});
    const std::vector<int32_t> corners = {-90, -90, 0, 90, -90, 0, 90, 90, 0, -90, 90, 0};
    const MeshShape flatMesh = {.positions = kFlat, .submeshes = {{0, 1, 2}}};
    K8Handle* scene = make.group({make.mesh(flatMesh)});
    scene->classId = K8_CLASS_SCENE_GROUP;
    constexpr int32_t kBig = (1 << 27) - 1;
    struct Case {
        const char* name;
        K8Handle *a, *b;
        bool expected;
    };
    const Case cases[] = {
        {"unit triangles", flat, upright, true},
        {"the same", flat, flat, false},
        {"a line and a triangle", needle, make.primitive(K8_PRIM_TRIANGLES, {-90, -90, 0, 90, -90, 0, 0, 90, 0}), true},
        {"two lines that meet", make.primitive(K8_PRIM_LINES, {-8, -8, 0, 8, 8, 0}),
         make.primitive(K8_PRIM_LINES, {-8, 8, 0, 8, -8, 0}), false},
        {"quadrilaterals, first half", nail, make.primitive(K8_PRIM_QUADS, corners), true},
        {"quadrilaterals, second half", make.primitive(K8_PRIM_QUADS, {-9, 0, 0, 9, -1, 0, 90, 90, 0, -90, 90, 0}),
         nail, true},
        {"coordinates of 27 bits",
         make.primitive(K8_PRIM_QUADS, {-kBig, -kBig, 9, kBig, -kBig, 9, kBig, kBig, 9, -kBig, kBig, 9}),
         make.primitive(K8_PRIM_TRIANGLES, {0, 0, -kBig, 99, 0, kBig, 0, kBig, kBig}), true},
        {"type in the top byte", make.primitive(K8_PRIM_TRIANGLES << 24, {-1, -1, 0, 1, -1, 0, 0, 1, 0}), upright,
         true},
        {"points", flat, make.primitive(K8_PRIM_POINTS, {0, 0, 0, 0, 0, 1}), false},
        {"sprites", upright, make.primitive(K8_PRIM_SPRITES, {0, 0, 0}), false},
        {"fewer positions than primitives", make.primitive(K8_PRIM_TRIANGLES, {-1, -1, 0, 1, -1, 0, 0, 1, 0}, 2),
         upright, false},
        {"no primitives", make.primitive(K8_PRIM_TRIANGLES, {-1, -1, 0, 1, -1, 0, 0, 1, 0}, 0), upright, false},
        {"a primitive count that wraps around", make.primitive(K8_PRIM_QUADS, corners, 0x55555556), nail, false},
        {"a mesh of words", make.mesh(flatMesh), nail, true},
        {"a mesh of bytes", nail, make.mesh({.positions = kFlat, .submeshes = {{0, 1, 2}}, .isByte = true}), true},
        {"a mesh beside", make.mesh({.positions = kFlat, .submeshes = {{0, 1, 2}}, .bias = {200, 0, 0}}), nail, false},
        {"a mesh too small to meet",
         make.mesh({.positions = kFlat, .submeshes = {{0, 1, 2}}, .scale = 1 / 16.0f, .bias = {-8, 0, 0}}), nail,
         false},
        {"strips", nail,
         make.mesh({.positions = {900, 0, 0, 500, 1, 0, 600, 0, 0, -90, -90, 0, 90, -90, 0, 0, 90, 0, 90, 90, 0},
                    .submeshes = {},
                    .strips = {3, 4}}),
         true},
        {"vertices that nothing uses", make.mesh({.positions = kFlatAndFar, .submeshes = {{0, 1, 2}}}),
         make.primitive(K8_PRIM_TRIANGLES, {80, 80, 50, 110, 80, 50, 90, 110, 90}), false},
        {"a few vertices of many", nail,
         make.mesh({.positions = std::vector<int16_t>(kFlatAndFar.begin(), kFlatAndFar.end()),
                    .submeshes = {{3, 3, 3}, {2, 0, 1}}}),
         true},
        {"an index beyond the vertices", nail, make.mesh({.positions = kFlat, .submeshes = {{0, 1, 2}, {0, 1, 3}}}),
         false},
        {"a figure without object", flat, make.figure(nullptr), false},
        {"a light", flat, make.light(), false},
        {"a group of a figure and a light", make.group({make.light(), nullptr, make.mesh(flatMesh)}), nail, true},
        {"a group of groups", upright, make.group({make.group({}), make.group({make.group({flat, upright})})}), true},
        {"a scene group", nail, make.group({scene}), true},
        {"an empty group", nail, make.group({}), false},
        {"a group without loaded info", flat, make.groupWithoutInfo(), false},
        {"a group with a group without loaded info", nail,
         make.group({make.mesh(flatMesh), make.group({make.groupWithoutInfo()})}), false},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(crosses(each.a, nullptr, each.b, nullptr), each.expected);
        EXPECT_EQ(crosses(each.b, nullptr, each.a, nullptr), each.expected);
    }
}

TEST_F(CrossStatus, NullObjectsGiveZero) {
    for (const auto& [a, b] : {std::pair<K8Handle*, K8Handle*>{nullptr, flat}, {flat, nullptr}, {nullptr, nullptr}}) {
        K8ErrStorage_setErrorStatus(K8_ERR_OUT_OF_MEMORY);
        EXPECT_EQ(K8Util_getCrossStatus(a, nullptr, b, nullptr), 0);
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
    }
}

TEST_F(CrossStatus, PlacesTheObjects) {
    const Floats turned = {0, -2, 0, 5, 2, 0, 0, 6, 0, 0, 2, 7, 0, 0, 0, 1};
    struct Case {
        const char* name;
        K8Transform *a, *b;
        bool expected;
    };
    const Case cases[] = {
        {"moved together", make.moved(1e5f, 3, 4), make.moved(1e5f, 3, 4), true},
        {"one moved away", make.moved(10, 0, 0), nullptr, false},
        {"the other moved away", nullptr, make.moved(0, -10, 0), false},
        {"one moved a little", make.moved(0.25f, 0, 0), nullptr, true},
        {"both turned alike", make.transform(turned), make.transform(turned), true},
        {"the same but for the translation", make.moved(0, 0, 0, 64), make.moved(16, 0, 0, 64), true},
        {"one scaled to nothing", make.moved(0, 0, 0, 0), nullptr, false},
        {"one scaled beyond all numbers", make.moved(0, 0, 0, 1e30f), nullptr, false},
        {"one far beyond all numbers", make.moved(1e30f, 0, 0), nullptr, false},
        {"one nowhere", make.moved(NAN, 2, 0), nullptr, false},
        {"one nowhere, which counts as the same place", make.moved(NAN, 0, 0), nullptr, true},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        EXPECT_EQ(crosses(flat, each.a, upright, each.b), each.expected);
    }
}

// Inside of a group the objects stay where they are: coordinates of more than 16 bits lose the lowest ones.
TEST_F(CrossStatus, ShortensLargeCoordinates) {
    K8Handle* wide = make.primitive(K8_PRIM_TRIANGLES, {-1000, -1000, 0, 1000, -1000, 0, 0, 1000, 0});
    K8Handle* high = make.primitive(K8_PRIM_TRIANGLES, {0, -1000, -1000, 0, -1000, 1000, 0, 1000, 0});
    for (const float distance : {0.0f, 60000.0f, 250000.0f, 450000.0f, 520000.0f, 1e7f}) {
        SCOPED_TRACE(distance);
        K8Transform* place = make.moved(distance, -distance, 0, 30);
        const bool cross = crosses(make.group({wide}, place), nullptr, make.group({high}, place), nullptr);
        if (distance < 500000) {  // beyond, they wrap around
            EXPECT_TRUE(cross);
        }
    }
}

TEST_F(CrossStatus, AGroupThatContainsItselfEnds) {
    K8Handle* group = make.group({flat, flat, flat});
    auto* children = reinterpret_cast<K8Group*>(group)->info->childHandles;
    children[1] = children[2] = group;
    K8ErrStorage_setErrorStatus(7);
    EXPECT_EQ(K8Util_getCrossStatus(upright, nullptr, group, nullptr), 0);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
    children[1] = children[2] = flat;
}

// Each of 14 levels names the one below it twice: a few hundred bytes that stand for 16384 records on either side. They
// overlap without crossing.
TEST_F(CrossStatus, ASmallTreeOfManyWaysIsGivenUp) {
    K8Handle* group = flat;
    for (int level = 0; level < 14; ++level) group = make.group({group, group});
    K8ErrStorage_setErrorStatus(7);
    EXPECT_EQ(K8Util_getCrossStatus(group, nullptr, group, nullptr), 0);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
    EXPECT_EQ(K8Util_getCrossStatus(upright, nullptr, group, nullptr), 1);
}

TEST_F(CrossStatus, DeepGroupsNeedNoStack) {
    K8Handle* group = upright;
    K8Transform* step = make.moved(1.0f / 32768, 0, 0);
    for (int depth = 0; depth < 60000; ++depth) group = make.group({group}, step);
    EXPECT_EQ(K8Util_getCrossStatus(group, nullptr, flat, nullptr), 0);  // nearly two units away from where it began
    EXPECT_EQ(K8Util_getCrossStatus(group, nullptr, group, make.moved(0, 0, 0)), 0);
    EXPECT_EQ(K8Util_getCrossStatus(group, nullptr, flat, make.moved(1.8f, 0, 0)), 1);
}

// --- Work ---

static Mesh* meshOfSharedStrip(const MeshShape& shape, size_t submeshCount) {
    Result result;
    VertexBuffer* buffer = makeVertexBuffer(shape);
    const std::vector<TriangleStripArray*> strips(submeshCount, makeIndexBuffers(shape)[0]);
    Mesh* mesh = qelMesh_create(buffer, strips.data(), nullptr, int32_t(submeshCount), &result);
    qelObject3D_unref(buffer);
    qelObject3D_unref(strips[0]);
    return mesh;
}

// Submeshes multiply a strip for eight bytes each; the memory to compare them would follow.
TEST_F(CrossStatus, AMeshOfTooManyTrianglesIsGivenUp) {
    MeshShape shape = {.positions = std::vector<int16_t>(3 * 65535, 900), .submeshes = {}, .strips = {65535}};
    std::ranges::copy(kFlat, shape.positions.begin());
    K8Handle* nail = make.primitive(K8_PRIM_TRIANGLES, {0, 0, -40, 9, 9, 40, 9, 0, 40});
    EXPECT_EQ(K8Util_getCrossStatus(nail, nullptr, make.figure(meshOfSharedStrip(shape, 16)), nullptr), 1);
    EXPECT_EQ(K8Util_getCrossStatus(nail, nullptr, make.figure(meshOfSharedStrip(shape, 17)), nullptr), 0);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
}

struct GatheredSet {
    GatheredSet(K8Allocator* allocator, CollisionWork* work, const K8Handle* object)
        : set{.allocator = allocator, .work = work, .records = {}, .parts = {}} {
        K8Transform* place = K8Transform_create(nullptr, allocator);
        EXPECT_EQ(CollisionSet_gather(&set, object, place), CollisionResult::Ok);
        K8Transform_destroy(place);
    }
    ~GatheredSet() { CollisionSet_release(&set); }
    GatheredSet(const GatheredSet&) = delete;
    GatheredSet& operator=(const GatheredSet&) = delete;

    CollisionSet set;
};

static FigureMesh* figureOfBoneChain(uint32_t boneCount) {
    std::mt19937 random(5);
    encode::MbFigure figure = randomFigure(random, {.vertexCount = 6, .boneCount = boneCount});
    for (size_t b = 0; b < boneCount; ++b) figure.bones[b].parent = int32_t(b) - 1;
    return loadFigure(figure);
}

static SkinnedMesh* meshOfLargeSkeleton(uint32_t nodeCount) {
    const MeshShape shape = {.positions = kFlat, .submeshes = {{0, 1, 2}}};
    Result result;
    VertexBuffer* base = makeVertexBuffer(shape);
    TriangleStripArray* indices = makeIndexBuffers(shape)[0];
    Group* skeleton = qelGroup_create();
    for (uint32_t i = 1; i < nodeCount; ++i) {
        Group* node = qelGroup_create();
        qelGroup_addChild(skeleton, node);
        qelObject3D_unref(node);
    }
    SkinnedMesh* mesh = qelSkinnedMesh_create(base, &indices, nullptr, skeleton, 1, &result);
    qelSkinnedMesh_addTransform(mesh, skeleton, 1, 0, 3);
    for (Object3D* object : std::initializer_list<Object3D*>{base, indices, skeleton}) qelObject3D_unref(object);
    return mesh;
}

// A tree may reach the same thing a million times: what takes time each time has to count each time.
TEST_F(CrossStatus, GatheringCountsWhatItReads) {
    struct Case {
        const char* name;
        K8Handle* object;
        uint64_t leastSteps;
    };
    const MeshShape strip = {.positions = std::vector<int16_t>(3 * 65535), .submeshes = {}, .strips = {65535}};
    std::vector<std::vector<int32_t>> submeshes(1000, {0, 1, 2});
    submeshes.push_back({0, 1, 3});
    const Case cases[] = {
        {"bones that did not move", make.figure(figureOfBoneChain(3000)), 2500 / 64},
        {"a skeleton that did not move", make.figure(meshOfLargeSkeleton(1000)), 4 * 1000},
        {"triangles", make.figure(meshOfSharedStrip(strip, 2)), 2 * (65533 / 8)},
        {"submeshes that end in a bad index", make.mesh({.positions = kFlat, .submeshes = submeshes}), 1001},
        {"values that no primitive uses", make.primitive(K8_PRIM_LINES, std::vector<int32_t>(96000), 1), 3000},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        CollisionWork work{};
        GatheredSet first(allocator.get(), &work, each.object);
        const uint64_t before = work.steps;
        GatheredSet again(allocator.get(), &work, each.object);
        EXPECT_GE(work.steps - before, each.leastSteps);
    }
}

// Upright triangles on either side of the plane x + y = 0. Their boxes all overlap.
static MeshShape stackOnOneSide(int16_t side, int32_t count) {
    MeshShape shape = {.positions = {}, .submeshes = {{}}};
    for (int32_t i = 0; i < 3 * count; ++i) {
        const auto x = int16_t(i % 3 == 0 ? -90 : 90), low = int16_t(i % 3 == 2 ? 300 : -300);
        const auto gap = int16_t(side * (4 + i / 3 % 16));
        for (const int16_t value : {int16_t(x + gap), int16_t(gap - x), low}) shape.positions.push_back(value);
        shape.submeshes[0].push_back(i);
    }
    return shape;
}

TEST_F(CrossStatus, SearchingCountsThePairsItTests) {
    struct Counts {
        int32_t a, b;
    };
    for (const Counts& count : {Counts{20, 3000}, Counts{3000, 20}, Counts{300, 300}}) {
        SCOPED_TRACE(testing::Message() << count.a << " by " << count.b);
        CollisionWork work{};
        GatheredSet a(allocator.get(), &work, make.mesh(stackOnOneSide(-1, count.a)));
        GatheredSet b(allocator.get(), &work, make.mesh(stackOnOneSide(1, count.b)));
        CrossingScratch scratch{};
        scratch.allocator = allocator.get();
        scratch.work = &work;
        const uint64_t before = work.steps;
        bool cross;
        EXPECT_EQ(CollisionRecord_cross(&scratch, a.set, a.set.records.records, b.set, b.set.records.records, &cross),
                  CollisionResult::Ok);
        CrossingScratch_release(&scratch);
        EXPECT_FALSE(cross);
        EXPECT_GE(work.steps - before, uint64_t(3 * count.a * count.b + 2 * (count.a + count.b)));
        EXPECT_LE(work.steps - before, 4 * uint64_t(count.a * count.b));
    }
}

// --- Meshes that move ---

TEST_F(CrossStatus, SkinsAndKeepsMorphs) {
    const MeshShape shape = {.positions = kFlat, .submeshes = {{0, 1, 2}}};
    K8Handle* nail = make.primitive(K8_PRIM_TRIANGLES, {0, 0, -40, 9, 9, 40, 9, 0, 40});
    Result result;
    VertexBuffer *base = makeVertexBuffer(shape),
                 *target = makeVertexBuffer({.positions = {0, 9, 9, 9, 9, 9, 9, 9, 9}});
    TriangleStripArray* indices = makeIndexBuffers(shape)[0];
    MorphingMesh* morphing = qelMorphingMesh_create(base, &target, &indices, nullptr, 1, 1, &result);
    const float weight = 1;
    qelMorphingMesh_setWeights(morphing, &weight);
    EXPECT_TRUE(crosses(make.figure(morphing), nullptr, nail, nullptr));  // in its own shape

    Group* skeleton = qelGroup_create();
    SkinnedMesh* skinned = qelSkinnedMesh_create(base, &indices, nullptr, skeleton, 1, &result);
    EXPECT_EQ(qelSkinnedMesh_addTransform(skinned, skeleton, 1, 0, 3), QEL_STATUS_OK);
    K8Handle* figure = make.figure(skinned);
    EXPECT_TRUE(crosses(figure, nullptr, nail, nullptr));
    qelTransformable_setTranslation(skeleton, 300, 0, 0);
    EXPECT_FALSE(crosses(figure, nullptr, nail, nullptr));
    qelTransformable_setTranslation(skinned, -300, 0, 0);
    EXPECT_TRUE(crosses(figure, nullptr, nail, nullptr));
    // Weights over vertices that are not there leave nothing to test.
    EXPECT_EQ(qelSkinnedMesh_addTransform(skinned, skeleton, 1, 0, 9), QEL_STATUS_OK);
    EXPECT_FALSE(crosses(figure, nullptr, nail, nullptr));
    for (Object3D* object : std::initializer_list<Object3D*>{base, target, indices, skeleton})
        qelObject3D_unref(object);
}

TEST_F(CrossStatus, TakesFiguresAsTheyArePosed) {
    std::mt19937 random(3);
    FigureMesh* mesh = loadFigure(randomFigure(random, {.vertexCount = 60, .boneCount = 4}));
    K8Handle* figure = make.figure(mesh);
    K8Handle* box = make.primitive(K8_PRIM_QUADS, {-60, -60, 0, 60, -60, 0, 60, 60, 0, -60, 60, 0});
    EXPECT_TRUE(crosses(figure, nullptr, figure, nullptr));
    EXPECT_TRUE(crosses(figure, nullptr, box, nullptr));
    EXPECT_FALSE(crosses(figure, make.moved(0, 0, 100), box, nullptr));
    for (uint32_t b = 0; b < mesh->bones.boneCount; ++b) {
        mesh->bones.local[b].m[11] += 6400;
        mesh->bones.bones[b].changed = 1;
    }
    EXPECT_FALSE(crosses(figure, nullptr, box, nullptr));
    EXPECT_TRUE(crosses(figure, nullptr, figure, nullptr));
}

TEST_F(CrossStatus, NothingToReadIsNothingToTouch) {
    K8Handle* nail = make.primitive(K8_PRIM_TRIANGLES, {0, 0, -40, 9, 9, 40, 9, 0, 40});
    Mesh* mesh = makeMesh({.positions = kFlat, .submeshes = {{0, 1, 2}}});
    K8Handle* figure = make.figure(mesh);
    VertexArray* positions = mesh->vertexBuffer->positions;
    positions->componentSize = 4;  // as a damaged mesh might have it
    EXPECT_FALSE(crosses(figure, nullptr, nail, nullptr));
    positions->componentSize = 2;
    EXPECT_TRUE(crosses(figure, nullptr, nail, nullptr));
    qelVertexBuffer_setPositions(mesh->vertexBuffer, nullptr, 1, nullptr);
    EXPECT_FALSE(crosses(figure, nullptr, nail, nullptr));
    EXPECT_FALSE(crosses(make.figure(qelFigureMesh_create()), nullptr, nail, nullptr));
}

// --- Against the formulas ---

static float randomFloat(std::mt19937& random, float limit) {
    return float(randomBetween(random, -65536, 65536)) / 65536 * limit;
}

static Floats randomPlace(std::mt19937& random, float distance) {
    Floats place = {};
    const float scale = std::exp2(randomFloat(random, 3));
    for (const int i : {0, 1, 2, 4, 5, 6, 8, 9, 10}) place[i] = randomFloat(random, scale);
    for (const int i : {3, 7, 11}) place[i] = randomFloat(random, distance);
    place[15] = 1;
    return place;
}

static Floats hostilePlace(std::mt19937& random) {
    Floats place = randomPlace(random, 1);
    for (float& element : place)
        if (random() % 4 == 0) element = std::bit_cast<float>(uint32_t(random()));
    return place;
}

// Small triangles all over a cube. Most vertices are shared, some triangles stretch far, some are lines or points.
static MeshShape randomCloud(std::mt19937& random, int32_t triangleCount, bool isByte) {
    const int32_t limit = isByte ? 100 : 1 << randomBetween(random, 8, 14), size = std::max(limit / 8, 2);
    MeshShape shape{.positions = {}, .submeshes = {{}, {}}, .isByte = isByte};
    for (int32_t i = 0; i < triangleCount; ++i) {
        int32_t center[3];
        for (int32_t& value : center) value = randomBetween(random, -limit, limit);
        std::vector<int32_t>& submesh = shape.submeshes[i % 3 == 0];
        for (int corner = 0; corner < 3; ++corner) {
            const auto vertexCount = int32_t(shape.positions.size() / 3);
            if (vertexCount > 0 && random() % 16 == 0) {
                submesh.push_back(randomBetween(random, 0, vertexCount - 1));
                continue;
            }
            submesh.push_back(vertexCount);
            for (const int32_t value : center)
                shape.positions.push_back(int16_t(value + randomBetween(random, -size, size)));
        }
    }
    for (std::vector<int32_t>& submesh : shape.submeshes) submesh.insert(submesh.end(), {0, 0, 0});
    if (random() % 2) shape.strips = {3, 5};
    shape.scale = std::exp2(randomFloat(random, 6)) * 64 / float(limit);
    for (float& value : shape.bias) value = randomFloat(random, 4);
    return shape;
}

static K8Handle* randomPrimitive(std::mt19937& random, CrossObjects& make) {
    static constexpr uint32_t kTypes[] = {K8_PRIM_POINTS, K8_PRIM_LINES, K8_PRIM_TRIANGLES, K8_PRIM_QUADS,
                                          K8_PRIM_LINES};
    const uint32_t type = kTypes[random() % 5];
    std::vector<int32_t> positions(size_t(randomBetween(random, 1, 20)) * 3 * type);
    const int32_t limit = random() % 8 ? 60 : INT32_MAX;
    for (int32_t& value : positions) value = randomBetween(random, -limit - 1, limit);
    return make.primitive(type, positions);
}

static K8Handle* randomObject(std::mt19937& random, CrossObjects& make, int32_t depth) {
    switch (random() % (depth > 0 ? 4 : 3)) {
        case 0: return randomPrimitive(random, make);
        case 1:
        case 2: return make.mesh(randomCloud(random, randomBetween(random, 1, 40), random() % 2));
        default: break;
    }
    std::vector<K8Handle*> children;
    for (uint32_t i = random() % 4; i > 0; --i) children.push_back(randomObject(random, make, depth - 1));
    return make.group(children, random() % 2 ? make.transform(randomPlace(random, 40)) : nullptr);
}

TEST(CrossProperty, SmallObjectsAnywhere) {
    std::mt19937 random(11);
    constexpr int kCount = 3000;
    int crossing = 0;
    for (int i = 0; i < kCount && !testing::Test::HasFailure(); ++i) {
        SCOPED_TRACE(i);
        MALK8_touchMA();
        CrossObjects make(&MALK8_malc);
        K8Handle *a = randomObject(random, make, 2), *b = randomObject(random, make, 2);
        const bool isHostile = random() % 8 == 0;
        const auto place = [&] { return make.transform(isHostile ? hostilePlace(random) : randomPlace(random, 60)); };
        crossing += crosses(a, place(), b, random() % 4 ? place() : nullptr);
    }
    EXPECT_GT(crossing, kCount / 10);
    EXPECT_LT(crossing, kCount * 9 / 10);
}

// Enough triangles on both sides for a search by tree.
TEST(CrossProperty, CloudsThatReachIntoEachOther) {
    std::mt19937 random(12);
    constexpr int kCount = 250;
    int crossing = 0;
    for (int i = 0; i < kCount && !testing::Test::HasFailure(); ++i) {
        SCOPED_TRACE(i);
        CrossObjects make(&MALK8_malc);
        MeshShape shapes[2];
        for (MeshShape& shape : shapes) {
            shape = randomCloud(random, randomBetween(random, 100, 400), random() % 4 == 0);
            // Flat pieces, whose boxes overlap many others without crossing them.
            for (size_t k = 0; k < shape.positions.size(); ++k)
                if (k % 3 == 2) shape.positions[k] = int16_t(shape.positions[k] & ~15);
            shape.scale = 64.0f / (shape.isByte ? 100 : 4096);
        }
        K8Transform* apart = make.moved(randomFloat(random, 150), randomFloat(random, 150), randomFloat(random, 150));
        crossing += crosses(make.mesh(shapes[0]), apart, make.mesh(shapes[1]), nullptr);
    }
    EXPECT_GT(crossing, kCount / 10);
    EXPECT_LT(crossing, kCount * 9 / 10);
}

// --- Memory ---

// Two shells, one inside of the other.
static MeshShape shell(int16_t radius) {
    constexpr int32_t kRings = 12;
    MeshShape shape{.positions = {}, .submeshes = {{}}};
    for (int32_t i = 0; i < kRings * kRings; ++i) {
        const double across = (i / kRings + 0.5) * std::numbers::pi / kRings;
        const double around = i % kRings * 2 * std::numbers::pi / kRings;
        for (const double value :
             {std::cos(across), std::sin(across) * std::cos(around), std::sin(across) * std::sin(around)})
            shape.positions.push_back(int16_t(radius * value));
        if (i < kRings * (kRings - 1)) {
            const int32_t next = i / kRings * kRings + (i + 1) % kRings;
            shape.submeshes[0].insert(shape.submeshes[0].end(), {i, next, i + kRings, next, i + kRings, next + kRings});
        }
    }
    return shape;
}

// The transforms fail with another status than everything else; without a tree the answer is the same.
TEST(CrossMemory, EveryHostAllocationMayFail) {
    for (const FailMode mode : {FailMode::Once, FailMode::FromThenOn}) {
        int32_t outOfMemory = 0, withoutTree = 0;
        sweepHostAllocations(mode, [&](CountingAllocator& host) {
            CountingAllocator own;
            CrossObjects make(own.get());
            K8Handle* shells = make.group({make.light(), make.group({make.mesh(shell(1000)), make.mesh(shell(600))})});
            K8Handle* core = make.mesh(shell(900));
            shells->allocator = host.get();
            const int32_t status = K8Util_getCrossStatus(shells, make.moved(1, 0, 0), core, nullptr);
            EXPECT_EQ(status, 0);
            EXPECT_EQ(host.liveBlocks(), 0);
            if (K8ErrStorage_getErrorStatus() == K8_ERR_OUT_OF_MEMORY)
                ++outOfMemory;
            else if (host.hasFailed() && host.calls() > 3)
                ++withoutTree;
            shells->allocator = own.get();
            EXPECT_EQ(K8Util_getCrossStatus(shells, nullptr, core, make.moved(500, 0, 0)), 1);
        });
        EXPECT_GT(outOfMemory, 8);
        EXPECT_EQ(withoutTree, mode == FailMode::Once ? 2 : 0);
    }
}

TEST(CrossMemory, TransformsThatCannotBeHadAreAFailure) {
    CountingAllocator own;
    CrossObjects make(own.get());
    K8Handle* object = make.mesh(shell(100));
    K8Transform* place = make.moved(1, 0, 0);
    for (const int32_t failAt : {0, 1, 2}) {
        own.failAfter(failAt);
        K8ErrStorage_setErrorStatus(7);
        EXPECT_EQ(K8Util_getCrossStatus(object, place, object, nullptr), 0);
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
    }
    own.failAfter(kNeverFail);
    EXPECT_EQ(K8Util_getCrossStatus(object, nullptr, object, nullptr), 1);
    // The second object's allocator serves as well; without any there are no transforms.
    K8Handle* other = make.mesh(shell(100));
    object->allocator = nullptr;
    EXPECT_EQ(K8Util_getCrossStatus(object, nullptr, other, nullptr), 1);
    other->allocator = nullptr;
    EXPECT_EQ(K8Util_getCrossStatus(object, nullptr, other, nullptr), 0);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
    object->allocator = other->allocator = own.get();
}

TEST(CrossMemory, EngineMemoryForSkinningMayRunOut) {
    CountingHeap heap;
    CountingAllocator host;
    CrossObjects make(host.get());
    Result result;
    VertexBuffer* base = makeVertexBuffer(shell(100));
    TriangleStripArray* indices = makeIndexBuffers(shell(100))[0];
    Group* skeleton = qelGroup_create();
    SkinnedMesh* skinned = qelSkinnedMesh_create(base, &indices, nullptr, skeleton, 1, &result);
    qelSkinnedMesh_addTransform(skinned, skeleton, 1, 0, 5);
    K8Handle* figure = make.figure(skinned);
    heap.failAfter(0);
    EXPECT_EQ(K8Util_getCrossStatus(figure, nullptr, figure, nullptr), 0);
    EXPECT_TRUE(heap.hasFailed());
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_OUT_OF_MEMORY);
    for (Object3D* object : std::initializer_list<Object3D*>{base, indices, skeleton}) qelObject3D_unref(object);
}
