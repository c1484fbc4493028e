// Turns an "MB" stream into a drawable figure.
#pragma once

#include "loader/figure_model.h"
#include "loader/stream.h"

// Loads into a new figure object. False when the figure is in use elsewhere (more than one reference; nothing changed),
// when the content is not accepted, and when memory runs out (the figure is empty then). On success pattern mask 0 is
// applied and the vertices are deformed once. magicConsumed: the stream stands behind the two bytes "MB".
bool D_Figure_load(FigureMesh* figure, LoaderStream* stream, bool magicConsumed);

// Builds from a decoded model, taking over the blocks it needs. On failure the figure needs finalising; the model is
// the caller's to release either way.
bool D_Figure_build(FigureMesh* figure, FigureModelData* model);
