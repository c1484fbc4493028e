// Deep copies of handle trees, taken when an object is queued so that the host may change or destroy its handles before
// the flush.
#pragma once

#include "k8.h"
#include "render/record_pool.h"

// Copies a handle of any family with every handle, record, transform and array hanging off it. Handles, records and
// transforms of the copy are pool records, arrays come from the pool's allocator, and every wrapped object gains a
// reference. Null after storing an error status; the part made so far is released then.
K8Handle* K8Handle_copyTree(const K8Handle* handle, RecordPool* pool);

// Releases what K8Handle_copyTree made. Ignores null. A copy must not be destroyed in any other way.
void K8Handle_releaseCopy(K8Handle* handle);

// The record sizes of kinds 3 and 6 to 18, for making the pool; the draw list fills in its own kinds.
void K8Handle_setCopyRecordSizes(std::array<uint32_t, kRecordKindCount + 1>& sizes);
