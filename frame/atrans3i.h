// Operations on Atrans3i, the 3x4 integer matrix in which figures are posed, beside the exported ones of k8.h. All of
// them wrap around in 32 bits; products with vectors, rolls and scales round halves up.
#pragma once

#include "k8.h"

void Atrans3i_setIdentity(Atrans3i* out);

// out = a applied to the point v; out may be v.
void Atrans3i_transformVector(const Atrans3i* a, const int32_t v[3], int32_t out[3]);

// Writes the rotation that carries the z axis onto `direction` (an F vector of length 1.0) by the shortest arc, after a
// roll about the z axis by `roll` (1/4096 turn). Leaves the translation alone.
void Atrans3i_setDirectionRoll(Atrans3i* out, const int32_t direction[3], int32_t roll);

// The same after a scale along the three axes (F numbers).
void Atrans3i_setDirectionRollScale(Atrans3i* out, const int32_t scale[3], const int32_t direction[3], int32_t roll);

// Rows 0 to 2 of the transform as F numbers, the translation included.
void Atrans3i_setTransform(Atrans3i* out, const K8Transform* transform);
