#include "loader/figure_appearance.h"

#include <gtest/gtest.h>

#include <set>

#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/material.h"
#include "scene/polygon_mode.h"
#include "tests/scene/held.h"

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
        bool forColors, environment, tracking;
        uint32_t diffuseAlpha;  // 0: unlit
        Culling culling;
        Shading shading;
        int32_t blending;  // 0: no compositing mode
        float threshold;
    };
    constexpr auto back = Culling::Back, none = Culling::None;
    constexpr auto smooth = Shading::Smooth, flat = Shading::Flat;
    for (const Case& c :
         {Case{"plain", 0x0104, false, false, false, 0, back, smooth, 68, 0},
          Case{"lit", 0x0101, false, false, false, 255, back, smooth, 68, 0},
          Case{"lit colours", 0x0101, true, false, true, 255, back, smooth, 68, 0},
          Case{"environment map without light", 0x0102, false, true, false, 255, back, smooth, 68, 0},
          Case{"lit half", 0x0201, false, false, false, 128, back, smooth, 64, 0},
          Case{"lit half colours keep their own alpha", 0x0201, true, false, true, 255, back, smooth, 64, 0},
          Case{"add", 0x0404, false, false, false, 0, back, smooth, 70, 0},
          Case{"weighted add", 0x1004, false, false, false, 0, back, smooth, 71, 0},
          Case{"blending bits in order", 0x1701, false, false, false, 255, back, smooth, 68, 0},
          Case{"no blending bit", 0x0004, false, false, false, 0, back, smooth, 0, 0},
          Case{"colour key, half", 0x0A04, false, false, false, 0, back, smooth, 64, 0.01f},
          Case{"flat", 0x0144, false, false, false, 0, back, flat, 68, 0},
          Case{"two-sided and flat", 0x01E4, false, false, false, 0, none, flat, 68, 0},
          Case{"two-sided before flat", 0x0164, false, false, false, 0, none, smooth, 68, 0}}) {
        SCOPED_TRACE(c.what);
        const Held appearance(qelFigureAppearance_create(uint16_t(c.key), c.forColors));
        ASSERT_NE(appearance.get(), nullptr);
        for (const Object3D* part : referencesOf(appearance)) EXPECT_EQ(part->refCount, 1);
        const Material* material = appearance->material;
        ASSERT_EQ(material != nullptr, c.diffuseAlpha != 0);
        if (material) {
            EXPECT_EQ(material->ambientColor, 0xFFFFFFu);
            EXPECT_EQ(material->diffuseColor, c.diffuseAlpha << 24 | 0xFFFFFF);
            EXPECT_EQ(material->environmentMap, c.environment);
            EXPECT_EQ(qelMaterial_isVertexColorTrackingEnabled(material), c.tracking);
        }
        EXPECT_EQ(appearance->polygonMode->culling, c.culling);
        EXPECT_EQ(appearance->polygonMode->shading, c.shading);
        EXPECT_EQ(appearance->polygonMode->winding, Winding::Cw);
        const CompositingMode* mode = appearance->compositingMode;
        ASSERT_EQ(mode != nullptr, c.blending != 0);
        if (!mode) continue;
        EXPECT_EQ(int32_t(mode->blending), c.blending);
        EXPECT_EQ(mode->depthWriteEnabled, c.blending == 68);
        EXPECT_EQ(mode->alphaThreshold, c.threshold);
    }
    EXPECT_EQ(qelFigureAppearance_create(0x0804, false), nullptr) << "a colour key without a compositing mode";
}

}  // namespace
