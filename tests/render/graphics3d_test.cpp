#include "render/graphics3d.h"

#include <functional>

#include "tests/render/graphics_fixture.h"
#include "tests/support/counting_heap.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;

// --- Targets ---

TEST(Graphics3D, ChecksHintsAndSizes) {
    for (const int32_t hints : {-2, 1, 7, 15, 16}) EXPECT_EQ(qelGraphics3D_create(hints, 8, 8), nullptr) << hints;
    EXPECT_EQ(qelGraphics3D_create(8, -1, 8), nullptr);
    EXPECT_EQ(qelGraphics3D_create(8, 8, -1), nullptr);
    for (const int32_t hints : {0, 2, 14}) {
        Graphics3D* graphics = qelGraphics3D_create(hints, 0, 0);
        EXPECT_NE(graphics, nullptr) << hints;
        qelGraphics3D_destroy(graphics);
    }
    const int32_t calls = sweepEngineAllocations(FailMode::Once, [](CountingHeap& heap) {
        Graphics3D* graphics = qelGraphics3D_create(8, 8, 8);
        EXPECT_EQ(graphics == nullptr, heap.hasFailed());
        qelGraphics3D_destroy(graphics);
    });
    EXPECT_GT(calls, 1);
}

TEST_F(GraphicsTest, RefusesTargetsInTheOrderOfItsChecks) {
    const Held<Image2D> immutableImage = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Image2D> alphaImage = makeMutableImage(ImageFormat::Alpha, 8, 8);
    struct Case {
        const char* what;
        bool isBound;
        bool hasTarget;
        int32_t width, height, hints;
        Result result;
    };
    for (const Case& c : {
             Case{"odd hints", true, false, 9999, 8, 1, QEL_STATUS_ILLEGAL_ARGUMENT},
             Case{"hints beyond 14", true, false, 8, 8, 16, QEL_STATUS_ILLEGAL_ARGUMENT},
             Case{"negative hints", true, false, 8, 8, -2, QEL_STATUS_ILLEGAL_ARGUMENT},
             Case{"negative width", true, false, -1, 8, 8, QEL_STATUS_ILLEGAL_ARGUMENT},
             Case{"negative height", true, false, 8, -1, 8, QEL_STATUS_ILLEGAL_ARGUMENT},
             Case{"bound", true, false, 9999, 8, 8, QEL_STATUS_ILLEGAL_STATE},
             Case{"no target", false, false, 9999, 8, 8, QEL_STATUS_NULL_POINTER},
             Case{"too wide", false, true, 2049, 8, 8, QEL_STATUS_OUT_OF_MEMORY},
             Case{"too high", false, true, 8, 2049, 8, QEL_STATUS_OUT_OF_MEMORY},
             Case{"the largest", false, true, 2048, 2048, 8, QEL_STATUS_OK},
         }) {
        qelGraphics3D_releaseTarget(graphics);
        if (c.isBound) bind();
        EXPECT_EQ(qelGraphics3D_bindTarget(graphics, c.hasTarget ? &target : nullptr, {0, 0, 8, 8}, c.width, c.height,
                                           true, c.hints),
                  c.result)
            << c.what;
        EXPECT_EQ(graphics->isBound, c.isBound || c.result == QEL_STATUS_OK) << c.what;
    }
    const auto bindImage = [this](Image2D* image, int32_t hints) {
        return qelGraphics3D_bindImageTarget(graphics, image, {0, 0, 8, 8}, true, hints);
    };
    EXPECT_EQ(bindImage(immutableImage, 8), QEL_STATUS_ILLEGAL_STATE) << "bound comes first";
    qelGraphics3D_releaseTarget(graphics);
    EXPECT_EQ(bindImage(nullptr, 8), QEL_STATUS_NULL_POINTER);
    EXPECT_EQ(bindImage(immutableImage, 8), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(bindImage(alphaImage, 8), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(bindImage(immutableImage, 3), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_FALSE(graphics->isBound);
}

TEST_F(GraphicsTest, CutsTheAreaToTheLargestViewport) {
    struct Case {
        const char* what;
        PixelRect area;
        std::string sent;  // counted from the bottom of a target 48 high
    };
    for (const Case& c :
         {Case{"inside", {4, 6, 20, 10}, "(4, 32, 20, 10)"},
          Case{"from outside", {-10, -5, 100, 60}, "(0, -7, 90, 55)"},
          Case{"beyond the largest", {8, 0, 4000, 3000}, "(8, -2000, 2040, 2048)"},
          Case{"beyond 31 bits", {8, 8, INT32_MAX, INT32_MAX}, "(8, -2000, 2040, 2040)"},
          Case{"all of it left: no negative size", {-20, 0, 10, 10}, "(0, 38, 0, 10)"},
          Case{"above", {0, -20, 10, 10}, "(0, 48, 10, 0)"}, Case{"right", {3000, 0, 10, 10}, "(3000, 38, 0, 10)"},
          Case{"far above", {0, INT32_MIN, 9, 9}, "(0, 48, 9, 0)"}}) {
        qelGraphics3D_releaseTarget(graphics);
        EXPECT_EQ(bind(c.area), QEL_STATUS_OK);
        EXPECT_THAT(glRecorder.take(), IsSupersetOf({"glViewport" + c.sent, "glScissor" + c.sent})) << c.what;
    }
}

TEST_F(GraphicsTest, TheViewportIsCutToClipAndTarget) {
    qelGraphics3D_releaseTarget(graphics);
    bind({10, 10, 100, 20});
    glRecorder.take();
    struct Case {
        const char* what;
        PixelRect viewport;
        std::string scissor;  // of a target 48 high
    };
    for (const Case& c : {Case{"the clip inside it", {0, 0, 64, 48}, "glScissor(10, 18, 54, 20)"},
                          Case{"inside the clip", {20, 15, 8, 4}, "glScissor(20, 29, 8, 4)"},
                          Case{"partly above", {-4, -4, 30, 20}, "glScissor(10, 32, 16, 6)"},
                          Case{"beside the clip", {0, 0, 5, 5}, "glScissor(10, 43, 0, 0)"},
                          Case{"far beyond the target", {60, 0, 2048, 2048}, "glScissor(60, 18, 4, 20)"}}) {
        EXPECT_EQ(qelGraphics3D_setViewport(graphics, c.viewport), QEL_STATUS_OK);
        qelGraphics3D_clear(graphics, kClearColor, nullptr);  // sends it
        EXPECT_THAT(glRecorder.take(), testing::Contains(c.scissor)) << c.what;
    }
    for (const PixelRect& refused :
         {PixelRect{0, 0, 0, 5}, {0, 0, 5, 0}, {0, 0, -1, 5}, {0, 0, 2049, 5}, {0, 0, 5, 2049}})
        EXPECT_EQ(qelGraphics3D_setViewport(graphics, refused), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(graphics->viewport.x, 60) << "refused viewports change nothing";

    for (const auto& [near, far] : {std::pair{-0.1f, 1.0f}, {0.0f, 1.1f}, {NAN, 1.0f}, {0.0f, NAN}})
        EXPECT_EQ(qelGraphics3D_setDepthRange(graphics, near, far), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(qelGraphics3D_setDepthRange(graphics, 1, 0.25f), QEL_STATUS_OK);
    qelGraphics3D_clear(graphics, kClearColor, nullptr);
    EXPECT_THAT(glRecorder.take(), testing::Contains("glDepthRangef(1, 0.25)"));
}

TEST_F(GraphicsTest, ClearsOnlyWhileBoundAndDepthOnlyWithADepthBuffer) {
    EXPECT_EQ(qelGraphics3D_clear(graphics, kClearDepth, nullptr), QEL_STATUS_OK);
    EXPECT_THAT(glRecorder.take(), ElementsAre("glDepthMask(1)", "glClear(depth)"));
    qelGraphics3D_releaseTarget(graphics);
    EXPECT_EQ(qelGraphics3D_clear(graphics, kClearDepth, nullptr), QEL_STATUS_ILLEGAL_STATE);
    bind({0, 0, kWidth, kHeight}, false);
    glRecorder.take();
    EXPECT_EQ(qelGraphics3D_clear(graphics, kClearDepth, nullptr), QEL_STATUS_OK);
    EXPECT_THAT(glRecorder.take(), IsEmpty());
    names(makeMesh(1));
    EXPECT_THAT(glRecorder.take(), IsSupersetOf({"glDisable(GL_DEPTH_TEST)", "glDepthMask(0)"}));
}

TEST_F(GraphicsTest, AnImageTargetReceivesTheFrame) {
    const Held<Image2D> image = makeMutableImage(ImageFormat::Rgb, 2, 1);
    glRecorder.frame = {255, 0, 0, 255, 0, 0, 255, 255};
    qelGraphics3D_releaseTarget(graphics);
    const uint32_t version = image->version;
    ASSERT_EQ(qelGraphics3D_bindImageTarget(graphics, image, {0, 0, 2, 1}, false, 0), QEL_STATUS_OK);
    EXPECT_NE(image->version, version) << "marked as changed";
    EXPECT_EQ(glRecorder.draws.size(), 1u) << "the contents come first";
    EXPECT_EQ(names(makeMesh(1)), std::vector{1});
    qelGraphics3D_releaseTarget(graphics);
    const auto* pixels = reinterpret_cast<const uint16_t*>(image->pixels);
    EXPECT_EQ(pixels[0], 0xF800);
    EXPECT_EQ(pixels[1], 0x001F);
}

// --- Lights ---

TEST_F(GraphicsTest, TheLightListGrowsAndHoldsItsLights) {
    const Held<Light> light(qelLight_create()), other(qelLight_create());
    Result result;
    EXPECT_EQ(qelGraphics3D_addLight(graphics, nullptr, nullptr, &result), -1);
    EXPECT_EQ(result, QEL_STATUS_NULL_POINTER);
    for (int32_t i = 0; i < 20; ++i) {
        const qelTransform place = translation(float(i), 0, 0);
        EXPECT_EQ(qelGraphics3D_addLight(graphics, light, &place, &result), i);
        EXPECT_EQ(result, QEL_STATUS_OK);
    }
    EXPECT_EQ(light->refCount, 21);
    for (int32_t i = 0; i < 20; ++i) EXPECT_EQ(graphics->lights[i].transform.elements[3], float(i));

    EXPECT_EQ(qelGraphics3D_setLight(graphics, -1, other, nullptr), QEL_STATUS_INDEX_OUT_OF_RANGE);
    EXPECT_EQ(qelGraphics3D_setLight(graphics, 20, other, nullptr), QEL_STATUS_INDEX_OUT_OF_RANGE);
    EXPECT_EQ(qelGraphics3D_setLight(graphics, 19, other, nullptr), QEL_STATUS_OK);
    EXPECT_EQ(graphics->lights[19].transform.elements[3], 0) << "no transform: the identity";
    EXPECT_EQ(light->refCount, 20);
    EXPECT_EQ(other->refCount, 2);
    qelGraphics3D_resetLights(graphics);
    EXPECT_EQ(light->refCount, 1);
    EXPECT_EQ(other->refCount, 1);
    EXPECT_EQ(graphics->lightCount, 0);
}

TEST(Graphics3D, ALightThatFindsNoRoomIsNotAdded) {
    CountingHeap heap;
    Graphics3D* graphics = qelGraphics3D_create(8, 8, 8);
    {
        const Held<Light> light(qelLight_create());
        Result result;
        for (int32_t i = 0; i < 8; ++i) qelGraphics3D_addLight(graphics, light, nullptr, &result);
        heap.failAfter(0);
        EXPECT_EQ(qelGraphics3D_addLight(graphics, light, nullptr, &result), -1);
        EXPECT_EQ(result, QEL_STATUS_OUT_OF_MEMORY);
        EXPECT_EQ(light->refCount, 9);
        EXPECT_EQ(qelGraphics3D_addLight(graphics, light, nullptr, &result), 8);
    }
    qelGraphics3D_destroy(graphics);
}

// Light i, counted from 1, stands on the x axis and is coloured by its number.
TEST_F(GraphicsTest, TheEightNearestOfTheLightsThatTakePartAreUsed) {
    struct Case {
        const char* what;
        std::vector<float> places;
        std::vector<uint32_t> slots;
        float modelX = 0;
    };
    for (const Case& c : {
             Case{"few, in order", {9, 1, 5}, {1, 2, 3}},
             Case{"eight, however far", {900, 1, 5, 2, 2, 2, 2, 9999}, {1, 2, 3, 4, 5, 6, 7, 8}},
             Case{"the ninth takes the farthest one's slot", {1, 2, 3, 90, 5, 6, 7, 8, 4}, {1, 2, 3, 9, 5, 6, 7, 8}},
             Case{"the ninth is the farthest", {1, 2, 3, 4, 5, 6, 7, 8, 9}, {1, 2, 3, 4, 5, 6, 7, 8}},
             Case{
                 "of equally far ones the later slot yields", {1, 50, 3, 4, -50, 6, 7, 8, 9}, {1, 2, 3, 4, 9, 6, 7, 8}},
             Case{"against its equal the ninth yields", {1, 2, 3, 4, 5, 6, 7, 50, -50}, {1, 2, 3, 4, 5, 6, 7, 8}},
             Case{"all equal", {5, 5, 5, 5, 5, 5, 5, 5, 5, 5}, {1, 2, 3, 4, 5, 6, 7, 8}},
             Case{"one after the other", {20, 30, 1, 1, 1, 1, 1, 1, 25, 2, 3}, {11, 10, 3, 4, 5, 6, 7, 8}},
             Case{"seen from the model", {1, 2, 3, 90, 5, 6, 7, 8, 4}, {9, 2, 3, 4, 5, 6, 7, 8}, 80},
         }) {
        qelGraphics3D_resetLights(graphics);
        for (size_t i = 0; i < c.places.size(); ++i) {
            const Held<Light> light(qelLight_create());
            qelLight_setColor(light, uint32_t(i + 1));
            const qelTransform place = translation(c.places[i], 0, 0);
            Result result;
            qelGraphics3D_addLight(graphics, light, &place, &result);
        }
        const qelTransform model = translation(c.modelX, 0, 0);
        names(makeMesh(1), &model);
        std::vector<uint32_t> slots;
        for (const LightSlot& slot : graphics->backend->lights)
            if (slot.inUse) slots.push_back(slot.state.color);
        EXPECT_EQ(slots, c.slots) << c.what;
    }
    qelGraphics3D_resetLights(graphics);
    glRecorder.take();
    names(makeMesh(1));
    const GlLines lines = glRecorder.take();
    for (int i = 0; i < 8; ++i) EXPECT_THAT(lines, testing::Contains("glDisable(GL_LIGHT" + std::to_string(i) + ")"));
}

TEST_F(GraphicsTest, LightsThatShineOnNothingTakeNoSlot) {
    std::vector<Held<Light>> lights;
    for (int i = 0; i < 5; ++i) {
        Result result;
        qelLight_setColor(lights.emplace_back(qelLight_create()), uint32_t(i + 1));
        qelGraphics3D_addLight(graphics, lights.back(), nullptr, &result);
    }
    qelNode_setRenderingEnable(lights[0], false);
    qelLight_setColor(lights[1], 0);
    qelNode_setScope(lights[2], 6);
    qelGraphics3D_setLight(graphics, 3, nullptr, nullptr);
    const auto litBy = [this](int32_t scope) {
        const Held<Mesh> mesh = makeMesh(1);
        qelNode_setScope(mesh, scope);
        render(mesh);
        std::vector<uint32_t> colors;
        for (const LightSlot& slot : graphics->backend->lights)
            if (slot.inUse) colors.push_back(slot.state.color);
        return colors;
    };
    EXPECT_THAT(litBy(1), ElementsAre(5));
    EXPECT_THAT(litBy(4), ElementsAre(3, 5));
}

// --- Rendering ---

TEST_F(GraphicsTest, RenderChecksItsState) {
    const Held<Mesh> mesh = makeMesh(1);
    const Held<Light> light(qelLight_create());
    struct Case {
        const char* what;
        std::function<void()> change;
        Node* node;
        Result result;
        size_t drawCount = 0;
    };
    const auto put = [this](float near, float far) {
        qelCamera_setPerspective(camera, 60, 1, near, far);
        qelGraphics3D_setCamera(graphics, camera, nullptr);
    };
    qelTransform flat = identity;
    qelTransform_postScale(&flat, 1, 0, 1);
    for (const Case& c : {
             Case{"a mesh", [] {}, mesh, QEL_STATUS_OK, 1},
             Case{"no node", [] {}, nullptr, QEL_STATUS_NULL_POINTER},
             Case{"a class that is not drawn", [] {}, light, QEL_STATUS_ILLEGAL_ARGUMENT},
             Case{"a disabled node", [&] { qelNode_setRenderingEnable(mesh, false); }, mesh, QEL_STATUS_OK},
             Case{"no target", [&] { qelGraphics3D_releaseTarget(graphics); }, mesh, QEL_STATUS_ILLEGAL_STATE},
             Case{"no camera", [&] { qelGraphics3D_setCamera(graphics, nullptr, nullptr); }, mesh,
                  QEL_STATUS_ILLEGAL_STATE},
             Case{"near equals far", [&] { put(5, 5); }, mesh, QEL_STATUS_OK},
             Case{"a camera that cannot be turned round", [&] { qelGraphics3D_setCamera(graphics, camera, &flat); },
                  mesh, kResultCameraNotInvertible},
         }) {
        c.change();
        EXPECT_EQ(render(c.node, nullptr, c.result).size(), c.drawCount) << c.what;
        qelNode_setRenderingEnable(mesh, true);
        if (!graphics->isBound) bind();
        qelCamera_setGeneric(camera, &identity);
        qelGraphics3D_setCamera(graphics, camera, nullptr);
    }
    EXPECT_EQ(render(mesh).size(), 1u) << "none of them left anything behind";
}

TEST_F(GraphicsTest, ASubmeshNeedsItsPartsAndCoordinatesForItsTextures) {
    Square square;
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    const SubmeshDraw whole = square.submesh();
    const auto draw = [this](const SubmeshDraw& submesh) { return qelGraphics3D_drawSubmesh(graphics, submesh, -1); };
    EXPECT_EQ(draw(whole), QEL_STATUS_OK);
    SubmeshDraw part = whole;
    part.vertexBuffer = nullptr;
    EXPECT_EQ(draw(part), QEL_STATUS_NULL_POINTER);
    part = whole;
    part.indexBuffer = nullptr;
    EXPECT_EQ(draw(part), QEL_STATUS_NULL_POINTER);
    part = whole;
    part.appearance = nullptr;
    EXPECT_EQ(draw(part), QEL_STATUS_NULL_POINTER);
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

TEST_F(GraphicsTest, TheCameraTransformIsInvertedAndItsReferenceHeld) {
    Held<Camera> other(qelCamera_create());
    qelCamera_setGeneric(other, &identity);
    const qelTransform place = translation(10, 20, 30);
    qelGraphics3D_setCamera(graphics, other, &place);
    EXPECT_EQ(camera->refCount, 1);
    other.drop();
    EXPECT_EQ(render(makeMesh(1)), (std::vector<Drawn>{{1, -10, -20, -30}}));
    qelGraphics3D_setCamera(graphics, nullptr, nullptr);
}
