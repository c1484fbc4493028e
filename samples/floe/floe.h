// A winter night on an ice floe: a package with every kind of record. Units are those of a scene: the penguin stands
// about 25 high, y points up, the viewer looks towards -z.
#pragma once

#include "samples/floe/shapes.h"

encode::K8Package floePackage();

// Its parts. Primitives that are never hidden by anything, because they are drawn last: stars and aurora stand above
// all the rest, snow falls in front of it.
encode::K8PrimitiveRecord floeIce();        // quadrilaterals, lit, coloured one by one
encode::K8PrimitiveRecord floeWater();      // one quadrilateral with normals at its corners
encode::K8PrimitiveRecord floeMountains();  // triangles, lit, coloured one by one
encode::K8PrimitiveRecord floeMoon();       // triangles of one colour, not lit
encode::K8PrimitiveRecord floeStars();      // points
encode::K8PrimitiveRecord floeAurora();     // lines
encode::K8PrimitiveRecord floeRod();        // lines of one colour: a fishing rod
encode::K8PrimitiveRecord floeSnow();       // sprites with a record each
encode::K8PrimitiveRecord floeLanterns();   // sprites that share one record
