// Internal operations on the records of hits, beside the exported ones of k8.h.
#pragma once

#include "scene/names.h"

// Origin and direction. NULL_POINTER for a null array.
Result qelRayIntersection_getRay(const RayIntersection* record, float out[6]);
// Appends a copy. NULL_POINTER for a null record, OUT_OF_MEMORY when the array cannot grow; it then stays as it was.
Result qelRayIntersectionArray_appendIntersection(RayIntersectionArray* array, const RayIntersection* record);
