// The draw list of a render context: private copies of what the host queued, in queue order.
#pragma once

#include "render/render_context.h"
#include "scene/fog.h"

struct DrawItem {
    K8RenderParams params;         // without its pointers: what they said is in the members below
    K8Handle* object;              // a copy of the queued handle with its loaded info
    K8Transform transform;         // viewing transform x object transform
    uint32_t sortKey;              // the queued-call count at the time of the call
    int32_t lightCount;            // entries of the two arrays; 0 unless lightsChanged
    Light** lights;                // duplicates, one reference each; array of the handle's allocator
    K8Transform* lightTransforms;  // array of the handle's allocator
    Fog* fog;                      // one reference: a duplicate of the tree's fog, else of the block's; or null
    DrawItem* next;
    uint8_t lightsChanged;  // the lights differ from those of the item before
};

// Record sizes of the context's pool.
std::array<uint32_t, kRecordKindCount + 1> K8DrawList_recordSizes();

// Gives every item back, forgets the collected lights, rewinds the pools. Works on unbound handles too.
void K8DrawList_discard(K8Render* handle);
