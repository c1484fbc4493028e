// What each reader makes of the fields of its class.
#include <gmock/gmock.h>

#include <bit>

#include "animation/animation_controller.h"
#include "animation/animation_track.h"
#include "animation/keyframe_sequence.h"
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
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"
#include "scene/world.h"
#include "tests/loader/m3g_scenes.h"
#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"

using namespace encode;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace {

struct M3gReaders : testing::Test {
    CountingHeap heap;
    FullScene full;
    ParsedObjects parsed{encodeM3gObjects(full.scene)};

    void SetUp() override { ASSERT_TRUE(parsed.ok()) << int(parsed.context().reason); }
};

TEST_F(M3gReaders, Animations) {
    const auto* controller = parsed.at<AnimationController>(full.controller);
    EXPECT_EQ(controller->speed, 2.5f);
    EXPECT_EQ(controller->weight, 0.75f);
    EXPECT_EQ(controller->activeStart, -5);
    EXPECT_EQ(controller->activeEnd, 90);
    EXPECT_EQ(controller->referenceSequenceTime, 12.5f);
    EXPECT_EQ(controller->referenceWorldTime, -7);

    const auto* sequence = parsed.at<KeyframeSequence>(full.sequence);
    EXPECT_EQ(sequence->interpolation, Interpolation::Spline);
    EXPECT_EQ(sequence->repeatMode, RepeatMode::Loop);
    EXPECT_EQ(sequence->duration, 900);
    EXPECT_EQ(sequence->validFirst, 1);
    EXPECT_EQ(sequence->validLast, 2);
    ASSERT_EQ(sequence->keyframeCount, 3);
    EXPECT_EQ(sequence->keyframes[2].time, 30);
    EXPECT_THAT(std::vector(sequence->values, sequence->values + 9), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, -9));

    const auto* track = parsed.at<AnimationTrack>(full.track);
    EXPECT_EQ(track->keyframeSequence, sequence);
    EXPECT_EQ(track->controller, controller);
    EXPECT_EQ(track->targetProperty, AnimationProperty::Translation);
}

TEST_F(M3gReaders, AppearanceComponents) {
    const auto* mode = parsed.at<CompositingMode>(full.compositingMode);
    EXPECT_EQ(mode->depthTestEnabled + mode->depthWriteEnabled + mode->colorWriteEnabled + mode->alphaWriteEnabled, 0);
    EXPECT_EQ(mode->blending, Blending::AlphaAdd);
    EXPECT_EQ(mode->alphaThreshold, 0.2f);
    EXPECT_EQ(mode->alphaThresholdByte, 51);
    EXPECT_EQ(mode->depthOffsetFactor, 1.5f);
    EXPECT_EQ(mode->depthOffsetUnits, -2);

    const auto* fog = parsed.at<Fog>(full.fog);
    EXPECT_EQ(fog->color, 0x102030u);
    EXPECT_EQ(fog->mode, FogMode::Exponential);
    EXPECT_EQ(fog->density, 0.25f);

    const auto* polygons = parsed.at<PolygonMode>(full.polygonMode);
    EXPECT_EQ(polygons->culling, Culling::Front);
    EXPECT_EQ(polygons->shading, Shading::Flat);
    EXPECT_EQ(polygons->winding, Winding::Cw);
    EXPECT_EQ(polygons->twoSidedLightingEnabled, 1);
    EXPECT_EQ(polygons->localCameraLightingEnabled, 1);
    EXPECT_EQ(polygons->perspectiveCorrectionEnabled, 1);

    const auto* material = parsed.at<Material>(full.material);
    EXPECT_EQ(material->ambientColor, 0x010203u);
    EXPECT_EQ(material->diffuseColor, 0x04050607u);
    EXPECT_EQ(material->emissiveColor, 0x08090Au);
    EXPECT_EQ(material->specularColor, 0x0B0C0Du);
    EXPECT_EQ(material->shininess, 12.5f);
    EXPECT_TRUE(qelMaterial_isVertexColorTrackingEnabled(material));

    const auto* texture = parsed.at<Texture2D>(full.texture);
    EXPECT_EQ(texture->image, parsed.at<Image2D>(full.image));
    EXPECT_EQ(texture->blendColor, 0xABCDEFu);
    EXPECT_EQ(texture->blending, TextureBlending::Decal);
    EXPECT_EQ(texture->wrapS, TextureWrap::Clamp);
    EXPECT_EQ(texture->wrapT, TextureWrap::Repeat);
    EXPECT_EQ(texture->levelFilter, TextureFilter::Linear);
    EXPECT_EQ(texture->imageFilter, TextureFilter::Linear);
    EXPECT_EQ(texture->scale[1], 5);
    EXPECT_THAT(std::span(texture->matrix.elements).subspan(12), ElementsAre(1, 2, 3, 4)) << "no node: any bottom row";

    const auto* appearance = parsed.at<Appearance>(full.appearance);
    EXPECT_EQ(appearance->layer, -3);
    EXPECT_EQ(appearance->compositingMode, mode);
    EXPECT_EQ(appearance->fog, fog);
    EXPECT_EQ(appearance->polygonMode, polygons);
    EXPECT_EQ(appearance->material, material);
    EXPECT_EQ(appearance->textures[0], nullptr);
    EXPECT_EQ(appearance->textures[1], texture);
}

TEST_F(M3gReaders, ALightWithAllThatObjectsAndNodesHave) {
    const auto* light = parsed.at<Light>(full.light);
    EXPECT_EQ(light->userId, -2);
    EXPECT_EQ(light->animationTracks[0], parsed.at<AnimationTrack>(full.track));
    ASSERT_EQ(light->userParameterCount, 2u);
    EXPECT_EQ(light->userParameters[0].id, 7u);
    EXPECT_THAT(std::span(light->userParameters[0].data, light->userParameters[0].length), ElementsAre(1, 2, 3));
    EXPECT_EQ(light->userParameters[1].length, 0u);
    EXPECT_THAT(light->translation, ElementsAre(1, 2, 3));
    EXPECT_THAT(light->scale, ElementsAre(4, 5, 6));
    EXPECT_EQ(light->orientationAngle, 90);
    EXPECT_THAT(light->orientationAxis, ElementsAre(0, 0, 2));
    EXPECT_EQ(light->matrix.elements[11], 9);
    EXPECT_EQ(light->renderingEnabled, 0);
    EXPECT_EQ(light->pickingEnabled, 0);
    EXPECT_EQ(std::bit_cast<uint32_t>(light->alphaFactor), 0x3E4CCCCEu) << "51 x 0.003921569, not 51 / 255";
    EXPECT_EQ(light->scope, INT32_MIN + 1);
    EXPECT_EQ(light->zTarget, AlignmentTarget::ZAxis);
    EXPECT_EQ(light->yTarget, AlignmentTarget::Origin);
    EXPECT_EQ(light->zReference, parsed.at<Node>(full.camera));
    EXPECT_EQ(light->yReference, nullptr);
    EXPECT_THAT(light->attenuation, ElementsAre(0.5f, 0.25f, 2));
    EXPECT_EQ(light->color, 0x334455u);
    EXPECT_EQ(light->mode, LightMode::Spot);
    EXPECT_EQ(light->intensity, -3);
    EXPECT_EQ(light->spotAngle, 30);
    EXPECT_EQ(light->spotExponent, 17);
}

TEST_F(M3gReaders, OtherNodes) {
    const auto* camera = parsed.at<Camera>(full.camera);
    float parameters[4];
    EXPECT_EQ(qelCamera_getProjectionParameters(camera, parameters), ProjectionType::Parallel);
    EXPECT_THAT(parameters, ElementsAre(5, 1.5f, -4, 40));

    const auto* sprite = parsed.at<Sprite3D>(full.sprite);
    EXPECT_EQ(sprite->image, parsed.at<Image2D>(full.image));
    EXPECT_EQ(sprite->appearance, parsed.at<Appearance>(full.appearance));
    EXPECT_EQ(sprite->scaled, 1);
    EXPECT_THAT((std::vector{sprite->cropX, sprite->cropY, sprite->cropWidth, sprite->cropHeight}),
                ElementsAre(-1, 2, -3, 4));
    EXPECT_EQ(sprite->zTarget, AlignmentTarget::ZAxis) << "nothing else was given";

    const auto* background = parsed.at<Background>(full.background);
    EXPECT_EQ(background->color, 0x40506070u);
    EXPECT_EQ(background->image, parsed.at<Image2D>(full.image));
    EXPECT_EQ(background->imageModeX, ImageMode::Repeat);
    EXPECT_EQ(background->imageModeY, ImageMode::Border);
    EXPECT_THAT((std::vector{background->cropX, background->cropY, background->cropWidth, background->cropHeight}),
                ElementsAre(1, -2, 3, 4));
    EXPECT_EQ(background->depthClearEnabled, 0);
    EXPECT_EQ(background->colorClearEnabled, 0);

    const auto* world = parsed.at<World>(full.world);
    ASSERT_EQ(world->childCount, 5);
    EXPECT_EQ(world->children[1], parsed.at<Node>(full.morphingMesh));
    EXPECT_EQ(world->children[4], parsed.at<Node>(full.group));
    EXPECT_EQ(world->activeCamera, camera);
    EXPECT_EQ(world->background, background);
    EXPECT_EQ(world->classId, ClassId::World);
    EXPECT_EQ(parsed.at<Group>(full.group)->children[0]->parent, parsed.at<Group>(full.group));
}

TEST_F(M3gReaders, VerticesAndMeshes) {
    const auto* vertices = parsed.at<VertexBuffer>(full.vertices);
    EXPECT_EQ(vertices->defaultColor, 0x11223344u);
    EXPECT_EQ(vertices->positions, parsed.at<VertexArray>(full.positions));
    EXPECT_THAT(valuesOf<int16_t>(vertices->positions), ElementsAre(0, 0, 0, 100, 0, 0, 0, -100, 300));
    EXPECT_EQ(vertices->positionScale, 0.5f);
    EXPECT_THAT(vertices->positionBias, ElementsAre(1, 2, 3));
    EXPECT_THAT(valuesOf<int8_t>(vertices->normals), ElementsAre(0, 0, 127, 76, 101, 0, -127, 0, 0)) << "normalised";
    EXPECT_THAT(valuesOf<uint8_t>(vertices->colors), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 250, 251, 252, 253));
    EXPECT_EQ(vertices->texCoords[1], parsed.at<VertexArray>(full.texCoords));
    EXPECT_THAT(vertices->texCoordScale, ElementsAre(2, 3));
    EXPECT_THAT(vertices->texCoordBias[1], ElementsAre(6, 7, 0));

    const auto* mesh = parsed.at<Mesh>(full.mesh);
    EXPECT_EQ(mesh->vertexBuffer, vertices);
    ASSERT_EQ(mesh->submeshCount, 2);
    EXPECT_EQ(mesh->indexBuffers[1], parsed.at<TriangleStripArray>(full.strips));
    EXPECT_EQ(mesh->appearances[0], parsed.at<Appearance>(full.appearance));
    EXPECT_EQ(mesh->appearances[1], nullptr);

    const auto* morphing = parsed.at<MorphingMesh>(full.morphingMesh);
    ASSERT_EQ(morphing->targetCount, 2);
    EXPECT_EQ(morphing->morphTargets[1], vertices);
    EXPECT_THAT(std::span(morphing->weights, 2), ElementsAre(0.25f, -2));

    const auto* skinned = parsed.at<SkinnedMesh>(full.skinnedMesh);
    EXPECT_EQ(skinned->skeleton, parsed.at<Group>(full.skeleton));
    ASSERT_EQ(skinned->bindingCount, 2);
    const SkinBinding& binding = skinned->bindings[0];
    EXPECT_EQ(skinned->bones[binding.bone], parsed.at<Node>(full.bone));
    EXPECT_THAT((std::vector{binding.firstVertex, binding.vertexCount, binding.weight}), ElementsAre(1, 2, 5));
}

// --- Forms of one class ---

template <typename T>
struct Single {
    ParsedObjects parsed;
    explicit Single(const M3gRecord& record) : parsed(encodeM3gObjects({.objects = {record}})) {}
    const T* operator->() const { return parsed.ok() ? parsed.at<T>({0}) : nullptr; }
};

TEST(M3gReaderForms, CamerasAndFogs) {
    const CountingHeap heap;
    const M3gMatrix matrix = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    const Single<Camera> generic(M3gCamera{.projection = M3gProjection::Generic, .matrix = matrix});
    EXPECT_EQ(generic->projectionType, ProjectionType::Generic);
    EXPECT_THAT(generic->projection.elements, ElementsAreArray(matrix));
    const Single<Camera> perspective(M3gCamera{.fieldOfView = 50, .aspectRatio = 2, .near = 3, .far = 4});
    EXPECT_EQ(perspective->projectionType, ProjectionType::Perspective);
    EXPECT_EQ(perspective->fovyOrHeight, 50);
    EXPECT_EQ(perspective->far, 4);
    const Single<Fog> fog(M3gFog{.near = 5, .far = 6});
    EXPECT_EQ(fog->mode, FogMode::Linear);
    EXPECT_EQ(fog->near, 5);
    EXPECT_EQ(fog->far, 6);
}

TEST(M3gReaderForms, KeyframesOfEachEncoding) {
    const CountingHeap heap;
    for (const auto encoding : {M3gKeyframeEncoding::Quantised8, M3gKeyframeEncoding::Quantised16}) {
        const Single<KeyframeSequence> sequence(M3gKeyframeSequence{
            .encoding = encoding, .keyframes = {{0, {10, 1}}, {4, {61, -1}}}, .bias = {10, -1}, .scale = {255, 2}});
        EXPECT_THAT(std::vector(sequence->values, sequence->values + 4), ElementsAre(10, 1, 61, -1));
        EXPECT_EQ(sequence->keyframes[1].time, 4);
    }
    const Single<KeyframeSequence> turn(
        M3gKeyframeSequence{.interpolation = M3gInterpolation::Slerp, .keyframes = {{0, {0, 0, 3, 4}}}});
    EXPECT_THAT(std::vector(turn->values, turn->values + 4), ElementsAre(0, 0, 0.6f, 0.8f));
}

TEST(M3gReaderForms, DeltasOfVerticesWrapAround) {
    const CountingHeap heap;
    const auto file = [](uint8_t size, std::vector<int32_t> values) {
        EncodedFile encoded = encodeM3gObjects(
            {.objects = {M3gVertexArray{
                 .componentSize = size, .componentCount = 2, .asDeltas = true, .values = {0, 0, 0, 0, 0, 0}}}});
        for (size_t i = 0; i < values.size(); ++i)
            encoded.set(fieldOf({0}, "") + indexed("value", i), uint64_t(values[i]));
        return encoded;
    };
    const ParsedObjects narrow(file(1, {200, 1, 100, 2, -50, 3}));
    EXPECT_THAT(valuesOf<uint8_t>(narrow.at<VertexArray>({0})), ElementsAre(200, 1, 44, 3, 250, 6));
    const ParsedObjects wide(file(2, {30000, 1, 30000, -3, 30000, 0}));
    EXPECT_THAT(valuesOf<int16_t>(wide.at<VertexArray>({0})), ElementsAre(30000, 1, -5536, -2, 24464, -2));
}

TEST(M3gReaderForms, StripsOfEachEncoding) {
    const CountingHeap heap;
    using enum M3gStripEncoding;
    for (const auto encoding : {Start32, Start8, Start16}) {
        const uint32_t start = encoding == Start8 ? 255 : 300;
        const Single<TriangleStripArray> strips(
            M3gTriangleStripArray{.encoding = encoding, .start = start, .strips = {4, 3}});
        EXPECT_EQ(strips->indices, nullptr);
        EXPECT_EQ(strips->firstIndex, int32_t(start));
        EXPECT_THAT(std::span(strips->stripLengths, 2), ElementsAre(4, 3));
    }
    for (const auto encoding : {Indices32, Indices8, Indices16}) {
        const uint16_t last = encoding == Indices8 ? 255 : 300;
        const Single<TriangleStripArray> strips(
            M3gTriangleStripArray{.encoding = encoding, .indices = {9, 8, 7, last}, .strips = {4}});
        EXPECT_THAT(std::span(strips->indices, 6), ElementsAre(9, 8, 7, 7, 8, last));
    }
}

TEST(M3gReaderForms, ImagesOfEachKind) {
    const CountingHeap heap;
    const Single<Image2D> blank(
        M3gImage2D{.format = M3gImageFormat::Rgba, .isMutable = true, .width = 2048, .height = 2});
    EXPECT_EQ(blank->isMutable, 1);
    EXPECT_EQ(blank->width, 2048);
    EXPECT_EQ(blank->pixels[2048 * 2 * 4 - 1], 0xFF);
    const Single<Image2D> direct(
        M3gImage2D{.format = M3gImageFormat::LuminanceAlpha, .width = 1, .height = 2, .pixels = {1, 2, 3, 4}});
    EXPECT_THAT(std::span(direct->pixels, 4), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(direct->isMutable, 0);
    const Single<Image2D> rgba(
        M3gImage2D{.format = M3gImageFormat::Rgba, .width = 1, .height = 1, .pixels = {0x12, 0x34, 0x56, 0x78}});
    EXPECT_EQ(rgba->pixels[0] | rgba->pixels[1] << 8, 0x1357);
    std::vector<uint8_t> palette(256 * 3, 0x88);
    palette[0] = 0xFF;
    const Single<Image2D> indexed(M3gImage2D{.width = 3, .height = 1, .palette = palette, .pixels = {0, 255, 7}});
    EXPECT_THAT(std::span(indexed->pixels, 3), ElementsAre(0, 255, 7));
    EXPECT_EQ(indexed->paletteBlock[0] | indexed->paletteBlock[1] << 8, 0xFC51);
}

}  // namespace
