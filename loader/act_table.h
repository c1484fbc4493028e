// The action table: the animations of a figure, in one block.
#pragma once

#include "scene/object3d.h"

enum class TrackKind : uint32_t {
    ConstantMatrix = 0,
    Unchanged = 1,
    TranslateScaleDirectionRoll = 2,
    DirectionFixedTranslateRoll = 3,
    DirectionRoll = 4,
    Direction = 5,
    TranslateDirectionRoll = 6,
};
constexpr uint32_t kTrackKindCount = 7;

// Keys are 16-bit words as in the file: a frame number, then the values.
struct VectorKey {
    uint16_t frame;
    int16_t v[3];
};
struct ScalarKey {
    uint16_t frame;
    int16_t value;
};
struct PatternKey {
    uint16_t frame;
    uint16_t low, high;  // of the mask
};

// Records of the track kinds, behind the offset of their track word.
struct ConstantMatrixTrack {
    int16_t m[12];
};
struct TranslateScaleDirectionRollTrack {
    uint16_t translationCount, scaleCount, directionCount, rollCount;
    const VectorKey* translation;
    const VectorKey* scale;
    const VectorKey* direction;
    const ScalarKey* roll;
};
struct DirectionFixedTranslateRollTrack {
    int16_t translation[3];
    int16_t roll;
    uint16_t directionCount;
    const VectorKey* direction;
};
struct DirectionRollTrack {
    uint16_t directionCount, rollCount;
    const VectorKey* direction;
    const ScalarKey* roll;
};
struct DirectionTrack {
    uint16_t directionCount;
    const VectorKey* direction;
};
struct TranslateDirectionRollTrack {
    uint16_t translationCount, directionCount, rollCount;
    const VectorKey* translation;
    const VectorKey* direction;
    const ScalarKey* roll;
};
struct PatternTrack {
    uint16_t keyCount;
    const PatternKey* keys;
};

struct qelActTable : Object3D {
    int32_t creationParameter;  // 0 for loaded tables; kept when the table is reset
    uint8_t* data;              // owned: the one block behind everything below; null while empty
    uint32_t actionCount;
    uint32_t boneCount;
    // Per action boneCount + 1 track words: kind << 24 | offset of the record in data. The last is the pattern track's,
    // 0 when there is none.
    uint32_t** tracks;
    int32_t* frameCounts;  // per action, 16.16
};

ActTable* qelActTable_create();  // empty; null when memory runs out
void qelActTable_finalise(ActTable* table);
void qelActTable_releaseData(ActTable* table);  // empties the table; the object itself stays as it is

inline TrackKind trackKindOf(uint32_t trackWord) { return TrackKind(trackWord >> 24); }
template <typename Record>
const Record* trackRecordOf(const ActTable* table, uint32_t trackWord) {
    return reinterpret_cast<const Record*>(table->data + (trackWord & 0xFFFFFFu));
}
