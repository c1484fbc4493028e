// What the k8 program says about content, from its parts: the lines of info and check, where a picture aims, what a ray
// hits and what touches.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/loader/small_files.h"
#include "tools/encode/m3g_encoder.h"
#include "tools/k8/bounds.h"
#include "tools/k8/check_command.h"
#include "tools/k8/content.h"
#include "tools/k8/cross_command.h"
#include "tools/k8/info.h"
#include "tools/k8/picking.h"
#include "tools/k8/stage.h"
#include "tools/k8/text_tree.h"

namespace {

using namespace encode;
using testing::ElementsAre;
using testing::HasSubstr;

// A file that goes when the test ends.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::vector<uint8_t>& bytes) {
        const int handle = mkstemp(path_.data());
        EXPECT_GE(handle, 0);
        close(handle);
        std::ofstream(path_, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), ptrdiff_t(bytes.size()));
    }
    ~TemporaryFile() { std::filesystem::remove(path_); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_ = std::filesystem::temp_directory_path() / "k8_commands_test.XXXXXX";
};

ContentInfo infoOf(const EncodedFile& file) { return {"it", file.bytes.size(), inspect::inspectContent(file.bytes)}; }

// What programs are told at a JSON pointer.
struct Told {
    const char* pointer;
    nlohmann::ordered_json value;
};
void expectTold(const ContentInfo& info, const std::vector<Told>& expected) {
    const auto json = nlohmann::ordered_json::parse(jsonOf(info));
    for (const auto& [pointer, value] : expected)
        EXPECT_EQ(json.at(nlohmann::ordered_json::json_pointer(pointer)), value) << pointer;
}

// Group 0 holds group 1 twice, and so on: the last stands in 2^n places.
K8Package doublings(int count) {
    K8Package package;
    for (int g = 0; g < count; ++g) {
        const K8Child next = {.isGroup = true, .index = uint16_t(g + 1)};
        package.groups.push_back({{next, next}});
    }
    package.groups.push_back({{{.index = 0}}});
    package.objects = {K8FigureRecord{.model = smallFigure()}};
    return package;
}

TEST(Info, DrawsGroupsAsATree) {
    EXPECT_THAT(textOf(infoOf(encodeK8(everyRecord()))),
                HasSubstr("    group 0 (root)\n"
                          "    ├─ group 1 at (100, 0, 0), turned or scaled\n"
                          "    │  ├─ object 0: figure\n"
                          "    │  └─ object 3: light\n"
                          "    ├─ group 2\n"
                          "    │  ├─ group 3 at (0, -50, 0)\n"
                          "    │  │  └─ group 1 at (100, 0, 0), turned or scaled, as above\n"
                          "    │  └─ object 7: primitive\n"
                          "    └─ object 5: fog\n"));
    EXPECT_LT(textOf(infoOf(encodeK8(doublings(100)))).size(), 50000u) << "a shared group is drawn once";
}

TEST(Info, DrawsBonesAsATreeWhateverTheirOrder) {
    MbFigure figure;
    figure.bones = {{.parent = 2}, {.parent = -1}, {.parent = 1}, {.parent = 1}, {.parent = 0}};
    figure.vertices = {{.normal = {0, 0, 1}, .bone = 2}};
    EXPECT_THAT(textOf(infoOf(encodeMb(figure))), HasSubstr("    bone 1: 0 vertices\n"
                                                            "    ├─ bone 2: 1 vertex\n"
                                                            "    │  └─ bone 0: 0 vertices\n"
                                                            "    │     └─ bone 4: 0 vertices\n"
                                                            "    └─ bone 3: 0 vertices\n"));
}

TEST(Info, KeepsDeepTreesWithinTheLine) {
    std::vector<TreeLine> chain;
    for (size_t depth = 0; depth < 60000; ++depth) chain.push_back({depth, "link"});
    const std::string text = drawTree(chain, "");
    EXPECT_LT(text.size(), chain.size() * (3 * kMaxTreeDepth + 40));
    EXPECT_THAT(text, HasSubstr("└─ (59999 deep) link\n"));
}

TEST(Info, TellsProgramsAllItTellsPeople) {
    const Told expected[] = {
        {"/kind", "package"},
        {"/groups/0/children/1", {{"group", 2}}},
        {"/groups/1/transform/3", 100.0},
        {"/groups/2/transform", nullptr},
        {"/objects/0/kind", "figure"},
        {"/objects/0/actionTable", 2},
        {"/objects/0/textures", {1, nullptr, 1}},
        {"/objects/0/vertexCount", 3},
        {"/objects/0/box/greatest", {1.0, 1.0, 0.0}},
        {"/objects/0/bones/0", {{"parent", -1}, {"vertexCount", 2}}},
        {"/objects/0/patterns/1/colorTriangles", 1},
        {"/objects/2/actions/0", {{"frameCount", 3}, {"tracks", {{"unchanged", 1}}}, {"patternKeys", 1}}},
        {"/objects/1/paddedSide", 4},
        {"/objects/3/color", "123456"},
        {"/objects/5/far", 30.0},
        {"/objects/7/valueCounts/spriteParameters", 8},
    };
    expectTold(infoOf(encodeK8(everyRecord())), {std::begin(expected), std::end(expected)});
}

// A group, twice as large, with a light and two triangles, 4 along x and y: one that is not to be picked, and behind it
// one that rises within 2 seconds.
EncodedFile smallScene() {
    M3gScene s;
    const M3gRef sequence = s.add(M3gKeyframeSequence{.keyframes = {{0, {0, 0, 0}}, {2000, {0, 9, 0}}}});
    const M3gRef controller = s.add(M3gAnimationController{});
    const M3gRef track = s.add(M3gAnimationTrack{.sequence = sequence, .controller = controller});
    const M3gRef corners = s.add(M3gVertexArray{.values = {0, 0, 0, 4, 0, 0, 0, 4, 0}});
    const M3gRef buffer = s.add(M3gVertexBuffer{.positions = {corners}});
    const M3gRef strips = s.add(M3gTriangleStripArray{.strips = {3}});
    const M3gRef appearance = s.add(M3gAppearance{});
    const auto at = [](float x, float z, float scale) {
        return M3gNode{.transform = {M3gComponents{{x, 0, z}, {scale, scale, scale}}}};
    };
    M3gMesh front = {.node = at(0, 5, 1), .vertices = buffer, .submeshes = {{strips, appearance}}}, mesh = front;
    front.node.picking = false;
    mesh.object = {.userId = 5, .tracks = {track}};
    mesh.node = at(1, 0, 1);
    const M3gRef first = s.add(front), second = s.add(mesh), light = s.add(M3gLight{.color = 0x00FF80});
    const M3gRef group = s.add(M3gGroup{.node = at(0, -20, 2), .children = {first, second, light}});
    s.add(M3gWorld{.children = {group}});
    return encodeScenePackage(s);
}

TEST(Info, TellsWhatScenesHold) {
    const ContentInfo info = infoOf(smallScene());
    EXPECT_THAT(textOf(info),
                AllOf(HasSubstr("it: scene package, "), HasSubstr("(0, 0, -20) to (10, 8, -10)"),
                      HasSubstr("       ├─ Mesh 10, user id 5: 3 vertices, 1 triangle in 1 submesh; at (1, 0, 0)\n"
                                "       └─ Light 11\n"),
                      HasSubstr("    Mesh 10: Translation, 2 keyframes in 2000 ms, linear\n"),
                      HasSubstr(", vertices object 6, submeshes [strips object 7,\n    appearance object 8]\n"),
                      HasSubstr("    mode directional, colour 00ff80, intensity 1\n")));
    expectTold(info, {{"/world", 13},
                      {"/box/greatest", {10.0, 8.0, -10.0}},
                      {"/objects/0/number", 2},
                      {"/objects/8/class", "Mesh"},
                      {"/objects/8/translation", {1.0, 0.0, 0.0}},
                      {"/objects/8/tracks/0", 4},
                      {"/objects/8/submeshes/0/appearance", 8},
                      {"/objects/9/color", "00ff80"},
                      {"/objects/9/spotAngle", 45.0}});
}

TEST(Check, SaysWhatIsWrongAndWhere) {
    EncodedFile file = encodeK8(everyRecord());
    const TemporaryFile good(file.bytes);
    EXPECT_TRUE(checkFile(good.path()).isGood);
    EXPECT_EQ(checkFile(good.path()).line, good.path() + ": good package");

    const size_t offset = file.field("object[0].bone[0].parent").offset();
    file.set("object[0].bone[0].parent", 1);
    const TemporaryFile broken(file.bytes);
    EXPECT_FALSE(checkFile(broken.path()).isGood);
    EXPECT_EQ(checkFile(broken.path()).line,
              broken.path() + ": at offset " + std::to_string(offset) +
                  ": object 0, a figure: a bone's parent is 1, expected -1 or less than 1");

    EXPECT_FALSE(checkFile("/nowhere").isGood);
    EXPECT_EQ(checkFile("/nowhere").line, "/nowhere: cannot be read: No such file or directory");
    EXPECT_EQ(checkFile("/dev/null").line, "/dev/null: is empty");
    EXPECT_EQ(checkFile("/dev/zero").line, "/dev/zero: is larger than 256 MiB");
}

TEST(Check, HoldsScenesToTheirChecksums) {
    const struct {
        const char* field;
        uint64_t value;
        bool isGood;
    } cases[] = {{"object[9].color.r", 1, false}, {"section[0].checksum", 1, false}, {"section[0].checksum", 0, true}};
    for (const auto& [field, value, isGood] : cases) {
        EncodedFile scene = smallScene();
        scene.set(field, value);
        const TemporaryFile file(scene.bytes);
        const Verdict verdict = checkFile(file.path());
        EXPECT_EQ(verdict.isGood, isGood) << verdict.line;
        EXPECT_THAT(verdict.line,
                    HasSubstr(isGood ? ": good scene package" : "the checksum of section 0, at offset 10"));
    }
}

// Rows of pixels that the library pads to squares, many times what they take in the file.
TEST(Check, HasTheLibraryLoadWhatLooksGood) {
    const BmpImage row = {
        .width = 255, .height = 1, .bitsPerPixel = 24, .pixels = std::vector<std::array<uint8_t, 3>>(255)};
    K8Package package;
    package.objects.assign(20, K8TextureRecord{encodeBmp(row)});
    const TemporaryFile file(encodeK8(package).bytes);
    EXPECT_FALSE(checkFile(file.path()).isGood);
    EXPECT_THAT(checkFile(file.path()).line, HasSubstr("looks like a good package, but the library refuses it"));
}

TEST(Extent, HoldsEverythingWhereItsGroupsPutIt) {
    const ContentInfo info = infoOf(encodeK8(everyRecord()));
    const Extent extent = extentOf(std::get<inspect::PackageSummary>(info.summary));
    EXPECT_THAT(extent.box.least, ElementsAre(-5, -50, -5)) << "a sprite of 6 x 8, the figure 50 further down";
    EXPECT_THAT(extent.box.greatest, ElementsAre(100, 12, 5));
    EXPECT_TRUE(extent.hasLights);
    EXPECT_THROW(extentOf(inspect::inspectPackage(encodeK8(doublings(30)).bytes)), std::runtime_error);
}

TEST(StageContent, IsAPackageOrTheFilesOfAFigure) {
    const TemporaryFile package(encodeK8(everyRecord()).bytes), figure(smallFigure().bytes), table(smallTable().bytes),
        texture(smallTexture().bytes);
    StageContent content = loadStageContent({package.path()});
    EXPECT_EQ(content.figures.size(), 1u);
    EXPECT_EQ(content.patternCount(), 2u);
    EXPECT_EQ(content.actionLength(0), 3);
    EXPECT_THROW(content.actionLength(1), std::runtime_error);
    content.removeLights();
    ASSERT_EQ(content.groups.size(), 4u);
    for (const K8Group* group : content.groups)
        for (int i = 0; i < group->info->childHandleCount; ++i)
            EXPECT_NE(group->info->childHandles[i]->classId, K8_CLASS_LIGHT);

    content = loadStageContent({texture.path(), table.path(), figure.path()});
    EXPECT_EQ(content.handles.size(), 3u);
    EXPECT_EQ(content.actionLength(0), 3);
    EXPECT_EQ(K8Figure_getLoadedNumTextures(content.figures[0]), 1);
    for (const std::vector<std::string>& refused : std::vector<std::vector<std::string>>{
             {package.path(), texture.path()}, {table.path()}, {figure.path(), figure.path()}})
        EXPECT_THROW(loadStageContent(refused), std::runtime_error);
}

TEST(StageContent, CanBeAScene) {
    const TemporaryFile scene(smallScene().bytes);
    const StageContent content = loadStageContent({scene.path()});
    ASSERT_NE(content.scene, nullptr);
    EXPECT_EQ(&content.scene->header, content.root);
    EXPECT_EQ(content.sceneMilliseconds, 2000);
    EXPECT_TRUE(content.extent.hasLights);
    EXPECT_THAT(content.extent.box.greatest, ElementsAre(10, 8, -10));
    EXPECT_THROW(loadStageContent({scene.path(), scene.path()}), std::runtime_error);
}

TEST(Stage, ShowsAllThatAnimationsTakeOutOfTheBox) {
    try {
        GlSurface::create(16, 16);
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << error.what();
    }
    const TemporaryFile scene(smallScene().bytes);
    StageOptions options;
    options.width = options.height = 64;
    Stage stage(options, loadStageContent({scene.path()}));
    Pose risen;
    risen.milliseconds = 1999;
    // How many pixels are not of the background, in the rows from top to bottom.
    const auto shownIn = [&](size_t firstRow, size_t rowCount) {
        const Picture picture = stage.draw(risen);
        const auto row = picture.rgba.begin() + ptrdiff_t(firstRow * 64 * 4);
        size_t shown = 0;
        for (size_t i = 0; i < rowCount * 64; ++i) shown += row[ptrdiff_t(4 * i)] != options.background >> 16;
        return shown;
    };
    EXPECT_EQ(shownIn(0, 8), 0u) << "out of sight";
    stage.showAllOf({Pose(), risen});
    EXPECT_EQ(shownIn(0, 1), 0u);
    EXPECT_GT(shownIn(1, 8), 0u) << "no further than it takes";
}

struct Loaded {
    explicit Loaded(const EncodedFile& bytes)
        : file(bytes.bytes), content(loadStageContent({file.path()})), placements(placementsOf(content)) {}
    std::string nameOf(size_t object) const { return ::nameOf(content, placements, placements.objects[object]); }
    TemporaryFile file;
    StageContent content;
    Placements placements;
};

TEST(Pick, FindsFiguresWhereTheirGroupsPutThem) {
    const Loaded package(encodeK8(everyRecord())), figure(smallFigure()), scene(smallScene());
    struct Case {
        const Loaded& content;
        Ray ray;
        const char* name;  // empty: nothing is hit
        double distance;
        std::array<double, 3> point, normal;
        std::array<double, 2> texel;
    };
    const Case cases[] = {
        {figure, {{0.25, 0.5, -3, 0, 0, 2}}, "the figure", 3, {0.25, 0.5, 0}, {0, 0, -1}, {2.25, 4.5}},
        {figure, {{0.25, 0.5, 3, 0, 0, -1}}, "", 0, {}, {}, {}},  // from behind
        {package, {{90, 1, -0.5, 4, 0, 0}}, "object 0 in groups 0/1", 10, {100, 1, -0.5}, {-1, 0, 0}, {2.25, 4.5}},
        {package,
         {{90, -49, -0.5, 4, 0, 0}},
         "object 0 in groups 0/2/3/1",
         10,
         {100, -49, -0.5},
         {-1, 0, 0},
         {2.25, 4.5}},
        {package, {{0, 7, 10, 0, 0, -1}}, "", 0, {}, {}, {}},  // through a sprite
        {scene, {{3, 1, 0, 0, 0, -1}}, "Mesh 10", 20, {3, 1, -20}, {}, {}},
        {scene, {{1, 1, 0, 0, 0, -1}}, "", 0, {}, {}, {}},
    };
    for (const Case& c : cases) {
        const std::vector<PickHit> hits = pickFigures(c.content.placements, c.ray, true);
        ASSERT_EQ(hits.size(), *c.name ? 1u : 0u) << c.name;
        if (hits.empty()) continue;
        const PickHit& hit = hits[0];
        EXPECT_EQ(c.content.nameOf(hit.object), c.name);
        EXPECT_NEAR(hit.distance, c.distance, 1e-5) << c.name;
        for (size_t axis = 0; axis < 3; ++axis) EXPECT_NEAR(hit.point[axis], c.point[axis], 1e-5) << c.name;
        const bool hasAll = &c.content != &scene;
        ASSERT_EQ(hit.normal.has_value(), hasAll) << c.name;
        ASSERT_EQ(hit.texel[0].has_value(), hasAll) << c.name;
        if (!hasAll) continue;
        for (size_t axis = 0; axis < 3; ++axis) EXPECT_NEAR((*hit.normal)[axis], c.normal[axis], 1e-5) << c.name;
        for (size_t axis = 0; axis < 2; ++axis) EXPECT_NEAR((*hit.texel[0])[axis], c.texel[axis], 1e-4) << c.name;
    }
}

TEST(Pick, SortsHitsByDistance) {
    const auto at = [](float z) { return std::array<float, 16>{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, z, 0, 0, 0, 1}; };
    K8Package package;
    package.objects = {K8FigureRecord{.model = smallFigure()}};
    package.groups = {{{{.isGroup = true, .index = 1, .transform = at(-4)},
                        {.isGroup = true, .index = 2, .transform = at(6)},
                        {.isGroup = true, .index = 3, .transform = at(-2)}}},
                      {{{.index = 0}}},
                      {{{.index = 0}}},
                      {{{.index = 0}}}};
    const Loaded content(encodeK8(package));
    const Ray ray = {{0.25, 0.25, -3, 0, 0, 1}};
    const std::vector<PickHit> hits = pickFigures(content.placements, ray, true);
    ASSERT_EQ(hits.size(), 2u);
    EXPECT_THAT((std::vector{hits[0].distance, hits[1].distance}), ElementsAre(1, 9));
    EXPECT_EQ(content.nameOf(pickFigures(content.placements, ray, false).at(0).object), "object 0 in groups 0/3");
}

TEST(Cross, TakesContentWhereItIsDrawn) {
    K8Package package;
    package.objects = {K8PrimitiveRecord{
        .type = 3, .count = 1, .values = {{{-4096, -4096, 0, 4096, -4096, 0, 0, 4096, 0}, {}, {}, {}, {}}}}};
    package.groups = {
        {{{.isGroup = true, .index = 1, .transform = {{1, 0, 0, 5, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}}}}},
        {{{.index = 0}}}};
    const Loaded primitive(encodeK8(package)), scene(smallScene()), figure(smallFigure());
    struct Case {
        const Loaded& first;
        CrossPlace place;  // of the figure: 1 along x and y
        const char* name;  // empty: they do not touch
    };
    const Case cases[] = {
        {primitive, {.at = {5, -0.25, 0.5}, .turnDegrees = 90}, "object 0 in groups 0/1"},
        {primitive, {.at = {8, -0.25, 0.5}, .turnDegrees = 90}, ""},
        {primitive, {.at = {8, -0.25, 0.5}, .turnDegrees = 80, .scale = 30}, ""},
        {primitive, {.at = {4, -0.25, 0.5}, .turnDegrees = 30, .scale = 4}, "object 0 in groups 0/1"},
        {scene, {.at = {3, 1, -19.5}, .turnDegrees = 90}, "Mesh 10"},
        {scene, {.at = {1, 1, -9.5}, .turnDegrees = 90}, "Mesh 9"},
        {scene, {.at = {3, 1, 0.5}, .turnDegrees = 90}, ""},
    };
    for (const Case& c : cases) {
        const std::optional<Touch> touch = findTouch(c.first.placements, figure.placements, c.place);
        EXPECT_EQ(touch ? c.first.nameOf(touch->first) : "", c.name) << c.place.at[0] << ", " << c.place.at[2];
    }
}

}  // namespace
