#include "render/render_context.h"

#include <cstring>
#include <functional>

#include "render/gl_state.h"
#include "tests/render/figure_stage.h"

namespace {

using RenderContextTest = FigureTest;

TEST(RenderContext, LivesInTheHostsMemoryOrItsOwn) {
    CountingHeap heap;
    CountingAllocator host;
    EXPECT_EQ(K8Render_create(nullptr, nullptr), nullptr);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
    K8Render* own = K8Render_create(nullptr, host.get());
    EXPECT_EQ(own->header.ownBlock, own);
    EXPECT_EQ(own->header.object, nullptr);
    const int32_t blocks = host.liveBlocks();
    K8Render_destroy(own);
    EXPECT_EQ(host.liveBlocks(), 0);

    alignas(std::max_align_t) uint8_t contextMemory[K8_RENDER_CONTEXT_SIZE];
    for (const bool givesContext : {false, true}) {
        K8Render memory;
        std::memset(static_cast<void*>(&memory), 0xA5, sizeof memory);
        std::memset(contextMemory, 0xA5, sizeof contextMemory);
        memory.context = givesContext ? reinterpret_cast<K8RenderContext*>(contextMemory) : nullptr;
        ASSERT_EQ(K8Render_create(&memory, host.get()), &memory);
        EXPECT_EQ(memory.header.ownBlock, nullptr);
        EXPECT_EQ(host.liveBlocks(), blocks - (givesContext ? 2 : 1));
        K8Render_destroy(&memory);
        EXPECT_EQ(host.liveBlocks(), 0);
        EXPECT_EQ(memory.context, nullptr);
        EXPECT_FALSE(StageContent::flush(&memory)) << "what is left of a handle is refused";
    }
    K8Render_destroy(nullptr);
}

TEST_F(RenderContextTest, BindRefusesWhatCannotBeDrawnTo) {
    for (const auto& [handle, surface, width, height] :
         {std::tuple<K8Render*, void*, int32_t, int32_t>{nullptr, this, 8, 8},
          {render, nullptr, 8, 8},
          {render, this, 0, 8},
          {render, this, 8, -8},
          {render, this, 2049, 8},
          {render, this, 8, 2049}}) {
        EXPECT_FALSE(K8Render_bind(handle, surface, width, height, 8, 0, 0, 8, 8)) << width << " x " << height;
        EXPECT_EQ(takeStatus(), K8_ERR_FAILURE) << width << " x " << height;
    }
    EXPECT_EQ(queueAndFlush().size(), 2u) << "the binding before a refused one stays";
    EXPECT_TRUE(K8Render_bind(render, this, 2048, 2048, -1, -5, 70000, 0, -3)) << "the rectangle may be anything";
    EXPECT_EQ(takeStatus(), kNoStatus);
}

TEST_F(RenderContextTest, AllContextsShareOneGraphics3D) {
    K8Render* second = K8Render_create(nullptr, host.get());
    glRecorder.take();
    EXPECT_TRUE(content.bind(second));
    EXPECT_TRUE(glRecorder.take().empty()) << "nothing is set up again";
    EXPECT_EQ(second->header.object, render->header.object);
    K8Render_destroy(render);
    render = second;
    EXPECT_EQ(queueAndFlush().size(), 2u);
    EXPECT_TRUE(K8Render_limitTexMemory(render, 12345));
    K8Render_destroy(render);
    render = K8Render_create(nullptr, host.get());
    glRecorder.take();
    EXPECT_TRUE(content.bind(render));
    EXPECT_NE(brief(glRecorder.take()).find("Disable(LIGHT0)"), std::string::npos) << "the last one had taken it along";
    EXPECT_EQ(K8Render_graphics(render)->backend->textureMemoryLimit, 0u);
}

// --- Flushing ---

TEST_F(RenderContextTest, DrawsWhereBindAndFlushRectangleMeet) {
    constexpr int32_t kMin = INT32_MIN, kMax = INT32_MAX;
    K8Primitive* point = makePrimitive(host.get(), K8_PRIM_POINTS, 0);
    for (const auto& [what, b, f, cleared, drawn] : {
             // drawn empty: nothing is
             std::tuple{"crossing", PixelRect{50, 0, 50, 120}, PixelRect{0, 50, 160, 20}, "50, 50, 50, 20",
                        std::string("50, 50, 50, 20")},
             {"over the edges", {-20, -20, 500, 500}, {-5, -9, 50, 19}, "0, 110, 45, 10", "0, 110, 45, 10"},
             {"everything there is", {kMin, kMin, kMax, kMax}, {0, 0, kMax, kMax}, "", ""},
             {"far", {0, 0, kMax, kMax}, {1, 2, kMax, kMax}, "1, -1928, 2047, 2046", "1, 0, 159, 118"},
             {"missed", {0, 0, 50, 50}, {50, 0, 50, 50}, "", ""},
             {"empty bind rectangle", {0, 0, 0, 50}, {0, 0, 160, 120}, "", ""},
             {"negative flush size", {0, 0, 160, 120}, {50, 50, -10, 10}, "", ""},
         }) {
        SCOPED_TRACE(what);
        ASSERT_TRUE(K8Render_bind(render, this, 160, 120, 160, b.x, b.y, b.width, b.height));
        ASSERT_TRUE(queue());
        ASSERT_TRUE(K8Render_render3D(render, &content.params, &point->header, nullptr));
        glRecorder.take();
        EXPECT_TRUE(K8Render_flush(render, f.x, f.y, f.width, f.height));
        EXPECT_EQ(render->context->head, nullptr);
        const std::string sent = brief(glRecorder.take());
        EXPECT_EQ(sent.empty(), drawn.empty());
        if (drawn.empty()) continue;
        // The depth is cleared at the beginning and before the pass of points.
        const std::string clear = "Clear(depth)", scissor = "Scissor(" + drawn + ")";
        const size_t first = sent.find(clear), second = sent.find(clear, first + 1);
        ASSERT_NE(second, std::string::npos);
        EXPECT_LT(sent.find(std::string("Scissor(") + cleared + ")"), first);
        EXPECT_LT(sent.find("Viewport(0, 0, 160, 120); " + scissor, first), second);
        EXPECT_EQ(sent.substr(sent.rfind("Scissor(", second), scissor.size()), scissor);
        EXPECT_EQ(sent.find("ClearColor"), std::string::npos);
    }
    K8Primitive_destroy(point);
    EXPECT_EQ(takeStatus(), kNoStatus);
}

TEST_F(RenderContextTest, ARefusedFlushStillEmptiesTheList) {
    K8Render* unbound = K8Render_create(nullptr, host.get());
    EXPECT_TRUE(StageContent::flush(unbound)) << "there is nothing to draw";
    EXPECT_EQ(takeStatus(), kNoStatus);
    for (const auto& [handle, width, height] : {std::tuple{render, 0, 8}, {render, 8, 0}, {unbound, 8, 8}}) {
        EXPECT_TRUE(content.queue(handle));
        glRecorder.take();
        EXPECT_FALSE(K8Render_flush(handle, 0, 0, width, height)) << width;
        EXPECT_EQ(takeStatus(), K8_ERR_FAILURE) << width;
        EXPECT_EQ(handle->context->head, nullptr) << width;
        EXPECT_TRUE(glRecorder.take().empty()) << width;
    }
    EXPECT_FALSE(K8Render_flush(nullptr, 0, 0, 8, 8));
    EXPECT_EQ(takeStatus(), K8_ERR_FAILURE);
    EXPECT_TRUE(content.queue(unbound));
    EXPECT_FALSE(K8Render_clear3D(nullptr) || K8Render_clear3D(unbound));
    EXPECT_EQ(takeStatus(), K8_ERR_FAILURE);
    EXPECT_TRUE(content.bind(unbound));
    glRecorder.draws.clear();
    EXPECT_TRUE(StageContent::flush(unbound)) << "what was queued while unbound is drawn";
    EXPECT_EQ(glRecorder.draws.size(), 2u);
    EXPECT_TRUE(content.queue(unbound));
    K8Render_destroy(unbound);  // with its list
}

TEST_F(RenderContextTest, ClearingForgetsWhatWasQueued) {
    EXPECT_TRUE(queue());
    const DrawItem* firstRecord = render->context->head;
    for (int i = 0; i < 40; ++i) EXPECT_TRUE(queue());  // more than a block of records
    EXPECT_TRUE(K8Render_clear3D(render));
    EXPECT_TRUE(flushLines().empty());
    EXPECT_EQ(content.figure->header.object->refCount, 1);
    EXPECT_TRUE(K8Render_clear3D(render)) << "an empty list too";
    EXPECT_TRUE(queue());
    EXPECT_EQ(render->context->queuedCalls, 1u);
    EXPECT_EQ(render->context->head, firstRecord) << "the pools start over";
}

TEST_F(RenderContextTest, TheTextureLimitRefusesWhatExceedsIt) {
    K8Render* unbound = K8Render_create(nullptr, host.get());
    for (K8Render* handle : {unbound, static_cast<K8Render*>(nullptr)}) {
        EXPECT_FALSE(K8Render_limitTexMemory(handle, 1));
        EXPECT_EQ(takeStatus(), K8_ERR_FAILURE);
    }
    K8Render_destroy(unbound);
    content.set([](K8FigureInfo& info) { info.action = 0x80000000, info.pattern = 1u << 1; });  // both textures
    EXPECT_TRUE(K8Render_limitTexMemory(render, 2 * 128 - 1));  // each is charged 8 x 8 x 2 bytes
    EXPECT_TRUE(queue());
    EXPECT_FALSE(StageContent::flush(render));
    EXPECT_EQ(takeStatus(), K8_ERR_OUT_OF_MEMORY);
    EXPECT_EQ(render->context->head, nullptr);
    EXPECT_TRUE(K8Render_limitTexMemory(render, 2 * 128));
    EXPECT_EQ(queueAndFlush().size(), 4u) << "reaching the limit is allowed";
}

// --- Failing allocations ---

// The life of a context around a lit, foggy tree of everything that can be drawn, step by step. A step that fails has
// reported that memory ran out and left things as they were, and succeeds when it is tried again.
bool failsInItsLife(K8Allocator* host, AllocationCounter& counter, int32_t failAt, FailMode mode) {
    StageContent content(host);
    content.setMode(content.textures[0], 0, content.textures[2]);
    content.setTextures({content.textures[0], content.textures[1]});
    content.params.lightCount = 3;
    content.params.fog = content.fog;
    content.set([&](K8FigureInfo& info) {
        info.loadedAction = content.actions;
        info.blendMode = K8_BLEND_ALPHA;
    });
    std::vector<K8Handle*> leaves = {&content.lights[5]->header, &content.figure->header};
    for (const uint32_t type : {K8_PRIM_POINTS, K8_PRIM_LINES, K8_PRIM_TRIANGLES, K8_PRIM_QUADS, K8_PRIM_SPRITES})
        leaves.push_back(&makePrimitive(host, type, 0, K8_BLEND_ALPHA)->header);
    reinterpret_cast<K8Primitive*>(leaves.back())->info->texture = content.textures[2];
    K8Group *inner = makeGroup(host, leaves, &content.place), *tree = makeGroup(host, {&inner->header});
    K8Render* render = nullptr;
    const auto queue = [&] {
        const bool queued = K8Render_render3D(render, &content.params, &tree->header, nullptr);
        EXPECT_EQ(render->context->head != nullptr, queued);
        EXPECT_EQ(render->context->queuedCalls, queued ? 1u : 0u);
        return queued;
    };
    const std::function<bool()> steps[] = {
        [&] { return (render = K8Render_create(nullptr, host)) != nullptr; },
        [&] {
            const bool isBound = content.bind(render);
            EXPECT_EQ(render->header.object != nullptr, isBound);
            return isBound;
        },
        queue,
        [&] {
            EXPECT_TRUE(render->context->head || queue()) << "a failed flush has emptied the list";
            glRecorder.draws.clear();
            const bool flushed = StageContent::flush(render);
            EXPECT_EQ(render->context->head, nullptr);
            return flushed;
        },
    };
    bool hasFailed = false;
    counter.failAfter(failAt, mode);
    for (const auto& step : steps) {
        const bool before = counter.hasFailed();
        K8ErrStorage_setErrorStatus(77);
        if (step()) {
            EXPECT_EQ(counter.hasFailed(), before) << "a failure went unnoticed";
            continue;
        }
        EXPECT_NE(counter.hasFailed(), before);
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_OUT_OF_MEMORY);
        hasFailed = true;
        counter.failAfter(kNeverFail);
        EXPECT_TRUE(step());
    }
    EXPECT_EQ(glRecorder.draws.size(), 4u + 5u);
    K8Render_destroy(render);
    for (size_t i = 2; i < leaves.size(); ++i) K8Object3D_destroy(leaves[i]);
    K8Group_destroy(inner);
    K8Group_destroy(tree);
    return hasFailed;
}

TEST(RenderContext, EveryAllocationMayFail) {
    for (const FailMode mode : {FailMode::Once, FailMode::FromThenOn})
        sweepAllocations([mode](K8Allocator* host, AllocationCounter& counter, int32_t failAt) {
            return failsInItsLife(host, counter, failAt, mode);
        });
}

}  // namespace
