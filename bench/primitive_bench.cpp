// Queueing and flushing primitives of all types, over an OpenGL ES that only counts. Every item is queued by a call of
// its own; the time of an item must not grow with their number.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "bench/ratios.h"
#include "k8.h"

constexpr int32_t kSide = 480;
constexpr uint32_t kPrimitivesPerItem = 8;

struct Kind {
    uint32_t type, params;
    int16_t blendMode;
};
constexpr Kind kKinds[] = {
    {K8_PRIM_POINTS, K8_PRIM_COLOR_PER_PRIMITIVE, K8_BLEND_NONE},
    {K8_PRIM_LINES, K8_PRIM_COLOR_PER_SET, K8_BLEND_ALPHA},
    {K8_PRIM_TRIANGLES, K8_PRIM_COLOR_PER_PRIMITIVE | K8_PRIM_NORMAL_PER_PRIMITIVE, K8_BLEND_NONE},
    {K8_PRIM_QUADS, K8_PRIM_TEXTURE_PER_VERTEX | K8_PRIM_NORMAL_PER_VERTEX, K8_BLEND_NONE},
    {K8_PRIM_SPRITES, K8_PRIM_SPRITE_PER_SET, K8_BLEND_ADDITIVE},
};

static int32_t valueFor(int32_t kind, uint32_t index) {
    constexpr int32_t kUnit = 4096;
    if (kind == K8_PRIM_COLORS) return int32_t(index * 0x10305);
    return int32_t(index % 7) * kUnit + (kind == K8_PRIM_POSITIONS && index % 3 == 2 ? 40 * kUnit : 0);
}

static K8Primitive* makePrimitive(const Kind& kind) {
    K8PrimitiveInfo info = {};
    info.blendMode = kind.blendMode;
    info.size = 100 * 4096;
    info.type = kind.type;
    info.params = kind.params;
    info.primitiveCount = kPrimitivesPerItem;
    for (int32_t array = 0; array < 5; ++array) {
        const int32_t length = K8Primitive_getLength(kind.type, kind.params, array);
        const uint32_t count = length < 0 ? uint32_t(-length) : uint32_t(length) * kPrimitivesPerItem;
        if (count == 0) continue;
        info.counts[array] = count;
        info.values[array] =
            static_cast<int32_t*>(MALK8_malc.functions->alloc(&MALK8_malc, int32_t(count * sizeof(int32_t))));
        for (uint32_t i = 0; i < count; ++i) info.values[array][i] = valueFor(array, i);
    }
    K8Primitive* primitive = K8Primitive_create(nullptr, &MALK8_malc);
    K8Primitive_setTmpData(primitive, &info);
    return primitive;
}

struct Heap {
    Heap() {
        MALK8_touchMA();
        for (const Kind& kind : kKinds) primitives.push_back(makePrimitive(kind));
        render = K8Render_create(nullptr, &MALK8_malc);
        K8Render_bind(render, this, kSide, kSide, kSide, 0, 0, kSide, kSide);
        params = {};
        params.projection = K8_PROJECTION_PERSPECTIVE_ANGLE;
        params.nearDistance = 4096;
        params.farDistance = 400 << 12;
        params.verticalAngle = 40 << 12;
    }
    ~Heap() {
        K8Render_destroy(render);
        for (K8Primitive* primitive : primitives) K8Primitive_destroy(primitive);
    }
    bool drawItems(int64_t count) {
        for (int64_t i = 0; i < count; ++i)
            if (!K8Render_render3D(render, &params, &primitives[size_t(i) % primitives.size()]->header, nullptr))
                return false;
        return K8Render_flush(render, 0, 0, kSide, kSide);
    }

    std::vector<K8Primitive*> primitives;
    K8Render* render;
    K8RenderParams params;
};

static void drawPrimitives(benchmark::State& state) {
    Heap heap;
    for (auto _ : state)
        if (!heap.drawItems(state.range(0))) return state.SkipWithError("drawing failed");
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(drawPrimitives)->Arg(100)->Arg(1000)->Arg(2000);

[[maybe_unused]] static const bool kExpected[] = {
    expectRatio("queue and flush 1000 primitives, to 100 of them", "drawPrimitives/1000", "drawPrimitives/100",
                RatioBound::AtMost, 12),
    expectRatio("queue and flush 2000 primitives, to 1000 of them", "drawPrimitives/2000", "drawPrimitives/1000",
                RatioBound::AtMost, 2.4),
};
