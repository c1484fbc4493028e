#pragma once

#include <cstdint>
#include <random>

// The same draws on every machine: std::uniform_int_distribution differs from one standard library to the next.
struct Random {
    std::mt19937 engine;

    uint32_t below(uint32_t count) { return uint32_t(engine()) % count; }
    int32_t between(int32_t low, int32_t high) { return low + int32_t(below(uint32_t(high - low) + 1)); }
    bool chance(uint32_t oneIn) { return below(oneIn) == 0; }
    int16_t anyInt16() { return int16_t(engine()); }
};
