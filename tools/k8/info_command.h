// k8 info: prints what a content file holds.
#pragma once

#include <string>

struct InfoOptions {
    std::string file;
    bool json = false;
};

// Returns the exit status, as those of all commands do. They throw std::runtime_error for what cannot be done, and
// UsageProblem where an option is to blame.
int runInfo(const InfoOptions& options);
