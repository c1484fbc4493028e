// What holds for every kind of object: the values that its setters accept, the parts that it refers to, and memory that
// runs out while it is made or copied.
#include <cmath>
#include <functional>

#include "animation/animation_controller.h"
#include "animation/animation_track.h"
#include "animation/keyframe_sequence.h"
#include "frame/error_status.h"
#include "scene/appearance.h"
#include "scene/background.h"
#include "scene/camera.h"
#include "scene/compositing_mode.h"
#include "scene/fog.h"
#include "scene/light.h"
#include "scene/material.h"
#include "scene/morphing_mesh.h"
#include "scene/polygon_mode.h"
#include "scene/skinned_mesh.h"
#include "scene/sprite3d.h"
#include "scene/texture2d.h"
#include "scene/world.h"
#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"

constexpr Result kOk = QEL_STATUS_OK, kBad = QEL_STATUS_ILLEGAL_ARGUMENT;

// --- Values ---

TEST(Setters, AcceptWhatTheirRangesSay) {
    const Held compositing(qelCompositingMode_create());
    const Held polygon(qelPolygonMode_create());
    const Held material(qelMaterial_create());
    const Held fog(qelFog_create());
    const Held light(qelLight_create());
    const Held camera(qelCamera_create());
    const Held texture(makeTexture());
    const Held appearance(qelAppearance_create());
    struct Setter {
        const char* what;
        Object3D* object;
        std::function<Result(float)> set;
        std::vector<float> good, bad;
    };
    // clang-format off
    const Setter kSetters[] = {
        {"blending", compositing, [&](float v) { return qelCompositingMode_setBlending(compositing, int32_t(v)); },
         {71, 64, 68, 70}, {63, 69, 72}},
        {"alpha threshold", compositing, [&](float v) { return qelCompositingMode_setAlphaThreshold(compositing, v); },
         {1, 0}, {1.01f, -0.01f, NAN, INFINITY}},
        {"culling", polygon, [&](float v) { return qelPolygonMode_setCulling(polygon, int32_t(v)); },
         {162, 160}, {159, 163}},
        {"winding", polygon, [&](float v) { return qelPolygonMode_setWinding(polygon, int32_t(v)); },
         {169, 168}, {167, 170}},
        {"shading", polygon, [&](float v) { return qelPolygonMode_setShading(polygon, int32_t(v)); },
         {164, 165}, {163, 166}},
        {"shininess", material, [&](float v) { return qelMaterial_setShininess(material, v); },
         {128, 0}, {128.5f, -0.5f, NAN}},
        {"colour targets", material, [&](float v) { return qelMaterial_setColor(material, uint32_t(v), 1); },
         {1024, 8192, 15360}, {0, 512, 16384, 1025}},
        {"fog mode", fog, [&](float v) { return qelFog_setMode(fog, int32_t(v)); }, {80, 81}, {79, 82}},
        {"fog density", fog, [&](float v) { return qelFog_setDensity(fog, v); }, {0, 5, INFINITY}, {-0.1f, NAN}},
        {"light mode", light, [&](float v) { return qelLight_setMode(light, int32_t(v)); }, {131, 128}, {127, 132}},
        {"spot angle", light, [&](float v) { return qelLight_setSpotAngle(light, v); }, {90, 0}, {90.5f, -1, NAN}},
        {"spot exponent", light, [&](float v) { return qelLight_setSpotExponent(light, v); },
         {128, 0}, {129, -1, NAN}},
        {"attenuation", light, [&](float v) { return qelLight_setAttenuation(light, 0, 0, v); },
         {1, 0.5f}, {0, -1, NAN}},
        {"field of view", camera, [&](float v) { return qelCamera_setPerspective(camera, v, 1, 1, 10); },
         {179.9f, 0.1f}, {180, 0, NAN}},
        {"aspect", camera, [&](float v) { return qelCamera_setPerspective(camera, 60, v, 1, 10); }, {2}, {0, -1, NAN}},
        {"near", camera, [&](float v) { return qelCamera_setPerspective(camera, 60, 1, v, 10); }, {2}, {0, -1, NAN}},
        {"far", camera, [&](float v) { return qelCamera_setPerspective(camera, 60, 1, 1, v); }, {2}, {0, -1, NAN}},
        {"height", camera, [&](float v) { return qelCamera_setParallel(camera, v, 1, -1, 1); }, {2}, {0, -1, NAN}},
        {"parallel aspect", camera, [&](float v) { return qelCamera_setParallel(camera, 1, v, -1, 1); },
         {2}, {0, -1, NAN}},
        {"texture blending", texture, [&](float v) { return qelTexture2D_setBlending(texture, int32_t(v)); },
         {224, 228}, {223, 229}},
        {"wrapping", texture, [&](float v) { return qelTexture2D_setWrapping(texture, int32_t(v), 240); },
         {240, 241}, {239, 242}},
        {"wrapping of t", texture, [&](float v) { return qelTexture2D_setWrapping(texture, 241, int32_t(v)); },
         {240, 241}, {239, 242}},
        {"level filter", texture, [&](float v) { return qelTexture2D_setFiltering(texture, int32_t(v), 210); },
         {210, 208}, {207, 211}},
        {"image filter", texture, [&](float v) { return qelTexture2D_setFiltering(texture, 208, int32_t(v)); },
         {209, 210}, {208, 211}},
    };
    // clang-format on
    for (const Setter& setter : kSetters) {
        SCOPED_TRACE(setter.what);
        setter.object->stateChanged = 0;
        for (const float value : setter.bad) EXPECT_EQ(setter.set(value), kBad) << value;
        EXPECT_EQ(setter.object->stateChanged, 0);
        for (const float value : setter.good) EXPECT_EQ(setter.set(value), kOk) << value;
        EXPECT_EQ(setter.object->stateChanged, 1);
    }
    for (const float fraction : {0.0f, 0.25f, 1.0f})
        EXPECT_EQ(qelNode_setAlphaFactor(light, fraction), kOk) << fraction;
    for (const float none : {-1e-4f, 1.0001f, NAN, INFINITY})
        EXPECT_EQ(qelNode_setAlphaFactor(light, none), kBad) << none;
    for (const int32_t layer : {-64, -63, 63, 64})
        EXPECT_EQ(qelAppearance_setLayer(appearance, layer),
                  std::abs(layer) < 64 ? kOk : QEL_STATUS_INDEX_OUT_OF_RANGE);
    light->stateChanged = 0;
    EXPECT_EQ(qelLight_setAttenuation(light, 0, 0, 0.5f), kOk);
    EXPECT_EQ(light->stateChanged, 0) << "what is stored already";
}

TEST(Setters, KeepValuesInTheFormThatIsDrawnWith) {
    const Held mode(qelCompositingMode_create());
    for (const auto& [threshold, byte] : {std::pair(0.f, 0), {0.01f, 3}, {0.5f, 128}}) {
        qelCompositingMode_setAlphaThreshold(mode, threshold);
        EXPECT_EQ(mode->alphaThresholdByte, byte) << threshold;
    }
    const Held material(qelMaterial_create());
    qelMaterial_setColor(material, QEL_MATERIAL_AMBIENT | QEL_MATERIAL_DIFFUSE, 0x80FF0000);
    qelMaterial_setColor(material, QEL_MATERIAL_EMISSIVE | QEL_MATERIAL_SPECULAR, 0x12345678);
    EXPECT_EQ(qelMaterial_getColor(material, QEL_MATERIAL_AMBIENT), 0xFF0000u);
    EXPECT_EQ(qelMaterial_getColor(material, QEL_MATERIAL_DIFFUSE), 0x80FF0000u) << "the only one with alpha";
    EXPECT_EQ(qelMaterial_getColor(material, QEL_MATERIAL_EMISSIVE), 0x345678u);
    EXPECT_EQ(qelMaterial_getColor(material, QEL_MATERIAL_SPECULAR), 0x345678u);
    const Held light(qelLight_create());
    EXPECT_NEAR(light->spotCosine, std::sqrt(0.5), 1e-7);
    qelLight_setSpotAngle(light, 60);
    EXPECT_NEAR(light->spotCosine, 0.5, 1e-7);
}

TEST(Light, EqualityLooksAtEverySetting) {
    const Held a(qelLight_create());
    for (void (*change)(Light*) : {+[](Light* l) { qelLight_setMode(l, 130); }, +[](Light* l) { l->color = 1; },
                                   +[](Light* l) { qelLight_setSpotAngle(l, 1); }, +[](Light* l) { l->spotCosine = 0; },
                                   +[](Light* l) { l->spotExponent = 1; }, +[](Light* l) { l->attenuation[2] = 1; },
                                   +[](Light* l) { l->intensity = 0; }}) {
        const Held<Light> copy(static_cast<Light*>(qelLight_duplicate(a)));
        ASSERT_TRUE(qelLight_equals(a, copy));
        change(copy);
        EXPECT_FALSE(qelLight_equals(a, copy));
    }
}

// --- Parts ---

TEST(Parts, AreListedFoundSharedAndAnimated) {
    Result result;
    const Held appearance(qelAppearance_create()), bare(qelAppearance_create());
    const Held compositing(qelCompositingMode_create());
    const Held fog(qelFog_create());
    const Held polygon(qelPolygonMode_create());
    const Held material(qelMaterial_create());
    const Held unit0(makeTexture()), unit1(makeTexture());
    qelAppearance_setCompositingMode(appearance, compositing);
    qelAppearance_setFog(appearance, fog);
    qelAppearance_setPolygonMode(appearance, polygon);
    qelAppearance_setMaterial(appearance, material);
    qelAppearance_setTexture(appearance, 0, unit0);
    qelAppearance_setTexture(appearance, 1, unit1);
    const Held buffer(makeBuffer<int8_t>(std::vector<int8_t>(9))), target(makeBuffer<int8_t>(std::vector<int8_t>(9)));
    const Held colors(makeArray<int8_t>(4, std::vector<int8_t>(8))), normals(makeArray<int8_t>(3, {0, 0, 0}));
    const Held coords0(makeArray<int8_t>(2, {0, 0})), coords1(makeArray<int8_t>(2, {0, 0}));
    qelVertexBuffer_setColors(buffer, colors);
    qelVertexBuffer_setNormals(buffer, normals);
    qelVertexBuffer_setTexCoords(buffer, 0, coords0, 1, nullptr);
    qelVertexBuffer_setTexCoords(buffer, 1, coords1, 1, nullptr);
    EXPECT_EQ(qelVertexBuffer_getVertexCount(buffer), 3) << "of the longest array";
    const Held first(makeTriangle()), second(makeTriangle());
    TriangleStripArray* const strips[] = {first, second};
    Appearance* const appearances[] = {bare, nullptr};
    VertexBuffer* const targets[] = {target};
    const Held mesh(qelMesh_create(buffer, strips, appearances, 2, &result));
    const Held morphing(qelMorphingMesh_create(buffer, targets, strips, nullptr, 1, 1, &result));
    const Held image(makeImage());
    const Held sprite(qelSprite3D_create(true, image, bare, &result));
    using Objects = std::vector<Object3D*>;
    const Objects ofAppearance = {compositing, fog, polygon, material, unit0, unit1};
    const Objects ofBuffer = {colors, normals, buffer->positions, coords0, coords1};
    struct Case {
        const char* what;
        Object3D* object;
        Objects listed, searched, animated;
    };
    for (const Case& c :
         {Case{"appearance", appearance, ofAppearance, ofAppearance, {fog, unit0, unit1, material}},
          Case{"vertex buffer", buffer, ofBuffer, ofBuffer, {}},
          Case{"mesh", mesh, {buffer, first, second, bare}, {buffer, first, bare, second}, {bare, buffer}},
          Case{"morphing mesh", morphing, {buffer, first, target}, {buffer, first, target}, {}},
          Case{"sprite", sprite, {bare, image}, {image, bare}, {}}}) {
        SCOPED_TRACE(c.what);
        expectParts(c.object, c.listed, c.searched);
        if (!c.animated.empty()) expectAnimates(c.object, c.animated);
    }
    const Held copy(static_cast<Mesh*>(qelMesh_duplicate(mesh)));
    qelMesh_setAppearance(copy, 0, nullptr);
    EXPECT_EQ(mesh->appearances[0], bare.get()) << "shared, but not their list";
    for (const int32_t index : {-1, 2}) {
        EXPECT_EQ(qelMesh_getAppearance(mesh, index, &result), nullptr);
        EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
        EXPECT_EQ(qelMesh_getIndexBuffer(mesh, index, &result), nullptr);
        EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
        EXPECT_EQ(qelMesh_setAppearance(mesh, index, bare), QEL_STATUS_INDEX_OUT_OF_RANGE);
    }
}

TEST(World, ListsItsBackgroundAndCameraAndAnimatesTheFormer) {
    const Held world(qelWorld_create());
    const Held background(qelBackground_create());
    const Held camera(qelCamera_create());
    qelWorld_setBackground(world, background);
    qelWorld_setActiveCamera(world, camera);
    EXPECT_EQ(qelWorld_setActiveCamera(world, nullptr), QEL_STATUS_NULL_POINTER);
    EXPECT_EQ(referencesOf(world), (std::vector<Object3D*>{background, camera}));
    camera->userId = 5;
    EXPECT_EQ(world->find(world, 5), camera.get());
    background->userId = 5;
    EXPECT_EQ(world->find(world, 5), background.get());
    expectAnimates(world, {background});
}

TEST(Mesh, RefusesWhatItCannotDrawWith) {
    const Held buffer(makeBuffer<int8_t>({1, 2, 3}));
    const Held triangle(makeTriangle());
    TriangleStripArray* const strips[] = {triangle, nullptr};
    VertexBuffer* const targets[] = {buffer, nullptr};
    struct Case {
        const char* what;
        VertexBuffer* buffer;
        TriangleStripArray* const* strips;
        VertexBuffer* const* targets;
        int32_t submeshCount, targetCount;
        Result asMesh, asMorphing;
    };
    constexpr Result kNull = QEL_STATUS_NULL_POINTER;
    for (const Case& c : {Case{"all there", buffer, strips, targets, 1, 1, kOk, kOk},
                          Case{"no vertex buffer", nullptr, strips, targets, 1, 1, kNull, kNull},
                          Case{"no index buffers", buffer, nullptr, targets, 1, 1, kNull, kNull},
                          Case{"a null index buffer", buffer, strips, targets, 2, 1, kNull, kNull},
                          Case{"no submeshes", buffer, strips, targets, 0, 1, kBad, kBad},
                          Case{"negative count", buffer, strips, targets, -1, 1, kBad, kBad},
                          Case{"no targets", buffer, strips, nullptr, 1, 1, kOk, kNull},
                          Case{"a null target", buffer, strips, targets, 1, 2, kOk, kNull},
                          Case{"no target count", buffer, strips, targets, 1, 0, kOk, kBad}}) {
        SCOPED_TRACE(c.what);
        Result result = -1;
        const Held mesh(qelMesh_create(c.buffer, c.strips, nullptr, c.submeshCount, &result));
        EXPECT_EQ(result, c.asMesh);
        const Held morphing(
            qelMorphingMesh_create(c.buffer, c.targets, c.strips, nullptr, c.submeshCount, c.targetCount, &result));
        EXPECT_EQ(result, c.asMorphing);
    }
    EXPECT_EQ(buffer->refCount, 1);
}

// --- Memory ---

TEST(Parts, GiveEverythingBackWhenMemoryRunsOut) {
    const Held buffer(makeBuffer<int16_t>(std::vector<int16_t>(9)));
    const Held triangle(makeTriangle());
    const Held appearance(qelAppearance_create());
    const Held image(makeImage());
    TriangleStripArray* const strips[] = {triangle};
    Appearance* const appearances[] = {appearance};
    const std::vector<uint8_t> bytes(1024, 3);
    int32_t lengths[] = {3}, indices[] = {0, 0, 0};
    Result made;
    const Held sequence(qelKeyframeSequence_create(1, 1, 176, &made));
    const std::vector<std::function<Object3D*(Result*)>> makers = {
        [](Result*) { return qelAppearance_create(); },
        [](Result*) { return qelFog_create(); },
        [](Result*) { return qelBackground_create(); },
        [](Result*) { return qelAnimationController_create(); },
        [&](Result* result) { return qelAnimationTrack_create(sequence, 256, result); },
        [](Result* result) { return qelKeyframeSequence_create(3, 4, int32_t(Interpolation::Linear), result); },
        [](Result* result) { return qelKeyframeSequence_create(3, 4, int32_t(Interpolation::Squad), result); },
        [&](Result* result) { return qelSprite3D_create(true, image, appearance, result); },
        [&](Result* result) { return qelMesh_create(buffer, strips, appearances, 1, result); },
        [&](Result*) { return qelVertexBuffer_duplicate(buffer); },
        [&](Result*) { return qelVertexArray_duplicate(buffer->positions); },
        [](Result* result) { return qelImage2D_createMutable(100, 4, 4, result); },
        [&](Result* result) { return qelImage2D_createFromPixels(100, 4, 4, bytes.data(), true, result); },
        [&](Result* result) { return qelImage2D_createPalettized5551(4, 4, bytes.data(), bytes.data(), result); },
        [&](Result* result) { return qelTriangleStripArray_createExplicit(lengths, 1, indices, 3, true, result); },
    };
    // The engine status says so as well: nothing is allocated behind the failure.
    for (size_t i = 0; i < makers.size(); ++i)
        for (const FailMode mode : {FailMode::Once, FailMode::FromThenOn})
            sweepEngineAllocations(mode, [&](CountingHeap& heap) {
                SCOPED_TRACE(i);
                Result result = -1;
                const Held object(makers[i](&result));
                EXPECT_TRUE(result == -1 || result == (object.get() ? kOk : QEL_STATUS_OUT_OF_MEMORY)) << result;
                const Held copy(object.get() ? qelObject3D_duplicate(object) : nullptr);
                EXPECT_EQ(copy.get() == nullptr, heap.hasFailed());
                EXPECT_EQ(qelStatus_get(), heap.hasFailed() ? QEL_STATUS_OUT_OF_MEMORY : kOk);
            });
    EXPECT_EQ(buffer->refCount, 1);
    EXPECT_EQ(appearance->refCount, 1);
    EXPECT_EQ(image->refCount, 1);
}
