// Background images, image targets and sprites.
#include <cmath>

#include "tests/render/backend_fixture.h"
#include "tests/support/counting_heap.h"

// A rectangle drawn as a strip of four corners: what it shows from its left top to its right bottom.
struct Shown {
    float left, top, right, bottom;              // target pixels, origin at the top left
    float texLeft, texTop, texRight, texBottom;  // texels
};

class ImageDrawTest : public BackendTest {
protected:
    // The last draw, over a texture of these sides.
    static Shown lastShown(float textureWidth, float textureHeight) {
        const GlDraw& draw = glRecorder.draws.back();
        const auto x = [&](size_t i) { return (draw.corners.at(i)[0] + 1) * kWidth / 2; };
        const auto y = [&](size_t i) { return (1 - draw.corners.at(i)[1]) * kHeight / 2; };
        const auto s = [&](size_t i) { return draw.lookups[0].at(i)[0] * textureWidth; };
        const auto t = [&](size_t i) { return draw.lookups[0].at(i)[1] * textureHeight; };
        return {x(0), y(0), x(3), y(3), s(0), t(0), s(3), t(3)};
    }
    static void expectShown(const Shown& shown, const Shown& expected, const char* what) {
        constexpr float kRounding = 1e-3f;  // of a pixel or texel, from a few float operations
        const float Shown::*members[] = {&Shown::left,    &Shown::top,    &Shown::right,    &Shown::bottom,
                                         &Shown::texLeft, &Shown::texTop, &Shown::texRight, &Shown::texBottom};
        for (size_t i = 0; i < std::size(members); ++i)
            EXPECT_NEAR(shown.*members[i], expected.*members[i], kRounding) << what << ", member " << i;
    }
};

static void expectAll(const std::string& sent, std::initializer_list<const char*> calls) {
    for (const char* call : calls) EXPECT_NE(sent.find(call), std::string::npos) << call << " is not in " << sent;
}

// --- Backgrounds ---

static Held<Background> makeBackground(Image2D* image) {
    Held<Background> background(qelBackground_create());
    qelBackground_setImage(background, image);
    return background;
}

TEST_F(ImageDrawTest, ABackgroundImageIsDrawnOverItsColor) {
    const Held<Image2D> image = makeImage(ImageFormat::Rgba, 4, 4);
    const Held<Background> background = makeBackground(image);
    Square square;
    draw(square);
    qelBackground_setColor(background, 0xFF0000FF);
    EXPECT_EQ(qelGLBackend_clear(backend, kClearColor | kClearDepth, background), QEL_STATUS_OK);
    EXPECT_EQ(brief(glRecorder.take()),
              "DepthMask(1); Disable(DEPTH_TEST); BlendFunc(ONE, ZERO); Disable(BLEND); Disable(LIGHTING); "
              "FrontFace(CCW); Disable(ALPHA_TEST); Disable(FOG); Disable(CULL_FACE); Viewport(0, 0, 64, 48); "
              "Scissor(0, 0, 64, 48); DepthRangef(0, 1); ClearColor(0, 0, 1, 1); ColorMask(1, 1, 1, 1); Clear(color); "
              "Viewport(0, 0, 64, 48); ActiveTexture(TEXTURE1); ClientActiveTexture(TEXTURE1); Disable(TEXTURE_2D); "
              "DisableClientState(TEXTURE_COORD_ARRAY); ClientActiveTexture(TEXTURE0); ActiveTexture(TEXTURE0); "
              "EnableClientState(TEXTURE_COORD_ARRAY); Enable(TEXTURE_2D); GenTextures(1); BindTexture(1); "
              "TexImage2D(0, RGBA, 4, 4, 0, RGBA, UNSIGNED_SHORT_4_4_4_4); GetError(); "
              "MatrixMode(MODELVIEW); PushMatrix(); LoadIdentity(); "
              "MatrixMode(PROJECTION); PushMatrix(); LoadIdentity(); Orthof(-1, 1, -1, 1, -1, 1); "
              "MatrixMode(TEXTURE); PushMatrix(); LoadIdentity(); Scalef(0.25, 0.25, 1); TexEnvf(MODE, REPLACE); "
              "TexParameterf(TEXTURE_MIN_FILTER, NEAREST); TexParameterf(TEXTURE_MAG_FILTER, NEAREST); "
              "Color4f(1, 1, 1, 1); TexCoordPointer(2, FLOAT, 0); EnableClientState(VERTEX_ARRAY); "
              "VertexPointer(2, FLOAT, 0); DisableClientState(NORMAL_ARRAY); DisableClientState(COLOR_ARRAY); "
              "DrawArrays(TRIANGLE_STRIP, 0, 4); MatrixMode(TEXTURE); PopMatrix(); MatrixMode(PROJECTION); "
              "PopMatrix(); MatrixMode(MODELVIEW); PopMatrix(); Clear(depth)");
    // What it turned off comes back with the next draw.
    expectAll(brief(draw(square)),
              {"Enable(DEPTH_TEST)", "Enable(CULL_FACE)", "Disable(FOG)", "Disable(BLEND)", "Color4f(1, 1, 1, 1)"});
}

TEST_F(ImageDrawTest, TheCropFillsTheTarget) {
    struct Case {
        const char* what;
        PixelRect crop;
        ImageMode mode;
        Shown shown;  // all 0: nothing
    };
    constexpr auto border = ImageMode::Border, repeat = ImageMode::Repeat;
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 16);
    const Held<Background> background = makeBackground(image);
    for (const Case& c : {
             Case{"part", {2, 4, 4, 8}, border, {0, 0, 64, 48, 2, 4, 6, 12}},
             Case{"border left and top", {-8, -16, 16, 32}, border, {32, 24, 64, 48, 0, 0, 8, 16}},
             Case{"border right and bottom", {4, 8, 8, 16}, border, {0, 0, 32, 24, 4, 8, 8, 16}},
             Case{"all border", {8, 0, 4, 4}, border, {}},
             Case{"empty crop", {0, 0, 0, 16}, border, {}},
             Case{"repeated", {-4, -8, 32, 64}, repeat, {0, 0, 64, 48, 4, 8, 36, 72}},
             Case{"repeated far away", {8003, 0, 8, 16}, repeat, {0, 0, 64, 48, 3, 0, 11, 16}},
             Case{"empty and repeated", {0, 0, 8, 0}, repeat, {}},
         }) {
        qelBackground_setCrop(background, c.crop.x, c.crop.y, c.crop.width, c.crop.height);
        qelBackground_setImageMode(background, int32_t(c.mode), int32_t(c.mode));
        glRecorder.draws.clear();
        EXPECT_EQ(qelGLBackend_clear(backend, kClearColor, background), QEL_STATUS_OK);
        ASSERT_EQ(glRecorder.draws.size(), c.shown.right > 0 ? 1u : 0u) << c.what;
        if (c.shown.right > 0) expectShown(lastShown(8, 16), c.shown, c.what);
    }
    EXPECT_EQ(glRecorder.uploads.size(), 1u) << "with both sides a power of two, modes do not matter to the image";
}

// Repeating needs an image that fills the texture. Sampled at pixel centres, one period shows every texel of it once.
TEST_F(ImageDrawTest, OtherSidesGrowToPowersOfTwo) {
    for (int32_t width = 1; width <= 64; ++width) {
        const Held<Image2D> image = makePaletteImage(ImageFormat::Rgb, width, 2);
        const Held<Background> background = makeBackground(image);
        const auto side = [] { return (glRecorder.uploads.back().bytes.size() - 512) / 2; };
        qelGLBackend_clear(backend, kClearColor, background);
        expectShown(lastShown(float(side()), 2), {0, 0, 64, 48, 0, 0, float(width), 2}, "padded");
        for (size_t i = 0; i < 2 * side(); ++i) {
            const size_t x = i % side(), expected = x < size_t(width) ? i / side() * size_t(width) + x : 0;
            ASSERT_EQ(glRecorder.uploads.back().bytes[512 + i], expected) << "of " << width;
        }
        qelBackground_setImageMode(background, int32_t(ImageMode::Repeat), int32_t(ImageMode::Repeat));
        qelBackground_setCrop(background, 0, 0, 2 * width, 2);
        qelGLBackend_clear(backend, kClearColor, background);
        expectShown(lastShown(float(width), 2), {0, 0, 64, 48, 0, 0, 2 * float(width), 2}, "stretched");
        for (size_t x = 0; x < size_t(width); ++x)
            ASSERT_EQ(glRecorder.uploads.back().bytes[512 + (2 * x + 1) * side() / (2 * size_t(width))], x)
                << "of " << width;
        EXPECT_EQ(glRecorder.liveTextures.size(), 1u);
    }
}

// --- Image targets ---

TEST_F(ImageDrawTest, AnImageTargetBeginsWithItsContents) {
    const Held<Image2D> image = makeMutableImage(ImageFormat::Rgb, 6, 2);
    qelGLBackend_setViewport(backend, {0, 0, 6, 2}, {1, 0, 3, 2});
    EXPECT_EQ(qelGLBackend_bindImage(backend, image), QEL_STATUS_OK);
    const GlLines lines = glRecorder.take();
    expectAll(brief(lines), {"Viewport(0, 0, 6, 2)", "Clear(color)", "RGB, 8, 2, 0, RGB, UNSIGNED_SHORT_5_6_5)"});
    EXPECT_EQ(brief(only(lines, "glScissor")), "Scissor(1, 0, 3, 2); Scissor(0, 0, 6, 2); Scissor(1, 0, 3, 2)")
        << "what the clip leaves out is read back too";
    expectShown(lastShown(8, 2), {0, 0, 64, 48, 0, 0, 6, 2}, "over the whole target");
    EXPECT_EQ(image->refCount, 2);
    glRecorder.frame.assign(6 * 2 * 4, 0);
    EXPECT_EQ(qelGLBackend_release(backend), QEL_STATUS_OK);
    EXPECT_EQ(image->refCount, 1);
    glRecorder.take();
    EXPECT_EQ(qelGLBackend_release(backend), QEL_STATUS_OK);
    EXPECT_TRUE(glRecorder.take().empty()) << "nothing is left to read back";

    const Held<Image2D> tall = makeMutableImage(ImageFormat::Rgb, 1, 2049);
    EXPECT_EQ(qelGLBackend_bindImage(backend, tall), QEL_STATUS_OUT_OF_MEMORY);

    const Held<Image2D> large = makeMutableImage(ImageFormat::Rgb, 8, 8);
    ASSERT_EQ(qelGLBackend_bindImage(backend, large), QEL_STATUS_OK);
    const CountingHeap heap(0);
    EXPECT_EQ(qelGLBackend_release(backend), QEL_STATUS_OUT_OF_MEMORY) << "no read-back without memory";
    EXPECT_EQ(large->pixels[0], 0xFF);
    EXPECT_EQ(large->refCount, 1);
}

TEST_F(ImageDrawTest, ReadingBackConvertsToTheStoredForm) {
    struct Case {
        ImageFormat format;
        std::vector<uint8_t> pixels;  // of a 1 x 2 image, top row first
    };
    glRecorder.frame = {0x12, 0x34, 0x56, 0x78, 0xFF, 0xFE, 0xFD, 0xFC};  // bottom row first
    for (const Case& c :
         {Case{ImageFormat::Alpha, {0xFC, 0x78}}, Case{ImageFormat::Luminance, {0xFE, 0x34}},
          Case{ImageFormat::LuminanceAlpha, {0xFE, 0xFC, 0x34, 0x78}}, Case{ImageFormat::Rgb, {0xFF, 0xFF, 0xAA, 0x11}},
          Case{ImageFormat::Rgba, {0xFF, 0xFF, 0x57, 0x13}}}) {
        for (const int32_t alignment : {4, 8}) {
            const Held<Image2D> image = makeMutableImage(c.format, 1, 2);
            const uint32_t version = image->version;
            glRecorder.packAlignment = alignment;
            ASSERT_EQ(qelGLBackend_bindImage(backend, image), QEL_STATUS_OK);
            glRecorder.take();
            EXPECT_EQ(qelGLBackend_release(backend), QEL_STATUS_OK);
            EXPECT_EQ(brief(glRecorder.take()),
                      "GetIntegerv(PACK_ALIGNMENT); Finish(); ReadPixels(0, 0, 1, 2, RGBA, UNSIGNED_BYTE)");
            EXPECT_EQ(std::vector(image->pixels, image->pixels + c.pixels.size()), c.pixels) << int32_t(c.format);
            EXPECT_EQ(image->bytesPerPixel, int32_t(c.pixels.size() / 2));
            EXPECT_NE(image->version, version);
        }
    }
}

// --- Sprites ---

class SpriteTest : public ImageDrawTest {
protected:
    SpriteTest() {
        // Half a unit high at a distance of 1; the target is 4 : 3.
        const float perspective[] = {3, 0, 0, 0, 0, 4, 0, 0, 0, 0, -1.5f, -2.5f, 0, 0, -1, 0};
        qelTransform_setIdentity(&projection);
        qelTransform_set_fl(&projection, perspective);
        qelGLBackend_setCamera(backend, &identity, &projection, ProjectionType::Perspective);
    }
    Held<Sprite3D> makeSprite(bool scaled) {
        Result result;
        return Held<Sprite3D>(qelSprite3D_create(scaled, image, appearance, &result));
    }
    std::string drawSprite(Sprite3D* sprite, float x, float y, float z, Result expected = QEL_STATUS_OK) {
        qelTransform place = identity;
        qelTransform_postTranslate(&place, x, y, z);
        qelTransform_postScale(&place, 1, 2, 1);
        glRecorder.draws.clear();
        glRecorder.take();
        EXPECT_EQ(qelGLBackend_drawSprite(backend, sprite, &place, alphaFactor), expected);
        return brief(glRecorder.take());
    }
    qelTransform projection;
    float alphaFactor = 1;
    Held<Image2D> image = makeImage(ImageFormat::Rgba, 8, 4);
    Held<Appearance> appearance{qelAppearance_create()};
};

TEST_F(SpriteTest, CropsCoverPixelsOrTheUnitSquare) {
    struct Case {
        const char* what;
        bool scaled;
        PixelRect crop;
        Shown shown;  // with the sprite in the middle of the target at a distance of 2
    };
    // The unit square, twice as high as wide, takes 3 x 32 / 2 = 48 by 2 x 4 x 24 / 2 = 96 pixels there.
    for (const Case& c : {
             Case{"pixel for pixel", false, {0, 0, 8, 4}, {28, 22, 36, 26, 0, 0, 8, 4}},
             Case{"a mirrored part", false, {2, 1, -4, -2}, {34, 25, 30, 23, 2, 1, 6, 3}},
             Case{"beyond the left and top", false, {-4, -2, 8, 4}, {32, 24, 36, 26, 0, 0, 4, 2}},
             Case{"beyond the right, mirrored", false, {4, 0, -8, 4}, {36, 22, 32, 26, 4, 0, 8, 4}},
             Case{"odd sides stay on pixels", false, {0, 0, 7, 3}, {29, 22, 36, 25, 0, 0, 7, 3}},
             Case{"scaled part", true, {6, 0, 4, 4}, {8, -24, 32, 72, 6, 0, 8, 4}},
             Case{"scaled and mirrored", true, {0, 0, -8, 4}, {56, -24, 8, 72, 0, 0, 8, 4}},
         }) {
        const Held<Sprite3D> sprite = makeSprite(c.scaled);
        qelSprite3D_setCrop(sprite, c.crop.x, c.crop.y, c.crop.width, c.crop.height);
        drawSprite(sprite, 0, 0, -2);
        ASSERT_EQ(glRecorder.draws.size(), 1u) << c.what;
        expectShown(lastShown(8, 4), c.shown, c.what);
        for (const auto& corner : glRecorder.draws[0].corners) EXPECT_NEAR(corner[2], 0.25f, 1e-6) << c.what;
    }
}

TEST_F(SpriteTest, WhatCannotBeSeenSendsNothing) {
    const Held<Sprite3D> sprite = makeSprite(true);
    EXPECT_EQ(drawSprite(sprite, 0, 0, 1), "") << "behind the camera";
    EXPECT_EQ(drawSprite(sprite, 0, 0, 0), "") << "at the camera";
    qelSprite3D_setCrop(sprite, 8, 0, 4, 4);
    EXPECT_EQ(drawSprite(sprite, 0, 0, -1), "") << "crop beside the image";
    qelSprite3D_setCrop(sprite, 0, 0, 0, 4);
    EXPECT_EQ(drawSprite(sprite, 0, 0, -1), "") << "empty crop";
    const Held<Sprite3D> bare = makeSprite(true);
    qelSprite3D_setAppearance(bare, nullptr);
    EXPECT_EQ(drawSprite(bare, 0, 0, -1), "") << "no appearance";
}

TEST_F(SpriteTest, StateFollowsTheAppearanceAndIsPutBack) {
    const Held<CompositingMode> mode(qelCompositingMode_create());
    qelCompositingMode_setBlending(mode, int32_t(Blending::Alpha));
    qelAppearance_setCompositingMode(appearance, mode);
    const Held<Fog> fog(qelFog_create());
    qelAppearance_setFog(appearance, fog);
    const Held<Sprite3D> sprite = makeSprite(true);
    alphaFactor = 0.5f;
    expectAll(drawSprite(sprite, 0, 0, -1),
              {"Enable(FOG)", "Enable(BLEND)", "MODE, MODULATE", "Color4f(1, 1, 1, 0.498039)",
               "TEXTURE_WRAP_S, CLAMP_TO_EDGE", "Disable(LIGHTING)"});
    qelCompositingMode_setBlending(mode, int32_t(Blending::Replace));
    expectAll(drawSprite(sprite, 0, 0, -1),
              {"Disable(BLEND)", "MODE, REPLACE", "Color4f(1, 1, 1, 1)", "Disable(CULL_FACE)"});
    for (const GlRecorder::MatrixStack* stack :
         {&glRecorder.modelView, &glRecorder.projection, &glRecorder.textureMatrix[0]})
        EXPECT_TRUE(stack->saved.empty());
    Square square;
    expectAll(brief(draw(square)), {"Enable(CULL_FACE)", "Color4f(1, 1, 1, 1)", "Disable(FOG)"});
}

TEST_F(SpriteTest, AnotherImageTakesTheTexture) {
    const Held<Sprite3D> sprite = makeSprite(false);
    drawSprite(sprite, 0, 0, -1);
    EXPECT_EQ(drawSprite(sprite, 0, 0, -1).find("TexImage"), std::string::npos);
    const Held<Image2D> odd = makeImage(ImageFormat::Luminance, 5, 3);
    qelSprite3D_setImage(sprite, odd);
    expectAll(drawSprite(sprite, 0, 0, -1),
              {"DeleteTextures(1)", "GenTextures(2)", "TexImage2D(0, LUMINANCE, 8, 4, 0, LUMINANCE, UNSIGNED_BYTE)"});
    qelImage2D_touch(odd);
    glRecorder.uploadsUntilOutOfMemory = 0;
    EXPECT_EQ(drawSprite(sprite, 0, 0, 1), "") << "not in sight";
    drawSprite(sprite, 0, 0, -1, QEL_STATUS_OUT_OF_MEMORY);
    expectAll(drawSprite(sprite, 0, 0, -1), {"TexImage"});
}
