// Background images, image targets and sprites.
#include <array>

#include "tests/render/backend_fixture.h"
#include "tests/support/counting_heap.h"

class ImageDrawTest : public BackendTest {
protected:
    // Left, top, right and bottom of the last draw in target pixels from the top left, then the same in texels of a
    // texture of these sides.
    using Shown = std::array<float, 8>;

    static void expectShown(const Shown& expected, float textureWidth, float textureHeight, const char* what) {
        const GlDraw& draw = glRecorder.draws.back();
        Shown shown;
        for (const size_t corner : {size_t(0), size_t(3)}) {  // of a strip
            float* at = shown.data() + (corner ? 2 : 0);
            at[0] = (draw.corners.at(corner)[0] + 1) * kWidth / 2;
            at[1] = (1 - draw.corners.at(corner)[1]) * kHeight / 2;
            at[4] = draw.lookups[0].at(corner)[0] * textureWidth;
            at[5] = draw.lookups[0].at(corner)[1] * textureHeight;
        }
        constexpr float kRounding = 1e-3f;  // of a pixel or texel, from a few float operations
        for (size_t i = 0; i < shown.size(); ++i)
            EXPECT_NEAR(shown[i], expected[i], kRounding) << what << ", number " << i;
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
    const std::string sent = brief(glRecorder.take());
    EXPECT_TRUE(sent.starts_with(
        "DepthMask(1); Disable(DEPTH_TEST); BlendFunc(ONE, ZERO); Disable(BLEND); Disable(LIGHTING); FrontFace(CCW); "
        "Disable(ALPHA_TEST); Disable(FOG); Disable(CULL_FACE); Viewport(0, 0, 64, 48); Scissor(0, 0, 64, 48); "
        "DepthRangef(0, 1); ClearColor(0, 0, 1, 1); ColorMask(1, 1, 1, 1); Clear(color); "))
        << sent;
    EXPECT_LT(sent.find("MODE, REPLACE"), sent.find("DrawArrays"));
    EXPECT_TRUE(
        sent.ends_with("MatrixMode(TEXTURE); PopMatrix(); MatrixMode(PROJECTION); PopMatrix(); "
                       "MatrixMode(MODELVIEW); PopMatrix(); Clear(depth)"))
        << sent;
    // What it turned off comes back with the next draw.
    expectAll(brief(draw(square)),
              {"Enable(DEPTH_TEST)", "Enable(CULL_FACE)", "Disable(FOG)", "Disable(BLEND)", "Color4f(1, 1, 1, 1)"});
}

TEST_F(ImageDrawTest, TheCropFillsTheTarget) {
    constexpr auto border = ImageMode::Border, repeat = ImageMode::Repeat;
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 16);
    const Held<Background> background = makeBackground(image);
    for (const auto& [what, crop, mode, shown] : {
             // all 0: nothing
             std::tuple{"part", PixelRect{2, 4, 4, 8}, border, Shown{0, 0, 64, 48, 2, 4, 6, 12}},
             {"border left and top", {-8, -16, 16, 32}, border, {32, 24, 64, 48, 0, 0, 8, 16}},
             {"border right and bottom", {4, 8, 8, 16}, border, {0, 0, 32, 24, 4, 8, 8, 16}},
             {"all border", {8, 0, 4, 4}, border, {}},
             {"empty crop", {0, 0, 0, 16}, border, {}},
             {"repeated", {-4, -8, 32, 64}, repeat, {0, 0, 64, 48, 4, 8, 36, 72}},
             {"repeated far away", {8003, 0, 8, 16}, repeat, {0, 0, 64, 48, 3, 0, 11, 16}},
             {"empty and repeated", {0, 0, 8, 0}, repeat, {}},
         }) {
        qelBackground_setCrop(background, crop.x, crop.y, crop.width, crop.height);
        qelBackground_setImageMode(background, int32_t(mode), int32_t(mode));
        glRecorder.draws.clear();
        EXPECT_EQ(qelGLBackend_clear(backend, kClearColor, background), QEL_STATUS_OK);
        ASSERT_EQ(glRecorder.draws.size(), shown == Shown{} ? 0u : 1u) << what;
        if (shown != Shown{}) expectShown(shown, 8, 16, what);
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
        expectShown({0, 0, 64, 48, 0, 0, float(width), 2}, float(side()), 2, "padded");
        for (size_t i = 0; i < 2 * side(); ++i) {
            const size_t x = i % side(), expected = x < size_t(width) ? i / side() * size_t(width) + x : 0;
            ASSERT_EQ(glRecorder.uploads.back().bytes[512 + i], expected) << "of " << width;
        }
        qelBackground_setImageMode(background, int32_t(ImageMode::Repeat), int32_t(ImageMode::Repeat));
        qelBackground_setCrop(background, 0, 0, 2 * width, 2);
        qelGLBackend_clear(backend, kClearColor, background);
        expectShown({0, 0, 64, 48, 0, 0, 2 * float(width), 2}, float(width), 2, "stretched");
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
    expectShown({0, 0, 64, 48, 0, 0, 6, 2}, 8, 2, "over the whole target");
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
    glRecorder.frame = {0x12, 0x34, 0x56, 0x78, 0xFF, 0xFE, 0xFD, 0xFC};  // bottom row first
    for (const auto& [format, pixels] :                                   // of a 1 x 2 image, top row first
         {std::pair{ImageFormat::Alpha, std::vector<uint8_t>{0xFC, 0x78}},
          {ImageFormat::Luminance, {0xFE, 0x34}},
          {ImageFormat::LuminanceAlpha, {0xFE, 0xFC, 0x34, 0x78}},
          {ImageFormat::Rgb, {0xFF, 0xFF, 0xAA, 0x11}},
          {ImageFormat::Rgba, {0xFF, 0xFF, 0x57, 0x13}}}) {
        for (const int32_t alignment : {4, 8}) {
            const Held<Image2D> image = makeMutableImage(format, 1, 2);
            const uint32_t version = image->version;
            glRecorder.packAlignment = alignment;
            ASSERT_EQ(qelGLBackend_bindImage(backend, image), QEL_STATUS_OK);
            glRecorder.take();
            EXPECT_EQ(qelGLBackend_release(backend), QEL_STATUS_OK);
            EXPECT_EQ(brief(glRecorder.take()),
                      "GetIntegerv(PACK_ALIGNMENT); Finish(); ReadPixels(0, 0, 1, 2, RGBA, UNSIGNED_BYTE)");
            EXPECT_EQ(std::vector(image->pixels, image->pixels + pixels.size()), pixels) << int32_t(format);
            EXPECT_EQ(image->bytesPerPixel, int32_t(pixels.size() / 2));
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
    std::string drawSprite(Sprite3D* sprite, float z = -1, Result expected = QEL_STATUS_OK) {
        qelTransform place = identity;
        qelTransform_postTranslate(&place, 0, 0, z);
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
    // In the middle of the target at a distance of 2.
    // The unit square, twice as high as wide, takes 3 x 32 / 2 = 48 by 2 x 4 x 24 / 2 = 96 pixels there.
    for (const auto& [what, scaled, crop, shown] : {
             std::tuple{"pixel for pixel", false, PixelRect{0, 0, 8, 4}, Shown{28, 22, 36, 26, 0, 0, 8, 4}},
             {"a mirrored part", false, {2, 1, -4, -2}, {34, 25, 30, 23, 2, 1, 6, 3}},
             {"beyond the left and top", false, {-4, -2, 8, 4}, {32, 24, 36, 26, 0, 0, 4, 2}},
             {"beyond the right, mirrored", false, {4, 0, -8, 4}, {36, 22, 32, 26, 4, 0, 8, 4}},
             {"odd sides stay on pixels", false, {0, 0, 7, 3}, {29, 22, 36, 25, 0, 0, 7, 3}},
             {"scaled part", true, {6, 0, 4, 4}, {8, -24, 32, 72, 6, 0, 8, 4}},
             {"scaled and mirrored", true, {0, 0, -8, 4}, {56, -24, 8, 72, 0, 0, 8, 4}},
         }) {
        const Held<Sprite3D> sprite = makeSprite(scaled);
        qelSprite3D_setCrop(sprite, crop.x, crop.y, crop.width, crop.height);
        drawSprite(sprite, -2);
        ASSERT_EQ(glRecorder.draws.size(), 1u) << what;
        expectShown(shown, 8, 4, what);
        for (const auto& corner : glRecorder.draws[0].corners) EXPECT_NEAR(corner[2], 0.25f, 1e-6) << what;
    }
}

TEST_F(SpriteTest, WhatCannotBeSeenSendsNothing) {
    const Held<Sprite3D> sprite = makeSprite(true), bare = makeSprite(true);
    EXPECT_EQ(drawSprite(sprite, 1), "") << "behind the camera";
    EXPECT_EQ(drawSprite(sprite, 0), "") << "at the camera";
    qelSprite3D_setCrop(sprite, 8, 0, 4, 4);
    EXPECT_EQ(drawSprite(sprite), "") << "crop beside the image";
    qelSprite3D_setCrop(sprite, 0, 0, 0, 4);
    EXPECT_EQ(drawSprite(sprite), "") << "empty crop";
    qelSprite3D_setAppearance(bare, nullptr);
    EXPECT_EQ(drawSprite(bare), "") << "no appearance";
}

TEST_F(SpriteTest, StateFollowsTheAppearanceAndIsPutBack) {
    const Held<CompositingMode> mode(qelCompositingMode_create());
    const Held<Fog> fog(qelFog_create());
    qelAppearance_setCompositingMode(appearance, mode);
    qelAppearance_setFog(appearance, fog);
    const Held<Sprite3D> sprite = makeSprite(true);
    alphaFactor = 0.5f;
    expectAll(drawSprite(sprite), {"Enable(FOG)", "Disable(LIGHTING)", "MODE, REPLACE", "Color4f(1, 1, 1, 1)",
                                   "Disable(CULL_FACE)", "TEXTURE_WRAP_S, CLAMP_TO_EDGE"});
    qelCompositingMode_setBlending(mode, int32_t(Blending::Alpha));
    expectAll(drawSprite(sprite), {"Enable(BLEND)", "MODE, MODULATE", "Color4f(1, 1, 1, 0.498039)"});
    for (const GlRecorder::MatrixStack* stack :
         {&glRecorder.modelView, &glRecorder.projection, &glRecorder.textureMatrix[0]})
        EXPECT_TRUE(stack->saved.empty());
    Square square;
    expectAll(brief(draw(square)), {"Enable(CULL_FACE)", "Color4f(1, 1, 1, 1)", "Disable(FOG)", "Disable(BLEND)"});
}

TEST_F(SpriteTest, AnotherImageTakesTheTexture) {
    const Held<Sprite3D> sprite = makeSprite(false);
    drawSprite(sprite);
    EXPECT_EQ(drawSprite(sprite).find("TexImage"), std::string::npos);
    const Held<Image2D> odd = makeImage(ImageFormat::Luminance, 5, 3);
    qelSprite3D_setImage(sprite, odd);
    expectAll(drawSprite(sprite),
              {"DeleteTextures(1)", "GenTextures(2)", "TexImage2D(0, LUMINANCE, 8, 4, 0, LUMINANCE, UNSIGNED_BYTE)"});
    qelImage2D_touch(odd);
    glRecorder.uploadsUntilOutOfMemory = 0;
    EXPECT_EQ(drawSprite(sprite, 1), "") << "not in sight";
    drawSprite(sprite, -1, QEL_STATUS_OUT_OF_MEMORY);
    expectAll(drawSprite(sprite), {"TexImage"});
}
