// Trees drawn with lines.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

struct TreeLine {
    size_t depth;  // 0: a root; at most one more than the line before has
    std::string text;
};

// One line of output for each, parents before their children. Content decides how deep a tree goes: beyond
// kMaxTreeDepth lines say their depth instead of showing it.
constexpr size_t kMaxTreeDepth = 40;
std::string drawTree(const std::vector<TreeLine>& lines, const std::string& indentation);
