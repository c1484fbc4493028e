// Packages as a host sees them: loaded, seen through a camera, drawn by a real OpenGL ES.
#include <GLES/gl.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

#include "k8.h"
#include "tests/pixels/golden_picture.h"
#include "tests/support/counting_heap.h"
#include "tests/support/dispose.h"
#include "tools/gl_surface.h"

namespace {

constexpr int kSide = 200;

int32_t fixed(double value) { return int32_t(std::lround(value * 4096)); }

struct Camera {
    double yaw, pitch, distance;
    std::array<double, 3> target;
    double opening;
};
constexpr Camera kFloeCamera = {8, 9, 170, {0, 38, -20}, 50}, kHarbourCamera = {10, 12, 70, {-3, 9, -10}, 45};

class Stage {
    std::unique_ptr<GlSurface> surface = GlSurface::create(kSide, kSide);
    CountingHeap heap;
    CountingAllocator host;

public:
    K8Render* render = K8Render_create(nullptr, host.get());
    K8Handle* root = nullptr;
    K8Transform view;
    K8RenderParams params;

    Stage() {
        K8Transform_create(&view, host.get());
        params = {};
        params.projection = K8_PROJECTION_PERSPECTIVE_ANGLE;
        params.screenWidth = params.screenHeight = kSide;
        params.nearDistance = fixed(4);
        params.farDistance = fixed(800);
        params.viewingTransform = &view;
        EXPECT_TRUE(K8Render_bind(render, this, kSide, kSide, kSide, 0, 0, kSide, kSide));
    }
    ~Stage() {
        K8Render_destroy(render);
        dispose(root);
    }

    void load(const char* name) {
        if (root) return;
        std::ifstream in(std::string(K8_SAMPLES) + "/" + name + "/content/" + name + ".k8", std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
        root = K8Loader_loadObject(int32_t(bytes.size()), bytes.data(), host.get());
        ASSERT_NE(root, nullptr) << name;
    }
    void look(const Camera& camera) {
        const double a = camera.yaw * std::numbers::pi / 180, b = camera.pitch * std::numbers::pi / 180;
        const double away[] = {std::sin(a) * std::cos(b), std::sin(b), std::cos(a) * std::cos(b)};
        int32_t position[3], towards[3];
        for (size_t i = 0; i < 3; ++i) {
            position[i] = fixed(camera.target[i] + camera.distance * away[i]);
            towards[i] = fixed(-away[i]);
        }
        const int32_t up[] = {0, fixed(1), 0};
        K8Transform_lookAt(&view, position, towards, up);
        params.verticalAngle = fixed(camera.opening);
    }
    // Every figure below the root.
    template <typename Change>
    void changeFigures(Change change) {
        for (K8Handle** handle = group()->info->childData; *handle; ++handle) {
            if ((*handle)->classId != K8_CLASS_FIGURE) continue;
            auto* figure = reinterpret_cast<K8Figure*>(*handle);
            K8FigureInfo info = *figure->info;
            change(info);
            EXPECT_TRUE(K8Figure_setTmpData(figure, &info));
        }
    }
    void setTime(int32_t milliseconds) {
        K8GroupInfo info = *group()->info;
        info.frame = milliseconds;
        EXPECT_TRUE(K8Group_setTmpData(group(), &info));
    }
    void queueRoot() { EXPECT_TRUE(K8Render_render3D(render, &params, root, nullptr)); }
    Picture flush() {
        glClearColor(0.15f, 0.2f, 0.35f, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        EXPECT_TRUE(K8Render_flush(render, 0, 0, kSide, kSide));
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        return {kSide, kSide, surface->readPixels()};
    }
    Picture draw() {
        queueRoot();
        return flush();
    }

    // A primitive of the host's, queued and destroyed at once.
    void queue(K8PrimitiveInfo info, std::initializer_list<std::vector<int32_t>> arrays) {
        K8Primitive* handle = K8Primitive_create(nullptr, host.get());
        size_t kind = 0;
        for (const std::vector<int32_t>& values : arrays) {
            info.counts[kind] = uint32_t(values.size());
            if (!values.empty()) {
                const size_t bytes = values.size() * sizeof(int32_t);
                info.values[kind] = static_cast<int32_t*>(host.get()->functions->alloc(host.get(), int32_t(bytes)));
                std::memcpy(info.values[kind], values.data(), bytes);
            }
            ++kind;
        }
        EXPECT_TRUE(K8Primitive_setTmpData(handle, &info));
        EXPECT_TRUE(K8Render_render3D(render, &params, &handle->header, nullptr));
        K8Primitive_destroy(handle);
    }
    // The first texture of the package.
    K8Texture* texture() const {
        K8Handle** handle = group()->info->childData;
        while (*handle && (*handle)->classId != K8_CLASS_TEXTURE) ++handle;
        return reinterpret_cast<K8Texture*>(*handle);
    }

private:
    K8Group* group() const { return reinterpret_cast<K8Group*>(root); }
};

struct Shot {
    const char* name;
    std::function<Picture(Stage&)> draw;
    friend void PrintTo(const Shot& shot, std::ostream* out) { *out << shot.name; }
};

Picture drawHarbour(Stage& stage, int32_t milliseconds) {
    stage.load("harbour");
    stage.look(kHarbourCamera);
    stage.setTime(milliseconds);
    return stage.draw();
}

// Coordinates in units for everything but texels and sprites.
std::vector<int32_t> units(std::initializer_list<double> values) {
    std::vector<int32_t> out;
    for (const double value : values) out.push_back(fixed(value));
    return out;
}

// Flat before the camera, which looks along z from 60 units away: what blends, what is cut out, and what is not.
Picture drawPrimitives(Stage& stage) {
    stage.load("floe");
    K8Texture* const texture = stage.texture();
    stage.look({0, 0, 60, {0, 0, 0}, 40});
    const auto info = [](uint32_t type, uint32_t params, int16_t blendMode = 0, K8Texture* map = nullptr) {
        K8PrimitiveInfo out = {};
        out.perspectiveCorrection = 1;
        out.blendMode = blendMode;
        out.size = fixed(100);
        out.texture = map;
        out.type = type;
        out.params = params;
        return out;
    };
    stage.queue(info(K8_PRIM_QUADS, K8_PRIM_TEXTURE_PER_VERTEX | K8_PRIM_ALPHA_TEST, 0, texture),
                {units({-20, 20, 0, 0, 20, 0, 0, 0, 0, -20, 0, 0}), {}, {}, units({0, 0, 64, 0, 64, 64, 0, 64})});
    stage.queue(info(K8_PRIM_TRIANGLES, K8_PRIM_COLOR_PER_PRIMITIVE),
                {units({2, 2, 0, 18, 2, 0, 10, 18, 0, 4, 14, -2, 16, 14, -2, 10, 4, 4}), {}, {0xE04030, 0x40C060}});
    stage.queue(info(K8_PRIM_QUADS, K8_PRIM_COLOR_PER_SET, K8_BLEND_ALPHA),
                {units({-14, 6, 6, 12, 6, 6, 12, -6, 6, -14, -6, 6}), {}, {0x3060F0}});
    stage.queue(info(K8_PRIM_TRIANGLES, K8_PRIM_COLOR_PER_SET, K8_BLEND_ADDITIVE),
                {units({-20, -2, 8, 0, -18, 8, -4, 10, 8}), {}, {0x604020}});
    stage.queue(info(K8_PRIM_LINES, K8_PRIM_COLOR_PER_PRIMITIVE),
                {units({-20, -20, 0, 20, -14, 0, -20, -14, 0, 20, -20, 0}), {}, {0xFFFFFF, 0xFFFF00}});
    constexpr int32_t kPixels = K8_SPRITE_IN_PIXELS | K8_SPRITE_AT_OWN_DEPTH;
    stage.queue(info(K8_PRIM_SPRITES, K8_PRIM_SPRITE_PER_PRIMITIVE | K8_PRIM_ALPHA_TEST, K8_BLEND_ALPHA, texture),
                {units({10, -9, 0, -10, -9, 0}),
                 {},
                 {},
                 {},
                 {fixed(14), fixed(14), 300, 0, 0, fixed(64), fixed(64), 0,  //
                  fixed(40), fixed(24), 3800, 0, 0, fixed(64), fixed(32), kPixels}});
    stage.queue(info(K8_PRIM_SPRITES, K8_PRIM_SPRITE_PER_SET, K8_BLEND_ADDITIVE),
                {units({14, -14, 0, 8, -16, 0}), {}, {}, {}, {fixed(9), fixed(9), 512, 0, 0, 0, 0, 0}});
    return stage.flush();
}

const Shot kShots[] = {
    {"floe",
     [](Stage& stage) {
         stage.load("floe");
         stage.look(kFloeCamera);
         stage.changeFigures([](K8FigureInfo& info) { info.frame = 9 << 16; });
         return stage.draw();
     }},
    {"primitives", drawPrimitives},
    {"harbour", [](Stage& stage) { return drawHarbour(stage, 1300); }},
    {"harbour_later", [](Stage& stage) { return drawHarbour(stage, 5900); }},
    {"harbour_of_glass",
     [](Stage& stage) {
         stage.load("harbour");
         stage.changeFigures([](K8FigureInfo& info) {
             info.blendMode = K8_BLEND_ALPHA;
             info.transparency = fixed(60);
         });
         return drawHarbour(stage, 3000);
     }},
};

class PackagePictures : public testing::TestWithParam<Shot> {};

TEST_P(PackagePictures, LookAsBefore) {
    Stage stage;
    const Picture drawn = GetParam().draw(stage);
    expectGolden(GetParam().name, drawn);
    EXPECT_EQ(GetParam().draw(stage).rgba, drawn.rgba) << "the next frame of the same";
}

INSTANTIATE_TEST_SUITE_P(Samples, PackagePictures, testing::ValuesIn(kShots),
                         [](const auto& shot) { return std::string(shot.param.name); });

}  // namespace
