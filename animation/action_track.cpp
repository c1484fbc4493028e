#include "animation/action_track.h"

#include <algorithm>

#include "frame/fixed_point.h"
#include "frame/wrap.h"

// --- Keys ---

// The last key at or before the frame; the first key is at frame 0. Without branches on what is compared, because poses
// jump about.
template <typename Key>
static const Key* findKey(const Key* keys, uint32_t count, uint32_t frame) {
    while (count > 1) {
        const uint32_t half = count / 2;
        keys = keys[half].frame <= frame ? keys + half : keys;
        count -= half;
    }
    return keys;
}

template <typename Key>
struct KeyPair {
    const Key* from;
    const Key* to;      // null at the last key
    uint32_t fraction;  // 0.16
};

template <typename Key>
static KeyPair<Key> lookUp(KeyCursor& cursor, const Key* keys, uint32_t count) {
    if (cursor.index + 1 < count && keys[cursor.index].frame == cursor.frame &&
        keys[cursor.index + 1].frame == cursor.nextFrame)
        return {keys + cursor.index, keys + cursor.index + 1, cursor.fraction};
    const Key* from = findKey(keys, count, cursor.position >> 16);
    const Key* to = from + 1;
    if (to == keys + count) return {from, nullptr, 0};
    cursor.index = uint32_t(from - keys);
    cursor.frame = from->frame;
    cursor.nextFrame = to->frame;
    cursor.fraction = (cursor.position - (cursor.frame << 16)) / (cursor.nextFrame - cursor.frame);
    return {from, to, cursor.fraction};
}

static int32_t interpolate(int32_t from, int32_t to, uint32_t fraction) {
    return wrapAdd(from, wrapAdd(wrapMul(to - from, int32_t(fraction)), 1 << 15) >> 16);
}

static void sample(KeyCursor& cursor, const VectorKey* keys, uint32_t count, int32_t out[3]) {
    const KeyPair pair = lookUp(cursor, keys, count);
    const int16_t* from = pair.from->v;
    const int16_t* to = pair.to ? pair.to->v : from;
    for (int i = 0; i < 3; ++i) out[i] = interpolate(from[i], to[i], pair.fraction);
}

static int32_t sample(KeyCursor& cursor, const ScalarKey* keys, uint32_t count) {
    const KeyPair pair = lookUp(cursor, keys, count);
    return interpolate(pair.from->value, pair.to ? pair.to->value : pair.from->value, pair.fraction);
}

// --- Tracks ---

void ActTrack_evaluate(const ActTable* table, uint32_t trackWord, KeyCursor& cursor, TrackValues* out) {
    *out = {{0, 0, 0}, 0, {kFixedOne, kFixedOne, kFixedOne}, 0, {0, 0, 0}, 0};
    switch (trackKindOf(trackWord)) {
        case TrackKind::ConstantMatrix:
        case TrackKind::Unchanged: return;
        case TrackKind::TranslateScaleDirectionRoll: {
            const auto* track = trackRecordOf<TranslateScaleDirectionRollTrack>(table, trackWord);
            sample(cursor, track->translation, track->translationCount, out->translation);
            sample(cursor, track->scale, track->scaleCount, out->scale);
            sample(cursor, track->direction, track->directionCount, out->direction);
            out->roll = sample(cursor, track->roll, track->rollCount);
            return;
        }
        case TrackKind::DirectionFixedTranslateRoll: {
            const auto* track = trackRecordOf<DirectionFixedTranslateRollTrack>(table, trackWord);
            std::copy_n(track->translation, 3, out->translation);
            sample(cursor, track->direction, track->directionCount, out->direction);
            out->roll = track->roll;
            return;
        }
        case TrackKind::DirectionRoll: {
            const auto* track = trackRecordOf<DirectionRollTrack>(table, trackWord);
            sample(cursor, track->direction, track->directionCount, out->direction);
            out->roll = sample(cursor, track->roll, track->rollCount);
            return;
        }
        case TrackKind::Direction: {
            const auto* track = trackRecordOf<DirectionTrack>(table, trackWord);
            sample(cursor, track->direction, track->directionCount, out->direction);
            return;
        }
        case TrackKind::TranslateDirectionRoll: {
            const auto* track = trackRecordOf<TranslateDirectionRollTrack>(table, trackWord);
            sample(cursor, track->translation, track->translationCount, out->translation);
            sample(cursor, track->direction, track->directionCount, out->direction);
            out->roll = sample(cursor, track->roll, track->rollCount);
            return;
        }
    }
}

bool ActTrack_transformWithoutKeys(const ActTable* table, uint32_t trackWord, const Atrans3i* rest, Atrans3i* out) {
    switch (trackKindOf(trackWord)) {
        case TrackKind::ConstantMatrix: {
            Atrans3i matrix;
            std::copy_n(trackRecordOf<ConstantMatrixTrack>(table, trackWord)->m, 12, matrix.m);
            D_Atrans3i_multiply2(out, rest, &matrix);
            return true;
        }
        case TrackKind::Unchanged: *out = *rest; return true;
        case TrackKind::TranslateScaleDirectionRoll:
        case TrackKind::DirectionFixedTranslateRoll:
        case TrackKind::DirectionRoll:
        case TrackKind::Direction:
        case TrackKind::TranslateDirectionRoll: return false;
    }
    return false;
}

uint32_t PatternTrack_maskAt(const PatternTrack* track, int32_t position) {
    const PatternKey* key = findKey(track->keys, track->keyCount, keyCursorAt(position).position >> 16);
    return uint32_t(key->high) << 16 | key->low;
}
