// The order in which trees take boxes: along a curve that fills space, so that neighbours in order are neighbours in
// space and any stretch of them fits a close box around it.
#pragma once

#include <cstddef>

#include "query/box16.h"

// Writes the numbers of boxes in that order, in linear time; boxes with one centre keep the order of their numbers.
// There must be at least one box. `scratch` must be aligned for uint32_t and as large as SpaceOrder_scratchByteCount
// says, and is free again afterwards; `order` may be anything but a part of it.
void SpaceOrder_sort(const Box16* boxes, uint32_t count, uint32_t* order, void* scratch);
size_t SpaceOrder_scratchByteCount(uint32_t count);
