// Evaluates the tracks of an action table at a frame position.
#pragma once

#include "loader/act_table.h"

// The frame position of a pose, and the keys between which the last lookup found it. Exporters set the keys of many
// tracks at the same frames: their lookups need neither search nor division.
struct KeyCursor {
    uint32_t position;  // 16.16, not negative
    uint32_t index;     // of the key before; the others are meaningless while nextFrame is 0
    uint32_t frame, nextFrame;
    uint32_t fraction;  // of the way from one to the next, 0.16
};

inline KeyCursor keyCursorAt(int32_t position) { return {position < 0 ? 0 : uint32_t(position), 0, 0, 0, 0}; }

// What a track with keys says; where it has no translation, scale or roll: 0, 1.0 (4096), 0, which change nothing.
// Three rows of four, for kernels that read them as vectors.
struct alignas(16) TrackValues {
    int32_t translation[3];
    int32_t roll;  // 1/4096 turn
    int32_t scale[3];
    int32_t scalePadding;
    int32_t direction[3];  // of any length below 2^17
    int32_t directionPadding;
};

// For the track kinds that have keys, all but ConstantMatrix and Unchanged.
void ActTrack_evaluate(const ActTable* table, uint32_t trackWord, KeyCursor& cursor, TrackValues* out);

// out = rest M for the kinds without keys; false for the others.
bool ActTrack_transformWithoutKeys(const ActTable* table, uint32_t trackWord, const Atrans3i* rest, Atrans3i* out);

// The mask of the last key at or before the position.
uint32_t PatternTrack_maskAt(const PatternTrack* track, int32_t position);
