#include "tools/inspect/figure_inspector.h"

#include <algorithm>
#include <limits>
#include <string>

#include "tools/inspect/content_reader.h"

namespace inspect {

namespace {

using Position = std::array<int32_t, 3>;
using Matrix = std::array<double, 12>;  // rows of three and a translation

struct FigureReader {
    ContentReader in;
    FigureSummary out;
    std::vector<Position> positions;
};

void readHeader(FigureReader& r) {
    ContentReader& in = r.in;
    FigureSummary& out = r.out;
    in.expect(in.u16("the magic") == 0x424D, "the magic", in.offset(), "the bytes \"MB\"");
    out.version = in.signed16("version");
    in.expect(out.version >= 2 && out.version <= 5, "version", out.version, "2 to 5");
    if (out.version >= 4) {
        out.vertexFormat = in.u8("vertexFormat");
        in.expect(out.vertexFormat == 1 || out.vertexFormat == 2, "vertexFormat", out.vertexFormat, "1 or 2");
        out.normalFormat = in.u8("normalFormat");
        in.expect(out.normalFormat <= 2, "normalFormat", out.normalFormat, "0 to 2");
        out.polygonFormat = in.u8("polygonFormat");
        in.expect(out.polygonFormat >= 1 && out.polygonFormat <= 3, "polygonFormat", out.polygonFormat, "1 to 3");
        out.boneFormat = in.u8("boneFormat");
        in.expect(out.boneFormat == 1, "boneFormat", out.boneFormat, "1");
    }
    out.vertexCount = in.u16("vertexCount");
    in.expect(out.vertexCount <= 21845, "vertexCount", out.vertexCount, "at most 21845");
    out.polygons.texturedTriangles = in.u16("texturedTriangleCount");
    out.polygons.texturedQuads = in.u16("texturedQuadCount");
    out.bones.resize(in.u16("boneCount"));
    if (out.polygonFormat < 3) return;
    out.polygons.colorTriangles = in.u16("colorTriangleCount");
    out.polygons.colorQuads = in.u16("colorQuadCount");
    out.textureCount = in.u16("textureCount");
    in.expect(out.textureCount <= 16, "textureCount", out.textureCount, "at most 16");
    out.patternCount = in.u16("patternCount");
    in.expect(out.patternCount <= 33, "patternCount", out.patternCount, "at most 33");
    out.colorCount = in.u16("colorCount");
    in.expect(out.colorCount <= 256, "colorCount", out.colorCount, "at most 256");
}

void expectTotal(const ContentReader& in, const char* what, uint32_t total, uint32_t announced) {
    if (total != announced)
        in.reject("the patterns hold " + std::to_string(total) + " " + what + ", the header announces " +
                  std::to_string(announced));
}

void readPatterns(FigureReader& r) {
    FigureSummary& out = r.out;
    out.patterns.resize(out.patternCount);
    if (out.version < 5) {  // without a table everything is always drawn
        if (out.patternCount > 0) out.patterns[0] = out.polygons;
        return;
    }
    FigurePolygons total{};
    for (FigurePolygons& pattern : out.patterns) {
        pattern.colorTriangles = r.in.u16("a pattern's colour triangles");
        pattern.colorQuads = r.in.u16("a pattern's colour quads");
        for (uint32_t texture = 0; texture < out.textureCount; ++texture) {
            pattern.texturedTriangles += r.in.u16("a pattern's textured triangles");
            pattern.texturedQuads += r.in.u16("a pattern's textured quads");
        }
        total.colorTriangles += pattern.colorTriangles;
        total.colorQuads += pattern.colorQuads;
        total.texturedTriangles += pattern.texturedTriangles;
        total.texturedQuads += pattern.texturedQuads;
    }
    expectTotal(r.in, "colour triangles", total.colorTriangles, out.polygons.colorTriangles);
    expectTotal(r.in, "colour quads", total.colorQuads, out.polygons.colorQuads);
    expectTotal(r.in, "textured triangles", total.texturedTriangles, out.polygons.texturedTriangles);
    expectTotal(r.in, "textured quads", total.texturedQuads, out.polygons.texturedQuads);
}

void readVertices(FigureReader& r) {
    ContentReader& in = r.in;
    const uint32_t count = r.out.vertexCount;
    in.alignToByte();
    while (r.positions.size() < count) {
        uint32_t run = 1, width = 16;
        if (r.out.vertexFormat == 2) {
            static constexpr uint32_t kWidths[] = {8, 10, 13, 16};
            const uint32_t header = in.bits("a vertex run", 8);
            run = (header & 63) + 1;
            width = kWidths[header >> 6];
            in.expect(run <= count - r.positions.size(), "a vertex run's length", run,
                      "at most the " + std::to_string(count - r.positions.size()) + " vertices left");
        }
        for (uint32_t i = 0; i < run; ++i) {
            Position p;
            for (int32_t& component : p)
                component = r.out.vertexFormat == 2 ? in.signedBits("a vertex", width) : in.signed16("a vertex");
            r.positions.push_back(p);
        }
    }
    in.alignToByte();
}

void readNormals(FigureReader& r) {
    ContentReader& in = r.in;
    in.alignToByte();
    for (uint32_t i = 0; i < r.out.vertexCount; ++i) {
        if (r.out.normalFormat == 1) {
            in.skip("a normal", 6);
        } else if (r.out.normalFormat == 2) {
            if (in.bits("a normal", 7) == 64) {
                const uint32_t axis = in.bits("a normal's axis", 3);
                in.expect(axis <= 5, "a normal's axis", axis, "at most 5");
            } else {
                in.bits("a normal", 8);
            }
        }
    }
    in.alignToByte();
}

// One kind of polygon: how wide its fields are and which attribute bits it may have.
struct PolygonLayout {
    const char* name;
    uint32_t corners;
    uint32_t attributeWidth, indexWidth, valueWidth;
    uint32_t allowedBits, requiredBits;
    uint32_t attributeShift;
    bool isColored;
};

void readPolygon(FigureReader& r, const PolygonLayout& layout) {
    ContentReader& in = r.in;
    const std::string name = layout.name;
    const uint32_t attribute = in.bits(name + "'s attribute", layout.attributeWidth) << layout.attributeShift & 0xFFFF;
    in.expect((attribute & ~layout.allowedBits) == 0, name + "'s attribute", attribute, "only known bits");
    in.expect((attribute & layout.requiredBits) == layout.requiredBits, name + "'s attribute", attribute, "bit 0 set");
    for (uint32_t corner = 0; corner < layout.corners; ++corner) {
        const uint32_t index = in.bits(name + "'s vertex", layout.indexWidth);
        in.expect(index < r.out.vertexCount, name + "'s vertex", index,
                  "less than " + std::to_string(r.out.vertexCount));
    }
    if (layout.isColored) {
        const uint32_t color = in.bits(name + "'s colour", layout.valueWidth);
        in.expect(color < r.out.colorCount, name + "'s colour", color, "less than " + std::to_string(r.out.colorCount));
    } else {
        for (uint32_t i = 0; i < 2 * layout.corners; ++i) in.bits(name + "'s texture coordinates", layout.valueWidth);
    }
}

void readPolygonsOf(FigureReader& r, uint32_t triangles, uint32_t quads, PolygonLayout layout, uint32_t quadBits,
                    uint32_t quadRequired, const char* quadName) {
    layout.corners = 3;
    for (uint32_t i = 0; i < triangles; ++i) readPolygon(r, layout);
    layout.corners = 4;
    layout.name = quadName;
    layout.allowedBits = quadBits;
    layout.requiredBits = quadRequired;
    for (uint32_t i = 0; i < quads; ++i) readPolygon(r, layout);
}

void readColoredBlock(FigureReader& r) {
    ContentReader& in = r.in;
    const uint32_t attributeWidth = in.bits("the attribute width", 8), indexWidth = in.bits("the index width", 8);
    const uint32_t channelWidth = in.bits("the colour width", 8), colorWidth = in.bits("the colour index width", 8);
    in.bits("the unused bits", 8);
    for (uint32_t i = 0; i < 3 * r.out.colorCount; ++i) in.bits("the colour table", channelWidth);
    const PolygonLayout layout = {"a colour triangle", 3, attributeWidth, indexWidth, colorWidth, 0x3F6, 0, 1, true};
    readPolygonsOf(r, r.out.polygons.colorTriangles, r.out.polygons.colorQuads, layout, layout.allowedBits, 0,
                   "a colour quad");
}

void readPolygons(FigureReader& r) {
    ContentReader& in = r.in;
    FigureSummary& out = r.out;
    in.alignToByte();
    PolygonLayout layout = {"a textured triangle", 3, 16, 16, 8, 0x6, 0, 0, false};
    uint32_t quadBits = 0x7, quadRequired = 1;
    if (out.polygonFormat == 3 && out.polygons.colorTriangles + out.polygons.colorQuads > 0) readColoredBlock(r);
    if (out.polygons.texturedTriangles + out.polygons.texturedQuads == 0 && out.polygonFormat != 2) return;
    if (out.polygonFormat >= 2) {
        layout.attributeWidth = in.bits("the attribute width", 8);
        layout.indexWidth = in.bits("the index width", 8);
        layout.valueWidth = 7;
        layout.allowedBits = quadBits = out.polygonFormat == 2 ? 0x77 : 0x3F7;
        quadRequired = 0;
    }
    if (out.polygonFormat == 3) {
        layout.valueWidth = in.bits("the coordinate width", 8);
        in.bits("the unused bits", 8);
        if (out.textureCount == 0) in.reject("there are textured polygons, but textureCount is 0");
    }
    readPolygonsOf(r, out.polygons.texturedTriangles, out.polygons.texturedQuads, layout, quadBits, quadRequired,
                   "a textured quad");
    in.alignToByte();
}

Matrix product(const Matrix& a, const Matrix& b) {
    Matrix out{};
    for (size_t row = 0; row < 3; ++row)
        for (size_t column = 0; column < 4; ++column) {
            double sum = column == 3 ? a[4 * row + 3] : 0;
            for (size_t k = 0; k < 3; ++k) sum += a[4 * row + k] * b[4 * k + column];
            out[4 * row + column] = sum;
        }
    return out;
}

std::vector<Matrix> readBones(FigureReader& r) {
    ContentReader& in = r.in;
    std::vector<Matrix> rest;
    uint32_t owned = 0;
    const auto boneCount = int32_t(r.out.bones.size());
    for (FigureBone& bone : r.out.bones) {
        bone.vertexCount = in.u16("a bone's vertex count");
        in.expect(bone.vertexCount <= r.out.vertexCount - owned, "a bone's vertex count", bone.vertexCount,
                  "at most the " + std::to_string(r.out.vertexCount - owned) + " vertices left");
        owned += bone.vertexCount;
        bone.parent = in.signed16("a bone's parent");
        in.expect(bone.parent >= -1 && bone.parent < boneCount, "a bone's parent", bone.parent,
                  "-1 or less than " + std::to_string(boneCount));
        Matrix m{};
        for (size_t i = 0; i < 12; ++i) m[i] = in.signed16("a bone's matrix") * (i % 4 == 3 ? 1.0 : 1.0 / 4096);
        rest.push_back(m);
    }
    return rest;
}

// Where each bone stands at rest, parents before children whatever their order in the file.
std::vector<Matrix> restWorld(FigureReader& r, const std::vector<Matrix>& rest) {
    std::vector<Matrix> world(rest.size());
    std::vector<bool> done(rest.size());
    for (size_t bone = 0; bone < rest.size(); ++bone) {
        std::vector<size_t> chain;
        for (auto next = int32_t(bone); next >= 0 && !done[size_t(next)]; next = r.out.bones[size_t(next)].parent) {
            chain.push_back(size_t(next));
            if (chain.size() > rest.size()) r.in.reject("the parents of bone " + std::to_string(bone) + " form a loop");
        }
        for (; !chain.empty(); chain.pop_back()) {
            const size_t b = chain.back();
            const int32_t parent = r.out.bones[b].parent;
            world[b] = parent < 0 ? rest[b] : product(world[size_t(parent)], rest[b]);
            done[b] = true;
        }
    }
    return world;
}

void measure(FigureReader& r, const std::vector<Matrix>& world) {
    if (r.positions.empty()) return;
    r.out.least.fill(std::numeric_limits<double>::max());
    r.out.greatest.fill(std::numeric_limits<double>::lowest());
    size_t bone = 0, ownedEnd = r.out.bones.empty() ? 0 : r.out.bones[0].vertexCount;
    for (size_t v = 0; v < r.positions.size(); ++v) {
        while (bone < world.size() && v >= ownedEnd)
            if (++bone < world.size()) ownedEnd += r.out.bones[bone].vertexCount;
        const Position& p = r.positions[v];
        for (size_t axis = 0; axis < 3; ++axis) {
            double value = p[axis];  // a vertex that no bone owns stands still
            if (bone < world.size()) {
                const double* row = &world[bone][4 * axis];
                value = row[0] * p[0] + row[1] * p[1] + row[2] * p[2] + row[3];
            }
            r.out.least[axis] = std::min(r.out.least[axis], value);
            r.out.greatest[axis] = std::max(r.out.greatest[axis], value);
        }
    }
}

}  // namespace

FigureSummary inspectFigure(std::span<const uint8_t> bytes) {
    FigureReader r{ContentReader(bytes), {}, {}};
    readHeader(r);
    readPatterns(r);
    readVertices(r);
    readNormals(r);
    readPolygons(r);
    const std::vector<Matrix> rest = readBones(r);
    if (r.out.version >= 3) r.in.skip("the trailer", 20);
    measure(r, restWorld(r, rest));
    return r.out;
}

}  // namespace inspect
