// Group handles, beside what k8.h exports.
#pragma once

#include "k8.h"

// Gives a group with loaded info a transform of its own, which is released with the loaded info; a group that has one
// keeps it. Null when memory runs out.
K8Transform* K8Group_makeOwnTransform(K8Group* handle);
