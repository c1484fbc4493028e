// Puts the engine status back at the end of its scope: for memory that is only wanted for speed.
#pragma once

#include "frame/error_status.h"

struct QuietStatus {
    QuietStatus() : status(qelStatus_get()) {}
    ~QuietStatus() {
        if (qelStatus_get() != status) qelStatus_set(status);
    }
    QuietStatus(const QuietStatus&) = delete;
    QuietStatus& operator=(const QuietStatus&) = delete;
    int32_t status;
};
