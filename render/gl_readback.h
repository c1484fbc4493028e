// Bringing a finished frame into an image.
#pragma once

#include "render/gl_state.h"

// Writes the frame into the bound image, in the image's stored form, and counts that as a change of its pixels.
// OUT_OF_MEMORY: nothing was read.
Result GLReadback_intoTargetImage(GLBackend* backend);
