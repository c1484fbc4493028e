// Cutting one allocation into several arrays.
#pragma once

#include <cstddef>
#include <cstdint>

// The next `count` elements of a block; `next` moves behind them. Ask for the types with the strictest alignment first.
template <typename T>
T* carve(uint8_t*& next, uint32_t count) {
    T* part = reinterpret_cast<T*>(next);
    next += size_t(count) * sizeof(T);
    return part;
}
