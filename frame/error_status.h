// The two process-wide status words and the rule that turns a failure below a K8 function into its error status.
#pragma once

#include "k8.h"

// The engine status: QEL_STATUS_OK or QEL_STATUS_OUT_OF_MEMORY. Every engine allocation writes it.
int32_t qelStatus_get();
void qelStatus_set(int32_t status);

// Remembers how often memory had run out when a K8 function began. The engine status alone forgets an exhausted
// allocation as soon as a later one succeeds; the count does not.
struct FailureMark {
    uint32_t exhaustions;
};
FailureMark FailureMark_now();

// Counts one exhaustion that the engine status does not see: a host allocator that returned null, a record pool that is
// full.
void FailureMark_noteExhaustion();

// Stores K8_ERR_OUT_OF_MEMORY when memory ran out since the mark or the engine status says so, else K8_ERR_FAILURE.
void K8ErrStorage_storeFailure(FailureMark since);

// Stores K8_ERR_FAILURE; returns false so that a check is one line.
bool K8ErrStorage_fail();

// Stores K8_ERR_OUT_OF_MEMORY; returns false.
bool K8ErrStorage_failOutOfMemory();
