#include "tests/loader/hostile.h"

#include <functional>

#include "k8.h"
#include "tools/encode/bmp_encoder.h"
#include "tools/encode/k8_encoder.h"

namespace {

// Writes numbers least significant bit first; a byte-aligned number is the same in little-endian order.
struct Bits {
    ByteList bytes;
    uint32_t used = 0;  // bits of the last byte, 0 when it is full

    void put(uint64_t value, uint32_t width) {
        while (width > 0) {
            if (used == 0) bytes.push_back(0);
            const uint32_t part = std::min(width, 8 - used);
            bytes.back() = uint8_t(bytes.back() | (value & ((1u << part) - 1)) << used);
            used = (used + part) % 8;
            value >>= part;
            width -= part;
        }
    }
    void align() { used = 0; }
    void put16(std::initializer_list<uint64_t> values) {
        for (const uint64_t value : values) put(value, 16);
    }
};

// A figure with the fields that decide what a file costs. Vertices are packed at 8 bits and all the same, normals left
// out.
struct RawFigure {
    uint32_t vertexCount = 1;
    uint32_t texturedTriangles = 0, texturedQuads = 0, colorTriangles = 0, colorQuads = 0;
    uint32_t textureCount = 1, patternCount = 1, colorCount = 0;
    std::vector<int32_t> boneParents{};
    uint32_t verticesOfLastBone = 0;
    // Version 4, or 5 with a table of patterns: colour triangles, colour quads, then per texture triangles and quads.
    std::function<void(Bits&)> putPatternTable{};
    std::function<void(Bits&)> putColorBlock{}, putTexturedBlock{};

    ByteList encode() const {
        Bits out;
        out.put16({0x424D, putPatternTable ? 5u : 4u});
        for (const uint32_t format : {2, 0, 3, 1}) out.put(format, 8);
        out.put16({vertexCount, texturedTriangles, texturedQuads, boneParents.size(), colorTriangles, colorQuads,
                   textureCount, patternCount, colorCount});
        if (putPatternTable) putPatternTable(out);
        for (uint32_t i = 0; i < vertexCount; ++i) {
            if (i % 64 == 0) out.put(std::min(vertexCount - i, 64u) - 1, 8);
            out.put(0, 24);
        }
        out.align();
        if (putColorBlock) putColorBlock(out);
        if (putTexturedBlock) putTexturedBlock(out);
        out.align();
        for (size_t bone = 0; bone < boneParents.size(); ++bone) {
            const bool isLast = bone + 1 == boneParents.size();
            out.put16({isLast ? verticesOfLastBone : 0, uint16_t(boneParents[bone])});
            for (int i = 0; i < 12; ++i) out.put(i % 5 == 0 ? 4096 : 0, 16);
        }
        out.bytes.resize(out.bytes.size() + 20);
        return out.bytes;
    }
};

void putTexturedWidths(Bits& out, uint32_t attribute, uint32_t index, uint32_t coordinate) {
    for (const uint32_t width : {attribute, index, coordinate, 0u}) out.put(width, 8);
}

// About 1 MB of what an artist would make: every vertex used by six triangles with coordinates of its own.
ByteList honestFigure() {
    RawFigure figure = {.vertexCount = 21000, .texturedTriangles = 65535};
    for (int32_t bone = 0; bone < 40; ++bone) figure.boneParents.push_back(bone == 0 ? -1 : (bone - 1) / 2);
    figure.verticesOfLastBone = 21000;
    figure.putTexturedBlock = [](Bits& out) {
        putTexturedWidths(out, 8, 15, 8);
        for (uint32_t i = 0; i < 65535; ++i) {
            const uint32_t corners[] = {i / 4, i / 4 + 1 + i % 3, i / 4 + 120};
            out.put(i < 30000 ? 0x20 : 0x30, 8);
            for (const uint32_t corner : corners) out.put(corner, 15);
            for (const uint32_t corner : corners) out.put(corner * 7 & 0xFFFF, 16);
        }
    };
    ByteList file = figure.encode();
    file.resize(1'000'000);  // what is behind the trailer is ignored
    return file;
}

// Every pair of coordinates on one vertex: 65535 vertices in one group.
ByteList oneVertexSplit(uint32_t step) {
    RawFigure figure = {.texturedTriangles = 21845};
    figure.putTexturedBlock = [step](Bits& out) {
        putTexturedWidths(out, 0, 0, 8);
        for (uint32_t i = 0; i < 65535; ++i) out.put(uint16_t(i * step), 16);
    };
    return figure.encode();
}

// As many polygons as the counts can say, of `bitsPerIndex` bits a corner.
ByteList crowdOfPolygons(uint32_t bitsPerIndex) {
    RawFigure figure = {.vertexCount = 1u << bitsPerIndex,
                        .texturedTriangles = 65535,
                        .texturedQuads = 65535,
                        .colorTriangles = 65535,
                        .colorQuads = 65535,
                        .colorCount = 1};
    const auto putPolygons = [=](Bits& out) {
        for (uint32_t i = 0; i < 65535 * 7; ++i) out.put(i, bitsPerIndex);
    };
    figure.putColorBlock = [=](Bits& out) {
        for (const uint32_t width : {0u, bitsPerIndex, 0u, 0u, 0u}) out.put(width, 8);
        putPolygons(out);
    };
    figure.putTexturedBlock = [=](Bits& out) {
        putTexturedWidths(out, 0, bitsPerIndex, 0);
        putPolygons(out);
    };
    return figure.encode();
}

constexpr uint32_t kClasses = 96;

// The attribute of each class: 32 combinations of colour key, blending, two sides and flatness in three kinds of light.
uint32_t attributeOf(uint32_t attributeClass) {
    const uint32_t light = attributeClass / 32, bits = attributeClass % 32;
    return (bits & 0x07) | (bits & 0x08) << 1 | (bits & 0x10) << 3 | (light > 0 ? 0x20 : 0) | (light > 1 ? 0x40 : 0);
}

void putClassesInTurn(Bits& out, uint32_t triangleCount, uint32_t indexWidth) {
    putTexturedWidths(out, 8, indexWidth, 0);
    for (uint32_t i = 0; i < triangleCount; ++i) {
        out.put(attributeOf(i % kClasses), 8);
        out.put(0, 3 * indexWidth);
    }
}

// Triangles that go through all classes again and again.
ByteList everyClass(uint32_t textureCount, uint32_t triangleCount, uint32_t indexWidth) {
    RawFigure figure = {
        .vertexCount = 3, .texturedTriangles = triangleCount, .textureCount = textureCount, .colorCount = 1};
    figure.putTexturedBlock = [=](Bits& out) { putClassesInTurn(out, triangleCount, indexWidth); };
    return figure.encode();
}

// One polygon for every pattern, class and texture, of which only the first have any.
ByteList scatteredSubmeshes(uint32_t patternCount, uint32_t texturesInUse, uint32_t indexWidth) {
    const uint32_t count = patternCount * texturesInUse * kClasses;
    RawFigure figure = {.vertexCount = 3,
                        .texturedTriangles = count,
                        .textureCount = 16,
                        .patternCount = patternCount,
                        .colorCount = 1};
    figure.putPatternTable = [=](Bits& out) {
        for (uint32_t s = 0; s < patternCount; ++s) {
            out.put16({0, 0});
            for (uint32_t t = 0; t < 16; ++t) out.put16({t < texturesInUse ? kClasses : 0, 0});
        }
    };
    figure.putTexturedBlock = [=](Bits& out) { putClassesInTurn(out, count, indexWidth); };
    return figure.encode();
}

// A chain of bones whose root is the last one, all owning vertices.
ByteList chainOfBones() {
    RawFigure figure = {.vertexCount = 21000};
    for (int32_t bone = 0; bone < 32000; ++bone) figure.boneParents.push_back(bone + 1 < 32000 ? bone + 1 : -1);
    figure.texturedTriangles = 7000;
    figure.putTexturedBlock = [](Bits& out) {
        putTexturedWidths(out, 0, 15, 0);
        for (uint32_t i = 0; i < 21000; ++i) out.put(i, 15);
    };
    ByteList file = figure.encode();
    uint8_t* bones = file.data() + file.size() - 20 - size_t(32000) * 28;
    for (size_t bone = 0; bone < 21000; ++bone) bones[bone * 28] = 1;  // one vertex each
    return file;
}

ByteList packageOf(uint16_t count, const encode::K8Record& record) {
    encode::K8Package package;
    package.groups.resize(1);
    package.objects.resize(count, record);
    return encode::encodeK8(package).bytes;
}

// Each is padded to 256 x 256.
ByteList narrowImages() {
    return packageOf(1024, encode::K8TextureRecord{encode::encodeBmp(
                               {.width = 129, .height = 1, .indices = std::vector<uint8_t>(129), .palette = {{}}})});
}

ByteList figuresOfEveryClass() { return packageOf(1024, encode::K8FigureRecord{{everyClass(16, kClasses, 0), {}}}); }

// Every group contains the next one over and over, so that the first comes to more than can be counted.
ByteList sharedGroups(bool placed) {
    encode::K8Package package;
    package.groups.resize(placed ? 16 : 500);
    for (uint16_t g = 1; g < package.groups.size(); ++g) {
        encode::K8Child child = {.isGroup = true, .index = g};
        if (placed) child.transform.emplace();
        package.groups[g - 1u].children.resize(1024, child);
    }
    return encode::encodeK8(package).bytes;
}

std::vector<HostileFile> hostileFiles() {
    return {{"one vertex split 65535 times, in order", oneVertexSplit(1), true},
            {"one vertex split 65535 times, high bits first", oneVertexSplit(0x8001), true},
            {"262140 polygons of no bits", crowdOfPolygons(0), false},
            {"262140 polygons of a bit a corner", crowdOfPolygons(1), false},
            {"262140 polygons of four bits a corner", crowdOfPolygons(4), false},
            {"262140 polygons of five bits a corner", crowdOfPolygons(5), true},
            {"1632 appearances in a file of 150 bytes", everyClass(16, kClasses, 0), true},
            {"96 classes in turn", everyClass(1, 65535, 3), true},
            {"1632 appearances and 1152 submeshes", scatteredSubmeshes(1, 12, 0), true},
            {"1632 appearances and 1536 submeshes", scatteredSubmeshes(1, 16, 0), false},
            {"18432 submeshes", scatteredSubmeshes(12, 16, 3), false},
            {"50688 submeshes", scatteredSubmeshes(33, 16, 3), false},
            {"a chain of 32000 bones", chainOfBones(), true},
            {"1024 narrow images", narrowImages(), false},
            {"1024 figures with 1632 appearances", figuresOfEveryClass(), false},
            {"1024 fogs", packageOf(1024, encode::K8FogRecord{}), true},
            {"500 groups of 1024 groups", sharedGroups(false), true},
            {"15360 placed groups", sharedGroups(true), true}};
}

TEST(HostileContent, CostsWhatItsSizeJustifies) {
    expectProportion(hostileFiles(), honestFigure(), 20,
                     [](const ByteList& file) -> int64_t { return file[0] == 'K' ? 2 << 20 : 1 << 20; });
}

}  // namespace
