// A host with one small figure of five parts, drawing to a recorded OpenGL ES.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <stdexcept>
#include <string>
#include <vector>

#include "frame/allocator.h"
#include "render/render_context.h"
#include "tests/support/counting_heap.h"
#include "tests/support/gl_recorder.h"
#include "tools/encode/bmp_encoder.h"
#include "tools/encode/mb_encoder.h"
#include "tools/encode/mt_encoder.h"

constexpr int32_t fixed(double value) { return int32_t(value * 4096); }

// The submeshes, told apart by the height of their vertices: hundreds of model units.
enum FigurePart : int { Body, Badge, Glass, Flag, Patch };

// Body: a lit, textured square, (-64, 0) to (64, 64). Badge: an opaque colour triangle. Glass (pattern 1): half
// transparent, with the second texture. Flag (pattern 2): an added colour triangle, two-sided. Patch (pattern 1): looks
// like the body and shares its appearance.
inline encode::MbFigure stageFigure() {
    encode::MbFigure figure;
    const auto addVertex = [&figure](int x, int y) {
        figure.vertices.push_back({{int16_t(x), int16_t(y), 0}, {0, 0, -1}, 0});
    };
    for (const int corner : {0, 1, 2, 3}) addVertex(corner % 2 ? 64 : -64, corner / 2 * 64);
    for (const int part : {Badge, Glass, Flag, Patch})
        for (const auto& [x, y] : {std::pair{0, 0}, {9, 0}, {0, 9}}) addVertex(x, 100 * part + y);
    figure.bones = {{.name = "root"}};
    const encode::MbStyle half = {.blend = encode::MbBlend::Half},
                          add = {.twoSided = true, .blend = encode::MbBlend::Add};
    figure.polygons = {{.corners = {{0, 0, 0}, {1, 8, 0}, {2, 0, 8}, {3, 8, 8}}, .style = {.lit = true}},
                       {.corners = {{4}, {5}, {6}}, .color = encode::Rgb{200, 100, 50}},
                       {.corners = {{7, 0, 0}, {8, 4, 0}, {9, 0, 4}}, .style = half, .pattern = 1, .texture = 1},
                       {.corners = {{10}, {11}, {12}}, .style = add, .pattern = 2, .color = encode::Rgb{0, 0, 255}},
                       {.corners = {{13, 0, 0}, {14, 4, 0}, {15, 0, 4}}, .style = {.lit = true}, .pattern = 1}};
    return figure;
}

// Action 0 goes 640 to the right in ten frames and shows the glass; action 1 stands still.
inline encode::MtTable stageActions() {
    const encode::MtTranslateDirectionRoll walk = {{{0, 0, 0, 0}, {10, 640, 0, 0}}, {{0, 0, 0, 4096}}, {{0, 0}}};
    return {.boneCount = 1,
            .actions = {{"walk", 10, {walk}, {{0, 1u << 1}}}, {"stand", 5, {encode::MtUnchanged{}}, {{0, 0}}}}};
}

inline K8Handle* loadHandle(const encode::EncodedFile& file, K8Allocator* allocator) {
    return K8Loader_loadObject(int32_t(file.bytes.size()), file.bytes.data(), allocator);
}

struct StageContent {
    static constexpr int32_t kWidth = 160, kHeight = 120;

    K8Allocator* allocator;
    K8Figure* figure;
    K8ActionTable* actions;
    std::array<K8Texture*, 3> textures;  // of 8 x 8 texels; the third is a second map
    std::array<K8Light*, 10> lights{};
    K8Fog* fog;
    K8Transform place;  // ten units away
    K8RenderParams params{};

    explicit StageContent(K8Allocator* blocks) : allocator(blocks) {
        figure = reinterpret_cast<K8Figure*>(loadHandle(encode::encodeMb(stageFigure()), blocks));
        actions = reinterpret_cast<K8ActionTable*>(loadHandle(encode::encodeMt(stageActions()), blocks));
        for (size_t i = 0; i < textures.size(); ++i) {
            encode::BmpImage image = {.width = 8, .height = 8, .palette = {{}, {9, 8, 7}}};
            image.indices.assign(64, uint8_t(i % 2));
            textures[i] = reinterpret_cast<K8Texture*>(loadHandle(encode::encodeBmp(image), blocks));
        }
        for (size_t i = 0; i < lights.size(); ++i) {
            lights[i] = K8Light_create(nullptr, blocks);
            const K8LightInfo info = {{0, 0, 0}, {0, 0, -4096}};
            K8Light_setTmpData(lights[i], &info);
            K8Light_setColor(lights[i], uint32_t(i + 1));
        }
        fog = K8Fog_create(nullptr, blocks);
        K8Transform_create(&place, blocks);
        K8Transform_translate(&place, 0, 0, fixed(10));
        params.projection = K8_PROJECTION_PERSPECTIVE_ANGLE;
        params.screenWidth = kWidth;
        params.screenHeight = kHeight;
        params.nearDistance = fixed(1);
        params.farDistance = fixed(100);
        params.verticalAngle = fixed(60);
        params.lights = lights.data();
    }
    ~StageContent() { destroyHandles(); }
    StageContent(const StageContent&) = delete;
    StageContent& operator=(const StageContent&) = delete;

    void destroyHandles() {
        K8Figure_destroy(std::exchange(figure, nullptr));
        K8ActionTable_destroy(std::exchange(actions, nullptr));
        for (K8Texture*& texture : textures) K8Texture_destroy(std::exchange(texture, nullptr));
        for (K8Light*& light : lights) K8Light_destroy(std::exchange(light, nullptr));
        K8Fog_destroy(std::exchange(fog, nullptr));
    }

    // Changes the figure's info as a host does.
    template <typename Change>
    void set(Change change) const {
        K8FigureInfo info = *figure->info;
        change(info);
        EXPECT_TRUE(K8Figure_setTmpData(figure, &info));
    }
    void setTextures(const std::vector<K8Texture*>& list) const {
        set([&](K8FigureInfo& info) {
            info.loadedTextures = K8Allocator_allocArrayOf<K8Texture*>(allocator, uint32_t(list.size()));
            std::copy(list.begin(), list.end(), info.loadedTextures);
            info.loadedTextureCount = uint16_t(list.size());
        });
    }
    static void setMode(K8Texture* texture, int16_t mode, K8Texture* secondMap = nullptr) {
        const K8TextureInfo info = {.hasSecondMap = secondMap != nullptr, .textureMode = mode, .secondMap = secondMap};
        EXPECT_TRUE(K8Texture_setTmpData(texture, &info));
    }
    void setLight(size_t index, const K8LightInfo& info) const {
        EXPECT_TRUE(K8Light_setTmpData(lights[index], &info));
    }

    bool bind(K8Render* render) const {
        static int surface;
        return K8Render_bind(render, &surface, kWidth, kHeight, kWidth, 0, 0, kWidth, kHeight);
    }
    bool queue(K8Render* render) const { return K8Render_render3D(render, &params, &figure->header, &place); }
    static bool flush(K8Render* render) { return K8Render_flush(render, 0, 0, kWidth, kHeight); }
};

struct DrawnPart : GlDrawn {
    FigurePart part;
};

inline const DrawnPart& firstOf(const std::vector<DrawnPart>& drawn, FigurePart part) {
    const auto found = std::ranges::find(drawn, part, &DrawnPart::part);
    if (found == drawn.end()) throw std::out_of_range("the part was not drawn");
    return *found;
}

class FigureTest : public testing::Test {
protected:
    FigureTest() {
        render = K8Render_create(nullptr, host.get());
        content.bind(render);
        content.setTextures({content.textures[0], content.textures[1]});
        K8ErrStorage_setErrorStatus(kNoStatus);
        glRecorder.take();
    }
    ~FigureTest() override {
        K8Render_destroy(render);
        content.destroyHandles();
        EXPECT_TRUE(glRecorder.liveTextures.empty()) << "OpenGL ES textures left behind";
    }

    static constexpr int32_t kNoStatus = 77;  // none that the library stores
    static int32_t takeStatus() {
        const int32_t status = K8ErrStorage_getErrorStatus();
        K8ErrStorage_setErrorStatus(kNoStatus);
        return status;
    }

    K8Transform* moved(double x, double y, double z) {
        K8Transform* transform = K8Transform_create(&transforms.emplace_back(), host.get());
        K8Transform_translate(transform, fixed(x), fixed(y), fixed(z));
        return transform;
    }
    static K8Transform product(const std::vector<const K8Transform*>& factors) {
        K8Transform result = *factors[0];
        for (size_t i = 1; i < factors.size(); ++i) K8Transform_multiply(&result, factors[i]);
        return result;
    }

    bool queue() { return content.queue(render); }
    std::vector<DrawnPart> flush() {
        glRecorder.draws.clear();
        glRecorder.take();
        EXPECT_TRUE(StageContent::flush(render));
        std::vector<DrawnPart> drawn;
        for (const GlDrawn& each : glRecorder.takeDraws())
            drawn.push_back({each, FigurePart(int(each.draw.positions[0][1]) / 100)});
        return drawn;
    }
    std::vector<DrawnPart> queueAndFlush() {
        EXPECT_TRUE(queue());
        return flush();
    }
    // Everything that a flush sends.
    GlLines flushLines() {
        glRecorder.take();
        EXPECT_TRUE(StageContent::flush(render));
        return glRecorder.take();
    }
    GlLines traced() {
        EXPECT_TRUE(queue());
        return flushLines();
    }

private:
    const bool recorderIsFresh = (glRecorder.reset(), true);

protected:
    CountingHeap heap;
    CountingAllocator host;
    StageContent content{host.get()};
    K8Render* render;
    std::deque<K8Transform> transforms;
};

// Runs scenario(host, counter, failAt) with its 0th, 1st, 2nd... allocation failing, of the engine and then of the
// host, until one says that it did not reach the failure. The scenario arms the counter once it has set up.
template <typename Scenario>
void sweepAllocations(Scenario scenario) {
    for (const bool isEngine : {true, false}) {
        int32_t failAt = 0;
        for (bool failed = true; failed && !testing::Test::HasFailure(); ++failAt) {
            SCOPED_TRACE((isEngine ? "engine allocation " : "host allocation ") + std::to_string(failAt));
            glRecorder.reset();
            CountingHeap heap;
            CountingAllocator host;
            failed = scenario(host.get(), isEngine ? static_cast<AllocationCounter&>(heap) : host, failAt);
            EXPECT_EQ(host.liveBlocks(), 0);
            EXPECT_EQ(heap.liveBlocks(), 0);
            EXPECT_TRUE(glRecorder.liveTextures.empty());
        }
        EXPECT_GT(failAt, 5) << "of each kind there are more";
    }
}

// --- Primitives and groups as a host makes them ---

// One point, line, triangle, quadrilateral or sprite near the origin, in one colour (0xRRGGBB) where it has colours.
inline K8Primitive* makePrimitive(K8Allocator* blocks, uint32_t type, int32_t color, int16_t blendMode = K8_BLEND_NONE,
                                  int32_t size = fixed(1)) {
    K8PrimitiveInfo info{};
    info.type = type;
    info.params = type == K8_PRIM_SPRITES ? K8_PRIM_SPRITE_PER_SET : K8_PRIM_COLOR_PER_SET;
    info.blendMode = blendMode;
    info.size = size;
    info.primitiveCount = 1;
    for (const int32_t kind : {K8_PRIM_POSITIONS, K8_PRIM_COLORS, K8_PRIM_SPRITE_PARAMS}) {
        const auto count = uint32_t(std::abs(K8Primitive_getLength(type, info.params, kind)));
        info.counts[kind] = count;
        info.values[kind] = K8Allocator_allocArrayOf<int32_t>(blocks, count);
    }
    for (uint32_t i = 0; i < info.counts[K8_PRIM_POSITIONS]; ++i)
        info.values[K8_PRIM_POSITIONS][i] = fixed(i % 3 == 2 ? 0 : i / 3 % 4 == i % 3 || i / 3 % 4 == 3 ? 1 : 0);
    if (info.counts[K8_PRIM_COLORS]) info.values[K8_PRIM_COLORS][0] = color;
    const int32_t sprite[] = {fixed(2), fixed(2), 0, 0, 0, fixed(8), fixed(8), 0};
    std::copy_n(sprite, info.counts[K8_PRIM_SPRITE_PARAMS], info.values[K8_PRIM_SPRITE_PARAMS]);
    K8Primitive* primitive = K8Primitive_create(nullptr, blocks);
    EXPECT_TRUE(K8Primitive_setTmpData(primitive, &info));
    return primitive;
}

inline K8Group* makeGroup(K8Allocator* blocks, const std::vector<K8Handle*>& children,
                          K8Transform* transform = nullptr) {
    K8GroupInfo info{};
    info.transform = transform;
    info.childHandleCount = uint16_t(children.size());
    info.childHandles = K8Allocator_allocArrayOf<K8Handle*>(blocks, uint32_t(children.size()));
    std::ranges::copy(children, info.childHandles);
    K8Group* group = K8Group_create(nullptr, blocks);
    EXPECT_TRUE(K8Group_setTmpData(group, &info));
    return group;
}
