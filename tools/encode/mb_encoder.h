#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/encode/bone_matrix.h"
#include "tools/encode/byte_writer.h"

namespace encode {

// In the descriptions every member has an initialiser: a designated initialiser may leave out any of them.

using Rgb = std::array<uint8_t, 3>;

struct MbVertex {
    std::array<int16_t, 3> position{};  // model units, in the frame of the owning bone; a figure is drawn at 1/64
    std::array<float, 3> normal{};      // unit length 1; left out when normalFormat is 0
    int32_t bone = -1;                  // the owner, an index into MbFigure::bones; -1: the vertex never moves
};

struct MbBone {
    std::string name{};   // for readers of the description, not stored
    int32_t parent = -1;  // an index into MbFigure::bones, -1 for a root. Parents may come after their children
    BoneMatrix rest = kIdentityBone;  // relative to the parent
};

enum class MbBlend : uint8_t {
    None,       // opaque
    Half,       // mixed with what is behind it at alpha 128
    Add,        // added to what is behind it
    AddByAlpha  // the same, weighed with the texel's alpha
};

// How a polygon looks. What a polygon format cannot say is refused by encodeMb:
//                    colorKey  twoSided  blend  lit  environmentMap  flat
//   1                    x         x
//   2                    x         x        x     x         x
//   3, textured          x         x        x     x         x          x
//   3, colour                      x        x     x         x          x
struct MbStyle {
    bool colorKey = false;  // palette index 0 of the texture is cut out
    bool twoSided = false;
    MbBlend blend = MbBlend::None;
    bool lit = false;
    bool environmentMap = false;  // shiny; shows only on lit polygons
    bool flat = false;            // one colour per triangle instead of smooth shading
};

struct MbCorner {
    uint32_t vertex = 0;   // an index into MbFigure::vertices
    uint8_t u = 0, v = 0;  // texels; ignored on colour polygons
};

struct MbPolygon {
    // Three corners, or four in the order of a triangle strip: 0 1 2 and 1 3 2 are its halves.
    std::vector<MbCorner> corners{};
    MbStyle style{};
    uint32_t pattern = 0;        // 0 is always drawn; the others are switched by the host or an action
    uint32_t texture = 0;        // texture slot, for textured polygons
    std::optional<Rgb> color{};  // set: a colour polygon, unset: a textured one

    std::optional<uint32_t> rawAttribute{};  // written to the file in place of what style says, legal or not
};

// A run of vertexFormat 2: how many vertices share a width. Width codes 0..3 are 8, 10, 13 and 16 bits.
struct MbVertexRun {
    uint32_t vertexCount;  // 1..64
    uint32_t widthCode;
};

// Widths in bits of the packed polygon sections. Unset ones become the smallest that hold the figure's values.
struct MbWidths {
    std::optional<uint32_t> attribute{}, index{};                  // textured polygons; index: of a vertex
    std::optional<uint32_t> coordinate{};                          // polygonFormat 3 only, like everything below
    std::optional<uint32_t> colorAttribute{}, colorVertexIndex{};  // colour polygons
    std::optional<uint32_t> colorChannel{}, colorIndex{};
};

// An animated figure model. The defaults make the richest file: smooth, textured or coloured, with patterns.
struct MbFigure {
    int32_t version = 5;         // 2..5; versions 2 and 3 exist with formats 1, 0, 1, 1 only
    uint32_t vertexFormat = 2;   // 1 plain, 2 packed
    uint32_t normalFormat = 2;   // 0 none, 1 plain (1/4096 before it is rounded to 1/64), 2 packed (1/64)
    uint32_t polygonFormat = 3;  // 1 plain, 2 packed, 3 packed with colours, textures and patterns
    uint32_t boneFormat = 1;     // there is no other

    std::vector<MbVertex> vertices{};  // in any order: the file holds them bone by bone, those without a bone last
    std::vector<MbBone> bones{};
    std::vector<MbPolygon> polygons{};  // in any order: see encodeMb

    // Unset: as many as the polygons use, at least one pattern. Only polygonFormat 3 can say anything but 1 and 1.
    std::optional<uint32_t> patternCount{};  // 0..33
    std::optional<uint32_t> textureCount{};  // 0..16

    // The start of the colour table. Colours of polygons that are not in it follow in the order of their first use.
    std::vector<Rgb> colorTable{};

    MbWidths widths{};
    std::optional<std::vector<MbVertexRun>> vertexRuns{};     // unset: the runs that take the fewest bits
    std::vector<uint8_t> trailer = std::vector<uint8_t>(20);  // after the bones, version 3 and later
};

// Writes a figure. The file holds colour triangles, colour quads, textured triangles, textured quads; each list goes by
// pattern, within it by texture, and otherwise keeps the order of the description. Versions before 5 have no table of
// patterns, so all polygons are of pattern 0 and texture 0. Throws std::invalid_argument with a text for what the
// formats in use cannot say: an index out of range, a style from outside the table above, a coordinate above 127 in
// polygonFormat 2, a normal far from unit length in normalFormat 2, ... Loops of bone parents are written as described.
//
// Fields of the result, with indices in file order (k is a corner; a width stands once per block):
//   magic version vertexFormat normalFormat polygonFormat boneFormat vertexCount texturedTriangleCount
//   texturedQuadCount
//   boneCount colorTriangleCount colorQuadCount textureCount patternCount colorCount
//   pattern[s].colorTriangleCount  pattern[s].colorQuadCount
//   pattern[s].texture[t].triangleCount  pattern[s].texture[t].quadCount
//   vertex[i].x .y .z   run[r].header
//   normal[i].x .y .z   normal[i].axis .zSign (packed normals)
//   textured.attributeWidth .indexWidth .coordinateWidth .unused
//   color.attributeWidth .indexWidth .channelWidth .colorIndexWidth .unused
//   colorTable[i].r .g .b
//   colorTriangle[i].attribute .vertex[k] .color     colorQuad[i] likewise
//   texturedTriangle[i].attribute .vertex[k] .u[k] .v[k]     texturedQuad[i] likewise
//   bone[b].vertexCount .parent .m[e] (e = 0..11)
EncodedFile encodeMb(const MbFigure& figure);

}  // namespace encode
