#include "tools/k8/pattern_choice.h"

#include <string>

#include "tools/k8/usage_problem.h"

std::optional<uint32_t> patternMask(const PatternChoice& choice, uint32_t patternCount) {
    if (choice.onlyBase) return 0;
    if (choice.shown.empty()) return std::nullopt;
    if (patternCount < 2) throw UsageProblem("there are no patterns to switch");
    uint32_t mask = 0;
    for (const uint32_t pattern : choice.shown) {
        if (pattern < 1 || pattern >= patternCount)
            throw UsageProblem("there is no pattern " + std::to_string(pattern) + "; patterns 1 to " +
                               std::to_string(patternCount - 1) + " can be switched");
        mask |= 1u << (pattern - 1);
    }
    return mask;
}
