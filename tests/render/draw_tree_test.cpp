// What becomes of a queued tree of groups: its items, its lights and its fog.
#include "render/draw_tree.h"

#include "frame/k8_transform.h"
#include "scene/group.h"
#include "scene/light.h"
#include "scene/skinned_mesh.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_buffer.h"
#include "tests/render/figure_stage.h"
#include "tests/render/scene_parts.h"

namespace {

class DrawTreeTest : public FigureTest {
protected:
    DrawTreeTest() {
        for (size_t i = 0; i < fogs.size(); ++i) {
            fogs[i] = K8Fog_create(nullptr, host.get());
            K8Fog_setColor(fogs[i], uint32_t('a' + i));
        }
        K8Fog_setColor(content.fog, 'B');
        broken = K8Figure_create(nullptr, host.get());
        K8FigureInfo info{};
        info.loadedTextureCount = 1;  // without the textures
        K8Figure_setTmpData(broken, &info);
    }
    ~DrawTreeTest() override { destroyTree(); }

    void destroyTree() {
        for (K8Group* group : groups) K8Group_destroy(group);
        groups.clear();
        for (K8Fog*& fog : fogs) K8Fog_destroy(std::exchange(fog, nullptr));
        K8Figure_destroy(std::exchange(broken, nullptr));
    }

    K8Group* makeGroup(const std::vector<K8Handle*>& children, K8Transform* transform = nullptr) {
        return groups.emplace_back(::makeGroup(host.get(), children, transform));
    }
    // A figure F, a broken figure X, lights 0 to 9, fogs a and b, no child -; parentheses around the children of a
    // group. The text is the inside of the root.
    K8Group* parse(const std::string& text) {
        size_t at = 0;
        return parse(text, at);
    }

    bool queueTree(const K8Group* group) {
        return K8Render_render3D(render, &content.params, &const_cast<K8Group*>(group)->header, &content.place);
    }
    std::vector<const DrawItem*> items() const {
        std::vector<const DrawItem*> all;
        for (const DrawItem* item = render->context->head; item; item = item->next) all.push_back(item);
        EXPECT_EQ(render->context->tail, all.empty() ? nullptr : all.back());
        return all;
    }

    std::vector<K8Group*> groups;
    std::array<K8Fog*, 2> fogs;
    K8Figure* broken;  // cannot be copied

private:
    K8Group* parse(const std::string& text, size_t& at) {
        std::vector<K8Handle*> children;
        while (at < text.size()) {
            const char c = text[at++];
            if (c == ')') break;
            children.push_back(c == '('   ? &parse(text, at)->header
                               : c == 'F' ? &content.figure->header
                               : c == 'X' ? &broken->header
                               : c == '-' ? nullptr
                               : c >= 'a' ? &fogs[size_t(c - 'a')]->header
                                          : &content.lights[size_t(c - '0')]->header);
        }
        return makeGroup(children);
    }
};

// --- Items ---

TEST_F(DrawTreeTest, ItemsComeDepthFirstAndStandWhereTheGroupsPutThem) {
    K8Transform* view = moved(1, 2, 3);
    K8Transform_rotate(view, 0, fixed(1), 0, fixed(30));
    content.params.viewingTransform = view;
    K8Transform* outer = moved(0, 5, 0);
    K8Transform_scale(outer, fixed(2), fixed(1), fixed(0.5));
    K8Transform* inner = moved(-1, 0, 4);
    K8Handle* figure = &content.figure->header;
    K8Group* shared = makeGroup({figure, &parse("")->header, &content.actions->header, figure}, inner);
    K8Group* bare = groups.emplace_back(K8Group_create(nullptr, host.get()));  // without loaded info
    K8Group* root = makeGroup({figure, nullptr, &shared->header, &content.textures[0]->header, &bare->header,
                               &makeGroup({&shared->header})->header, figure},
                              outer);
    ASSERT_TRUE(queue());
    ASSERT_TRUE(queueTree(root));
    ASSERT_TRUE(queue());
    EXPECT_EQ(render->context->queuedCalls, 3u);
    const K8Transform alone = product({view, &content.place}), above = product({&alone, outer}),
                      below = product({&above, inner});
    const K8Transform* places[] = {&alone, &above, &below, &below, &below, &below, &above, &alone};
    const std::vector<const DrawItem*> queued = items();
    ASSERT_EQ(queued.size(), std::size(places));
    for (size_t i = 0; i < queued.size(); ++i) {
        EXPECT_EQ(queued[i]->sortKey, i == 0 ? 0u : i < 7 ? 1u : 2u) << i;
        EXPECT_TRUE(K8Transform_equal(queued[i]->transform.elements, places[i]->elements)) << i;
    }
    K8Render_clear3D(render);
    EXPECT_TRUE(queueTree(bare)) << "nothing is queued";
    EXPECT_TRUE(items().empty());
}

// --- Lights ---

TEST_F(DrawTreeTest, LightsStandWhereTheirGroupsPutThem) {
    content.params.viewingTransform = moved(1, 2, 3);
    content.params.lightCount = 1;
    content.setLight(2, {{fixed(3), fixed(-4), fixed(5)}, {0, 0, fixed(-1)}});
    K8Light_clearTmpData(content.lights[4]);
    K8Light gone;
    K8Light_destroy(K8Light_create(&gone, host.get()));
    gone.header.classId = K8_CLASS_LIGHT;
    K8Transform *outer = moved(0, 5, 0), *inner = moved(-1, 0, 4);
    K8Transform_rotate(outer, 0, 0, fixed(1), fixed(90));
    K8Group* lit = makeGroup(
        {&content.lights[2]->header, &content.lights[4]->header, &content.lights[0]->header, &gone.header}, inner);
    ASSERT_TRUE(queueTree(makeGroup(
        {&content.figure->header, &content.lights[1]->header, &lit->header, &lit->header, &content.figure->header},
        outer)));
    const std::vector<const DrawItem*> queued = items();
    ASSERT_EQ(queued.size(), 2u);
    EXPECT_TRUE(queued[0]->lightsChanged) << "lights behind it in the tree count too";
    EXPECT_FALSE(queued[1]->lightsChanged);
    const K8Transform above = product({content.params.viewingTransform, &content.place, outer}),
                      placed = product({&above, inner, moved(3, -4, 5)});
    const K8Transform* expected[] = {content.params.viewingTransform, &above, &placed};
    ASSERT_EQ(queued[0]->lightCount, int32_t(std::size(expected))) << "each once, and none that cannot shine";
    for (uint32_t i = 0; i < std::size(expected); ++i) {
        EXPECT_EQ(queued[0]->lights[i]->color, i + 1);
        EXPECT_TRUE(K8Transform_equal(queued[0]->lightTransforms[i].elements, expected[i]->elements)) << i;
    }
}

TEST_F(DrawTreeTest, ShallowLightsDisplaceDeepOnes) {
    for (const auto& [what, blockLights, tree, kept] :  // by slot
         {std::tuple{"the first eight of a group", 0, "F0123456789", "01234567"},
          {"a deeper one is dropped", 0, "F01234567(8)", "01234567"},
          {"the last of a group yields", 0, "F(01234567)89", "01234598"},
          {"the deepest yields first", 0, "F(((0))1234567)89", "81234569"},
          {"of as deep ones that of the later group", 0, "F((9)0123456()7)8", "80123456"},
          {"a dropped one met again higher up", 0, "F(0123456)(7)(8)8", "01234568"},
          {"and stay", 8, "F89", "01234567"}}) {
        content.params.lightCount = uint16_t(blockLights);
        ASSERT_TRUE(queueTree(parse(tree)));
        const DrawItem* item = items().at(0);
        std::string lights;
        for (int32_t i = 0; i < item->lightCount; ++i) lights += char('0' + item->lights[i]->color - 1);
        EXPECT_EQ(lights, kept) << what;
        K8Render_clear3D(render);
    }
}

TEST_F(DrawTreeTest, ScenesLoseTheirLightsButNotThoseInSkeletons) {
    const auto groupOf = [](const std::vector<Node*>& children) {
        Held<Group> group(qelGroup_create());
        for (Node* child : children) EXPECT_EQ(qelGroup_addChild(group, child), QEL_STATUS_OK);
        return group;
    };
    const auto wrap = [&](Group* scene, const std::vector<K8Handle*>& children) {
        K8Group* group = makeGroup(children);
        group->header.classId = K8_CLASS_SCENE_GROUP;
        qelObject3D_ref(group->header.object = scene);
        return group;
    };
    std::vector<Held<Light>> lights;
    for (int i = 0; i < 6; ++i) lights.emplace_back(qelLight_create());
    const Held<Group> bone = groupOf({lights[0]}), skeleton = groupOf({bone}), inner = groupOf({lights[1], lights[2]}),
                      foreign = groupOf({lights[5]});
    int32_t length = 3;
    Result result;
    const Held<TriangleStripArray> strip(qelTriangleStripArray_createImplicit(0, &length, 1, true, &result));
    TriangleStripArray* const strips[] = {strip};
    const Held<VertexBuffer> vertices(qelVertexBuffer_create());
    const Held<SkinnedMesh> skinned(qelSkinnedMesh_create(vertices, strips, nullptr, skeleton, 1, &result));
    const Held<Group> outer = groupOf({lights[3], skinned, lights[4], inner});

    // What a part of a scene lists need not be of that scene.
    K8Group *part = wrap(inner, {&wrap(foreign, {})->header}), *whole = wrap(outer, {&part->header});
    ASSERT_TRUE(queueTree(whole));
    ASSERT_TRUE(queueTree(wrap(bone, {})));
    for (size_t i = 0; i < lights.size(); ++i) EXPECT_EQ(lights[i]->parent, i == 0 ? bone.get() : nullptr) << i;
    EXPECT_EQ(inner->childCount + foreign->childCount, 0);
    ASSERT_EQ(outer->childCount, 2);
    EXPECT_EQ(outer->children[0], skinned);
    EXPECT_EQ(outer->children[1], inner);
    EXPECT_EQ(inner->childSlot, 1);
}

// --- Fog ---

TEST_F(DrawTreeTest, TheFogNearestToTheRootCoversTheCall) {
    content.params.fog = content.fog;
    for (const auto& [tree, color] : {std::pair{"F", 'B'}, {"F(F(a))F", 'a'}, {"Fa(b)", 'a'}, {"((a))(b)F", 'b'}}) {
        ASSERT_TRUE(queueTree(parse(tree)));
        for (const DrawItem* item : items()) {
            EXPECT_EQ(item->fog->color, uint32_t(color)) << tree;
            for (const K8Fog* fog : {fogs[0], fogs[1], content.fog}) EXPECT_NE(item->fog, fog->header.object);
        }
        K8Render_clear3D(render);
    }
}

// --- Failures ---

TEST_F(DrawTreeTest, AGroupIsQueuedWholeOrNotAtAll) {
    const Object3D* figure = content.figure->header.object;
    // Whatever lights the failed group brought, those before and behind it are lit by their own.
    for (const int before : {0, 1}) {
        for (const int behind : {0, 1, 2}) {
            content.params.lightCount = uint16_t(before);
            ASSERT_TRUE(queue());
            content.params.lightCount = 2;
            EXPECT_FALSE(queueTree(parse("F5(F6)X")));
            EXPECT_EQ(takeStatus(), K8_ERR_FAILURE);
            EXPECT_EQ(items().size(), 1u);
            EXPECT_EQ(figure->refCount, 2);
            EXPECT_EQ(render->context->queuedCalls, 1u);
            heap.failAfter(0);  // the fog, or a light
            content.params.fog = content.fog;
            EXPECT_FALSE(queue());
            content.params.fog = nullptr;
            heap.failAfter(kNeverFail);
            content.params.lightCount = uint16_t(behind);
            ASSERT_TRUE(queue());
            EXPECT_EQ(items().at(1)->lightsChanged, before != behind);
            const std::vector<DrawnPart> drawn = flush();
            for (const int light : {0, 1, 2}) {
                const std::string name = "LIGHT" + std::to_string(light);
                EXPECT_EQ(drawn.at(0).has(name), light < before);
                EXPECT_EQ(drawn.back().has(name), light < behind) << before << " before, " << behind << " behind";
            }
        }
    }
    K8Group* wrong = makeGroup({&content.figure->header});
    K8Allocator_free(host.get(), std::exchange(wrong->info->childHandles, nullptr));
    EXPECT_FALSE(queueTree(wrong)) << "children are counted but not there";
    EXPECT_EQ(takeStatus(), K8_ERR_FAILURE);
}

TEST_F(DrawTreeTest, AFullListIsLeftAsItWas) {
    content.setTextures({});
    for (uint32_t i = 0; i < kMaxRecordsPerKind - 2; ++i) ASSERT_TRUE(queue());
    const DrawItem* last = render->context->tail;
    EXPECT_FALSE(queueTree(parse("FFF")));
    EXPECT_EQ(takeStatus(), K8_ERR_OUT_OF_MEMORY);
    EXPECT_EQ(render->context->tail, last);
    EXPECT_TRUE(queueTree(parse("FF")));
    EXPECT_FALSE(queue());
    EXPECT_EQ(takeStatus(), K8_ERR_OUT_OF_MEMORY);
    glRecorder.draws.clear();
    EXPECT_TRUE(StageContent::flush(render));
    EXPECT_EQ(glRecorder.draws.size(), 2 * kMaxRecordsPerKind) << "all of them";
}

TEST_F(DrawTreeTest, WalksOfTreesThatAreTooLargeEnd) {
    K8Group* wide = makeGroup(std::vector<K8Handle*>(65535));
    std::vector<K8Handle*> wides(16, &wide->header);
    K8Group* widest = makeGroup(wides);  // 16 + 16 x 65535 children
    wides.push_back(nullptr);
    K8Group* tooWide = makeGroup(wides);
    K8Group* doubled = parse("");  // 65535 groups when it has doubled fifteen times
    for (int i = 0; i < 15; ++i) doubled = makeGroup({&doubled->header, &doubled->header});
    K8Group* tooMany = makeGroup({&doubled->header});
    K8Group* deep = parse("F");
    for (uint32_t i = 1; i < kMaxRecordsPerKind; ++i) deep = makeGroup({&deep->header});
    K8Group* tooDeep = makeGroup({&deep->header});
    K8Group* cycle = makeGroup({&content.figure->header, nullptr});
    cycle->info->childHandles[1] = &cycle->header;
    for (int round = 0; round < 2; ++round) {  // no record is lost
        for (const auto& [what, root, status] : {std::tuple{"all children", widest, kNoStatus},
                                                 {"a child more", tooWide, K8_ERR_FAILURE},
                                                 {"all groups", doubled, kNoStatus},
                                                 {"a group more", tooMany, K8_ERR_FAILURE},
                                                 {"as deep as it goes", deep, kNoStatus},
                                                 {"a level more", tooDeep, K8_ERR_OUT_OF_MEMORY},
                                                 {"a group that contains itself", cycle, K8_ERR_OUT_OF_MEMORY}}) {
            EXPECT_EQ(queueTree(root), status == kNoStatus) << what;
            EXPECT_EQ(takeStatus(), status) << what;
        }
        EXPECT_EQ(items().size(), 1u) << "the figure at the end of the deep chain";
        EXPECT_EQ(flush().size(), 2u);
    }
}

}  // namespace
