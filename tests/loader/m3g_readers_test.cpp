// What each reader makes of the fields of its class.
#include <array>
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

namespace {

struct M3gReaders : testing::Test {
    CountingHeap heap;
    FullScene full;
    ParsedObjects parsed{encodeM3gObjects(full.scene)};

    void SetUp() override { ASSERT_TRUE(parsed.ok()) << int(parsed.context().reason); }
};

template <typename T>
std::vector<double> listed(const T* values, size_t count) {
    return {values, values + count};
}

TEST_F(M3gReaders, Animations) {
    const auto* c = parsed.at<AnimationController>(full.controller);
    EXPECT_EQ(all(c->speed, c->weight, c->activeStart, c->activeEnd, c->referenceSequenceTime, c->referenceWorldTime),
              all(2.5f, 0.75f, -5, 90, 12.5f, -7));
    const auto* s = parsed.at<KeyframeSequence>(full.sequence);
    EXPECT_EQ(all(s->interpolation, s->repeatMode, s->duration, s->validFirst, s->validLast, s->keyframeCount),
              all(Interpolation::Spline, RepeatMode::Loop, 900, 1, 2, 3));
    EXPECT_EQ(s->keyframes[2].time, 30);
    EXPECT_EQ(listed(s->values, 9), all(1, 2, 3, 4, 5, 6, 7, 8, -9));
    const auto* track = parsed.at<AnimationTrack>(full.track);
    EXPECT_EQ(track->keyframeSequence, s);
    EXPECT_EQ(track->controller, c);
    EXPECT_EQ(track->targetProperty, AnimationProperty::Translation);
}

TEST_F(M3gReaders, AppearanceComponents) {
    const auto* c = parsed.at<CompositingMode>(full.compositingMode);
    EXPECT_EQ(all(c->depthTestEnabled, c->depthWriteEnabled, c->colorWriteEnabled, c->alphaWriteEnabled, c->blending,
                  c->alphaThresholdByte, c->depthOffsetFactor, c->depthOffsetUnits),
              all(0, 0, 0, 0, Blending::AlphaAdd, 51, 1.5f, -2));
    const auto* f = parsed.at<Fog>(full.fog);
    EXPECT_EQ(all(f->color, f->mode, f->density), all(0x102030, FogMode::Exponential, 0.25f));
    const auto* p = parsed.at<PolygonMode>(full.polygonMode);
    EXPECT_EQ(all(p->culling, p->shading, p->winding, p->twoSidedLightingEnabled, p->localCameraLightingEnabled,
                  p->perspectiveCorrectionEnabled),
              all(Culling::Front, Shading::Flat, Winding::Cw, 1, 1, 1));
    const auto* m = parsed.at<Material>(full.material);
    EXPECT_EQ(all(m->ambientColor, m->diffuseColor, m->emissiveColor, m->specularColor, m->shininess,
                  qelMaterial_isVertexColorTrackingEnabled(m)),
              all(0x010203, 0x04050607, 0x08090A, 0x0B0C0D, 12.5f, 1));
    const auto* t = parsed.at<Texture2D>(full.texture);
    EXPECT_EQ(t->image, parsed.at<Image2D>(full.image));
    EXPECT_EQ(all(t->blendColor, t->blending, t->wrapS, t->wrapT, t->levelFilter, t->imageFilter, t->scale[1]),
              all(0xABCDEF, TextureBlending::Decal, TextureWrap::Clamp, TextureWrap::Repeat, TextureFilter::Linear,
                  TextureFilter::Linear, 5));
    EXPECT_EQ(listed(t->matrix.elements + 12, 4), all(1, 2, 3, 4)) << "no node: any bottom row";
    const auto* appearance = parsed.at<Appearance>(full.appearance);
    EXPECT_EQ(appearance->layer, -3);
    EXPECT_EQ(referencesOf(appearance),
              (std::vector<Object3D*>{parsed.at<Object3D>(full.compositingMode), parsed.at<Object3D>(full.fog),
                                      parsed.at<Object3D>(full.polygonMode), parsed.at<Object3D>(full.material),
                                      parsed.at<Object3D>(full.texture)}));
    EXPECT_EQ(appearance->textures[1], t);
}

TEST_F(M3gReaders, ALightWithAllThatObjectsAndNodesHave) {
    const auto* l = parsed.at<Light>(full.light);
    EXPECT_EQ(l->animationTracks[0], parsed.at<AnimationTrack>(full.track));
    ASSERT_EQ(l->userParameterCount, 2u);
    EXPECT_EQ(listed(l->userParameters[0].data, l->userParameters[0].length), all(1, 2, 3));
    EXPECT_EQ(all(l->userParameters[0].id, l->userParameters[1].length), all(7, 0));
    EXPECT_EQ(listed(l->translation, 3), all(1, 2, 3));
    EXPECT_EQ(listed(l->scale, 3), all(4, 5, 6));
    EXPECT_EQ(listed(l->orientationAxis, 3), all(0, 0, 2));
    EXPECT_EQ(std::bit_cast<uint32_t>(l->alphaFactor), 0x3E4CCCCEu) << "51 x 0.003921569, not 51 / 255";
    EXPECT_EQ(l->zReference, parsed.at<Node>(full.camera));
    EXPECT_EQ(l->yReference, nullptr);
    EXPECT_EQ(listed(l->attenuation, 3), all(0.5f, 0.25f, 2));
    EXPECT_EQ(all(l->userId, l->orientationAngle, l->matrix.elements[11], l->renderingEnabled, l->pickingEnabled,
                  l->scope, l->zTarget, l->yTarget, l->color, l->mode, l->intensity, l->spotAngle, l->spotExponent),
              all(-2, 90, 9, 0, 0, INT32_MIN + 1, AlignmentTarget::ZAxis, AlignmentTarget::Origin, 0x334455,
                  LightMode::Spot, -3, 30, 17));
}

TEST_F(M3gReaders, OtherNodes) {
    const auto* camera = parsed.at<Camera>(full.camera);
    float parameters[4];
    EXPECT_EQ(qelCamera_getProjectionParameters(camera, parameters), ProjectionType::Parallel);
    EXPECT_EQ(listed(parameters, 4), all(5, 1.5f, -4, 40));
    const auto* s = parsed.at<Sprite3D>(full.sprite);
    EXPECT_EQ(s->image, parsed.at<Image2D>(full.image));
    EXPECT_EQ(s->appearance, parsed.at<Appearance>(full.appearance));
    EXPECT_EQ(all(s->scaled, s->cropX, s->cropY, s->cropWidth, s->cropHeight, s->zTarget),
              all(1, -1, 2, -3, 4, AlignmentTarget::ZAxis));
    const auto* b = parsed.at<Background>(full.background);
    EXPECT_EQ(b->image, parsed.at<Image2D>(full.image));
    EXPECT_EQ(all(b->color, b->imageModeX, b->imageModeY, b->cropX, b->cropY, b->cropWidth, b->cropHeight,
                  b->depthClearEnabled, b->colorClearEnabled),
              all(0x40506070, ImageMode::Repeat, ImageMode::Border, 1, -2, 3, 4, 0, 0));
    const auto* world = parsed.at<World>(full.world);
    EXPECT_EQ(referencesOf(world),
              (std::vector<Object3D*>{parsed.at<Object3D>(full.camera), parsed.at<Object3D>(full.morphingMesh),
                                      parsed.at<Object3D>(full.skinnedMesh), parsed.at<Object3D>(full.sprite),
                                      parsed.at<Object3D>(full.group), parsed.at<Object3D>(full.background),
                                      parsed.at<Object3D>(full.camera)}));
    EXPECT_EQ(parsed.at<Group>(full.group)->children[0]->parent, parsed.at<Group>(full.group));
}

TEST_F(M3gReaders, VerticesAndMeshes) {
    const auto* v = parsed.at<VertexBuffer>(full.vertices);
    EXPECT_EQ(v->positions, parsed.at<VertexArray>(full.positions));
    EXPECT_EQ(v->texCoords[1], parsed.at<VertexArray>(full.texCoords));
    EXPECT_EQ(valuesOf<int16_t>(v->positions), (std::vector<int16_t>{0, 0, 0, 100, 0, 0, 0, -100, 300}));
    EXPECT_EQ(valuesOf<int8_t>(v->normals), (std::vector<int8_t>{0, 0, 127, 76, 101, 0, -127, 0, 0})) << "normalised";
    EXPECT_EQ(valuesOf<uint8_t>(v->colors), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 250, 251, 252, 253}));
    EXPECT_EQ(listed(v->positionBias, 3), all(1, 2, 3));
    EXPECT_EQ(listed(v->texCoordBias[1], 3), all(6, 7, 0));
    EXPECT_EQ(all(v->defaultColor, v->positionScale, v->texCoordScale[0], v->texCoordScale[1]),
              all(0x11223344, 0.5f, 2, 3));

    const auto* mesh = parsed.at<Mesh>(full.mesh);
    EXPECT_EQ(mesh->vertexBuffer, v);
    ASSERT_EQ(mesh->submeshCount, 2);
    EXPECT_EQ(mesh->indexBuffers[1], parsed.at<TriangleStripArray>(full.strips));
    EXPECT_EQ(mesh->appearances[0], parsed.at<Appearance>(full.appearance));
    EXPECT_EQ(mesh->appearances[1], nullptr);
    const auto* morphing = parsed.at<MorphingMesh>(full.morphingMesh);
    ASSERT_EQ(morphing->targetCount, 2);
    EXPECT_EQ(morphing->morphTargets[1], v);
    EXPECT_EQ(listed(morphing->weights, 2), all(0.25f, -2));
    const auto* skinned = parsed.at<SkinnedMesh>(full.skinnedMesh);
    EXPECT_EQ(skinned->skeleton, parsed.at<Group>(full.skeleton));
    ASSERT_EQ(skinned->bindingCount, 2);
    const SkinBinding& binding = skinned->bindings[0];
    EXPECT_EQ(skinned->bones[binding.bone], parsed.at<Node>(full.bone));
    EXPECT_EQ(all(binding.firstVertex, binding.vertexCount, binding.weight), all(1, 2, 5));
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
    EXPECT_EQ(std::to_array(generic->projection.elements), matrix);
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
        EXPECT_EQ(listed(sequence->values, 4), all(10, 1, 61, -1));
        EXPECT_EQ(sequence->keyframes[1].time, 4);
    }
    const Single<KeyframeSequence> turn(
        M3gKeyframeSequence{.interpolation = M3gInterpolation::Slerp, .keyframes = {{0, {0, 0, 3, 4}}}});
    EXPECT_EQ(listed(turn->values, 4), all(0, 0, 0.6f, 0.8f));
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
    EXPECT_EQ(valuesOf<uint8_t>(narrow.at<VertexArray>({0})), (std::vector<uint8_t>{200, 1, 44, 3, 250, 6}));
    const ParsedObjects wide(file(2, {30000, 1, 30000, -3, 30000, 0}));
    EXPECT_EQ(valuesOf<int16_t>(wide.at<VertexArray>({0})), (std::vector<int16_t>{30000, 1, -5536, -2, 24464, -2}));
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
        EXPECT_EQ(listed(strips->stripLengths, 2), all(4, 3));
    }
    for (const auto encoding : {Indices32, Indices8, Indices16}) {
        const uint16_t last = encoding == Indices8 ? 255 : 300;
        const Single<TriangleStripArray> strips(
            M3gTriangleStripArray{.encoding = encoding, .indices = {9, 8, 7, last}, .strips = {4}});
        EXPECT_EQ(listed(strips->indices, 6), all(9, 8, 7, 7, 8, last));
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
    EXPECT_EQ(listed(direct->pixels, 4), all(1, 2, 3, 4));
    EXPECT_EQ(direct->isMutable, 0);
    const Single<Image2D> rgba(
        M3gImage2D{.format = M3gImageFormat::Rgba, .width = 1, .height = 1, .pixels = {0x12, 0x34, 0x56, 0x78}});
    EXPECT_EQ(rgba->pixels[0] | rgba->pixels[1] << 8, 0x1357);
    std::vector<uint8_t> palette(256 * 3, 0x88);
    palette[0] = 0xFF;
    const Single<Image2D> indexed(M3gImage2D{.width = 3, .height = 1, .palette = palette, .pixels = {0, 255, 7}});
    EXPECT_EQ(listed(indexed->pixels, 3), all(0, 255, 7));
    EXPECT_EQ(indexed->paletteBlock[0] | indexed->paletteBlock[1] << 8, 0xFC51);
}

}  // namespace
