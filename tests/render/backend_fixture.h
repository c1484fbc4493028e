// A backend bound to a recorded context.
#pragma once

#include <gtest/gtest.h>

#include "tests/render/scene_parts.h"
#include "tests/support/gl_recorder.h"

class BackendTest : public testing::Test {
protected:
    static constexpr int32_t kWidth = 64, kHeight = 48;

    BackendTest() {
        glRecorder.reset();
        backend = qelGLBackend_create(kModeColorDepth, kWidth, kHeight);
        qelGLBackend_bind(backend, kWidth, kHeight);
        glRecorder.take();
        qelTransform_setIdentity(&identity);
    }
    ~BackendTest() override {
        qelGLBackend_destroy(backend);
        EXPECT_TRUE(glRecorder.liveTextures.empty()) << "OpenGL ES textures left behind";
    }

    Result tryDraw(const Square& square) { return qelGLBackend_drawSubmesh(backend, square.submesh()); }
    GlLines draw(const Square& square) {
        EXPECT_EQ(tryDraw(square), QEL_STATUS_OK);
        return glRecorder.take();
    }
    // The calls of a draw that contain the part, in brief.
    std::string sent(const Square& square, const std::string& part) { return brief(only(draw(square), part)); }
    // What the next draw of the square sends beyond what a repeated draw sends, in brief.
    std::string drawBeyond(const Square& square) {
        const GlLines first = draw(square);
        return brief(linesBeyond(draw(square), first));
    }

    GLBackend* backend;
    qelTransform identity;
};
