// What becomes of a queued primitive: meshes of triangles and quadrilaterals, commands of points, lines and sprites.
#include "render/draw_primitive.h"

#include <cmath>
#include <numbers>

#include "scene/texture2d.h"
#include "tests/render/figure_stage.h"

namespace {

using Values = std::vector<int32_t>;

struct Shape {
    uint32_t type, params;
    std::array<Values, 5> values{};
    int16_t blendMode = K8_BLEND_NONE;
    int32_t size = 0;
    K8Texture* texture = nullptr;
    bool perspectiveCorrection = false;
};

// What the arrays of a shape are made of, by index.
float numberAt(size_t index) { return float(index % 89); }

// A shape whose arrays are as long as they have to be.
Shape makeShape(uint32_t type, uint32_t params, uint32_t count) {
    Shape shape = {type, params};
    for (int32_t kind = 0; kind < 5; ++kind) {
        const int32_t each = K8Primitive_getLength(type, params, kind);
        Values& values = shape.values[size_t(kind)];
        for (size_t i = 0; i < (each < 0 ? size_t(-each) : size_t(each) * count); ++i)
            values.push_back(kind == K8_PRIM_POSITIONS        ? fixed(numberAt(i) + 0.75)
                             : kind == K8_PRIM_NORMALS        ? int32_t(numberAt(i) + 1)
                             : kind == K8_PRIM_TEXTURE_COORDS ? fixed(numberAt(i))
                                                              : int32_t(0x010203 * (i + 1) & 0xFFFFFF));
    }
    Values& records = shape.values[K8_PRIM_SPRITE_PARAMS];
    for (size_t i = 0; i < records.size(); i += 8) {  // 8 x 4 units, in texels of their own
        const Values record = {fixed(9) - 1, fixed(4.5), 0,           fixed(double(i / 8)),
                               fixed(1) + 1, fixed(7.9), fixed(-0.1), 0};
        std::ranges::copy(record, records.begin() + ptrdiff_t(i));
    }
    return shape;
}

std::vector<float> rgba(int32_t color, int alpha) {
    return {float(color >> 16 & 255), float(color >> 8 & 255), float(color & 255), float(alpha)};
}

class PrimitiveTest : public FigureTest {
protected:
    PrimitiveTest() {
        K8Transform_translate(&content.place, fixed(1.75), fixed(-0.25), fixed(0.5));  // and ten units away
        K8Transform_scale(&content.place, fixed(1), fixed(1.5), fixed(1));
        content.params.projection = K8_PROJECTION_PARALLEL;
        content.params.screenWidth = 16;
        content.params.screenHeight = 12;
        encode::BmpImage image = {.width = 8, .height = 4, .palette = {{}, {9, 8, 7}}};
        image.indices.assign(32, 1);
        wide = reinterpret_cast<K8Texture*>(loadHandle(encode::encodeBmp(image), host.get()));
    }
    ~PrimitiveTest() override { K8Texture_destroy(wide); }

    bool queue(const Shape& shape) {
        K8Primitive* primitive = K8Primitive_create(nullptr, host.get());
        K8PrimitiveInfo info{};
        info.perspectiveCorrection = shape.perspectiveCorrection;
        info.blendMode = shape.blendMode;
        info.size = shape.size;
        info.texture = shape.texture;
        info.type = shape.type;
        info.params = shape.params;
        for (size_t kind = 0; kind < 5; ++kind) {
            const Values& values = shape.values[kind];
            info.counts[kind] = uint32_t(values.size());
            info.values[kind] = K8Allocator_allocArrayOf<int32_t>(host.get(), info.counts[kind]);
            std::ranges::copy(values, info.values[kind]);
        }
        EXPECT_TRUE(K8Primitive_setTmpData(primitive, &info));
        const bool queued = K8Render_render3D(render, &content.params, &primitive->header, &content.place);
        K8Primitive_destroy(primitive);
        return queued;
    }
    std::vector<DrawnPart> draw(const Shape& shape) {
        EXPECT_TRUE(queue(shape));
        return flush();
    }
    bool drawFails(const Shape& shape) {
        EXPECT_TRUE(queue(shape));
        glRecorder.draws.clear();
        return !StageContent::flush(render) && glRecorder.draws.empty() && takeStatus() == K8_ERR_FAILURE;
    }

    // Of something that stands there before the viewer, in the K8 frame, in a parallel view.
    void expectSeen(const std::vector<float>& corner, float x, float y) const {
        EXPECT_NEAR(corner[0], x * 2 / content.params.screenWidth, 1e-3);
        EXPECT_NEAR(corner[1], -y * 2 / content.params.screenHeight, 1e-3);
    }

    K8Texture* wide;  // of 8 x 4 texels
};

// --- Triangles and quadrilaterals ---

class FacesTest : public PrimitiveTest {
protected:
    void expectVertices(const Shape& shape, const GlDraw& drawn, bool areQuads, size_t firstFace = 0) const {
        const Values& colors = shape.values[K8_PRIM_COLORS];
        ASSERT_EQ(drawn.normals.empty(), shape.values[K8_PRIM_NORMALS].empty());
        ASSERT_EQ(drawn.colors.empty(), colors.empty());
        ASSERT_EQ(drawn.lookups[0].empty(), shape.values[K8_PRIM_TEXTURE_COORDS].empty());
        const size_t step = drawn.positions.size() > 1000 ? 997 : 1;
        for (size_t i = 0; i < drawn.positions.size(); i += step) {
            SCOPED_TRACE("drawn vertex " + std::to_string(i));
            constexpr size_t kQuad[] = {0, 1, 3, 3, 1, 2};
            const size_t face = firstFace + i / (areQuads ? 6 : 3);
            const size_t vertex = areQuads ? face * 4 + kQuad[i % 6] : firstFace * 3 + i;
            if (content.params.projection == K8_PROJECTION_PARALLEL) {
                expectSeen(drawn.corners[i], numberAt(3 * vertex) + 2.5f,
                           1.5f * (numberAt(3 * vertex + 1) + 0.75f) - 0.25f);
                EXPECT_NEAR(drawn.corners[i][2], (numberAt(3 * vertex + 2) + 11.25f) / 16384 - 1, 1e-6);
            }
            if (!drawn.normals.empty()) {
                const size_t normal = 3 * ((shape.params & 0x300) == K8_PRIM_NORMAL_PER_VERTEX ? vertex : face);
                EXPECT_EQ(drawn.normals[i],
                          (std::vector{numberAt(normal) + 1, numberAt(normal + 1) + 1, numberAt(normal + 2) + 1}));
            }
            if (!colors.empty()) {
                EXPECT_EQ(drawn.colors[i], rgba(colors[shape.params & K8_PRIM_COLOR_PER_SET ? 0 : face],
                                                shape.blendMode == K8_BLEND_ALPHA ? 128 : 255));
            }
            if (!drawn.lookups[0].empty()) {
                const float width = shape.texture ? 8 : 1, height = shape.texture ? 4 : 1;
                EXPECT_EQ(drawn.lookups[0][i],
                          (std::vector{numberAt(2 * vertex) / width, numberAt(2 * vertex + 1) / height, 0.0f}));
            }
            if (HasFailure()) return;
        }
    }

    void expectState(const Shape& shape, const DrawnPart& part, bool replaces) const {
        const bool half = shape.blendMode == K8_BLEND_ALPHA, add = shape.blendMode == K8_BLEND_ADDITIVE;
        const bool tested = shape.params & K8_PRIM_ALPHA_TEST, lit = !shape.values[K8_PRIM_NORMALS].empty();
        const bool corrects = shape.perspectiveCorrection && content.params.projection != K8_PROJECTION_PARALLEL;
        EXPECT_EQ(part.last("BlendFunc", "DepthMask", "AlphaFunc", "Hint"),
                  std::string(half  ? "BlendFunc(SRC_ALPHA, ONE_MINUS_SRC_ALPHA); DepthMask(0)"
                              : add ? "BlendFunc(SRC_ALPHA, ONE); DepthMask(0)"
                                    : "BlendFunc(ONE, ZERO); DepthMask(1)") +
                      (tested ? "; AlphaFunc(GEQUAL, 0.0117647)" : "; AlphaFunc(ALWAYS, 0)") +
                      "; Hint(PERSPECTIVE_CORRECTION_HINT, " + (corrects ? "NICEST)" : "FASTEST)"));
        for (const auto& [capability, enabled] : {std::pair{"BLEND", half || add},
                                                  {"DEPTH_TEST", true},
                                                  {"ALPHA_TEST", tested},
                                                  {"CULL_FACE", false},
                                                  {"LIGHTING", lit && !replaces},
                                                  {"FOG", content.params.fog != nullptr},
                                                  {"COLOR_MATERIAL", !shape.values[K8_PRIM_COLORS].empty()}})
            EXPECT_EQ(part.has(capability), enabled) << capability;
        const std::string color = std::string("{1, 1, 1, ") + (half ? "0.501961})" : "1})");
        if (lit)
            EXPECT_EQ(part.last("Materialfv(AMBIENT", "Materialfv(DIFFUSE"),
                      "Materialfv(AMBIENT, {1, 1, 1, 0}); Materialfv(DIFFUSE, " + color);
        else
            EXPECT_EQ(part.last("Color4f"), half ? "Color4f(1, 1, 1, 0.501961)" : "Color4f(1, 1, 1, 1)");
        EXPECT_EQ(part.unit(1), "");
    }
};

TEST_F(FacesTest, EveryCombinationDrawsWhatItSays) {
    constexpr int16_t kBlendModes[] = {K8_BLEND_NONE, K8_BLEND_ALPHA, K8_BLEND_ADDITIVE, 7};
    int valid = 0;
    for (uint32_t params = 0; params <= 0x3F10; params += 0x10) {
        if (params & 0xE0 || K8Primitive_checkValues(K8_PRIM_TRIANGLES, params)) continue;
        ++valid;
        const bool textured = params & K8_PRIM_TEXTURE_PER_VERTEX;
        for (uint32_t round = 0; round < (textured ? 3 : 1) * 4 * 3 * 2; ++round) {
            Shape shape = makeShape(round % 2 ? uint32_t(K8_PRIM_QUADS) : uint32_t(K8_PRIM_TRIANGLES) << 24, params, 3);
            shape.blendMode = kBlendModes[round / 6 % 4];
            shape.texture = round < 24 ? nullptr : wide;
            const bool replaces = round >= 48;
            content.setMode(wide, replaces);
            shape.perspectiveCorrection = round / 2 % 2;
            content.params.projection = int16_t(round % 3 + 1);
            content.params.fog = round % 5 ? nullptr : content.fog;
            SCOPED_TRACE("params " + std::to_string(params) + ", round " + std::to_string(round));
            const std::vector<DrawnPart> drawn = draw(shape);
            ASSERT_EQ(drawn.size(), 1u);
            EXPECT_EQ(drawn[0].draw.positions.size(), round % 2 ? 18u : 9u);
            expectVertices(shape, drawn[0].draw, round % 2);
            expectState(shape, drawn[0], replaces);
            const std::string unit = drawn[0].unit(0);
            EXPECT_EQ(unit.substr(unit.find(';') + 1), !textured  ? ""
                                                       : replaces ? " TexEnvf(MODE, REPLACE)"
                                                                  : " TexEnvf(MODE, MODULATE)");
            if (HasFailure()) return;
        }
    }
    EXPECT_EQ(valid, 3 * 4 * 2) << "normals x (nothing, two ways of colours, texture) x alpha test";
}

TEST_F(FacesTest, SetsOfMoreThanAVertexArrayHoldsComeInParts) {
    for (const auto& [type, params, count, inFirst] :
         {std::tuple{K8_PRIM_TRIANGLES, 0x200 | K8_PRIM_COLOR_PER_SET, 21846u, 21845u},
          {K8_PRIM_QUADS, 0x300 | K8_PRIM_TEXTURE_PER_VERTEX, 2 * 16383 + 1, 16383}}) {
        SCOPED_TRACE(type);
        const bool areQuads = type == K8_PRIM_QUADS;
        Shape shape = makeShape(uint32_t(type), uint32_t(params), count);
        shape.texture = wide;
        ASSERT_TRUE(queue(shape));
        glRecorder.draws.clear();
        const int64_t before = heap.liveBytes();
        ASSERT_TRUE(StageContent::flush(render));
        EXPECT_LT(heap.peakBytes() - before, 65535 * 30) << "bytes: not two meshes at a time";
        ASSERT_EQ(glRecorder.draws.size(), (count + inFirst - 1) / inFirst);
        uint32_t first = 0;
        for (const GlDraw& part : glRecorder.draws) {
            expectVertices(shape, part, areQuads, first);
            first += uint32_t(part.positions.size()) / (areQuads ? 6 : 3);
            EXPECT_TRUE(first % inFirst == 0 || first == count);
        }
        EXPECT_EQ(first, count);
    }
}

// --- Points, lines and sprites ---

struct CommandKind {
    uint32_t type, params;
    const char* call;
    size_t drawnVertices;  // per primitive

    bool areSprites() const { return drawnVertices == 6; }
};
const CommandKind kCommandKinds[] = {
    {K8_PRIM_POINTS << 24, K8_PRIM_COLOR_PER_PRIMITIVE, "glDrawArrays(GL_POINTS", 1},
    {K8_PRIM_LINES, K8_PRIM_COLOR_PER_PRIMITIVE, "glDrawArrays(GL_LINES", 2},
    {K8_PRIM_LINES << 24, K8_PRIM_COLOR_PER_SET, "glDrawArrays(GL_LINES", 2},
    {K8_PRIM_SPRITES, K8_PRIM_SPRITE_PER_SET, "glDrawArrays(GL_TRIANGLES", 6},
    {K8_PRIM_SPRITES << 24, K8_PRIM_SPRITE_PER_PRIMITIVE, "glDrawArrays(GL_TRIANGLES", 6},
};

class CommandsTest : public PrimitiveTest {
protected:
    static int32_t colorOf(const Shape& shape, size_t primitive) {
        return shape.values[K8_PRIM_COLORS][shape.params & K8_PRIM_COLOR_PER_SET ? 0 : primitive];
    }
};

TEST_F(CommandsTest, StandOnWholeUnitsAndComeInPartsOf255) {
    constexpr float kOffsets[][2] = {{-4, -2}, {4, -2}, {-4, 2}, {-4, 2}, {4, -2}, {4, 2}};
    for (const CommandKind& kind : kCommandKinds) {
        SCOPED_TRACE(kind.call);
        const Shape shape = makeShape(kind.type, kind.params, 600);
        size_t first = 0;
        for (const DrawnPart& part : draw(shape)) {
            EXPECT_TRUE(part.draw.call.starts_with(kind.call));
            EXPECT_FALSE(part.has("LIGHTING"));
            ASSERT_EQ(part.draw.positions.size(), std::min(600 - first, size_t(255)) * kind.drawnVertices);
            for (size_t i = 0; i < part.draw.positions.size() && !HasFailure(); ++i) {
                const size_t primitive = first + i / kind.drawnVertices;
                const size_t vertex = 3 * (kind.areSprites() ? primitive : first * kind.drawnVertices + i);
                float x = numberAt(vertex) + 1, y = 1.5f * numberAt(vertex + 1) - 1;  // cut to whole units
                if (kind.areSprites()) {                                              // about a whole centre
                    x += kOffsets[i % 6][0];
                    y = std::floor(y + 0.5f) + kOffsets[i % 6][1];
                } else {
                    EXPECT_EQ(part.draw.colors.at(i), rgba(colorOf(shape, primitive), 255));
                }
                expectSeen(part.draw.corners[i], x, y);
                EXPECT_NEAR(part.draw.corners[i][2], (numberAt(vertex + 2) + 10) / 65536, 1e-6) << i;
            }
            first += part.draw.positions.size() / kind.drawnVertices;
        }
        EXPECT_EQ(first, 600u);
    }
}

TEST_F(CommandsTest, BlendAsFarAsTheSizeLetsThem) {
    const char *replace = "BlendFunc(ONE, ZERO); DepthMask(1)", *add = "BlendFunc(ONE, ONE); DepthMask(0)",
               *half = "BlendFunc(SRC_ALPHA, ONE_MINUS_SRC_ALPHA); DepthMask(0)", *hidden = "";
    for (const auto& [blendMode, size, blending, alpha] : {std::tuple{int16_t(K8_BLEND_NONE), 0, replace, 255},
                                                           {K8_BLEND_ALPHA, 0, hidden, 0},
                                                           {K8_BLEND_ALPHA, -1, half, 128},
                                                           {K8_BLEND_ADDITIVE, -204801, hidden, 0},
                                                           {K8_BLEND_ADDITIVE, 204800, hidden, 0},
                                                           {K8_BLEND_ADDITIVE, 204801, add, 255},
                                                           {7, 1, replace, 255}}) {
        for (const CommandKind& kind : kCommandKinds) {
            SCOPED_TRACE(testing::Message() << kind.call << ", blend mode " << blendMode << ", size " << size);
            Shape shape = makeShape(kind.type, kind.params, 2);
            shape.blendMode = blendMode;
            shape.size = size;
            const std::vector<DrawnPart> drawn = draw(shape);
            ASSERT_EQ(drawn.size(), *blending ? 1u : 0u);
            if (drawn.empty()) continue;
            EXPECT_EQ(drawn[0].last("BlendFunc", "DepthMask"), blending);
            if (kind.areSprites())
                EXPECT_EQ(drawn[0].last("Color4f"),
                          alpha == 128 ? "Color4f(1, 1, 1, 0.501961)" : "Color4f(1, 1, 1, 1)");
            else
                EXPECT_EQ(drawn[0].draw.colors.back(), rgba(colorOf(shape, 1), alpha));
        }
    }
}

TEST_F(CommandsTest, OnlySpritesShowTheTexture) {
    auto* texture = static_cast<Texture2D*>(wide->header.object);
    qelTransformable_setScale(texture, 3, 4, 5);
    qelTexture2D_setFiltering(texture, int32_t(TextureFilter::Linear), int32_t(TextureFilter::Linear));
    for (const uint32_t alphaTest : {0u, uint32_t(K8_PRIM_ALPHA_TEST)}) {
        for (const CommandKind& kind : kCommandKinds) {
            for (K8Texture* given : {static_cast<K8Texture*>(nullptr), wide}) {
                const bool shows = given && kind.areSprites();
                Shape shape = makeShape(kind.type, kind.params, 3);
                if (kind.areSprites()) shape.params |= alphaTest;
                shape.texture = given;
                const DrawnPart part = draw(shape).at(0);
                EXPECT_EQ(part.unit(0).empty(), !shows);
                EXPECT_EQ(part.has("ALPHA_TEST"), shows && alphaTest);
                if (!shows) continue;
                EXPECT_TRUE(part.unit(0).ends_with("MODULATE)"));
                const float s = (kind.params & 0x3000) == K8_PRIM_SPRITE_PER_SET ? 0 : 2;
                // Of the last sprite; cut to texels of an eighth of the width.
                EXPECT_EQ(part.draw.lookups[0][12], (std::vector<float>{s / 8, 1.0f / 8, 0}));
                EXPECT_EQ(part.draw.lookups[0][17], (std::vector<float>{7.0f / 8, -1.0f / 8, 0}));
            }
        }
    }
    EXPECT_EQ(texture->wrapS, TextureWrap::Clamp);
    EXPECT_EQ(texture->wrapT, TextureWrap::Clamp);
    EXPECT_EQ(texture->levelFilter, TextureFilter::BaseLevel);
    EXPECT_EQ(texture->imageFilter, TextureFilter::Nearest);
    EXPECT_EQ(texture->refCount, 1) << "nothing holds it beyond the flush";
}

TEST_F(CommandsTest, ProjectionsAreCutToTheirRanges) {
    struct Case {
        int16_t kind;
        double near, far, angle;
        ProjectionSetting expected;
    };
    constexpr auto kPerspective = RenderStateProjection::Perspective;
    const ProjectionSetting unit = {kPerspective, 1, 2, 1024, 0, 0};
    const auto project = [this](const Case& c) {
        content.params.projection = c.kind;
        content.params.nearDistance = fixed(c.near);
        content.params.farDistance = fixed(c.far);
        content.params.verticalAngle = fixed(c.angle);
        draw(makeShape(K8_PRIM_POINTS, K8_PRIM_COLOR_PER_SET, 1));
        SCOPED_TRACE(testing::Message() << c.kind << ", " << c.near << " to " << c.far << ", " << c.angle
                                        << " degrees");
        EXPECT_EQ(render->context->renderState.projection, c.expected);
        const ProjectionSetting& e = c.expected;
        if (e.kind == RenderStateProjection::Parallel) return;
        const double n = e.near, f = e.far, cotangent = 1 / std::tan(e.angle * std::numbers::pi / 4096);
        const double x = e.angle ? cotangent : n * 2 / 16, y = e.angle ? cotangent * 160 / 120 : n * 2 / 12;
        const GlRecorder::Matrix& m = glRecorder.projection.top;
        for (const auto& [actual, expected] :
             {std::pair{m[0], x}, {m[5], -y}, {m[10], (f + n) / (f - n)}, {m[14], -2 * f * n / (f - n)}})
            EXPECT_NEAR(actual, expected, 1e-5 * std::abs(expected));
    };
    for (const Case& c : {
             Case{K8_PROJECTION_PARALLEL, 5, 4, 0, {RenderStateProjection::Parallel, 0, 0, 0, 16, 12}},
             Case{K8_PROJECTION_PERSPECTIVE_SIZE, 2.9, 50.9, 0, {kPerspective, 2, 50, 0, 16 * 4096, 12 * 4096}},
             Case{K8_PROJECTION_PERSPECTIVE_SIZE, -3, 524287, 0, {kPerspective, 1, 32767, 0, 16 * 4096, 12 * 4096}},
             Case{K8_PROJECTION_PERSPECTIVE_ANGLE, 0.99, 9, 45, {kPerspective, 1, 9, 512, 0, 0}},
             Case{K8_PROJECTION_PERSPECTIVE_ANGLE, 40000, 50000, 60, {kPerspective, 32766, 32767, 682, 0, 0}},
             Case{K8_PROJECTION_PERSPECTIVE_ANGLE, 1, 9, 360.5, {kPerspective, 1, 9, 5, 0, 0}},
             Case{K8_PROJECTION_PERSPECTIVE_SIZE, 9.5, -9, 45, unit},
         }) {
        project({K8_PROJECTION_PERSPECTIVE_ANGLE, 1, 2, 90, unit});
        project(c);
    }
}

// --- Both ---

TEST_F(PrimitiveTest, WhatDoesNotFitTogetherCannotBeDrawn) {
    const auto with = [](Shape shape, const auto& change) {
        change(shape);
        return shape;
    };
    for (const auto& [type, params] : {std::pair{1u, 0x800u},
                                       {2, 0x400},
                                       {5, 0x1000},
                                       {5, 0x3000},
                                       {3, 0x200},
                                       {3, 0xB10},
                                       {4, 0x3300},
                                       {4, 0x600},
                                       {3, 0x3000}}) {
        SCOPED_TRACE("type " + std::to_string(type) + ", params " + std::to_string(params));
        const Shape shape = makeShape(type, params, 3);
        const std::vector<DrawnPart> drawn = draw(shape);
        ASSERT_EQ(drawn.size(), 1u);
        for (size_t kind = 1; kind < 5; ++kind) {
            if (shape.values[kind].empty()) continue;
            EXPECT_TRUE(drawFails(with(shape, [&](Shape& s) { s.values[kind].pop_back(); }))) << kind << " too short";
            EXPECT_TRUE(drawFails(with(shape, [&](Shape& s) { s.values[kind].clear(); }))) << kind << " missing";
        }
        for (const uint32_t wrong : {0x100u, 0xC00u, 0x2000u})
            EXPECT_TRUE(drawFails(with(shape, [&](Shape& s) { s.params = wrong; }))) << "params " << wrong;
        for (const uint32_t wrong : {0u, 6u, 0x3000001u})
            EXPECT_TRUE(drawFails(with(shape, [&](Shape& s) { s.type = wrong; }))) << "type " << wrong;
        EXPECT_TRUE(draw(with(shape, [](Shape& s) { s.values = {Values(2)}; })).empty()) << "no whole primitive";
        const Shape more = with(shape, [](Shape& s) { s.values[0].insert(s.values[0].end(), 2, 0); });
        EXPECT_EQ(draw(more).at(0).draw.positions.size(), drawn[0].draw.positions.size());
    }
    K8Primitive* bare = K8Primitive_create(nullptr, host.get());
    ASSERT_TRUE(K8Render_render3D(render, &content.params, &bare->header, nullptr));
    EXPECT_FALSE(StageContent::flush(render));
    EXPECT_EQ(takeStatus(), K8_ERR_FAILURE);
    K8Primitive_destroy(bare);
}

}  // namespace
