// Background images, image targets and sprites.
#include <cmath>

#include "frame/error_status.h"
#include "tests/render/backend_fixture.h"
#include "tests/support/counting_heap.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::SizeIs;

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
    EXPECT_THAT(
        glRecorder.take(),
        ElementsAre("glDepthMask(1)", "glDisable(GL_DEPTH_TEST)", "glBlendFunc(GL_ONE, GL_ZERO)", "glDisable(GL_BLEND)",
                    "glDisable(GL_LIGHTING)", "glFrontFace(GL_CCW)", "glDisable(GL_ALPHA_TEST)", "glDisable(GL_FOG)",
                    "glDisable(GL_CULL_FACE)", "glViewport(0, 0, 64, 48)", "glScissor(0, 0, 64, 48)",
                    "glDepthRangef(0, 1)", "glClearColor(0, 0, 1, 1)", "glColorMask(1, 1, 1, 1)", "glClear(color)",
                    "glViewport(0, 0, 64, 48)", "glActiveTexture(GL_TEXTURE1)", "glClientActiveTexture(GL_TEXTURE1)",
                    "glDisable(GL_TEXTURE_2D)", "glDisableClientState(GL_TEXTURE_COORD_ARRAY)",
                    "glClientActiveTexture(GL_TEXTURE0)", "glActiveTexture(GL_TEXTURE0)",
                    "glEnableClientState(GL_TEXTURE_COORD_ARRAY)", "glEnable(GL_TEXTURE_2D)", "glGenTextures(1)",
                    "glBindTexture(GL_TEXTURE_2D, 1)",
                    "glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 4, 4, 0, GL_RGBA, GL_UNSIGNED_SHORT_4_4_4_4)",
                    "glGetError()", "glMatrixMode(GL_MODELVIEW)", "glPushMatrix()", "glLoadIdentity()",
                    "glMatrixMode(GL_PROJECTION)", "glPushMatrix()", "glLoadIdentity()",
                    "glOrthof(-1, 1, -1, 1, -1, 1)", "glMatrixMode(GL_TEXTURE)", "glPushMatrix()", "glLoadIdentity()",
                    "glScalef(0.25, 0.25, 1)", "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE)",
                    "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST)",
                    "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST)", "glColor4f(1, 1, 1, 1)",
                    "glTexCoordPointer(2, GL_FLOAT, 0)", "glEnableClientState(GL_VERTEX_ARRAY)",
                    "glVertexPointer(2, GL_FLOAT, 0)", "glDisableClientState(GL_NORMAL_ARRAY)",
                    "glDisableClientState(GL_COLOR_ARRAY)", "glDrawArrays(GL_TRIANGLE_STRIP, 0, 4)",
                    "glMatrixMode(GL_TEXTURE)", "glPopMatrix()", "glMatrixMode(GL_PROJECTION)", "glPopMatrix()",
                    "glMatrixMode(GL_MODELVIEW)", "glPopMatrix()", "glClear(depth)"));
    qelGLBackend_clear(backend, kClearColor, background);
    EXPECT_THAT(only(glRecorder.take(), "Tex"), testing::Not(testing::Contains(testing::StartsWith("glTexImage"))));

    // What it turned off comes back with the next draw.
    EXPECT_THAT(draw(square), IsSupersetOf({"glEnable(GL_DEPTH_TEST)", "glEnable(GL_CULL_FACE)", "glDisable(GL_FOG)",
                                            "glDisable(GL_BLEND)", "glColor4f(1, 1, 1, 1)"}));
}

TEST_F(ImageDrawTest, TheCropFillsTheTarget) {
    struct Case {
        const char* what;
        int32_t x, y, width, height;
        ImageMode modeX, modeY;
        bool isDrawn;
        Shown shown;
    };
    constexpr auto border = ImageMode::Border, repeat = ImageMode::Repeat;
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 16);
    const Held<Background> background = makeBackground(image);
    for (const Case& c : {
             Case{"whole image", 0, 0, 8, 16, border, border, true, {0, 0, 64, 48, 0, 0, 8, 16}},
             Case{"part", 2, 4, 4, 8, border, border, true, {0, 0, 64, 48, 2, 4, 6, 12}},
             Case{"border left and top", -8, -16, 16, 32, border, border, true, {32, 24, 64, 48, 0, 0, 8, 16}},
             Case{"border right and bottom", 4, 8, 8, 16, border, border, true, {0, 0, 32, 24, 4, 8, 8, 16}},
             Case{"all border", 8, 0, 4, 4, border, border, false, {}},
             Case{"empty crop", 0, 0, 0, 16, border, border, false, {}},
             Case{"repeated", -4, -8, 32, 64, repeat, repeat, true, {0, 0, 64, 48, 4, 8, 36, 72}},
             Case{"repeated far away", 8003, 0, 8, 16, repeat, border, true, {0, 0, 64, 48, 3, 0, 11, 16}},
             Case{"empty and repeated", 0, 0, 8, 0, repeat, repeat, false, {}},
         }) {
        qelBackground_setCrop(background, c.x, c.y, c.width, c.height);
        qelBackground_setImageMode(background, int32_t(c.modeX), int32_t(c.modeY));
        glRecorder.draws.clear();
        EXPECT_EQ(qelGLBackend_clear(backend, kClearColor, background), QEL_STATUS_OK);
        ASSERT_THAT(glRecorder.draws, SizeIs(c.isDrawn ? 1 : 0)) << c.what;
        if (c.isDrawn) expectShown(lastShown(8, 16), c.shown, c.what);
    }
    EXPECT_THAT(glRecorder.uploads, SizeIs(1)) << "the image has both sides a power of two: modes do not matter to it";
}

TEST_F(ImageDrawTest, OtherSidesGrowToPowersOfTwo) {
    const Held<Image2D> image = makePaletteImage(ImageFormat::Rgb, 3, 2);
    const Held<Background> background = makeBackground(image);
    qelGLBackend_clear(backend, kClearColor, background);
    expectShown(lastShown(4, 2), {0, 0, 64, 48, 0, 0, 3, 2}, "at the left");
    const auto indices = [] {
        const std::vector<uint8_t>& bytes = glRecorder.uploads.back().bytes;
        return std::vector(bytes.begin() + 512, bytes.end());
    };
    EXPECT_EQ(indices(), (std::vector<uint8_t>{0, 1, 2, 0, 3, 4, 5, 0}));

    // Repeating needs an image that fills the texture.
    qelBackground_setImageMode(background, int32_t(ImageMode::Repeat), int32_t(ImageMode::Repeat));
    qelBackground_setCrop(background, 0, 0, 6, 2);
    qelGLBackend_clear(backend, kClearColor, background);
    expectShown(lastShown(3, 2), {0, 0, 64, 48, 0, 0, 6, 2}, "twice");
    EXPECT_EQ(indices(), (std::vector<uint8_t>{0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2,  //
                                               3, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 5}));
    EXPECT_THAT(glRecorder.liveTextures, SizeIs(1));
}

// Sampled at pixel centres, one period of a stretched image shows every texel of it once.
TEST_F(ImageDrawTest, AStretchedImageShowsEveryTexelOnce) {
    for (int32_t width = 1; width <= 64; ++width) {
        const Held<Image2D> image = makePaletteImage(ImageFormat::Rgb, width, 1);
        const Held<Background> background = makeBackground(image);
        qelBackground_setImageMode(background, int32_t(ImageMode::Repeat), int32_t(ImageMode::Border));
        qelGLBackend_clear(backend, kClearColor, background);
        const std::vector<uint8_t>& bytes = glRecorder.uploads.back().bytes;
        const size_t side = bytes.size() - 512;
        for (int32_t pixel = 0; pixel < width; ++pixel)
            ASSERT_EQ(bytes[512 + (2 * size_t(pixel) + 1) * side / (2 * size_t(width))], pixel) << "of " << width;
    }
}

TEST_F(ImageDrawTest, ChangedAndReplacedImagesAreUploadedAgain) {
    const Held<Image2D> image = makeMutableImage(ImageFormat::Rgb, 4, 4), other = makeImage(ImageFormat::Rgb, 4, 4);
    const Held<Background> background = makeBackground(image);
    const uint8_t black[] = {0, 0, 0};
    const auto uploads = [&] {
        glRecorder.uploads.clear();
        EXPECT_EQ(qelGLBackend_clear(backend, kClearColor, background), QEL_STATUS_OK);
        return glRecorder.uploads.size();
    };
    EXPECT_EQ(uploads(), 1u);
    EXPECT_EQ(glRecorder.uploads[0].bytes, std::vector<uint8_t>(32, 0xFF));
    qelImage2D_set(image, 0, 0, 1, 1, black);
    EXPECT_EQ(uploads(), 1u);
    EXPECT_EQ(glRecorder.uploads[0].bytes[0], 0);
    EXPECT_EQ(uploads(), 0u);
    qelBackground_setImage(background, other);
    EXPECT_EQ(uploads(), 1u);

    qelImage2D_touch(other);
    glRecorder.uploadsUntilOutOfMemory = 0;
    qelStatus_set(QEL_STATUS_OK);
    glRecorder.draws.clear();
    EXPECT_EQ(qelGLBackend_clear(backend, kClearColor, background), QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(qelStatus_get(), QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_THAT(glRecorder.draws, IsEmpty());
    EXPECT_THAT(glRecorder.liveTextures, IsEmpty());
    EXPECT_EQ(uploads(), 1u);
}

// --- Image targets ---

TEST_F(ImageDrawTest, AnImageTargetBeginsWithItsContents) {
    const Held<Image2D> image = makeMutableImage(ImageFormat::Rgb, 6, 2);
    qelGLBackend_setViewport(backend, {0, 0, 6, 2}, {1, 0, 3, 2});
    EXPECT_EQ(qelGLBackend_bindImage(backend, image), QEL_STATUS_OK);
    const GlLines lines = glRecorder.take();
    EXPECT_THAT(lines, IsSupersetOf({"glViewport(0, 0, 6, 2)", "glClear(color)",
                                     "glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, 8, 2, 0, GL_RGB, "
                                     "GL_UNSIGNED_SHORT_5_6_5)"}));
    EXPECT_THAT(only(lines, "glScissor"),
                ElementsAre("glScissor(1, 0, 3, 2)", "glScissor(0, 0, 6, 2)", "glScissor(1, 0, 3, 2)"))
        << "what the clip leaves out is read back too";
    expectShown(lastShown(8, 2), {0, 0, 64, 48, 0, 0, 6, 2}, "over the whole target");
    EXPECT_EQ(image->refCount, 2);
    glRecorder.frame.assign(6 * 2 * 4, 0);
    EXPECT_EQ(qelGLBackend_release(backend), QEL_STATUS_OK);
    EXPECT_EQ(image->refCount, 1);
    glRecorder.take();
    EXPECT_EQ(qelGLBackend_release(backend), QEL_STATUS_OK);
    EXPECT_THAT(glRecorder.take(), IsEmpty()) << "nothing to read back any more";

    const Held<Image2D> tall = makeMutableImage(ImageFormat::Rgb, 1, 2049);
    EXPECT_EQ(qelGLBackend_bindImage(backend, tall), QEL_STATUS_OUT_OF_MEMORY);
}

TEST_F(ImageDrawTest, ReadingBackConvertsToTheStoredForm) {
    struct Case {
        ImageFormat format;
        std::vector<uint8_t> pixels;  // of a 1 x 2 image, top row first
    };
    // Bottom row first: (0x12, 0x34, 0x56, 0x78), then (0xFF, 0xFE, 0xFD, 0xFC).
    const std::vector<uint8_t> frame = {0x12, 0x34, 0x56, 0x78, 0xFF, 0xFE, 0xFD, 0xFC};
    for (const Case& c :
         {Case{ImageFormat::Alpha, {0xFC, 0x78}}, Case{ImageFormat::Luminance, {0xFE, 0x34}},
          Case{ImageFormat::LuminanceAlpha, {0xFE, 0xFC, 0x34, 0x78}}, Case{ImageFormat::Rgb, {0xFF, 0xFF, 0xAA, 0x11}},
          Case{ImageFormat::Rgba, {0xFF, 0xFF, 0x57, 0x13}}}) {
        for (const int32_t alignment : {4, 8}) {
            const Held<Image2D> image = makeMutableImage(c.format, 1, 2);
            const uint32_t version = image->version;
            glRecorder.frame = frame;
            glRecorder.packAlignment = alignment;
            ASSERT_EQ(qelGLBackend_bindImage(backend, image), QEL_STATUS_OK);
            glRecorder.take();
            EXPECT_EQ(qelGLBackend_release(backend), QEL_STATUS_OK);
            EXPECT_THAT(glRecorder.take(), ElementsAre("glGetIntegerv(GL_PACK_ALIGNMENT)", "glFinish()",
                                                       "glReadPixels(0, 0, 1, 2, GL_RGBA, GL_UNSIGNED_BYTE)"));
            EXPECT_EQ(std::vector(image->pixels, image->pixels + c.pixels.size()), c.pixels) << int32_t(c.format);
            EXPECT_EQ(image->bytesPerPixel, int32_t(c.pixels.size() / 2));
            EXPECT_NE(image->version, version);
        }
    }
}

TEST_F(ImageDrawTest, AnExhaustedHeapSkipsTheReadBack) {
    const Held<Image2D> image = makeMutableImage(ImageFormat::Rgb, 8, 8);
    ASSERT_EQ(qelGLBackend_bindImage(backend, image), QEL_STATUS_OK);
    {
        const CountingHeap heap(0);
        EXPECT_EQ(qelGLBackend_release(backend), QEL_STATUS_OUT_OF_MEMORY);
    }
    EXPECT_EQ(image->pixels[0], 0xFF);
    EXPECT_EQ(image->refCount, 1);
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
    GlLines drawSprite(Sprite3D* sprite, float x, float y, float z, float scale = 1) {
        qelTransform place = identity;
        qelTransform_postTranslate(&place, x, y, z);
        qelTransform_postScale(&place, scale, 2 * scale, scale);
        glRecorder.draws.clear();
        glRecorder.take();
        EXPECT_EQ(qelGLBackend_drawSprite(backend, sprite, &place, alphaFactor), QEL_STATUS_OK);
        return glRecorder.take();
    }
    qelTransform projection;
    float alphaFactor = 1;
    Held<Image2D> image = makeImage(ImageFormat::Rgba, 8, 4);
    Held<Appearance> appearance{qelAppearance_create()};
};

TEST_F(SpriteTest, TheCallsFollowTheirOrder) {
    const Held<Sprite3D> sprite = makeSprite(false);
    Square square;
    draw(square);  // leaves the default fog and compositing
    EXPECT_THAT(
        drawSprite(sprite, 0, 0, -1),
        ElementsAre("glViewport(0, 0, 64, 48)", "glScissor(0, 0, 64, 48)", "glDepthRangef(0, 1)",
                    "glDisable(GL_LIGHTING)", "glDisable(GL_CULL_FACE)", "glActiveTexture(GL_TEXTURE1)",
                    "glClientActiveTexture(GL_TEXTURE1)", "glDisable(GL_TEXTURE_2D)",
                    "glDisableClientState(GL_TEXTURE_COORD_ARRAY)", "glClientActiveTexture(GL_TEXTURE0)",
                    "glActiveTexture(GL_TEXTURE0)", "glEnableClientState(GL_TEXTURE_COORD_ARRAY)",
                    "glEnable(GL_TEXTURE_2D)", "glGenTextures(1)", "glBindTexture(GL_TEXTURE_2D, 1)",
                    "glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 8, 4, 0, GL_RGBA, GL_UNSIGNED_SHORT_4_4_4_4)",
                    "glGetError()", "glMatrixMode(GL_MODELVIEW)", "glPushMatrix()",
                    "glLoadMatrixf({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, -1, 1})", "glMatrixMode(GL_PROJECTION)",
                    "glPushMatrix()",
                    "glLoadMatrixf({0.03125, 0, 0, 0, 0, -0.0416667, 0, 0, 0, 0, 0, 0, -0.125, 0.0833333, -1, 1})",
                    "glMatrixMode(GL_TEXTURE)", "glPushMatrix()",
                    "glLoadMatrixf({0.125, 0, 0, 0, 0, 0.25, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1})",
                    "glTexCoordPointer(2, GL_SHORT, 0)",
                    "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST)",
                    "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST)",
                    "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE)",
                    "glTexParameterf(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE)",
                    "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE)",
                    "glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, {0, 0, 0, 0})", "glColor4f(1, 1, 1, 1)",
                    "glEnableClientState(GL_VERTEX_ARRAY)", "glVertexPointer(2, GL_SHORT, 0)",
                    "glDisableClientState(GL_NORMAL_ARRAY)", "glDisableClientState(GL_COLOR_ARRAY)",
                    "glDrawArrays(GL_TRIANGLE_STRIP, 0, 4)", "glMatrixMode(GL_TEXTURE)", "glPopMatrix()",
                    "glMatrixMode(GL_PROJECTION)", "glPopMatrix()", "glMatrixMode(GL_MODELVIEW)", "glPopMatrix()"));
    EXPECT_THAT(only(drawSprite(sprite, 0, 0, -1), "TexImage"), IsEmpty());
    EXPECT_THAT(draw(square), IsSupersetOf({"glEnable(GL_CULL_FACE)", "glColor4f(1, 1, 1, 1)"}));
}

TEST_F(SpriteTest, CropsCoverPixelsOrTheUnitSquare) {
    struct Case {
        const char* what;
        bool scaled;
        int32_t x, y, width, height;  // crop
        Shown shown;                  // with the sprite in the middle of the target at a distance of 2
    };
    // The unit square, twice as high as wide, takes 3 x 32 / 2 = 48 by 2 x 4 x 24 / 2 = 96 pixels there.
    for (const Case& c : {
             Case{"pixel for pixel", false, 0, 0, 8, 4, {28, 22, 36, 26, 0, 0, 8, 4}},
             Case{"a part", false, 2, 1, 4, 2, {30, 23, 34, 25, 2, 1, 6, 3}},
             Case{"mirrored", false, 2, 1, -4, -2, {34, 25, 30, 23, 2, 1, 6, 3}},
             Case{"beyond the left and top", false, -4, -2, 8, 4, {32, 24, 36, 26, 0, 0, 4, 2}},
             Case{"beyond the right, mirrored", false, 4, 0, -8, 4, {36, 22, 32, 26, 4, 0, 8, 4}},
             Case{"odd sides stay on pixels", false, 0, 0, 7, 3, {29, 22, 36, 25, 0, 0, 7, 3}},
             Case{"scaled", true, 0, 0, 8, 4, {8, -24, 56, 72, 0, 0, 8, 4}},
             Case{"scaled part", true, 6, 0, 4, 4, {8, -24, 32, 72, 6, 0, 8, 4}},
             Case{"scaled and mirrored", true, 0, 0, -8, 4, {56, -24, 8, 72, 0, 0, 8, 4}},
         }) {
        const Held<Sprite3D> sprite = makeSprite(c.scaled);
        qelSprite3D_setCrop(sprite, c.x, c.y, c.width, c.height);
        drawSprite(sprite, 0, 0, -2);
        ASSERT_THAT(glRecorder.draws, SizeIs(1)) << c.what;
        expectShown(lastShown(8, 4), c.shown, c.what);
        for (const auto& corner : glRecorder.draws[0].corners) EXPECT_NEAR(corner[2], 0.25f, 1e-6) << c.what;
    }
}

TEST_F(SpriteTest, UnscaledSpritesMoveByWholePixels) {
    const Held<Sprite3D> sprite = makeSprite(false);
    for (int step = 0; step < 40; ++step) {
        drawSprite(sprite, 0.013f * float(step), -0.007f * float(step), -1.5f);
        const Shown shown = lastShown(8, 4);
        EXPECT_NEAR(shown.left, std::round(shown.left), 1e-3) << step;
        EXPECT_NEAR(shown.top, std::round(shown.top), 1e-3) << step;
        EXPECT_NEAR(shown.right - shown.left, 8, 1e-3) << step;
        EXPECT_NEAR(shown.left + 4, (1 + 3 * 0.013f * float(step) / 1.5f) * 32, 0.51) << step;
    }
}

TEST_F(SpriteTest, WhatCannotBeSeenSendsNothing) {
    const Held<Sprite3D> sprite = makeSprite(true);
    EXPECT_THAT(drawSprite(sprite, 0, 0, 1), IsEmpty()) << "behind the camera";
    EXPECT_THAT(drawSprite(sprite, 0, 0, 0), IsEmpty()) << "at the camera";
    qelSprite3D_setCrop(sprite, 8, 0, 4, 4);
    EXPECT_THAT(drawSprite(sprite, 0, 0, -1), IsEmpty()) << "crop beside the image";
    qelSprite3D_setCrop(sprite, 0, 0, 0, 4);
    EXPECT_THAT(drawSprite(sprite, 0, 0, -1), IsEmpty()) << "empty crop";
    const Held<Sprite3D> bare = makeSprite(true);
    qelSprite3D_setAppearance(bare, nullptr);
    EXPECT_THAT(drawSprite(bare, 0, 0, -1), IsEmpty()) << "no appearance";
}

TEST_F(SpriteTest, FogCompositingAndAlphaFollowTheAppearance) {
    const Held<CompositingMode> mode(qelCompositingMode_create());
    qelCompositingMode_setBlending(mode, int32_t(Blending::Alpha));
    qelAppearance_setCompositingMode(appearance, mode);
    const Held<Fog> fog(qelFog_create());
    qelAppearance_setFog(appearance, fog);
    const Held<Sprite3D> sprite = makeSprite(true);
    alphaFactor = 0.5f;
    EXPECT_THAT(
        drawSprite(sprite, 0, 0, -1),
        IsSupersetOf({"glEnable(GL_FOG)", "glEnable(GL_BLEND)",
                      "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE)", "glColor4f(1, 1, 1, 0.498039)"}));
    qelCompositingMode_setBlending(mode, int32_t(Blending::Replace));
    EXPECT_THAT(drawSprite(sprite, 0, 0, -1),
                IsSupersetOf({"glDisable(GL_BLEND)", "glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_REPLACE)",
                              "glColor4f(1, 1, 1, 1)"}));
}

TEST_F(SpriteTest, AnotherImageTakesTheTexture) {
    const Held<Sprite3D> sprite = makeSprite(false);
    drawSprite(sprite, 0, 0, -1);
    const Held<Image2D> odd = makeImage(ImageFormat::Luminance, 5, 3);
    qelSprite3D_setImage(sprite, odd);
    EXPECT_THAT(
        only(drawSprite(sprite, 0, 0, -1), "Tex"),
        IsSupersetOf({"glDeleteTextures(1)", "glGenTextures(2)",
                      "glTexImage2D(GL_TEXTURE_2D, 0, GL_LUMINANCE, 8, 4, 0, GL_LUMINANCE, GL_UNSIGNED_BYTE)"}));
    qelImage2D_touch(odd);
    glRecorder.uploadsUntilOutOfMemory = 0;
    EXPECT_EQ(qelGLBackend_drawSprite(backend, sprite, &identity, 1), QEL_STATUS_OK) << "not in sight";
    qelTransform place = identity;
    qelTransform_postTranslate(&place, 0, 0, -1);
    EXPECT_EQ(qelGLBackend_drawSprite(backend, sprite, &place, 1), QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_THAT(only(drawSprite(sprite, 0, 0, -1), "TexImage"), SizeIs(1));
}
