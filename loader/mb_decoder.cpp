#include "loader/mb_decoder.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstring>
#include <span>

#include "frame/allocator.h"
#include "frame/fixed_point.h"
#include "loader/bit_reader.h"
#include "loader/figure_appearance.h"

constexpr uint16_t kMbMagic = 0x424D;  // "MB"
constexpr int32_t kFirstTrailerVersion = 3;
constexpr int32_t kFirstFormatVersion = 4;
constexpr int32_t kFirstPatternVersion = 5;
constexpr uint32_t kTrailerSize = 20;

constexpr uint32_t kMaxVertices = 21845;
constexpr uint32_t kMaxPatterns = 33;
constexpr uint32_t kMaxColors = 256;

// The least that these take in a file, in bytes. They are allocated only when the file has room for them.
constexpr uint64_t kMinVertexSize = 3;
constexpr uint64_t kBoneSize = 28;

// Nothing keeps packed polygons from taking less than a byte, down to no bit at all when every width is 0, and counts
// alone could make a file of 50 bytes cost megabytes. Beyond so many, polygons must come with two bytes of file each:
// those that draw something need as much to name their corners.
constexpr uint32_t kUnpaidPolygons = 1024;
constexpr uint32_t kBytesPerPolygon = 2;

constexpr uint16_t kNoVertex = 0xFFFF;

// A file vertex with the coordinates or colour of a corner. Those of one file vertex form a binary tree that branches
// on the attributes' bits, lowest first: to find one takes at most as many steps as there are bits, whatever the file
// holds.
struct ExpandedVertex {
    uint32_t attributes;  // u, v or r, g, b, a; first byte lowest
    uint16_t source;      // file vertex
    uint16_t children[2];
};

struct MbDecoder {
    LoaderStream* stream;
    FigureModelData* model;
    bool magicConsumed;

    int32_t version;
    uint8_t vertexFormat, normalFormat, polygonFormat, boneFormat;

    int16_t* filePositions;  // 3 per file vertex
    int8_t* fileNormals;     // 3 per file vertex, or null
    uint16_t* roots;         // per file vertex, of its tree; kNoVertex while it has none
    ExpandedVertex* expanded;
    uint32_t expandedCapacity;
    uint32_t firstTextured;  // expanded vertices below it are coloured; 0 while the coloured ones are made

    uint32_t lastWord;  // attribute word of the polygon before
    AppearanceKey lastKey;
    uint16_t lastClass;
};

// Widths of one block of polygons; value: of a texture coordinate or a colour index.
struct PolygonBlock {
    uint32_t attributeWidth, indexWidth, valueWidth;
    std::span<const uint32_t> colors;  // 0xBBGGRR; of colour polygons
    bool colored;
};

// --- Header and patterns ---

static bool readFormats(MbDecoder& decoder) {
    decoder.vertexFormat = decoder.polygonFormat = decoder.boneFormat = 1;
    decoder.normalFormat = 0;
    if (decoder.version < kFirstFormatVersion) return true;
    decoder.vertexFormat = readByte(decoder.stream);
    decoder.normalFormat = readByte(decoder.stream);
    decoder.polygonFormat = readByte(decoder.stream);
    decoder.boneFormat = readByte(decoder.stream);
    return (decoder.vertexFormat == 1 || decoder.vertexFormat == 2) && decoder.normalFormat <= 2 &&
           decoder.polygonFormat >= 1 && decoder.polygonFormat <= 3 && decoder.boneFormat == 1;
}

static void readCounts(MbDecoder& decoder) {
    FigureModelData& model = *decoder.model;
    LoaderStream* stream = decoder.stream;
    model.vertexCount = readUInt16(stream);
    model.texturedTriangleCount = readUInt16(stream);
    model.texturedQuadCount = readUInt16(stream);
    model.boneCount = readUInt16(stream);
    model.textureCount = model.patternCount = 1;
    if (decoder.polygonFormat < 3) return;
    model.colorTriangleCount = readUInt16(stream);
    model.colorQuadCount = readUInt16(stream);
    model.textureCount = readUInt16(stream);
    model.patternCount = readUInt16(stream);
    model.colorCount = readUInt16(stream);
}

static bool readHeader(MbDecoder& decoder) {
    FigureModelData& model = *decoder.model;
    if (!decoder.magicConsumed && readUInt16(decoder.stream) != kMbMagic) return false;
    decoder.version = readInt16(decoder.stream);
    if (decoder.version < 2 || decoder.version > 5 || !readFormats(decoder)) return false;
    readCounts(decoder);
    if (hasError(decoder.stream)) return false;
    // Without a table of patterns everything is of pattern 0, so there is at least that one. With a table, no patterns
    // means no polygons.
    if (decoder.version < kFirstPatternVersion && model.patternCount == 0) model.patternCount = 1;
    const bool textured = model.texturedTriangleCount + model.texturedQuadCount > 0;
    return model.vertexCount <= kMaxVertices && model.textureCount <= kMaxFigureTextures &&
           model.patternCount <= kMaxPatterns && model.colorCount <= kMaxColors &&
           !(textured && model.textureCount == 0) &&
           model.vertexCount * kMinVertexSize + model.boneCount * kBoneSize <= LoaderStream_bytesLeft(decoder.stream);
}

static bool allocateStarts(FigureModelData& model) {
    const uint32_t perPattern = model.patternCount + 1;
    const uint32_t perTexture = model.patternCount * model.textureCount + 1;
    model.colorTriangleStarts = qelAllocArrayOf<uint32_t>(2 * perPattern + 2 * perTexture);
    if (!model.colorTriangleStarts) return false;
    model.colorQuadStarts = model.colorTriangleStarts + perPattern;
    model.texturedTriangleStarts = model.colorQuadStarts + perPattern;
    model.texturedQuadStarts = model.texturedTriangleStarts + perTexture;
    return true;
}

static bool readPatternTable(MbDecoder& decoder) {
    FigureModelData& model = *decoder.model;
    LoaderStream* stream = decoder.stream;
    uint32_t range = 0;
    for (uint32_t pattern = 0; pattern < model.patternCount; ++pattern) {
        model.colorTriangleStarts[pattern + 1] = model.colorTriangleStarts[pattern] + readUInt16(stream);
        model.colorQuadStarts[pattern + 1] = model.colorQuadStarts[pattern] + readUInt16(stream);
        for (uint32_t texture = 0; texture < model.textureCount; ++texture, ++range) {
            model.texturedTriangleStarts[range + 1] = model.texturedTriangleStarts[range] + readUInt16(stream);
            model.texturedQuadStarts[range + 1] = model.texturedQuadStarts[range] + readUInt16(stream);
        }
    }
    return !hasError(stream) && model.colorTriangleStarts[model.patternCount] == model.colorTriangleCount &&
           model.colorQuadStarts[model.patternCount] == model.colorQuadCount &&
           model.texturedTriangleStarts[range] == model.texturedTriangleCount &&
           model.texturedQuadStarts[range] == model.texturedQuadCount;
}

// Everything is of pattern 0 and texture 0; the ranges behind the first are empty.
static bool makePatternTable(FigureModelData& model) {
    const uint32_t rangeCount = model.patternCount * model.textureCount;
    std::fill_n(model.colorTriangleStarts + 1, model.patternCount, model.colorTriangleCount);
    std::fill_n(model.colorQuadStarts + 1, model.patternCount, model.colorQuadCount);
    std::fill_n(model.texturedTriangleStarts + 1, rangeCount, model.texturedTriangleCount);
    std::fill_n(model.texturedQuadStarts + 1, rangeCount, model.texturedQuadCount);
    return true;
}

static bool readPatterns(MbDecoder& decoder) {
    FigureModelData& model = *decoder.model;
    if (!allocateStarts(model)) return false;
    return decoder.version >= kFirstPatternVersion ? readPatternTable(decoder) : makePatternTable(model);
}

// --- Vertices and normals ---

static bool readPackedVertices(MbDecoder& decoder) {
    static constexpr std::array<uint32_t, 4> kWidths = {8, 10, 13, 16};
    BitReader reader = {decoder.stream};
    int16_t* component = decoder.filePositions;
    uint32_t left = decoder.model->vertexCount;
    while (left > 0) {
        const uint32_t header = readBits(reader, 8);
        const uint32_t runLength = (header & 63) + 1;
        if (runLength > left) return false;
        for (uint32_t i = 0; i < runLength * 3; ++i)
            *component++ = int16_t(readSignedBits(reader, kWidths[header >> 6]));
        left -= runLength;
    }
    return true;
}

static bool readVertices(MbDecoder& decoder) {
    const uint32_t componentCount = decoder.model->vertexCount * 3;
    decoder.filePositions = qelAllocArrayOf<int16_t>(componentCount);
    if (!decoder.filePositions) return false;
    if (decoder.vertexFormat == 1) {
        for (int16_t& component : std::span(decoder.filePositions, componentCount))
            component = readInt16(decoder.stream);
    } else if (!readPackedVertices(decoder)) {
        return false;
    }
    return !hasError(decoder.stream);
}

static bool readPackedNormals(MbDecoder& decoder) {
    static constexpr int8_t kAxes[6][3] = {{64, 0, 0}, {0, 64, 0}, {0, 0, 64}, {-64, 0, 0}, {0, -64, 0}, {0, 0, -64}};
    constexpr uint32_t kComponentWidth = 7;
    constexpr int32_t kAxisFollows = -64;  // 1000000
    BitReader reader = {decoder.stream};
    for (uint32_t i = 0; i < decoder.model->vertexCount; ++i) {
        int8_t* normal = decoder.fileNormals + i * 3;
        const int32_t x = readSignedBits(reader, kComponentWidth);
        if (x == kAxisFollows) {
            const uint32_t axis = readBits(reader, 3);
            if (axis >= std::size(kAxes)) return false;
            std::copy_n(kAxes[axis], 3, normal);
            continue;
        }
        const int32_t y = readSignedBits(reader, kComponentWidth);
        const bool negative = readBits(reader, 1);
        // x and y may be longer than a unit normal: z is 0 then
        const auto z = int32_t(integerSqrt(uint32_t(std::max(4096 - x * x - y * y, 0))));
        normal[0] = int8_t(x);
        normal[1] = int8_t(y);
        normal[2] = int8_t(negative ? -z : z);
    }
    return true;
}

static bool readNormals(MbDecoder& decoder) {
    if (decoder.normalFormat == 0) return true;
    const uint32_t componentCount = decoder.model->vertexCount * 3;
    decoder.fileNormals = qelAllocArrayOf<int8_t>(componentCount);
    if (!decoder.fileNormals) return false;
    if (decoder.normalFormat == 1) {
        for (int8_t& component : std::span(decoder.fileNormals, componentCount))
            component = int8_t((readInt16(decoder.stream) + 32) >> 6);  // 4096 to 64
    } else if (!readPackedNormals(decoder)) {
        return false;
    }
    return !hasError(decoder.stream);
}

// --- Expanded vertices ---

static bool growExpanded(MbDecoder& decoder) {
    const uint32_t wanted = decoder.expandedCapacity + std::max(decoder.expandedCapacity / 2, 64u);
    const uint32_t capacity = std::min(wanted, kMaxExpandedVertices);
    if (capacity == decoder.expandedCapacity) return false;
    void* grown = qelRealloc(decoder.expanded, int32_t(capacity * sizeof(ExpandedVertex)));
    if (!grown) return false;
    decoder.expanded = static_cast<ExpandedVertex*>(grown);
    decoder.expandedCapacity = capacity;
    return true;
}

// Finds the expanded vertex of a file vertex with these attributes, or appends it.
static bool expandVertex(MbDecoder& decoder, uint32_t source, uint32_t attributes, uint16_t& index) {
    uint16_t parent = kNoVertex;
    uint32_t side = 0;
    index = decoder.roots[source];
    for (uint32_t bit = 0; index != kNoVertex; ++bit) {
        const uint32_t held = index < decoder.firstTextured ? 0 : decoder.expanded[index].attributes;
        if (held == attributes) return true;
        parent = index;
        side = attributes >> bit & 1;
        index = decoder.expanded[parent].children[side];
    }
    FigureModelData& model = *decoder.model;
    if (model.expandedCount == decoder.expandedCapacity && !growExpanded(decoder)) return false;
    index = uint16_t(model.expandedCount++);
    decoder.expanded[index] = {attributes, uint16_t(source), {kNoVertex, kNoVertex}};
    (parent == kNoVertex ? decoder.roots[source] : decoder.expanded[parent].children[side]) = index;
    return true;
}

// From here on corners are textured. A coloured vertex has the coordinates (0, 0), so the first one of a file vertex
// also serves its textured corners with these: it stays the root of the tree, and all links start afresh.
static void beginTexturedVertices(MbDecoder& decoder) {
    decoder.firstTextured = decoder.model->expandedCount;
    for (ExpandedVertex& vertex : std::span(decoder.expanded, decoder.firstTextured))
        vertex.children[0] = vertex.children[1] = kNoVertex;
}

// --- Polygons ---

static uint32_t styleOf(uint32_t attribute) {
    uint32_t style = attribute & (kWordColorKey | kWordBlendMask | kWordTwoSided);
    if (attribute & 0x20) style |= kWordLit;
    if (attribute & 0x40) style |= kWordEnvironment;
    if (attribute & 0x80) style |= kWordFlat;
    return style;
}

// The style bits of an attribute as the file has it; false for bits that its polygons must not have.
static bool readStyle(uint32_t polygonFormat, bool colored, bool isQuad, uint32_t attribute, uint32_t& style) {
    if (polygonFormat == 1) {
        style = (attribute & 2 ? kWordColorKey : 0) | (attribute & 4 ? kWordTwoSided : 0);
        return (attribute & ~6u) == (isQuad ? 1 : 0);
    }
    if (colored) {
        style = styleOf(attribute << 1 & 0xFE);
        return (attribute & ~0x1FBu) == 0;
    }
    style = styleOf(attribute);
    return (attribute & ~(polygonFormat == 2 ? 0x77u : 0x3F7u)) == 0;
}

static uint16_t classOf(FigureModelData& model, uint16_t key) {
    const std::span known(model.classKeys, model.classCount);
    const auto found = std::ranges::find(known, key);
    if (found != known.end()) return uint16_t(found - known.begin());
    assert(model.classCount < kMaxAttributeClasses);
    model.classKeys[model.classCount] = key;
    return uint16_t(model.classCount++);
}

static bool selectClass(MbDecoder& decoder, bool colored, bool isQuad, uint32_t attribute) {
    uint32_t style;
    if (!readStyle(decoder.polygonFormat, colored, isQuad, attribute, style)) return false;
    const uint32_t word = style | kWordPolygon | (isQuad ? kWordQuad : 0) | (colored ? kWordColored : 0);
    if (word == decoder.lastWord) return true;
    decoder.lastWord = word;
    decoder.lastKey = qelFigureAppearance_key(word, 0);
    decoder.lastClass = classOf(*decoder.model, decoder.lastKey.key);
    return true;
}

// The attributes that the corners of a polygon give their vertices.
static bool readCornerAttributes(const MbDecoder& decoder, BitReader& reader, const PolygonBlock& block,
                                 std::span<uint32_t> attributes) {
    if (!block.colored) {
        for (uint32_t& corner : attributes) {
            const uint32_t u = readBits(reader, block.valueWidth) & 0xFF;
            const uint32_t v = readBits(reader, block.valueWidth) & 0xFF;
            corner = u | v << 8;
        }
        return true;
    }
    const uint32_t color = readBits(reader, block.valueWidth);
    if (color >= block.colors.size()) return false;
    std::ranges::fill(attributes, block.colors[color] | uint32_t(decoder.lastKey.vertexAlpha) << 24);
    return true;
}

template <typename Record>  // of triangles or quads
static bool readPolygonList(MbDecoder& decoder, BitReader& reader, const PolygonBlock& block, Record* records,
                            uint32_t count) {
    constexpr uint32_t kCornerCount = std::extent_v<decltype(Record::vertices)>;
    const uint32_t valueCount = block.colored ? 1 : 2 * kCornerCount;
    expectBits(reader, uint64_t(count) *
                           (block.attributeWidth + kCornerCount * block.indexWidth + valueCount * block.valueWidth));
    for (Record& record : std::span(records, count)) {
        std::array<uint32_t, kCornerCount> vertices, attributes;
        const uint32_t attribute = readBits(reader, block.attributeWidth);
        for (uint32_t& vertex : vertices) vertex = readBits(reader, block.indexWidth);
        if (!selectClass(decoder, block.colored, kCornerCount == 4, attribute)) return false;
        if (!readCornerAttributes(decoder, reader, block, attributes)) return false;
        for (uint32_t k = 0; k < kCornerCount; ++k) {
            if (vertices[k] >= decoder.model->vertexCount) return false;
            if (!expandVertex(decoder, vertices[k], attributes[k], record.vertices[k])) return false;
        }
        record.attributeClass = decoder.lastClass;
    }
    return true;
}

static bool readColorBlock(MbDecoder& decoder, BitReader& reader) {
    FigureModelData& model = *decoder.model;
    if (model.colorTriangleCount + model.colorQuadCount == 0) return true;
    PolygonBlock block = {};
    block.colored = true;
    block.attributeWidth = readBits(reader, 8);
    block.indexWidth = readBits(reader, 8);
    const uint32_t channelWidth = readBits(reader, 8);
    block.valueWidth = readBits(reader, 8);
    readBits(reader, 8);  // unused
    std::array<uint32_t, kMaxColors> colors;
    block.colors = std::span(colors).first(model.colorCount);
    for (uint32_t i = 0; i < model.colorCount; ++i) {
        colors[i] = 0;
        for (uint32_t shift = 0; shift < 24; shift += 8) colors[i] |= (readBits(reader, channelWidth) & 0xFF) << shift;
    }
    return readPolygonList(decoder, reader, block, model.triangles, model.colorTriangleCount) &&
           readPolygonList(decoder, reader, block, model.quads, model.colorQuadCount);
}

static bool readTexturedBlock(MbDecoder& decoder, BitReader& reader) {
    FigureModelData& model = *decoder.model;
    PolygonBlock block = {};
    if (decoder.polygonFormat == 1) {  // whole bytes are packed bits too
        block.attributeWidth = block.indexWidth = 16;
        block.valueWidth = 8;
    } else if (decoder.polygonFormat == 2) {
        block.attributeWidth = readBits(reader, 8);
        block.indexWidth = readBits(reader, 8);
        block.valueWidth = 7;
    } else {
        if (model.texturedTriangleCount + model.texturedQuadCount == 0) return true;
        block.attributeWidth = readBits(reader, 8);
        block.indexWidth = readBits(reader, 8);
        block.valueWidth = readBits(reader, 8);
        readBits(reader, 8);  // unused
    }
    return readPolygonList(decoder, reader, block, model.triangles + model.colorTriangleCount,
                           model.texturedTriangleCount) &&
           readPolygonList(decoder, reader, block, model.quads + model.colorQuadCount, model.texturedQuadCount);
}

// Nothing is allocated behind a failure: the engine status has to keep it.
template <typename T>
static bool allocateOf(T** out, uint32_t count) {
    return (*out = qelAllocArrayOf<T>(count));
}

static bool allocatePolygons(MbDecoder& decoder) {
    FigureModelData& model = *decoder.model;
    const uint32_t triangleCount = model.colorTriangleCount + model.texturedTriangleCount;
    const uint32_t quadCount = model.colorQuadCount + model.texturedQuadCount;
    if (triangleCount + quadCount > kUnpaidPolygons + model.byteCount / kBytesPerPolygon) return false;
    decoder.expandedCapacity = model.vertexCount + model.vertexCount / 2;
    if (!allocateOf(&model.triangles, triangleCount) || !allocateOf(&model.quads, quadCount) ||
        !allocateOf(&decoder.roots, model.vertexCount) || !allocateOf(&decoder.expanded, decoder.expandedCapacity))
        return false;
    std::fill_n(decoder.roots, model.vertexCount, kNoVertex);
    return true;
}

static bool readPolygons(MbDecoder& decoder) {
    if (!allocatePolygons(decoder)) return false;
    BitReader reader = {decoder.stream};
    if (!readColorBlock(decoder, reader)) return false;
    beginTexturedVertices(decoder);
    return readTexturedBlock(decoder, reader) && !hasError(decoder.stream);
}

// --- What becomes of the expanded vertices ---

static bool makeVertexArrays(MbDecoder& decoder) {
    FigureModelData& model = *decoder.model;
    const uint32_t count = model.expandedCount;
    if (!allocateOf(&model.positions, count * 3) || (decoder.fileNormals && !allocateOf(&model.normals, count * 3)) ||
        (model.colorCount && !allocateOf(&model.colors, count * 4)) ||
        (model.textureCount && !allocateOf(&model.texCoords, count * 2)))
        return false;
    for (uint32_t i = 0; i < count; ++i) {
        const ExpandedVertex& vertex = decoder.expanded[i];
        std::copy_n(decoder.filePositions + vertex.source * 3, 3, model.positions + i * 3);
        if (model.normals) std::copy_n(decoder.fileNormals + vertex.source * 3, 3, model.normals + i * 3);
        if (i < decoder.firstTextured) {
            for (uint32_t k = 0; k < 4; ++k) model.colors[i * 4 + k] = uint8_t(vertex.attributes >> k * 8);
        } else {
            model.texCoords[i * 2] = vertex.attributes & 0xFF;
            model.texCoords[i * 2 + 1] = uint16_t(vertex.attributes >> 8);
        }
    }
    return true;
}

// One block for everything per bone and per group; the size of each array suits the alignment of the next.
static bool allocateBones(FigureModelData& model) {
    constexpr uint32_t kSizePerBone = sizeof(BoneRecord) + sizeof(int32_t) + 2 * sizeof(Atrans3i);
    static_assert(kSizePerBone % alignof(VertexGroup) == 0 && alignof(BoneRecord) == alignof(Atrans3i));
    FigureBones& bones = model.bones;
    const size_t size = size_t(model.boneCount) * kSizePerBone + model.vertexCount * sizeof(VertexGroup);
    bones.bones = static_cast<BoneRecord*>(qelAllocArray(uint32_t(size), 1));  // 11 MB at most
    if (!bones.bones || !allocateOf(&bones.groupVertices, model.expandedCount)) return false;
    bones.boneCount = model.boneCount;
    bones.groupCount = model.vertexCount;
    bones.chain = reinterpret_cast<int32_t*>(bones.bones + model.boneCount);
    bones.world = reinterpret_cast<Atrans3i*>(bones.chain + model.boneCount);
    bones.local = bones.world + model.boneCount;
    bones.groups = reinterpret_cast<VertexGroup*>(bones.local + model.boneCount);
    return true;
}

// Lists for every file vertex the expanded vertices made from it, in the order in which they were made.
static void fillGroups(const MbDecoder& decoder) {
    const std::span groups(decoder.model->bones.groups, decoder.model->vertexCount);
    const std::span expanded(decoder.expanded, decoder.model->expandedCount);
    for (const ExpandedVertex& vertex : expanded) ++groups[vertex.source].count;
    uint16_t* next = decoder.model->bones.groupVertices;
    for (VertexGroup& group : groups) {
        group.vertices = next;
        next += group.count;
        group.count = 0;
    }
    for (uint32_t i = 0; i < expanded.size(); ++i) {
        VertexGroup& group = groups[expanded[i].source];
        group.vertices[group.count++] = uint16_t(i);
    }
}

// --- Bones ---

// Marks every bone with the first bone from which it was reached; a walk that meets its own mark goes in circles.
static bool haveRoots(FigureBones& bones) {
    int32_t* marks = bones.chain;
    bool rooted = true;
    for (uint32_t start = 0; start < bones.boneCount && rooted; ++start) {
        const auto mark = int32_t(start + 1);
        int32_t bone = int32_t(start);
        for (; bone >= 0 && marks[bone] == 0; bone = bones.bones[bone].parent) marks[bone] = mark;
        rooted = bone < 0 || marks[bone] != mark;
    }
    std::fill_n(marks, bones.boneCount, 0);
    return rooted;
}

static bool readBones(MbDecoder& decoder) {
    FigureModelData& model = *decoder.model;
    FigureBones& bones = model.bones;
    if (!allocateBones(model)) return false;
    uint32_t firstGroup = 0;  // never exceeds vertexCount
    for (uint32_t b = 0; b < model.boneCount; ++b) {
        BoneRecord& bone = bones.bones[b];
        bone.groupCount = readUInt16(decoder.stream);
        bone.parent = readInt16(decoder.stream);
        bone.changed = 1;
        if (bone.parent < -1 || bone.parent >= int32_t(model.boneCount)) return false;
        if (bone.groupCount > model.vertexCount - firstGroup) return false;
        bone.firstGroup = firstGroup;
        firstGroup += bone.groupCount;
        for (int32_t& element : bone.rest.m) element = readInt16(decoder.stream);
        bones.local[b] = bone.rest;
    }
    return !hasError(decoder.stream) && haveRoots(bones);
}

static bool readTrailer(MbDecoder& decoder) {
    if (decoder.version >= kFirstTrailerVersion) skipBytes(decoder.stream, kTrailerSize);
    return !hasError(decoder.stream);
}

static void releaseScratch(MbDecoder& decoder) {
    qelFree(decoder.filePositions);
    qelFree(decoder.fileNormals);
    qelFree(decoder.roots);
    qelFree(decoder.expanded);
}

bool D_FigureModel_decode(LoaderStream* stream, FigureModelData* model, bool magicConsumed) {
    *model = {};
    model->byteCount = LoaderStream_bytesLeft(stream);
    MbDecoder decoder = {};
    decoder.stream = stream;
    decoder.model = model;
    decoder.magicConsumed = magicConsumed;
    bool decoded = readHeader(decoder) && readPatterns(decoder) && readVertices(decoder) && readNormals(decoder) &&
                   readPolygons(decoder) && makeVertexArrays(decoder) && readBones(decoder);
    if (decoded) {
        fillGroups(decoder);
        decoded = readTrailer(decoder);
    }
    releaseScratch(decoder);
    if (!decoded) D_FigureModel_release(model);
    return decoded;
}
