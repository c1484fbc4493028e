// The two walks over the tree of handles that a host queues: one gathers its lights and fog, the other queues its figures
// and primitives. Both keep their stack in pool records, so depth costs no stack, and a tree is walked to at most
// kMaxGroupVisits groups, so that groups which contain others many times over end as a failure and not as a hang.
#pragma once

#include "render/draw_list.h"

constexpr uint32_t kMaxGroupVisits = 65535;  // what fits the order word of a light

// Adds the lights of the tree to the context's light tables and finds its fog. object stands at `placed`.
// lightCount   in: lights of the parameter block, out: all; with a full table shallower lights displace deeper ones
// fog          out: the shallowest fog of the tree, or null; borrowed
bool K8DrawTree_gather(K8Render* handle, K8Handle* object, const K8Transform& placed, int32_t* lightCount, K8Fog** fog);

// Queues every figure and primitive below a group, depth first, each at its own place. False after the first that cannot be
// queued; the caller takes back what was queued.
using K8QueueLeaf = bool (*)(void* closure, const K8Handle* leaf, const K8Transform& transform);
bool K8DrawTree_expand(K8Render* handle, const K8Group* group, const K8Transform& placed, K8QueueLeaf queueLeaf,
                       void* closure);
