// The order in which a flush draws what is queued, and what blends in it.
#include "scene/appearance.h"
#include "tests/render/figure_stage.h"

namespace {

class FlushTest : public FigureTest {
protected:
    FlushTest() {
        encode::MbFigure opaque = stageFigure();
        opaque.polygons.resize(1);
        add('o', &reinterpret_cast<K8Figure*>(loadHandle(encode::encodeMb(opaque), host.get()))->header);
        add('p', K8_PRIM_POINTS);
        add('P', K8_PRIM_POINTS, K8_BLEND_ALPHA);
        add('l', K8_PRIM_LINES);
        add('t', K8_PRIM_TRIANGLES);
        add('q', K8_PRIM_QUADS);
        add('Q', K8_PRIM_QUADS, K8_BLEND_ADDITIVE);
        add('s', K8_PRIM_SPRITES);
        add('S', K8_PRIM_SPRITES, K8_BLEND_ALPHA);
        add('e', &K8Figure_create(nullptr, host.get())->header);  // of nothing
        K8Primitive* colorless = add('x', K8_PRIM_POINTS);
        colorless->info->counts[K8_PRIM_COLORS] = 0;
        parts['F'] = &content.figure->header;
    }
    ~FlushTest() override {
        for (K8Handle* handle : owned) K8Object3D_destroy(handle);
    }

    K8Primitive* add(char name, uint32_t type, int16_t blendMode = K8_BLEND_NONE, int32_t size = fixed(1)) {
        K8Primitive* primitive = makePrimitive(host.get(), type, name, blendMode, size);
        add(name, &primitive->header);
        return primitive;
    }
    void add(char name, K8Handle* handle) {
        owned.push_back(handle);
        parts[size_t(name)] = handle;
    }

    // Every part by a call of its own; parts in parentheses as one group.
    bool queueParts(const std::string& names) {
        bool ok = true;
        std::vector<K8Handle*> children;
        for (size_t i = 0; i < names.size(); ++i) {
            const bool isGroup = names[i] == '(';
            if (isGroup)
                while (names[++i] != ')') children.push_back(parts[size_t(names[i])]);
            K8Group* group = isGroup ? makeGroup(host.get(), std::exchange(children, {})) : nullptr;
            K8Handle* handle = group ? &group->header : parts[size_t(names[i])];
            ok = K8Render_render3D(render, &content.params, handle, &content.place) && ok;
            K8Group_destroy(group);
        }
        return ok;
    }
    // What was drawn: names, and | where the depth buffer was cleared. A figure is F and counts once, a sprite is s.
    std::string flushParts(bool expected = true) {
        glRecorder.draws.clear();
        glRecorder.take();
        EXPECT_EQ(StageContent::flush(render), expected);
        EXPECT_EQ(render->context->head, nullptr);
        EXPECT_FALSE(K8Render_graphics(render)->isBound);
        std::string all;
        size_t next = 0;
        for (const std::string& line : glRecorder.take()) {
            if (line == "glClear(depth)") all += '|';
            if (!line.starts_with("glDraw")) continue;
            const GlDraw& draw = glRecorder.draws.at(next++);
            if (!draw.colors.empty() && draw.colors[0][0] == 0 && draw.colors[0][1] == 0)
                all += char(draw.colors[0][2]);
            else if (line.starts_with("glDrawArrays"))
                all += 's';
            else if (FigurePart(int(draw.positions[0][1]) / 100) == Body)
                all += 'F';
        }
        return all;
    }

    std::array<K8Handle*, 128> parts{};
    std::vector<K8Handle*> owned;
};

TEST_F(FlushTest, PointsLinesAndSpritesComeAfterEverythingElse) {
    for (const auto& [what, queued, drawn] : {
             std::tuple{"meshes in queue order", "tFqFt", "|tFqFt"},
             {"deferred ones behind, over a cleared depth buffer", "pFt", "|Ft|p"},
             {"each call clears the depth buffer", "plFs", "|F|p|l|s"},
             {"but not the items of one call", "(pFl)", "|F|pl"},
             {"equal items of two calls", "(ps)(ps)", "||ps|ps"},
             {"opaque ones first, within a call", "(PsSp)", "||spPs"},
             {"and only there", "Pp", "||P|p"},
         }) {
        ASSERT_TRUE(queueParts(queued)) << what;
        EXPECT_EQ(flushParts(), drawn) << what;
    }
}

TEST_F(FlushTest, AFailureEndsTheFlush) {
    K8Figure_clearTmpData(reinterpret_cast<K8Figure*>(parts['o']));  // cannot be drawn, nor can e or x
    reinterpret_cast<K8Primitive*>(parts['s'])->info->texture = content.textures[2];
    const Object3D* texture = content.textures[2]->header.object;
    content.params.lightCount = 1;
    for (const auto& [what, queued, drawn] : {std::tuple{"without info", "ptoFl", "|t"},
                                              {"without object", "FetF", "|F"},
                                              {"among the others", "pFxl", "|F|p"},
                                              {"in one call", "(plxs)", "||pl"}}) {
        ASSERT_TRUE(queueParts(queued)) << what;
        EXPECT_EQ(flushParts(false), drawn) << what;
        EXPECT_EQ(takeStatus(), K8_ERR_FAILURE) << what;
        EXPECT_EQ(K8Render_graphics(render)->lightCount, 0) << what;
        EXPECT_EQ(texture->refCount, 1) << what << ": nothing of the host's is kept";
        ASSERT_TRUE(queueParts("Fs")) << what;
        EXPECT_EQ(texture->refCount, 2) << what;
        EXPECT_EQ(flushParts(), "|F|s") << what;
        EXPECT_EQ(texture->refCount, 1) << what;
    }
}

TEST_F(FlushTest, AlphaIsBlendedWhereTheListSaysSo) {
    uint32_t status = 77;
    EXPECT_TRUE(K8Render_CheckAlphaBlend(nullptr, &status));
    EXPECT_EQ(status, 1u);
    EXPECT_TRUE(K8Render_CheckAlphaBlend(nullptr, nullptr));
    add('1', K8_PRIM_SPRITES, K8_BLEND_ADDITIVE, fixed(50));
    add('2', K8_PRIM_SPRITES, K8_BLEND_ADDITIVE, fixed(50) + 1);
    add('3', K8_PRIM_LINES, K8_BLEND_ADDITIVE, fixed(60));
    add('4', K8_PRIM_TRIANGLES, 16);  // no blend mode
    add('5', K8_PRIM_TRIANGLES << 24, K8_BLEND_ALPHA);
    for (const auto& [what, queued, blends] : {std::tuple{"polygons that blend", "oF", true},
                                               {"opaque primitives", "ptqs", false},
                                               {"points and lines", "P3", false},
                                               {"triangles", "5", true},
                                               {"unknown mode", "4", false},
                                               {"sprites", "S", true},
                                               {"added sprites that are hidden", "1", false},
                                               {"added sprites", "2", true},
                                               {"in a group", "o(poS)", true}}) {
        ASSERT_TRUE(queueParts(queued)) << what;
        status = 77;
        EXPECT_EQ(K8Render_CheckAlphaBlend(render, &status), blends) << what;
        EXPECT_EQ(status, 0u) << what;
        K8Render_clear3D(render);
    }
    for (const int16_t mode : {K8_BLEND_ALPHA, K8_BLEND_ADDITIVE}) {
        reinterpret_cast<K8Figure*>(parts['o'])->info->blendMode = mode;
        ASSERT_TRUE(queueParts("o"));
        EXPECT_TRUE(K8Render_CheckAlphaBlend(render, nullptr)) << "a figure that blends as a whole";
        K8Render_clear3D(render);
    }
}

}  // namespace
