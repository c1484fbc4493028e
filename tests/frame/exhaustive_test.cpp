// Number kernels over all 2^32 arguments.
#include <gtest/gtest.h>

#include <bit>

#include "frame/fixed_point.h"
#include "tests/frame/number_reference.h"

namespace {

TEST(FixedPointExhaustive, J2F) {
    uint32_t bits = 0;
    do {
        const float value = std::bit_cast<float>(bits);
        if (j2f(value) != expectedJ2F(value)) FAIL() << std::hex << bits;
    } while (++bits != 0);
}

TEST(FixedPointExhaustive, F2J) {
    uint32_t bits = 0;
    do {
        if (f2j(int32_t(bits)) != expectedF2J(int32_t(bits))) FAIL() << int32_t(bits);
    } while (++bits != 0);
}

TEST(FixedPointExhaustive, SquareRoot) {
    uint64_t root = 0;
    for (uint64_t value = 0; value <= UINT32_MAX; ++value) {
        if (value > root * (root + 1)) ++root;
        if (integerSqrt(uint32_t(value)) != root) FAIL() << value;
    }
}

}  // namespace
