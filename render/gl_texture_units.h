// The two texture units of a draw.
#pragma once

#include "render/gl_state.h"

// Both select the unit, for the client's arrays and for the rest.
void GLTextureUnits_switchOff(int32_t unit);
void GLTextureUnits_switchOn(int32_t unit);

// Switches off the units that the appearance leaves empty and prepares the others: texture, environment, coordinates, matrix.
Result GLTextureUnits_send(const GLBackend* backend, const SubmeshDraw& draw);
