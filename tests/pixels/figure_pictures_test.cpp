// Pip the penguin as a host sees it: loaded from its package, posed, lit, and drawn by a real OpenGL ES.
#include <GLES/gl.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <fstream>
#include <functional>
#include <iterator>
#include <numbers>
#include <span>

#include "k8.h"
#include "tests/pixels/golden_picture.h"
#include "tests/support/counting_heap.h"
#include "tools/gl_surface.h"

namespace {

constexpr int kSide = 160;

int32_t fixed(double value) { return int32_t(std::lround(value * 4096)); }

class Scene {
public:
    Scene() {
        K8Light_setMode(lights[0], K8_LIGHT_AMBIENT);
        K8Light_setIntensity(lights[0], fixed(0.4));
        placeLight(0, {}, {});
        placeLight(1, {}, {-0.5, -0.7, -0.6});
        K8Transform_create(&place, host.get());
        params.projection = K8_PROJECTION_PERSPECTIVE_ANGLE;
        params.screenWidth = params.screenHeight = kSide;
        params.nearDistance = fixed(15);
        params.farDistance = fixed(120);
        params.verticalAngle = fixed(36);
        params.lightCount = 2;
        params.lights = lights.data();
        EXPECT_TRUE(K8Render_bind(render, this, kSide, kSide, kSide, 0, 0, kSide, kSide));
        setInfo([](K8FigureInfo& info) { info.loadedAction = nullptr; });  // rests until it is posed
        look(28, 14);
    }
    ~Scene() {
        K8Render_destroy(render);
        for (K8Handle* handle : std::initializer_list<K8Handle*>{&actions->header, &fog->header, &textures[0]->header,
                                                                 &textures[1]->header, &lights[0]->header,
                                                                 &lights[1]->header, &figure->header})
            K8Object3D_destroy(handle);
    }

    template <typename Change>
    void setInfo(Change change) {
        K8FigureInfo info = *figure->info;
        change(info);
        EXPECT_TRUE(K8Figure_setTmpData(figure, &info));
    }
    void pose(uint32_t action, double frame) {
        setInfo([&](K8FigureInfo& info) {
            info.loadedAction = actions;
            info.action = action;
            info.frame = int32_t(frame * 65536);
        });
    }
    void placeLight(size_t index, std::array<double, 3> position, std::array<double, 3> direction) {
        K8LightInfo info;
        for (size_t i = 0; i < 3; ++i) {
            info.position[i] = fixed(position[i]);
            info.direction[i] = fixed(direction[i]);
        }
        EXPECT_TRUE(K8Light_setTmpData(lights[index], &info));
    }
    // From around the figure's middle, in degrees.
    void look(double yaw, double pitch, double distance = 46) {
        const double a = yaw * std::numbers::pi / 180, b = pitch * std::numbers::pi / 180;
        const int32_t position[] = {fixed(distance * std::sin(a) * std::cos(b)), fixed(11 + distance * std::sin(b)),
                                    fixed(distance * std::cos(a) * std::cos(b))};
        const int32_t towards[] = {-position[0], fixed(11) - position[1], -position[2]}, up[] = {0, fixed(1), 0};
        K8Transform_setIdentity(&place);
        K8Transform_lookAt(&place, position, towards, up);
    }
    void queue() { EXPECT_TRUE(K8Render_render3D(render, &params, &figure->header, &place)); }

    Picture draw(std::array<int32_t, 4> area = {0, 0, kSide, kSide}) {
        glClearColor(0.55f, 0.65f, 0.75f, 1);
        glClear(GL_COLOR_BUFFER_BIT);
        EXPECT_TRUE(K8Render_flush(render, area[0], area[1], area[2], area[3]));
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        return {kSide, kSide, surface->readPixels()};
    }

private:
    K8Figure* load() {
        std::ifstream in(K8_SAMPLE, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
        K8Handle* handle = K8Loader_loadObject(int32_t(bytes.size()), bytes.data(), host.get());
        EXPECT_NE(handle, nullptr) << K8_SAMPLE;
        return reinterpret_cast<K8Figure*>(handle);
    }

    std::unique_ptr<GlSurface> surface = GlSurface::create(kSide, kSide);
    CountingHeap heap;
    CountingAllocator host;

public:
    K8Render* render = K8Render_create(nullptr, host.get());
    K8Figure* figure = load();
    K8ActionTable* actions = K8Figure_getLoadedAction(figure);
    std::span<K8Texture*> textures{K8Figure_getLoadedTextures(figure), 2};
    K8Fog* fog = K8Fog_create(nullptr, host.get());
    std::array<K8Light*, 2> lights = {K8Light_create(nullptr, host.get()), K8Light_create(nullptr, host.get())};
    K8Transform place;
    K8RenderParams params{};
};

struct Shot {
    const char* name;
    std::function<Picture(Scene&)> draw;
    friend void PrintTo(const Shot& shot, std::ostream* out) { *out << shot.name; }
};

Picture drawOne(Scene& scene) {
    scene.queue();
    return scene.draw();
}

const Shot kShots[] = {
    {"rest", drawOne},
    {"walk",
     [](Scene& scene) {
         scene.pose(0, 7.5);
         scene.look(70, 5);
         return drawOne(scene);
     }},
    {"wave_from_behind",
     [](Scene& scene) {
         scene.pose(1, 12);
         scene.look(200, 25);
         return drawOne(scene);
     }},
    {"umbrella_shown_by_the_action",
     [](Scene& scene) {
         scene.pose(2, 14);
         scene.look(-30, 10, 85);
         return drawOne(scene);
     }},
    {"patterns_hidden_by_the_host",
     [](Scene& scene) {
         scene.pose(2, 14);
         scene.setInfo([](K8FigureInfo& info) { info.action |= 0x80000000; });
         EXPECT_TRUE(K8Figure_setPattern(scene.figure, 0));
         return drawOne(scene);
     }},
    {"two_in_fog",
     [](Scene& scene) {
         K8Fog_setLinear(scene.fog, fixed(35), fixed(90));
         K8Fog_setColor(scene.fog, 0x8CA6BF);
         scene.params.fog = scene.fog;
         scene.pose(1, 20);
         scene.look(0, 8);
         K8Transform_translate(&scene.place, fixed(-9), 0, fixed(-25));  // behind the other and partly hidden
         scene.queue();
         scene.pose(0, 3);
         scene.look(-20, 8);
         scene.queue();
         return scene.draw();
     }},
    {"transparent",
     [](Scene& scene) {
         scene.setInfo([](K8FigureInfo& info) {
             info.blendMode = K8_BLEND_ALPHA;
             info.transparency = fixed(45);
         });
         return drawOne(scene);
     }},
    {"additive",
     [](Scene& scene) {
         scene.setInfo([](K8FigureInfo& info) {
             info.blendMode = K8_BLEND_ADDITIVE;
             info.transparency = fixed(60);
         });
         return drawOne(scene);
     }},
    {"parallel",
     [](Scene& scene) {
         scene.params.projection = K8_PROJECTION_PARALLEL;
         scene.look(-50, 40);
         K8Transform enlarged = scene.place;  // a unit is a pixel
         K8Transform_setIdentity(&enlarged);
         K8Transform_scale(&enlarged, fixed(5), fixed(5), fixed(5));
         K8Transform_multiply(&enlarged, &scene.place);
         scene.place = enlarged;
         return drawOne(scene);
     }},
    {"screen_in_the_near_plane",
     [](Scene& scene) {
         scene.params.projection = K8_PROJECTION_PERSPECTIVE_SIZE;
         scene.params.screenWidth = 8;  // a narrower screen than the target is high
         scene.params.screenHeight = 12;
         return drawOne(scene);
     }},
    {"lamp_and_clip",
     [](Scene& scene) {
         K8Light_setMode(scene.lights[1], K8_LIGHT_OMNI);
         K8Light_setColor(scene.lights[1], 0xFF9020);
         K8Light_setIntensity(scene.lights[1], fixed(3));
         K8Light_setAttenuation(scene.lights[1], fixed(1), fixed(0.05), 0);
         scene.placeLight(1, {12, 5, -30}, {});
         scene.queue();
         return scene.draw({30, 20, 90, 85});
     }},
    {"second_map",
     [](Scene& scene) {
         const K8TextureInfo info = {.hasSecondMap = 1, .textureMode = 0, .secondMap = scene.textures[1]};
         EXPECT_TRUE(K8Texture_setTmpData(scene.textures[0], &info));
         return drawOne(scene);
     }},
    {"texture_instead_of_light",
     [](Scene& scene) {
         const K8TextureInfo info = {.hasSecondMap = 0, .textureMode = 1, .secondMap = nullptr};
         for (K8Texture* texture : scene.textures) EXPECT_TRUE(K8Texture_setTmpData(texture, &info));
         scene.params.lightCount = 0;
         return drawOne(scene);
     }},
};

class FigurePictures : public testing::TestWithParam<Shot> {};

TEST_P(FigurePictures, LookAsBefore) {
    Scene scene;
    const Picture drawn = GetParam().draw(scene);
    expectGolden(GetParam().name, drawn);
    EXPECT_EQ(GetParam().draw(scene).rgba, drawn.rgba) << "the next frame of the same";
}

INSTANTIATE_TEST_SUITE_P(Pip, FigurePictures, testing::ValuesIn(kShots),
                         [](const auto& shot) { return std::string(shot.param.name); });

}  // namespace
