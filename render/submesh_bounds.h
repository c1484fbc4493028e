// Bounding spheres and sort depths of the submeshes of a mesh.
#pragma once

#include "render/view_volume.h"
#include "scene/mesh.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_buffer.h"

// Whether a submesh uses only vertices that the positions have.
bool qelSubmeshBounds_indicesFit(const VertexBuffer* buffer, const TriangleStripArray* strips);

// The sphere of one submesh under a world transform: half the diagonal of its transformed box, around that diagonal's
// middle. Indices must fit. The box is taken anew when the contents of the positions are others than last time, so the
// bounds must always be those of the same strips.
void qelSubmeshBounds_compute(const VertexBuffer* buffer, const TriangleStripArray* strips, const qelTransform* world,
                              SubmeshBounds* bounds);
