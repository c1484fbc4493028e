// What an "MT" action table holds.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace inspect {

struct ActionSummary {
    int32_t frameCount;
    std::array<uint32_t, 7> trackKinds{};  // tracks of each kind
    uint32_t patternKeys = 0;              // 0: no pattern track
};

struct ActionTableSummary {
    int32_t version = 0;
    uint32_t boneCount = 0;
    std::vector<ActionSummary> actions;
};

// Throws ContentProblem for what the library would not load.
ActionTableSummary inspectActions(std::span<const uint8_t> bytes);

}  // namespace inspect
