// Boxes in 16-bit integers.
#pragma once

#include <algorithm>
#include <cstdint>

struct Box16 {
    int16_t least[3], greatest[3];
};

inline Box16 Box16_unite(const Box16& a, const Box16& b) {
    Box16 box;
    for (int i = 0; i < 3; ++i) {
        box.least[i] = std::min(a.least[i], b.least[i]);
        box.greatest[i] = std::max(a.greatest[i], b.greatest[i]);
    }
    return box;
}
