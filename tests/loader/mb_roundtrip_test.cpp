// Random figures go through the encoder, which knows nothing of the library, and back through the decoder. What must
// come out is computed here from the description alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "loader/mb_decoder.h"
#include "tests/loader/random.h"
#include "tests/support/counting_heap.h"
#include "tools/encode/mb_encoder.h"

namespace {

using namespace encode;

template <typename T>
std::vector<T> listOf(const T* items, size_t count) {
    return items ? std::vector<T>(items, items + count) : std::vector<T>();
}

constexpr uint32_t kKindCount = 4;  // colour triangles, colour quads, textured triangles, textured quads
uint32_t kindOf(const MbPolygon& polygon) { return (polygon.color ? 0 : 2) + (polygon.corners.size() == 4 ? 1 : 0); }

int16_t randomCoordinate(Random& random) {
    constexpr int32_t kLimits[] = {127, 511, 4095, 32767};
    const int32_t limit = kLimits[random.below(4)];
    return int16_t(random.between(-limit - 1, limit));
}

// A normal that comes back exactly, in units of 1/64; with normalFormat 1 any 16-bit value does, in units of 1/4096.
std::array<float, 3> randomNormal(Random& random, uint32_t normalFormat) {
    if (normalFormat == 1)
        return {random.anyInt16() / 4096.0f, random.anyInt16() / 4096.0f, random.anyInt16() / 4096.0f};
    if (random.chance(4)) {
        std::array<float, 3> axis{};
        axis[random.below(3)] = random.chance(2) ? 1.0f : -1.0f;
        return axis;
    }
    const int32_t x = random.between(-63, 63), yLimit = int32_t(std::sqrt(4095 - x * x)),
                  y = random.between(-yLimit, yLimit);
    const auto z = float(std::lround(std::sqrt(4096.0 - x * x - y * y)));
    return {float(x) / 64, float(y) / 64, (random.chance(2) ? z : -z) / 64};
}

MbStyle randomStyle(Random& random, uint32_t polygonFormat, bool isColored) {
    MbStyle style;
    style.colorKey = !isColored && random.chance(2);
    style.twoSided = random.chance(2);
    if (polygonFormat == 1) return style;
    style.blend = MbBlend(random.below(4));
    style.lit = random.chance(2);
    style.environmentMap = random.chance(2);
    style.flat = polygonFormat == 3 && random.chance(2);
    return style;
}

// Few different coordinates and colours, so that corners share vertices.
MbPolygon randomPolygon(Random& random, const MbFigure& figure) {
    const auto vertexCount = uint32_t(figure.vertices.size());
    const uint32_t lastCoordinate = figure.polygonFormat == 2 ? 127 : 255;
    MbPolygon polygon;
    for (uint32_t corner = 0, count = random.chance(2) ? 3 : 4; corner < count; ++corner) {
        const auto coordinate = [&] { return uint8_t(random.chance(8) ? lastCoordinate : random.below(3)); };
        polygon.corners.push_back({random.below(vertexCount), coordinate(), coordinate()});
    }
    if (figure.polygonFormat == 3 && random.chance(2))
        polygon.color = Rgb{uint8_t(random.below(2) * 255), uint8_t(random.below(2)), uint8_t(random.below(20))};
    polygon.style = randomStyle(random, figure.polygonFormat, polygon.color.has_value());
    if (figure.version == 5 && figure.polygonFormat == 3) {
        polygon.pattern = random.below(4);
        if (!polygon.color) polygon.texture = random.below(3);
    }
    return polygon;
}

// Every bone but the root of its tree hangs on one that was drawn before it, in an order other than the file's.
std::vector<MbBone> randomBones(Random& random, uint32_t count) {
    std::vector<MbBone> bones(count);
    std::vector<int32_t> order;
    for (uint32_t i = 0; i < count; ++i) order.insert(order.begin() + random.below(i + 1), int32_t(i));
    for (uint32_t i = 0; i < count; ++i) {
        MbBone& bone = bones[size_t(order[i])];
        bone.parent = i == 0 || random.chance(4) ? -1 : order[random.below(i)];
        for (int16_t& element : bone.rest) element = random.anyInt16();
    }
    return bones;
}

MbFigure randomFigure(Random& random) {
    MbFigure figure = {.version = random.between(2, 5), .vertexFormat = 1, .normalFormat = 0, .polygonFormat = 1};
    if (figure.version >= 4) {
        figure.vertexFormat = 1 + random.below(2);
        figure.normalFormat = random.below(3);
        figure.polygonFormat = 1 + random.below(3);
    }
    figure.bones = randomBones(random, random.below(8));
    figure.vertices.resize(random.chance(10) ? 0 : 1 + random.below(random.chance(4) ? 200 : 12));
    for (MbVertex& vertex : figure.vertices) {
        for (int16_t& component : vertex.position) component = randomCoordinate(random);
        vertex.normal = randomNormal(random, figure.normalFormat);
        vertex.bone = int32_t(random.below(uint32_t(figure.bones.size()) + 1)) - 1;
    }
    if (!figure.vertices.empty())
        for (uint32_t left = random.below(60); left > 0; --left)
            figure.polygons.push_back(randomPolygon(random, figure));
    if (figure.polygonFormat == 3 && random.chance(3)) {
        figure.patternCount = random.between(4, 33);
        figure.textureCount = random.between(3, 16);
    }
    if (random.chance(3))
        figure.widths = {.attribute = 16,
                         .index = 13,
                         .coordinate = 8 + random.below(9),
                         .colorAttribute = 15,
                         .colorVertexIndex = 17,
                         .colorChannel = 8,
                         .colorIndex = 11};
    return figure;
}

// Sets attribute bits that mean nothing where the widths leave room for them.
void addMeaninglessBits(const MbFigure& figure, EncodedFile& file) {
    if (figure.polygonFormat != 3) return;
    for (const Field& field : file.fields)
        if (field.name.ends_with(".attribute") && field.bitCount >= 10)
            file.set(field, file.get(field) | (field.name.starts_with("color") ? 0x180 : 0x300));
}

// A decoded figure in lists that compare and print.
struct Model {
    struct Polygon {
        int32_t attributeClass;
        std::vector<uint16_t> vertices;
        bool operator==(const Polygon&) const = default;
    };
    struct Bone {
        int32_t parent;
        uint16_t changed;
        std::vector<int32_t> rest, local;
        uint32_t firstGroup, groupCount;
        bool operator==(const Bone&) const = default;
    };
    std::vector<uint32_t> counts;
    std::vector<std::array<int, 3>> positions, normals;
    std::vector<std::array<int, 4>> colors;
    std::vector<std::array<int, 2>> texCoords;
    std::vector<uint16_t> classKeys;
    std::vector<uint32_t> starts[kKindCount];
    std::vector<Polygon> triangles, quads;
    std::vector<std::vector<uint16_t>> groups;
    std::vector<Bone> bones;
};

// The appearance key that a style asks for.
uint16_t keyOf(const MbStyle& style) {
    constexpr uint16_t kBlendKeys[] = {0x0100, 0x0200, 0x0400, 0x1000};
    uint16_t key = kBlendKeys[uint32_t(style.blend)];
    key |= style.lit ? 0x0001 : 0x0004;
    if (style.lit && style.environmentMap) key |= 0x0002;
    if (style.twoSided) key |= 0x0020;
    if (style.flat) key |= 0x0040;
    if (style.twoSided && style.flat) key |= 0x0080;
    if (style.colorKey) key |= 0x0800;
    return key;
}

// Builds what a figure must decode to, corner by corner.
struct Expectation {
    const MbFigure& figure;
    Model model{};
    std::vector<uint32_t> vertexOrder{};  // description index of each file vertex
    std::vector<uint32_t> filePosition{};

    std::array<int, 3> normalOf(const MbVertex& vertex) const {
        std::array<int, 3> normal{};
        for (size_t i = 0; i < 3; ++i)
            normal[i] = figure.normalFormat == 2 ? int(vertex.normal[i] * 64)
                                                 : int8_t((int(vertex.normal[i] * 4096) + 32) >> 6);
        return normal;
    }

    void orderVertices() {
        const auto takeThoseOf = [&](int32_t bone) {
            for (uint32_t i = 0; i < figure.vertices.size(); ++i)
                if (figure.vertices[i].bone == bone) vertexOrder.push_back(i);
        };
        for (size_t b = 0; b < figure.bones.size(); ++b) {
            const MbBone& bone = figure.bones[b];
            const auto first = uint32_t(vertexOrder.size());
            takeThoseOf(int32_t(b));
            const std::vector<int32_t> rest(bone.rest.begin(), bone.rest.end());
            model.bones.push_back({bone.parent, 1, rest, rest, first, uint32_t(vertexOrder.size()) - first});
        }
        takeThoseOf(-1);
        filePosition.resize(vertexOrder.size());
        for (uint32_t i = 0; i < vertexOrder.size(); ++i) filePosition[vertexOrder[i]] = i;
        model.groups.resize(vertexOrder.size());
    }

    // Corners of one file vertex share an expanded vertex when the coordinates, or the colours, are the same.
    // Coordinates of vertices made for colour polygons are 0 and are shared as well.
    uint16_t expand(uint32_t vertex, bool isColored, std::array<int, 4> color, std::array<int, 2> texCoord) {
        std::vector<uint16_t>& group = model.groups[filePosition[vertex]];
        for (const uint16_t candidate : group)
            if (isColored ? model.colors[candidate] == color : model.texCoords[candidate] == texCoord) return candidate;
        const auto& position = figure.vertices[vertex].position;
        model.positions.push_back({position[0], position[1], position[2]});
        model.normals.push_back(normalOf(figure.vertices[vertex]));
        model.colors.push_back(color);
        model.texCoords.push_back(texCoord);
        group.push_back(uint16_t(model.positions.size() - 1));
        return group.back();
    }

    void addPolygon(const MbPolygon& polygon) {
        const uint16_t key = keyOf(polygon.style);
        const auto found = std::ranges::find(model.classKeys, key);
        Model::Polygon record = {int32_t(found - model.classKeys.begin()), {}};
        if (found == model.classKeys.end()) model.classKeys.push_back(key);
        std::array<int, 4> color{};
        if (polygon.color) {
            const Rgb& rgb = *polygon.color;
            color = {rgb[0], rgb[1], rgb[2], polygon.style.blend == MbBlend::Half ? 128 : 255};
        }
        for (const MbCorner& corner : polygon.corners) {
            const bool isColored = polygon.color.has_value();
            std::array<int, 2> texCoord{};
            if (!isColored) texCoord = {corner.u, corner.v};
            record.vertices.push_back(expand(corner.vertex, isColored, color, texCoord));
        }
        (polygon.corners.size() == 3 ? model.triangles : model.quads).push_back(record);
    }

    void addPolygons(uint32_t patternCount, uint32_t textureCount) {
        for (uint32_t kind = 0; kind < kKindCount; ++kind) {
            uint32_t total = 0;
            model.starts[kind] = {0};
            const bool isColored = kind < 2;
            for (uint32_t s = 0; s < patternCount; ++s)
                for (uint32_t t = 0; t < (isColored ? 1 : textureCount); ++t) {
                    for (const MbPolygon& polygon : figure.polygons) {
                        const bool inRange = polygon.pattern == s && (isColored || polygon.texture == t);
                        if (kindOf(polygon) != kind || !inRange) continue;
                        addPolygon(polygon);
                        ++total;
                    }
                    model.starts[kind].push_back(total);
                }
        }
    }
};

Model expectedModel(const MbFigure& figure) {
    uint32_t patternCount = 1, textureCount = figure.polygonFormat == 3 ? 0 : 1;
    uint32_t kindCounts[kKindCount] = {};
    std::vector<Rgb> colors;
    for (const MbPolygon& polygon : figure.polygons) {
        ++kindCounts[kindOf(polygon)];
        patternCount = std::max(patternCount, polygon.pattern + 1);
        if (!polygon.color) textureCount = std::max(textureCount, polygon.texture + 1);
        if (polygon.color && std::ranges::find(colors, *polygon.color) == colors.end())
            colors.push_back(*polygon.color);
    }
    patternCount = figure.patternCount.value_or(patternCount);
    textureCount = figure.textureCount.value_or(textureCount);

    Expectation expectation{figure};
    expectation.orderVertices();
    expectation.addPolygons(patternCount, textureCount);
    Model& model = expectation.model;
    const auto expandedCount = uint32_t(model.positions.size());
    model.counts = {textureCount,
                    uint32_t(colors.size()),
                    kindCounts[0],
                    kindCounts[1],
                    kindCounts[2],
                    kindCounts[3],
                    patternCount,
                    uint32_t(figure.bones.size()),
                    uint32_t(figure.vertices.size()),
                    expandedCount};
    if (figure.normalFormat == 0) model.normals.clear();
    if (colors.empty()) model.colors.clear();
    if (textureCount == 0) model.texCoords.clear();
    return model;
}

template <size_t N, typename T>
std::vector<std::array<int, N>> tuplesOf(const T* items, size_t count) {
    std::vector<std::array<int, N>> tuples(items ? count : 0);
    for (size_t i = 0; i < tuples.size(); ++i) std::copy_n(items + i * N, N, tuples[i].begin());
    return tuples;
}

Model readModel(const FigureModelData& data) {
    Model model;
    model.counts = {data.textureCount,          data.colorCount,        data.colorTriangleCount, data.colorQuadCount,
                    data.texturedTriangleCount, data.texturedQuadCount, data.patternCount,       data.boneCount,
                    data.vertexCount,           data.expandedCount};
    model.positions = tuplesOf<3>(data.positions, data.expandedCount);
    model.normals = tuplesOf<3>(data.normals, data.expandedCount);
    model.colors = tuplesOf<4>(data.colors, data.expandedCount);
    model.texCoords = tuplesOf<2>(data.texCoords, data.expandedCount);
    model.classKeys = listOf(data.classKeys, size_t(data.classCount));
    const uint32_t texturedRanges = data.patternCount * data.textureCount;
    model.starts[0] = listOf(data.colorTriangleStarts, data.patternCount + 1);
    model.starts[1] = listOf(data.colorQuadStarts, data.patternCount + 1);
    model.starts[2] = listOf(data.texturedTriangleStarts, texturedRanges + 1);
    model.starts[3] = listOf(data.texturedQuadStarts, texturedRanges + 1);
    for (const TriangleRecord& each : listOf(data.triangles, data.colorTriangleCount + data.texturedTriangleCount))
        model.triangles.push_back({each.attributeClass, listOf(each.vertices, 3)});
    for (const QuadRecord& each : listOf(data.quads, data.colorQuadCount + data.texturedQuadCount))
        model.quads.push_back({each.attributeClass, listOf(each.vertices, 4)});
    for (const VertexGroup& each : listOf(data.bones.groups, data.bones.groupCount))
        model.groups.push_back(listOf(each.vertices, each.count));
    for (uint32_t b = 0; b < data.bones.boneCount; ++b) {
        const BoneRecord& bone = data.bones.bones[b];
        model.bones.push_back({bone.parent, bone.changed, listOf(&bone.rest.m[0], 12),
                               listOf(&data.bones.local[b].m[0], 12), bone.firstGroup, bone.groupCount});
    }
    return model;
}

TEST(MbRoundtrip, DecodesToWhatWasDescribed) {
    Random random{std::mt19937(20)};
    for (int round = 0; round < 800 && !testing::Test::HasFailure(); ++round) {
        const MbFigure figure = randomFigure(random);
        EncodedFile file = encodeMb(figure);
        addMeaninglessBits(figure, file);
        SCOPED_TRACE("round " + std::to_string(round) + ", version " + std::to_string(figure.version) + ", formats " +
                     std::to_string(figure.vertexFormat) + std::to_string(figure.normalFormat) +
                     std::to_string(figure.polygonFormat));
        CountingHeap heap;
        MemoryStream stream;
        MemoryStream_init(&stream, file.bytes.data(), uint32_t(file.bytes.size()));
        FigureModelData data{};
        ASSERT_TRUE(D_FigureModel_decode(&stream, &data, false));
        EXPECT_EQ(stream.cursor, stream.end);
        const Model model = readModel(data), expected = expectedModel(figure);
        EXPECT_EQ(model.counts, expected.counts);
        EXPECT_EQ(model.positions, expected.positions);
        EXPECT_EQ(model.normals, expected.normals);
        EXPECT_EQ(model.colors, expected.colors);
        EXPECT_EQ(model.texCoords, expected.texCoords);
        EXPECT_EQ(model.classKeys, expected.classKeys);
        for (uint32_t kind = 0; kind < kKindCount; ++kind) EXPECT_EQ(model.starts[kind], expected.starts[kind]) << kind;
        EXPECT_TRUE(model.triangles == expected.triangles);
        EXPECT_TRUE(model.quads == expected.quads);
        EXPECT_EQ(model.groups, expected.groups);
        EXPECT_TRUE(model.bones == expected.bones);
        D_FigureModel_release(&data);
        EXPECT_EQ(heap.liveBlocks(), 0);
    }
}

}  // namespace
