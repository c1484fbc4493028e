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
                                      parsed.at<Object3D>(full.group), parsed.at<Node>(full.formMesh)->parent,
                                      parsed.at<Object3D>(full.background), parsed.at<Object3D>(full.camera)}));
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

// --- The other forms of classes ---

TEST_F(M3gReaders, CamerasAndFogs) {
    const auto* generic = parsed.at<Camera>(full.genericCamera);
    EXPECT_EQ(generic->projectionType, ProjectionType::Generic);
    EXPECT_EQ(listed(generic->projection.elements, 16), all(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16));
    const auto* perspective = parsed.at<Camera>(full.perspectiveCamera);
    EXPECT_EQ(all(perspective->projectionType, perspective->fovyOrHeight, perspective->far),
              all(ProjectionType::Perspective, 50, 4));
    const auto* fog = parsed.at<Fog>(full.linearFog);
    EXPECT_EQ(all(fog->mode, fog->near, fog->far), all(FogMode::Linear, 5, 6));
}

TEST_F(M3gReaders, KeyframesOfEachEncoding) {
    const auto* growing = parsed.at<KeyframeSequence>(full.growing);
    EXPECT_EQ(listed(growing->values, 6), all(10, 1, 5, 61, -1, 5));
    EXPECT_EQ(growing->keyframes[1].time, 4);
    const auto* fading = parsed.at<KeyframeSequence>(full.fading);
    EXPECT_EQ(listed(fading->values, 2), all(10, 61));
    EXPECT_EQ(fading->keyframes[1].time, 4);
    EXPECT_EQ(listed(parsed.at<KeyframeSequence>(full.turning)->values, 4), all(0, 0, 0.6f, 0.8f));
}

TEST_F(M3gReaders, DeltasOfVerticesWrapAround) {
    EXPECT_EQ(valuesOf<uint8_t>(parsed.at<VertexArray>(full.narrowDeltas)),
              (std::vector<uint8_t>{200, 1, 0, 44, 3, 0, 250, 6, 9}));
    EXPECT_EQ(valuesOf<int16_t>(parsed.at<VertexArray>(full.wideDeltas)),
              (std::vector<int16_t>{30000, 1, 0, -5536, -2, 0, 24464, -2, 32767}));
}

TEST_F(M3gReaders, StripsOfEachEncoding) {
    struct Implicit {
        M3gRef strips;
        int32_t first;
        std::vector<double> lengths;
    };
    for (const Implicit& c :
         {Implicit{full.start32, 300, {4}}, Implicit{full.start8, 255, {4, 3}}, Implicit{full.start16, 300, {3}}}) {
        const auto* strips = parsed.at<TriangleStripArray>(c.strips);
        EXPECT_EQ(strips->indices, nullptr);
        EXPECT_EQ(strips->firstIndex, c.first);
        EXPECT_EQ(listed(strips->stripLengths, size_t(strips->stripCount)), c.lengths);
    }
    for (const auto& [strips, last] :
         {std::pair{full.indices32, 300}, std::pair{full.indices8, 255}, std::pair{full.indices16, 300}})
        EXPECT_EQ(listed(parsed.at<TriangleStripArray>(strips)->indices, 6), all(9, 8, 7, 7, 8, last));
}

TEST_F(M3gReaders, ImagesOfEachKind) {
    const auto* blank = parsed.at<Image2D>(full.blankImage);
    EXPECT_EQ(all(blank->isMutable, blank->width, blank->height, blank->pixels[4 * 8 * 4 - 1]), all(1, 4, 8, 0xFF));
    const auto* grey = parsed.at<Image2D>(full.greyImage);
    EXPECT_EQ(listed(grey->pixels, 4), all(1, 2, 3, 4));
    EXPECT_EQ(grey->isMutable, 0);
    const auto* rgba = parsed.at<Image2D>(full.rgbaImage);
    EXPECT_EQ(rgba->pixels[0] | rgba->pixels[1] << 8, 0x1357);
    const auto* indexed = parsed.at<Image2D>(full.indexedImage);
    EXPECT_EQ(listed(indexed->pixels, 4), all(0, 1, 1, 0));
    EXPECT_EQ(indexed->paletteBlock[0] | indexed->paletteBlock[1] << 8, 0xFC51);
}

}  // namespace
