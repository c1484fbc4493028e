// Frames of large scenes over an OpenGL ES that only counts: traversal, culling, queueing and drawing. And the keyframe
// animation of a scene.

#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "animation/animation_controller.h"
#include "animation/animation_track.h"
#include "animation/keyframe_sequence.h"
#include "bench/ratios.h"
#include "render/graphics3d.h"
#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/material.h"
#include "scene/subtree.h"
#include "scene/transform.h"
#include "tests/scene/held.h"

// --- Frames ---

enum Look { Opaque, OpaqueWithMode, Blended, Mixed };

// Meshes of a square each, ten to a group, ten such groups to an outer one, the outer ones below a root. They stand in
// front of the camera and to its sides, so that some are seen, some are culled and the rest is tested in vain.
class Scene {
public:
    Scene(int64_t meshCount, int64_t appearanceCount, Look look) {
        for (int64_t i = 0; i < appearanceCount; ++i) addAppearance(look == Mixed ? Look(i % 3) : look);
        for (int64_t outer = 0; outer < meshCount / 100; ++outer) {
            Group* outerGroup = addGroup(root_);
            for (int inner = 0; inner < 10; ++inner) {
                Group* innerGroup = addGroup(outerGroup);
                for (int mesh = 0; mesh < 10; ++mesh) addMesh(innerGroup);
            }
        }
        qelCamera_setPerspective(camera_, 60, 1, 1, 500);
        graphics_ = qelGraphics3D_create(kHintTrueColor, kSide, kSide);
        qelGraphics3D_bindTarget(graphics_, this, {0, 0, kSide, kSide}, kSide, kSide, true, kHintTrueColor);
        qelGraphics3D_setCamera(graphics_, camera_, nullptr);
    }
    ~Scene() {
        qelGraphics3D_destroy(graphics_);
        for (Appearance* appearance : appearances_) qelObject3D_unref(appearance);
    }

    // Everything moves a little.
    bool render() {
        shift_ = shift_ == 0 ? 1.0f : 0.0f;
        qelTransform place;
        qelTransform_setIdentity(&place);
        qelTransform_postTranslate(&place, shift_, 0, 0);
        return qelGraphics3D_render(graphics_, root_, &place) == QEL_STATUS_OK;
    }

private:
    static constexpr int32_t kSide = 480;

    void addAppearance(Look look) {
        Appearance* appearance = appearances_.emplace_back(qelAppearance_create());
        const Held material(qelMaterial_create());
        qelMaterial_setColor(material, QEL_MATERIAL_DIFFUSE, uint32_t(random_()) | 0xFF000000);
        qelAppearance_setMaterial(appearance, material);
        if (look == Opaque) return;
        const Held mode(qelCompositingMode_create());
        qelCompositingMode_setBlending(mode, int32_t(look == Blended ? Blending::Alpha : Blending::Replace));
        qelAppearance_setCompositingMode(appearance, mode);
    }
    void place(Node* node, float reach) {
        std::uniform_real_distribution<float> offset(-reach, reach);
        qelTransformable_setTranslation(node, offset(random_), offset(random_), offset(random_));
    }
    Group* addGroup(Group* parent) {
        const Held group(qelGroup_create());
        qelGroup_addChild(parent, group);
        place(group, 60);
        if (parent == root_) qelTransformable_translate(group, 0, 0, -150);
        return group;
    }
    void addMesh(Group* parent) {
        Appearance* appearance = appearances_[random_() % appearances_.size()];
        TriangleStripArray* strips = strip_;
        Result result;
        const Held mesh(qelMesh_create(buffer_, &strips, &appearance, 1, &result));
        qelGroup_addChild(parent, mesh);
        place(mesh, 10);
    }
    static TriangleStripArray* makeStrip() {
        int32_t length = 4;
        Result result;
        return qelTriangleStripArray_createImplicit(0, &length, 1, true, &result);
    }

    std::mt19937 random_{3};
    std::vector<Appearance*> appearances_;
    Held<VertexBuffer> buffer_{makeBuffer<int16_t>({-1, -1, 0, 1, -1, 0, -1, 1, 0, 1, 1, 0})};
    Held<TriangleStripArray> strip_{makeStrip()};
    Held<Group> root_{qelGroup_create()};
    Held<Camera> camera_{qelCamera_create()};
    Graphics3D* graphics_;
    float shift_ = 0;
};

// Arguments: meshes, distinct appearances, their look.
static void renderScene(benchmark::State& state) {
    Scene scene(state.range(0), state.range(1), Look(state.range(2)));
    scene.render();  // makes what is kept from frame to frame
    for (auto _ : state)
        if (!scene.render()) return state.SkipWithError("drawing failed");
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Runs so short and so many that some of them find the machine's caches to themselves.
BENCHMARK(renderScene)
    ->ArgsProduct({{1000, 10000}, {8, 1000}, {Opaque, Blended, Mixed}})
    ->MinTime(0.005)
    ->Repetitions(60);

// --- Keyframe animation: a thousand nodes that each move, turn and grow on sequences of their own ---

constexpr int kAnimatedNodes = 1000;

struct AnimatedScene {
    AnimatedScene() {
        for (int i = 0; i < kAnimatedNodes; ++i) {
            const Held node(qelGroup_create());
            qelGroup_addChild(root, node);
            addTrack(node, AnimationProperty::Translation, Interpolation::Linear, 3);
            addTrack(node, AnimationProperty::Orientation, Interpolation::Slerp, 4);
            addTrack(node, AnimationProperty::Scale, Interpolation::Linear, 3);
        }
    }
    void addTrack(Group* node, AnimationProperty property, Interpolation interpolation, int32_t componentCount) {
        constexpr int32_t kKeys = 20;
        Result result;
        const Held sequence(qelKeyframeSequence_create(kKeys, componentCount, int32_t(interpolation), &result));
        std::uniform_real_distribution<float> value(0.5f, 2);
        for (int32_t key = 0; key < kKeys; ++key) {
            const float values[4] = {value(random), value(random), value(random), value(random)};
            qelKeyframeSequence_setKeyframe(sequence, key, key * kDuration / kKeys, values);
        }
        qelKeyframeSequence_setDuration(sequence, kDuration);
        qelKeyframeSequence_setRepeatMode(sequence, int32_t(RepeatMode::Loop));
        const Held track(qelAnimationTrack_create(sequence, int32_t(property), &result));
        qelAnimationTrack_setController(track, controller);
        qelObject3D_addAnimationTrack(node, track);
        sequences.push_back(sequence);
    }

    static constexpr int32_t kDuration = 2000;
    std::mt19937 random{4};
    Held<AnimationController> controller{qelAnimationController_create()};
    Held<Group> root{qelGroup_create()};
    std::vector<KeyframeSequence*> sequences;  // the tracks hold them
};

static void animateScene(benchmark::State& state) {
    AnimatedScene scene;
    int32_t worldTime = 0;
    Result result = QEL_STATUS_OK;
    for (auto _ : state) qelObject3D_animateSubtree(scene.root, worldTime += 16, &result);
    if (result != QEL_STATUS_OK) state.SkipWithError("animating failed");
    state.SetItemsProcessed(state.iterations() * int64_t(scene.sequences.size()));
}

// The least that the above has to do.
static void sampleSequences(benchmark::State& state) {
    AnimatedScene scene;
    int64_t time = 0;
    for (auto _ : state) {
        time = (time + 16) % AnimatedScene::kDuration;
        for (KeyframeSequence* sequence : scene.sequences) {
            float values[4];
            qelKeyframeSequence_sample(sequence, time, std::span(values, size_t(sequence->componentCount)));
            benchmark::DoNotOptimize(values);
        }
    }
    state.SetItemsProcessed(state.iterations() * int64_t(scene.sequences.size()));
}

BENCHMARK(animateScene);
BENCHMARK(sampleSequences);

// --- What is wanted ---

static bool expectFrames(Look look, const std::string& name) {
    const auto frame = [&](const char* scene) { return "renderScene/" + (scene + ("/" + std::to_string(look))); };
    return expectRatio("10 times the meshes, " + name, frame("10000/8"), frame("1000/8"), RatioBound::AtMost, 13) &&
           expectRatio("1000 appearances instead of 8, " + name, frame("1000/1000"), frame("1000/8"),
                       RatioBound::AtMost, 1.5) &&
           expectRatio("1000 appearances instead of 8, 10000 meshes, " + name, frame("10000/1000"), frame("10000/8"),
                       RatioBound::AtMost, 1.5);
}

[[maybe_unused]] static const bool kExpected[] = {
    expectFrames(Opaque, "opaque"),
    expectFrames(Blended, "blended"),
    expectFrames(Mixed, "mixed"),
    expectRatio("animate 1000 nodes, to sampling their 3000 sequences", "animateScene", "sampleSequences",
                RatioBound::AtMost, 3),
};
