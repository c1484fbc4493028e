#include "scene/skinned_mesh.h"

#include <cmath>
#include <random>

#include "frame/error_status.h"
#include "scene/appearance.h"
#include "scene/duplicate.h"
#include "scene/material.h"
#include "scene/skinning_kernel.h"
#include "scene/world.h"
#include "tests/scene/held.h"
#include "tests/scene/matrices.h"
#include "tests/support/counting_heap.h"

constexpr Result kOk = QEL_STATUS_OK;

// --- An independent calculation ---

static Matrix translation(float x, float y, float z) { return {1, 0, 0, x, 0, 1, 0, y, 0, 0, 1, z, 0, 0, 0, 1}; }

static int32_t wrapped(int64_t value) { return int32_t(uint32_t(uint64_t(value))); }

static int32_t fixed(float value) { return wrapped(int64_t(double(value) * 4096)); }

static int32_t rounded(int32_t v) {
    if (v > 0) return int32_t(std::floor(wrapped(int64_t(v) + 2253) / 4096.0));
    return wrapped(-int64_t(std::floor(wrapped(2253 - int64_t(v)) / 4096.0)));
}

struct Influence {
    size_t bone;
    int32_t weight;  // 20.12
};

// Everything that skinning depends on.
struct Model {
    std::vector<int32_t> positions, normals;
    int32_t positionMax, normalMax;  // of the storage
    float scale;
    std::array<float, 3> bias;
    std::vector<Matrix> bones;  // world x rest
    std::vector<std::vector<Influence>> influences;
};

struct Skinned {
    std::vector<int32_t> positions, normals;
    float scale;
    int passes;
};

using Triple = std::array<int32_t, 3>;

static int64_t rowTimes(const Matrix& m, size_t row, const int32_t* v) {
    int64_t sum = 0;
    for (size_t k = 0; k < 3; ++k) sum = wrapped(sum + wrapped(int64_t(fixed(m[4 * row + k])) * v[k]));
    return sum;
}

static Triple skinPosition(const Model& model, float scale, const int32_t* v,
                           const std::vector<Influence>& influences) {
    Matrix toUnits = translation(model.bias[0] / scale, model.bias[1] / scale, model.bias[2] / scale);
    toUnits[15] = 1 / scale;
    Triple out;
    for (size_t row = 0; row < 3; ++row) {
        int64_t sum = 0;
        for (const Influence& influence : influences) {
            const Matrix m = product(model.bones[influence.bone], toUnits);
            const int32_t moved = rounded(wrapped(rowTimes(m, row, v) + fixed(m[4 * row + 3])));
            sum = wrapped(sum + wrapped(int64_t(moved) * influence.weight));
        }
        out[row] = rounded(wrapped(sum - fixed(model.bias[row] / scale)));
    }
    return out;
}

static Triple skinNormal(const Model& model, const int32_t* v, const std::vector<Influence>& influences) {
    Triple out;
    for (size_t row = 0; row < 3; ++row) {
        int64_t sum = 0;
        for (const Influence& influence : influences) {
            Matrix m = model.bones[influence.bone];
            if (const std::optional<LongMatrix> inverted = inverse(m))
                for (size_t k = 0; k < 16; ++k) m[k] = float((*inverted)[4 * (k % 4) + k / 4]);  // transposed
            sum = wrapped(sum + wrapped(int64_t(wrapped(rowTimes(m, row, v) + 2253) >> 12) * influence.weight));
        }
        out[row] = wrapped(sum + 2253) >> 12;
    }
    const auto fits = [&](int32_t component) {
        return component <= model.normalMax && component >= -model.normalMax - 1;
    };
    while (!std::all_of(out.begin(), out.end(), fits))
        for (int32_t& component : out) component = int32_t(std::floor(component / 2.0));
    return out;
}

static Skinned skin(const Model& model) {
    Skinned out{model.positions, model.normals, model.scale, 1};
    std::vector<int32_t> base = model.positions;
    for (size_t i = 0; i < model.influences.size(); ++i) {
        if (model.influences[i].empty()) continue;
        const Triple p = skinPosition(model, out.scale, &base[3 * i], model.influences[i]);
        std::copy(p.begin(), p.end(), out.positions.begin() + std::ptrdiff_t(3 * i));
        const auto [low, high] = std::minmax({p[0], p[1], p[2]});
        if (high <= model.positionMax && low >= -model.positionMax - 1) continue;
        const int32_t largest = std::max(std::abs(low), std::abs(high));
        out.scale = float(largest) * out.scale * (model.positionMax == 127 ? 0.01f : 0.00004f);
        for (size_t k = 0; k < base.size(); ++k)
            base[k] = int32_t(std::round(float(model.positions[k]) * model.scale / out.scale));
        out.positions = base;
        ++out.passes;
        i = size_t(-1);  // all over again
    }
    for (size_t i = 0; i < model.influences.size() && !model.normals.empty(); ++i) {
        if (model.influences[i].empty()) continue;
        const Triple n = skinNormal(model, &model.normals[3 * i], model.influences[i]);
        std::copy(n.begin(), n.end(), out.normals.begin() + std::ptrdiff_t(3 * i));
    }
    return out;
}

// --- Skinned meshes for tests ---

static void setMatrix(Node* node, const Matrix& m) {
    qelTransform t;
    qelTransform_set_fl(&t, m.data());
    ASSERT_EQ(qelTransformable_setTransform(node, &t), kOk);
}

template <typename T>
static void setPositions(VertexBuffer* buffer, const std::vector<T>& values, float scale = 1) {
    const Held array(makeArray<T>(3, values));
    qelVertexBuffer_setPositions(buffer, array, scale, nullptr);
}

// A chain of bones under the skeleton, and a mesh over a buffer, with a material so that normals are skinned. Nothing
// of it may be there when memory has run out.
struct Puppet {
    explicit Puppet(VertexBuffer* adopted, size_t boneCount = 1) : buffer(adopted) {
        if (!buffer.get() || !triangle.get() || !appearance.get() || !material.get() || !skeleton.get()) return;
        qelAppearance_setMaterial(appearance, material);
        Group* parent = skeleton;
        for (size_t i = 0; i < boneCount; ++i) {
            const Held bone(qelGroup_create());
            if (!bone.get() || qelGroup_addChild(parent, bone) != kOk) return;
            bones.push_back(parent = bone);
        }
        TriangleStripArray* const strips[] = {triangle};
        Appearance* const appearances[] = {appearance};
        mesh = qelSkinnedMesh_create(buffer, strips, appearances, skeleton, 1, &result);
    }
    ~Puppet() { qelObject3D_unref(mesh); }
    Group* bone(size_t i) const { return bones[i]; }
    VertexArray* positions() const { return mesh->skinnedBuffer->positions; }
    template <typename T>
    std::vector<T> skinned(bool withNormals = true) const {
        EXPECT_EQ(qelSkinnedMesh_skin(mesh, withNormals), kOk);
        return valuesOf<T>(positions());
    }
    Result bind(Node* to, int32_t first = 0, int32_t count = 1, int32_t weight = 1) const {
        return qelSkinnedMesh_addTransform(mesh, to, weight, first, count);
    }

    Held<VertexBuffer> buffer;
    Held<TriangleStripArray> triangle{makeTriangle()};
    Held<Appearance> appearance{qelAppearance_create()};
    Held<Material> material{qelMaterial_create()};
    Held<Group> skeleton{qelGroup_create()};
    std::vector<Group*> bones;  // held by their parents
    Result result = -1;
    SkinnedMesh* mesh = nullptr;
};

static std::vector<int32_t> integersOf(const VertexArray* array) {
    std::vector<int32_t> values;
    for (int32_t i = 0; i < array->vertexCount * array->componentCount; ++i)
        values.push_back(array->componentSize == 1 ? static_cast<const int8_t*>(array->data)[i]
                                                   : static_cast<const int16_t*>(array->data)[i]);
    return values;
}

static VertexArray* makeTriples(bool isByte, const std::vector<int32_t>& values) {
    return isByte ? makeArray<int8_t>(3, {values.begin(), values.end()})
                  : makeArray<int16_t>(3, {values.begin(), values.end()});
}

// --- Skinning against the calculation ---

struct SkinCase {
    const char* what;
    bool positionsAreBytes, normalsAreBytes;
    float scale;
    std::array<float, 3> bias;
    float turn;     // size of the entries of the bones' 3x3 blocks
    float shift;    // size of their translations
    bool singular;  // a bone that cannot be inverted
    int leastPasses;
};

static const SkinCase kSkinCases[] = {
    {"words", false, false, 1, {0, 0, 0}, 1, 50, false, 1},
    {"scale and bias", false, true, 0.25f, {3, -4.5f, 0.1f}, 1, 50, false, 1},
    {"bytes", true, true, 1, {0, 0, 0}, 0.3f, 10, false, 1},
    {"bytes that leave their range", true, false, 0.5f, {1, 2, 3}, 2, 400, false, 2},
    {"words that leave their range", false, true, 0.01f, {1, 2, 3}, 3, 400, false, 2},
    {"normals that leave their range", false, true, 1, {0, 0, 0}, 0.01f, 10, false, 1},
    {"word normals that leave their range", false, false, 1, {0, 0, 0}, 0.001f, 10, false, 1},
    {"no inverse", false, false, 1, {0, 0, 0}, 1, 10, true, 1},
    {"products that wrap around", false, false, 1, {0, 0, 0}, 900, 10, false, 1},
};

constexpr size_t kVertexCount = 60, kBoneCount = 4;

static std::vector<int32_t> randomTriples(std::mt19937& random, int32_t limit) {
    std::vector<int32_t> values(3 * kVertexCount);
    for (int32_t& value : values) value = int32_t(random() % uint32_t(2 * limit)) - limit;
    return values;
}

static Matrix randomMatrix(std::mt19937& random, const SkinCase& c) {
    std::uniform_real_distribution<float> entry(-c.turn, c.turn), shift(-c.shift, c.shift);
    Matrix m = translation(shift(random), shift(random), shift(random));
    for (const size_t i : {0, 1, 2, 4, 5, 6, 8, 9, 10}) m[i] = entry(random);
    for (size_t i = 0; c.singular && i < 3; ++i) m[i] = 0;
    return m;
}

// Binds vertices in threes to up to three bones, at rest in the translations, and says how.
static void bindVertices(const Puppet& puppet, Model* model) {
    model->influences.resize(kVertexCount);
    for (size_t vertex = 0; vertex < kVertexCount; ++vertex) {
        const size_t count = vertex % (kBoneCount);  // none for every fourth
        for (size_t k = 0; k < count; ++k) {
            const size_t bone = (vertex / 4 + k) % kBoneCount;
            const int32_t weight = int32_t(1 + (vertex * 7 + k * 5) % 11);
            ASSERT_EQ(puppet.bind(puppet.bone(bone), int32_t(vertex), 1, weight), kOk);
            model->influences[vertex].push_back({bone, weight});
        }
        int32_t sum = 0;
        for (const Influence& influence : model->influences[vertex]) sum += influence.weight;
        for (Influence& influence : model->influences[vertex]) influence.weight = influence.weight * 4096 / sum;
    }
}

TEST(SkinnedMesh, ComputesVerticesInIntegers) {
    std::mt19937 random(5);
    for (const SkinCase& c : kSkinCases) {
        SCOPED_TRACE(c.what);
        Model model;
        model.positionMax = c.positionsAreBytes ? 127 : 32767;
        model.normalMax = c.normalsAreBytes ? 127 : 32767;
        model.scale = c.scale;
        model.bias = c.bias;
        model.positions = randomTriples(random, model.positionMax / 2);
        const Held positions(makeTriples(c.positionsAreBytes, model.positions));
        const Held normals(makeTriples(c.normalsAreBytes, randomTriples(random, model.normalMax)));
        Puppet puppet(qelVertexBuffer_create(), kBoneCount);
        qelVertexBuffer_setPositions(puppet.buffer, positions, c.scale, c.bias.data());
        qelVertexBuffer_setNormals(puppet.buffer, normals);
        model.normals = integersOf(normals);

        std::vector<Matrix> rests;
        Matrix rest = translation(0, 0, 0);
        for (size_t i = 0; i < kBoneCount; ++i) {  // each bone stands (1, 2, 3) from its parent
            qelTransformable_setTranslation(puppet.bone(i), 1, 2, 3);
            rest = product(rest, translation(-1, -2, -3));
            rests.push_back(rest);
        }
        bindVertices(puppet, &model);

        Matrix world = randomMatrix(random, c);
        setMatrix(puppet.skeleton, world);
        for (size_t i = 0; i < kBoneCount; ++i) {
            const Matrix local = i == 0 ? randomMatrix(random, c) : translation(float(i), 0.5f, -1);
            qelTransformable_setTranslation(puppet.bone(i), 0, 0, 0);
            setMatrix(puppet.bone(i), local);
            world = product(world, local);
            model.bones.push_back(product(world, rests[i]));
        }
        const Skinned expected = skin(model);
        ASSERT_EQ(qelSkinnedMesh_skin(puppet.mesh, true), kOk);
        EXPECT_GE(expected.passes, c.leastPasses);
        EXPECT_EQ(puppet.mesh->skinScale, expected.scale);
        EXPECT_EQ(puppet.mesh->skinnedBuffer->positionScale, expected.scale);
        EXPECT_EQ(puppet.mesh->skinnedBuffer->positionBias[1], c.bias[1]);
        EXPECT_EQ(integersOf(puppet.positions()), expected.positions);

        // Vertices without bones keep what they began as: the base normals, normalised once more.
        const std::vector<int32_t> skinnedNormals = integersOf(puppet.mesh->skinnedBuffer->normals);
        for (size_t i = 0; i < skinnedNormals.size(); ++i) {
            if (model.influences[i / 3].empty()) continue;
            EXPECT_EQ(skinnedNormals[i], expected.normals[i]) << "component " << i;
        }
    }
}

TEST(SkinnedMesh, StaysInTheScaleThatItHadToEnlarge) {
    using Bytes = std::vector<int8_t>;
    const Puppet puppet(makeBuffer<int8_t>({100, 0, 0, 50, 0, -20}, 1, {0, 0, 0}));
    puppet.bind(puppet.bone(0));
    qelTransformable_setTranslation(puppet.bone(0), 100, 0, 0);
    EXPECT_EQ(puppet.skinned<int8_t>(), (Bytes{100, 0, 0, 25, 0, -10}));
    EXPECT_EQ(puppet.mesh->skinnedBuffer->positionScale, 2);
    qelTransformable_setTranslation(puppet.bone(0), 0, 0, 0);
    EXPECT_EQ(puppet.skinned<int8_t>(), (Bytes{50, 0, 0, 25, 0, -10}));
    setPositions<int8_t>(puppet.buffer, {1, 2, 3, 4, 5, 6}, 0.5f);  // other positions begin in their own
    EXPECT_EQ(puppet.skinned<int8_t>(), (Bytes{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(puppet.mesh->skinnedBuffer->positionScale, 0.5f);
}

TEST(SkinnedMesh, EndsOnScalesThatNeverFit) {
    for (const float scale : {0.0f, -1.0f, 1e-45f, 1e-30f, 1e38f, INFINITY, -INFINITY, NAN})
        for (const float shift : {1e6f, 1e30f, -3e4f, NAN}) {
            SCOPED_TRACE(testing::Message() << scale << ", " << shift);
            Puppet puppet(makeBuffer<int8_t>({100, -100, 3}, scale, {5, 6, NAN}));
            ASSERT_EQ(puppet.result, kOk);
            puppet.bind(puppet.bone(0));
            qelTransformable_setTranslation(puppet.bone(0), shift, shift, 1);
            qelTransformable_setScale(puppet.bone(0), 40, 1, 1);
            const Result first = qelSkinnedMesh_skin(puppet.mesh, true);
            EXPECT_TRUE(first == kOk || first == QEL_STATUS_ARITHMETIC) << first;
            EXPECT_EQ(std::isfinite(puppet.mesh->skinScale), std::isfinite(scale));
            EXPECT_EQ(qelSkinnedMesh_skin(puppet.mesh, true), first) << "the second time";
        }
}

#ifdef __SSE2__

// Runs both kernels over the same random run, with or without values that overflow something.
template <typename T>
static void expectSameBits(std::mt19937& random, bool extremes) {
    constexpr int32_t kVertices = 4;
    const auto word = [&] { return int32_t(random()) >> (random() % 32); };
    const int32_t edges[] = {INT32_MIN, INT32_MAX, 0x7FFF8000, -0x8000, 0x8000, 0xFFFF, -1, 0};
    int32_t plain[2 * kSkinMatrixWords], packed[2 * kSkinMatrixWords];
    for (const int32_t bone : {0, 1}) {
        int32_t rows[12];
        for (int32_t& entry : rows) entry = extremes ? edges[random() % 8] : word() >> 12;
        PlainSkinKernel::setMatrix(rows, plain + bone * kSkinMatrixWords);
        Sse2SkinKernel::setMatrix(rows, packed + bone * kSkinMatrixWords);
    }
    using Limits = std::numeric_limits<T>;
    std::vector<T> in(3 * kVertices);
    for (T& component : in) component = random() % 4 ? T(word()) : random() % 2 ? Limits::max() : Limits::min();
    const int32_t bias[] = {word(), word() >> 8, 0, 0};
    const int32_t bones[] = {0, 1, 0}, weights[] = {int32_t(random() % 4097), 4096, 1};
    const SkinInfluences influences = {bones, weights, int32_t(random() % 3) + 1};
    const int32_t count = int32_t(random() % (kVertices + 1));
    std::vector<T> expected(3 * kVertices, 55), actual = expected;  // 55: not to be touched
    const uint32_t overflow = PlainSkinKernel::positions(plain, influences, bias, in.data(), expected.data(), count);
    ASSERT_EQ(Sse2SkinKernel::positions(packed, influences, bias, in.data(), actual.data(), count), overflow);
    ASSERT_TRUE(overflow != 0 || actual == expected);
    actual = expected;
    PlainSkinKernel::normals(plain, influences, in.data(), expected.data(), count);
    Sse2SkinKernel::normals(packed, influences, in.data(), actual.data(), count);
    ASSERT_EQ(actual, expected);
}

TEST(SkinningKernel, Sse2GivesTheBitsOfPlainIntegers) {
    std::mt19937 random(9);
    for (int32_t i = 0; i < 30000 && !HasFatalFailure(); ++i) {
        expectSameBits<int16_t>(random, i % 4 == 0);
        expectSameBits<int8_t>(random, i % 4 == 0);
    }
}

#endif

// --- Influences ---

using Pairs = std::vector<std::pair<int32_t, int32_t>>;

static Pairs influencesOf(const SkinnedMesh* mesh, int32_t vertex) {
    Pairs influences;
    const int32_t first = vertex * mesh->maxInfluences;
    for (int32_t k = first; k < first + mesh->vertexInfluenceCount[vertex]; ++k)
        influences.push_back({mesh->vertexBones[k], mesh->vertexWeights[k]});
    return influences;
}

TEST(SkinnedMesh, KeepsTheThreeStrongestBonesInOrder) {
    struct Case {
        const char* what;
        Pairs bindings;  // bone, weight
        Pairs table;     // bone as numbered by first use, weight of 4096
    };
    for (const Case& c :
         {Case{"one", {{2, 7}}, {{0, 4096}}},
          Case{"a later binding of the same bone", {{0, 9}, {1, 1}, {0, 3}}, {{0, 3072}, {1, 1024}}},
          Case{"the first weaker one goes", {{0, 5}, {1, 1}, {2, 3}, {3, 2}}, {{0, 2048}, {3, 819}, {2, 1228}}},
          Case{"none is weaker", {{0, 5}, {1, 5}, {2, 5}, {3, 5}}, {{0, 1365}, {1, 1365}, {2, 1365}}},
          Case{"a fourth, known", {{0, 5}, {1, 1}, {2, 3}, {1, 8}}, {{0, 1280}, {1, 2048}, {2, 768}}},
          Case{"sum beyond 32 bits", {{0, INT32_MAX}, {1, INT32_MAX}}, {{0, 2048}, {1, 2048}}}}) {
        SCOPED_TRACE(c.what);
        Puppet puppet(makeBuffer<int8_t>(std::vector<int8_t>(9)), 4);
        for (const auto& [bone, weight] : c.bindings)
            ASSERT_EQ(puppet.bind(puppet.bone(size_t(bone)), 1, 1, weight), kOk);
        ASSERT_EQ(qelSkinnedMesh_skin(puppet.mesh, true), kOk);
        for (const int32_t vertex : {0, 1, 2})
            EXPECT_EQ(influencesOf(puppet.mesh, vertex), vertex == 1 ? c.table : Pairs());
    }
}

TEST(SkinnedMesh, GivesUpForGoodOnBindingsPastTheLastVertexOrBeyondUse) {
    Puppet puppet(makeBuffer<int8_t>({1, 2, 3, 4, 5, 6})), crowded(makeBuffer<int8_t>(std::vector<int8_t>(3 * 65535)));
    EXPECT_EQ(puppet.bind(puppet.bone(0), 1, 2), kOk) << "not compared with the vertices yet";
    EXPECT_EQ(qelSkinnedMesh_skin(puppet.mesh, true), QEL_STATUS_ILLEGAL_STATE);
    setPositions(puppet.buffer, std::vector<int8_t>(9));
    EXPECT_EQ(qelSkinnedMesh_skin(puppet.mesh, true), QEL_STATUS_ILLEGAL_STATE);

    for (int32_t i = 0; i < 256; ++i) crowded.bind(crowded.bone(0), 0, 65535);
    crowded.bind(crowded.bone(0), 0, 256);
    EXPECT_EQ(qelSkinnedMesh_skin(crowded.mesh, true), kOk) << "2^24 vertices covered";
    crowded.bind(crowded.bone(0));
    EXPECT_EQ(qelSkinnedMesh_skin(crowded.mesh, true), QEL_STATUS_ILLEGAL_STATE);
}

TEST(SkinnedMesh, ChecksBindingsInOrder) {
    Puppet puppet(makeBuffer<int8_t>({1, 2, 3}), 1);
    const Held outside(qelGroup_create());
    Group* flat = addTo(puppet.skeleton.get(), qelGroup_create());
    qelTransformable_setScale(flat, 0, 1, 1);
    struct Case {
        const char* what;
        Node* bone;
        int32_t weight, first, count;
        Result result;
    };
    constexpr Result kBad = QEL_STATUS_ILLEGAL_ARGUMENT, kIndex = QEL_STATUS_INDEX_OUT_OF_RANGE;
    for (const Case& c :
         {Case{"no weight", nullptr, 0, -1, 1, kBad}, Case{"no vertices", nullptr, 1, -1, 0, kBad},
          Case{"before the start", nullptr, 1, -1, 1, kIndex}, Case{"past 65535", nullptr, 1, 65535, 1, kIndex},
          Case{"sum wraps", nullptr, 1, 1, INT32_MAX, kIndex}, Case{"null", nullptr, 1, 0, 1, QEL_STATUS_NULL_POINTER},
          Case{"no parent", outside, 1, 0, 1, kBad}, Case{"not in the skeleton", puppet.mesh, 1, 0, 1, kBad},
          Case{"no inverse", flat, 1, 0, 1, QEL_STATUS_ARITHMETIC},
          Case{"the skeleton itself", puppet.skeleton, 1, 0, 1, kOk},
          Case{"up to 65535", puppet.bone(0), 1, 65534, 1, kOk}}) {
        SCOPED_TRACE(c.what);
        const int32_t bindings = puppet.mesh->bindingCount, bones = puppet.mesh->boneCount;
        EXPECT_EQ(puppet.bind(c.bone, c.first, c.count, c.weight), c.result);
        EXPECT_EQ(puppet.mesh->bindingCount, bindings + (c.result == kOk));
        EXPECT_EQ(puppet.mesh->boneCount, bones + (c.result == kOk));
    }
}

// --- What is computed again ---

TEST(SkinnedMesh, RecomputesOnlyVerticesWhoseBonesMoved) {
    Puppet puppet(makeBuffer<int16_t>({10, 0, 0, 20, 0, 0, 30, 0, 0}), 2);
    Group* sibling = addTo(puppet.skeleton.get(), qelGroup_create());
    puppet.bind(puppet.bone(1), 0);
    puppet.bind(sibling, 1);
    ASSERT_EQ(qelSkinnedMesh_skin(puppet.mesh, true), kOk);
    EXPECT_EQ(puppet.mesh->maxInfluences, 1);
    auto* out = static_cast<int16_t*>(puppet.positions()->data);
    struct Case {
        const char* what;
        Node* moved;
        std::vector<int16_t> x;  // of the three vertices, 99 where nothing is written
    };
    for (const Case& c :
         {Case{"nothing", nullptr, {99, 99, 99}}, Case{"a bone", sibling, {99, 25, 99}},
          Case{"a bone's parent", puppet.bone(0), {15, 99, 99}}, Case{"the skeleton", puppet.skeleton, {20, 30, 99}}}) {
        SCOPED_TRACE(c.what);
        out[0] = out[3] = out[6] = 99;
        if (c.moved) qelTransformable_setTranslation(c.moved, 5, 0, 0);
        puppet.mesh->skinnedBuffer->positionsChanged = 0;
        ASSERT_EQ(qelSkinnedMesh_skin(puppet.mesh, true), kOk);
        EXPECT_EQ((std::vector<int16_t>{out[0], out[3], out[6]}), c.x);
        EXPECT_EQ(puppet.mesh->skinnedBuffer->positionsChanged, c.moved != nullptr);
    }
    const int16_t base[] = {1, 2, 3};
    qelVertexArray_set16(puppet.buffer->positions, 0, 1, base);
    EXPECT_EQ(puppet.skinned<int16_t>(), (std::vector<int16_t>{11, 2, 3, 30, 0, 0, 30, 0, 0})) << "of another base";
    puppet.bind(puppet.bone(1), 2);
    EXPECT_EQ(puppet.skinned<int16_t>()[6], 40) << "bound to a bone that had moved by 10 since it was first bound";
    qelTransformable_setTranslation(puppet.bone(1), 1, 0, 0);
    EXPECT_EQ(puppet.skinned<int16_t>()[6], 41);
}

TEST(SkinnedMesh, FollowsABaseThatChanges) {
    Puppet puppet(makeBuffer<int8_t>({1, 2, 3}));
    const Held colors(makeArray<int8_t>(4, {1, 2, 3, 4})), coords(makeArray<int8_t>(2, {5, 6}));
    qelVertexBuffer_setColors(puppet.buffer, colors);
    qelVertexBuffer_setTexCoords(puppet.buffer, 1, coords, 0.25f, nullptr);
    qelTransformable_setTranslation(puppet.skeleton, 9, 9, 9);
    EXPECT_EQ(puppet.skinned<int8_t>(), (std::vector<int8_t>{1, 2, 3})) << "bound to no bone";
    EXPECT_EQ(puppet.mesh->skinnedBuffer->colors, colors.get());
    EXPECT_EQ(puppet.mesh->skinnedBuffer->texCoords[1], coords.get());
    EXPECT_EQ(puppet.mesh->skinnedBuffer->texCoordScale[1], 0.25f);
    puppet.bind(puppet.bone(0));
    qelTransformable_setTranslation(puppet.bone(0), 10, 0, 0);
    for (const int32_t vertexCount : {40, 2}) {
        std::vector<int16_t> values(size_t(vertexCount) * 3, 7);
        setPositions(puppet.buffer, values);
        values[0] = 17;
        EXPECT_EQ(puppet.skinned<int16_t>(), values);
    }
    qelVertexBuffer_setPositions(puppet.buffer, nullptr, 1, nullptr);
    ASSERT_EQ(qelSkinnedMesh_skin(puppet.mesh, true), kOk);
    EXPECT_EQ(puppet.positions(), nullptr);
}

TEST(SkinnedMesh, LeavesTheSkeletonOfAMeshOnItsBonesAlone) {
    Puppet outer(makeBuffer<int8_t>({1, 2, 3})), inner(makeBuffer<int8_t>({1, 2, 3}));
    ASSERT_EQ(qelGroup_addChild(outer.bone(0), inner.mesh), kOk);
    for (const Puppet* puppet : {&outer, &inner}) {
        puppet->bind(puppet->bone(0));
        ASSERT_EQ(qelSkinnedMesh_skin(puppet->mesh, true), kOk);
    }
    qelTransformable_setTranslation(outer.bone(0), 40, 0, 0);
    EXPECT_EQ(inner.skinned<int8_t>(), (std::vector<int8_t>{1, 2, 3}));
    EXPECT_EQ(outer.skinned<int8_t>(), (std::vector<int8_t>{41, 2, 3}));
}

TEST(SkinnedMesh, SkinsNormalsForMaterialsOnRequestAndCatchesUp) {
    Puppet puppet(makeBuffer<int8_t>({1, 2, 3}));
    const Held normals(makeArray<int8_t>(3, {127, 0, 0}));
    qelVertexBuffer_setNormals(puppet.buffer, normals);
    puppet.bind(puppet.bone(0));
    const std::vector<int8_t> atRest = {127, 0, 0}, turned = {0, 127, 0};
    struct Step {
        const char* what;
        float degrees;
        bool hasMaterial, withNormals;
        const std::vector<int8_t>& normals;
    };
    for (const Step& step : {Step{"no material", 90, false, true, atRest},
                             {"not asked for", 90, true, false, atRest},
                             {"the bone does not move again", 90, true, true, turned},
                             {"moved back, not asked for", 0, true, false, turned},
                             {"asked for", 0, true, true, atRest}}) {
        SCOPED_TRACE(step.what);
        qelAppearance_setMaterial(puppet.appearance, step.hasMaterial ? puppet.material.get() : nullptr);
        if (puppet.bone(0)->orientationAngle != step.degrees)
            qelTransformable_setOrientation(puppet.bone(0), step.degrees, 0, 0, 1);
        ASSERT_EQ(qelSkinnedMesh_skin(puppet.mesh, step.withNormals), kOk);
        EXPECT_EQ(valuesOf<int8_t>(puppet.mesh->skinnedBuffer->normals), step.normals);
    }
}

// --- Life ---

TEST(SkinnedMesh, OwnsItsSkeleton) {
    const Held world(qelWorld_create());
    const Held root(qelGroup_create()), free(qelGroup_create());
    Group* parented = addTo(root.get(), qelGroup_create());
    Puppet puppet(makeBuffer<int8_t>({1, 2, 3}));
    EXPECT_EQ(puppet.skeleton->parent, puppet.mesh);
    EXPECT_EQ(referencesOf(puppet.mesh).back(), puppet.skeleton.get());
    EXPECT_EQ(qelGroup_removeChild(puppet.bone(0), nullptr), QEL_STATUS_ILLEGAL_ARGUMENT);
    puppet.skeleton->userId = 5;
    EXPECT_EQ(puppet.mesh->find(puppet.mesh, 5), puppet.skeleton.get());

    constexpr Result kBad = QEL_STATUS_ILLEGAL_ARGUMENT;
    TriangleStripArray* const strips[] = {puppet.triangle};
    for (const auto& [what, skeleton, expected] :
         std::vector<std::tuple<const char*, Group*, Result>>{{"none", nullptr, QEL_STATUS_NULL_POINTER},
                                                              {"a world", world, kBad},
                                                              {"has a parent", parented, kBad},
                                                              {"taken", puppet.skeleton, kBad},
                                                              {"free", free, kOk}}) {
        Result result = -1;
        const Held mesh(qelSkinnedMesh_create(puppet.buffer, strips, nullptr, skeleton, 1, &result));
        EXPECT_EQ(result, expected) << what;
    }
    EXPECT_EQ(free->parent, nullptr) << "after the mesh";
    EXPECT_EQ(free->refCount, 1);
}

TEST(SkinnedMesh, DuplicatesMoveOnTheirOwn) {
    using Bytes = std::vector<int8_t>;
    Puppet puppet(makeBuffer<int8_t>({100, 0, 0, 1, 1, 1}));
    puppet.bind(puppet.bone(0));
    qelTransformable_setTranslation(puppet.bone(0), 100, 0, 0);
    const Bytes moved = puppet.skinned<int8_t>();  // in the scale 2
    const Held alone(static_cast<SkinnedMesh*>(qelObject3D_duplicate(puppet.mesh)));
    EXPECT_EQ(alone->skeleton, nullptr);
    const Held copy(static_cast<SkinnedMesh*>(qelObject3D_duplicateSubtree(puppet.mesh)));
    ASSERT_NE(copy->bones[0], puppet.bone(0));
    for (SkinnedMesh* mesh : {alone.get(), copy.get()}) {
        ASSERT_EQ(qelSkinnedMesh_skin(mesh, true), kOk);
        EXPECT_EQ(valuesOf<int8_t>(mesh->skinnedBuffer->positions), moved);
        EXPECT_EQ(mesh->skinnedBuffer->positionScale, 2);
    }
    qelTransformable_setTranslation(copy->bones[0], 0, 40, 0);
    ASSERT_EQ(qelSkinnedMesh_skin(copy, true), kOk);
    EXPECT_EQ(valuesOf<int8_t>(copy->skinnedBuffer->positions), (Bytes{50, 20, 0, 1, 1, 1}));
    EXPECT_EQ(puppet.skinned<int8_t>(), moved);
}

TEST(SkinnedMesh, GivesEverythingBackWhenMemoryRunsOut) {
    for (const FailMode mode : {FailMode::Once, FailMode::FromThenOn})
        sweepEngineAllocations(mode, [](CountingHeap& heap) {
            const auto expectStatus = [&](Result result) {
                EXPECT_TRUE(result == kOk || (result == QEL_STATUS_OUT_OF_MEMORY && heap.hasFailed())) << result;
                EXPECT_TRUE(result == kOk || qelStatus_get() == result);
            };
            Puppet puppet(makeBuffer<int8_t>({100, 0, 0}), 31);
            EXPECT_TRUE(puppet.mesh || heap.hasFailed());
            EXPECT_TRUE(puppet.mesh || puppet.skeleton.get() == nullptr || puppet.skeleton->parent == nullptr);
            if (!puppet.mesh) return;
            for (size_t i = 0; i < 31; ++i) {
                const int32_t bones = puppet.mesh->boneCount;
                const Result result = puppet.bind(puppet.bone(i));
                EXPECT_EQ(puppet.mesh->boneCount, bones + (result == kOk));
                expectStatus(result);
            }
            const Held copy(qelObject3D_duplicateSubtree(puppet.mesh));
            EXPECT_TRUE(copy.get() || heap.hasFailed());
            qelTransformable_setTranslation(puppet.skeleton, 100, 0, 0);
            const bool failedBefore = heap.hasFailed();
            const Result result = qelSkinnedMesh_skin(puppet.mesh, true);
            expectStatus(result);
            if (result == kOk || failedBefore || !puppet.mesh->tablesValid) return;
            heap.failAfter(kNeverFail);  // the same call then succeeds
            EXPECT_EQ(puppet.skinned<int8_t>(), (std::vector<int8_t>{100, 0, 0}));
            heap.failAfter(0);
            (void)qelAlloc(kScratchTag, 1);  // goes on with the sweep
        });
}
