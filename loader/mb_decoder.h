// The "MB" figure model format.
#pragma once

#include "loader/figure_model.h"
#include "loader/stream.h"

// On success `model` is complete and the caller's to release; on failure it is empty. magicConsumed: the stream stands
// behind the two bytes "MB".
bool D_FigureModel_decode(LoaderStream* stream, FigureModelData* model, bool magicConsumed);
