#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "frame/error_status.h"
#include "scene/fog.h"
#include "scene/light.h"
#include "tests/loader/content.h"
#include "tests/loader/small_files.h"
#include "tests/support/counting_heap.h"
#include "tests/support/dispose.h"
#include "tools/encode/k8_encoder.h"

namespace {

using namespace encode;
using testing::ElementsAre;

using Elements = std::array<float, 16>;

constexpr Elements matrixAt(float x) { return {1, 0, 0, x, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}; }

enum Object { Figure, Texture, Table, Spot, HaloFog, Haze, Quads, Sprites, ObjectCount };

K8Package everyRecord() {
    K8Package package;
    package.objects = {
        K8FigureRecord{smallFigure(), Table, {Texture, 0, Texture}},
        K8TextureRecord{smallTexture()},
        K8ActionTableRecord{smallTable()},
        K8LightRecord{.mode = 131,
                      .color = 0x123456,
                      .position = {1, -2, 0.5f},
                      .direction = {0, 1.0f / 3, -1},
                      .attenuation = {0.5f, 0.25f, 2},
                      .intensity = 1.5f,
                      .spotAngle = 30,
                      .spotExponent = 8},
        K8FogRecord{.mode = 80, .color = 0xABCDEF, .density = 0.75f},
        K8FogRecord{.mode = 81, .color = 0x010203, .near = 2, .far = 30},
        K8PrimitiveRecord{.type = 4, .params = 0x300, .count = 1, .values = {{{1, -2}, {3}, {}, {4}, {5, 6, 7}}}},
        K8PrimitiveRecord{.type = 5 << 24, .params = 0x1011, .count = 2, .values = {{{8}, {}, {9}, {}, {}}}}};
    package.groups = {
        {{{.isGroup = true, .index = 1, .transform = matrixAt(1.0f / 3)}, {.index = Spot}, {.index = Figure}}},
        {{{.isGroup = true, .index = 2}, {.index = Quads}, {.isGroup = true, .index = 2}}},
        {{{.index = Figure}}},
        {}};
    return package;
}

// The same objects without groups, the figure first.
K8Package onlyObjects() {
    K8Package package = everyRecord();
    package.groups.clear();
    return package;
}

// A texture and a light below one group: what most refusals need.
K8Package lightInGroup() {
    K8Package package;
    package.objects = {K8TextureRecord{smallTexture()}, K8LightRecord{}};
    package.groups = {{{{.index = 1}}}};
    return package;
}

K8Handle* load(const ByteList& file, K8Allocator* allocator) {
    const HeapCopy copy(file);
    return K8Loader_loadObject(int32_t(copy.size()), copy.data(), allocator);
}

template <typename Handle>
const Handle* as(const K8Handle* handle) {
    return reinterpret_cast<const Handle*>(handle);
}

std::span<K8Handle* const> childrenOf(const K8Handle* group) {
    const K8GroupInfo& info = *as<K8Group>(group)->info;
    return {info.childHandles, info.childHandleCount};
}

// A package in memory that is watched: whatever is left when it has been disposed of fails the test.
struct Loaded {
    CountingHeap heap;
    CountingAllocator host;
    K8Handle* root;

    explicit Loaded(const K8Package& package) : root(load(encodeK8(package).bytes, host.get())) {}
    ~Loaded() { dispose(root); }

    K8Handle* made(size_t index) const { return as<K8Group>(root)->info->childData[index]; }
};

TEST(K8Package, ListsEveryHandleWithTheRootGroup) {
    Loaded loaded(everyRecord());
    ASSERT_NE(loaded.root, nullptr);
    std::vector<int> classIds;
    for (size_t i = 0; loaded.made(i); ++i) {
        classIds.push_back(loaded.made(i)->classId);
        EXPECT_EQ(loaded.made(i)->allocator, loaded.host.get());
    }
    EXPECT_THAT(classIds, ElementsAre(K8_CLASS_FIGURE, K8_CLASS_TEXTURE, K8_CLASS_ACTION_TABLE, K8_CLASS_LIGHT,
                                      K8_CLASS_FOG, K8_CLASS_FOG, K8_CLASS_PRIMITIVE, K8_CLASS_PRIMITIVE,
                                      K8_CLASS_GROUP, K8_CLASS_GROUP, K8_CLASS_GROUP));
}

TEST(K8Package, BuildsTheTreeOfGroups) {
    const Loaded loaded(everyRecord());
    ASSERT_NE(loaded.root, nullptr);
    K8Handle *first = loaded.made(ObjectCount), *second = loaded.made(ObjectCount + 1),
             *unused = loaded.made(ObjectCount + 2);
    EXPECT_THAT(childrenOf(loaded.root), ElementsAre(first, loaded.made(Spot), loaded.made(Figure)));
    EXPECT_THAT(childrenOf(first), ElementsAre(second, loaded.made(Quads), second));
    EXPECT_THAT(childrenOf(second), ElementsAre(loaded.made(Figure)));
    EXPECT_EQ(as<K8Group>(unused)->info->childHandles, nullptr);
    for (const K8Handle* group : {first, second, unused}) EXPECT_EQ(as<K8Group>(group)->info->childData, nullptr);
    for (const K8Handle* group : {loaded.root, first, second, unused}) {
        EXPECT_EQ(group->object, nullptr);
        EXPECT_EQ(as<K8Group>(group)->info->frame, 0);
        EXPECT_EQ(as<K8Group>(group)->info->flag, 1);
        EXPECT_EQ(as<K8Group>(group)->info->transform != nullptr, group == first);
    }
    Elements elements;
    K8Transform_getAll(as<K8Group>(first)->info->transform, elements.data());
    EXPECT_EQ(elements, matrixAt(1365 / 4096.0f)) << "a third, in 20.12";
}

TEST(K8Package, AGroupStandsWhereItWasPlacedLast) {
    K8Package package = lightInGroup();
    package.groups.resize(2);
    package.groups[0].children = {{.isGroup = true, .index = 1, .transform = matrixAt(1)},
                                  {.isGroup = true, .index = 1, .transform = matrixAt(2)},
                                  {.isGroup = true, .index = 1}};
    const Loaded loaded(package);
    ASSERT_NE(loaded.root, nullptr);
    const K8Transform* transform = as<K8Group>(childrenOf(loaded.root)[0])->info->transform;
    EXPECT_EQ(K8Transform_getElement(transform, 3), 2);
}

TEST(K8Package, LinksFiguresWithTheirTexturesAndActions) {
    const Loaded loaded(everyRecord());
    ASSERT_NE(loaded.root, nullptr);
    const K8FigureInfo& info = *as<K8Figure>(loaded.made(Figure))->info;
    const auto* texture = as<K8Texture>(loaded.made(Texture));
    ASSERT_EQ(info.loadedTextureCount, 3);
    EXPECT_THAT(std::span(info.loadedTextures, 3), ElementsAre(texture, nullptr, texture));
    EXPECT_EQ(info.loadedAction, as<K8ActionTable>(loaded.made(Table)));
    EXPECT_EQ(info.textureIndices, nullptr);
    EXPECT_EQ(info.transparency, 409600);
    EXPECT_EQ(info.canChangeAction, 1);
    EXPECT_EQ(K8Figure_getNumPatterns(as<K8Figure>(loaded.made(Figure))), 2);
    EXPECT_EQ(K8ActionTable_getMaxFrame(info.loadedAction, 0), 3 << 16);
}

TEST(K8Package, SetsLightsAndFogs) {
    const Loaded loaded(everyRecord());
    ASSERT_NE(loaded.root, nullptr);
    const auto* light = static_cast<const Light*>(loaded.made(Spot)->object);
    EXPECT_EQ(light->mode, LightMode::Spot);
    EXPECT_EQ(light->color, 0x123456u);
    EXPECT_EQ(light->intensity, 1.5f);
    EXPECT_EQ(light->spotAngle, 30);
    EXPECT_EQ(light->spotExponent, 8);
    EXPECT_THAT(light->attenuation, ElementsAre(0.5f, 0.25f, 2));
    EXPECT_THAT(as<K8Light>(loaded.made(Spot))->info->position, ElementsAre(4096, -8192, 2048));
    EXPECT_THAT(as<K8Light>(loaded.made(Spot))->info->direction, ElementsAre(0, 1365, -4096));

    const auto* halo = static_cast<const Fog*>(loaded.made(HaloFog)->object);
    EXPECT_EQ(halo->mode, FogMode::Exponential);
    EXPECT_EQ(halo->color, 0xABCDEFu);
    EXPECT_EQ(halo->density, 0.75f);
    const auto* haze = static_cast<const Fog*>(loaded.made(Haze)->object);
    EXPECT_EQ(haze->mode, FogMode::Linear);
    EXPECT_EQ(haze->color, 0x010203u);
    EXPECT_EQ(haze->near, 2);
    EXPECT_EQ(haze->far, 30);
}

TEST(K8Package, KeepsThePrimitivesValues) {
    const Loaded loaded(everyRecord());
    ASSERT_NE(loaded.root, nullptr);
    const K8PrimitiveInfo& quads = *as<K8Primitive>(loaded.made(Quads))->info;
    EXPECT_EQ(quads.type, 4u);
    EXPECT_EQ(quads.params, 0x300u);
    EXPECT_EQ(quads.primitiveCount, 1u);
    EXPECT_EQ(quads.reserved, 1);
    EXPECT_EQ(quads.size, 0);
    EXPECT_EQ(quads.texture, nullptr);
    EXPECT_THAT(quads.counts, ElementsAre(2, 1, 0, 1, 3));
    EXPECT_THAT(std::span(quads.values[0], 2), ElementsAre(1, -2));
    EXPECT_THAT(std::span(quads.values[1], 1), ElementsAre(3));
    EXPECT_EQ(quads.values[2], nullptr);
    EXPECT_THAT(std::span(quads.values[3], 1), ElementsAre(4));
    EXPECT_THAT(std::span(quads.values[4], 3), ElementsAre(5, 6, 7));
    EXPECT_EQ(as<K8Primitive>(loaded.made(Sprites))->info->type, 5u << 24) << "as the file has it";
}

TEST(K8Package, WithoutGroupsGivesTheFirstObjectAndWhatItUses) {
    const Loaded loaded(onlyObjects());
    ASSERT_NE(loaded.root, nullptr);
    ASSERT_EQ(loaded.root->classId, K8_CLASS_FIGURE);
    const K8FigureInfo& info = *as<K8Figure>(loaded.root)->info;
    EXPECT_EQ(info.loadedTextures[2]->header.classId, K8_CLASS_TEXTURE);
    EXPECT_EQ(info.loadedAction->header.classId, K8_CLASS_ACTION_TABLE);
}

TEST(K8Package, AnyRecordMayBeTheFirst) {
    for (K8Record record : everyRecord().objects) {
        if (auto* figure = std::get_if<K8FigureRecord>(&record)) *figure = {.model = smallFigure()};
        K8Package package;
        package.objects = {record, K8LightRecord{}};
        const Loaded loaded(package);
        EXPECT_NE(loaded.root, nullptr) << record.index();
    }
}

// --- What is taken and what is refused ---

// Whether it loads; if not, with the status of content that is not accepted, and nothing left.
bool loads(const ByteList& file) {
    CountingHeap heap;
    CountingAllocator host;
    K8ErrStorage_setErrorStatus(77);
    K8Handle* root = load(file, host.get());
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), root ? 77 : K8_ERR_FAILURE);
    dispose(root);
    EXPECT_EQ(heap.liveBlocks() + host.liveBlocks(), 0);
    return root != nullptr;
}

TEST(K8Package, TakesWhatIsOnTheLimit) {
    qelStatus_set(QEL_STATUS_OK);
    struct Case {
        const char* what;
        std::function<void(K8Package&)> change;
    };
    for (const Case& c : {
             Case{"a record one byte below the limit", [](K8Package& p) { p.objectSizeLimit = 71; }},
             Case{"1024 children", [](K8Package& p) { p.groups[0].children.resize(1024); }},
             Case{"1024 objects", [](K8Package& p) { p.objects.resize(1024, K8FogRecord{}); }},
             Case{"1024 groups", [](K8Package& p) { p.groups.resize(1024); }},
             Case{"no objects", [](K8Package& p) { p.objects.clear(), p.groups[0].children.clear(); }},
             Case{"16 textures",
                  [](K8Package& p) {
                      p.objects[1] = K8FigureRecord{smallFigure(), 0, std::vector<uint16_t>(16)};
                  }},
             Case{"a trailer",
                  [](K8Package& p) {
                      p.trailer = {1, 2, 3};
                  }},
         }) {
        K8Package package = lightInGroup();
        c.change(package);
        EXPECT_TRUE(loads(encodeK8(package).bytes)) << c.what;
    }
}

TEST(K8Package, ARecordEndsWhereItsLengthSays) {
    K8Package package = lightInGroup();
    package.objects.push_back(K8FogRecord{});
    EncodedFile file = encodeK8(package);
    const size_t end = file.field("object[2].header").offset();
    file.bytes.insert(file.bytes.begin() + int64_t(end), {1, 2, 3, 4});
    file.set("object[1].header", file.get("object[1].header") + 4);
    EXPECT_TRUE(loads(file.bytes)) << "bytes behind the light's fields";
}

const BrokenFile kBrokenPackages[] = {
    {"a version of 2.0", [](EncodedFile& f) { f.set("version", 0x200); }},
    {"a version of 0.1", [](EncodedFile& f) { f.set("version", 1); }},
    {"a limit of 0x80001", [](EncodedFile& f) { f.set("objectSizeLimit", 0x80001); }},
    {"a negative limit", [](EncodedFile& f) { f.set("objectSizeLimit", 0xFFFFFFFF); }},
    {"a limit that is a record's length",
     [](EncodedFile& f) { f.set("objectSizeLimit", f.get("object[0].header") & 0xFFFFFF); }},
    {"more objects than bytes", [](EncodedFile& f) { f.set("objectCount", 1024); }},
    {"more groups than bytes", [](EncodedFile& f) { f.set("groupCount", 1024); }},
    {"an object too many", [](EncodedFile& f) { f.set("objectCount", 9); }},
    {"nothing", [](EncodedFile& f) { f.set("objectCount", 0), f.set("groupCount", 0); }},
    {"more children than bytes", [](EncodedFile& f) { f.set("group[3].childCount", 1024); }},
    {"a child of no kind", [](EncodedFile& f) { f.set("group[1].child[1]", 0x8005); }},
    {"an object beyond the last", [](EncodedFile& f) { f.set("group[1].child[1]", ObjectCount); }},
    {"a group beyond the last", [](EncodedFile& f) { f.set("group[1].child[0]", 0x4004); }},
    {"a placed group beyond the last", [](EncodedFile& f) { f.set("group[0].child[0]", 0xC004); }},
    {"a group in itself", [](EncodedFile& f) { f.set("group[2].child[0]", 0x4002); }},
    {"a group below itself", [](EncodedFile& f) { f.set("group[2].child[0]", 0x4001); }},
    {"the root below itself", [](EncodedFile& f) { f.set("group[2].child[0]", 0x4000); }},
    {"a record type unknown", [](EncodedFile& f) { f.set("object[3].header", 0xF9000034); }},
    {"an empty record", [](EncodedFile& f) { f.set("object[7].header", 0xFD000000); }},
    {"a record beyond the end", [](EncodedFile& f) { f.set("object[7].header", f.get("object[7].header") + 1); }},
    {"a light shorter than its fields", [](EncodedFile& f) { f.set("object[3].header", 0xFB000033); }},
    {"a light of mode 127", [](EncodedFile& f) { f.set("object[3].mode", 127u << 24); }},
    {"a light of mode 132", [](EncodedFile& f) { f.set("object[3].mode", 132u << 24); }},
    {"a fog shorter than its fields", [](EncodedFile& f) { f.set("object[5].header", 0xFC00000B); }},
    {"a fog of mode 79", [](EncodedFile& f) { f.set("object[4].mode", 79u << 24); }},
    {"a fog of mode 82", [](EncodedFile& f) { f.set("object[5].mode", 82u << 24); }},
    {"a primitive of an unknown type", [](EncodedFile& f) { f.set("object[6].type", 6); }},
    {"a primitive of impossible params", [](EncodedFile& f) { f.set("object[6].params", 0x100); }},
    {"no primitives", [](EncodedFile& f) { f.set("object[6].count", 0); }},
    {"no positions", [](EncodedFile& f) { f.set("object[6].valueCount[0]", 0); }},
    {"a value beyond the record", [](EncodedFile& f) { f.set("object[6].valueCount[2]", 1); }},
    {"a picture of another format", [](EncodedFile& f) { f.set("object[1].magic", 0x4D43); }},
    {"a table of another format", [](EncodedFile& f) { f.set("object[2].magic", 0x544E); }},
    {"a model of another format", [](EncodedFile& f) { f.set("object[0].magic", 0x424E); }},
    {"17 textures", [](EncodedFile& f) { f.set("object[0].textureCount", 17); }},
    {"a texture beyond the objects", [](EncodedFile& f) { f.set("object[0].texture[1]", ObjectCount); }},
    {"a texture that is a table", [](EncodedFile& f) { f.set("object[0].texture[2]", Table); }},
    {"a table beyond the objects", [](EncodedFile& f) { f.set("object[0].actionTable", ObjectCount); }},
    {"a table that is a texture", [](EncodedFile& f) { f.set("object[0].actionTable", Texture); }},
};

TEST(K8Package, RefusesBrokenPackages) {
    qelStatus_set(QEL_STATUS_OK);
    K8Package good = everyRecord();
    good.objectSizeLimit = 0x1000;
    const EncodedFile file = encodeK8(good);
    for (const BrokenFile& broken : kBrokenPackages) {
        EncodedFile changed = file;
        broken.breakIt(changed);
        EXPECT_FALSE(loads(changed.bytes)) << broken.what;
    }
}

TEST(K8Package, RefusesMoreThan1024OfAnything) {
    qelStatus_set(QEL_STATUS_OK);
    K8Package objects = lightInGroup(), groups = objects, children = objects;
    objects.objects.resize(1025, K8FogRecord{});
    groups.groups.resize(1025);
    children.groups[0].children.resize(1025);
    for (K8Package* package : {&objects, &groups, &children}) {
        package->allowInvalid = true;
        EXPECT_FALSE(loads(encodeK8(*package).bytes));
    }
}

TEST(K8Package, IsRefusedTruncatedAnywhere) {
    qelStatus_set(QEL_STATUS_OK);
    for (const K8Package& package : {everyRecord(), onlyObjects()}) {
        const ByteList file = encodeK8(package).bytes;
        for (size_t length = 2; length < file.size(); ++length)
            EXPECT_FALSE(loads(ByteList(file.begin(), file.begin() + int64_t(length)))) << length;
    }
}

// One load, and the same load again once there is memory.
void expectOutOfMemory(const ByteList& file, K8Allocator* host, const AllocationCounter& counter, FailMode mode) {
    K8ErrStorage_setErrorStatus(77);
    K8Handle* root = load(file, host);
    EXPECT_EQ(root == nullptr, counter.hasFailed());
    if (!root) {
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_OUT_OF_MEMORY);
        EXPECT_EQ(counter.liveBlocks(), 0);
        root = load(file, host);
        EXPECT_EQ(root != nullptr, mode == FailMode::Once);
    }
    dispose(root);
}

TEST(K8Package, ReportsExhaustedMemoryWhereverItHappens) {
    for (const K8Package& package : {everyRecord(), onlyObjects()})
        for (const FailMode mode : {FailMode::Once, FailMode::FromThenOn}) {
            const ByteList file = encodeK8(package).bytes;
            sweepEngineAllocations(mode, [&](CountingHeap& heap) {
                CountingAllocator host;
                expectOutOfMemory(file, host.get(), heap, mode);
            });
            sweepHostAllocations(mode, [&](CountingAllocator& host) {
                CountingHeap heap;
                expectOutOfMemory(file, host.get(), host, mode);
            });
        }
}

}  // namespace
