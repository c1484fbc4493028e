// What the library does with the K8 interface's matrices beside the exported functions of k8.h.
#pragma once

#include "k8.h"

// True when no element is less or greater than its counterpart: a NaN matches anything.
bool K8Transform_equal(const float a[16], const float b[16]);
