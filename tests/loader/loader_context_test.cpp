#include "loader/loader_context.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "frame/allocator.h"
#include "scene/object3d.h"
#include "tests/support/counting_heap.h"

namespace {

TEST(LoaderContext, TheObjectTableGrowsByTwentyAndKeepsItsContents) {
    CountingHeap heap;
    LoaderContext* context = LoaderContext_create();
    std::array<Object3D, 41> objects;
    for (uint32_t i = 0; i < objects.size(); ++i) {
        ASSERT_TRUE(LoaderContext_append(context, &objects[i]));
        EXPECT_EQ(context->objectCapacity, i / 20 * 20 + 20) << i;
        EXPECT_EQ(context->rootFlags[i], 1) << i;
        if (i % 3 == 0) LoaderContext_clearRootFlag(context, i);
    }
    for (uint32_t i = 0; i < objects.size(); ++i) {
        EXPECT_EQ(context->objects[i], &objects[i]) << i;
        EXPECT_EQ(context->rootFlags[i], i % 3 != 0) << i;
    }
    LoaderContext_release(context);
    EXPECT_EQ(context->objectCount, 0u);
    EXPECT_EQ(heap.liveBlocks(), 1) << "only the context itself";
    LoaderContext_destroy(context);
}

TEST(LoaderContext, ATableThatCannotGrowKeepsWhatItHolds) {
    sweepEngineAllocations(FailMode::Once, [](CountingHeap& heap) {
        LoaderContext* context = LoaderContext_create();
        std::array<Object3D, 21> objects;
        for (Object3D& object : objects) {
            if (!context || LoaderContext_append(context, &object)) continue;
            EXPECT_TRUE(heap.hasFailed());
            EXPECT_EQ(LoaderContext_getStatus(context), QEL_STATUS_OUT_OF_MEMORY);
            const uint32_t held = context->objectCount;
            EXPECT_EQ(held, context->objectCapacity);
            EXPECT_TRUE(LoaderContext_append(context, &object)) << "memory is back";
            EXPECT_EQ(context->objectCount, held + 1);
            for (uint32_t i = 0; i <= held; ++i) EXPECT_EQ(context->objects[i], &objects[i]);
        }
        LoaderContext_destroy(context);
    });
}

TEST(LoaderContext, Refuses256ExternalNames) {
    CountingHeap heap;
    LoaderContext* context = LoaderContext_create();
    const auto makeName = [] { return qelAllocArrayOf<char>(2); };
    for (uint32_t i = 0; i < kMaxExternalNames; ++i) ASSERT_TRUE(LoaderContext_appendExternalName(context, makeName()));
    EXPECT_FALSE(LoaderContext_appendExternalName(context, makeName()));
    EXPECT_EQ(LoaderContext_getStatus(context), kStatusCorruptData);
    LoaderContext_destroy(context);
}

TEST(LoaderContext, HasAStatusEvenWithoutAContext) {
    EXPECT_EQ(LoaderContext_getStatus(nullptr), QEL_STATUS_OK);
    LoaderContext_setStatus(nullptr, kStatusCorruptData);
}

}  // namespace
