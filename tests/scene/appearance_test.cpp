#include "scene/appearance.h"

#include <cmath>
#include <functional>
#include <string>

#include "scene/compositing_mode.h"
#include "scene/fog.h"
#include "scene/material.h"
#include "scene/polygon_mode.h"
#include "scene/texture2d.h"
#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"

constexpr Result kOk = QEL_STATUS_OK, kBad = QEL_STATUS_ILLEGAL_ARGUMENT;

TEST(AppearanceComponents, AcceptWhatTheirRangesSay) {
    const Held compositing(qelCompositingMode_create());
    const Held polygon(qelPolygonMode_create());
    const Held material(qelMaterial_create());
    const Held fog(qelFog_create());
    struct Setter {
        const char* what;
        Object3D* object;
        std::function<Result(double)> set;
        std::vector<double> good, bad;
    };
    const Setter kSetters[] = {
        {"blending",
         compositing,
         [&](double v) { return qelCompositingMode_setBlending(compositing, int32_t(v)); },
         {64, 65, 66, 67, 68, 70, 71},
         {0, 63, 69, 72}},
        {"alpha threshold",
         compositing,
         [&](double v) { return qelCompositingMode_setAlphaThreshold(compositing, float(v)); },
         {0, 1, 0.5},
         {1.01, -0.01, NAN, INFINITY}},
        {"culling",
         polygon,
         [&](double v) { return qelPolygonMode_setCulling(polygon, int32_t(v)); },
         {160, 161, 162},
         {159, 163}},
        {"winding",
         polygon,
         [&](double v) { return qelPolygonMode_setWinding(polygon, int32_t(v)); },
         {168, 169},
         {167, 170}},
        {"shading",
         polygon,
         [&](double v) { return qelPolygonMode_setShading(polygon, int32_t(v)); },
         {164, 165},
         {163, 166}},
        {"shininess",
         material,
         [&](double v) { return qelMaterial_setShininess(material, float(v)); },
         {0, 128},
         {128.5, -0.5, NAN}},
        {"colour targets",
         material,
         [&](double v) { return qelMaterial_setColor(material, uint32_t(v), 1); },
         {1024, 2048, 4096, 8192, 15360},
         {0, 0x200, 0x4000, 0x401}},
        {"fog mode", fog, [&](double v) { return qelFog_setMode(fog, int32_t(v)); }, {80, 81}, {79, 82}},
        {"fog density", fog, [&](double v) { return qelFog_setDensity(fog, float(v)); }, {0, 5, INFINITY}, {-0.1, NAN}},
    };
    for (const Setter& setter : kSetters) {
        for (const double value : setter.good) {
            setter.object->stateChanged = 0;
            EXPECT_EQ(setter.set(value), kOk) << setter.what << ' ' << value;
            EXPECT_EQ(setter.object->stateChanged, 1) << setter.what << ' ' << value;
        }
        setter.object->stateChanged = 0;
        for (const double value : setter.bad) EXPECT_EQ(setter.set(value), kBad) << setter.what << ' ' << value;
        EXPECT_EQ(setter.object->stateChanged, 0) << setter.what << ": a refused value";
    }
    EXPECT_EQ(qelCompositingMode_getBlending(compositing), 71);
    EXPECT_EQ(compositing->alphaThreshold, 0.5f);
    EXPECT_EQ(material->shininess, 128);
    EXPECT_EQ(fog->density, INFINITY);
}

TEST(CompositingMode, KeepsTheAlphaThresholdAsAByte) {
    const Held mode(qelCompositingMode_create());
    struct Case {
        float threshold;
        int32_t byte;
    };
    for (const Case& c : {Case{0, 0}, Case{0.01f, 3}, Case{0.5f, 128}, Case{1, 255}}) {
        qelCompositingMode_setAlphaThreshold(mode, c.threshold);
        EXPECT_EQ(mode->alphaThresholdByte, c.byte) << c.threshold;
    }
}

TEST(Material, KeepsAlphaInTheDiffuseColourAlone) {
    const Held material(qelMaterial_create());
    EXPECT_EQ(qelMaterial_getColor(material, QEL_MATERIAL_AMBIENT), 0x333333u);
    EXPECT_EQ(qelMaterial_getColor(material, QEL_MATERIAL_DIFFUSE), 0xFFCCCCCCu);
    qelMaterial_setColor(material, QEL_MATERIAL_AMBIENT | QEL_MATERIAL_DIFFUSE, 0x80FF0000);
    qelMaterial_setColor(material, QEL_MATERIAL_EMISSIVE | QEL_MATERIAL_SPECULAR, 0x12345678);
    EXPECT_EQ(qelMaterial_getColor(material, QEL_MATERIAL_AMBIENT), 0xFF0000u);
    EXPECT_EQ(qelMaterial_getColor(material, QEL_MATERIAL_DIFFUSE), 0x80FF0000u);
    EXPECT_EQ(qelMaterial_getColor(material, QEL_MATERIAL_EMISSIVE), 0x345678u);
    EXPECT_EQ(qelMaterial_getColor(material, QEL_MATERIAL_SPECULAR), 0x345678u);
    EXPECT_EQ(qelMaterial_getColor(material, QEL_MATERIAL_AMBIENT | QEL_MATERIAL_DIFFUSE), 0u);
    qelMaterial_setVertexColorTrackingEnable(material, true);
    EXPECT_EQ(material->vertexColorTracking, 3072u);
    material->environmentMap = 1;
    const Held copy(static_cast<Material*>(qelMaterial_duplicate(material)));
    EXPECT_EQ(copy->environmentMap, 1);
    EXPECT_EQ(copy->diffuseColor, 0x80FF0000u);
}

struct FullAppearance {
    FullAppearance() {
        Result result;
        Held image(qelImage2D_createMutable(int32_t(ImageFormat::Alpha), 2, 2, &result));
        for (Texture2D*& texture : textures) texture = qelTexture2D_create(image, &result);
        qelAppearance_setCompositingMode(appearance, compositing);
        qelAppearance_setFog(appearance, fog);
        qelAppearance_setPolygonMode(appearance, polygon);
        qelAppearance_setMaterial(appearance, material);
        for (int32_t unit = 0; unit < kMaxTextureUnits; ++unit)
            qelAppearance_setTexture(appearance, unit, textures[unit]);
    }
    ~FullAppearance() {
        for (Texture2D* texture : textures) qelObject3D_unref(texture);
    }
    Held<Appearance> appearance{qelAppearance_create()};
    Held<CompositingMode> compositing{qelCompositingMode_create()};
    Held<Fog> fog{qelFog_create()};
    Held<PolygonMode> polygon{qelPolygonMode_create()};
    Held<Material> material{qelMaterial_create()};
    Texture2D* textures[2];
    std::vector<Object3D*> parts() { return {compositing, fog, polygon, material, textures[0], textures[1]}; }
};

TEST(Appearance, ChecksLayersAndUnitsAsIndices) {
    const Held appearance(qelAppearance_create());
    for (const int32_t layer : {-63, 0, 63}) EXPECT_EQ(qelAppearance_setLayer(appearance, layer), kOk) << layer;
    for (const int32_t layer : {-64, 64})
        EXPECT_EQ(qelAppearance_setLayer(appearance, layer), QEL_STATUS_INDEX_OUT_OF_RANGE);
    EXPECT_EQ(appearance->layer, 63);
    Result result;
    for (const int32_t unit : {-1, 2}) {
        EXPECT_EQ(qelAppearance_setTexture(appearance, unit, nullptr), QEL_STATUS_INDEX_OUT_OF_RANGE);
        EXPECT_EQ(qelAppearance_getTexture(appearance, unit, &result), nullptr);
        EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
    }
    appearance->textureChanged[0] = appearance->textureChanged[1] = 0;
    EXPECT_EQ(qelAppearance_setTexture(appearance, 1, nullptr), kOk);
    EXPECT_EQ(appearance->textureChanged[0], 0);
    EXPECT_EQ(appearance->textureChanged[1], 1);
}

TEST(Appearance, HoldsFindsAndListsItsComponents) {
    FullAppearance full;
    EXPECT_EQ(referencesOf(full.appearance), full.parts());
    for (size_t i = full.parts().size(); i-- > 0;) {  // each hides those after it
        full.parts()[i]->userId = 5;
        EXPECT_EQ(full.appearance->find(full.appearance, 5), full.parts()[i]);
    }
    const Held copy(static_cast<Appearance*>(qelAppearance_duplicate(full.appearance)));
    EXPECT_EQ(referencesOf(copy), full.parts());
    for (Object3D* part : full.parts()) EXPECT_EQ(part->refCount, 3);
    qelAppearance_setFog(full.appearance, full.fog);
    EXPECT_EQ(full.fog->refCount, 3) << "exchanged for itself";
    qelAppearance_setFog(full.appearance, nullptr);
    EXPECT_EQ(full.fog->refCount, 2);
    EXPECT_EQ(full.appearance->find(full.appearance, 99), nullptr);
}

// What the animate slots of the parts saw.
static std::vector<Object3D*> animatedParts;
static int32_t animateAs(Object3D* object, int32_t, Result* result) {
    animatedParts.push_back(object);
    *result = object->userId < 0 ? QEL_STATUS_ILLEGAL_STATE : QEL_STATUS_OK;
    return object->userId < 0 ? 0 : object->userId;
}

TEST(Appearance, AnimatesItsPartsUntilOneFails) {
    FullAppearance full;
    const std::vector<Object3D*> order = {full.fog, full.textures[0], full.textures[1], full.material};
    struct Case {
        const char* what;
        std::vector<int32_t> validities;  // negative: fails
        int32_t validity;
        Result result;
        size_t visited;
    };
    for (const Case& c : {Case{"smallest wins", {40, 30, 50, 60}, 30, kOk, 4},
                          Case{"second texture fails", {40, 30, -1, 0}, 0, QEL_STATUS_ILLEGAL_STATE, 3}}) {
        SCOPED_TRACE(c.what);
        animatedParts.clear();
        for (size_t i = 0; i < order.size(); ++i) {
            order[i]->animate = animateAs;
            order[i]->userId = c.validities[i];
        }
        Result result;
        EXPECT_EQ(full.appearance->animate(full.appearance, 0, &result), c.validity);
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(animatedParts, std::vector<Object3D*>(order.begin(), order.begin() + std::ptrdiff_t(c.visited)));
    }
    const Held empty(qelAppearance_create());
    Result result = -1;
    EXPECT_EQ(empty->animate(empty, 0, &result), kValidForever);
    EXPECT_EQ(result, kOk);
}

TEST(AppearanceComponents, GiveEverythingBackWhenMemoryRunsOut) {
    sweepEngineAllocations(FailMode::Once, [](CountingHeap&) {
        const Held appearance(qelAppearance_create());
        const Held fog(qelFog_create());
        if (!appearance.get() || !fog.get()) return;
        qelAppearance_setFog(appearance, fog);
        const Held copy(qelAppearance_duplicate(appearance));
        const Held fogCopy(qelFog_duplicate(fog));
    });
}
