#include "tools/encode/mb_encoder.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <tuple>

namespace encode {

static constexpr uint32_t kMaxVertices = 21845, kMaxTextures = 16, kMaxPatterns = 33, kMaxColors = 256;
static constexpr int64_t kNormalUnit = 64;

namespace {

// The file's attribute bit of each style, 0 where the kind of polygon has none.
struct AttributeBits {
    uint32_t colorKey, blend, twoSided, lit, environmentMap, flat;  // blend is the lower of two bits
    uint32_t quad;                                                  // set on every quad
};
constexpr AttributeBits kBitsOfFormat1 = {0x02, 0, 0x04, 0, 0, 0, 0x01};
constexpr AttributeBits kBitsOfFormat2 = {0x01, 0x02, 0x10, 0x20, 0x40, 0, 0};
constexpr AttributeBits kTexturedBitsOfFormat3 = {0x01, 0x02, 0x10, 0x20, 0x40, 0x80, 0};
constexpr AttributeBits kColorBitsOfFormat3 = {0, 0x01, 0x08, 0x10, 0x20, 0x40, 0};

// The polygons of one kind, in file order.
struct PolygonList {
    const char* name;
    std::vector<const MbPolygon*> polygons;
    std::vector<uint32_t> attributes;  // as the file has them
};

struct BlockWidths {
    uint32_t attribute, index, value;  // value: a texture coordinate or a colour index
};

// A figure with everything decided that the file needs to know before its first byte.
struct Layout {
    explicit Layout(const MbFigure& described) : figure(described) {}

    const MbFigure& figure;
    std::vector<uint32_t> vertexOrder;   // description index of each file vertex
    std::vector<uint32_t> filePosition;  // file index of each described vertex
    std::vector<uint32_t> boneVertexCounts;
    PolygonList colorTriangles{"colorTriangle", {}, {}}, colorQuads{"colorQuad", {}, {}};
    PolygonList texturedTriangles{"texturedTriangle", {}, {}}, texturedQuads{"texturedQuad", {}, {}};
    std::vector<Rgb> colors;
    uint32_t patternCount = 1, textureCount = 1;
};

}  // namespace

static void check(bool condition, const std::string& text) {
    if (!condition) throw std::invalid_argument("mb: " + text);
}

static void checkFormats(const MbFigure& figure) {
    check(figure.version >= 2 && figure.version <= 5, "there is no version " + std::to_string(figure.version));
    check(figure.vertexFormat == 1 || figure.vertexFormat == 2, "vertexFormat is 1 or 2");
    check(figure.normalFormat <= 2, "normalFormat is 0, 1 or 2");
    check(figure.polygonFormat >= 1 && figure.polygonFormat <= 3, "polygonFormat is 1, 2 or 3");
    check(figure.boneFormat == 1, "boneFormat is 1");
    const bool plain = figure.vertexFormat == 1 && figure.normalFormat == 0 && figure.polygonFormat == 1;
    check(figure.version >= 4 || plain, "versions 2 and 3 have the formats 1, 0, 1, 1 only");
}

// Bones own runs of vertices, one bone after the other; what belongs to no bone comes last.
static void orderVertices(Layout& layout) {
    const MbFigure& figure = layout.figure;
    check(figure.vertices.size() <= kMaxVertices, "more than 21845 vertices");
    layout.boneVertexCounts.resize(figure.bones.size());
    for (size_t i = 0; i < figure.vertices.size(); ++i) {
        const int32_t bone = figure.vertices[i].bone;
        if (bone == -1) continue;
        check(bone >= 0 && size_t(bone) < figure.bones.size(),
              indexed("vertex", i) + " is of a bone that is not there");
        ++layout.boneVertexCounts[size_t(bone)];
    }
    layout.vertexOrder.resize(figure.vertices.size());
    std::iota(layout.vertexOrder.begin(), layout.vertexOrder.end(), 0u);
    std::ranges::stable_sort(layout.vertexOrder, {}, [&](uint32_t i) { return uint32_t(figure.vertices[i].bone); });
    layout.filePosition.resize(figure.vertices.size());
    for (uint32_t position = 0; position < layout.vertexOrder.size(); ++position)
        layout.filePosition[layout.vertexOrder[position]] = position;
}

static void countPatternsAndTextures(Layout& layout) {
    const MbFigure& figure = layout.figure;
    if (figure.polygonFormat < 3) {
        check(figure.patternCount.value_or(1) == 1 && figure.textureCount.value_or(1) == 1,
              "patterns and textures need polygonFormat 3");
        return;
    }
    uint32_t patternCount = 1, textureCount = 0;
    for (const MbPolygon& polygon : figure.polygons) {
        patternCount = std::max(patternCount, polygon.pattern + 1);
        if (!polygon.color) textureCount = std::max(textureCount, polygon.texture + 1);
    }
    layout.patternCount = figure.patternCount.value_or(patternCount);
    layout.textureCount = figure.textureCount.value_or(textureCount);
    check(layout.patternCount <= kMaxPatterns, "more than 33 patterns");
    check(layout.textureCount <= kMaxTextures, "more than 16 textures");
}

static void checkPolygon(const Layout& layout, const MbPolygon& polygon, const std::string& name) {
    const MbFigure& figure = layout.figure;
    check(polygon.corners.size() == 3 || polygon.corners.size() == 4, name + " has neither 3 nor 4 corners");
    for (const MbCorner& corner : polygon.corners)
        check(corner.vertex < figure.vertices.size(), name + " has a corner at a vertex that is not there");
    check(!polygon.color || figure.polygonFormat == 3, name + ": colour polygons need polygonFormat 3");
    check(polygon.pattern < layout.patternCount, name + " is of a pattern that is not there");
    check(polygon.color || polygon.texture < layout.textureCount, name + " is of a texture that is not there");
    const bool inFirstRange = polygon.pattern == 0 && (polygon.color || polygon.texture == 0);
    check(figure.version == 5 || inFirstRange, name + ": patterns and textures other than 0 need version 5");
}

static uint32_t makeAttribute(const MbFigure& figure, const MbPolygon& polygon, const std::string& name) {
    if (polygon.rawAttribute) return *polygon.rawAttribute;
    const AttributeBits& bits = figure.polygonFormat == 1   ? kBitsOfFormat1
                                : figure.polygonFormat == 2 ? kBitsOfFormat2
                                : polygon.color             ? kColorBitsOfFormat3
                                                            : kTexturedBitsOfFormat3;
    const auto say = [&](uint32_t value, uint32_t bit, const char* style) {
        check(value == 0 || bit != 0, name + " cannot be " + style + " in polygonFormat " +
                                          std::to_string(figure.polygonFormat) + (polygon.color ? ", colour" : ""));
        return value * bit;
    };
    const MbStyle& style = polygon.style;
    return say(style.colorKey, bits.colorKey, "colour keyed") | say(uint32_t(style.blend), bits.blend, "blended") |
           say(style.twoSided, bits.twoSided, "two-sided") | say(style.lit, bits.lit, "lit") |
           say(style.environmentMap, bits.environmentMap, "environment mapped") | say(style.flat, bits.flat, "flat") |
           (polygon.corners.size() == 4 ? bits.quad : 0);
}

static void sortPolygons(Layout& layout) {
    std::vector<const MbPolygon*> sorted;
    for (const MbPolygon& polygon : layout.figure.polygons) sorted.push_back(&polygon);
    // The texture of a colour polygon means nothing.
    std::ranges::stable_sort(sorted, {}, [](const MbPolygon* polygon) {
        return std::tuple(polygon->pattern, polygon->color ? 0 : polygon->texture);
    });
    for (const MbPolygon* polygon : sorted) {
        const std::string name = indexed("polygon", size_t(polygon - layout.figure.polygons.data()));
        checkPolygon(layout, *polygon, name);
        PolygonList& triangles = polygon->color ? layout.colorTriangles : layout.texturedTriangles;
        PolygonList& quads = polygon->color ? layout.colorQuads : layout.texturedQuads;
        PolygonList& list = polygon->corners.size() == 3 ? triangles : quads;
        list.polygons.push_back(polygon);
        list.attributes.push_back(makeAttribute(layout.figure, *polygon, name));
    }
}

static void collectColors(Layout& layout) {
    layout.colors = layout.figure.colorTable;
    for (const MbPolygon& polygon : layout.figure.polygons)
        if (polygon.color && std::ranges::find(layout.colors, *polygon.color) == layout.colors.end())
            layout.colors.push_back(*polygon.color);
    check(layout.colors.size() <= kMaxColors, "more than 256 colours");
    check(layout.colors.empty() || layout.figure.polygonFormat == 3, "colours need polygonFormat 3");
}

static void putHeader(ByteWriter& writer, const Layout& layout) {
    const MbFigure& figure = layout.figure;
    writer.putU16("magic", 0x424D);
    writer.putU16("version", uint64_t(figure.version));
    if (figure.version >= 4) {
        writer.putU8("vertexFormat", figure.vertexFormat);
        writer.putU8("normalFormat", figure.normalFormat);
        writer.putU8("polygonFormat", figure.polygonFormat);
        writer.putU8("boneFormat", figure.boneFormat);
    }
    writer.putU16("vertexCount", figure.vertices.size());
    writer.putU16("texturedTriangleCount", layout.texturedTriangles.polygons.size());
    writer.putU16("texturedQuadCount", layout.texturedQuads.polygons.size());
    writer.putU16("boneCount", figure.bones.size());
    if (figure.polygonFormat < 3) return;
    writer.putU16("colorTriangleCount", layout.colorTriangles.polygons.size());
    writer.putU16("colorQuadCount", layout.colorQuads.polygons.size());
    writer.putU16("textureCount", layout.textureCount);
    writer.putU16("patternCount", layout.patternCount);
    writer.putU16("colorCount", layout.colors.size());
}

static void putPatternTable(ByteWriter& writer, const Layout& layout) {
    const auto countIn = [](const PolygonList& list, auto belongs) {
        return uint64_t(
            std::ranges::count_if(list.polygons, [&](const MbPolygon* polygon) { return belongs(*polygon); }));
    };
    for (uint32_t s = 0; s < layout.patternCount; ++s) {
        const std::string name = indexed("pattern", s);
        const auto inPattern = [&](const MbPolygon& polygon) { return polygon.pattern == s; };
        writer.putU16(name + ".colorTriangleCount", countIn(layout.colorTriangles, inPattern));
        writer.putU16(name + ".colorQuadCount", countIn(layout.colorQuads, inPattern));
        for (uint32_t t = 0; t < layout.textureCount; ++t) {
            const std::string textureName = indexed(name + ".texture", t);
            const auto inRange = [&](const MbPolygon& polygon) { return inPattern(polygon) && polygon.texture == t; };
            writer.putU16(textureName + ".triangleCount", countIn(layout.texturedTriangles, inRange));
            writer.putU16(textureName + ".quadCount", countIn(layout.texturedQuads, inRange));
        }
    }
}

static constexpr std::array<uint32_t, 4> kRunWidths = {8, 10, 13, 16};
static constexpr uint32_t kMaxRun = 64, kRunHeaderWidth = 8;

// The cheapest runs: the best way to write the first n vertices is the best way to write some first m of them and one
// run with the rest, at the width of its widest value.
static std::vector<MbVertexRun> chooseRuns(const Layout& layout) {
    const size_t vertexCount = layout.vertexOrder.size();
    std::vector<uint32_t> widthCodes(vertexCount);
    for (size_t i = 0; i < vertexCount; ++i)
        for (const int16_t value : layout.figure.vertices[layout.vertexOrder[i]].position)
            while (signedWidth(value) > kRunWidths[widthCodes[i]]) ++widthCodes[i];

    std::vector<size_t> bestCost(vertexCount + 1, 0);
    std::vector<MbVertexRun> lastRun(vertexCount + 1);
    for (size_t end = 1; end <= vertexCount; ++end) {
        bestCost[end] = std::numeric_limits<size_t>::max();
        uint32_t widthCode = 0;
        for (uint32_t count = 1; count <= std::min<size_t>(end, kMaxRun); ++count) {
            const size_t begin = end - count;
            widthCode = std::max(widthCode, widthCodes[begin]);
            const size_t cost = bestCost[begin] + kRunHeaderWidth + size_t(count) * 3 * kRunWidths[widthCode];
            if (cost >= bestCost[end]) continue;
            bestCost[end] = cost;
            lastRun[end] = {count, widthCode};
        }
    }
    std::vector<MbVertexRun> runs;
    for (size_t end = vertexCount; end > 0; end -= lastRun[end].vertexCount) runs.push_back(lastRun[end]);
    std::ranges::reverse(runs);
    return runs;
}

static void checkRuns(const std::vector<MbVertexRun>& runs, size_t vertexCount) {
    size_t covered = 0;
    for (const MbVertexRun& run : runs) {
        check(run.vertexCount >= 1 && run.vertexCount <= kMaxRun, "a vertex run has 1 to 64 vertices");
        check(run.widthCode < kRunWidths.size(), "a vertex run has a width code from 0 to 3");
        covered += run.vertexCount;
    }
    check(covered == vertexCount, "the vertex runs do not cover the vertices");
}

static void putPosition(ByteWriter& writer, const Layout& layout, size_t i, uint32_t width) {
    const MbVertex& vertex = layout.figure.vertices[layout.vertexOrder[i]];
    const std::string name = indexed("vertex", i);
    writer.putSigned(name + ".x", vertex.position[0], width);
    writer.putSigned(name + ".y", vertex.position[1], width);
    writer.putSigned(name + ".z", vertex.position[2], width);
}

static void putVertices(ByteWriter& writer, const Layout& layout) {
    if (layout.figure.vertexFormat == 1) {
        for (size_t i = 0; i < layout.vertexOrder.size(); ++i) putPosition(writer, layout, i, 16);
        return;
    }
    const std::vector<MbVertexRun> runs = layout.figure.vertexRuns ? *layout.figure.vertexRuns : chooseRuns(layout);
    checkRuns(runs, layout.vertexOrder.size());
    size_t i = 0;
    for (size_t r = 0; r < runs.size(); ++r) {
        writer.putU8(indexed("run", r) + ".header", (runs[r].vertexCount - 1) | runs[r].widthCode << 6);
        for (const size_t end = i + runs[r].vertexCount; i < end; ++i)
            putPosition(writer, layout, i, kRunWidths[runs[r].widthCode]);
    }
    writer.alignToByte();
}

static void putPlainNormal(ByteWriter& writer, const std::array<float, 3>& normal, const std::string& name) {
    constexpr float kUnit = 4096;
    writer.putI16(name + ".x", std::lround(normal[0] * kUnit));
    writer.putI16(name + ".y", std::lround(normal[1] * kUnit));
    writer.putI16(name + ".z", std::lround(normal[2] * kUnit));
}

namespace {

struct PackedNormal {
    int64_t x, y;
    bool negativeZ;
    double error;  // squared distance between what is meant and what will be read, in units of 1/64
};

}  // namespace

// Readers rebuild z from x and y, which near z = 0 is coarse: the nearest normal that can be said may be 5.7 units away
// and is searched around the rounded one.
static PackedNormal choosePackedNormal(const std::array<double, 3>& wanted) {
    constexpr int64_t kReach = 6;
    const int64_t nearX = std::llround(wanted[0]), nearY = std::llround(wanted[1]);
    PackedNormal best = {0, 0, false, std::numeric_limits<double>::max()};
    for (int64_t x = nearX - kReach; x <= nearX + kReach; ++x)
        for (int64_t y = nearY - kReach; y <= nearY + kReach; ++y) {
            const int64_t rest = kNormalUnit * kNormalUnit - x * x - y * y;
            if (rest <= 0) continue;  // on the rim: left to the axes, since x and y stop before 64
            const double z = std::round(std::sqrt(double(rest)));
            const double dx = double(x) - wanted[0], dy = double(y) - wanted[1], dz = z - std::abs(wanted[2]);
            const double error = dx * dx + dy * dy + dz * dz;
            if (error < best.error) best = {x, y, wanted[2] < 0, error};
        }
    return best;
}

static void putPackedNormal(ByteWriter& writer, const std::array<float, 3>& normal, const std::string& name) {
    constexpr uint32_t kEscape = 64;  // in place of x: an axis follows
    std::array<double, 3> wanted{};
    std::ranges::transform(normal, wanted.begin(), [](float component) { return double(component) * kNormalUnit; });
    const double length = std::hypot(wanted[0], wanted[1], wanted[2]) / kNormalUnit;
    check(length > 0.9 && length < 1.1, name + " is not of unit length, which normalFormat 2 needs");

    const PackedNormal packed = choosePackedNormal(wanted);
    uint32_t axis = 0;
    double axisError = std::numeric_limits<double>::max();
    for (uint32_t candidate = 0; candidate < 6; ++candidate) {  // +x +y +z -x -y -z
        std::array<double, 3> distance = wanted;
        distance[candidate % 3] -= candidate < 3 ? kNormalUnit : -kNormalUnit;
        const double error = distance[0] * distance[0] + distance[1] * distance[1] + distance[2] * distance[2];
        if (error < axisError) std::tie(axis, axisError) = std::tuple(candidate, error);
    }
    if (axisError <= packed.error) {
        writer.putUnsigned(name + ".x", kEscape, 7);
        writer.putUnsigned(name + ".axis", axis, 3);
    } else {
        writer.putSigned(name + ".x", packed.x, 7);
        writer.putSigned(name + ".y", packed.y, 7);
        writer.putUnsigned(name + ".zSign", packed.negativeZ, 1);
    }
}

static void putNormals(ByteWriter& writer, const Layout& layout) {
    if (layout.figure.normalFormat == 0) return;
    for (size_t i = 0; i < layout.vertexOrder.size(); ++i) {
        const MbVertex& vertex = layout.figure.vertices[layout.vertexOrder[i]];
        const std::string name = indexed("normal", i);
        if (layout.figure.normalFormat == 1)
            putPlainNormal(writer, vertex.normal, name);
        else
            putPackedNormal(writer, vertex.normal, name);
    }
    writer.alignToByte();
}

static void raiseTo(uint32_t& width, uint64_t value) { width = std::max(width, unsignedWidth(value)); }

static BlockWidths smallestWidths(const Layout& layout, const PolygonList& triangles, const PolygonList& quads) {
    BlockWidths widths{};
    for (const PolygonList* list : {&triangles, &quads}) {
        for (const uint32_t attribute : list->attributes) raiseTo(widths.attribute, attribute);
        for (const MbPolygon* polygon : list->polygons)
            for (const MbCorner& corner : polygon->corners) {
                raiseTo(widths.index, layout.filePosition[corner.vertex]);
                raiseTo(widths.value, corner.u);
                raiseTo(widths.value, corner.v);
            }
    }
    return widths;
}

static void putPolygons(ByteWriter& writer, const Layout& layout, const PolygonList& list, const BlockWidths& widths) {
    for (size_t i = 0; i < list.polygons.size(); ++i) {
        const MbPolygon& polygon = *list.polygons[i];
        const std::string name = indexed(list.name, i);
        writer.putUnsigned(name + ".attribute", list.attributes[i], widths.attribute);
        for (size_t k = 0; k < polygon.corners.size(); ++k)
            writer.putUnsigned(indexed(name + ".vertex", k), layout.filePosition[polygon.corners[k].vertex],
                               widths.index);
        if (polygon.color) {
            const auto index = std::ranges::find(layout.colors, *polygon.color) - layout.colors.begin();
            writer.putUnsigned(name + ".color", uint64_t(index), widths.value);
            continue;
        }
        for (size_t k = 0; k < polygon.corners.size(); ++k) {
            writer.putUnsigned(indexed(name + ".u", k), polygon.corners[k].u, widths.value);
            writer.putUnsigned(indexed(name + ".v", k), polygon.corners[k].v, widths.value);
        }
    }
}

static void putColorBlock(ByteWriter& writer, const Layout& layout) {
    if (layout.colorTriangles.polygons.empty() && layout.colorQuads.polygons.empty()) return;
    const MbWidths& given = layout.figure.widths;
    BlockWidths widths = smallestWidths(layout, layout.colorTriangles, layout.colorQuads);
    widths.attribute = given.colorAttribute.value_or(widths.attribute);
    widths.index = given.colorVertexIndex.value_or(widths.index);
    widths.value = given.colorIndex.value_or(unsignedWidth(layout.colors.size() - 1));
    uint32_t channelWidth = 0;
    for (const Rgb& color : layout.colors) raiseTo(channelWidth, color[0] | color[1] | color[2]);
    channelWidth = given.colorChannel.value_or(channelWidth);

    writer.putU8("color.attributeWidth", widths.attribute);
    writer.putU8("color.indexWidth", widths.index);
    writer.putU8("color.channelWidth", channelWidth);
    writer.putU8("color.colorIndexWidth", widths.value);
    writer.putU8("color.unused", 0);
    for (size_t i = 0; i < layout.colors.size(); ++i) {
        const std::string name = indexed("colorTable", i);
        writer.putUnsigned(name + ".r", layout.colors[i][0], channelWidth);
        writer.putUnsigned(name + ".g", layout.colors[i][1], channelWidth);
        writer.putUnsigned(name + ".b", layout.colors[i][2], channelWidth);
    }
    putPolygons(writer, layout, layout.colorTriangles, widths);
    putPolygons(writer, layout, layout.colorQuads, widths);
}

// The three formats have the same records: the plain one is packed with the widths of whole bytes.
static void putTexturedBlock(ByteWriter& writer, const Layout& layout) {
    BlockWidths widths = {16, 16, 8};
    if (layout.figure.polygonFormat >= 2) {
        const bool isEmpty = layout.texturedTriangles.polygons.empty() && layout.texturedQuads.polygons.empty();
        if (layout.figure.polygonFormat == 3 && isEmpty) return;
        const MbWidths& given = layout.figure.widths;
        widths = smallestWidths(layout, layout.texturedTriangles, layout.texturedQuads);
        widths.attribute = given.attribute.value_or(widths.attribute);
        widths.index = given.index.value_or(widths.index);
        widths.value = layout.figure.polygonFormat == 2 ? 7 : given.coordinate.value_or(widths.value);
        writer.putU8("textured.attributeWidth", widths.attribute);
        writer.putU8("textured.indexWidth", widths.index);
    }
    if (layout.figure.polygonFormat == 3) {
        writer.putU8("textured.coordinateWidth", widths.value);
        writer.putU8("textured.unused", 0);
    }
    putPolygons(writer, layout, layout.texturedTriangles, widths);
    putPolygons(writer, layout, layout.texturedQuads, widths);
}

static void putBones(ByteWriter& writer, const Layout& layout) {
    const std::vector<MbBone>& bones = layout.figure.bones;
    for (size_t b = 0; b < bones.size(); ++b) {
        const std::string name = indexed("bone", b);
        const int32_t parent = bones[b].parent;
        check(parent >= -1 && parent < int64_t(bones.size()), name + " has a parent that is not there");
        writer.putU16(name + ".vertexCount", layout.boneVertexCounts[b]);
        writer.putI16(name + ".parent", parent);
        for (size_t e = 0; e < bones[b].rest.size(); ++e) writer.putI16(indexed(name + ".m", e), bones[b].rest[e]);
    }
}

EncodedFile encodeMb(const MbFigure& figure) {
    Layout layout(figure);
    checkFormats(figure);
    orderVertices(layout);
    countPatternsAndTextures(layout);
    sortPolygons(layout);
    collectColors(layout);

    ByteWriter writer;
    putHeader(writer, layout);
    if (figure.version == 5) putPatternTable(writer, layout);
    putVertices(writer, layout);
    putNormals(writer, layout);
    putColorBlock(writer, layout);
    putTexturedBlock(writer, layout);
    writer.alignToByte();
    putBones(writer, layout);
    if (figure.version >= 3) writer.putBytes(figure.trailer);
    return writer.take();
}

}  // namespace encode
