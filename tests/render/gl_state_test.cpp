// What reaches OpenGL ES of each component of the state and of the vertices, and what is not sent again.
#include <functional>

#include "frame/error_status.h"
#include "tests/render/backend_fixture.h"
#include "tests/support/counting_heap.h"

using StateTest = BackendTest;

TEST_F(StateTest, BindingSendsTheDefaultStateAndTheFlippedViewport) {
    for (const auto& [viewport, scissor, areas] :  // rows count from the top
         {std::tuple{PixelRect{1, 2, 30, 20}, PixelRect{3, 4, 10, 11},
                     "Viewport(1, 26, 30, 20); Scissor(3, 33, 10, 11)"},
          {{-5, -6, 70, 60}, {0, 0, 64, 48}, "Viewport(-5, -6, 70, 60); Scissor(0, 0, 64, 48)"},
          {{0, 0, 9, 9}, {7, 8, 3, -2}, "Viewport(0, 39, 9, 9); Scissor(7, 42, 0, 0)"}}) {
        qelGLBackend_setViewport(backend, viewport, scissor);
        qelGLBackend_setDepthRange(backend, 0.25f, 0.75f);
        EXPECT_EQ(qelGLBackend_bind(backend, kWidth, kHeight), QEL_STATUS_OK);
        EXPECT_EQ(brief(glRecorder.take()), std::string("DepthFunc(LEQUAL); Disable(DITHER); Enable(SCISSOR_TEST); "
                                                        "LightModelfv(LIGHT_MODEL_AMBIENT, {0, 0, 0, 0}); ") +
                                                areas + "; DepthRangef(0.25, 0.75)");
    }
    EXPECT_EQ(qelGLBackend_bind(backend, 2049, 1), QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(qelGLBackend_bind(backend, 1, 2049), QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_TRUE(glRecorder.take().empty());
    EXPECT_EQ(qelGLBackend_bind(backend, 2048, 2048), QEL_STATUS_OK);
}

// --- Whole draws ---

// A square with one of everything, under an ambient and an omni light.
struct FullScene {
    Square square;
    Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8), overlayImage = makePaletteImage(ImageFormat::Rgba, 8, 8);
    Held<Texture2D> texture = makeTexture(image), overlay = makeTexture(overlayImage);
    Held<Light> ambient{qelLight_create()}, omni{qelLight_create()};
    Material* material = square.setMaterial();
    CompositingMode* compositing = square.setCompositing(Blending::Alpha);
    Fog* fog = square.setFog();
    qelTransform lightPlace;

    FullScene() {
        square.setNormals();
        square.setColors();
        square.setTexture(0, texture);
        square.setTexture(1, overlay);
        square.setPolygonMode();
        square.alphaFactor = 0.5f;
        qelMaterial_setShininess(material, 5);
        qelMaterial_setVertexColorTrackingEnable(material, true);
        qelLight_setMode(ambient, int32_t(LightMode::Ambient));
        qelLight_setMode(omni, int32_t(LightMode::Omni));
        qelTransform_setIdentity(&lightPlace);
    }
    void placeLights(GLBackend* backend) const {
        qelGLBackend_setLight(backend, 0, ambient, &lightPlace);
        qelGLBackend_setLight(backend, 1, omni, &lightPlace);
    }
};

TEST_F(StateTest, ABindingSendsEverythingAgain) {  // another user of the context may have been at work before it
    FullScene scene;
    scene.placeLights(backend);
    draw(scene.square);
    qelGLBackend_bind(backend, kWidth, kHeight);
    glRecorder.take();
    const std::string again = drawBeyond(scene.square);
    for (const char* call :
         {"Enable(LIGHT0)", "Enable(LIGHT1)", "Disable(LIGHT2)", "Disable(LIGHT7)", "Enable(NORMALIZE)",
          "Enable(COLOR_MATERIAL)", "ShadeModel(SMOOTH)", "Enable(FOG)", "DepthMask(1)", "Enable(BLEND)"})
        EXPECT_NE(again.find(call), std::string::npos) << call;
}

TEST_F(StateTest, EachKindOfChangeSendsThatKindAndNothingElse) {
    FullScene scene;
    scene.placeLights(backend);
    draw(scene.square);
    using Change = std::function<void()>;
    for (const auto& [change, sent] : {
             std::pair{Change([&] {
                           qelFog_setColor(scene.fog, 0);
                           qelCompositingMode_setDepthTestEnable(scene.compositing, true);
                           qelMaterial_setShininess(scene.material, 5);
                       }),
                       ""},  // no value has changed
             {[&] { qelMaterial_setColor(scene.material, QEL_MATERIAL_EMISSIVE, 0xFF0000); },
              "Enable(COLOR_MATERIAL); Color4f(1, 1, 1, 0.498039); Materialfv(AMBIENT, {0.2, 0.2, 0.2, 0}); "
              "Materialfv(DIFFUSE, {0.8, 0.8, 0.8, 0.498039}); Materialfv(EMISSION, {1, 0, 0, 0}); "
              "Materialfv(SPECULAR, {0, 0, 0, 0}); Materialf(SHININESS, 5)"},
             {[&] {
                  const Held<Material> equal(static_cast<Material*>(qelMaterial_duplicate(scene.material)));
                  qelAppearance_setMaterial(scene.square.appearance, equal);
              },
              ""},
             {[&] {  // one of other values, perhaps at the address of the last
                  PolygonMode* mode = scene.square.setPolygonMode();
                  qelPolygonMode_setShading(mode, int32_t(Shading::Flat));
                  qelPolygonMode_setCulling(mode, int32_t(Culling::Front));
                  qelPolygonMode_setTwoSidedLightingEnable(mode, true);
              },
              "Enable(CULL_FACE); CullFace(FRONT); FrontFace(CCW); ShadeModel(FLAT); "
              "LightModelf(LIGHT_MODEL_TWO_SIDE, 1); Hint(PERSPECTIVE_CORRECTION_HINT, FASTEST)"},
             {[&] { qelFog_setLinear(scene.fog, 2, 9); },
              "Enable(FOG); Fogfv(FOG_COLOR, {0, 0, 0, 1}); Fogf(FOG_MODE, LINEAR); Fogf(FOG_START, 2); "
              "Fogf(FOG_END, 9)"},
             {[&] { qelFog_setDensity(scene.fog, 3); }, ""},  // of a linear fog
             {[&] { qelAppearance_setFog(scene.square.appearance, nullptr); }, "Disable(FOG)"},
             {[&] {
                  qelCompositingMode_setAlphaThreshold(scene.compositing, 0.5f);
                  qelCompositingMode_setDepthOffset(scene.compositing, 2, 3);
                  qelCompositingMode_setDepthWriteEnable(scene.compositing, false);
                  qelCompositingMode_setColorWriteEnable(scene.compositing, false);
              },
              "Enable(DEPTH_TEST); DepthMask(0); Enable(POLYGON_OFFSET_FILL); PolygonOffset(2, 3); "
              "ColorMask(0, 0, 0, 1); BlendFunc(SRC_ALPHA, ONE_MINUS_SRC_ALPHA); Enable(BLEND); "
              "AlphaFunc(GEQUAL, 0.501961); Enable(ALPHA_TEST)"},
             {[&] { qelGLBackend_setMode(backend, kModeColor); },
              "Disable(DEPTH_TEST); DepthMask(0); Disable(POLYGON_OFFSET_FILL)"},
             {[&] {
                  scene.omni = Held<Light>(static_cast<Light*>(qelLight_duplicate(scene.omni)));
                  scene.placeLights(backend);
              },
              ""},
             {[&] {  // of both lights, which an ambient one does not notice
                  qelTransform_postTranslate(&scene.lightPlace, 4, 5, 6);
                  scene.placeLights(backend);
              },
              "MatrixMode(MODELVIEW); LoadMatrixf(at 4, 5, 6); Lightfv(LIGHT1, POSITION, {0, 0, 0, 1})"},
             {[&] { qelGLBackend_setLight(backend, 1, nullptr, nullptr); }, "Disable(LIGHT1)"},
             {[&] { qelGLBackend_setLight(backend, 0, nullptr, nullptr); },
              "Disable(LIGHT0); Disable(NORMALIZE); Disable(RESCALE_NORMAL)"},
         }) {
        change();
        EXPECT_EQ(drawBeyond(scene.square), sent);
    }
}

TEST_F(StateTest, AComponentChangedWhileAnotherAppearanceWasDrawnIsSentOnItsReturn) {
    Square first, second;
    PolygonMode* mode = first.setPolygonMode();
    draw(first);
    draw(second);
    qelPolygonMode_setWinding(mode, int32_t(Winding::Cw));
    draw(second);
    EXPECT_EQ(sent(first, "glFrontFace"), "FrontFace(CW)");
    EXPECT_EQ(sent(second, "glFrontFace"), "FrontFace(CCW)");
    qelAppearance_setPolygonMode(second.appearance, mode);
    EXPECT_EQ(sent(second, "glFrontFace"), "FrontFace(CW)");
    EXPECT_EQ(sent(first, "glFrontFace"), "") << "shared by both, it is sent once";
}

// --- Lights ---

TEST_F(StateTest, EveryLightModeIsPlacedAndColored) {
    const std::string placed = "MatrixMode(MODELVIEW); LoadMatrixf(at 11, 22, 33); ",
                      direction = "Lightfv(LIGHT2, SPOT_DIRECTION, {0, 0, -1}); ",
                      local = "Lightfv(LIGHT2, POSITION, {0, 0, 0, 1}); Enable(LIGHT2); ",
                      endless =
                          "Lightf(LIGHT2, CONSTANT_ATTENUATION, 1); Lightf(LIGHT2, LINEAR_ATTENUATION, 0); "
                          "Lightf(LIGHT2, QUADRATIC_ATTENUATION, 0); Lightf(LIGHT2, SPOT_CUTOFF, 180)",
                      fading =
                          "Lightf(LIGHT2, CONSTANT_ATTENUATION, 0.5); Lightf(LIGHT2, LINEAR_ATTENUATION, 0.25); "
                          "Lightf(LIGHT2, QUADRATIC_ATTENUATION, 2); ",
                      shining =
                          "Lightfv(LIGHT2, DIFFUSE, {2, 0.4, 0, 0}); Lightfv(LIGHT2, SPECULAR, {2, 0.4, 0, 0}); "
                          "Lightfv(LIGHT2, AMBIENT, {0, 0, 0, 0})";
    const Held<Light> light(qelLight_create());
    qelLight_setColor(light, 0xFF3300);
    qelLight_setIntensity(light, 2);
    qelLight_setAttenuation(light, 0.5f, 0.25f, 2);
    qelLight_setSpotAngle(light, 30);
    qelLight_setSpotExponent(light, 7);
    qelTransform view = identity, lightPlace = identity;
    qelTransform_postTranslate(&view, 10, 20, 30);
    qelTransform_postTranslate(&lightPlace, 1, 2, 3);
    qelGLBackend_setCamera(backend, &view, &identity, ProjectionType::Generic);
    Square square;
    draw(square);
    // The list goes through every mode in turn, so that each also starts from another one in the same slot.
    for (const auto& [mode, expected] :
         {std::pair{LightMode::Ambient,
                    "Enable(LIGHT2); Lightfv(LIGHT2, AMBIENT, {2, 0.4, 0, 0}); "
                    "Lightfv(LIGHT2, DIFFUSE, {0, 0, 0, 0}); Lightfv(LIGHT2, SPECULAR, {0, 0, 0, 0}); " +
                        endless + "; Enable(NORMALIZE)"},
          {LightMode::Directional,
           placed + "Lightfv(LIGHT2, POSITION, {0, 0, 1, 0}); Enable(LIGHT2); " + shining + "; " + endless},
          {LightMode::Omni,
           placed + local + "Lightf(LIGHT2, SPOT_EXPONENT, 0); Lightf(LIGHT2, SPOT_CUTOFF, 180); " + fading + shining},
          {LightMode::Spot, placed + direction + local +
                                "Lightf(LIGHT2, SPOT_EXPONENT, 7); Lightf(LIGHT2, SPOT_CUTOFF, 30); " + fading +
                                shining}}) {
        qelLight_setMode(light, int32_t(mode));
        qelGLBackend_setLight(backend, 2, light, &lightPlace);
        EXPECT_EQ(drawBeyond(square), expected);
    }
    qelGLBackend_setCamera(backend, &identity, &identity, ProjectionType::Generic);
    EXPECT_EQ(drawBeyond(square), "MatrixMode(MODELVIEW); LoadMatrixf(at 1, 2, 3); " + direction +
                                      "Lightfv(LIGHT2, POSITION, {0, 0, 0, 1})")
        << "a camera that moved has every light placed again";
}

// --- Material and alpha ---

TEST_F(StateTest, LightingNeedsAMaterialAndColorsThatATextureDoesNotReplace) {
    for (const auto& [hasMaterial, unit, format, blending, lit] :
         {std::tuple{false, 1, ImageFormat::Rgb, TextureBlending::Modulate, false},
          {true, 0, ImageFormat::Rgb, TextureBlending::Modulate, true},
          {true, 0, ImageFormat::Rgb, TextureBlending::Replace, false},
          {true, 0, ImageFormat::Alpha, TextureBlending::Replace, true},
          {true, 1, ImageFormat::Rgb, TextureBlending::Replace, true}}) {
        Square square;
        const Held<Image2D> image = makeImage(format, 8, 8);
        const Held<Texture2D> texture = makeTexture(image);
        qelTexture2D_setBlending(texture, int32_t(blending));
        square.setTexture(unit, texture);
        if (hasMaterial) square.setMaterial();
        EXPECT_EQ(sent(square, "GL_LIGHTING"), lit ? "Enable(LIGHTING)" : "Disable(LIGHTING)")
            << hasMaterial << ", unit " << unit << ", format " << int32_t(format);
    }
}

TEST_F(StateTest, AlphaFadesWithTheNodeWhereBlendingIsOn) {
    enum : uint32_t { kMaterial = 1, kTracking = 2, kColors = 4, kReplaced = 8 };
    const char *half = "Color4f(1, 1, 1, 0.498039)", *halfDiffuse = "Materialfv(DIFFUSE, {0.8, 0.8, 0.8, 0.498039})";
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    qelTexture2D_setBlending(texture, int32_t(TextureBlending::Replace));
    for (const auto& [what, blending, factor, parts, color, diffuse] : {
             // what is sent, if anything
             std::tuple{"opaque", Blending::Replace, 0.5f, uint32_t(kColors), "Color4f(1, 1, 1, 1)", ""},
             {"default colour", Blending::Alpha, 0.5f, 0, half, ""},
             {"truncated factor", Blending::Add, 0.99999f, 0, "Color4f(1, 1, 1, 0.996078)", ""},
             {"factor 0", Blending::Alpha, 0, 0, "Color4f(1, 1, 1, 0)", ""},
             {"material hides colours", Blending::AlphaAdd, 0.5f, kMaterial | kColors, "", halfDiffuse},
             {"colours", Blending::Alpha, 0.5f, kColors, half, ""},
             {"tracked", Blending::Alpha, 0.5f, kMaterial | kTracking | kColors, half, halfDiffuse},
             {"tracked default colour", Blending::Alpha, 0.5f, kMaterial | kTracking, half, halfDiffuse},
             {"replaced by a texture without alpha", Blending::Alpha, 0.5f, kMaterial | kReplaced,
              "Color4f(0.8, 0.8, 0.8, 0.498039)", halfDiffuse},
         }) {
        SCOPED_TRACE(what);
        Square square;
        square.setCompositing(blending);
        square.alphaFactor = factor;
        if (parts & kColors) square.setColors();
        if (parts & kMaterial) qelMaterial_setVertexColorTrackingEnable(square.setMaterial(), parts & kTracking);
        if (parts & kReplaced) square.setTexture(0, texture);
        qelGLBackend_bind(backend, kWidth, kHeight);
        const GlLines lines = draw(square);
        EXPECT_EQ(brief(only(lines, "glColor4f")), color);
        EXPECT_EQ(brief(only(lines, "GL_DIFFUSE")), diffuse);
        const GlDraw::Vectors& colors = glRecorder.draws.back().colors;
        const bool hasColors = parts & kColors && (parts & kTracking || !(parts & kMaterial));
        ASSERT_EQ(colors.size(), hasColors ? 4u : 0u);
        if (!hasColors) continue;
        EXPECT_EQ(colors[1][3], blending == Blending::Replace ? 128 : 64);
    }
}

TEST_F(StateTest, TheCurrentColorIsSentAgainAfterADrawFromColors) {
    for (const bool tracked : {false, true}) {
        Square plain, colored;
        colored.setColors();
        for (Square* square : {&plain, &colored})
            if (tracked) qelMaterial_setVertexColorTrackingEnable(square->setMaterial(), true);
        draw(plain);
        draw(colored);
        EXPECT_EQ(sent(plain, "glColor4f"), "Color4f(1, 1, 1, 1)") << tracked;
    }
}

// --- Clearing ---

TEST_F(StateTest, ClearingFollowsTheFlagsAndTheBackground) {
    const std::string area = "Viewport(0, 0, 64, 48); Scissor(0, 0, 64, 48); DepthRangef(0, 1); ",
                      open = "ColorMask(1, 1, 1, 1); ", depth = "DepthMask(1); ";
    const Held<Background> green(qelBackground_create()), noColor(qelBackground_create()),
        noDepth(qelBackground_create());
    qelBackground_setColor(green, 0x8000FF00);
    qelBackground_setColorClearEnable(noColor, false);
    qelBackground_setDepthClearEnable(noDepth, false);
    constexpr uint32_t kBoth = kClearColor | kClearDepth;
    for (const auto& [mode, flags, background, expected] :
         {std::tuple<int32_t, uint32_t, Background*, std::string>{kModeColorDepth, kClearDepth, nullptr,
                                                                  depth + "Clear(depth)"},
          {kModeColor, kClearDepth, nullptr, ""},
          {kModeColorDepth, kBoth, nullptr, depth + area + "ClearColor(0, 0, 0, 1); " + open + "Clear(color, depth)"},
          {kModeColorDepth, kClearColor, green, area + "ClearColor(0, 1, 0, 0.501961); " + open + "Clear(color)"},
          {kModeColorDepth, kBoth, noColor, depth + "Clear(depth)"},
          {kModeColorDepth, kBoth, noDepth, area + "ClearColor(0, 0, 0, 0); " + open + "Clear(color)"}}) {
        qelGLBackend_setMode(backend, mode);
        EXPECT_EQ(qelGLBackend_clear(backend, flags, background), QEL_STATUS_OK);
        EXPECT_EQ(brief(glRecorder.take()), expected);
    }
}

TEST_F(StateTest, MasksThatAClearOpenedAreClosedAgain) {
    Square closed, open;
    CompositingMode* mode = closed.setCompositing();
    qelCompositingMode_setDepthWriteEnable(mode, false);
    qelCompositingMode_setAlphaWriteEnable(mode, false);
    const auto sentAfterClear = [&](const Square& square, uint32_t flags) {
        draw(square);
        qelGLBackend_clear(backend, flags, nullptr);
        glRecorder.take();
        return drawBeyond(square);
    };
    for (const uint32_t flags : {kClearDepth, kClearColor}) {
        const std::string again = sentAfterClear(closed, flags);
        for (const char* call : {"DepthMask(0)", "ColorMask(1, 1, 1, 0)"})
            EXPECT_NE(again.find(call), std::string::npos) << call << " after " << flags;
    }
    EXPECT_EQ(sentAfterClear(open, kClearDepth | kClearColor), "") << "masks that were open anyway";
}

// --- Vertices ---

TEST_F(StateTest, ColorsBecomeFourBytesOnce) {
    Square square;
    const auto colors = makeArray<uint8_t>(3, {255, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    qelVertexBuffer_setColors(square.buffer, colors);
    CompositingMode* mode = square.setCompositing();
    CountingHeap heap;  // counts what the draws allocate
    draw(square);
    EXPECT_EQ(glRecorder.draws.back().colors,
              (GlDraw::Vectors{{255, 0, 1, 255}, {2, 3, 4, 255}, {5, 6, 7, 255}, {8, 9, 10, 255}}));
    draw(square);
    EXPECT_EQ(heap.calls(), 1);

    const int8_t changed[] = {9, 9, 9};
    qelVertexArray_set8(colors, 1, 1, changed);
    colors->modified = 0;  // seen by a mesh that has the array as normals
    draw(square);
    EXPECT_EQ(glRecorder.draws.back().colors[1], (std::vector<float>{9, 9, 9, 255})) << "refreshed in place";

    qelCompositingMode_setBlending(mode, int32_t(Blending::Alpha));
    for (const float factor : {0.5f, 0.25f, 1.0f, 0.5f}) {
        square.alphaFactor = factor;
        draw(square);
        EXPECT_EQ(glRecorder.draws.back().colors[0][3], float(int(255 * factor))) << factor;
    }
    qelFree(std::exchange(colors->cache, nullptr));  // before its heap goes
    heap.failAfter(0, FailMode::FromThenOn);
    EXPECT_EQ(tryDraw(square), QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(qelStatus_get(), QEL_STATUS_OUT_OF_MEMORY);
}

TEST_F(StateTest, IndicesBeyondAnyArrayInUseDrawNothing) {
    enum { kNone, kNormals, kColors, kTexCoords, kUnusedTexCoords };
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    const auto few = makeArray<int8_t>(3, std::vector<int8_t>(9, 5));  // for three vertices
    for (const auto& [what, isList, lastVertex, shortArray, fits] :
         {std::tuple{"strip fits", false, 3, kNone, true},
          {"strip reaches out", false, 4, kNone, false},
          {"list reaches out", true, 4, kNone, false},
          {"within short normals", true, 2, kNormals, true},
          {"short normals", true, 3, kNormals, false},
          {"short colours", false, 3, kColors, false},
          {"short coordinates", true, 3, kTexCoords, false},
          {"short coordinates that nothing uses", true, 3, kUnusedTexCoords, true}}) {
        Square square;
        Result result;
        int32_t length = 3;
        int32_t indices[] = {0, 1, lastVertex};
        square.strip = Held<TriangleStripArray>(
            isList ? qelTriangleStripArray_createExplicit(&length, 1, indices, 3, true, &result)
                   : qelTriangleStripArray_createImplicit(lastVertex - 2, &length, 1, true, &result));
        if (shortArray == kNormals) qelVertexBuffer_setNormals(square.buffer, few);
        if (shortArray == kColors) qelVertexBuffer_setColors(square.buffer, few);
        if (shortArray >= kTexCoords) qelVertexBuffer_setTexCoords(square.buffer, 0, few, 1, nullptr);
        if (shortArray == kTexCoords) qelAppearance_setTexture(square.appearance, 0, texture);
        glRecorder.draws.clear();
        EXPECT_EQ(tryDraw(square), fits ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_STATE) << what;
        EXPECT_EQ(glRecorder.draws.size(), fits ? 1u : 0u) << what;
    }
}
