// The lights of one K8Render_render3D call, in the tables of the context: those of the parameter block, then those of
// the queued tree. An item carries duplicates of them only where they differ from the lights of the item before.
#pragma once

#include "render/draw_list.h"

// Takes the lights of the parameter block, as many as the table holds, in place of the last call's. False for a light
// that cannot be used.
bool K8CallLights_start(K8RenderContext* context, const K8RenderParams& params);

// Where in the tree a light was found: groups entered so far in the upper half, depth below the root in the lower. The
// lights of the parameter block have 0.
constexpr uint32_t K8CallLights_orderWord(uint32_t groupVisits, uint32_t depth) { return groupVisits << 16 | depth; }

// Adds a light that stands in a group of the tree; `place` is that group's. In a full table it takes the place of the
// deepest light that lies deeper, and is left out when there is none. A light without object or info, and one that is
// there already, is left out too.
void K8CallLights_add(K8RenderContext* context, const K8Light* handle, const K8Transform& place, uint32_t orderWord);

// Gives the item duplicates of the lights, unless they equal the collected ones. False when memory runs out.
bool K8CallLights_giveTo(K8Render* handle, DrawItem* item);

// The collected lights: those that the last item left lit, borrowed from an item of the list.
void K8CallLights_collect(K8RenderContext* context, const DrawItem& item);
void K8CallLights_forgetCollected(K8RenderContext* context);
