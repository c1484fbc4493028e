#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "tools/encode/bone_matrix.h"
#include "tools/encode/byte_writer.h"

namespace encode {

// Keys of a track. Between two keys values are interpolated (patterns are not), after the last one they stay. An array
// of keys is not empty, starts at frame 0, rises strictly and ends at the action's frame count at the latest.
struct MtVectorKey {
    uint16_t frame;
    int16_t x, y, z;
};
struct MtScalarKey {
    uint16_t frame;
    int16_t value;
};
struct MtPatternKey {
    uint16_t frame;
    uint32_t mask;  // bit s shows pattern s of the figure
};
using MtVectorKeys = std::vector<MtVectorKey>;
using MtScalarKeys = std::vector<MtScalarKey>;
using MtPatternKeys = std::vector<MtPatternKey>;

// What a bone does during an action; its transform is the figure's rest matrix times the track's. The names list what a
// track holds: translation in model units; scale per axis, 4096 is 1; direction, where the bone's z axis points, of any
// length but 0; roll about that axis in 1/4096 of a turn.
struct MtConstantMatrix {
    BoneMatrix matrix = kIdentityBone;
};
struct MtUnchanged {};
struct MtTranslateScaleDirectionRoll {
    MtVectorKeys translation{}, scale{}, direction{};
    MtScalarKeys roll{};
};
struct MtDirectionFixedTranslateRoll {
    std::array<int16_t, 3> translation{};
    MtVectorKeys direction{};
    int16_t roll = 0;
};
struct MtDirectionRoll {
    MtVectorKeys direction{};
    MtScalarKeys roll{};
};
struct MtDirection {
    MtVectorKeys direction{};
};
struct MtTranslateDirectionRoll {
    MtVectorKeys translation{}, direction{};
    MtScalarKeys roll{};
};

// In the order of the file's track kinds: index() is the kind byte.
using MtTrack = std::variant<MtConstantMatrix, MtUnchanged, MtTranslateScaleDirectionRoll,
                             MtDirectionFixedTranslateRoll, MtDirectionRoll, MtDirection, MtTranslateDirectionRoll>;

struct MtAction {
    std::string name{};             // for readers of the description, not stored
    int32_t frameCount = 0;         // 0..32767
    std::vector<MtTrack> tracks{};  // one per bone
    MtPatternKeys patterns{};       // version 5; empty becomes one key with mask 0, which older versions mean as well
};

struct MtTable {
    int32_t version = 5;  // 2..5
    uint32_t boneCount = 0;
    std::vector<MtAction> actions{};
    std::vector<uint8_t> trailer = std::vector<uint8_t>(20);  // after the last action, version 4 and later
    bool allowInvalidKeys = false;                            // writes key arrays as they are: for tests of readers
};

// Writes an action table. Throws std::invalid_argument with a text that names the action and track for what the format
// cannot say: patterns before version 5, a number of tracks other than boneCount, key arrays that break the rules
// above.
//
// Fields of the result (a action, b bone, k key; the arrays of a track by their names above):
//   magic version actionCount boneCount kindCount[0..7] keyValueCount
//   action[a].frameCount
//   action[a].track[b].kind .m[e] (e = 0..11) .x .y .z (fixed translation) .roll (fixed)
//   action[a].track[b].translation.count   .translation[k].frame .x .y .z   scale, direction likewise
//   action[a].track[b].roll.count          .roll[k].frame .value
//   action[a].pattern.count                action[a].pattern[k].frame .low .high
EncodedFile encodeMt(const MtTable& table);

}  // namespace encode
