// What is wrong with the options of a command; the text is for the user.
#pragma once

#include <stdexcept>

struct UsageProblem : std::runtime_error {
    using std::runtime_error::runtime_error;
};
