// The order in which a flush draws what is queued, and what blends in it.
#include "scene/appearance.h"
#include "tests/render/primitive_parts.h"

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
        const auto queueOne = [&](K8Handle* handle) {
            return K8Render_render3D(render, &content.params, handle, &content.place);
        };
        bool ok = true;
        std::vector<K8Handle*> children;
        bool isInside = false;
        for (const char name : names) {
            if (name == '(') {
                isInside = true;
            } else if (name == ')') {
                K8Group* group = makeGroup(host.get(), std::exchange(children, {}));
                ok = ok && queueOne(&group->header);
                K8Group_destroy(group);
                isInside = false;
            } else if (isInside) {
                children.push_back(parts[size_t(name)]);
            } else {
                ok = ok && queueOne(parts[size_t(name)]);
            }
        }
        return ok;
    }
    // What was drawn: names, and | where the depth buffer was cleared. A figure is F and counts once, a sprite is s.
    static std::string drawnParts(const GlLines& lines) {
        std::string all;
        size_t next = 0;
        for (const std::string& line : lines) {
            if (line == "glClear(depth)") all += '|';
            if (!line.starts_with("glDraw")) continue;
            const GlDraw& draw = glRecorder.draws.at(next++);
            const bool isImmediate = line.starts_with("glDrawArrays");
            const bool isNamed = !draw.colors.empty() && draw.colors[0][0] == 0 && draw.colors[0][1] == 0;
            if (isNamed)
                all += char(draw.colors[0][2]);
            else if (isImmediate)
                all += 's';
            else if (FigurePart(int(draw.positions[0][1]) / 100) == Body)
                all += 'F';
        }
        return all;
    }
    std::string flushParts(bool expected = true) {
        glRecorder.draws.clear();
        glRecorder.take();
        EXPECT_EQ(StageContent::flush(render), expected);
        lines = glRecorder.take();
        EXPECT_EQ(render->context->head, nullptr);
        EXPECT_FALSE(K8Render_graphics(render)->isBound);
        return drawnParts(lines);
    }

    std::array<K8Handle*, 128> parts{};
    std::vector<K8Handle*> owned;
    GlLines lines;
};

TEST_F(FlushTest, PointsLinesAndSpritesComeAfterEverythingElse) {
    struct Case {
        const char* what;
        const char* queued;
        const char* drawn;
    };
    for (const Case& c : {
             Case{"meshes in queue order", "tFqFt", "|tFqFt"},
             Case{"deferred ones behind, over a cleared depth buffer", "pFt", "|Ft|p"},
             Case{"each call clears the depth buffer", "plFs", "|F|p|l|s"},
             Case{"but not the items of one call", "(pFl)", "|F|pl"},
             Case{"equal items of two calls", "(ps)(ps)", "||ps|ps"},
             Case{"opaque ones first, within a call", "(PsSp)", "||spPs"},
             Case{"and only there", "Pp", "||P|p"},
         }) {
        ASSERT_TRUE(queueParts(c.queued)) << c.what;
        EXPECT_EQ(flushParts(), c.drawn) << c.what;
    }
}

TEST_F(FlushTest, AFailureEndsTheFlush) {
    K8Figure_clearTmpData(reinterpret_cast<K8Figure*>(parts['o']));  // cannot be drawn, nor can e or x
    content.params.lightCount = 1;
    struct Case {
        const char* what;
        const char* queued;
        const char* drawn;
    };
    for (const Case& c : {Case{"without info", "ptoFl", "|t"}, Case{"without object", "FetF", "|F"},
                          Case{"among the others", "pFxl", "|F|p"}, Case{"in one call", "(plxs)", "||pl"}}) {
        ASSERT_TRUE(queueParts(c.queued)) << c.what;
        EXPECT_EQ(flushParts(false), c.drawn) << c.what;
        EXPECT_EQ(takeStatus(), K8_ERR_FAILURE) << c.what;
        EXPECT_EQ(K8Render_graphics(render)->lightCount, 0) << c.what;
        ASSERT_TRUE(queueParts("Fs")) << c.what;
        EXPECT_EQ(flushParts(), "|F|s") << c.what;
    }
}

TEST_F(FlushTest, NothingOfTheHostsIsKeptBeyondTheFlush) {
    auto* sprite = reinterpret_cast<K8Primitive*>(parts['s']);
    sprite->info->texture = content.textures[0];
    const Object3D* texture = content.textures[0]->header.object;
    for (const bool fails : {false, true}) {
        ASSERT_TRUE(queueParts(fails ? "sx" : "s"));
        EXPECT_EQ(texture->refCount, 2);
        flushParts(!fails);
        EXPECT_EQ(texture->refCount, 1);
    }
}

TEST_F(FlushTest, AlphaIsBlendedWhereTheListSaysSo) {
    uint32_t status = 77;
    EXPECT_TRUE(K8Render_CheckAlphaBlend(nullptr, &status));
    EXPECT_EQ(status, 1u);
    EXPECT_TRUE(K8Render_CheckAlphaBlend(nullptr, nullptr));
    struct Case {
        const char* what;
        const char* queued;
        bool blends;
    };
    add('1', K8_PRIM_SPRITES, K8_BLEND_ADDITIVE, fixed(50));
    add('2', K8_PRIM_SPRITES, K8_BLEND_ADDITIVE, fixed(50) + 1);
    add('3', K8_PRIM_LINES, K8_BLEND_ADDITIVE, fixed(60));
    add('4', K8_PRIM_TRIANGLES, 16);  // no blend mode
    add('5', K8_PRIM_TRIANGLES << 24, K8_BLEND_ALPHA);
    for (const Case& c :
         {Case{"polygons that blend", "oF", true}, Case{"opaque primitives", "ptqs", false},
          Case{"points and lines", "P3", false}, Case{"triangles", "5", true}, Case{"unknown mode", "4", false},
          Case{"sprites", "S", true}, Case{"added sprites that are hidden", "1", false},
          Case{"added sprites", "2", true}, Case{"in a group", "o(poS)", true}}) {
        ASSERT_TRUE(queueParts(c.queued)) << c.what;
        status = 77;
        EXPECT_EQ(K8Render_CheckAlphaBlend(render, &status), c.blends) << c.what;
        EXPECT_EQ(status, 0u) << c.what;
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
