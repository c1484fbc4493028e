// Deep copies of handle trees: what they hold, what they share, and that nothing is left of them.
#include "frame/handle_copy.h"

#include <memory>
#include <vector>

#include "render/draw_list.h"
#include "tests/support/counting_heap.h"

namespace {

// An engine object that only counts references.
struct CountedObject : qelObject3D {
    CountedObject() : qelObject3D{} {
        refCount = 1;
        destroy = [](qelObject3D*) { ADD_FAILURE() << "destroyed"; };
    }
};

// A group with everything that a tree can hold: a figure with two textures, one with a second map, and an action; a
// light, a fog, a primitive with a texture, and a nested group that names the primitive again.
struct Tree {
    CountedObject actionObject, figureObject, textureObjects[3], lightObject, fogObject;
    K8ActionTable action{{&actionObject, K8_CLASS_ACTION_TABLE, nullptr, nullptr}};
    K8TextureInfo secondInfo{};
    K8Texture second{{&textureObjects[2], K8_CLASS_TEXTURE, nullptr, nullptr}, &secondInfo, 1};
    K8TextureInfo firstInfo{1, 1, &second};
    K8Texture first{{&textureObjects[0], K8_CLASS_TEXTURE, nullptr, nullptr}, &firstInfo, 0};
    K8Texture plain{{&textureObjects[1], K8_CLASS_TEXTURE, nullptr, nullptr}, nullptr, 1};
    K8Texture* textures[2] = {&first, &plain};
    uint16_t indices[1] = {7};
    K8FigureInfo figureInfo{};
    K8Figure figure{{&figureObject, K8_CLASS_FIGURE, nullptr, nullptr}, &figureInfo};
    K8LightInfo lightInfo{{1, 2, 3}, {4, 5, 6}};
    K8Light light{{&lightObject, K8_CLASS_LIGHT, nullptr, nullptr}, &lightInfo};
    K8Fog fog{{&fogObject, K8_CLASS_FOG, nullptr, nullptr}};
    int32_t positions[3] = {10, 20, 30};
    K8PrimitiveInfo primitiveInfo{};
    K8Primitive primitive{{nullptr, K8_CLASS_PRIMITIVE, nullptr, nullptr}, &primitiveInfo};
    K8Handle* innerChildren[2] = {&primitive.header, nullptr};
    K8GroupInfo innerInfo{};
    K8Group inner{{nullptr, K8_CLASS_SCENE_GROUP, nullptr, nullptr}, &innerInfo};
    K8Handle* children[5] = {&figure.header, &light.header, &fog.header, &primitive.header, &inner.header};
    K8Transform transform{};
    K8Handle* childData[2] = {&figure.header, nullptr};
    K8GroupInfo rootInfo{};
    K8Group root{{nullptr, K8_CLASS_GROUP, nullptr, nullptr}, &rootInfo};

    Tree() {
        figureInfo.frame = 12;
        figureInfo.loadedTextureCount = 2;
        figureInfo.loadedTextures = textures;
        figureInfo.loadedAction = &action;
        figureInfo.textureIndices = indices;
        primitiveInfo.texture = &plain;
        primitiveInfo.counts[0] = 3;
        primitiveInfo.values[0] = positions;
        innerInfo.childHandleCount = 2;
        innerInfo.childHandles = innerChildren;
        transform.elements[3] = 2.5f;
        rootInfo.frame = 99;
        rootInfo.transform = &transform;
        rootInfo.childHandleCount = 5;
        rootInfo.childHandles = children;
        rootInfo.childData = childData;
        rootInfo.flag = 1;
    }
    std::vector<int32_t> references() const {
        return {actionObject.refCount,      figureObject.refCount,      textureObjects[0].refCount,
                textureObjects[1].refCount, textureObjects[2].refCount, lightObject.refCount,
                fogObject.refCount};
    }
};

struct PoolDeleter {
    void operator()(RecordPool* pool) const { RecordPool_destroy(pool); }
};
using PoolOwner = std::unique_ptr<RecordPool, PoolDeleter>;

PoolOwner makePool(CountingAllocator& host) {
    return PoolOwner(RecordPool_create(host.get(), K8DrawList_recordSizes()));
}

TEST(HandleCopy, HoldsItsOwnRecordsAndArraysAndSharesTheObjects) {
    CountingAllocator host;
    const PoolOwner pool = makePool(host);
    const int32_t poolBlocks = host.liveBlocks();
    Tree tree;
    auto* root = reinterpret_cast<K8Group*>(K8Handle_copyTree(&tree.root.header, pool.get()));
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(tree.references(), (std::vector<int32_t>{2, 2, 2, 4, 2, 2, 2}));
    EXPECT_EQ(root->header.allocator, host.get());
    EXPECT_EQ(root->header.ownBlock, root);
    EXPECT_TRUE(root->info->frame == 99 && root->info->flag == 1 && root->info->childData == nullptr);
    ASSERT_NE(root->info->transform, &tree.transform);
    EXPECT_EQ(root->info->transform->elements[3], 2.5f);
    EXPECT_EQ(root->info->transform->ownBlock, root->info->transform);

    const auto* figure = reinterpret_cast<K8Figure*>(root->info->childHandles[0]);
    EXPECT_EQ(figure->header.object, &tree.figureObject);
    EXPECT_TRUE(figure->info->frame == 12 && figure->info->textureIndices == nullptr);
    EXPECT_EQ(figure->info->loadedAction->header.object, &tree.actionObject);
    const K8Texture *first = figure->info->loadedTextures[0], *secondMap = first->info->secondMap;
    EXPECT_NE(first, &tree.first);
    EXPECT_EQ(first->info->textureMode, 1);
    EXPECT_EQ(secondMap->header.object, &tree.textureObjects[2]);
    EXPECT_EQ(secondMap->info, nullptr) << "a second map has no info of its own";
    EXPECT_TRUE(secondMap->keepsBlending && figure->info->loadedTextures[1]->keepsBlending);
    EXPECT_EQ(reinterpret_cast<K8Light*>(root->info->childHandles[1])->info->direction[2], 6);
    const auto* primitive = reinterpret_cast<K8Primitive*>(root->info->childHandles[3]);
    tree.positions[2] = 31;
    EXPECT_EQ(primitive->info->values[0][2], 30);
    EXPECT_EQ(primitive->info->values[2], nullptr) << "a count of 0 has no array";
    const auto* inner = reinterpret_cast<K8Group*>(root->info->childHandles[4]);
    EXPECT_EQ(inner->header.classId, K8_CLASS_SCENE_GROUP);
    EXPECT_NE(inner->info->childHandles[0], root->info->childHandles[3]) << "named twice, copied twice";
    EXPECT_EQ(inner->info->childHandles[1], nullptr) << "a null child stays null";

    K8Handle_releaseCopy(&root->header);
    EXPECT_EQ(tree.references(), std::vector<int32_t>(7, 1));
    EXPECT_EQ(host.liveBlocks(), poolBlocks);
}

TEST(HandleCopy, FailsWholeOrNotAtAll) {
    sweepHostAllocations(FailMode::Once, [](CountingAllocator& host) {
        const PoolOwner pool = makePool(host);
        if (!pool) return;
        const int32_t poolBlocks = host.liveBlocks();
        Tree tree;
        K8ErrStorage_setErrorStatus(77);
        K8Handle* copy = K8Handle_copyTree(&tree.root.header, pool.get());
        EXPECT_EQ(copy == nullptr, host.hasFailed());
        if (!copy) {
            EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_OUT_OF_MEMORY);
            EXPECT_EQ(host.liveBlocks(), poolBlocks);
            copy = K8Handle_copyTree(&tree.root.header, pool.get());
            EXPECT_NE(copy, nullptr) << "and succeeds once there is memory";
        }
        K8Handle_releaseCopy(copy);
        EXPECT_EQ(tree.references(), std::vector<int32_t>(7, 1));
    });
}

TEST(HandleCopy, RefusesWhatCannotBeDrawnAndLoopsEnd) {
    CountingAllocator host;
    const PoolOwner pool = makePool(host);
    struct Case {
        const char* what;
        void (*change)(Tree&);
        int32_t status;
    };
    for (const Case& c :
         {Case{"a null texture", [](Tree& t) { t.textures[1] = nullptr; }, K8_ERR_FAILURE},
          Case{"no texture array", [](Tree& t) { t.figureInfo.loadedTextures = nullptr; }, K8_ERR_FAILURE},
          Case{"no value array", [](Tree& t) { t.primitiveInfo.values[0] = nullptr; }, K8_ERR_FAILURE},
          Case{"no child array", [](Tree& t) { t.innerInfo.childHandles = nullptr; }, K8_ERR_FAILURE},
          Case{"an unknown class", [](Tree& t) { t.light.header.classId = 9; }, K8_ERR_FAILURE},
          Case{"a group inside itself", [](Tree& t) { t.innerChildren[1] = &t.root.header; }, K8_ERR_OUT_OF_MEMORY}}) {
        SCOPED_TRACE(c.what);
        Tree tree;
        c.change(tree);
        K8ErrStorage_setErrorStatus(77);
        EXPECT_EQ(K8Handle_copyTree(&tree.root.header, pool.get()), nullptr);
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), c.status);
        EXPECT_EQ(tree.references(), std::vector<int32_t>(7, 1));
    }
    EXPECT_EQ(K8Handle_copyTree(nullptr, pool.get()), nullptr);
}

}  // namespace
