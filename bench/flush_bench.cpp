// Queueing and flushing a hundred figures, over an OpenGL ES that only counts. Each is an object of its own. Two casts: the
// sample penguin, whose thousand vertices come in up to nine submeshes, and a plain figure of 32 bones, 1000 vertices and a
// single texture with 20 keys per track, as in the benchmarks of posing and blending.

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "animation/figure_pose.h"
#include "bench/ratios.h"
#include "samples/penguin/penguin.h"
#include "scene/figure_mesh.h"
#include "tests/support/figure_fixture.h"

constexpr int kFigures = 100;
constexpr int32_t kSide = 480;

template <typename Handle>
static Handle* loadHandle(const encode::EncodedFile& file) {
    return reinterpret_cast<Handle*>(K8Loader_loadObject(int32_t(file.bytes.size()), file.bytes.data(), &MALK8_malc));
}

enum Cast { Penguins, PlainFigures };

static encode::MbFigure figureOf(Cast cast) {
    std::mt19937 random(7);
    return cast == Penguins ? penguinFigure() : randomFigure(random, {.vertexCount = 1000, .boneCount = 32});
}

static encode::MtTable actionsOf(Cast cast) {
    std::mt19937 random(8);
    return cast == Penguins
               ? penguinActions()
               : randomTable(random, {.boneCount = 32, .actionCount = 3, .frameCount = 400, .hasSharedFrames = false});
}

// Everybody at a frame of his own, lit by two lights.
struct Crowd {
    explicit Crowd(Cast cast) {
        MALK8_touchMA();
        actions = loadHandle<K8ActionTable>(encodeMt(actionsOf(cast)));
        textures[0] = loadHandle<K8Texture>(encodeBmp(penguinBodyTexture()));
        textures[1] = loadHandle<K8Texture>(encodeBmp(penguinGearTexture()));
        const encode::EncodedFile file = encodeMb(figureOf(cast));
        for (int i = 0; i < kFigures; ++i) figures.push_back(makeFigure(file, i));
        render = K8Render_create(nullptr, &MALK8_malc);
        K8Render_bind(render, this, kSide, kSide, kSide, 0, 0, kSide, kSide);
        for (K8Light*& light : lights) {
            light = K8Light_create(nullptr, &MALK8_malc);
            const K8LightInfo info = {{0, 0, 0}, {-2048, -2048, -2048}};
            K8Light_setTmpData(light, &info);
        }
        K8Light_setMode(lights[0], K8_LIGHT_AMBIENT);
    }
    ~Crowd() {
        K8Render_destroy(render);
        for (K8Light* light : lights) K8Light_destroy(light);
        for (K8Figure* figure : figures) K8Figure_destroy(figure);
        for (K8Texture* texture : textures) K8Texture_destroy(texture);
        K8ActionTable_destroy(actions);
    }
    K8Figure* makeFigure(const encode::EncodedFile& file, int number) {
        auto* figure = loadHandle<K8Figure>(file);
        K8FigureInfo info = *figure->info;
        info.loadedAction = actions;
        info.action = uint32_t(number % 3);
        info.frame = number << 14;
        info.loadedTextureCount = 2;
        info.loadedTextures =
            static_cast<K8Texture**>(MALK8_malc.functions->alloc(&MALK8_malc, 2 * sizeof(K8Texture*)));
        info.loadedTextures[0] = textures[0];
        info.loadedTextures[1] = textures[1];
        K8Figure_setTmpData(figure, &info);
        return figure;
    }
    void advance() {
        for (K8Figure* figure : figures) figure->info->frame = (figure->info->frame + (1 << 14)) % (20 << 16);
    }
    bool queue() {
        K8RenderParams params = {};
        params.projection = K8_PROJECTION_PERSPECTIVE_ANGLE;
        params.nearDistance = 4096;
        params.farDistance = 400 << 12;
        params.verticalAngle = 40 << 12;
        params.lightCount = 2;
        params.lights = lights;
        K8Transform place;
        K8Transform_create(&place, &MALK8_malc);
        K8Transform_translate(&place, 0, 0, 60 << 12);
        for (K8Figure* figure : figures)
            if (!K8Render_render3D(render, &params, &figure->header, &place)) return false;
        return true;
    }

    K8ActionTable* actions;
    K8Texture* textures[2];
    std::vector<K8Figure*> figures;
    K8Render* render;
    K8Light* lights[2];
};

static void poseCrowd(benchmark::State& state) {
    Crowd crowd(Cast(state.range(0)));
    const auto* table = reinterpret_cast<const ActTable*>(crowd.actions->header.object);
    for (auto _ : state) {
        crowd.advance();
        for (const K8Figure* figure : crowd.figures)
            D_Figure_applyAction(static_cast<FigureMesh*>(figure->header.object), table, int32_t(figure->info->action),
                                 figure->info->frame);
    }
    state.SetItemsProcessed(state.iterations() * kFigures);
}

static void queueCrowd(benchmark::State& state) {
    Crowd crowd(Cast(state.range(0)));
    for (auto _ : state)
        if (!crowd.queue() || !K8Render_clear3D(crowd.render)) return state.SkipWithError("queueing failed");
    state.SetItemsProcessed(state.iterations() * kFigures);
}

static void flushCrowd(benchmark::State& state) {
    Crowd crowd(Cast(state.range(0)));
    for (auto _ : state) {
        state.PauseTiming();
        crowd.advance();
        const bool queued = crowd.queue();
        state.ResumeTiming();
        if (!queued || !K8Render_flush(crowd.render, 0, 0, kSide, kSide)) return state.SkipWithError("drawing failed");
    }
    state.SetItemsProcessed(state.iterations() * kFigures);
}

BENCHMARK(poseCrowd)->Arg(Penguins)->Arg(PlainFigures);
BENCHMARK(queueCrowd)->Arg(Penguins)->Arg(PlainFigures);
BENCHMARK(flushCrowd)->Arg(Penguins)->Arg(PlainFigures);

// Every draw has some 40 calls to make: a penguin makes them up to nine times, for as many vertices and fewer bones.
[[maybe_unused]] static const bool kExpected[] = {
    expectRatio("flush 100 plain figures, to posing and blending them", "flushCrowd/1", "poseCrowd/1",
                RatioBound::AtMost, 1.5),
    expectRatio("flush 100 penguins, to posing and blending them", "flushCrowd/0", "poseCrowd/0", RatioBound::AtMost,
                2.5),
};
