// What a ray hits and what is recorded of it, rule by rule.
#include <gmock/gmock.h>

#include <cmath>
#include <random>

#include "scene/figure_mesh.h"
#include "scene/group.h"
#include "scene/morphing_mesh.h"
#include "scene/skinned_mesh.h"
#include "scene/texture2d.h"
#include "tests/query/pick_meshes.h"

using testing::ElementsAre;

namespace {

// --- Records and arrays ---

TEST(RayIntersection, StartsWithAWayAheadAndRefusesOtherUnits) {
    RayIntersection record;
    std::memset(&record, 0x55, sizeof record);
    qelRayIntersection_finalize(&record);
    EXPECT_THAT(record.ray, ElementsAre(0, 0, 0, 0, 0, 1));
    EXPECT_THAT(record.normal, ElementsAre(0, 0, 1));
    record.textureS[1] = 3;
    Result result;
    EXPECT_EQ(qelRayIntersection_getTextureS(&record, 1, &result), 3);
    EXPECT_EQ(result, QEL_STATUS_OK);
    for (const int32_t unit : {-1, 2}) {
        EXPECT_EQ(qelRayIntersection_getTextureS(&record, unit, &result), 0);
        EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
        EXPECT_EQ(qelRayIntersection_getTextureT(&record, unit, &result), 0);
        EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
    }
    EXPECT_EQ(qelRayIntersection_getRay(&record, nullptr), QEL_STATUS_NULL_POINTER);
}

TEST(RayIntersectionArray, GrowsBySteps) {
    std::vector<int8_t> positions;
    std::vector<int32_t> indices;
    for (int32_t z = 0; z < 33; ++z) {
        for (const int32_t c : {0, 0, z, 4, 0, z, 0, 4, z}) positions.push_back(int8_t(c));
        for (int32_t i = 0; i < 3; ++i) indices.push_back(3 * z + i);
    }
    const Held mesh(makeMesh(positions, indices));
    RayIntersectionArray array;
    qelRayIntersectionArray_initialize(&array);
    EXPECT_EQ(qelRayIntersectionArray_appendIntersection(&array, nullptr), QEL_STATUS_NULL_POINTER);
    Result result;
    ASSERT_TRUE(qelMesh_pickMultiple(mesh, 1, 1, 50, 0, 0, -1, &array, &result));
    EXPECT_EQ(array.capacity, 64);
    ASSERT_EQ(qelRayIntersectionArray_getRayIntersectionCount(&array), 33);
    for (int32_t i = 0; i < 33; ++i) {  // in the order of the triangles, not of distance
        const RayIntersection* record = qelRayIntersectionArray_getRayIntersection(&array, i, &result);
        EXPECT_EQ(qelRayIntersection_getDistance(record), float(50 - i));
        float ray[6];
        qelRayIntersection_getRay(record, ray);
        EXPECT_THAT(ray, ElementsAre(1, 1, 50, 0, 0, -1));
    }
    for (const int32_t index : {-1, 33}) {
        EXPECT_EQ(qelRayIntersectionArray_getRayIntersection(&array, index, &result), nullptr);
        EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
    }
    EXPECT_FALSE(qelMesh_pickMultiple(mesh, 9, 9, 50, 0, 0, -1, &array, &result));  // found nothing this time
    EXPECT_EQ(array.count, 33);
    qelRayIntersectionArray_finalize(&array);
    EXPECT_EQ(array.records, nullptr);
    EXPECT_EQ(array.capacity + array.count, 0);
}

// --- Hits and misses ---

const std::vector<int8_t> kCorner = {0, 0, 0, 100, 0, 0, 0, 100, 0};  // counter-clockwise from +z

TEST(Pick, HitsWhatItSees) {
    struct Case {
        const char* what;
        Culling culling;
        Winding winding;
        Ray ray;
        float distance;  // -1: a miss
    };
    const auto [back, front, none] = std::array{Culling::Back, Culling::Front, Culling::None};
    const auto [ccw, cw] = std::array{Winding::Ccw, Winding::Cw};
    for (const Case& c : {
             Case{"front", back, ccw, {20, 20, 5, 0, 0, -1}, 5},
             Case{"longer direction, shorter distance", back, ccw, {20, 20, 5, 0, 0, -2}, 2.5f},
             Case{"oblique", back, ccw, {20, 20, 5, 3, 0, -4}, 1.25f},
             Case{"back", back, ccw, {20, 20, -5, 0, 0, 1}, -1},
             Case{"back, front culled", front, ccw, {20, 20, -5, 0, 0, 1}, 5},
             Case{"front, front culled", front, ccw, {20, 20, 5, 0, 0, -1}, -1},
             Case{"front, clockwise", back, cw, {20, 20, 5, 0, 0, -1}, -1},
             Case{"back, clockwise", back, cw, {20, 20, -5, 0, 0, 1}, 5},
             Case{"front, clockwise, front culled", front, cw, {20, 20, 5, 0, 0, -1}, 5},
             Case{"back, nothing culled", none, ccw, {20, 20, -5, 0, 0, 1}, 5},
             Case{"behind the origin", none, ccw, {20, 20, 5, 0, 0, 1}, -1},
             Case{"origin on it", none, ccw, {20, 20, 0, 0, 0, 1}, 0},
             Case{"parallel", none, ccw, {-5, 20, 1, 1, 0, 0}, -1},
             Case{"in the plane", none, ccw, {-5, 20, 0, 1, 0, 0}, -1},
             Case{"almost parallel", none, ccw, {20, 20, 0, 1, 0, 0.9e-12f}, -1},
             Case{"less parallel", none, ccw, {20, 20, 0, 1, 0, 1.1e-12f}, 0},
             Case{"so long that its square is endless", none, ccw, {20, 20, 5, 0, 0, -1e20f}, 5e-20f},
             Case{"so near that its square vanishes", none, ccw, {20, 20, 1e-23f, 0, 0, -1}, 1e-23f},
             Case{"first corner", none, ccw, {0, 0, 5, 0, 0, -1}, 5},
             Case{"second corner", none, ccw, {100, 0, 5, 0, 0, -1}, 5},
             Case{"third corner", none, ccw, {0, 100, 5, 0, 0, -1}, 5},
             Case{"within 1/10000 of u = 0", none, ccw, {-0.0099f, 20, 5, 0, 0, -1}, 5},
             Case{"beyond it", none, ccw, {-0.0101f, 20, 5, 0, 0, -1}, -1},
             Case{"within 1/10000 of v = 0", none, ccw, {20, -0.0099f, 5, 0, 0, -1}, 5},
             Case{"beyond it", none, ccw, {20, -0.0101f, 5, 0, 0, -1}, -1},
             Case{"within 1/10000 of u + v = 1", none, ccw, {50.0049f, 50.0049f, 5, 0, 0, -1}, 5},
             Case{"beyond it", none, ccw, {50.0051f, 50.0051f, 5, 0, 0, -1}, -1},
             Case{"a direction of NaN", none, ccw, {20, 20, 5, NAN, 0, -1}, -1},
             Case{"an endless direction", none, ccw, {20, 20, 5, 0, 0, -INFINITY}, -1},
             Case{"an endless origin", none, ccw, {20, 20, INFINITY, 0, 0, -1}, -1},
         }) {
        const Held mesh(makeMesh(makeBuffer(kCorner), {makeList({0, 1, 2})}, {makeAppearance(c.culling, c.winding)}));
        const Picked picked = pick(mesh, c.ray);
        EXPECT_EQ(picked.result, QEL_STATUS_OK) << c.what;
        EXPECT_EQ(picked.found, c.distance >= 0) << c.what;
        const Ray& r = c.ray;
        Result result;
        EXPECT_EQ(qelMesh_pick(mesh, r[0], r[1], r[2], r[3], r[4], r[5], nullptr, &result), picked.found) << c.what;
        EXPECT_EQ(qelMesh_pickMultiple(mesh, r[0], r[1], r[2], r[3], r[4], r[5], nullptr, &result), picked.found)
            << c.what;
        EXPECT_EQ(picked.record.intersected, picked.found ? mesh.get() : nullptr) << c.what;
        EXPECT_FLOAT_EQ(picked.record.distance, std::max(c.distance, 0.0f)) << c.what;
    }
}

TEST(Pick, NeverHitsTrianglesWithoutArea) {
    for (const std::vector<int8_t>& positions :
         {std::vector<int8_t>{0, 0, 0, 0, 0, 0, 5, 0, 0}, {0, 0, 0, 5, 0, 0, 10, 0, 0}, {3, 3, 3, 3, 3, 3, 3, 3, 3}}) {
        const Held mesh(makeMesh(positions, {0, 1, 2}));
        for (const float x : {0.0f, 2.0f, 3.0f}) EXPECT_FALSE(pick(mesh, {x, x, 9, 0, 0, -1}).found);
    }
}

TEST(Pick, StripsKeepTheirWinding) {
    const std::vector<int8_t> positions = {9,  9, 9, 0,  0, 0, 10, 0,  0, 0, 10, 0, 10, 10, 0,  // a quadrilateral
                                           20, 0, 0, 30, 0, 0, 20, 10, 0};                      // and a triangle
    const Held mesh(makeMesh(makeBuffer(positions), {makeStrips(1, {4, 3})}, {makeAppearance(Culling::Back)}));
    for (const Ray& ray : {Ray{2, 2, 5, 0, 0, -1}, Ray{8, 8, 5, 0, 0, -1}, Ray{22, 2, 5, 0, 0, -1}}) {
        EXPECT_EQ(pickAll(mesh, ray).records.size(), 1u) << ray[0];
        EXPECT_FALSE(pick(mesh, {ray[0], ray[1], -5, 0, 0, 1}).found) << ray[0];
    }
    EXPECT_FALSE(pick(mesh, {16, 1, 5, 0, 0, -1}).found) << "between the strips";
}

// --- Which hit counts ---

// Triangles across the z axis, submesh i at height heights[i]; null appearances where told.
Mesh* makeStack(const std::vector<int8_t>& heights, const std::vector<bool>& areHidden) {
    std::vector<int8_t> positions;
    std::vector<TriangleStripArray*> strips;
    std::vector<Appearance*> appearances;
    for (size_t i = 0; i < heights.size(); ++i) {
        const int8_t z = heights[i];
        for (const int8_t c : {int8_t(-9), int8_t(-9), z, int8_t(9), int8_t(-9), z, int8_t(0), int8_t(9), z})
            positions.push_back(c);
        strips.push_back(makeList({int32_t(3 * i), int32_t(3 * i + 1), int32_t(3 * i + 2)}));
        appearances.push_back(areHidden[i] ? nullptr : makeAppearance(Culling::None));
    }
    return makeMesh(makeBuffer(positions), strips, appearances);
}

TEST(Pick, KeepsTheNearestAndOfEqualsTheLast) {
    struct Case {
        const char* what;
        std::vector<int8_t> heights;
        std::vector<bool> areHidden;
        int32_t submesh;
        float distance;
    };
    for (const Case& c : {
             Case{"nearest first", {8, 5}, {false, false}, 0, 2},
             Case{"nearest last", {5, 8}, {false, false}, 1, 2},
             Case{"equals", {5, 8, 8, 5}, {false, false, false, false}, 2, 2},
             Case{"hidden ones", {8, 5, 8}, {true, false, true}, 1, 5},
             Case{"distance 0 counts as none", {10, 5}, {false, false}, 1, 5},
             Case{"distance 0 comes last", {5, 10}, {false, false}, 1, 0},
         }) {
        const Held mesh(makeStack(c.heights, c.areHidden));
        const Picked picked = pick(mesh, {0, 0, 10, 0, 0, -1});
        EXPECT_TRUE(picked.found) << c.what;
        EXPECT_EQ(picked.record.submeshIndex, c.submesh) << c.what;
        EXPECT_EQ(picked.record.distance, c.distance) << c.what;
        EXPECT_EQ(picked.record.ray[5], 1) << c.what;  // not written
    }
}

TEST(Pick, TheSharedEdgeOfAQuadrilateralIsHitTwice) {
    const std::vector<int8_t> positions = {0, 0, 0, 10, 0, 0, 10, 10, 0, 0, 10, 0};
    const Held mesh(makeMesh(makeBuffer(positions), {makeList({0, 1, 2}), makeList({0, 2, 3})},
                             {makeAppearance(Culling::Back), makeAppearance(Culling::Back)}));
    const Ray ray = {5, 5, 3, 0, 0, -1};
    EXPECT_EQ(pick(mesh, ray).record.submeshIndex, 1);
    EXPECT_EQ(pickAll(mesh, ray).records.size(), 2u);
}

TEST(Pick, ARecordGoesAlongARowOfMeshes) {
    const Held far(makeStack({2}, {false})), near(makeStack({6}, {false}));
    RayIntersection record;
    qelRayIntersection_initialize(&record);
    Result result;
    EXPECT_TRUE(qelMesh_pick(near, 0, 0, 10, 0, 0, -1, &record, &result));
    EXPECT_FALSE(qelMesh_pick(far, 0, 0, 10, 0, 0, -1, &record, &result));
    EXPECT_EQ(record.intersected, near.get());
    EXPECT_EQ(record.distance, 4);
}

// --- Refusals ---

TEST(Pick, RefusesWhatCannotBePicked) {
    const Held mesh(makeStack({5}, {false}));
    Picked picked = pick(mesh, {0, 0, 10, 0, -0.0f, 0});
    EXPECT_EQ(picked.result, QEL_STATUS_ILLEGAL_ARGUMENT);
    const Held empty(makeMesh(qelVertexBuffer_create(), {makeTriangle()}, {makeAppearance(Culling::None)}));
    picked = pick(empty, {0, 0, 10, 0, 0, -1});
    EXPECT_EQ(picked.result, QEL_STATUS_ILLEGAL_STATE);
    EXPECT_FALSE(picked.found);
    EXPECT_EQ(pick(empty, {0, 0, 10, 0, 0, 0}).result, QEL_STATUS_ILLEGAL_ARGUMENT) << "the direction comes first";
    const Held figure(qelFigureMesh_create());
    Result result;
    EXPECT_FALSE(qelSkinnedMesh_pick(figure, 0, 0, 10, 0, 0, -1, nullptr, &result));
    EXPECT_EQ(result, QEL_STATUS_ILLEGAL_STATE) << "a figure without model";
}

TEST(Pick, StopsAtAnIndexThatHasNoVertex) {
    struct Case {
        const char* what;
        TriangleStripArray* strips;
        size_t hits;  // before it
    };
    for (const Case& c :
         {Case{"third corner of the second", makeList({0, 1, 2, 0, 1, 3, 0, 1, 2}), 1},
          Case{"first corner of the first", makeList({65535, 1, 2, 0, 1, 2}), 0}, Case{"strip", makeStrips(0, {4}), 1},
          Case{"second strip", makeStrips(0, {3, 3}), 1}, Case{"strip behind all", makeStrips(60000, {3}), 0}}) {
        for (const bool isHidden : {false, true}) {
            qelObject3D_ref(c.strips);
            const Held mesh(makeMesh(makeBuffer(kCorner), {c.strips, makeTriangle()},
                                     {isHidden ? nullptr : makeAppearance(Culling::None), nullptr}));
            const Ray ray = {20, 20, 5, 0, 0, -1};
            const PickedAll all = pickAll(mesh, ray);
            EXPECT_EQ(all.result, isHidden ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_STATE) << c.what;
            EXPECT_FALSE(all.found) << c.what;
            EXPECT_EQ(all.records.size(), isHidden ? 0 : c.hits) << c.what;
            EXPECT_EQ(pick(mesh, ray).record.intersected != nullptr, !all.records.empty()) << c.what;
            Result result;
            EXPECT_EQ(qelMesh_pick(mesh, 20, 20, 5, 0, 0, -1, nullptr, &result), !all.records.empty()) << c.what;
        }
        qelObject3D_unref(c.strips);
    }
}

// --- Normals and texture coordinates ---

TEST(Pick, TheNormalIsThatOfTheFaceOnItsFront) {
    const std::vector<int8_t> positions = {0, 0, 0, 0, 30, 0, 0, 0, 40};  // faces +x
    const Held normals(makeArray<int8_t>(3, {0, 0, 127, 0, 0, 127, 0, 0, 127}));
    for (const Winding winding : {Winding::Ccw, Winding::Cw})
        for (const bool hasNormals : {false, true}) {
            VertexBuffer* buffer = makeBuffer(positions);
            if (hasNormals) qelVertexBuffer_setNormals(buffer, normals);
            const Held mesh(makeMesh(buffer, {makeTriangle()}, {makeAppearance(Culling::None, winding)}));
            const RayIntersection record = pick(mesh, {5, 5, 5, -1, 0, 0}).record;
            const float x = winding == Winding::Ccw ? 1 : -1;
            EXPECT_THAT(record.normal, hasNormals ? ElementsAre(x, 0.0f, 0.0f) : ElementsAre(0.0f, 0.0f, 1.0f));
        }
}

struct TextureCase {
    const char* what;
    std::vector<int8_t> positions, coordinates;  // the latter per vertex
    Ray ray;
    float s, t;
};

TEST(Pick, TextureCoordinatesAreFittedToTheFirstPairOfAxesThatSpans) {
    for (const TextureCase& c : {
             TextureCase{
                 "x and y", {0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 0, 1, 0, 0, 1}, {.25f, .5f, 9, 0, 0, -1}, .25f, .5f},
             TextureCase{
                 "y and z", {0, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 1, 0, 0, 1}, {9, .25f, .5f, -1, 0, 0}, .25f, .5f},
             TextureCase{
                 "x and z", {0, 0, 0, 1, 0, 0, 0, 0, 1}, {0, 0, 1, 0, 0, 1}, {.25f, 9, .5f, 0, -1, 0}, .25f, .5f},
             TextureCase{"offset", {1, 1, 3, 5, 1, 4, 1, 9, 7}, {10, 20, 50, 20, 10, 60}, {2, 3, 9, 0, 0, -1}, 20, 30},
         }) {
        VertexBuffer* buffer = makeBuffer(c.positions);
        const Held coords(makeArray<int8_t>(2, c.coordinates));
        qelVertexBuffer_setTexCoords(buffer, 0, coords, 1, nullptr);
        const float bias[] = {100, 200};
        qelVertexBuffer_setTexCoords(buffer, 1, coords, -2, bias);
        const Held mesh(makeMesh(buffer, {makeTriangle()}, {makeAppearance(Culling::None)}));
        const Picked picked = pick(mesh, c.ray);
        ASSERT_TRUE(picked.found) << c.what;
        EXPECT_FLOAT_EQ(picked.record.textureS[0], c.s) << c.what;
        EXPECT_FLOAT_EQ(picked.record.textureT[0], c.t) << c.what;
        EXPECT_FLOAT_EQ(picked.record.textureS[1], 100 - 2 * c.s) << c.what;
        EXPECT_FLOAT_EQ(picked.record.textureT[1], 200 - 2 * c.t) << c.what;
    }
}

Texture2D* makeTexture() {
    Result result;
    const uint8_t white[] = {255};
    const Held image(qelImage2D_createFromPixels(97, 1, 1, white, true, &result));
    return qelTexture2D_create(image, &result);
}

TEST(Pick, TextureCoordinatesPassThroughTheTexturesTransform) {
    VertexBuffer* buffer = makeBuffer(kCorner);
    const Held coords(makeArray<int16_t>(3, {0, 0, 1, 100, 0, 1, 0, 100, 1}));
    const float bias[] = {0, 0, 1};
    qelVertexBuffer_setTexCoords(buffer, 1, coords, 1, bias);  // r is 2
    const Held texture(makeTexture());
    qelTransform matrix;
    const float rows[16] = {0, 1, 0, 0, 1, 0, 3, 0, 0, 0, 1, 0, 0, 0, 0, 4};  // swaps s and t, t + 3r; over 4
    qelTransform_set_fl(&matrix, rows);
    ASSERT_EQ(qelTransformable_setTransform(texture, &matrix), QEL_STATUS_OK);
    qelTransformable_setTranslation(texture, 5, 0, 0);
    Appearance* appearance = makeAppearance(Culling::None);
    qelAppearance_setTexture(appearance, 1, texture);
    const Held mesh(makeMesh(buffer, {makeTriangle()}, {appearance}));
    const RayIntersection record = pick(mesh, {20, 40, 9, 0, 0, -1}).record;
    EXPECT_FLOAT_EQ(record.textureS[1], 40.0f / 4 + 5);
    EXPECT_FLOAT_EQ(record.textureT[1], (20.0f + 3 * 2) / 4);
    EXPECT_EQ(record.textureS[0], 0);
}

TEST(Pick, UnitsWithTooFewCoordinatesAreLeftAlone) {
    VertexBuffer* buffer = makeBuffer(kCorner);
    const Held coords(makeArray<int8_t>(2, {9, 9, 9, 9}));
    qelVertexBuffer_setTexCoords(buffer, 0, coords, 1, nullptr);
    const Held mesh(makeMesh(buffer, {makeTriangle()}, {makeAppearance(Culling::None)}));
    EXPECT_EQ(pick(mesh, {20, 20, 9, 0, 0, -1}).record.textureS[0], 0);
}

// --- Deformed meshes ---

TEST(Pick, MorphsFirst) {
    const Held base(makeBuffer(kCorner)), target(makeBuffer<int8_t>({0, 0, 40, 100, 0, 40, 0, 100, 40}));
    const Held triangle(makeTriangle());
    const Held appearance(makeAppearance(Culling::None));
    VertexBuffer* const targets[] = {target};
    TriangleStripArray* const strips[] = {triangle};
    Appearance* const appearances[] = {appearance};
    Result result;
    const Held mesh(qelMorphingMesh_create(base, targets, strips, appearances, 1, 1, &result));
    RayIntersection record;
    for (const float weight : {0.5f, 1.0f, 0.0f}) {
        qelMorphingMesh_setWeights(mesh, &weight);
        qelRayIntersection_initialize(&record);
        ASSERT_TRUE(qelMorphingMesh_pick(mesh, 20, 20, 90, 0, 0, -1, &record, &result));
        EXPECT_EQ(record.distance, 90 - 40 * weight);
        EXPECT_EQ(record.intersected, mesh.get());
    }
    const Held colors(makeArray<int8_t>(3, {1, 2, 3}));
    qelVertexBuffer_setColors(target, colors);
    EXPECT_FALSE(qelMorphingMesh_pick(mesh, 20, 20, 90, 0, 0, 0, &record, &result));
    EXPECT_EQ(result, QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_FALSE(qelMorphingMesh_pick(mesh, 20, 20, 90, 0, 0, -1, &record, &result));
    EXPECT_EQ(result, QEL_STATUS_ILLEGAL_STATE) << "the base has no colours";
    EXPECT_FALSE(qelMorphingMesh_pickMultiple(mesh, 20, 20, 90, 0, 0, -1, nullptr, &result));
}

TEST(Pick, SkinsFirst) {
    const Held buffer(makeBuffer(kCorner));
    const Held triangle(makeTriangle());
    const Held appearance(makeAppearance(Culling::None));
    const Held skeleton(qelGroup_create());
    TriangleStripArray* const strips[] = {triangle};
    Appearance* const appearances[] = {appearance};
    Result result;
    const Held mesh(qelSkinnedMesh_create(buffer, strips, appearances, skeleton, 1, &result));
    ASSERT_EQ(qelSkinnedMesh_addTransform(mesh, skeleton, 1, 0, 3), QEL_STATUS_OK);
    RayIntersectionArray array;
    qelRayIntersectionArray_initialize(&array);
    for (const float z : {0.0f, 7.0f}) {
        qelTransformable_setTranslation(skeleton, 0, 0, z);
        ASSERT_TRUE(qelSkinnedMesh_pickMultiple(mesh, 20, 20, 90, 0, 0, -1, &array, &result));
        EXPECT_EQ(array.records[array.count - 1].distance, 90 - z);
        EXPECT_EQ(array.records[array.count - 1].intersected, mesh.get());
    }
    qelRayIntersectionArray_finalize(&array);
    ASSERT_EQ(qelSkinnedMesh_addTransform(mesh, skeleton, 1, 0, 4), QEL_STATUS_OK);  // one vertex too many
    EXPECT_FALSE(qelSkinnedMesh_pick(mesh, 20, 20, 90, 0, 0, -1, nullptr, &result));
    EXPECT_EQ(result, QEL_STATUS_ILLEGAL_STATE);
}

// --- All together, against a slow calculation ---

using Double3 = std::array<double, 3>;

Double3 operator-(const Double3& a, const Double3& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
double dot(const Double3& a, const Double3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
Double3 cross(const Double3& a, const Double3& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

// Where the line through o along d meets a triangle: corner weights w1 and w2, and the way in lengths of d. By Cramer's
// rule, where the library goes through the plane.
struct Meeting {
    double w1, w2, way, volume;
};
Meeting meet(const Double3 (&p)[3], const Double3& o, const Double3& d) {
    const Double3 a = p[1] - p[0], b = p[2] - p[0], s = o - p[0];
    const double volume = dot(a, cross(d, b));
    return {dot(s, cross(d, b)) / volume, dot(d, cross(s, a)) / volume, dot(b, cross(s, a)) / volume, volume};
}

TEST(Pick, AgreesWithASlowCalculation) {
    std::mt19937 random(11);
    const auto uniform = [&](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    int hitCount = 0;
    for (int round = 0; round < 600; ++round) {
        std::vector<int16_t> positions, coords;
        std::vector<int32_t> indices;
        for (int32_t i = 0; i < 60; ++i) {
            indices.push_back(i);
            for (int c = 0; c < 3; ++c) positions.push_back(int16_t(uniform(-1000, 1000)));
            for (int c = 0; c < 2; ++c) coords.push_back(int16_t(uniform(-100, 100)));
        }
        VertexBuffer* buffer = makeBuffer(positions, 0.25f, {100, -200, 50});
        const Held array(makeArray<int16_t>(2, coords));
        qelVertexBuffer_setTexCoords(buffer, 0, array, 0.5f, nullptr);
        const Held mesh(makeMesh(buffer, {makeList(indices)}, {makeAppearance(Culling::Back)}));
        const Double3 o = {uniform(-150, 350), uniform(-450, 50), uniform(-200, 300)};
        const Double3 d = {uniform(-1, 1), uniform(-1, 1), uniform(-1, 1)};
        const PickedAll all =
            pickAll(mesh, {float(o[0]), float(o[1]), float(o[2]), float(d[0]), float(d[1]), float(d[2])});

        size_t next = 0;
        bool isClear = true;
        for (size_t i = 0; isClear && i < indices.size(); i += 3) {
            Double3 p[3];
            for (size_t k = 0; k < 3; ++k)
                for (size_t c = 0; c < 3; ++c)
                    p[k][c] = positions[3 * (i + k) + c] * 0.25 + std::array{100, -200, 50}[c];
            const auto [w1, w2, way, volume] = meet(p, o, d);
            const double margin = std::min({w1, w2, 1 - w1 - w2});
            isClear = std::fabs(margin) > 0.001 && std::fabs(way) > 0.01 && std::fabs(volume) > 100;
            if (!isClear || margin < 0 || way < 0 || volume < 0) continue;  // seen from behind: n d = -volume > 0
            ASSERT_LT(next, all.records.size()) << round;
            const RayIntersection& record = all.records[next++];
            EXPECT_NEAR(record.distance, way, 1e-4 * (1 + way));
            const double s = (1 - w1 - w2) * coords[2 * i] + w1 * coords[2 * i + 2] + w2 * coords[2 * i + 4];
            EXPECT_NEAR(record.textureS[0], s * 0.5, 0.2);
            ++hitCount;
        }
        EXPECT_TRUE(!isClear || next == all.records.size());
    }
    EXPECT_GT(hitCount, 150);
}

// A plane along an axis has no area in one of the three projections, but what rounding makes of it.
TEST(Pick, TextureCoordinatesHoldOnFloorsAndWalls) {
    struct Case {
        const char* what;
        int32_t slope, height;  // y = slope x + height
        float scale;
    };
    std::mt19937 random(12);
    const auto uniform = [&](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    for (const Case& c : {Case{"floor", 0, 3, 1}, Case{"scaled floor", 0, 577, 0.01f}, Case{"wall", 2, 7, 0.01f}})
        for (int round = 0; round < 300; ++round) {
            std::vector<int16_t> positions, coords;
            Double3 p[3];
            for (Double3& at : p) {
                const int32_t x = int32_t(uniform(-1000, 1000)), z = int32_t(uniform(-1000, 1000));
                size_t i = 0;
                for (const int32_t component : {x, c.slope * x + c.height, z}) {
                    positions.push_back(int16_t(component));
                    at[i++] = component * double(c.scale);
                }
                for (int k = 0; k < 2; ++k) coords.push_back(int16_t(uniform(-1000, 1000)));
            }
            const Double3 normal = cross(p[1] - p[0], p[2] - p[0]), side = p[2] - p[1];
            if (dot(normal, normal) < 0.01 * dot(p[1] - p[0], p[1] - p[0]) * dot(side, side)) continue;
            VertexBuffer* buffer = makeBuffer(positions, c.scale);
            const Held array(makeArray<int16_t>(2, coords));
            qelVertexBuffer_setTexCoords(buffer, 0, array, 1, nullptr);
            const Held mesh(makeMesh(buffer, {makeList({0, 1, 2})}, {makeAppearance(Culling::None)}));
            Ray ray;
            const double u = uniform(0.1, 0.5), v = uniform(0.1, 0.4);
            const Double3 d = {1, -1, 0.1};
            for (size_t i = 0; i < 3; ++i) {
                ray[i] = float((1 - u - v) * p[0][i] + u * p[1][i] + v * p[2][i] - 5 * d[i]);
                ray[i + 3] = float(d[i]);
            }
            const Picked picked = pick(mesh, ray);
            ASSERT_TRUE(picked.found) << c.what << round;
            const float* const found[] = {picked.record.textureS, picked.record.textureT};
            for (size_t i = 0; i < 2; ++i)
                ASSERT_NEAR(*found[i], (1 - u - v) * coords[i] + u * coords[2 + i] + v * coords[4 + i], 0.1)
                    << c.what << round;
        }
}

}  // namespace
