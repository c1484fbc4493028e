// What a loaded scene, and a mesh of one, are drawn with, and that the scene is as before afterwards.
#include "render/draw_scene.h"

#include "render/scene_changes.h"
#include "scene/fog.h"
#include "scene/morphing_mesh.h"
#include "scene/subtree.h"
#include "scene/texture2d.h"
#include "scene/world.h"
#include "tests/render/figure_stage.h"
#include "tests/support/dispose.h"
#include "tools/encode/m3g_encoder.h"

namespace {

using namespace encode;

// The scene's submeshes by their first vertex, which stands at 100 times as many units, in layers of that order.
enum ScenePart { Plain = 1, Glass, Morphing, Skinned, InSkeleton };

class SceneFile {
public:
    EncodedFile encode() {
        const M3gRef first = texture(10), second = texture(20), map = texture(30), third = texture(40);
        const M3gRef plain =
            add(M3gMesh{.object = {.tracks = {fading()}},
                        .vertices = vertices(Plain),
                        .submeshes = {{strip(), appearance(Plain, {first})}, {strip(3), appearance(Glass, {})}}});
        const M3gRef morphBase = vertices(Morphing);
        const M3gRef morphing = add(M3gMorphingMesh{.node = {.alpha = 204},
                                                    .vertices = morphBase,
                                                    .submeshes = {{strip(), appearance(Morphing, {second, map})}},
                                                    .targets = {{vertices(Morphing), 0.5f}, {morphBase, 0.5f}}});
        const M3gRef inSkeleton =
            add(M3gMesh{.vertices = vertices(InSkeleton), .submeshes = {{strip(), appearance(InSkeleton, {first})}}});
        const M3gRef skeleton = add(M3gGroup{.children = {inSkeleton}});
        const M3gRef skinned = add(M3gSkinnedMesh{.vertices = vertices(Skinned),
                                                  .submeshes = {{strip(), appearance(Skinned, {third})}},
                                                  .skeleton = skeleton,
                                                  .bindings = {{skeleton, 0, 6, 1}}});
        const M3gRef lamp = add(M3gLight{.color = 0x0000FF});
        const M3gRef group = add(M3gGroup{.children = {lamp, morphing}});
        add(M3gWorld{.children = {plain, group, add(M3gLight{.color = 0x00FF00}), skinned}});
        return encodeScenePackage(scene_);
    }

private:
    M3gRef add(M3gRecord record) { return scene_.add(std::move(record)); }
    M3gRef texture(uint8_t gray) {
        const M3gRef image = add(M3gImage2D{.width = 1, .height = 1, .pixels = {gray, gray, gray}});
        M3gTexture2D texture = {.image = image, .blending = M3gTextureBlending::Decal};
        texture.transform.components = M3gComponents{.scale = {3, 3, 3}};
        return add(texture);
    }
    // Two triangles; the second begins at the height of the next part.
    M3gRef vertices(int part) {
        M3gVertexArray positions, texels{.componentCount = 2};
        for (int triangle = 0; triangle < 2; ++triangle)
            for (const auto& [x, y] : {std::pair{0, 0}, std::pair{9, 1}, std::pair{0, 9}}) {
                positions.values.insert(positions.values.end(), {x, 100 * (part + triangle) + y, 0});
                texels.values.insert(texels.values.end(), {x, y});
            }
        return add(M3gVertexBuffer{
            .defaultColor = 0x80FFFFFF, .positions = {add(positions)}, .texCoords = {{add(texels), 0.125f}}});
    }
    M3gRef strip(uint32_t start = 0) { return add(M3gTriangleStripArray{.start = start, .strips = {3}}); }
    M3gRef appearance(int part, std::vector<M3gRef> textures) {
        M3gCompositingMode mode;
        if (part == Glass) mode = {.depthWrite = false, .blending = M3gBlending::Alpha};
        return add(M3gAppearance{.layer = int8_t(part),
                                 .compositingMode = add(mode),
                                 .fog = add(M3gFog{.color = 0x123456}),
                                 .polygonMode = add(M3gPolygonMode{.culling = M3gCulling::Front}),
                                 .textures = std::move(textures)});
    }
    // Alpha falls from 1 to 0 in a second.
    M3gRef fading() {
        const M3gRef sequence = add(M3gKeyframeSequence{.keyframes = {{0, {1}}, {1000, {0}}}});
        const M3gRef controller = add(M3gAnimationController{});
        return add(M3gAnimationTrack{.sequence = sequence, .controller = controller, .property = M3gProperty::Alpha});
    }

    M3gScene scene_;
};

std::vector<K8Figure*> figuresOf(K8Group* root) {
    std::vector<K8Figure*> figures;
    for (K8Handle** each = root->info->childData; *each; ++each)
        if ((*each)->classId == K8_CLASS_FIGURE) figures.push_back(reinterpret_cast<K8Figure*>(*each));
    std::ranges::sort(figures, {}, [](const K8Figure* figure) {  // plain, morphing, skinned
        return reinterpret_cast<Mesh*>(figure->header.object)->classId;
    });
    return figures;
}

std::vector<float> at(float s, float t) { return {s, t, 0}; }

class SceneTest : public FigureTest {
protected:
    SceneTest() {
        root = reinterpret_cast<K8Group*>(loadHandle(SceneFile().encode(), host.get()));
        figures = figuresOf(root);
        before = facts();
    }
    ~SceneTest() override { dispose(&root->header); }

    std::vector<DrawnPart> drawScene() {
        EXPECT_TRUE(K8Render_render3D(render, &content.params, &root->header, &content.place));
        return flush();
    }
    template <typename Change>
    void setFigure(size_t index, Change change) {
        K8FigureInfo info = *figures[index]->info;
        change(info);
        EXPECT_TRUE(K8Figure_setTmpData(figures[index], &info));
    }
    // A texture without palette.
    K8Texture* loadDirect() {
        BmpImage image = {.width = 8, .height = 8, .bitsPerPixel = 24};
        image.pixels.assign(64, {1, 2, 3});
        return reinterpret_cast<K8Texture*>(loadHandle(encodeBmp(image), host.get()));
    }
    // The scene's textures 0 to 3 by their own names, then what K8 textures are bound as.
    static std::string bindOf(const Object3D* texture) {
        const LevelRecord* record = static_cast<const Texture2D*>(texture)->image->levelRecord;
        return "BindTexture(" + std::to_string(record->textureName) + "); TexEnvf(MODE, ";
    }
    std::string sceneBind(size_t figure, int texture = 0) {
        return bindOf(figures[figure]->info->loadedTextures[texture]->header.object);
    }
    // Everything about the scene's appearances that drawing touches.
    std::vector<std::vector<const void*>> facts() {
        std::vector<std::vector<const void*>> all;
        auto* world = static_cast<Node*>(root->header.object);
        SubtreeWalk walk = {world, world, 0};
        do {
            for (const Appearance* appearance : K8SceneChanges_appearancesOf(walk.node)) {
                const CompositingMode& mode = *appearance->compositingMode;
                const auto number = [](auto value) { return reinterpret_cast<const void*>(uintptr_t(value)); };
                all.push_back({appearance->fog, appearance->textures[0], appearance->textures[1],
                               appearance->textures[0] ? appearance->textures[0]->image : nullptr,
                               number(mode.blending), number(mode.depthTestEnabled), number(mode.depthWriteEnabled),
                               number(appearance->polygonMode->culling),
                               number(appearance->polygonMode->perspectiveCorrectionEnabled),
                               number(walk.node->alphaFactor * 1000)});
            }
        } while (qelSubtreeWalk_next(&walk));
        return all;
    }

    static const DrawnPart& partOf(const std::vector<DrawnPart>& drawn, ScenePart part) {
        return firstOf(drawn, FigurePart(part));
    }

    K8Group* root;
    std::vector<K8Figure*> figures;
    std::vector<std::vector<const void*>> before;
};

// --- Scenes ---

TEST_F(SceneTest, LooksAsItsAuthorMadeIt) {
    K8GroupInfo info = *root->info;
    info.frame = 250;  // milliseconds
    ASSERT_TRUE(K8Group_setTmpData(root, &info));
    const std::vector<DrawnPart> drawn = drawScene();
    ASSERT_EQ(drawn.size(), 5u);
    EXPECT_EQ(partOf(drawn, Plain).unit(0), sceneBind(0) + "DECAL)");
    EXPECT_EQ(partOf(drawn, Glass).unit(0), "");
    EXPECT_EQ(partOf(drawn, Morphing).unit(0), sceneBind(1) + "DECAL)");
    EXPECT_NE(partOf(drawn, Morphing).unit(1), "");
    EXPECT_EQ(partOf(drawn, Skinned).unit(0), sceneBind(2) + "DECAL)");
    EXPECT_EQ(partOf(drawn, InSkeleton).unit(0), sceneBind(2, 1) + "DECAL)");
    EXPECT_EQ(partOf(drawn, Skinned).unit(1), "");
    EXPECT_EQ(partOf(drawn, Plain).draw.lookups[0][1], at(9 * 0.125f * 3, 1 * 0.125f * 3));  // its scale
    EXPECT_FALSE(partOf(drawn, Plain).has("FOG")) << "only the call's fog counts";
    EXPECT_EQ(partOf(drawn, Glass).last("Color4f", "DepthMask"), "Color4f(1, 1, 1, 0.376471); DepthMask(0)")
        << "0.75 of its alpha at that time";
    EXPECT_EQ(partOf(drawn, Morphing).last("DepthMask"), "DepthMask(1)");
    EXPECT_TRUE(drawn[0].has("LIGHT0") && drawn[0].has("LIGHT1"));
    EXPECT_EQ(facts(), before);
    const VertexArray* morphed = reinterpret_cast<MorphingMesh*>(figures[1]->header.object)->morphedBuffer->positions;
    const uint64_t contents = morphed->contents;
    EXPECT_EQ(drawScene().size(), 5u) << "once more";
    EXPECT_EQ(morphed->contents, contents) << "morphed once";
}

TEST_F(SceneTest, TakesTexturesAndParametersFromTheHandles) {
    K8Texture* direct = loadDirect();
    StageContent::setMode(direct, 1, content.textures[2]);      // replaces, with a second map
    figures[0]->info->loadedTextures[0] = content.textures[0];  // 8 bits: only the image is exchanged
    figures[1]->info->loadedTextures[0] = direct;
    setFigure(2, [](K8FigureInfo& info) {
        info.loadedTextureCount = 0;
        info.blendMode = K8_BLEND_ADDITIVE;
        info.transparency = fixed(50);
        info.perspectiveCorrection = 1;
    });
    K8Fog_setColor(content.fog, 0xFF0000);
    content.params.fog = content.fog;
    const std::vector<DrawnPart> drawn = drawScene();
    ASSERT_EQ(drawn.size(), 5u);
    EXPECT_EQ(partOf(drawn, Plain).unit(0), bindOf(content.textures[0]->header.object) + "DECAL)");
    EXPECT_EQ(partOf(drawn, Plain).draw.lookups[0][1], at(9 * 0.125f * 3, 1 * 0.125f * 3));
    EXPECT_EQ(partOf(drawn, Morphing).unit(0), bindOf(direct->header.object) + "REPLACE)");
    EXPECT_EQ(partOf(drawn, Morphing).unit(1), bindOf(content.textures[2]->header.object) + "ADD)");
    EXPECT_EQ(partOf(drawn, Morphing).draw.lookups[0][1], at(9 * 0.125f, 1 * 0.125f)) << "no scale";
    EXPECT_EQ(partOf(drawn, Morphing).draw.lookups[1], partOf(drawn, Morphing).draw.lookups[0]);
    for (const ScenePart which : {Skinned, InSkeleton}) {
        EXPECT_TRUE(partOf(drawn, which).unit(0).starts_with(bindOf(render->context->whiteTexture)));
        EXPECT_EQ(partOf(drawn, which).last("BlendFunc", "DepthMask", "Color4f", "Hint"),
                  "BlendFunc(SRC_ALPHA, ONE); DepthMask(0); Color4f(1, 1, 1, 0.247059); "
                  "Hint(PERSPECTIVE_CORRECTION_HINT, NICEST)");
    }
    for (const DrawnPart& each : drawn) EXPECT_EQ(each.last("Fogfv"), "Fogfv(FOG_COLOR, {1, 0, 0, 1})");
    EXPECT_EQ(facts(), before);
    K8Texture_destroy(direct);
}

// The first of two submeshes takes a host's texture, the second a palette image: the last counts for both, and the
// host's texture keeps its own image.
TEST_F(SceneTest, SubmeshesThatShareAnAppearanceLeaveTexturesAlone) {
    auto* mesh = reinterpret_cast<Mesh*>(figures[0]->header.object);
    ASSERT_EQ(qelMesh_setAppearance(mesh, 1, mesh->appearances[0]), QEL_STATUS_OK);
    before = facts();
    K8Texture* direct = loadDirect();
    const Image2D* image = static_cast<Texture2D*>(direct->header.object)->image;
    figures[0]->info->loadedTextures[0] = direct;
    figures[1]->info->loadedTextures[0] = content.textures[0];
    const std::string plain = partOf(drawScene(), Plain).unit(0);
    EXPECT_EQ(plain, bindOf(content.textures[0]->header.object) + "DECAL)");
    EXPECT_EQ(static_cast<Texture2D*>(direct->header.object)->image, image);
    EXPECT_EQ(facts(), before);
    K8Texture_destroy(direct);
}

TEST_F(SceneTest, BlendsWhereAFigureOrAnAppearanceDoes) {
    uint32_t status = 9;
    ASSERT_TRUE(K8Render_render3D(render, &content.params, &root->header, nullptr));
    EXPECT_TRUE(K8Render_CheckAlphaBlend(render, &status)) << "the glass";
    EXPECT_EQ(status, 0u);
    ASSERT_TRUE(K8Render_clear3D(render));
    ASSERT_TRUE(K8Render_render3D(render, &content.params, &figures[2]->header, nullptr));
    EXPECT_FALSE(K8Render_CheckAlphaBlend(render, &status));
    CompositingMode* mode = reinterpret_cast<Mesh*>(figures[2]->header.object)->appearances[0]->compositingMode;
    for (const auto& [blending, blends] :
         {std::pair{QEL_BLENDING_MODULATE_X2, false}, {QEL_BLENDING_ADD_WEIGHTED, true}}) {
        qelCompositingMode_setBlending(mode, blending);
        EXPECT_EQ(K8Render_CheckAlphaBlend(render, &status), blends) << blending;
    }
}

// --- Single meshes ---

TEST_F(SceneTest, AMeshIsDrawnWithWhatItsOwnFigureSays) {
    const auto drawMesh = [this] {
        EXPECT_TRUE(K8Render_render3D(render, &content.params, &figures[0]->header, &content.place));
        return flush();
    };
    setFigure(0, [](K8FigureInfo& info) {
        info.frame = 500;
        info.blendMode = K8_BLEND_ALPHA;
    });
    figures[0]->info->loadedTextures[0] = content.textures[1];
    StageContent::setMode(content.textures[1], 0, content.textures[2]);
    const std::vector<DrawnPart> drawn = drawMesh();
    ASSERT_EQ(drawn.size(), 2u);
    EXPECT_EQ(drawn[0].unit(0), bindOf(content.textures[1]->header.object) + "MODULATE)");
    EXPECT_EQ(drawn[0].unit(1), bindOf(content.textures[2]->header.object) + "ADD)");
    EXPECT_EQ(drawn[1].unit(0), "");
    EXPECT_EQ(drawn[0].last("CullFace", "Color4f", "DepthMask"),
              "CullFace(BACK); Color4f(1, 1, 1, 0.247059); DepthMask(0)")
        << "half of it, at that time";
    EXPECT_EQ(facts(), before);

    qelMesh_setAppearance(reinterpret_cast<Mesh*>(figures[0]->header.object), 0, nullptr);
    setFigure(0, [&](K8FigureInfo& info) {
        info.loadedTextures = K8Allocator_allocArrayOf<K8Texture*>(host.get(), 2);
        std::copy_n(content.textures.begin(), 2, info.loadedTextures);
        info.loadedTextureCount = 2;
    });
    const std::string glass = drawMesh().at(0).unit(0);
    EXPECT_EQ(glass, bindOf(content.textures[1]->header.object) + "MODULATE)") << "textures go to their numbers";
}

// --- Failure ---

TEST(SceneDrawing, EveryAllocationMayFail) {
    sweepAllocations([](K8Allocator* host, AllocationCounter& counter, int32_t failAt) {
        StageContent content(host);
        auto* root = reinterpret_cast<K8Group*>(loadHandle(SceneFile().encode(), host));
        K8Render* render = K8Render_create(nullptr, host);
        content.bind(render);
        counter.failAfter(failAt);
        bool drawn = K8Render_render3D(render, &content.params, &root->header, nullptr) &&
                     K8Render_render3D(render, &content.params, &figuresOf(root)[1]->header, nullptr);
        if (!drawn) counter.failAfter(kNeverFail);
        drawn = StageContent::flush(render) && drawn;
        const bool failed = counter.hasFailed() || !drawn;
        EXPECT_EQ(drawn, !failed);
        if (failed) {
            EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_OUT_OF_MEMORY);
        }
        counter.failAfter(kNeverFail);
        EXPECT_TRUE(K8Render_render3D(render, &content.params, &root->header, nullptr));
        EXPECT_TRUE(StageContent::flush(render));
        K8Render_destroy(render);
        dispose(&root->header);
        return failed;
    });
}

}  // namespace
