// Finds out whether some triangle of one record crosses one of the other, without looking at every pair.
#pragma once

#include "query/record_crossing.h"

// shift: by how many bits all coordinates go to the left, or to the right when negative.
CollisionResult PairSearch_run(const PlacedRecord& a, const PlacedRecord& b, int32_t shift, K8Allocator* allocator,
                               CollisionWork* work, bool* out);
