// Draws what a loaded scene brought: single meshes wrapped in figures, and whole scenes as one unit. Whatever a draw
// changes on the scene's objects is put back.
#pragma once

#include "render/draw_list.h"

// A queued figure whose object is a Mesh, MorphingMesh or SkinnedMesh. False when it cannot be drawn; the caller
// stores the error status.
bool K8DrawList_drawMeshFigure(K8Render* handle, const DrawItem* item, const K8FigureInfo& info);

// A queued scene group.
bool K8DrawList_drawScene(K8Render* handle, const DrawItem* item);
