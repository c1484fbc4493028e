// However a pick is answered (one triangle after another, by fours, from a tree), it is answered as the plain loops of
// bench/plain_pick do, bit for bit.
#include <bit>
#include <cmath>
#include <random>

#include "bench/plain_pick.h"
#include "frame/error_status.h"
#include "query/pick_walk.h"
#include "scene/group.h"
#include "scene/morphing_mesh.h"
#include "scene/skinned_mesh.h"
#include "tests/query/pick_meshes.h"
#include "tests/support/counting_heap.h"
#include "tests/support/figure_fixture.h"

namespace {

constexpr int kPicksUntilTree = 17;  // the one that makes it

// --- Random meshes and rays, of all degrees of hostility ---

class Dice {
public:
    explicit Dice(uint32_t seed) : random_(seed) {}
    int32_t below(int32_t count) { return std::uniform_int_distribution<int32_t>(0, count - 1)(random_); }
    bool oneIn(int32_t count) { return below(count) == 0; }
    double between(double low, double high) { return std::uniform_real_distribution<double>(low, high)(random_); }
    double signedPower(double leastExponent, double mostExponent) {
        return std::exp2(between(leastExponent, mostExponent)) * (oneIn(2) ? 1 : -1);
    }
    template <typename T>
    T any(std::initializer_list<T> values) {
        return values.begin()[below(int32_t(values.size()))];
    }

private:
    std::mt19937 random_;
};

// Vertices in triples: triangles of one size and kind, mostly, some of which share vertices with others.
template <typename T>
std::vector<T> randomPositions(Dice& dice, int32_t vertexCount) {
    constexpr int32_t kLimit = std::numeric_limits<T>::max();
    const int32_t extent = dice.any({3, 20, 100, 127, 1000, kLimit}), range = std::min(extent, kLimit);
    const int32_t size = std::max(1, range / dice.any({1, 4, 30, 200}));
    const int32_t sliverOdds = dice.any({1, 4, 1000});
    std::vector<T> positions;
    const auto push = [&](double value) { positions.push_back(T(std::clamp(value, -kLimit - 1.0, double(kLimit)))); };
    for (int32_t v = 0; v < vertexCount; v += 3) {
        double at[3], e[3], f[3];
        for (int i = 0; i < 3; ++i) {
            at[i] = dice.between(-range, range);
            e[i] = dice.between(-size, size);
            f[i] = dice.between(-size, size);
        }
        if (dice.oneIn(sliverOdds)) {
            const double along = dice.between(-0.5, 1.5), apart = dice.any({0.0, 0.001, 0.01, 0.05, 0.2});
            for (int i = 0; i < 3; ++i) f[i] = e[i] * along + f[i] * apart;
        }
        if (dice.oneIn(3))
            for (double* edge : {e, f}) edge[dice.below(3)] = 0;  // in planes of the axes
        for (int k = 0; k < 3; ++k)
            for (int i = 0; i < 3; ++i) push(at[i] + (k == 1 ? e[i] : k == 2 ? f[i] : 0));
    }
    return positions;
}

float randomScale(Dice& dice) {
    if (dice.oneIn(2)) return dice.any({1.0f, 0.01f, -0.25f, 1.0f / 32767});
    if (dice.oneIn(3))
        return dice.any({0.0f, -0.0f, NAN, INFINITY, 1e-38f, 1e-42f, 3e38f, 0x1p-24f, 0x1p-17f, 0x1p10f, 1025.0f});
    return float(dice.signedPower(-26, 12));
}

std::vector<float> randomBias(Dice& dice, float scale) {
    std::vector<float> bias = {0, 0, 0};
    if (dice.oneIn(2)) return bias;
    for (float& b : bias) {
        b = scale * float(dice.between(-1, 1) * dice.any({1, 100, 30000, 65536, 10000000}));
        if (dice.oneIn(40)) b = dice.any({NAN, INFINITY, 1e30f, 1e-40f});
    }
    return bias;
}

Appearance* randomAppearance(Dice& dice) {
    if (dice.oneIn(8)) return nullptr;
    if (dice.oneIn(8)) return qelAppearance_create();
    return makeAppearance(dice.any({Culling::Back, Culling::Front, Culling::None, Culling::None}),
                          dice.any({Winding::Ccw, Winding::Cw}));
}

TriangleStripArray* randomStrips(Dice& dice, int32_t vertexCount) {
    std::vector<int32_t> numbers;
    if (dice.oneIn(3)) {  // implicit
        const int32_t first = dice.below(vertexCount / 2), most = dice.any({5, 40, 5 + vertexCount / 2});
        for (int32_t end = first; end + 3 <= vertexCount - dice.below(30);)
            end += numbers.emplace_back(3 + dice.below(std::min(most, vertexCount - end) - 2));
        if (dice.oneIn(10)) numbers.push_back(vertexCount);
        return makeStrips(first, numbers.empty() ? std::vector{3} : numbers);
    }
    const bool sharesVertices = dice.oneIn(2);
    for (int32_t i = 0; i < vertexCount / 3 * 3; ++i) {
        const bool isElsewhere = sharesVertices && dice.oneIn(3);
        numbers.push_back(isElsewhere ? std::max(i - dice.below(9), 0) : i);
    }
    if (dice.oneIn(10)) numbers[size_t(dice.below(int32_t(numbers.size())))] = vertexCount + dice.below(2);
    return makeList(numbers);
}

Mesh* randomMesh(Dice& dice) {
    const int32_t vertexCount = 3 * (dice.oneIn(4) ? 1 + dice.below(80) : 256 + dice.below(150));
    const float scale = randomScale(dice);
    const std::vector<float> bias = randomBias(dice, scale);
    VertexBuffer* buffer = dice.oneIn(2) ? makeBuffer(randomPositions<int8_t>(dice, vertexCount), scale, bias)
                                         : makeBuffer(randomPositions<int16_t>(dice, vertexCount), scale, bias);
    std::vector<int8_t> coords;
    for (int32_t i = 0; i < 2 * vertexCount; ++i) coords.push_back(int8_t(dice.below(256) - 128));
    const Held array(makeArray<int8_t>(2, coords)), normals(makeArray<int8_t>(3, {1, 2, 3}));
    qelVertexBuffer_setTexCoords(buffer, 0, array, 0.5f, nullptr);
    if (dice.oneIn(2)) qelVertexBuffer_setNormals(buffer, normals);
    std::vector<TriangleStripArray*> strips;
    std::vector<Appearance*> appearances;
    for (int32_t count = dice.any({1, 1, 2, 5}); count > 0; --count) {
        strips.push_back(randomStrips(dice, vertexCount));
        appearances.push_back(randomAppearance(dice));
    }
    return makeMesh(buffer, strips, appearances);
}

double positionAt(const VertexBuffer* buffer, int32_t vertex, int component) {
    const int32_t i = 3 * vertex + component;
    const VertexArray* array = buffer->positions;
    const int integer = array->componentSize == 1 ? static_cast<const int8_t*>(array->data)[i]
                                                  : static_cast<const int16_t*>(array->data)[i];
    return double(float(integer) * buffer->positionScale + buffer->positionBias[component]);
}

// Aimed at the corners, edges and insides of a triangle, and at places on its line; from near and far, across it and
// along it.
Ray randomRay(Dice& dice, const Mesh* mesh) {
    const VertexBuffer* buffer = mesh->vertexBuffer;
    const int32_t vertex = dice.below(buffer->positions->vertexCount / 3) * 3;
    const double edge = 1e-4 * dice.any({-1.0, 0.0, 1.0}) * dice.between(0.99, 1.01);
    double u = dice.any({edge, 1 + edge, dice.between(0, 1)});
    double v = dice.any({edge, 1 - u + edge, dice.between(0, 1 - u)});
    if (dice.oneIn(6)) u *= dice.signedPower(0, 8), v *= dice.signedPower(0, 8);
    double e[2][3], target[3], d[3];
    for (int i = 0; i < 3; ++i) {
        const double p = positionAt(buffer, vertex, i);
        for (int k = 0; k < 2; ++k) e[k][i] = positionAt(buffer, vertex + 1 + k, i) - p;
        target[i] = p + u * e[0][i] + v * e[1][i];
    }
    const double length = std::fabs(e[0][0]) + std::fabs(e[0][1]) + std::fabs(e[0][2]) + 1e-30;
    const int kind = dice.below(4);
    for (int i = 0; i < 3; ++i) {
        d[i] = length * dice.between(-1, 1);
        if (kind == 1) d[i] = e[0][i] * dice.between(-1, 1) + e[1][i];                        // in the plane, nearly
        if (kind == 2) d[i] = e[0][i] + e[1][i] * 0.3 + length * 1e-4 * dice.between(-1, 1);  // grazing
        if (kind == 3) d[i] *= dice.any({0, 0, 1});                                           // along the axes
    }
    const double distance = dice.oneIn(4) ? dice.signedPower(-2, 40) : dice.between(-0.1, 30);
    const double factor = dice.oneIn(4) ? dice.signedPower(-40, 40) : 1;
    Ray ray;
    for (size_t i = 0; i < 3; ++i) {
        ray[i] = float(target[i] - distance * d[i]);
        ray[i + 3] = float(d[i] * factor);
    }
    if (dice.oneIn(20)) ray[size_t(dice.below(6))] = dice.any({NAN, INFINITY, 3e38f, 1e-42f, -0.0f});
    return ray;
}

// --- The same answers ---

bool isSame(float a, float b) { return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b) || (a != a && b != b); }

bool isSame(const RayIntersection& a, const RayIntersection& b) {
    bool same = isSame(a.distance, b.distance) && a.intersected == b.intersected && a.submeshIndex == b.submeshIndex;
    for (int i = 0; i < 2; ++i) same &= isSame(a.textureS[i], b.textureS[i]) && isSame(a.textureT[i], b.textureT[i]);
    for (int i = 0; i < 3; ++i) same &= isSame(a.normal[i], b.normal[i]);
    for (int i = 0; i < 6; ++i) same &= isSame(a.ray[i], b.ray[i]);
    return same;
}

struct Expected {
    Picked nearest;
    PickedAll all;
    bool any;
    Result anyResult;
};

Expected expectedOf(Mesh* mesh, const Ray& ray) {
    Expected expected;
    qelRayIntersection_initialize(&expected.nearest.record);
    expected.nearest.found =
        plainPick(mesh, mesh->vertexBuffer, ray.data(), &expected.nearest.record, &expected.nearest.result);
    expected.all.found =
        plainPickMultiple(mesh, mesh->vertexBuffer, ray.data(), &expected.all.records, &expected.all.result);
    expected.any = plainPick(mesh, mesh->vertexBuffer, ray.data(), nullptr, &expected.anyResult);
    return expected;
}

void expectSame(const PickedAll& all, const Expected& expected) {
    EXPECT_EQ(all.found, expected.all.found);
    EXPECT_EQ(all.result, expected.all.result);
    ASSERT_EQ(all.records.size(), expected.all.records.size());
    for (size_t i = 0; i < all.records.size(); ++i)
        ASSERT_TRUE(isSame(all.records[i], expected.all.records[i])) << "hit " << i;
}

void expectSamePicks(Mesh* mesh, const Ray& ray, const Expected& expected) {
    expectSame(pickAll(mesh, ray), expected);
    const Picked nearest = pick(mesh, ray);
    EXPECT_EQ(nearest.found, expected.nearest.found);
    EXPECT_EQ(nearest.result, expected.nearest.result);
    EXPECT_TRUE(isSame(nearest.record, expected.nearest.record));
    Result result;
    EXPECT_EQ(qelMesh_pick(mesh, ray[0], ray[1], ray[2], ray[3], ray[4], ray[5], nullptr, &result), expected.any);
    EXPECT_EQ(result, expected.anyResult);
}

// The two walks by themselves.
void expectSameWalks(Mesh* mesh, const Ray& r, const Expected& expected) {
    if (expected.all.result == QEL_STATUS_ILLEGAL_ARGUMENT) return;
    for (const bool isByFours : {false, true}) {
        SCOPED_TRACE(isByFours ? "by fours" : "plainly");
        RayIntersectionArray array{};
        Pick pick = {mesh,  mesh->vertexBuffer, false, {{r[0], r[1], r[2]}, {r[3], r[4], r[5]}}, nullptr, &array,
                     false, QEL_STATUS_OK};
        if (isByFours) {
            std::vector<float> scratch(PickWalk_scratchCount(&pick));
            PickWalk_byFours(&pick, scratch.data());
        } else {
            PickWalk_plain(&pick);
        }
        expectSame(
            {pick.found && pick.result == QEL_STATUS_OK, pick.result, {array.records, array.records + array.count}},
            expected);
        qelRayIntersectionArray_finalize(&array);
    }
}

// Other meshes with --gtest_shuffle --gtest_random_seed=n.
TEST(PickProperty, EveryWayGivesTheSameHits) {
    const auto seed = uint32_t(testing::UnitTest::GetInstance()->random_seed());
    size_t hitCount = 0;
    for (uint32_t round = 0; round < 250; ++round) {
        SCOPED_TRACE(testing::Message() << "seed " << seed << ", round " << round);
        Dice dice(seed * 1000 + round);
        const Held mesh(randomMesh(dice));
        for (int i = 0; i < 20; ++i) {
            const Ray ray = randomRay(dice, mesh);
            SCOPED_TRACE(testing::PrintToString(ray));
            const Expected expected = expectedOf(mesh, ray);
            hitCount += expected.all.records.size();
            if (i < 5) expectSameWalks(mesh, ray, expected);
            expectSamePicks(mesh, ray, expected);
            if (HasFailure()) return;
        }
    }
    EXPECT_GT(hitCount, 2000u);
}

// One triangle, slender or not, alone in its tree; rays past its corners and edges at the distances at which the test's
// rounding takes misses for hits, across it, along it and from afar.
TEST(PickProperty, NoHitIsOutsideItsBox) {
    const auto seed = uint32_t(testing::UnitTest::GetInstance()->random_seed());
    size_t hitCount = 0;
    for (uint32_t round = 0; round < 500; ++round) {
        Dice dice(seed * 1000 + round);
        const bool isNeedle = dice.oneIn(2);  // along a line, where rounding alone decides
        const double slenderness = std::exp2(dice.between(-9, 0)), size = std::exp2(dice.between(4, 15));
        std::vector<int16_t> positions;
        double e[2][3];
        for (int i = 0; i < 3; ++i) {
            e[0][i] = size * dice.between(-1, 1);
            e[1][i] =
                isNeedle ? e[0][i] * 2 : e[0][i] * dice.between(-0.1, 2) + size * slenderness * dice.between(-1, 1);
        }
        for (const double* edge : {static_cast<double*>(nullptr), e[0], e[1]})
            for (int i = 0; i < 3; ++i) positions.push_back(int16_t((edge ? edge[i] : 0) / 2));
        const float scale = dice.any({1.0f, 0.1f, float(dice.signedPower(-20, 8))});
        const std::vector<float> bias = {scale * float(dice.between(-60000, 60000)), scale, 0};
        std::vector<int32_t> indices(3 * 256);  // the others have no area
        indices[1] = 1;
        indices[2] = 2;
        const Held mesh(
            makeMesh(makeBuffer(positions, scale, bias), {makeList(indices)}, {makeAppearance(Culling::None)}));
        for (int i = 0; i < kPicksUntilTree; ++i) pick(mesh, {0, 0, 0, 1, 0, 0});
        for (int i = 0; i < 30; ++i) {
            const double spread = 1e-4 + 0x1p-23 / (slenderness * slenderness);
            double u = dice.between(0, 1), v = dice.between(0, 1 - u);
            if (dice.oneIn(2)) u = dice.any({0, 1}) + spread * dice.between(-1, 1);
            if (dice.oneIn(2)) v = dice.any({0.0, 1 - u}) + spread * dice.between(-1, 1);
            if (isNeedle) u *= dice.signedPower(0, 10);
            Ray ray;
            const double way = dice.oneIn(3) ? dice.signedPower(-2, 20) : dice.between(0, 4),
                         across = dice.any({1.0, 1e-3});
            for (int c = 0; c < 3; ++c) {
                const double p = positionAt(mesh->vertexBuffer, 0, c), a = positionAt(mesh->vertexBuffer, 1, c) - p,
                             b = positionAt(mesh->vertexBuffer, 2, c) - p;
                const double d = (1 - across) * (a + 0.5 * b) + across * size * scale * dice.between(-1, 1);
                ray[size_t(c)] = float(p + u * a + v * b - way * d);
                ray[size_t(c) + 3] = float(d);
            }
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", round " << round << testing::PrintToString(ray));
            const Expected expected = expectedOf(mesh, ray);
            hitCount += expected.all.records.size();
            expectSameWalks(mesh, ray, expected);
            expectSamePicks(mesh, ray, expected);
            if (HasFailure()) return;
        }
    }
    EXPECT_GT(hitCount, 2000u);
}

TEST(PickProperty, FiguresAreAsTheyWerePosedLast) {
    std::mt19937 random(5);
    const Held figure(loadFigure(randomFigure(random, {.vertexCount = 900, .boneCount = 3, .hasNormals = true})));
    Dice dice(7);
    size_t hitCount = 0;
    for (int32_t step = 0; step < 40; ++step) {
        Ray ray;
        const VertexBuffer* skinned = figure->skinnedBuffer;
        for (int i = 0; i < 3; ++i) {
            ray[size_t(i)] = float(positionAt(skinned, dice.below(skinned->positions->vertexCount), i));
            ray[size_t(i) + 3] = float(dice.between(-1, 1));
        }
        Result result, expectedResult;
        std::vector<RayIntersection> expected;
        const bool found = plainPickMultiple(figure, skinned, ray.data(), &expected, &expectedResult);
        RayIntersectionArray array{};
        EXPECT_EQ(qelSkinnedMesh_pickMultiple(figure, ray[0], ray[1], ray[2], ray[3], ray[4], ray[5], &array, &result),
                  found);
        ASSERT_EQ(size_t(array.count), expected.size());
        for (size_t i = 0; i < expected.size(); ++i) EXPECT_TRUE(isSame(array.records[i], expected[i]));
        hitCount += expected.size();
        qelRayIntersectionArray_finalize(&array);
        if (step % 20 != 19) continue;  // picked often enough for a tree
        for (uint32_t b = 0; b < figure->bones.boneCount; ++b) {
            figure->bones.local[b] = {{0, -4096, 0, 100, 4096, 0, 0, int32_t(50 * b), 0, 0, 4096, 0}};
            figure->bones.bones[b].changed = 1;
        }
        _Figure_blendVertices(figure);
    }
    EXPECT_GT(hitCount, 40u);
}

// --- Trees come and go ---

constexpr int32_t kGrid = 24;  // cells each way

// A bumpy sheet; strips along it, or one list.
template <typename T>
VertexBuffer* makeSheet() {
    std::vector<T> positions;
    for (int32_t y = 0; y <= kGrid; ++y)
        for (int32_t x = 0; x <= kGrid; ++x)
            for (const int32_t c : {5 * (x - kGrid / 2), 5 * (y - kGrid / 2), x * y % 7}) positions.push_back(T(c));
    return makeBuffer(positions);
}

TriangleStripArray* makeSheetList(int32_t firstRow, int32_t endRow) {
    std::vector<int32_t> indices;
    for (int32_t y = firstRow; y < endRow; ++y)
        for (int32_t x = 0; x < kGrid; ++x) {
            const int32_t a = y * (kGrid + 1) + x, b = a + kGrid + 1;
            for (const int32_t corner : {a, a + 1, b, b, a + 1, b + 1}) indices.push_back(corner);
        }
    return makeList(indices);
}

const Ray kDown = {0.3f, 0.2f, 50, 0.01f, 0, -1};

TEST(PickTree, ChangesShowAtOnce) {
    const Held mesh(makeMesh(makeSheet<int16_t>(), {makeSheetList(0, kGrid)}, {makeAppearance(Culling::Back)}));
    VertexArray* positions = mesh->vertexBuffer->positions;
    for (int i = 0; i <= kPicksUntilTree; ++i) EXPECT_LT(pick(mesh, kDown).record.distance, 51);
    mesh->vertexBuffer->positionScale = 2;  // the tree serves any scale ...
    expectSamePicks(mesh, kDown, expectedOf(mesh, kDown));
    const Held hidden(makeAppearance(Culling::Front));
    qelMesh_setAppearance(mesh, 0, hidden);  // ... and appearance
    EXPECT_FALSE(pick(mesh, kDown).found);
    qelMesh_setAppearance(mesh, 0, nullptr);
    EXPECT_FALSE(pick(mesh, kDown).found);
    const Held shown(makeAppearance(Culling::Back));
    qelMesh_setAppearance(mesh, 0, shown);
    EXPECT_NE(positions->pickTree, nullptr);
    auto moved = valuesOf<int16_t>(positions);
    for (size_t i = 2; i < moved.size(); i += 3) moved[i] = int16_t(moved[i] - 1000);
    qelVertexArray_set16(positions, 0, positions->vertexCount, moved.data());
    EXPECT_EQ(positions->pickTree, nullptr);
    EXPECT_GT(pick(mesh, kDown).record.distance, 2000);
}

// Neighbours that lie in one leaf, seen from above, from below and not at all.
TEST(PickTree, SubmeshesCullForThemselves) {
    std::vector<int32_t> indices[3];
    for (int32_t y = 0; y < kGrid; ++y)
        for (int32_t x = 0; x < kGrid; ++x) {
            const int32_t a = y * (kGrid + 1) + x, b = a + kGrid + 1;
            for (const int32_t corner : {a, a + 1, b, b, a + 1, b + 1}) indices[(x + y) % 3].push_back(corner);
        }
    const Held mesh(makeMesh(makeSheet<int16_t>(), {makeList(indices[0]), makeList(indices[1]), makeList(indices[2])},
                             {makeAppearance(Culling::Back), makeAppearance(Culling::Front), nullptr}));
    for (int i = 0; i < kPicksUntilTree; ++i) pick(mesh, kDown);
    for (int32_t cell = 0; cell < kGrid; ++cell)
        for (const float z : {50.0f, -50.0f}) {
            const Ray ray = {5.0f * float(cell - kGrid / 2) + 1.7f, 0.3f, z, 0.01f, 0, -z};
            expectSamePicks(mesh, ray, expectedOf(mesh, ray));
        }
}

TEST(PickTree, OfMeshesOverTheSamePositionsTheOnePickedMostHasIt) {
    CountingHeap heap;
    VertexBuffer* buffer = makeSheet<int8_t>();
    qelObject3D_ref(buffer);
    const Held upper(makeMesh(buffer, {makeSheetList(kGrid / 2, kGrid)}, {makeAppearance(Culling::None)}));
    const Held lower(makeMesh(buffer, {makeSheetList(0, kGrid / 2)}, {makeAppearance(Culling::None)}));
    const Ray up = {1.3f, 10.2f, 50, 0.01f, 0, -1}, down = {1.3f, -10.2f, 50, 0.01f, 0, -1};
    const auto pickOften = [&](Mesh* mesh, int count) {
        for (int i = 0; i < count; ++i) {
            EXPECT_EQ(pick(mesh, up).found, mesh == upper.get()) << i;
            EXPECT_EQ(pick(mesh, down).found, mesh == lower.get()) << i;
        }
    };
    // A pick that asks a tree allocates nothing; one that walks has its vertices.
    const auto hasTree = [&](Mesh* mesh) {
        const int32_t calls = heap.calls();
        pick(mesh, up);
        return heap.calls() == calls;
    };
    pickOften(upper, 9);
    EXPECT_TRUE(hasTree(upper));
    pickOften(lower, 7);  // 14 picks are fewer than the 16 that are worth a tree
    EXPECT_TRUE(hasTree(upper));
    pickOften(upper, 6);
    pickOften(lower, 7);
    EXPECT_TRUE(hasTree(upper));
    for (int i = 0; i < 12; ++i) {
        pickOften(lower, 3);
        pickOften(upper, 1);
    }
    EXPECT_TRUE(hasTree(lower));
    EXPECT_FALSE(hasTree(upper));
    EXPECT_TRUE(hasTree(lower));
}

// 500 submeshes that share a strip: small content, but a tree of 500 times its triangles would not be.
TEST(PickTree, SharedStripsAreNoReasonForALargeTree) {
    CountingHeap heap;
    constexpr int32_t kVertices = 3000, kSubmeshes = 500;
    const std::vector<int8_t> positions(3 * kVertices);
    TriangleStripArray* strips = makeStrips(0, {kVertices});
    for (int i = 1; i < kSubmeshes; ++i) qelObject3D_ref(strips);
    const Held mesh(makeMesh(makeBuffer(positions), std::vector(kSubmeshes, strips),
                             std::vector<Appearance*>(kSubmeshes, nullptr)));
    for (int i = 0; i <= kPicksUntilTree; ++i) EXPECT_FALSE(pick(mesh, kDown).found);
    EXPECT_LT(heap.peakBytes(), 100 * kVertices);
}

TEST(PickTree, TakesNoMoreThanItMay) {
    CountingHeap heap;
    {
        constexpr int64_t kTriangles = 2 * kGrid * kGrid;
        const Held mesh(makeMesh(makeSheet<int16_t>(), {makeSheetList(0, kGrid)}, {makeAppearance(Culling::None)}));
        const int64_t before = heap.liveBytes();
        for (int i = 1; i <= kPicksUntilTree + 1; ++i) {
            pick(mesh, kDown);
            const int64_t kept = heap.liveBytes() - before;
            EXPECT_LE(kept, i < kPicksUntilTree ? 64 : 16 * kTriangles) << "pick " << i;
            EXPECT_GE(kept, i < kPicksUntilTree ? 1 : 8 * kTriangles) << "pick " << i;
        }
    }
    EXPECT_EQ(heap.liveBlocks(), 0);
}

// A mesh of nothing but needles gets no tree, and is asked for one once.
TEST(PickTree, NeedlesAreWalked) {
    std::vector<int16_t> positions;
    std::vector<int32_t> indices;
    for (int32_t i = 0; i < 300; ++i) {
        for (const int32_t c : {0, i, 0, 30000, i, 0, 15000, i, 1}) positions.push_back(int16_t(c));
        for (int32_t k = 0; k < 3; ++k) indices.push_back(3 * i + k);
    }
    const Held mesh(makeMesh(positions, indices));
    const Ray ray = {15000, 50, 0.5f, 0.001f, 1, 0};
    const Expected expected = expectedOf(mesh, ray);
    for (int i = 0; i < kPicksUntilTree; ++i) expectSamePicks(mesh, ray, expected);
    CountingHeap heap;
    pick(mesh, ray);
    EXPECT_LE(heap.calls(), 1);  // the walk's vertices
}

// --- When memory runs out ---

TEST(PickMemory, OnlyRecordsAreMissed) {
    for (const FailMode mode : {FailMode::Once, FailMode::FromThenOn}) {
        const int32_t allocations = sweepEngineAllocations(mode, [](CountingHeap& heap) {
            const Held mesh(makeMesh(makeSheet<int16_t>(), {makeSheetList(0, kGrid)}, {makeAppearance(Culling::None)}));
            if (heap.hasFailed()) return;
            for (const int times : {0, kPicksUntilTree + 1}) {  // in a walk, and in a tree
                for (int i = 0; i < times; ++i) {
                    qelStatus_set(QEL_STATUS_ILLEGAL_STATE);
                    const Picked picked = pick(mesh, kDown);
                    EXPECT_TRUE(picked.found);
                    EXPECT_EQ(picked.result, QEL_STATUS_OK);
                    EXPECT_EQ(qelStatus_get(), QEL_STATUS_ILLEGAL_STATE);
                }
                // 48 hits or so along a row of the sheet: two blocks.
                const PickedAll all = pickAll(mesh, {-100, 0.5f, 3.3f, 1, 0, 0});
                EXPECT_EQ(all.found, all.result == QEL_STATUS_OK);
                EXPECT_TRUE(all.found ? all.records.size() > 16 : all.result == QEL_STATUS_OUT_OF_MEMORY);
                EXPECT_EQ(qelStatus_get(), all.result);
            }
        });
        EXPECT_GT(allocations, 30);
    }
}

TEST(PickMemory, DeformingGivesItsOwnCodes) {
    sweepEngineAllocations(FailMode::Once, [](CountingHeap& heap) {
        const Held base(makeBuffer<int8_t>({0, 0, 0, 9, 0, 0, 0, 9, 0}));
        const Held triangle(makeTriangle());
        const Held appearance(makeAppearance(Culling::None));
        const Held skeleton(qelGroup_create());
        const Held wider(makeArray<int16_t>(3, {0, 0, 0, 9, 0, 0, 0, 9, 0}));
        if (heap.hasFailed()) return;
        TriangleStripArray* const strips[] = {triangle};
        Appearance* const appearances[] = {appearance};
        VertexBuffer* const targets[] = {base};
        Result result;
        const Held morphing(qelMorphingMesh_create(base, targets, strips, appearances, 1, 1, &result));
        const Held skinned(qelSkinnedMesh_create(base, strips, appearances, skeleton, 1, &result));
        if (heap.hasFailed() || qelSkinnedMesh_addTransform(skinned, skeleton, 1, 0, 3) != QEL_STATUS_OK) return;
        qelVertexBuffer_setPositions(base, wider, 1, nullptr);  // both have to make their buffers anew
        const bool morphs = qelMorphingMesh_pick(morphing, 1, 1, 5, 0, 0, -1, nullptr, &result);
        EXPECT_EQ(result, morphs ? QEL_STATUS_OK : QEL_STATUS_OUT_OF_MEMORY);
        const bool skins = qelSkinnedMesh_pick(skinned, 1, 1, 5, 0, 0, -1, nullptr, &result);
        EXPECT_EQ(result, skins ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_STATE);
    });
}

}  // namespace
