// Vertex arrays, texture units and draws.
#include <climits>

#include "frame/error_status.h"
#include "tests/render/backend_fixture.h"
#include "tests/support/counting_heap.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

using DrawTest = BackendTest;
using Vectors = GlDraw::Vectors;

static Held<TriangleStripArray> makeStrips(int32_t first, std::vector<int32_t> lengths) {
    Result result;
    return Held<TriangleStripArray>(
        qelTriangleStripArray_createImplicit(first, lengths.data(), int32_t(lengths.size()), true, &result));
}

static Held<TriangleStripArray> makeList(std::vector<int32_t> indices) {
    Result result;
    auto length = int32_t(indices.size());
    return Held<TriangleStripArray>(
        qelTriangleStripArray_createExplicit(&length, 1, indices.data(), length, true, &result));
}

TEST_F(DrawTest, ArraysGoInTheTypeTheyAreStoredIn) {
    struct Case {
        const char* what;
        bool wideNormals, byteTexCoords;
        int32_t texComponents;
        GlLines lines;
    };
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    for (const Case& c :
         {Case{"narrow",
               false,
               true,
               2,
               {"glTexCoordPointer(2, GL_BYTE, 0)", "glVertexPointer(3, GL_BYTE, 0)", "glNormalPointer(GL_BYTE, 0)"}},
          Case{"wide",
               true,
               false,
               3,
               {"glTexCoordPointer(3, GL_SHORT, 0)", "glVertexPointer(3, GL_SHORT, 0)",
                "glNormalPointer(GL_SHORT, 0)"}}}) {
        Square square;
        qelAppearance_setTexture(square.appearance, 0, texture);
        const auto components = size_t(c.texComponents);
        const auto coords = c.byteTexCoords
                                ? makeArray<int8_t>(c.texComponents, std::vector<int8_t>(4 * components, -3))
                                : makeArray<int16_t>(c.texComponents, std::vector<int16_t>(4 * components, 300));
        qelVertexBuffer_setTexCoords(square.buffer, 0, coords, 1, nullptr);
        if (c.wideNormals) {
            qelVertexBuffer_setNormalsAsIs(square.buffer, makeArray<int16_t>(3, std::vector<int16_t>(12, 1000)));
        } else {
            qelVertexBuffer_setPositions(square.buffer, makeArray<int8_t>(3, std::vector<int8_t>(12, -7)), 1, nullptr);
            qelVertexBuffer_setNormalsAsIs(square.buffer, makeArray<int8_t>(3, std::vector<int8_t>(12, 64)));
        }
        EXPECT_EQ(only(draw(square), "Pointer("), c.lines) << c.what;
    }
    const GlDraw& wide = glRecorder.draws.back();
    EXPECT_EQ(wide.normals, Vectors(4, {1000, 1000, 1000}));
    EXPECT_EQ(wide.texCoords[0], Vectors(4, {300, 300, 300}));
    EXPECT_THAT(wide.texCoords[1], IsEmpty());
}

TEST_F(DrawTest, TheModelViewHoldsCameraModelScaleAndBias) {
    Square square;
    const float bias[] = {100, 0, 0};
    qelVertexBuffer_setPositions(square.buffer, square.buffer->positions, 0.5f, bias);
    qelTransform_postTranslate(&square.model, 0, 20, 0);
    qelTransform view = identity;
    qelTransform_postScale(&view, 2, 2, 2);
    qelGLBackend_setCamera(backend, &view, &identity, ProjectionType::Generic);
    const GlLines lines = draw(square);
    EXPECT_THAT(only(lines, "LoadMatrix").back(), "glLoadMatrixf({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 200, 40, 0, 1})");
}

TEST_F(DrawTest, TheTextureMatrixHoldsTheTextureScaleAndBias) {
    Square square;
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    square.setTexture(1, texture);
    const float bias[] = {3, 5};
    qelVertexBuffer_setTexCoords(square.buffer, 1, square.buffer->texCoords[1], 2, bias);
    qelTransformable_setScale(texture.get(), 0.5f, 0.25f, 1);
    EXPECT_THAT(only(draw(square), "LoadMatrix").at(1),
                "glLoadMatrixf({1, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 2, 0, 1.5, 1.25, 0, 1})");
}

// Wherever the textures are, only their units are on.
TEST_F(DrawTest, UnitsWithoutATextureAreSwitchedOff) {
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    for (int used = 0; used < 4; ++used) {
        Square square;
        for (int32_t unit = 0; unit < 2; ++unit)
            if (used >> unit & 1) square.setTexture(unit, texture);
        const GlLines lines = draw(square);
        int seen = 0;
        std::string unit;
        for (const std::string& line : lines) {
            if (line.starts_with("glActiveTexture")) unit = line;
            if (line == "glEnable(GL_TEXTURE_2D)") seen |= unit == "glActiveTexture(GL_TEXTURE0)" ? 1 : 2;
            if (line == "glDisable(GL_TEXTURE_2D)") seen |= unit == "glActiveTexture(GL_TEXTURE0)" ? 4 : 8;
        }
        EXPECT_EQ(seen, used | (~used & 3) << 2) << used;
        const GlDraw& drawn = glRecorder.draws.back();
        for (size_t i = 0; i < 2; ++i) EXPECT_EQ(drawn.texCoords[i].size(), used >> i & 1 ? 4u : 0u) << used;
    }
}

TEST_F(DrawTest, EveryBlendFunctionHasItsMode) {
    Square square;
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    square.setTexture(0, texture);
    const char* const kModes[] = {"GL_ADD", "GL_BLEND", "GL_DECAL", "GL_MODULATE", "GL_REPLACE"};
    for (int32_t i = 0; i < 5; ++i) {
        qelTexture2D_setBlending(texture, int32_t(TextureBlending::Add) + i);
        EXPECT_THAT(only(draw(square), "ENV_MODE"),
                    ElementsAre(std::string("glTexEnvf(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, ") + kModes[i] + ")"));
    }
}

// --- Colours ---

TEST_F(DrawTest, ColorsBecomeFourBytesOnce) {
    Square square;
    const auto colors = makeArray<uint8_t>(3, {255, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    qelVertexBuffer_setColors(square.buffer, colors);
    CompositingMode* mode = square.setCompositing();
    CountingHeap heap;  // counts what the draws allocate
    draw(square);
    EXPECT_EQ(glRecorder.draws.back().colors,
              (Vectors{{255, 0, 1, 255}, {2, 3, 4, 255}, {5, 6, 7, 255}, {8, 9, 10, 255}}));
    draw(square);
    EXPECT_EQ(heap.calls(), 1);

    const int8_t changed[] = {9, 9, 9};
    qelVertexArray_set8(colors, 1, 1, changed);
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

// --- Draws ---

TEST_F(DrawTest, StripsFollowEachOtherAndListsAreDrawnAtOnce) {
    Square square;
    qelVertexBuffer_setPositions(
        square.buffer, makeArray<int16_t>(3, {0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0, 4, 0, 0, 5, 0, 0, 6, 0, 0, 7, 0, 0}),
        1, nullptr);
    square.strip = makeStrips(1, {4, 3});
    EXPECT_THAT(only(draw(square), "Draw"),
                ElementsAre("glDrawArrays(GL_TRIANGLE_STRIP, 1, 4)", "glDrawArrays(GL_TRIANGLE_STRIP, 5, 3)"));
    square.strip = makeList({0, 2, 7, 5});
    EXPECT_THAT(only(draw(square), "Draw"), ElementsAre("glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_SHORT)"));
    std::vector<float> xs;
    for (const auto& position : glRecorder.draws.back().positions) xs.push_back(position[0]);
    EXPECT_THAT(xs, ElementsAre(0, 2, 7, 7, 2, 5));
}

TEST_F(DrawTest, IndicesBeyondAnyArrayInUseDrawNothing) {
    struct Case {
        const char* what;
        bool isList;
        int32_t last;        // vertex
        int32_t shortArray;  // 0 none, 1 normals, 2 colours, 3 coordinates of a texture, 4 of none
        Result result;
    };
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    for (const Case& c :
         {Case{"strip fits", false, 3, 0, QEL_STATUS_OK},
          Case{"strip reaches out", false, 4, 0, QEL_STATUS_ILLEGAL_STATE},
          Case{"list fits", true, 3, 0, QEL_STATUS_OK}, Case{"list reaches out", true, 4, 0, QEL_STATUS_ILLEGAL_STATE},
          Case{"within short normals", true, 2, 1, QEL_STATUS_OK},
          Case{"short normals", true, 3, 1, QEL_STATUS_ILLEGAL_STATE},
          Case{"short colours", false, 3, 2, QEL_STATUS_ILLEGAL_STATE},
          Case{"short coordinates", true, 3, 3, QEL_STATUS_ILLEGAL_STATE},
          Case{"short coordinates that nothing uses", true, 3, 4, QEL_STATUS_OK}}) {
        Square square;
        square.strip = c.isList ? makeList({0, 1, c.last}) : makeStrips(c.last - 2, {3});
        if (c.shortArray == 1)
            qelVertexBuffer_setNormals(square.buffer, makeArray<int8_t>(3, std::vector<int8_t>(9, 5)));
        if (c.shortArray == 2)
            qelVertexBuffer_setColors(square.buffer, makeArray<uint8_t>(4, std::vector<uint8_t>(12, 5)));
        if (c.shortArray >= 3)
            qelVertexBuffer_setTexCoords(square.buffer, 0, makeArray<int8_t>(2, std::vector<int8_t>(6, 5)), 1, nullptr);
        if (c.shortArray == 3) qelAppearance_setTexture(square.appearance, 0, texture);
        glRecorder.draws.clear();
        EXPECT_EQ(tryDraw(square), c.result) << c.what;
        EXPECT_THAT(glRecorder.draws, SizeIs(c.result == QEL_STATUS_OK ? 1 : 0)) << c.what;
    }
}
