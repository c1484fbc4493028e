// Content that was loaded as a host does it, and what every kind of it is made from.
#pragma once

#include "frame/error_status.h"
#include "tests/loader/content.h"
#include "tests/loader/small_files.h"
#include "tests/support/counting_heap.h"
#include "tests/support/dispose.h"
#include "tools/encode/k8_encoder.h"

inline K8Handle* load(const ByteList& file, K8Allocator* allocator) {
    const HeapCopy copy(file);
    return K8Loader_loadObject(int32_t(copy.size()), copy.data(), allocator);
}

template <typename Handle>
const Handle* as(const K8Handle* handle) {
    return reinterpret_cast<const Handle*>(handle);
}

// Content in memory that is watched: whatever is left when it has been disposed of fails the test.
struct Loaded {
    CountingHeap heap;
    CountingAllocator host;
    K8Handle* root;

    explicit Loaded(const ByteList& file) : root(load(file, host.get())) {}
    explicit Loaded(const encode::EncodedFile& file) : Loaded(file.bytes) {}
    ~Loaded() { dispose(root); }
    Loaded(const Loaded&) = delete;

    K8Handle* made(size_t index) const { return as<K8Group>(root)->info->childData[index]; }
};

// Whether it loads; if not, with the status of content that is not accepted, and nothing left.
inline bool loads(const encode::EncodedFile& file) {
    K8ErrStorage_setErrorStatus(77);
    const Loaded loaded(file);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), loaded.root ? 77 : K8_ERR_FAILURE);
    if (!loaded.root) {
        EXPECT_EQ(loaded.heap.liveBlocks() + loaded.host.liveBlocks(), 0);
    }
    return loaded.root != nullptr;
}

inline std::array<float, 16> matrixAt(float x) { return {1, 0, 0, x, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}; }

enum RecordPlace : uint16_t { Figure, Texture, Table, Spot, HaloFog, Haze, Quads, Sprites, RecordCount };

inline encode::K8Package everyRecord() {
    using namespace encode;
    K8Package package;
    package.objects = {
        K8FigureRecord{smallFigure(), Table, {Texture, 0, Texture}},
        K8TextureRecord{smallTexture()},
        K8ActionTableRecord{smallTable()},
        K8LightRecord{.mode = 131,
                      .color = 0x123456,
                      .position = {1, -2, 0.5f},
                      .direction = {0, 1.0f / 3, -1},
                      .attenuation = {0.5f, 0.25f, 2},
                      .intensity = 1.5f,
                      .spotAngle = 30,
                      .spotExponent = 8},
        K8FogRecord{.mode = 80, .color = 0xABCDEF, .density = 0.75f},
        K8FogRecord{.mode = 81, .color = 0x010203, .near = 2, .far = 30},
        K8PrimitiveRecord{.type = 4, .params = 0x300, .count = 1, .values = {{{1, -2}, {3}, {}, {4}, {5, 6, 7}}}},
        K8PrimitiveRecord{.type = 5 << 24, .params = 0x1011, .count = 2, .values = {{{8}, {}, {9}, {}, {}}}}};
    package.groups = {
        {{{.isGroup = true, .index = 1, .transform = matrixAt(1.0f / 3)}, {.index = Spot}, {.index = Figure}}},
        {{{.isGroup = true, .index = 2}, {.index = Quads}, {.isGroup = true, .index = 2}}},
        {{{.index = Figure}}},
        {}};
    return package;
}

// The same objects without groups, the figure first.
inline encode::K8Package onlyObjects() {
    encode::K8Package package = everyRecord();
    package.groups.clear();
    return package;
}
