// What is kept with positions that are picked again and again: a tree of boxes over the triangles of the mesh, in the
// positions' integers, so that it serves any scale, bias, culling and appearances.
//
// It is made once the same triangles over the same positions have been walked 16 times, as one engine block in
// VertexArray::pickTree that takes at most 16 bytes per triangle (some 50 more while it is made). Until then the
// block only counts the picks. Meshes that share positions share the block: it is for the one with more than half of
// the picks.
#pragma once

#include "query/pick_triangle.h"

// Answers a pick as PickWalk_all would. False, with nothing done but counting, when it has to be walked: there is no
// tree, or the numbers are out of its range, or the ray passes so many triangles that walking is as fast.
bool PickTree_pick(Pick* pick);
