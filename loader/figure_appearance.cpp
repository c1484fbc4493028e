#include "loader/figure_appearance.h"

#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/material.h"
#include "scene/polygon_mode.h"

// The other bits of an appearance key.
constexpr uint32_t kKeyLit = 0x0001;
constexpr uint32_t kKeyEnvironment = 0x0002;
constexpr uint32_t kKeyUnlit = 0x0004;
constexpr uint32_t kKeyTwoSided = 0x0020;
constexpr uint32_t kKeyFlat = 0x0040;
constexpr uint32_t kKeyTwoSidedFlat = 0x0080;
constexpr uint32_t kKeyOpaque = 0x0100;
constexpr uint32_t kKeyHalf = 0x0200;
constexpr uint32_t kKeyAdd = 0x0400;
constexpr uint32_t kKeyColorKey = 0x0800;
constexpr uint32_t kKeyAddWeighted = 0x1000;

constexpr uint8_t kHalfAlpha = 128;
constexpr uint8_t kFullAlpha = 255;
constexpr float kColorKeyThreshold = 0.01f;  // between the alphas of a transparent and of any other texel

AppearanceKey qelFigureAppearance_key(uint32_t word, uint32_t extra) {
    static constexpr uint32_t kBlendKeys[] = {kKeyOpaque, kKeyHalf, kKeyAdd, kKeyAddWeighted};
    const uint32_t blend = (word & kWordBlendMask) >> 1;
    const bool twoSided = word & kWordTwoSided, flat = word & kWordFlat;
    uint32_t key = kBlendKeys[blend] | extra;
    if (twoSided) key |= kKeyTwoSided;
    if (flat) key |= kKeyFlat;
    if (twoSided && flat) key |= kKeyTwoSidedFlat;
    key |= word & kWordLit ? kKeyLit : kKeyUnlit;
    if (word & kWordLit && word & kWordEnvironment) key |= kKeyEnvironment;
    if (word & kWordColorKey) key |= kKeyColorKey;
    return {uint16_t(key), kBlendKeys[blend] == kKeyHalf ? kHalfAlpha : kFullAlpha};
}

// The blending that a key asks for, its bits in order of precedence.
static bool findBlending(uint32_t key, Blending& blending) {
    if (key & kKeyOpaque)
        blending = Blending::Replace;
    else if (key & kKeyHalf)
        blending = Blending::Alpha;
    else if (key & kKeyAdd)
        blending = Blending::Add;
    else if (key & kKeyAddWeighted)
        blending = Blending::AddWeighted;
    else
        return false;
    return true;
}

static uint32_t alphaOf(uint32_t key) {
    Blending blending;
    return findBlending(key, blending) && blending == Blending::Alpha ? kHalfAlpha : kFullAlpha;
}

// Components are handed to the appearance, which takes its own reference. False when there is none: memory ran out.

static bool addMaterial(Appearance* appearance, uint32_t key, bool forColors) {
    if (!(key & (kKeyLit | kKeyEnvironment))) return true;
    Material* material = qelMaterial_create();
    if (!material) return false;
    const uint32_t alpha = forColors ? kFullAlpha : alphaOf(key);
    qelMaterial_setColor(material, QEL_MATERIAL_AMBIENT, 0xFFFFFF);
    qelMaterial_setColor(material, QEL_MATERIAL_DIFFUSE, alpha << 24 | 0xFFFFFF);
    qelMaterial_setVertexColorTrackingEnable(material, forColors);
    material->environmentMap = (key & kKeyEnvironment) != 0;
    qelAppearance_setMaterial(appearance, material);
    qelObject3D_unref(material);
    return true;
}

static bool addPolygonMode(Appearance* appearance, uint32_t key) {
    PolygonMode* mode = qelPolygonMode_create();
    if (!mode) return false;
    qelPolygonMode_setWinding(mode, int32_t(Winding::Cw));
    const bool both = key & kKeyTwoSidedFlat, twoSided = key & kKeyTwoSided, flat = key & kKeyFlat;
    if (both || twoSided) qelPolygonMode_setCulling(mode, int32_t(Culling::None));
    if (both || (flat && !twoSided)) qelPolygonMode_setShading(mode, int32_t(Shading::Flat));
    qelAppearance_setPolygonMode(appearance, mode);
    qelObject3D_unref(mode);
    return true;
}

// Without a blending there is no compositing mode, and then no place for a colour key.
static bool addCompositingMode(Appearance* appearance, uint32_t key) {
    Blending blending;
    if (!findBlending(key, blending)) return !(key & kKeyColorKey);
    CompositingMode* mode = qelCompositingMode_create();
    if (!mode) return false;
    qelCompositingMode_setBlending(mode, int32_t(blending));
    qelCompositingMode_setDepthTestEnable(mode, true);
    qelCompositingMode_setDepthWriteEnable(mode, blending == Blending::Replace);
    if (key & kKeyColorKey) qelCompositingMode_setAlphaThreshold(mode, kColorKeyThreshold);
    qelAppearance_setCompositingMode(appearance, mode);
    qelObject3D_unref(mode);
    return true;
}

Appearance* qelFigureAppearance_create(uint16_t key, bool forColors) {
    Appearance* appearance = qelAppearance_create();
    if (!appearance) return nullptr;
    if (addMaterial(appearance, key, forColors) && addPolygonMode(appearance, key) &&
        addCompositingMode(appearance, key))
        return appearance;
    qelObject3D_unref(appearance);
    return nullptr;
}
