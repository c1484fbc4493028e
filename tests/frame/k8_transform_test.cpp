#include "frame/k8_transform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "tests/support/counting_heap.h"

namespace {

using Elements = std::array<float, 16>;

constexpr Elements kCounting = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
constexpr Elements kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

K8Transform transformOf(const Elements& elements) {
    K8Transform transform;
    K8Transform_createT(&transform, &MALK8_malc, elements.data());
    return transform;
}

Elements elementsOf(const K8Transform& transform) { return std::to_array(transform.elements); }

TEST(K8Transform, LivesInHostMemoryOrInItsOwnBlock) {
    K8ErrStorage_setErrorStatus(9);
    CountingAllocator host;
    K8Transform inHostMemory;
    EXPECT_EQ(K8Transform_createT(&inHostMemory, host.get(), kCounting.data()), &inHostMemory);
    EXPECT_EQ(inHostMemory.ownBlock, nullptr);
    EXPECT_EQ(host.calls(), 0);
    K8Transform_destroy(&inHostMemory);
    EXPECT_EQ(elementsOf(inHostMemory), Elements{});
    EXPECT_EQ(inHostMemory.allocator, host.get()) << "left as it was";

    K8Transform* own = K8Transform_create(nullptr, host.get());
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(own->ownBlock, own);
    EXPECT_EQ(elementsOf(*own), kIdentity);
    K8Transform_destroy(own);
    EXPECT_EQ(host.liveBlocks(), 0);
    K8Transform_destroy(nullptr);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), 9);

    EXPECT_EQ(K8Transform_createT(nullptr, nullptr, kCounting.data()), nullptr);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
    CountingAllocator empty(0);
    EXPECT_EQ(K8Transform_create(nullptr, empty.get()), nullptr);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_OUT_OF_MEMORY);
}

TEST(K8Transform, ReadsAndWritesElements) {
    K8Transform t = transformOf(kCounting);
    for (const int32_t outside : {-1, 16, INT32_MIN}) {
        K8Transform_setElement(&t, outside, 99);
        EXPECT_EQ(K8Transform_getElement(&t, outside), 0.0f);
    }
    K8Transform_setAll(&t, nullptr);
    EXPECT_EQ(elementsOf(t), kCounting);
    K8Transform_setElement(&t, 15, -1);
    EXPECT_EQ(K8Transform_getElement(&t, 15), -1);
    Elements out;
    K8Transform_getAll(&t, out.data());
    EXPECT_EQ(out, elementsOf(t));
    K8Transform_set(&t, nullptr);
    EXPECT_EQ(elementsOf(t), kIdentity);
    K8Transform_setElement(nullptr, 0, 1);
    EXPECT_EQ(K8Transform_getElement(nullptr, 0), 0.0f);
}

TEST(K8Transform, InvertRefusesWhatHasNoInverse) {
    K8Transform t = transformOf({2, 0, 0, 4, 0, 4, 0, 8, 0, 0, 0.5f, 1, 0, 0, 0, 1}), singular = transformOf({});
    EXPECT_TRUE(K8Transform_invert(&t));
    EXPECT_EQ(elementsOf(t), (Elements{0.5f, 0, 0, -2, 0, 0.25f, 0, -2, 0, 0, 2, -2, 0, 0, 0, 1}));
    for (K8Transform* none : {&singular, static_cast<K8Transform*>(nullptr)}) {
        K8ErrStorage_setErrorStatus(9);
        EXPECT_FALSE(K8Transform_invert(none));
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_FAILURE);
    }
    EXPECT_EQ(elementsOf(singular), Elements{});
}

TEST(K8Transform, MultipliesFromTheRight) {
    using T = K8Transform;
    struct Case {
        const char* what;
        void (*act)(T*);
        Elements elements;
    };
    for (const Case& c :
         {Case{"transpose", K8Transform_transpose, {1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15, 4, 8, 12, 16}},
          {"by itself",
           [](T* t) { K8Transform_multiply(t, t); },
           {90, 100, 110, 120, 202, 228, 254, 280, 314, 356, 398, 440, 426, 484, 542, 600}},
          {"scale",
           [](T* t) { K8Transform_scale(t, 8192, 4096, -2048); },
           {2, 2, -1.5f, 4, 10, 6, -3.5f, 8, 18, 10, -5.5f, 12, 26, 14, -7.5f, 16}},
          {"translate",
           [](T* t) { K8Transform_translate(t, 4096, -8192, 2048); },
           {1, 2, 3, 2.5f, 5, 6, 7, 4.5f, 9, 10, 11, 6.5f, 13, 14, 15, 8.5f}},
          {"no axis", [](T* t) { K8Transform_rotate(t, 0, 0, 0, 4096); }, kCounting},
          {"no quaternion", [](T* t) { K8Transform_rotateQuat(t, 0, 0, 0, 0); }, kCounting}}) {
        T t = transformOf(kCounting);
        c.act(&t);
        EXPECT_EQ(elementsOf(t), c.elements) << c.what;
    }
    T t = transformOf(kIdentity);
    K8Transform_rotate(&t, 0, 0, 12288, 90 * 4096);
    const float turned[16] = {0, -1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(t.elements[i], turned[i], 1e-7) << i;
    K8Transform_rotateQuat(&t, 0, 0, -4096, 4096);  // a quarter turn back
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(t.elements[i], kIdentity[i], 1e-6) << i;
}

TEST(K8Transform, AppliesToVectorsInFixedPoint) {
    K8Transform t = transformOf(kIdentity);
    int32_t v[3] = {4096, 8192, -4096}, out[3];
    K8Transform_transVector(&t, v, out);
    EXPECT_EQ(std::to_array(out), std::to_array(v));
    K8Transform_setElement(&t, 3, 2.0f);
    K8Transform_setElement(&t, 12, 5.0f);  // the bottom row does not count
    K8Transform_transVector(&t, v, v);
    EXPECT_EQ(std::to_array(v), (std::array<int32_t, 3>{4096 + 8192, 8192, -4096})) << "in place";
}

TEST(K8Transform, LookAtMakesAYDownViewer) {
    struct Case {
        const char* what;
        int32_t position[3], look[3], up[3];
        std::array<float, 12> rows;
    };
    constexpr int32_t kFar = 0x10000fff;
    for (const Case& c :
         {Case{"lengths do not count", {}, {0, 0, -7}, {0, 1 << 30, 0}, {1, 0, 0, 0, 0, -1, 0, 0, 0, 0, -1, 0}},
          {"along x, placed", {4096, 8192, -20480}, {4096, 0, 0}, {0, 4096, 0}, {0, 0, 1, 5, 0, -1, 0, 2, 1, 0, 0, -1}},
          {"up is made square to the look", {}, {0, 0, 4096}, {0, 4096, 4096}, {-1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1, 0}},
          {"no direction is z; no cross product is z too",
           {0, 0, 4096},
           {},
           {},
           {0, 0, 1, -1, 0, 0, 1, -1, 0, 0, 1, -1}},
          {"29 bits drop to 18, toward zero",
           {kFar, 0, -kFar},
           {0, 0, 4096},
           {0, -4096, 0},
           {1, 0, 0, -65536.5f, 0, 1, 0, 0, 0, 0, 1, 65536.5f}},
          {"as far as it gets",
           {INT32_MIN, 0, 0},
           {0, 0, 4096},
           {0, -4096, 0},
           {1, 0, 0, -524288.0f, 0, 1, 0, 0, 0, 0, 1, 0}}}) {
        K8Transform t = transformOf(kCounting);
        K8Transform_lookAt(&t, c.position, c.look, c.up);
        Elements expected = kCounting;  // the bottom row stays
        std::ranges::copy(c.rows, expected.begin());
        EXPECT_EQ(elementsOf(t), expected) << c.what;
    }
}

TEST(K8Transform, ComparesWithoutMindingNaN) {
    Elements a = kCounting, b = kCounting;
    EXPECT_TRUE(K8Transform_equal(a.data(), b.data()));
    a[5] = NAN;
    b[6] = NAN;
    EXPECT_TRUE(K8Transform_equal(a.data(), b.data()));
    a[15] = 16.5f;
    EXPECT_FALSE(K8Transform_equal(a.data(), b.data()));
    EXPECT_FALSE(K8Transform_equal(b.data(), a.data()));
}

}  // namespace
