// The collision query written straight from its formulas: everything copied, every pair of triangles looked at, numbers
// that wrap around computed in 64 bits. The yardstick of the benchmarks and the oracle of the property tests; shares no
// code with query/.
#pragma once

#include <array>
#include <cstdint>

#include "k8.h"

using PlainPoint = std::array<int32_t, 3>;
using PlainTriangle = std::array<PlainPoint, 3>;

bool plainCross(const K8Handle* objectA, const K8Transform* transformA, const K8Handle* objectB,
                const K8Transform* transformB);

// Of whole numbers in the common frame.
bool plainTrianglesCross(const PlainTriangle& a, const PlainTriangle& b);

int32_t plainMul(int32_t a, int32_t b);
int32_t plainDiv(int32_t a, int32_t b);
