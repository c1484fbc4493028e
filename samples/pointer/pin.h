// A pin that marks a point.
#pragma once

#include "samples/pointer/picking.h"

// Null when memory runs out; the caller destroys it.
K8Primitive* makePin();

// From the pin to the world: its tip on the point of the hit, its length along the normal.
K8Transform placePin(const Hit& hit);
