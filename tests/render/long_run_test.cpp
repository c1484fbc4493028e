// A host that runs for a long time: what it creates, changes, queues and destroys leaves no memory behind.
#include <memory>
#include <random>

#include "render/texture_upload.h"
#include "tests/render/figure_stage.h"
#include "tests/support/null_gl.h"

namespace {

constexpr uint32_t kFrames = 100'000, kWarmUpFrames = 5'000;
constexpr uint32_t kMostCalls = 3, kMostLeaves = 5;  // of a frame, of a call
constexpr int16_t kBlendModes[] = {K8_BLEND_NONE, K8_BLEND_ALPHA, K8_BLEND_ADDITIVE};

// What a host has loaded together and lets go together.
struct Scene {
    StageContent content;
    std::array<K8Primitive*, 5> primitives;

    explicit Scene(K8Allocator* blocks) : content(blocks) {
        for (uint32_t i = 0; i < 5; ++i) primitives[i] = makePrimitive(blocks, K8_PRIM_POINTS + i, 0xFF0000);
    }
    ~Scene() {
        for (K8Primitive* primitive : primitives) K8Primitive_destroy(primitive);
    }
};

class LongRun : public testing::Test {
protected:
    LongRun() {
        render = K8Render_create(nullptr, host.get());
        renewScenes();
        EXPECT_TRUE(scenes[0]->content.bind(render));
    }
    ~LongRun() override { K8Render_destroy(render); }

    uint32_t below(uint32_t end) { return uint32_t(random() % end); }
    bool oneIn(uint32_t chances) { return below(chances) == 0; }

    void renewScenes() {
        for (std::unique_ptr<Scene>& scene : scenes) scene = std::make_unique<Scene>(host.get());
    }
    void change(Scene& scene) {
        StageContent& content = scene.content;
        content.setMode(content.textures[0], int16_t(below(2)), oneIn(3) ? content.textures[2] : nullptr);
        content.setTextures(oneIn(4) ? std::vector<K8Texture*>{}
                                     : std::vector{content.textures[0], content.textures[1]});
        content.set([&](K8FigureInfo& info) {
            info.action = below(2) | (oneIn(2) ? 0x80000000 : 0);
            info.pattern = below(8);
            info.frame = int32_t(below(12 << 16));
            info.blendMode = kBlendModes[below(3)];
            info.loadedAction = oneIn(3) ? nullptr : content.actions;
        });
        content.params.projection = int16_t(below(4));
        content.params.lightCount = uint16_t(below(4));
        content.params.fog = oneIn(2) ? content.fog : nullptr;
        K8Light_setColor(content.lights[below(4)], below(1 << 24));
        K8Primitive*& primitive = scene.primitives[below(5)];
        const uint32_t type = primitive->info->type;
        K8Primitive_destroy(primitive);
        primitive = makePrimitive(host.get(), type, int32_t(below(1 << 24)), kBlendModes[below(3)], fixed(60));
        if (type == K8_PRIM_SPRITES && oneIn(2)) primitive->info->texture = content.textures[below(3)];
    }
    // Queues the leaves as a group within a group, both gone afterwards.
    bool queueTree(Scene& scene, const std::vector<K8Handle*>& leaves) {
        K8Group* inner = makeGroup(host.get(), leaves, oneIn(2) ? &scene.content.place : nullptr);
        K8Group* outer = makeGroup(host.get(), {nullptr, &inner->header});
        const bool queued = K8Render_render3D(render, &scene.content.params, &outer->header, &scene.content.place);
        K8Group_destroy(outer);
        K8Group_destroy(inner);
        return queued;
    }
    bool queueSomething() {
        Scene& scene = *scenes[below(3)];
        if (oneIn(2)) change(scene);
        if (oneIn(3)) return scene.content.queue(render);
        std::vector<K8Handle*> leaves(below(kMostLeaves) + 1);
        for (K8Handle*& leaf : leaves) {
            const uint32_t kind = below(8);
            leaf = kind == 0   ? &scene.content.lights[below(10)]->header
                   : kind == 1 ? &scene.content.fog->header
                   : kind < 4  ? &scene.content.figure->header
                               : &scene.primitives[below(5)]->header;
        }
        return queueTree(scene, leaves);
    }

    void runFrame() {
        if (oneIn(32)) scenes[below(3)] = std::make_unique<Scene>(host.get());
        const uint32_t calls = below(kMostCalls + 1);
        for (uint32_t i = 0; i < calls; ++i) EXPECT_TRUE(queueSomething());
        if (oneIn(32)) {
            EXPECT_TRUE(K8Render_clear3D(render));
        } else if (oneIn(32)) {
            EXPECT_TRUE(K8Render_flush(render, -10, 0, 5, 5)) << "nothing is seen";
        } else if (oneIn(32)) {
            heap.failAfter(int32_t(below(20)));
            StageContent::flush(render);
            heap.failAfter(kNeverFail);
        } else {
            EXPECT_TRUE(StageContent::flush(render));
        }
    }

    // With everything that the host loaded gone, and only the context left.
    int64_t bytesWithoutScenes() {
        for (std::unique_ptr<Scene>& scene : scenes) scene.reset();
        EXPECT_EQ(qelTextures_memoryInUse(), 0u);
        EXPECT_EQ(nullGl_calls(GlCall::GenTextures), nullGl_calls(GlCall::DeleteTextures));
        const int64_t bytes = heap.liveBytes() + host.liveBytes();
        renewScenes();
        return bytes;
    }

    std::mt19937 random{20'000'101};
    CountingHeap heap;
    CountingAllocator host;
    std::array<std::unique_ptr<Scene>, 3> scenes;
    K8Render* render;
};

TEST_F(LongRun, LeavesNoMemoryBehind) {
    for (uint32_t frame = 0; frame < kWarmUpFrames; ++frame) runFrame();
    const int64_t warm = bytesWithoutScenes();
    for (uint32_t frame = kWarmUpFrames; frame < kFrames && !HasFailure(); ++frame) runFrame();
    EXPECT_EQ(bytesWithoutScenes(), warm);
    EXPECT_GT(nullGl_calls(GlCall::DrawElements), kFrames) << "figures, triangles and quadrilaterals";
    EXPECT_GT(nullGl_calls(GlCall::DrawArrays), kFrames / 2) << "points, lines and sprites";
}

}  // namespace
