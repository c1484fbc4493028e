// "K8" packages: several objects and a tree of groups over them in one file.
#pragma once

#include "loader/stream.h"

// A package from its magic on. Returns the root handle, which belongs to the caller with every handle that its
// childData lists; without groups, with the textures and the action table that its info names. Null, with everything
// given back, when the content is not accepted or memory runs out; which of the two is for the caller to find out and
// store.
K8Handle* K8Package_load(MemoryStream* stream, K8Allocator* allocator);
