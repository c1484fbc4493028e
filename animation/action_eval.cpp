// What an action table says of a bone and of the patterns at a frame position.

#include "animation/action_track.h"
#include "animation/figure_pose.h"
#include "animation/pose_kernels.h"

int32_t D_ActTable_getNumActions(const ActTable* table) { return int32_t(table->actionCount); }

int32_t D_ActTable_getFrameCount(const ActTable* table, int32_t action) {
    return action >= 0 && uint32_t(action) < table->actionCount ? table->frameCounts[action] : 0;
}

void ActTable__calcTrans(const ActTable* table, int32_t action, int32_t bone, int32_t frame, Atrans3i* out,
                         const Atrans3i* rest) {
    const uint32_t trackWord = table->tracks[action][bone];
    if (ActTrack_transformWithoutKeys(table, trackWord, rest, out)) return;
    KeyCursor cursor = keyCursorAt(frame);
    TrackValues values;
    ActTrack_evaluate(table, trackWord, cursor, &values);
    TrackValues_apply(&values, rest, out);
}

uint32_t ActTable__calcPattern(const ActTable* table, int32_t action, int32_t frame) {
    const uint32_t trackWord = table->tracks[action][table->boneCount];
    return trackWord == 0 ? 0 : PatternTrack_maskAt(trackRecordOf<PatternTrack>(table, trackWord), frame);
}
