// Vertex arrays, texture units and draws.
#include <climits>

#include "frame/error_status.h"
#include "tests/render/backend_fixture.h"
#include "tests/support/counting_heap.h"

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
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    Square narrow, wide;
    for (Square* square : {&narrow, &wide}) qelAppearance_setTexture(square->appearance, 0, texture);
    qelVertexBuffer_setPositions(narrow.buffer, makeArray<int8_t>(3, std::vector<int8_t>(12, -7)), 1, nullptr);
    qelVertexBuffer_setTexCoords(narrow.buffer, 0, makeArray<int8_t>(2, std::vector<int8_t>(8, -3)), 1, nullptr);
    qelVertexBuffer_setNormalsAsIs(narrow.buffer, makeArray<int8_t>(3, std::vector<int8_t>(12, 64)));
    qelVertexBuffer_setTexCoords(wide.buffer, 0, makeArray<int16_t>(3, std::vector<int16_t>(12, 300)), 1, nullptr);
    qelVertexBuffer_setNormalsAsIs(wide.buffer, makeArray<int16_t>(3, std::vector<int16_t>(12, 1000)));
    EXPECT_EQ(sent(narrow, "Pointer("),
              "TexCoordPointer(2, BYTE, 0); VertexPointer(3, BYTE, 0); NormalPointer(BYTE, 0)");
    EXPECT_EQ(sent(wide, "Pointer("),
              "TexCoordPointer(3, SHORT, 0); VertexPointer(3, SHORT, 0); NormalPointer(SHORT, 0)");
    const GlDraw& drawn = glRecorder.draws.back();
    EXPECT_EQ(drawn.normals, Vectors(4, {1000, 1000, 1000}));
    EXPECT_EQ(drawn.texCoords[0], Vectors(4, {300, 300, 300}));
    EXPECT_TRUE(drawn.texCoords[1].empty());
}

TEST_F(DrawTest, MatricesHoldCameraModelScaleAndBias) {
    Square square;
    const float bias[] = {100, 0, 0}, texelBias[] = {3, 5};
    qelVertexBuffer_setPositions(square.buffer, square.buffer->positions, 0.5f, bias);
    qelTransform_postTranslate(&square.model, 0, 20, 0);
    qelTransform view = identity;
    qelTransform_postScale(&view, 2, 2, 2);
    qelGLBackend_setCamera(backend, &view, &identity, ProjectionType::Generic);
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    square.setTexture(1, texture);
    qelVertexBuffer_setTexCoords(square.buffer, 1, square.buffer->texCoords[1], 2, texelBias);
    qelTransformable_setScale(texture.get(), 0.5f, 0.25f, 1);
    EXPECT_EQ(sent(square, "LoadMatrix"),
              "LoadMatrixf(at 0, 0, 0); LoadMatrixf({1, 0, 0, 0, 0, 0.5, 0, 0, 0, 0, 2, 0, 1.5, 1.25, 0, 1}); "
              "LoadMatrixf(at 200, 40, 0)");
}

// Wherever the textures are, only their units are on.
TEST_F(DrawTest, UnitsWithoutATextureAreSwitchedOff) {
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    for (int used = 0; used < 4; ++used) {
        Square square;
        for (int32_t unit = 0; unit < 2; ++unit)
            if (used >> unit & 1) square.setTexture(unit, texture);
        int seen = 0, unit = 0;
        for (const std::string& line : draw(square)) {
            if (line.starts_with("glActiveTexture")) unit = line == "glActiveTexture(GL_TEXTURE1)";
            if (line == "glEnable(GL_TEXTURE_2D)") seen |= 1 << unit;
            if (line == "glDisable(GL_TEXTURE_2D)") seen |= 4 << unit;
        }
        EXPECT_EQ(seen, used | (~used & 3) << 2) << used;
        const GlDraw& drawn = glRecorder.draws.back();
        for (size_t i = 0; i < 2; ++i) EXPECT_EQ(drawn.texCoords[i].size(), used >> i & 1 ? 4u : 0u) << used;
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
    EXPECT_EQ(sent(square, "Draw"), "DrawArrays(TRIANGLE_STRIP, 1, 4); DrawArrays(TRIANGLE_STRIP, 5, 3)");
    square.strip = makeList({0, 2, 7, 5});
    EXPECT_EQ(sent(square, "Draw"), "DrawElements(TRIANGLES, 6, UNSIGNED_SHORT)");
    std::vector<float> xs;
    for (const auto& position : glRecorder.draws.back().positions) xs.push_back(position[0]);
    EXPECT_EQ(xs, (std::vector<float>{0, 2, 7, 7, 2, 5}));
}

TEST_F(DrawTest, IndicesBeyondAnyArrayInUseDrawNothing) {
    enum { kNone, kNormals, kColors, kTexCoords, kUnusedTexCoords };
    struct Case {
        const char* what;
        bool isList;
        int32_t lastVertex, shortArray;
        bool fits;
    };
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    for (const Case& c :
         {Case{"strip fits", false, 3, kNone, true}, Case{"strip reaches out", false, 4, kNone, false},
          Case{"list reaches out", true, 4, kNone, false}, Case{"within short normals", true, 2, kNormals, true},
          Case{"short normals", true, 3, kNormals, false}, Case{"short colours", false, 3, kColors, false},
          Case{"short coordinates", true, 3, kTexCoords, false},
          Case{"short coordinates that nothing uses", true, 3, kUnusedTexCoords, true}}) {
        Square square;
        square.strip = c.isList ? makeList({0, 1, c.lastVertex}) : makeStrips(c.lastVertex - 2, {3});
        if (c.shortArray == kNormals)
            qelVertexBuffer_setNormals(square.buffer, makeArray<int8_t>(3, std::vector<int8_t>(9, 5)));
        if (c.shortArray == kColors)
            qelVertexBuffer_setColors(square.buffer, makeArray<uint8_t>(4, std::vector<uint8_t>(12, 5)));
        if (c.shortArray >= kTexCoords)
            qelVertexBuffer_setTexCoords(square.buffer, 0, makeArray<int8_t>(2, std::vector<int8_t>(6, 5)), 1, nullptr);
        if (c.shortArray == kTexCoords) qelAppearance_setTexture(square.appearance, 0, texture);
        glRecorder.draws.clear();
        EXPECT_EQ(tryDraw(square), c.fits ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_STATE) << c.what;
        EXPECT_EQ(glRecorder.draws.size(), c.fits ? 1u : 0u) << c.what;
    }
}
