// Decoding content from memory: figures, action tables, images, packages.

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "bench/ratios.h"
#include "k8.h"
#include "samples/floe/floe.h"
#include "samples/harbour/harbour.h"
#include "samples/penguin/penguin.h"
#include "tests/support/dispose.h"
#include "tools/encode/bmp_encoder.h"

using Bytes = std::vector<uint8_t>;

static void load(benchmark::State& state, const Bytes& bytes) {
    MALK8_touchMA();
    for (auto _ : state) {
        K8Handle* handle = K8Loader_loadObject(int32_t(bytes.size()), bytes.data(), &MALK8_malc);
        if (!handle) return state.SkipWithError("the content was refused");
        dispose(handle);
    }
    state.SetItemsProcessed(state.iterations() * int64_t(bytes.size()));  // items are bytes: items/us is MB/s
}

static void loadFigure(benchmark::State& state) { load(state, encodeMb(penguinFigure()).bytes); }
static void loadActions(benchmark::State& state) { load(state, encodeMt(penguinActions()).bytes); }
static void loadObjects(benchmark::State& state) { load(state, encodeK8(floePackage()).bytes); }
static void loadScene(benchmark::State& state) { load(state, encodeScenePackage(harbourScene()).bytes); }
BENCHMARK(loadFigure);
BENCHMARK(loadActions);
BENCHMARK(loadObjects);
BENCHMARK(loadScene);

// --- Images ---

constexpr uint32_t kSide = 256;

static Bytes image(uint32_t bitsPerPixel) {
    encode::BmpImage image{.width = kSide, .height = kSide, .bitsPerPixel = bitsPerPixel};
    for (uint32_t i = 0; i < 256; ++i) image.palette.push_back({uint8_t(i), uint8_t(255 - i), uint8_t(i / 2)});
    for (uint32_t i = 0; i < kSide * kSide; ++i) {
        const auto value = uint8_t((i * 2654435761u) >> 24);
        image.indices.push_back(value);
        image.pixels.push_back({value, uint8_t(value * 3), uint8_t(value * 7)});
    }
    // An image has either palette and indices, or pixels.
    if (bitsPerPixel == 24) {
        image.palette.clear();
        image.indices.clear();
    } else {
        image.pixels.clear();
    }
    return encodeBmp(image).bytes;
}

static void loadImage(benchmark::State& state) { load(state, image(uint32_t(state.range(0)))); }

// The yardstick: the file's pixel bytes, row by row from the last one, into memory that is there already.
static void copyRows(benchmark::State& state) {
    const Bytes bytes = image(uint32_t(state.range(0)));
    const size_t rowBytes = kSide * size_t(state.range(0)) / 8;
    const uint8_t* pixels = bytes.data() + bytes.size() - rowBytes * kSide;
    Bytes copy(rowBytes * kSide);
    for (auto _ : state) {
        for (size_t row = 0; row < kSide; ++row)
            memcpy(copy.data() + (kSide - 1 - row) * rowBytes, pixels + row * rowBytes, rowBytes);
        benchmark::ClobberMemory();
    }
}

BENCHMARK(loadImage)->Arg(8)->Arg(24);
BENCHMARK(copyRows)->Arg(8)->Arg(24);

[[maybe_unused]] static const bool kExpected[] = {
    expectRatio("load an 8-bit image, 256 x 256, to copying its rows", "loadImage/8", "copyRows/8", RatioBound::AtMost,
                3),
    expectRatio("load a 24-bit image, 256 x 256, to copying its rows", "loadImage/24", "copyRows/24",
                RatioBound::AtMost, 6),
};
