// The inspectors say what is wrong with a file; the library only that something is. Both must agree on which are good.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "k8.h"
#include "samples/penguin/penguin.h"
#include "tests/loader/small_files.h"
#include "tests/support/dispose.h"
#include "tools/inspect/action_inspector.h"
#include "tools/inspect/content_reader.h"
#include "tools/inspect/figure_inspector.h"
#include "tools/inspect/image_inspector.h"
#include "tools/inspect/package_inspector.h"

namespace {

using Bytes = std::vector<uint8_t>;

bool libraryTakes(const Bytes& bytes) {
    MALK8_touchMA();
    K8Handle* handle = K8Loader_loadObject(int32_t(bytes.size()), bytes.data(), &MALK8_malc);
    dispose(handle);
    return handle != nullptr;
}

// Empty for a file without a problem.
template <typename Inspector>
std::string problemOf(const Bytes& bytes, Inspector inspector) {
    try {
        inspector(std::span<const uint8_t>(bytes));
        return "";
    } catch (const inspect::ContentProblem& problem) {
        EXPECT_LE(problem.offset, bytes.size());
        return "offset " + std::to_string(problem.offset) + ": " + problem.what();
    }
}

// The file itself, the file cut off at every length, and copies with one or two bytes changed.
template <typename Inspector>
void compareOnVariants(const Bytes& good, Inspector inspector, int changedCopies) {
    ASSERT_EQ(problemOf(good, inspector), "");
    ASSERT_TRUE(libraryTakes(good));
    for (size_t length = 1; length < good.size(); length += 1 + good.size() / 1500) {
        const Bytes cut(good.begin(), good.begin() + ptrdiff_t(length));
        const std::string problem = problemOf(cut, inspector);
        ASSERT_EQ(problem.empty(), libraryTakes(cut)) << "cut to " << length << ": " << problem;
    }
    std::mt19937 random(3);
    for (int i = 0; i < changedCopies; ++i) {
        Bytes changed = good;
        for (uint32_t change = 0; change <= random() % 2; ++change) {
            // The first bytes are headers; most of what is checked stands there.
            const size_t range = random() % 2 ? std::min<size_t>(good.size(), 64) : good.size();
            changed[2 + random() % (range - 2)] = uint8_t(random());
        }
        const std::string problem = problemOf(changed, inspector);
        ASSERT_EQ(problem.empty(), libraryTakes(changed)) << "copy " << i << ": " << problem;
    }
}

TEST(Inspectors, AgreeWithTheLibraryOnFigures) {
    compareOnVariants(encodeMb(penguinFigure()).bytes, inspect::inspectFigure, 2000);
}

TEST(Inspectors, AgreeWithTheLibraryOnOlderFigures) {
    for (const uint32_t polygonFormat : {1u, 2u}) {
        encode::MbFigure figure{.version = 4, .vertexFormat = 1, .normalFormat = 1, .polygonFormat = polygonFormat};
        figure.bones = {{.parent = -1}, {.parent = 0, .rest = encode::translationBone(0, 10, 0)}};
        for (int16_t i = 0; i < 4; ++i)
            figure.vertices.push_back({.position = {i, int16_t(i % 2), 0}, .normal = {0, 0, 1}, .bone = i / 2});
        figure.polygons = {{.corners = {{0, 1, 2}, {1, 3, 4}, {2, 5, 6}}}, {.corners = {{0}, {1}, {2}, {3}}}};
        compareOnVariants(encodeMb(figure).bytes, inspect::inspectFigure, 3000);
    }
}

TEST(Inspectors, AgreeWithTheLibraryOnActions) {
    compareOnVariants(encodeMt(penguinActions()).bytes, inspect::inspectActions, 3000);
}

TEST(Inspectors, AgreeWithTheLibraryOnImages) {
    compareOnVariants(encodeBmp(penguinBodyTexture()).bytes, inspect::inspectImage, 3000);
    const encode::BmpImage direct{
        .width = 3, .height = 2, .bitsPerPixel = 24, .pixels = std::vector<std::array<uint8_t, 3>>(6)};
    compareOnVariants(encodeBmp(direct).bytes, inspect::inspectImage, 3000);
}

TEST(Inspectors, AgreeWithTheLibraryOnPackages) {
    compareOnVariants(encodeK8(encode::everyRecord()).bytes, inspect::inspectPackage, 8000);
    encode::K8Package onlyObjects = encode::onlyObjects();
    onlyObjects.trailer = {1, 2, 3};
    compareOnVariants(encodeK8(onlyObjects).bytes, inspect::inspectPackage, 3000);
}

TEST(Inspectors, AgreeWithTheLibraryOnEveryModeOfPrimitives) {
    encode::K8Package package = {.objects = {encode::K8PrimitiveRecord{
                                     .type = 3, .params = 0, .count = 1, .values = {{{1, 2, 3}, {}, {}, {}, {}}}}}};
    encode::EncodedFile file = encodeK8(package);
    for (uint32_t type = 0; type <= 6; ++type)
        for (uint32_t modes = 0; modes < 0x8000; modes += 0x100)
            for (const uint32_t flags : {0x00, 0x03, 0x08, 0x10, 0x20}) {
                file.set("object[0].type", flags ? type << 24 : type);
                file.set("object[0].params", modes | flags);
                const std::string problem = problemOf(file.bytes, inspect::inspectPackage);
                ASSERT_EQ(problem.empty(), libraryTakes(file.bytes))
                    << type << ", " << (modes | flags) << ": " << problem;
            }
}

// Changes that chance does not make. The offset is that of the first byte concerned, in the whole file.
TEST(PackageInspector, SaysWhatIsWrongAndWhere) {
    struct Case {
        const char* field;
        uint64_t value;
        const char* at;  // the field at the problem's offset
        const char* problem;
    };
    const encode::EncodedFile good = encodeK8(encode::everyRecord());
    const Case cases[] = {
        {"version", 2, "version", "the version is 2, expected 0 (a package of objects)"},
        {"group[1].child[0]", 8, "group[1].child[0]", "a child's object index is 8, expected less than 8"},
        {"group[1].child[0]", 0x8001, "group[1].child[0]", "a child entry is of kind 2, expected 0, 1 or 3"},
        {"group[1].child[1]", 0x4003, "group[1].childCount", "group 1 is its own ancestor"},
        {"object[0].actionTable", 1, "object[0].actionTable",
         "object 0, a figure: the action table is object 1, a texture"},
        {"object[0].texture[2]", 3, "object[0].texture[2]", "object 0, a figure: a texture is object 3, a light"},
        {"object[0].vertexCount", 30000, "object[0].vertexCount",
         "object 0, a figure: vertexCount is 30000, expected at most 21845"},
        {"object[7].count", 0, "object[7].count", "object 7, a primitive: the count is 0, expected at least 1"},
        {"object[7].valueCount[3]", 1, nullptr,
         "object 7, a primitive: the record ends where a value (4 bytes) was expected"},
    };
    for (const Case& c : cases) {
        encode::EncodedFile file = good;
        file.set(c.field, c.value);
        const size_t offset = c.at ? file.field(c.at).offset() : file.bytes.size();
        EXPECT_EQ(problemOf(file.bytes, inspect::inspectPackage),
                  "offset " + std::to_string(offset) + ": " + c.problem);
        EXPECT_FALSE(libraryTakes(file.bytes)) << c.problem;
    }
}

TEST(FigureInspector, MeasuresTheFigureAtRest) {
    encode::MbFigure figure;
    figure.bones = {{.parent = 1, .rest = encode::translationBone(0, 10, 0)},
                    {.parent = -1, .rest = encode::rotationBone({0, 0, 1}, 90, {100, 0, 0})}};
    figure.vertices = {{.position = {1, 0, 0}, .normal = {0, 0, 1}, .bone = 0},
                       {.position = {5, 0, 3}, .normal = {0, 0, 1}, .bone = 1},
                       {.position = {-7, -8, -9}, .normal = {0, 0, 1}}};
    const inspect::FigureSummary summary = inspect::inspectFigure(encodeMb(figure).bytes);
    EXPECT_EQ(summary.least, (std::array<double, 3>{-7, -8, -9}));
    EXPECT_EQ(summary.greatest, (std::array<double, 3>{100, 5, 3}));
}

}  // namespace
