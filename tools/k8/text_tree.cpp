#include "tools/k8/text_tree.h"

#include <algorithm>

// Per line: whether a sibling follows, that is, whether the next line that is not deeper is as deep.
static std::vector<bool> findFollowedLines(const std::vector<TreeLine>& lines) {
    std::vector<bool> isFollowed(lines.size());
    std::vector<bool> isOpen;  // per depth, seen from the end: a line of this depth comes before any shallower one
    for (size_t i = lines.size(); i-- > 0;) {
        const size_t depth = lines[i].depth;
        isFollowed[i] = depth < isOpen.size() && isOpen[depth];
        isOpen.resize(depth + 1);
        isOpen[depth] = true;
    }
    return isFollowed;
}

std::string drawTree(const std::vector<TreeLine>& lines, const std::string& indentation) {
    const std::vector<bool> isFollowed = findFollowedLines(lines);
    std::vector<bool> openBars;  // per depth: the line of that depth above has a sibling further down
    std::string out;
    for (size_t i = 0; i < lines.size(); ++i) {
        const size_t depth = lines[i].depth, shown = std::min(depth, kMaxTreeDepth);
        out += indentation;
        for (size_t level = 1; level < shown; ++level) out += openBars[level] ? "│  " : "   ";
        if (depth > 0) out += isFollowed[i] ? "├─ " : "└─ ";
        if (depth > shown) out += "(" + std::to_string(depth) + " deep) ";
        out += lines[i].text + "\n";
        openBars.resize(depth + 1);
        openBars[depth] = isFollowed[i];
    }
    return out;
}
