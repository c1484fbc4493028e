// Commands of points, lines, triangles and sprites: what is refused, what reaches OpenGL ES, where it stands, what is
// left.
#include "render/render_state.h"

#include <gtest/gtest.h>

#include <array>

#include "frame/error_status.h"
#include "render/command_queue.h"
#include "scene/light.h"
#include "tests/render/scene_parts.h"
#include "tests/support/counting_heap.h"
#include "tests/support/gl_recorder.h"

namespace {

class RenderStateTest : public testing::Test {
protected:
    static constexpr int32_t kWidth = 160, kHeight = 120;

    RenderStateTest() {
        glRecorder.reset();
        graphics = qelGraphics3D_create(kHintTrueColor, kWidth, kHeight);
        K8RenderState_reset(&state, host.get());
        K8RenderState_setClip(&state, 0, 0, kWidth, kHeight);
        K8RenderState_setCentre(&state, kWidth / 2, kHeight / 2);
        EXPECT_TRUE(K8RenderState_bind(&state, graphics, &target, kWidth, kHeight, kWidth));
        glRecorder.take();
    }
    ~RenderStateTest() override {
        K8RenderState_release(&state);
        EXPECT_EQ(host.liveBlocks(), 0);
        EXPECT_EQ(texture->refCount, 1);
        qelGraphics3D_destroy(graphics);
    }

    void queuePoint(const std::array<int32_t, 3>& point, uint32_t attributes = 0) {
        EXPECT_TRUE(
            K8RenderState_render(&state, kCommandPoints | 1 << kCommandCountShift | attributes, {point, {}, {}, {}}));
    }
    std::vector<GlDrawn> flush() {
        glRecorder.draws.clear();
        glRecorder.take();
        EXPECT_TRUE(K8RenderState_flush(&state));
        return glRecorder.takeDraws();
    }
    int target = 0;  // stands for the host's surface
    Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 4);
    Held<Texture2D> texture = makeTexture(image);
    CountingAllocator host;
    Graphics3D* graphics;
    RenderState state;
};

constexpr uint32_t command(uint32_t kind, uint32_t count, uint32_t bits = 0) {
    return kind | count << kCommandCountShift | bits;
}

std::vector<int32_t> ramp32(size_t count, int32_t first = 0) {
    std::vector<int32_t> values(count);
    for (size_t i = 0; i < count; ++i) values[i] = first + int32_t(i);
    return values;
}

// --- What is taken ---

TEST_F(RenderStateTest, RefusesCommandsThatSayNothing) {
    const std::vector<int32_t> values(100);
    const CommandArrays plenty = {values, values, values, values};
    for (const uint32_t kind : {0u, 6u, 0x80u, 0xFFu})
        for (const uint32_t count : {0u, 1u})
            EXPECT_FALSE(K8RenderState_render(&state, command(kind << 24, count), plenty)) << kind;
    EXPECT_FALSE(K8RenderState_render(&state, command(kCommandSprites, 1), plenty)) << "a sprite without record";
    EXPECT_EQ(state.queueCount, 0u);
    EXPECT_TRUE(K8RenderState_render(&state, command(kCommandTriangles, 0, 0x3F00), {})) << "nothing of something";
    EXPECT_EQ(state.queueCount, 0u);

    K8RenderState_release(&state);
    EXPECT_FALSE(K8RenderState_render(&state, command(kCommandPoints, 1), plenty)) << "not bound";
    EXPECT_FALSE(K8RenderState_flush(&state)) << "not bound";
}

// Where a unit is many pixels: drawn in entries of their own, between which the others keep their turn.
TEST_F(RenderStateTest, SmallSpritesAreDrawnToTheHalfPixel) {
    K8RenderState_setPerspectiveAngle(&state, 1, 100, 1024);  // 80 pixels a unit at depth 1, 20 at 4
    const std::vector<int32_t> centres = {2, 1, 4, 0, 0, 4, 0, 0, 200, -1, 0, 4, 0, 1, 4};
    const int32_t flags = kSpriteInPixels | kSpriteAtOwnDepth;
    std::vector<int32_t> records;
    for (const auto& [width, height] : {std::pair{200, 100}, {120, 80}, {1, 1}, {3, 1}, {200, 200}})
        for (const int32_t value : {width, height, 0, 0, 0, 8, 4, flags}) records.push_back(value);
    K8RenderState_setFog(&state, true);
    const uint32_t word = command(kCommandSprites, 5, kCommandTexturePerVertex | kCommandColorPerPrimitive);
    EXPECT_TRUE(K8RenderState_render(&state, word, {centres, {}, records, ramp32(5, 1)}));
    const std::vector<GlDrawn> drawn = flush();
    ASSERT_EQ(drawn.size(), 3u) << "two large ones, one small, one large; the third lies too deep";
    const auto expectSpan = [&](const GlDraw& draw, size_t first, const std::array<double, 4>& expected) {
        for (size_t i = 0; i < 4; ++i) {  // left, top, right, bottom: pixels
            const float at = draw.corners[i < 2 ? first : first + 5][i % 2];
            EXPECT_NEAR(i % 2 ? (1 - at) * kHeight / 2 : (at + 1) * kWidth / 2, expected[i], 1e-3) << i;
        }
    };
    expectSpan(drawn[0].draw, 0, {20, 40, 220, 120});
    expectSpan(drawn[0].draw, 6, {20, 20, 140, 100});
    EXPECT_EQ(drawn[1].draw.positions.size(), 6u);
    expectSpan(drawn[1].draw, 0, {58.5, 59.5, 61.5, 60.5});
    expectSpan(drawn[2].draw, 0, {-20, -20, 180, 180});
    EXPECT_EQ(drawn[1].last("LoadMatrixf"), "LoadMatrixf({0.025, 0, 0, 0, 0, 0.025, 0, 0, 0, 0, 1, 0, -1, 0, 4, 1})")
        << "at its depth for the fog too";
    EXPECT_EQ(drawn[1].draw.colors[5], (std::vector<float>{0, 0, 4, 255}));
}

// --- Appearances ---

TEST_F(RenderStateTest, AppearancesAreMadeOnceUntilTheCacheIsFull) {
    // Everything that tells lit triangles apart: 2 x 2 x 4 x 2 x 2 x 2.
    const std::vector<int32_t> values(9, 1);
    std::vector<uint32_t> words;
    for (const uint32_t normals : {kCommandNormalPerPrimitive, kCommandNormalPerVertex})
        for (const uint32_t specular : {0u, kCommandSpecular})
            for (const uint32_t blend : {0u, 32u, 64u, 96u})
                for (const uint32_t colorKey : {0u, kCommandColorKey})
                    for (const uint32_t colors : {0u, kCommandColorPerSet})
                        words.push_back(command(kCommandTriangles, 1,
                                                normals | kCommandLit | specular | blend | colorKey | colors));
    state.attributeMask = kMaskLighting | kMaskSpecular | kMaskBlending;
    const auto queueAll = [&] {
        for (const uint32_t word : words) ASSERT_TRUE(K8RenderState_render(&state, word, {values, values, {}, values}));
    };
    queueAll();
    queueAll();
    EXPECT_EQ(state.appearanceCount, 64);
    K8RenderState_setFog(&state, true);
    queueAll();
    EXPECT_EQ(state.appearanceCount, kAppearanceCacheSize);
    for (const auto& [entry, appearance] : {std::pair{64 + 7, 7}, {128 + 35, 99}, {128 + 36, 0}})  // the 101st
        EXPECT_EQ(state.queue[entry].appearance, appearance) << entry;
    EXPECT_EQ(flush().size(), 192u);
}

// --- Memory and failure ---

TEST_F(RenderStateTest, TheQueueGrowsByHalfAndIsKept) {
    for (int i = 0; i < 4000; ++i) queuePoint({i, 0, 1});
    EXPECT_LT(host.calls(), 35) << "of two blocks that grow";
    EXPECT_TRUE(K8RenderState_flush(&state));
    EXPECT_EQ(glRecorder.draws.size(), 4000u);
    host.failAfter(kNeverFail);
    for (int i = 0; i < 4000; ++i) queuePoint({i, 0, 1});
    EXPECT_EQ(host.calls(), 0);
}

TEST_F(RenderStateTest, ADrawThatFailsEndsTheFlush) {
    const std::vector<int32_t> values(12, 1);
    K8RenderState_setTexture(&state, texture);
    queuePoint({1, 2, 3});
    EXPECT_TRUE(
        K8RenderState_render(&state, command(kCommandQuads, 1, kCommandTexturePerVertex), {values, {}, values, {}}));
    queuePoint({4, 5, 6});
    glRecorder.uploadsUntilOutOfMemory = 0;
    glRecorder.draws.clear();
    EXPECT_FALSE(K8RenderState_flush(&state));
    EXPECT_EQ(qelStatus_get(), QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(glRecorder.draws.size(), 1u) << "what came before it";
    EXPECT_EQ(CommandQueue_mark(&state), QueueMark{});
    EXPECT_FALSE(graphics->isBound);
    queuePoint({1, 2, 3});
    EXPECT_EQ(flush().size(), 1u);
    EXPECT_EQ(qelGraphics3D_bindTarget(graphics, &target, {0, 0, 8, 8}, 8, 8, true, 0), QEL_STATUS_OK);
    queuePoint({1, 2, 3});
    EXPECT_FALSE(K8RenderState_flush(&state)) << "something else is being drawn";
    EXPECT_EQ(state.queueCount, 0u);
}

}  // namespace
