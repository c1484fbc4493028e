// The draw list: queued copies of objects, and how each kind is drawn.
#pragma once

#include "frame/error_status.h"
#include "render/render_context.h"

// Record sizes of the pool: the draw list's own kinds and those of handle copies.
std::array<uint32_t, kRecordKindCount + 1> K8DrawList_recordSizes();

// Draws every item in queue order. On failure the error status is stored.
bool K8DrawList_draw(K8Render* handle, FailureMark since);

// Gives back every item, forgets the collected lights, rewinds the pools.
void K8DrawList_discard(K8Render* handle);
