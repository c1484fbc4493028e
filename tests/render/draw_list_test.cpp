// What becomes of a queued figure: its copy in the list, and the calls of its flush.
#include "render/draw_list.h"

#include <cmath>
#include <numbers>

#include "frame/k8_transform.h"
#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/figure_mesh.h"
#include "tests/render/figure_stage.h"

namespace {

using DrawListTest = FigureTest;

// --- Queueing ---

TEST_F(DrawListTest, RefusesWhatItCannotQueue) {
    K8Light* bare = K8Light_create(nullptr, host.get());  // without loaded info
    K8Light* lights[] = {content.lights[0], bare, nullptr};
    K8RenderParams lit = content.params, notLit = content.params;
    lit.lights = lights;
    lit.lightCount = 2;
    notLit.lights = lights + 2;
    notLit.lightCount = 1;
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
          Case{"a light", render, &content.params, &content.lights[0]->header},
          Case{"a light without info", render, &lit, figure}, Case{"no light", render, &notLit, figure}}) {
        EXPECT_FALSE(K8Render_render3D(c.handle, c.params, c.object, nullptr)) << c.what;
        EXPECT_EQ(takeStatus(), K8_ERR_FAILURE) << c.what;
        EXPECT_EQ(render->context->head, nullptr) << c.what;
        EXPECT_EQ(render->context->queuedCalls, 0u) << c.what;
    }
    K8Light_destroy(bare);
}

TEST_F(DrawListTest, TheHostMayChangeAndDestroyEverythingAfterQueueing) {
    K8Transform *view = moved(0.5, 0, 2), *lightPlace = moved(0, 0, 0);
    K8Transform* lightTransforms[] = {nullptr, lightPlace};
    content.params.viewingTransform = view;
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
    for (K8Transform* transform : {view, lightPlace, &content.place})
        K8Transform_translate(transform, fixed(9), fixed(9), fixed(9));
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
    K8Light_setColor(content.lights[1], 0x654321);
    content.setLight(0, {{1, 2, 3}, {4, 5, 6}});
    content.destroyHandles();
    const std::string beyond = brief(linesBeyond(undisturbed, flushLines()));
    EXPECT_TRUE(beyond.starts_with("DeleteTextures")) << beyond;
    EXPECT_EQ(beyond.find("; D", beyond.rfind("Delete")), std::string::npos) << beyond;
    EXPECT_TRUE(glRecorder.liveTextures.empty()) << "the list held the last references";
}

// --- Lights ---

TEST_F(DrawListTest, LightsStandAndShineWhereTheyAreTold) {
    K8Transform *view = moved(1, -2, 5), *lightPlace = moved(0, 0, 0);
    const K8Transform *here = moved(0, 0, 0), *stand = moved(3, -4, 5);
    K8Transform_rotate(view, fixed(1), fixed(2), fixed(3), fixed(40));
    K8Transform_rotate(lightPlace, 0, fixed(1), 0, fixed(30));
    content.params.lightCount = 1;
    const int32_t directions[][3] = {
        {0, 0, 0},  {0, 0, 1},       {0, 0, -4096},     {4096, 0, 0}, {0, 4096, 0},
        {-1, 0, 0}, {100, 200, 300}, {-4096, 4096, -1}, {5, 7, 900},  {0x7FFFFF, 0, -0x7FFFFF}};
    for (const auto& d : directions) {
        content.setLight(0, {{fixed(3), fixed(-4), fixed(5)}, {d[0], d[1], d[2]}});
        // A cosine to 1/4096 leaves an angle near 0 and 180 degrees, and its axis, that much less exact.
        const double flat = std::hypot(d[0], d[1]), length = std::hypot(flat, d[2]);
        const double tolerance = flat == 0 ? 1e-5 : std::min(0.05, 0.001 * length / flat) + 0.001;
        const double toward[] = {length ? d[0] / length : 0, length ? d[1] / length : 0, length ? d[2] / length : -1};
        for (const int variant : {0, 1, 2, 3}) {
            SCOPED_TRACE(testing::Message() << d[0] << " " << d[1] << " " << d[2] << ", variant " << variant);
            content.params.viewingTransform = variant & 1 ? view : nullptr;
            content.params.lightTransforms = variant & 2 ? &lightPlace : nullptr;
            ASSERT_TRUE(queue());
            const K8Transform expected = product({variant & 1 ? view : here, variant & 2 ? lightPlace : here, stand});
            for (size_t i = 0; i < 12; i += 4) {
                const float *e = expected.elements + i,
                            *actual = render->context->head->lightTransforms[0].elements + i;
                const double along = e[0] * toward[0] + e[1] * toward[1] + e[2] * toward[2];
                EXPECT_NEAR(-actual[2], along, tolerance) << "shines along its negative z axis";
                EXPECT_NEAR(actual[3], e[3], tolerance);
            }
            K8Render_clear3D(render);
        }
    }
}

TEST_F(DrawListTest, EqualLightsAreCollectedOnce) {
    K8Transform* aside = moved(1 / 4096.0, 0, 0);
    K8Light* twins[] = {content.lights[1]};
    K8Light_setColor(content.lights[1], 1);  // the colour of the first
    struct Case {
        const char* what;
        uint16_t count;
        K8Light** lights;
        K8Transform** transforms;
        bool changed;
        int lit;
    };
    K8Light** const all = content.lights.data();
    const Case cases[] = {
        {"the first without any", 0, nullptr, nullptr, false, 0},
        {"one", 1, all, nullptr, true, 1},
        {"another of equal values", 1, twins, nullptr, false, 1},
        {"moved", 1, all, &aside, true, 1},
        {"more than eight", 10, all, nullptr, true, 8},
        {"the same again", 10, all, nullptr, false, 8},
        {"none", 0, nullptr, nullptr, true, 0},
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
        for (size_t i = 0; i < std::size(cases); ++i)
            for (int light = 0; light < 8; ++light)
                EXPECT_EQ(drawn.at(2 * i).has("LIGHT" + std::to_string(light)), light < cases[i].lit) << cases[i].what;
        EXPECT_EQ(K8Render_graphics(render)->lightCount, 0) << "no later flush is lit by them";
    }
}

// --- Camera and place ---

TEST_F(DrawListTest, FiguresAreTurnedToOpenGLAxesAndScaled) {
    K8Transform *view = moved(0, 0, 0), *turned = moved(0, 0, 0);
    const int32_t position[] = {fixed(1), fixed(2), fixed(30)}, look[] = {0, 0, fixed(-1)}, up[] = {0, fixed(1), 0};
    K8Transform_lookAt(view, position, look, up);
    content.params.viewingTransform = view;
    turned->elements[5] = turned->elements[10] = -1;
    K8Transform_rotate(&content.place, fixed(1), fixed(1), 0, fixed(20));
    for (K8Transform* place : {&content.place, static_cast<K8Transform*>(nullptr)}) {  // null: at the origin
        ASSERT_TRUE(K8Render_render3D(render, &content.params, &content.figure->header, place));
        EXPECT_EQ(flush().size(), 2u);
        const K8Transform expected = product({turned, view, place ? place : moved(0, 0, 0)});
        for (size_t i = 0; i < 12; ++i) {
            const float element = expected.elements[i] / (i % 4 == 3 ? 1 : 64);
            EXPECT_NEAR(glRecorder.modelView.top[i % 4 * 4 + i / 4], element, 1e-5 * std::max(0.01f, std::abs(element)))
                << "row " << i / 4 << ", column " << i % 4;
        }
    }
}

TEST_F(DrawListTest, TheBlockSaysHowItIsSeen) {
    using Numbers = std::array<double, 5>;  // x, y, z, what z adds to w, what is added to z
    const auto perspective = [](double height, double aspect, double near, double far) {
        return Numbers{height / aspect, height, (far + near) / (near - far), -1, 2 * far * near / (near - far)};
    };
    const double aspect = 5461.0 / 4096;  // 4 / 3, cut to 12 bits
    const Numbers parallel = {2 / (120 * aspect), 2.0 / 120, -2.0 / 32768, 0, -1};
    // What the camera refuses leaves it so.
    const Numbers fromAngle = perspective(1 / std::tan(37.5 / 180 * std::numbers::pi), aspect, 2, 60);
    struct Case {
        const char* what;
        int16_t kind;
        uint16_t width, height;
        double near, far, degrees;
        Numbers expected;
    };
    for (const Case& c : {
             Case{"parallel", 1, 160, 120, 0, 0, 0, parallel},
             Case{"from the screen's size", 2, 160, 120, 4, 50, 0, perspective(4.0 / 60, aspect, 4, 50)},
             Case{"from an angle, shaped like the target", 3, 100, 10, 2, 60, 75, fromAngle},
             Case{"no kind", 0, 160, 120, 3, 50, 60, fromAngle},
             Case{"parallel without width", 1, 0, 120, 3, 50, 60, fromAngle},
             Case{"size, near behind", 2, 160, 120, -3, 50, 60, fromAngle},
             Case{"angle, far behind", 3, 160, 120, 3, -50, 60, fromAngle},
             Case{"angle 180", 3, 160, 120, 3, 50, 180, fromAngle},
         }) {
        content.params.projection = c.kind;
        content.params.screenWidth = c.width;
        content.params.screenHeight = c.height;
        content.params.nearDistance = fixed(c.near);
        content.params.farDistance = fixed(c.far);
        content.params.verticalAngle = fixed(c.degrees);
        EXPECT_EQ(queueAndFlush().size(), 2u) << c.what;
        const GlRecorder::Matrix& m = glRecorder.projection.top;
        const float actual[] = {m[0], m[5], m[10], m[11], m[14]};
        for (size_t i = 0; i < 5; ++i)
            EXPECT_NEAR(actual[i], c.expected[i], 1e-5 * std::abs(c.expected[i])) << c.what << ", number " << i;
    }
    content.params.farDistance = content.params.nearDistance;
    content.params.verticalAngle = fixed(60);
    EXPECT_TRUE(queueAndFlush().empty()) << "near equals far: nothing to see, and no failure";
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
             Case{"bit 31, no action", false, 0x80000000, 0b11, {Body, Badge, Glass, Flag, Patch}},
             Case{"as the last flush left it", false, 0, 0, {Body, Badge, Glass, Flag, Patch}},
             Case{"the action's", true, 0, 0b10, {Body, Badge, Glass, Patch}},
             Case{"bit 31 over the action", true, 0x80000000, 0b10, {Body, Badge, Flag}},
             Case{"an action that does not exist", true, 9, 0b01, {Body, Badge, Flag}},
         }) {
        content.set([&](K8FigureInfo& info) {
            info.action = c.action;
            info.loadedAction = c.hasAction ? content.actions : nullptr;
        });
        ASSERT_TRUE(K8Figure_setPattern(content.figure, c.hostPattern));
        std::vector<FigurePart> parts;
        for (const DrawnPart& drawn : queueAndFlush()) parts.push_back(drawn.part);
        std::ranges::sort(parts);
        EXPECT_EQ(parts, c.parts) << c.what;
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
    EXPECT_EQ(places, (std::vector<float>{0, 320, 640, 128}));
}

TEST_F(DrawListTest, BlendingIsTheFiguresOrElseThePartsOwn) {
    content.set([](K8FigureInfo& info) { info.action = 0x80000000, info.pattern = 0b110; });
    const auto* figure = static_cast<const FigureMesh*>(content.figure->header.object);
    const auto* body = std::ranges::find_if(figure->appearances, figure->appearances + figure->submeshCount,
                                            [](const Appearance* each) { return each && each->material; });
    CompositingMode* bodyMode = (*body)->compositingMode;
    const std::string replace = "BlendFunc(ONE, ZERO); DepthMask(1)",
                      alpha = "BlendFunc(SRC_ALPHA, ONE_MINUS_SRC_ALPHA); DepthMask(0)",
                      alphaAdd = "BlendFunc(SRC_ALPHA, ONE); DepthMask(0)", add = "BlendFunc(ONE, ONE); DepthMask(0)",
                      modulate = "BlendFunc(DST_COLOR, ZERO); DepthMask(0)";
    const std::array asItIs = {replace, replace, alpha, add}, modulating = {modulate, replace, alpha, add};
    struct Case {
        const char* what;
        int16_t mode;
        std::array<std::string, 4> blending;  // of body and patch, badge, glass, flag
    };
    for (const Case& c :
         {Case{"alpha", K8_BLEND_ALPHA, {alpha, alpha, alpha, alpha}}, Case{"unknown counts as none", 33, asItIs},
          Case{"additive", K8_BLEND_ADDITIVE, {alphaAdd, alphaAdd, alphaAdd, alphaAdd}},
          Case{"none: as it was", K8_BLEND_NONE, asItIs},
          Case{"modulating, which no polygon can ask for", K8_BLEND_NONE, modulating},
          Case{"alpha in its place", K8_BLEND_ALPHA, {alpha, alpha, alpha, alpha}},
          Case{"modulating again", K8_BLEND_NONE, modulating}}) {
        if (c.blending == modulating) {
            qelCompositingMode_setBlending(bodyMode, int32_t(Blending::Modulate));
            qelCompositingMode_setDepthTestEnable(bodyMode, false);
        }
        content.set([&](K8FigureInfo& info) { info.blendMode = c.mode; });
        const std::vector<DrawnPart> drawn = queueAndFlush();
        EXPECT_EQ(drawn.size(), 5u) << c.what;
        for (const DrawnPart& part : drawn) {
            const std::string& expected = c.blending[part.part == Patch ? Body : part.part];
            EXPECT_EQ(part.last("BlendFunc", "DepthMask"), expected) << c.what << ", part " << part.part;
            EXPECT_EQ(part.has("BLEND"), expected != replace) << c.what << ", part " << part.part;
            EXPECT_TRUE(part.has("DEPTH_TEST")) << c.what << ", part " << part.part;
        }
    }
}

TEST_F(DrawListTest, TransparencyFadesWhatBlends) {
    struct Case {
        int32_t percent;  // F
        int16_t mode;
        int alpha;  // of 255
        const char* diffuse;
    };
    for (const Case& c :
         {Case{fixed(100), K8_BLEND_ALPHA, 254, "0.996078"}, Case{fixed(50), K8_BLEND_ALPHA, 127, "0.498039"},
          Case{fixed(1), K8_BLEND_ADDITIVE, 2, "0.00784314"}, Case{fixed(-7), K8_BLEND_ALPHA, 0, "0"},
          Case{fixed(50), K8_BLEND_NONE, 255, "1"}}) {
        content.set([&](K8FigureInfo& info) {
            info.transparency = c.percent;
            info.blendMode = c.mode;
        });
        const std::vector<DrawnPart> drawn = queueAndFlush();
        EXPECT_EQ(firstOf(drawn, Body).last("Materialfv(DIFFUSE"),
                  "Materialfv(DIFFUSE, {1, 1, 1, " + std::string(c.diffuse) + "})");
        EXPECT_EQ(firstOf(drawn, Badge).draw.colors[0], (std::vector<float>{200, 100, 50, float(c.alpha)}));
    }
}

TEST_F(DrawListTest, EveryPartHasTheTextureOfItsSlot) {
    content.set([](K8FigureInfo& info) { info.action = 0x80000000, info.pattern = 0b10; });
    K8Texture *first = content.textures[0], *second = content.textures[1], *map = content.textures[2];
    // In the order of their uploads.
    const std::string firstOn = "BindTexture(1); TexEnvf(MODE, MODULATE)",
                      secondOn = "BindTexture(2); TexEnvf(MODE, MODULATE)";
    struct Case {
        const char* what;
        std::vector<K8Texture*> slots;
        K8TextureInfo firstInfo;
        std::string body, bodyMap, glass;
    };
    queueAndFlush();  // uploads the two textures, in the order of the parts
    for (const Case& c : {
             Case{"modulated", {first, second}, {}, firstOn, "", secondOn},
             Case{"a second map that is not switched on", {first, second}, {0, 7, map}, firstOn, "", secondOn},
             Case{"exchanged", {second, first}, {}, secondOn, "", firstOn},
             Case{"fewer than slots", {second}, {}, secondOn, "", ""},
             Case{"more than slots", {first, second, map}, {}, firstOn, "", secondOn},
             Case{"replacing, with a map",
                  {first, second},
                  {1, 1, map},
                  "BindTexture(1); TexEnvf(MODE, REPLACE)",
                  "BindTexture(3); TexEnvf(MODE, ADD)",
                  secondOn},
         }) {
        K8Texture_setTmpData(first, &c.firstInfo);
        content.setTextures(c.slots);
        const std::vector<DrawnPart> drawn = queueAndFlush();
        ASSERT_EQ(drawn.size(), 4u) << c.what;
        for (const FigurePart part : {Body, Patch}) {
            const DrawnPart& drawnPart = firstOf(drawn, part);
            EXPECT_EQ(drawnPart.unit(0), c.body) << c.what;
            EXPECT_EQ(drawnPart.unit(1), c.bodyMap) << c.what;
            if (c.bodyMap.empty()) continue;
            EXPECT_EQ(drawnPart.draw.lookups[1], drawnPart.draw.lookups[0]) << "the coordinates of the first";
            EXPECT_EQ(drawnPart.draw.lookups[1].back()[0], part == Body ? 1 : 0) << "scaled from texels";
        }
        EXPECT_EQ(firstOf(drawn, Glass).unit(0), c.glass) << c.what;
        EXPECT_EQ(firstOf(drawn, Glass).unit(1), "") << c.what;
        EXPECT_EQ(firstOf(drawn, Badge).unit(0), "") << c.what << ": a colour polygon";
        for (K8Texture* texture : {first, second, map})
            EXPECT_EQ(texture->header.object->refCount, 1) << c.what << ": the slots are empty again";
    }
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
        EXPECT_TRUE(line.starts_with("glGenTextures") || line.starts_with("glCompressedTexImage2D") ||
                    line.starts_with("glBindTexture") || line.starts_with("glGetError") ||
                    line.starts_with("glTexParameterf"))
            << line << " is not of an upload";

    heap.failAfter(kNeverFail);
    host.failAfter(kNeverFail);
    ASSERT_TRUE(queue());
    EXPECT_EQ(heap.calls(), 3 + 1) << "duplicates of lights and fog";
    EXPECT_EQ(host.calls(), 2 + 1) << "the arrays of lights, and the textures of the copy";
    ASSERT_TRUE(queue());
    EXPECT_EQ(heap.calls(), 4 + 1) << "the lights are those of the first";
    EXPECT_EQ(host.calls(), 3 + 1);
    EXPECT_TRUE(StageContent::flush(render));
    EXPECT_EQ(heap.calls(), 4 + 1);
    EXPECT_EQ(host.calls(), 3 + 1);
}

}  // namespace
