#include "scene/texture2d.h"
#include "tests/loader/full_scene.h"
#include "tests/loader/loaded.h"

namespace {

using namespace encode;

TEST(K8Loader, MakesOneHandleWithItsRecord) {
    CountingHeap heap;
    CountingAllocator host;
    K8ErrStorage_setErrorStatus(77);
    auto* figure = reinterpret_cast<K8Figure*>(load(smallFigure().bytes, host.get()));
    auto* table = reinterpret_cast<K8ActionTable*>(load(smallTable().bytes, host.get()));
    auto* texture = reinterpret_cast<K8Texture*>(load(smallTexture().bytes, host.get()));
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), 77) << "success leaves the status alone";
    ASSERT_TRUE(figure && table && texture);
    EXPECT_EQ(host.liveBlocks(), 5) << "a table has no record";
    EXPECT_EQ(K8ActionTable_getMaxFrame(table, 0), 3 << 16);
    const K8FigureInfo& info = *figure->info;
    EXPECT_EQ(all(figure->header.classId, figure->header.object->refCount, info.transparency, info.canChangeTextures,
                  info.canChangeAction, info.loadedTextureCount),
              all(K8_CLASS_FIGURE, 1, 409600, 1, 1, 0));
    EXPECT_TRUE(!info.loadedTextures && !info.loadedAction && !info.textureIndices);
    EXPECT_EQ(all(texture->header.classId, texture->keepsBlending, texture->info->hasSecondMap),
              all(K8_CLASS_TEXTURE, 0, 0));
    EXPECT_EQ(texture->info->secondMap, nullptr);
    const auto* object = static_cast<Texture2D*>(texture->header.object);
    EXPECT_EQ(object->image->refCount, 1) << "held by the texture alone";
    EXPECT_EQ(object->image->width, 4) << "padded";
    K8Figure_destroy(figure);
    K8Texture_destroy(texture);
    K8Object3D_destroy(&table->header);
}

TEST(K8Loader, RefusesWhatIsNoContent) {
    MALK8_touchMA();
    qelStatus_set(QEL_STATUS_OK);  // an exhaustion of long ago would show in what fails before it allocates
    const ByteList figure = smallFigure().bytes;
    struct Case {
        const char* what;
        int32_t size;
        const void* data;
        K8Allocator* allocator;
    };
    const auto size = int32_t(figure.size());
    for (const Case& c :
         {Case{"no size", 0, figure.data(), &MALK8_malc}, Case{"a negative size", -size, figure.data(), &MALK8_malc},
          Case{"no data", size, nullptr, &MALK8_malc}, Case{"no allocator", size, figure.data(), nullptr},
          Case{"half a magic", 1, "M", &MALK8_malc}, Case{"an unknown magic", 4, "MXab", &MALK8_malc},
          Case{"a magic backward", 4, "TMab", &MALK8_malc}, Case{"a bare MB", 2, "MB", &MALK8_malc},
          Case{"a bare MT", 2, "MT", &MALK8_malc}, Case{"a bare BM", 2, "BM", &MALK8_malc},
          Case{"a bare K8", 2, "K8", &MALK8_malc}}) {
        K8ErrStorage_setErrorStatus(77);
        EXPECT_EQ(K8Loader_loadObject(c.size, c.data, c.allocator), nullptr) << c.what;
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE) << c.what;
    }
}

// --- Every kind of content ---

std::vector<ByteList> everyContent() {
    return {smallFigure().bytes,           smallTable().bytes,
            smallTexture().bytes,          encodeK8(everyRecord()).bytes,
            encodeK8(onlyObjects()).bytes, encodeScenePackage(FullScene().scene).bytes};
}

TEST(K8Loader, TruncatedContentFailsAndLeavesNothing) {
    qelStatus_set(QEL_STATUS_OK);
    for (const ByteList& file : everyContent())
        for (size_t length = 2; length < file.size(); ++length)
            EXPECT_FALSE(loads({ByteList(file.begin(), file.begin() + int64_t(length)), {}})) << length;
}

// One load, and the same load again once there is memory.
void expectOutOfMemory(const ByteList& file, K8Allocator* host, const AllocationCounter& counter, FailMode mode) {
    K8ErrStorage_setErrorStatus(77);
    K8Handle* root = load(file, host);
    EXPECT_EQ(root == nullptr, counter.hasFailed());
    if (!root) {
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_OUT_OF_MEMORY);
        EXPECT_EQ(counter.liveBlocks(), 0);
        root = load(file, host);
        EXPECT_EQ(root != nullptr, mode == FailMode::Once);
    }
    dispose(root);
}

TEST(K8Loader, ReportsExhaustedMemoryWhereverItHappens) {
    for (const ByteList& file : everyContent())
        for (const FailMode mode : {FailMode::Once, FailMode::FromThenOn}) {
            sweepEngineAllocations(mode, [&](CountingHeap& heap) {
                CountingAllocator host;
                expectOutOfMemory(file, host.get(), heap, mode);
            });
            sweepHostAllocations(mode, [&](CountingAllocator& host) {
                CountingHeap heap;
                expectOutOfMemory(file, host.get(), host, mode);
            });
        }
}

}  // namespace
