// Handles from the three formats that stand for one object each: by themselves, or as records of a package.
#pragma once

#include "loader/stream.h"

// Each decodes from the magic on and wraps the object it makes; the handle belongs to the caller. Null, with everything
// given back, when the content is not accepted or memory runs out; which of the two is for the caller to find out and
// store.
K8ActionTable* K8Content_loadActionTable(LoaderStream* stream, K8Allocator* allocator);
K8Figure* K8Content_loadFigure(LoaderStream* stream, K8Allocator* allocator);    // info: as below
K8Texture* K8Content_loadTexture(LoaderStream* stream, K8Allocator* allocator);  // info: all zero

// The record of a figure as it comes from its file: opaque, everything changeable.
K8FigureInfo K8Content_figureDefaults();
