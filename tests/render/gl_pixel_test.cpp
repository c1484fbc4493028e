// What a real OpenGL ES 1.1 makes of the calls.
#include <gtest/gtest.h>

#include "render/render_state.h"
#include "tests/render/scene_parts.h"
#include "tools/gl_surface.h"

struct Rgb {
    int r, g, b;
};

class PixelTest : public testing::Test {
protected:
    static constexpr int32_t kSide = 32;

    PixelTest() {
        backend = qelGLBackend_create(kModeColorDepth, kSide, kSide);
        qelGLBackend_setViewport(backend, {0, 0, kSide, kSide}, {0, 0, kSide, kSide});
        EXPECT_EQ(qelGLBackend_bind(backend, kSide, kSide), QEL_STATUS_OK);
        EXPECT_EQ(qelGLBackend_clear(backend, kClearColor | kClearDepth, nullptr), QEL_STATUS_OK);
    }
    ~PixelTest() override { qelGLBackend_destroy(backend); }

    // Within what rounding to 8 bits in different places may make of a channel.
    void expectPixel(int x, int y, Rgb expected, const char* what) const {
        constexpr int kTolerance = 2;
        const uint8_t* pixel = &frame.at(size_t(y * kSide + x) * 4);
        const int expectedChannels[] = {expected.r, expected.g, expected.b};
        for (size_t i = 0; i < 3; ++i)
            EXPECT_NEAR(pixel[i], expectedChannels[i], kTolerance) << what << " at (" << x << ", " << y << "), " << i;
    }

    std::unique_ptr<GlSurface> surface = GlSurface::create(kSide, kSide);
    GLBackend* backend;
    std::vector<uint8_t> frame;
};

static constexpr Rgb kBlack = {0, 0, 0}, kRed = {255, 0, 0}, kGreen = {0, 255, 0}, kBlue = {0, 0, 255},
                     kWhite = {255, 255, 255};

TEST_F(PixelTest, AnImageTargetKeepsItsContentsAndTakesTheFrame) {
    Result result;
    const Held<Image2D> image(qelImage2D_createMutable(int32_t(ImageFormat::Rgb), 8, 6, &result));
    std::vector<uint8_t> blue(8 * 6 * 3, 0);
    for (size_t i = 2; i < blue.size(); i += 3) blue[i] = 255;
    qelImage2D_set(image, 0, 0, 8, 6, blue.data());
    qelGLBackend_setViewport(backend, {0, 0, 8, 6}, {0, 0, 8, 6});
    ASSERT_EQ(qelGLBackend_bindImage(backend, image), QEL_STATUS_OK);
    qelGLBackend_clear(backend, kClearDepth, nullptr);
    Square upperRight;  // from (0, 0) to (1, 1)
    qelVertexBuffer_setDefaultColor(upperRight.buffer, 0xFFFF0000);
    EXPECT_EQ(qelGLBackend_drawSubmesh(backend, upperRight.submesh()), QEL_STATUS_OK);
    EXPECT_EQ(qelGLBackend_release(backend), QEL_STATUS_OK);
    for (size_t y = 0; y < 6; ++y) {
        for (size_t x = 0; x < 8; ++x) {
            const uint8_t* pixel = image->pixels + (y * 8 + x) * 2;
            EXPECT_EQ(pixel[0] | pixel[1] << 8, x >= 4 && y < 3 ? 0xF800 : 0x001F) << x << ", " << y;
        }
    }
}

// --- Commands ---

TEST_F(PixelTest, SpritesAndLinesStandOnTheirPixels) {
    Graphics3D* graphics = qelGraphics3D_create(kHintTrueColor, kSide, kSide);
    RenderState state;
    K8RenderState_reset(&state, &MALK8_malc);
    K8RenderState_setClip(&state, 0, 0, kSide, 30);
    K8RenderState_setCentre(&state, 16, 16);
    EXPECT_TRUE(K8RenderState_bind(&state, graphics, surface.get(), kSide, kSide, kSide));
    K8RenderState_setPerspectiveAngle(&state, 1, 100, 1024);  // 4 pixels a unit at depth 4
    Result result;
    const std::vector<uint8_t> fourColors = {255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255};
    const Held<Image2D> image(
        qelImage2D_createFromPixels(int32_t(ImageFormat::Rgb), 2, 2, fourColors.data(), true, &result));
    const Held<Texture2D> texture = makeTexture(image);
    qelTransformable_setScale(texture.get(), 0.5f, 0.5f, 1);
    K8RenderState_setTexture(&state, texture);
    const int32_t flags = kSpriteInPixels | kSpriteAtOwnDepth;
    const auto render = [&](uint32_t word, std::vector<int32_t> positions, std::vector<int32_t> records,
                            std::vector<int32_t> colors) {
        EXPECT_TRUE(K8RenderState_render(&state, word, {positions, {}, records, colors}));
    };
    const uint32_t sprite = kCommandSprites | 1 << kCommandCountShift | kCommandTexturePerSet;
    const uint32_t line = kCommandLines | 1 << kCommandCountShift | kCommandColorPerSet;
    render(sprite, {-2, -2, 4}, {16, 8, 0, 0, 0, 2, 2, flags}, {});  // 0..16 across, 4..12 down
    render(sprite, {2, -2, 4}, {2, 2, 0, 0, 0, 1, 1, flags}, {});    // of less than a unit: 23..25 across, 7..9 down
    render(line | kCommandHalf, {-16, 2, 4, 16, 2, 4}, {}, {0xFF0000});
    render(sprite, {0, 4, 4}, {32, 24, 0, 0, 1, 1, 2, flags}, {});  // under the line: 20..44 down
    EXPECT_TRUE(K8RenderState_flush(&state));
    frame = surface->readPixels();
    expectPixel(1, 5, kRed, "upper left of the picture");
    expectPixel(14, 5, kGreen, "upper right");
    expectPixel(1, 10, kBlue, "lower left");
    expectPixel(14, 10, kWhite, "lower right");
    expectPixel(17, 8, kBlack, "beside it");
    for (const int x : {23, 24}) expectPixel(x, 8, kRed, "the small one");
    for (const int x : {22, 25}) expectPixel(x, 8, kBlack, "beside the small one");
    const bool inUpperRow = frame[(23 * kSide + 16) * 4] != 0;  // the line is where two rows meet
    expectPixel(16, inUpperRow ? 23 : 24, {128, 0, 127}, "the line");
    expectPixel(16, inUpperRow ? 24 : 23, kBlue, "beside the line");
    expectPixel(16, 29, kBlue, "down to the clip");
    expectPixel(16, 30, kBlack, "outside the clip");
    K8RenderState_release(&state);
    qelGraphics3D_destroy(graphics);
}
