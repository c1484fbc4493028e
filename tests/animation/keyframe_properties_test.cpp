// Every property on every class that takes it: range, rounding, the marks that the renderer looks at.
#include <bit>
#include <cmath>

#include "animation/animate_apply.h"
#include "scene/appearance.h"
#include "scene/background.h"
#include "scene/camera.h"
#include "scene/image2d.h"
#include "scene/light.h"
#include "scene/material.h"
#include "scene/sprite3d.h"
#include "scene/texture2d.h"
#include "scene/transform.h"
#include "scene/world.h"
#include "tests/animation/keyframes.h"

using enum AnimationProperty;
using Floats = std::vector<float>;

constexpr float kInf = INFINITY;
constexpr float kTiny = std::bit_cast<float>(1u);
static const int32_t kNoChange = 0, kChange = 1;

// --- Objects of all classes ---

static Background* makeBackground() {
    Background* background = qelBackground_create();
    qelBackground_setColor(background, 0x11223344);
    qelBackground_setCrop(background, 1, 2, 3, 4);
    return background;
}

static Sprite3D* makeSprite() {
    Result result;
    const Held image(makeImage(ImageFormat::Rgb, 4, 4));
    return qelSprite3D_create(true, image, nullptr, &result);
}

// Runs the object's own animate slot with one track at that property.
static void animateOnce(Object3D* object, AnimationProperty property, const Floats& values) {
    ASSERT_EQ(addConstantTrack(object, property, values), QEL_STATUS_OK);
    object->stateChanged = 0;
    Result result = -1;
    EXPECT_EQ(object->animate(object, 0, &result), 0);
    EXPECT_EQ(result, QEL_STATUS_OK);
}

// --- Properties of all nodes ---

TEST(Properties, ReachTheNode) {
    const Held node(qelWorld_create());
    animateOnce(node, Translation, {1, 2, 3});
    animateOnce(node, Scale, {4, 5, 6});
    animateOnce(node, Orientation, {0, 0, 3, 3});
    EXPECT_EQ(Floats(node->translation, node->translation + 3), (Floats{1, 2, 3}));
    EXPECT_EQ(Floats(node->scale, node->scale + 3), (Floats{4, 5, 6}));
    EXPECT_NEAR(node->orientationAngle, 90, 1e-4) << "of the normalised quaternion";
    EXPECT_EQ(Floats(node->orientationAxis, node->orientationAxis + 3), (Floats{0, 0, 1}));
    EXPECT_TRUE(node->translationChanged && node->scaleChanged && node->orientationChanged);
    qelObject3D_applyProperty(node, Scale, Floats{-3});
    EXPECT_EQ(Floats(node->scale, node->scale + 3), (Floats{-3, -3, -3})) << "one value for all axes";
    qelObject3D_applyProperty(node, Orientation, Floats{0, 0, 0, 0});
    EXPECT_EQ(node->orientationAngle, 0) << "no rotation from the zero quaternion";
    for (const auto& [given, stored] :
         {std::pair(0.25f, 0.25f), {1.5f, 1.0f}, {-0.5f, 0.0f}, {NAN, 0.0f}, {kInf, 1.0f}}) {
        qelObject3D_applyProperty(node, Alpha, Floats{given});
        EXPECT_EQ(node->alphaFactor, stored) << given;
    }
    for (const float value : {0.49f, 0.5f, -1.0f, 7.0f, NAN})
        for (const AnimationProperty property : {Pickability, Visibility}) {
            node->transformChanged = 0;
            qelObject3D_applyProperty(node, property, Floats{value});
            const bool isOn = property == Pickability ? node->pickingEnabled : node->renderingEnabled;
            EXPECT_EQ(isOn, value >= 0.5f) << value;
            EXPECT_EQ(node->transformChanged != 0, isOn) << "coming back into view";
        }
}

// --- Properties of single classes ---

struct PropertyCase {
    const char* what;
    AnimationProperty property;
    Floats values;
    std::vector<double> expected;
    int32_t stateChanged;
};

template <typename T>
static void expectProperties(T* (*make)(), std::vector<double> (*read)(const T*),
                             const std::vector<PropertyCase>& cases) {
    for (const PropertyCase& c : cases) {
        const Held object(make());
        animateOnce(object, c.property, c.values);
        EXPECT_EQ(read(object), c.expected) << c.what;
        EXPECT_EQ(object->stateChanged, c.stateChanged) << c.what;
    }
}

TEST(Properties, OfBackgrounds) {
    expectProperties<Background>(
        makeBackground,
        [](const Background* b) {
            return std::vector<double>{double(b->color), double(b->cropX), double(b->cropY), double(b->cropWidth),
                                       double(b->cropHeight)};
        },
        {{"alpha", Alpha, {0.5f}, {0x80223344, 1, 2, 3, 4}, kChange},
         {"alpha above", Alpha, {2}, {0xFF223344, 1, 2, 3, 4}, kChange},
         {"color, smallest that rounds up", Color, {0.5f / 255, 0.4999f / 255, NAN}, {0x11010000, 1, 2, 3, 4}, kChange},
         {"crop, halves away from zero", Crop, {2.5f, -2.5f}, {0x11223344, 3, -3, 3, 4}, kChange},
         {"crop with a negative size", Crop, {5, 6, -7, -0.6f}, {0x11223344, 5, 6, 0, 0}, kChange},
         {"crop beyond 32 bits",
          Crop,
          {-3e9f, 3e9f, 3e9f, NAN},
          {0x11223344, INT32_MIN, INT32_MAX, INT32_MAX, 0},
          kChange}});
}

TEST(Properties, OfMaterials) {
    expectProperties<Material>(
        qelMaterial_create,
        [](const Material* m) {
            return std::vector<double>{double(m->ambientColor), double(m->diffuseColor), double(m->emissiveColor),
                                       double(m->specularColor), m->shininess};
        },
        {{"alpha", Alpha, {0.2f}, {0x333333, 0x33CCCCCC, 0, 0, 0}, kChange},
         {"diffuse keeps its alpha", DiffuseColor, {1, 0, 0.2f}, {0x333333, 0xFFFF0033, 0, 0, 0}, kChange},
         {"shininess below", Shininess, {-1}, {0x333333, 0xFFCCCCCC, 0, 0, 0}, kChange}});
}

TEST(Properties, OfLights) {
    const auto cosine45 = double(float(std::cos(M_PI / 4)));
    expectProperties<Light>(
        qelLight_create,
        [](const Light* l) {
            return std::vector<double>{double(l->color), l->spotAngle, l->spotCosine, l->spotExponent, l->intensity};
        },
        {{"color", Color, {1, 0, 0.2f}, {0xFF0033, 45, cosine45, 0, 1}, kChange},
         {"the same color", Color, {1, 1, 1}, {0xFFFFFF, 45, cosine45, 0, 1}, kNoChange},
         {"angle below", SpotAngle, {-1}, {0xFFFFFF, 0, 1, 0, 1}, kChange},
         {"exponent above", SpotExponent, {500}, {0xFFFFFF, 45, cosine45, 128, 1}, kChange},
         {"exponent below", SpotExponent, {-5}, {0xFFFFFF, 45, cosine45, 0, 1}, kNoChange}});
    const Held light(qelLight_create());
    animateOnce(light, SpotAngle, {91});
    EXPECT_EQ(light->spotAngle, 90);
    EXPECT_NEAR(light->spotCosine, 0, 1e-7);
}

TEST(Properties, OfTextures) {
    expectProperties<Texture2D>(
        [] { return makeTexture(); },
        [](const Texture2D* t) {
            return std::vector<double>{double(t->blendColor), t->translation[1], t->scale[2], t->orientationAxis[0]};
        },
        {{"color", Color, {1, 0, 0.2f}, {0xFF0033, 0, 1, 0}, kChange},
         {"translation", Translation, {1, 2, 3}, {0, 2, 1, 0}, kNoChange},
         {"orientation", Orientation, {2, 0, 0, 0}, {0, 0, 1, 1}, kNoChange}});
}

TEST(Properties, OfSprites) {
    expectProperties<Sprite3D>(
        makeSprite,
        [](const Sprite3D* s) {
            return std::vector<double>{double(s->cropX), double(s->cropY), double(s->cropWidth), double(s->cropHeight)};
        },
        {{"origin", Crop, {2.5f, -2.5f}, {3, -3, 4, 4}, kChange},
         {"too large", Crop, {0, 0, 2048.5f, 9e9f}, {0, 0, 2048, 2048}, kChange},
         {"too large, mirrored", Crop, {0, 0, -2049, -kInf}, {0, 0, -2048, -2048}, kChange},
         {"the same", Crop, {0, 0, 4, 4}, {0, 0, 4, 4}, kNoChange}});
}

template <auto set>
static Camera* makeCamera() {
    Camera* camera = qelCamera_create();
    set(camera, 60, 1, 1, 10);
    camera->projectionDirty = 0;
    return camera;
}

TEST(Properties, OfCameras) {
    const auto read = [](const Camera* c) {
        return std::vector<double>{c->near, c->far, c->fovyOrHeight, double(c->projectionDirty)};
    };
    const float most = 179.9999f, least = 0.0001f;
    expectProperties<Camera>(makeCamera<qelCamera_setPerspective>, read,
                             {{"near is not a number", NearDistance, {NAN}, {kTiny, 10, 60, 1}, kChange},
                              {"the same near", NearDistance, {1}, {1, 10, 60, 0}, kNoChange},
                              {"far", FarDistance, {20}, {1, 20, 60, 1}, kChange},
                              {"negative far", FarDistance, {-20}, {1, kTiny, 60, 1}, kChange},
                              {"field above", FieldOfView, {200}, {1, 10, most, 1}, kChange},
                              {"field below", FieldOfView, {-200}, {1, 10, least, 1}, kChange},
                              {"the same field", FieldOfView, {60}, {1, 10, 60, 0}, kNoChange}});
    expectProperties<Camera>(makeCamera<qelCamera_setParallel>, read,
                             {{"parallel, negative near", NearDistance, {-2}, {-2, 10, 60, 1}, kChange},
                              {"parallel, the same far", FarDistance, {10}, {1, 10, 60, 0}, kNoChange},
                              {"parallel, height", FieldOfView, {200}, {1, 10, 200, 1}, kChange},
                              {"parallel, no height", FieldOfView, {0}, {1, 10, kTiny, 1}, kChange}});
    const Held generic(qelCamera_create());
    qelTransform identity;
    qelTransform_setIdentity(&identity);
    qelCamera_setGeneric(generic, &identity);
    const std::vector<double> before = read(generic);
    for (const AnimationProperty property : {NearDistance, FarDistance, FieldOfView})
        animateOnce(generic, property, {2});
    EXPECT_EQ(read(generic), before) << "nothing of it is animated";
}

// --- Matrix and direction ---

TEST(Properties, MatrixBecomesTheComposite) {
    Floats rows(16);
    for (size_t i = 0; i < 16; ++i) rows[i] = float(i) - 3;
    const Held group(qelGroup_create());
    qelTransform twice, composite;
    qelTransform_setIdentity(&twice);
    qelTransform_postScale(&twice, 2, 2, 2);
    qelTransformable_setTransform(group, &twice);
    qelTransformable_updateComposite(group);
    animateOnce(group, Matrix, rows);
    EXPECT_TRUE(group->compositeOverridden && group->compositeChanged);
    for (int times = 0; times < 2; ++times) {  // it is multiplied with the general matrix once
        qelTransformable_getCompositeTransform(group, &composite);
        for (size_t i = 0; i < 16; ++i) EXPECT_EQ(composite.elements[i], i < 12 ? 2 * rows[i] : rows[i]) << i;
    }
}

TEST(Properties, DirectionIsWhereTheZAxisGoes) {
    struct Case {
        const char* what;
        Floats values;
        std::array<double, 9> rows;
    };
    const double half = std::sqrt(0.5), third = 1 / std::sqrt(3.0);
    const double k = (1 - third) / 2;  // of (1, 1, 1)
    for (const Case& c : {Case{"z", {0, 0, 9}, {1, 0, 0, 0, 1, 0, 0, 0, 1}},
                          Case{"z backwards", {0, 0, -9}, {1, 0, 0, 0, -1, 0, 0, 0, -1}},
                          Case{"x", {4, 0, 0}, {0, 0, 1, 0, 1, 0, -1, 0, 0}},
                          Case{"halfway to -x", {-3, 0, 3}, {half, 0, -half, 0, 1, 0, half, 0, half}},
                          Case{"all", {2, 2, 2}, {third + k, -k, third, -k, third + k, third, -third, -third, third}},
                          Case{"nowhere", {0, 0, 0}, {1, 0, 0, 0, 0, 0, 0, 0, 0}},
                          Case{"too close to z backwards", {1e-30f, 0, -1}, {1, 0, 0, 0, -1, 0, 0, 0, -1}},
                          Case{"hardly beside z backwards", {1e-18f, 0, -1}, {-1, 0, 0, 0, 1, 0, 0, 0, -1}},
                          Case{"turned about z", {0, 0, 1, 90}, {0, -1, 0, 1, 0, 0, 0, 0, 1}},
                          Case{"turned about what z became", {1, 0, 0, 90}, {0, 0, 1, 1, 0, 0, 0, 1, 0}},
                          Case{"turned by nothing", {0, 1, 0, 0}, {1, 0, 0, 0, 0, 1, 0, -1, 0}}}) {
        SCOPED_TRACE(c.what);
        const Held group(qelGroup_create());
        qelTransformable_setOrientation(group, 50, 1, 2, 3);
        qelTransformable_setScale(group, 2, 2, 2);
        qelTransformable_setTranslation(group, 5, 6, 7);
        qelTransformable_updateComposite(group);
        animateOnce(group, Direction, c.values);
        const qelTransform& rotation = group->orientationMatrix;
        for (size_t i = 0; i < 9; ++i) EXPECT_NEAR(rotation.elements[4 * (i / 3) + i % 3], c.rows[i], 2e-7) << i;
        EXPECT_EQ(rotation.identityState, 0u);
        EXPECT_EQ(rotation.uniformDiagonalState, 0u);
        EXPECT_EQ(rotation.elements[15], 1);
        ASSERT_TRUE(qelTransformable_updateComposite(group));
        const float* m = group->composite.elements;
        EXPECT_EQ((Floats{m[0], m[3], m[7], m[11]}), (Floats{2 * rotation.elements[0], 5, 6, 7}));
    }
}
