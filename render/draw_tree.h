// The two walks over the tree of handles that a host queues: one gathers its lights and fog, the other queues its
// figures and primitives. Both keep their stack in pool records, so depth costs no stack, and both give up on a tree
// that contains groups many times over before they hang.
#pragma once

#include "render/draw_list.h"

// Visits of one walk; what is reached in several ways counts each time. The number of groups has to fit the order word
// of a light. A tree of 2048 items is drawn with far fewer.
constexpr uint32_t kMaxGroupVisits = 65535;
constexpr uint32_t kMaxChildVisits = 16 * 65536;

// The record sizes of the walks; the draw list fills in its own kinds.
void K8DrawTree_setRecordSizes(std::array<uint32_t, kRecordKindCount + 1>& sizes);

// Adds the lights of a tree to the lights of the call and finds its fog: the shallowest, and the first of those. The
// object stands at `placed`. The fog is borrowed, and null when there is none. False after storing an error status.
bool K8DrawTree_gather(K8RenderContext* context, const K8Handle* object, const K8Transform& placed, const K8Fog** fog);

// Calls queueLeaf for every figure, primitive and scene below a group, depth first, each with its own place. False
// after storing an error status, and when queueLeaf returned false; the caller takes back what was queued.
using K8QueueLeaf = bool (*)(void* closure, const K8Handle* leaf, const K8Transform& place);
bool K8DrawTree_expand(K8RenderContext* context, const K8Group* group, const K8Transform& placed, K8QueueLeaf queueLeaf,
                       void* closure);
