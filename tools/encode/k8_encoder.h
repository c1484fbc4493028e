#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/encode/byte_writer.h"

namespace encode {

// Objects of a package. Those that stand for files of their own hold the encoded file.
struct K8FigureRecord {
    EncodedFile model{};               // encodeMb
    uint16_t actionTable = 0;          // object index; 0 is none
    std::vector<uint16_t> textures{};  // object indices in the model's order; 0 is none
};
struct K8TextureRecord {
    EncodedFile image{};  // encodeBmp
};
struct K8ActionTableRecord {
    EncodedFile table{};  // encodeMt
};
struct K8LightRecord {
    uint8_t mode = 129;  // 128 ambient, 129 directional, 130 omni, 131 spot
    uint32_t color = 0xFFFFFF;
    std::array<float, 3> position{}, direction{0, 0, -1};
    std::array<float, 3> attenuation{1, 0, 0};  // constant, linear, quadratic
    float intensity = 1, spotAngle = 45, spotExponent = 0;
};
struct K8FogRecord {
    uint8_t mode = 81;  // 80 exponential, 81 linear
    uint32_t color = 0;
    float density = 1;        // exponential
    float near = 0, far = 1;  // linear
};
struct K8PrimitiveRecord {
    uint32_t type = 0;    // 1 points, 2 lines, 3 triangles, 4 quadrilaterals, 5 sprites; or that << 24
    uint32_t params = 0;  // mode bits as in k8.h
    uint16_t count = 0;   // of primitives
    // Positions, normals, colours, texture coordinates, sprite parameters, as the file holds them: 20.12, colours
    // 0xRRGGBB. How many a primitive needs is for the writer of the description to know.
    std::array<std::vector<int32_t>, 5> values{};
};
using K8Record = std::variant<K8PrimitiveRecord, K8LightRecord, K8FogRecord, K8TextureRecord, K8FigureRecord,
                              K8ActionTableRecord>;  // in the order of the file's type bytes: 0xFA + index()

struct K8Child {
    bool isGroup = false;
    uint16_t index = 0;                                // of an object or a group
    std::optional<std::array<float, 16>> transform{};  // of a group, row-major
};
struct K8GroupRecord {
    std::vector<K8Child> children{};
};

struct K8Package {
    uint16_t version = 0;
    uint32_t objectSizeLimit = 0x80000;   // every record is shorter
    std::vector<K8GroupRecord> groups{};  // the first is the root
    std::vector<K8Record> objects{};      // without groups the first is what a load returns
    std::vector<uint8_t> trailer{};
    bool allowInvalid = false;  // writes what readers refuse: for tests of readers
};

// Writes a package. Throws std::invalid_argument with a text that names the record for what a reader would refuse. The
// files that records hold are not looked into.
//
// Fields of the result (i object, g group, c child, e matrix element, k value):
//   magic version objectSizeLimit objectCount groupCount
//   group[g].childCount   group[g].child[c]   group[g].child[c].m[e]
//   object[i].header  and then by type, all below object[i]:
//     primitive  .type .params .count .valueCount[0..4] .value[0..4][k]
//     light      .position[e] .direction[e] .attenuation[e] .mode (with the colour) .intensity .spotAngle .spotExponent
//     fog        .mode (with the colour) .first .second
//     texture    the fields of its file
//     figure     .actionTable .textureCount .texture[k], then the fields of its file
//     actions    the fields of its file
EncodedFile encodeK8(const K8Package& package);

}  // namespace encode
