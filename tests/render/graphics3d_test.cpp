#include "render/graphics3d.h"

#include "scene/group.h"
#include "tests/render/graphics_fixture.h"
#include "tests/support/counting_heap.h"

// --- Targets ---

TEST(Graphics3D, ChecksHintsAndSizes) {
    for (const int32_t hints : {-2, 7, 16}) EXPECT_EQ(qelGraphics3D_create(hints, 8, 8), nullptr) << hints;
    EXPECT_EQ(qelGraphics3D_create(8, -1, 8), nullptr);
    EXPECT_EQ(qelGraphics3D_create(8, 8, -1), nullptr);
    const int32_t calls = sweepEngineAllocations(FailMode::Once, [](CountingHeap& heap) {
        Graphics3D* graphics = qelGraphics3D_create(8, 8, 8);
        EXPECT_EQ(graphics == nullptr, heap.hasFailed());
        qelGraphics3D_destroy(graphics);
    });
    EXPECT_GT(calls, 1);
}

TEST_F(GraphicsTest, RefusesTargetsInTheOrderOfItsChecks) {
    for (const auto& [what, isBound, surface, width, height, hints, result] :
         {std::tuple{"odd hints", true, static_cast<int*>(nullptr), 9999, 8, 1, QEL_STATUS_ILLEGAL_ARGUMENT},
          {"negative height", true, nullptr, 8, -1, 8, QEL_STATUS_ILLEGAL_ARGUMENT},
          {"bound", true, nullptr, 9999, 8, 8, QEL_STATUS_ILLEGAL_STATE},
          {"no target", false, nullptr, 9999, 8, 8, QEL_STATUS_NULL_POINTER},
          {"too wide", false, &target, 2049, 8, 8, QEL_STATUS_OUT_OF_MEMORY},
          {"the largest", false, &target, 2048, 2048, 8, QEL_STATUS_OK}}) {
        qelGraphics3D_releaseTarget(graphics);
        if (isBound) bind();
        const PixelRect area = {0, 0, 8, 8};
        EXPECT_EQ(qelGraphics3D_bindTarget(graphics, surface, area, width, height, true, hints), result) << what;
        EXPECT_EQ(graphics->isBound, isBound || result == QEL_STATUS_OK) << what;
    }
    const Held<Image2D> immutable = makeImage(ImageFormat::Rgb, 8, 8), image = makeMutableImage(ImageFormat::Rgb, 2, 1);
    const Held<Image2D> alpha = makeMutableImage(ImageFormat::Alpha, 8, 8);
    const auto bindImage = [this](Image2D* to, int32_t hints) {
        return qelGraphics3D_bindImageTarget(graphics, to, {0, 0, 8, 8}, true, hints);
    };
    EXPECT_EQ(bindImage(immutable, 8), QEL_STATUS_ILLEGAL_STATE) << "bound comes first";
    qelGraphics3D_releaseTarget(graphics);
    EXPECT_EQ(bindImage(nullptr, 8), QEL_STATUS_NULL_POINTER);
    EXPECT_EQ(bindImage(immutable, 8), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(bindImage(alpha, 8), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(bindImage(image, 3), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_FALSE(graphics->isBound);
    glRecorder.frame = {255, 0, 0, 255, 0, 0, 255, 255};
    const uint32_t version = image->version;
    ASSERT_EQ(bindImage(image, 0), QEL_STATUS_OK);
    EXPECT_NE(image->version, version) << "marked as changed";
    qelGraphics3D_releaseTarget(graphics);
    EXPECT_EQ(reinterpret_cast<const uint16_t*>(image->pixels)[0], 0xF800) << "it receives the frame";
}

TEST_F(GraphicsTest, TheViewportIsCutToClipAndTarget) {
    qelGraphics3D_releaseTarget(graphics);
    bind({10, 10, 100, 20});
    glRecorder.take();
    for (const auto& [viewport, scissor] :  // of a target 48 high
         {std::pair{PixelRect{0, 0, 64, 48}, "Scissor(10, 18, 54, 20)"},
          {{0, 0, 5, 5}, "Scissor(10, 43, 0, 0)"},
          {{20, 15, 8, 4}, "Scissor(20, 29, 8, 4)"}}) {
        EXPECT_EQ(qelGraphics3D_setViewport(graphics, viewport), QEL_STATUS_OK);
        qelGraphics3D_clear(graphics, kClearColor, nullptr);  // sends it
        EXPECT_TRUE(sent({scissor})) << scissor;
    }
    for (const PixelRect& refused :
         {PixelRect{0, 0, 0, 5}, {0, 0, 5, 0}, {0, 0, -1, 5}, {0, 0, 2049, 5}, {0, 0, 5, 2049}})
        EXPECT_EQ(qelGraphics3D_setViewport(graphics, refused), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(graphics->viewport.x, 20) << "refused viewports change nothing";

    for (const auto& [near, far] : {std::pair{-0.1f, 1.0f}, {0.0f, 1.1f}, {NAN, 1.0f}, {0.0f, NAN}})
        EXPECT_EQ(qelGraphics3D_setDepthRange(graphics, near, far), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(qelGraphics3D_setDepthRange(graphics, 1, 0.25f), QEL_STATUS_OK);
    qelGraphics3D_clear(graphics, kClearColor, nullptr);
    EXPECT_TRUE(sent({"DepthRangef(1, 0.25)"}));
}

// --- Lights ---

TEST(Graphics3D, TheLightListGrowsAndHoldsItsLights) {
    CountingHeap heap;
    Graphics3D* graphics = qelGraphics3D_create(8, 8, 8);
    {
        const Held<Light> light(qelLight_create()), other(qelLight_create());
        Result result;
        EXPECT_EQ(qelGraphics3D_addLight(graphics, nullptr, nullptr, &result), -1);
        EXPECT_EQ(result, QEL_STATUS_NULL_POINTER);
        for (int32_t i = 0; i < 20; ++i) {
            const qelTransform place = translation(float(i), 0, 0);
            if (i == 8) {
                heap.failAfter(0);
                EXPECT_EQ(qelGraphics3D_addLight(graphics, light, &place, &result), -1);
                EXPECT_EQ(result, QEL_STATUS_OUT_OF_MEMORY);
            }
            EXPECT_EQ(qelGraphics3D_addLight(graphics, light, &place, &result), i);
            EXPECT_EQ(result, QEL_STATUS_OK);
        }
        EXPECT_EQ(light->refCount, 21);
        for (int32_t i = 0; i < 20; ++i) EXPECT_EQ(graphics->lights[i].transform.elements[3], float(i));
        for (const int32_t index : {-1, 20})
            EXPECT_EQ(qelGraphics3D_setLight(graphics, index, other, nullptr), QEL_STATUS_INDEX_OUT_OF_RANGE);
        EXPECT_EQ(qelGraphics3D_setLight(graphics, 19, other, nullptr), QEL_STATUS_OK);
        EXPECT_EQ(graphics->lights[19].transform.elements[3], 0) << "no transform: the identity";
        EXPECT_EQ(light->refCount, 20);
        qelGraphics3D_resetLights(graphics);
        EXPECT_EQ(light->refCount, 1);
        EXPECT_EQ(other->refCount, 1);
        EXPECT_EQ(graphics->lightCount, 0);
    }
    qelGraphics3D_destroy(graphics);
}

// Light i, counted from 1, stands on the x axis and is coloured by its number.
TEST_F(GraphicsTest, TheEightNearestOfTheLightsThatTakePartAreUsed) {
    using Places = std::vector<float>;
    using Slots = std::vector<uint32_t>;
    for (const auto& [what, modelX, places, slots] :
         {std::tuple{"eight, however far", 0.0f, Places{900, 1, 5, 2, 2, 2, 2, 9999}, Slots{1, 2, 3, 4, 5, 6, 7, 8}},
          {"the farthest one's slot is taken", 0, {1, 2, 3, 90, 5, 6, 7, 8, 4}, {1, 2, 3, 9, 5, 6, 7, 8}},
          {"of equally far ones the later", 0, {1, 50, 3, 4, -50, 6, 7, 8, 9}, {1, 2, 3, 4, 9, 6, 7, 8}},
          {"the ninth yields to its equal", 0, {1, 2, 3, 4, 5, 6, 7, 50, -50}, {1, 2, 3, 4, 5, 6, 7, 8}},
          {"one by one", 0, {20, 30, 1, 1, 1, 1, 1, 1, 25, 2, 3}, {11, 10, 3, 4, 5, 6, 7, 8}},
          {"seen from the model", 80, {1, 2, 3, 90, 5, 6, 7, 8, 4}, {9, 2, 3, 4, 5, 6, 7, 8}}}) {
        qelGraphics3D_resetLights(graphics);
        for (size_t i = 0; i < places.size(); ++i) addLight(uint32_t(i + 1), places[i]);
        const qelTransform model = translation(modelX, 0, 0);
        names(makeMesh(1), &model);
        EXPECT_EQ(lightsInUse(), slots) << what;
    }
    qelGraphics3D_resetLights(graphics);
    glRecorder.take();
    names(makeMesh(1));
    EXPECT_TRUE(sent({"Disable(LIGHT0)", "Disable(LIGHT7)"}));
}

// The sixth shines on one of two meshes that are drawn together alone.
TEST_F(GraphicsTest, LightsThatShineOnNothingTakeNoSlot) {
    Held<Light> lights[6];
    for (uint32_t i = 0; i < 6; ++i) {
        Result result;
        lights[i] = Held<Light>(qelLight_create());
        qelLight_setColor(lights[i], i + 1);
        qelGraphics3D_addLight(graphics, lights[i], nullptr, &result);
    }
    qelNode_setRenderingEnable(lights[0], false);
    qelLight_setColor(lights[1], 0);
    qelNode_setScope(lights[2], 6);
    qelNode_setScope(lights[5], 8);
    qelGraphics3D_setLight(graphics, 3, nullptr, nullptr);
    const Held<Mesh> mesh = makeMesh(1), last = makeMesh(2, {makeAppearance(Blending::Replace, 1)});
    const Held<Group> both(qelGroup_create());
    qelGroup_addChild(both, mesh);
    qelGroup_addChild(both, last);
    for (const auto& [scope, colors] : {std::pair{1, std::vector<uint32_t>{5}}, {4, {3, 5}}, {8, {5, 6}}}) {
        qelNode_setScope(last, scope);
        names(both);
        EXPECT_EQ(lightsInUse(), colors) << scope;
    }
}

// --- Rendering ---

TEST_F(GraphicsTest, RenderChecksItsState) {
    const Held<Mesh> mesh = makeMesh(1);
    const Held<Light> light(qelLight_create());
    EXPECT_TRUE(render(nullptr, nullptr, QEL_STATUS_NULL_POINTER).empty());
    EXPECT_TRUE(render(light, nullptr, QEL_STATUS_ILLEGAL_ARGUMENT).empty()) << "a class that is not drawn";
    qelGraphics3D_setCamera(graphics, nullptr, nullptr);
    EXPECT_TRUE(render(mesh, nullptr, QEL_STATUS_ILLEGAL_STATE).empty()) << "no camera";
    qelTransform flat = identity;
    qelTransform_postScale(&flat, 1, 0, 1);
    qelGraphics3D_setCamera(graphics, camera, &flat);
    EXPECT_TRUE(render(mesh, nullptr, kResultCameraNotInvertible).empty());
    qelGraphics3D_setCamera(graphics, camera, nullptr);
    EXPECT_EQ(render(mesh).size(), 1u) << "none of them left anything behind";
    qelCamera_setPerspective(camera, 60, 1, 5, 5);
    qelGraphics3D_setCamera(graphics, camera, nullptr);
    EXPECT_TRUE(render(mesh).empty()) << "near equals far";
    qelGraphics3D_releaseTarget(graphics);
    EXPECT_TRUE(render(mesh, nullptr, QEL_STATUS_ILLEGAL_STATE).empty()) << "no target";
}

TEST_F(GraphicsTest, ASubmeshNeedsItsPartsAndCoordinatesForItsTextures) {
    Square square;
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    const SubmeshDraw whole = square.submesh();
    const auto draw = [this](const SubmeshDraw& submesh) { return qelGraphics3D_drawSubmesh(graphics, submesh, -1); };
    for (const int missing : {0, 1, 2}) {
        SubmeshDraw part = whole;
        if (missing == 0) part.vertexBuffer = nullptr;
        if (missing == 1) part.indexBuffer = nullptr;
        if (missing == 2) part.appearance = nullptr;
        EXPECT_EQ(draw(part), QEL_STATUS_NULL_POINTER) << missing;
    }
    for (int32_t unit = 0; unit < kMaxTextureUnits; ++unit) {
        qelAppearance_setTexture(square.appearance, unit, texture);
        EXPECT_EQ(draw(whole), QEL_STATUS_ILLEGAL_STATE) << "texture without coordinates on unit " << unit;
        square.setTexture(unit, texture);
        EXPECT_EQ(draw(whole), QEL_STATUS_OK);
    }
    qelVertexBuffer_setPositions(square.buffer, nullptr, 1, nullptr);
    EXPECT_EQ(draw(whole), QEL_STATUS_ILLEGAL_STATE);
    qelGraphics3D_releaseTarget(graphics);
    EXPECT_EQ(draw(whole), QEL_STATUS_ILLEGAL_STATE);
}
