// What becomes of a queued figure: its copy in the list, and the calls of its flush.
#include "render/draw_list.h"

#include <cmath>
#include <numbers>

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
    const K8RenderParams plain = content.params;
    K8RenderParams lit = plain, notLit = plain;
    lit.lights = lights;
    lit.lightCount = 2;
    notLit.lights = lights + 2;
    notLit.lightCount = 1;
    K8Handle *figure = &content.figure->header, *light = &content.lights[0]->header;
    for (const auto& [what, handle, params, object] :
         {std::tuple<const char*, K8Render*, const K8RenderParams*, K8Handle*>{"no handle", nullptr, &plain, figure},
          {"no block", render, nullptr, figure},
          {"no object", render, &plain, nullptr},
          {"a light", render, &plain, light},
          {"a light without info", render, &lit, figure},
          {"no light", render, &notLit, figure}}) {
        SCOPED_TRACE(what);
        EXPECT_FALSE(K8Render_render3D(handle, params, object, nullptr));
        EXPECT_EQ(takeStatus(), K8_ERR_FAILURE);
        EXPECT_EQ(render->context->head, nullptr);
        EXPECT_EQ(render->context->queuedCalls, 0u);
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
        const double toward[] = {length > 0 ? d[0] / length : 0, length > 0 ? d[1] / length : 0,
                                 length > 0 ? d[2] / length : -1};
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

// --- Camera ---

TEST_F(DrawListTest, TheBlockSaysHowItIsSeen) {
    using Numbers = std::array<double, 5>;  // x, y, z, what z adds to w, what is added to z
    const auto perspective = [](double height, double aspect, double near, double far) {
        return Numbers{height / aspect, height, (far + near) / (near - far), -1, 2 * far * near / (near - far)};
    };
    const double aspect = 5461.0 / 4096;  // 4 / 3, cut to 12 bits
    const Numbers parallel = {2 / (120 * aspect), 2.0 / 120, -2.0 / 32768, 0, -1};
    // What the camera refuses leaves it so.
    const Numbers fromAngle = perspective(1 / std::tan(37.5 / 180 * std::numbers::pi), aspect, 2, 60);
    for (const auto& [what, kind, width, height, near, far, degrees, expected] : {
             std::tuple{"parallel", 1, 160, 120, 0, 0, 0, parallel},
             {"from the screen's size", 2, 160, 120, 4, 50, 0, perspective(4.0 / 60, aspect, 4, 50)},
             {"from an angle, shaped like the target", 3, 100, 10, 2, 60, 75, fromAngle},
             {"no kind", 0, 160, 120, 3, 50, 60, fromAngle},
             {"parallel without width", 1, 0, 120, 3, 50, 60, fromAngle},
             {"size, near behind", 2, 160, 120, -3, 50, 60, fromAngle},
             {"angle, far behind", 3, 160, 120, 3, -50, 60, fromAngle},
             {"angle 180", 3, 160, 120, 3, 50, 180, fromAngle},
         }) {
        content.params.projection = int16_t(kind);
        content.params.screenWidth = uint16_t(width);
        content.params.screenHeight = uint16_t(height);
        content.params.nearDistance = fixed(near);
        content.params.farDistance = fixed(far);
        content.params.verticalAngle = fixed(degrees);
        EXPECT_EQ(queueAndFlush().size(), 2u) << what;
        const GlRecorder::Matrix& m = glRecorder.projection.top;
        const float actual[] = {m[0], m[5], m[10], m[11], m[14]};
        for (size_t i = 0; i < 5; ++i)
            EXPECT_NEAR(actual[i], expected[i], 1e-5 * std::abs(expected[i])) << what << ", number " << i;
    }
    content.params.farDistance = content.params.nearDistance;
    content.params.verticalAngle = fixed(60);
    EXPECT_TRUE(queueAndFlush().empty()) << "near equals far: nothing to see, and no failure";
}

// --- Parts and poses ---

TEST_F(DrawListTest, PatternsComeFromTheActionOrFromTheInfo) {
    using Parts = std::vector<FigurePart>;
    for (const auto& [what, hasAction, action, hostPattern, parts] :
         {std::tuple{"never chosen", false, 0u, 0u, Parts{Body, Badge}},
          {"bit 31, no action", false, 0x80000000, 0b11, {Body, Badge, Glass, Flag, Patch}},
          {"as the last flush left it", false, 0, 0, {Body, Badge, Glass, Flag, Patch}},
          {"the action's", true, 0, 0b10, {Body, Badge, Glass, Patch}},
          {"bit 31 over the action", true, 0x80000000, 0b10, {Body, Badge, Flag}},
          {"an action that does not exist", true, 9, 0b01, {Body, Badge, Flag}}}) {
        content.set([&, chosen = action, acts = hasAction](K8FigureInfo& info) {
            info.action = chosen;
            info.loadedAction = acts ? content.actions : nullptr;
        });
        ASSERT_TRUE(K8Figure_setPattern(content.figure, hostPattern));
        Parts drawnParts;
        for (const DrawnPart& drawn : queueAndFlush()) drawnParts.push_back(drawn.part);
        std::ranges::sort(drawnParts);
        EXPECT_EQ(drawnParts, parts) << what;
    }
}

TEST_F(DrawListTest, TwoItemsOfOneFigureHaveTheirOwnPoses) {
    std::vector<float> places;
    for (const int32_t frame : {0, 5, 10, 2}) {
        content.set([&](K8FigureInfo& info) {
            info.loadedAction = content.actions;
            info.frame = frame << 16;
        });
        ASSERT_TRUE(queue());
    }
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
    for (const auto& [what, mode, blending] :  // of body and patch, badge, glass, flag
         {std::tuple{"alpha", int16_t(K8_BLEND_ALPHA), std::array{alpha, alpha, alpha, alpha}},
          {"unknown counts as none", 33, asItIs},
          {"additive", K8_BLEND_ADDITIVE, {alphaAdd, alphaAdd, alphaAdd, alphaAdd}},
          {"none: as it was", K8_BLEND_NONE, asItIs},
          {"modulating, which no polygon can ask for", K8_BLEND_NONE, modulating},
          {"alpha in its place", K8_BLEND_ALPHA, {alpha, alpha, alpha, alpha}},
          {"modulating again", K8_BLEND_NONE, modulating}}) {
        if (blending == modulating) {
            qelCompositingMode_setBlending(bodyMode, int32_t(Blending::Modulate));
            qelCompositingMode_setDepthTestEnable(bodyMode, false);
        }
        content.set([blendMode = mode](K8FigureInfo& info) { info.blendMode = blendMode; });
        const std::vector<DrawnPart> drawn = queueAndFlush();
        EXPECT_EQ(drawn.size(), 5u) << what;
        for (const DrawnPart& part : drawn) {
            SCOPED_TRACE(std::string(what) + ", part " + std::to_string(part.part));
            const std::string& expected = blending[part.part == Patch ? Body : part.part];
            EXPECT_EQ(part.last("BlendFunc", "DepthMask"), expected);
            EXPECT_EQ(part.has("BLEND"), expected != replace);
            EXPECT_TRUE(part.has("DEPTH_TEST"));
        }
    }
}

TEST_F(DrawListTest, TransparencyFadesWhatBlends) {
    for (const auto& [percent, mode, alpha, diffuse] : {std::tuple{fixed(100), K8_BLEND_ALPHA, 254.0f, "0.996078"},
                                                        {fixed(50), K8_BLEND_ALPHA, 127.0f, "0.498039"},
                                                        {fixed(1), K8_BLEND_ADDITIVE, 2.0f, "0.00784314"},
                                                        {fixed(-7), K8_BLEND_ALPHA, 0.0f, "0"},
                                                        {fixed(50), K8_BLEND_NONE, 255.0f, "1"}}) {
        content.set([opacity = percent, blendMode = mode](K8FigureInfo& info) {
            info.transparency = opacity;
            info.blendMode = int16_t(blendMode);
        });
        const std::vector<DrawnPart> drawn = queueAndFlush();
        EXPECT_EQ(firstOf(drawn, Body).last("Materialfv(DIFFUSE"),
                  std::string("Materialfv(DIFFUSE, {1, 1, 1, ") + diffuse + "})");
        EXPECT_EQ(firstOf(drawn, Badge).draw.colors[0], (std::vector<float>{200, 100, 50, alpha}));
    }
}

TEST_F(DrawListTest, EveryPartHasTheTextureOfItsSlot) {
    content.set([](K8FigureInfo& info) { info.action = 0x80000000, info.pattern = 0b10; });
    K8Texture *first = content.textures[0], *second = content.textures[1], *map = content.textures[2];
    // In the order of their uploads.
    const std::string firstOn = "BindTexture(1); TexEnvf(MODE, MODULATE)",
                      secondOn = "BindTexture(2); TexEnvf(MODE, MODULATE)";
    queueAndFlush();  // uploads the two textures, in the order of the parts
    using Textures = std::vector<K8Texture*>;
    for (const auto& [what, slots, firstInfo, body, bodyMap, glass] :
         {std::tuple{"modulated", Textures{first, second}, K8TextureInfo{}, firstOn, "", secondOn},
          {"a second map that is not switched on", {first, second}, {0, 7, map}, firstOn, "", secondOn},
          {"exchanged", {second, first}, {}, secondOn, "", firstOn},
          {"fewer than slots", {second}, {}, secondOn, "", ""},
          {"more than slots", {first, second, map}, {}, firstOn, "", secondOn},
          {"replacing, with a map",
           {first, second},
           {1, 1, map},
           "BindTexture(1); TexEnvf(MODE, REPLACE)",
           "BindTexture(3); TexEnvf(MODE, ADD)",
           secondOn}}) {
        SCOPED_TRACE(what);
        K8Texture_setTmpData(first, &firstInfo);
        content.setTextures(slots);
        const std::vector<DrawnPart> drawn = queueAndFlush();
        ASSERT_EQ(drawn.size(), 4u);
        for (const FigurePart part : {Body, Patch}) {
            const DrawnPart& drawnPart = firstOf(drawn, part);
            EXPECT_EQ(drawnPart.unit(0), body);
            EXPECT_EQ(drawnPart.unit(1), bodyMap);
            if (!*bodyMap) continue;
            EXPECT_EQ(drawnPart.draw.lookups[1], drawnPart.draw.lookups[0]) << "the coordinates of the first";
            EXPECT_EQ(drawnPart.draw.lookups[1].back()[0], part == Body ? 1 : 0) << "scaled from texels";
        }
        EXPECT_EQ(firstOf(drawn, Glass).unit(0), glass);
        EXPECT_EQ(firstOf(drawn, Glass).unit(1), "");
        EXPECT_EQ(firstOf(drawn, Badge).unit(0), "") << "a colour polygon";
        for (K8Texture* texture : {first, second, map})
            EXPECT_EQ(texture->header.object->refCount, 1) << "the slots are empty again";
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
    const auto expectCalls = [this](const char* what, int32_t ofHeap, int32_t ofHost) {
        EXPECT_EQ(heap.calls(), ofHeap) << what;
        EXPECT_EQ(host.calls(), ofHost) << what;
    };
    ASSERT_TRUE(queue());
    expectCalls("duplicates of lights and fog, the arrays of lights, the textures of the copy", 3 + 1, 2 + 1);
    ASSERT_TRUE(queue());
    expectCalls("the lights are those of the first", 4 + 1, 3 + 1);
    EXPECT_TRUE(StageContent::flush(render));
    expectCalls("a flush", 4 + 1, 3 + 1);
}

}  // namespace
