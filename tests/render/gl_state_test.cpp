// What reaches OpenGL ES of each component of the state, and what is not sent again.
#include <functional>

#include "tests/render/backend_fixture.h"

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::IsSupersetOf;

using StateTest = BackendTest;

static const std::string kIdentity = "glLoadMatrixf({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1})";

TEST_F(StateTest, CreationSwitchesLightsAndNormalizationOff) {
    GLBackend* other = qelGLBackend_create(kModeColorDepth, 8, 8);
    EXPECT_THAT(glRecorder.take(), ElementsAre("glDisable(GL_LIGHT0)", "glDisable(GL_LIGHT1)", "glDisable(GL_LIGHT2)",
                                               "glDisable(GL_LIGHT3)", "glDisable(GL_LIGHT4)", "glDisable(GL_LIGHT5)",
                                               "glDisable(GL_LIGHT6)", "glDisable(GL_LIGHT7)",
                                               "glDisable(GL_NORMALIZE)", "glDisable(GL_RESCALE_NORMAL)"));
    qelGLBackend_destroy(other);
}

TEST_F(StateTest, BindingSendsTheDefaultStateAndTheFlippedViewport) {
    struct Case {
        const char* what;
        PixelRect viewport, scissor;
        std::string viewportCall, scissorCall;
    };
    for (const Case& c :
         {Case{"whole target", {0, 0, 64, 48}, {0, 0, 64, 48}, "glViewport(0, 0, 64, 48)", "glScissor(0, 0, 64, 48)"},
          Case{"rows count from the top",
               {1, 2, 30, 20},
               {3, 4, 10, 11},
               "glViewport(1, 26, 30, 20)",
               "glScissor(3, 33, 10, 11)"},
          Case{"reaching out",
               {-5, -6, 70, 60},
               {0, 0, 64, 48},
               "glViewport(-5, -6, 70, 60)",
               "glScissor(0, 0, 64, 48)"},
          Case{"empty clip", {0, 0, 9, 9}, {7, 8, 0, 5}, "glViewport(0, 39, 9, 9)", "glScissor(7, 35, 0, 5)"},
          Case{"negative clip", {0, 0, 9, 9}, {7, 8, 3, -2}, "glViewport(0, 39, 9, 9)", "glScissor(7, 42, 0, 0)"}}) {
        qelGLBackend_setViewport(backend, c.viewport, c.scissor);
        qelGLBackend_setDepthRange(backend, 0.25f, 0.75f);
        EXPECT_EQ(qelGLBackend_bind(backend, kWidth, kHeight), QEL_STATUS_OK);
        EXPECT_THAT(glRecorder.take(),
                    ElementsAre("glDepthFunc(GL_LEQUAL)", "glDisable(GL_DITHER)", "glEnable(GL_SCISSOR_TEST)",
                                "glLightModelfv(GL_LIGHT_MODEL_AMBIENT, {0, 0, 0, 0})", c.viewportCall, c.scissorCall,
                                "glDepthRangef(0.25, 0.75)"))
            << c.what;
    }
    EXPECT_EQ(qelGLBackend_bind(backend, 2049, 1), QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(qelGLBackend_bind(backend, 1, 2049), QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_THAT(glRecorder.take(), IsEmpty());
    EXPECT_EQ(qelGLBackend_bind(backend, 2048, 2048), QEL_STATUS_OK);
}

// --- Whole draws ---

TEST_F(StateTest, ABareFirstDrawSendsEveryComponentInOrder) {
    Square square;
    EXPECT_THAT(
        draw(square),
        ElementsAre("glMatrixMode(GL_PROJECTION)", kIdentity, "glDisable(GL_LIGHT0)", "glDisable(GL_LIGHT1)",
                    "glDisable(GL_LIGHT2)", "glDisable(GL_LIGHT3)", "glDisable(GL_LIGHT4)", "glDisable(GL_LIGHT5)",
                    "glDisable(GL_LIGHT6)", "glDisable(GL_LIGHT7)", "glViewport(0, 0, 64, 48)",
                    "glScissor(0, 0, 64, 48)", "glDepthRangef(0, 1)", "glDisable(GL_LIGHTING)",
                    "glDisable(GL_COLOR_MATERIAL)", "glColor4f(1, 1, 1, 1)", "glEnable(GL_CULL_FACE)",
                    "glCullFace(GL_BACK)", "glFrontFace(GL_CCW)", "glShadeModel(GL_SMOOTH)",
                    "glLightModelf(GL_LIGHT_MODEL_TWO_SIDE, 0)", "glHint(GL_PERSPECTIVE_CORRECTION_HINT, GL_FASTEST)",
                    "glDisable(GL_FOG)", "glEnable(GL_DEPTH_TEST)", "glDepthMask(1)",
                    "glDisable(GL_POLYGON_OFFSET_FILL)", "glColorMask(1, 1, 1, 1)", "glBlendFunc(GL_ONE, GL_ZERO)",
                    "glDisable(GL_BLEND)", "glAlphaFunc(GL_ALWAYS, 0)", "glDisable(GL_ALPHA_TEST)",
                    "glActiveTexture(GL_TEXTURE0)", "glClientActiveTexture(GL_TEXTURE0)", "glDisable(GL_TEXTURE_2D)",
                    "glDisableClientState(GL_TEXTURE_COORD_ARRAY)", "glActiveTexture(GL_TEXTURE1)",
                    "glClientActiveTexture(GL_TEXTURE1)", "glDisable(GL_TEXTURE_2D)",
                    "glDisableClientState(GL_TEXTURE_COORD_ARRAY)", "glMatrixMode(GL_MODELVIEW)", kIdentity,
                    "glEnableClientState(GL_VERTEX_ARRAY)", "glVertexPointer(3, GL_SHORT, 0)",
                    "glDisableClientState(GL_NORMAL_ARRAY)", "glDisableClientState(GL_COLOR_ARRAY)",
                    "glDrawArrays(GL_TRIANGLE_STRIP, 0, 4)"));
}

// A square with one of everything, under an ambient and an omni light.
struct FullScene {
    Square square;
    Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    Held<Texture2D> texture = makeTexture(image);
    Held<Image2D> overlayImage = makePaletteImage(ImageFormat::Rgba, 8, 8);
    Held<Texture2D> overlay = makeTexture(overlayImage);
    Held<Light> ambient{qelLight_create()}, omni{qelLight_create()};
    Material* material = square.setMaterial();
    PolygonMode* polygonMode = square.setPolygonMode();
    CompositingMode* compositing = square.setCompositing(Blending::Alpha);
    Fog* fog = square.setFog();
    qelTransform lightPlace;

    FullScene() {
        square.setNormals();
        square.setColors();
        square.setTexture(0, texture);
        square.setTexture(1, overlay);
        square.alphaFactor = 0.5f;
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

TEST_F(StateTest, ASecondEqualDrawSendsOnlyWhatIsSentEveryTime) {
    FullScene scene;
    scene.placeLights(backend);
    draw(scene.square);
    scene.placeLights(backend);
    const GlLines second = draw(scene.square);
    EXPECT_THAT(
        second,
        ElementsAre("glMatrixMode(GL_PROJECTION)", kIdentity, "glViewport(0, 0, 64, 48)", "glScissor(0, 0, 64, 48)",
                    "glDepthRangef(0, 1)", "glEnable(GL_LIGHTING)", "glClientActiveTexture(GL_TEXTURE0)",
                    "glActiveTexture(GL_TEXTURE0)", "glEnableClientState(GL_TEXTURE_COORD_ARRAY)",
                    "glEnable(GL_TEXTURE_2D)", "glBindTexture(GL_TEXTURE_2D, 1)", "glMatrixMode(GL_TEXTURE)",
                    "glLoadIdentity()", "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE)",
                    "glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, {0, 0, 0, 0})",
                    "glTexCoordPointer(2, GL_SHORT, 0)", kIdentity, "glClientActiveTexture(GL_TEXTURE1)",
                    "glActiveTexture(GL_TEXTURE1)", "glEnableClientState(GL_TEXTURE_COORD_ARRAY)",
                    "glEnable(GL_TEXTURE_2D)", "glBindTexture(GL_TEXTURE_2D, 2)", "glMatrixMode(GL_TEXTURE)",
                    "glLoadIdentity()", "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE)",
                    "glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, {0, 0, 0, 0})",
                    "glTexCoordPointer(2, GL_SHORT, 0)", kIdentity, "glMatrixMode(GL_MODELVIEW)", kIdentity,
                    "glEnableClientState(GL_VERTEX_ARRAY)", "glVertexPointer(3, GL_SHORT, 0)",
                    "glEnableClientState(GL_NORMAL_ARRAY)", "glNormalPointer(GL_BYTE, 0)",
                    "glEnableClientState(GL_COLOR_ARRAY)", "glColorPointer(4, GL_UNSIGNED_BYTE, 0)",
                    "glDrawArrays(GL_TRIANGLE_STRIP, 0, 4)"));
    // Another context user may have been at work between two bindings.
    qelGLBackend_bind(backend, kWidth, kHeight);
    glRecorder.take();
    EXPECT_THAT(linesBeyond(second, draw(scene.square)),
                IsSupersetOf({"glEnable(GL_LIGHT0)", "glEnable(GL_LIGHT1)", "glDisable(GL_LIGHT2)",
                              "glDisable(GL_LIGHT7)", "glEnable(GL_NORMALIZE)", "glEnable(GL_COLOR_MATERIAL)",
                              "glShadeModel(GL_SMOOTH)", "glEnable(GL_FOG)", "glDepthMask(1)", "glEnable(GL_BLEND)"}));
}

static const GlLines kMaterialCalls = {"glEnable(GL_COLOR_MATERIAL)",
                                       "glColor4f(1, 1, 1, 0.498039)",
                                       "glMaterialfv(GL_FRONT_AND_BACK, GL_AMBIENT, {0.2, 0.2, 0.2, 0})",
                                       "glMaterialfv(GL_FRONT_AND_BACK, GL_DIFFUSE, {0.8, 0.8, 0.8, 0.498039})",
                                       "glMaterialfv(GL_FRONT_AND_BACK, GL_EMISSION, {0, 0, 0, 0})",
                                       "glMaterialfv(GL_FRONT_AND_BACK, GL_SPECULAR, {0, 0, 0, 0})",
                                       "glMaterialf(GL_FRONT_AND_BACK, GL_SHININESS, 5)"};

static GlLines materialCallsWith(size_t index, const std::string& line) {
    GlLines lines = kMaterialCalls;
    lines[index] = line;
    return lines;
}

TEST_F(StateTest, EachKindOfChangeSendsThatKindAndNothingElse) {
    FullScene scene;
    qelMaterial_setShininess(scene.material, 5);
    scene.placeLights(backend);
    draw(scene.square);

    struct Case {
        const char* what;
        std::function<void()> change;
        GlLines lines;
    };
    const auto polygonCalls = [](const char* shading, const char* hint) {
        return GlLines{"glEnable(GL_CULL_FACE)",
                       "glCullFace(GL_BACK)",
                       "glFrontFace(GL_CCW)",
                       std::string("glShadeModel(") + shading + ")",
                       "glLightModelf(GL_LIGHT_MODEL_TWO_SIDE, 0)",
                       std::string("glHint(GL_PERSPECTIVE_CORRECTION_HINT, ") + hint + ")"};
    };
    qelTransform moved = identity;
    qelTransform_postTranslate(&moved, 1, 2, 3);
    for (const Case& c : {
             Case{"nothing", [] {}, {}},
             Case{"setters that change no value",
                  [&] {
                      qelFog_setColor(scene.fog, 0);
                      qelCompositingMode_setDepthTestEnable(scene.compositing, true);
                      qelMaterial_setShininess(scene.material, 5);
                  },
                  {}},
             Case{"emissive colour", [&] { qelMaterial_setColor(scene.material, QEL_MATERIAL_EMISSIVE, 0xFF0000); },
                  materialCallsWith(4, "glMaterialfv(GL_FRONT_AND_BACK, GL_EMISSION, {1, 0, 0, 0})")},
             Case{"default colour, that of vertices without colours",
                  [&] {
                      qelMaterial_setColor(scene.material, QEL_MATERIAL_EMISSIVE, 0);
                      qelVertexBuffer_setDefaultColor(scene.square.buffer, 0xFF00FF00);
                  },
                  materialCallsWith(1, "glColor4f(0, 1, 0, 0.498039)")},
             Case{"material replaced by one of equal values",
                  [&] {
                      const Held<Material> equal(static_cast<Material*>(qelMaterial_duplicate(scene.material)));
                      qelAppearance_setMaterial(scene.square.appearance, equal);
                      scene.material = equal;
                  },
                  {}},
             Case{"shading", [&] { qelPolygonMode_setShading(scene.polygonMode, int32_t(Shading::Flat)); },
                  polygonCalls("GL_FLAT", "GL_FASTEST")},
             Case{"polygon mode replaced by one of other values, perhaps at its address",
                  [&] { scene.polygonMode = scene.square.setPolygonMode(); }, polygonCalls("GL_SMOOTH", "GL_FASTEST")},
             Case{"perspective correction",
                  [&] { qelPolygonMode_setPerspectiveCorrectionEnable(scene.polygonMode, true); },
                  polygonCalls("GL_SMOOTH", "GL_NICEST")},
             Case{"a parallel camera has no perspective to correct",
                  [&] { qelGLBackend_setCamera(backend, &identity, &identity, ProjectionType::Parallel); },
                  polygonCalls("GL_SMOOTH", "GL_FASTEST")},
             Case{"fog distance",
                  [&] { qelFog_setLinear(scene.fog, 2, 9); },
                  {"glEnable(GL_FOG)", "glFogfv(GL_FOG_COLOR, {0, 0, 0, 1})", "glFogf(GL_FOG_MODE, GL_LINEAR)",
                   "glFogf(GL_FOG_START, 2)", "glFogf(GL_FOG_END, 9)"}},
             Case{"density of a linear fog", [&] { qelFog_setDensity(scene.fog, 3); }, {}},
             Case{"fog mode",
                  [&] {
                      qelFog_setMode(scene.fog, int32_t(FogMode::Exponential));
                      qelFog_setColor(scene.fog, 0xFF00);
                  },
                  {"glEnable(GL_FOG)", "glFogfv(GL_FOG_COLOR, {0, 1, 0, 1})", "glFogf(GL_FOG_MODE, GL_EXP)",
                   "glFogf(GL_FOG_DENSITY, 3)"}},
             Case{"no fog", [&] { qelAppearance_setFog(scene.square.appearance, nullptr); }, {"glDisable(GL_FOG)"}},
             Case{"alpha threshold",
                  [&] { qelCompositingMode_setAlphaThreshold(scene.compositing, 0.5f); },
                  {"glEnable(GL_DEPTH_TEST)", "glDepthMask(1)", "glDisable(GL_POLYGON_OFFSET_FILL)",
                   "glColorMask(1, 1, 1, 1)", "glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA)", "glEnable(GL_BLEND)",
                   "glAlphaFunc(GL_GEQUAL, 0.501961)", "glEnable(GL_ALPHA_TEST)"}},
             Case{"depth buffer gone",
                  [&] { qelGLBackend_setMode(backend, kModeColor); },
                  {"glDisable(GL_DEPTH_TEST)", "glDepthMask(0)", "glDisable(GL_POLYGON_OFFSET_FILL)"}},
             Case{"the same mode again", [&] { qelGLBackend_setMode(backend, kModeColor); }, {}},
             Case{"light intensity",
                  [&] {
                      qelLight_setIntensity(scene.omni, 0.5f);
                      scene.placeLights(backend);
                  },
                  {"glEnable(GL_LIGHT1)", "glLightf(GL_LIGHT1, GL_SPOT_EXPONENT, 0)",
                   "glLightf(GL_LIGHT1, GL_SPOT_CUTOFF, 180)", "glLightf(GL_LIGHT1, GL_CONSTANT_ATTENUATION, 1)",
                   "glLightf(GL_LIGHT1, GL_LINEAR_ATTENUATION, 0)", "glLightf(GL_LIGHT1, GL_QUADRATIC_ATTENUATION, 0)",
                   "glLightfv(GL_LIGHT1, GL_DIFFUSE, {0.5, 0.5, 0.5, 0})",
                   "glLightfv(GL_LIGHT1, GL_SPECULAR, {0.5, 0.5, 0.5, 0})",
                   "glLightfv(GL_LIGHT1, GL_AMBIENT, {0, 0, 0, 0})"}},
             Case{"light replaced by one of equal values",
                  [&] {
                      scene.omni = Held<Light>(static_cast<Light*>(qelLight_duplicate(scene.omni)));
                      scene.placeLights(backend);
                  },
                  {}},
             Case{"both lights moved, which an ambient light does not notice",
                  [&] {
                      qelTransform_postTranslate(&scene.lightPlace, 4, 5, 6);
                      scene.placeLights(backend);
                  },
                  {"glMatrixMode(GL_MODELVIEW)", "glLoadMatrixf({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 4, 5, 6, 1})",
                   "glLightfv(GL_LIGHT1, GL_POSITION, {0, 0, 0, 1})"}},
             Case{"a light less",
                  [&] { qelGLBackend_setLight(backend, 1, nullptr, nullptr); },
                  {"glDisable(GL_LIGHT1)"}},
             Case{"no light",
                  [&] { qelGLBackend_setLight(backend, 0, nullptr, nullptr); },
                  {"glDisable(GL_LIGHT0)", "glDisable(GL_NORMALIZE)", "glDisable(GL_RESCALE_NORMAL)"}},
             Case{"texture wrap",
                  [&] { qelTexture2D_setWrapping(scene.texture, 240, 241); },
                  {"glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST)",
                   "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST)",
                   "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE)",
                   "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT)"}},
         }) {
        c.change();
        EXPECT_THAT(drawBeyond(scene.square), ElementsAreArray(c.lines)) << c.what;
    }
}

TEST_F(StateTest, ChangesThatAreSentEveryTimeNeedNothingMore) {
    FullScene scene;
    scene.placeLights(backend);
    const GlLines before = draw(scene.square);
    qelTexture2D_setBlending(scene.texture, int32_t(TextureBlending::Blend));
    qelTexture2D_setBlendColor(scene.texture, 0xFF0000);
    qelTransformable_setTranslation(scene.texture.get(), 1, 0, 0);
    qelTransform_postTranslate(&scene.square.model, 7, 0, 0);
    qelTransform projection = identity;
    qelTransform_postScale(&projection, 2, 1, 1);
    qelGLBackend_setCamera(backend, &identity, &projection, ProjectionType::Generic);
    qelGLBackend_setDepthRange(backend, 0, 0.5f);
    EXPECT_THAT(linesBeyond({}, draw(scene.square)),
                IsSupersetOf({"glLoadMatrixf({2, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1})",
                              "glDepthRangef(0, 0.5)", "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_BLEND)",
                              "glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, {1, 0, 0, 0})",
                              "glLoadMatrixf({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 0, 1})",
                              "glLoadMatrixf({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 7, 0, 0, 1})"}));
}

TEST_F(StateTest, AComponentChangedWhileAnotherAppearanceWasDrawnIsSentOnItsReturn) {
    Square first, second;
    PolygonMode* mode = first.setPolygonMode();
    draw(first);
    draw(second);
    qelPolygonMode_setWinding(mode, int32_t(Winding::Cw));
    draw(second);
    EXPECT_THAT(only(draw(first), "glFrontFace"), ElementsAre("glFrontFace(GL_CW)"));
    EXPECT_THAT(only(draw(second), "glFrontFace"), ElementsAre("glFrontFace(GL_CCW)"));
    // Shared by both now, it is sent once.
    qelAppearance_setPolygonMode(second.appearance, mode);
    EXPECT_THAT(only(draw(second), "glFrontFace"), ElementsAre("glFrontFace(GL_CW)"));
    EXPECT_THAT(only(draw(first), "glFrontFace"), IsEmpty());
    EXPECT_EQ(mode->stateChanged, 0);
}

// --- Lights ---

TEST_F(StateTest, EveryLightModeIsPlacedAndColored) {
    struct Case {
        LightMode mode;
        GlLines lines;
    };
    const std::string place = "glLoadMatrixf({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 11, 22, 33, 1})";
    const GlLines noCone = {
        "glLightf(GL_LIGHT2, GL_CONSTANT_ATTENUATION, 1)", "glLightf(GL_LIGHT2, GL_LINEAR_ATTENUATION, 0)",
        "glLightf(GL_LIGHT2, GL_QUADRATIC_ATTENUATION, 0)", "glLightf(GL_LIGHT2, GL_SPOT_CUTOFF, 180)"};
    const auto joined = [](GlLines a, const GlLines& b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    };
    const auto local = [&](const char* exponent, const char* cutoff) {
        return GlLines{"glLightfv(GL_LIGHT2, GL_POSITION, {0, 0, 0, 1})",
                       "glEnable(GL_LIGHT2)",
                       std::string("glLightf(GL_LIGHT2, GL_SPOT_EXPONENT, ") + exponent + ")",
                       std::string("glLightf(GL_LIGHT2, GL_SPOT_CUTOFF, ") + cutoff + ")",
                       "glLightf(GL_LIGHT2, GL_CONSTANT_ATTENUATION, 0.5)",
                       "glLightf(GL_LIGHT2, GL_LINEAR_ATTENUATION, 0.25)",
                       "glLightf(GL_LIGHT2, GL_QUADRATIC_ATTENUATION, 2)",
                       "glLightfv(GL_LIGHT2, GL_DIFFUSE, {2, 0.4, 0, 0})",
                       "glLightfv(GL_LIGHT2, GL_SPECULAR, {2, 0.4, 0, 0})",
                       "glLightfv(GL_LIGHT2, GL_AMBIENT, {0, 0, 0, 0})"};
    };
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
    for (const Case& c :
         {Case{LightMode::Ambient, joined({"glEnable(GL_LIGHT2)", "glLightfv(GL_LIGHT2, GL_AMBIENT, {2, 0.4, 0, 0})",
                                           "glLightfv(GL_LIGHT2, GL_DIFFUSE, {0, 0, 0, 0})",
                                           "glLightfv(GL_LIGHT2, GL_SPECULAR, {0, 0, 0, 0})"},
                                          joined(noCone, {"glEnable(GL_NORMALIZE)"}))},
          Case{LightMode::Directional,
               joined({"glMatrixMode(GL_MODELVIEW)", place, "glLightfv(GL_LIGHT2, GL_POSITION, {0, 0, 1, 0})",
                       "glEnable(GL_LIGHT2)", "glLightfv(GL_LIGHT2, GL_DIFFUSE, {2, 0.4, 0, 0})",
                       "glLightfv(GL_LIGHT2, GL_SPECULAR, {2, 0.4, 0, 0})",
                       "glLightfv(GL_LIGHT2, GL_AMBIENT, {0, 0, 0, 0})"},
                      noCone)},
          Case{LightMode::Omni, joined({"glMatrixMode(GL_MODELVIEW)", place}, local("0", "180"))},
          Case{LightMode::Spot,
               joined({"glMatrixMode(GL_MODELVIEW)", place, "glLightfv(GL_LIGHT2, GL_SPOT_DIRECTION, {0, 0, -1})"},
                      local("7", "30"))}}) {
        qelLight_setMode(light, int32_t(c.mode));
        qelGLBackend_setLight(backend, 2, light, &lightPlace);
        EXPECT_THAT(drawBeyond(square), ElementsAreArray(c.lines)) << "mode " << int32_t(c.mode);
    }
    qelGLBackend_setCamera(backend, &identity, &identity, ProjectionType::Generic);
    EXPECT_THAT(drawBeyond(square), ElementsAre("glMatrixMode(GL_MODELVIEW)",
                                                "glLoadMatrixf({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1})",
                                                "glLightfv(GL_LIGHT2, GL_SPOT_DIRECTION, {0, 0, -1})",
                                                "glLightfv(GL_LIGHT2, GL_POSITION, {0, 0, 0, 1})"))
        << "a camera that moved has every light placed again";
}

// --- Material and alpha ---

TEST_F(StateTest, LightingNeedsAMaterialAndColorsThatATextureDoesNotReplace) {
    struct Case {
        const char* what;
        bool material;
        int32_t unit;
        ImageFormat format;
        TextureBlending blending;
        bool lit;
    };
    for (const Case& c : {
             Case{"no material", false, 1, ImageFormat::Rgb, TextureBlending::Modulate, false},
             Case{"material", true, 1, ImageFormat::Rgb, TextureBlending::Modulate, true},
             Case{"modulating texture", true, 0, ImageFormat::Rgb, TextureBlending::Modulate, true},
             Case{"replacing texture", true, 0, ImageFormat::Rgb, TextureBlending::Replace, false},
             Case{"replacing alpha alone", true, 0, ImageFormat::Alpha, TextureBlending::Replace, true},
             Case{"replacing on the second unit", true, 1, ImageFormat::Rgb, TextureBlending::Replace, true},
         }) {
        Square square;
        const Held<Image2D> image = makeImage(c.format, 8, 8);
        const Held<Texture2D> texture = makeTexture(image);
        qelTexture2D_setBlending(texture, int32_t(c.blending));
        square.setTexture(c.unit, texture);
        if (c.material) square.setMaterial();
        const std::string call = c.lit ? "glEnable(GL_LIGHTING)" : "glDisable(GL_LIGHTING)";
        EXPECT_THAT(only(draw(square), "GL_LIGHTING"), ElementsAre(call)) << c.what;
    }
}

TEST_F(StateTest, AlphaFadesWithTheNodeWhereBlendingIsOn) {
    struct Case {
        const char* what;
        Blending blending;
        float factor;
        bool material, tracking, colors, replacingTexture;
        std::string color, diffuse;       // the alpha sent, or nothing
        std::vector<float> vertexAlphas;  // as drawn
    };
    const auto color = [](const char* alpha) { return std::string("glColor4f(1, 1, 1, ") + alpha + ")"; };
    const auto diffuse = [](const char* alpha) {
        return std::string("glMaterialfv(GL_FRONT_AND_BACK, GL_DIFFUSE, {0.8, 0.8, 0.8, ") + alpha + "})";
    };
    const std::vector<float> full = {255, 128, 64, 0}, halved = {127, 64, 32, 0};
    for (const Case& c : {
             Case{"opaque", Blending::Replace, 0.5f, false, false, false, false, color("1"), "", {}},
             Case{"default colour", Blending::Alpha, 0.5f, false, false, false, false, color("0.498039"), "", {}},
             Case{"factor 1", Blending::Alpha, 1, false, false, false, false, color("1"), "", {}},
             Case{"factor 0", Blending::Alpha, 0, false, false, false, false, color("0"), "", {}},
             Case{"truncated factor", Blending::Add, 0.99999f, false, false, false, false, color("0.996078"), "", {}},
             Case{"material", Blending::AlphaAdd, 0.5f, true, false, false, false, "", diffuse("0.498039"), {}},
             Case{"material hides colours",
                  Blending::Alpha,
                  0.5f,
                  true,
                  false,
                  true,
                  false,
                  "",
                  diffuse("0.498039"),
                  {}},
             Case{"colours", Blending::Alpha, 0.5f, false, false, true, false, color("0.498039"), "", halved},
             Case{"opaque colours", Blending::Replace, 0.5f, false, false, true, false, color("1"), "", full},
             Case{"tracked", Blending::Alpha, 0.5f, true, true, true, false, color("0.498039"), diffuse("0.498039"),
                  halved},
             Case{"tracked default colour",
                  Blending::Alpha,
                  0.5f,
                  true,
                  true,
                  false,
                  false,
                  color("0.498039"),
                  diffuse("0.498039"),
                  {}},
             Case{"replaced by a texture without alpha",
                  Blending::Alpha,
                  0.5f,
                  true,
                  false,
                  false,
                  true,
                  "glColor4f(0.8, 0.8, 0.8, 0.498039)",
                  diffuse("0.498039"),
                  {}},
         }) {
        Square square;
        square.setCompositing(c.blending);
        square.alphaFactor = c.factor;
        if (c.colors) square.setColors();
        if (c.material) qelMaterial_setVertexColorTrackingEnable(square.setMaterial(), c.tracking);
        Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
        const Held<Texture2D> texture = makeTexture(image);
        qelTexture2D_setBlending(texture, int32_t(TextureBlending::Replace));
        if (c.replacingTexture) square.setTexture(0, texture);
        qelGLBackend_bind(backend, kWidth, kHeight);
        const GlLines lines = draw(square);
        EXPECT_EQ(only(lines, "glColor4f"), c.color.empty() ? GlLines{} : GlLines{c.color}) << c.what;
        EXPECT_EQ(only(lines, "GL_DIFFUSE"), c.diffuse.empty() ? GlLines{} : GlLines{c.diffuse}) << c.what;
        std::vector<float> alphas;
        for (const auto& vertex : glRecorder.draws.back().colors) alphas.push_back(vertex.at(3));
        EXPECT_EQ(alphas, c.vertexAlphas) << c.what;
    }
}

TEST_F(StateTest, TheCurrentColorIsSentAgainAfterADrawFromColors) {
    for (const bool tracked : {false, true}) {
        Square plain, colored;
        colored.setColors();
        if (tracked)
            for (Square* square : {&plain, &colored})
                qelMaterial_setVertexColorTrackingEnable(square->setMaterial(), true);
        draw(plain);
        draw(colored);
        EXPECT_THAT(only(draw(plain), "glColor4f"), ElementsAre("glColor4f(1, 1, 1, 1)")) << tracked;
    }
}

// --- Compositing and polygon mode ---

TEST_F(StateTest, EveryBlendingHasItsFactors) {
    struct Case {
        Blending blending;
        std::string factors;
    };
    Square square;
    CompositingMode* mode = square.setCompositing();
    for (const Case& c :
         {Case{Blending::Alpha, "GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA"},
          Case{Blending::AlphaAdd, "GL_SRC_ALPHA, GL_ONE"}, Case{Blending::Modulate, "GL_DST_COLOR, GL_ZERO"},
          Case{Blending::ModulateX2, "GL_DST_COLOR, GL_SRC_COLOR"}, Case{Blending::Replace, "GL_ONE, GL_ZERO"},
          Case{Blending::Add, "GL_ONE, GL_ONE"}, Case{Blending::AddWeighted, "GL_SRC_ALPHA, GL_ONE"}}) {
        qelCompositingMode_setBlending(mode, int32_t(c.blending));
        const std::string enabling = c.blending == Blending::Replace ? "glDisable(GL_BLEND)" : "glEnable(GL_BLEND)";
        EXPECT_THAT(only(draw(square), "Blend"), ElementsAre("glBlendFunc(" + c.factors + ")")) << c.factors;
        qelGLBackend_bind(backend, kWidth, kHeight);
        EXPECT_THAT(only(draw(square), "GL_BLEND"), ElementsAre(enabling)) << c.factors;
    }
}

TEST_F(StateTest, CompositingReachesDepthAndMasks) {
    struct Case {
        const char* what;
        int32_t mode;
        std::function<void(CompositingMode*)> set;
        GlLines lines;
    };
    const auto offset = [](CompositingMode* mode) { qelCompositingMode_setDepthOffset(mode, 2, 3); };
    for (const Case& c : {
             Case{"offset",
                  kModeColorDepth,
                  offset,
                  {"glEnable(GL_DEPTH_TEST)", "glDepthMask(1)", "glEnable(GL_POLYGON_OFFSET_FILL)",
                   "glPolygonOffset(2, 3)", "glColorMask(1, 1, 1, 1)"}},
             Case{"units without a factor",
                  kModeColorDepth,
                  [](CompositingMode* mode) { qelCompositingMode_setDepthOffset(mode, 0, 3); },
                  {"glEnable(GL_DEPTH_TEST)", "glDepthMask(1)", "glDisable(GL_POLYGON_OFFSET_FILL)",
                   "glColorMask(1, 1, 1, 1)"}},
             Case{"no depth buffer",
                  kModeColor,
                  offset,
                  {"glDisable(GL_DEPTH_TEST)", "glDepthMask(0)", "glDisable(GL_POLYGON_OFFSET_FILL)",
                   "glColorMask(1, 1, 1, 1)"}},
             Case{"masks",
                  kModeColorDepth,
                  [](CompositingMode* mode) {
                      qelCompositingMode_setDepthTestEnable(mode, false);
                      qelCompositingMode_setDepthWriteEnable(mode, false);
                      qelCompositingMode_setColorWriteEnable(mode, false);
                  },
                  {"glDisable(GL_DEPTH_TEST)", "glDepthMask(0)", "glDisable(GL_POLYGON_OFFSET_FILL)",
                   "glColorMask(0, 0, 0, 1)"}},
             Case{"alpha mask",
                  kModeColorDepth,
                  [](CompositingMode* mode) { qelCompositingMode_setAlphaWriteEnable(mode, false); },
                  {"glEnable(GL_DEPTH_TEST)", "glDepthMask(1)", "glDisable(GL_POLYGON_OFFSET_FILL)",
                   "glColorMask(1, 1, 1, 0)"}},
         }) {
        Square square;
        c.set(square.setCompositing());
        qelGLBackend_setMode(backend, c.mode);
        qelGLBackend_bind(backend, kWidth, kHeight);
        glRecorder.take();
        GlLines lines = draw(square);
        const auto last =
            std::find_if(lines.begin(), lines.end(), [](const auto& l) { return l.starts_with("glColorMask"); });
        const auto first =
            std::find_if(lines.begin(), last, [](const auto& l) { return l.ends_with("GL_DEPTH_TEST)"); });
        ASSERT_NE(last, lines.end()) << c.what;
        EXPECT_EQ(GlLines(first, last + 1), c.lines) << c.what;
    }
}

TEST_F(StateTest, PolygonModesReachCullingAndSides) {
    Square square;
    PolygonMode* mode = square.setPolygonMode();
    qelPolygonMode_setCulling(mode, int32_t(Culling::Front));
    qelPolygonMode_setTwoSidedLightingEnable(mode, true);
    const GlLines front = draw(square);
    EXPECT_THAT(only(front, "Cull"), ElementsAre("glCullFace(GL_FRONT)"));
    EXPECT_THAT(only(front, "GL_CULL"), ElementsAre("glEnable(GL_CULL_FACE)"));
    EXPECT_THAT(only(front, "TWO_SIDE"), ElementsAre("glLightModelf(GL_LIGHT_MODEL_TWO_SIDE, 1)"));
    qelPolygonMode_setCulling(mode, int32_t(Culling::None));
    EXPECT_THAT(only(draw(square), "CULL"), ElementsAre("glDisable(GL_CULL_FACE)"));
}

// --- Clearing ---

TEST_F(StateTest, ClearingFollowsTheFlagsAndTheBackground) {
    struct Case {
        const char* what;
        int32_t mode;
        uint32_t flags;
        std::function<void(Background*)> set;  // empty: no background
        GlLines lines;
    };
    const auto colorClear = [](const char* color, const char* mask) {
        return GlLines{"glViewport(0, 0, 64, 48)", "glScissor(0, 0, 64, 48)",
                       "glDepthRangef(0, 1)",      std::string("glClearColor(") + color + ")",
                       "glColorMask(1, 1, 1, 1)",  std::string("glClear(") + mask + ")"};
    };
    GlLines both = colorClear("0, 0, 0, 1", "color, depth");
    both.insert(both.begin(), "glDepthMask(1)");
    const auto setGreen = [](Background* background) { qelBackground_setColor(background, 0x8000FF00); };
    for (const Case& c : {
             Case{"depth", kModeColorDepth, kClearDepth, {}, {"glDepthMask(1)", "glClear(depth)"}},
             Case{"no depth buffer", kModeColor, kClearDepth, {}, {}},
             Case{"colour is opaque black", kModeColor, kClearColor, {}, colorClear("0, 0, 0, 1", "color")},
             Case{"both", kModeColorDepth, kClearColor | kClearDepth, {}, both},
             Case{"background colour", kModeColorDepth, kClearColor, setGreen,
                  colorClear("0, 1, 0, 0.501961", "color")},
             Case{"background keeps colour",
                  kModeColorDepth,
                  kClearColor | kClearDepth,
                  [](Background* background) { qelBackground_setColorClearEnable(background, false); },
                  {"glDepthMask(1)", "glClear(depth)"}},
             Case{"background keeps depth", kModeColorDepth, kClearColor | kClearDepth,
                  [](Background* background) { qelBackground_setDepthClearEnable(background, false); },
                  colorClear("0, 0, 0, 0", "color")},
         }) {
        const Held<Background> background(qelBackground_create());
        if (c.set) c.set(background);
        qelGLBackend_setMode(backend, c.mode);
        EXPECT_EQ(qelGLBackend_clear(backend, c.flags, c.set ? background.get() : nullptr), QEL_STATUS_OK);
        EXPECT_EQ(glRecorder.take(), c.lines) << c.what;
    }
}

TEST_F(StateTest, MasksThatAClearOpenedAreClosedAgain) {
    Square square;
    CompositingMode* mode = square.setCompositing();
    qelCompositingMode_setDepthWriteEnable(mode, false);
    qelCompositingMode_setAlphaWriteEnable(mode, false);
    draw(square);
    for (const uint32_t flags : {kClearDepth, kClearColor}) {
        qelGLBackend_clear(backend, flags, nullptr);
        glRecorder.take();
        EXPECT_THAT(drawBeyond(square), IsSupersetOf({"glDepthMask(0)", "glColorMask(1, 1, 1, 0)"})) << flags;
    }
    Square open;
    draw(open);
    qelGLBackend_clear(backend, kClearDepth | kClearColor, nullptr);
    glRecorder.take();
    EXPECT_THAT(drawBeyond(open), IsEmpty()) << "masks that were open anyway";
}
