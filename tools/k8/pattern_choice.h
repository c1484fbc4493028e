// Which patterns the user wants to see.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

struct PatternChoice {
    std::vector<uint32_t> shown;  // counted from 1; none: those that the action shows
    bool onlyBase = false;        // what is always drawn and nothing else
};

// Bit k shows pattern k + 1; unset: as the action says. Throws UsageProblem for patterns that are not there.
std::optional<uint32_t> patternMask(const PatternChoice& choice, uint32_t patternCount);
