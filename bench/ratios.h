// Benchmarks that are held to a ratio: two of one run are compared by their best times, and main prints a table of what
// was measured and what was wanted.
#pragma once

#include <string>

enum class RatioBound { AtLeast, AtMost };

// Wants time(numerator) / time(denominator) at least, or at most, at `wanted`. Both are names of benchmarks as they are
// printed. Returns a value so that it can be called before main.
bool expectRatio(std::string what, std::string numerator, std::string denominator, RatioBound bound, double wanted);
