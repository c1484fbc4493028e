#include "frame/error_status.h"

static int32_t errorStatus = K8_ERR_FAILURE;  // reads as "no failure yet" too
static int32_t engineStatus = QEL_STATUS_OK;
static uint32_t exhaustionCount;  // wraps around: marks are only compared for equality

int32_t K8ErrStorage_setErrorStatus(int32_t status) {
    errorStatus = status;
    return errorStatus;
}

int32_t K8ErrStorage_getErrorStatus() { return errorStatus; }

int32_t qelStatus_get() { return engineStatus; }

void qelStatus_set(int32_t status) {
    engineStatus = status;
    if (status == QEL_STATUS_OUT_OF_MEMORY) FailureMark_noteExhaustion();
}

FailureMark FailureMark_now() { return {exhaustionCount}; }

void FailureMark_noteExhaustion() { ++exhaustionCount; }

void K8ErrStorage_storeFailure(FailureMark since) {
    const bool exhausted = exhaustionCount != since.exhaustions || engineStatus == QEL_STATUS_OUT_OF_MEMORY;
    errorStatus = exhausted ? K8_ERR_OUT_OF_MEMORY : K8_ERR_FAILURE;
}

bool K8ErrStorage_fail() {
    errorStatus = K8_ERR_FAILURE;
    return false;
}

bool K8ErrStorage_failOutOfMemory() {
    errorStatus = K8_ERR_OUT_OF_MEMORY;
    return false;
}
