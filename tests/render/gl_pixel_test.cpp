// What a real OpenGL ES 1.1 makes of an image as a target: it begins with its contents and takes the frame.
#include <gtest/gtest.h>

#include "tests/render/scene_parts.h"
#include "tools/gl_surface.h"

TEST(ImageTarget, KeepsItsContentsAndTakesTheFrame) {
    const std::unique_ptr<GlSurface> surface = GlSurface::create(32, 32);
    GLBackend* backend = qelGLBackend_create(kModeColorDepth, 32, 32);
    const Held<Image2D> image = makeMutableImage(ImageFormat::Rgb, 8, 6);
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
    qelGLBackend_destroy(backend);
}
