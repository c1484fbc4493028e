// Packages that carry a JSR 184 scene: their objects, and the handles made for the nodes of their World.
#pragma once

#include "loader/stream.h"

// Reads the sections behind a package's header. objectCount: how many objects the header promises. Returns the root
// handle of the scene, which belongs to the caller with every handle that its childData lists. Null, with everything
// given back, when the content is not accepted or memory runs out; which of the two is for the caller to find out and
// store.
K8Group* K8ScenePackage_load(MemoryStream* stream, uint16_t objectCount, K8Allocator* allocator);
