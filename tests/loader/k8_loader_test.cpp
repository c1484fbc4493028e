#include <gtest/gtest.h>

#include "frame/error_status.h"
#include "loader/act_table.h"
#include "scene/figure_mesh.h"
#include "scene/texture2d.h"
#include "tests/loader/content.h"
#include "tests/loader/small_files.h"
#include "tests/support/counting_heap.h"

namespace {

ByteList figureFile() { return encode::smallFigure().bytes; }
ByteList tableFile() { return encode::smallTable().bytes; }
ByteList textureFile() { return encode::smallTexture().bytes; }

K8Handle* load(const ByteList& file, K8Allocator* allocator) {
    const HeapCopy copy(file);
    return K8Loader_loadObject(int32_t(copy.size()), copy.data(), allocator);
}

TEST(K8Loader, AFigureIsOpaqueAndChangeable) {
    CountingHeap heap;
    CountingAllocator host;
    auto* figure = reinterpret_cast<K8Figure*>(load(figureFile(), host.get()));
    ASSERT_NE(figure, nullptr);
    EXPECT_EQ(figure->header.classId, K8_CLASS_FIGURE);
    EXPECT_EQ(figure->header.allocator, host.get());
    EXPECT_EQ(figure->header.object->classId, ClassId::FigureMesh);
    EXPECT_EQ(figure->header.object->refCount, 1);
    const K8FigureInfo& info = *figure->info;
    EXPECT_EQ(info.transparency, 409600);
    EXPECT_EQ(info.canChangeTextures, 1);
    EXPECT_EQ(info.canChangeAction, 1);
    EXPECT_EQ(info.frame, 0);
    EXPECT_EQ(info.perspectiveCorrection, 0);
    EXPECT_EQ(info.blendMode, 0);
    EXPECT_EQ(info.action, 0u);
    EXPECT_EQ(info.pattern, 0u);
    EXPECT_EQ(info.loadedTextureCount, 0);
    EXPECT_EQ(info.loadedTextures, nullptr);
    EXPECT_EQ(info.loadedAction, nullptr);
    EXPECT_EQ(info.textureIndices, nullptr);
    EXPECT_EQ(host.liveBlocks(), 2) << "the handle and its record";
    K8Figure_destroy(figure);
}

TEST(K8Loader, AnActionTableHasNoRecord) {
    CountingHeap heap;
    CountingAllocator host;
    K8Handle* table = load(tableFile(), host.get());
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->classId, K8_CLASS_ACTION_TABLE);
    EXPECT_EQ(table->object->classId, ClassId::ActTable);
    EXPECT_EQ(static_cast<ActTable*>(table->object)->frameCounts[0], 3 << 16);
    EXPECT_EQ(host.liveBlocks(), 1);
    K8Object3D_destroy(table);
}

TEST(K8Loader, ATextureIsPaddedAndHasARecordOfZeros) {
    CountingHeap heap;
    CountingAllocator host;
    auto* texture = reinterpret_cast<K8Texture*>(load(textureFile(), host.get()));
    ASSERT_NE(texture, nullptr);
    EXPECT_EQ(texture->header.classId, K8_CLASS_TEXTURE);
    EXPECT_EQ(texture->keepsBlending, 0);
    EXPECT_EQ(texture->info->hasSecondMap, 0);
    EXPECT_EQ(texture->info->textureMode, 0);
    EXPECT_EQ(texture->info->secondMap, nullptr);
    const auto* object = static_cast<Texture2D*>(texture->header.object);
    EXPECT_EQ(object->refCount, 1);
    EXPECT_EQ(object->image->refCount, 1) << "held by the texture alone";
    EXPECT_EQ(object->image->width, 4);
    K8Texture_destroy(texture);
}

TEST(K8Loader, RefusesWhatIsNoContent) {
    MALK8_touchMA();
    qelStatus_set(QEL_STATUS_OK);  // an exhaustion of long ago would show in what fails before it allocates
    const ByteList figure = figureFile();
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

TEST(K8Loader, SuccessLeavesTheStatusAlone) {
    MALK8_touchMA();
    for (const ByteList& file : {figureFile(), tableFile(), textureFile()}) {
        K8ErrStorage_setErrorStatus(77);
        K8Handle* handle = load(file, &MALK8_malc);
        EXPECT_NE(handle, nullptr);
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), 77);
        K8Object3D_destroy(handle);
    }
}

TEST(K8Loader, ATruncatedFileFailsAndLeavesNothing) {
    qelStatus_set(QEL_STATUS_OK);
    CountingHeap heap;
    CountingAllocator host;
    for (const ByteList& file : {figureFile(), tableFile(), textureFile()})
        for (size_t length = 2; length < file.size(); ++length) {
            const HeapCopy copy(file, length);
            K8ErrStorage_setErrorStatus(77);
            EXPECT_EQ(K8Loader_loadObject(int32_t(length), copy.data(), host.get()), nullptr) << length;
            EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE) << length;
            EXPECT_EQ(heap.liveBlocks() + host.liveBlocks(), 0) << length;
        }
}

// One load, and the same load again once there is memory.
void expectOutOfMemory(const ByteList& file, K8Allocator* host, const AllocationCounter& counter, FailMode mode) {
    K8ErrStorage_setErrorStatus(77);
    K8Handle* handle = load(file, host);
    EXPECT_EQ(handle == nullptr, counter.hasFailed());
    if (!handle) {
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_OUT_OF_MEMORY);
        EXPECT_EQ(counter.liveBlocks(), 0);
        handle = load(file, host);
        EXPECT_EQ(handle != nullptr, mode == FailMode::Once);
    }
    K8Object3D_destroy(handle);
}

TEST(K8Loader, ReportsExhaustedMemoryWhereverItHappens) {
    for (const ByteList& file : {figureFile(), tableFile(), textureFile()})
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
