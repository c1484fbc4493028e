// The life of handles: creation, loaded info, destruction, the operations on any handle, and what primitives accept.
#include <array>
#include <vector>

#include "frame/group_handle.h"
#include "scene/figure_mesh.h"
#include "scene/fog.h"
#include "scene/light.h"
#include "tests/support/counting_heap.h"

namespace {

constexpr int32_t kUntouched = 77;  // a status that no function stores

struct Family {
    const char* name;
    int16_t classId;
    size_t size;
    K8Handle* (*create)(void*, K8Allocator*);
};

template <typename Handle, Handle* (*create)(Handle*, K8Allocator*)>
constexpr Family familyOf(const char* name, int16_t classId) {
    return {name, classId, sizeof(Handle), [](void* memory, K8Allocator* allocator) {
                return reinterpret_cast<K8Handle*>(create(static_cast<Handle*>(memory), allocator));
            }};
}

constexpr Family kFamilies[] = {
    familyOf<K8ActionTable, K8ActionTable_create>("action table", K8_CLASS_ACTION_TABLE),
    familyOf<K8Figure, K8Figure_create>("figure", K8_CLASS_FIGURE),
    familyOf<K8Texture, K8Texture_create>("texture", K8_CLASS_TEXTURE),
    familyOf<K8Fog, K8Fog_create>("fog", K8_CLASS_FOG),
    familyOf<K8Light, K8Light_create>("light", K8_CLASS_LIGHT),
    familyOf<K8Primitive, K8Primitive_create>("primitive", K8_CLASS_PRIMITIVE),
    familyOf<K8Group, K8Group_create>("group", K8_CLASS_GROUP),
};

bool ownsObject(const Family& family) { return family.classId == K8_CLASS_FOG || family.classId == K8_CLASS_LIGHT; }

TEST(Handles, AreBuiltInHostMemoryOrInABlockOfTheAllocator) {
    for (const Family& family : kFamilies) {
        SCOPED_TRACE(family.name);
        CountingHeap heap;
        CountingAllocator host;
        std::vector<uint8_t> memory(family.size, 0xA5);
        for (void* place : {static_cast<void*>(nullptr), static_cast<void*>(memory.data())}) {
            K8Handle* handle = family.create(place, host.get());
            ASSERT_NE(handle, nullptr);
            EXPECT_EQ(handle->ownBlock, place ? nullptr : handle);
            EXPECT_EQ(handle->allocator, host.get());
            EXPECT_EQ(handle->object != nullptr, ownsObject(family));
            EXPECT_EQ(K8Object3D_getClassId(handle), family.classId);
            EXPECT_EQ(host.liveBlocks(), place ? 0 : 1);
            K8Object3D_destroy(handle);
            EXPECT_EQ(host.liveBlocks() + heap.liveBlocks(), 0);
        }
        EXPECT_EQ(memory, std::vector<uint8_t>(family.size, 0)) << "host memory is left zeroed";
        K8Object3D_destroy(reinterpret_cast<K8Handle*>(memory.data()));  // harmless
    }
}

TEST(Handles, CreationFailsWithTheStatusThatSaysWhy) {
    for (const Family& family : kFamilies) {
        SCOPED_TRACE(family.name);
        EXPECT_EQ(family.create(nullptr, nullptr), nullptr);
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
        CountingAllocator empty(0);
        EXPECT_EQ(family.create(nullptr, empty.get()), nullptr);
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_OUT_OF_MEMORY);
        if (!ownsObject(family)) continue;
        sweepEngineAllocations(FailMode::Once, [&](CountingHeap& heap) {
            CountingAllocator host;
            K8ErrStorage_setErrorStatus(kUntouched);
            K8Handle* handle = family.create(nullptr, host.get());
            EXPECT_EQ(handle == nullptr, heap.hasFailed());
            EXPECT_EQ(K8ErrStorage_getErrorStatus(), handle ? kUntouched : K8_ERR_OUT_OF_MEMORY);
            K8Object3D_destroy(handle);
        });
    }
}

TEST(Handles, OperationsOnAnyHandle) {
    int32_t frame = 0x58000;
    K8Figure handle = {};  // the info of every family stands in the same place
    using Row = std::array<int32_t, 3>;
    for (const auto& [classId, time, status] :
         {Row{K8_CLASS_FIGURE, frame, kUntouched}, Row{K8_CLASS_GROUP, frame, kUntouched},
          Row{K8_CLASS_SCENE_GROUP, frame, kUntouched}, Row{K8_CLASS_LIGHT, 0, kUntouched},
          Row{K8_CLASS_TEXTURE, 0, kUntouched}, Row{9, 0, K8_ERR_FAILURE}, Row{0, 0, K8_ERR_FAILURE}}) {
        handle.header.classId = int16_t(classId);
        K8ErrStorage_setErrorStatus(kUntouched);
        handle.info = nullptr;
        EXPECT_EQ(K8Object3D_getTime(&handle.header), 0) << classId;
        handle.info = reinterpret_cast<K8FigureInfo*>(&frame);
        EXPECT_EQ(K8Object3D_getTime(&handle.header), time) << classId;
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), status) << classId;
    }
    K8ErrStorage_setErrorStatus(kUntouched);
    K8Handle unknown = {nullptr, 9, nullptr, nullptr};
    K8Object3D_destroy(&unknown);
    K8Object3D_destroy(nullptr);
    EXPECT_EQ(unknown.classId, 9);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), kUntouched);
    EXPECT_EQ(K8Object3D_getClassId(nullptr), 0);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
    EXPECT_EQ(K8Object3D_getTime(nullptr), 0);
}

TEST(Handles, OfAnotherFamilyCountAsNull) {
    CountingHeap heap;
    CountingAllocator host;
    for (const Family& family : kFamilies) {
        SCOPED_TRACE(family.name);
        const auto isOther = [&](int16_t classId) { return classId != family.classId; };
        // No larger than a header: the address sanitizer sees whoever looks for more.
        K8Handle* header = family.create(nullptr, host.get());
        auto* handle = static_cast<K8Handle*>(host.get()->functions->alloc(host.get(), sizeof(K8Handle)));
        *handle = *header;
        handle->ownBlock = handle;
        K8ErrStorage_setErrorStatus(kUntouched);
        if (isOther(K8_CLASS_FIGURE)) {
            auto* figure = reinterpret_cast<K8Figure*>(handle);
            const K8FigureInfo info = {};
            EXPECT_FALSE(K8Figure_setTmpData(figure, &info));
            K8Figure_clearTmpData(figure);
            EXPECT_EQ(K8Figure_getLoadedTextures(figure), nullptr);
            EXPECT_EQ(K8Figure_getNumPatterns(figure), 0);
            EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
        }
        if (isOther(K8_CLASS_LIGHT)) K8Light_setColor(reinterpret_cast<K8Light*>(handle), 0);
        if (isOther(K8_CLASS_FOG)) K8Fog_setMode(reinterpret_cast<K8Fog*>(handle), 80);
        if (isOther(K8_CLASS_GROUP)) K8Group_clearLoadedInfo(reinterpret_cast<K8Group*>(handle));
        if (isOther(K8_CLASS_ACTION_TABLE)) {
            EXPECT_EQ(K8ActionTable_getNumActions(reinterpret_cast<K8ActionTable*>(handle)), 0);
        }
        host.get()->functions->free(host.get(), handle);
        if (isOther(K8_CLASS_PRIMITIVE))
            K8Primitive_destroy(reinterpret_cast<K8Primitive*>(header));
        else
            K8Texture_destroy(reinterpret_cast<K8Texture*>(header));
    }
    EXPECT_EQ(host.liveBlocks(), 0);
    EXPECT_EQ(heap.liveBlocks(), 0);
}

template <typename T>
T* hostArray(CountingAllocator& host, int count) {
    return static_cast<T*>(host.get()->functions->alloc(host.get(), int32_t(sizeof(T)) * count));
}

TEST(FigureHandle, SettingItsInfoAgainReleasesTheArraysOfTheFirst) {
    CountingAllocator host;
    K8Figure* figure = K8Figure_create(nullptr, host.get());
    K8FigureInfo info = {};
    info.loadedTextures = hostArray<K8Texture*>(host, 2);
    info.textureIndices = hostArray<uint16_t>(host, 3);
    info.loadedTextureCount = 2;
    info.transparency = 409600;
    EXPECT_TRUE(K8Figure_setTmpData(figure, &info));
    EXPECT_EQ(K8Figure_getLoadedTextures(figure), info.loadedTextures);
    EXPECT_EQ(K8Figure_getLoadedNumTextures(figure), 2);
    EXPECT_EQ(host.liveBlocks(), 4);

    K8FigureInfo changed = *figure->info;  // a host that changes one member keeps the arrays it names again
    changed.frame = 3 << 16;
    changed.textureIndices = nullptr;
    EXPECT_TRUE(K8Figure_setTmpData(figure, &changed));
    EXPECT_EQ(K8Object3D_getTime(&figure->header), 3 << 16);
    EXPECT_EQ(figure->info->loadedTextures, info.loadedTextures);
    EXPECT_EQ(host.liveBlocks(), 3);

    K8FigureInfo other = {};
    other.loadedTextures = hostArray<K8Texture*>(host, 1);
    EXPECT_TRUE(K8Figure_setTmpData(figure, &other));
    EXPECT_EQ(host.liveBlocks(), 3);
    K8Figure_clearLoadedInfo(figure);
    ASSERT_NE(figure->info, nullptr);
    EXPECT_EQ(figure->info->loadedTextures, nullptr);
    EXPECT_EQ(host.liveBlocks(), 2);
    K8Figure_clearTmpData(figure);
    EXPECT_EQ(figure->info, nullptr);
    K8Figure_destroy(figure);
}

TEST(GroupAndPrimitiveHandles, ReleaseAnArrayOnceWhoeverNamesIt) {
    CountingAllocator host;
    K8Group group;
    K8Group_create(&group, host.get());
    K8GroupInfo groupInfo = {};
    groupInfo.childHandles = hostArray<K8Handle*>(host, 1);
    groupInfo.childData = hostArray<K8Handle*>(host, 2);
    EXPECT_TRUE(K8Group_setTmpData(&group, &groupInfo));
    groupInfo.childHandles = groupInfo.childData;  // what a load made is what is drawn
    for (int again = 0; again < 2; ++again) {
        EXPECT_TRUE(K8Group_setTmpData(&group, &groupInfo));
        EXPECT_EQ(host.liveBlocks(), 2) << "the record and the second array";
        groupInfo.childData = nullptr;
    }
    groupInfo.childData = groupInfo.childHandles;
    EXPECT_TRUE(K8Group_setTmpData(&group, &groupInfo));
    K8Group_destroy(&group);
    EXPECT_EQ(host.liveBlocks(), 0);

    K8Primitive primitive;
    K8Primitive_create(&primitive, host.get());
    K8PrimitiveInfo info = {};
    info.values[K8_PRIM_POSITIONS] = info.values[K8_PRIM_NORMALS] = hostArray<int32_t>(host, 9);  // a ball's
    EXPECT_TRUE(K8Primitive_setTmpData(&primitive, &info));
    info.values[K8_PRIM_POSITIONS] = hostArray<int32_t>(host, 9);
    EXPECT_TRUE(K8Primitive_setTmpData(&primitive, &info));
    EXPECT_EQ(host.liveBlocks(), 3);
    info.values[K8_PRIM_NORMALS] = info.values[K8_PRIM_POSITIONS];
    EXPECT_TRUE(K8Primitive_setTmpData(&primitive, &info));
    EXPECT_EQ(host.liveBlocks(), 2);
    K8Primitive_destroy(&primitive);
}

TEST(GroupHandle, OwnsTheTransformOfTheLoaderAlone) {
    struct Case {
        const char* what;
        bool isLoaded, exchanges, drops;  // the transform is the loader's; the host exchanges it; names none
        void (*end)(K8Group*);
        int32_t liveAfter;  // of the two transforms
    };
    for (const Case& c : {Case{"the host's stays", false, false, false, K8Group_destroy, 2},
                          Case{"the loader's goes with the group", true, false, false, K8Group_destroy, 1},
                          Case{"or with what it was loaded with", true, false, false, K8Group_clearLoadedInfo, 1},
                          Case{"the host's stays in its place", true, true, false, K8Group_destroy, 1},
                          Case{"nothing takes its place", true, false, true, K8Group_destroy, 1}}) {
        SCOPED_TRACE(c.what);
        CountingAllocator host, transforms;
        K8Group group;
        K8Group_create(&group, transforms.get());
        K8GroupInfo info = {};
        EXPECT_TRUE(K8Group_setTmpData(&group, &info));
        K8Transform* first = c.isLoaded ? K8Group_makeOwnTransform(&group) : K8Transform_create(nullptr, host.get());
        K8Transform* other = K8Transform_create(nullptr, host.get());
        info.transform = first;
        for (const int flag : {0, 1, 1}) {  // which says nothing about a transform that the host names
            info.flag = uint8_t(flag);
            EXPECT_TRUE(K8Group_setTmpData(&group, &info));
            EXPECT_EQ(group.info->transform, first) << "named again";
            EXPECT_EQ(group.info->flag, flag);
        }
        if (c.exchanges) info.transform = other;
        if (c.drops) info.transform = nullptr;
        for (int again = 0; again < 2; ++again) EXPECT_TRUE(K8Group_setTmpData(&group, &info));
        EXPECT_EQ(group.info->transform, info.transform);
        c.end(&group);
        EXPECT_EQ(host.liveBlocks() + transforms.liveBlocks() - (group.info ? 1 : 0), c.liveAfter);
        K8Group_destroy(&group);
        K8Transform_destroy(other);
        if (!c.isLoaded) K8Transform_destroy(first);
    }
}

TEST(FigureHandle, PatternsAndActionsDependOnTheObject) {
    CountingAllocator host;
    K8Figure* figure = K8Figure_create(nullptr, host.get());
    K8ActionTable* table = K8ActionTable_create(nullptr, host.get());
    qelObject3D tableObject = {};
    tableObject.classId = ClassId::ActTable;
    table->header.object = &tableObject;
    struct Case {
        const char* what;
        int classId;  // 0: no object
        uint32_t pattern;
        bool taken;
        uint32_t stored;
        int32_t bones, patterns;
    };
    for (const Case& c :
         {Case{"no object", 0, 0, false, 0, 0, 0}, Case{"figure mesh", QEL_CLASS_FIGURE_MESH, 5, true, 10, 3, 4},
          Case{"figure mesh, bit 31 is lost", QEL_CLASS_FIGURE_MESH, 0x80000001, true, 2, 3, 4},
          Case{"scene mesh, only the lost bit", QEL_CLASS_MESH, 0x80000000, true, 0, 0, 1},
          Case{"scene mesh", QEL_CLASS_MESH, 1, false, 0, 0, 1}}) {
        SCOPED_TRACE(c.what);
        qelFigureMesh object = {};
        object.classId = ClassId(c.classId);
        object.bones.boneCount = 3;
        object.patternCount = 4;
        figure->header.object = c.classId ? &object : nullptr;
        const K8FigureInfo empty = {};
        K8Figure_setTmpData(figure, &empty);
        K8ErrStorage_setErrorStatus(kUntouched);
        EXPECT_EQ(K8Figure_setPattern(figure, c.pattern), c.taken);
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), c.taken ? kUntouched : K8_ERR_FAILURE);
        EXPECT_EQ(figure->info->pattern, c.stored);
        EXPECT_EQ(K8Figure_getNumBones(figure), c.bones);
        EXPECT_EQ(K8Figure_getNumPatterns(figure), c.patterns);
        EXPECT_EQ(K8Figure_canChangeAction(figure, table), c.classId == QEL_CLASS_FIGURE_MESH);
    }
    figure->header.object = table->header.object = nullptr;
    K8Figure_clearTmpData(figure);
    EXPECT_FALSE(K8Figure_setPattern(figure, 5)) << "no info";
    EXPECT_EQ(K8Figure_getNumBones(nullptr), 0);
    K8Figure_destroy(figure);
    K8ActionTable_destroy(table);
}

TEST(ActionTableHandle, WithoutObjectStandsForOneEndlessAction) {
    CountingAllocator host;
    K8ActionTable* table = K8ActionTable_create(nullptr, host.get());
    K8ErrStorage_setErrorStatus(kUntouched);
    EXPECT_EQ(K8ActionTable_getNumActions(table), 1);
    EXPECT_EQ(K8ActionTable_getMaxFrame(table, -1), INT32_MAX);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), kUntouched);
    EXPECT_EQ(K8ActionTable_getNumActions(nullptr), 0);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
    EXPECT_EQ(K8ActionTable_getMaxFrame(nullptr, 0), 0);
    K8ActionTable_destroy(table);
}

TEST(LightAndFogHandles, PassOnWhatIsInRange) {
    CountingHeap heap;
    CountingAllocator host;
    K8Light* light = K8Light_create(nullptr, host.get());
    const auto* own = static_cast<const Light*>(light->header.object);
    K8ErrStorage_setErrorStatus(kUntouched);
    for (const int32_t mode : {int32_t(K8_LIGHT_SPOT), 127, 132}) K8Light_setMode(light, mode);
    EXPECT_EQ(own->mode, LightMode::Spot);
    for (const int32_t degrees : {30, 91}) K8Light_setSpotAngle(light, degrees << 12);
    EXPECT_EQ(own->spotAngle, 30.0f);
    using Factors = std::array<float, 3>;
    const std::pair<std::array<int32_t, 3>, Factors> kCases[] = {{{0, 0, 4096}, {0, 0, 1}},
                                                                 {{-1, 0, 0}, {0, 0, 1}},
                                                                 {{0, 0, -1}, {0, 0, 1}},
                                                                 {{0, 0, 0}, {0.0001f, 0.0001f, 0.0001f}},
                                                                 {{8192, 2048, 1}, {2, 0.5f, 1.0f / 4096}}};
    for (const auto& [given, stored] : kCases) {
        K8Light_setAttenuation(light, given[0], given[1], given[2]);
        EXPECT_EQ(std::to_array(own->attenuation), stored) << given[0];
    }
    K8Fog* fog = K8Fog_create(nullptr, host.get());
    const auto* ownFog = static_cast<const Fog*>(fog->header.object);
    for (const int32_t mode : {int32_t(K8_FOG_EXPONENTIAL), 82}) K8Fog_setMode(fog, mode);
    for (const int32_t density : {2048, -4096}) K8Fog_setDensity(fog, density);
    K8Fog_setLinear(fog, -4096, 8192);
    EXPECT_EQ(ownFog->mode, FogMode::Exponential);
    EXPECT_EQ((Factors{ownFog->density, ownFog->near, ownFog->far}), (Factors{0.5f, -1, 2}));
    K8Light_setColor(nullptr, 1);
    K8Fog_setColor(nullptr, 1);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), kUntouched) << "setters store no error";
    K8Fog_destroy(fog);
    K8Light_destroy(light);
}

TEST(PrimitiveHandle, ChecksCombinationsInOrder) {
    struct Case {
        uint32_t type, params;
        int32_t code;
    };
    for (const Case& c : {Case{1, 0x800, 0},  Case{1, 0x400, 0},          Case{1, 0, 2},
                          Case{2, 0xC00, 8},  Case{2, 0x410, 2},          Case{3, 0, 0},
                          Case{3, 0x1000, 4}, Case{3, 0x1010, 9},         Case{3, 0x2000, 9},
                          Case{3, 0x3000, 0}, Case{3, 0x3C00, 3},         Case{3, 0x3100, 7},
                          Case{4, 0x3313, 0}, Case{4, 0xC00, 8},          Case{5, 0x1000, 0},
                          Case{5, 0x3013, 0}, Case{5, 0x2000, 10},        Case{5, 0, 6},
                          Case{5, 0x1400, 5}, Case{5, 0x3300, 5},         Case{6, 0, 1},
                          Case{0, 0x400, 1},  Case{0x3000000, 0x3300, 0}, Case{0x3000001, 0x3300, 1}}) {
        K8ErrStorage_setErrorStatus(kUntouched);
        EXPECT_EQ(K8Primitive_checkValues(c.type, c.params), c.code) << std::hex << c.type << " " << c.params;
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), c.code ? K8_ERR_FAILURE : kUntouched);
    }
}

TEST(PrimitiveHandle, TellsHowLongItsArraysAre) {
    struct Case {
        uint32_t type, params;
        int32_t lengths[5];
    };
    for (const Case& c :
         {Case{1, 0x400, {3, 0, -1, 0, 0}}, Case{2, 0x800, {6, 0, 1, 0, 0}}, Case{3, 0x3300, {9, 9, 0, 6, 0}},
          Case{3, 0x600, {9, 3, -1, 0, 0}}, Case{4, 0x3300, {12, 12, 0, 8, 0}}, Case{4, 0xA00, {12, 3, 1, 0, 0}},
          Case{5, 0x1000, {3, 0, 0, 0, -8}}, Case{0x5000000, 0x3000, {3, 0, 0, 0, 8}}})
        for (int kind = 0; kind < 5; ++kind)
            EXPECT_EQ(K8Primitive_getLength(c.type, c.params, kind), c.lengths[kind])
                << std::hex << c.type << " " << c.params << " kind " << kind;
    for (const int32_t kind : {-1, 5}) {
        K8ErrStorage_setErrorStatus(kUntouched);
        EXPECT_EQ(K8Primitive_getLength(3, 0x300, kind), 0);
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
    }
    EXPECT_EQ(K8Primitive_getLength(3, 0x100, 0), 0) << "a combination that is refused has no lengths";
}

}  // namespace
