#include "tests/support/figure_fixture.h"

#include <algorithm>

#include "loader/figure_builder.h"
#include "loader/mt_decoder.h"
#include "loader/stream.h"

using namespace encode;

// The same on every machine, unlike std::uniform_int_distribution.
int32_t randomBetween(std::mt19937& random, int32_t low, int32_t high) {
    const uint32_t count = uint32_t(high) - uint32_t(low) + 1;  // 0: all of 2^32
    return int32_t(uint32_t(low) + uint32_t(count ? random() % count : random()));
}

static int16_t randomInt16(std::mt19937& random, int32_t limit) {
    return int16_t(randomBetween(random, -limit, limit));
}

// --- Figures ---

BoneMatrix randomBone(std::mt19937& random, int32_t translationLimit) {
    std::array<double, 3> axis = {0, 0, 1};
    for (double& component : axis) component += randomBetween(random, -1000, 1000) / 1000.0;
    if (axis == std::array<double, 3>{}) axis[0] = 1;
    const double degrees = randomBetween(random, -180, 180);
    return rotationBone(axis, degrees,
                        {randomInt16(random, translationLimit), randomInt16(random, translationLimit),
                         randomInt16(random, translationLimit)});
}

static MbVertex randomVertex(std::mt19937& random, bool isExtreme, int32_t bone) {
    MbVertex vertex;
    for (int16_t& component : vertex.position) component = isExtreme ? int16_t(random()) : randomInt16(random, 2000);
    for (float& component : vertex.normal)
        component = float(isExtreme ? int8_t(random()) : randomBetween(random, -64, 64)) / 64;
    vertex.bone = bone;
    return vertex;
}

// Every vertex is used once, so that none is split; the corners left over repeat the last one.
static std::vector<MbPolygon> trianglesOver(const std::vector<uint32_t>& order) {
    std::vector<MbPolygon> triangles;
    for (size_t i = 0; i < order.size(); i += 3) {
        MbPolygon triangle;
        for (size_t corner = i; corner < i + 3; ++corner)
            triangle.corners.push_back({order[std::min(corner, order.size() - 1)], 0, 0});
        triangles.push_back(triangle);
    }
    return triangles;
}

MbFigure randomFigure(std::mt19937& random, const FigureShape& shape) {
    MbFigure figure;
    figure.normalFormat = shape.hasNormals ? 1 : 0;
    for (uint32_t b = 0; b < shape.boneCount; ++b)
        figure.bones.push_back({.parent = b == 0 ? -1 : randomBetween(random, int32_t(b) / 2 - 1, int32_t(b) - 1),
                                .rest = randomBone(random, 300)});
    std::vector<uint32_t> order;
    for (uint32_t v = 0; v < shape.vertexCount; ++v) {
        const bool isLoose = shape.boneCount == 0 || (shape.hasLooseVertices && random() % 8 == 0);
        figure.vertices.push_back(
            randomVertex(random, shape.isExtreme, isLoose ? -1 : int32_t(v * shape.boneCount / shape.vertexCount)));
        order.push_back(v);
    }
    if (shape.isScattered)
        for (uint32_t v = 1; v < shape.vertexCount; ++v) std::swap(order[v], order[random() % (v + 1)]);
    figure.polygons = trianglesOver(order);
    return figure;
}

FigureMesh* loadFigure(const MbFigure& description) {
    const std::vector<uint8_t> file = encodeMb(description).bytes;
    MemoryStream stream;
    MemoryStream_init(&stream, file.data(), uint32_t(file.size()));
    FigureMesh* figure = qelFigureMesh_create();
    if (figure && D_Figure_load(figure, &stream, false)) return figure;
    qelObject3D_unref(figure);
    return nullptr;
}

// --- Action tables ---

static std::vector<uint16_t> randomFrames(std::mt19937& random, const TableShape& shape) {
    const auto frameCount = uint32_t(shape.frameCount);
    std::vector<uint16_t> frames;
    for (uint32_t i = 0; i < shape.keyCount; ++i)
        frames.push_back(uint16_t(shape.hasSharedFrames ? i * frameCount / shape.keyCount
                                                        : randomBetween(random, 0, shape.frameCount)));
    frames[0] = 0;
    std::sort(frames.begin(), frames.end());
    frames.erase(std::unique(frames.begin(), frames.end()), frames.end());
    return frames;
}

static MtVectorKeys randomVectors(std::mt19937& random, const TableShape& shape, int32_t low, int32_t high) {
    MtVectorKeys keys;
    for (const uint16_t frame : randomFrames(random, shape)) {
        const auto x = int16_t(randomBetween(random, low, high)), y = int16_t(randomBetween(random, low, high));
        keys.push_back({frame, x, y, int16_t(randomBetween(random, low, high))});
    }
    return keys;
}

static MtTrack randomTrack(std::mt19937& random, const TableShape& shape) {
    const auto translations = [&] { return randomVectors(random, shape, -500, 500); };
    const auto scales = [&] { return randomVectors(random, shape, 2000, 6000); };
    const auto directions = [&] { return randomVectors(random, shape, -4096, 4096); };
    const auto offset = [&] { return randomInt16(random, 500); };
    const auto roll = [&] { return randomInt16(random, 4096); };
    const auto rolls = [&] {
        MtScalarKeys keys;
        for (const uint16_t frame : randomFrames(random, shape)) keys.push_back({frame, roll()});
        return keys;
    };
    switch (randomBetween(random, shape.hasKeysOnly ? 2 : 0, 6)) {
        case 0: return MtConstantMatrix{randomBone(random, 500)};
        case 1: return MtUnchanged{};
        case 2: return MtTranslateScaleDirectionRoll{translations(), scales(), directions(), rolls()};
        case 3: return MtDirectionFixedTranslateRoll{{offset(), offset(), offset()}, directions(), roll()};
        case 4: return MtDirectionRoll{directions(), rolls()};
        case 5: return MtDirection{directions()};
        default: return MtTranslateDirectionRoll{translations(), directions(), rolls()};
    }
}

MtTable randomTable(std::mt19937& random, const TableShape& shape) {
    MtTable table;
    table.boneCount = shape.boneCount;
    for (uint32_t a = 0; a < shape.actionCount; ++a) {
        MtAction action;
        action.frameCount = shape.frameCount;
        for (uint32_t b = 0; b < shape.boneCount; ++b) action.tracks.push_back(randomTrack(random, shape));
        for (const uint16_t frame : randomFrames(random, shape)) action.patterns.push_back({frame, uint32_t(random())});
        table.actions.push_back(action);
    }
    return table;
}

ActTable* loadTable(const MtTable& description) {
    const std::vector<uint8_t> file = encodeMt(description).bytes;
    MemoryStream stream;
    MemoryStream_init(&stream, file.data(), uint32_t(file.size()));
    ActTable* table = qelActTable_create();
    if (table && D_ActTable_decode(table, &stream)) return table;
    qelObject3D_unref(table);
    return nullptr;
}
