// What the loaded info of a primitive says, checked, for those who draw from it.
#pragma once

#include <array>
#include <span>

#include "k8.h"

constexpr int32_t kPrimitiveArrayCount = 5;

// A type in either of its two forms, as it is or in the top byte, as it is.
uint32_t K8Primitive_plainType(uint32_t type);

struct PrimitiveValues {
    uint32_t type;  // plain
    uint32_t params;
    uint32_t count;  // of primitives
    // By kind (K8_PRIM_POSITIONS...): exactly what these primitives need; empty for what they do not have.
    std::array<std::span<const int32_t>, kPrimitiveArrayCount> arrays;
};

// As many primitives as there are positions for. False when type and mode bits do not go together or when another array
// is shorter than they need. A set without primitives has no arrays.
bool K8Primitive_readValues(const K8PrimitiveInfo& info, PrimitiveValues* out);

// `count` of the primitives from `first` on. What is given once for the whole set comes along.
PrimitiveValues K8Primitive_partOf(const PrimitiveValues& all, uint32_t first, uint32_t count);
