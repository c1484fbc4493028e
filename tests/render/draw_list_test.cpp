// What becomes of a queued figure: its copy in the list, and the calls of its flush.
#include "render/draw_list.h"

#include <cmath>
#include <numbers>

#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/figure_mesh.h"
#include "scene/light.h"
#include "scene/polygon_mode.h"
#include "scene/texture2d.h"
#include "tests/render/figure_stage.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

using DrawListTest = FigureTest;
using Matrix = std::array<double, 16>;  // by rows

Matrix matrixOf(const float* elements) {
    Matrix m;
    std::copy_n(elements, 16, m.begin());
    return m;
}
Matrix operator*(const Matrix& a, const Matrix& b) {
    Matrix out{};
    for (size_t i = 0; i < 64; ++i) out[i / 16 * 4 + i % 4] += a[i / 16 * 4 + i / 4 % 4] * b[i / 4 % 4 * 4 + i % 4];
    return out;
}
constexpr Matrix kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

Matrix diagonal(double x, double y, double z) { return {x, 0, 0, 0, 0, y, 0, 0, 0, 0, z, 0, 0, 0, 0, 1}; }

// m by columns, as OpenGL ES gets it.
void expectColumns(const GlRecorder::Matrix& m, const Matrix& expected, const char* what) {
    for (size_t i = 0; i < 16; ++i)
        EXPECT_NEAR(m[i % 4 * 4 + i / 4], expected[i], 1e-5 * std::max(0.01, std::abs(expected[i])))
            << what << ", row " << i / 4 << ", column " << i % 4;
}

Appearance* bodyAppearance(const StageContent& content) {
    const auto* figure = static_cast<const FigureMesh*>(content.figure->header.object);
    return *std::ranges::find_if(figure->appearances, figure->appearances + figure->submeshCount,
                                 [](const Appearance* appearance) { return appearance && appearance->material; });
}

// --- Queueing ---

TEST_F(DrawListTest, RefusesWhatItCannotQueue) {
    K8Light* bare = K8Light_create(nullptr, host.get());  // without loaded info
    K8Light* lights[] = {content.lights[0], bare, nullptr};
    K8RenderParams lit = content.params, notLit = content.params, missing = content.params;
    lit.lights = lights;
    lit.lightCount = 2;
    notLit.lights = lights + 2;
    notLit.lightCount = 1;
    missing.lights = nullptr;
    missing.lightCount = 1;
    K8Handle* figure = &content.figure->header;
    struct Case {
        const char* what;
        K8Render* handle;
        const K8RenderParams* params;
        K8Handle* object;
    };
    for (const Case& c :
         {Case{"no handle", nullptr, &content.params, figure}, Case{"no block", render, nullptr, figure},
          Case{"no object", render, &content.params, nullptr},
          Case{"a texture", render, &content.params, &content.textures[0]->header},
          Case{"an action table", render, &content.params, &content.actions->header},
          Case{"a fog", render, &content.params, &content.fog->header},
          Case{"a light", render, &content.params, &content.lights[0]->header},
          Case{"a light without info", render, &lit, figure}, Case{"no light", render, &notLit, figure},
          Case{"no lights", render, &missing, figure}}) {
        EXPECT_FALSE(K8Render_render3D(c.handle, c.params, c.object, nullptr)) << c.what;
        EXPECT_EQ(takeStatus(), K8_ERR_FAILURE) << c.what;
        EXPECT_EQ(render->context->head, nullptr) << c.what;
        EXPECT_EQ(render->context->queuedCalls, 0u) << c.what;
    }
    K8Light_destroy(bare);
}

TEST_F(DrawListTest, TheHostMayChangeAndDestroyEverythingAfterQueueing) {
    K8Transform view, lightPlace;
    K8Transform_create(&view, host.get());
    K8Transform_create(&lightPlace, host.get());
    K8Transform_translate(&view, fixed(0.5), 0, fixed(2));
    K8Transform* lightTransforms[] = {nullptr, &lightPlace};
    content.params.viewingTransform = &view;
    content.params.lightCount = 2;
    content.params.lightTransforms = lightTransforms;
    content.params.fog = content.fog;
    content.setMode(content.textures[0], 1, content.textures[2]);
    content.set([&](K8FigureInfo& info) {
        info.loadedAction = content.actions;
        info.frame = 3 << 16;
    });
    traced();  // uploads the textures
    const GlLines undisturbed = traced();

    EXPECT_TRUE(queue());
    K8Transform_translate(&view, fixed(9), fixed(9), fixed(9));
    K8Transform_translate(&lightPlace, fixed(9), fixed(9), fixed(9));
    K8Transform_translate(&content.place, fixed(9), fixed(9), fixed(9));
    content.params = {};
    lightTransforms[1] = nullptr;
    content.set([](K8FigureInfo& info) {
        info.frame = 7 << 16;
        info.action = 1;
        info.blendMode = K8_BLEND_ADDITIVE;
        info.transparency = 0;
        info.perspectiveCorrection = 1;
        info.loadedTextures[0] = nullptr;
        info.loadedAction = nullptr;
    });
    content.setMode(content.textures[0], 0);
    K8Fog_setColor(content.fog, 0x123456);
    for (K8Light* light : content.lights) {
        K8Light_setColor(light, 0x654321);
        K8Light_setMode(light, K8_LIGHT_SPOT);
    }
    content.setLight(0, {{1, 2, 3}, {4, 5, 6}});
    content.destroyHandles();
    glRecorder.take();
    EXPECT_TRUE(StageContent::flush(render));
    EXPECT_THAT(linesBeyond(undisturbed, glRecorder.take()), testing::Each(StartsWith("glDeleteTextures")));
    EXPECT_THAT(glRecorder.liveTextures, IsEmpty()) << "the list held the last references";
}

// --- Lights ---

// The transform of the light that shines along d, apart from rounding to 1/4096 of cosine, axis and angle.
Matrix turnedTo(const std::array<double, 3>& d) {
    const double length = std::hypot(d[0], d[1], d[2]);
    if (length == 0) return kIdentity;
    const double cosine = -d[2] / length;          // to (0, 0, -1)
    double x = d[1] / length, y = -d[0] / length;  // the axis (0, 0, -1) x d, as long as the sine
    const double sine = std::hypot(x, y);
    if (sine == 0) return cosine > 0 ? kIdentity : diagonal(1, -1, -1);
    x /= sine;
    y /= sine;
    const double t = 1 - cosine;
    // clang-format off
    return {t * x * x + cosine, t * x * y,          y * sine,  0,
            t * x * y,          t * y * y + cosine, -x * sine, 0,
            -y * sine,          x * sine,           cosine,    0,
            0,                  0,                  0,         1};
    // clang-format on
}

TEST_F(DrawListTest, LightsStandAndShineWhereTheyAreTold) {
    K8Transform view, lightPlace;
    K8Transform_create(&view, host.get());
    K8Transform_create(&lightPlace, host.get());
    K8Transform_rotate(&view, fixed(1), fixed(2), fixed(3), fixed(40));
    K8Transform_translate(&view, fixed(1), fixed(-2), fixed(5));
    K8Transform_rotate(&lightPlace, 0, fixed(1), 0, fixed(30));
    K8Transform* lightTransforms[] = {&lightPlace};
    content.params.lightCount = 1;
    // clang-format off
    const int32_t directions[][3] = {
        {0, 0, 0}, {0, 0, 4096}, {0, 0, 1}, {0, 0, -4096}, {4096, 0, 0}, {0, 4096, 0}, {-1, 0, 0}, {100, 200, 300},
        {-4096, 4096, -1}, {1, -2, -30}, {5, 7, 900}, {0, -1, -1}, {0x7FFFFF, 0, -0x7FFFFF}};
    // clang-format on
    for (const auto& d : directions) {
        content.setLight(0, {{fixed(3), fixed(-4), fixed(5)}, {d[0], d[1], d[2]}});
        for (const int variant : {0, 1, 2, 3}) {
            content.params.viewingTransform = variant & 1 ? &view : nullptr;
            content.params.lightTransforms = variant & 2 ? lightTransforms : nullptr;
            ASSERT_TRUE(queue());
            const Matrix standing = {1, 0, 0, 3, 0, 1, 0, -4, 0, 0, 1, 5, 0, 0, 0, 1};
            const Matrix expected = (variant & 1 ? matrixOf(view.elements) : kIdentity) *
                                    (variant & 2 ? matrixOf(lightPlace.elements) : kIdentity) * standing *
                                    turnedTo({double(d[0]), double(d[1]), double(d[2])});
            // A cosine to 1/4096 leaves an angle near 0 and 180 degrees, and its axis, that much less exact.
            const double flat = std::hypot(d[0], d[1]), sine = flat / std::max(std::hypot(flat, d[2]), 1.0);
            const double tolerance = sine == 0 ? 1e-5 : std::min(0.05, 0.001 / sine) + 0.001;
            const float* elements = render->context->head->lightTransforms[0].elements;
            for (size_t i = 0; i < 16; ++i)
                ASSERT_NEAR(elements[i], expected[i], tolerance) << "direction " << d[0] << " " << d[1] << " " << d[2]
                                                                 << ", variant " << variant << ", element " << i;
            K8Render_clear3D(render);
        }
    }
}

TEST_F(DrawListTest, OnlyTheFirstEightLightsCount) {
    content.params.lightCount = uint16_t(content.lights.size());
    ASSERT_TRUE(queue());
    const DrawItem* item = render->context->head;
    ASSERT_EQ(item->lightCount, 8);
    for (uint32_t i = 0; i < 8; ++i) {
        EXPECT_EQ(item->lights[i]->color, i + 1);
        EXPECT_NE(item->lights[i], content.lights[i]->header.object) << "a duplicate";
    }
    const DrawnPart body = flush().at(0);
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(body.has("GL_LIGHT" + std::to_string(i)));
    EXPECT_EQ(K8Render_graphics(render)->lightCount, 0) << "no later flush is lit by them";
}

TEST_F(DrawListTest, EqualLightsAreCollectedOnce) {
    K8Transform moved;
    K8Transform_create(&moved, host.get());
    K8Transform_translate(&moved, 1, 0, 0);
    K8Transform* movedTransforms[] = {&moved};
    K8Light* twins[] = {content.lights[1]};
    K8Light_setColor(content.lights[1], 1);  // the colour of the first
    struct Case {
        const char* what;
        uint16_t count;
        K8Light** lights;
        K8Transform** transforms;
        bool changed;
        size_t lit;
    };
    const Case cases[] = {
        {"the first without any", 0, nullptr, nullptr, false, 0},
        {"one", 1, content.lights.data(), nullptr, true, 1},
        {"the same", 1, content.lights.data(), nullptr, false, 1},
        {"another of equal values", 1, twins, nullptr, false, 1},
        {"moved", 1, content.lights.data(), movedTransforms, true, 1},
        {"two", 2, content.lights.data(), nullptr, true, 2},
        {"two again", 2, content.lights.data(), nullptr, false, 2},
        {"none", 0, nullptr, nullptr, true, 0},
        {"none again", 0, nullptr, nullptr, false, 0},
    };
    for (int round = 0; round < 2; ++round) {  // the second list starts from nothing
        for (const Case& c : cases) {
            content.params.lightCount = c.count;
            content.params.lights = c.lights;
            content.params.lightTransforms = c.transforms;
            ASSERT_TRUE(queue());
            EXPECT_EQ(render->context->tail->lightsChanged, c.changed) << c.what;
        }
        const std::vector<DrawnPart> drawn = flush();
        for (size_t i = 0; i < std::size(cases); ++i) {
            EXPECT_EQ(drawn.at(2 * i).has("GL_LIGHT0"), cases[i].lit > 0) << cases[i].what;
            EXPECT_EQ(drawn.at(2 * i).has("GL_LIGHT1"), cases[i].lit > 1) << cases[i].what;
        }
    }
    content.params.lightCount = 1;
    content.params.lights = content.lights.data();
    ASSERT_TRUE(queue());
    K8Render_clear3D(render);
    ASSERT_TRUE(queue());
    EXPECT_TRUE(render->context->tail->lightsChanged) << "a discarded list leaves no lights";
}

// Whatever failed in between, every item is lit by its own lights.
TEST_F(DrawListTest, AFailedCallDoesNotChangeTheLightsOfOthers) {
    constexpr uint16_t kCounts[] = {0, 1, 3};
    for (const uint16_t failing : kCounts) {
        for (const uint16_t last : kCounts) {
            content.params.lightCount = 1;
            ASSERT_TRUE(queue());
            content.params.lightCount = failing;
            host.failAfter(0);  // the texture list of the copy
            EXPECT_FALSE(queue());
            host.failAfter(kNeverFail);
            heap.failAfter(0);  // a light
            EXPECT_EQ(queue(), failing < 2);
            heap.failAfter(kNeverFail);
            content.params.lightCount = last;
            ASSERT_TRUE(queue());
            const std::vector<DrawnPart> drawn = flush();
            EXPECT_TRUE(drawn.at(0).has("GL_LIGHT0"));
            EXPECT_FALSE(drawn.at(0).has("GL_LIGHT1"));
            EXPECT_EQ(drawn.back().has("GL_LIGHT0"), last > 0) << failing << " failed, " << last << " queued";
            EXPECT_EQ(drawn.back().has("GL_LIGHT2"), last > 2) << failing << " failed, " << last << " queued";
        }
    }
}

// --- Camera and place ---

TEST_F(DrawListTest, FiguresAreTurnedToOpenGLAxesAndScaled) {
    K8Transform view;
    K8Transform_create(&view, host.get());
    const int32_t position[] = {fixed(1), fixed(2), fixed(30)}, look[] = {0, 0, fixed(-1)}, up[] = {0, fixed(1), 0};
    K8Transform_lookAt(&view, position, look, up);
    content.params.viewingTransform = &view;
    K8Transform_rotate(&content.place, fixed(1), fixed(1), 0, fixed(20));
    EXPECT_EQ(queueAndFlush().size(), 2u);
    const Matrix toScene = diagonal(1, -1, -1), units = diagonal(1.0 / 64, 1.0 / 64, 1.0 / 64);
    expectColumns(glRecorder.modelView.top,
                  toScene * matrixOf(view.elements) * matrixOf(content.place.elements) * units, "placed");
    ASSERT_TRUE(K8Render_render3D(render, &content.params, &content.figure->header, nullptr));
    flush();
    expectColumns(glRecorder.modelView.top, toScene * matrixOf(view.elements) * units, "at the origin");
}

Matrix perspective(double degrees, double aspect, double near, double far) {
    const double h = 1 / std::tan(degrees / 360 * std::numbers::pi), depth = near - far;
    return {h / aspect, 0, 0, 0, 0, h, 0, 0, 0, 0, (far + near) / depth, 2 * far * near / depth, 0, 0, -1, 0};
}

TEST_F(DrawListTest, TheBlockSaysHowItIsSeen) {
    struct Case {
        const char* what;
        int16_t kind;
        uint16_t width, height;
        double near, far, degrees;
        Matrix expected;
    };
    const double aspect = 5461.0 / 4096;  // 4 / 3, cut to 12 bits
    const double opening = 2 * std::atan(60.0 / 4) * 180 / std::numbers::pi;
    const Matrix parallel = {2 / (120 * aspect), 0, 0, 0, 0, 2.0 / 120, 0, 0, 0, 0, -2.0 / 32768, -1, 0, 0, 0, 1};
    const Matrix fromAngle = perspective(75, aspect, 2, 60);  // what the camera refuses leaves it so
    for (const Case& c : {
             Case{"parallel", 1, 160, 120, 0, 0, 0, parallel},
             Case{"from the screen's size", 2, 160, 120, 4, 50, 0, perspective(opening, aspect, 4, 50)},
             Case{"from an angle, shaped like the target", 3, 100, 10, 2, 60, 75, fromAngle},
             Case{"no kind", 0, 160, 120, 3, 50, 60, fromAngle},
             Case{"unknown kind", 4, 160, 120, 3, 50, 60, fromAngle},
             Case{"parallel without height", 1, 160, 0, 3, 50, 60, fromAngle},
             Case{"parallel without width", 1, 0, 120, 3, 50, 60, fromAngle},
             Case{"size, near 0", 2, 160, 120, 0, 50, 60, fromAngle},
             Case{"size, near behind", 2, 160, 120, -3, 50, 60, fromAngle},
             Case{"size, far 0", 2, 160, 120, 3, 0, 60, fromAngle},
             Case{"size without width", 2, 0, 120, 3, 50, 60, fromAngle},
             Case{"size without height", 2, 160, 0, 3, 50, 60, fromAngle},
             Case{"angle, near 0", 3, 160, 120, 0, 50, 60, fromAngle},
             Case{"angle, far behind", 3, 160, 120, 3, -50, 60, fromAngle},
             Case{"angle 180", 3, 160, 120, 3, 50, 180, fromAngle},
             Case{"angle 0", 3, 160, 120, 3, 50, 0, fromAngle},
             Case{"angle below 0", 3, 160, 120, 3, 50, -60, fromAngle},
         }) {
        content.params.projection = c.kind;
        content.params.screenWidth = c.width;
        content.params.screenHeight = c.height;
        content.params.nearDistance = fixed(c.near);
        content.params.farDistance = fixed(c.far);
        content.params.verticalAngle = fixed(c.degrees);
        EXPECT_EQ(queueAndFlush().size(), 2u) << c.what;
        expectColumns(glRecorder.projection.top, c.expected, c.what);
    }
    content.params.farDistance = content.params.nearDistance;
    content.params.verticalAngle = fixed(60);
    EXPECT_THAT(queueAndFlush(), IsEmpty()) << "near equals far: nothing to see, and no failure";
}

// --- Parts and poses ---

TEST_F(DrawListTest, PatternsComeFromTheActionOrFromTheInfo) {
    struct Case {
        const char* what;
        bool hasAction;
        uint32_t action, hostPattern;
        std::vector<FigurePart> parts;
    };
    for (const Case& c : {
             Case{"never chosen", false, 0, 0, {Body, Badge}},
             Case{"bit 31, no action", false, 0x80000000, 0b11, {Body, Badge, Patch, Glass, Flag}},
             Case{"as the last flush left it", false, 0, 0, {Body, Badge, Patch, Glass, Flag}},
             Case{"the action's", true, 0, 0b10, {Body, Badge, Patch, Glass}},
             Case{"another action's", true, 1, 0b10, {Body, Badge}},
             Case{"bit 31 over the action", true, 0x80000000, 0b10, {Body, Badge, Flag}},
             Case{"an action that does not exist", true, 9, 0b01, {Body, Badge, Flag}},
         }) {
        content.set([&](K8FigureInfo& info) {
            info.action = c.action;
            info.loadedAction = c.hasAction ? content.actions : nullptr;
        });
        ASSERT_TRUE(K8Figure_setPattern(content.figure, c.hostPattern));
        std::vector<FigurePart> parts = partsOf(queueAndFlush());
        std::ranges::sort(parts);
        std::vector<FigurePart> expected = c.parts;
        std::ranges::sort(expected);
        EXPECT_EQ(parts, expected) << c.what;
    }
}

TEST_F(DrawListTest, TwoItemsOfOneFigureHaveTheirOwnPoses) {
    content.set([&](K8FigureInfo& info) { info.loadedAction = content.actions; });
    for (const int32_t frame : {0, 5, 10, 2}) {
        content.set([&](K8FigureInfo& info) { info.frame = frame << 16; });
        ASSERT_TRUE(queue());
    }
    std::vector<float> places;
    for (const DrawnPart& drawn : flush())
        if (drawn.part == Body) places.push_back(drawn.draw.positions[0][0] + 64);
    EXPECT_THAT(places, ElementsAre(0, 320, 640, 128));
}

TEST_F(DrawListTest, BlendingIsTheFiguresOrElseThePartsOwn) {
    content.set([](K8FigureInfo& info) { info.action = 0x80000000, info.pattern = 0b110; });
    const std::string replace = "glBlendFunc(GL_ONE, GL_ZERO)",
                      alpha = "glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA)",
                      alphaAdd = "glBlendFunc(GL_SRC_ALPHA, GL_ONE)", add = "glBlendFunc(GL_ONE, GL_ONE)",
                      modulate = "glBlendFunc(GL_DST_COLOR, GL_ZERO)";
    traced();
    const GlLines untouched = traced();
    struct Case {
        const char* what;
        int16_t mode;
        std::string body, glass, flag;
    };
    for (const Case& c :
         {Case{"none", K8_BLEND_NONE, replace, alpha, add}, Case{"alpha", K8_BLEND_ALPHA, alpha, alpha, alpha},
          Case{"additive", K8_BLEND_ADDITIVE, alphaAdd, alphaAdd, alphaAdd},
          Case{"unknown counts as none", 33, replace, alpha, add}}) {
        content.set([&](K8FigureInfo& info) { info.blendMode = c.mode; });
        const std::vector<DrawnPart> drawn = queueAndFlush();
        EXPECT_EQ(drawn.size(), 5u) << c.what;
        for (const DrawnPart& part : drawn) {
            const std::string& expected = part.part == Glass ? c.glass : part.part == Flag ? c.flag : c.body;
            EXPECT_EQ(part.last("glBlendFunc"), expected) << c.what << ", part " << part.part;
            EXPECT_EQ(part.has("GL_BLEND"), expected != replace) << c.what << ", part " << part.part;
            EXPECT_EQ(part.last("glDepthMask"), expected == replace ? "glDepthMask(1)" : "glDepthMask(0)")
                << c.what << ", part " << part.part;
            EXPECT_TRUE(part.has("GL_DEPTH_TEST")) << c.what << ", part " << part.part;
        }
    }
    content.set([](K8FigureInfo& info) { info.blendMode = K8_BLEND_NONE; });
    EXPECT_EQ(traced(), untouched) << "what the parts blend with has come back";

    // Also of a blending that no polygon can ask for.
    CompositingMode* mode = bodyAppearance(content)->compositingMode;
    qelCompositingMode_setBlending(mode, int32_t(Blending::Modulate));
    qelCompositingMode_setDepthTestEnable(mode, false);
    content.set([](K8FigureInfo& info) { info.blendMode = K8_BLEND_ALPHA; });
    EXPECT_EQ(firstOf(queueAndFlush(), Body).last("glBlendFunc"), alpha);
    EXPECT_EQ(mode->blending, Blending::Modulate);
    content.set([](K8FigureInfo& info) { info.blendMode = K8_BLEND_NONE; });
    const std::vector<DrawnPart> drawn = queueAndFlush();
    EXPECT_EQ(firstOf(drawn, Body).last("glBlendFunc"), modulate);
    EXPECT_EQ(firstOf(drawn, Body).last("glDepthMask"), "glDepthMask(0)");
    EXPECT_TRUE(firstOf(drawn, Body).has("GL_DEPTH_TEST"));
}

TEST_F(DrawListTest, TransparencyFadesWhatBlends) {
    struct Case {
        int32_t percent;  // F
        int16_t mode;
        int alpha;  // of 255
    };
    for (const Case& c : {Case{fixed(100), K8_BLEND_ALPHA, 254}, Case{fixed(50), K8_BLEND_ALPHA, 127},
                          Case{fixed(100.3), K8_BLEND_ALPHA, 254}, Case{fixed(101), K8_BLEND_ALPHA, 255},
                          Case{fixed(1), K8_BLEND_ADDITIVE, 2}, Case{0, K8_BLEND_ALPHA, 0},
                          Case{fixed(-7), K8_BLEND_ALPHA, 0}, Case{fixed(50), K8_BLEND_NONE, 255}}) {
        content.set([&](K8FigureInfo& info) {
            info.transparency = c.percent;
            info.blendMode = c.mode;
        });
        const std::vector<DrawnPart> drawn = queueAndFlush();
        char diffuse[80];
        std::snprintf(diffuse, sizeof diffuse, "glMaterialfv(GL_FRONT_AND_BACK, GL_DIFFUSE, {1, 1, 1, %g})",
                      double(float(c.alpha) * (1.0f / 255)));
        EXPECT_EQ(firstOf(drawn, Body).last("glMaterialfv(GL_FRONT_AND_BACK, GL_DIFFUSE"), diffuse) << c.percent;
        EXPECT_EQ(firstOf(drawn, Badge).draw.colors[0], (std::vector<float>{200, 100, 50, float(c.alpha)}))
            << c.percent;
    }
}

TEST_F(DrawListTest, PolygonModesKeepTheirSidesAndTakeTheCorrection) {
    content.set([](K8FigureInfo& info) { info.action = 0x80000000, info.pattern = 0b100; });
    qelPolygonMode_setCulling(bodyAppearance(content)->polygonMode, int32_t(Culling::Front));
    for (const bool corrected : {true, false}) {
        content.set([&](K8FigureInfo& info) { info.perspectiveCorrection = corrected; });
        for (const int16_t projection : {int16_t(K8_PROJECTION_PERSPECTIVE_ANGLE), int16_t(K8_PROJECTION_PARALLEL)}) {
            content.params.projection = projection;
            const std::vector<DrawnPart> drawn = queueAndFlush();
            EXPECT_EQ(firstOf(drawn, Body).last("glCullFace"), "glCullFace(GL_BACK)");
            EXPECT_TRUE(firstOf(drawn, Body).has("GL_CULL_FACE"));
            EXPECT_FALSE(firstOf(drawn, Flag).has("GL_CULL_FACE")) << "two-sided";
            const bool isNice = corrected && projection == K8_PROJECTION_PERSPECTIVE_ANGLE;
            EXPECT_EQ(firstOf(drawn, Body).last("glHint"), isNice
                                                               ? "glHint(GL_PERSPECTIVE_CORRECTION_HINT, GL_NICEST)"
                                                               : "glHint(GL_PERSPECTIVE_CORRECTION_HINT, GL_FASTEST)");
        }
    }
}

TEST_F(DrawListTest, FogCoversTheItemsOfItsBlock) {
    K8Fog_setColor(content.fog, 0xFF0000);
    K8Fog_setLinear(content.fog, fixed(2), fixed(30));
    for (const bool isFoggy : {true, false, true}) {
        content.params.fog = isFoggy ? content.fog : nullptr;
        ASSERT_TRUE(queue());
    }
    K8Fog_setMode(content.fog, K8_FOG_EXPONENTIAL);
    K8Fog_setDensity(content.fog, fixed(0.25));
    ASSERT_TRUE(queue());
    const std::vector<DrawnPart> drawn = flush();
    ASSERT_EQ(drawn.size(), 8u);
    for (const size_t linear : {0, 1, 4, 5}) {
        EXPECT_TRUE(drawn[linear].has("GL_FOG"));
        EXPECT_EQ(drawn[linear].last("glFogf(GL_FOG_MODE"), "glFogf(GL_FOG_MODE, GL_LINEAR)");
        EXPECT_EQ(drawn[linear].last("glFogf(GL_FOG_END"), "glFogf(GL_FOG_END, 30)");
        EXPECT_EQ(drawn[linear].last("glFogfv"), "glFogfv(GL_FOG_COLOR, {1, 0, 0, 1})");
    }
    EXPECT_FALSE(drawn[2].has("GL_FOG"));
    EXPECT_FALSE(drawn[3].has("GL_FOG"));
    EXPECT_EQ(drawn[6].last("glFogf(GL_FOG_MODE"), "glFogf(GL_FOG_MODE, GL_EXP)");
    EXPECT_EQ(drawn[6].last("glFogf(GL_FOG_DENSITY"), "glFogf(GL_FOG_DENSITY, 0.25)");
}

TEST_F(DrawListTest, EveryPartHasTheTextureOfItsSlot) {
    content.set([](K8FigureInfo& info) { info.action = 0x80000000, info.pattern = 0b10; });
    const std::string modulate = "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE)",
                      replace = "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE)",
                      add = "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_ADD)";
    K8Texture *first = content.textures[0], *second = content.textures[1], *map = content.textures[2];
    enum { kFirst = 1, kSecond = 2, kMap = 3 };  // in the order of their uploads
    const auto bound = [](int name, const std::string& mode) {
        return GlLines{"glBindTexture(GL_TEXTURE_2D, " + std::to_string(name) + ")", mode};
    };
    const auto give = [this](std::vector<K8Texture*> list) { return [this, list] { content.setTextures(list); }; };
    struct Case {
        const char* what;
        std::function<void()> change;
        GlLines body, glass;
    };
    queueAndFlush();  // uploads the two textures, in the order of the parts
    for (const Case& c : {
             Case{"modulated", [] {}, bound(kFirst, modulate), bound(kSecond, modulate)},
             Case{"replacing", [&] { content.setMode(first, 1); }, bound(kFirst, replace), bound(kSecond, modulate)},
             Case{"a second map that is not switched on",
                  [&] {
                      const K8TextureInfo info = {.hasSecondMap = 0, .textureMode = 7, .secondMap = map};
                      K8Texture_setTmpData(first, &info);
                  },
                  bound(kFirst, modulate), bound(kSecond, modulate)},
             Case{"without info", [&] { K8Texture_clearTmpData(second); }, bound(kFirst, modulate),
                  bound(kSecond, modulate)},
             Case{"exchanged", give({second, first}), bound(kSecond, modulate), bound(kFirst, modulate)},
             Case{"fewer than slots", give({second}), bound(kSecond, modulate), {}},
             Case{"more than slots", give({first, second, map}), bound(kFirst, modulate), bound(kSecond, modulate)},
             Case{"none", give({}), {}, {}},
         }) {
        c.change();
        const std::vector<DrawnPart> drawn = queueAndFlush();
        ASSERT_EQ(drawn.size(), 4u) << c.what;
        for (const FigurePart part : {Body, Patch}) {
            EXPECT_EQ(firstOf(drawn, part).unit(0), c.body) << c.what;
            EXPECT_THAT(firstOf(drawn, part).unit(1), IsEmpty()) << c.what;
        }
        EXPECT_EQ(firstOf(drawn, Glass).unit(0), c.glass) << c.what;
        EXPECT_THAT(firstOf(drawn, Badge).unit(0), IsEmpty()) << c.what << ": a colour polygon";
        for (K8Texture* texture : {first, second, map})
            EXPECT_EQ(texture->header.object->refCount, 1) << c.what << ": the slots are empty again";
    }
    content.setMode(first, 1, map);
    content.setTextures({first, second});
    queueAndFlush();  // uploads the map
    const std::vector<DrawnPart> drawn = queueAndFlush();
    const DrawnPart& body = firstOf(drawn, Body);
    EXPECT_EQ(body.unit(0), bound(kFirst, replace));
    EXPECT_EQ(body.unit(1), bound(kMap, add));
    EXPECT_EQ(body.draw.texCoords[1], body.draw.texCoords[0]) << "the coordinates of the first";
    EXPECT_EQ(body.draw.lookups[1].back(), (std::vector<float>{1, 1, 0})) << "scaled from texels";
    EXPECT_THAT(firstOf(drawn, Glass).unit(1), IsEmpty()) << "the other slot has no map";
}

// --- Failures ---

TEST_F(DrawListTest, AFigureThatCannotBeDrawnEndsTheFlush) {
    content.params.lightCount = 1;
    K8Figure* empty = K8Figure_create(nullptr, host.get());
    K8Figure* bare = reinterpret_cast<K8Figure*>(loadHandle(encode::encodeMb(stageFigure()), host.get()));
    K8Figure_clearTmpData(bare);
    for (K8Figure* figure : {empty, bare}) {
        ASSERT_TRUE(queue());
        EXPECT_TRUE(K8Render_render3D(render, &content.params, &figure->header, nullptr))
            << "only looked at when drawn";
        ASSERT_TRUE(queue());
        glRecorder.draws.clear();
        EXPECT_FALSE(StageContent::flush(render));
        EXPECT_EQ(takeStatus(), K8_ERR_FAILURE);
        EXPECT_EQ(glRecorder.draws.size(), 2u) << "what came before it";
        EXPECT_EQ(render->context->head, nullptr);
        EXPECT_FALSE(K8Render_graphics(render)->isBound);
        EXPECT_EQ(K8Render_graphics(render)->lightCount, 0);
        K8Figure_destroy(figure);
    }
    EXPECT_EQ(queueAndFlush().size(), 2u);
}

TEST_F(DrawListTest, AFigureWithoutPolygonsDrawsNothing) {
    encode::MbFigure nothing = stageFigure();
    nothing.polygons.clear();
    nothing.textureCount = 1;
    content.setMode(content.textures[0], 0, content.textures[2]);
    auto* figure = reinterpret_cast<K8Figure*>(loadHandle(encode::encodeMb(nothing), host.get()));
    ASSERT_NE(figure, nullptr);
    std::swap(figure, content.figure);
    content.setTextures({content.textures[0]});
    content.set([&](K8FigureInfo& info) { info.loadedAction = content.actions; });
    EXPECT_THAT(queueAndFlush(), IsEmpty());
    std::swap(figure, content.figure);
    K8Figure_destroy(figure);
}

// --- Every time ---

TEST_F(DrawListTest, TheSecondFlushSendsAndAllocatesNothingNew) {
    content.setMode(content.textures[0], 0, content.textures[2]);
    content.params.lightCount = 3;
    content.params.fog = content.fog;
    content.set([&](K8FigureInfo& info) {
        info.loadedAction = content.actions;
        info.blendMode = K8_BLEND_ALPHA;
    });
    const GlLines first = traced(), second = traced();
    for (const std::string& line : linesBeyond(second, first))
        EXPECT_THAT(
            line, testing::AnyOf(StartsWith("glGenTextures"), StartsWith("glCompressedTexImage2D"),
                                 StartsWith("glBindTexture"), StartsWith("glGetError"), StartsWith("glTexParameterf")))
            << "only the uploads";

    heap.failAfter(kNeverFail);
    host.failAfter(kNeverFail);
    ASSERT_TRUE(queue());
    EXPECT_EQ(heap.calls(), 3 + 1) << "duplicates of lights and fog";
    EXPECT_EQ(host.calls(), 2 + 1) << "the arrays of lights, and the textures of the copy";
    ASSERT_TRUE(queue());
    EXPECT_EQ(heap.calls(), 4 + 1) << "the lights are those of the first";
    EXPECT_EQ(host.calls(), 3 + 1);
    heap.failAfter(kNeverFail);
    host.failAfter(kNeverFail);
    EXPECT_TRUE(StageContent::flush(render));
    EXPECT_EQ(heap.calls(), 0);
    EXPECT_EQ(host.calls(), 0);
}

class OnePartTest : public FigureTest {
protected:
    OnePartTest() {
        encode::MbFigure onePart = stageFigure();
        onePart.polygons.resize(1);
        K8Figure_destroy(content.figure);
        content.figure = reinterpret_cast<K8Figure*>(loadHandle(encode::encodeMb(onePart), host.get()));
        content.setTextures({content.textures[0]});
        content.params.lightCount = 1;
        content.params.fog = content.fog;
    }
};

TEST_F(OnePartTest, AFlushFromTheFirstCallToTheLast) {
    K8Light_setColor(content.lights[0], 0xFF8000);
    K8Fog_setLinear(content.fog, fixed(4), fixed(20));
    K8Fog_setColor(content.fog, 0x0000FF);
    // clang-format off
    const GlLines expected = {
        // the target, and its depth
        "glDepthFunc(GL_LEQUAL)", "glDisable(GL_DITHER)", "glEnable(GL_SCISSOR_TEST)",
        "glLightModelfv(GL_LIGHT_MODEL_AMBIENT, {0, 0, 0, 0})", "glViewport(0, 0, 160, 120)",
        "glScissor(0, 0, 160, 120)", "glDepthRangef(0, 1)", "glDepthMask(1)", "glClear(depth)",
        // camera
        "glMatrixMode(GL_PROJECTION)",
        "glLoadMatrixf({1.29912, 0, 0, 0, 0, 1.73205, 0, 0, 0, 0, -1.0202, -1, 0, 0, -2.0202, 0})",
        // lights
        "glMatrixMode(GL_MODELVIEW)", "glLoadMatrixf({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1})",
        "glLightfv(GL_LIGHT0, GL_POSITION, {0, 0, 1, 0})", "glEnable(GL_LIGHT0)",
        "glLightfv(GL_LIGHT0, GL_DIFFUSE, {1, 0.501961, 0, 0})",
        "glLightfv(GL_LIGHT0, GL_SPECULAR, {1, 0.501961, 0, 0})", "glLightfv(GL_LIGHT0, GL_AMBIENT, {0, 0, 0, 0})",
        "glLightf(GL_LIGHT0, GL_CONSTANT_ATTENUATION, 1)", "glLightf(GL_LIGHT0, GL_LINEAR_ATTENUATION, 0)",
        "glLightf(GL_LIGHT0, GL_QUADRATIC_ATTENUATION, 0)", "glLightf(GL_LIGHT0, GL_SPOT_CUTOFF, 180)",
        "glDisable(GL_LIGHT1)", "glDisable(GL_LIGHT2)", "glDisable(GL_LIGHT3)", "glDisable(GL_LIGHT4)",
        "glDisable(GL_LIGHT5)", "glDisable(GL_LIGHT6)", "glDisable(GL_LIGHT7)", "glEnable(GL_NORMALIZE)",
        "glViewport(0, 0, 160, 120)", "glScissor(0, 0, 160, 120)", "glDepthRangef(0, 1)",
        // material
        "glEnable(GL_LIGHTING)", "glDisable(GL_COLOR_MATERIAL)",
        "glMaterialfv(GL_FRONT_AND_BACK, GL_AMBIENT, {1, 1, 1, 0})",
        "glMaterialfv(GL_FRONT_AND_BACK, GL_DIFFUSE, {1, 1, 1, 1})",
        "glMaterialfv(GL_FRONT_AND_BACK, GL_EMISSION, {0, 0, 0, 0})",
        "glMaterialfv(GL_FRONT_AND_BACK, GL_SPECULAR, {0, 0, 0, 0})",
        "glMaterialf(GL_FRONT_AND_BACK, GL_SHININESS, 0)",
        // polygon mode
        "glEnable(GL_CULL_FACE)", "glCullFace(GL_BACK)", "glFrontFace(GL_CW)", "glShadeModel(GL_SMOOTH)",
        "glLightModelf(GL_LIGHT_MODEL_TWO_SIDE, 0)", "glHint(GL_PERSPECTIVE_CORRECTION_HINT, GL_FASTEST)",
        // fog
        "glEnable(GL_FOG)", "glFogfv(GL_FOG_COLOR, {0, 0, 1, 1})", "glFogf(GL_FOG_MODE, GL_LINEAR)",
        "glFogf(GL_FOG_START, 4)", "glFogf(GL_FOG_END, 20)",
        // compositing
        "glEnable(GL_DEPTH_TEST)", "glDepthMask(1)", "glDisable(GL_POLYGON_OFFSET_FILL)", "glColorMask(1, 1, 1, 1)",
        "glBlendFunc(GL_ONE, GL_ZERO)", "glDisable(GL_BLEND)", "glAlphaFunc(GL_ALWAYS, 0)",
        "glDisable(GL_ALPHA_TEST)",
        // textures
        "glActiveTexture(GL_TEXTURE1)", "glClientActiveTexture(GL_TEXTURE1)", "glDisable(GL_TEXTURE_2D)",
        "glDisableClientState(GL_TEXTURE_COORD_ARRAY)", "glClientActiveTexture(GL_TEXTURE0)",
        "glActiveTexture(GL_TEXTURE0)", "glEnableClientState(GL_TEXTURE_COORD_ARRAY)", "glEnable(GL_TEXTURE_2D)",
        "glGenTextures(1)", "glBindTexture(GL_TEXTURE_2D, 1)",
        "glCompressedTexImage2D(GL_TEXTURE_2D, 0, GL_PALETTE8_RGB5_A1_OES, 8, 8, 0, 576)", "glGetError()",
        "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST)",
        "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST)",
        "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT)",
        "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT)", "glMatrixMode(GL_TEXTURE)",
        "glLoadIdentity()", "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE)",
        "glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, {0, 0, 0, 0})", "glTexCoordPointer(2, GL_SHORT, 0)",
        "glLoadMatrixf({0.125, 0, 0, 0, 0, 0.125, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1})",
        // geometry
        "glMatrixMode(GL_MODELVIEW)",
        "glLoadMatrixf({0.015625, 0, 0, 0, 0, -0.015625, 0, 0, 0, 0, -0.015625, 0, 0, 0, -10, 1})",
        "glEnableClientState(GL_VERTEX_ARRAY)", "glVertexPointer(3, GL_SHORT, 0)",
        "glEnableClientState(GL_NORMAL_ARRAY)", "glNormalPointer(GL_BYTE, 0)",
        "glDisableClientState(GL_COLOR_ARRAY)", "glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_SHORT)",
    };
    // clang-format on
    EXPECT_EQ(traced(), expected);
}

TEST_F(OnePartTest, EqualItemsSendOnlyWhatIsSentEveryTime) {
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(queue());
    const std::vector<DrawnPart> drawn = flush();
    ASSERT_EQ(drawn.size(), 3u);
    const std::string identity = "glLoadMatrixf({0.125, 0, 0, 0, 0, 0.125, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1})";
    for (const size_t i : {1, 2})
        EXPECT_THAT(
            linesBeyond(drawn[i - 1].lines, drawn[i].lines),
            ElementsAre(
                "glMatrixMode(GL_PROJECTION)", StartsWith("glLoadMatrixf"), "glViewport(0, 0, 160, 120)",
                "glScissor(0, 0, 160, 120)", "glDepthRangef(0, 1)", "glEnable(GL_LIGHTING)",
                "glActiveTexture(GL_TEXTURE1)", "glClientActiveTexture(GL_TEXTURE1)", "glDisable(GL_TEXTURE_2D)",
                "glDisableClientState(GL_TEXTURE_COORD_ARRAY)", "glClientActiveTexture(GL_TEXTURE0)",
                "glActiveTexture(GL_TEXTURE0)", "glEnableClientState(GL_TEXTURE_COORD_ARRAY)",
                "glEnable(GL_TEXTURE_2D)", "glBindTexture(GL_TEXTURE_2D, 1)", "glMatrixMode(GL_TEXTURE)",
                "glLoadIdentity()", "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE)",
                "glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, {0, 0, 0, 0})", "glTexCoordPointer(2, GL_SHORT, 0)",
                identity, "glMatrixMode(GL_MODELVIEW)", StartsWith("glLoadMatrixf"),
                "glEnableClientState(GL_VERTEX_ARRAY)", "glVertexPointer(3, GL_SHORT, 0)",
                "glEnableClientState(GL_NORMAL_ARRAY)", "glNormalPointer(GL_BYTE, 0)",
                "glDisableClientState(GL_COLOR_ARRAY)", "glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_SHORT)"));
}

}  // namespace
