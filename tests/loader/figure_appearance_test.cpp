#include "loader/figure_appearance.h"

#include <gtest/gtest.h>

#include <set>

#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/material.h"
#include "scene/polygon_mode.h"
#include "tests/support/counting_heap.h"

namespace {

TEST(FigureAppearance, MakesAKeyOfEveryWord) {
    std::set<uint16_t> keys;
    for (uint32_t word = 0; word <= 0xFFFF; ++word) {
        const auto has = [&](uint32_t bits) { return (word & bits) == bits; };
        uint32_t expected = 0;
        const struct {
            bool set;
            uint32_t bit;
        } rules[] = {
            {has(0x0010), 0x0020},     {has(0x0040), 0x0040},     {has(0x0050), 0x0080},     {has(0x0800), 0x0001},
            {!has(0x0800), 0x0004},    {has(0x0820), 0x0002},     {has(0x0001), 0x0800},     {(word & 6) == 0, 0x0100},
            {(word & 6) == 2, 0x0200}, {(word & 6) == 4, 0x0400}, {(word & 6) == 6, 0x1000},
        };
        for (const auto& rule : rules)
            if (rule.set) expected |= rule.bit;
        const AppearanceKey key = qelFigureAppearance_key(word, 0);
        ASSERT_EQ(key.key, expected) << word;
        ASSERT_EQ(key.vertexAlpha, (word & 6) == 2 ? 128 : 255) << word;
        ASSERT_EQ(qelFigureAppearance_key(word, kKeyFog).key, expected | 0x2000) << word;
        keys.insert(key.key);
    }
    EXPECT_EQ(keys.size(), 96u);
}

TEST(FigureAppearance, MakesRenderStateOfAKey) {
    struct Case {
        const char* what;
        uint32_t key;
        bool forColors;
        // material: lit, environment map, colour tracking, diffuse alpha
        bool lit, environment, tracking;
        uint32_t diffuseAlpha;
        Culling culling;
        Shading shading;
        int32_t blending;  // 0: no compositing mode
        float threshold;
    };
    constexpr auto back = Culling::Back, none = Culling::None;
    constexpr auto smooth = Shading::Smooth, flat = Shading::Flat;
    const Case cases[] = {
        {"plain", 0x0104, false, false, false, false, 0, back, smooth, 68, 0},
        {"lit", 0x0101, false, true, false, false, 255, back, smooth, 68, 0},
        {"lit colours", 0x0101, true, true, false, true, 255, back, smooth, 68, 0},
        {"environment map", 0x0103, false, true, true, false, 255, back, smooth, 68, 0},
        {"environment map without light", 0x0102, false, true, true, false, 255, back, smooth, 68, 0},
        {"half", 0x0204, false, false, false, false, 0, back, smooth, 64, 0},
        {"lit half", 0x0201, false, true, false, false, 128, back, smooth, 64, 0},
        {"lit half colours keep their own alpha", 0x0201, true, true, false, true, 255, back, smooth, 64, 0},
        {"add", 0x0404, false, false, false, false, 0, back, smooth, 70, 0},
        {"weighted add", 0x1004, false, false, false, false, 0, back, smooth, 71, 0},
        {"blending bits in order", 0x1701, false, true, false, false, 255, back, smooth, 68, 0},
        {"no blending bit", 0x0004, false, false, false, false, 0, back, smooth, 0, 0},
        {"colour key", 0x0904, false, false, false, false, 0, back, smooth, 68, 0.01f},
        {"colour key, half", 0x0A04, false, false, false, false, 0, back, smooth, 64, 0.01f},
        {"two-sided", 0x0124, false, false, false, false, 0, none, smooth, 68, 0},
        {"flat", 0x0144, false, false, false, false, 0, back, flat, 68, 0},
        {"two-sided and flat", 0x01E4, false, false, false, false, 0, none, flat, 68, 0},
        {"two-sided before flat", 0x0164, false, false, false, false, 0, none, smooth, 68, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Appearance* appearance = qelFigureAppearance_create(uint16_t(c.key), c.forColors);
        ASSERT_NE(appearance, nullptr);
        const Material* material = appearance->material;
        ASSERT_EQ(material != nullptr, c.lit);
        if (material) {
            EXPECT_EQ(material->ambientColor, 0xFFFFFFu);
            EXPECT_EQ(material->diffuseColor, c.diffuseAlpha << 24 | 0xFFFFFF);
            EXPECT_EQ(material->environmentMap, c.environment);
            EXPECT_EQ(qelMaterial_isVertexColorTrackingEnabled(material), c.tracking);
            EXPECT_EQ(material->refCount, 1);
        }
        EXPECT_EQ(appearance->polygonMode->culling, c.culling);
        EXPECT_EQ(appearance->polygonMode->shading, c.shading);
        EXPECT_EQ(appearance->polygonMode->winding, Winding::Cw);
        EXPECT_EQ(appearance->polygonMode->refCount, 1);
        const CompositingMode* mode = appearance->compositingMode;
        ASSERT_EQ(mode != nullptr, c.blending != 0);
        if (mode) {
            EXPECT_EQ(int32_t(mode->blending), c.blending);
            EXPECT_EQ(mode->depthTestEnabled, 1);
            EXPECT_EQ(mode->depthWriteEnabled, c.blending == 68);
            EXPECT_EQ(mode->alphaThreshold, c.threshold);
            EXPECT_EQ(mode->refCount, 1);
        }
        qelObject3D_unref(appearance);
    }
    EXPECT_EQ(qelFigureAppearance_create(0x0804, false), nullptr) << "a colour key without a compositing mode";
}

TEST(FigureAppearance, GivesEverythingBackWhenMemoryRunsOut) {
    const int32_t calls = sweepEngineAllocations(FailMode::Once, [](CountingHeap& heap) {
        Appearance* appearance = qelFigureAppearance_create(0x0201, false);
        EXPECT_EQ(appearance == nullptr, heap.hasFailed());
        qelObject3D_unref(appearance);
    });
    EXPECT_EQ(calls, 4);
}

}  // namespace
