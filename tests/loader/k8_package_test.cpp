#include <array>

#include "scene/fog.h"
#include "scene/light.h"
#include "tests/loader/loaded.h"

namespace {

using namespace encode;

// A texture and a light below one group: what most refusals need.
K8Package lightInGroup() {
    K8Package package;
    package.objects = {K8TextureRecord{smallTexture()}, K8LightRecord{}};
    package.groups = {{{{.index = 1}}}};
    return package;
}

std::vector<K8Handle*> childrenOf(const K8Handle* group) {
    const K8GroupInfo& info = *as<K8Group>(group)->info;
    return {info.childHandles, info.childHandles + info.childHandleCount};
}

TEST(K8Package, BuildsATreeAndListsEveryHandleWithItsRoot) {
    K8Package package = everyRecord();
    package.groups[2].children[0].transform = {1, 0, 0, 1.0f / 3, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    package.groups[3].children.push_back({.isGroup = true, .index = 1});
    package.groups.push_back({});
    const Loaded loaded(encodeK8(package));
    ASSERT_NE(loaded.root, nullptr);
    std::vector<int> classIds;
    for (size_t i = 0; loaded.made(i); ++i) classIds.push_back(loaded.made(i)->classId);
    EXPECT_EQ(classIds, (std::vector<int>{K8_CLASS_FIGURE, K8_CLASS_TEXTURE, K8_CLASS_ACTION_TABLE, K8_CLASS_LIGHT,
                                          K8_CLASS_FOG, K8_CLASS_FOG, K8_CLASS_PRIMITIVE, K8_CLASS_PRIMITIVE,
                                          K8_CLASS_GROUP, K8_CLASS_GROUP, K8_CLASS_GROUP, K8_CLASS_GROUP}));
    const std::array groups = {loaded.root, loaded.made(RecordCount), loaded.made(RecordCount + 1),
                               loaded.made(RecordCount + 2), loaded.made(RecordCount + 3)};
    using Handles = std::vector<K8Handle*>;
    EXPECT_EQ(childrenOf(groups[0]), (Handles{groups[1], groups[2], loaded.made(Haze)}));
    EXPECT_EQ(childrenOf(groups[1]), (Handles{loaded.made(Figure), loaded.made(Spot)}));
    EXPECT_EQ(childrenOf(groups[2]), (Handles{groups[3], loaded.made(Sprites)}));
    EXPECT_EQ(childrenOf(groups[3]), (Handles{groups[1], groups[1]}));
    EXPECT_EQ(childrenOf(groups[4]), Handles());
    for (const K8Handle* group : groups) {
        EXPECT_EQ(group->object, nullptr);
        EXPECT_EQ(as<K8Group>(group)->info->flag, 1);
        EXPECT_EQ(as<K8Group>(group)->info->transform != nullptr, group == groups[1] || group == groups[3]);
        EXPECT_EQ(as<K8Group>(group)->info->childData != nullptr, group == groups[0]);
    }
    std::array<float, 16> elements;
    K8Transform_getAll(as<K8Group>(groups[3])->info->transform, elements.data());
    EXPECT_EQ(elements[3], 1365 / 4096.0f) << "a third, in 20.12";
}

TEST(K8Package, LinksFiguresWithTheirTexturesAndActions) {
    for (const K8Package& package : {everyRecord(), onlyObjects()}) {
        const Loaded loaded(encodeK8(package));
        ASSERT_NE(loaded.root, nullptr);
        const auto* figure = as<K8Figure>(package.groups.empty() ? loaded.root : loaded.made(Figure));
        ASSERT_EQ(figure->header.classId, K8_CLASS_FIGURE);
        const K8FigureInfo& info = *figure->info;
        ASSERT_EQ(info.loadedTextureCount, 3);
        EXPECT_EQ(info.loadedTextures[0]->header.classId, K8_CLASS_TEXTURE);
        EXPECT_EQ(info.loadedTextures[1], nullptr);
        EXPECT_EQ(info.loadedTextures[2], info.loadedTextures[0]);
        EXPECT_EQ(info.textureIndices, nullptr);
        EXPECT_EQ(info.transparency, 409600);
        EXPECT_EQ(info.canChangeAction, 1);
        EXPECT_EQ(K8Figure_getNumPatterns(figure), 2);
        EXPECT_EQ(K8ActionTable_getMaxFrame(info.loadedAction, 0), 3 << 16);
    }
}

TEST(K8Package, SetsLightsFogsAndPrimitives) {
    const Loaded loaded(encodeK8(everyRecord()));
    ASSERT_NE(loaded.root, nullptr);
    const auto* l = static_cast<const Light*>(loaded.made(Spot)->object);
    EXPECT_EQ(all(l->mode, l->color, l->intensity, l->spotAngle, l->spotExponent),
              all(LightMode::Spot, 0x123456, 1.5f, 30, 8));
    EXPECT_EQ(std::to_array(l->attenuation), (std::array<float, 3>{0.5f, 0.25f, 2}));
    const K8LightInfo& placed = *as<K8Light>(loaded.made(Spot))->info;
    EXPECT_EQ(std::to_array(placed.position), (std::array<int32_t, 3>{4096, -8192, 2048}));
    EXPECT_EQ(std::to_array(placed.direction), (std::array<int32_t, 3>{0, 1365, -4096}));
    const auto *halo = static_cast<const Fog*>(loaded.made(HaloFog)->object),
               *haze = static_cast<const Fog*>(loaded.made(Haze)->object);
    EXPECT_EQ(all(halo->mode, halo->color, halo->density), all(FogMode::Exponential, 0xABCDEF, 0.75f));
    EXPECT_EQ(all(haze->mode, haze->color, haze->near, haze->far), all(FogMode::Linear, 0x010203, 2, 30));

    const K8PrimitiveInfo& quads = *as<K8Primitive>(loaded.made(Quads))->info;
    EXPECT_EQ(all(quads.type, quads.params, quads.primitiveCount, quads.reserved, quads.size),
              all(4 << 24, 0x311, 1, 1, 0));
    EXPECT_EQ(quads.texture, nullptr);
    std::vector<std::vector<int32_t>> values;
    for (size_t i = 0; i < 5; ++i) values.push_back({quads.values[i], quads.values[i] + quads.counts[i]});
    EXPECT_EQ(values, (std::vector<std::vector<int32_t>>{{1, -2}, {3}, {}, {4}, {5, 6, 7}}));
}

TEST(K8Package, AnyRecordMayBeTheFirst) {
    for (K8Record record : everyRecord().objects) {
        if (auto* figure = std::get_if<K8FigureRecord>(&record)) *figure = {.model = smallFigure()};
        K8Package package;
        package.objects = {record, K8LightRecord{}};
        const Loaded loaded(encodeK8(package));
        EXPECT_NE(loaded.root, nullptr) << record.index();
    }
}

// --- What is taken and what is refused ---

TEST(K8Package, Takes1024OfAnythingAndNoMore) {
    qelStatus_set(QEL_STATUS_OK);
    for (const size_t count : {1024u, 1025u}) {
        K8Package objects = lightInGroup(), groups = objects, children = objects;
        objects.objects.resize(count, K8FogRecord{});
        groups.groups.resize(count);
        children.groups[0].children.resize(count);
        for (K8Package* package : {&objects, &groups, &children}) {
            package->allowInvalid = true;
            EXPECT_EQ(loads(encodeK8(*package)), count == 1024);
        }
    }
    K8Package none = lightInGroup(), textures = none, trailer = none, limit = none;
    none.objects.clear(), none.groups[0].children.clear();
    textures.objects[1] = K8FigureRecord{smallFigure(), 0, std::vector<uint16_t>(16)};
    trailer.trailer = {1, 2, 3};
    limit.objectSizeLimit = 71;  // one more than the longest record
    for (const K8Package& package : {none, textures, trailer, limit}) EXPECT_TRUE(loads(encodeK8(package)));
}

TEST(K8Package, ARecordEndsWhereItsLengthSays) {
    K8Package package = lightInGroup();
    package.objects.push_back(K8FogRecord{});
    EncodedFile file = encodeK8(package);
    const size_t end = file.field("object[2].header").offset();
    file.bytes.insert(file.bytes.begin() + int64_t(end), {1, 2, 3, 4});
    file.set("object[1].header", file.get("object[1].header") + 4);
    EXPECT_TRUE(loads(file)) << "bytes behind the light's fields";
}

TEST(K8Package, RefusesBrokenPackages) {
    qelStatus_set(QEL_STATUS_OK);
    K8Package package = everyRecord();
    package.objectSizeLimit = 0x1000;
    const EncodedFile good = encodeK8(package);
    ASSERT_TRUE(loads(good));
    const auto expectRefused = [](const EncodedFile& file) { EXPECT_FALSE(loads(file)); };
    const char* const changes =
        "version=0x200 version=1 objectSizeLimit=0x80001 objectSizeLimit=-1 objectCount=1024 groupCount=1024 "
        "objectCount=9 objectCount=0&groupCount=0 group[3].childCount=1024 group[1].child[1]=0x8005 "
        "group[1].child[1]=8 group[1].child[0]=0x4004 group[0].child[0]=0xC004 group[1].child[0]=0x4001 "
        "group[1].child[0]=0x4003 group[1].child[0]=0x4000 object[3].header=0xF9000034 "
        "object[7].header=0xFD000000 object[7].header+=1 object[0].header=0xFE000002 object[3].header=0xFB000033 "
        "object[3].mode=0x7F000000 "
        "object[3].mode=0x84000000 object[5].header=0xFC00000B object[4].mode=0x4F000000 "
        "object[5].mode=0x52000000 object[6].type=6 object[6].params=0x100 object[6].count=0 "
        "object[6].valueCount[0]=0 object[6].valueCount[2]=1 object[1].magic=0x4D43 object[2].magic=0x544E "
        "object[0].magic=0x424E object[0].textureCount=17 object[0].texture[1]=8 object[0].texture[2]=2 "
        "object[0].actionTable=8 object[0].actionTable=1";
    forEachChange(good, changes, expectRefused);
    const uint64_t length = good.get("object[0].header") & 0xFFFFFF;
    forEachChange(good, "objectSizeLimit=" + std::to_string(length), expectRefused);
}

}  // namespace
