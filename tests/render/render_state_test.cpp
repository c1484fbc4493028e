// Commands of points, lines, triangles and sprites: what is refused, what reaches OpenGL ES, where it stands, what is
// left.
#include "render/render_state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <numbers>

#include "frame/error_status.h"
#include "render/command_queue.h"
#include "scene/light.h"
#include "tests/render/scene_parts.h"
#include "tests/support/counting_heap.h"
#include "tests/support/gl_recorder.h"

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::SizeIs;

namespace {

// One draw, with everything that its flush sent before it.
struct Drawn {
    GlLines lines;
    GlDraw draw;

    std::string last(const std::string& beginning) const {
        for (size_t i = lines.size(); i-- > 0;)
            if (lines[i].starts_with(beginning)) return lines[i];
        return "";
    }
    bool has(const std::string& capability) const {
        for (size_t i = lines.size(); i-- > 0;)
            if (lines[i].ends_with("able(" + capability + ")")) return lines[i].starts_with("glEnable");
        return false;
    }
};

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
    std::vector<Drawn> flush() {
        glRecorder.draws.clear();
        glRecorder.take();
        EXPECT_TRUE(K8RenderState_flush(&state));
        std::vector<Drawn> drawn;
        GlLines lines;
        for (const std::string& line : glRecorder.take()) {
            lines.push_back(line);
            if (line.starts_with("glDraw")) drawn.push_back({lines, glRecorder.draws.at(drawn.size())});
        }
        return drawn;
    }
    // Of a corner after the matrices: pixels from the top left, and the depth, -1..1.
    static std::array<float, 3> pixelOf(const std::vector<float>& corner) {
        return {(corner[0] + 1) / 2 * float(kWidth), (1 - corner[1]) / 2 * float(kHeight), corner[2]};
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

TEST_F(RenderStateTest, RefusesCommandsThatDoNotFitTheirArrays) {
    struct Case {
        const char* what;
        uint32_t word;
        size_t positions, normals, textureCoords, colors;
    };
    const std::vector<int32_t> values(100);
    const auto arrays = [&](const Case& c) {
        const std::span all(values);
        return CommandArrays{all.first(c.positions), all.first(c.normals), all.first(c.textureCoords),
                             all.first(c.colors)};
    };
    // Each is the least that its command takes.
    for (const Case& c : {
             Case{"points", command(kCommandPoints, 4), 12, 0, 0, 0},
             Case{"lines, a colour for all", command(kCommandLines, 2, kCommandColorPerSet), 12, 0, 0, 1},
             Case{"lines, a colour each", command(kCommandLines, 3, kCommandColorPerPrimitive), 18, 0, 0, 3},
             Case{"triangles, everything per vertex", command(kCommandTriangles, 2, 0x3F00), 18, 18, 12, 6},
             Case{"quads, a normal each", command(kCommandQuads, 2, kCommandNormalPerPrimitive), 24, 6, 0, 0},
             Case{"quads, texture", command(kCommandQuads, 2, kCommandTexturePerVertex), 24, 0, 16, 0},
             Case{"sprites, a record for all", command(kCommandSprites, 3, kCommandTexturePerSet), 9, 0, 8, 0},
             Case{"sprites, a record each", command(kCommandSprites, 3, kCommandTexturePerVertex), 9, 0, 24, 0},
             Case{"the same", command(kCommandSprites, 3, 0x2000), 9, 0, 24, 0},
         }) {
        EXPECT_TRUE(K8RenderState_render(&state, c.word, arrays(c))) << c.what;
        EXPECT_TRUE(K8RenderState_flush(&state)) << c.what;
        for (size_t Case::*array : {&Case::positions, &Case::normals, &Case::textureCoords, &Case::colors}) {
            Case shortOne = c;
            if (shortOne.*array == 0) continue;
            --(shortOne.*array);
            EXPECT_FALSE(K8RenderState_render(&state, c.word, arrays(shortOne))) << c.what;
        }
    }
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

TEST_F(RenderStateTest, VerticesAreExpandedFromTheArrays) {
    struct Case {
        const char* what;
        uint32_t word;
        std::string call;
        std::vector<int> vertices;  // in the order drawn
        int verticesPerColor;
    };
    for (const Case& c :
         {Case{"points", command(kCommandPoints, 3, kCommandColorPerPrimitive), "GL_POINTS, 0, 3", {0, 1, 2}, 1},
          Case{"lines", command(kCommandLines, 2, kCommandColorPerPrimitive), "GL_LINES, 0, 4", {0, 1, 2, 3}, 2},
          Case{
              "lines of one colour", command(kCommandLines, 2, kCommandColorPerSet), "GL_LINES, 0, 4", {0, 1, 2, 3}, 9},
          Case{"triangles", command(kCommandTriangles, 1, kCommandColorPerVertex), "GL_TRIANGLES, 0, 3", {0, 1, 2}, 1},
          Case{"quads",
               command(kCommandQuads, 2, kCommandColorPerPrimitive | kCommandTexturePerVertex),
               "GL_TRIANGLES, 0, 12",
               {0, 1, 3, 3, 1, 2, 4, 5, 7, 7, 5, 6},
               4}}) {
        const std::vector<int32_t> positions = ramp32(24, 65536 - 8), texels = ramp32(16, -3);
        std::vector<int32_t> colors(8);
        for (size_t i = 0; i < colors.size(); ++i) colors[i] = int32_t(0xAA102030 + i);
        K8RenderState_setTexture(&state, texture);
        EXPECT_TRUE(K8RenderState_render(&state, c.word, {positions, {}, texels, colors})) << c.what;
        const std::vector<Drawn> drawn = flush();
        ASSERT_THAT(drawn, SizeIs(1)) << c.what;
        const GlDraw& draw = drawn[0].draw;
        EXPECT_EQ(draw.call, "glDrawArrays(" + c.call + ")") << c.what;
        ASSERT_EQ(draw.positions.size(), c.vertices.size()) << c.what;
        for (size_t i = 0; i < c.vertices.size(); ++i) {
            const auto vertex = float(c.vertices[i]);
            EXPECT_EQ(draw.positions[i], (std::vector{3 * vertex - 8, 3 * vertex - 7, 3 * vertex - 6})) << c.what;
            const auto color = float(c.vertices[i] / c.verticesPerColor);
            EXPECT_EQ(draw.colors[i], (std::vector{16.0f, 32.0f, 48 + color, 255.0f})) << c.what;
            if (!(c.word & kCommandTextureMask)) continue;
            EXPECT_EQ(draw.texCoords[0][i], (std::vector{2 * vertex - 3, 2 * vertex - 2})) << c.what;
        }
    }
    const std::vector<int32_t> corners(255 * 12);
    EXPECT_TRUE(K8RenderState_render(&state, command(kCommandQuads, 255), {corners, {}, {}, {}}));
    EXPECT_EQ(state.queue[0].count, 510);
    EXPECT_EQ(flush().at(0).draw.call, "glDrawArrays(GL_TRIANGLES, 0, 1530)");
}

TEST_F(RenderStateTest, SpritesAreTwoTrianglesWithTheirPictureUpright) {
    const std::vector<int32_t> centres = {10, 20, 5, 30, 40, 5}, record = {8, 4, 0, 1, 2, 7, 6, 0};
    const std::vector<int32_t> colors = {0x000001, 0x000002};
    K8RenderState_setTexture(&state, texture);
    const uint32_t word = command(kCommandSprites, 2, kCommandTexturePerSet | kCommandColorPerPrimitive);
    EXPECT_TRUE(K8RenderState_render(&state, word, {centres, {}, record, colors}));
    const std::vector<Drawn> drawn = flush();
    ASSERT_THAT(drawn, SizeIs(1));
    const GlDraw& draw = drawn[0].draw;
    EXPECT_EQ(draw.call, "glDrawArrays(GL_TRIANGLES, 0, 12)");
    using V = std::vector<float>;
    for (const size_t sprite : {0, 1}) {
        const auto at = [&](size_t i) { return draw.positions[6 * sprite + i]; };
        const float x = sprite ? 30 : 10, y = sprite ? 40 : 20;
        const V topLeft = {x - 4, y - 2, 5}, topRight = {x + 4, y - 2, 5}, bottomLeft = {x - 4, y + 2, 5};
        const V bottomRight = {x + 4, y + 2, 5};
        EXPECT_THAT((std::vector{at(0), at(1), at(2), at(3), at(4), at(5)}),
                    ElementsAre(topLeft, topRight, bottomLeft, bottomLeft, topRight, bottomRight));
        EXPECT_EQ(draw.colors[6 * sprite + 5], (V{0, 0, float(sprite + 1), 255}));
    }
    EXPECT_THAT(std::vector(draw.texCoords[0].begin(), draw.texCoords[0].begin() + 6),
                ElementsAre(V{1, 2}, V{7, 2}, V{1, 6}, V{1, 6}, V{7, 2}, V{7, 6}));
    EXPECT_TRUE(drawn[0].has("GL_CULL_FACE"));
    EXPECT_EQ(drawn[0].last("glFrontFace"), "glFrontFace(GL_CW)") << "y goes down: the front is seen";
    EXPECT_EQ(drawn[0].last("glCullFace"), "glCullFace(GL_BACK)");
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
    const std::vector<Drawn> drawn = flush();
    ASSERT_THAT(drawn, SizeIs(3)) << "two large ones, one small, one large; the third lies too deep";
    const auto spanOf = [&](const GlDraw& draw, size_t first) {
        const auto topLeft = pixelOf(draw.corners[first]), bottomRight = pixelOf(draw.corners[first + 5]);
        return std::vector<double>{topLeft[0], topLeft[1], bottomRight[0], bottomRight[1]};
    };
    const auto isNear = [](std::vector<double> expected) {
        return testing::Pointwise(testing::DoubleNear(1e-3), std::move(expected));
    };
    EXPECT_THAT(drawn[0].draw.call, "glDrawArrays(GL_TRIANGLES, 0, 12)");
    EXPECT_THAT(spanOf(drawn[0].draw, 0), isNear({20, 40, 220, 120}));
    EXPECT_THAT(spanOf(drawn[0].draw, 6), isNear({20, 20, 140, 100}));
    EXPECT_THAT(drawn[1].draw.call, "glDrawArrays(GL_TRIANGLES, 0, 6)");
    EXPECT_THAT(spanOf(drawn[1].draw, 0), isNear({58.5, 59.5, 61.5, 60.5}));
    EXPECT_THAT(spanOf(drawn[2].draw, 0), isNear({-20, -20, 180, 180}));
    EXPECT_EQ(drawn[1].last("glLoadMatrixf"),
              "glLoadMatrixf({0.025, 0, 0, 0, 0, 0.025, 0, 0, 0, 0, 1, 0, -1, 0, 4, 1})")
        << "at its depth for the fog too";
    EXPECT_EQ(drawn[1].draw.colors[5], (std::vector<float>{0, 0, 4, 255}));
    EXPECT_EQ(drawn[1].draw.texCoords[0].size(), 0u) << "no texture";
}

// --- Appearances ---

TEST_F(RenderStateTest, AttributesChooseTheAppearance) {
    struct Case {
        const char* what;
        uint32_t kind, bits, mask;
        const char* blend;  // factors; empty for none
        int alpha;
        bool colorKey, culls;
    };
    const char* const kHalf = "GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA";
    for (const Case& c : {
             Case{"points", kCommandPoints, 0, kMaskBlending, "", 255, false, true},
             Case{"half transparent lines", kCommandLines, 32, kMaskBlending, kHalf, 128, false, true},
             Case{"added points", kCommandPoints, 64, kMaskBlending, "GL_ONE, GL_ONE", 255, false, true},
             Case{"the third blend", kCommandPoints, 96, kMaskBlending, "GL_SRC_ALPHA, GL_ONE", 255, false, true},
             Case{"blending not allowed", kCommandPoints, 96, 0, "", 255, false, true},
             Case{"no colour key on points", kCommandPoints, kCommandColorKey, kMaskBlending, "", 255, false, true},
             Case{"nor on lines", kCommandLines, kCommandColorKey, kMaskBlending, "", 255, false, true},
             Case{"but on triangles", kCommandTriangles, kCommandColorKey, kMaskBlending, "", 255, true, false},
             Case{"quads", kCommandQuads, 32, kMaskBlending, kHalf, 128, false, false},
             Case{"sprites", kCommandSprites, kCommandColorKey | 32, kMaskBlending, kHalf, 128, true, true},
         }) {
        state.attributeMask = c.mask;
        const std::vector<int32_t> values = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
        for (const uint32_t colors : {0u, kCommandColorPerSet}) {
            const uint32_t texels = c.kind == kCommandSprites ? kCommandTexturePerSet : 0;
            EXPECT_TRUE(K8RenderState_render(&state, command(c.kind, 1, c.bits | colors | texels),
                                             {values, {}, values, values}));
            const std::vector<Drawn> drawn = flush();
            ASSERT_THAT(drawn, SizeIs(1)) << c.what;
            const Drawn& d = drawn[0];
            const bool blends = *c.blend != '\0';
            EXPECT_EQ(d.has("GL_BLEND"), blends) << c.what;
            if (blends) {
                EXPECT_EQ(d.last("glBlendFunc"), std::string("glBlendFunc(") + c.blend + ")") << c.what;
            }
            EXPECT_EQ(d.last("glDepthMask"), blends ? "glDepthMask(0)" : "glDepthMask(1)") << c.what;
            EXPECT_TRUE(d.has("GL_DEPTH_TEST")) << c.what;
            EXPECT_EQ(d.has("GL_ALPHA_TEST"), c.colorKey) << c.what;
            EXPECT_EQ(d.has("GL_CULL_FACE"), c.culls) << c.what;
            EXPECT_FALSE(d.has("GL_LIGHTING") || d.has("GL_FOG")) << c.what;
            const std::string color = c.alpha == 255 ? "glColor4f(1, 1, 1, 1)" : "glColor4f(1, 1, 1, 0.501961)";
            EXPECT_EQ(d.last("glColor4f"), color) << c.what;
            EXPECT_EQ(d.draw.colors.empty(), colors == 0) << c.what;
            EXPECT_THAT(d.draw.colors, Each((std::vector<float>{0, 0, 1, float(c.alpha)}))) << c.what;
        }
    }
}

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
    EXPECT_EQ(state.queue[64 + 7].appearance, 7);
    K8RenderState_setFog(&state, true);
    queueAll();
    EXPECT_EQ(state.appearanceCount, kAppearanceCacheSize);
    EXPECT_EQ(state.queue[128 + 35].appearance, 99);
    EXPECT_EQ(state.queue[128 + 36].appearance, 0) << "the 101st";
    EXPECT_THAT(flush(), SizeIs(192));
}

TEST_F(RenderStateTest, LitCommandsAreLitFromTheEye) {
    state.attributeMask = kMaskLighting | kMaskSpecular | kMaskEnvironment | kMaskBlending;
    state.ambientIntensity = 0.25f;
    state.directionalIntensity = 0.75f;
    std::ranges::copy(std::array{1, 2, -3}, state.lightDirection);
    qelObject3D_ref(texture);
    state.environmentTexture = texture;                                        // of 8 x 4 texels
    const Atrans3i view = {{-4096, 0, 0, 50, 0, 4096, 0, 0, 0, 0, -4096, 0}};  // half a turn about y
    K8RenderState_setViewTransform(&state, &view);
    const std::vector<int32_t> corners = ramp32(18), normals = {0, 0, -7, 300, 0, 0};
    const uint32_t bits = kCommandNormalPerPrimitive | kCommandLit;
    EXPECT_TRUE(K8RenderState_render(&state, command(kCommandTriangles, 2, bits | kCommandSpecular),
                                     {corners, normals, {}, {}}));
    EXPECT_TRUE(K8RenderState_render(&state, command(kCommandTriangles, 2, bits), {corners, normals, {}, {}}));
    EXPECT_TRUE(K8RenderState_render(&state, command(kCommandPoints, 2, bits), {corners, normals, {}, {}}));
    const std::vector<Drawn> drawn = flush();
    ASSERT_THAT(drawn, SizeIs(3));
    const Drawn& lit = drawn[0];
    EXPECT_TRUE(lit.has("GL_LIGHTING") && lit.has("GL_LIGHT0") && lit.has("GL_LIGHT1") && lit.has("GL_NORMALIZE"));
    EXPECT_FALSE(lit.has("GL_LIGHT2"));
    EXPECT_EQ(lit.last("glLightfv(GL_LIGHT0, GL_AMBIENT"), "glLightfv(GL_LIGHT0, GL_AMBIENT, {0.25, 0.25, 0.25, 0})");
    EXPECT_EQ(lit.last("glLightfv(GL_LIGHT1, GL_DIFFUSE"), "glLightfv(GL_LIGHT1, GL_DIFFUSE, {0.75, 0.75, 0.75, 0})");
    const auto position = std::ranges::find(lit.lines, "glLightfv(GL_LIGHT1, GL_POSITION, {1, 2, -3, 0})");
    ASSERT_NE(position, lit.lines.end());
    EXPECT_EQ(*std::prev(position), "glLoadIdentity()");
    using V = std::vector<float>;
    EXPECT_THAT(lit.draw.normals,
                ElementsAre(V{0, 0, -7}, V{0, 0, -7}, V{0, 0, -7}, V{300, 0, 0}, V{300, 0, 0}, V{300, 0, 0}));
    EXPECT_THAT(lit.draw.texCoords[1], ElementsAre(V{4, 2}, V{4, 2}, V{4, 2}, V{0, 2}, V{0, 2}, V{0, 2}))
        << "straight ahead in the middle, aside at the edge";
    EXPECT_THAT(drawn[1].draw.texCoords[1], IsEmpty()) << "not specular";
    EXPECT_TRUE(drawn[1].has("GL_LIGHTING"));
    EXPECT_FALSE(drawn[2].has("GL_LIGHTING")) << "points are never lit";
    EXPECT_THAT(drawn[2].draw.normals, IsEmpty());

    // Lights of scenes stand by their transforms again.
    const Held<Light> sun(qelLight_create());
    qelGLBackend_setLight(qelGraphics3D_backend(graphics), 1, sun, &state.viewMatrix);
    glRecorder.take();
    Square square;
    qelGLBackend_drawSubmesh(qelGraphics3D_backend(graphics), square.submesh());
    EXPECT_THAT(glRecorder.take(), Contains("glLightfv(GL_LIGHT1, GL_POSITION, {0, 0, 1, 0})"));
}

// --- Flushing ---

TEST_F(RenderStateTest, EachEntryIsDrawnUnderTheStateItWasGivenUnder) {
    K8RenderState_setFog(&state, true);
    K8RenderState_setFogColor(&state, 0xFF8000);
    K8RenderState_setFogLinear(&state, 4096 * 5, 4096 * 9 + 2048);
    queuePoint({1, 2, 3});
    K8RenderState_setFogMode(&state, RenderStateFog::Exponential);
    K8RenderState_setFogDensity(&state, 1024);
    K8RenderState_setFogDensity(&state, -1);
    const Atrans3i view = {{0, 8192, 0, 11, 0, 0, 4096, 12, 4096, 0, 0, 13}};
    K8RenderState_setViewTransform(&state, &view);
    queuePoint({1, 2, 3});
    K8RenderState_setFog(&state, false);
    K8RenderState_setPerspectiveAngle(&state, 1, 100, 1024);
    queuePoint({1, 2, 3});
    K8RenderState_setParallel(&state, 40, 30);
    const std::vector<Drawn> drawn = flush();
    ASSERT_THAT(drawn, SizeIs(3));
    EXPECT_EQ(drawn[0].last("glFogf(GL_FOG_START"), "glFogf(GL_FOG_START, 5)");
    EXPECT_EQ(drawn[0].last("glFogf(GL_FOG_END"), "glFogf(GL_FOG_END, 9.5)");
    EXPECT_EQ(drawn[0].last("glFogfv"), "glFogfv(GL_FOG_COLOR, {1, 0.501961, 0, 1})");
    EXPECT_TRUE(drawn[0].has("GL_FOG") && drawn[1].has("GL_FOG"));
    EXPECT_EQ(drawn[1].last("glFogf(GL_FOG_DENSITY"), "glFogf(GL_FOG_DENSITY, 0.25)");
    EXPECT_FALSE(drawn[2].has("GL_FOG"));
    EXPECT_EQ(drawn[0].last("glLoadMatrixf"), "glLoadMatrixf({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1})");
    const std::string turned = "glLoadMatrixf({0, 0, 1, 0, 2, 0, 0, 0, 0, 1, 0, 0, 11, 12, 13, 1})";
    EXPECT_EQ(drawn[1].last("glLoadMatrixf"), turned);
    EXPECT_EQ(drawn[2].last("glLoadMatrixf"), turned);
    EXPECT_NEAR(pixelOf(drawn[1].draw.corners[0])[0], 80 + 15, 1e-3);
    EXPECT_NEAR(pixelOf(drawn[2].draw.corners[0])[0], 80 + 80 * 15.0 / 14, 1e-3);
}

TEST_F(RenderStateTest, OpaqueEntriesAreDrawnFirstAndEachKindInItsOrder) {
    const std::vector<int32_t> blends = {32, 0, 64, 0, 96, 32, 0};
    for (size_t i = 0; i < blends.size(); ++i) queuePoint({int32_t(i), 0, 1}, uint32_t(blends[i]));
    std::vector<int> order;
    for (const Drawn& drawn : flush()) order.push_back(int(drawn.draw.positions[0][0]));
    EXPECT_THAT(order, ElementsAre(1, 3, 6, 0, 2, 4, 5));
}

TEST_F(RenderStateTest, AFlushDrawsIntoTheClipAndLeavesTheTarget) {
    EXPECT_TRUE(K8RenderState_flush(&state));
    EXPECT_THAT(glRecorder.take(), IsEmpty()) << "nothing queued, nothing bound";

    EXPECT_TRUE(K8RenderState_bind(&state, graphics, &target, kWidth, kHeight, kWidth + 32));
    struct Case {
        const char* what;
        std::array<int32_t, 4> clip;
        const char* scissor;  // empty: nothing is drawn
    };
    for (const Case& c : {Case{"inside", {10, 20, 50, 100}, "glScissor(10, 20, 40, 80)"},
                          Case{"beyond every edge", {-40000, -5, 40000, 4000}, "glScissor(0, 0, 160, 120)"},
                          Case{"to the left", {-50, 0, -1, 120}, ""}, Case{"to the right", {160, 0, 200, 120}, ""},
                          Case{"turned round", {50, 0, 10, 120}, ""},
                          Case{"wrapping", {0, 0, 65546, 10}, "glScissor(0, 110, 160, 10)"}}) {
        K8RenderState_setClip(&state, c.clip[0], c.clip[1], c.clip[2], c.clip[3]);
        queuePoint({1, 2, 3});
        glRecorder.take();
        EXPECT_TRUE(K8RenderState_flush(&state)) << c.what;
        EXPECT_EQ(state.queueCount, 0u);
        const GlLines lines = glRecorder.take();
        if (!*c.scissor) {
            EXPECT_THAT(lines, IsEmpty()) << c.what;
            continue;
        }
        EXPECT_THAT(lines, IsSupersetOf({"glViewport(0, 0, 160, 120)", c.scissor})) << c.what;
        const auto clear = std::ranges::find(lines, "glClear(depth)");
        ASSERT_NE(clear, lines.end()) << c.what;
        EXPECT_EQ(*std::prev(clear), "glDepthMask(1)") << c.what;
        EXPECT_EQ(lines.back(), "glDrawArrays(GL_POINTS, 0, 1)") << c.what;
        for (int light = 0; light < 8; ++light)
            EXPECT_THAT(lines, Contains("glDisable(GL_LIGHT" + std::to_string(light) + ")"));
        EXPECT_FALSE(graphics->isBound) << c.what;
    }
    const auto bufferWidthFor = [&](int32_t given) {
        EXPECT_TRUE(K8RenderState_bind(&state, graphics, &target, kWidth, kHeight, given));
        return state.bufferWidth;
    };
    EXPECT_EQ(bufferWidthFor(2048), 2048);
    for (const int32_t no : {0, -1, kWidth - 1, 2049}) EXPECT_EQ(bufferWidthFor(no), kWidth) << no;
}

TEST_F(RenderStateTest, TexturesAreHeldUntilTheFlushAndStayAsTheyAre) {
    const std::vector<int32_t> values(12, 1);
    const auto queueQuad = [&] {
        EXPECT_TRUE(K8RenderState_render(&state, command(kCommandQuads, 1, kCommandTexturePerVertex),
                                         {values, {}, values, {}}));
    };
    qelTexture2D_setBlending(texture, int32_t(TextureBlending::Add));
    K8RenderState_setTexture(&state, texture);
    K8RenderState_setTexture(&state, texture);
    queueQuad();
    state.attributeMask = 0;
    queueQuad();
    K8RenderState_setTexture(&state, nullptr);
    queueQuad();
    EXPECT_EQ(texture->refCount, 3) << "its maker and two entries";
    const std::vector<Drawn> drawn = flush();
    EXPECT_EQ(texture->refCount, 1);
    ASSERT_THAT(drawn, SizeIs(3));
    EXPECT_EQ(drawn[0].last("glTexEnvf("), "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE)");
    EXPECT_EQ(drawn[1].last("glTexEnvf("), "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE)");
    EXPECT_THAT(drawn[2].draw.texCoords[0], IsEmpty());
    EXPECT_EQ(texture->blending, TextureBlending::Add);
}

// --- Projections ---

TEST_F(RenderStateTest, ProjectionsPutPointsWhereTheGeometrySays) {
    const double pi = std::numbers::pi;
    struct Case {
        const char* what;
        std::function<void(RenderState*)> set;
        double scaleX, scaleY;  // pixels that a unit covers, under perspective at depth 1
        bool perspective;
    };
    const double right = kWidth / 2.0;  // under an opening of 90 degrees
    for (const Case& c : {
             Case{"pixels", [](RenderState*) {}, 1, 1, false},
             Case{"an angle", [](RenderState* s) { K8RenderState_setPerspectiveAngle(s, 2, 50, 1024); }, right, right,
                  true},
             Case{"a range turned round", [](RenderState* s) { K8RenderState_setPerspectiveAngle(s, 50, 2, 100); },
                  right, right, true},
             Case{"far beyond 16 bits", [](RenderState* s) { K8RenderState_setPerspectiveAngle(s, 1, 32768, 100); },
                  right, right, true},
             Case{"the least angle", [](RenderState* s) { K8RenderState_setPerspectiveAngle(s, 2, 50, 0); },
                  right / std::tan(pi / 2048), right / std::tan(pi / 2048), true},
             Case{"the greatest angle", [](RenderState* s) { K8RenderState_setPerspectiveAngle(s, 2, 50, 9999); },
                  right / std::tan(1023 * pi / 2048), right / std::tan(1023 * pi / 2048), true},
             Case{"a size", [](RenderState* s) { K8RenderState_setPerspectiveSize(s, 2, 50, 8 * 4096, 2048); },
                  kWidth * 2 / 8.0, kHeight * 2 / 0.5, true},
             Case{"no size", [](RenderState* s) { K8RenderState_setPerspectiveSize(s, 2, 50, 8, 0); }, kWidth * 2 / 8.0,
                  kHeight * 2 / 0.5, true},
             Case{"a parallel size", [](RenderState* s) { K8RenderState_setParallel(s, 320, 40); }, 0.5, 3, false},
             Case{"no parallel size", [](RenderState* s) { K8RenderState_setParallel(s, -1, 40); }, 0.5, 3, false},
         }) {
        c.set(&state);
        K8RenderState_setCentre(&state, 70, 50);
        const std::vector<int32_t> points = {0, 0, 2, 3, 4, 5, -6, 7, 50};
        EXPECT_TRUE(K8RenderState_render(&state, command(kCommandPoints, 3), {points, {}, {}, {}}));
        const std::vector<Drawn> drawn = flush();
        ASSERT_THAT(drawn, SizeIs(1)) << c.what;
        for (size_t i = 0; i < 3; ++i) {
            const double x = points[3 * i], y = points[3 * i + 1], z = points[3 * i + 2], w = c.perspective ? z : 1;
            const auto [pixelX, pixelY, depth] = pixelOf(drawn[0].draw.corners[i]);
            EXPECT_NEAR(pixelX, 70 + x / w * c.scaleX, 1e-5 * (100 + c.scaleX)) << c.what;
            EXPECT_NEAR(pixelY, 50 + y / w * c.scaleY, 1e-5 * (100 + c.scaleY)) << c.what;
            const double depthRange = c.perspective ? (2 + 50 - 2.0 * 2 * 50 / z) / (50 - 2) : z / 65536;
            EXPECT_NEAR(depth, depthRange, 1e-5) << c.what;
        }
    }
}

TEST_F(RenderStateTest, ScalesFollowTheSurface) {
    for (const bool perspective : {false, true}) {
        if (perspective)
            K8RenderState_setPerspectiveAngle(&state, 1, 10, 1024);
        else
            K8RenderState_setParallel(&state, 40, 30);
        for (const int32_t factor : {1, 2}) {
            EXPECT_TRUE(K8RenderState_bind(&state, graphics, &target, kWidth * factor, kHeight * factor, 0));
            queuePoint({7, 5, 1});
            const auto corner = flush().at(0).draw.corners.at(0);
            const float x = (corner[0] + 1) / 2 * float(kWidth * factor) - float(kWidth) / 2;
            EXPECT_NEAR(x, 7 * (perspective ? 80 : 4) * factor, 1e-2);
        }
    }
    EXPECT_TRUE(K8RenderState_bind(&state, graphics, &target, 0, kHeight, 0));
    queuePoint({1, 1, 1});
    EXPECT_EQ(state.queueCount, 0u) << "nothing to draw on";
}

// --- Memory and failure ---

TEST_F(RenderStateTest, TheQueueGrowsByHalfAndIsKept) {
    for (int i = 0; i < 4000; ++i) queuePoint({i, 0, 1});
    EXPECT_LT(host.calls(), 35) << "of two blocks that grow";
    EXPECT_TRUE(K8RenderState_flush(&state));
    EXPECT_THAT(glRecorder.draws, SizeIs(4000));
    host.failAfter(kNeverFail);
    for (int i = 0; i < 4000; ++i) queuePoint({i, 0, 1});
    EXPECT_EQ(host.calls(), 0);
}

// Whether a host succeeds that draws commands of several kinds.
bool drawEverything(K8Allocator* allocator) {
    glRecorder.reset();
    const FailureMark mark = FailureMark_now();
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 4);
    Graphics3D* graphics = image ? qelGraphics3D_create(kHintTrueColor, 160, 120) : nullptr;
    const Held<Texture2D> texture = graphics ? makeTexture(image) : Held<Texture2D>();
    if (!texture) {
        qelGraphics3D_destroy(graphics);
        return false;
    }
    int target;
    RenderState state;
    K8RenderState_reset(&state, allocator);
    bool good = K8RenderState_bind(&state, graphics, &target, 160, 120, 160);
    K8RenderState_setClip(&state, 0, 0, 160, 120);
    K8RenderState_setPerspectiveAngle(&state, 1, 100, 1024);
    K8RenderState_setTexture(&state, texture);
    qelObject3D_ref(texture);
    state.environmentTexture = texture;
    state.attributeMask = 31;
    const std::vector<int32_t> values(90, 5), records = {4, 4, 0, 0, 0, 8, 8, 3, 900, 900, 7, 0, 0, 8, 8, 0};
    const auto render = [&](uint32_t word, const std::vector<int32_t>& texels) {
        const QueueMark before = CommandQueue_mark(&state);
        if (K8RenderState_render(&state, word, {values, values, texels, values})) return;
        good = false;
        EXPECT_EQ(CommandQueue_mark(&state), before) << "a refused command leaves nothing in the queue";
    };
    render(command(kCommandPoints, 2, kCommandColorPerVertex), values);
    render(command(kCommandQuads, 7, 0x3F00 | kCommandLit | kCommandSpecular), values);
    render(command(kCommandSprites, 2, kCommandTexturePerVertex | kCommandColorPerVertex), records);
    good = K8RenderState_flush(&state) && good;
    EXPECT_EQ(state.queueCount, 0u);
    EXPECT_FALSE(graphics->isBound);
    if (!good) {
        K8ErrStorage_storeFailure(mark);
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_OUT_OF_MEMORY);
    }
    K8RenderState_release(&state);
    K8RenderState_release(&state);  // as good as never bound
    EXPECT_EQ(texture->refCount, 1);
    qelGraphics3D_destroy(graphics);
    return good;
}

TEST(RenderStateFailure, NothingIsLeftWhenMemoryRunsOut) {
    const auto onHost = [](CountingAllocator& host) {
        const bool good = drawEverything(host.get());
        EXPECT_EQ(good, !host.hasFailed());
    };
    const auto onEngine = [](CountingHeap& heap) {
        CountingAllocator host;
        const bool good = drawEverything(host.get());
        EXPECT_EQ(good, !heap.hasFailed());
        EXPECT_EQ(host.liveBlocks(), 0);
    };
    for (const FailMode mode : {FailMode::Once, FailMode::FromThenOn}) {
        EXPECT_GT(sweepHostAllocations(mode, onHost), 5);
        EXPECT_GT(sweepEngineAllocations(mode, onEngine), 15);
    }
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
    EXPECT_THAT(glRecorder.draws, SizeIs(1)) << "what came before it";
    EXPECT_EQ(CommandQueue_mark(&state), QueueMark{});
    EXPECT_FALSE(graphics->isBound);
    queuePoint({1, 2, 3});
    EXPECT_THAT(flush(), SizeIs(1));
    EXPECT_EQ(qelGraphics3D_bindTarget(graphics, &target, {0, 0, 8, 8}, 8, 8, true, 0), QEL_STATUS_OK);
    queuePoint({1, 2, 3});
    EXPECT_FALSE(K8RenderState_flush(&state)) << "something else is being drawn";
    EXPECT_EQ(state.queueCount, 0u);
}

}  // namespace
