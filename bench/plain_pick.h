// Picking written straight from its formulas: one triangle after another, each with its own three vertices. The
// yardstick of the benchmarks and the oracle of the property tests; of query/ it shares nothing but the records.
#pragma once

#include <vector>

#include "scene/mesh.h"

// The two kinds of pick on any vertex buffer with the mesh's triangles and appearances. ray: origin and direction.
bool plainPick(Mesh* mesh, const VertexBuffer* buffer, const float ray[6], RayIntersection* record, Result* result);
bool plainPickMultiple(Mesh* mesh, const VertexBuffer* buffer, const float ray[6], std::vector<RayIntersection>* hits,
                       Result* result);
